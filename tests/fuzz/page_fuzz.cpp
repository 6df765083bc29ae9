// Fuzzing of whole requests with libFuzzer. Targets, and what their input is:
//   script      a page, which finds another page, a table with an index, a flat file and a query
//   macro       the value of a reference, carried out as part of a page and encoded into one
//   urlencoded  a body of that type; multipart: the boundary up to the first line feed, then a body
//
// A page has a temporary directory as its whole world: sockets are refused, waits are over at once,
// and after kMostSteps questions for the time it has no more. Every page runs a second time, read
// in other pieces and with nothing remembered, and must be the same.

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sanitizer/allocator_interface.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <string>

#include "cgi/run_request.h"
#include "core/encoding.h"
#include "core/shortcuts.h"
#include "core/text.h"
#include "fake_host.h"
#include "fuzz_target.h"

// A page that waits goes on at once; it looks at its time again then.
extern "C" int nanosleep(const struct timespec* /*time*/, struct timespec* /*left*/) { return 0; }

// The sanitizer's own ends the process where memory is short, which for a page is an error.
void* operator new(size_t size) {
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t /*size*/) noexcept { std::free(memory); }

namespace vexa {
namespace {

namespace fs = std::filesystem;

constexpr int kMostSteps = 1000;
constexpr size_t kMostMemory = 400'000'000;  // bytes

class LimitedHost final : public Host {
 public:
  using Host::Host;
  bool timedout() override {
    // Nothing but a page takes so much, and freed memory is not told at once.
    if (++steps_ > kMostSteps || __sanitizer_get_current_allocated_bytes() > kMostMemory)
      over_ = true;
    return over_ || Host::timedout();
  }
  [[nodiscard]] bool over() const { return over_; }

 private:
  int steps_ = 0;
  bool over_ = false;
};

struct Asked {
  std::string query;
  std::string content_type;
  std::string body;
};

// A site and its files, the same for every request.
class World {
 public:
  World() {
    std::string pattern = (fs::temp_directory_path() / "vexa_fuzz_XXXXXX").string();
    Require(::mkdtemp(pattern.data()) != nullptr, "there is no place for a site");
    root_ = fs::canonical(pattern);
    const std::string settings = "vexaroot=" + root_.string() +
                                 "/site\nstdmodedatadir=" + root_.string() +
                                 "/data\ntempdir=" + root_.string() +
                                 "/tmp\nusecookies=no\nglobaltimeout=0\nlockhostname=here\n";
    Write("whole.conf", settings);
    Write("pieces.conf",
          settings + "templatebuffersize=7\nimportbuffersize=3\ncontentbuffersize=1\n");
    Write("strict.conf", settings + "strictinput=on\n");
    Reset();
    // The table is made by the program itself.
    const std::string made = Page(
        "<VxCREATE NAME='t' DATABASE='t.dbf' FIELDS='a CHAR(5), n NUMBER(6.2), d DATE, b BOOL, "
        "m MEMO'><VxLET t.d.a='x'><VxLET t.d.n=1.5><VxLET t.d.m='note'><VxADD><VxLET t.d.a='y'>"
        "<VxADD><VxMAKEINDEX NAME='t' INDEXFILE='t.vxx' EXPR=a><VxCLOSE NAME='t'>",
        {});
    for (const auto& [name, content] : Files()) kept_["data/" + name] = content;
    Require(kept_.contains("data/t.vxx"), made.c_str());
    kept_["data/f.txt"] = "a,1\nb,\"2\"\"\"\n";
    kept_["site/other.vx"] =
        "<VxFUNCTION NAME='o' PARAMETERS='x'>(&[x])<VxFUNCRETURN VALUE=x></VxFUNCTION>"
        "&[arg]<VxEVAL EXPR=o(arg)>";
  }
  ~World() { fs::remove_all(root_); }

  // The answer of the page `script`, the same in whichever pieces it is read.
  std::string Page(std::string_view script, const Asked& asked) {
    const std::string whole = Run("whole", script, asked);
    const auto files = Files();
    if (over_ || !IsPredictable(script) || !IsPredictable(asked.query)) return whole;
    ShortcutsSwitch() = false;
    const std::string pieces = Run("pieces", script, asked);
    ShortcutsSwitch() = true;
    if (over_) return whole;
    if (whole != pieces) std::fprintf(stderr, "%s\n----\n%s\n", whole.c_str(), pieces.c_str());
    Require(whole == pieces, "a page is another one in pieces");
    Require(files == Files(), "a page in pieces leaves other files");
    if (!asked.body.empty()) {
      const std::string strict = Run("strict", script, asked);
      Require(over_ || strict == whole || strict.find("The request is damaged") != strict.npos,
              "a body that is not refused is read in another way");
    }
    return whole;
  }

 private:
  // Whether nothing is printed that no two requests agree about.
  static bool IsPredictable(std::string_view text) {
    std::string folded(text);
    std::ranges::transform(folded, folded.begin(), [](char c) { return ToLower(c); });
    return std::ranges::none_of(
        std::to_array<std::string_view>(
            {"rand", "time", "tm_", "dyn", "sess", "token", "process", "date"}),
        [&](std::string_view word) { return folded.find(word) != folded.npos; });
  }

