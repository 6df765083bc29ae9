// RecordBlock: records of a table that were read together, for a walk in the order of their
// numbers.
//
// The first reads of a walk are of one record each. From the third step on, as long as one record
// after the other is asked for and nothing else of the world outside, the records ahead are read
// with it, under one lock. They are given out only while nothing was asked outside since
// (core/outside.h), and for kLongestTrust at most: what another process had changed before that is
// always seen.

#ifndef VEXA_XBASE_TABLE_RECORD_BLOCK_H_
#define VEXA_XBASE_TABLE_RECORD_BLOCK_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vexa {

class RecordBlock {
 public:
  // Records that follow each other, counted from 1, and the one of them that is asked for.
  struct Span {
    int first = 0;
    int count = 0;
    int wanted = 0;
  };

  // The bytes of record `n`; null when they are not here, or not to be trusted any more.
  [[nodiscard]] const char* Find(int n);
  // Which records to read now that `n` is wanted, of a table of `numrecords` with `recordlength`
  // bytes each.
  [[nodiscard]] Span Plan(int n, int numrecords, int recordlength);
  // Room for the records of `span`, which are read now. They count from End on.
  // REQUIRES: their bytes are locked.
  [[nodiscard]] char* Begin(const Span& span, int recordlength);
  void End();
  // The bytes of record `n`, which was just read.
  [[nodiscard]] const char* At(int n) const {
    return bytes_.data() + static_cast<size_t>(n - span_.first) * recordlength_;
  }
  // Forgets the records; a walk begins anew.
  void Drop();

 private:
  std::vector<char> bytes_;
  Span span_;
  size_t recordlength_ = 0;
  int64_t read_at_ = 0;  // SteadyTime
  uint64_t looks_ = 0;   // looks_outside when they had been read
  int last_ = 0;         // the record asked for last, 0 for none
  int step_ = 0;         // how it was come to: 1 forward, -1 back, 0 otherwise
  int steps_ = 0;        // such steps in a row
};

}  // namespace vexa

#endif  // VEXA_XBASE_TABLE_RECORD_BLOCK_H_
