// The states of localized text.
//
//   LocalizedState       an open VxLOCALIZED block: its tokens, and which of its texts is shown
//   LocalizedTextState   a VxLOCALIZED-TEXT block that is being shown
//
// A text whose language fits the page's is shown where it stands, any other is skipped. The closing
// tag of the block shows the first skipped text in the default language when none was shown; the
// script then goes back to that text, and from its end on behind the block:
//
//   <VxLOCALIZED> ... skipped text ... </VxLOCALIZED>
//                     ^ body_ --------- ^ end_

#ifndef VEXA_TAGS_LOCALIZED_STATE_H_
#define VEXA_TAGS_LOCALIZED_STATE_H_

#include <optional>
#include <string_view>

#include "core/output.h"
#include "core/source_place.h"
#include "core/string.h"
#include "core/variables.h"
#include "engine/script_state.h"
#include "engine/tag.h"
#include "engine/text_filter.h"
#include "tags/token_filter.h"

namespace vexa {

class LocalizedState final : public ScriptState {
 public:
  // `tag` is the opening tag, just read.
  LocalizedState(ScriptParser& parser, const Tag& tag);
  ~LocalizedState() override { RestoreLevels(); }

  [[nodiscard]] StateResult ProcessTag(Tag& tag) override;
  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] std::string_view closing_tag() const override { return "&lt;/VxLOCALIZED&gt;"; }

  [[nodiscard]] VariableTree& tokens() { return tokens_; }
  // Where its texts go; null when that is the page.
  [[nodiscard]] StringOutput* collected() { return collected_ ? &*collected_ : nullptr; }

 private:
  enum class Shown { No, Yes, Default };

  StateResult ShowOrSkip(Tag& tag);
  StateResult Close();
  void Show(Shown how);
  void RestoreLevels();

  Tag opener_;
  VariableTree tokens_;
  std::optional<StringOutput> collected_;  // with a NAME
  std::optional<int> former_output_level_;
  std::optional<unsigned> former_error_level_;
  Shown shown_ = Shown::No;
  std::optional<SourcePlace> body_;  // of the first skipped text in the default language
  SourcePlace end_;                  // behind the closing tag, while that text is shown
  bool finished_ = false;            // the closing tag has been consumed
};

class LocalizedTextState final : public ScriptState {
 public:
  // Whether the text is shown where it stands, or from the end of the block.
  enum class Turn { InPlace, FromEnd };

  // `block` is the block around it, which outlives it.
  LocalizedTextState(ScriptParser& parser, LocalizedState& block, Turn turn);
  ~LocalizedTextState() override { Leave(); }

  [[nodiscard]] StateResult ProcessTag(Tag& tag) override;
  [[nodiscard]] StateResult ExitState() override;
  [[nodiscard]] std::string_view closing_tag() const override { return kClosingTag; }

  // Skips to the closing tag of a text.
  [[nodiscard]] static StateResult SkipText(ScriptParser& parser);

 private:
  static constexpr std::string_view kClosingTag = "&lt;/VxLOCALIZED-TEXT&gt;";

  void Leave();

  Turn turn_;
  TokenFilter filter_;
  TextFilter* former_filter_;
  Output* former_output_ = nullptr;  // null when it was not changed
  bool left_ = false;
  bool finished_ = false;  // the closing tag has been consumed
};

}  // namespace vexa

#endif  // VEXA_TAGS_LOCALIZED_STATE_H_
