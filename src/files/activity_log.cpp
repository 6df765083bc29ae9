// Writing the activity log.

#include "files/activity_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>

#include "core/late_function.h"
#include "core/number.h"
#include "files/descriptor.h"
#include "files/trusted_file.h"

namespace vexa {

namespace {

constexpr mode_t kPermissions = 0640;  // a group may be given the right to read it

String Escaped(const String& text) {
  return text.empty() ? String("-") : LogText(text, String::kLongestText);
}

// The local time as ISO 8601 writes it, with the offset from UTC.
String Timestamp() {
  const time_t now = std::time(nullptr);
  tm local;
  if (::localtime_r(&now, &local) == nullptr) return "-";
  char text[64];
  const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local);
  // The colon that strftime leaves out: +0100 is +01:00.
  const std::string_view stamp(text, length);
  if (length < 2) return "-";
  return String::Concat({stamp.substr(0, length - 2), ":", stamp.substr(length - 2)});
}

// A pipe without a reader is refused rather than waited for, and a full one loses lines.
int OpenLog(const String& path, int more) {
  const int flags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | more;
  return RetryInterrupted([&] { return ::open(path.c_str(), flags, kPermissions); });
}

// Makes the log at `path` in a directory that only root may change. True when there is something
// now, whoever made it.
bool MakeTrustedLog(const String& path) {
  const size_t slash = path.view().rfind('/');
  if (slash == std::string_view::npos) return false;
  TrustedFile directory(0);
  if (!directory.CheckDirectory(String(path.view().substr(0, slash + 1)))) return false;
  const String place = String::Concat({directory.resolved(), "/", path.view().substr(slash + 1)});
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  const int made = RetryInterrupted([&] { return ::open(place.c_str(), flags, 0600); });
  if (made < 0) return errno == EEXIST;
  // The group that whoever started the program is in must not read it, not even for a moment.
  const bool given = LateFunction<"fchown", decltype(::fchown)>()(made, 0, 0) == 0 &&
                     ::fchmod(made, kPermissions) == 0;
  CloseQuietly(made);
  return given;
}

}  // namespace

String LogText(std::string_view text, size_t longest) {
  String out;
  out.Reserve(text.size());
  for (const char c : text) {
    if (out.size() >= longest) {
      out.cat("...");
      break;
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ' ' && byte != 0x7F && c != '\\') {
      out.Accumulate(c);
      continue;
    }
    char code[8];
    std::snprintf(code, sizeof code, "\\x%02X", byte);
    out.cat(code);
  }
  return out;
}

UNIXLogFile::~UNIXLogFile() {
  if (descriptor_ >= 0) CloseQuietly(descriptor_);
}

bool UNIXLogFile::Open(const String& path, int level) {
  if (ContainsNul(path)) {
    errno = EINVAL;
    return false;
  }
  return Take(OpenLog(path, O_CREAT), level);
}

bool UNIXLogFile::OpenTrusted(const String& path, int level) {
  TrustedFile trusted(0);
  bool good = trusted.Check(path);
  if (!good && trusted.unreachable()) good = MakeTrustedLog(path) && trusted.Check(path);
  const int opened = good ? OpenLog(trusted.resolved(), O_NOFOLLOW) : -1;
  struct stat status;
  if (opened >= 0 && (::fstat(opened, &status) != 0 || !trusted.IsChecked(status))) {
    CloseQuietly(opened);
    return false;
  }
  return Take(opened, level);
}

bool UNIXLogFile::Take(int descriptor, int level) {
  if (descriptor < 0) return false;
  if (descriptor_ >= 0) CloseQuietly(descriptor_);
  descriptor_ = descriptor;
  level_ = level;
  return true;
}

void UNIXLogFile::SetSubject(const LogSubject& subject) {
  owner_ = Escaped(subject.owner);
  script_ = Escaped(subject.script);
  const auto id = [](int64_t number) {
    return number == int64_t{UINT32_MAX} ? String("-") : PrintInteger(number);
  };
  identity_ = String::Concat(
      {"uid=", id(subject.uid), " gid=", id(subject.gid), " data=", subject.data_directory});
}

void UNIXLogFile::ScriptStarted() {
  started_ = std::chrono::steady_clock::now();
  Write(LogLevel::Script, "SCRIPTSTARTED", identity_);
}

void UNIXLogFile::ScriptEnded(int64_t bytes) {
  if (!IsOpen()) return;
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - started_;
  Write(LogLevel::Script, "SCRIPTENDED",
        String::Concat(
            {"seconds=", PrintRounded(elapsed.count(), 3), " bytes=", PrintInteger(bytes)}));
}

void UNIXLogFile::Write(LogLevel level, std::string_view event, std::string_view detail) {
  if (descriptor_ < 0 || static_cast<int>(level) > level_) return;
  const int reason = errno;  // Logging must not disturb the error that is being reported.
  const String line =
      String::Concat({Timestamp(), "\t", PrintInteger(::getpid()), "\t", owner_, "\t", script_,
                      "\t", event, "\t", LogText(detail, kLongestDetail), "\n"});
  // Nothing is left to do about a line that cannot be written.
  (void)RetryInterrupted([&] { return ::write(descriptor_, line.data(), line.size()); });
  errno = reason;
}

}  // namespace vexa
