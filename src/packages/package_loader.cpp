// Loading libraries and calling their functions.

#include "packages/package_loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <utility>

#include "core/encoding.h"
#include "core/number.h"
#include "core/text.h"

namespace vexa {

namespace {

// Every path in `text` without its directories.
String WithoutDirectories(std::string_view text) {
  String names;
  while (!text.empty()) {
    const size_t end = std::min(text.find_first_of(" ()'`"), text.size() - 1) + 1;
    const std::string_view word = text.substr(0, end);
    const size_t slash = word.rfind('/');
    names.Append(slash == std::string_view::npos ? word : word.substr(slash + 1));
    text.remove_prefix(end);
  }
  return names;
}

// What dlopen says, without the paths that pages must not show: those of the library and of others
// that it needs.
String LinkerMessage(const String& path) {
  const char* text = dlerror();
  String message(text == nullptr ? "" : text);
  message.gsub(path + ": ", "");
  message.gsub(path, "the library");
  return "the system cannot load it: " + WithoutDirectories(message);
}

// Calls through a pointer that the compiler knows nothing of: what a constructor throws comes out
// of dlopen, whatever is declared of it, and must not look like ours.
void* OpenLibrary(const String& path) noexcept {
  void* (*volatile const open)(const char*, int) = dlopen;
  return open(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

// Loads the library of `path` after all checks. Null with `reason` set.
void* LoadLibrary(const String& path, TrustedFile& trusted, const GuardedLibrary& guarded,
                  String& reason) {
  if (!trusted.Check(path)) {
    reason = trusted.reason();
    return nullptr;
  }
  const LibraryRuns constructors(guarded, "its constructors");
  void* handle = OpenLibrary(trusted.resolved());
  if (handle == nullptr) reason = LinkerMessage(trusted.resolved());
  return handle;
}

String TooNew(uint32_t version) {
  return String::Concat({"it needs interface version ", PrintInteger(version),
                         ", this program offers ", PrintInteger(kInterfaceVersion)});
}

template <typename Function>
bool FindSymbol(void* handle, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(handle, name));
  return function != nullptr;
}

}  // namespace

void RefuseSiteDirectories(const SitePlaces& places, TrustedFile& trusted) {
  trusted.Refuse(places.scripts, "script");
  trusted.Refuse(places.data, "data");
  trusted.Refuse(places.temporary, "temporary");
}

String PackageFile(std::string_view path, std::string_view ending) {
  for (const std::string_view known : {".so", ".tar"}) {
    if (!path.ends_with(known)) continue;
    path.remove_suffix(known.size());
    break;
  }
  return String::Concat({path, ending});
}

const vexa_package* LoadPackageEntry(const String& path, TrustedFile& trusted,
                                     const GuardedLibrary& guarded, std::string_view code,
                                     String& reason) {
  void* handle = LoadLibrary(path, trusted, guarded, reason);
  if (handle == nullptr) return nullptr;
  const LibraryRuns texts(guarded, "its entry");  // They may stand at bad addresses.
  const vexa_package* entry = nullptr;
  if (!FindSymbol(handle, "vexa_package_entry", entry) || entry->abi == 0 ||
      entry->size < sizeof(vexa_package) || entry->code == nullptr || entry->init == nullptr) {
    reason = "it is not a package";
  } else if (entry->abi > kInterfaceVersion) {
    reason = TooNew(entry->abi);
  } else if (!code.empty() && !EqualsIgnoreCase(entry->code, code)) {
    reason = String::Concat({"it is the package '", entry->code, "'"});
  } else {
    return entry;
  }
  return nullptr;
}

PackageLoader::~PackageLoader() { RemoveCrashGuard(); }

// --- Functions -------------------------------------------------------------------------------

PackageLoader::Package& PackageLoader::PackageOf(const PackageInfo& info) {
  for (const auto& package : packages_) {
    if (package->code == info.code) return *package;
  }
  packages_.push_back(std::make_unique<Package>());
  packages_.back()->code = info.code;
  return *packages_.back();
}

bool PackageLoader::FindFunction(std::string_view name, ExpressionContext& script,
                                 const Callable*& function) {
  function = nullptr;
  for (const PackageInfo& info : host_.packages()) {
    Package& package = PackageOf(info);
    if (package.state == State::Unknown && !Load(info, package, script)) return false;
    if (package.state == State::Failed) {
      return script.ReportExpressionError(String::Concat(
          {"Unable to load package '", EntityEncoded(info.code), "': ", package.reason}));
    }
    if (package.state != State::Loaded) continue;
    for (const auto& added : package.library.functions) {
      if (!EqualsIgnoreCase(added->name(), name)) continue;
      function = added.get();
      return true;
    }
  }
  return true;
}

void PackageLoader::GuardCode() {
  ran_code_ = true;
  InstallCrashGuard(host_);
}

bool PackageLoader::Load(const PackageInfo& info, Package& package, ExpressionContext& script) {
  const String path = PackageFile(info.path, ".so");
  const auto exists = [](const String& file) { return ::access(file.c_str(), F_OK) == 0; };
  if (path[0] == '/' && !exists(path) && exists(PackageFile(info.path, ".tar"))) {
    package.state = State::Absent;
    return true;
  }
  package.state = State::Failed;
  package.library.name = info.code;
  package.library.guarded = {String::Concat({"Package '", EntityEncoded(info.code), "'"}), path};
  const SitePlaces places = host_.places();
  TrustedFile trusted(places.trusted_owner);
  RefuseSiteDirectories(places, trusted);
  GuardCode();
  package.entry =
      LoadPackageEntry(path, trusted, package.library.guarded, info.code, package.reason);
  if (package.entry == nullptr) {
    package.reason = EntityEncoded(package.reason);
    return true;
  }
  return Initialise(package, script);
}

bool PackageLoader::Initialise(Package& package, ExpressionContext& script) {
  package.state = State::Loading;
  host_.vars().AddSystemScope(&package.library.variables);
  LibraryCall call(package.library, LibraryCall::Kind::Init, &host_, &script);
  const int status = call.Run("init", [&] { return package.entry->init(call.context()); });
  const bool stops = call.page_stops();
  if (status == VEXA_OK && !stops) {
    package.state = State::Loaded;
    loaded_.push_back(&package);
    host_.logfile().Write(
        LogLevel::Files, "PACKAGELOADED",
        String::Concat({"code=", package.code, " file=", package.library.guarded.file}));
    return true;
  }
  package.state = State::Failed;
  package.reason = call.Reason("its initialisation failed");
  package.library.functions.clear();
  host_.vars().RemoveSystemScope(&package.library.variables);
  return !stops;
}

bool PackageLoader::CallFunction(const PackageFunction& function, ExpressionContext& script,
                                 std::span<ScriptValue> arguments, ScriptValue& result) {
  assert(arguments.size() <= kMostParameters);
  LibraryCall call(function.library(), LibraryCall::Kind::Function, &host_, &script);
  std::array<vexa_text, kMostParameters> texts;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const String& text = arguments[i].text();
    texts[i] = {text.c_str(), text.size()};
  }
  const int status = call.Run(function.name().c_str(), [&] {
    return function.code()(call.context(), function.data(), texts.data(), arguments.size());
  });
  if (call.page_stops()) return false;
  if (status != VEXA_OK) {
    return script.ReportExpressionError(String::Concat(
        {"Function '", function.name(), "' failed: ", call.Reason("no reason given")}));
  }
  result = std::move(call.result());
  return true;
}

// --- Commerce --------------------------------------------------------------------------------

CommerceLibrary& PackageLoader::FindCommerce(const CommerceMethod& method) {
  for (const auto& commerce : commerce_) {
    if (EqualsIgnoreCase(commerce->method, method.method)) return *commerce;
  }
  commerce_.push_back(std::make_unique<CommerceLibrary>());
  LoadCommerce(method, *commerce_.back());
  return *commerce_.back();
}

void PackageLoader::LoadCommerce(const CommerceMethod& method, CommerceLibrary& commerce) {
  const String& file = method.library;
  const String& directory = host_.config().commercedir;
  const bool complete = file[0] == '/' || directory.empty();
  const String path = complete ? file : String::Concat({directory, "/", file});
  commerce.method = method.method;
  commerce.metamethod = method.metamethod.empty() ? method.method : method.metamethod;
  commerce.library.name = method.method;
  commerce.library.guarded = {
      String::Concat({"Commerce method '", EntityEncoded(method.method), "'"}), path};
  const SitePlaces places = host_.places();
  TrustedFile trusted(places.trusted_owner);
  RefuseSiteDirectories(places, trusted);
  GuardCode();
  void* handle = LoadLibrary(path, trusted, commerce.library.guarded, commerce.reason);
  if (handle == nullptr) {
    commerce.reason = EntityEncoded(commerce.reason);
    return;
  }
  const uint32_t* version = nullptr;
  if (!FindSymbol(handle, "vexa_commerce_abi", version) || *version == 0 ||
      !FindSymbol(handle, "vexa_commerce_init", commerce.init) ||
      !FindSymbol(handle, "vexa_commerce_loop", commerce.loop) ||
      !FindSymbol(handle, "vexa_commerce_cleanup", commerce.cleanup) ||
      !FindSymbol(handle, "vexa_commerce_error", commerce.error)) {
    commerce.reason = "it is not a commerce library";
    return;
  }
  if (*version > kInterfaceVersion) {
    commerce.reason = TooNew(*version);
    return;
  }
  host_.vars().AddSystemScope(&commerce.library.variables);
  host_.logfile().Write(LogLevel::Files, "COMMERCELOADED",
                        String::Concat({"method=", method.method, " file=", path}));
}

// --- The end of the request ------------------------------------------------------------------

void PackageLoader::CleanUp() {
  while (!loaded_.empty()) {
    Package& package = *loaded_.back();
    loaded_.pop_back();
    if (package.entry->cleanup == nullptr) continue;
    LibraryCall call(package.library, LibraryCall::Kind::Cleanup, &host_, nullptr);
    call.Run("cleanup", [&] { package.entry->cleanup(call.context()); });
  }
}

}  // namespace vexa
