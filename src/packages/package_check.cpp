// Looking at a package without a site.

#include "packages/package_check.h"

#include <unistd.h>

#include <climits>
#include <vector>

#include "core/encoding.h"
#include "files/trusted_file.h"
#include "packages/package_extract.h"
#include "packages/package_interface.h"
#include "packages/package_loader.h"

namespace vexa {

namespace {

void Print(Output& out, std::initializer_list<std::string_view> parts) {
  out.Write(String::Concat(parts).view());
  out.Write("\n");
}

// Reasons are made for pages; people read them plain.
bool Complain(Output& out, std::string_view file, String reason, std::string_view offender) {
  DecodeEntities(reason);
  const bool other = !offender.empty() && offender != file;
  Print(out, {file, ": ", reason, other ? ": " : "", other ? offender : ""});
  return false;
}

bool CheckLibrary(const String& file, Output& out) {
  Library library;
  library.guarded = {"The package", file};
  library.name = file;
  TrustedFile trusted(getuid());
  String reason;
  const vexa_package* entry = LoadPackageEntry(file, trusted, library.guarded, {}, reason);
  if (entry == nullptr) return Complain(out, file, reason, trusted.offender());
  LibraryCall call(library, LibraryCall::Kind::Init, nullptr, nullptr);
  if (call.Run("init", [&] { return entry->init(call.context()); }) != VEXA_OK) {
    return Complain(out, file, call.Reason("its initialisation failed"), {});
  }
  Print(out, {file, ": package ", entry->code, ", version ",
              entry->version == nullptr ? "?" : entry->version});
  for (const auto& function : library.functions) {
    Print(out, {"  ", function->name(), "(", function->parameters(), ")"});
  }
  return true;
}

bool CheckArchive(const String& file, Output& out) {
  TrustedFile trusted(getuid());
  if (!trusted.Open(file)) return Complain(out, file, trusted.reason(), trusted.offender());
  const PackageInfo package;
  PackageExtractor archive(nullptr, package);
  std::vector<String> names;
  if (!archive.List(trusted.descriptor(), names)) return Complain(out, file, archive.reason(), {});
  Print(out, {file, ": archive"});
  for (const String& name : names) Print(out, {"  ", name});
  return true;
}

}  // namespace

bool CheckPackage(std::string_view path, Output& out) {
  char here[PATH_MAX];
  String base(path);
  if (!path.starts_with('/') && getcwd(here, sizeof here) != nullptr) {
    base = String::Concat({here, "/", path});
  }
  const String library = PackageFile(base, ".so");
  const String archive = PackageFile(base, ".tar");
  const bool has_archive = ::access(archive.c_str(), F_OK) == 0;
  const bool has_library = ::access(library.c_str(), F_OK) == 0;
  bool good = true;
  // Neither of them: the complaint is that of the library.
  if (has_library || !has_archive) good = CheckLibrary(library, out);
  if (has_archive && !CheckArchive(archive, out)) good = false;
  return good;
}

}  // namespace vexa
