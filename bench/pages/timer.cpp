// How long a request for each of the pages of bench/pages takes, process start and end included.
//
//   page_timer VEXA PAGE...
//
// For pages that loop or recurse: the figures are about the executor and the functions it calls,
// those of the pages db_*.vx about databases. What such a page needs is made once, before the
// timing, by the page of the same name in the directory `prepare` beside it.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "program_timer.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRuns = 5;

// The last line of a response, to see that the page did its work.
std::string LastLine(std::string text) {
  while (text.ends_with('\n') || text.ends_with('\r')) text.pop_back();
  return text.substr(text.rfind('\n') + 1);
}

// The content of a file; false when it cannot be read.
bool ReadFile(const fs::path& path, std::string* content) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream bytes;
  if (!(bytes << stream.rdbuf())) return false;
  *content = bytes.str();
  return true;
}

// Lets `page` be the page that requests get, after what it needs was made.
void Prepare(const BenchSite& site, const fs::path& page, const std::string& content) {
  std::string preparation;
  const fs::path start_page = site.directory() + "/site/index.vx";
  if (ReadFile(page.parent_path() / "prepare" / page.filename(), &preparation)) {
    std::ofstream(start_page, std::ios::binary) << preparation;
    TimeProgram(site.program(), nullptr);
  }
  std::ofstream(start_page, std::ios::binary) << content;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: page_timer VEXA PAGE...\n", stderr);
    return 2;
  }
  for (int i = 2; i < argc; ++i) {
    std::string page;
    if (!ReadFile(argv[i], &page)) {
      std::fprintf(stderr, "page_timer: %s cannot be read\n", argv[i]);
      return 1;
    }
    const BenchSite site(argv[1], page);
    Prepare(site, argv[i], page);
    std::vector<double> times;
    std::string response;
    for (int run = 0; run < kRuns; ++run) {
      response.clear();
      times.push_back(TimeProgram(site.program(), &response));
    }
    std::printf("%s: %.1f ms (median of %d runs), ends with: %s\n", argv[i], Median(times) * 1e3,
                kRuns, LastLine(response).c_str());
  }
  return 0;
}
