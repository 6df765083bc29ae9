// FlatFileReader: reads a flat file record by record in constant memory. See flat_file_format.h.
//
// It reads what the file held when it was opened: records that are appended meanwhile, by the page
// itself or by others, are not seen.

#ifndef VEXA_FILES_FLAT_FILE_READER_H_
#define VEXA_FILES_FLAT_FILE_READER_H_

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "core/file.h"
#include "core/string.h"
#include "vexa.h"

namespace vexa {

class FlatFileReader {
 public:
  enum class Result { Failed, Record, End };

  // Opens the file at `path` (a finished path). Null with `error` set when it cannot be read.
  // `host` is borrowed; its setting `importbuffersize` is the size of the blocks read.
  // REQUIRES: `delimiter` has no DelimiterProblem.
  [[nodiscard]] static std::unique_ptr<FlatFileReader> Open(Vexa& host, const String& path,
                                                            std::string_view delimiter,
                                                            String& error);

  // Reads the next record into `fields`; missing fields become empty, surplus ones are dropped.
  // Failed, also when the request's time is up: the message is in error().
  [[nodiscard]] Result ReadRecord(std::span<String> fields);
  [[nodiscard]] const String& error() const { return error_; }

 private:
  FlatFileReader(Vexa& host, std::unique_ptr<File> file, int64_t length,
                 std::string_view delimiter);

  enum class FieldEnd { Delimiter, Record };

  // Makes at least `count` unread bytes available, when the file has them.
  [[nodiscard]] bool Have(size_t count) { return count <= limit_ - next_ || Fill(count); }
  [[nodiscard]] bool Fill(size_t count);
  [[nodiscard]] std::string_view Window() const { return {&block_[next_], limit_ - next_}; }
  // Moves `count` bytes of the window into `field`, unless that is null.
  void Take(size_t count, String* field);
  // Read one field into `field`, or past it when that is null.
  FieldEnd ReadField(String* field);
  void ReadQuoted(String* field);
  FieldEnd ReadPlain(String* field);

  Vexa& host_;
  std::unique_ptr<File> file_;
  int64_t offset_ = 0;  // of the next byte to read from the file
  int64_t length_;      // of the part of the file that is read
  String delimiter_;
  std::array<bool, 256> special_{};  // bytes that a plain field may end at
  size_t size_;                      // of the block; at least one delimiter
  std::unique_ptr<char[]> block_;
  size_t next_ = 0;  // of the unread bytes in the block
  size_t limit_ = 0;
  bool failed_ = false;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_FILES_FLAT_FILE_READER_H_
