// The page-test runner: runs the cases of page files against the program and reports each by name.
//
//   page_runner VEXA_BINARY [--quiet] [--filter TEXT] FILE.page...
//
// Every case gets a fresh directory with a configuration file, the directories site/, data/ and
// tmp/, and a link named `vexa` to the program, which finds its configuration beside that name.
// A case is a sequence of requests; what one leaves in the directory the next one finds. A request
// that does not say what it expects of the response is a mistake in the case: it could not fail.
//
// The last line is "N passed, N failed"; the exit status is 0 only when nothing failed, and
// something ran or a filter was given. docs/testing.md describes the format of the cases.

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "page_file.h"
#include "program_run.h"

namespace {

namespace fs = std::filesystem;

constexpr int kLimitSeconds = 60;
constexpr int kScriptRan = 1;  // The program's exit status after a script ran.
constexpr int kLinesShown = 6;

constexpr const char* kDefaultConfig =
    "vexaroot={DIR}/site\n"
    "stdmodedatadir={DIR}/data\n"
    "tempdir={DIR}/tmp\n"
    "usecookies=no\n"
    "serveradmin=admin@example.com\n";

struct Options {
  std::string program;
  std::string filter;
  bool quiet = false;
  std::vector<std::string> files;
};

// A request and what is expected of it, with all texts in their final form.
struct Request {
  int line = 0;
  ProgramStart start;
  bool has_body = false;
  int exit_status = kScriptRan;
  std::vector<const PageSection*> expectations;
};

std::string ReplaceDirectory(std::string text, const std::string& directory) {
  constexpr std::string_view kMark = "{DIR}";
  for (size_t at = 0; (at = text.find(kMark, at)) != std::string::npos; at += directory.size())
    text.replace(at, kMark.size(), directory);
  return text;
}

// The text or the lines for which a section stands.
class SectionReader {
 public:
  explicit SectionReader(std::string directory) : directory_(std::move(directory)) {}

  [[nodiscard]] std::string Text(const PageSection& section) const {
    return Finish(section, section.text);
  }
  [[nodiscard]] std::vector<std::string> Lines(const PageSection& section) const {
    std::vector<std::string> lines;
    for (const std::string& line : SplitLines(section.text))
      if (!line.empty()) lines.push_back(Finish(section, line));
    return lines;
  }

 private:
  // A body is sent as it stands in the file: braces are ordinary characters of forms.
  [[nodiscard]] std::string Finish(const PageSection& section, std::string text) const {
    if (section.kind != SectionKind::Post) text = ReplaceDirectory(std::move(text), directory_);
    return section.escaped ? Unescape(text) : text;
  }

  std::string directory_;
};

std::optional<std::string> ReadWholeFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) return std::nullopt;
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

void WriteWholeFile(const fs::path& path, std::string_view text) {
  fs::create_directories(path.parent_path());
  std::ofstream stream(path, std::ios::binary);
  stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

// The lines of `text` with their line feeds, for a difference that shows those too.
std::vector<std::string> LinesWithFeeds(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const size_t feed = text.find('\n');
    const size_t length = feed == std::string_view::npos ? text.size() : feed + 1;
    lines.emplace_back(text.substr(0, length));
    text.remove_prefix(length);
  }
  return lines;
}

// Where two texts differ: the line before, then what was expected and what came.
std::string Difference(std::string_view expected, std::string_view actual) {
  const std::vector<std::string> wanted = LinesWithFeeds(expected);
  const std::vector<std::string> found = LinesWithFeeds(actual);
  size_t same = 0;
  while (same < wanted.size() && same < found.size() && wanted[same] == found[same]) ++same;
  std::string report = "    first difference in line " + std::to_string(same + 1) + "\n";
  if (same > 0) report += "      same      " + Escape(wanted[same - 1]) + "\n";
  const auto show = [&](const char* label, const std::vector<std::string>& lines) {
    if (lines.size() == same) report += std::string("      ") + label + "(the end)\n";
    for (size_t i = same; i < lines.size() && i < same + kLinesShown; ++i)
      report += std::string("      ") + label + Escape(lines[i]) + "\n";
    if (lines.size() > same + kLinesShown)
      report += "                and " + std::to_string(lines.size() - same - kLinesShown) +
                " more lines\n";
  };
  show("expected  ", wanted);
  show("actual    ", found);
  return report;
}

std::string ShowText(const char* label, const std::string& text) {
  std::string report;
  for (const std::string& line : LinesWithFeeds(text))
    report += std::string("      ") + label + Escape(line) + "\n";
  return report;
}

