// Built-in functions on times: seconds since 1970-01-01 00:00 UTC, and the calendar fields of such
// a time in a zone that is a whole number of hours east of UTC.

#ifndef VEXA_EXPR_BUILTINS_TIME_H_
#define VEXA_EXPR_BUILTINS_TIME_H_

#include "expr/builtin_call.h"

namespace vexa {

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

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTINS_TIME_H_
