// ScriptParser: executes one script file. It decides how attribute values are read and evaluated,
// routes every piece that the scanner finds through a stack of block states, writes what is
// output, and runs calls of the script's functions.
//
// Read in this order: tag_reader.h (how tags are read), script_parser.cpp (pieces, values and
// states), script_calls.cpp (functions), script_settings.cpp (what the settings tags change).

#ifndef VEXA_ENGINE_SCRIPT_PARSER_H_
#define VEXA_ENGINE_SCRIPT_PARSER_H_

#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/text.h"
#include "core/variables.h"
#include "engine/error_handler.h"
#include "engine/function.h"
#include "engine/macro_expander.h"
#include "engine/script_state.h"
#include "engine/site.h"
#include "engine/site_store.h"
#include "engine/tag.h"
#include "engine/tag_reader.h"
#include "expr/expression.h"
#include "vexa.h"

namespace vexa {

// Bits of the standard output level.
enum OutputLevel : int {
  kVexaOutput = 1,
  kHtmlOutput = 2,
  kTextOutput = 4,
  kCompressWhitespace = 8,
};

// Changes the text of a script on its way to the open blocks. At most one is in place; text that a
// function prints is not touched.
class TextFilter {
 public:
  virtual ~TextFilter() = default;
  // Takes the next piece of a run of text and appends to `out` what can be delivered already.
  virtual void Add(std::string_view text, String& out) = 0;
  // The run ended, at a tag, a line end or the end of the file: appends what was kept back.
  virtual void End(String& out) = 0;
};

// An expression that stands in a tag and is evaluated later and again (loop conditions, filters).
// What was read is remembered with the values that the references in it had.
class DeferredExpression {
 public:
  DeferredExpression(const SourcePlace& place, ValueForm form) : place_(place), form_(form) {}

 private:
  friend class ScriptParser;
  SourcePlace place_;
  ValueForm form_;
  bool read_ = false;  // the rest is what was read
  bool macros_on_ = true;
  std::vector<ReferenceValue> references_;
  Expression expression_;
  bool calls_ = false;  // whether it calls any function
  bool fixed_ = false;  // read, and without references
  SourcePlace behind_;
};

class ScriptParser final : public TagReader {
 public:
  // All are borrowed and must outlive the parser.
  ScriptParser(Vexa& host, MacroExpander& source, const TagSet& tags);
  ~ScriptParser() override;

  // From here on what is learnt of the script is noted there; what was learnt before is known.
  // Borrowed. REQUIRES: nothing was run yet.
  void UseSites(SiteStore& sites) { sites_ = &sites; }
  // Runs the script from its first line with no block open. 1 when it ran to an end (also one that
  // a tag asked for), 0 when an error stopped it.
  int Parse();
  // Whether Parse or EvaluateText is in progress.
  [[nodiscard]] bool running() const { return running_; }

  // --- For states and tag handlers ---
  [[nodiscard]] Vexa& host() override { return host_; }
  [[nodiscard]] Variables& variables() { return variables_; }
  [[nodiscard]] Output& output() { return *output_; }
  // Sends what follows to another output; returns the former one. Borrowed.
  Output& SwitchOutput(Output& output);
  // Passes the script's text through `filter` from here on (null: no filter), outside of functions;
  // returns the former one. Borrowed.
  TextFilter* SwitchTextFilter(TextFilter* filter) { return std::exchange(filter_, filter); }
  // Writes a tag's output and keeps the white-space flag; an empty text changes nothing.
  void WriteValue(std::string_view text) override {
    if (text.empty()) return;
    output_->Write(text);
    output_->inwhitespace() = IsWhitespace(text.back()) ? 1 : 0;
  }

