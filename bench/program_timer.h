// Timing of whole processes, for the benchmarks of the program as a web server runs it.

#ifndef VEXA_BENCH_PROGRAM_TIMER_H_
#define VEXA_BENCH_PROGRAM_TIMER_H_

#include <string>
#include <vector>

// A directory with a page and a configuration beside a link to the program; removed at the end.
class BenchSite {
 public:
  // Links the program `vexa`, and lets `page` be the page that a request gets.
  BenchSite(const std::string& vexa, const std::string& page);
  ~BenchSite();
  BenchSite(const BenchSite&) = delete;
  BenchSite& operator=(const BenchSite&) = delete;
  [[nodiscard]] const std::string& directory() const { return directory_; }
  // The link, as a full path.
  [[nodiscard]] const std::string& program() const { return program_; }

 private:
  std::string directory_;
  std::string program_;
};

// Runs `program` as a CGI request for the start page and reads its output to the end. Returns the
// seconds from before the start to after the end of the process; ends the benchmark with a message
// when the program cannot be run. `output`, when not null, receives what the program wrote.
double TimeProgram(const std::string& program, std::string* output);

// REQUIRES: `times` is not empty.
double Median(std::vector<double> times);

#endif  // VEXA_BENCH_PROGRAM_TIMER_H_
