// Built-in functions that ask the host: encodings, session identifiers, languages, the names of the
// variables of a scope, and the registered packages.

#ifndef VEXA_EXPR_BUILTINS_HOST_H_
#define VEXA_EXPR_BUILTINS_HOST_H_

#include "expr/builtin_call.h"

namespace vexa {

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

}  // namespace vexa

#endif  // VEXA_EXPR_BUILTINS_HOST_H_
