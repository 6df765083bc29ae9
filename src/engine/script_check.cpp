// The check reads every tag as the executor does, blocks that would be skipped included, and goes
// on behind a tag that is wrong. Expressions are read but not evaluated.

#include "engine/script_check.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "core/buffer.h"
#include "core/encoding.h"
#include "core/error.h"
#include "core/number.h"
#include "core/text.h"
#include "engine/macro_expander.h"
#include "engine/reference_check.h"
#include "engine/script_parser.h"
#include "engine/script_state.h"
#include "engine/tag_reader.h"

namespace vexa {

namespace {

constexpr int kBlockSize = 65536;

class ScriptChecker final : public TagReader {
 public:
  ScriptChecker(Vexa& host, const TagSet& tags, Buffer& source, Output& out)
      : TagReader(source, tags),
        host_(host),
        out_(out),
        references_(host.defaultmacroencoding(),
                    [this](int line, std::string_view message) { Warn(line, message); }) {}

  // Reads the whole script; whether it is free of errors.
  bool Check() {
    Progress progress;
    do {
      in_tag_ = false;
      progress = FindNextTag();
      // A wrong tag is left where a skip would leave it.
      if (progress == Progress::Failed && in_tag_) progress = Recover();
    } while (progress == Progress::More);
    references_.EndText();
    for (; progress == Progress::EndOfFile && !open_.empty(); open_.pop_back()) {
      ReportSyntaxError(
          String::Concat({"Unexpected end of file looking for &lt;",
                          tags().WithNumber(open_.back()->closing_id)->name, "&gt;"}));
    }
    return clean_;
  }

 protected:
  Progress ProcessText(std::string_view text) override {
    references_.AddText(text, line());
    return Progress::More;
  }
  Progress ProcessNewLine(std::string_view newline) override { return ProcessText(newline); }
  Progress ProcessUnknownTag(std::string_view raw) override {
    references_.AddForeignTag(raw, line());
    return Progress::More;
  }

  void ReportSyntaxError(std::string_view message) override {
    if (skipping_) return;
    Print(SyntaxError({source().errorname(), line(), {}}, message).message());
    clean_ = false;
  }

  Progress ProcessKnownTag(Tag& tag) override {
    const TagRow& row = tag.row();
    if (row.body == TagBody::Condition && !tag.stops() && !CheckCondition(tag)) {
      return Progress::Failed;
    }
    in_tag_ = false;
    CheckReferences();
    if (row.Has(kDeclaresFunction) && InFunction()) {
      ReportSyntaxError("Nested function declarations are not supported");
    }
    if (!FollowBlocks(row, tag.stops())) {
      ReportSyntaxError(UnexpectedTag(row));
    } else if (String problem = tag.Problem(); !problem.empty() && !tag.stops()) {
      ReportSyntaxError(problem);
    }
    return Progress::More;
  }

  bool GetNameValuePairs(Tag& tag) override {
    references_.EndText();
    constants_.clear();
    settings_.clear();
    start_ = CurrentPlace();
    in_tag_ = true;
    row_ = &tag.row();
    if (!TagReader::GetNameValuePairs(tag)) return false;
    const SourcePlace end = CurrentPlace();
    GoTo(start_);
    skipping_ = true;
    const bool misleads = !SkipUntilTagEnd() || !(CurrentPlace() == end);
    skipping_ = false;
    GoTo(end);
    if (misleads) WarnOfSkips(tag);
    return true;
  }

  AttributeEnd GetValue(Tag& tag, const String& name, ScriptValue& value) override {
    const size_t known = constants_.size();
    const SourcePlace start = CurrentPlace();
    const AttributeEnd end = TagReader::GetValue(tag, name, value);
    const AttributeRow* const row = row_->FindAttribute(name);
    const bool is_statement = row != nullptr && row->reading == Reading::Statement;
    if (end != AttributeEnd::Failed && is_statement &&
        (!constant_ || RawSince(start).contains("&["))) {
      Warn(line(), String::Concat({"a value that is written into ", row->name,
                                   " can change the statement: write :name in its place"}));
    }
    if (end != AttributeEnd::Failed && constant_) settings_.push_back({name, constants_[known]});
    return end;
  }

  bool TakeValue(Tag& tag, WrittenValue& written, ScriptValue& value) override {
    if (written.reading == Reading::Deferred) tag.Defer(written.place);
    constant_ = false;
    if (!written.expression.empty()) {
      constant_ = written.expression.program().constant() != nullptr;
      written.expression.program().AppendConstants(constants_);
    } else if (written.reading != Reading::Raw && !Stripped(written.text).empty()) {
      Expression kept;
      if (kept.ReadText(written.text, *this)) kept.program().AppendConstants(constants_);
    }
    value = std::move(written.text);
    return true;
  }

 private:
  Vexa& host() override { return host_; }
  bool ReportExpressionError(std::string_view message) override {
    Print(ExpressionError({source().errorname(), line(), {}}, message).message());
    clean_ = false;
    return false;
  }

