// How fast plain HTML goes through: a page of 10 MB without a tag of the language, to a pipe.
//
//   scan_timer VEXA [RUNS]
//
// The page holds what makes a scanner look twice: many HTML tags, entities, and line feeds. For
// scale, `cat` copies the same file to the same pipe.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "program_timer.h"

namespace {

constexpr size_t kPageBytes = 10'000'000;

std::string PlainPage() {
  std::string page = "<html><body><table>\n";
  for (int row = 1; page.size() < kPageBytes; ++row)
    page += "<tr class=\"row\"><td>" + std::to_string(row) +
            "</td><td>Some words &amp; some more, long enough for a line of a table</td></tr>\n";
  return page + "</table></body></html>\n";
}

void Report(const char* name, const std::vector<double>& times, size_t bytes) {
  const double seconds = Median(times);
  std::printf("scan: %s %.1f MB/s (%.1f ms for %.1f MB, median of %zu runs)\n", name,
              static_cast<double>(bytes) / 1e6 / seconds, seconds * 1e3,
              static_cast<double>(bytes) / 1e6, times.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: scan_timer VEXA [RUNS]\n", stderr);
    return 2;
  }
  const int runs = argc > 2 ? std::atoi(argv[2]) : 20;
  const std::string page = PlainPage();
  const BenchSite site(argv[1], page);
  // A script of one line is the simplest program with no arguments that copies a file.
  const std::string copier = site.directory() + "/copy";
  std::ofstream(copier) << "#!/bin/sh\nexec /bin/cat " << site.directory() << "/site/index.vx\n";
  std::filesystem::permissions(copier, std::filesystem::perms::owner_all);

  std::string response;
  TimeProgram(site.program(), &response);
  if (!response.ends_with("\r\n\r\n" + page)) {
    std::puts("The response is not the page.");
    return 1;
  }
  std::vector<double> vexa_times;
  std::vector<double> copy_times;
  for (int i = 0; i < runs; ++i) {
    vexa_times.push_back(TimeProgram(site.program(), nullptr));
    copy_times.push_back(TimeProgram(copier, nullptr));
  }
  Report("vexa", vexa_times, page.size());
  Report("cat ", copy_times, page.size());
  return 0;
}
