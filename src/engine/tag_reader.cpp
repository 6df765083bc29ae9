// How attributes are read: whole bodies, values that are evaluated at once, values kept as text,
// and values whose place is kept because they are evaluated later and again.

#include "engine/tag_reader.h"

#include <utility>

#include "core/text.h"

namespace vexa {

namespace {

// A source that keeps the text that was read through it.
class Recorder final : public CharacterSource {
 public:
  explicit Recorder(CharacterSource& source) : source_(source) {}
  int NextChar() override {
    int c = source_.NextChar();
    if (c >= 0) text_.Accumulate(static_cast<char>(c));
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

// Where a value of that reading may end, and what a lone text constant in it means.
ValueForm FormOf(Reading reading) {
  switch (reading) {
    case Reading::Value:
    case Reading::Statement:
    case Reading::Raw:
      return ValueForm::Attribute;
    case Reading::KeptFilter:
      return ValueForm::OptionalExpression;
    case Reading::Expression:
    case Reading::KeptExpression:
    case Reading::Deferred:
      break;
  }
  return ValueForm::ExpressionAttribute;
}

}  // namespace

bool TagReader::GetNameValuePairs(Tag& tag) {
  switch (tag.row().body) {
    case TagBody::OptionalExpression:
      if (SkipWhitespace()) {
        if (source().GetNextChar() == '>') return true;
        source().UnGetChar();
      }
      return GetBody(tag);
    case TagBody::Expression:
      return GetBody(tag);
    case TagBody::RawText:
      return GetRawBody(tag);
    case TagBody::Condition:
      return GetCondition(tag);
    case TagBody::Attributes:
    case TagBody::OneExpression:
    case TagBody::OneAssignment:
      break;
  }
  return Parser::GetNameValuePairs(tag);
}

// The whole rest of the tag is one expression.
bool TagReader::GetBody(Tag& tag) {
  WrittenValue written;
  written.reading = Reading::Expression;
  written.place = CurrentPlace();
  if (written.expression.Read(*this, ValueForm::Body, *this) == ValueEnd::Failed) return false;
  ScriptValue value;
  if (!TakeValue(tag, written, value)) return false;
  tag.AddNameValuePair("", std::move(value));
  return true;
}

bool TagReader::GetRawBody(Tag& tag) {
  String body;
  if (!EatUntilTagEnd(body)) return false;
  body.Truncate(body.size() - 1);
  body.StripWhitespace();
  tag.AddNameValuePair("", std::move(body));
  return true;
}

bool TagReader::GetCondition(Tag& tag) {
  tag.Defer(CurrentPlace());
  String body;
  if (!EatUntilTagEnd(body)) return false;
  body.Truncate(body.size() - 1);
  if (tag.row().IsStopBody(body)) tag.AddNameValuePair("STOP", {});
  return true;
}

AttributeEnd TagReader::GetValue(Tag& tag, const String& name, ScriptValue& value) {
  WrittenValue written;
  if (const AttributeRow* row = tag.row().FindAttribute(name)) written.reading = row->reading;
  written.place = CurrentPlace();
  // How the value ended is kept here: evaluating it may run tags that are read by this reader.
  const AttributeEnd end = ReadValue(written);
  if (end == AttributeEnd::Failed) return end;
  return TakeValue(tag, written, value) ? end : AttributeEnd::Failed;
}

AttributeEnd TagReader::ReadValue(WrittenValue& written) {
  const ValueForm form = FormOf(written.reading);
  ValueEnd end = ValueEnd::Failed;
  switch (written.reading) {
    case Reading::Raw:
      return ReadRawValue(written.text);
    case Reading::KeptExpression:
    case Reading::KeptFilter:
      end = ReadKept(form, written);
      break;
    case Reading::Value:
    case Reading::Statement:
    case Reading::Expression:
    case Reading::Deferred:
      end = written.expression.Read(*this, form, *this);
      break;
  }
  if (end == ValueEnd::Failed) return AttributeEnd::Failed;
  return end == ValueEnd::TagEnd ? AttributeEnd::TagEnd : AttributeEnd::More;
}

AttributeEnd TagReader::ReadRawValue(String& text) {
  if (!EatUntilTagEnd(text)) return AttributeEnd::Failed;
  text.Truncate(text.size() - 1);
  text.StripWhitespace();
  if (text[0] == '"') {
    size_t last = text.view().rfind('"');
    text = String(text.view().substr(1, last == 0 ? String::kLongestText : last - 1));
  }
  return AttributeEnd::TagEnd;
}

// Checks the value as an expression and keeps its text: what stands between the quotes of a lone
// double-quoted constant, else the value as written.
ValueEnd TagReader::ReadKept(ValueForm form, WrittenValue& written) {
  Recorder recorder(*this);
  Expression expression;
  const ValueEnd end = expression.Read(recorder, form, *this);
  if (end == ValueEnd::Failed) return end;
  std::string_view text = recorder.text();
  if (end == ValueEnd::TagEnd) text.remove_suffix(1);
  text = Stripped(text);
  const bool constant = text.size() > 1 && text[0] == '"' && text.find('"', 1) == text.size() - 1;
  if (!constant) {
    written.text = String(text);
  } else if (!expression.ReadText(text, *this) || !expression.Evaluate(*this, written.text)) {
    return ValueEnd::Failed;
  }
  return end;
}

bool TagReader::ProcessEmptyValue(Tag& tag, const String& name, ScriptValue& value) {
  if (tag.row().body != TagBody::OneExpression) return Parser::ProcessEmptyValue(tag, name, value);
  ReportSyntaxError(
      String::Concat({"Attributes with empty values are not allowed in &lt;", tag.name(),
                      "&gt;<BR>(you have probably omitted EXPR= in front of your expression)"}));
  return false;
}

bool TagReader::ReadExpressionAt(const SourcePlace& place, ValueForm form, Expression& expression) {
  GoTo(place);
  return expression.Read(*this, form, *this) != ValueEnd::Failed;
}

}  // namespace vexa
