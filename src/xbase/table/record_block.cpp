// Records read ahead; see record_block.h.

#include "xbase/table/record_block.h"

#include <algorithm>

#include "core/outside.h"

namespace vexa {

namespace {

constexpr int kMostRecords = 64;
constexpr int kMostBytes = 65536;
// Pages that show one record, or two, read no more than those.
constexpr int kStepsAlone = 2;

}  // namespace

const char* RecordBlock::Find(int n) {
  const bool here = n >= span_.first && n - span_.first < span_.count;
  if (!here || looks_ != looks_outside || SteadyTime() - read_at_ > kLongestTrust) return nullptr;
  last_ = n;
  return At(n);
}

RecordBlock::Span RecordBlock::Plan(int n, int numrecords, int recordlength) {
  const int step = n == last_ + 1 ? 1 : n == last_ - 1 ? -1 : 0;
  const bool goes_on = step != 0 && last_ != 0 && looks_ == looks_outside;
  steps_ = !goes_on ? 0 : step == step_ ? steps_ + 1 : 1;
  step_ = step;
  last_ = n;
  if (steps_ <= kStepsAlone) return {n, 1, n};
  const int most = std::clamp(kMostBytes / recordlength, 1, kMostRecords);
  if (step > 0) return {n, std::min(most, numrecords - n + 1), n};
  const int first = std::max(1, n - most + 1);
  return {first, n - first + 1, n};
}

char* RecordBlock::Begin(const Span& span, int recordlength) {
  span_ = span;
  recordlength_ = static_cast<size_t>(recordlength);
  const size_t size = static_cast<size_t>(span.count) * recordlength_;
  if (bytes_.size() < size) bytes_.resize(size);
  read_at_ = SteadyTime();
  return bytes_.data();
}

void RecordBlock::End() { looks_ = looks_outside; }

void RecordBlock::Drop() {
  span_ = {};
  last_ = 0;
}

}  // namespace vexa
