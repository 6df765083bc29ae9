// posix_spawn, so that what the benchmark itself holds in memory does not slow the start.

#include "program_timer.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

double Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

[[noreturn]] void GiveUp(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  std::exit(1);
}

}  // namespace

BenchSite::BenchSite(const std::string& vexa, const std::string& page) {
  std::string pattern = fs::canonical(fs::temp_directory_path()) / "vexa-bench-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) GiveUp("cannot make " + pattern);
  directory_ = pattern;
  program_ = directory_ + "/vexa";
  fs::create_directories(directory_ + "/site");
  fs::create_directories(directory_ + "/data");
  fs::create_symlink(fs::canonical(vexa), program_);
  std::ofstream(directory_ + "/site/index.vx") << page;
  std::ofstream(directory_ + "/vexa.conf")
      << "vexaroot=" << directory_ << "/site\nstdmodedatadir=" << directory_
      << "/data\nusecookies=no\n";
}

BenchSite::~BenchSite() {
  std::error_code ignored;
  fs::remove_all(directory_, ignored);
}

double TimeProgram(const std::string& program, std::string* output) {
  const char* const environment[] = {
      "GATEWAY_INTERFACE=CGI/1.1", "SERVER_NAME=localhost", "SERVER_PORT=80", "REQUEST_METHOD=GET",
      "PATH_INFO=/index.vx",       "QUERY_STRING=",         nullptr};
  char* const arguments[] = {const_cast<char*>(program.c_str()), nullptr};
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) GiveUp("cannot make a pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);

  const double start = Now();
  pid_t process = 0;
  if (posix_spawn(&process, program.c_str(), &actions, nullptr, arguments,
                  const_cast<char* const*>(environment)) != 0)
    GiveUp("cannot run " + program);
  close(ends[1]);
  static std::array<char, 65536> buffer;
  ssize_t count = 0;
  while ((count = read(ends[0], buffer.data(), buffer.size())) > 0)
    if (output != nullptr) output->append(buffer.data(), static_cast<size_t>(count));
  int status = 0;
  waitpid(process, &status, 0);
  const double seconds = Now() - start;

  close(ends[0]);
  posix_spawn_file_actions_destroy(&actions);
  if (!WIFEXITED(status) || WEXITSTATUS(status) == 127) GiveUp(program + " did not run");
  return seconds;
}

double Median(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}
