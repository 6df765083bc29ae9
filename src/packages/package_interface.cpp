// The interface of packages behind its table of C functions.

#include "packages/package_interface.h"

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"
#include "expr/builtin_table.h"
#include "expr/expression.h"

namespace vexa {

namespace {

constexpr size_t kLongestName = 64;
constexpr size_t kMostFunctions = 1000;
// How many calls pass before one gets the context of an earlier one.
constexpr size_t kContexts = 4096;

// The innermost call; null on every thread but Vexa's.
thread_local LibraryCall* innermost = nullptr;

bool IsFunctionName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && IsAlpha(name.front()) &&
         std::all_of(name.begin(), name.end(),
                     [](char c) { return IsAlpha(c) || IsDigit(c) || c == '_'; });
}

// The number of names in a list of parameters; -1 when it is none.
int CountParameters(std::string_view list) {
  if (list.empty()) return 0;
  for (int count = 1;; ++count) {
    const size_t comma = list.find(", ");
    if (!IsFunctionName(list.substr(0, comma)) || count > kMostParameters) return -1;
    if (comma == std::string_view::npos) return count;
    list.remove_prefix(comma + 2);
  }
}

vexa_text TextOf(const String& text) { return {text.data(), text.size()}; }

// A copy of what a library hands in. The library's own bad address is its own crash.
String Copied(const vexa_text& text) { return String(std::string_view(text.bytes, text.length)); }
String Copied(const char* text) { return text == nullptr ? String() : String(text); }

}  // namespace

// What each function of the table does, and where it is allowed.
struct LibraryInterface {
  using Kind = LibraryCall::Kind;

  // Runs `work` for the running call. What goes wrong on our side never reaches the library.
  template <typename Work>
  static int Serve(vexa_context* context, Work work) noexcept {
    LibraryCall* call = innermost;
    if (call == nullptr || context != call->context_) return VEXA_ERROR;
    try {
      return work(*call);
    } catch (const std::bad_alloc&) {
      call->out_of_memory_ = true;
    } catch (const std::length_error&) {
      call->out_of_memory_ = true;
    }
    return VEXA_ERROR;
  }

  static int Refuse(LibraryCall& call, std::string_view reason) {
    call.error_ = reason;
    return VEXA_ERROR;
  }

  // Whether the call has a page to work on; the end of the request has none any more.
  static bool HasPage(LibraryCall& call) {
    if (call.script_ != nullptr && call.kind_ != Kind::Cleanup) return true;
    call.error_ = "there is no page any more";
    return false;
  }

  static vexa_text HandOut(LibraryCall& call, String text) {
    return TextOf(call.texts_.emplace_back(std::move(text)));
  }

  static int AddFunction(vexa_context* context, const char* name, const char* parameters,
                         vexa_function function, void* data) {
    return Serve(context, [&](LibraryCall& call) {
      if (call.kind_ != Kind::Init) return Refuse(call, "functions are added by init only");
      const String written = Copied(name);
      const String list = Copied(parameters);
      const int count = CountParameters(list);
      auto& functions = call.library_.functions;
      const bool known = std::any_of(functions.begin(), functions.end(), [&](const auto& added) {
        return EqualsIgnoreCase(added->name(), written);
      });
      if (!IsFunctionName(written)) return Refuse(call, "that is no name of a function");
      if (count < 0) return Refuse(call, "that is no list of parameters");
      if (function == nullptr) return Refuse(call, "there is no code");
      if (FindBuiltin(written) != nullptr || IsLeadingPart("vexa_", written)) {
        return Refuse(call, "the name belongs to the language");
      }
      if (known) return Refuse(call, "the package has such a function");
      if (functions.size() >= kMostFunctions) return Refuse(call, "there are too many functions");
      functions.push_back(
          std::make_unique<PackageFunction>(call.library_, written, list, count, function, data));
      return int{VEXA_OK};
    });
  }

