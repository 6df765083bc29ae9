// Telling a server that what it works on is wanted no more.

#ifndef VEXA_SQL_DRIVERS_POSTGRESQL_CANCEL_H_
#define VEXA_SQL_DRIVERS_POSTGRESQL_CANCEL_H_

#include "sql/drivers/postgresql_library.h"

namespace vexa {

// Asks the server to stop the statement that runs on the connection. Waits a second at most: a
// server that does not listen stops by the limit that the session was given.
void CancelPostgresqlStatement(const PostgresqlLibrary& library, PGconn* connection);

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_POSTGRESQL_CANCEL_H_
