// Packing: what is kept, what other processes see, and a pack that fails or dies at any moment.

#include "table_fixture.h"

namespace vexa {

namespace {

class TablePack : public TableFixture {
 protected:
  void SetUp() override {
    XBaseTable table(files);
    ASSERT_EQ(Create(table, NamesAndNotes()), 1);
    for (int i = 1; i <= 9; ++i) {
      ASSERT_EQ(Append(table, {"p" + std::to_string(i), Note(i)}), 1);
      // Texts that no record names any more.
      table.fields()[1]->Set(String("changed " + Note(i)));
      ASSERT_EQ(table.Update(), 1);
      if (i % 3 == 0) {
        ASSERT_EQ(table.UpdateDeleted(1), 1);
      }
    }
    good_ = files.Snapshot();
  }
  // Some are empty, one is long.
  static std::string Note(int i) {
    return i == 4 ? std::string(2000, 'n') : "note " + std::to_string(i);
  }
  static std::string Person(int i) { return "p" + std::to_string(i) + "|changed " + Note(i); }

  // All live records, whatever became of the deleted ones.
  std::string Live() {
    XBaseTable table(files);
    if (Open(table) == 0) return std::string(table.error().view());
    std::string live;
    for (int n = 1; n <= table.numrecords(); ++n) {
      const std::string values = Values(table, n);
      if (values[0] != '*') live += values + "\n";
    }
    return live;
  }
  static std::string Expected() {
    std::string live;
    for (int i : {1, 2, 4, 5, 7, 8}) live += Person(i) + "\n";
    return live;
  }

