// The client library of PostgreSQL. Pages without such a database must not pay for it: it is loaded
// when a page first opens one, and stays loaded until the process ends.

#ifndef VEXA_SQL_DRIVERS_POSTGRESQL_LIBRARY_H_
#define VEXA_SQL_DRIVERS_POSTGRESQL_LIBRARY_H_

#include <libpq-fe.h>
#include <unistd.h>

#include <memory>

namespace vexa {

// Its functions, each with the type that its own header gives it.
struct PostgresqlLibrary {
  decltype(&::PQconninfoParse) conninfoParse;
  decltype(&::PQconninfoFree) conninfoFree;
  decltype(&::PQconndefaults) conndefaults;
  decltype(&::PQconnectStartParams) connectStartParams;
  decltype(&::PQconnectPoll) connectPoll;
  decltype(&::PQsetnonblocking) setnonblocking;
  decltype(&::PQsetNoticeReceiver) setNoticeReceiver;
  decltype(&::PQfinish) finish;
  decltype(&::PQstatus) status;
  decltype(&::PQsocket) socket;
  decltype(&::PQerrorMessage) errorMessage;
  decltype(&::PQparameterStatus) parameterStatus;
  decltype(&::PQserverVersion) serverVersion;
  decltype(&::PQbackendPID) backendPID;
  decltype(&::PQtransactionStatus) transactionStatus;
  decltype(&::PQsendQuery) sendQuery;
  decltype(&::PQsendQueryParams) sendQueryParams;
  decltype(&::PQsetSingleRowMode) setSingleRowMode;
  decltype(&::PQflush) flush;
  decltype(&::PQconsumeInput) consumeInput;
  decltype(&::PQisBusy) isBusy;
  decltype(&::PQgetResult) getResult;
  decltype(&::PQresultStatus) resultStatus;
  decltype(&::PQresultErrorField) resultErrorField;
  decltype(&::PQresultErrorMessage) resultErrorMessage;
  decltype(&::PQntuples) ntuples;
  decltype(&::PQnfields) nfields;
  decltype(&::PQfname) fname;
  decltype(&::PQftype) ftype;
  decltype(&::PQfmod) fmod;
  decltype(&::PQgetvalue) getvalue;
  decltype(&::PQgetlength) getlength;
  decltype(&::PQgetisnull) getisnull;
  decltype(&::PQcmdStatus) cmdStatus;
  decltype(&::PQcmdTuples) cmdTuples;
  decltype(&::PQclear) clear;
  decltype(&::PQunescapeBytea) unescapeBytea;
  decltype(&::PQfreemem) freemem;
  decltype(&::PQgetCancel) getCancel;
  decltype(&::PQcancel) cancel;
  decltype(&::PQfreeCancel) freeCancel;

  // The library, loaded when needed; null when the system cannot load it.
  [[nodiscard]] static const PostgresqlLibrary* Load();
};

// What the library gives away, given back to it.
struct PostgresqlGiver {
  const PostgresqlLibrary* library;
  void operator()(PGresult* result) const { library->clear(result); }
  void operator()(PQconninfoOption* options) const { library->conninfoFree(options); }
  void operator()(unsigned char* bytes) const { library->freemem(bytes); }
};
template <typename Type>
using PostgresqlOwned = std::unique_ptr<Type, PostgresqlGiver>;

// While one exists, the process has an environment without variables for the library, and a home
// directory in which there is nothing: what a page connects to must not depend on who started the
// web server. Only the list is another: what others hold of the environment stays valid.
class EmptySurroundings {
 public:
  EmptySurroundings() { environ = entries_; }
  // With one variable all the same: NAME=value, borrowed.
  explicit EmptySurroundings(const char* variable)
      : entries_{home_, const_cast<char*>(variable), nullptr} {
    environ = entries_;
  }
  ~EmptySurroundings() { environ = kept_; }
  EmptySurroundings(const EmptySurroundings&) = delete;
  EmptySurroundings& operator=(const EmptySurroundings&) = delete;

 private:
  char** kept_ = environ;
  // A directory that cannot be: no path below /dev/null leads to a file.
  char home_[sizeof "HOME=/dev/null"] = "HOME=/dev/null";
  char* entries_[3] = {home_, nullptr, nullptr};
};

}  // namespace vexa

#endif  // VEXA_SQL_DRIVERS_POSTGRESQL_LIBRARY_H_
