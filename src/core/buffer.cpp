// Buffer: blocks of the file and the way between them.

#include "core/buffer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/file.h"

namespace vexa {

Buffer::Buffer(FileManager& files, int size)
    : files_(files),
      size_(size < 1 ? 1 : size),
      block_(std::make_unique_for_overwrite<char[]>(static_cast<size_t>(size_))) {
  span_begin_ = next_ = limit_ = block_.get();
}

Buffer::~Buffer() = default;

bool Buffer::Open(const String& filename, const String& errorname) {
  return Read(files_.Open(filename, OpenRead), filename, errorname);
}

bool Buffer::Read(std::unique_ptr<File> file, const String& filename, const String& errorname) {
  filename_ = filename;
  errorname_ = errorname;
  Close();
  file_ = std::move(file);
  return file_ != nullptr && FillBuffer(0);
}

const String& Buffer::error() const { return file_ == nullptr ? files_.error() : file_->error(); }

bool Buffer::Status(struct stat& status) const {
  return file_ != nullptr && file_->Status(status) == 0;
}

void Buffer::Close() {
  file_.reset();
  base_ = 0;
  filled_ = 0;
  moved_to_ = -1;
  span_begin_ = next_ = limit_ = block_.get();
}

// Makes the block the one that begins at `base`. On failure the buffer stands at the end there.
bool Buffer::FillBuffer(int64_t base) {
  base_ = base;
  int count = file_ == nullptr ? -1 : file_->ReadAt(base, block_.get(), size_);
  filled_ = std::max(count, 0);
  span_begin_ = next_ = block_.get();
  limit_ = next_ + filled_;
  ampersand_ = nullptr;
  return count >= 0;
}

bool Buffer::NextBlock() {
  if (moved() && (!Seek(moved_to_) || next_ != limit_)) return next_ != limit_;
  if (filled_ < size_) return false;  // A partly filled block is the last one.
  return FillBuffer(base_ + filled_) && filled_ > 0;
}

int Buffer::GetUncommonChar() {
  if (next_ == limit_ && !NextBlock()) return -1;
  if (*next_ == '\n') line_ += counting_;
  return static_cast<unsigned char>(*next_++);
}

void Buffer::UnGetUncommonChar() {
  if (moved()) (void)Seek(moved_to_);
  if (next_ == span_begin_) {
    if (base_ == 0) return;
    int64_t before = base_ - 1;
    int64_t base = std::max<int64_t>(base_ - size_, 0);
    if (!FillBuffer(base) || before - base >= filled_) return;
    next_ = block_.get() + (before - base) + 1;
  }
  --next_;
  if (*next_ == '\n') line_ -= counting_;
}

bool Buffer::NextSpan() { return NextBlock(); }

std::string_view Buffer::Run() {
  for (;;) {
    if (next_ == limit_ && !NextSpan()) return {};
    size_t length = RunLength();
    if (length > 0) return {next_, length};
  }
}

void Buffer::Take(size_t count) {
  const char* end = next_ + count;
  if (counting_ != 0) {
    for (const char* at = next_; at != end; ++at) {
      at = static_cast<const char*>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
      if (at == nullptr) break;
      ++line_;
    }
  }
  next_ = end;
}

bool Buffer::Seek(int64_t offset) {
  if (moved()) limit_ = block_.get() + filled_;
  moved_to_ = -1;
  if (offset >= base_ && offset <= base_ + filled_ && span_begin_ == block_.get()) {
    next_ = block_.get() + (offset - base_);
    ampersand_ = nullptr;
    return true;
  }
  return FillBuffer(offset);
}

int64_t Buffer::CurrentFilePosition() const { return FilePosition(next_); }

SourcePlace Buffer::Place() const { return {CurrentFilePosition(), 0, line_}; }

bool Buffer::Return(const SourcePlace& place) {
  line_ = place.line;
  return Seek(place.position);
}

}  // namespace vexa
