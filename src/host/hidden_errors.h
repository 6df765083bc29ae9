// HiddenErrors: the messages of a request that its reader is not to see (setting `showerrors`). The
// reader gets a reference in place of the first; under it the messages stand in the activity log
// and on standard error, for whoever looks after the site.

#ifndef VEXA_HOST_HIDDEN_ERRORS_H_
#define VEXA_HOST_HIDDEN_ERRORS_H_

#include <cstdint>
#include <string_view>

#include "core/string.h"
#include "vexa.h"

namespace vexa {

class HiddenErrors {
 public:
  [[nodiscard]] bool none() const { return count_ == 0; }
  // REQUIRES: there are none. `chance` is what nobody can guess.
  void Begin(uint32_t chance);
  // Tells of one; of those behind the hundredth, nothing. `file` is the path of what was carried
  // out, empty when there is none. Never waits.
  void Tell(ActivityLog& log, std::string_view file, std::string_view message);
  // What is shown in place of the first.
  [[nodiscard]] String shown() const;

 private:
  static constexpr int kMost = 100;  // a loop of errors must not fill the disk

  String reference_;
  int count_ = 0;
};

}  // namespace vexa

#endif  // VEXA_HOST_HIDDEN_ERRORS_H_
