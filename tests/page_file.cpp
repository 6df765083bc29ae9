// The reader of page files: one pass over the lines, with the case and the section that are open.

#include "page_file.h"

#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>

namespace {

enum class Argument { None, Path };

struct SectionName {
  const char* name;
  SectionKind kind;
  Argument argument;
};

constexpr SectionName kSectionNames[] = {
    {"config", SectionKind::Config, Argument::None},
    {"file", SectionKind::File, Argument::Path},
    {"env", SectionKind::Env, Argument::None},
    {"args", SectionKind::Args, Argument::None},
    {"query", SectionKind::Query, Argument::None},
    {"post", SectionKind::Post, Argument::None},
    {"script", SectionKind::Script, Argument::None},
    {"output", SectionKind::Output, Argument::None},
    {"response", SectionKind::Response, Argument::None},
    {"contains", SectionKind::Contains, Argument::None},
    {"lacks", SectionKind::Lacks, Argument::None},
    {"exit", SectionKind::Exit, Argument::None},
    {"check", SectionKind::Check, Argument::Path},
    {"absent", SectionKind::Absent, Argument::None},
    {"request", SectionKind::Request, Argument::None},
};

std::vector<std::string> SplitWords(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

// The section that the line "--- `words`" opens, or nothing when there is no such section.
std::optional<PageSection> OpenSection(const std::string& words_text, int line) {
  std::vector<std::string> words = SplitWords(words_text);
  PageSection section{};
  section.line = line;
  if (words.size() > 1 && words.back() == "escaped") {
    section.escaped = true;
    words.pop_back();
  }
  if (words.empty()) return std::nullopt;
  for (const SectionName& known : kSectionNames) {
    if (words[0] != known.name) continue;
    const size_t expected = known.argument == Argument::Path ? 2 : 1;
    if (words.size() != expected) return std::nullopt;
    section.kind = known.kind;
    if (expected == 2) section.argument = words[1];
    return section;
  }
  return std::nullopt;
}

// Drops the comment on the next case from the end of `text`, whose lines all end in a line feed,
// and then the last line feed.
void EndText(std::string* text, bool before_case) {
  while (before_case && !text->empty()) {
    const size_t end = text->size() >= 2 ? text->rfind('\n', text->size() - 2) : std::string::npos;
    const size_t start = end == std::string::npos ? 0 : end + 1;
    if ((*text)[start] != '#') break;
    text->resize(start);
  }
  if (!text->empty()) text->pop_back();
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsBlankOrComment(const std::string& line) {
  return line.empty() || line[0] == '#' || line.find_first_not_of(" \t") == std::string::npos;
}

}  // namespace

std::string ReadPageFile(const std::string& path, std::vector<PageCase>* cases) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) return path + ":1: cannot be opened";
  PageCase* open_case = nullptr;
  PageSection* open_section = nullptr;
  int number = 0;
  for (std::string line; std::getline(stream, line);) {
    ++number;
    const auto mistake = [&](const std::string& what) {
      return path + ":" + std::to_string(number) + ": " + what;
    };
    if (line.starts_with("=== ")) {
      if (open_section != nullptr) EndText(&open_section->text, true);
      if (open_case != nullptr && open_section == nullptr) return mistake("empty case before this");
      cases->push_back({line.substr(4), path, number, {}});
      open_case = &cases->back();
      open_section = nullptr;
    } else if (line.starts_with("--- ")) {
      if (open_case == nullptr) return mistake("section outside of a case");
      if (open_section != nullptr) EndText(&open_section->text, false);
      std::optional<PageSection> section = OpenSection(line.substr(4), number);
      if (!section) return mistake("unknown section or wrong argument: " + line);
      open_case->sections.push_back(std::move(*section));
      open_section = &open_case->sections.back();
    } else if (open_section != nullptr) {
      open_section->text += line;
      open_section->text += '\n';
    } else if (!IsBlankOrComment(line)) {
      return mistake("text outside of a section: " + line);
    }
  }
  if (open_section == nullptr) return path + ":" + std::to_string(number) + ": no case at the end";
  EndText(&open_section->text, false);
  return "";
}

std::vector<std::string> SplitLines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

std::string Unescape(std::string_view text) {
  std::string bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    const char next = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0';
    const int high = next == 'x' && i + 3 < text.size() ? HexDigit(text[i + 2]) : -1;
    const int low = high >= 0 ? HexDigit(text[i + 3]) : -1;
    if (next == 'n') {
      bytes += '\n';
    } else if (next == 'r') {
      bytes += '\r';
    } else if (next == 't') {
      bytes += '\t';
    } else if (next == '\\') {
      bytes += '\\';
    } else if (low >= 0) {
      bytes += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      bytes += text[i];
      continue;
    }
    ++i;
  }
  return bytes;
}

std::string Escape(std::string_view text) {
  std::string line;
  for (const char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    char hex[8];
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else if (c == '\t') {
      line += "\\t";
    } else if (c == '\\') {
      line += "\\\\";
    } else if (byte < 0x20 || byte >= 0x7F) {
      std::snprintf(hex, sizeof hex, "\\x%02X", byte);
      line += hex;
    } else {
      line += c;
    }
  }
  return line;
}
