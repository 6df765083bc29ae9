// The directories of vexa-serve, its key and its configuration.

#include "cgi/serve_site.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <example_settings.h>

#include "files/descriptor.h"

namespace vexa {

namespace {

constexpr size_t kKeyBytes = 32;
constexpr size_t kLargestSettings = 1 << 20;

bool Fail(std::string& problem, std::string_view path, std::string_view reason) {
  problem.assign(path).append(": ").append(reason);
  return false;
}

bool FailBySystem(std::string& problem, std::string_view path) {
  return Fail(problem, path, std::strerror(errno));
}

// The full path of a directory without links.
bool FindDirectory(const std::string& path, std::string& found, std::string& problem) {
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
  if (real == nullptr) return FailBySystem(problem, path);
  struct stat status;
  if (::stat(real.get(), &status) != 0) return FailBySystem(problem, path);
  if (!S_ISDIR(status.st_mode)) return Fail(problem, path, "it is not a directory");
  found = real.get();
  return true;
}

// One that nobody else can put anything into.
bool MakePrivateDirectory(const std::string& path, std::string& problem) {
  struct stat status;
  if ((::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) ||
      ::lstat(path.c_str(), &status) != 0) {
    return FailBySystem(problem, path);
  }
  if (!S_ISDIR(status.st_mode)) return Fail(problem, path, "it is not a directory");
  if (status.st_uid == ::geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0) return true;
  return Fail(problem, path, "it belongs to another user, or others may write to it");
}

bool LiesIn(std::string_view path, std::string_view directory) {
  return path.starts_with(directory) &&
         (directory == "/" || path.size() == directory.size() || path[directory.size()] == '/');
}

// Whole or not at all: a server that is started at the same time sees no half of it.
bool WriteFile(const std::string& path, std::string_view text, std::string& problem) {
  const std::string unfinished = path + "." + std::to_string(::getpid());
  const int file =
      ::open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (file < 0) return FailBySystem(problem, unfinished);
  bool written = true;
  while (written && !text.empty()) {
    const ssize_t count = RetryInterrupted([&] { return ::write(file, text.data(), text.size()); });
    written = count > 0;
    if (written) text.remove_prefix(static_cast<size_t>(count));
  }
  if (::close(file) == 0 && written && ::rename(unfinished.c_str(), path.c_str()) == 0) return true;
  (void)FailBySystem(problem, path);
  (void)::unlink(unfinished.c_str());
  return false;
}

bool MakeKey(const std::string& path, std::string& problem) {
  if (::access(path.c_str(), F_OK) == 0) return true;
  unsigned char bytes[kKeyBytes];
  if (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
    return FailBySystem(problem, path);
  }
  std::string key;
  for (const unsigned char byte : bytes) {
    key.append({"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]});
  }
  return WriteFile(path, key + "\n", problem);
}

// The text of the file, empty when there is none.
bool ReadFile(const std::string& path, std::string& text, std::string& problem) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return errno == ENOENT || FailBySystem(problem, path);
  char piece[4096];
  ssize_t count = 0;
  while (text.size() < kLargestSettings &&
         (count = RetryInterrupted([&] { return ::read(file, piece, sizeof piece); })) > 0) {
    text.append(piece, static_cast<size_t>(count));
  }
  if (count < 0) (void)FailBySystem(problem, path);
  if (count > 0) (void)Fail(problem, path, "it is too large");
  ::close(file);
  return count == 0;
}

// Of two lines for one setting the later counts: first what may be changed, last what may not.
bool WriteConfiguration(const std::string& state, std::string& problem) {
  std::string own;
  if (!ReadFile(state + "/settings.conf", own, problem)) return false;
  std::string text =
      "# Written by vexa-serve when it starts. Your own settings go into\n"
      "# settings.conf beside this file.\n\n";
  text.append(kExampleSettings).append("\n").append(own).append("\n");
  const auto set = [&text](std::string_view name, std::string_view value) {
    text.append(name).append("=").append(value).append("\n");
  };
  set("vexaroot", "&[" + std::string(kPagesVariable) + "]");
  set("stdmodedatadir", "&[" + std::string(kDataVariable) + "]");
  set("validextensions", kPageExtension);
  set("vexadefault", kDirectoryPage);
  return WriteFile(state + "/vexa.conf", text, problem);
}

}  // namespace

bool PrepareSite(const std::string& pages, const std::string& data, ServeSite& site,
                 std::string& problem) {
  if (!FindDirectory(pages, site.pages, problem)) return false;
  if (!data.empty()) {
    if (::mkdir(data.c_str(), 0700) != 0 && errno != EEXIST) return FailBySystem(problem, data);
    if (!FindDirectory(data, site.data, problem)) return false;
  }
  const std::string& beside = data.empty() ? site.pages : site.data;
  const size_t slash = beside.rfind('/');
  site.state = beside.substr(0, slash + 1) + ".vexa-" + beside.substr(slash + 1);
  if (data.empty()) site.data = site.state + "/data";
  if (LiesIn(site.data, site.pages) || LiesIn(site.pages, site.data)) {
    return Fail(problem, site.data, "pages and data must lie in directories of their own");
  }
  // Whether a path is one of a page is decided by its first characters.
  if (site.state.starts_with(site.pages) || site.state.starts_with(site.data)) {
    return Fail(problem, site.state, "give the directory that stands beside it another name");
  }
  const std::string temporary = site.state + "/tmp";
  return MakePrivateDirectory(site.state, problem) && MakePrivateDirectory(temporary, problem) &&
         (!data.empty() || MakePrivateDirectory(site.data, problem)) &&
         MakeKey(site.state + "/sitekey", problem) && WriteConfiguration(site.state, problem);
}

}  // namespace vexa
