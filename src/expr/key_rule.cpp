// The rule of key expressions; see key_rule.h.

#include "expr/key_rule.h"

#include "core/encoding.h"

namespace vexa {

String NotInKeyMessage(std::string_view index, std::string_view callee) {
  return String::Concat({"The key expression of '", EntityEncoded(index), "' calls '", callee,
                         "', which is not allowed"});
}

String KeyProblem(std::string_view index, const Expression& key) {
  const BuiltinFunction* const barred = key.program().FindBuiltinWith(kNotInKeys);
  return barred == nullptr ? String() : NotInKeyMessage(index, barred->name());
}

}  // namespace vexa
