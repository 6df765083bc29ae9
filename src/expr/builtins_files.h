// Built-in functions on files. The first letter of a function's name says which directory its paths
// are taken from: "f" the data directory, "s" the script directory; in the names with two letters
// ("fscopy") the first belongs to the source, the second to the destination.
//
// A function that acts gives "1", or "0" after it reported what went wrong. The functions that ask
// (exists, size, mode) never report.

#ifndef VEXA_EXPR_BUILTINS_FILES_H_
#define VEXA_EXPR_BUILTINS_FILES_H_

#include "expr/builtin_call.h"

namespace vexa {

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

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTINS_FILES_H_
