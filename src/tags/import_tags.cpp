// Reading a flat file as a loop, and appending a record to one.
//
//   VxIMPORT:  record found -> variables set -> FILTER true -> body runs -> closing tag -> next one
//                                              FILTER false -> next one
//              no record left, or a stop tag -> skip to the closing tag

#include "tags/import_tags.h"

#include <memory>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/string.h"
#include "core/text.h"
#include "engine/script_parser.h"
#include "engine/script_state.h"
#include "expr/expression.h"
#include "files/flat_file_format.h"
#include "files/flat_file_reader.h"
#include "files/flat_file_writer.h"
#include "tags/shown_name.h"
#include "tags/tag_numbers.h"
#include "vexa.h"

namespace vexa {

namespace {

// What both tags are told.
struct FlatFile {
  String file;                // as the script wrote it
  std::vector<String> names;  // of the variables; an empty one stands for no variable
  String delimiter;
};

bool IsLegacy(const Tag& tag) { return tag.id() == kTagIMPORT || tag.id() == kTagEXPORT; }

// The list of variables: FIELDS, or ORDER (any leading part of that word) of the legacy tags.
const NameValuePair* FindFields(const Tag& tag) {
  if (!IsLegacy(tag)) return tag.Find("FIELDS");
  for (const NameValuePair& pair : tag.attributes()) {
    if (IsLeadingPart(pair.name, "ORDER")) return &pair;
  }
  return nullptr;
}

// The attribute itself; null, after a syntax error, when the tag does not have it. The legacy tags
// have no template that requires their attributes.
const NameValuePair* Required(ScriptParser& parser, const Tag& tag, std::string_view name) {
  const bool fields = name == "FIELDS";
  const NameValuePair* pair = fields ? FindFields(tag) : tag.Find(name);
  if (pair == nullptr) {
    if (fields && IsLegacy(tag)) name = "ORDER";
    parser.SyntaxError(
        String::Concat({tag.name(), " requires the ", name, " attribute to be specified"}));
  }
  return pair;
}

// False after a syntax error.
bool ReadTag(ScriptParser& parser, const Tag& tag, FlatFile& flat) {
  const NameValuePair* file = Required(parser, tag, "FILE");
  if (file == nullptr) return false;
  const NameValuePair* fields = Required(parser, tag, "FIELDS");
  if (fields == nullptr) return false;
  const NameValuePair* delimiter = Required(parser, tag, "DELIMITER");
  if (delimiter == nullptr) return false;
  flat.file = file->value;
  flat.delimiter = delimiter->value;
  for (PieceReader pieces(fields->value, ","); pieces.Next();) {
    flat.names.emplace_back(Stripped(pieces.piece()));
  }
  return true;
}

// The finished path of the file. False with `error` set when it or the delimiter cannot be used.
bool Prepare(ScriptParser& parser, const FlatFile& flat, String& path, String& error) {
  error = DelimiterProblem(flat.delimiter);
  return error.empty() &&
         parser.host().ResolvePath(flat.file, path, PathType::DataPath, error) != 0;
}

StateResult ReportImportError(ScriptParser& parser, const Tag& tag, const FlatFile& flat,
                              std::string_view reason) {
  return parser.RuntimeError(
      tag, String::Concat({"Error importing ", ShownName(flat.file), ": ", reason}));
}

class ImportState final : public ScriptState {
 public:
  // `tag` is the opening tag, just read; the body begins where the script now stands.
  ImportState(ScriptParser& parser, const Tag& tag, FlatFile flat)
      : ScriptState(parser),
        opener_(tag),
        flat_(std::move(flat)),
        values_(flat_.names.size()),
        body_(parser.CurrentPlace()) {}

  // Starts reading. Done: at once, there is nothing to read, the error was reported.
  StateResult Open() {
    String path;
    String error;
    if (Prepare(parser(), flat_, path, error)) {
      reader_ = FlatFileReader::Open(parser().host(), path, flat_.delimiter, error);
    }
    if (reader_ != nullptr) return StateResult::Handled;
    return ReportImportError(parser(), opener_, flat_, error);
  }

  // Moves to the next record that passes the filter. Handled: there is one; Finished: there is
  // none, or the file cannot be read further and the page goes on; Failed.
  StateResult Continue() {
    for (;;) {
      if (!parser().CheckTimeout()) return StateResult::Failed;
      switch (reader_->ReadRecord(values_)) {
        case FlatFileReader::Result::End:
          return StateResult::Finished;
        case FlatFileReader::Result::Failed:
          return ReportReadError();
        case FlatFileReader::Result::Record:
          break;
      }
      if (SetVariables() == StateResult::Failed) return StateResult::Failed;
      const StateResult passed = PassesFilter();
      if (passed != StateResult::Finished) return passed;
    }
  }

