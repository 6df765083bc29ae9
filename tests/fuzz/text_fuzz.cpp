// Fuzzing of what reads texts for pages, with libFuzzer: JSON, patterns in texts (in the first
// line; what they are looked for in stands behind), and rules of time zones.

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "core/json_text.h"
#include "core/utf8.h"
#include "expr/json_document.h"
#include "expr/pattern.h"
#include "expr/zone_rule.h"
#include "fuzz_target.h"

namespace vexa {
namespace {

void ReadJson(std::string_view text) {
  JsonDocument document, again;
  Require(again.Read(JsonText(text)), "what was written as JSON is none");
  Require(again.Content(0) == ToUtf8(text), "a text changed on its way through JSON");
  if (!document.Read(text)) return;
  Require(again.Read(document.Content(0)) || document.Kind(0) > JsonKind::Array,
          "a part is no JSON");
  Require(IsUtf8(text), "what is no UTF-8 was read");
  for (size_t i = 0; i < std::min<size_t>(document.Count(0), 8); ++i) {
    const std::string_view name = document.NameAt(0, i);
    Require(
        document.Kind(0) == JsonKind::Array || document.Member(0, name) != JsonDocument::kNoValue,
        "a member cannot be found by its name");
  }
  (void)document.Content(document.Find(text.substr(0, 20)));
}

void LookFor(std::string_view text) {
  const size_t end = std::min(text.find('\n'), text.size());
  const ScriptValue subject = text.substr(end);
  Pattern pattern;
  pattern.SetText(text.substr(0, end));
  size_t count = 0;
  if (!pattern.Choose(subject))
    return Require(!pattern.error().empty(), "a refusal without a reason");
  if (!pattern.CountMatches(&count)) return;
  size_t taken = 0;
  for (size_t i = 1; i <= count; ++i) {
    Require(pattern.Choose(subject) && pattern.GoToMatch(i), "a match was lost");
    taken += pattern.Group("0").size();
  }
  Require(taken <= subject.view().size(), "matches overlap");
  String replaced;
  if (pattern.Replace("$0", replaced)) Require(replaced == subject.view(), "$0 is not the match");
}

void ReadZone(std::string_view text) {
  ZoneRule rule;
  if (rule.Read(text)) (void)rule.At(static_cast<int64_t>(text.size()) << 24);
}

}  // namespace
}  // namespace vexa

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return vexa::UseTarget(
      {{"json", vexa::ReadJson}, {"pattern", vexa::LookFor}, {"zone", vexa::ReadZone}}, data, size);
}
