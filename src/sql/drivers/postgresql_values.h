// Values of PostgreSQL: their types as numbers, and their texts.

#ifndef VEXA_SQL_DRIVERS_POSTGRESQL_VALUES_H_
#define VEXA_SQL_DRIVERS_POSTGRESQL_VALUES_H_

#include "sql/drivers/postgresql_library.h"
#include "sql/drivers/sql_table.h"
#include "sql/drivers/sql_value.h"

namespace vexa {

// What values of a type are to a page, given the type's number, which is no domain's, and its
// modifier, -1 for none.
void DescribePostgresqlType(unsigned type, int modifier, SqlColumn& column);

// The value of a row's field, in the form that SqlKind gives its type.
[[nodiscard]] SqlValue PostgresqlValue(const PostgresqlLibrary& library, const PGresult* result,
                                       int row, int column);

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_POSTGRESQL_VALUES_H_
