// The "name=value" pairs of query strings and URL-encoded bodies, as variables.

#ifndef VEXA_REQUEST_FORM_FIELDS_H_
#define VEXA_REQUEST_FORM_FIELDS_H_

#include <string_view>

#include "core/variables.h"

namespace vexa {

enum class FieldSpace { Kept, Stripped };

// Adds the pair as a form variable. It is split at its first "=", both parts are decoded; a pair
// without "=" is its own value. With Stripped, white space at both ends of either part is dropped
// before decoding.
void AddFormField(Variables& vars, std::string_view pair, FieldSpace space);

// Adds every pair of a query string, after dropping all backslashes in it.
void AddQueryFields(Variables& vars, std::string_view query);

}  // namespace vexa

#endif  // VEXA_REQUEST_FORM_FIELDS_H_
