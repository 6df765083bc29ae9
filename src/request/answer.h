// Answer: the response to one request. It begins with its head, which is begun and ended once; what
// follows is the page.
//
//   Waiting --StartHeaders--> InHead --AddHeader...--> InHead --EndHeaders--> InPage

#ifndef VEXA_REQUEST_ANSWER_H_
#define VEXA_REQUEST_ANSWER_H_

#include <cstdint>
#include <string_view>

#include "core/output.h"
#include "core/string.h"

namespace vexa {

// Where a response leaves the process. A derived class sends the bytes, counts what was taken, and
// notes when nobody takes more: what is written from then on is dropped.
class ResponseOutput : public Output {
 public:
  using Output::Output;
  // What has left the buffer and was taken.
  [[nodiscard]] int64_t written_bytes() const { return written_bytes_; }
  // Whether a write failed, so that nobody reads on.
  [[nodiscard]] bool broken() const { return broken_; }
  // Flushes what is the last of the response.
  virtual void Finish() { Flush(); }

 protected:
  int64_t written_bytes_ = 0;
  bool broken_ = false;
};

class Answer {
 public:
  // `output` is borrowed.
  explicit Answer(ResponseOutput& output) : output_(output) {}
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  [[nodiscard]] ResponseOutput& output() { return output_; }
  // Before the head begins: the type of the page, "text/html" at first.
  void SetContentType(const String& type) { content_type_ = type; }

  // REQUIRES: the head has not begun.
  void StartHeaders();
  // Writes one header line. REQUIRES: the head has begun and not ended.
  void AddHeader(std::string_view name, std::string_view value);
  // REQUIRES: the head has begun and not ended.
  void EndHeaders();

  // Whether the head has begun, and whether it has ended.
  [[nodiscard]] bool begun() const { return stage_ != Stage::Waiting; }
  [[nodiscard]] bool headers_ended() const { return stage_ == Stage::InPage; }

 private:
  enum class Stage { Waiting, InHead, InPage };

  ResponseOutput& output_;
  String content_type_ = "text/html";
  Stage stage_ = Stage::Waiting;
};

// The text of an HTTP status code; empty when the code is not known.
[[nodiscard]] std::string_view HTTPResultMessage(int code);

}  // namespace vexa

#endif  // VEXA_REQUEST_ANSWER_H_
