// The library of the embedded engine. Pages that open no such database must not pay for it: it is
// loaded when it is first asked for, and stays loaded until the process ends.

#ifndef VEXA_SQL_DRIVERS_SQLITE3_LIBRARY_H_
#define VEXA_SQL_DRIVERS_SQLITE3_LIBRARY_H_

#include <sqlite3.h>

namespace vexa {

// Its functions, each with the type that its own header gives it.
struct Sqlite3Library {
  decltype(&::sqlite3_open_v2) open_v2;
  decltype(&::sqlite3_close_v2) close_v2;
  decltype(&::sqlite3_prepare_v2) prepare_v2;
  decltype(&::sqlite3_step) step;
  decltype(&::sqlite3_reset) reset;
  decltype(&::sqlite3_finalize) finalize;
  decltype(&::sqlite3_clear_bindings) clear_bindings;
  decltype(&::sqlite3_bind_null) bind_null;
  decltype(&::sqlite3_bind_int64) bind_int64;
  decltype(&::sqlite3_bind_double) bind_double;
  decltype(&::sqlite3_bind_text64) bind_text64;
  decltype(&::sqlite3_bind_blob64) bind_blob64;
  decltype(&::sqlite3_bind_parameter_count) bind_parameter_count;
  decltype(&::sqlite3_column_count) column_count;
  decltype(&::sqlite3_column_name) column_name;
  decltype(&::sqlite3_column_decltype) column_decltype;
  decltype(&::sqlite3_column_type) column_type;
  decltype(&::sqlite3_column_int64) column_int64;
  decltype(&::sqlite3_column_double) column_double;
  decltype(&::sqlite3_column_text) column_text;
  decltype(&::sqlite3_column_blob) column_blob;
  decltype(&::sqlite3_column_bytes) column_bytes;
  decltype(&::sqlite3_stmt_readonly) stmt_readonly;
  decltype(&::sqlite3_changes) changes;
  decltype(&::sqlite3_get_autocommit) get_autocommit;
  decltype(&::sqlite3_errmsg) errmsg;
  decltype(&::sqlite3_errstr) errstr;
  decltype(&::sqlite3_extended_errcode) extended_errcode;
  decltype(&::sqlite3_system_errno) system_errno;
  decltype(&::sqlite3_busy_handler) busy_handler;
  decltype(&::sqlite3_progress_handler) progress_handler;
  decltype(&::sqlite3_set_authorizer) set_authorizer;
  decltype(&::sqlite3_db_config) db_config;
  decltype(&::sqlite3_limit) limit;
  decltype(&::sqlite3_vfs_find) vfs_find;
  char** temp_directory;

  // The library, loaded when needed. Null when the system cannot load it; that may be tried again.
  [[nodiscard]] static const Sqlite3Library* Load();
};

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_SQLITE3_LIBRARY_H_
