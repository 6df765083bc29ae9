// Patterns: regular expressions of PCRE2, looked for in one text after the other.
//
// A pattern reads UTF-8 characters when it and the text are UTF-8, else bytes. `\w`, `\d` and `\s`
// are ASCII, `$` is the very end of the text. Matches follow each other as they stand in the text
// and do not overlap; an empty one may follow directly behind another.
//
// However a pattern is made and whatever it is looked for in, an operation ends: after a second of
// computing, or when it wants more than 64 MB to go back in, it fails. The library's own limits
// count for one starting point, of which a text has as many as characters; so the pattern is
// compiled with a call-back before each of its items, which looks at the clock.

#ifndef VEXA_EXPR_PATTERN_H_
#define VEXA_EXPR_PATTERN_H_

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/script_value.h"
#include "core/string.h"

namespace vexa {

class Pattern {
 public:
  Pattern() = default;

  void SetText(std::string_view pattern) { text_ = pattern; }
  [[nodiscard]] const String& text() const { return text_; }

  // Chooses the text that the operations below look in; what is known of its matches is kept as
  // long as the same is chosen. False with error() set when the pattern is not valid.
  [[nodiscard]] bool Choose(const ScriptValue& subject);

  // Goes to the match of that number, from 1. False when there is none, and with error() set when
  // looking for it failed.
  [[nodiscard]] bool GoToMatch(size_t number);
  // How many matches there are. False with error() set.
  [[nodiscard]] bool CountMatches(size_t* count);
  // What a group of the match gone to took: its number or its name. Empty when there is no such
  // group or it took no part. Valid until another text is chosen.
  [[nodiscard]] std::string_view Group(const String& group) const;
  // Appends the text with every match replaced: `$0` to `$99` and `${name}` are groups, `$$` is a
  // dollar sign. False with error() set, also when the replacement is not valid.
  [[nodiscard]] bool Replace(std::string_view replacement, String& result);

  // The message of the operation that failed; empty when none did.
  [[nodiscard]] const String& error() const { return error_; }

 private:
  template <auto kFree>
  struct Freed {
    template <typename T>
    void operator()(T* thing) const {
      kFree(thing);
    }
  };
  using Code = std::unique_ptr<pcre2_code, Freed<pcre2_code_free>>;
  using MatchData = std::unique_ptr<pcre2_match_data, Freed<pcre2_match_data_free>>;
  using MatchContext = std::unique_ptr<pcre2_match_context, Freed<pcre2_match_context_free>>;

  // Bytes of the subject.
  struct Span {
    uint32_t begin;
    uint32_t end;
  };
  // A part of a replacement: a text, or the group of that number. One with a name is looked up in
  // each match, since several groups may have it.
  struct Piece {
    std::string_view text;
    int group = -1;
    String name = {};
  };

  // How much an operation has computed. Read by the call-back.
  struct Clock {
    int calls = 0;
    int64_t begin = 0;           // of the operation, in ticks of the coarse clock
    int64_t last = 0;            // when the computing time was asked for last, likewise
    int64_t computed_then = -1;  // nanoseconds when that was first done; -1: not yet
    [[nodiscard]] bool IsOver();
  };

  [[nodiscard]] bool Compile(bool utf);
  [[nodiscard]] bool Search(size_t number);
  [[nodiscard]] int GroupNumber(const String& group) const;
  [[nodiscard]] std::string_view TextOfGroup(size_t number) const;
  [[nodiscard]] bool ReadReplacement(std::string_view replacement, std::vector<Piece>& pieces);
  void Begin();
  bool Fail(std::string_view message);

  String text_;
  String error_;
  Code code_;
  bool utf_ = false;  // how code_ was compiled
  MatchData match_;
  MatchContext context_;
  Clock clock_;

  bool chosen_ = false;  // whether there is a subject
  String subject_;
  uint64_t subject_mark_ = 0;  // of a value that holds it; 0: it has none
  bool subject_utf_ = false;   // whether it and the pattern are UTF-8
  std::vector<Span> found_;    // the matches that were found, from the first on
  bool all_found_ = false;
  size_t current_ = 0;  // the match that match_ holds, from 1; 0: none
};

}  // namespace vexa

#endif  // VEXA_EXPR_PATTERN_H_
