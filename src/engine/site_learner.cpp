// Learning sites.
//
// A text: deliveries become pieces of its bytes, until a tag of ours begins, the file ends, the
// stretch is long enough, or something comes that is not remembered. A tag: its values are
// collected as they are read, and kept when nothing that was read could have been different by the
// time it would be read for real.

#include "engine/site_learner.h"

#include <utility>

#include "core/text.h"

namespace vexa {

namespace {

// A stretch of text that is longer is cut into several.
constexpr size_t kLongestStretch = 32768;

// Notes what a tag that only assigns assigns to which variable, when that is always the same.
void FindAssignment(const TagRow& row, TagReading& reading) {
  std::vector<SiteValue>& values = reading.values;
  const bool alone = row.body == TagBody::OneAssignment;
  if (alone && values.size() == 1) {
    reading.target = &values[0].names.name;
    reading.assigned = &values[0];
  } else if (!alone && values.size() == 2) {
    const size_t name = EqualsIgnoreCase(values[0].name, "NAME") ? 0 : 1;
    const bool known = EqualsIgnoreCase(values[name].name, "NAME") &&
                       values[name].expression.empty() &&
                       EqualsIgnoreCase(values[1 - name].name, "VALUE");
    if (!known) return;
    reading.target = &values[name].names.value;
    reading.assigned = &values[1 - name];
  }
  // What a function changes on the way matters to how the rest of the tag reads.
  if (reading.assigned != nullptr && reading.assigned->calls &&
      reading.assigned != &values.back()) {
    reading.assigned = nullptr;
  }
  if (reading.assigned != nullptr) {
    const Expression& expression = reading.assigned->expression;
    reading.may_append = !expression.empty() && expression.program().appends();
    reading.error_variable = Variables::Scope(String::Concat({row.name, kErrorVariableSuffix}));
  }
}

// Whether it is one that only leaves a function, with at most a value.
bool Returns(const TagRow& row, const TagReading& reading) {
  if (!row.Has(kEndsFunction) || reading.values.empty()) return row.Has(kEndsFunction);
  return row.handler != nullptr && reading.values.size() == 1 &&
         EqualsIgnoreCase(reading.values[0].name, "VALUE");
}

bool IsWhole(const SiteValue& value) {
  return !value.expression.empty() && value.expression.program().whole().known();
}

bool IsCopied(const SiteValue& value) {
  return value.expression.empty() || value.expression.program().known_variable() != nullptr;
}

StepKind StepOf(const TagSet& tags, const TagRow& row, const TagReading& reading) {
  if (const SiteValue* assigned = reading.assigned) {
    if (reading.may_append) return StepKind::Append;
    if (IsCopied(*assigned)) return StepKind::Copy;
    return IsWhole(*assigned) ? StepKind::Assign : StepKind::None;
  }
  const std::vector<SiteValue>& values = reading.values;
  if (reading.returns) {
    const bool known = values.empty() || IsCopied(values[0]) || IsWhole(values[0]);
    return known ? StepKind::Return : StepKind::None;
  }
  if (row.branch != nullptr && reading.direct && values.size() == 1) {
    return IsWhole(values[0]) ? StepKind::Branch : StepKind::None;
  }
  if (row.block == kNoTag || row.handler != nullptr || !values.empty()) return StepKind::None;
  const TagRow* opener = tags.WithNumber(row.block);
  if (opener == nullptr || opener->branch == nullptr) return StepKind::Repeat;
  return row.id == opener->closing_id ? StepKind::End : StepKind::Divide;
}

}  // namespace

void SiteLearner::Begin(Aim aim, const SourcePlace& place) {
  aim_ = aim;
  start_ = construct_ = place;
  failed_ = spoiled_ = cut_ = false;
  row_ = nullptr;
  met_.clear();
  taken_ = 0;
  stop_form_ = kNoStopForm;
  values_.clear();
  value_attributes_.clear();
  macros_.NoteReferences(&met_, aim != Aim::Reading);
  GoTo(place);
}

std::unique_ptr<Site> SiteLearner::Learn(const SourcePlace& place) {
  Begin(Aim::Site, place);
  site_ = std::make_unique<Site>();
  site_->begin = place;
  site_->macros_on = macros_.expands();
  const Progress progress = FindNextTag();
  macros_.NoteReferences(nullptr, false);
  if (progress == Progress::EndOfFile && !spoiled_) {
    AddReferences();
    site_->at_file_end = !spoiled_;
    if (!spoiled_) site_->end = CurrentPlace();
  }
  if (row_ != nullptr) {
    site_->row = row_;
    if (auto reading = LearnReading(place)) {
      site_->kind = Site::Kind::Tag;
      if (reading->references.empty()) {
        site_->sole = reading.get();
        site_->step = StepOf(tags(), *site_->row, *reading);
      }
      site_->readings.push_back(std::move(reading));
    }
  } else if (cut_ || site_->at_file_end) {
    site_->kind = Site::Kind::Text;
  }
  return std::move(site_);
}

std::unique_ptr<TagReading> SiteLearner::LearnReading(const SourcePlace& place) {
  Begin(Aim::Reading, place);
  reading_ = nullptr;
  (void)FindNextTag();
  macros_.NoteReferences(nullptr, false);
  return std::move(reading_);
}

SiteSkip SiteLearner::LearnSkip(const SourcePlace& place, std::span<const WantedTag> wanted) {
  Begin(Aim::Skip, place);
  SiteSkip skip;
  skip.macros_on = macros_.expands();
  reading_ = nullptr;
  std::unique_ptr<Tag> found;
  const Scanned scanned = FindTag(found, wanted);
  macros_.NoteReferences(nullptr, false);
  if (scanned != Scanned::Done || failed_ || spoiled_ || !KeepReading(*found)) return skip;
  skip.learnt = true;
  skip.row = &found->row();
  skip.landing = std::move(*reading_);
  skip.references = std::move(met_);
  return skip;
}

// --- Text ------------------------------------------------------------------------------------

// The stretch ends at `place`: what was read behind it belongs to another site.
void SiteLearner::CutAt(const SourcePlace& place) {
  if (cut_) return;
  cut_ = place.position > start_.position;
  site_->end = place;
}

void SiteLearner::AddPlain(const TextPiece& piece) {
  std::vector<TextPiece>& plain = site_->plain_pieces;
  const bool copied = piece.first == piece.last;
  if (piece.kind == PieceKind::Construct) return;
  if (copied && !plain.empty() && plain.back().kind == PieceKind::Plain) {
    plain.back().end = piece.end;
  } else {
    plain.push_back(piece);
    if (copied) plain.back().kind = PieceKind::Plain;
  }
}

void SiteLearner::AddText(PieceKind kind, std::string_view text) {
  String& bytes = site_->bytes;
  TextPiece piece = {kind, static_cast<uint32_t>(bytes.size())};
  piece.first = piece.last = static_cast<uint32_t>(site_->references.size());
  bytes.Append(text);
  piece.end = static_cast<uint32_t>(bytes.size());
  site_->pieces.push_back(piece);
  AddPlain(piece);
}

// The references that were met since the last delivery stand before what is delivered now.
void SiteLearner::AddReferences() {
  for (; taken_ < met_.size(); ++taken_) {
    MacroReference& reference = met_[taken_];
    if (reference.end < 0) {
      spoiled_ = true;
      CutAt(reference.place);
      return;
    }
    TextPiece piece = {PieceKind::Reference};
    piece.begin = piece.end = static_cast<uint32_t>(site_->bytes.size());
    piece.first = static_cast<uint32_t>(site_->references.size());
    piece.last = piece.first + 1;
    piece.place = reference.place;
    site_->references.push_back({reference, piece.begin});
    site_->pieces.push_back(piece);
    AddPlain(piece);
  }
}

Progress SiteLearner::ProcessText(std::string_view text) {
  if (spoiled_) return Progress::Stop;
  AddReferences();
  if (spoiled_) return Progress::Stop;
  AddText(PieceKind::Text, text);
  if (site_->bytes.size() < kLongestStretch) return Progress::More;
  CutAt(CurrentPlace());
  return Progress::Stop;
}

Progress SiteLearner::ProcessNewLine(std::string_view newline) {
  if (spoiled_) return Progress::Stop;
  AddReferences();
  if (spoiled_) return Progress::Stop;
  AddText(PieceKind::NewLine, newline);
  return Progress::More;
}

bool SiteLearner::TakeTextPiece(String& piece) {
  const SourcePlace before = CurrentPlace();
  const size_t met = met_.size();
  const bool newline = TagReader::TakeTextPiece(piece);
  if (met_.size() == met || spoiled_) return newline;
  spoiled_ = true;
  if (aim_ == Aim::Site) {
    met_.resize(met);
    AddReferences();
    CutAt(before);
  }
  return newline;
}

Progress SiteLearner::EndText() {
  construct_ = CurrentPlace();
  if (aim_ != Aim::Site) return Progress::More;
  if (spoiled_) return Progress::Stop;
  AddReferences();
  if (spoiled_) return Progress::Stop;
  TextPiece piece = {PieceKind::Construct};
  piece.begin = piece.end = static_cast<uint32_t>(site_->bytes.size());
  site_->pieces.push_back(piece);
  return Progress::More;
}

Parser::Construct SiteLearner::ReadConstruct(const TagRow*& row, RawText raw) {
  const size_t met = met_.size();
  construct_ = CurrentPlace();
  // Whether a skipped tag opens a level may hang on a reference in it.
  const bool hangs = met > std::exchange(stop_form_, kNoStopForm);
  const Construct construct = TagReader::ReadConstruct(row, raw);
  if (construct == Construct::Known && row->stop != StopForm::None) stop_form_ = met_.size();
  const bool failed = construct == Construct::Failed || construct == Construct::EndOfFile;
  if (met_.size() == met && !failed && (!hangs || aim_ != Aim::Skip)) return construct;
  spoiled_ = true;
  if (aim_ == Aim::Site) CutAt(construct_);
  return Construct::Failed;
}

// A foreign tag, or a comment, whose references would have spoiled it.
Progress SiteLearner::ProcessUnknownTag(std::string_view raw) {
  if (aim_ != Aim::Site) return Progress::Stop;
  const auto first = static_cast<uint32_t>(site_->references.size());
  const size_t begin = site_->bytes.size();
  int64_t vanished = 0;  // bytes of the file that the references before this one took
  for (; taken_ < met_.size(); ++taken_) {
    const MacroReference& reference = met_[taken_];
    if (reference.end < 0) return Progress::Stop;
    const int64_t at = reference.place.position - construct_.position - vanished;
    vanished += reference.end - reference.place.position;
    site_->references.push_back(
        {reference, static_cast<uint32_t>(begin + static_cast<size_t>(at))});
  }
  String& bytes = site_->bytes;
  bytes.Append(raw);
  TextPiece piece = {PieceKind::Foreign, static_cast<uint32_t>(begin),
                     static_cast<uint32_t>(bytes.size())};
  piece.first = first;
  piece.last = static_cast<uint32_t>(site_->references.size());
  piece.place = construct_;
  site_->pieces.push_back(piece);
  AddPlain(piece);
  if (bytes.size() < kLongestStretch) return Progress::More;
  CutAt(CurrentPlace());
  return Progress::Stop;
}

// --- Tags ------------------------------------------------------------------------------------

bool SiteLearner::GetNameValuePairs(Tag& tag) {
  if (aim_ != Aim::Site) return TagReader::GetNameValuePairs(tag);
  // A tag of ours: it ends the stretch of text before it, or is what stands at the place itself.
  if (construct_.position > start_.position) {
    CutAt(construct_);
  } else {
    row_ = &tag.row();
  }
  return false;
}

bool SiteLearner::TakeValue(Tag& tag, WrittenValue& written, ScriptValue& value) {
  if (written.reading == Reading::Raw) failed_ = true;
  if (written.reading == Reading::Deferred) tag.Defer(written.place);
  SiteValue taken;
  taken.reading = written.reading;
  taken.calls = !written.expression.empty() && written.expression.program().Calls();
  taken.expression = std::move(written.expression);
  taken.constant = std::move(written.text);
  taken.behind = CurrentPlace();
  value.clear();
  value_attributes_.push_back(tag.attributes().size());
  values_.push_back(std::move(taken));
  return !failed_;
}

Progress SiteLearner::ProcessKnownTag(Tag& tag) {
  (void)KeepReading(tag);
  return Progress::Stop;
}

// Makes the tag that was read the reading, unless carrying it out could change how it reads.
bool SiteLearner::KeepReading(const Tag& tag) {
  if (failed_ || spoiled_ || macros_.inmacro() || tag.row().body == TagBody::RawText) return false;
  auto reading = std::make_unique<TagReading>();
  reading->end = CurrentPlace();
  reading->deferred = tag.deferred();
  int64_t calls_from = INT64_MAX;  // where something may have been run
  for (const SiteValue& value : values_) {
    if (!value.calls) continue;
    if (value.behind.expansion_offset != 0) return false;
    if (calls_from == INT64_MAX) calls_from = value.behind.position;
  }
  if (aim_ == Aim::Reading) {
    for (MacroReference& reference : met_) {
      if (reference.end < 0 || reference.place.position >= calls_from) return false;
      String room;
      const String value = reference.Value(host_, room);
      reading->references.push_back({std::move(reference), value});
    }
  } else if (!met_.empty() && met_.back().place.position > construct_.position) {
    return false;  // A skip that ends at a tag with references.
  }
  size_t next = 0;
  for (size_t i = 0; i < tag.attributes().size(); ++i) {
    const NameValuePair& pair = tag.attributes()[i];
    SiteValue value;
    if (next < values_.size() && value_attributes_[next] == i) {
      value = std::move(values_[next++]);
    } else {
      value.constant = pair.value;
    }
    if (!value.expression.empty() && value.reading != Reading::Deferred) {
      if (const ScriptValue* constant = value.expression.program().constant()) {
        value.constant = *constant;
        value.expression = Expression();
      }
    }
    value.name = pair.name;
    value.names.name = Variables::Scope(pair.name);
    if (value.expression.empty()) value.names.value = Variables::Scope(value.constant.view());
    reading->values.push_back(std::move(value));
  }
  const TagRow& row = tag.row();
  if (row.Has(kAssigns)) FindAssignment(row, *reading);
  reading->returns = Returns(row, *reading);
  reading->tag = std::make_unique<Tag>(tag.row());
  for (const SiteValue& value : reading->values) {
    reading->tag->AddNameValuePair(value.name, value.constant, &value.names);
  }
  if (reading->deferred.position != 0) reading->tag->Defer(reading->deferred);
  reading->tag->FindSoundness();
  reading->direct = row.handler != nullptr && row.block == kNoTag && !row.Has(kEndsScript) &&
                    reading->tag->sound();
  reading_ = std::move(reading);
  return true;
}

}  // namespace vexa
