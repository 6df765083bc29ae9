// Opening, judging and sending the file.

#include "request/sent_file.h"

#include <algorithm>

#include "core/encoding.h"
#include "core/file_access.h"
#include "core/number.h"

namespace vexa {

namespace {

constexpr size_t kPieceBytes = 65536;  // read at once, and taken within one time limit

String ReadError(const String& path, std::string_view reason) {
  return String::Concat({"Error reading '", ShownInMessage(path), "': ", reason});
}

}  // namespace

std::unique_ptr<SentFile> SentFile::Open(Vexa& host, const String& path, String& problem) {
  String resolved;
  if (host.ResolvePath(path, resolved, PathType::DataPath, problem) == 0) return nullptr;
  std::unique_ptr<SentFile> file(new SentFile(host, path));
  String reason;
  if (file->Open(resolved, reason)) return file;
  problem = ReadError(path, reason);
  return nullptr;
}

// What its path names now may be another file than a moment ago; time and length must be those of
// the one that is open.
bool SentFile::Open(const String& resolved, String& reason) {
  FileStamp stamp;
  int named = 0;
  for (int i = 0; named == 0 && i < kMostReplacements; ++i) {
    file_ = host_.filemanager().Open(resolved, OpenRead);
    if (file_ == nullptr) {
      reason = host_.filemanager().error();
      return false;
    }
    named = file_->StillNamed(NameCheck::ByPath, stamp);
  }
  char first;  // A directory can be opened, and no more.
  if (named <= 0 || file_->ReadAt(0, &first, 1) < 0) {
    reason = file_->error();
    return false;
  }
  file_->KeepOpen();  // Its length is promised, whatever others do to the path.
  length_ = part_.length = stamp.length;
  version_ = VersionOf(stamp);
  return true;
}

void SentFile::Choose(const Environment& request) {
  const std::string_view method = request.Value("REQUEST_METHOD");
  head_only_ = method == "HEAD";
  if (method != "GET" && !head_only_) return;
  part_ =
      ChooseFilePart({request.Value("HTTP_RANGE"), request.Value("HTTP_IF_RANGE"),
                      request.Value("HTTP_IF_NONE_MATCH"), request.Value("HTTP_IF_MODIFIED_SINCE")},
                     version_, length_);
  if (part_.status == 206) {
    content_range_ =
        String::Concat({"bytes ", PrintInteger(part_.first), "-",
                        PrintInteger(part_.first + part_.length - 1), "/", PrintInteger(length_)});
  } else if (part_.status == 416) {
    content_range_ = String::Concat({"bytes */", PrintInteger(length_)});
  }
}

void SentFile::ChooseWhole() {
  part_ = {200, 0, length_};
  content_range_.clear();
}

void SentFile::Send(ResponseOutput& output) {
  char piece[kPieceBytes];
  int64_t offset = part_.first;
  const int64_t end = offset + part_.length;
  while (offset < end) {
    host_.ResetGlobalTimeout();
    if (output.broken() || host_.timedout()) return;
    const auto wanted = static_cast<int>(std::min<int64_t>(end - offset, kPieceBytes));
    const int got = file_->ReadAt(offset, piece, wanted);
    if (got <= 0) {
      // The length was promised: nothing can be said any more but in the log.
      const String reason = got < 0 ? file_->error() : String(kUnexpectedEnd);
      host_.logfile().Write(LogLevel::Errors, "ERROR", ReadError(path_, reason));
      return;
    }
    output.SendNow({piece, static_cast<size_t>(got)});
    offset += got;
  }
}

}  // namespace vexa
