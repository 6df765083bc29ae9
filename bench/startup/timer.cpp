// How long a request for the smallest page takes, process start and end included, beside a C
// program that does nothing but write the same bytes.
//
//   startup_timer VEXA BASELINE [RUNS]
//
// The two take turns, so that whatever else the machine does meets both alike; medians are shown.

#include <cstdio>
#include <cstdlib>

#include "program_timer.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: startup_timer VEXA BASELINE [RUNS]\n", stderr);
    return 2;
  }
  const int runs = argc > 3 ? std::atoi(argv[3]) : 2000;
  const std::string page =
      "<html><body><h1><VxASSIGN NAME=\"x\" VALUE=\"Hello\"><VxEVAL EXPR=x></h1></body></html>\n";
  const BenchSite site(argv[1], page);
  const std::string baseline = argv[2];

  std::string ours;
  std::string theirs;
  TimeProgram(site.program(), &ours);
  TimeProgram(baseline, &theirs);
  if (ours != theirs) {
    std::printf("The two programs do not write the same bytes:\n%s---\n%s", ours.c_str(),
                theirs.c_str());
    return 1;
  }
  std::vector<double> vexa_times;
  std::vector<double> baseline_times;
  for (int i = 0; i < runs; ++i) {
    vexa_times.push_back(TimeProgram(site.program(), nullptr));
    baseline_times.push_back(TimeProgram(baseline, nullptr));
  }
  const double vexa = Median(vexa_times);
  const double least = Median(baseline_times);
  std::printf("startup: vexa %.0f us, C program %.0f us, ratio %.2f (medians of %d runs)\n",
              vexa * 1e6, least * 1e6, vexa / least, runs);
  return 0;
}