  std::map<std::string, std::string> good_;
};

TEST_F(TablePack, KeepsLiveRecordsAndTheirTexts) {
  XBaseTable table(files);
  ASSERT_EQ(Open(table), 1);
  const size_t memo_size = files["people.dbt"].size();
  ASSERT_EQ(table.Pack(), 1) << table.error().view();
  EXPECT_EQ(table.numrecords(), 6);
  EXPECT_EQ(table.recordnum(), 0);
  EXPECT_EQ(Values(table, 3), Person(4));
  EXPECT_EQ(Live(), Expected());
  EXPECT_EQ(files["people.dbf"].size(), 97u + 6 * 21 + 1);
  EXPECT_LT(files["people.dbt"].size(), memo_size / 2);
  EXPECT_EQ(files.Names(),
            (std::vector<std::string>{"people.dbf", "people.dbf-journal", "people.dbt"}));
  EXPECT_EQ(files.locks(), 0);
  EXPECT_EQ(Faults(), "");
  ASSERT_EQ(Append(table, {"new", "text"}), 1);
  EXPECT_EQ(Values(table, 7), "new|text");
}

TEST_F(TablePack, OfAnEmptyOrPlainTable) {
  XBaseTable table(files);
  ASSERT_EQ(Open(table), 1);
  for (int n = 1; n <= 9; ++n) {
    ASSERT_EQ(table.Goto(n), 1);
    ASSERT_EQ(table.UpdateDeleted(1), 1);
  }
  ASSERT_EQ(table.Pack(), 1);
  EXPECT_EQ(table.numrecords(), 0);
  EXPECT_EQ(files["people.dbf"].size(), 97u);
  EXPECT_EQ(files["people.dbt"].size(), 512u);
  ASSERT_EQ(table.Pack(), 1);
  EXPECT_EQ(Faults(), "");

  ASSERT_EQ(Create(table, {Field("A", XBaseFieldType::CHAR, 1)}), 1);
  for (int i = 0; i < 70000; ++i) {
    ASSERT_EQ(Append(table, {std::string(1, static_cast<char>('a' + i % 26))}), 1);
    if (i % 1000 != 7) {
      ASSERT_EQ(table.UpdateDeleted(1), 1);
    }
  }
  ASSERT_EQ(table.Pack(), 1);
  EXPECT_EQ(table.numrecords(), 70);
  EXPECT_EQ(Values(table, 70), std::string(1, static_cast<char>('a' + 69007 % 26)));
  EXPECT_EQ(Faults(), "");
}

TEST_F(TablePack, KeepsWhatOtherProgramsWrote) {
  // Bytes that a page reads only up to the first 1A, and the code page of the texts.
  constexpr char kPicture[] = "GIF\x1A\x01 89 \x1A more \x1A bytes";
  const std::string picture(kPicture, sizeof kPicture - 1);
  XBaseTable table(files);
  ASSERT_EQ(Open(table), 1);
  const int block = table.WriteMemoBlock(picture);
  table.Close();
  files["people.dbf"].replace(
      97 + 11, 10, std::string(10 - std::to_string(block).size(), ' ') + std::to_string(block));
  files["people.dbf"][29] = '\x57';
  ASSERT_EQ(Open(table), 1);
  ASSERT_EQ(Append(table, {"new", "text"}), 1);
  ASSERT_EQ(table.Pack(), 1) << table.error().view();
  EXPECT_NE(files["people.dbt"].find(picture), std::string::npos);
  EXPECT_EQ(files["people.dbf"][29], '\x57');
  table.Close();
  // Names in capitals.
  ASSERT_EQ(files.Rename("people.dbf", "PEOPLE.DBF"), 0);
  ASSERT_EQ(files.Rename("people.dbt", "PEOPLE.DBT"), 0);
  ASSERT_EQ(table.Open("PEOPLE.DBF", "PEOPLE.DBF", OpenRead | OpenWrite), 1);
  EXPECT_EQ(Values(table, table.numrecords()), "new|text");
}

TEST_F(TablePack, ATextThatCannotBeReadStopsIt) {
  files["people.dbt"].resize(1024);
  const auto before = files.Snapshot();
  XBaseTable table(files);
  ASSERT_EQ(Open(table), 1);
  EXPECT_EQ(table.Pack(), 0);
  EXPECT_EQ(table.error(), "Error reading from 'people.dbt': Unexpected end of file");
  EXPECT_EQ(files.Snapshot(), before);
}

TEST_F(TablePack, OtherProcessesGoOnWithTheNewFile) {
  XBaseTable reader(files);
  XBaseTable writer(files);
  XBaseTable adder(files);
  XBaseTable packer(files);
  for (XBaseTable* table : {&reader, &writer, &adder, &packer}) ASSERT_EQ(Open(*table), 1);
  ASSERT_EQ(writer.Goto(4), 1);
  ASSERT_EQ(adder.Goto(4), 1);
  ASSERT_EQ(packer.Pack(), 1);

  EXPECT_EQ(Values(reader, 3), Person(4));
  EXPECT_EQ(reader.numrecords(), 6);

  // What was record 4 is another number now, so it is not written over some other record.
  writer.fields()[0]->Set(String("wrong"));
  EXPECT_EQ(writer.Update(), 0);
  EXPECT_EQ(writer.error(), "Error writing to 'people': The table was replaced by another process");
  EXPECT_EQ(writer.recordnum(), 0);
  EXPECT_EQ(Live(), Expected());
  EXPECT_EQ(Values(writer, 1), Person(1));
  ASSERT_EQ(writer.UpdateDeleted(0), 1);

  // A new record takes its text along, though the number it knew is that of another now.
  adder.fields()[0]->Set(String("copy"));
  ASSERT_EQ(adder.Append(), 1);
  EXPECT_EQ(Live(), Expected() + "copy|changed " + Note(4) + "\n");
  EXPECT_EQ(Faults(), "");
  EXPECT_EQ(files.locks(), 0);
}

TEST_F(TablePack, ATextThatWentWithTheOldFileIsNotWrittenAsEmpty) {
  XBaseTable adder(files);
  ASSERT_EQ(Open(adder), 1);
  ASSERT_EQ(adder.Goto(4), 1);
  {
    XBaseTable packer(files);
    ASSERT_EQ(Open(packer), 1);
    ASSERT_EQ(packer.Pack(), 1);
  }
  // From locking the new table on, the old memo file can no longer be read.
  files.BreakReplacedFiles();
  EXPECT_EQ(adder.Append(), 0);
  EXPECT_EQ(
      adder.error(),
      "Error writing to 'people': The text of field 'NOTE' could not be read before the table "
      "was replaced");
  EXPECT_EQ(Live(), Expected());
  adder.fields()[1]->Set(String("given anew"));
  ASSERT_EQ(adder.Append(), 1);
  EXPECT_EQ(Live(), Expected() + "p4|given anew\n");
}

}  // namespace

}  // namespace vexa
