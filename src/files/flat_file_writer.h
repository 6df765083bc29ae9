// FlatFileWriter: builds one record of a flat file and appends it. See flat_file_format.h.

#ifndef VEXA_FILES_FLAT_FILE_WRITER_H_
#define VEXA_FILES_FLAT_FILE_WRITER_H_

#include <string_view>

#include "core/string.h"
#include "vexa.h"

namespace vexa {

class FlatFileWriter {
 public:
  // REQUIRES: `delimiter`, which is borrowed, has no DelimiterProblem.
  explicit FlatFileWriter(std::string_view delimiter) : delimiter_(delimiter) {}

  // The next field of the record.
  void AddField(std::string_view field);
  // The record so far, without its line end.
  [[nodiscard]] const String& record() const { return record_; }

  // Appends the record to the file at `path` (a finished path), creating it when missing, with one
  // write under an exclusive lock. A last line without a line end is ended first, so that the
  // record becomes a line of its own. False, with `error` set and the file as it was, on failure.
  [[nodiscard]] bool AppendTo(Vexa& host, const String& path, String& error) const;

 private:
  [[nodiscard]] bool NeedsQuotes(std::string_view field) const;
  void EndField();
  void Append(std::string_view text);

  std::string_view delimiter_;
  String record_;
  bool has_fields_ = false;
  int plain_start_ = -1;  // where the last field begins in the record, -1 when it is quoted
};

}  // namespace vexa

#endif  // VEXA_FILES_FLAT_FILE_WRITER_H_
