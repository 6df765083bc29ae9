// Steps through records; see record_walk.h.

#include "xbase/database/record_walk.h"

namespace vexa {

bool RecordWalk::Passed(int result) {
  if (result == 0) error_ = index_->error();
  return result != 0;
}

bool RecordWalk::ToEnd(Direction direction, uint32_t& number) {
  const bool forward = direction == Direction::Forward;
  between_ = false;
  if (index_ != nullptr) return Passed(forward ? index_->First(number) : index_->Last(number));
  if (!table_.Refresh()) {
    error_ = table_.error();
    return false;
  }
  const auto count = static_cast<uint32_t>(table_.numrecords());
  number_ = number = forward && count > 0 ? 1 : count;
  return true;
}

bool RecordWalk::Step(Direction direction, uint32_t& number) {
  if (index_ == nullptr) return StepByNumber(direction, number);
  if (!between_) {
    return Passed(direction == Direction::Forward ? index_->Next(number) : index_->Prev(number));
  }
  between_ = false;
  if (direction == Direction::Forward) {
    number = behind_;
    return true;
  }
  return Passed(behind_ == 0 ? index_->Last(number) : index_->Prev(number));
}

bool RecordWalk::StepByNumber(Direction direction, uint32_t& number) {
  number = 0;
  if (direction == Direction::Backward) {
    if (number_ > 1) number = --number_;
    return true;
  }
  // Other processes may have added records since the count was read.
  if (number_ >= static_cast<uint32_t>(table_.numrecords()) && !table_.Refresh()) {
    error_ = table_.error();
    return false;
  }
  if (number_ < static_cast<uint32_t>(table_.numrecords())) number = ++number_;
  return true;
}

bool RecordWalk::StandOn(uint32_t number, const String& key) {
  between_ = false;
  number_ = number;
  if (index_ == nullptr) return true;
  bool found;
  if (!Passed(index_->Seek(key, number, found))) return false;
  between_ = !found;
  return found || Passed(index_->Find(key, 1, behind_));
}

}  // namespace vexa
