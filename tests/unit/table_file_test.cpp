// Table and memo files: their bytes, messages, and what damaged ones come to.

#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "core/byte_order.h"
#include "table_fixture.h"

namespace vexa {

namespace {

using namespace std::string_literals;

class TableFile : public TableFixture {
 protected:
  Declarations NameAndBirth() {
    return {Field("NAME", XBaseFieldType::CHAR, 10), Field("BORN", XBaseFieldType::DATE, 8)};
  }
};

TEST_F(TableFile, CreateWritesTheDocumentedBytes) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NameAndBirth()), 1);
  const std::string& bytes = files["people.dbf"];
  ASSERT_EQ(bytes.size(), 97u);
  EXPECT_EQ(bytes[0], '\x03');
  EXPECT_EQ(bytes.substr(4, 8), "\0\0\0\0\x61\0\x13\0"s);
  EXPECT_EQ(bytes.substr(12, 20), std::string(20, '\0'));
  EXPECT_EQ(bytes.substr(32, 32),
            "NAME\0\0\0\0\0\0\0"s + "C" + std::string(4, '\0') + "\x0A" + std::string(15, '\0'));
  EXPECT_EQ(bytes.substr(64, 12), "BORN\0\0\0\0\0\0\0D"s);
  EXPECT_EQ(bytes[96], '\x0D');
  EXPECT_FALSE(files.Has("people.dbt"));

  ASSERT_EQ(Append(table, {"Ada", "18151210"}), 1);
  EXPECT_EQ(bytes.substr(97), " Ada       18151210\x1A");
  EXPECT_EQ(Get32(bytes.data() + 4), 1u);
  EXPECT_EQ(table.recordnum(), 1);
  ASSERT_EQ(Append(table, {"Bob", ""}), 1);
  EXPECT_EQ(bytes.substr(97 + 19), " Bob               \x1A");
  EXPECT_EQ(files.locks(), 0);
}

TEST_F(TableFile, HeaderDateCountsYearsFrom1900InUtc) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NameAndBirth()), 1);
  const std::time_t now = std::time(nullptr);
  const std::tm* parts = std::gmtime(&now);
  const std::string& bytes = files["people.dbf"];
  EXPECT_EQ(Get8(bytes.data() + 1), parts->tm_year);
  EXPECT_EQ(bytes[2], parts->tm_mon + 1);
  EXPECT_EQ(bytes[3], parts->tm_mday);
}

TEST_F(TableFile, ValuesStandAsTheirTypesAsk) {
  XBaseTable table(files);
  ASSERT_EQ(
      Create(table, {Field("C", XBaseFieldType::CHAR, 5), Field("N", XBaseFieldType::NUMBER, 5, 2),
                     Field("D", XBaseFieldType::DATE, 8), Field("L", XBaseFieldType::BOOL, 1)}),
      1);
  ASSERT_EQ(Append(table, {"abc", "12", "2001", "T"}), 1);
  ASSERT_EQ(Append(table, {"  abcdef", "1234567", "", ""}), 1);
  const size_t start = static_cast<size_t>(table.headerlength());
  EXPECT_EQ(files["people.dbf"].substr(start, 41), " abc     122001    T   abc12345         \x1A");
  EXPECT_EQ(Values(table, 1), "abc|12|2001    |T");
  EXPECT_EQ(Values(table, 2), "  abc|12345|        | ");
}

TEST_F(TableFile, RecordsOfOthersAppearAfterTheHeaderIsRead) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NameAndBirth()), 1);
  XBaseTable other(files);
  ASSERT_EQ(Open(other), 1);
  ASSERT_EQ(Append(table, {"Ada"}), 1);
  EXPECT_EQ(other.Goto(1), 0);
  ASSERT_TRUE(other.Refresh());
  EXPECT_EQ(Values(other, 1), "Ada|        ");
  ASSERT_EQ(Append(table, {"Bob"}), 1);
  ASSERT_EQ(Append(other, {"Cyd"}), 1);
  EXPECT_EQ(other.recordnum(), 3);
}

