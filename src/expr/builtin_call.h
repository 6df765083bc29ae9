// BuiltinCall: all that a built-in function sees of the world. Arguments are fetched by their
// position (from 0) in the reading that the function wants; the result is text.

#ifndef VEXA_EXPR_BUILTIN_CALL_H_
#define VEXA_EXPR_BUILTIN_CALL_H_

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "core/script_value.h"
#include "core/string.h"
#include "expr/expression_context.h"
#include "vexa.h"

namespace vexa {

class BuiltinCall {
 public:
  // Everything is borrowed. REQUIRES: as many arguments as the function has parameters; `result`
  // is empty and none of the arguments. `first` is where the first argument is looked at when it
  // was left in its variable; else null.
  BuiltinCall(ExpressionContext& context, std::span<ScriptValue> arguments, ScriptValue& result,
              const ScriptValue* first = nullptr)
      : context_(context), arguments_(arguments), result_(result), first_(first) {}

  [[nodiscard]] Vexa& host() const { return context_.host(); }
  [[nodiscard]] ExpressionContext& context() const { return context_; }
  // The argument itself; a built-in may take its storage.
  [[nodiscard]] String& Text(size_t i) const {
    assert(i > 0 || first_ == nullptr);
    return arguments_[i].MutableText();
  }
  [[nodiscard]] const ScriptValue& Value(size_t i) const { return arguments_[i]; }
  // The first argument, for a built-in that only looks at it.
  [[nodiscard]] const String& LookAtFirst() const {
    return first_ != nullptr ? first_->text() : arguments_[0].text();
  }
  // The same as a value.
  [[nodiscard]] const ScriptValue& First() const {
    return first_ != nullptr ? *first_ : arguments_[0];
  }
  // The argument as a number: its longest numeric prefix, 0 when there is none. Integers saturate
  // at 32 and 64 bits.
  [[nodiscard]] double Real(size_t i) const { return arguments_[i].Real(); }
  [[nodiscard]] int32_t Integer(size_t i) const { return arguments_[i].Integer(); }
  [[nodiscard]] int64_t Integer64(size_t i) const { return arguments_[i].Integer64(); }

  // Sets the result; it is the empty text until then. Return true, so that a built-in can end
  // with `return call.Return(...)`. A view may be a part of an argument.
  bool Return(std::string_view text) const {
    result_ = text;
    return true;
  }
  bool Return(String&& text) const {
    result_ = std::move(text);
    return true;
  }
  bool ReturnInteger(int64_t value) const {
    result_.SetInteger(value);
    return true;
  }
  bool ReturnReal(double value) const {
    result_.SetReal(value);
    return true;
  }
  bool ReturnRounded(double value, int places) const {
    result_.SetRounded(value, places);
    return true;
  }
  bool ReturnFlag(bool value) const { return ReturnInteger(value ? 1 : 0); }

 private:
  ExpressionContext& context_;
  std::span<ScriptValue> arguments_;
  ScriptValue& result_;
  const ScriptValue* first_;
};

// A built-in function's work. False when the script must stop (the error was reported).
using BuiltinHandler = bool (*)(const BuiltinCall& call);

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTIN_CALL_H_
