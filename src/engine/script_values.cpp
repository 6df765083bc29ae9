// How the executor reads attributes: whole bodies, values evaluated at once, values kept as text,
// and values whose place is kept because they are evaluated later and again.

#include "core/text.h"
#include "engine/script_parser.h"
#include "tags/attribute_forms.h"
#include "tags/tag_numbers.h"

namespace vexa {

namespace {

// A source that keeps the text that was read through it.
class Recorder final : public CharacterSource {
 public:
  explicit Recorder(CharacterSource& source) : source_(source) {}
  int NextChar() override {
    int c = source_.NextChar();
    if (c >= 0) {
      text_.Accumulate(static_cast<char>(c));
    }
    return c;
  }
  void PutBack() override {
    source_.PutBack();
    text_.Truncate(text_.size() - 1);
  }
  [[nodiscard]] SourcePlace Place() const override {
    marked_ = text_.size();
    return source_.Place();
  }
  void Return(const SourcePlace& place) override {
    source_.Return(place);
    text_.Truncate(marked_);
  }
  [[nodiscard]] std::string_view text() const { return text_; }

 private:
  CharacterSource& source_;
  String text_;
  mutable size_t marked_ = 0;  // the length at the place asked for last
};

}  // namespace

bool ScriptParser::IsStopForm(const TagTemplate& form, std::string_view body) const {
  return IsStopBody(form.id, body);
}

ScanResult ScriptParser::GetNameValuePairs(Tag& tag) {
  switch (tag.id()) {
    case kTagIF:
    case kTagEVAL:
      return GetBody(tag);
    case kTagHIDE:
      return GetRawBody(tag);
    case kTagWHILE:
      return GetLoopCondition(tag);
    default:
      return ReadAttributes(tag);
  }
}

// The whole rest of the tag is one expression, evaluated at once.
ScanResult ScriptParser::GetBody(Tag& tag) {
  if (tag.id() == kTagEVAL && SkipWhitespace()) {
    // An empty body is no attribute at all; EVAL has its own words for that.
    if (source().GetNextChar() == '>') return ScanResult::End;
    source().UnGetChar();
  }
  Expression expression;
  String value;
  if (expression.Read(*this, ValueForm::Body, *this) == ValueEnd::Failed ||
      !expression.Evaluate(*this, value)) {
    return ScanResult::Failed;
  }
  tag.AddNameValuePair("", std::move(value));
  return ScanResult::End;
}

ScanResult ScriptParser::GetRawBody(Tag& tag) {
  String body;
  if (EatUntilTagEnd(body) == ScanResult::Failed) return ScanResult::Failed;
  body.Truncate(body.size() - 1);
  body.StripWhitespace();
  tag.AddNameValuePair("", std::move(body));
  return ScanResult::End;
}

ScanResult ScriptParser::GetLoopCondition(Tag& tag) {
  tag.Defer(source().Place());
  String body;
  if (EatUntilTagEnd(body) == ScanResult::Failed) return ScanResult::Failed;
  body.Truncate(body.size() - 1);
  if (IsStopBody(tag.id(), body)) tag.AddNameValuePair("STOP", {});
  return ScanResult::End;
}

ScanResult ScriptParser::GetValue(Tag& tag, const String& name, String& value) {
  if (IsRawOrder(tag.id(), name)) {
    if (EatUntilTagEnd(value) == ScanResult::Failed) return ScanResult::Failed;
    value.Truncate(value.size() - 1);
    value.StripWhitespace();
    if (value[0] == '"') {
      size_t last = value.view().rfind('"');
      value = String(value.view().substr(1, last == 0 ? String::kLongestText : last - 1));
    }
    return ScanResult::End;
  }
  ValueForm form = AttributeForm(tag.id(), name);
  if (IsKeptAsText(tag.id(), name)) return GetUnevaluated(form, value);
  SourcePlace start = source().Place();
  Expression expression;
  // How the value ended is kept here: evaluating it may run tags that are read by this parser.
  ValueEnd end = expression.Read(*this, form, *this);
  if (end == ValueEnd::Failed) return ScanResult::Failed;
  if (IsDeferred(tag.id(), name)) {
    tag.Defer(start);
  } else if (!expression.Evaluate(*this, value)) {
    return ScanResult::Failed;
  }
  return end == ValueEnd::TagEnd ? ScanResult::End : ScanResult::More;
}

// Checks the value as an expression and keeps its text: what stands between the quotes of a lone
// double-quoted constant, else the value as written.
ScanResult ScriptParser::GetUnevaluated(ValueForm form, String& text) {
  Recorder recorder(*this);
  Expression expression;
  ValueEnd end = expression.Read(recorder, form, *this);
  if (end == ValueEnd::Failed) return ScanResult::Failed;
  std::string_view written = recorder.text();
  if (end == ValueEnd::TagEnd) written.remove_suffix(1);
  written = Stripped(written);
  bool constant =
      written.size() > 1 && written[0] == '"' && written.find('"', 1) == written.size() - 1;
  if (!constant) {
    text = String(written);
  } else if (!expression.ReadText(written, *this) || !expression.Evaluate(*this, text)) {
    return ScanResult::Failed;
  }
  return end == ValueEnd::TagEnd ? ScanResult::End : ScanResult::More;
}

ScanResult ScriptParser::ProcessEmptyValue(Tag& tag, const String& name, String& value) {
  if (tag.id() == kTagVxIF || tag.id() == kTagVxEVAL || tag.id() == kTagVxWHILE) {
    return ReportSyntaxError(
        String::Concat({"Attributes with empty values are not allowed in &lt;", tag.name(),
                        "&gt;<BR>(you have probably omitted EXPR= in front of your expression)"}));
  }
  return Parser::ProcessEmptyValue(tag, name, value);
}

bool ScriptParser::EvaluateAt(const SourcePlace& place, ValueForm form, String& value) {
  SourcePlace noted = source().Place();
  GoTo(place);
  Expression expression;
  bool evaluated =
      expression.Read(*this, form, *this) != ValueEnd::Failed && expression.Evaluate(*this, value);
  if (evaluated) GoTo(noted);
  return evaluated;
}

}  // namespace vexa