TEST_F(TableFile, AWalkSeesWhatOthersChangedBeforeItsStep) {
  XBaseTable table(files);
  XBaseTable other(files);
  ASSERT_EQ(Create(table, NameAndBirth()), 1);
  for (int n = 1; n <= 100; ++n) ASSERT_EQ(Append(table, {std::to_string(n)}), 1);
  ASSERT_EQ(Open(other), 1);
  for (const int from : {1, 100}) {
    const int step = from == 1 ? 1 : -1;
    for (int n = from; n != from + 10 * step; n += step) {
      ASSERT_EQ(Values(table, n), std::to_string(n) + "|        ");
    }
    const int next = from + 10 * step;
    ASSERT_EQ(other.Goto(next), 1);
    other.fields()[0]->Set(String("changed"));
    ASSERT_EQ(other.Update(), 1);
    EXPECT_EQ(Values(table, next), "changed|        ");
    // Whoever writes without a word is noticed after a while, and at once when that is asked for.
    for (const bool waits : {true, false}) {
      for (int n = from; n != next; n += step) ASSERT_EQ(table.Goto(n), 1);
      std::memcpy(&files["people.dbf"][static_cast<size_t>(table.headerlength() + (next - 1) * 19)],
                  waits ? " silent" : " SILENT", 7);
      waits ? std::this_thread::sleep_for(std::chrono::milliseconds(11)) : table.DropBlock();
      EXPECT_EQ(Values(table, next).substr(0, 6), waits ? "silent" : "SILENT");
    }
  }
}

TEST_F(TableFile, OriginalsComeForwardAndGoBack) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NamesAndNotes()), 1);
  ASSERT_EQ(Append(table, {"Ada", "old note"}), 1);
  ASSERT_EQ(table.Goto(1), 1);
  XBaseField& name = *table.fields()[0];
  XBaseField& note = *table.fields()[1];
  name.Set(String("Bob"));
  note.Set(String("new note"));
  table.SwapOriginal();
  EXPECT_EQ(name.data(), "Ada");
  EXPECT_EQ(note.data(), "old note");
  table.SwapOriginal();
  EXPECT_EQ(name.data(), "Bob");
  EXPECT_EQ(note.data(), "new note");
  ASSERT_EQ(table.Update(), 1);

  // Writing the originals back names the old text and stores nothing.
  const size_t memo_size = files["people.dbt"].size();
  table.SwapOriginal();
  ASSERT_EQ(table.Update(), 1);
  EXPECT_EQ(Values(table, 1), "Ada|old note");
  EXPECT_EQ(files["people.dbt"].size(), memo_size);
  table.SetOriginal();
  table.SwapOriginal();
  EXPECT_EQ(name.data(), "Ada");
}

// --- Messages --------------------------------------------------------------------------------

TEST_F(TableFile, OpeningRefusesWhatItCannotRead) {
  XBaseTable table(files);
  EXPECT_EQ(Open(table), 0);
  EXPECT_EQ(table.error(), "Error opening 'people': No such file or directory");
  ASSERT_EQ(Create(table, NameAndBirth()), 1);
  table.Close();
  std::string& bytes = files["people.dbf"];

  const auto error_with = [&](size_t place, std::string_view replacement) {
    const std::string saved = bytes;
    bytes.replace(place, replacement.size(), replacement);
    EXPECT_EQ(Open(table), 0);
    EXPECT_FALSE(table.is_open());
    bytes = saved;
    return std::string(table.error().view());
  };
  EXPECT_EQ(error_with(0, "\x30"), "'people': Unsupported xBase file version (0x30)");
  EXPECT_EQ(error_with(0, "\xF5"), "'people': Unsupported xBase file version (0xF5)");
  EXPECT_EQ(error_with(43, "F"), "'people' contains an unsupported field of type 'F'");
  EXPECT_EQ(error_with(8, "\x20\0"s), "Error reading from 'people': The header is damaged");
  EXPECT_EQ(error_with(8, "\xFF\xFF"s), "Error reading from 'people': Unexpected end of file");
  EXPECT_EQ(error_with(48, "\xFF"), "Error reading from 'people': The header is damaged");
  EXPECT_EQ(error_with(10, "\0\0"s), "Error reading from 'people': The header is damaged");
  EXPECT_EQ(error_with(4, "\xFF\xFF\xFF\xFF"),
            "Error reading from 'people': The header is damaged");
  EXPECT_EQ(error_with(75, "M"), "Error opening 'people.dbt': No such file or directory");
  bytes.resize(31);
  EXPECT_EQ(Open(table), 0);
  EXPECT_EQ(table.error(), "Error reading from 'people': Unexpected end of file");
}

