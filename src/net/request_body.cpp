// Forms and files on their way out.

#include "net/request_body.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "core/text.h"
#include "net/network_errors.h"

namespace vexa {

namespace {

String ReadingError(std::string_view name, std::string_view reason) {
  return String::Concat({"Error reading ", Quoted(name), ": ", reason});
}

void AppendEncoded(std::string_view text, String& form) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (IsAlpha(c) || IsDigit(c) || c == '-' || c == '_' || c == '.' || c == '*') {
      form.Accumulate(c);
    } else if (c == ' ') {
      form.Accumulate('+');
    } else {
      form.Accumulate('%');
      form.Accumulate(kDigits[byte >> 4]);
      form.Accumulate(kDigits[byte & 15]);
    }
  }
}

// As browsers write names into the head of a part.
String QuotedForPart(std::string_view name) {
  String quoted(name);
  quoted.gsub("\"", "%22");
  return quoted;
}

}  // namespace

void AddFormField(std::string_view name, std::string_view value, String& form) {
  if (!form.empty()) form.Accumulate('&');
  AppendEncoded(name, form);
  form.Accumulate('=');
  AppendEncoded(value, form);
}

void RequestBody::AddText(std::string_view text) {
  if (text.empty()) return;
  const auto size = static_cast<int64_t>(text.size());
  pieces_.push_back({String(text), nullptr, size});
  size_ += size;
}

bool RequestBody::AddFile(Vexa& host, const String& path, std::string_view name) {
  FileManager& files = host.filemanager();
  if (files.IsDirectory(path)) {
    problem_ = ReadingError(name, "It is a directory");
    return false;
  }
  std::unique_ptr<File> file = files.Open(path, OpenRead);
  const int64_t size = file == nullptr ? -1 : file->Length();
  if (size < 0) {
    problem_ = ReadingError(name, file == nullptr ? files.error() : file->error());
    return false;
  }
  pieces_.push_back({String(name), std::move(file), size});
  size_ += size;
  return true;
}

int64_t RequestBody::Read(char* buffer, size_t count) {
  while (piece_ < pieces_.size()) {
    Piece& piece = pieces_[piece_];
    const int64_t left = piece.size - offset_;
    if (left == 0) {
      ++piece_;
      offset_ = 0;
      continue;
    }
    count = std::min({count, static_cast<size_t>(left), size_t{INT_MAX}});
    if (piece.file != nullptr) return ReadFile(piece, buffer, count);
    std::memcpy(buffer, piece.text.data() + offset_, count);
    offset_ += static_cast<int64_t>(count);
    return static_cast<int64_t>(count);
  }
  return 0;
}

int64_t RequestBody::ReadFile(Piece& piece, char* buffer, size_t count) {
  const int got = piece.file->ReadAt(offset_, buffer, static_cast<int>(count));
  if (got > 0) {
    offset_ += got;
    return got;
  }
  // Its length was announced: a file that became shorter cannot be sent any more.
  const std::string_view reason = got < 0 ? piece.file->error().view() : "Unexpected end of file";
  problem_ = ReadingError(piece.text, reason);
  return -1;
}

void RequestBody::Rewind() {
  piece_ = 0;
  offset_ = 0;
}

MultipartForm::MultipartForm(RequestBody& body, String boundary)
    : body_(body), boundary_(std::move(boundary)) {}

void MultipartForm::BeginPart(std::string_view name, std::string_view more) {
  body_.AddText(String::Concat({"--", boundary_, "\r\nContent-Disposition: form-data; name=\"",
                                QuotedForPart(name), "\"", more, "\r\n\r\n"}));
}

void MultipartForm::AddField(std::string_view name, std::string_view value) {
  BeginPart(name, "");
  body_.AddText(value);
  body_.AddText("\r\n");
}

bool MultipartForm::AddFile(Vexa& host, std::string_view field, const String& path,
                            std::string_view name) {
  BeginPart(field, String::Concat({"; filename=\"", QuotedForPart(FileNameOf(name)),
                                   "\"\r\nContent-Type: ", ContentTypeOf(host, name)}));
  if (!body_.AddFile(host, path, name)) return false;
  body_.AddText("\r\n");
  return true;
}

String MultipartForm::End() {
  body_.AddText(String::Concat({"--", boundary_, "--\r\n"}));
  return "multipart/form-data; boundary=" + boundary_;
}

std::string_view FileNameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }

String ContentTypeOf(const Vexa& host, std::string_view name) {
  const std::string_view file = FileNameOf(name);
  const size_t point = file.rfind('.');
  const String* type =
      point == std::string_view::npos ? nullptr : host.FindContentType(file.substr(point + 1));
  return type == nullptr || type->empty() ? String("application/octet-stream") : *type;
}

}  // namespace vexa
