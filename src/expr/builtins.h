// The functions behind the rows of the first built-in table, a group for each source file, and the
// further tables. Texts are bytes; positions and token numbers count from 1.

#ifndef VEXA_EXPR_BUILTINS_H_
#define VEXA_EXPR_BUILTINS_H_

#include <span>

#include "expr/builtin_call.h"
#include "expr/builtin_table.h"
#include "expr/math_library.h"

namespace vexa {

// --- Times: seconds since 1970-01-01 00:00 UTC, and the calendar fields of such a time in a zone
// that is a whole number of hours east of UTC.

bool BuiltinTimeMonth(const BuiltinCall& call);
bool BuiltinTimeYear(const BuiltinCall& call);
bool BuiltinTimeHour(const BuiltinCall& call);
bool BuiltinTimeMin(const BuiltinCall& call);
bool BuiltinTimeSec(const BuiltinCall& call);
bool BuiltinTimeDayOfWeek(const BuiltinCall& call);
bool BuiltinTimeDayOfMonth(const BuiltinCall& call);
bool BuiltinTimeDayOfYear(const BuiltinCall& call);
bool BuiltinTimezone(const BuiltinCall& call);
bool BuiltinMktime(const BuiltinCall& call);

// --- Texts: parts, padding, case, character classes, codes and tokens.

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

// --- Numbers, in double precision. What the C library answers outside a function's domain ("nan",
// "inf") is the result.

// A function that the compiler turns into a few instructions.
template <double (*function)(double)>
bool BuiltinPlainReal(const BuiltinCall& call) {
  return call.ReturnReal(function(call.Real(0)));
}

// Functions of the mathematics library with one and with two real arguments.
template <MathName kName>
bool BuiltinReal(const BuiltinCall& call) {
  double result;
  return CallMathFunction<kName>(call.context(), result, call.Real(0)) && call.ReturnReal(result);
}
template <MathName kName>
bool BuiltinReal2(const BuiltinCall& call) {
  double result;
  return CallMathFunction<kName>(call.context(), result, call.Real(0), call.Real(1)) &&
         call.ReturnReal(result);
}

bool BuiltinInt(const BuiltinCall& call);
bool BuiltinRnd(const BuiltinCall& call);
bool BuiltinRandom(const BuiltinCall& call);

// --- Files. The first letter of a name says which directory its paths are taken from: "f" the data
// directory, "s" the script directory; in names with two letters ("fscopy") the first belongs to
// the source, the second to the destination. A function that acts gives "1", or "0" after it
// reported what went wrong. The functions that ask (exists, size, mode) never report.

bool BuiltinFexists(const BuiltinCall& call);
bool BuiltinSexists(const BuiltinCall& call);
bool BuiltinFmkdir(const BuiltinCall& call);
bool BuiltinSmkdir(const BuiltinCall& call);
bool BuiltinFdelete(const BuiltinCall& call);
bool BuiltinSdelete(const BuiltinCall& call);
bool BuiltinFcopy(const BuiltinCall& call);
bool BuiltinScopy(const BuiltinCall& call);
bool BuiltinFscopy(const BuiltinCall& call);
bool BuiltinSfcopy(const BuiltinCall& call);
bool BuiltinFrename(const BuiltinCall& call);
bool BuiltinSrename(const BuiltinCall& call);
bool BuiltinFsrename(const BuiltinCall& call);
bool BuiltinSfrename(const BuiltinCall& call);
bool BuiltinFchmod(const BuiltinCall& call);
bool BuiltinSchmod(const BuiltinCall& call);
bool BuiltinFsize(const BuiltinCall& call);
bool BuiltinSsize(const BuiltinCall& call);
bool BuiltinFmode(const BuiltinCall& call);
bool BuiltinSmode(const BuiltinCall& call);
bool BuiltinFsymlink(const BuiltinCall& call);
bool BuiltinSsymlink(const BuiltinCall& call);

// --- What the host is asked for: encodings, session identifiers, languages, the names of the
// variables of a scope, and the registered packages.

bool BuiltinEncodeattribute(const BuiltinCall& call);
bool BuiltinDecodeattribute(const BuiltinCall& call);
bool BuiltinEncodeentities(const BuiltinCall& call);
bool BuiltinDecodeentities(const BuiltinCall& call);
bool BuiltinMakesessionid(const BuiltinCall& call);
bool BuiltinGetvarlist(const BuiltinCall& call);
bool BuiltinPackageList(const BuiltinCall& call);
bool BuiltinPackageName(const BuiltinCall& call);
bool BuiltinPackageDescription(const BuiltinCall& call);
bool BuiltinPackageVersion(const BuiltinCall& call);
bool BuiltinPackageDefaultpath(const BuiltinCall& call);
bool BuiltinPackageExtract(const BuiltinCall& call);
bool BuiltinSetlanguage(const BuiltinCall& call);
bool BuiltinSetdefaultlanguage(const BuiltinCall& call);

// --- The further tables, see builtin_table.h.

// The head of the answer: status, headers, redirects, files, cookies.
std::span<const LateBuiltin> AnswerBuiltins();
// What the request sent, and its visitor: fields, sessions, tokens, passwords.
std::span<const LateBuiltin> RequestBuiltins();
// Texts: JSON; patterns; digests, chance and bytes as letters; times by a format; characters.
std::span<const LateBuiltin> JsonBuiltins();
std::span<const LateBuiltin> PatternBuiltins();
std::span<const LateBuiltin> DigestBuiltins();
std::span<const LateBuiltin> DateBuiltins();
std::span<const LateBuiltin> CharacterBuiltins();

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTINS_H_
