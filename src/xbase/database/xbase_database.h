// XBaseDatabase: an open table with its memo file and indexes, and its one view.
//
//   XBaseDatabase         opening and creating, the list of indexes, building them, packing
//   XBaseDatabaseView     the way through the records, filters, and changes of records
//   XBaseRecord           the current record as variables
//   XBaseIndexSet         the open indexes; RecordWalk: the order that one of them gives
//
// Locks are taken in one order: indexes (by path), then the table. A change that another process
// did not live to finish is finished before anything else is done (Run). Key expressions may call
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
#include "xbase/table/xbase_table.h"

namespace vexa {

class XBaseDatabaseView;

class XBaseDatabase final : public Database {
 public:
  static constexpr std::string_view kType = "xbase3";

  // `host` is borrowed. `name` is what scripts call the database.
  XBaseDatabase(Vexa& host, const String& name);
  ~XBaseDatabase() override;

  [[nodiscard]] DataResult Open(const String& database, const String& user,
                                const String& password) override;
  [[nodiscard]] DataResult OpenIndexes(const String& indexes) override;
  [[nodiscard]] DataResult SetPrimaryIndex(const String& index) override;
  [[nodiscard]] DataResult Create(const String& database, const String& fields) override;
  [[nodiscard]] DataResult CreateIndex(const String& indexfile, const String& expression,
                                       const String& flags) override;
  void Close() override;
  [[nodiscard]] DataResult OpenView(const String& name, const String& query) override;
  [[nodiscard]] DataResult RunQuery(const String& query, QueryOutcome& outcome) override;
  [[nodiscard]] DataResult Pack() override;
  [[nodiscard]] DataResult Reindex() override;
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
  [[nodiscard]] bool InUse() const override { return record_.busy(); }

  // --- For the view ---
  [[nodiscard]] Vexa& host() { return host_; }
  [[nodiscard]] XBaseTable& table() { return table_; }
  [[nodiscard]] XBaseRecord& record() { return record_; }
  [[nodiscard]] XBaseIndexSet& indexes() { return indexes_; }
  // Whether an operation may begin now; else `message` says why not.
  [[nodiscard]] bool MayBegin(String& message);
  // The same for one that changes the table.
  [[nodiscard]] bool MayChange(String& message);
  // Makes a table of `rows` at the data path `name`, unless the place is taken by an open table.
  // `table` is opened on it. False with `message` set.
  [[nodiscard]] bool CreateTable(XBaseTable& table, const String& name,
                                 const std::vector<XBaseField::Declaration>& fields,
                                 const std::vector<XBaseRow>& rows, String& message);
  // Runs `operation`, and again whenever it met the unfinished change of a process that is gone and
  // that change was finished. The operation must leave no lock and change nothing when it fails.
  // `message` is its message; it is changed when the change could not be finished.
  template <typename Operation>
  [[nodiscard]] DataResult Run(String& message, Operation operation) {
    for (int tries = 0;; ++tries) {
      table_.ForgetUnfinished();
      indexes_.ForgetUnfinished();
      const DataResult result = operation();
      if (!(table_.unfinished() || indexes_.unfinished()) || tries == kMostReplacements) {
        return result;
      }
      const DataResult finished = FinishChange(table_, message);
      if (finished != DataResult::Done) return finished;
    }
  }

 private:
  using Builders = std::vector<std::unique_ptr<XBaseIndexBuilder>>;

  // Messages; `message` is not HTML yet. Each returns Failed.
  DataResult Fail(std::string_view message);
  DataResult FailTable() { return Fail(table_.error()); }
  // Passes the result of an operation of the indexes on.
  DataResult Passed(DataResult result);

  // The paths of a table and its memo file from the name in a script. 1, or 0 with `message` set.
  [[nodiscard]] bool ResolveTable(const String& name, XBaseTableNames& names, String& message);
  [[nodiscard]] bool MayHaveMemo(const XBaseTableNames& names, bool has_memo, String& message);
  // Opens it for reading only when the system does not allow more.
  [[nodiscard]] DataResult OpenTable(const String& name, const String& path);
  // Makes record variables and view of the table that was just opened.
  void Begin();
  // Goes to the first record. Done, or Failed with the view's message.
  [[nodiscard]] DataResult GoFirst();
  // Whether a database of this request has the table or memo file at `path` open.
  [[nodiscard]] bool IsOpenTable(const String& path);
  // Finishes the change whose mark `table`, or one of the indexes, bears.
  [[nodiscard]] DataResult FinishChange(XBaseTable& table, String& message);
  // Whether a journal of the table at `table` may name the file at `path`; both without links.
  [[nodiscard]] bool MayFinish(const String& table, const String& path);
  // Builds the indexes anew that bear a mark which the table does not.
  [[nodiscard]] DataResult RebuildMarked();

  // xbase_database_indexes.cpp
  // Whether an index may be written over the file that is at `path`, if there is one.
  [[nodiscard]] DataResult MayReplace(const String& name, const String& path);
  // Calls `visit(number)` for each record, which is current then, until it is not Done. The current
  // record is then what it was.
  using Visit = std::function<DataResult(int)>;
  [[nodiscard]] DataResult ForEachRecord(const Visit& visit);
  [[nodiscard]] DataResult VisitRecords(const Visit& visit);
  [[nodiscard]] DataResult CreateIndexLocked(const String& name, const String& path,
                                             const Expression& key, const ZDXIndexSpec& spec);
  // Writes an index of all records to a new file.
  [[nodiscard]] DataResult BuildIndex(const String& name, const String& path, const Expression& key,
                                      XBaseIndexBuilder& builder);
  // A builder for each open index.
  [[nodiscard]] Builders MakeBuilders();
  // Adds the current record as record `number`.
  [[nodiscard]] DataResult AddKeys(Builders& builders, int number);
  [[nodiscard]] DataResult ReindexLocked();
  [[nodiscard]] DataResult PackLocked();

  Vexa& host_;
  String name_;
  String type_;
  String error_;
  XBaseTable table_;
  XBaseRecord record_;
  XBaseIndexSet indexes_;
  std::unique_ptr<XBaseDatabaseView> view_;
  DatabaseView* view_pointer_ = nullptr;  // view_ for views(); null when it was closed
  DatabaseView* primary_view_ = nullptr;
  String read_only_;  // why the table cannot be written to; empty when it can
  Durability durability_ = Durability::None;
};

}  // namespace vexa

#endif  // VEXA_XBASE_DATABASE_XBASE_DATABASE_H_
