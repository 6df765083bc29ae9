// Flat files: what is written is read back byte for byte; and a write that fails leaves the file as
// it was.

#include <sys/resource.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "file_fixture.h"
#include "files/flat_file_format.h"
#include "files/flat_file_reader.h"
#include "files/flat_file_writer.h"
#include "files/locked_file.h"

namespace vexa {

namespace {

using Record = std::vector<std::string>;
using Records = std::vector<Record>;

class FlatFileTest : public FileFixture {
 protected:
  // Appends the record to "flat".
  void Append(const Record& record, const std::string& delimiter) {
    FlatFileWriter writer(delimiter);
    for (const std::string& field : record) writer.AddField(field);
    String error;
    ASSERT_TRUE(writer.AppendTo(host, Path("flat"), error)) << error.view();
  }
  // All records of "flat", each cut or filled up to as many fields as the one of `like` has.
  Records ReadLike(const Records& like, const std::string& delimiter) {
    Records records;
    String error;
    auto reader = FlatFileReader::Open(host, Path("flat"), delimiter, error);
    EXPECT_NE(reader, nullptr) << error.view();
    if (reader == nullptr) return records;
    for (;;) {
      std::vector<String> fields(records.size() < like.size() ? like[records.size()].size() : 1);
      const FlatFileReader::Result result = reader->ReadRecord(fields);
      EXPECT_NE(result, FlatFileReader::Result::Failed) << reader->error().view();
      if (result != FlatFileReader::Result::Record) return records;
      records.emplace_back();
      for (const String& field : fields) records.back().emplace_back(field.view());
    }
  }
  void ExpectRoundTrip(const Records& records, const std::string& delimiter) {
    std::filesystem::remove(Path("flat").c_str());
    for (const Record& record : records) Append(record, delimiter);
    EXPECT_EQ(ReadLike(records, delimiter), records)
        << "delimiter '" << delimiter << "', buffer " << host.settings.importbuffersize;
  }
  // Runs `body` in a process whose files cannot grow beyond `bytes`; its result.
  static int WithFileLimit(rlim_t bytes, const std::function<int()>& body) {
    return ExitStatus(Fork([&] {
      std::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit = {bytes, bytes};
      return ::setrlimit(RLIMIT_FSIZE, &limit) != 0 ? 99 : body();
    }));
  }
};

const std::vector<std::string> kDelimiters = {
    ",",    "\t",  std::string(1, '\0'), "\xff", " ", "a", "\r", "--", "aba", ",\"",
    "\r\r", "x\r", "delimiter"};

TEST_F(FlatFileTest, HostileFieldsComeBack) {
  const std::string all = [] {
    std::string bytes;
    for (int c = 0; c < 256; ++c) bytes += static_cast<char>(c);
    return bytes;
  }();
  const Records fields = {{"", "", ""},
                          {""},
                          {"\"", "\"\"", "\"a", "a\"", "\",\""},
                          {"\r", "\n", "\r\n", "a\r"},
                          {"\"\r\n\"", "\n\"", all, std::string(3, '\0')},
                          {"-", "a-", "--", "-a", "ab", "aab"},
                          {"aba", "ab", "ab", "a", "x", "x\r", "delimite"},
                          {" a ", "\t", "\xff\xfe", ","}};
  for (const int buffer : {1, 2, 3, 7, 8192}) {
    host.settings.importbuffersize = buffer;
    for (const std::string& delimiter : kDelimiters) ExpectRoundTrip(fields, delimiter);
  }
}

TEST_F(FlatFileTest, LargeFieldsComeBackAndSurplusOnesAreDropped) {
  std::string large(1 << 20, 'x');
  for (size_t i = 0; i < large.size(); i += 1000) large[i] = i % 3000 == 0 ? '"' : '\n';
  ExpectRoundTrip({{large, "b"}, {"a", large}, {std::string(1 << 20, 'y'), large, ""}}, ",");

  Records narrow(3, Record(1));
  EXPECT_EQ(ReadLike(narrow, ","), (Records{{large}, {"a"}, {std::string(1 << 20, 'y')}}));
}

TEST_F(FlatFileTest, OnlyUsableDelimitersAreAccepted) {
  for (const std::string& delimiter : kDelimiters) EXPECT_EQ(DelimiterProblem(delimiter), "");
  EXPECT_EQ(DelimiterProblem(std::string(kLongestDelimiter, 'x')), "");
  for (const std::string& delimiter :
       {std::string(), std::string("\""), std::string("\","), std::string("\n"),
        std::string("|\r\n"), std::string(kLongestDelimiter + 1, 'x')}) {
    EXPECT_NE(DelimiterProblem(delimiter), "");
  }
}

TEST_F(FlatFileTest, WhatIsAddedOrCutWhileReadingDoesNoHarm) {
  Append({"one"}, ",");
  Append({"two"}, ",");
  host.settings.importbuffersize = 4;
  String error;
  auto reader = FlatFileReader::Open(host, Path("flat"), ",", error);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(LockSeenAt("flat", 0), '-');
  Append({"three"}, ",");
  std::vector<String> field(1);
  ASSERT_EQ(reader->ReadRecord(field), FlatFileReader::Result::Record);
  EXPECT_EQ(field[0], "one");
  ASSERT_EQ(::truncate(Path("flat").c_str(), 6), 0);
  ASSERT_EQ(reader->ReadRecord(field), FlatFileReader::Result::Record);
  EXPECT_EQ(field[0], "tw");
  EXPECT_EQ(reader->ReadRecord(field), FlatFileReader::Result::End);
}

TEST_F(FlatFileTest, AReaderStopsWhenTheTimeIsUp) {
  Make("flat", std::string(100, 'x'));
  host.settings.importbuffersize = 10;
  String error;
  auto reader = FlatFileReader::Open(host, Path("flat"), ",", error);
  ASSERT_NE(reader, nullptr);
  host.timed_out = true;
  std::vector<String> field(1);
  EXPECT_EQ(reader->ReadRecord(field), FlatFileReader::Result::Failed);
  EXPECT_EQ(reader->error(), "Timed out");
}

TEST_F(FlatFileTest, ARecordThatDoesNotFitLeavesTheFileAsItWas) {
  Append({"one"}, ",");
  EXPECT_EQ(WithFileLimit(10,
                          [&] {
                            FlatFileWriter writer(",");
                            writer.AddField("longer than the file may become");
                            String error;
                            return writer.AppendTo(host, Path("flat"), error) ||
                                           error != "File too large"
                                       ? 1
                                       : 0;
                          }),
            0);
  EXPECT_EQ(Content("flat"), "one\n");
}

TEST_F(FlatFileTest, ContentThatDoesNotFitLeavesTheFormerContent) {
  Make("file", "former content");
  EXPECT_EQ(WithFileLimit(20,
                          [&] {
                            String error;
                            const std::string text(30, 'x');
                            return ReplaceContent(host, Path("file"), text, error) ? 1 : 0;
                          }),
            0);
  EXPECT_EQ(Content("file"), "former content");
}

TEST_F(FlatFileTest, AFileReplacedWhileItsLockWasWaitedForIsOpenedAgain) {
  Make("file", "old");
  String error;
  auto holder = OpenLocked(host, Path("file"), OpenWrite, error);
  ASSERT_NE(holder, nullptr);
  const pid_t child = Fork([&] {
    String reason;
    auto file = OpenLocked(host, Path("file"), OpenWrite | OpenAppend, reason);
    return file != nullptr && AppendWhole(*file, "+", reason) ? 0 : 1;
  });
  // The child waits, or comes later; either way it must write to the new file.
  ::usleep(50'000);
  Make("other", "new");
  ASSERT_EQ(::rename(Path("other").c_str(), Path("file").c_str()), 0);
  holder.reset();
  EXPECT_EQ(ExitStatus(child), 0);
  EXPECT_EQ(Content("file"), "new+");
}

TEST_F(FlatFileTest, WaitingForALockEndsWithTheTime) {
  Make("file", "x");
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = Fork([&] {
    String reason;
    auto file = OpenLocked(host, Path("file"), OpenWrite, reason);
    (void)!::write(ready[1], "r", 1);
    ::pause();
    return 0;
  });
  char byte;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  TimeOutSoon();
  String error;
  EXPECT_EQ(OpenLocked(host, Path("file"), OpenRead, error), nullptr);
  EXPECT_EQ(error, "Timed out waiting for lock");
  ::kill(child, SIGKILL);
  ExitStatus(child);
}

}  // namespace

}  // namespace vexa
