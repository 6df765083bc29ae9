// Database and DatabaseView: what tags and variables know of an open database, whatever its type.

#ifndef VEXA_DATABASE_H_
#define VEXA_DATABASE_H_

#include <cstdint>
#include <span>
#include <string_view>

#include "core/string.h"
#include "core/variables.h"

namespace vexa {

// The two row numbers that name a place, not a record.
inline constexpr int64_t kFirstRow = -1;
inline constexpr int64_t kLastRow = -2;

// What a database or view operation came to. Failed leaves the message in error(); Reported is a
// failure of an expression, of which the page was told where it happened.
enum class DataResult { Failed = 0, Done = 1, EndOfData = 2, Reported = 3 };

// What a query came to: rows it changed, or yielded when it yields any, and the first value of the
// first of those.
struct QueryOutcome {
  int64_t rows = 0;
  String value;
};

// One view of an open database: the current record and the way through the records.
class DatabaseView {
 public:
  virtual ~DatabaseView() = default;
  // `expression` is the text of a filter; empty clears it.
  [[nodiscard]] virtual DataResult SetFilter(const String& expression) = 0;
  [[nodiscard]] virtual DataResult RevealStructure(const String& database) = 0;
  [[nodiscard]] virtual DataResult Skip(int rows) = 0;
  // A record number from 1, or kFirstRow or kLastRow.
  [[nodiscard]] virtual DataResult Go(int64_t row) = 0;
  [[nodiscard]] virtual DataResult Find(const String& value, int exact) = 0;
  [[nodiscard]] virtual DataResult Add() = 0;
  [[nodiscard]] virtual DataResult Update() = 0;
  [[nodiscard]] virtual DataResult Delete() = 0;
  [[nodiscard]] virtual DataResult UnDelete() = 0;
  // The variable of the current record with that name, or null. Owned by the view; valid until it
  // is closed.
  [[nodiscard]] virtual Variable* FindVariable(Symbol name) = 0;
  [[nodiscard]] virtual const String& name() const = 0;
  [[nodiscard]] virtual const String& error() const = 0;
};

// An open database.
class Database {
 public:
  virtual ~Database() = default;
  [[nodiscard]] virtual DataResult Open(const String& database, const String& user,
                                        const String& password) = 0;
  [[nodiscard]] virtual DataResult OpenIndexes(const String& indexes) = 0;
  [[nodiscard]] virtual DataResult SetPrimaryIndex(const String& index) = 0;
  [[nodiscard]] virtual DataResult Create(const String& database, const String& fields) = 0;
  [[nodiscard]] virtual DataResult CreateIndex(const String& indexfile, const String& expression,
                                               const String& flags) = 0;
  virtual void Close() = 0;
  [[nodiscard]] virtual DataResult OpenView(const String& name, const String& query) = 0;
  [[nodiscard]] virtual DataResult RunQuery(const String& query, QueryOutcome& outcome) = 0;
  [[nodiscard]] virtual DataResult Pack() = 0;
  [[nodiscard]] virtual DataResult Reindex() = 0;
  [[nodiscard]] virtual const String& name() const = 0;
  [[nodiscard]] virtual const String& type() const = 0;
  [[nodiscard]] virtual const String& error() const = 0;
  // The open views in order; owned by the database.
  [[nodiscard]] virtual std::span<DatabaseView* const> views() = 0;
  [[nodiscard]] virtual DatabaseView* FindView(std::string_view name) = 0;
  [[nodiscard]] virtual DatabaseView* PrimaryView() = 0;
  virtual void SetPrimaryView(DatabaseView* view) = 0;
  virtual void RemoveView(DatabaseView* view) = 0;
  // Whether an operation is under way that runs functions of the page: the database and its views
  // must not be closed then.
  [[nodiscard]] virtual bool InUse() const { return false; }
};

}  // namespace vexa

#endif  // VEXA_DATABASE_H_
