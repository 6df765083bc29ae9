// The executor's main path: pieces of the script on their way through the open blocks.
//
//   Parse ─▶ FindNextTag (scanner) ─▶ ProcessText, ProcessNewLine, ProcessUnknownTag ─▶ output
//                                  └▶ TakeValue, for each attribute: evaluated before the next is
//                                  read └▶ ProcessKnownTag ─▶ Offer, from the top state down
//                                                          └▶ CloseStates, when one is finished
//
// states_ holds the open blocks, the base state at the bottom. A function call is a state too, and
// runs its own loop of FindNextTag (script_calls.cpp): nothing passes its boundary. The end of the
// script may be asked for deep inside such calls; exiting_ tells everybody further out to return.

#include "engine/script_parser.h"

#include <cassert>
#include <utility>

#include "core/text.h"
#include "engine/block_state.h"
#include "engine/tag_call.h"
#include "expr/key_rule.h"

namespace vexa {

ScriptParser::ScriptParser(Vexa& host, MacroExpander& source, const TagSet& tags)
    : TagReader(source, tags),
      host_(host),
      variables_(host.vars()),
      macros_(source),
      output_(&host.output()),
      errors_(host, tags) {
  AddState(std::make_unique<ScriptState>(*this));
  if (UseShortcuts()) NumberScript();
}

ScriptParser::~ScriptParser() {
  left_states_.clear();
  DropStates(0);
}

int ScriptParser::Parse() {
  DropStates(1);
  filter_ = nullptr;
  exiting_ = false;
  GoTo({});
  running_ = true;
  Progress progress;
  do {
    progress = FindNextTag();
  } while (progress == Progress::More);
  bool failed = progress == Progress::Failed;
  if (progress == Progress::EndOfFile && states_.size() > 1) {
    ReportOpenBlock(*states_.back());
    failed = true;
  }
  left_states_.clear();  // Blocks that could not be left let go of their locks.
  running_ = false;
  return failed && !exiting_ ? 0 : 1;
}

void ScriptParser::ReportOpenBlock(const ScriptState& block) {
  SyntaxError(String::Concat({"Unexpected end of file looking for ", block.closing_tag()}));
}

Output& ScriptParser::SwitchOutput(Output& output) {
  Output& former = *output_;
  output_ = &output;
  return former;
}

// --- Errors ----------------------------------------------------------------------------------

ErrorPlace ScriptParser::CurrentErrorPlace() const { return {source().errorname(), line(), {}}; }

StateResult ScriptParser::SyntaxError(std::string_view message) {
  (void)errors_.Error(kSyntaxErrors, vexa::SyntaxError(CurrentErrorPlace(), message));
  return StateResult::Failed;
}

// Whether the page goes on, with the message in the tag's error variable.
bool ScriptParser::ReportRuntimeError(const TagRow& row, std::string_view message) {
  unsigned code = kRuntimeErrors | static_cast<unsigned>(row.id);
  if (errors_.Error(code, vexa::RuntimeError(CurrentErrorPlace(), message)) == 0) return false;
  SetErrorVariable(row, message);
  return true;
}

StateResult ScriptParser::RuntimeError(const TagRow& row, std::string_view message) {
  return ReportRuntimeError(row, message) ? StateResult::Reported : StateResult::Failed;
}

bool ScriptParser::ReportExpressionError(std::string_view message) {
  (void)errors_.Error(kExpressionErrors, vexa::ExpressionError(CurrentErrorPlace(), message));
  return false;
}

bool ScriptParser::ReportFileError(std::string_view message) {
  return ReportRuntimeError(*tags().WithFlag(kAnswersForFiles), message);
}

const KnownName& ScriptParser::NameErrorVariable(const TagRow& row) {
  const auto id = static_cast<size_t>(row.id);
  if (id >= error_variables_.size()) error_variables_.resize(tags().rows.size());
  const String name = String::Concat({row.name, kErrorVariableSuffix});
  return error_variables_[id] = KnownName(Variables::Scope(name));
}

void ScriptParser::SetErrorVariable(const TagRow& row, ScriptValue text) {
  // A page may hide the name behind a variable that refuses; the error was shown all the same.
  (void)variables_.SetVariable(ErrorVariable(row).name(), std::move(text));
}

StateResult ScriptParser::Assign(const TagRow& row, const ScopedName& name, ScriptValue&& value) {
  Variable* refused = variables_.SetVariable(name, std::move(value));
  if (refused == nullptr) return StateResult::Handled;
  return RuntimeError(row, refused->error());
}

// Always false.
bool ScriptParser::ReportTimeout() {
  (void)errors_.Error(kTimeoutError, TimeoutError("Application"));
  return false;
}

// --- Values ----------------------------------------------------------------------------------

bool ScriptParser::TakeValue(Tag& tag, WrittenValue& written, ScriptValue& value) {
  if (written.reading == Reading::Deferred) {
    tag.Defer(written.place);
    return true;
  }
  if (!written.expression.empty()) return written.expression.Evaluate(*this, value);
  value = std::move(written.text);
  return true;
}

// --- Pieces ----------------------------------------------------------------------------------

Progress ScriptParser::ProcessKnownTag(Tag& tag) {
  if (!CheckTimeout()) return Progress::Failed;
  const TagRow& row = tag.row();
  if (!execute_tags_ && !row.Has(kRunsWhileOff) && !(row.Has(kEndsFunction) && InFunction())) {
    return Progress::More;
  }
  if (row.Has(kEndsScript)) return ExitScript();
  for (ScriptState* watcher : *watchers_) watcher->BeforeTag();
  return Offer(tag);
}

// Offers a tag from the top state down.
Progress ScriptParser::Offer(Tag& tag) {
  assert(!states_.empty());
  for (size_t i = states_.size(); i-- > 0;) {
    const StateResult result = states_[i]->ProcessTag(tag);
    if (exiting_) return Progress::Stop;  // A function that the tag called ended the script.
    switch (result) {
      case StateResult::Failed:
        return Progress::Failed;
      case StateResult::Reported:
      case StateResult::Handled:
        return Progress::More;
      case StateResult::Finished:
        return CloseStates(i);
      case StateResult::NotMine:
        break;
    }
    if (states_[i]->is_function()) break;
  }
  SyntaxError(UnexpectedTag(tag.row()));
  return Progress::Failed;
}

StateResult ScriptParser::Handle(TagCall& call) {
  if (call.row().Has(kNotInKeyFunctions)) {
    if (const String* const index = host_.keyindex()) return RefuseInKey(call, *index);
  }
  return call.row().handler(call);
}

StateResult ScriptParser::RefuseInKey(const TagCall& call, const String& index) {
  const StateResult result = call.Fail(NotInKeyMessage(index, call.row().name));
  if (result == StateResult::Failed || call.row().closing_id == 0) return result;
  return BlockState(call).SkipBlock();
}

// A state may still lead to what the one below it owns.
void ScriptParser::DropStates(size_t count) {
  while (states_.size() > count) states_.pop_back();
}

// Leaves the states from the top down to the one at `index`.
Progress ScriptParser::CloseStates(size_t index) {
  assert(index < states_.size());
  while (states_.size() > index) {
    StateOwner state = std::move(states_.back());
    states_.pop_back();
    bool left = state->ExitState() != StateResult::Failed;
    // A state whose own operation called the function that ends the script is still in use.
    if (exiting_) left_states_.push_back(std::move(state));
    if (!left) return Progress::Failed;
  }
  return states_.empty() ? Progress::Stop : Progress::More;
}

// Ends the script:
//   1. Everybody further out is told.
//   2. Every open block is left, from the top down, functions among them. A block that cannot be
//      left ends that.
//   3. Functions still are left: their local scopes die with their calls. States that are in use
//      further out live on in left_states_ until the script returns.
Progress ScriptParser::ExitScript() {
  exiting_ = true;
  if (states_.size() > 1) (void)CloseStates(1);
  for (; states_.size() > 1; states_.pop_back()) {
    if (states_.back()->is_function()) (void)states_.back()->ExitState();
    left_states_.push_back(std::move(states_.back()));
  }
  return Progress::Stop;
}

Progress ScriptParser::ProcessText(std::string_view text) {
  if (!CheckTimeout()) return Progress::Failed;
  if (filter_ == nullptr) return OfferText(text);
  String filtered;
  filter_->Add(text, filtered);
  return filtered.empty() ? Progress::More : OfferText(filtered);
}

Progress ScriptParser::EndText() {
  if (filter_ == nullptr) return Progress::More;
  String rest;
  filter_->End(rest);
  return rest.empty() ? Progress::More : OfferText(rest);
}

// Offers a text from the top state down.
Progress ScriptParser::OfferText(std::string_view text) {
  for (size_t i = states_.size(); i-- > 0;) {
    StateResult result = states_[i]->ProcessText(text, output_level_);
    if (result == StateResult::Failed) return Progress::Failed;
    if (result == StateResult::Finished) return CloseStates(i);
    if (result != StateResult::NotMine) return Progress::More;
  }
  SyntaxError("Unexpected text");
  return Progress::Failed;
}

Progress ScriptParser::ProcessNewLine(std::string_view newline) {
  if (!CheckTimeout()) return Progress::Failed;
  if (Progress ended = EndText(); ended != Progress::More) return ended;
  if ((output_level_ & kTextOutput) == 0) return Progress::More;
  if ((output_level_ & kCompressWhitespace) == 0 || output_->inwhitespace() == 0) {
    output_->Write(newline);
  }
  output_->inwhitespace() = 1;
  return Progress::More;
}

Progress ScriptParser::ProcessUnknownTag(std::string_view raw) {
  if (!CheckTimeout()) return Progress::Failed;
  if ((output_level_ & kHtmlOutput) == 0) return Progress::More;
  output_->inwhitespace() = 0;
  output_->Write(raw);
  return Progress::More;
}

// No state treats text in a way of its own; what changes text on its way is a filter.
bool ScriptParser::CopiesPlainText() const {
  constexpr int kCopied = kHtmlOutput | kTextOutput;
  return filter_ == nullptr && (output_level_ & (kCopied | kCompressWhitespace)) == kCopied;
}

Progress ScriptParser::ProcessPlain(std::string_view text) {
  if (!CheckTimeout()) return Progress::Failed;
  WriteValue(text);
  return Progress::More;
}

}  // namespace vexa
