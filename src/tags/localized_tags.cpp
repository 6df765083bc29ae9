// VxLOCALIZED: a block with texts in several languages, one of which is shown.
//
//   LocalizedState       an open VxLOCALIZED block: its tokens, and which of its texts is shown
//   LocalizedTextState   a VxLOCALIZED-TEXT block that is being shown
//   TokenFilter          replaces tokens in a text that is shown
//
// A text whose language fits the page's is shown where it stands, any other is skipped. The closing
// tag of the block shows the first skipped text in the default language when none was shown; the
// script then goes back to that text, and from its end on behind the block:
//
//   <VxLOCALIZED> ... skipped text ... </VxLOCALIZED>
//                     ^ body_ --------- ^ end_

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "core/output.h"
#include "core/text.h"
#include "core/variables.h"
#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "tags/handlers.h"
#include "tags/tag_numbers.h"

namespace vexa {

namespace {

bool HoldsWhitespace(std::string_view text) {
  return std::any_of(text.begin(), text.end(), IsWhitespace);
}

// Replaces tokens in text. A name between two percent signs becomes the value of the
// token; two percent signs in a row become one.
//
// Text arrives in pieces that may cut a token anywhere, so what begins with a percent sign is kept
// back until it is clear what it is. No token reaches over the end of a line or into a tag.
class TokenFilter final : public TextFilter {
 public:
  // Longer names than this are not looked for, so that a lone percent sign keeps little text back.
  static constexpr size_t kLongestName = 1000;

  // `tokens` is borrowed.
  explicit TokenFilter(VariableTree& tokens) : tokens_(tokens) {}

  void Add(std::string_view text, String& out) override;
  void End(String& out) override;

 private:
  VariableTree& tokens_;
  String pending_;  // begins with a percent sign, when there is any
};

void TokenFilter::Add(std::string_view text, String& out) {
  String joined;
  if (!pending_.empty()) {
    joined = String::Concat({std::exchange(pending_, String()), text});
    text = joined;
  }
  for (;;) {
    const size_t start = text.find('%');
    out.Append(text.substr(0, start));
    if (start == std::string_view::npos) return;
    text.remove_prefix(start);
    const size_t end = text.find('%', 1);
    if (end == std::string_view::npos && text.size() <= kLongestName) {
      pending_ = text;
      return;
    }
    if (end == std::string_view::npos) {
      out.Append(text);
      return;
    }
    const std::string_view name = text.substr(1, end - 1);
    Variable* token = tokens_.Find(name);
    if (name.empty()) {
      out.Append("%");
    } else if (token != nullptr) {
      out.Append(token->value());
    } else if (HoldsWhitespace(name)) {
      // Hardly meant as a token ("5% off, now %price%"): the second sign may begin one.
      out.Append(text.substr(0, end));
      text.remove_prefix(end);
      continue;
    } else {
      out.Append(text.substr(0, end + 1));
    }
    text.remove_prefix(end + 1);
  }
}

void TokenFilter::End(String& out) {
  out.Append(pending_);
  pending_.clear();
}

class LocalizedState final : public BlockState {
 public:
  explicit LocalizedState(const TagCall& call);
  ~LocalizedState() override { RestoreLevels(); }

  [[nodiscard]] StateResult ProcessTag(Tag& tag) override;
  [[nodiscard]] StateResult ExitState() override;

  [[nodiscard]] VariableTree& tokens() { return tokens_; }
  // Where its texts go; null when that is the page.
  [[nodiscard]] StringOutput* collected() { return collected_ ? &*collected_ : nullptr; }

 protected:
  [[nodiscard]] StateResult OnClose() override;
  [[nodiscard]] StateResult OnOwnTag(Tag& tag) override;

 private:
  enum class Shown { No, Yes, Default };

  StateResult ShowOrSkip(const Tag& text);
  void Show(Shown how);
  void RestoreLevels();

  String name_;  // of the variable that receives the text; empty when that is the page
  VariableTree tokens_;
  std::optional<StringOutput> collected_;  // with a NAME
  std::optional<int> former_output_level_;
  std::optional<unsigned> former_error_level_;
  Shown shown_ = Shown::No;
  const TagRow* text_ = nullptr;     // of its texts, once there was one
  std::optional<SourcePlace> body_;  // of the first skipped text in the default language
  SourcePlace end_;                  // behind the closing tag, while that text is shown
};

class LocalizedTextState final : public BlockState {
 public:
  // Whether the text is shown where it stands, or from the end of the block.
  enum class Turn { InPlace, FromEnd };

  // `block` is the block around it, which outlives it.
  LocalizedTextState(ScriptParser& parser, const TagRow& opener, LocalizedState& block, Turn turn);
  ~LocalizedTextState() override { Leave(); }

