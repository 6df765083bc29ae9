// TextFilter: changes the text of a script on its way to the open blocks. At most one is in place;
// text that a function prints is not touched.

#ifndef VEXA_ENGINE_TEXT_FILTER_H_
#define VEXA_ENGINE_TEXT_FILTER_H_

#include <string_view>

#include "core/string.h"

namespace vexa {

class TextFilter {
 public:
  virtual ~TextFilter() = default;
  // Takes the next piece of a run of text and appends to `out` what can be delivered already.
  virtual void Add(std::string_view text, String& out) = 0;
  // The run ended, at a tag, a line end or the end of the file: appends what was kept back.
  virtual void End(String& out) = 0;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_TEXT_FILTER_H_
