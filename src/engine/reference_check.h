// ReferenceCheck: how the references of a script are written, for people who want to know whether a
// value can say more there than it should.
//
// It is told of a script piece by piece, in order: text, tags of other languages, tags of ours.
// What a value can do depends on where it comes to stand for the browser:
//
//   text ── <script ...> ─▶ script ── </script ─▶ text
//   in a tag: between double quotes, between single quotes, outside of both
//
// Only what is certain to be read so is looked at: which branch of a page runs is not known, so a
// setting counts from its line on.

#ifndef VEXA_ENGINE_REFERENCE_CHECK_H_
#define VEXA_ENGINE_REFERENCE_CHECK_H_

#include <cstddef>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "core/encoding.h"
#include "core/string.h"

namespace vexa {

class ReferenceCheck {
 public:
  // Receives what is found: a line, from 1, and a message (HTML).
  using Report = std::function<void(int line, std::string_view message)>;

  // `encoding` is that of references without a word at the start of a script.
  ReferenceCheck(MacroEncoding encoding, Report report)
      : default_(encoding), report_(std::move(report)) {}

  // A piece of text or a line end; `line` is the one behind it. What is written in one may go on in
  // the next.
  void AddText(std::string_view piece, int line);
  // A tag of another language, or a comment, as written; `line` is that of its end.
  void AddForeignTag(std::string_view raw, int line);
  // A tag of ours: what stands behind its name, and the line where that begins. `constants` are the
  // texts of all constants in its expressions.
  void AddTag(std::string_view raw, int line, const std::vector<String>& constants);
  // The last text ended, at a tag of ours or the end of the script.
  void EndText();

  // What the settings of the script say from here on.
  void SetDefault(MacroEncoding encoding) { default_ = encoding; }
  void SetExpandMacros(bool expand) { expands_ = expand; }

 private:
  // Where the value of a reference comes to stand.
  enum class Where { Text, Script, Quoted, SingleQuoted, Unquoted, Constant };
  struct Written;

  void CheckPiece(std::string_view text, int line);
  void CheckAttributes(std::string_view raw, int line);
  void Check(const Written& written, Where where, int line);
  void Tell(int line, const Written& written, std::string_view problem);

  MacroEncoding default_;
  Report report_;
  bool expands_ = true;
  bool in_script_ = false;
  String text_;        // that has not been looked at
  int text_line_ = 1;  // where it begins
};

}  // namespace vexa

#endif  // VEXA_ENGINE_REFERENCE_CHECK_H_
