// MacroExpander: the character source of a script. A reference &[name] (also &amp;[name], with an
// optional ":encoding" behind the name and an optional ";" behind the bracket) is replaced by the
// variable's value before anybody else sees it, so macros may stand anywhere: in text, in tag
// names, in attribute values and in expressions.
//
//   file span --'&' begins a reference--> StartMacro() --value not empty--> expansion span
//       ^                                     | value empty, or no such variable      |
//       |<------------------------------------+                                       |
//       +<------------------------------ used up: EndExpansion() ---------------------+
//
// A place inside an expansion is the file position of its reference plus the offset within the
// expansion; going back there expands the reference again, with the value it has then.

#ifndef VEXA_ENGINE_MACRO_EXPANDER_H_
#define VEXA_ENGINE_MACRO_EXPANDER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "core/buffer.h"
#include "core/source_place.h"
#include "core/string.h"
#include "core/variables.h"
#include "vexa.h"

namespace vexa {

// A reference as it is written: a name, and the encoding its word selects.
struct MacroReference {
  String name;
  KnownName variable;                     // what the name means; set when the reference is noted
  std::optional<MacroEncoding> encoding;  // none: the default of the moment
  SourcePlace place;                      // of its '&'
  int64_t end = 0;                        // the offset behind it; -1 when the file ends first

  // The encoded value that it has now, in `room` where it had to be encoded. Valid until the next
  // operation on the variables.
  [[nodiscard]] std::string_view Value(Vexa& host, String& room) const;
  // The same of the variable that it means.
  [[nodiscard]] std::string_view ValueOf(Variable& found, Vexa& host, String& room) const;
  // And where there is no variable of that name: nothing, which JSON writes as "".
  [[nodiscard]] std::string_view ValueOfNothing() const;
};

// What stands between the brackets of a reference; without places.
[[nodiscard]] MacroReference ReferenceOf(std::string_view content);
// How many bytes open a reference at the start of `text`, 0 when none begins there.
[[nodiscard]] size_t ReferenceOpening(std::string_view text);
// The encoding of references without a word that a page asks for; what is no such word asks for
// none.
[[nodiscard]] MacroEncoding DefaultEncodingOf(std::string_view value);

class MacroExpander final : public Buffer {
 public:
  // `host` is borrowed; `size` is the block size in bytes.
  MacroExpander(Vexa& host, int size) : Buffer(host.filemanager(), size), host_(host) {
    watching_ = true;
  }

  // Switches expansion on or off. An expansion in progress is delivered to its end.
  void SetExpandMacros(bool expand);
  [[nodiscard]] bool expands() const { return expand_; }

  // From here on every reference that is met is added to `references` (null: no longer), and stands
  // for nothing when `vanish` is set.
  void NoteReferences(std::vector<MacroReference>* references, bool vanish) {
    noted_ = references;
    vanish_ = vanish;
  }

  [[nodiscard]] int64_t CurrentFilePosition() const override { return Place().position; }
  [[nodiscard]] SourcePlace Place() const override {
    return moved() ? SourcePlace{moved_to(), 0, line_} : PlaceRead();
  }
  bool Return(const SourcePlace& place) override {
    // Nothing was read since the last move, so no expansion is in progress either.
    if (!moved() || place.expansion_offset != 0) return ReturnTo(place);
    MoveOn(place);
    return true;
  }
  [[nodiscard]] bool inmacro() const override { return expanding_; }

 protected:
  int GetUncommonChar() override;
  void UnGetUncommonChar() override;
  bool NextSpan() override;
  size_t RunLength() override;

 private:
  enum class Reference { None, Empty, Started };

  SourcePlace PlaceRead() const;
  bool ReturnTo(const SourcePlace& place);
  Reference StartMacro();
  bool IsPlainAmpersand();
  bool ReadOpening();
  bool ReadName(String& name);
  void BeginExpansion();
  void EndExpansion();
  void DropExpansion();
  bool NextFileChar(char* c);

  Vexa& host_;
  bool expand_ = true;
  std::vector<MacroReference>* noted_ = nullptr;
  bool vanish_ = false;
  bool expanding_ = false;
  String expansion_;
  SourcePlace reference_;  // where the reference being delivered begins
  // The unread part of the file's block while an expansion stands in its place.
  const char* file_begin_ = nullptr;
  const char* file_next_ = nullptr;
  const char* file_limit_ = nullptr;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_MACRO_EXPANDER_H_
