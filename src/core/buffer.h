// Buffer: a file read in blocks, byte by byte or as runs of bytes, with lines counted on the way.
//
// Bytes are handed out from the current span [next_, limit_). For a plain Buffer the span is the
// unread part of the block. A subclass may put another text in its place for a while (a macro's
// expansion) and may ask to see every '&' before it is handed out; reading a byte that is neither
// stays free of virtual calls.
//
// Every line feed of the file counts once, when it is consumed; putting it back uncounts it. Line
// feeds of an expansion never count.

#ifndef VEXA_CORE_BUFFER_H_
#define VEXA_CORE_BUFFER_H_

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include "core/source_place.h"
#include "core/string.h"

namespace vexa {

class File;
class FileManager;

class Buffer {
 public:
  // `files` is borrowed; `size` is the block size in bytes (at least 1).
  Buffer(FileManager& files, int size);
  virtual ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  // Opens `filename`, which messages call `errorname`, and reads its first block. False when it
  // cannot be opened or read; error() then tells why.
  [[nodiscard]] bool Open(const String& filename, const String& errorname);
  // The same with a file that is open.
  [[nodiscard]] bool Read(std::unique_ptr<File> file, const String& filename,
                          const String& errorname);
  // Why the last Open failed. Valid until the next operation on files.
  [[nodiscard]] const String& error() const;
  void Close();
  // What the system knows of the open file. False when it cannot tell, or none is open.
  [[nodiscard]] bool Status(struct stat& status) const;

  // The next byte (0 to 255), or -1 at the end of the file (also after a read error).
  int GetNextChar() {
    if (next_ != limit_ && (*next_ != '&' || !watching_)) [[likely]] {
      if (*next_ == '\n') line_ += counting_;
      return static_cast<unsigned char>(*next_++);
    }
    return GetUncommonChar();
  }
  // Puts the byte last read back. REQUIRES: a byte was read since the last Seek.
  void UnGetChar() {
    if (next_ - span_begin_ > 1 || (next_ != span_begin_ && counting_ != 0)) [[likely]] {
      --next_;
      if (*next_ == '\n') line_ -= counting_;
    } else {
      UnGetUncommonChar();
    }
  }

  // The unread bytes that can be had without another look at the file, never empty before the end
  // of the file. Where '&' is watched the run ends before it, unless it is plain text.
  // Valid until the next operation.
  [[nodiscard]] std::string_view Run();
  // Consumes `count` bytes of the run, counting the lines in them.
  void Take(size_t count);
  // The same for bytes that are known to hold no line feed.
  void TakeWithinLine(size_t count) { next_ += count; }

  // Moves to a byte offset of the file; the line stays as it is. False when the file cannot be
  // read there.
  bool Seek(int64_t offset);
  // The offset in the file of the next byte; inside an expansion, where its reference begins.
  [[nodiscard]] virtual int64_t CurrentFilePosition() const;
  // The place reading stands at, and the way back to it. An expansion in progress is dropped; a
  // place inside one expands it again.
  [[nodiscard]] virtual SourcePlace Place() const;
  virtual bool Return(const SourcePlace& place);
  // The same for a place of the file itself, without looking at the file before somebody reads.
  void ReturnLater(const SourcePlace& place) {
    line_ = place.line;
    moved_to_ = place.position;
    span_begin_ = next_ = limit_ = block_.get();
  }
  // Whether bytes of a macro expansion are being delivered.
  [[nodiscard]] virtual bool inmacro() const { return false; }

  [[nodiscard]] int line() const { return line_; }
  void SetLine(int line) { line_ = line; }
  [[nodiscard]] const String& filename() const { return filename_; }
  [[nodiscard]] const String& errorname() const { return errorname_; }

 protected:
  // What reading does when the span is used up or an '&' is watched for; the subclass's hook.
  // Returns the next byte or -1.
  virtual int GetUncommonChar();
  // Putting back across the start of the span.
  virtual void UnGetUncommonChar();
  // What follows the span when it is used up, for Run: true when a new span stands ready.
  virtual bool NextSpan();
  // How many bytes of the span may be handed out as a run.
  virtual size_t RunLength() { return static_cast<size_t>(limit_ - next_); }

  // Makes the unread bytes that follow the span available: those at the place that reading is to
  // go on at, or the next block. False at the end of the file.
  bool NextBlock();
  // Whether reading is to go on at a place that was not looked at yet; the span is empty then.
  [[nodiscard]] bool moved() const { return moved_to_ >= 0; }
  // The offset that it is to go on at. REQUIRES: moved().
  [[nodiscard]] int64_t moved_to() const { return moved_to_; }
  // Another such offset. REQUIRES: moved().
  void MoveOn(const SourcePlace& place) {
    line_ = place.line;
    moved_to_ = place.position;
  }
  // The file offset of a byte of the block.
  [[nodiscard]] int64_t FilePosition(const char* byte) const {
    return moved() ? moved_to_ : base_ + (byte - block_.get());
  }

  const char* span_begin_ = nullptr;
  const char* next_ = nullptr;
  const char* limit_ = nullptr;
  bool watching_ = false;  // an '&' in the span needs a look before it is handed out
  int counting_ = 1;       // 1 while the span is the file's own text, else 0
  int line_ = 1;
  // For a subclass that watches for '&': the next one of the block that it has to look at, or
  // limit_. It is at or behind next_.
  // Null when it is not known; every jump and every new block resets it.
  const char* ampersand_ = nullptr;

 private:
  [[nodiscard]] bool FillBuffer(int64_t base);

  FileManager& files_;
  std::unique_ptr<File> file_;
  int size_;
  std::unique_ptr<char[]> block_;
  int64_t base_ = 0;       // file offset of the block's first byte
  int filled_ = 0;         // valid bytes in the block
  int64_t moved_to_ = -1;  // the offset that reading goes on at; -1: it is at next_
  String filename_;
  String errorname_;
};

}  // namespace vexa

#endif  // VEXA_CORE_BUFFER_H_
