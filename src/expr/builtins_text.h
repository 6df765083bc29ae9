// Built-in functions on texts: parts, padding, case, character classes, codes and tokens. Texts are
// bytes; positions and token numbers count from 1.

#ifndef VEXA_EXPR_BUILTINS_TEXT_H_
#define VEXA_EXPR_BUILTINS_TEXT_H_

#include "expr/builtin_call.h"

namespace vexa {

bool BuiltinAsciivalue(const BuiltinCall& call);
bool BuiltinAsciichar(const BuiltinCall& call);
bool BuiltinSubstring(const BuiltinCall& call);
bool BuiltinIsalpha(const BuiltinCall& call);
bool BuiltinIsupper(const BuiltinCall& call);
bool BuiltinIslower(const BuiltinCall& call);
bool BuiltinIsdigit(const BuiltinCall& call);
bool BuiltinIsxdigit(const BuiltinCall& call);
bool BuiltinIsalnum(const BuiltinCall& call);
bool BuiltinIsspace(const BuiltinCall& call);
bool BuiltinIspunct(const BuiltinCall& call);
bool BuiltinIsprint(const BuiltinCall& call);
bool BuiltinIsgraph(const BuiltinCall& call);
bool BuiltinIscntrl(const BuiltinCall& call);
bool BuiltinIsascii(const BuiltinCall& call);
bool BuiltinRtrim(const BuiltinCall& call);
bool BuiltinLtrim(const BuiltinCall& call);
bool BuiltinToupper(const BuiltinCall& call);
bool BuiltinTolower(const BuiltinCall& call);
bool BuiltinLen(const BuiltinCall& call);
bool BuiltinPadl(const BuiltinCall& call);
bool BuiltinPadr(const BuiltinCall& call);
bool BuiltinGlosub(const BuiltinCall& call);
bool BuiltinGettoken(const BuiltinCall& call);

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTINS_TEXT_H_
