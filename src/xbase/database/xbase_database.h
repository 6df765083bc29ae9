// XBaseDatabase: an open table with its memo file and indexes, and its one view.
//
//   XBaseDatabase         opening and creating, the list of indexes, building them, packing
//   XBaseDatabaseView     the way through the records, filters, and changes of records
//   XBaseRecord           the current record as variables
//   XBaseIndexSet         the open indexes; RecordWalk: the order that one of them gives
//
// Locks are taken in one order: indexes (by path), then the table. Key expressions may call
// functions of the page; while one is evaluated, or a filter, every operation on this database is
// refused, and so are changes through another database that has the same table open while this
// one holds locks.
//
// Messages are HTML: names and keys in them may come from a form.

#ifndef VEXA_XBASE_DATABASE_XBASE_DATABASE_H_
#define VEXA_XBASE_DATABASE_XBASE_DATABASE_H_

#include <functional>
#include <memory>
#include <span>
#include <string_view>

#include "database.h"
#include "vexa.h"
#include "xbase/database/index_set.h"
#include "xbase/database/xbase_record.h"
#include "xbase/index/index_builder.h"
#include "xbase/table/table_lock.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

class XBaseDatabaseView;

class XBaseDatabase final : public Database {
 public:
  static constexpr std::string_view kType = "xbase3";

  // `host` is borrowed. `name` is what scripts call the database.
  XBaseDatabase(Vexa& host, const String& name);
  ~XBaseDatabase() override;

  // An expression that fails has been reported to the page when an operation returns; error() is
  // empty then.
  [[nodiscard]] int Open(const String& database, const String& user,
                         const String& password) override;
  [[nodiscard]] int OpenIndexes(const String& indexes) override;
  [[nodiscard]] int SetPrimaryIndex(const String& index) override;
  [[nodiscard]] int Create(const String& database, const String& fields) override;
  [[nodiscard]] int CreateIndex(const String& indexfile, const String& expression,
                                const String& flags) override;
  void Close() override;
  [[nodiscard]] int OpenView(const String& name, const String& query) override;
  [[nodiscard]] int RunQuery(const String& query) override;
  [[nodiscard]] DataResult Pack() override;
  [[nodiscard]] int Reindex() override;
  [[nodiscard]] const String& name() const override { return name_; }
  [[nodiscard]] const String& type() const override { return type_; }
  [[nodiscard]] const String& error() const override { return error_; }
  [[nodiscard]] std::span<DatabaseView* const> views() override {
    return {&view_pointer_, view_pointer_ == nullptr ? 0U : 1U};
  }
  [[nodiscard]] DatabaseView* FindView(std::string_view name) override;
  [[nodiscard]] DatabaseView* PrimaryView() override { return primary_view_; }
  void SetPrimaryView(DatabaseView* view) override { primary_view_ = view; }
  void RemoveView(DatabaseView* view) override;
  [[nodiscard]] bool InUse() const override { return record_.busy() || holding_; }

  // --- For the view ---
  [[nodiscard]] Vexa& host() { return host_; }
  [[nodiscard]] XBaseTable& table() { return table_; }
  [[nodiscard]] XBaseRecord& record() { return record_; }
  [[nodiscard]] XBaseIndexSet& indexes() { return indexes_; }
  [[nodiscard]] TableLock& tablelock() { return table_lock_; }
  // Whether an operation may begin now; else `message` says why not.
  [[nodiscard]] bool MayBegin(String& message);
  // The same for one that changes the table.
  [[nodiscard]] bool MayChange(String& message);
  // Makes an empty table at the data path `name`, unless the place is taken by an open table.
  // `table` is opened on it. 1, or 0 with `message` set.
  [[nodiscard]] int CreateTable(XBaseTable& table, const String& name,
                                const std::vector<XBaseField::Declaration>& fields,
                                String& message);

  // Says that locks are held over evaluations, as long as it lives.
  class Holding {
   public:
    explicit Holding(XBaseDatabase& database) : database_(database) { database_.holding_ = true; }
    ~Holding() { database_.holding_ = false; }
    Holding(const Holding&) = delete;
    Holding& operator=(const Holding&) = delete;

   private:
    XBaseDatabase& database_;
  };

 private:
  using Builders = std::vector<std::unique_ptr<XBaseIndexBuilder>>;

  // Messages; `message` is not HTML yet. Each returns 0.
  int Fail(std::string_view message);
  int FailTable() { return Fail(table_.error()); }
  int FailIndexes();

  // The paths of a table and its memo file from the name in a script. 1, or 0 with `message` set.
  [[nodiscard]] int ResolveTable(const String& name, XBaseTableNames& names, String& message);
  [[nodiscard]] int CheckMemoName(const XBaseTableNames& names, bool has_memo);
  // Opens it for reading only when the system does not allow more.
  [[nodiscard]] int OpenTable(const String& name, const String& path);
  // Makes record variables and view of the table that was just opened.
  void Begin();
  // Goes to the first record. 1, or 0 with the view's message.
  [[nodiscard]] int GoFirst();
  // Whether a database of this request has the table or memo file at `path` open.
  [[nodiscard]] bool IsOpenTable(const String& path);

  // xbase_database_indexes.cpp
  // Whether an index may be written over the file that is at `path`, if there is one.
  [[nodiscard]] int MayReplace(const String& name, const String& path);
  // Calls `visit(number)` for each record, which is current then, until it returns 0. The current
  // record is then what it was.
  [[nodiscard]] int ForEachRecord(const std::function<int(int)>& visit);
  [[nodiscard]] int VisitRecords(const std::function<int(int)>& visit);
  [[nodiscard]] int BuildIndex(const String& name, const String& path, const Expression& key,
                               XBaseIndexBuilder& builder);
  // A builder for each open index.
  [[nodiscard]] Builders MakeBuilders();
  // Adds the current record as record `number`.
  [[nodiscard]] int AddKeys(Builders& builders, int number);
  [[nodiscard]] int WriteAll(Builders& builders);
  // Whether the indexes that are replaced still fit the table.
  enum class OldIndexes { Good, Wrong };
  [[nodiscard]] int InstallAll(Builders& builders, OldIndexes old);
  [[nodiscard]] int PackLocked();

  Vexa& host_;
  String name_;
  String type_;
  String error_;
  XBaseTable table_;
  TableLock table_lock_;
  XBaseRecord record_;
  XBaseIndexSet indexes_;
  std::unique_ptr<XBaseDatabaseView> view_;
  DatabaseView* view_pointer_ = nullptr;  // view_ for views(); null when it was closed
  DatabaseView* primary_view_ = nullptr;
  String read_only_;  // why the table cannot be written to; empty when it can
  bool holding_ = false;
};

}  // namespace vexa

#endif  // VEXA_XBASE_DATABASE_XBASE_DATABASE_H_
