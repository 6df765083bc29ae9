// Where a PostgreSQL database is: what a page says of it, and what the site's setting adds.
//
//   USER, PASSWORD  win over  the text in DATABASE  which wins, key by key, over  the setting
//
// The setting may hold secrets, which go to the setting's server alone. Keys that name files or
// services are the setting's, too: a page must not choose what is read as the web server's user.

#ifndef VEXA_SQL_DRIVERS_POSTGRESQL_PLACE_H_
#define VEXA_SQL_DRIVERS_POSTGRESQL_PLACE_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "core/settings.h"
#include "core/string.h"
#include "sql/drivers/postgresql_library.h"
#include "sql/drivers/sql_driver.h"

namespace vexa {

// No text of theirs can hold such a byte: what stands behind it would silently be lost.
inline constexpr std::string_view kByteZeroInText =
    "A text for a database of type 'postgresql' holds a byte 0";

// A server of the list that a connection text may hold. What is empty is the library's default.
struct PostgresqlServer {
  String host;     // a name, or the directory of a local socket
  String address;  // a number, in the place of looking up `host`
  String port;
};

struct PostgresqlPlace {
  struct Option {
    String key;
    String value;
  };
  // As the library names them, without those below.
  std::vector<Option> options;
  std::vector<PostgresqlServer> servers;  // in the order in which they are tried; never empty
  String session_attributes;              // what kind of server will do: target_session_attrs
  int64_t seconds_each = 0;               // for connecting to one of them; 0: no limit of its own
};

// Reads the place. False with `fault` set, whose message quotes nothing but the name of a key.
[[nodiscard]] bool ReadPostgresqlPlace(const PostgresqlLibrary& library, const Settings& settings,
                                       const SqlPlace& written, PostgresqlPlace& place,
                                       SqlFault& fault);

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_POSTGRESQL_PLACE_H_
