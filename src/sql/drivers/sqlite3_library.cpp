// Loading, and binding every function by its name.

#include "sql/drivers/sqlite3_library.h"

#include <dlfcn.h>

#include <type_traits>

namespace vexa {

namespace {

// What a table of names is bound to, so that each stands once.
template <typename Function>
bool Bind(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  return function != nullptr;
}

bool BindAll(void* library, Sqlite3Library& f) {
  return Bind(library, "sqlite3_open_v2", f.open_v2) &&
         Bind(library, "sqlite3_close_v2", f.close_v2) &&
         Bind(library, "sqlite3_prepare_v2", f.prepare_v2) &&
         Bind(library, "sqlite3_step", f.step) && Bind(library, "sqlite3_reset", f.reset) &&
         Bind(library, "sqlite3_finalize", f.finalize) &&
         Bind(library, "sqlite3_clear_bindings", f.clear_bindings) &&
         Bind(library, "sqlite3_bind_null", f.bind_null) &&
         Bind(library, "sqlite3_bind_int64", f.bind_int64) &&
         Bind(library, "sqlite3_bind_double", f.bind_double) &&
         Bind(library, "sqlite3_bind_text64", f.bind_text64) &&
         Bind(library, "sqlite3_bind_blob64", f.bind_blob64) &&
         Bind(library, "sqlite3_bind_parameter_count", f.bind_parameter_count) &&
         Bind(library, "sqlite3_column_count", f.column_count) &&
         Bind(library, "sqlite3_column_name", f.column_name) &&
         Bind(library, "sqlite3_column_decltype", f.column_decltype) &&
         Bind(library, "sqlite3_column_type", f.column_type) &&
         Bind(library, "sqlite3_column_int64", f.column_int64) &&
         Bind(library, "sqlite3_column_double", f.column_double) &&
         Bind(library, "sqlite3_column_text", f.column_text) &&
         Bind(library, "sqlite3_column_blob", f.column_blob) &&
         Bind(library, "sqlite3_column_bytes", f.column_bytes) &&
         Bind(library, "sqlite3_stmt_readonly", f.stmt_readonly) &&
         Bind(library, "sqlite3_changes", f.changes) &&
         Bind(library, "sqlite3_get_autocommit", f.get_autocommit) &&
         Bind(library, "sqlite3_errmsg", f.errmsg) && Bind(library, "sqlite3_errstr", f.errstr) &&
         Bind(library, "sqlite3_extended_errcode", f.extended_errcode) &&
         Bind(library, "sqlite3_system_errno", f.system_errno) &&
         Bind(library, "sqlite3_busy_handler", f.busy_handler) &&
         Bind(library, "sqlite3_progress_handler", f.progress_handler) &&
         Bind(library, "sqlite3_set_authorizer", f.set_authorizer) &&
         Bind(library, "sqlite3_db_config", f.db_config) &&
         Bind(library, "sqlite3_limit", f.limit) && Bind(library, "sqlite3_vfs_find", f.vfs_find) &&
         Bind(library, "sqlite3_temp_directory", f.temp_directory);
}

}  // namespace

const Sqlite3Library* Sqlite3Library::Load() {
  static Sqlite3Library functions;
  static bool loaded = false;
  if (loaded) return &functions;
  void* library = dlopen("libsqlite3.so.0", RTLD_LAZY | RTLD_LOCAL);
  loaded = library != nullptr && BindAll(library, functions);
  return loaded ? &functions : nullptr;
}

}  // namespace vexa