  [[nodiscard]] StateResult ProcessTag(Tag& tag) override {
    const bool legacy = IsLegacy(opener_);
    if (tag.id() == (legacy ? kTagIMPORTClose : kTagVxIMPORTClose)) {
      const StateResult result = Continue();
      if (result == StateResult::Handled) parser().GoTo(body_);
      if (result == StateResult::Finished) finished_ = true;
      return result;
    }
    const bool stops =
        legacy ? tag.id() == kTagIMPORT && tag.Has("STOP") : tag.id() == kTagVxIMPORTSTOP;
    return stops ? StateResult::Finished : ScriptState::ProcessTag(tag);
  }

  [[nodiscard]] StateResult ExitState() override {
    static constexpr WantedTag kEnds[] = {{kTagVxIMPORT, kTagVxIMPORTClose},
                                          {kTagVxIMPORTClose, 0}};
    static constexpr WantedTag kLegacyEnds[] = {{kTagIMPORT, kTagIMPORTClose},
                                                {kTagIMPORTClose, 0}};
    if (finished_) return StateResult::Handled;
    const std::span<const WantedTag> ends =
        IsLegacy(opener_) ? std::span<const WantedTag>(kLegacyEnds) : kEnds;
    return parser().SkipTo(ends, closing_tag()) != nullptr ? StateResult::Handled
                                                           : StateResult::Failed;
  }

  [[nodiscard]] std::string_view closing_tag() const override {
    return IsLegacy(opener_) ? "&lt;/IMPORT&gt;" : "&lt;/VxIMPORT&gt;";
  }

 private:
  StateResult ReportReadError() {
    if (!parser().CheckTimeout()) return StateResult::Failed;
    const StateResult result = ReportImportError(parser(), opener_, flat_, reader_->error());
    return result == StateResult::Failed ? result : StateResult::Finished;
  }

  StateResult SetVariables() {
    for (size_t i = 0; i < values_.size(); ++i) {
      if (flat_.names[i].empty()) continue;
      if (parser().Assign(opener_, flat_.names[i], values_[i]) == StateResult::Failed) {
        return StateResult::Failed;
      }
    }
    return StateResult::Handled;
  }

  // Handled, Finished when the record does not pass, or Failed. A FILTER whose text is to be read
  // from the script has no value; one written without "=" is its own name, which is true.
  StateResult PassesFilter() {
    const NameValuePair* filter = opener_.Find("FILTER");
    if (filter == nullptr || !filter->value.empty()) return StateResult::Handled;
    String value;
    if (!parser().EvaluateAt(opener_.deferred(), ValueForm::ExpressionAttribute, value)) {
      return StateResult::Failed;
    }
    return Expression::IsTrue(value) ? StateResult::Handled : StateResult::Finished;
  }

  Tag opener_;
  FlatFile flat_;
  std::unique_ptr<FlatFileReader> reader_;
  std::vector<String> values_;  // of the current record, one for each name
  SourcePlace body_;            // just behind the opening tag
  bool finished_ = false;       // the closing tag has been consumed
};

}  // namespace

StateResult ProcessVxIMPORT(ScriptParser& parser, Tag& tag) {
  // The legacy stop form belongs to the loop around it.
  if (tag.id() == kTagIMPORT && tag.Has("STOP")) return StateResult::NotMine;
  FlatFile flat;
  if (!ReadTag(parser, tag, flat)) return StateResult::Failed;
  auto state = std::make_unique<ImportState>(parser, tag, std::move(flat));
  StateResult result = state->Open();
  if (result == StateResult::Handled) result = state->Continue();
  if (result == StateResult::Failed) return result;
  if (result != StateResult::Handled) return state->ExitState();
  parser.AddState(std::move(state));
  return StateResult::Handled;
}

StateResult ProcessVxEXPORT(ScriptParser& parser, Tag& tag) {
  FlatFile flat;
  if (!ReadTag(parser, tag, flat)) return StateResult::Failed;
  String path;
  String error;
  bool done = Prepare(parser, flat, path, error);
  if (done) {
    FlatFileWriter writer(flat.delimiter);
    for (const String& name : flat.names) {
      writer.AddField(name.empty() ? std::string_view() : parser.variables().Value(name).view());
    }
    done = writer.AppendTo(parser.host(), path, error);
  }
  if (done) return StateResult::Handled;
  return parser.RuntimeError(
      tag, String::Concat({"Error exporting to ", ShownName(flat.file), ": ", error}));
}

}  // namespace vexa
