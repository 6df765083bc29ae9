// Forms of values that drivers and views share: dates, times and numbers as texts.

#ifndef VEXA_SQL_DRIVERS_SQL_TEXT_H_
#define VEXA_SQL_DRIVERS_SQL_TEXT_H_

#include <cstdint>
#include <string_view>

#include "core/string.h"
#include "sql/drivers/sql_table.h"
#include "sql/drivers/sql_value.h"

namespace vexa {

// A date as pages write it, YYYYMMDD, as servers do, YYYY-MM-DD. Eight digits become one; any other
// text stays what it is.
[[nodiscard]] String IsoDate(std::string_view raw);
// The reverse; false for what is no such date.
[[nodiscard]] bool RawDate(std::string_view iso, String& raw);

// Seconds since 1970 as YYYY-MM-DD HH:MM:SS of UTC; empty when the year has not four digits.
[[nodiscard]] String IsoTime(int64_t seconds);
// The whole seconds of such a text, with or without T, fraction, zone (none is UTC), seconds or
// time; false for any other text.
[[nodiscard]] bool ReadIsoTime(std::string_view iso, int64_t& seconds);

// A real in plain decimals, as few as give it back.
[[nodiscard]] String PlainDecimals(double value);
// Whether the whole text is a number; an integer of 64 bits becomes one, others a Real.
[[nodiscard]] bool ReadNumber(std::string_view text, SqlValue& value);

// The function of a term that has one.
[[nodiscard]] std::string_view FoldName(const SqlTerm& term);
// A name as statements write it, whatever it holds.
[[nodiscard]] String QuotedName(std::string_view name);

// The first word of a statement behind white space and comments, as it stands; `end` is where it
// ends.
[[nodiscard]] std::string_view FirstWord(std::string_view statement, size_t& end);

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_SQL_TEXT_H_
