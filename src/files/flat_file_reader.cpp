// Reading records of flat files.

#include "files/flat_file_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "files/locked_file.h"

namespace vexa {

std::unique_ptr<FlatFileReader> FlatFileReader::Open(Vexa& host, const String& path,
                                                     std::string_view delimiter, String& error) {
  std::unique_ptr<File> file = OpenLocked(host, path, OpenRead, error);
  if (file == nullptr) return nullptr;
  // Under the lock nobody is writing, so the file ends with a whole record. What lies before that
  // end does not change any more.
  const int64_t length = file->Length();
  if (length < 0) {
    error = file->error();
    return nullptr;
  }
  file->Release(0, 0);
  return std::unique_ptr<FlatFileReader>(
      new FlatFileReader(host, std::move(file), length, delimiter));
}

FlatFileReader::FlatFileReader(Vexa& host, std::unique_ptr<File> file, int64_t length,
                               std::string_view delimiter)
    : host_(host), file_(std::move(file)), length_(length), delimiter_(delimiter) {
  const size_t wanted = static_cast<size_t>(std::max(host.config().importbuffersize, 2));
  size_ = std::max(wanted, delimiter.size());
  block_ = std::make_unique_for_overwrite<char[]>(size_);
  for (const char c : {delimiter.front(), '\r', '\n'})
    special_[static_cast<unsigned char>(c)] = true;
}

FlatFileReader::Result FlatFileReader::ReadRecord(std::span<String> fields) {
  for (String& field : fields) field.clear();
  if (Have(1)) {
    size_t i = 0;
    while (ReadField(i < fields.size() ? &fields[i] : nullptr) == FieldEnd::Delimiter) ++i;
    if (!failed_) return Result::Record;
  }
  return failed_ ? Result::Failed : Result::End;
}

bool FlatFileReader::Fill(size_t count) {
  const size_t unread = limit_ - next_;
  std::memmove(block_.get(), &block_[next_], unread);
  next_ = 0;
  limit_ = unread;
  while (limit_ < count && offset_ < length_ && !failed_) {
    const int64_t room = std::min(static_cast<int64_t>(size_ - limit_), length_ - offset_);
    const int got = file_->ReadAt(offset_, &block_[limit_], static_cast<int>(room));
    if (got <= 0 || host_.timedout()) {
      failed_ = got != 0;  // A file that was cut short ends there.
      error_ = got < 0 ? file_->error() : String("Timed out");
      length_ = offset_;
      break;
    }
    offset_ += got;
    limit_ += static_cast<size_t>(got);
  }
  return limit_ >= count;
}

void FlatFileReader::Take(size_t count, String* field) {
  if (field != nullptr) {
    field->Reserve(field->size() + count);
    field->cat(Window().substr(0, count));
  }
  next_ += count;
}

FlatFileReader::FieldEnd FlatFileReader::ReadField(String* field) {
  if (Have(1) && block_[next_] == '"') {
    ++next_;
    ReadQuoted(field);
  }
  return ReadPlain(field);
}

// Reads up to and including the closing quote.
void FlatFileReader::ReadQuoted(String* field) {
  while (Have(1)) {
    const size_t quote = Window().find('"');
    if (quote == std::string_view::npos) {
      Take(Window().size(), field);
      continue;
    }
    Take(quote, field);
    ++next_;
    if (!Have(1) || block_[next_] != '"') return;
    Take(1, field);
  }
}

FlatFileReader::FieldEnd FlatFileReader::ReadPlain(String* field) {
  while (Have(1)) {
    size_t plain = next_;
    while (plain < limit_ && !special_[static_cast<unsigned char>(block_[plain])]) ++plain;
    Take(plain - next_, field);
    if (next_ == limit_) continue;
    if (block_[next_] == delimiter_[0] && Have(delimiter_.size()) &&
        Window().starts_with(delimiter_.view())) {
      next_ += delimiter_.size();
      return FieldEnd::Delimiter;
    }
    const bool crlf = block_[next_] == '\r' && Have(2) && block_[next_ + 1] == '\n';
    if (crlf || block_[next_] == '\n') {
      next_ += crlf ? 2 : 1;
      return FieldEnd::Record;
    }
    Take(1, field);
  }
  return FieldEnd::Record;
}

}  // namespace vexa
