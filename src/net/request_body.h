// The body of a call: pieces of text, and files that are read while they are sent.

#ifndef VEXA_NET_REQUEST_BODY_H_
#define VEXA_NET_REQUEST_BODY_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/file.h"
#include "core/string.h"
#include "vexa.h"

namespace vexa {

// Appends `name=value` to a form, encoded, behind a "&" when it is not the first.
void AddFormField(std::string_view name, std::string_view value, String& form);

class RequestBody {
 public:
  void AddText(std::string_view text);
  // Adds the file at `path` (a finished path), as long as it is now. False with problem() set.
  // `name` is what messages call it.
  [[nodiscard]] bool AddFile(Vexa& host, const String& path, std::string_view name);

  // Bytes of the whole.
  [[nodiscard]] int64_t size() const { return size_; }
  // Copies the next bytes, up to `count`. Their number, 0 at the end, -1 with problem() set.
  [[nodiscard]] int64_t Read(char* buffer, size_t count);
  // Goes back to the start.
  void Rewind();
  [[nodiscard]] const String& problem() const { return problem_; }

 private:
  struct Piece {
    String text;                 // the text, or the name of the file
    std::unique_ptr<File> file;  // null for a text
    int64_t size = 0;
  };
  [[nodiscard]] int64_t ReadFile(Piece& piece, char* buffer, size_t count);

  std::vector<Piece> pieces_;
  int64_t size_ = 0;
  size_t piece_ = 0;    // the piece that is read
  int64_t offset_ = 0;  // how much of it was read
  String problem_;
};

// Builds a multipart/form-data body.
class MultipartForm {
 public:
  // `boundary` occurs in none of its parts.
  MultipartForm(RequestBody& body, String boundary);
  void AddField(std::string_view name, std::string_view value);
  // False with the body's problem() set.
  [[nodiscard]] bool AddFile(Vexa& host, std::string_view field, const String& path,
                             std::string_view name);
  // Behind the last part. Returns the content type.
  [[nodiscard]] String End();

 private:
  void BeginPart(std::string_view name, std::string_view more);

  RequestBody& body_;
  String boundary_;
};

// The part of a path or name behind its last "/".
[[nodiscard]] std::string_view FileNameOf(std::string_view path);
// The content type that the site gives files of that name, else application/octet-stream.
[[nodiscard]] String ContentTypeOf(const Vexa& host, std::string_view name);

}  // namespace vexa

#endif  // VEXA_NET_REQUEST_BODY_H_