  [[nodiscard]] StateResult ExitState() override;

 protected:
  [[nodiscard]] StateResult OnClose() override;

 private:
  void Leave();

  Turn turn_;
  TokenFilter filter_;
  TextFilter* former_filter_;
  Output* former_output_ = nullptr;  // null when it was not changed
  bool left_ = false;
};

// --- The block -------------------------------------------------------------------------------

LocalizedState::LocalizedState(const TagCall& call) : BlockState(call), name_(call.Text("NAME")) {
  if (const NameValuePair* id = call.Find("ID")) tokens_.SetVariable("ID", id->value.text());
  if (!name_.empty()) collected_.emplace();
  ScriptParser& script = call.script();
  if (const NameValuePair* level = call.Find("STANDARDOUTPUTLEVEL")) {
    former_output_level_ =
        script.SetStandardOutputLevel(script.StandardOutputLevelValue(level->value.text()));
  }
  if (const NameValuePair* level = call.Find("ERROROUTPUTLEVEL")) {
    former_error_level_ =
        script.SetErrorOutputLevel(script.ErrorOutputLevelValue(level->value.text()));
  }
}

void LocalizedState::RestoreLevels() {
  if (former_output_level_) parser().SetStandardOutputLevel(*former_output_level_);
  if (former_error_level_) parser().SetErrorOutputLevel(*former_error_level_);
  former_output_level_.reset();
  former_error_level_.reset();
}

StateResult LocalizedState::ProcessTag(Tag& tag) {
  // The text that is shown from the end passes its closing tag on, for the block ends with it.
  if (tag.id() == kTagVxLOCALIZEDTEXTClose && shown_ == Shown::Default) {
    return StateResult::Finished;
  }
  return BlockState::ProcessTag(tag);
}

StateResult LocalizedState::OnOwnTag(Tag& tag) {
  if (tag.id() == kTagVxLOCALIZEDTEXT) return ShowOrSkip(tag);
  tokens_.SetVariable(tag.Value("NAME"), tag.Value("VALUE"));
  return StateResult::Handled;
}

StateResult LocalizedState::ShowOrSkip(const Tag& text) {
  const String& language = text.Value("LANGUAGE");
  Vexa& host = parser().host();
  text_ = &text.row();
  if (IsLeadingPart(language, host.language())) {
    Show(Shown::Yes);
    return StateResult::Handled;
  }
  if (!body_ && IsLeadingPart(language, host.defaultlanguage())) body_ = parser().CurrentPlace();
  return BlockState(parser(), text.row()).SkipBlock();
}

StateResult LocalizedState::OnClose() {
  if (shown_ != Shown::No || !body_) return BlockState::OnClose();
  end_ = parser().CurrentPlace();
  parser().GoTo(*body_);
  Show(Shown::Default);
  return StateResult::Handled;
}

void LocalizedState::Show(Shown how) {
  shown_ = how;
  const auto turn =
      how == Shown::Default ? LocalizedTextState::Turn::FromEnd : LocalizedTextState::Turn::InPlace;
  parser().AddState(std::make_unique<LocalizedTextState>(parser(), *text_, *this, turn));
}

StateResult LocalizedState::ExitState() {
  RestoreLevels();
  if (shown_ == Shown::Default) {
    parser().GoTo(end_);
  } else if (BlockState::ExitState() == StateResult::Failed) {
    return StateResult::Failed;
  }
  if (!collected_) return StateResult::Handled;
  collected_->Flush();
  return parser().Assign(opener(), name_, collected_->data());
}

// --- A text ----------------------------------------------------------------------------------

LocalizedTextState::LocalizedTextState(ScriptParser& parser, const TagRow& opener,
                                       LocalizedState& block, Turn turn)
    : BlockState(parser, opener),
      turn_(turn),
      filter_(block.tokens()),
      former_filter_(parser.SwitchTextFilter(&filter_)) {
  if (block.collected() != nullptr) former_output_ = &parser.SwitchOutput(*block.collected());
}

void LocalizedTextState::Leave() {
  if (std::exchange(left_, true)) return;
  parser().SwitchTextFilter(former_filter_);
  if (former_output_ != nullptr) parser().SwitchOutput(*former_output_);
}

StateResult LocalizedTextState::OnClose() {
  SetFinished();
  return turn_ == Turn::FromEnd ? StateResult::NotMine : StateResult::Finished;
}

StateResult LocalizedTextState::ExitState() {
  Leave();
  return BlockState::ExitState();
}

}  // namespace

StateResult ProcessVxLOCALIZED(TagCall& call) {
  return call.Enter(std::make_unique<LocalizedState>(call));
}

}  // namespace vexa
