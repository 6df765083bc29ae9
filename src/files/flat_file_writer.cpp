// Writing records of flat files.

#include "files/flat_file_writer.h"

#include <cstdint>
#include <cstring>
#include <memory>

#include "files/locked_file.h"

namespace vexa {

namespace {

// Whether the file ends within a line. False also when its end cannot be read.
bool EndsWithinLine(File& file) {
  const int64_t length = file.Length();
  char last = '\n';
  return length > 0 && file.ReadAt(length - 1, &last, 1) == 1 && last != '\n';
}

}  // namespace

bool FlatFileWriter::NeedsQuotes(std::string_view field) const {
  if (field.find_first_of("\"\r\n") != std::string_view::npos) return true;
  if (field.size() < delimiter_.size()) return false;
  return memmem(field.data(), field.size(), delimiter_.data(), delimiter_.size()) != nullptr;
}

// Puts a delimiter behind the last field, which is quoted after all when its end and the delimiter
// together hold an earlier delimiter.
void FlatFileWriter::EndField() {
  const int end = record_.length();
  Append(delimiter_);
  if (plain_start_ < 0 || record_.search(delimiter_, plain_start_) == end) return;
  const String field = record_.at(plain_start_, end);
  record_.Truncate(static_cast<size_t>(plain_start_));
  for (const std::string_view piece :
       {std::string_view("\""), field.view(), std::string_view("\""), delimiter_}) {
    Append(piece);
  }
}

void FlatFileWriter::Append(std::string_view text) { record_.Append(text); }

void FlatFileWriter::AddField(std::string_view field) {
  if (has_fields_) EndField();
  has_fields_ = true;
  if (!NeedsQuotes(field)) {
    plain_start_ = record_.length();
    Append(field);
    return;
  }
  plain_start_ = -1;
  Append("\"");
  for (size_t start = 0;;) {
    const size_t quote = field.find('"', start);
    Append(field.substr(start, quote - start));
    if (quote == std::string_view::npos) break;
    Append("\"\"");
    start = quote + 1;
  }
  Append("\"");
}

bool FlatFileWriter::AppendTo(Vexa& host, const String& path, String& error) const {
  constexpr int kMode = OpenRead | OpenWrite | OpenCreate | OpenAppend;
  const std::unique_ptr<File> file = OpenLocked(host, path, kMode, error);
  if (file == nullptr) return false;
  const std::string_view before = EndsWithinLine(*file) ? "\n" : "";
  return AppendWhole(*file, String::Concat({before, record_, "\n"}), error);
}

}  // namespace vexa