  static int AddVariable(vexa_context* context, const char* name, vexa_text value) {
    return Serve(context, [&](LibraryCall& call) {
      const String written = Copied(name);
      if (written.empty()) return Refuse(call, "the variable has no name");
      (void)call.library_.variables.SetVariable(written.view(), ScriptValue(Copied(value)));
      return int{VEXA_OK};
    });
  }

  static int SetResult(vexa_context* context, vexa_text result) {
    return Serve(context, [&](LibraryCall& call) {
      if (call.kind_ != Kind::Function) return Refuse(call, "no function is running");
      call.result_ = Copied(result);
      return int{VEXA_OK};
    });
  }

  static int SetError(vexa_context* context, vexa_text message) {
    return Serve(context, [&](LibraryCall& call) {
      if (call.kind_ != Kind::Function && call.kind_ != Kind::Init) {
        return Refuse(call, "neither a function nor init is running");
      }
      call.reason_ = Copied(message);
      return int{VEXA_OK};
    });
  }

  static vexa_text Error(vexa_context* context) {
    vexa_text error{"", 0};
    (void)Serve(context, [&](LibraryCall& call) {
      error = HandOut(call, call.error_);
      return int{VEXA_OK};
    });
    return error;
  }

  static int GetVariable(vexa_context* context, const char* name, vexa_text* value) {
    return Serve(context, [&](LibraryCall& call) {
      if (call.host_ == nullptr) return Refuse(call, "there is no page any more");
      const String written = Copied(name);
      String found;
      {
        const OwnCodeRuns own;
        found = call.host_->vars().Value(written);
      }
      *value = HandOut(call, std::move(found));
      return int{VEXA_OK};
    });
  }

  static int SetVariable(vexa_context* context, const char* name, vexa_text value) {
    return Serve(context, [&](LibraryCall& call) {
      if (!HasPage(call)) return int{VEXA_ERROR};
      const String written = Copied(name);
      ScriptValue copied(Copied(value));
      const OwnCodeRuns own;
      const Variable* refused = call.host_->vars().SetVariable(written.view(), std::move(copied));
      return refused == nullptr ? int{VEXA_OK} : Refuse(call, refused->error());
    });
  }

  static int EachVariable(vexa_context* context, int scope, vexa_visitor visitor, void* data) {
    return Serve(context, [&](LibraryCall& call) {
      if (!HasPage(call)) return int{VEXA_ERROR};
      if (visitor == nullptr || scope < VEXA_LOCAL || scope > VEXA_SYSTEM) {
        return Refuse(call, "there is no such scope, or no visitor");
      }
      // The visitor may change variables: it sees what was there before.
      std::vector<std::pair<String, String>> copies;
      {
        const OwnCodeRuns own;
        for (Variable* variable : Listed(call.host_->vars(), scope)) {
          copies.emplace_back(variable->name(), variable->value());
        }
      }
      for (const auto& [name, value] : copies) {
        const vexa_field field{TextOf(name), TextOf(value)};
        // What it throws must not look like ours.
        const auto visit = [&]() noexcept { return visitor(data, &field); };
        if (const int result = visit(); result != VEXA_OK) return result;
      }
      return int{VEXA_OK};
    });
  }

  static VariableList Listed(Variables& variables, int scope) {
    VariableList list;
    if (scope == VEXA_LOCAL) variables.GetLocalVariableList(list);
    if (scope == VEXA_GLOBAL) variables.GetGlobalVariableList(list);
    if (scope == VEXA_SYSTEM) variables.GetSystemVariableList(list);
    return list;
  }

  static int Evaluate(vexa_context* context, vexa_text expression, vexa_text* value) {
    return Serve(context, [&](LibraryCall& call) {
      if (!HasPage(call)) return int{VEXA_ERROR};
      if (call.page_stops_) return Refuse(call, "the page is to stop");
      const String written = Copied(expression);
      String result;
      {
        const OwnCodeRuns own;
        Expression finished;
        call.page_stops_ =
            !finished.ReadText(written, *call.script_) || !finished.Evaluate(*call.script_, result);
      }
      if (call.page_stops_) return Refuse(call, "the page is to stop");
      *value = HandOut(call, std::move(result));
      return int{VEXA_OK};
    });
  }

