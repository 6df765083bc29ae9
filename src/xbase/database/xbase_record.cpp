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

}  // namespace

XBaseRecord::XBaseRecord(Vexa& host, XBaseTable& table, String database)
    : RecordVariables(host, std::move(database)), table_(table) {}

void XBaseRecord::Bind() {
  MakeFieldVariables(*this, scope());
  AddEOF();
  Clear();
}

void XBaseRecord::Unbind() {
  ForgetVariables();
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

DataResult XBaseRecord::Evaluate(const Expression& expression, String& result) {
  const int lost_texts = table_.lost_texts();
  if (RecordVariables::Evaluate(expression, result) != DataResult::Done) {
    return DataResult::Reported;
  }
  return table_.lost_texts() == lost_texts ? DataResult::Done : DataResult::Failed;
}

DataResult XBaseRecord::EvaluateKey(const String& index, const Expression& expression,
                                    String& result) {
  const String* const outer = host().SetKeyIndex(&index);
  const DataResult evaluated = Evaluate(expression, result);
  host().SetKeyIndex(outer);
  return evaluated;
}

DataResult XBaseRecord::ParseKey(const String& index, std::string_view text, Expression& expression,
                                 String& message) {
  if (!Parse(text, expression)) return DataResult::Reported;
  String problem = KeyProblem(index, expression);
  if (problem.empty()) return DataResult::Done;
  message = std::move(problem);
  return DataResult::Failed;
}

}  // namespace vexa
