// Loading, and binding every function by its name.

#include "sql/drivers/postgresql_library.h"

#include <dlfcn.h>

#include <type_traits>

namespace vexa {

namespace {

bool BindAll(void* library, PostgresqlLibrary& f) {
  const auto bind = [library](const char* name, auto& function) {
    void* address = dlsym(library, name);
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(address);
    return address != nullptr;
  };
  return bind("PQconninfoParse", f.conninfoParse) && bind("PQconninfoFree", f.conninfoFree) &&
         bind("PQconndefaults", f.conndefaults) &&
         bind("PQconnectStartParams", f.connectStartParams) &&
         bind("PQconnectPoll", f.connectPoll) && bind("PQsetnonblocking", f.setnonblocking) &&
         bind("PQsetNoticeReceiver", f.setNoticeReceiver) && bind("PQfinish", f.finish) &&
         bind("PQstatus", f.status) && bind("PQsocket", f.socket) &&
         bind("PQerrorMessage", f.errorMessage) && bind("PQparameterStatus", f.parameterStatus) &&
         bind("PQserverVersion", f.serverVersion) && bind("PQbackendPID", f.backendPID) &&
         bind("PQtransactionStatus", f.transactionStatus) && bind("PQsendQuery", f.sendQuery) &&
         bind("PQsendQueryParams", f.sendQueryParams) &&
         bind("PQsetSingleRowMode", f.setSingleRowMode) && bind("PQflush", f.flush) &&
         bind("PQconsumeInput", f.consumeInput) && bind("PQisBusy", f.isBusy) &&
         bind("PQgetResult", f.getResult) && bind("PQresultStatus", f.resultStatus) &&
         bind("PQresultErrorField", f.resultErrorField) &&
         bind("PQresultErrorMessage", f.resultErrorMessage) && bind("PQntuples", f.ntuples) &&
         bind("PQnfields", f.nfields) && bind("PQfname", f.fname) && bind("PQftype", f.ftype) &&
         bind("PQfmod", f.fmod) && bind("PQgetvalue", f.getvalue) &&
         bind("PQgetlength", f.getlength) && bind("PQgetisnull", f.getisnull) &&
         bind("PQcmdStatus", f.cmdStatus) && bind("PQcmdTuples", f.cmdTuples) &&
         bind("PQclear", f.clear) && bind("PQunescapeBytea", f.unescapeBytea) &&
         bind("PQfreemem", f.freemem) && bind("PQgetCancel", f.getCancel) &&
         bind("PQcancel", f.cancel) && bind("PQfreeCancel", f.freeCancel);
}

}  // namespace

const PostgresqlLibrary* PostgresqlLibrary::Load() {
  static PostgresqlLibrary functions;
  static bool loaded = false;
  if (loaded) return &functions;
  void* library = dlopen("libpq.so.5", RTLD_LAZY | RTLD_LOCAL);
  loaded = library != nullptr && BindAll(library, functions);
  return loaded ? &functions : nullptr;
}

}  // namespace vexa
