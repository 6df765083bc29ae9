// UNIXLogFile: the activity log of a site, one line an event:
//
//   2026-03-01T14:05:09+01:00 <TAB> 4711 <TAB> anna <TAB> /srv/site/index.vx <TAB> EVENT <TAB>
//   detail
//
// Time is local; then come the process, the owner of the script, the script, the event, what there
// is to say about it. Owner and script are "-" before they are known. Backslashes and control bytes
// of a text are written as \xNN, so that what a visitor sends can neither end a line nor begin one.
// All processes append to one file; each line is one write, which the system keeps whole.

#ifndef VEXA_FILES_ACTIVITY_LOG_H_
#define VEXA_FILES_ACTIVITY_LOG_H_

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/string.h"
#include "vexa.h"

namespace vexa {

// Whose script a request runs.
struct LogSubject {
  String owner;
  uid_t uid = static_cast<uid_t>(-1);
  gid_t gid = static_cast<gid_t>(-1);
  String script;  // its path
  String data_directory;
};

// `text` as it stands in a line of a log, cut behind `longest` bytes or a few more.
[[nodiscard]] String LogText(std::string_view text, size_t longest);

class UNIXLogFile final : public ActivityLog {
 public:
  // Longer details are cut, so that one event cannot fill the disk. In bytes as written.
  static constexpr size_t kLongestDetail = 8192;

  // Silent until it is opened.
  UNIXLogFile() = default;
  ~UNIXLogFile() override;
  UNIXLogFile(const UNIXLogFile&) = delete;
  UNIXLogFile& operator=(const UNIXLogFile&) = delete;

  // Opens the log at `path`, creating it when missing, for events of up to `level`. False, with the
  // reason in errno, when that fails.
  [[nodiscard]] bool Open(const String& path, int level);
  // The same, of a log that nobody but root could have put there; one to be made belongs to root
  // and its group, whoever started the program.
  [[nodiscard]] bool OpenTrusted(const String& path, int level);
  [[nodiscard]] bool IsOpen() const { return descriptor_ >= 0; }
  void SetSubject(const LogSubject& subject);

  // The script begins, and has ended after `bytes` of response were written.
  void ScriptStarted();
  void ScriptEnded(int64_t bytes);

  void Write(LogLevel level, std::string_view event, std::string_view detail) override;

 private:
  [[nodiscard]] bool Take(int descriptor, int level);

  int descriptor_ = -1;
  int level_ = 0;
  // Escaped, as they stand in a line.
  String owner_ = "-";
  String script_ = "-";
  String identity_;  // the detail of the start
  std::chrono::steady_clock::time_point started_;
};

}  // namespace vexa

#endif  // VEXA_FILES_ACTIVITY_LOG_H_