// The directory of one case, removed with everything in it at the end.
class CaseDirectory {
 public:
  CaseDirectory() {
    std::string pattern = fs::canonical(fs::temp_directory_path()) / "vexa-page-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~CaseDirectory() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  CaseDirectory(const CaseDirectory&) = delete;
  CaseDirectory& operator=(const CaseDirectory&) = delete;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Runs one case.
class CaseRun {
 public:
  CaseRun(const PageCase& page_case, const std::string& program)
      : case_(page_case), reader_(directory_.path()), config_(kDefaultConfig) {
    for (const char* name : {"site", "data", "tmp"}) fs::create_directories(Inside(name));
    fs::create_symlink(program, Inside("vexa"));
  }

  // The report of what went wrong; empty when the case passed.
  [[nodiscard]] std::string Run();

 private:
  [[nodiscard]] fs::path Inside(const std::string& name) const {
    return fs::path(directory_.path()) / name;
  }
  [[nodiscard]] std::string Place(int line) const {
    return "  " + case_.file + ":" + std::to_string(line) + ": ";
  }
  [[nodiscard]] Request NewRequest(int line) const;
  void Apply(const PageSection& section, Request* request);
  void ApplyEnvironment(const PageSection& section, Request* request) const;
  [[nodiscard]] std::string Execute(Request* request);
  [[nodiscard]] std::string Check(const PageSection& section, const ProgramEnd& end) const;
  [[nodiscard]] std::string CheckLines(const PageSection& section, const std::string& text) const;
  [[nodiscard]] std::string CheckFiles(const PageSection& section) const;

  const PageCase& case_;
  CaseDirectory directory_;
  SectionReader reader_;
  std::string config_;  // Lines added by a request stay for those behind it.
};

Request CaseRun::NewRequest(int line) const {
  Request request;
  request.line = line;
  request.start.path = Inside("vexa");
  request.start.directory = directory_.path();
  request.start.environment = {
      {"GATEWAY_INTERFACE", "CGI/1.1"},
      {"SERVER_PROTOCOL", "HTTP/1.1"},
      {"SERVER_NAME", "localhost"},
      {"SERVER_PORT", "80"},
      {"SCRIPT_NAME", "/cgi-bin/vexa"},
      {"REQUEST_METHOD", "GET"},
      {"PATH_INFO", "/index.vx"},
      {"QUERY_STRING", ""},
      {"REMOTE_ADDR", "127.0.0.1"},
      {"PATH", "/usr/bin:/bin"},
      {"TZ", "UTC"},
  };
  // How the sanitizers report is the business of whoever runs the tests.
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS"})
    if (const char* value = std::getenv(name)) request.start.environment[name] = value;
  return request;
}

void CaseRun::ApplyEnvironment(const PageSection& section, Request* request) const {
  for (const std::string& line : reader_.Lines(section)) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) {
      request->start.environment.erase(line);
    } else {
      request->start.environment[line.substr(0, equals)] = line.substr(equals + 1);
    }
  }
}

void CaseRun::Apply(const PageSection& section, Request* request) {
  auto& environment = request->start.environment;
  switch (section.kind) {
    case SectionKind::Config:
      config_ += reader_.Text(section) + "\n";
      break;
    case SectionKind::File:
      WriteWholeFile(Inside(section.argument), reader_.Text(section));
      break;
    case SectionKind::Script:
      WriteWholeFile(Inside("site/index.vx"), reader_.Text(section));
      break;
    case SectionKind::Env:
      ApplyEnvironment(section, request);
      break;
    case SectionKind::Args:
      request->start.arguments = reader_.Lines(section);
      break;
    case SectionKind::Query:
      environment["QUERY_STRING"] = reader_.Text(section);
      break;
    case SectionKind::Post:
      request->start.input = reader_.Text(section);
      request->has_body = true;
      break;
    case SectionKind::Exit:
      request->exit_status = std::atoi(section.text.c_str());
      request->expectations.push_back(&section);
      break;
    case SectionKind::Request:
      break;
    default:
      request->expectations.push_back(&section);
  }
}

std::string CaseRun::Run() {
  // The environment goes last, so that it has its way over what a body or a query implies.
  const auto by_environment = [](const PageSection* section) {
    return section->kind == SectionKind::Env;
  };
  std::vector<const PageSection*> sections;
  Request request = NewRequest(case_.line);
  const auto finish = [&] {
    for (const PageSection* section : sections)
      if (!by_environment(section)) Apply(*section, &request);
    if (request.has_body) {
      request.start.environment["REQUEST_METHOD"] = "POST";
      request.start.environment["CONTENT_LENGTH"] = std::to_string(request.start.input.size());
      request.start.environment["CONTENT_TYPE"] = "application/x-www-form-urlencoded";
    }
    for (const PageSection* section : sections)
      if (by_environment(section)) Apply(*section, &request);
    return Execute(&request);
  };
  for (const PageSection& section : case_.sections) {
    if (section.kind == SectionKind::Request) {
      std::string report = finish();
      if (!report.empty()) return report;
      sections.clear();
      request = NewRequest(section.line);
    }
    sections.push_back(&section);
  }
  return finish();
}