  void Write(const std::string& name, std::string_view content) {
    std::ofstream(root_ / name, std::ios::binary) << content;
  }
  void Reset() {
    for (const char* directory : {"site", "data", "tmp"}) {
      fs::remove_all(root_ / directory);
      fs::create_directory(root_ / directory);
    }
    for (const auto& [name, content] : kept_) Write(name, content);
  }
  // What lies in the data directory itself.
  std::map<std::string, std::string> Files() {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(root_ / "data")) {
      // A journal has a number that nobody guesses.
      if (!entry.is_regular_file() || entry.path().string().ends_with("-journal")) continue;
      std::ifstream stream(entry.path(), std::ios::binary);
      files[entry.path().filename().string()] = {std::istreambuf_iterator<char>(stream), {}};
    }
    return files;
  }

  std::string Run(const std::string& name, std::string_view script, const Asked& asked) {
    Reset();
    Write("site/index.vx", script);
    std::string program = (root_ / name).string();
    std::string variables[] = {"GATEWAY_INTERFACE=CGI/1.1",
                               "PATH_INFO=/index.vx",
                               "SERVER_NAME=localhost",
                               "REQUEST_METHOD=POST",
                               "HTTP_COOKIE=a=b",
                               "QUERY_STRING=" + asked.query,
                               "CONTENT_TYPE=" + asked.content_type,
                               "CONTENT_LENGTH=" + std::to_string(asked.body.size())};
    char* environment[std::size(variables) + 1] = {};
    std::ranges::transform(variables, environment, [](std::string& text) { return text.data(); });
    char* arguments[] = {program.data(), nullptr};
    Process process(1, arguments);
    TextRequest request(environment, asked.body);
    TextOutput response(8192);
    {
      LimitedHost host(process, kVexaTags, request, response);
      (void)RunRequest(host);
      over_ = host.over() || response.text.find("Out of memory") != std::string::npos;
    }
    Require(response.text.starts_with("Content-type: ") || response.text.starts_with("Status: "),
            "an answer has no head");
    Require(std::distance(fs::directory_iterator(root_), {}) == 6,
            "a file lies outside of the site");
    const size_t head = response.text.find("\r\n\r\n");
    return response.text.substr(std::min(head, response.text.size()));
  }

  fs::path root_;
  std::map<std::string, std::string> kept_;
  bool over_ = false;  // the last request had no more time, or no more memory
};

World& TheWorld() {
  static World world;
  return world;
}

void UseScript(std::string_view input) { (void)TheWorld().Page(input, {.query = "q=%3Cb%3E&n=2"}); }

void UseMacro(std::string_view input) {
  const String value(input);
  const std::string query = "v=" + std::string(URLPart(input).view());
  const std::string encoded =
      TheWorld().Page("{&[v:entities]<p>&[v:attribute]<p>&[v:script]}", {.query = query});
  const size_t begin = encoded.find('{') + 1, end = encoded.find('<');
  Require(end != encoded.npos && encoded.find("<p>", end + 1) == encoded.rfind('<'),
          "a value leaves its encoding");
  String back(std::string_view(encoded).substr(begin, end - begin));
  DecodeEntities(back);
  Require(back == value, "a value is another one behind its encoding");
  (void)TheWorld().Page(
      "<VxLET i=0><VxWHILE EXPR='i LT 3'><VxLET i=i + 1>&[v]\n<VxIF "
      "EXPR='&[v]'>&[v]</VxIF></VxWHILE>",
      {.query = query});
}

// Prints all that became of a body.
constexpr char kBodyPage[] =
    "<VxFUNCTION NAME='Vexa_ValidateFileUpload' PARAMETERS='f, n, t'>(&[f:json]&[n:json]&[t:json])"
    "<VxFUNCRETURN VALUE=30></VxFUNCTION><VxFUNCTION NAME='Vexa_ProcessFileUpload' "
    "PARAMETERS='f, n, t, path, size, status'>(&[f:json]&[n:json]&[size]&[status]"
    "<FILE READ=path NAME='content'>&[content:json])<VxEVAL EXPR=frename(path, "
    "'kept')></VxFUNCTION>"
    "<VxLET names=vexa_getvarlist('g')><VxLET i=1><VxWHILE EXPR=\"gettoken(names, ',', i) NE ''\">"
    "<VxLET name=gettoken(names, ',', i)>&[name:json]<VxLET j=1>"
    "<VxWHILE EXPR=\"j LE vexa_fieldcount(name)\"><VxLET x=vexa_fieldat(name, j)>&[x:json]<VxLET "
    "j=j + 1>"
    "</VxWHILE><VxLET i=i + 1></VxWHILE>";

void UseUrlencoded(std::string_view input) {
  (void)TheWorld().Page(kBodyPage, {"", "application/x-www-form-urlencoded", std::string(input)});
}

void UseMultipart(std::string_view input) {
  const size_t end = std::min(input.find('\n'), input.size());
  std::string type = "multipart/form-data; boundary=" + std::string(input.substr(0, end));
  std::erase(type, '\0');
  input.remove_prefix(std::min(end + 1, input.size()));
  (void)TheWorld().Page(kBodyPage, {"", type, std::string(input)});
}

}  // namespace
}  // namespace vexa

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {std::size(steps), steps};
  vexa::Require(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0,
                "sockets cannot be refused");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return vexa::UseTarget({{"script", vexa::UseScript},
                          {"macro", vexa::UseMacro},
                          {"urlencoded", vexa::UseUrlencoded},
                          {"multipart", vexa::UseMultipart}},
                         data, size);
}
