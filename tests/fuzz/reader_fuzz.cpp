// Fuzzing of small readers of strangers' texts, with libFuzzer. Targets, and what their input is:
//   expression  an expression
//   part        the header lines of a part of a form
//   cookie      what a browser sends; its first two lines also as a cookie that a page sets
//   headers     Range, If-Range, If-None-Match and If-Modified-Since, a line each; and the first of
//               them as an address to go to, and as a name to save under
//   flat        the delimiter up to the first line feed, then a flat file
//   query       a statement for an SQL database

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "core/encoding.h"
#include "core/shortcuts.h"
#include "core/text.h"
#include "fake_expression_context.h"
#include "files/flat_file_format.h"
#include "files/flat_file_reader.h"
#include "files/flat_file_writer.h"
#include "fuzz_target.h"
#include "memory_files.h"
#include "request/cookie.h"
#include "request/file_conditions.h"
#include "request/header_text.h"
#include "request/part_header.h"
#include "sql/drivers/postgresql_statement.h"
#include "sql/query_text.h"

namespace vexa {
namespace {

// The text up to the next line feed, which is taken off with it.
std::string_view TakeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

std::string ValueOf(std::string_view text) {
  MemoryFiles files;
  FakeExpressionContext context;
  context.fake_host.files = &files;
  context.fake_host.expressions = &context;
  (void)context.variables.SetVariable("a", "1.5");
  (void)context.variables.SetVariable("b", "<text>");
  context.AddFunction("f", 1, [](std::span<ScriptValue> arguments, ScriptValue& result) {
    result = arguments[0];
    return true;
  });
  context.AddFunction("bad", 0, [](std::span<ScriptValue>, ScriptValue&) { return false; });
  // The second time all is there already.
  const std::string first = context.Value(text);
  return first + context.Value(text);
}

void UseExpression(std::string_view input) {
  const std::string value = ValueOf(input);
  std::string folded(input);
  std::ranges::transform(folded, folded.begin(), [](char c) { return ToLower(c); });
  for (const char* word : {"rand", "time", "date", "sess", "token"}) {
    if (folded.find(word) != folded.npos) return;
  }
  ShortcutsSwitch() = false;
  Require(value == ValueOf(input), "a value is another one without shortcuts");
  ShortcutsSwitch() = true;
}

void UsePart(std::string_view input) {
  const size_t whole = input.size();
  PartHeader header;
  while (!input.empty()) {
    const std::string_view line = TakeLine(input);
    header.Take(line);
    String value;
    if (HeaderParameter(line, "boundary", value)) {
      Require(value.size() < line.size(), "a parameter is longer than its header");
    }
  }
  const size_t taken = header.name.size() + header.filename.size() + header.content_type.size();
  Require(taken <= whole, "a header says more than its lines");
}

void UseCookie(std::string_view input) {
  (void)FindCallerID(input);
  (void)FindCookie(input, "b");
  const std::string_view value = TakeLine(input), options = TakeLine(input);
  PageCookie cookie;
  if (!MakePageCookie("a", value, options, options.size() % 2 == 0, cookie).empty()) return;
  Require(std::ranges::none_of(cookie.header.view(), IsControl), "a header has more than a line");
  Require(cookie.header.view().starts_with("a=") &&
              DecodedURLPart(FindCookie(cookie.header, "a")) == value,
          "a cookie does not come back");
}

// Whether a browser could leave the site with this address.
bool MayLeave(std::string_view address) {
  std::string read;
  for (const char c : address) {
    if (c != '\t' && c != '\r' && c != '\n' && (!read.empty() || c < '\0' || c > ' ')) {
      read += c == '\\' ? '/' : c;
    }
  }
  return read.starts_with("//") || read.find(':') < read.find_first_of("/?#");
}

void UseHeaders(std::string_view input) {
  const std::string_view range = TakeLine(input), if_range = TakeLine(input);
  const std::string_view tags = TakeLine(input), since = TakeLine(input);
  for (const int64_t size : {0, 1, 1000}) {
    const FilePart part =
        ChooseFilePart({range, if_range, tags, since},
                       {"\"a\"", "Sun, 06 Nov 1994 08:49:37 GMT", 784111777}, size);
    const bool all = part.status == 200 && part.first == 0 && part.length == size;
    const bool some = part.status == 206 && part.first >= 0 && part.length > 0 &&
                      part.length <= size - part.first;
    Require(all || some || part.status == 304 || part.status == 416, "a part is not in the file");
  }
  if (IsLocalAddress(range)) {
    Require(!MayLeave(range), "an address leads to another site");
    Require(!EndsLine(AddressAsSent(range)), "an address ends its line");
  }
  Require(!EndsLine(AttachmentDisposition(range)), "a name ends its line");
}

using Records = std::vector<std::vector<std::string>>;

Records ReadAll(FakeHost& host, std::string_view delimiter, int block, size_t fields) {
  host.settings.importbuffersize = block;
  Records records;
  String error;
  auto reader = FlatFileReader::Open(host, "f", delimiter, error);
  Require(reader != nullptr, "the file cannot be opened");
  std::vector<String> record(fields);
  while (reader->ReadRecord(record) == FlatFileReader::Result::Record) {
    records.emplace_back();
    for (const String& field : record) records.back().emplace_back(field.view());
  }
  Require(reader->error().empty(), "reading failed");
  return records;
}

void UseFlat(std::string_view input) {
  const std::string_view delimiter = TakeLine(input);
  if (!DelimiterProblem(delimiter).empty()) return;
  constexpr size_t kFields = 4;
  MemoryFiles files;
  FakeHost host;
  host.files = &files;
  files["f"].assign(input);
  const Records records = ReadAll(host, delimiter, 8192, kFields);
  for (const int block : {1, 3}) {
    Require(ReadAll(host, delimiter, block, kFields) == records, "blocks make a difference");
  }
  // What was read comes back when it is written.
  files["f"].clear();
  for (const auto& record : records) {
    FlatFileWriter writer(delimiter);
    for (const std::string& field : record) writer.AddField(field);
    files["f"].append(writer.record().view()).append("\n");
  }
  Require(ReadAll(host, delimiter, 8192, kFields) == records,
          "what was written does not come back");
}

// Whether `read` is `query` but for its parameters.
bool IsSameQuery(std::string_view query, const SqlDriver& driver, const QueryText& read) {
  std::string_view text = read.text;
  size_t number = 0;
  while (!query.empty() && !text.empty()) {
    size_t taken = 1, given = 1;
    if (query[0] == ':' && text[0] != ':') {
      // Blanks keep what stands beside a mark apart from it.
      if (text[0] == ' ') text.remove_prefix(1);
      if (number == read.names.size()) return false;
      const std::string_view name = read.names[number++];
      const String mark = driver.Mark(number);
      if (!query.substr(1).starts_with(name) || !text.starts_with(mark)) return false;
      taken += name.size();
      given = mark.size();
      if (text.substr(given).starts_with(' ') && !query.substr(taken).starts_with(' ')) ++given;
    } else if (query[0] != text[0]) {
      return false;
    }
    query.remove_prefix(taken);
    text.remove_prefix(given);
  }
  return query.empty() && text.empty() && number == read.names.size();
}

void UseQuery(std::string_view input) {
  FakeHost host;
  for (const auto& driver : {MakeSqlite3Driver(host), MakePostgresqlDriver(host)}) {
    QueryText read, again;
    String message;
    (void)StepOf(input);
    if (!ReadQueryText(input, *driver, read, message)) continue;
    Require(IsSameQuery(input, *driver, read), "a query is another one");
    // Marks stand where the engine takes them for marks.
    Require(ReadQueryText(read.text, *driver, again, message) == read.names.empty() &&
                again.names.empty(),
            "a parameter stands in quotes");
    if (!driver->lexis().dollar_quotes) continue;
    // Both readers agree on where quotes and comments end.
    Require(ReadQueryText(std::string(input) + "\n;:z", *driver, again, message),
            "an end is refused");
    const bool is_open = again.names.size() == read.names.size();
    Require(ReadPostgresqlStatement(again.text).several ==
                (ReadPostgresqlStatement(read.text).several || !is_open),
            "a statement has two ends");
  }
}

}  // namespace
}  // namespace vexa

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return vexa::UseTarget({{"expression", vexa::UseExpression},
                          {"part", vexa::UsePart},
                          {"cookie", vexa::UseCookie},
                          {"headers", vexa::UseHeaders},
                          {"flat", vexa::UseFlat},
                          {"query", vexa::UseQuery}},
                         data, size);
}
