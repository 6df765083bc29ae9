// A name with a text, as headers and fields of forms are.

#ifndef VEXA_NET_NAMED_VALUE_H_
#define VEXA_NET_NAMED_VALUE_H_

#include "core/string.h"

namespace vexa {

struct NamedValue {
  String name;
  String value;
};

}  // namespace vexa

#endif  // VEXA_NET_NAMED_VALUE_H_
