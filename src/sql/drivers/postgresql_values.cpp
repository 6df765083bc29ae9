// Types and values. The numbers of the built-in types are the same in all servers.

#include "sql/drivers/postgresql_values.h"

#include <algorithm>

#include "core/number.h"

namespace vexa {

namespace {

enum TypeNumber : unsigned {
  kBoolean = 16,
  kBytes = 17,
  kInteger64 = 20,
  kInteger16 = 21,
  kInteger32 = 23,
  kObjectNumber = 26,
  kReal32 = 700,
  kReal64 = 701,
  kCharacters = 1042,
  kVaryingCharacters = 1043,
  kNumeric = 1700,
};

struct KnownType {
  unsigned number;
  SqlKind kind;
};
constexpr KnownType kTypes[] = {
    {kBoolean, SqlKind::Boolean},
    {kBytes, SqlKind::Bytes},
    {kInteger64, SqlKind::Integer},
    {kInteger16, SqlKind::Integer},
    {kInteger32, SqlKind::Integer},
    {kObjectNumber, SqlKind::Integer},
    {kReal32, SqlKind::Number},
    {kReal64, SqlKind::Number},
    {kNumeric, SqlKind::Number},
    {1082, SqlKind::Date},
    {1114, SqlKind::Time},  // without and with zone
    {1184, SqlKind::Time},
    {19, SqlKind::Text},   // name
    {25, SqlKind::Text},   // text
    {705, SqlKind::Text},  // a constant without a type
    {kCharacters, SqlKind::Text},
    {kVaryingCharacters, SqlKind::Text},
};

// The modifier of char and varchar: 4, and above that the length in characters. That of numeric: 4,
// and above that the digits in all in the high half, and behind the point in the low 11 bits.
constexpr int kModifierBase = 4;

}  // namespace

void DescribePostgresqlType(unsigned type, int modifier, SqlColumn& column) {
  const auto known = std::ranges::find(kTypes, type, &KnownType::number);
  column.kind = known == std::end(kTypes) ? SqlKind::Other : known->kind;
  const int declared = modifier - kModifierBase;
  if (declared < 0) return;
  if (type == kCharacters || type == kVaryingCharacters) column.precision = declared;
  if (type != kNumeric) return;
  column.precision = declared >> 16;
  // Below zero, in two's complement, it rounds before the point, where there are so many more
  // digits, and there is nothing behind it.
  const int decimals = declared & 0x7FF;
  if (decimals < 0x400) {
    column.decimals = decimals;
  } else {
    column.decimals = 0;
    column.precision += 0x800 - decimals;
  }
}

SqlValue PostgresqlValue(const PostgresqlLibrary& library, const PGresult* result, int row,
                         int column) {
  if (library.getisnull(result, row, column) != 0) return {};
  const char* const bytes = library.getvalue(result, row, column);
  const int length = library.getlength(result, row, column);
  const std::string_view text(bytes, static_cast<size_t>(length));
  switch (library.ftype(result, column)) {
    case kBoolean:
      return SqlValue::Integer(text == "t" ? 1 : 0);
    case kInteger16:
    case kInteger32:
    case kInteger64:
    case kObjectNumber:
      return SqlValue::Integer(ReadInteger64(text));
    case kReal32:
    case kReal64: {
      double value = 0;
      return ReadStrict(text, &value) ? SqlValue::Real(value) : SqlValue::Text(text);
    }
    case kBytes: {
      size_t size = 0;
      const PostgresqlOwned<unsigned char> plain(
          library.unescapeBytea(reinterpret_cast<const unsigned char*>(bytes), &size), {&library});
      return SqlValue::Bytes(std::string_view(reinterpret_cast<const char*>(plain.get()),
                                              plain == nullptr ? 0 : size));
    }
    default:
      return SqlValue::Text(text);
  }
}

}  // namespace vexa
