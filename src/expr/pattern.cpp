// Compiling patterns, going from match to match, and replacing.
//
// The just-in-time compiler of the library is not used: it would need memory that can be written
// and run, which hardened systems refuse, and pays off only where one pattern works for long.

#include "expr/pattern.h"

#include <algorithm>
#include <cassert>
#include <ctime>
#include <new>

#include "core/encoding.h"
#include "core/late_function.h"
#include "core/number.h"
#include "core/text.h"
#include "core/utf8.h"

namespace vexa {

namespace {

constexpr size_t kLongestPattern = 65535;          // bytes
constexpr uint32_t kMostSteps = 10'000'000;        // from one starting point
constexpr uint32_t kMostKilobytes = 64 * 1024;     // to go back in
constexpr int64_t kMostComputing = 1'000'000'000;  // nanoseconds

constexpr std::string_view kTooLong = "The pattern takes too long";

int64_t Nanoseconds(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

PCRE2_SPTR Units(std::string_view text) { return reinterpret_cast<PCRE2_SPTR>(text.data()); }

String ReasonOf(int error) {
  PCRE2_UCHAR text[256];
  const int length = pcre2_get_error_message(error, text, sizeof text);
  return length < 0 ? String("unknown error") : String(reinterpret_cast<const char*>(text));
}

}  // namespace

// The clock of the process is a system call, so it is looked at only when the other one, which
// costs little, has moved on.
bool Pattern::Clock::IsOver() {
  constexpr int kCallsBetween = 16;
  constexpr int64_t kFirstLook = 10'000'000;
  if (++calls % kCallsBetween != 0) return false;
  const int64_t now = Nanoseconds(CLOCK_MONOTONIC_COARSE);
  if (now - begin < kFirstLook || now == last) return false;
  last = now;
  const int64_t computed = Nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
  if (computed_then < 0) computed_then = computed;
  return computed - computed_then > kMostComputing;
}

void Pattern::Begin() {
  error_.clear();
  clock_ = {};
  clock_.begin = Nanoseconds(CLOCK_MONOTONIC_COARSE);
}

bool Pattern::Fail(std::string_view message) {
  error_ = message;
  return false;
}

bool Pattern::Choose(const ScriptValue& subject) {
  Begin();
  const std::string_view text = subject.view();
  const uint64_t mark = subject.Mark();
  const bool same = chosen_ && ((mark != 0 && mark == subject_mark_) || text == subject_.view());
  subject_mark_ = mark;
  if (!same) {
    chosen_ = true;
    subject_ = text;
    found_.clear();
    all_found_ = false;
    current_ = 0;
    subject_utf_ = IsUtf8(text) && IsUtf8(text_);
  }
  return (code_ != nullptr && utf_ == subject_utf_) || Compile(subject_utf_);
}

bool Pattern::Compile(bool utf) {
  code_.reset();
  match_.reset();
  std::unique_ptr<pcre2_compile_context, Freed<pcre2_compile_context_free>> context(
      pcre2_compile_context_create(nullptr));
  if (context_ == nullptr) context_.reset(pcre2_match_context_create(nullptr));
  if (context == nullptr || context_ == nullptr) throw std::bad_alloc();
  pcre2_set_newline(context.get(), PCRE2_NEWLINE_LF);
  pcre2_set_max_pattern_length(context.get(), kLongestPattern);
  const uint32_t options = PCRE2_DOLLAR_ENDONLY | PCRE2_AUTO_CALLOUT | PCRE2_NEVER_BACKSLASH_C |
                           (utf ? PCRE2_UTF | PCRE2_NO_UTF_CHECK : PCRE2_NEVER_UTF);
  int error;
  size_t place;
  code_.reset(pcre2_compile(Units(text_), text_.size(), options, &error, &place, context.get()));
  if (code_ == nullptr) {
    if (error == PCRE2_ERROR_HEAP_FAILED) throw std::bad_alloc();
    return Fail("The pattern is not valid: " + EntityEncoded(ReasonOf(error)));
  }
  utf_ = utf;
  match_.reset(pcre2_match_data_create_from_pattern(code_.get(), nullptr));
  if (match_ == nullptr) throw std::bad_alloc();
  pcre2_set_match_limit(context_.get(), kMostSteps);
  pcre2_set_depth_limit(context_.get(), kMostSteps);
  pcre2_set_heap_limit(context_.get(), kMostKilobytes);
  pcre2_set_callout(
      context_.get(),
      [](pcre2_callout_block*, void* clock) {
        return static_cast<Clock*>(clock)->IsOver() ? PCRE2_ERROR_CALLOUT : 0;
      },
      &clock_);
  return true;
}

// Looks for the match of that number behind the one before it, which was found.
bool Pattern::Search(size_t number) {
  assert(number > 0 && number <= found_.size() + 1);
  size_t from = 0;
  uint32_t options = PCRE2_NO_UTF_CHECK;
  if (number > 1) {
    const Span& before = found_[number - 2];
    from = before.end;
    if (before.begin >= before.end) options |= PCRE2_NOTEMPTY_ATSTART;
  }
  current_ = 0;
  const int result = pcre2_match(code_.get(), Units(subject_), subject_.size(), from, options,
                                 match_.get(), context_.get());
  switch (result) {
    case PCRE2_ERROR_NOMATCH:
      return false;
    case PCRE2_ERROR_MATCHLIMIT:
    case PCRE2_ERROR_DEPTHLIMIT:
    case PCRE2_ERROR_HEAPLIMIT:
    case PCRE2_ERROR_CALLOUT:
      return Fail(kTooLong);
    case PCRE2_ERROR_NOMEMORY:
      throw std::bad_alloc();
    default:
      break;
  }
  if (result < 0) return Fail("The pattern is not valid: " + EntityEncoded(ReasonOf(result)));
  current_ = number;
  return true;
}

bool Pattern::GoToMatch(size_t number) {
  while (found_.size() < number) {
    if (all_found_) return false;
    if (!Search(found_.size() + 1)) {
      all_found_ = error_.empty();
      return false;
    }
    const size_t* groups = pcre2_get_ovector_pointer(match_.get());
    const Span match = {static_cast<uint32_t>(groups[0]), static_cast<uint32_t>(groups[1])};
    // Each one ends further on, or is the empty one right behind another.
    if (!found_.empty() && match.end <= found_.back().end && match.begin <= found_.back().begin) {
      all_found_ = true;
      return false;
    }
    found_.push_back(match);
  }
  return number > 0 && (current_ == number || Search(number));
}

bool Pattern::CountMatches(size_t* count) {
  while (GoToMatch(found_.size() + 1)) {
  }
  *count = found_.size();
  return error_.empty();
}

// -1 when there is no such group. Of several groups with one name, the first that took part.
int Pattern::GroupNumber(const String& group) const {
  if (group.empty() || group.contains('\0')) return -1;
  if (IsDigit(group[0])) {
    constexpr int kMostDigits = 5;
    uint32_t count = 0;
    (void)pcre2_pattern_info(code_.get(), PCRE2_INFO_CAPTURECOUNT, &count);
    const bool digits = std::ranges::all_of(group.view(), IsDigit);
    const int number = digits && group.length() <= kMostDigits ? ReadInteger(group) : -1;
    return number <= static_cast<int>(count) ? number : -1;
  }
  PCRE2_SPTR first;
  PCRE2_SPTR last;
  const int size = pcre2_substring_nametable_scan(code_.get(), Units(group), &first, &last);
  if (size < 0) return -1;
  int found = -1;
  for (PCRE2_SPTR entry = first; entry <= last; entry += size) {
    const int candidate = entry[0] << 8 | entry[1];
    if (found < 0) found = candidate;
    if (current_ > 0 && !TextOfGroup(static_cast<size_t>(candidate)).empty()) return candidate;
  }
  return found;
}

std::string_view Pattern::TextOfGroup(size_t number) const {
  if (current_ == 0 || number >= pcre2_get_ovector_count(match_.get())) return {};
  const size_t* groups = pcre2_get_ovector_pointer(match_.get());
  const size_t begin = groups[2 * number];
  const size_t end = groups[2 * number + 1];
  if (begin == PCRE2_UNSET || begin > end) return {};
  return subject_.view().substr(begin, end - begin);
}

std::string_view Pattern::Group(const String& group) const {
  const int number = GroupNumber(group);
  return number < 0 ? std::string_view() : TextOfGroup(static_cast<size_t>(number));
}

bool Pattern::ReadReplacement(std::string_view rest, std::vector<Piece>& pieces) {
  const auto refuse = [this](std::string_view reason) {
    return Fail(String::Concat({"The replacement is not valid: ", reason}));
  };
  while (!rest.empty()) {
    const size_t dollar = rest.find('$');
    if (dollar != 0) pieces.push_back({rest.substr(0, dollar)});
    if (dollar == rest.npos) break;
    rest.remove_prefix(dollar + 1);
    if (rest.starts_with('$')) {
      pieces.push_back({rest.substr(0, 1)});
      rest.remove_prefix(1);
      continue;
    }
    String group;
    if (rest.starts_with('{')) {
      const size_t end = rest.find('}');
      if (end == rest.npos) return refuse("'${' without '}'");
      group = rest.substr(1, end - 1);
      rest.remove_prefix(end + 1);
    } else {
      constexpr size_t kMostDigits = 2;
      size_t digits = 0;
      while (digits < std::min(kMostDigits, rest.size()) && IsDigit(rest[digits])) ++digits;
      if (digits == 0) return refuse("'$' before no group");
      group = rest.substr(0, digits);
      rest.remove_prefix(digits);
    }
    const int number = GroupNumber(group);
    if (number < 0) return refuse(String::Concat({"no group '", ShownInMessage(group), "'"}));
    pieces.push_back({{}, number, IsDigit(group[0]) ? String() : std::move(group)});
  }
  return true;
}

bool Pattern::Replace(std::string_view replacement, String& result) {
  std::vector<Piece> pieces;
  if (!ReadReplacement(replacement, pieces)) return false;
  size_t copied = 0;
  for (size_t number = 1; GoToMatch(number); ++number) {
    const Span& match = found_[number - 1];
    if (match.begin > copied) result.Append(subject_.view().substr(copied, match.begin - copied));
    for (const Piece& piece : pieces) {
      const int group = piece.name.empty() ? piece.group : GroupNumber(piece.name);
      result.Append(group < 0 ? piece.text : TextOfGroup(static_cast<size_t>(group)));
    }
    copied = std::max<size_t>(copied, match.end);
  }
  result.Append(subject_.view().substr(copied));
  return error_.empty();
}

}  // namespace vexa

// What the library calls of the C library when it compiles a pattern or, never here, to machine
// code. The program's linker leads these calls here (VexaOptions.cmake), so that only a page with a
// pattern pays for finding them.
extern "C" {

#define VEXA_FOUND_LATE(name, result, parameters, arguments)         \
  [[gnu::used]] result __wrap_##name parameters {                    \
    return vexa::LateFunction<#name, result parameters>() arguments; \
  }

VEXA_FOUND_LATE(__ctype_b_loc, const unsigned short**, (), ())
VEXA_FOUND_LATE(__ctype_tolower_loc, const int32_t**, (), ())
VEXA_FOUND_LATE(madvise, int, (void* begin, size_t size, int advice), (begin, size, advice))
VEXA_FOUND_LATE(posix_madvise, int, (void* begin, size_t size, int advice), (begin, size, advice))
VEXA_FOUND_LATE(sysconf, long, (int name), (name))

#undef VEXA_FOUND_LATE

}  // extern "C"
