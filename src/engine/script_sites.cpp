// Following what is remembered of a script instead of reading it.
//
//   FindNextTag ─▶ sites that are steps ─▶ TakeSteps (script_steps.cpp)
//              └▶ a site is known here ─▶ FollowText, FollowTag ─▶ the site behind it
//              └▶ read before, not learnt ─▶ SiteLearner ─▶ a site
//              └▶ never read before ─▶ the scanner
//
// While sites are followed the source stands still: its place is only noted, and it moves when
// somebody really reads. Whatever could make reading come to something else is compared each time:
// the macro switch, and the values of references. A value that holds a byte that matters to the
// scanner is read anew, for tags in values are carried out.

#include <cassert>
#include <utility>

#include "core/shortcuts.h"
#include "core/text.h"
#include "engine/script_parser.h"
#include "engine/site_learner.h"
#include "engine/tag_call.h"

namespace vexa {

namespace {

constexpr size_t kMostReadings = 8;  // of one tag
// A value with a longer text is let go once its tag is carried out.
constexpr size_t kLongValue = 256;

// The bytes that matter to a scanner, wherever they stand and between tags.
constexpr ByteSet kHarmful("<\\\r\n\">");
constexpr ByteSet kHarmfulText("<\\\r\n");

// Whether `value` reads as nothing but text wherever it stands.
bool IsHarmless(std::string_view value) { return !kHarmful.AnyIn(value); }
// The same between tags.
bool IsHarmlessText(std::string_view value) { return !kHarmfulText.AnyIn(value); }

// Marks a reading as in use while it lives.
class InUse {
 public:
  explicit InUse(TagReading& reading) : reading_(reading) { reading_.in_use = true; }
  ~InUse() { reading_.in_use = false; }
  InUse(const InUse&) = delete;
  InUse& operator=(const InUse&) = delete;

