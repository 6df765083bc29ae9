// Reading and assigning field variables; see field_variables.h.
//
// Reading asks the field for its text each time and turns it into what a page sees. Assigning goes
// in this order: SetValue checks the text and brings it into the form of the record, Store refuses
// while an expression looks at the record, then the field takes it. Nothing is written to a file
// here, and no lock is taken: the record's new text waits for Add or Update.
//
// Dates stand in the record as YYYYMMDD. The plain variable shows seconds; the three parts read and
// replace their digits only; _raw is the text as it stands.
//
// Some messages carry tabs in the place of spaces on purpose: pages compare them with the text they
// know.

#include "xbase/database/field_variables.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>

#include "core/number.h"
#include "core/text.h"
#include "expr/expression.h"

namespace vexa {

namespace {

constexpr int kDateLength = 8;
constexpr int kLastYear = 9999;
constexpr int kFirstTmYear = 1900;
constexpr time_t kHour = 3600;

constexpr XBaseDatePart kYear = {0, 4, 0, kLastYear, "Invalid year"};
constexpr XBaseDatePart kMonth = {4, 2, 1, 12, "Invalid month"};
// No check relates the day to the month, on purpose.
constexpr XBaseDatePart kDay = {6, 2, 0, 31, "Invalid day"};

bool IsDigits(std::string_view text) { return std::all_of(text.begin(), text.end(), IsDigit); }

int PartOf(std::string_view raw, const XBaseDatePart& part) {
  return ReadInteger(raw.substr(static_cast<size_t>(part.offset), static_cast<size_t>(part.width)));
}

// Whether a stored date is one: other programs leave zeros, or bytes that are no digits.
bool IsDate(std::string_view raw) {
  constexpr int kMonths = 12;
  return raw.size() == kDateLength && IsDigits(raw) && PartOf(raw, kMonth) >= 1 &&
         PartOf(raw, kMonth) <= kMonths && PartOf(raw, kDay) >= 1;
}

// Local midnight of the day `raw` (YYYYMMDD). A day that the calendar does not have counts on into
// the neighbouring month.
time_t MidnightOf(std::string_view raw) {
  tm fields = {};
  fields.tm_year = PartOf(raw, kYear) - kFirstTmYear;
  fields.tm_mon = PartOf(raw, kMonth) - 1;
  fields.tm_mday = PartOf(raw, kDay);
  fields.tm_isdst = -1;
  const time_t midnight = std::mktime(&fields);
  // Where clocks go forward at midnight it does not exist, and the hour before is given.
  return fields.tm_hour == 23 ? midnight + kHour : midnight;
}

}  // namespace

// --- Fields ----------------------------------------------------------------------------------

bool XBaseVariable::Refuse(std::string_view message) {
  error_ = message;
  return false;
}

bool XBaseVariable::Store(std::string_view text) {
  // A filter or key expression is looking at the record.
  if (record_.busy()) return Refuse(record_.BusyMessage());
  record_.Set(field_, text);
  error_.clear();
  return true;
}

bool XBaseNumberVariable::SetValue(const String& value) {
  std::string_view digits = value;
  const bool negative = digits.starts_with('-');
  if (negative) digits.remove_prefix(1);
  size_t point = std::string_view::npos;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (IsDigit(digits[i])) continue;
    if (digits[i] != '.') {
      return Refuse("Value\tassigned to numeric field contains a non-numeric character");
    }
    if (point != std::string_view::npos) {
      return Refuse("Value\tassigned to numeric field contains more\tthan one decimal point");
    }
    point = i;
  }
  const std::string_view whole = digits.substr(0, point);
  String number = String::Concat({negative ? "-" : "", whole.empty() ? "0" : whole});
  if (const int decimals = field().decimalcount(); decimals > 0) {
    String fraction;
    if (point != std::string_view::npos) fraction = digits.substr(point + 1);
    fraction = fraction.before(decimals).padr(decimals, '0');
    number = String::Concat({number, ".", fraction});
  }
  if (number.length() > field().length()) {
    return Refuse("Value\tassigned to numeric field is too long");
  }
  return Store(number);
}

bool XBaseBoolVariable::SetValue(const String& value) {
  return Store(Expression::IsTrue(value) ? "T" : "F");
}

const String& XBaseDateTimeTVariable::value() {
  const String& raw = field().data();
  if (IsDate(raw)) {
    value_ = PrintInteger(MidnightOf(raw));
  } else {
    value_.clear();
  }
  return value_.text();
}

