// Fuzzing of tables, memo files and indexes with libFuzzer: they are opened, walked, changed and
// checked. Anything but a message or a right answer is a finding. Targets, and what their input is:
//   table, memo, index  that file; the two others are good
//   xbase               all three: the lengths of the table and the memo file, two bytes each,
//                       little-endian, then the files
//
// tests/fuzz/run builds and runs it. Its seeds come from MakeSeeds below: with the environment
// variable VEXA_FUZZ_SEEDS the program writes those of the target to that directory and ends.

#include <cstdlib>
#include <span>
#include <string>

#include "core/byte_order.h"
#include "fuzz_target.h"
#include "memory_files.h"
#include "xbase/check/table_check.h"
#include "xbase/index/index_builder.h"
#include "xbase/index/xbase_index.h"
#include "xbase/table/xbase_table.h"

namespace vexa {
namespace {

constexpr char kTable[] = "t.dbf";
constexpr char kMemo[] = "t.dbt";
constexpr char kIndex[] = "t.vxx";
constexpr int kMostSteps = 300;

void UseTable(MemoryFiles& files) {
  XBaseTable table(files);
  if (table.Open(kTable, kTable, OpenRead | OpenWrite) == 0) {
    Require(!table.error().empty(), "opening failed without a message");
    return;
  }
  const int count = std::min(table.numrecords(), kMostSteps);
  for (int n = 1; n <= count && table.Goto(n) != 0; ++n) {
    for (const auto& field : table.fields()) (void)field->data();
  }
  for (const auto& field : table.fields()) field->Set(String("12 new values"));
  const int appended = table.Append();
  if (appended != 0) {
    Require(table.Goto(table.numrecords()) != 0, "an appended record cannot be read");
    for (const auto& field : table.fields()) {
      const std::string_view whole = "12 new values";
      const auto length = static_cast<size_t>(field->length());
      if (field->type() == XBaseFieldType::CHAR) {
        std::string_view cut = whole.substr(0, length);
        while (cut.ends_with(' ')) cut.remove_suffix(1);
        Require(field->data() == cut, "a text changed on its way");
      }
      if (field->type() == XBaseFieldType::MEMO) {
        Require(field->data() == whole, "a memo text changed on its way");
      }
    }
  }
  if (table.Goto(1) != 0 && table.UpdateDeleted(1) != 0) (void)table.Update();
  (void)table.Pack();
}

void UseIndex(MemoryFiles& files) {
  XBaseIndex index(files);
  if (index.Open("i", kIndex, kIndex) == 0) {
    Require(!index.error().empty(), "opening failed without a message");
    return;
  }
  uint32_t record = 0;
  bool found = false;
  int steps = 0;
  for (int ok = index.First(record); ok != 0 && record != 0 && ++steps < kMostSteps;) {
    ok = index.Next(record);
  }
  for (int ok = index.Last(record); ok != 0 && record != 0 && --steps > -kMostSteps;) {
    ok = index.Prev(record);
  }
  for (const char* key : {"", "1", "k05", "zz"}) {
    (void)index.Find(key, 0, record);
    (void)index.Find(key, 1, record);
    (void)index.Seek(key, 5, found);
  }
  XBaseIndexLock lock;
  if (!lock.Take(index)) return;
  for (uint32_t n = 1; n <= 12; ++n) {
    char key[8];
    std::snprintf(key, sizeof key, "k%02u", n);
    (void)index.Delete(n, key);
    if (index.CheckUnique(key, n)) (void)index.Insert(n, key);
  }
}

// Uses the three files.
void Use(MemoryFiles& files) {
  const String index(kIndex);
  StringOutput out;
  const int before = CheckTable(files, kTable, std::span(&index, 1), out);
  UseTable(files);
  UseIndex(files);
  StringOutput after;
  (void)CheckTable(files, kTable, {}, after);
  after.Flush();
  // Whatever was good stays good when it is used.
  if (before == 0) Require(after.data().contains(": good"), "using a good table damaged it");
  Require(files.locks() == 0, "a lock was kept");
}

// --- Seeds -----------------------------------------------------------------------------------

// A table of `records` with every type of field, and an index of its first field.
void MakeFiles(MemoryFiles& files, int records, uint32_t flags, ZDXIndexShape shape) {
  XBaseTable table(files);
  Require(table.Create({kTable, kTable, "", ""}, {{"NAME", XBaseFieldType::CHAR, 6, 0},
                                                  {"AGE", XBaseFieldType::NUMBER, 5, 1},
                                                  {"BORN", XBaseFieldType::DATE, 8, 0},
                                                  {"PAID", XBaseFieldType::BOOL, 1, 0},
                                                  {"NOTE", XBaseFieldType::MEMO, 10, 0}}) != 0,
          "no seed");
  XBaseIndexBuilder builder(files, {"NAME", flags, shape});
  for (int n = 1; n <= records; ++n) {
    char key[8];
    std::snprintf(key, sizeof key, "k%02d", n);
    const char* values[] = {key, "12.5", "20011231", "T", n % 3 == 0 ? "" : "a note"};
    for (size_t i = 0; i < 5; ++i) table.fields()[i]->Set(String(values[i]));
    Require(table.Append() != 0, "no seed");
    builder.Add(static_cast<uint32_t>(n), key);
  }
  table.Close();
  Require(builder.Write(kIndex, kIndex) && builder.Install(), "no seed");
}

void MakeSeeds(const std::string& directory, const char* path) {
  const ZDXIndexShape small{3, 435, 20};
  const struct {
    int records;
    uint32_t flags;
    ZDXIndexShape shape;
  } kSeeds[] = {{0, 0, small},
                {2, kIndexUnique, small},
                {9, kIndexDescending | kIndexString, small},
                {20, 0, small},
                {10, 0, {}}};
  int number = 0;
  for (const auto& [records, flags, shape] : kSeeds) {
    MemoryFiles files;
    MakeFiles(files, records, flags, shape);
    std::string seed;
    if (path == nullptr) {
      seed.resize(4);
      Put16(seed.data(), static_cast<uint16_t>(files[kTable].size()));
      Put16(seed.data() + 2, static_cast<uint16_t>(files[kMemo].size()));
      seed += files[kTable] + files[kMemo] + files[kIndex];
    } else {
      seed = files[path];
    }
    const std::string name = directory + "/seed" + std::to_string(++number);
    std::FILE* file = std::fopen(name.c_str(), "wb");
    Require(file != nullptr, "the seeds cannot be written");
    Require(std::fwrite(seed.data(), 1, seed.size(), file) == seed.size(), "short write");
    std::fclose(file);
  }
  std::_Exit(0);  // Leaving otherwise is a finding.
}

// --- Targets ---------------------------------------------------------------------------------

template <const char* path>
void UseOne(std::string_view input) {
  if (const char* seeds = std::getenv("VEXA_FUZZ_SEEDS")) MakeSeeds(seeds, path);
  static const auto good = [] {
    MemoryFiles files;
    MakeFiles(files, 9, 0, {3, 435, 20});
    return files.Snapshot();
  }();
  MemoryFiles files;
  files.Restore(good);
  files[path] = input;
  Use(files);
}

void UseAll(std::string_view input) {
  if (const char* seeds = std::getenv("VEXA_FUZZ_SEEDS")) MakeSeeds(seeds, nullptr);
  if (input.size() < 4) return;
  MemoryFiles files;
  const size_t table_size = Get16(input.data());
  const size_t memo_size = Get16(input.data() + 2);
  input.remove_prefix(4);
  files[kTable] = input.substr(0, table_size);
  input.remove_prefix(std::min(input.size(), table_size));
  files[kMemo] = input.substr(0, memo_size);
  input.remove_prefix(std::min(input.size(), memo_size));
  files[kIndex] = input;
  Use(files);
}

}  // namespace
}  // namespace vexa

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return vexa::UseTarget({{"table", vexa::UseOne<vexa::kTable>},
                          {"memo", vexa::UseOne<vexa::kMemo>},
                          {"index", vexa::UseOne<vexa::kIndex>},
                          {"xbase", vexa::UseAll}},
                         data, size);
}
