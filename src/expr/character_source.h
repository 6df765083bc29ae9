// Where the expression reader takes its characters from: the running script, or a finished text.

#ifndef VEXA_EXPR_CHARACTER_SOURCE_H_
#define VEXA_EXPR_CHARACTER_SOURCE_H_

#include <cstdint>
#include <string_view>

#include "core/source_place.h"

namespace vexa {

class CharacterSource {
 public:
  virtual ~CharacterSource() = default;
  // The next byte (0 to 255), or -1 at the end.
  virtual int NextChar() = 0;
  // Puts the byte last read back. REQUIRES: that byte was not the end; once after each read.
  virtual void PutBack() = 0;
  // The place reading stands at, and the way back to it. For looking ahead over any distance.
  [[nodiscard]] virtual SourcePlace Place() const = 0;
  virtual void Return(const SourcePlace& place) = 0;
};

// A finished text as a source. The text is borrowed.
class TextSource final : public CharacterSource {
 public:
  explicit TextSource(std::string_view text) : text_(text) {}
  int NextChar() override {
    return next_ < text_.size() ? static_cast<unsigned char>(text_[next_++]) : -1;
  }
  void PutBack() override { --next_; }
  [[nodiscard]] SourcePlace Place() const override { return {static_cast<int64_t>(next_), 0, 0}; }
  void Return(const SourcePlace& place) override { next_ = static_cast<size_t>(place.position); }

 private:
  std::string_view text_;
  size_t next_ = 0;
};

}  // namespace vexa

#endif  // VEXA_EXPR_CHARACTER_SOURCE_H_
