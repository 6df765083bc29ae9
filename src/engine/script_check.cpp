// The check reads every tag as the executor does, blocks that would be skipped included, and goes
// on behind a tag that is wrong. Expressions are read but not evaluated.

#include "engine/script_check.h"

#include <algorithm>
#include <vector>

#include "core/buffer.h"
#include "core/encoding.h"
#include "core/error.h"
#include "core/number.h"
#include "engine/script_state.h"
#include "engine/tag_reader.h"

namespace vexa {

namespace {

constexpr int kBlockSize = 65536;

class ScriptChecker final : public TagReader {
 public:
  ScriptChecker(Vexa& host, const TagSet& tags, Buffer& source, Output& out)
      : TagReader(source, tags), host_(host), out_(out) {}

  // Reads the whole script; whether it is free of errors.
  bool Check() {
    Progress progress;
    do {
      in_tag_ = false;
      progress = FindNextTag();
      // A wrong tag is left where a skip would leave it.
      if (progress == Progress::Failed && in_tag_) progress = Recover();
    } while (progress == Progress::More);
    for (; progress == Progress::EndOfFile && !open_.empty(); open_.pop_back()) {
      ReportSyntaxError(
          String::Concat({"Unexpected end of file looking for &lt;",
                          tags().WithNumber(open_.back()->closing_id)->name, "&gt;"}));
    }
    return clean_;
  }

 protected:
  Progress ProcessText(std::string_view) override { return Progress::More; }
  Progress ProcessNewLine(std::string_view) override { return Progress::More; }
  Progress ProcessUnknownTag(std::string_view) override { return Progress::More; }

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

  bool TakeValue(Tag& tag, WrittenValue& written, ScriptValue& value) override {
    if (written.reading == Reading::Deferred) tag.Defer(written.place);
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

  void WarnOfSkips(const Tag& tag) {
    Print(String::Concat({source().errorname(), ": Line ", PrintInteger(line()),
                          ": Warning: ", "a skip over this &lt;", tag.name(),
                          "&gt; ends elsewhere: it knows only double quotes"}));
  }

  // The condition of a loop, which the loop itself reads when it begins.
  bool CheckCondition(const Tag& tag) {
    const SourcePlace end = CurrentPlace();
    Expression condition;
    if (!ReadExpressionAt(tag.deferred(), ValueForm::Body, condition)) return false;
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
  bool in_tag_ = false;              // the attributes of a known tag are being read
  bool skipping_ = false;            // a skip is only tried out
  SourcePlace start_;                // where they begin
  const TagRow* row_ = nullptr;      // whose they are
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
