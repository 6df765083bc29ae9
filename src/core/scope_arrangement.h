// ScopeArrangement: numbers for what names mean at the moment, so that who noted which variable a
// name meant can use the note as long as its number is the same.
//
//   number      for any name. Another one after every variable that is added to a scope in force,
//               and while a scope is pushed. A scope that is popped brings back the number from
//               before it was pushed when nothing was added meanwhile: what a loop noted outlives
//               the calls in it. One that is pushed again in the same surroundings brings back the
//               number that it had then: what a function noted outlives its call.
//   additions   for names that never stood in any scope but the globals, which pushing does not
//               touch
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

  // Neither is ever 0.
  [[nodiscard]] const uint64_t& number() const { return number_; }
  [[nodiscard]] const uint64_t& additions() const { return additions_; }
  // A variable was added to a scope in force, a name came to a kind of scopes where it never stood,
  // or anything else changed for good.
  void Add() {
    ++additions_;
    number_ = ++last_;
  }
  [[nodiscard]] Mark Push() {
    const Mark mark = {number_, additions_};
    number_ = ++last_;
    return mark;
  }
  // What a scope keeps of being pushed, as long as no variable is added to it.
  struct Pushed {
    Mark outside = {0, 0};
    uint64_t number = 0;
  };
  // The same for the scope that keeps `pushed`.
  [[nodiscard]] Mark Push(Pushed& pushed) {
    const Mark mark = {number_, additions_};
    if (pushed.outside.number != number_ || pushed.outside.additions != additions_) {
      pushed = {mark, ++last_};
    }
    number_ = pushed.number;
    return mark;
  }
  void Pop(const Mark& mark) { number_ = additions_ == mark.additions ? mark.number : ++last_; }

 private:
  uint64_t number_ = 1;
  uint64_t last_ = 1;
  uint64_t additions_ = 1;
};

inline constinit ScopeArrangement scope_arrangement;

}  // namespace vexa

#endif  // VEXA_CORE_SCOPE_ARRANGEMENT_H_
