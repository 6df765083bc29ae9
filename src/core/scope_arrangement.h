// ScopeArrangement: a number for what all names mean at the moment. It is another one after every
// variable that is added to a scope in force, and while a scope is pushed; so who noted which
// variable a name meant can use the note as long as the number is the same. A scope that is popped
// brings back the number from before it was pushed when nothing was added meanwhile, so that what a
// loop noted outlives the calls in it.
//
// There is one for the process: it serves one request at a time.

#ifndef VEXA_CORE_SCOPE_ARRANGEMENT_H_
#define VEXA_CORE_SCOPE_ARRANGEMENT_H_

#include <cstdint>

namespace vexa {

class ScopeArrangement {
 public:
  // What is kept of a scope that is pushed.
  struct Mark {
    uint64_t number;
    uint64_t additions;
  };

  // Never 0.
  [[nodiscard]] uint64_t number() const { return number_; }
  // A variable was added to a scope in force, or anything else changed for good.
  void Add() {
    ++additions_;
    number_ = ++last_;
  }
  [[nodiscard]] Mark Push() {
    const Mark mark = {number_, additions_};
    number_ = ++last_;
    return mark;
  }
  void Pop(const Mark& mark) { number_ = additions_ == mark.additions ? mark.number : ++last_; }

 private:
  uint64_t number_ = 1;
  uint64_t last_ = 1;
  uint64_t additions_ = 0;
};

inline constinit ScopeArrangement scope_arrangement;

}  // namespace vexa

#endif  // VEXA_CORE_SCOPE_ARRANGEMENT_H_
