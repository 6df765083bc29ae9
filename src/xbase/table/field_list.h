// Field specifications: the short texts that say which fields a new table gets.
//
//   name CHAR(20), age NUMBER(3), weight NUMBER(6.2), born DATE, active BOOL, notes MEMO
//
// A declaration is a name and a type; a length stands in parentheses directly behind its type.
// Letter case does not matter, names become upper-case. White space is space, tab, CR and LF.

#ifndef VEXA_XBASE_TABLE_FIELD_LIST_H_
#define VEXA_XBASE_TABLE_FIELD_LIST_H_

#include <vector>

#include "core/string.h"
#include "xbase/table/xbase_field.h"

namespace vexa {

// Appends the declared fields to `fields`. Returns true; false with
// `message` set to the first fault.
[[nodiscard]] bool ParseFieldList(const String& list, std::vector<XBaseField::Declaration>& fields,
                                  String& message);

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_FIELD_LIST_H_