  // Report an error at the current line. Always return Failed.
  StateResult SyntaxError(std::string_view message);
  void ReportSyntaxError(std::string_view message) override { SyntaxError(message); }
  // Reports a runtime error of a tag of that row. Reported when the page goes on, with the message
  // in the tag's error variable; else Failed.
  [[nodiscard]] StateResult RuntimeError(const TagRow& row, std::string_view message);
  bool ReportExpressionError(std::string_view message) override;
  bool ReportFileError(std::string_view message) override;
  // Runs the handler of a tag. While the key of an index is computed, tags that its functions may
  // not use fail instead, and their blocks are passed over.
  [[nodiscard]] StateResult Handle(TagCall& call);
  // The variable that holds the last runtime error of a tag of that row.
  void SetErrorVariable(const TagRow& row, ScriptValue text);
  void ClearErrorVariable(const TagRow& row) {
    if (!IsClear(ErrorVariable(row))) SetErrorVariable(row, ScriptValue());
  }
  // Assigns on behalf of a tag of that row; a refusal is a runtime error of the tag.
  [[nodiscard]] StateResult Assign(const TagRow& row, const ScopedName& name, ScriptValue&& value);
  [[nodiscard]] StateResult Assign(const TagRow& row, const KnownName& name, ScriptValue&& value) {
    Variable* variable = name.FindPlain(variables_);
    if (variable == nullptr) return Assign(row, name.name(), std::move(value));
    variable->plain_value() = std::move(value);
    return StateResult::Handled;
  }
  [[nodiscard]] StateResult Assign(const TagRow& row, std::string_view name, ScriptValue value) {
    return Assign(row, Variables::Scope(name), std::move(value));
  }

  // False, after the error was reported, when the request's time is up. For handlers that work
  // long without a tag; the executor itself asks before every piece.
  [[nodiscard]] bool CheckTimeout() { return !host_.timedout() || ReportTimeout(); }

  void AddState(std::unique_ptr<ScriptState> state) { states_.emplace_back(state.release()); }
  // From here on `state` is told of every tag of this script and of the scripts it runs, until it
  // is removed, which must happen before it is destroyed.
  void AddWatcher(ScriptState* state) { watchers_->push_back(state); }
  void RemoveWatcher(ScriptState* state) { std::erase(*watchers_, state); }
  // The place behind what was read last, and the way back to it.
  [[nodiscard]] SourcePlace CurrentPlace() const {
    SourcePlace place = macros_.Place();
    place.site = next_;
    return place;
  }
  void GoTo(const SourcePlace& place) {
    macros_.Return(place);
    next_ = place.site;
    link_ = nullptr;
  }
  // The same for a place that is gone back to again and again: it is noted there what is remembered
  // of the script. REQUIRES: `place` lives until the next tag or text is read.
  void GoBackTo(SourcePlace& place) {
    GoTo(place);
    if (next_ == nullptr) link_ = &place;
  }
  // Evaluates an expression of the script, then stands again where it stood. False after an error
  // was reported.
  [[nodiscard]] bool EvaluateAt(DeferredExpression& expression, ScriptValue& value);
  // Whether a condition that can be computed as a whole number at once holds; the number is
  // assigned to the variable `receiver` (no name: to none). When it is false nothing was done.
  [[nodiscard]] bool TryCondition(const DeferredExpression& condition, const KnownName& receiver);
  // Skips to the tag that closes a block; a file that ends first is the error that names the
  // closing tag of `block`. The row of the tag found, or null on failure.
  [[nodiscard]] const TagRow* SkipTo(const WantedTags& wanted, const ScriptState& block);

