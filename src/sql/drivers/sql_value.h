// SqlValue: one value of an SQL database, on its way to the server or back.

#ifndef VEXA_SQL_DRIVERS_SQL_VALUE_H_
#define VEXA_SQL_DRIVERS_SQL_VALUE_H_

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "core/string.h"

namespace vexa {

struct SqlValue {
  enum class Kind : uint8_t { Null, Integer, Real, Text, Bytes };

  Kind kind = Kind::Null;
  int64_t integer = 0;  // of Integer
  double real = 0;      // of Real
  String text;          // of Text and Bytes

  [[nodiscard]] bool is_null() const { return kind == Kind::Null; }

  [[nodiscard]] static SqlValue Integer(int64_t value) { return {Kind::Integer, value, 0, {}}; }
  [[nodiscard]] static SqlValue Real(double value) { return {Kind::Real, 0, value, {}}; }
  [[nodiscard]] static SqlValue Text(String value) { return {Kind::Text, 0, 0, std::move(value)}; }
  [[nodiscard]] static SqlValue Bytes(String value) {
    return {Kind::Bytes, 0, 0, std::move(value)};
  }
};

using SqlRow = std::vector<SqlValue>;

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_SQL_VALUE_H_
