// Flat files: what is written is read back byte for byte, whatever the fields, the delimiter and
// the size of the buffer; and a write that fails leaves the file as it was.

#include <sys/resource.h>

#include <csignal>
#include <memory>
#include <random>
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

TEST_F(FlatFileTest, RandomFieldsComeBack) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&random](size_t bound) { return random() % bound; };
  const std::string alphabet = std::string("ab-,\"\"\r\n \xe9") + '\0';
  for (int round = 0; round < 300; ++round) {
    std::string delimiter;
    do {
      delimiter.clear();
      for (size_t n = below(4) + 1; n > 0; --n) delimiter += alphabet[below(alphabet.size())];
    } while (!DelimiterProblem(delimiter).empty());
    Records records(below(8) + 1);
    for (Record& record : records) {
      record.resize(below(5) + 1);
      for (std::string& field : record) {
        for (size_t n = below(9); n > 0; --n) {
          if (below(5) == 0) {
            field += delimiter.substr(0, below(delimiter.size() + 1));
          } else {
            field += alphabet[below(alphabet.size())];
          }
        }
      }
    }
    host.settings.importbuffersize = static_cast<int>(below(12)) + 1;
    ExpectRoundTrip(records, delimiter);
    if (HasFailure()) return;
  }
}

TEST_F(FlatFileTest, AnyFileReadsTheSameInAnyBuffer) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::string alphabet = "a-\"\r\n";
  const Records like(20, Record(3));
  for (int round = 0; round < 300; ++round) {
    std::string content;
    for (size_t n = random() % 40; n > 0; --n) content += alphabet[random() % alphabet.size()];
    Make("flat", content);
    for (const std::string& delimiter : {std::string("-"), std::string("--a"), std::string("\r")}) {
      host.settings.importbuffersize = 8192;
      const Records records = ReadLike(like, delimiter);
      for (const int buffer : {1, 2, 3, 5}) {
        host.settings.importbuffersize = buffer;
        ASSERT_EQ(ReadLike(like, delimiter), records)
            << ::testing::PrintToString(content) << " at " << delimiter << ", buffer " << buffer;
      }
    }
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
