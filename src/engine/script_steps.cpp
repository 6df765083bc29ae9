// Steps: tags of remembered sites that are done without anything else that tags are carried out
// with.
//
// A step computes whole numbers, copies a value, appends to a text in place, or opens and ends
// branches and passes that such numbers decide. It cannot fail, runs nothing and asks nobody where
// the script stands, so that is noted only behind the last of those that follow one another. Where
// there is more to do, a step does nothing at all, and the tag is carried out like any other. Every
// 64th tag is, and so the clock is asked; appending asks it each time.

#include <utility>

#include "engine/block_state.h"
#include "engine/script_parser.h"

namespace vexa {

namespace {

// Copying a longer text is worth asking the clock.
constexpr size_t kLongCopy = 4096;

}  // namespace

bool ScriptParser::TakeSteps() {
  // None of it changes on the way.
  if (!execute_tags_ || filter_ != nullptr || !watchers_->empty()) return false;
  const bool macros_on = macros_.expands();
  SourcePlace* place = nullptr;
  while (next_ != nullptr && next_->step != StepKind::None && next_->macros_on == macros_on &&
         ++steps_ % 64 != 0) {
    CheckSite(*next_);
    if (next_->step == StepKind::Return) {
      if (TakeReturn(*next_->row, *next_->sole)) return true;
      break;
    }
    SourcePlace* const behind = TakeStep(*next_);
    if (behind == nullptr) break;
    place = behind;
    next_ = behind->site;
  }
  if (place == nullptr) return false;
  macros_.Return(*place);
  link_ = next_ == nullptr ? place : nullptr;
  return false;
}

// The place to go on at; null when more than such a step is to be done, and nothing was done then.
inline SourcePlace* ScriptParser::TakeStep(Site& site) {
  switch (site.step) {
    case StepKind::Assign:
      return TakeAssignment(*site.sole);
    case StepKind::Repeat:
      return states_.back()->TryRepeat(*site.row);
    case StepKind::Branch:
      return TakeBranch(*site.row, *site.sole);
    case StepKind::Divide:
    case StepKind::End:
      return TakeBranchEnd(*site.row, *site.sole);
    case StepKind::Copy:
      return TakeCopy(*site.sole);
    case StepKind::Append:
      return TakeAppending(*site.sole);
    case StepKind::Return:
    case StepKind::None:
      break;
  }
  return nullptr;
}

inline SourcePlace* ScriptParser::TakeAssignment(TagReading& reading) {
  int64_t value = 0;
  if (!reading.assigned->expression.program().whole().Compute(variables_, value)) return nullptr;
  Variable* target = reading.target->FindPlain(variables_);
  if (target == nullptr || !IsClear(reading.error_variable)) return nullptr;
  target->plain_value().SetWhole(value);
  return &reading.end;
}

// Copies a constant or a plain variable. False, and nothing was done, when it is neither or long.
bool ScriptParser::CopyValue(const SiteValue& written, ScriptValue& to) {
  const ScriptValue* value = &written.constant;
  if (!written.expression.empty()) {
    const Variable* source = written.expression.program().known_variable()->FindPlain(variables_);
    if (source == nullptr) return false;
    value = &source->plain_value();
  }
  if (value->text_size() > kLongCopy) return false;
  to = *value;
  return true;
}

// The same, or computes a whole number.
bool ScriptParser::StepValue(const SiteValue& written, ScriptValue& to) {
  if (written.expression.empty() || !written.expression.program().whole().known()) {
    return CopyValue(written, to);
  }
  int64_t value = 0;
  if (!written.expression.program().whole().Compute(variables_, value)) return false;
  to.SetWhole(value);
  return true;
}

SourcePlace* ScriptParser::TakeCopy(TagReading& reading) {
  Variable* target = reading.target->FindPlain(variables_);
  if (target == nullptr || !IsClear(reading.error_variable)) return nullptr;
  return CopyValue(*reading.assigned, target->plain_value()) ? &reading.end : nullptr;
}

SourcePlace* ScriptParser::TakeAppending(TagReading& reading) {
  const bool done = IsClear(reading.error_variable) && !host_.timedout() &&
                    reading.target->name().variable != reading.error_variable.name().variable &&
                    reading.assigned->expression.program().TryAppend(*this, *reading.target);
  return done ? &reading.end : nullptr;
}

bool ScriptParser::TryCondition(const DeferredExpression& condition, const KnownName& receiver) {
  int64_t value = 0;
  if (!condition.fixed_ || condition.macros_on_ != macros_.expands() ||
      !condition.expression_.program().whole().Compute(variables_, value) || value == 0) {
    return false;
  }
  if (!receiver) return true;
  Variable* variable = receiver.FindPlain(variables_);
  if (variable == nullptr) return false;
  variable->plain_value().SetWhole(value);
  return true;
}

// --- Branches --------------------------------------------------------------------------------

// The skip from behind the tag when it does nothing but lead elsewhere, else null.
SiteSkip* ScriptParser::PlainSkip(TagReading& reading, const WantedTags& wanted) {
  if (reading.skip == nullptr) {
    reading.skip = sites_->FindSkip(reading.end.position, wanted.key);
    if (reading.skip == nullptr) return nullptr;
  }
  const SiteSkip& skip = *reading.skip;
  const bool plain = skip.learnt && skip.macros_on == macros_.expands() &&
                     skip.references.empty() && skip.landing.values.empty();
  return plain ? reading.skip : nullptr;
}

SourcePlace* ScriptParser::TakeBranch(const TagRow& row, TagReading& reading) {
  const SiteValue& written = reading.values[0];
  int64_t value = 0;
  if (!written.expression.program().whole().Compute(variables_, value)) return nullptr;
  Variable* receiver = nullptr;
  if (!written.name.empty()) {
    receiver = written.names.name.FindPlain(variables_);
    if (receiver == nullptr) return nullptr;
  }
  if (!IsClear(ErrorVariable(row))) return nullptr;
  SourcePlace* place = &reading.end;
  bool opens = value != 0;
  if (!opens) {
    SiteSkip* skip = PlainSkip(reading, row.branch->otherwise);
    if (skip == nullptr) return nullptr;
    place = &skip->landing.end;
    opens = skip->row->id != row.closing_id;
  }
  if (receiver != nullptr) receiver->plain_value().SetWhole(value);
  if (opens) states_.emplace_back(new BranchState(*this, row));
  return place;
}

// A tag that ends a branch, of the block on top if it is a step.
SourcePlace* ScriptParser::TakeBranchEnd(const TagRow& row, TagReading& reading) {
  const TagRow* opener = states_.back()->branch();
  if (opener == nullptr || opener->id != row.block) return nullptr;
  SourcePlace* place = &reading.end;
  if (row.id != opener->closing_id) {
    SiteSkip* skip = PlainSkip(reading, opener->branch->early);
    if (skip == nullptr) return nullptr;
    place = &skip->landing.end;
  }
  states_.pop_back();
  return place;
}

// A tag that leaves the running function, from no deeper than a branch in it. Skipping to the
// branch's end comes to nothing then.
bool ScriptParser::TakeReturn(const TagRow& row, TagReading& reading) {
  if (!ReturnsAtOnce(row)) return false;
  const bool in_branch = function_state_ + 2 == states_.size();
  if (!in_branch && function_state_ + 1 != states_.size()) return false;
  if (in_branch) {
    const TagRow* opener = states_.back()->branch();
    if (opener == nullptr || PlainSkip(reading, opener->branch->early) == nullptr ||
        !IsClear(ErrorVariable(row))) {
      return false;
    }
  }
  auto& call = static_cast<FunctionCall&>(*states_[function_state_]);
  if (reading.values.empty()) {
    call.result().clear();
  } else if (!StepValue(reading.values[0], call.result())) {
    return false;
  }
  if (in_branch) states_.pop_back();
  call.Leave();
  states_.pop_back();
  return true;
}

}  // namespace vexa