std::string CaseRun::Execute(Request* request) {
  if (request->expectations.empty()) return Place(request->line) + "the request expects nothing\n";
  WriteWholeFile(Inside("vexa.conf"), ReplaceDirectory(config_, directory_.path()));
  const ProgramEnd end = RunProgram(request->start, kLimitSeconds);
  std::string report;
  if (!end.trouble.empty()) {
    report += Place(request->line) + "the program " + end.trouble + "\n";
  } else if (end.status != request->exit_status) {
    report += Place(request->line) + "exit status " + std::to_string(end.status) + " instead of " +
              std::to_string(request->exit_status) + "\n";
  }
  if (!end.errors.empty())
    report +=
        Place(request->line) + "wrote to standard error\n" + ShowText("error     ", end.errors);
  for (const PageSection* section : request->expectations) report += Check(*section, end);
  return report;
}

std::string CaseRun::Check(const PageSection& section, const ProgramEnd& end) const {
  std::string actual = end.output;
  switch (section.kind) {
    case SectionKind::Contains:
    case SectionKind::Lacks:
      return CheckLines(section, actual);
    case SectionKind::Check:
    case SectionKind::Absent:
      return CheckFiles(section);
    case SectionKind::Output: {
      const size_t blank = actual.find("\r\n\r\n");
      if (blank == std::string::npos)
        return Place(section.line) + "the response has no end of headers\n" +
               ShowText("actual    ", actual);
      actual.erase(0, blank + 4);
      break;
    }
    case SectionKind::Response:
      break;
    default:
      return "";
  }
  const std::string expected = reader_.Text(section);
  if (expected == actual) return "";
  return Place(section.line) + "the response is another one\n" + Difference(expected, actual);
}

std::string CaseRun::CheckLines(const PageSection& section, const std::string& text) const {
  const bool wanted = section.kind == SectionKind::Contains;
  std::string report;
  for (const std::string& line : reader_.Lines(section)) {
    if ((text.find(line) != std::string::npos) == wanted) continue;
    report += Place(section.line) + (wanted ? "the response lacks: " : "the response contains: ") +
              Escape(line) + "\n";
  }
  if (!report.empty()) report += ShowText("actual    ", text);
  return report;
}

std::string CaseRun::CheckFiles(const PageSection& section) const {
  std::string report;
  if (section.kind == SectionKind::Absent) {
    for (const std::string& name : reader_.Lines(section))
      if (fs::exists(fs::symlink_status(Inside(name))))
        report += Place(section.line) + name + " exists\n";
    return report;
  }
  const std::optional<std::string> actual = ReadWholeFile(Inside(section.argument));
  if (!actual) return Place(section.line) + section.argument + " does not exist\n";
  const std::string expected = reader_.Text(section);
  if (expected == *actual) return "";
  return Place(section.line) + section.argument + " has other content\n" +
         Difference(expected, *actual);
}

bool ReadOptions(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--quiet") {
      options->quiet = true;
    } else if (argument == "--filter" && i + 1 < argc) {
      options->filter = argv[++i];
    } else if (argument.starts_with("--")) {
      return false;
    } else if (options->program.empty()) {
      options->program = argument;
    } else {
      options->files.push_back(argument);
    }
  }
  return !options->files.empty();
}

bool Matches(const PageCase& page_case, const std::string& filter) {
  return (page_case.file + ": " + page_case.name).find(filter) != std::string::npos;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ReadOptions(argc, argv, &options)) {
    std::fputs("usage: page_runner VEXA_BINARY [--quiet] [--filter TEXT] FILE.page...\n", stderr);
    return 2;
  }
  std::error_code missing;
  const std::string program = fs::canonical(options.program, missing);
  int passed = 0;
  int failed = 0;
  if (missing) {
    std::printf("FAIL there is no program %s\n", options.program.c_str());
    ++failed;
  }
  std::vector<PageCase> cases;
  for (const std::string& file : options.files) {
    const auto before = static_cast<std::ptrdiff_t>(cases.size());
    const std::string mistake = ReadPageFile(file, &cases);
    if (mistake.empty()) continue;
    cases.erase(cases.begin() + before, cases.end());
    std::printf("FAIL %s\n", mistake.c_str());
    ++failed;
  }
  for (const PageCase& page_case : cases) {
    if (missing || !Matches(page_case, options.filter)) continue;
    const std::string report = CaseRun(page_case, program).Run();
    (report.empty() ? passed : failed) += 1;
    if (!report.empty()) {
      std::printf("FAIL %s: %s\n%s", page_case.file.c_str(), page_case.name.c_str(),
                  report.c_str());
    } else if (!options.quiet) {
      std::printf("PASS %s: %s\n", page_case.file.c_str(), page_case.name.c_str());
    }
    std::fflush(stdout);
  }
  std::printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 && (passed > 0 || !options.filter.empty()) ? 0 : 1;
}
