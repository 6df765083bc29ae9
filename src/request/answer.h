// Answer: the response to one request: its head, which is held until the first byte of the page
// leaves the buffer, and what is sent behind it.
//
//   Waiting --StartHeaders--> InHead --EndHeaders--> Held --first byte, Finish--> Begun
//
// What a page asks for (AnswerHead in vexa.h) is kept here until then. Behind the head goes the
// text of the page; or a file; or nothing, for a redirect and where HTTP allows no text. Text that
// is not sent stays in the buffer as long as the head is held, since an error or another status may
// still make it the answer; what leaves the buffer then is dropped.

#ifndef VEXA_REQUEST_ANSWER_H_
#define VEXA_REQUEST_ANSWER_H_

#include <memory>
#include <string_view>
#include <vector>

#include "core/environment.h"
#include "core/string.h"
#include "request/response_output.h"
#include "vexa.h"

namespace vexa {

class SentFile;

class Answer final : public AnswerHead, private ResponseGate {
 public:
  // All are borrowed; `output` outlives the answer.
  Answer(ResponseOutput& output, Vexa& host, const Environment& request);
  ~Answer();
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  [[nodiscard]] ResponseOutput& output() { return output_; }
  // Before the head begins: the type of the page, "text/html" at first.
  void SetPageType(const String& type) { page_type_ = type; }

  // REQUIRES: the head was not started.
  void StartHeaders();
  // Keeps the value of the identifying cookie's header. REQUIRES: started and not ended.
  void SetIdentifyingCookie(String cookie);
  // From here on the head goes out before the first byte. REQUIRES: started and not ended.
  void EndHeaders();
  [[nodiscard]] bool started() const { return stage_ != Stage::Waiting; }
  [[nodiscard]] bool headers_ended() const { return stage_ >= Stage::Held; }

  // An error ends the request, with that HTTP status where the site wants errors to have one. As
  // PageStops.
  void Fail(int status);
  // Whether text that is written now is not for the reader: it is not worth flushing.
  [[nodiscard]] bool withholds_text() const { return stage_ == Stage::Held && !has_text(); }
  // The page is over and all that it had open is closed: sends what is left, and the file. Nothing
  // when the head was never ended.
  void Finish();

  // --- AnswerHead
  [[nodiscard]] bool begun() const override { return stage_ == Stage::Begun; }
  [[nodiscard]] String SetStatus(std::string_view code) override;
  [[nodiscard]] String SetHeader(std::string_view name, std::string_view value) override;
  [[nodiscard]] bool HasHeader(std::string_view name) const override;
  [[nodiscard]] String Redirect(std::string_view address) override;
  [[nodiscard]] String RedirectAway(std::string_view address) override;
  [[nodiscard]] String SendFile(const String& path, std::string_view type,
                                std::string_view name) override;
  [[nodiscard]] String SetVersion(std::string_view version, bool& unchanged) override;
  [[nodiscard]] String SetCookie(std::string_view name, std::string_view value,
                                 std::string_view options) override;
  [[nodiscard]] String Cookie(std::string_view name) const override;
  void PageStops() override { Fail(500); }
  [[nodiscard]] bool SendHeld(void (*send)(void* sender, std::string_view piece),
                              void* sender) override;

 private:
  enum class Stage { Waiting, InHead, Held, Begun };
  // What is sent behind the head.
  enum class Body { Page, Elsewhere, File };  // Elsewhere: nothing, the browser goes to location_

  enum class Origin { SetHeader, SetCookie, SetVersion };

  struct Header {
    String name;
    String value;
    Origin origin = Origin::SetHeader;
    String place;  // of a cookie that SetCookie made
  };

  [[nodiscard]] int PassOn(std::string_view text) override;
  [[nodiscard]] int SendHead(std::string_view text);
  // Calls `put` with the pieces of the head, in order. Uses no heap.
  template <typename Put>
  void ForEachPiece(Put put) const;
  template <typename Line>
  void ForEachFileHeader(Line line) const;

  // The status line's code, 0 for none.
  [[nodiscard]] int status() const;
  [[nodiscard]] bool has_text() const { return body_ == Body::Page && !IsBare(status_); }
  // Whether an answer with that status has no text.
  [[nodiscard]] static bool IsBare(int status) {
    return status == 204 || status == 205 || status == 304;
  }
  [[nodiscard]] bool Counts(const Header& header) const {
    return version_stands_ || header.origin != Origin::SetVersion;
  }
  String GoTo(std::string_view address);
  void EraseHeaders(std::string_view name);

  ResponseOutput& output_;
  Vexa& host_;
  const Environment& request_;
  Stage stage_ = Stage::Waiting;
  Body body_ = Body::Page;
  int status_ = 0;          // as set; 0: none
  bool unchanged_ = false;  // status_ is the 304 of SetVersion
  bool ending_ = false;     // the page is over: the head goes also without text
  String page_type_ = "text/html";
  String type_;  // in its place, when the page has set one
  String identifying_cookie_;
  std::vector<Header> headers_;
  bool version_stands_ = true;  // false: the answer is not the version that SetVersion was told of
  String location_;
  std::unique_ptr<SentFile> file_;
  String file_type_;
  String disposition_;  // empty: none
};

// The text of an HTTP status code; empty when the code is not known.
[[nodiscard]] std::string_view HTTPResultMessage(int code);

}  // namespace vexa

#endif  // VEXA_REQUEST_ANSWER_H_
