// What a server tells of a table: its columns, what tells its rows apart, and its indexes.
//
// Names stand here as the server holds them; texts for statements are made by the driver
// (sql_driver.h). Columns are meant by their place in SqlTable::columns, from 0.

#ifndef VEXA_SQL_DRIVERS_SQL_TABLE_H_
#define VEXA_SQL_DRIVERS_SQL_TABLE_H_

#include <cstdint>
#include <vector>

#include "core/string.h"

namespace vexa {

// What a column's values are for a page, and which form they have in rows and parameters. A value
// of another form, which servers that do not insist on types may hold, is shown as it stands.
enum class SqlKind : uint8_t {
  Text,
  Integer,  // Integer, or the digits as text
  Number,   // with a decimal point: any of Integer, Real, Text
  Boolean,  // Integer 0 or 1
  Date,     // Text YYYY-MM-DD
  Time,     // Text YYYY-MM-DD HH:MM:SS, with or without fraction and zone (+HH, +HH:MM, Z)
  Bytes,    // Bytes
  Other,    // shown as the server's own text
};

struct SqlColumn {
  String name;
  SqlKind kind = SqlKind::Text;
  // Of a Number that declares them, else -1: digits in all, and digits behind the point. The
  // precision of a Text is its length in characters.
  int precision = -1;
  int decimals = -1;
  // The server has a value for it when a row is added without one: a default, a number.
  bool has_default = false;
  // The server computes it: it is never assigned.
  bool computed = false;
  // No variable: what the driver needs to tell rows apart (a row number without a name).
  bool hidden = false;
  // The driver's own: the type as statements write it.
  String type;
};

// One part of an order.
struct SqlTerm {
  enum class Function : uint8_t { None, Upper, Lower };

  int column = 0;
  Function function = Function::None;
  String collation;  // as the server names it; empty: the column's own
  bool descending = false;
  bool nulls_first = true;
};

struct SqlTable {
  [[nodiscard]] const SqlColumn& ColumnOf(const SqlTerm& term) const {
    return columns[static_cast<size_t>(term.column)];
  }

  String name;  // as it was asked for
  String text;  // as statements write it, quoted, with its schema
  std::vector<SqlColumn> columns;
  // The primary key, rising; together the terms tell every row from every other. Empty: nothing
  // does, the rows can only be read one after the other.
  std::vector<SqlTerm> key;
  // Adding and updating may leave another row than RETURNING yields (rules that run afterwards).
  bool changes_later = false;
};

struct SqlIndex {
  String name;
  std::vector<SqlTerm> terms;
  // False: it is one of other things than columns, upper and lower, or covers not every row.
  bool gives_order = true;
};

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_SQL_TABLE_H_
