// How long a request for each of the pages of bench/pages takes, process start and end included.
//
//   page_timer VEXA PAGE...
//
// For pages that loop or recurse: the figures are about the executor and the functions it calls.

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "program_timer.h"

namespace {

constexpr int kRuns = 5;

// The last line of a response, to see that the page did its work.
std::string LastLine(std::string text) {
  while (text.ends_with('\n') || text.ends_with('\r')) text.pop_back();
  return text.substr(text.rfind('\n') + 1);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: page_timer VEXA PAGE...\n", stderr);
    return 2;
  }
  for (int i = 2; i < argc; ++i) {
    std::ifstream stream(argv[i], std::ios::binary);
    std::ostringstream page;
    if (!(page << stream.rdbuf())) {
      std::fprintf(stderr, "page_timer: %s cannot be read\n", argv[i]);
      return 1;
    }
    const BenchSite site(argv[1], page.str());
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
