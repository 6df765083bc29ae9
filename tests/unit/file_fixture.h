// FileFixture: a temporary directory with a file manager of its own, and the questions the file
// tests ask about it. The answers come from the system, not from the manager.

#ifndef VEXA_TESTS_UNIT_FILE_FIXTURE_H_
#define VEXA_TESTS_UNIT_FILE_FIXTURE_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "fake_host.h"
#include "files/unix_file_manager.h"

namespace vexa {

class FileFixture : public ::testing::Test {
 protected:
  FileFixture() {
    char pattern[] = "/tmp/vexa_files_XXXXXX";
    // The sandbox refuses links, so the directory must not be reached through one.
    directory_ = std::filesystem::canonical(::mkdtemp(pattern)).string();
    host.settings.lockhostname = "here";
    host.files = &files;
  }
  ~FileFixture() override { std::filesystem::remove_all(directory_); }

  [[nodiscard]] std::string directory() const { return directory_; }
  [[nodiscard]] String Path(std::string_view name) const {
    return String::Concat({directory_, "/", name});
  }
  String Make(std::string_view name, std::string_view content = "") const {
    const String path = Path(name);
    std::ofstream(path.c_str(), std::ios::binary) << content;
    return path;
  }
  [[nodiscard]] std::string Content(std::string_view name) const {
    std::ifstream stream(Path(name).c_str(), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  void Link(std::string_view target, std::string_view name) const {
    ASSERT_EQ(::symlink(std::string(target).c_str(), Path(name).c_str()), 0);
  }
  // Sets the age of a file in seconds.
  void SetAge(const String& path, double seconds) const {
    struct timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    const double then = static_cast<double>(now.tv_sec) - seconds;
    const struct timespec time = {static_cast<time_t>(then), now.tv_nsec};
    const struct timespec times[2] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }

  [[nodiscard]] std::unique_ptr<File> Open(std::string_view name, int mode) {
    return files.Open(Path(name), mode);
  }
  // The next `count` bytes of a file, or "error".
  static std::string Next(File& file, int count) {
    std::string text(static_cast<size_t>(count), '\0');
    const int got = file.Read(text.data(), count);
    if (got < 0) return "error";
    text.resize(static_cast<size_t>(got));
    return text;
  }
  // How many descriptors this process has on files in the directory (named `name`, when given).
  [[nodiscard]] int Descriptors(std::string_view name = "") const {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code ignored;
      const std::string target = std::filesystem::read_symlink(entry.path(), ignored).string();
      if (name.empty() ? target.starts_with(directory_ + "/") : target == Path(name).view())
        ++count;
    }
    return count;
  }

  // Runs `body` in a process of its own; its result is the exit status.
  static pid_t Fork(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    return child;
  }
  static int ExitStatus(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // The lock that keeps another process from the byte at `position`: '-' none, 'r', 'w'.
  [[nodiscard]] char LockSeenAt(std::string_view name, off_t position) const {
    const int status = ExitStatus(Fork([&] {
      struct flock lock = {};
      lock.l_type = F_WRLCK;
      lock.l_whence = SEEK_SET;
      lock.l_start = position;
      lock.l_len = 1;
      const int fd = ::open(Path(name).c_str(), O_RDWR);
      if (fd < 0 || ::fcntl(fd, F_GETLK, &lock) != 0) return int{'?'};
      return lock.l_type == F_UNLCK ? int{'-'} : lock.l_type == F_RDLCK ? int{'r'} : int{'w'};
    }));
    return static_cast<char>(status);
  }
  // The host times out in a moment, by a signal that does not interrupt system calls.
  void TimeOutSoon() {
    timing_out_ = &host;
    struct sigaction action = {};
    action.sa_handler = [](int) { timing_out_->timed_out = true; };
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, nullptr);
    const pid_t parent = ::getpid();
    killer_ = Fork([parent] {
      ::usleep(60'000);
      return ::kill(parent, SIGUSR1);
    });
  }
  void TearDown() override {
    if (killer_ > 0) ExitStatus(killer_);
  }

  FakeHost host;
  UNIXFileManager files{host};

 private:
  static inline FakeHost* timing_out_ = nullptr;
  std::string directory_;
  pid_t killer_ = -1;
};

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_FILE_FIXTURE_H_
