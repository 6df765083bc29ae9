// Moving through records and changing them: each tag is one operation of the chosen view.

#include "tags/record_tags.h"

#include "core/number.h"
#include "core/text.h"
#include "database.h"
#include "engine/script_parser.h"
#include "tags/chosen_database.h"

namespace vexa {

namespace {

// Runs `operation(view)` on the view that `tag` chooses.
template <typename Operation>
StateResult OnView(ScriptParser& parser, const Tag& tag, Operation operation) {
  String message;
  DatabaseView* const view = GetView(parser, tag, message);
  if (view == nullptr) return parser.RuntimeError(tag, message);
  return Conclude(parser, tag, *view, operation(*view));
}

long RowOf(const String& text) {
  if (EqualsIgnoreCase(text, "top")) return kFirstRow;
  return EqualsIgnoreCase(text, "bottom") ? kLastRow : ReadInteger(text);
}

}  // namespace

StateResult ProcessVxSKIP(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag,
                [&](DatabaseView& view) { return view.Skip(ReadInteger(tag.Value("ROWS"))); });
}

StateResult ProcessVxGO(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag, [&](DatabaseView& view) { return view.Go(RowOf(tag.Value("ROW"))); });
}

StateResult ProcessVxFIND(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag, [&](DatabaseView& view) {
    return view.Find(tag.Value("VALUE"), tag.Has("EXACT") ? 1 : 0);
  });
}

StateResult ProcessVxFILTER(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag,
                [&](DatabaseView& view) { return view.SetFilter(tag.Value("FILTER")); });
}

StateResult ProcessVxADD(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag, [](DatabaseView& view) { return view.Add(); });
}

StateResult ProcessVxUPDATE(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag, [](DatabaseView& view) { return view.Update(); });
}

StateResult ProcessVxDELETE(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag, [](DatabaseView& view) { return view.Delete(); });
}

StateResult ProcessVxUNDELETE(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag, [](DatabaseView& view) { return view.UnDelete(); });
}

StateResult ProcessVxREVEALSTRUCTURE(ScriptParser& parser, Tag& tag) {
  return OnView(parser, tag,
                [&](DatabaseView& view) { return view.RevealStructure(tag.Value("DATABASE")); });
}

}  // namespace vexa