TEST_F(TableFile, MemoDescriptorCountsMoreThanTheVersion) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NamesAndNotes()), 1);
  ASSERT_EQ(Append(table, {"Ada", "note"}), 1);
  files["people.dbf"][0] = '\x03';
  ASSERT_EQ(Open(table), 1);
  EXPECT_EQ(table.version(), 0x83);
  EXPECT_EQ(Values(table, 1), "Ada|note");
  ASSERT_EQ(Append(table, {"Bob", "more"}), 1);
  EXPECT_EQ(files["people.dbf"][0], '\x83');
}

TEST_F(TableFile, ImpossibleFieldsLeaveTheOldTable) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NameAndBirth()), 1);
  const std::string before = files["people.dbf"];
  Declarations wide(258, Field("X", XBaseFieldType::CHAR, 255));
  EXPECT_EQ(Create(table, wide), 0);
  EXPECT_EQ(Create(table, {Field("X", XBaseFieldType::CHAR, 256)}), 0);
  EXPECT_EQ(Create(table, Declarations(2047, Field("X", XBaseFieldType::BOOL, 1))), 0);
  EXPECT_EQ(files["people.dbf"], before);
  wide.pop_back();
  EXPECT_EQ(Create(table, wide), 0) << "257 * 255 + 1 is one byte too many";
  wide.back().length = 254;
  EXPECT_EQ(Create(table, wide), 1);
}

TEST_F(TableFile, AStructureThatChangedUnderUsIsAnError) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NameAndBirth()), 1);
  XBaseTable other(files);
  ASSERT_EQ(Create(other, NamesAndNotes()), 1);
  EXPECT_EQ(Append(table, {"Ada"}), 0);
  EXPECT_EQ(table.error(), "Error reading from 'people': The structure of the table has changed");
  EXPECT_EQ(files.locks(), 0);
  EXPECT_EQ(Faults(), "");
}

// --- Memo texts ------------------------------------------------------------------------------

TEST_F(TableFile, MemoTextsTakeWholeBlocks) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NamesAndNotes()), 1);
  const std::string& memo = files["people.dbt"];
  EXPECT_EQ(memo, "\x01"s + std::string(511, '\0'));
  ASSERT_EQ(Append(table, {"a", std::string(510, 'x')}), 1);
  EXPECT_EQ(table.firstfreeblock(), 2);
  EXPECT_EQ(memo.substr(512), std::string(510, 'x') + "\x1A\x1A");
  ASSERT_EQ(Append(table, {"b", std::string(511, 'y')}), 1);
  EXPECT_EQ(table.firstfreeblock(), 4);
  EXPECT_EQ(Get32(memo.data()), 4u);
  ASSERT_EQ(Append(table, {"c", ""}), 1);
  EXPECT_EQ(table.firstfreeblock(), 4);
  EXPECT_EQ(files["people.dbf"].substr(97),
            " a                  1 b                  2"
            " c                   \x1A");
  EXPECT_EQ(Values(table, 1), "a|" + std::string(510, 'x'));
  EXPECT_EQ(Values(table, 2), "b|" + std::string(511, 'y'));
  EXPECT_EQ(Values(table, 3), "c|");

  // Only a changed text is stored again.
  ASSERT_EQ(table.Goto(2), 1);
  table.fields()[0]->Set(String("B"));
  ASSERT_EQ(table.Update(), 1);
  EXPECT_EQ(table.firstfreeblock(), 4);
  table.fields()[1]->Set(String("one\x1Atwo"));
  ASSERT_EQ(table.Update(), 1);
  EXPECT_EQ(Values(table, 2), "B|one");
  table.fields()[1]->Set(String());
  ASSERT_EQ(table.Update(), 1);
  EXPECT_EQ(Values(table, 2), "B|");
  EXPECT_EQ(files.locks(), 0);
  EXPECT_EQ(Faults(), "");
}

