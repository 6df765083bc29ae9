// TableFixture: tables and indexes on files in memory, in the words of the tests.

#ifndef VEXA_TESTS_UNIT_TABLE_FIXTURE_H_
#define VEXA_TESTS_UNIT_TABLE_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "memory_files.h"
#include "xbase/check/table_check.h"
#include "xbase/index/xbase_index.h"
#include "xbase/table/xbase_table.h"

namespace vexa {

class TableFixture : public ::testing::Test {
 protected:
  using Declarations = std::vector<XBaseField::Declaration>;

  static XBaseField::Declaration Field(const char* name, XBaseFieldType type, int length,
                                       int decimals = 0) {
    return {name, type, length, decimals};
  }
  // NAME C(10), NOTE M.
  static Declarations NamesAndNotes() {
    return {Field("NAME", XBaseFieldType::CHAR, 10), Field("NOTE", XBaseFieldType::MEMO, 10)};
  }

  int Create(XBaseTable& table, const Declarations& fields) {
    return table.Create({"people.dbf", "people", "", ""}, fields);
  }
  static int Open(XBaseTable& table, int mode = OpenRead | OpenWrite) {
    return table.Open("people.dbf", "people", mode);
  }
  // Appends a record with these values for its first fields.
  static int Append(XBaseTable& table, const std::vector<std::string>& values) {
    for (size_t i = 0; i < values.size(); ++i) table.fields()[i]->Set(String(values[i]));
    return table.Append();
  }
  // The values of record `n`, separated by "|", with "*" in front when it is deleted.
  static std::string Values(XBaseTable& table, int n) {
    if (table.Goto(n) == 0) return "no record: " + std::string(table.error().view());
    std::string values = table.deleted() != 0 ? "*" : "";
    for (const auto& field : table.fields()) {
      if (field != table.fields().front()) values += "|";
      values += field->data().view();
    }
    return values;
  }

  // What the checker says of the table and these indexes; empty when all is good.
  std::string Faults(const std::vector<String>& indexes = {}) {
    StringOutput out;
    const int result = CheckTable(files, "people.dbf", indexes, out);
    out.Flush();
    return result == 0 ? "" : std::string(out.data().view());
  }

  MemoryFiles files;
};

// The entries of an index from First on, as "key:record" separated by spaces.
inline std::string Walk(ZDXIndexFile& index) {
  std::string walk;
  uint32_t record;
  for (int ok = index._First(record); ok != 0 && record != 0; ok = index._Next(record)) {
    if (!walk.empty()) walk += " ";
    walk += std::string(index.CursorKey().view()) + ":" + std::to_string(record);
  }
  return walk;
}

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_TABLE_FIXTURE_H_