  // Messages are written for pages; a terminal wants plain text.
  void Print(String message) {
    message.gsub("<BR>", " ");
    DecodeEntities(message);
    out_.Write(message);
    out_.Write("\n");
  }

  void Warn(int line, std::string_view message) {
    Print(String::Concat(
        {source().errorname(), ": Line ", PrintInteger(line), ": Warning: ", message}));
  }

  void WarnOfSkips(const Tag& tag) {
    Warn(line(), String::Concat({"a skip over this &lt;", tag.name(),
                                 "&gt; ends elsewhere: it knows only double quotes"}));
  }

  // What is written between `start` and here, as it stands.
  String RawSince(const SourcePlace& start) {
    const SourcePlace end = CurrentPlace();
    GoTo(start);
    String raw;
    while (CurrentPlace().position < end.position) {
      const int c = source().GetNextChar();
      if (c < 0) break;
      raw.Accumulate(static_cast<char>(c));
    }
    GoTo(end);
    return raw;
  }

  // Looks at the references in the tag just read, and takes note of what it sets for those behind.
  void CheckReferences() {
    references_.AddTag(RawSince(start_), start_.line, constants_);
    for (const auto& [name, value] : settings_) {
      const AttributeRow* const row = row_->FindAttribute(name);
      if (row == nullptr) continue;
      if (row->name == "DEFAULTMACROENCODING") references_.SetDefault(DefaultEncodingOf(value));
      if (row->name == "INTERPRET") {
        references_.SetExpandMacros(ScriptParser::InterpretsMacros(value));
      }
      if (row->name == "MACRO") references_.SetExpandMacros(IsLeadingPart(value, "on"));
    }
  }

  // The condition of a loop, which the loop itself reads when it begins.
  bool CheckCondition(const Tag& tag) {
    const SourcePlace end = CurrentPlace();
    Expression condition;
    if (!ReadExpressionAt(tag.deferred(), ValueForm::Body, condition)) return false;
    condition.program().AppendConstants(constants_);
    if (!(CurrentPlace() == end)) WarnOfSkips(tag);
    GoTo(end);
    return true;
  }

  // Opens, closes or leaves the blocks that the tag does; false when it cannot stand here.
  bool FollowBlocks(const TagRow& row, bool stops) {
    if (stops) return IsOpen(row.id);
    const TagRow* closer = row.closing_id == 0 ? nullptr : tags().WithNumber(row.closing_id);
    const bool opens = closer != nullptr && closer->block == row.id;
    if (row.block != kNoTag) {
      const bool closes = tags().WithNumber(row.block)->closing_id == row.id;
      const bool divides = closer != nullptr && !opens;
      if (closes || divides) {
        if (open_.empty() || open_.back()->id != row.block) return false;
        if (closes) open_.pop_back();
        return true;
      }
      if (!IsOpen(row.block)) return false;
    }
    if (opens) open_.push_back(&row);
    return true;
  }

  // Whether a block of that tag is open here. Nothing passes the boundary of a function.
  [[nodiscard]] bool IsOpen(int id) const {
    for (size_t i = open_.size(); i-- > 0;) {
      if (open_[i]->id == id) return true;
      if (open_[i]->Has(kDeclaresFunction)) return false;
    }
    return false;
  }

  [[nodiscard]] bool InFunction() const {
    return std::any_of(open_.begin(), open_.end(),
                       [](const TagRow* row) { return row->Has(kDeclaresFunction); });
  }

  // Goes on behind the tag that failed: behind the `>` that ends it for a skip. It opens and closes
  // blocks all the same, so that one mistake is told once.
  Progress Recover() {
    GoTo(start_);
    in_tag_ = false;
    String body;
    if (!EatUntilTagEnd(body)) return Progress::Failed;
    body.Truncate(body.size() - 1);
    (void)FollowBlocks(*row_, row_->IsStopBody(body));
    return Progress::More;
  }

  Vexa& host_;
  Output& out_;
  bool clean_ = true;
  bool in_tag_ = false;            // the attributes of a known tag are being read
  bool skipping_ = false;          // a skip is only tried out
  SourcePlace start_;              // where they begin
  const TagRow* row_ = nullptr;    // whose they are
  std::vector<String> constants_;  // that stand in them
  // Those whose value is one constant.
  std::vector<std::pair<String, String>> settings_;
  bool constant_ = false;  // the last value is one
  ReferenceCheck references_;
  std::vector<const TagRow*> open_;  // the blocks around the current place
};

}  // namespace

bool CheckScript(Vexa& host, const TagSet& tags, const String& path, Output& out) {
  Buffer source(host.filemanager(), kBlockSize);
  if (source.Open(path, path)) return ScriptChecker(host, tags, source, out).Check();
  out.Write(String::Concat({"Unable to open ", path, ": ", source.error(), "\n"}));
  return false;
}

}  // namespace vexa
