// The first table of built-ins, in the order of the manual, and the way to the further ones.

#include "expr/builtin_table.h"

#include <math.h>

#include <array>
#include <cstddef>
#include <string_view>

#include "core/name_table.h"
#include "core/text.h"
#include "expr/builtins.h"

namespace vexa {

namespace {

constexpr std::array<BuiltinFunction, kBuiltinCount> kBuiltins = {{
    {"time_t_month", "time_t, time_zone", BuiltinTimeMonth},
    {"time_t_year", "time_t, time_zone", BuiltinTimeYear},
    {"time_t_hour", "time_t, time_zone", BuiltinTimeHour},
    {"time_t_min", "time_t, time_zone", BuiltinTimeMin},
    {"time_t_sec", "time_t, time_zone", BuiltinTimeSec},
    {"time_t_dayofweek", "time_t, time_zone", BuiltinTimeDayOfWeek},
    {"time_t_dayofmonth", "time_t, time_zone", BuiltinTimeDayOfMonth},
    {"time_t_dayofyear", "time_t, time_zone", BuiltinTimeDayOfYear},
    {"timezone", "", BuiltinTimezone},
    {"mktime_t", "year, month, dayofmonth, hours, minutes, seconds, time_zone", BuiltinMktime},
    {"asciivalue", "char", BuiltinAsciivalue},
    {"asciichar", "ascii", BuiltinAsciichar},
    {"substring", "string, start, length", BuiltinSubstring, kLooksAtFirst},
    {"isalpha", "string", BuiltinIsalpha},
    {"isupper", "string", BuiltinIsupper},
    {"islower", "string", BuiltinIslower},
    {"isdigit", "string", BuiltinIsdigit},
    {"isxdigit", "string", BuiltinIsxdigit},
    {"isalnum", "string", BuiltinIsalnum},
    {"isspace", "string", BuiltinIsspace},
    {"ispunct", "string", BuiltinIspunct},
    {"isprint", "string", BuiltinIsprint},
    {"isgraph", "string", BuiltinIsgraph},
    {"iscntrl", "string", BuiltinIscntrl},
    {"isascii", "string", BuiltinIsascii},
    {"rtrim", "string", BuiltinRtrim},
    {"ltrim", "string", BuiltinLtrim},
    {"toupper", "string", BuiltinToupper},
    {"tolower", "string", BuiltinTolower},
    {"len", "string", BuiltinLen, kLooksAtFirst},
    {"padl", "string, length, pad", BuiltinPadl},
    {"padr", "string, length, pad", BuiltinPadr},
    {"glosub", "string, search, replace", BuiltinGlosub},
    {"gettoken", "string, separators, position", BuiltinGettoken, kLooksAtFirst},
    {"abs", "number", BuiltinPlainReal<::fabs>},
    {"acos", "number", BuiltinReal<"acos">},
    {"asin", "number", BuiltinReal<"asin">},
    {"atan", "number", BuiltinReal<"atan">},
    {"ceil", "number", BuiltinPlainReal<::ceil>},
    {"cos", "number", BuiltinReal<"cos">},
    {"cosh", "number", BuiltinReal<"cosh">},
    {"exp", "number", BuiltinReal<"exp">},
    {"floor", "number", BuiltinPlainReal<::floor>},
    {"log", "number", BuiltinReal<"log">},
    {"log10", "number", BuiltinReal<"log10">},
    {"sin", "number", BuiltinReal<"sin">},
    {"sinh", "number", BuiltinReal<"sinh">},
    {"sqrt", "number", BuiltinReal<"sqrt">},
    {"tan", "number", BuiltinReal<"tan">},
    {"tanh", "number", BuiltinReal<"tanh">},
    {"atan2", "x, y", BuiltinReal2<"atan2">},
    {"fmod", "x, y", BuiltinReal2<"fmod">},
    {"int", "number", BuiltinInt},
    {"power", "number, mantissa", BuiltinReal2<"pow">},
    {"rnd", "number, num_places", BuiltinRnd},
    {"random", "maximum", BuiltinRandom},
    {"fexists", "path", BuiltinFexists, kNotInKeys},
    {"sexists", "path", BuiltinSexists, kNotInKeys},
    {"fmkdir", "path", BuiltinFmkdir, kNotInKeys},
    {"smkdir", "path", BuiltinSmkdir, kNotInKeys},
    {"fdelete", "path", BuiltinFdelete, kNotInKeys},
    {"sdelete", "path", BuiltinSdelete, kNotInKeys},
    {"fcopy", "source, dest", BuiltinFcopy, kNotInKeys},
    {"scopy", "source, dest", BuiltinScopy, kNotInKeys},
    {"fscopy", "source, dest", BuiltinFscopy, kNotInKeys},
    {"sfcopy", "source, dest", BuiltinSfcopy, kNotInKeys},
    {"frename", "source, dest", BuiltinFrename, kNotInKeys},
    {"srename", "source, dest", BuiltinSrename, kNotInKeys},
    {"fsrename", "source, dest", BuiltinFsrename, kNotInKeys},
    {"sfrename", "source, dest", BuiltinSfrename, kNotInKeys},
    {"fchmod", "path, mode", BuiltinFchmod, kNotInKeys},
    {"schmod", "path, mode", BuiltinSchmod, kNotInKeys},
    {"fsize", "path", BuiltinFsize, kNotInKeys},
    {"ssize", "path", BuiltinSsize, kNotInKeys},
    {"fmode", "path", BuiltinFmode, kNotInKeys},
    {"smode", "path", BuiltinSmode, kNotInKeys},
    {"fsymlink", "source, dest", BuiltinFsymlink, kNotInKeys},
    {"ssymlink", "source, dest", BuiltinSsymlink, kNotInKeys},
    {"encodeattribute", "attribute", BuiltinEncodeattribute},
    {"decodeattribute", "attribute", BuiltinDecodeattribute},
    {"encodeentities", "string", BuiltinEncodeentities},
    {"decodeentities", "string", BuiltinDecodeentities},
    {"makesessionid", "", BuiltinMakesessionid},
    {"vexa_getvarlist", "scope", BuiltinGetvarlist},
    {"vexa_package_list", "", BuiltinPackageList},
    {"vexa_package_name", "code", BuiltinPackageName},
    {"vexa_package_description", "code", BuiltinPackageDescription},
    {"vexa_package_version", "code", BuiltinPackageVersion},
    {"vexa_package_defaultpath", "code", BuiltinPackageDefaultpath},
    {"vexa_package_extract", "code, directory, license", BuiltinPackageExtract, kNotInKeys},
    {"vexa_setlanguage", "language", BuiltinSetlanguage, kNotInKeys},
    {"vexa_setdefaultlanguage", "language", BuiltinSetdefaultlanguage, kNotInKeys},
}};

constexpr NameTable kBuiltinNames(kBuiltins, [](const BuiltinFunction& row) { return row.name(); });

// A row left out would be an element without a name.
static_assert(!kBuiltins.back().name().empty());

// What every name of the further tables begins with.
constexpr std::string_view kLatePrefix = "vexa_";

const BuiltinFunction* FindRow(std::span<const LateBuiltin> rows, std::string_view name) {
  for (const LateBuiltin& row : rows) {
    if (EqualsIgnoreCase(row.name(), name)) return &row;
  }
  return nullptr;
}

// Asked once for each call that is read, not for each that is carried out.
const BuiltinFunction* FindLateBuiltin(std::string_view name) {
  using Table = std::span<const LateBuiltin>();
  Table* const tables[] = {AnswerBuiltins, RequestBuiltins, JsonBuiltins,     PatternBuiltins,
                           DigestBuiltins, DateBuiltins,    CharacterBuiltins};
  for (Table* const table : tables) {
    if (const BuiltinFunction* row = FindRow(table(), name)) return row;
  }
  return nullptr;
}

}  // namespace

const BuiltinFunction* FindBuiltin(std::string_view name) {
  const int row = kBuiltinNames.Find(kBuiltins, name);
  if (row >= 0) return &kBuiltins[static_cast<size_t>(row)];
  const bool late = EqualsIgnoreCase(name.substr(0, kLatePrefix.size()), kLatePrefix);
  return late ? FindLateBuiltin(name) : nullptr;
}

std::span<const BuiltinFunction, kBuiltinCount> Builtins() { return kBuiltins; }

}  // namespace vexa
