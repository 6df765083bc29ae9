// The variables of a database's current record: one for each field under its name, parts of date
// fields, and what is known about the record itself.
//
//   CHAR, MEMO   NAME         the text
//   NUMBER       NAME         the number as text
//   BOOL         NAME         T or F, a space when it was never set
//   DATE         NAME         local midnight of that day in seconds since 1970, empty when blank
//                NAME_month, NAME_day, NAME_year
//                NAME_raw     the eight characters as stored, YYYYMMDD
//
//   totrec, recno, deleted    count of records, number and deletion mark of the current record
//
// Assigning checks and converts; the record itself is written by the next update or add. A refused
// value leaves the field as it was.

#ifndef VEXA_XBASE_DATABASE_FIELD_VARIABLES_H_
#define VEXA_XBASE_DATABASE_FIELD_VARIABLES_H_

#include <string_view>

#include "core/field_text.h"
#include "core/string.h"
#include "core/variables.h"
#include "xbase/database/xbase_record.h"
#include "xbase/table/xbase_field.h"

namespace vexa {

// Makes the variables of all fields of `record`, and totrec, recno and deleted, in `scope`. Names
// that meet: those of the record itself win over fields, fields over parts of dates, and the
// first field over later ones.
void MakeFieldVariables(XBaseRecord& record, VariableTree& scope);

// Base of all field variables; stores what is assigned as it is.
class XBaseVariable : public Variable {
 public:
  // Both are borrowed and must outlive the variable.
  XBaseVariable(XBaseRecord& record, XBaseField& field, std::string_view name)
      : Variable(String(name), kComputed), record_(record), field_(field) {}
  [[nodiscard]] const String& value() override { return field_.data(); }
  [[nodiscard]] bool SetValue(const String& value) override { return Store(value); }

 protected:
  // Keeps the message. Returns false.
  bool Refuse(std::string_view message);
  [[nodiscard]] bool Store(std::string_view text);
  [[nodiscard]] XBaseField& field() const { return field_; }

 private:
  XBaseRecord& record_;
  XBaseField& field_;
};

class XBaseCharVariable final : public XBaseVariable {
 public:
  using XBaseVariable::XBaseVariable;
};

class XBaseNumberVariable final : public XBaseVariable {
 public:
  using XBaseVariable::XBaseVariable;
  [[nodiscard]] bool SetValue(const String& value) override;
};

class XBaseBoolVariable final : public XBaseVariable {
 public:
  using XBaseVariable::XBaseVariable;
  [[nodiscard]] bool SetValue(const String& value) override;
};

class XBaseDateTimeTVariable final : public XBaseVariable {
 public:
  using XBaseVariable::XBaseVariable;
  [[nodiscard]] const String& value() override;
  [[nodiscard]] bool SetValue(const String& value) override;
};

class XBaseDateRawVariable final : public XBaseVariable {
 public:
  using XBaseVariable::XBaseVariable;
};

class XBaseDatePartVariable : public XBaseVariable {
 public:
  XBaseDatePartVariable(XBaseRecord& record, XBaseField& field, std::string_view name,
                        const DatePart& part)
      : XBaseVariable(record, field, name), part_(part) {}
  [[nodiscard]] const String& value() override;
  [[nodiscard]] bool SetValue(const String& value) override;

 private:
  const DatePart& part_;
};

class XBaseDateYearVariable final : public XBaseDatePartVariable {
 public:
  XBaseDateYearVariable(XBaseRecord& record, XBaseField& field, std::string_view name);
};

class XBaseDateMonthVariable final : public XBaseDatePartVariable {
 public:
  XBaseDateMonthVariable(XBaseRecord& record, XBaseField& field, std::string_view name);
};

class XBaseDateDayVariable final : public XBaseDatePartVariable {
 public:
  XBaseDateDayVariable(XBaseRecord& record, XBaseField& field, std::string_view name);
};

// Base of the variables about the record; they refuse every assignment.
class XBaseRecordVariable : public Variable {
 public:
  // `record` is borrowed and must outlive the variable.
  XBaseRecordVariable(const XBaseRecord& record, std::string_view name)
      : Variable(String(name), kComputed), record_(record) {}
  [[nodiscard]] bool SetValue(const String& value) override;

 protected:
  [[nodiscard]] const XBaseRecord& record() const { return record_; }
  const String& Number(int number);

 private:
  const XBaseRecord& record_;
};

class XBaseTotalRecordsVariable final : public XBaseRecordVariable {
 public:
  using XBaseRecordVariable::XBaseRecordVariable;
  [[nodiscard]] const String& value() override;
};

class XBaseRecordNumberVariable final : public XBaseRecordVariable {
 public:
  using XBaseRecordVariable::XBaseRecordVariable;
  [[nodiscard]] const String& value() override;
};

class XBaseDeletedVariable final : public XBaseRecordVariable {
 public:
  using XBaseRecordVariable::XBaseRecordVariable;
  [[nodiscard]] const String& value() override;
};

}  // namespace vexa

#endif  // VEXA_XBASE_DATABASE_FIELD_VARIABLES_H_
