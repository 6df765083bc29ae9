// SentFile: a data file that is the answer of a page, or a part of it.
//
// The file is opened when the page names it, through the file manager, which keeps the locks that
// the page holds on it; it is read and sent when the page is over, in pieces, so that no file is
// too large. What the browser has of it already is decided when it is opened.

#ifndef VEXA_REQUEST_SENT_FILE_H_
#define VEXA_REQUEST_SENT_FILE_H_

#include <cstdint>
#include <memory>
#include <string_view>

#include "core/environment.h"
#include "core/file.h"
#include "core/string.h"
#include "request/file_conditions.h"
#include "request/response_output.h"
#include "vexa.h"

namespace vexa {

class SentFile {
 public:
  // Opens the data file `path`. Null with `problem` set, a message, when it cannot be sent. `host`
  // is borrowed.
  [[nodiscard]] static std::unique_ptr<SentFile> Open(Vexa& host, const String& path,
                                                      String& problem);
  // Decides what becomes of it: for a GET or HEAD that asks so a part of it (206), nothing because
  // the browser has it (304) or asks for bytes that are not there (416).
  void Choose(const Environment& request);
  // The whole of it, under a status that the page has set.
  void ChooseWhole();

  // 200 as long as nothing else is to be said.
  [[nodiscard]] int status() const { return part_.status; }
  // Whether Send has something to send.
  [[nodiscard]] bool has_body() const { return !head_only_ && part_.length > 0; }
  // How many bytes Send has for a reader who wants more than the head.
  [[nodiscard]] int64_t size() const { return part_.length; }
  // Texts for the head. The range is empty when it is the whole file.
  [[nodiscard]] const String& content_range() const { return content_range_; }
  [[nodiscard]] const FileVersion& version() const { return version_; }

  // Sends what has_body tells of. The time limit begins anew with each piece, so that a reader is
  // given up who does not take one in time.
  void Send(ResponseOutput& output);

 private:
  SentFile(Vexa& host, const String& path) : host_(host), path_(path) {}
  [[nodiscard]] bool Open(const String& resolved, String& reason);

  Vexa& host_;
  String path_;  // as the page wrote it
  std::unique_ptr<File> file_;
  int64_t length_ = 0;
  FileVersion version_;
  FilePart part_;
  String content_range_;
  bool head_only_ = false;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_SENT_FILE_H_
