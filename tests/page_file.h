// Page files: the plain-text cases that the page-test runner runs. docs/testing.md describes the
// format for those who write cases; this is its reader.
//
// A file is a sequence of cases, a case a sequence of sections:
//
//   # comment
//   === name of the case
//   --- section argument escaped
//   text of the section
//
// A section's text is everything up to the next line that begins with "--- " or "=== ", without its
// last line feed. Lines that begin with "#" directly above a "=== " line are comments on that case
// and not text; so are those between a "=== " line and the first section.

#ifndef VEXA_TESTS_PAGE_FILE_H_
#define VEXA_TESTS_PAGE_FILE_H_

#include <string>
#include <string_view>
#include <vector>

enum class SectionKind {
  Config,
  File,
  Env,
  Args,
  Query,
  Post,
  Script,
  Output,
  Response,
  Contains,
  Lacks,
  Exit,
  Check,
  Absent,
  Request,
};

struct PageSection {
  SectionKind kind;
  int line;              // Of the "--- " line, 1-based.
  bool escaped = false;  // The text is written with backslash sequences.
  std::string argument;  // The file's name, of File and Check; else empty.
  std::string text;      // As written: escapes and {DIR} still stand in it.
};

struct PageCase {
  std::string name;
  std::string file;
  int line;  // Of the "=== " line, 1-based.
  std::vector<PageSection> sections;
};

// Reads the page file `path` and appends its cases to `cases`. Returns the empty text, or on the
// first mistake "FILE:LINE: what is wrong"; `cases` then holds what was read before.
[[nodiscard]] std::string ReadPageFile(const std::string& path, std::vector<PageCase>* cases);

// The lines of `text`. The empty text has none; a line feed at the end begins no further line.
[[nodiscard]] std::vector<std::string> SplitLines(std::string_view text);

// The bytes for which `text` stands when \n \r \t \\ and \xNN in it are replaced. A backslash
// before anything else stands for itself.
[[nodiscard]] std::string Unescape(std::string_view text);

// `text` on one line: bytes that do not print, and backslashes, as Unescape reads them.
[[nodiscard]] std::string Escape(std::string_view text);

#endif  // VEXA_TESTS_PAGE_FILE_H_
