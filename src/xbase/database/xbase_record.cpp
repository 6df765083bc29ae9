// The current record; see xbase_record.h.

#include "xbase/database/xbase_record.h"

#include <algorithm>
#include <utility>

#include "expr/key_rule.h"
#include "vexa.h"
#include "xbase/database/field_variables.h"

namespace vexa {

namespace {

// How `text` would be read back from the record: what an index entry is made from must not depend
// on whether the record was written yet.
String AsReadBack(const XBaseField& field, std::string_view text) {
  const auto length = static_cast<size_t>(field.length());
  switch (field.type()) {
    case XBaseFieldType::CHAR: {
      text = text.substr(0, length);
      const size_t last = text.find_last_not_of(' ');
      return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
    }
    case XBaseFieldType::DATE:
    case XBaseFieldType::BOOL:
      return String(text.substr(0, length)).padr(field.length(), ' ');
    case XBaseFieldType::MEMO:
      return text.substr(0, text.find(kMemoEnd));
    case XBaseFieldType::NUMBER:
      break;
  }
  return text;
}

// Puts the record's variables before all other scopes, and counts the evaluation, while it lives.
class Evaluation {
 public:
  Evaluation(Variables& variables, VariableTree& scope, int& count)
      : variables_(variables), count_(count) {
    variables_.PushSystemVars(&scope);
    ++count_;
  }
  ~Evaluation() {
    --count_;
    variables_.PopSystemVars();
  }
  Evaluation(const Evaluation&) = delete;
  Evaluation& operator=(const Evaluation&) = delete;

 private:
  Variables& variables_;
  int& count_;
};

}  // namespace

XBaseRecord::XBaseRecord(Vexa& host, XBaseTable& table, String database)
    : host_(host), table_(table), database_(std::move(database)), variables_(kFieldKind) {}

void XBaseRecord::Bind() {
  MakeFieldVariables(*this, *variables_);
  eof_ = variables_->Insert(std::make_unique<Variable>("EOF", "1"));
  Clear();
}

void XBaseRecord::Unbind() {
  variables_.emplace(kFieldKind);
  eof_ = nullptr;
  edited_.clear();
  current_ = 0;
}

int XBaseRecord::Read(int number) {
  if (table_.Goto(number) == 0) return 0;
  Stored(number);
  ++reads_;
  return 1;
}

void XBaseRecord::Clear() {
  Blank();
  Stored(0);
  ++reads_;
}

void XBaseRecord::Blank() {
  for (const auto& field : table_.fields()) field->Set(AsReadBack(*field, {}));
  table_.SetOriginal();
}

void XBaseRecord::Stored(int number) {
  table_.SetOriginal();
  edited_.clear();
  current_ = number;
  generation_ = table_.generation();
}

bool XBaseRecord::IsSound() const {
  if (current_ < 0 || current_ > table_.numrecords()) return Lost();
  for (XBaseField* field : edited_) {
    const auto& fields = table_.fields();
    const auto is_it = [field](const auto& known) { return known.get() == field; };
    if (std::none_of(fields.begin(), fields.end(), is_it)) return false;
  }
  return current_ == 0 || Lost() || current_ == table_.recordnum();
}

void XBaseRecord::Set(XBaseField& field, std::string_view text) {
  field.Set(AsReadBack(field, text));
  if (std::find(edited_.begin(), edited_.end(), &field) == edited_.end()) {
    edited_.push_back(&field);
  }
}

std::vector<XBaseRecord::Edit> XBaseRecord::Edits() const {
  std::vector<Edit> edits;
  for (XBaseField* field : edited_) edits.push_back({field, field->data()});
  return edits;
}

void XBaseRecord::Apply(const std::vector<Edit>& edits) {
  for (const Edit& edit : edits) Set(*edit.field, edit.text);
}

int XBaseRecord::Restore(const Position& position) {
  if (reads_ == position.reads) return 1;
  int result = 1;
  if (position.number == 0 || position.generation != table_.generation()) {
    Clear();
  } else if (Read(position.number) == 0) {
    Clear();
    result = 0;
  }
  Apply(position.edits);
  return result;
}

ExpressionContext& XBaseRecord::context() { return host_.expressioncontext(); }

DataResult XBaseRecord::Evaluate(const Expression& expression, String& result) {
  const Evaluation evaluation(host_.vars(), *variables_, evaluations_);
  const int lost_texts = table_.lost_texts();
  if (!expression.Evaluate(context(), result)) return DataResult::Reported;
  return table_.lost_texts() == lost_texts ? DataResult::Done : DataResult::Failed;
}

DataResult XBaseRecord::EvaluateKey(const String& index, const Expression& expression,
                                    String& result) {
  const String* const outer = host_.SetKeyIndex(&index);
  const DataResult evaluated = Evaluate(expression, result);
  host_.SetKeyIndex(outer);
  return evaluated;
}

bool XBaseRecord::Parse(std::string_view text, Expression& expression) {
  return expression.ReadText(text, context());
}

DataResult XBaseRecord::ParseKey(const String& index, std::string_view text, Expression& expression,
                                 String& message) {
  if (!Parse(text, expression)) return DataResult::Reported;
  String problem = KeyProblem(index, expression);
  if (problem.empty()) return DataResult::Done;
  message = std::move(problem);
  return DataResult::Failed;
}

String XBaseRecord::BusyMessage() const {
  return String::Concat(
      {"Database '", database_, "' is in use by its own filter or key expression"});
}

void XBaseRecord::SetEOF(bool end) {
  // A page may assign to EOF like to any other variable.
  const std::string_view value = end ? "1" : "0";
  if (eof_->value() != value) (void)eof_->SetValue(value);
}

}  // namespace vexa
