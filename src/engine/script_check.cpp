// The check reads every tag as the executor would, blocks that would be skipped included, and goes
// on behind a tag that is wrong. Expressions are read but not evaluated.

#include "engine/script_check.h"

#include <vector>

#include "core/buffer.h"
#include "core/encoding.h"
#include "core/error.h"
#include "core/number.h"
#include "engine/parser.h"
#include "expr/expression.h"
#include "tags/attribute_forms.h"
#include "tags/tag_numbers.h"
#include "tags/tag_table.h"

namespace vexa {

namespace {

constexpr int kBlockSize = 65536;

class ScriptChecker final : public Parser, private CharacterSource, private ExpressionContext {
 public:
  ScriptChecker(Vexa& host, Buffer& source, Output& out) : Parser(source), host_(host), out_(out) {}

  // Reads the whole script; whether it is free of errors.
  bool Check() {
    ScanResult result;
    do {
      in_tag_ = false;
      result = FindNextTag();
      // A wrong tag is left where a skip would leave it.
      if (result == ScanResult::Failed && in_tag_) result = Recover();
    } while (result == ScanResult::More);
    for (; result == ScanResult::EndOfFile && !open_.empty(); open_.pop_back()) {
      String closer = FindTagTemplateByNumber(open_.back()->closing_id)->name;
      ReportSyntaxError(
          String::Concat({"Unexpected end of file looking for &lt;", closer, "&gt;"}));
    }
    return clean_;
  }

 protected:
  const TagTemplate* FindTemplate(std::string_view name) const override {
    return FindTagTemplate(name);
  }
  ScanResult ProcessText(std::string_view) override { return ScanResult::Done; }
  ScanResult ProcessNewLine(std::string_view) override { return ScanResult::Done; }
  ScanResult ProcessUnknownTag(std::string_view) override { return ScanResult::Done; }

  ScanResult ReportSyntaxError(std::string_view message) override {
    if (skipping_) return ScanResult::Failed;
    Print(SyntaxError({source().errorname(), line(), {}}, message).message());
    clean_ = false;
    return ScanResult::Failed;
  }

  ScanResult ProcessKnownTag(Tag& tag) override {
    const TagTemplate& form = tag.form();
    bool attributes_count = form.id == kTagVxIF || form.id == kTagVxWHILE || form.id == kTagVxEVAL;
    if (attributes_count && tag.attributes().size() != 1) {
      return ReportSyntaxError(String::Concat({tag.name(), " expects exactly 1 name/value pair"}));
    }
    if (form.id == kTagVxELSE) return IsInnermost(kTagVxIF) ? ScanResult::Done : Unexpected(tag);
    if (tag.Has("STOP") && (form.id == kTagWHILE || form.id == kTagIMPORT)) {
      return IsOpen(form.id) ? ScanResult::Done : Unexpected(tag);
    }
    if (int block = StoppedBlock(form.id); block >= 0) {
      return IsOpen(block) ? ScanResult::Done : Unexpected(tag);
    }
    if (form.closing_id != 0) {
      open_.push_back(&form);
    } else if (tag.name().starts_with('/')) {
      if (open_.empty() || open_.back()->closing_id != form.id) return Unexpected(tag);
      open_.pop_back();
    }
    return ScanResult::Done;
  }

  ScanResult GetNameValuePairs(Tag& tag) override {
    start_ = source().Place();
    in_tag_ = true;
    ScanResult result = ReadTag(tag);
    if (result == ScanResult::Failed) return result;
    SourcePlace end = source().Place();
    source().Return(start_);
    skipping_ = true;
    bool misleads = SkipRest() == ScanResult::Failed || !(source().Place() == end);
    skipping_ = false;
    source().Return(end);
    if (misleads) {
      Print(String::Concat({source().errorname(), ": Line ", PrintInteger(line()),
                            ": Warning: ", "a skip over this &lt;", tag.name(),
                            "&gt; ends elsewhere: it knows only double quotes"}));
    }
    return result;
  }

  ScanResult GetValue(Tag& tag, const String& name, String&) override {
    if (IsRawOrder(tag.id(), name)) return SkipRest();
    return ReadValue(AttributeForm(tag.id(), name));
  }

