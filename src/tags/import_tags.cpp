// Reading a flat file as a loop, and appending a record to one.
//
//   VxIMPORT:  record found -> variables set -> FILTER true -> body runs -> closing tag -> next one
//                                              FILTER false -> next one
//              no record left, or a stop tag -> skip to the closing tag

#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "core/string.h"
#include "core/text.h"
#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "engine/tag_call.h"
#include "expr/expression.h"
#include "files/flat_file_format.h"
#include "files/flat_file_reader.h"
#include "files/flat_file_writer.h"
#include "tags/handlers.h"
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

// The names of the variables: FIELDS, or ORDER of the legacy tags, which may be abbreviated.
const String& FieldsOf(const Tag& tag) {
  for (const AttributeRow& row : tag.row().attributes) {
    if (row.reading == Reading::Raw) return tag.FindFor(row)->value.text();
  }
  return tag.Value("FIELDS");
}

FlatFile ReadTag(const Tag& tag) {
  FlatFile flat{tag.Value("FILE"), {}, tag.Value("DELIMITER")};
  for (PieceReader pieces(FieldsOf(tag), ","); pieces.Next();) {
    flat.names.emplace_back(Stripped(pieces.piece()));
  }
  return flat;
}

// The finished path of the file. False with `error` set when it or the delimiter cannot be used.
bool Prepare(Vexa& host, const FlatFile& flat, String& path, String& error) {
  error = DelimiterProblem(flat.delimiter);
  return error.empty() && host.ResolvePath(flat.file, path, PathType::DataPath, error) != 0;
}

String ImportError(const FlatFile& flat, std::string_view reason) {
  return String::Concat({"Error importing ", ShownName(flat.file), ": ", reason});
}

class ImportState final : public LoopState {
 public:
  explicit ImportState(const TagCall& call)
      : LoopState(call), flat_(ReadTag(call.tag())), values_(flat_.names.size()) {
    // A FILTER whose text is to be read from the script has no value; one written without "=" is
    // its own name, which is true.
    const NameValuePair* filter = call.Find("FILTER");
    if (filter != nullptr && filter->value.IsEmpty()) {
      filter_.emplace(call.tag().deferred(), ValueForm::ExpressionAttribute);
    }
  }

  // Starts reading. Reported: there is nothing to read.
  StateResult Open() {
    String path;
    String error;
    if (Prepare(parser().host(), flat_, path, error)) {
      reader_ = FlatFileReader::Open(parser().host(), path, flat_.delimiter, error);
    }
    if (reader_ != nullptr) return StateResult::Handled;
    return parser().RuntimeError(opener(), ImportError(flat_, error));
  }

  // Moves to the next record that passes the filter. Handled: there is one; Finished: there is
  // none, or the file cannot be read further and the page goes on; Failed.
  [[nodiscard]] StateResult Continue() override {
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

 private:
  StateResult ReportReadError() {
    if (!parser().CheckTimeout()) return StateResult::Failed;
    const StateResult result =
        parser().RuntimeError(opener(), ImportError(flat_, reader_->error()));
    return result == StateResult::Failed ? result : StateResult::Finished;
  }

  StateResult SetVariables() {
    for (size_t i = 0; i < values_.size(); ++i) {
      if (flat_.names[i].empty()) continue;
      if (parser().Assign(opener(), flat_.names[i], values_[i]) == StateResult::Failed) {
        return StateResult::Failed;
      }
    }
    return StateResult::Handled;
  }

  // Handled, Finished when the record does not pass, or Failed.
  StateResult PassesFilter() {
    if (!filter_) return StateResult::Handled;
    ScriptValue value;
    if (!parser().EvaluateAt(*filter_, value)) return StateResult::Failed;
    return value.IsTrue() ? StateResult::Handled : StateResult::Finished;
  }

  FlatFile flat_;
  std::unique_ptr<FlatFileReader> reader_;
  std::vector<String> values_;  // of the current record, one for each name
  std::optional<DeferredExpression> filter_;
};

}  // namespace

StateResult ProcessVxIMPORT(TagCall& call) {
  auto state = std::make_unique<ImportState>(call);
  StateResult result = state->Open();
  if (result == StateResult::Handled) result = state->Continue();
  if (result == StateResult::Failed) return result;
  if (result != StateResult::Handled) return state->ExitState();
  return call.Enter(std::move(state));
}

StateResult ProcessVxEXPORT(TagCall& call) {
  const FlatFile flat = ReadTag(call.tag());
  String path;
  String error;
  bool done = Prepare(call.host(), flat, path, error);
  if (done) {
    FlatFileWriter writer(flat.delimiter);
    for (const String& name : flat.names) {
      writer.AddField(name.empty() ? std::string_view() : call.variables().Value(name).view());
    }
    done = writer.AppendTo(call.host(), path, error);
  }
  if (done) return StateResult::Handled;
  return call.Fail(String::Concat({"Error exporting to ", ShownName(flat.file), ": ", error}));
}

}  // namespace vexa
