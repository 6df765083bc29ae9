// Patterns: what a text holds, its parts, and replacing them.

#include "expr/builtins.h"
#include "expr/text_work.h"

namespace vexa {

namespace {

bool Report(const BuiltinCall& call, const Pattern& pattern) {
  return pattern.error().empty() || call.context().ReportExpressionError(pattern.error());
}

// The pattern of the second argument, about to look in the text of the first. Null after an error
// was reported.
Pattern* ChosenPattern(const BuiltinCall& call) {
  Pattern& pattern = call.host().textwork().FindPattern(call.Value(1));
  if (pattern.Choose(call.First())) return &pattern;
  (void)Report(call, pattern);
  return nullptr;
}

// The text of a group in the match of that number, from 1.
bool ReturnGroup(const BuiltinCall& call, int32_t number, const String& group) {
  Pattern* pattern = ChosenPattern(call);
  if (pattern == nullptr) return false;
  if (number < 1) return true;
  if (!pattern->GoToMatch(static_cast<size_t>(number))) return Report(call, *pattern);
  return call.Return(pattern->Group(group));
}

bool Match(const BuiltinCall& call) {
  Pattern* pattern = ChosenPattern(call);
  if (pattern == nullptr) return false;
  call.ReturnFlag(pattern->GoToMatch(1));
  return Report(call, *pattern);
}

bool Matched(const BuiltinCall& call) { return ReturnGroup(call, 1, call.Text(2)); }

bool MatchedAt(const BuiltinCall& call) { return ReturnGroup(call, call.Integer(2), call.Text(3)); }

bool Matches(const BuiltinCall& call) {
  Pattern* pattern = ChosenPattern(call);
  if (pattern == nullptr) return false;
  size_t count;
  if (!pattern->CountMatches(&count)) return Report(call, *pattern);
  return call.ReturnInteger(static_cast<int64_t>(count));
}

bool Replaced(const BuiltinCall& call) {
  Pattern* pattern = ChosenPattern(call);
  if (pattern == nullptr) return false;
  String result;
  if (!pattern->Replace(call.Text(2), result)) return Report(call, *pattern);
  return call.Return(std::move(result));
}

}  // namespace

std::span<const LateBuiltin> PatternBuiltins() {
  static const LateBuiltin rows[] = {
      {"vexa_match", "text, pattern", Match, kLooksAtFirst},
      {"vexa_matched", "text, pattern, group", Matched, kLooksAtFirst},
      {"vexa_matchedat", "text, pattern, number, group", MatchedAt, kLooksAtFirst},
      {"vexa_matches", "text, pattern", Matches, kLooksAtFirst},
      {"vexa_replaced", "text, pattern, replacement", Replaced, kLooksAtFirst},
  };
  return rows;
}

}  // namespace vexa