  ScanResult ProcessEmptyValue(Tag& tag, const String& name, String& value) override {
    if (tag.id() == kTagVxIF || tag.id() == kTagVxEVAL || tag.id() == kTagVxWHILE) {
      return ReportSyntaxError(String::Concat(
          {"Attributes with empty values are not allowed in &lt;", tag.name(), "&gt;"}));
    }
    return Parser::ProcessEmptyValue(tag, name, value);
  }

 private:
  int NextChar() override { return source().GetNextChar(); }
  void PutBack() override { source().UnGetChar(); }
  SourcePlace Place() const override { return source().Place(); }
  void Return(const SourcePlace& place) override { source().Return(place); }

  Vexa& host() override { return host_; }
  bool ReportExpressionError(std::string_view message) override {
    Print(ExpressionError({source().errorname(), line(), {}}, message).message());
    clean_ = false;
    return false;
  }
  bool ReportFileError(std::string_view) override { return false; }
  bool FindFunction(std::string_view, const Callable*&) override { return false; }
  bool CallFunction(const Callable&, std::span<String>, String&) override { return false; }

  // Messages are written for pages; a terminal wants plain text.
  void Print(String message) {
    message.gsub("<BR>", " ");
    DecodeEntities(message);
    out_.Write(message);
    out_.Write("\n");
  }

  ScanResult Unexpected(const Tag& tag) {
    return ReportSyntaxError(String::Concat({"Unexpected &lt;", tag.name(), "&gt;"}));
  }

  // Goes on behind the tag that failed: behind the `>` that ends it for a skip.
  ScanResult Recover() {
    source().Return(start_);
    in_tag_ = false;
    return SkipRest() == ScanResult::Failed ? ScanResult::Failed : ScanResult::More;
  }

  ScanResult SkipRest() {
    return SkipUntilTagEnd() == ScanResult::Failed ? ScanResult::Failed : ScanResult::End;
  }

  ScanResult ReadTag(Tag& tag) {
    if (tag.id() == kTagHIDE) return SkipRest();
    if (tag.id() != kTagIF && tag.id() != kTagEVAL && tag.id() != kTagWHILE) {
      return ReadAttributes(tag);
    }
    String body;
    if (EatUntilTagEnd(body) == ScanResult::Failed) return ScanResult::Failed;
    body.Truncate(body.size() - 1);
    if (IsStopBody(tag.id(), body)) {
      tag.AddNameValuePair("STOP", {});
      return ScanResult::End;
    }
    source().Return(start_);
    return ReadValue(ValueForm::Body);
  }

  ScanResult ReadValue(ValueForm form) {
    Expression expression;
    ValueEnd end = expression.Read(*this, form, *this);
    if (end == ValueEnd::Failed) return ScanResult::Failed;
    return end == ValueEnd::TagEnd ? ScanResult::End : ScanResult::More;
  }

  // The block that a stop, delete or return tag needs around it; -1 for other tags.
  static int StoppedBlock(int id) {
    switch (id) {
      case kTagVxIMPORTSTOP:
        return kTagVxIMPORT;
      case kTagVxPOPSTOP:
      case kTagVxPOPDELETE:
        return kTagVxPOP;
      case kTagVxWHILESTOP:
        return kTagVxWHILE;
      case kTagVxCALLSTOP:
        return kTagVxCALL;
      case kTagVxFUNCRETURN:
        return kTagVxFUNCTION;
      case kTagVxCOMMERCESTOP:
        return kTagVxCOMMERCE;
      default:
        return -1;
    }
  }

  [[nodiscard]] bool IsInnermost(int id) const { return !open_.empty() && open_.back()->id == id; }
  [[nodiscard]] bool IsOpen(int id) const {
    for (const TagTemplate* form : open_) {
      if (form->id == id) return true;
    }
    return false;
  }

  Vexa& host_;
  Output& out_;
  bool clean_ = true;
  bool in_tag_ = false;                   // the attributes of a known tag are being read
  bool skipping_ = false;                 // a skip is only tried out
  SourcePlace start_;                     // where they begin
  std::vector<const TagTemplate*> open_;  // the blocks around the current place
};

}  // namespace

bool CheckScript(Vexa& host, const String& path, Output& out) {
  Buffer source(host.filemanager(), kBlockSize);
  if (source.Open(path, path)) return ScriptChecker(host, source, out).Check();
  out.Write(String::Concat({"Unable to open ", path, ": ", source.error(), "\n"}));
  return false;
}

}  // namespace vexa