bool XBaseDateTimeTVariable::SetValue(const String& value) {
  if (!IsDigits(value)) {
    return Refuse("Value\tassigned to date field contains\ta non-numeric character");
  }
  if (value.empty()) return Store({});
  const time_t seconds = ReadInteger64(value);
  tm fields;
  if (localtime_r(&seconds, &fields) == nullptr || fields.tm_year > kLastYear - kFirstTmYear) {
    return Refuse(kYear.message);
  }
  char date[48];
  std::snprintf(date, sizeof date, "%04d%02d%02d", fields.tm_year + kFirstTmYear, fields.tm_mon + 1,
                fields.tm_mday);
  return Store(date);
}

const String& XBaseDatePartVariable::value() {
  value_ = PrintInteger(PartOf(field().data().padr(kDateLength, ' '), part_));
  return value_.text();
}

bool XBaseDatePartVariable::SetValue(const String& value) {
  const int number = ReadInteger(value);
  if (number < part_.least || number > part_.most) return Refuse(part_.message);
  char digits[16];
  std::snprintf(digits, sizeof digits, "%0*d", part_.width, number);
  const String raw = field().data().padr(kDateLength, ' ');
  return Store(
      String::Concat({raw.before(part_.offset), digits, raw.from(part_.offset + part_.width)}));
}

XBaseDateYearVariable::XBaseDateYearVariable(XBaseRecord& record, XBaseField& field,
                                             std::string_view name)
    : XBaseDatePartVariable(record, field, name, kYear) {}

XBaseDateMonthVariable::XBaseDateMonthVariable(XBaseRecord& record, XBaseField& field,
                                               std::string_view name)
    : XBaseDatePartVariable(record, field, name, kMonth) {}

XBaseDateDayVariable::XBaseDateDayVariable(XBaseRecord& record, XBaseField& field,
                                           std::string_view name)
    : XBaseDatePartVariable(record, field, name, kDay) {}

// --- The record ------------------------------------------------------------------------------

bool XBaseRecordVariable::SetValue(const String& /*value*/) {
  error_ = String::Concat({"'", name(), "' is dynamically generated by the system"});
  return false;
}

const String& XBaseRecordVariable::Number(int number) {
  value_ = PrintInteger(number);
  return value_.text();
}

const String& XBaseTotalRecordsVariable::value() { return Number(record().table().numrecords()); }

const String& XBaseRecordNumberVariable::value() { return Number(record().current()); }

const String& XBaseDeletedVariable::value() {
  return Number(record().current() == 0 ? 0 : record().table().deleted());
}

// --- Making them -----------------------------------------------------------------------------

namespace {

std::unique_ptr<Variable> MakeFieldVariable(XBaseRecord& record, XBaseField& field) {
  switch (field.type()) {
    case XBaseFieldType::NUMBER:
      return std::make_unique<XBaseNumberVariable>(record, field, field.name());
    case XBaseFieldType::DATE:
      return std::make_unique<XBaseDateTimeTVariable>(record, field, field.name());
    case XBaseFieldType::BOOL:
      return std::make_unique<XBaseBoolVariable>(record, field, field.name());
    case XBaseFieldType::CHAR:
    case XBaseFieldType::MEMO:
      break;
  }
  return std::make_unique<XBaseCharVariable>(record, field, field.name());
}

template <typename Part>
void MakeDatePart(XBaseRecord& record, XBaseField& field, std::string_view suffix,
                  VariableTree& scope) {
  scope.Insert(std::make_unique<Part>(record, field, String::Concat({field.name(), suffix})));
}

}  // namespace

void MakeFieldVariables(XBaseRecord& record, VariableTree& scope) {
  const auto& fields = record.table().fields();
  // A later variable takes the place of an earlier one with its name.
  for (const auto& field : fields) {
    if (field->type() != XBaseFieldType::DATE) continue;
    MakeDatePart<XBaseDateYearVariable>(record, *field, "_year", scope);
    MakeDatePart<XBaseDateMonthVariable>(record, *field, "_month", scope);
    MakeDatePart<XBaseDateDayVariable>(record, *field, "_day", scope);
    MakeDatePart<XBaseDateRawVariable>(record, *field, "_raw", scope);
  }
  for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
    scope.Insert(MakeFieldVariable(record, **field));
  }
  scope.Insert(std::make_unique<XBaseTotalRecordsVariable>(record, "totrec"));
  scope.Insert(std::make_unique<XBaseRecordNumberVariable>(record, "recno"));
  scope.Insert(std::make_unique<XBaseDeletedVariable>(record, "deleted"));
}

}  // namespace vexa