TEST_F(TableFile, MemoNumberIsThatOfTheBlockTheTextGoesTo) {
  XBaseTable one(files);
  ASSERT_EQ(Create(one, NamesAndNotes()), 1);
  XBaseTable two(files);
  ASSERT_EQ(Open(two), 1);
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(Append(one, {"one", "text of one " + std::to_string(i)}), 1);
    ASSERT_EQ(Append(two, {"two", "text of two " + std::to_string(i)}), 1);
  }
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(Values(two, 2 * i + 1), "one|text of one " + std::to_string(i));
    EXPECT_EQ(Values(two, 2 * i + 2), "two|text of two " + std::to_string(i));
  }
}

TEST_F(TableFile, DamagedMemoFilesLoseNoText) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, NamesAndNotes()), 1);
  ASSERT_EQ(Append(table, {"a", "kept"}), 1);
  std::string& memo = files["people.dbt"];
  for (char block : {'\0', '\1'}) {
    memo[0] = block;
    ASSERT_EQ(Append(table, {"b", "new"}), 1);
    EXPECT_EQ(Values(table, 1), "a|kept") << "free block " << int{block};
  }
  memo.replace(0, 4, "\xFF\xFF\xFF\xFF");
  EXPECT_EQ(Append(table, {"c", "lost"}), 0);
  EXPECT_EQ(table.error(), "Error reading from 'people.dbt': The number of blocks is not possible");
  EXPECT_EQ(table.numrecords(), 3);
  memo.replace(0, 4, "\x0A\0\0\0"s);

  // A text without its end ends with the file; one that is not in the file is an error.
  memo.resize(512 + 2);
  EXPECT_EQ(Values(table, 1), "a|ke");
  memo.resize(512);
  EXPECT_EQ(Values(table, 1), "a|");
  EXPECT_EQ(table.error(), "Error reading from 'people.dbt': Unexpected end of file");
  std::string& bytes = files["people.dbf"];
  bytes.replace(97 + 11, 10, "        -7");
  EXPECT_EQ(Values(table, 1), "a|");
  EXPECT_EQ(table.error(), "Error reading from 'people.dbt': There is no such block");
  // What could not be read keeps its number.
  ASSERT_EQ(table.Update(), 1);
  EXPECT_EQ(bytes.substr(97 + 11, 10), "        -7");
}

TEST_F(TableFile, ABlockNumberIsNeverCutToFitItsField) {
  XBaseTable table(files);
  ASSERT_EQ(Create(table, {Field("NOTE", XBaseFieldType::MEMO, 1)}), 1);
  for (int i = 1; i <= 9; ++i) ASSERT_EQ(Append(table, {"text"}), 1);
  EXPECT_EQ(Append(table, {"text"}), 0);
  EXPECT_EQ(table.error(),
            "Error writing to 'people': The field 'NOTE' is too short for a memo block number");
  EXPECT_EQ(table.numrecords(), 9);
  EXPECT_EQ(files.locks(), 0);
}

}  // namespace

}  // namespace vexa
