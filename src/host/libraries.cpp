// Host: packages and payment methods, as the configuration registers them and pages use them.

#include <algorithm>

#include "core/encoding.h"
#include "core/text.h"
#include "host/host.h"
#include "packages/commerce_order.h"
#include "packages/package_extract.h"
#include "packages/package_loader.h"

namespace vexa {

namespace {

// Puts `entry` in the place of the one with the same `key`, or at the end.
template <typename Entry>
void Register(std::vector<Entry>& entries, Entry&& entry, String Entry::*key) {
  const auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry& known) {
    return EqualsIgnoreCase(known.*key, entry.*key);
  });
  if (found == entries.end()) {
    entries.push_back(std::move(entry));
  } else {
    *found = std::move(entry);
  }
}

}  // namespace

void Host::AddPackage(PackageInfo package) {
  Register(packages_, std::move(package), &PackageInfo::code);
}

void Host::AddCommerceHandler(CommerceMethod method) {
  Register(commerce_, std::move(method), &CommerceMethod::method);
}

void Host::OrderPackages(std::string_view names) {
  std::vector<PackageInfo> ordered;
  for (PieceReader pieces(names, ","); pieces.Next();) {
    const std::string_view name = Stripped(pieces.piece());
    const auto with = [&](String PackageInfo::*key) {
      return std::find_if(packages_.begin(), packages_.end(), [&](const PackageInfo& package) {
        return EqualsIgnoreCase(package.*key, name);
      });
    };
    auto found = with(&PackageInfo::code);
    if (found == packages_.end()) found = with(&PackageInfo::name);
    if (found == packages_.end()) continue;
    ordered.push_back(std::move(*found));
    packages_.erase(found);
  }
  packages_ = std::move(ordered);
}

SitePlaces Host::places() const {
  return {script_directory_, data_directory_, config().tempdir, config_->TrustedOwner()};
}

PackageLoader& Host::libraries() {
  if (libraries_ == nullptr) libraries_ = std::make_unique<PackageLoader>(*this);
  return *libraries_;
}

bool Host::FindPackageFunction(std::string_view name, ExpressionContext& script,
                               const Callable*& function) {
  // Other sites could not keep an index whose keys a package computes.
  return packages_.empty() || key_index_ != nullptr ||
         libraries().FindFunction(name, script, function);
}

bool Host::CallPackageFunction(const Callable& function, ExpressionContext& script,
                               std::span<ScriptValue> arguments, ScriptValue& result) {
  return libraries().CallFunction(static_cast<const PackageFunction&>(function), script, arguments,
                                  result);
}

bool Host::ExtractPackage(const String& code, const String& directory, const String& license,
                          String& result, String& reason) {
  const auto package =
      std::find_if(packages_.begin(), packages_.end(),
                   [&](const PackageInfo& info) { return EqualsIgnoreCase(info.code, code); });
  if (package == packages_.end()) {
    reason = "there is no such package";
    return false;
  }
  PackageExtractor extractor(this, *package);
  bool done = false;
  if (license.empty()) {
    done = extractor.ReadLicense(directory, result);
  } else if (!ScriptValue::TextIsTrue(license)) {
    reason = "the licence was not accepted";
    return false;
  } else {
    done = extractor.Extract(directory);
    result = "1";
  }
  if (!done) reason = extractor.reason();
  return done;
}

std::unique_ptr<CommerceOrder> Host::NewCommerceHandler(const String& method,
                                                        ExpressionContext& script,
                                                        String& message) {
  const auto found = method.empty()
                         ? commerce_.begin()
                         : std::find_if(commerce_.begin(), commerce_.end(), [&](const auto& known) {
                             return EqualsIgnoreCase(known.method, method);
                           });
  if (found == commerce_.end()) {
    message = commerce_.empty()
                  ? String("No commerce method is configured")
                  : String::Concat({"There is no commerce method '", EntityEncoded(method), "'"});
    return nullptr;
  }
  CommerceLibrary& library = libraries().FindCommerce(*found);
  if (library.reason.empty()) return std::make_unique<CommerceOrder>(library, *this, script);
  message = String::Concat(
      {"Unable to load commerce method '", EntityEncoded(found->method), "': ", library.reason});
  return nullptr;
}

}  // namespace vexa