 private:
  TagReading& reading_;
};

}  // namespace

Progress ScriptParser::FindNextTag() {
  if (next_ != nullptr && next_->step != StepKind::None && TakeSteps()) return Progress::More;
  Site* site = next_ != nullptr ? next_ : FindSite();
  if (SourcePlace* link = std::exchange(link_, nullptr);
      link != nullptr && site != nullptr && site->begin == *link) {
    link->site = site;
  }
  if (site != nullptr && site->macros_on == macros_.expands()) {
    if (site->kind == Site::Kind::Tag) return FollowTag(*site);
    if (site->kind == Site::Kind::Text) return FollowText(*site);
  }
  next_ = nullptr;
  return Parser::FindNextTag();
}

// The site at the place where the script stands; null when reading is what is to be done.
Site* ScriptParser::FindSite() {
  if (source().inmacro() || !UseShortcuts()) return nullptr;
  const SourcePlace place = source().Place();
  if (place.position >= sites_->furthest()) {
    sites_->furthest() = place.position + 1;
    return nullptr;
  }
  Site* site = sites_->Find(place.position);
  if (site == nullptr && !sites_->full()) {
    site = sites_->Add(SiteLearner(host_, macros_, tags()).Learn(place));
    source().Return(place);
  }
  return site;
}

// Reads what stands at `place`, whatever is remembered of it.
Progress ScriptParser::ReadAnew(const SourcePlace& place) {
  source().Return(place);
  next_ = nullptr;
  return Parser::FindNextTag();
}

// --- Text ------------------------------------------------------------------------------------

Progress ScriptParser::FollowText(Site& site) {
  CheckSite(site);
  Progress progress = Progress::More;
  const TextPiece* unread =
      CopiesPlainText() ? CopyText(site, progress) : DeliverText(site, progress);
  if (unread != nullptr) return ReadAnew(unread->place);
  if (progress != Progress::More) return progress;
  GoTo(site.end);
  if (site.at_file_end) return Progress::EndOfFile;
  if (next_ == nullptr) next_ = site.end.site = FindSite();
  return Progress::More;
}

// Delivers a text piece by piece. The piece that must be read, with all behind it, or null.
const TextPiece* ScriptParser::DeliverText(const Site& site, Progress& progress) {
  for (const TextPiece& piece : site.pieces) {
    if (!FollowPiece(site, piece, progress)) return &piece;
    if (progress != Progress::More) break;
  }
  return nullptr;
}

// The same while everything is just copied.
const TextPiece* ScriptParser::CopyText(const Site& site, Progress& progress) {
  const char* const bytes = site.bytes.data();
  for (const TextPiece& piece : site.plain_pieces) {
    std::string_view text(bytes + piece.begin, piece.end - piece.begin);
    String room;
    if (piece.kind == PieceKind::Reference) {
      const MacroReference& reference = site.references[piece.first].reference;
      Variable* variable = reference.variable.Find(variables_);
      if (variable == nullptr) {
        text = reference.ValueOfNothing();
      } else if (variable->plain() && variable->plain_value().IsNumber() &&
                 reference.encoding != MacroEncoding::Json) {
        text = variable->plain_value().view();  // the same in every other encoding
      } else {
        text = reference.ValueOf(*variable, host_, room);
        if (!IsHarmlessText(text)) return &piece;
      }
      if (text.empty()) continue;
    } else if (piece.first != piece.last) {
      if (!WriteForeign(site, piece, progress)) return &piece;
      if (progress != Progress::More) return nullptr;
      continue;
    }
    if (!CheckTimeout()) {
      progress = Progress::Failed;
      return nullptr;
    }
    WriteValue(text);
  }
  return nullptr;
}

// Delivers a piece; false when it must be read.
bool ScriptParser::FollowPiece(const Site& site, const TextPiece& piece, Progress& progress) {
  const std::string_view bytes = site.bytes.view().substr(piece.begin, piece.end - piece.begin);
  switch (piece.kind) {
    case PieceKind::Plain:
      progress = ProcessPlain(bytes);
      return true;
    case PieceKind::Text:
      progress = ProcessText(bytes);
      return true;
    case PieceKind::NewLine:
      progress = ProcessNewLine(bytes);
      return true;
    case PieceKind::Construct:
      progress = EndText();
      return true;
    case PieceKind::Reference: {
      String room;
      const std::string_view value = site.references[piece.first].reference.Value(host_, room);
      if (!IsHarmlessText(value)) return false;
      if (value.empty()) return true;
      progress = ProcessText(value);
      return true;
    }
    case PieceKind::Foreign:
      if (piece.first != piece.last) return WriteForeign(site, piece, progress);
      progress = ProcessUnknownTag(bytes);
      return true;
  }
  return true;
}

bool ScriptParser::WriteForeign(const Site& site, const TextPiece& piece, Progress& progress) {
  String raw;
  String room;
  uint32_t from = piece.begin;
  for (uint32_t i = piece.first; i != piece.last; ++i) {
    const SiteReference& reference = site.references[i];
    const std::string_view value = reference.reference.Value(host_, room);
    if (!IsHarmless(value)) return false;
    raw.Append(site.bytes.view().substr(from, reference.at - from));
    raw.Append(value);
    from = reference.at;
  }
  raw.Append(site.bytes.view().substr(from, piece.end - from));
  progress = ProcessUnknownTag(raw);
  return true;
}

// --- Tags ------------------------------------------------------------------------------------

// Whether all these references still have their values.
bool ScriptParser::Hold(std::span<const ReferenceValue> references) {
  String room;
  for (const ReferenceValue& known : references) {
    if (known.reference.Value(host_, room) != known.value.view()) return false;
  }
  return true;
}

// How the tag reads now; null when it must be read.
TagReading* ScriptParser::ReadingOf(Site& site) {
  // Whatever was learnt before belonged to a request that is over; one reading alone needs none.
  if (site.readings.empty() && !std::exchange(site.met, true)) return nullptr;
  for (const auto& reading : site.readings) {
    if (Hold(reading->references)) return reading.get();
  }
  if (site.readings.size() == kMostReadings || sites_->full()) return nullptr;
  auto reading = SiteLearner(host_, macros_, tags()).LearnReading(site.begin);
  if (reading == nullptr) return nullptr;
  sites_->CountReading(site, *reading);
  return site.readings.emplace_back(std::move(reading)).get();
}

// Only a function can ask where the script stands; without one, errors need the line.
bool ScriptParser::EvaluateSiteValue(SiteValue& written, ScriptValue& value) {
  if (written.calls) {
    GoTo(written.behind);
  } else {
    source().SetLine(written.behind.line);
  }
  return written.expression.program().Evaluate(*this, value);
}

// An assignment to a variable that is known is done at once, without asking the open blocks: none
// takes such a tag. One that only appends to its own variable does so in place: building a text of
// n bytes costs n.
Progress ScriptParser::FollowAssignment(const TagRow& row, TagReading& reading) {
  SiteValue& written = *reading.assigned;
  const KnownName& target = *reading.target;
  const bool expression = !written.expression.empty();
  const bool appended = reading.may_append &&
                        target.name().variable != reading.error_variable.name().variable &&
                        written.expression.program().TryAppend(*this, target);
  ScriptValue value;
  if (expression && !appended && !EvaluateSiteValue(written, value)) return Progress::Failed;
  GoOnBehind(reading);
  if (!CheckTimeout()) return Progress::Failed;
  if (!execute_tags_) return Progress::More;  // A function that was called switched them off.
  for (ScriptState* watcher : *watchers_) watcher->BeforeTag();
  if (!IsClear(reading.error_variable)) ClearErrorVariable(row);
  if (appended) return Progress::More;
  if (!expression) value = written.constant;
  return Assign(row, target, std::move(value)) == StateResult::Failed ? Progress::Failed
                                                                      : Progress::More;
}

// A tag that leaves the running function: no state above that one takes the tag.
Progress ScriptParser::FollowReturn(const TagRow& row, TagReading& reading) {
  const size_t function = function_state_;
  auto& call = static_cast<FunctionCall&>(*states_[function]);
  call.result().clear();
  if (!reading.values.empty()) {
    SiteValue& written = reading.values[0];
    if (written.expression.empty()) {
      call.result() = written.constant;
    } else if (!EvaluateSiteValue(written, call.result())) {
      return Progress::Failed;
    }
  }
  if (!CheckTimeout()) return Progress::Failed;
  if (function + 1 == states_.size() && watchers_->empty()) {
    call.Leave();
    states_.pop_back();
    return Progress::More;
  }
  GoOnBehind(reading);
  for (ScriptState* watcher : *watchers_) watcher->BeforeTag();
  if (function + 1 != states_.size()) ClearErrorVariable(row);
  return CloseStates(function);
}

// Stands behind the tag. Once it is known what is remembered there, the reading knows it too.
void ScriptParser::GoOnBehind(TagReading& reading) {
  GoTo(reading.end);
  if (next_ == nullptr) link_ = &reading.end;
}

Progress ScriptParser::FollowTag(Site& site) {
  TagReading* const reading = site.sole != nullptr ? site.sole : ReadingOf(site);
  if (reading == nullptr) return ReadAnew(site.begin);
  CheckSite(site);
  // A run of text ends here.
  if (filter_ != nullptr) {
    if (Progress ended = EndText(); ended != Progress::More) return ended;
  }
  const TagRow& row = *site.row;
  if (reading->assigned != nullptr && execute_tags_) return FollowAssignment(row, *reading);
  if (reading->returns && ReturnsAtOnce(row)) return FollowReturn(row, *reading);
  if (reading->values.empty()) {
    GoOnBehind(*reading);
    return ProcessKnownTag(*reading->tag);
  }
  // A function that is called again while its own tag is carried out finds the tag in use.
  if (!reading->in_use) {
    const InUse in_use(*reading);
    return CarryOut(site, *reading, *reading->tag);
  }
  Tag tag(row);
  for (const SiteValue& written : reading->values) {
    tag.AddNameValuePair(written.name, written.constant, &written.names);
  }
  if (reading->deferred.position != 0) tag.Defer(reading->deferred);
  return CarryOut(site, *reading, tag);
}

Progress ScriptParser::CarryOut(const Site& site, TagReading& reading, Tag& tag) {
  const Progress progress = EvaluateAndProcess(site, reading, tag);
  for (size_t i = 0; i < reading.values.size(); ++i) {
    ScriptValue& value = tag.MutableValue(i);
    if (value.text_size() > kLongValue) value = ScriptValue();
  }
  return progress;
}

Progress ScriptParser::EvaluateAndProcess(const Site& site, TagReading& reading, Tag& tag) {
  for (size_t i = 0; i < reading.values.size(); ++i) {
    SiteValue& written = reading.values[i];
    if (written.expression.empty()) {
      tag.MutableValue(i) = written.constant;
      continue;
    }
    if (written.reading == Reading::Deferred) continue;
    if (!EvaluateSiteValue(written, tag.MutableValue(i))) return Progress::Failed;
    if (written.calls && macros_.expands() != site.macros_on && i + 1 != reading.values.size()) {
      // The function changed how the rest reads.
      Tag rest(*site.row);
      for (size_t k = 0; k <= i; ++k) {
        const NameValuePair& pair = tag.attributes()[k];
        rest.AddNameValuePair(pair.name, pair.value, pair.names);
      }
      GoTo(written.behind);
      return TagReader::GetNameValuePairs(rest) ? ProcessReadTag(rest) : Progress::Failed;
    }
  }
  GoOnBehind(reading);
  return reading.direct && execute_tags_ ? RunHandler(tag) : ProcessKnownTag(tag);
}

// The same as ProcessKnownTag for a tag that no block takes: its handler is run at once.
Progress ScriptParser::RunHandler(Tag& tag) {
  if (!CheckTimeout()) return Progress::Failed;
  for (ScriptState* watcher : *watchers_) watcher->BeforeTag();
  const TagRow& row = tag.row();
  const size_t top = states_.size() - 1;
  ClearErrorVariable(row);
  TagCall call(*this, tag);
  const StateResult result = Handle(call);
  if (exiting_) return Progress::Stop;
  if (result == StateResult::Finished) return CloseStates(top);
  return result == StateResult::Failed ? Progress::Failed : Progress::More;
}

// Evaluates an expression that stands where it stood when it was read, with the same references.
bool ScriptParser::EvaluateRead(const DeferredExpression& deferred, ScriptValue& value) {
  // Only a function can ask where the script stands; without one, errors need the line.
  if (deferred.calls_) {
    const SourcePlace noted = CurrentPlace();
    GoTo(deferred.behind_);
    if (!deferred.expression_.Evaluate(*this, value)) return false;
    GoTo(noted);
    return true;
  }
  const int line = source().line();
  source().SetLine(deferred.behind_.line);
  if (!deferred.expression_.Evaluate(*this, value)) return false;
  source().SetLine(line);
  return true;
}

bool ScriptParser::EvaluateAt(DeferredExpression& deferred, ScriptValue& value) {
  if (deferred.read_ && deferred.macros_on_ == macros_.expands() && Hold(deferred.references_)) {
    return EvaluateRead(deferred, value);
  }
  const SourcePlace noted = CurrentPlace();
  std::vector<MacroReference> met;
  macros_.NoteReferences(&met, false);
  const bool read = ReadExpressionAt(deferred.place_, deferred.form_, deferred.expression_);
  macros_.NoteReferences(nullptr, false);
  if (!read) return false;
  deferred.behind_ = source().Place();
  deferred.macros_on_ = macros_.expands();
  deferred.references_.clear();
  deferred.calls_ = deferred.expression_.program().Calls();
  deferred.read_ = !source().inmacro() && deferred.place_.expansion_offset == 0 && UseShortcuts();
  for (MacroReference& reference : met) {
    if (reference.end < 0) deferred.read_ = false;
    String room;
    String now = reference.Value(host_, room);
    deferred.references_.push_back({std::move(reference), std::move(now)});
  }
  deferred.fixed_ = deferred.read_ && deferred.references_.empty();
  next_ = nullptr;
  if (!deferred.expression_.Evaluate(*this, value)) return false;
  GoTo(noted);
  return true;
}

// --- Skips -----------------------------------------------------------------------------------

// The skip from where the script stands; null when it must be read.
SiteSkip* ScriptParser::KnownSkip(const WantedTags& wanted) {
  if (source().inmacro() || !UseShortcuts()) return nullptr;
  const SourcePlace place = macros_.Place();
  const uint16_t key = wanted.key;
  SiteSkip* skip = next_ != nullptr ? next_->FindSkip(key) : nullptr;
  if (skip == nullptr) {
    skip = sites_->FindSkip(place.position, key);
    if (skip != nullptr && next_ != nullptr) next_->skips.push_back({key, skip});
  }
  if (skip == nullptr) {
    if (place.position >= sites_->furthest() || sites_->full()) return nullptr;
    skip = sites_->AddSkip(place.position, key,
                           SiteLearner(host_, macros_, tags()).LearnSkip(place, wanted.tags));
    source().Return(place);
  }
  if (!skip->learnt || skip->macros_on != macros_.expands()) return nullptr;
  String room;
  for (const MacroReference& reference : skip->references) {
    if (!IsHarmless(reference.Value(host_, room))) return nullptr;
  }
  return skip;
}

const TagRow* ScriptParser::SkipTo(const WantedTags& wanted, const ScriptState& block) {
  if (SiteSkip* skip = KnownSkip(wanted)) {
    for (SiteValue& written : skip->landing.values) {
      ScriptValue value;
      if (!written.expression.empty() && !EvaluateSiteValue(written, value)) return nullptr;
    }
    GoTo(skip->landing.end);
    if (next_ == nullptr) next_ = skip->landing.end.site = FindSite();
    return skip->row;
  }
  next_ = nullptr;
  std::unique_ptr<Tag> found;
  if (FindTag(found, wanted.tags) == Scanned::EndOfFile) ReportOpenBlock(block);
  return found == nullptr ? nullptr : &found->row();
}

// --- Checking --------------------------------------------------------------------------------

// Builds with assertions read every hundredth site anew and compare.
void ScriptParser::CheckSite([[maybe_unused]] const Site& site) {
#ifndef NDEBUG
  static int followed = 0;
  if (++followed % 100 != 0) return;
  const SourcePlace noted = CurrentPlace();
  const std::unique_ptr<Site> anew = SiteLearner(host_, macros_, tags()).Learn(site.begin);
  GoTo(noted);
  assert(anew->kind == site.kind && anew->row == site.row);
  // Where a long stretch is cut, and into which pieces, hangs on the blocks of the source.
  assert(!(anew->end == site.end) || anew->bytes == site.bytes);
#endif
}

}  // namespace vexa
