// The format of flat files: delimited text, one record a line.
//
//   file    = record*
//   record  = field (DELIMITER field)* line-end      the last line may end with the file
//   line-end = LF | CR LF                            written: LF
//   field   = plain | '"' quoted '"' plain           quoted: any bytes, a quote written twice
//
//   a,"b ""x"", c",,d          four fields: a | b "x", c | (empty) | d
//
// A quote matters at the start of a field only; text behind a closing quote belongs to the field; a
// quoted field without a closing quote runs to the end of the file. Any line, an empty one too, is
// a record. A field is written quoted when it holds a quote, CR or LF, or when it would be split
// elsewhere ("a-" before the delimiter "--"), so that every field is read back byte for byte.
//
// The delimiter is a text of one or more bytes, two kinds excepted with which that cannot be:
// behind a closing quote, one that begins with a quote looks like a doubled quote; one with a line
// feed looks like the end of a record. The length is limited so that comparing costs little.

#ifndef VEXA_FILES_FLAT_FILE_FORMAT_H_
#define VEXA_FILES_FLAT_FILE_FORMAT_H_

#include <cstddef>
#include <string_view>

namespace vexa {

inline constexpr size_t kLongestDelimiter = 4096;

// What is wrong with a delimiter, as a sentence; empty when nothing is.
[[nodiscard]] constexpr std::string_view DelimiterProblem(std::string_view delimiter) {
  if (delimiter.empty()) return "The delimiter is empty";
  if (delimiter.front() == '"') return "The delimiter begins with a double quote";
  if (delimiter.find('\n') != std::string_view::npos) return "The delimiter holds a line feed";
  if (delimiter.size() > kLongestDelimiter) return "The delimiter is longer than 4096 bytes";
  return {};
}

}  // namespace vexa

#endif  // VEXA_FILES_FLAT_FILE_FORMAT_H_