  // --- Functions ---
  [[nodiscard]] bool FindFunction(Symbol symbol, const Callable*& function) override;
  [[nodiscard]] bool CallFunction(const Callable& function, std::span<ScriptValue> arguments,
                                  ScriptValue& result) override;
  // The script's own function of that name as far as it is known, or null.
  [[nodiscard]] Function* FindOwnFunction(Symbol name) const { return functions_.Find(name); }
  void AddFunction(std::unique_ptr<Function> function) { functions_.Add(std::move(function)); }
  // Whether a call of one of the script's own functions is in progress.
  [[nodiscard]] bool InFunction() const { return function_state_ != 0; }
  // Goes one call deeper; false, after an error, when that is deeper than the site allows.
  [[nodiscard]] bool PushFunctionCall();
  void PopFunctionCall() { --depth_; }
  // What a script takes over from the one that runs it, for as long as it runs: inheritance() of
  // the one, given to TakeOver of the other.
  struct Inheritance {
    ErrorHandler errors;
    Output* output;
    int depth;
    std::shared_ptr<std::vector<ScriptState*>> watchers;
  };
  [[nodiscard]] Inheritance inheritance() const { return {errors_, output_, depth_, watchers_}; }
  void TakeOver(const Inheritance& inherited);
  // Evaluates `text` with this script's functions, for a script that runs it. A function that ends
  // this script makes the value empty. False after an error was reported.
  [[nodiscard]] bool EvaluateText(std::string_view text, String& value);

  // --- Settings of the page ---
  void SetTagDetect(bool on);
  void SetExpandMacros(bool on);
  void SetInterpret(std::string_view list);
  // Whether references are expanded behind such a list.
  [[nodiscard]] static bool InterpretsMacros(std::string_view list);
  [[nodiscard]] int StandardOutputLevelValue(std::string_view list) const;
  [[nodiscard]] unsigned ErrorOutputLevelValue(std::string_view list) const;
  [[nodiscard]] int standardoutputlevel() const { return output_level_; }
  // Both return the previous level.
  int SetStandardOutputLevel(int level);
  unsigned SetErrorOutputLevel(unsigned level) { return errors_.SetErrorOutputLevel(level); }
  void SetErrorMessage(const String& text) { errors_.SetErrorMessage(text); }
  void SetDefaultMacroEncoding(std::string_view value);
  void SetTagErrorSettings(std::string_view tag, std::string_view list);

 protected:
  [[nodiscard]] Progress ProcessKnownTag(Tag& tag) override;
  [[nodiscard]] Progress ProcessUnknownTag(std::string_view raw) override;
  [[nodiscard]] Progress ProcessText(std::string_view text) override;
  [[nodiscard]] Progress ProcessNewLine(std::string_view newline) override;
  [[nodiscard]] Progress EndText() override;
  [[nodiscard]] bool CopiesPlainText() const override;
  [[nodiscard]] Progress ProcessPlain(std::string_view text) override;
  [[nodiscard]] bool TakeValue(Tag& tag, WrittenValue& written, ScriptValue& value) override;

 private:
  [[nodiscard]] MacroExpander& macros() { return macros_; }
  [[nodiscard]] ErrorPlace CurrentErrorPlace() const;
  // --- Sites (script_sites.cpp) ---
  [[nodiscard]] Progress FindNextTag();
  Site* FindSite();
  Progress FollowText(Site& site);
  const TextPiece* DeliverText(const Site& site, Progress& progress);
  const TextPiece* CopyText(const Site& site, Progress& progress);
  Progress FollowTag(Site& site);
  Progress CarryOut(const Site& site, TagReading& reading, Tag& tag);
  Progress ReadAnew(const SourcePlace& place);
  bool FollowPiece(const Site& site, const TextPiece& piece, Progress& progress);
  bool WriteForeign(const Site& site, const TextPiece& piece, Progress& progress);
  TagReading* ReadingOf(Site& site);
  [[nodiscard]] bool Hold(std::span<const ReferenceValue> references);
  [[nodiscard]] bool EvaluateSiteValue(SiteValue& written, ScriptValue& value);
  Progress FollowAssignment(const TagRow& row, TagReading& reading);
  Progress FollowReturn(const TagRow& row, TagReading& reading);
  // Whether such a tag, which leaves a function, leaves the running one without a closer look.
  [[nodiscard]] bool ReturnsAtOnce(const TagRow& row) const {
    const bool closes = row.handler == nullptr;
    return function_state_ != 0 && (!closes || function_state_ + 1 == states_.size());
  }
  void GoOnBehind(TagReading& reading);
  Progress EvaluateAndProcess(const Site& site, TagReading& reading, Tag& tag);
  Progress RunHandler(Tag& tag);
  [[nodiscard]] bool EvaluateRead(const DeferredExpression& deferred, ScriptValue& value);
  SiteSkip* KnownSkip(const WantedTags& wanted);
  void CheckSite(const Site& site);
  // --- Steps (script_steps.cpp) ---
  // Whether the last of them left the running function.
  bool TakeSteps();
  SourcePlace* TakeStep(Site& site);
  SourcePlace* TakeAssignment(TagReading& reading);
  SourcePlace* TakeCopy(TagReading& reading);
  bool CopyValue(const SiteValue& written, ScriptValue& to);
  bool StepValue(const SiteValue& written, ScriptValue& to);
  bool TakeReturn(const TagRow& row, TagReading& reading);
  SourcePlace* TakeAppending(TagReading& reading);
  SourcePlace* TakeBranch(const TagRow& row, TagReading& reading);
  SourcePlace* TakeBranchEnd(const TagRow& row, TagReading& reading);
  SiteSkip* PlainSkip(TagReading& reading, const WantedTags& wanted);

