// PackageLoader: the libraries of a request. Each is looked at when it is first needed, loaded at
// most once, and stays to the end of the request; a failure is remembered and told again in the
// same words.
//
//   Unknown -> Loading (its init runs: a package without functions) -> Loaded -> cleanup
//                                                                   -> Failed
//           -> Absent (an archive without a library)
//
// Read trusted_file.h for what may be loaded, package_interface.h for what libraries may ask.

#ifndef VEXA_PACKAGES_PACKAGE_LOADER_H_
#define VEXA_PACKAGES_PACKAGE_LOADER_H_

#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "expr/expression_context.h"
#include "files/trusted_file.h"
#include "packages/package_interface.h"
#include "vexa.h"

namespace vexa {

// The library or archive of a package: its PATH without ".so" or ".tar", with `ending`.
[[nodiscard]] String PackageFile(std::string_view path, std::string_view ending);

// Nothing is loaded from where pages may put files.
void RefuseSiteDirectories(const SitePlaces& places, TrustedFile& trusted);

// What makes a library a package, checked. Null with `reason` set when it is none. `code` empty:
// any package.
[[nodiscard]] const vexa_package* LoadPackageEntry(const String& path, TrustedFile& trusted,
                                                   const GuardedLibrary& guarded,
                                                   std::string_view code, String& reason);

// The functions of a commerce library, and what the interface knows of it.
struct CommerceLibrary {
  Library library;
  String method;
  String metamethod;
  String reason;  // why it cannot be used; empty: it can
  decltype(&vexa_commerce_init) init = nullptr;
  decltype(&vexa_commerce_loop) loop = nullptr;
  decltype(&vexa_commerce_cleanup) cleanup = nullptr;
  decltype(&vexa_commerce_error) error = nullptr;
};

class PackageLoader {
 public:
  // `host` is borrowed.
  explicit PackageLoader(Vexa& host) : host_(host) {}
  ~PackageLoader();
  PackageLoader(const PackageLoader&) = delete;
  PackageLoader& operator=(const PackageLoader&) = delete;

  // Sets `function` to that of the first package which has one of that name, letter case ignored;
  // null when none has. False after an error was reported to `script`.
  [[nodiscard]] bool FindFunction(std::string_view name, ExpressionContext& script,
                                  const Callable*& function);
  // False when the page must stop; the error was then reported.
  // REQUIRES: `function` came from FindFunction; as many arguments as it has parameters.
  [[nodiscard]] bool CallFunction(const PackageFunction& function, ExpressionContext& script,
                                  std::span<ScriptValue> arguments, ScriptValue& result);
  // The library of a method, loaded when needed; its `reason` tells whether it can be used. Lives
  // as long as this object.
  [[nodiscard]] CommerceLibrary& FindCommerce(const CommerceMethod& method);
  // Whether code of a library may have run.
  [[nodiscard]] bool ran_code() const { return ran_code_; }
  // Calls the cleanups, the last loaded first. Variables must still be there.
  void CleanUp();

 private:
  enum class State { Unknown, Loading, Loaded, Absent, Failed };
  struct Package {
    String code;
    State state = State::Unknown;
    String reason;
    const vexa_package* entry = nullptr;
    Library library;
  };

  [[nodiscard]] Package& PackageOf(const PackageInfo& info);
  // False when its init ended the page.
  [[nodiscard]] bool Load(const PackageInfo& info, Package& package, ExpressionContext& script);
  [[nodiscard]] bool Initialise(Package& package, ExpressionContext& script);
  void LoadCommerce(const CommerceMethod& method, CommerceLibrary& commerce);

  // From here on code of a library may run.
  void GuardCode();

  Vexa& host_;
  bool ran_code_ = false;
  std::vector<std::unique_ptr<Package>> packages_;  // those that were asked for
  std::vector<Package*> loaded_;                    // whose init succeeded, in that order
  std::vector<std::unique_ptr<CommerceLibrary>> commerce_;
};

}  // namespace vexa

#endif  // VEXA_PACKAGES_PACKAGE_LOADER_H_