  template <typename Prepare>
  static int WritePrepared(vexa_context* context, vexa_text text, Prepare prepare) {
    return Serve(context, [&](LibraryCall& call) {
      if (!HasPage(call)) return int{VEXA_ERROR};
      const String copied = Copied(text);
      const OwnCodeRuns own;
      call.script_->WriteValue(prepare(copied));
      return int{VEXA_OK};
    });
  }

  static int Write(vexa_context* context, vexa_text text) {
    return WritePrepared(context, text, [](const String& copied) { return copied.view(); });
  }

  static int WriteEncoded(vexa_context* context, vexa_text text) {
    return WritePrepared(context, text, [](const String& copied) { return EntityEncoded(copied); });
  }

  static int ResolvePath(vexa_context* context, int root, vexa_text name, vexa_text* path) {
    return Serve(context, [&](LibraryCall& call) {
      if (!HasPage(call)) return int{VEXA_ERROR};
      if (root < VEXA_DATA_PATH || root > VEXA_TEMPORARY_PATH) {
        return Refuse(call, "there is no such root");
      }
      const String written = Copied(name);
      String resolved;
      {
        const OwnCodeRuns own;
        if (call.host_->ResolvePath(written, resolved, static_cast<PathType>(root), call.error_) ==
            0) {
          return int{VEXA_ERROR};
        }
      }
      *path = HandOut(call, std::move(resolved));
      return int{VEXA_OK};
    });
  }

  static int64_t TimeRemaining(vexa_context* context) {
    int64_t seconds = VEXA_ERROR;
    (void)Serve(context, [&](LibraryCall& call) {
      if (call.host_ != nullptr && call.host_->config().globaltimeout != 0) {
        seconds = std::max<int64_t>(call.host_->timeremaining(), 0);
      }
      return int{VEXA_OK};
    });
    return seconds;
  }

  static int Log(vexa_context* context, vexa_text text) {
    return Serve(context, [&](LibraryCall& call) {
      if (call.host_ == nullptr) return Refuse(call, "there is no log");
      const String line = String::Concat({call.library_.name, ": ", Copied(text)});
      const OwnCodeRuns own;
      call.host_->logfile().Write(LogLevel::Errors, "PACKAGE", line);
      return int{VEXA_OK};
    });
  }

  static void* Allocate(vexa_context* context, size_t size) {
    void* memory = nullptr;
    (void)Serve(context, [&](LibraryCall& call) {
      if (call.kind_ == Kind::Cleanup) return Refuse(call, "there is no page any more");
      auto& block = call.memory_.emplace_back(std::make_unique_for_overwrite<char[]>(size));
      memory = block.get();
      return int{VEXA_OK};
    });
    return memory;
  }

  static constexpr vexa_interface kTable = {
      kInterfaceVersion,
      sizeof(vexa_interface),
      kVersion,
      AddFunction,
      AddVariable,
      SetResult,
      SetError,
      Error,
      GetVariable,
      SetVariable,
      EachVariable,
      Evaluate,
      Write,
      WriteEncoded,
      ResolvePath,
      TimeRemaining,
      Log,
      Allocate,
  };
};

namespace {

vexa_context* NewContext() {
  static std::array<vexa_context, kContexts> contexts;
  static size_t next = 0;
  vexa_context& context = contexts[next++ % kContexts];
  context.calls = &LibraryInterface::kTable;
  return &context;
}

}  // namespace

LibraryCall::LibraryCall(Library& library, Kind kind, Vexa* host, ExpressionContext* script)
    : context_(NewContext()),
      library_(library),
      kind_(kind),
      host_(host),
      script_(script),
      outer_(std::exchange(innermost, this)) {}

LibraryCall::~LibraryCall() { innermost = outer_; }

bool LibraryCall::page_stops() const {
  if (out_of_memory_) throw std::bad_alloc();
  return page_stops_;
}

String LibraryCall::Reason(std::string_view fallback) const {
  return reason_.empty() ? String(fallback) : EntityEncoded(reason_);
}

}  // namespace vexa
