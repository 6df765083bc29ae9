// Localized text.

#include "tags/localized_state.h"

#include <memory>
#include <utility>

#include "core/text.h"
#include "engine/script_parser.h"
#include "tags/tag_numbers.h"

namespace vexa {

// --- The block -------------------------------------------------------------------------------

LocalizedState::LocalizedState(ScriptParser& parser, const Tag& tag)
    : ScriptState(parser), opener_(tag) {
  if (const NameValuePair* id = tag.Find("ID")) tokens_.SetVariable("ID", id->value);
  if (!tag.Value("NAME").empty()) collected_.emplace();
  if (const NameValuePair* level = tag.Find("STANDARDOUTPUTLEVEL")) {
    former_output_level_ =
        parser.SetStandardOutputLevel(parser.StandardOutputLevelValue(level->value));
  }
  if (const NameValuePair* level = tag.Find("ERROROUTPUTLEVEL")) {
    former_error_level_ = parser.SetErrorOutputLevel(parser.ErrorOutputLevelValue(level->value));
  }
}

void LocalizedState::RestoreLevels() {
  if (former_output_level_) parser().SetStandardOutputLevel(*former_output_level_);
  if (former_error_level_) parser().SetErrorOutputLevel(*former_error_level_);
  former_output_level_.reset();
  former_error_level_.reset();
}

StateResult LocalizedState::ProcessTag(Tag& tag) {
  switch (tag.id()) {
    case kTagVxLOCALIZEDTOKEN:
      tokens_.SetVariable(tag.Value("NAME"), tag.Value("VALUE"));
      return StateResult::Handled;
    case kTagVxLOCALIZEDTEXT:
      return ShowOrSkip(tag);
    case kTagVxLOCALIZEDClose:
      return Close();
    case kTagVxLOCALIZEDTEXTClose:
      // The text that is shown from the end passes its closing tag on, for the block ends with it.
      if (shown_ == Shown::Default) return StateResult::Finished;
      break;
    default:
      break;
  }
  return ScriptState::ProcessTag(tag);
}

StateResult LocalizedState::ShowOrSkip(Tag& tag) {
  const String& language = tag.Value("LANGUAGE");
  Vexa& host = parser().host();
  if (IsLeadingPart(language, host.language())) {
    Show(Shown::Yes);
    return StateResult::Handled;
  }
  if (!body_ && IsLeadingPart(language, host.defaultlanguage())) body_ = parser().CurrentPlace();
  return LocalizedTextState::SkipText(parser());
}

StateResult LocalizedState::Close() {
  if (shown_ != Shown::No || !body_) {
    finished_ = true;
    return StateResult::Finished;
  }
  end_ = parser().CurrentPlace();
  parser().GoTo(*body_);
  Show(Shown::Default);
  return StateResult::Handled;
}

void LocalizedState::Show(Shown how) {
  shown_ = how;
  const auto turn =
      how == Shown::Default ? LocalizedTextState::Turn::FromEnd : LocalizedTextState::Turn::InPlace;
  parser().AddState(std::make_unique<LocalizedTextState>(parser(), *this, turn));
}

StateResult LocalizedState::ExitState() {
  static constexpr WantedTag kEnds[] = {{kTagVxLOCALIZED, kTagVxLOCALIZEDClose},
                                        {kTagVxLOCALIZEDClose, 0}};
  RestoreLevels();
  if (shown_ == Shown::Default) {
    parser().GoTo(end_);
  } else if (!finished_ && parser().SkipTo(kEnds, closing_tag()) == nullptr) {
    return StateResult::Failed;
  }
  if (!collected_) return StateResult::Handled;
  collected_->Flush();
  return parser().Assign(opener_, opener_.Value("NAME"), collected_->data());
}

// --- A text ----------------------------------------------------------------------------------

LocalizedTextState::LocalizedTextState(ScriptParser& parser, LocalizedState& block, Turn turn)
    : ScriptState(parser),
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

StateResult LocalizedTextState::ProcessTag(Tag& tag) {
  if (tag.id() != kTagVxLOCALIZEDTEXTClose) return ScriptState::ProcessTag(tag);
  finished_ = true;
  return turn_ == Turn::FromEnd ? StateResult::NotMine : StateResult::Finished;
}

StateResult LocalizedTextState::ExitState() {
  Leave();
  return finished_ ? StateResult::Handled : SkipText(parser());
}

StateResult LocalizedTextState::SkipText(ScriptParser& parser) {
  static constexpr WantedTag kEnds[] = {{kTagVxLOCALIZEDTEXT, kTagVxLOCALIZEDTEXTClose},
                                        {kTagVxLOCALIZEDTEXTClose, 0}};
  return parser.SkipTo(kEnds, kClosingTag) != nullptr ? StateResult::Handled : StateResult::Failed;
}

}  // namespace vexa
