// SiteLearner: reads a part of a script to remember it, without carrying anything out. It is the
// scanner of scripts with deliveries that note instead of act.
//
// References in text and foreign tags are noted, and stand for nothing while the rest is read;
// those in a tag of ours are expanded and noted with their values. What cannot be told apart from
// its references is not learnt: references in names, in comments, behind a backslash or a carriage
// return.

#ifndef VEXA_ENGINE_SITE_LEARNER_H_
#define VEXA_ENGINE_SITE_LEARNER_H_

#include <memory>
#include <span>
#include <vector>

#include "engine/macro_expander.h"
#include "engine/site.h"
#include "engine/tag_reader.h"

namespace vexa {

class SiteLearner final : public TagReader {
 public:
  // All are borrowed. The source is left anywhere.
  SiteLearner(Vexa& host, MacroExpander& source, const TagSet& tags)
      : TagReader(source, tags), host_(host), macros_(source) {}

  // What stands at `place`, which is outside of expansions.
  [[nodiscard]] std::unique_ptr<Site> Learn(const SourcePlace& place);
  // How the tag at `place` reads with the values that its references have now. Null when that must
  // not be remembered.
  [[nodiscard]] std::unique_ptr<TagReading> LearnReading(const SourcePlace& place);
  // Where a skip from `place` to `wanted` leads.
  [[nodiscard]] SiteSkip LearnSkip(const SourcePlace& place, std::span<const WantedTag> wanted);

 protected:
  Progress ProcessKnownTag(Tag& tag) override;
  Progress ProcessUnknownTag(std::string_view raw) override;
  Progress ProcessText(std::string_view text) override;
  Progress ProcessNewLine(std::string_view newline) override;
  Progress EndText() override;
  Construct ReadConstruct(const TagRow*& row, RawText raw) override;
  bool TakeTextPiece(String& piece) override;
  bool GetNameValuePairs(Tag& tag) override;
  bool TakeValue(Tag& tag, WrittenValue& written, ScriptValue& value) override;
  void ReportSyntaxError(std::string_view) override { failed_ = true; }

 private:
  static constexpr size_t kNoStopForm = SIZE_MAX;
  // What is being learnt.
  enum class Aim { Site, Reading, Skip };

  Vexa& host() override { return host_; }
  bool ReportExpressionError(std::string_view) override {
    failed_ = true;
    return false;
  }

  void Begin(Aim aim, const SourcePlace& place);
  void AddText(PieceKind kind, std::string_view text);
  void AddReferences();
  void AddPlain(const TextPiece& piece);
  void CutAt(const SourcePlace& place);
  bool KeepReading(const Tag& tag);

  Vexa& host_;
  MacroExpander& macros_;
  Aim aim_ = Aim::Site;
  SourcePlace start_;
  SourcePlace construct_;  // the `<` of the construct being read
  bool failed_ = false;    // there is an error, which is shown when this is read to be carried out
  bool spoiled_ = false;   // a reference stands where it cannot be noted
  bool cut_ = false;       // the stretch of text ends before the end of what was read
  const TagRow* row_ = nullptr;      // the tag that was found
  std::vector<MacroReference> met_;  // since the beginning
  size_t taken_ = 0;                 // how many of these the pieces have
  size_t stop_form_ = kNoStopForm;   // how many were met at a tag whose body decides what it is
  std::vector<SiteValue> values_;    // read so far
  std::vector<size_t> value_attributes_;  // their attributes' positions in the tag
  std::unique_ptr<Site> site_;
  std::unique_ptr<TagReading> reading_;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_SITE_LEARNER_H_
