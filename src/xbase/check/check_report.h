// CheckReport: what the checkers find wrong, printed a line a fault. Of one file's faults only the
// first ones are printed, because damage comes in thousands.

#ifndef VEXA_XBASE_CHECK_CHECK_REPORT_H_
#define VEXA_XBASE_CHECK_CHECK_REPORT_H_

#include <string_view>

#include "core/number.h"
#include "core/output.h"

namespace vexa {

class CheckReport {
 public:
  static constexpr int kMostFaults = 20;

  // `out` is borrowed.
  explicit CheckReport(Output& out) : out_(out) {}

  // Begins the report of a file.
  void Begin(std::string_view file) {
    file_ = file;
    faults_ = 0;
  }
  void Fault(std::string_view text) {
    ++total_;
    if (++faults_ <= kMostFaults) Print(text);
  }
  void Fault(std::string_view before, int64_t number, std::string_view after) {
    if (faults_ < kMostFaults) return Fault(String::Concat({before, PrintInteger(number), after}));
    ++total_;
    ++faults_;
  }
  // Something worth knowing that is no fault.
  void Note(std::string_view text) { Print(text); }
  // Ends the report of a file; `content` says what a faultless file holds.
  void End(std::string_view content) {
    if (faults_ == 0) Print(String::Concat({"good, ", content}));
    if (faults_ > kMostFaults) {
      Print(String::Concat({"and ", PrintInteger(faults_ - kMostFaults), " more faults"}));
    }
  }
  // Faults in all files.
  [[nodiscard]] int64_t total() const { return total_; }

 private:
  void Print(std::string_view text) { out_.Write(String::Concat({file_, ": ", text, "\n"})); }

  Output& out_;
  String file_;
  int64_t faults_ = 0;
  int64_t total_ = 0;
};

}  // namespace vexa

#endif  // VEXA_XBASE_CHECK_CHECK_REPORT_H_
