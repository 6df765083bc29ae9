// Telling of hidden errors.

#include "host/hidden_errors.h"

#include <poll.h>
#include <unistd.h>

#include <cassert>
#include <cstdio>

#include "files/activity_log.h"

namespace vexa {

namespace {

// One write that a pipe takes whole and at once. Who has left, or does not read, gets nothing: a
// server that reads standard error only behind the page would wait for ever, and so would the page.
void WriteToStandardError(const String& line) {
  pollfd errors{STDERR_FILENO, POLLOUT, 0};
  if (poll(&errors, 1, 0) == 1 && errors.revents == POLLOUT) {
    (void)!write(STDERR_FILENO, line.data(), line.size());
  }
}

}  // namespace

void HiddenErrors::Begin(uint32_t chance) {
  assert(none());
  char text[8];
  std::snprintf(text, sizeof text, "%04X-%02X", chance >> 16, chance & 0xFF);
  reference_ = text;
}

void HiddenErrors::Tell(ActivityLog& log, std::string_view file, std::string_view message) {
  if (count_ == kMost) return;
  ++count_;
  log.Write(LogLevel::Errors, "ERROR", String::Concat({reference_, ": ", message}));
  constexpr size_t kLongestPart = 1500;  // so that path and message fit into one piece
  WriteToStandardError(
      String::Concat({"vexa: ", reference_, ": ", LogText(file, kLongestPart),
                      file.empty() ? "" : ": ", LogText(message, kLongestPart), "\n"}));
}

String HiddenErrors::shown() const {
  return String::Concat({"This page has an error. Reference: ", reference_});
}

}  // namespace vexa
