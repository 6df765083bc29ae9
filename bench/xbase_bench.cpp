// Tables and indexes against SQLite: the same 100,000 records appended, found in random order by
// key, and read in the order of the key. SQLite runs without journal and syncing, and one statement
// is one transaction where a page would make it one; "Batch" is all of them in one.
//
// bench/run builds and runs the benchmarks; compare the times of Xbase... and Sqlite... .

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "fake_host.h"
#include "files/unix_file_manager.h"
#include "xbase/index/index_builder.h"
#include "xbase/index/xbase_index.h"
#include "xbase/table/xbase_table.h"

namespace vexa {
namespace {

constexpr int kRecords = 100'000;

void Require(bool condition, const char* text) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", text);
  std::exit(1);
}

std::string KeyOf(int n) {
  char key[16];
  // Spread out, so that the order of the keys is not that of the records.
  std::snprintf(key, sizeof key, "k%08u", static_cast<unsigned>(n) * 2654435761u % 100'000'007u);
  return key;
}

class Directory {
 public:
  Directory() {
    char pattern[] = "/tmp/vexa-bench-XXXXXX";
    Require(::mkdtemp(pattern) != nullptr, "no directory");
    path_ = pattern;
  }
  ~Directory() { std::filesystem::remove_all(path_); }
  [[nodiscard]] std::string In(const char* name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// The table NAME C(12), AGE N(3), with an index by name when `indexed`.
class XbaseTable {
 public:
  XbaseTable() {
    Require(table.Create({String(directory.In("t.dbf")), "t", "", ""},
                         {{"NAME", XBaseFieldType::CHAR, 12, 0},
                          {"AGE", XBaseFieldType::NUMBER, 3, 0}}) != 0,
            table.error().c_str());
    Require(index.Create(String(directory.In("t.vxx")), "t.vxx", {"NAME", kIndexString, {}}) != 0,
            index.error().c_str());
  }
  void Append(int n) {
    table.fields()[0]->Set(String(KeyOf(n)));
    table.fields()[1]->Set(String(std::to_string(n % 100)));
    Require(table.Append() != 0, table.error().c_str());
  }
  void AppendIndexed(int n) {
    Append(n);
    Require(index.Insert(static_cast<uint32_t>(n), KeyOf(n)) != 0, index.error().c_str());
  }
  void Fill() {
    XBaseIndexBuilder builder(files, {"NAME", kIndexString, {}});
    for (int n = 1; n <= kRecords; ++n) {
      Append(n);
      builder.Add(static_cast<uint32_t>(n), KeyOf(n));
    }
    const String path(directory.In("t.vxx"));
    Require(builder.Write(path, path) && builder.Install(), builder.error().c_str());
  }

  Directory directory;
  FakeHost host;
  UNIXFileManager files{host};
  XBaseTable table{files};
  XBaseIndex index{files};
};

class SqliteTable {
 public:
  SqliteTable() {
    Require(sqlite3_open(directory.In("t.sqlite").c_str(), &database) == SQLITE_OK, "no sqlite");
    Run("PRAGMA journal_mode=OFF");
    Run("PRAGMA synchronous=OFF");
    Run("CREATE TABLE t (name TEXT, age INTEGER)");
    Run("CREATE INDEX i ON t (name)");
    insert_ = Prepare("INSERT INTO t VALUES (?, ?)");
  }
  ~SqliteTable() {
    sqlite3_finalize(insert_);
    sqlite3_close(database);
  }
  void Run(const char* text) {
    Require(sqlite3_exec(database, text, nullptr, nullptr, nullptr) == SQLITE_OK, text);
  }
  sqlite3_stmt* Prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    Require(sqlite3_prepare_v2(database, text, -1, &statement, nullptr) == SQLITE_OK, text);
    return statement;
  }
  void Append(int n) {
    const std::string key = KeyOf(n);
    sqlite3_bind_text(insert_, 1, key.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int(insert_, 2, n % 100);
    Require(sqlite3_step(insert_) == SQLITE_DONE, "insert");
    sqlite3_reset(insert_);
  }
  void Fill() {
    Run("BEGIN");
    for (int n = 1; n <= kRecords; ++n) Append(n);
    Run("COMMIT");
  }

  Directory directory;
  sqlite3* database = nullptr;

 private:
  sqlite3_stmt* insert_ = nullptr;
};

// --- Appending -------------------------------------------------------------------------------

void XbaseAppend(benchmark::State& state) {
  XbaseTable t;
  int n = 0;
  for (auto _ : state) t.AppendIndexed(++n);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(XbaseAppend)->Iterations(kRecords);

void SqliteAppend(benchmark::State& state) {
  SqliteTable t;
  int n = 0;
  for (auto _ : state) t.Append(++n);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SqliteAppend)->Iterations(kRecords);

void SqliteAppendBatch(benchmark::State& state) {
  SqliteTable t;
  t.Run("BEGIN");
  int n = 0;
  for (auto _ : state) t.Append(++n);
  t.Run("COMMIT");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SqliteAppendBatch)->Iterations(kRecords);

// --- Finding ---------------------------------------------------------------------------------

void XbaseFind(benchmark::State& state) {
  XbaseTable t;
  t.Fill();
  std::mt19937 random(1);
  for (auto _ : state) {
    const int n = 1 + static_cast<int>(random() % kRecords);
    uint32_t record;
    Require(t.index.Find(KeyOf(n), 1, record) != 0 && record == static_cast<uint32_t>(n) &&
                t.table.Goto(n) != 0,
            "not found");
    benchmark::DoNotOptimize(t.table.fields()[1]->data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(XbaseFind);

void SqliteFind(benchmark::State& state) {
  SqliteTable t;
  t.Fill();
  sqlite3_stmt* find = t.Prepare("SELECT age FROM t WHERE name = ?");
  std::mt19937 random(1);
  for (auto _ : state) {
    const std::string key = KeyOf(1 + static_cast<int>(random() % kRecords));
    sqlite3_bind_text(find, 1, key.c_str(), -1, SQLITE_TRANSIENT);
    Require(sqlite3_step(find) == SQLITE_ROW, "not found");
    benchmark::DoNotOptimize(sqlite3_column_int(find, 0));
    sqlite3_reset(find);
  }
  sqlite3_finalize(find);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SqliteFind);

// --- Reading in order ------------------------------------------------------------------------

void XbaseOrderedScan(benchmark::State& state) {
  XbaseTable t;
  t.Fill();
  for (auto _ : state) {
    uint32_t record;
    int count = 0;
    for (int ok = t.index.First(record); ok != 0 && record != 0; ok = t.index.Next(record)) {
      Require(t.table.Goto(static_cast<int>(record)) != 0, "no record");
      benchmark::DoNotOptimize(t.table.fields()[1]->data());
      ++count;
    }
    Require(count == kRecords, "records missing");
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(XbaseOrderedScan)->Unit(benchmark::kMillisecond);

void SqliteOrderedScan(benchmark::State& state) {
  SqliteTable t;
  t.Fill();
  sqlite3_stmt* scan = t.Prepare("SELECT age FROM t ORDER BY name");
  for (auto _ : state) {
    int count = 0;
    while (sqlite3_step(scan) == SQLITE_ROW) {
      benchmark::DoNotOptimize(sqlite3_column_int(scan, 0));
      ++count;
    }
    Require(count == kRecords, "records missing");
    sqlite3_reset(scan);
  }
  sqlite3_finalize(scan);
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(SqliteOrderedScan)->Unit(benchmark::kMillisecond);

// --- Building an index -----------------------------------------------------------------------

void XbaseBuildMillion(benchmark::State& state) {
  Directory directory;
  FakeHost host;
  UNIXFileManager files(host);
  const String path(directory.In("t.vxx"));
  for (auto _ : state) {
    XBaseIndexBuilder builder(files, {"NAME", static_cast<uint32_t>(state.range(0)), {}});
    for (int n = 1; n <= 1'000'000; ++n) builder.Add(static_cast<uint32_t>(n), KeyOf(n));
    Require(builder.Write(path, path) && builder.Install(), builder.error().c_str());
  }
}
BENCHMARK(XbaseBuildMillion)->Arg(0)->Arg(kIndexString)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vexa
