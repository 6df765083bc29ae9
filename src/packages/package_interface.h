// LibraryCall: one call of a library's code, and what that code may ask meanwhile.
//
//   LibraryCall is the context that the library gets; the interface of include/vexa/package.h leads
//   back to it. Only the innermost call of Vexa's thread is served: a context that was kept, or
//   that another thread uses, is never looked at.
//
// The interface is C on one side and the house's own classes on the other; nothing but
// package_interface.cpp knows both.

#ifndef VEXA_PACKAGES_PACKAGE_INTERFACE_H_
#define VEXA_PACKAGES_PACKAGE_INTERFACE_H_

#include <vexa/package.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <string_view>
#include <vector>

#include "core/string.h"
#include "core/variables.h"
#include "expr/expression_context.h"
#include "packages/crash_guard.h"
#include "vexa.h"

namespace vexa {

inline constexpr uint32_t kInterfaceVersion = VEXA_ABI;
// The most parameters that a function may have.
inline constexpr int kMostParameters = 32;

struct Library;

// A function that a package has added.
class PackageFunction final : public Callable {
 public:
  // `library` is borrowed; the function is one of its own.
  PackageFunction(Library& library, String name, String parameters, int parameter_count,
                  vexa_function code, void* data)
      : Callable(Kind::OfPackage, parameter_count),
        library_(library),
        name_(std::move(name)),
        parameters_(std::move(parameters)),
        code_(code),
        data_(data) {}
  [[nodiscard]] Library& library() const { return library_; }
  [[nodiscard]] const String& name() const { return name_; }
  // The names of its parameters, separated by ", ".
  [[nodiscard]] const String& parameters() const { return parameters_; }
  [[nodiscard]] vexa_function code() const { return code_; }
  [[nodiscard]] void* data() const { return data_; }

 private:
  Library& library_;
  String name_;
  String parameters_;
  vexa_function code_;
  void* data_;
};

// A loaded library, and what it has added.
struct Library {
  GuardedLibrary guarded;
  String name;  // the code or method, as the log tells it
  std::vector<std::unique_ptr<PackageFunction>> functions;
  VariableTree variables;
};

class LibraryCall {
 public:
  enum class Kind { Init, Function, Commerce, Cleanup };

  // All are borrowed. Without a `host` (a library that is only checked) and without a `script`
  // whatever needs them is refused.
  LibraryCall(Library& library, Kind kind, Vexa* host, ExpressionContext* script);
  ~LibraryCall();
  LibraryCall(const LibraryCall&) = delete;
  LibraryCall& operator=(const LibraryCall&) = delete;

  // What the library gets. No later call has the same for a long time, so that one that was kept is
  // noticed.
  [[nodiscard]] vexa_context* context() const { return context_; }
  // Runs `code`, the library's function of that name, and returns what it returns. What it throws
  // ends the process as a crash does.
  template <typename Code>
  auto Run(const char* function, Code code) noexcept {
    const LibraryRuns runs(library_.guarded, function);
    return code();
  }

  // After Run. Whether the page must stop: an error was shown, or the page ended. Throws
  // std::bad_alloc when memory ran out in between.
  [[nodiscard]] bool page_stops() const;
  [[nodiscard]] String& result() { return result_; }
  // Why the library says that it failed; `fallback` when it does not say.
  [[nodiscard]] String Reason(std::string_view fallback) const;

 private:
  friend struct LibraryInterface;

  vexa_context* context_;
  Library& library_;
  Kind kind_;
  Vexa* host_;
  ExpressionContext* script_;
  LibraryCall* outer_;
  String result_;
  String reason_;                                // of vexa_set_error
  String error_;                                 // why the last request was refused
  std::deque<String> texts_;                     // handed out
  std::vector<std::unique_ptr<char[]>> memory_;  // likewise
  bool page_stops_ = false;
  bool out_of_memory_ = false;
};

}  // namespace vexa

#endif  // VEXA_PACKAGES_PACKAGE_INTERFACE_H_
