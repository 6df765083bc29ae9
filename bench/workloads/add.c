/* The same adds straight from C, each a transaction of its own. */
#include <sqlite3.h>
#include <stdio.h>
#include <unistd.h>

int main(void) {
  sqlite3* db;
  sqlite3_stmt* add;
  unlink("c.db");
  if (sqlite3_open("c.db", &db) != SQLITE_OK) return 1;
  sqlite3_exec(db,
               "PRAGMA synchronous=OFF; CREATE TABLE t (id TEXT, value TEXT);"
               "CREATE INDEX tid ON t (id)",
               0, 0, 0);
  sqlite3_prepare_v2(db, "INSERT INTO t VALUES (?, ?)", -1, &add, 0);
  for (int i = 1; i <= PASSES; i++) {
    char id[16], value[32];
    snprintf(id, sizeof id, "k%d", (int)((long)i * 7919 % 100003));
    snprintf(value, sizeof value, "value %d", i);
    sqlite3_bind_text(add, 1, id, -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(add, 2, value, -1, SQLITE_TRANSIENT);
    if (sqlite3_step(add) != SQLITE_DONE) return 1;
    sqlite3_reset(add);
  }
  sqlite3_prepare_v2(db, "SELECT count(*) FROM t", -1, &add, 0);
  sqlite3_step(add);
  printf("%d\n", sqlite3_column_int(add, 0));
  return 0;
}
