// Thin calls of what the host and the encodings offer.

#include "expr/builtins.h"

#include <span>
#include <string_view>
#include <utility>

#include "core/encoding.h"
#include "core/string.h"
#include "core/text.h"
#include "core/variables.h"
#include "vexa.h"

namespace vexa {

namespace {

bool Recode(const BuiltinCall& call, void (*recode)(String& text)) {
  recode(call.Text(0));
  return call.Return(std::move(call.Text(0)));
}

// Separates what is appended to a list by commas.
class ListWriter {
 public:
  void Add(std::string_view item) {
    list_.Reserve(list_.size() + item.size() + 1);
    if (!first_) list_.cat(',');
    first_ = false;
    list_.cat(item);
  }
  String& list() { return list_; }

 private:
  String list_;
  bool first_ = true;
};

// The variables of a scope by its written name; none for any other text.
VariableList VariablesOf(Variables& variables, std::string_view scope) {
  VariableList list;
  if (EqualsIgnoreCase(scope, "l") || EqualsIgnoreCase(scope, "local")) {
    variables.GetLocalVariableList(list);
  } else if (EqualsIgnoreCase(scope, "g") || EqualsIgnoreCase(scope, "global")) {
    variables.GetGlobalVariableList(list);
  } else if (EqualsIgnoreCase(scope, "s") || EqualsIgnoreCase(scope, "system")) {
    variables.GetSystemVariableList(list);
  }
  return list;
}

// One fact about the package whose code is the first argument; empty when there is no such package.
bool TellPackage(const BuiltinCall& call, String PackageInfo::*fact) {
  for (const PackageInfo& package : call.host().packages()) {
    if (EqualsIgnoreCase(package.code, call.Text(0))) return call.Return((package.*fact).view());
  }
  return true;
}

}  // namespace

bool BuiltinEncodeattribute(const BuiltinCall& call) { return Recode(call, EncodeAttribute); }
bool BuiltinDecodeattribute(const BuiltinCall& call) { return Recode(call, DecodeAttribute); }
bool BuiltinEncodeentities(const BuiltinCall& call) { return Recode(call, EncodeEntities); }
bool BuiltinDecodeentities(const BuiltinCall& call) { return Recode(call, DecodeEntities); }

bool BuiltinMakesessionid(const BuiltinCall& call) {
  return call.Return(call.host().MakeSessionID());
}

bool BuiltinGetvarlist(const BuiltinCall& call) {
  ListWriter names;
  for (const Variable* variable : VariablesOf(call.host().vars(), call.Text(0))) {
    names.Add(variable->name());
  }
  return call.Return(std::move(names.list()));
}

bool BuiltinPackageList(const BuiltinCall& call) {
  ListWriter codes;
  for (const PackageInfo& package : call.host().packages()) codes.Add(package.code);
  return call.Return(std::move(codes.list()));
}

bool BuiltinPackageName(const BuiltinCall& call) { return TellPackage(call, &PackageInfo::name); }

bool BuiltinPackageDescription(const BuiltinCall& call) {
  return TellPackage(call, &PackageInfo::description);
}

bool BuiltinPackageVersion(const BuiltinCall& call) {
  return TellPackage(call, &PackageInfo::version);
}

bool BuiltinPackageDefaultpath(const BuiltinCall& call) {
  return TellPackage(call, &PackageInfo::defaultpath);
}

// A page that ran out of time ends at its next tag, without a message of this one.
bool BuiltinPackageExtract(const BuiltinCall& call) {
  String result;
  String reason;
  if (call.host().ExtractPackage(call.Text(0), call.Text(1), call.Text(2), result, reason)) {
    return call.Return(std::move(result));
  }
  call.ReturnFlag(false);
  if (reason.empty()) return true;
  return call.context().ReportFileError(String::Concat(
      {"Error extracting '", EntityEncoded(call.Text(0)), "' in vexa_package_extract: ", reason}));
}

bool BuiltinSetlanguage(const BuiltinCall& call) {
  call.host().SetLanguage(call.Text(0));
  return true;
}

bool BuiltinSetdefaultlanguage(const BuiltinCall& call) {
  call.host().SetDefaultLanguage(call.Text(0));
  return true;
}

}  // namespace vexa
