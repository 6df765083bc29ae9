// The executor's main path: pieces of the script on their way through the open blocks.

#include "engine/script_parser.h"

#include "core/text.h"
#include "tags/tag_numbers.h"
#include "tags/tag_table.h"

namespace vexa {

ScriptParser::ScriptParser(Vexa& host, MacroExpander& source)
    : Parser(source), host_(host), macros_(source), output_(&host.output()), errors_(host) {
  AddState(std::make_unique<ScriptState>(*this));
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
  ScanResult result;
  do {
    result = FindNextTag();
  } while (result == ScanResult::More);
  if (result == ScanResult::EndOfFile && states_.size() > 1) result = ReportOpenBlock();
  left_states_.clear();  // Blocks that could not be left let go of their locks.
  running_ = false;
  return result == ScanResult::Failed && !exiting_ ? 0 : 1;
}

ScanResult ScriptParser::ReportOpenBlock() {
  SyntaxError(
      String::Concat({"Unexpected end of file looking for ", states_.back()->closing_tag()}));
  return ScanResult::Failed;
}

Output& ScriptParser::SwitchOutput(Output& output) {
  Output& former = *output_;
  output_ = &output;
  return former;
}

void ScriptParser::WriteValue(std::string_view text) {
  if (text.empty()) return;
  output_->Write(text);
  output_->inwhitespace() = IsWhitespace(text.back()) ? 1 : 0;
}

// --- Errors ----------------------------------------------------------------------------------

ErrorPlace ScriptParser::CurrentErrorPlace() const { return {source().errorname(), line(), {}}; }

ScanResult ScriptParser::ReportSyntaxError(std::string_view message) {
  SyntaxError(message);
  return ScanResult::Failed;
}

StateResult ScriptParser::SyntaxError(std::string_view message) {
  (void)errors_.Error(kSyntaxErrors, vexa::SyntaxError(CurrentErrorPlace(), message));
  return StateResult::Failed;
}

// Reports a runtime error of the tag of that form; whether the page goes on, with the message in
// the tag's error variable.
bool ScriptParser::ReportRuntimeError(const TagTemplate& form, std::string_view message) {
  unsigned code = kRuntimeErrors | static_cast<unsigned>(form.id);
  if (errors_.Error(code, vexa::RuntimeError(CurrentErrorPlace(), message)) == 0) return false;
  SetErrorVariable(form, message);
  return true;
}

StateResult ScriptParser::RuntimeError(const Tag& tag, std::string_view message) {
  return ReportRuntimeError(tag.form(), message) ? StateResult::Done : StateResult::Failed;
}

bool ScriptParser::ReportExpressionError(std::string_view message) {
  (void)errors_.Error(kExpressionErrors, vexa::ExpressionError(CurrentErrorPlace(), message));
  return false;
}

// File functions of expressions answer for their failures as the FILE tag does.
bool ScriptParser::ReportFileError(std::string_view message) {
  return ReportRuntimeError(*FindTagTemplateByNumber(kTagFILE), message);
}

void ScriptParser::SetErrorVariable(const TagTemplate& form, const String& text) {
  // A page may hide the name behind a variable that refuses; the error was shown all the same.
  (void)variables().SetVariable(String::Concat({form.name, "_Error"}), text);
}

StateResult ScriptParser::Assign(const Tag& tag, std::string_view name, const String& value) {
  Variable* refused = variables().SetVariable(name, value);
  if (refused == nullptr) return StateResult::Handled;
  return RuntimeError(tag, refused->error());
}

bool ScriptParser::CheckTimeout() {
  if (!host_.timedout()) return true;
  (void)errors_.Error(kTimeoutError, TimeoutError("Application"));
  return false;
}

// --- Pieces ----------------------------------------------------------------------------------

const TagTemplate* ScriptParser::FindTemplate(std::string_view name) const {
  return FindTagTemplate(name);
}

bool ScriptParser::InFunction() const {
  for (const auto& state : states_) {
    if (state->is_function()) return true;
  }
  return false;
}

ScanResult ScriptParser::ProcessKnownTag(Tag& tag) {
  if (!CheckTimeout()) return ScanResult::Failed;
  if (!execute_tags_ && tag.id() != kTagVEXA && tag.id() != kTagQUORBEL) {
    bool ends_function = tag.id() == kTagVxFUNCRETURN || tag.id() == kTagVxFUNCTIONClose;
    if (!ends_function || !InFunction()) return ScanResult::Done;
  }
  if (tag.id() == kTagEXIT || tag.id() == kTagVxEXIT) return ExitScript();
  for (ScriptState* watcher : *watchers_) watcher->BeforeTag();
  return Offer(tag);
}

// Offers a tag from the top state down.
ScanResult ScriptParser::Offer(Tag& tag) {
  for (size_t i = states_.size(); i-- > 0;) {
    bool boundary = states_[i]->is_function();
    StateResult result = states_[i]->ProcessTag(tag);
    if (exiting_) return ScanResult::End;  // A function that the tag called ended the script.
    switch (result) {
      case StateResult::Failed:
        return ScanResult::Failed;
      case StateResult::Done:
      case StateResult::Handled:
        return ScanResult::Done;
      case StateResult::Finished:
        return CloseStates(i);
      case StateResult::NotMine:
        break;
    }
    if (boundary) break;
  }
  return ReportSyntaxError(String::Concat({"Unexpected &lt;", tag.name(), "&gt;"}));
}

// A state may still lead to what the one below it owns.
void ScriptParser::DropStates(size_t count) {
  while (states_.size() > count) states_.pop_back();
}

// Leaves the states from the top down to the one at `index`.
ScanResult ScriptParser::CloseStates(size_t index) {
  while (states_.size() > index) {
    std::unique_ptr<ScriptState> state = std::move(states_.back());
    states_.pop_back();
    bool left = state->ExitState() != StateResult::Failed;
    // A state whose own operation called the function that ends the script is still in use.
    if (exiting_) left_states_.push_back(std::move(state));
    if (!left) return ScanResult::Failed;
  }
  return states_.empty() ? ScanResult::End : ScanResult::Done;
}

// Ends the script after every open block has been left, the functions among them. A block that
// cannot be left ends that, but functions still are: their local scopes die with their calls.
ScanResult ScriptParser::ExitScript() {
  exiting_ = true;
  (void)CloseStates(1);
  for (; states_.size() > 1; states_.pop_back()) {
    if (states_.back()->is_function()) (void)states_.back()->ExitState();
    left_states_.push_back(std::move(states_.back()));
  }
  return ScanResult::End;
}

ScanResult ScriptParser::ProcessText(std::string_view text) {
  if (!CheckTimeout()) return ScanResult::Failed;
  if (filter_ == nullptr) return OfferText(text);
  String filtered;
  filter_->Add(text, filtered);
  return filtered.empty() ? ScanResult::Done : OfferText(filtered);
}

ScanResult ScriptParser::EndText() {
  if (filter_ == nullptr) return ScanResult::Done;
  String rest;
  filter_->End(rest);
  return rest.empty() ? ScanResult::Done : OfferText(rest);
}

// Offers a text from the top state down.
ScanResult ScriptParser::OfferText(std::string_view text) {
  for (size_t i = states_.size(); i-- > 0;) {
    StateResult result = states_[i]->ProcessText(text, output_level_);
    if (result == StateResult::Failed) return ScanResult::Failed;
    if (result == StateResult::Finished) return CloseStates(i);
    if (result != StateResult::NotMine) return ScanResult::Done;
  }
  return ReportSyntaxError("Unexpected text");
}

ScanResult ScriptParser::ProcessNewLine(std::string_view newline) {
  if (!CheckTimeout()) return ScanResult::Failed;
  if (ScanResult ended = EndText(); ended != ScanResult::Done) return ended;
  if ((output_level_ & kTextOutput) == 0) return ScanResult::Done;
  if ((output_level_ & kCompressWhitespace) == 0 || output_->inwhitespace() == 0) {
    output_->Write(newline);
  }
  output_->inwhitespace() = 1;
  return ScanResult::Done;
}

ScanResult ScriptParser::ProcessUnknownTag(std::string_view raw) {
  if (!CheckTimeout()) return ScanResult::Failed;
  if ((output_level_ & kHtmlOutput) == 0) return ScanResult::Done;
  output_->inwhitespace() = 0;
  output_->Write(raw);
  return ScanResult::Done;
}

// No state treats text in a way of its own; what changes text on its way is a filter.
bool ScriptParser::CopiesPlainText() const {
  constexpr int kCopied = kHtmlOutput | kTextOutput;
  return filter_ == nullptr && (output_level_ & (kCopied | kCompressWhitespace)) == kCopied;
}

ScanResult ScriptParser::ProcessPlain(std::string_view text) {
  if (!CheckTimeout()) return ScanResult::Failed;
  WriteValue(text);
  return ScanResult::Done;
}

std::unique_ptr<Tag> ScriptParser::SkipTo(std::span<const WantedTag> wanted,
                                          std::string_view closing_tag) {
  std::unique_ptr<Tag> found;
  if (FindTag(found, wanted) == ScanResult::EndOfFile) {
    SyntaxError(String::Concat({"Unexpected end of file looking for ", closing_tag}));
  }
  return found;
}

}  // namespace vexa