  const KnownName& ErrorVariable(const TagRow& row) {
    const auto id = static_cast<size_t>(row.id);
    if (id < error_variables_.size() && error_variables_[id]) [[likely]]
      return error_variables_[id];
    return NameErrorVariable(row);
  }
  const KnownName& NameErrorVariable(const TagRow& row);
  // Whether that variable is there and empty, so that clearing it would change nothing.
  [[nodiscard]] bool IsClear(const KnownName& name) {
    const Variable* variable = name.FindPlain(variables_);
    return variable != nullptr && variable->plain_value().IsEmpty();
  }
  StateResult RefuseInKey(const TagCall& call, const String& index);
  bool ReportTimeout();
  bool ReportDepth();
  bool ReportRuntimeError(const TagRow& row, std::string_view message);
  Progress Offer(Tag& tag);
  Progress OfferText(std::string_view text);
  Progress CloseStates(size_t index);
  // Destroys the states from the top down until `count` are left, without leaving their blocks.
  void DropStates(size_t count);
  Progress ExitScript();
  void ReportOpenBlock(const ScriptState& block);

  bool CallOwnFunction(Function& function, std::span<ScriptValue> arguments, ScriptValue& result);
  bool ScanForFunction(std::string_view name);

  Vexa& host_;
  Variables& variables_;
  MacroExpander& macros_;
  Output* output_;
  TextFilter* filter_ = nullptr;  // of the text outside of functions
  ErrorHandler errors_;
  FunctionTable functions_;         // behind it the states, of which some are calls
  std::vector<StateOwner> states_;  // the base state is the first
  size_t function_state_ = 0;       // which of them is the running function's; 0: there is none
  std::vector<StateOwner> left_states_;  // left by the end of the script
  // Told of every tag; one list for a script and all the scripts it runs.
  std::shared_ptr<std::vector<ScriptState*>> watchers_ =
      std::make_shared<std::vector<ScriptState*>>();
  std::vector<KnownName> error_variables_;  // by the numbers of the tags; no name: not asked yet
  SiteStore own_sites_;
  SiteStore* sites_ = &own_sites_;
  Site* next_ = nullptr;         // the site at the place where the script stands, when it is known
  SourcePlace* link_ = nullptr;  // where the next site found is noted, when it is there
  uint32_t steps_ = 0;           // on whole numbers, so far
  bool execute_tags_ = true;
  int output_level_ = kHtmlOutput | kTextOutput;
  int depth_ = 0;  // function calls in progress, those of calling scripts included
  bool running_ = false;
  bool exiting_ = false;   // a tag asked for the end of the script
  bool scanning_ = false;  // a forward scan for a function is in progress
};

}  // namespace vexa

#endif  // VEXA_ENGINE_SCRIPT_PARSER_H_
