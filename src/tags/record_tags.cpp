// Moving through records and changing them: each tag is one operation of the chosen view.

#include <cstdint>

#include "core/number.h"
#include "core/text.h"
#include "database.h"
#include "engine/tag_call.h"
#include "tags/chosen_database.h"
#include "tags/handlers.h"

namespace vexa {

namespace {

// Runs `operation(view)` on the view that `tag` chooses.
template <typename Operation>
StateResult OnView(const TagCall& call, Operation operation) {
  String message;
  DatabaseView* const view = GetView(call, message);
  if (view == nullptr) return call.Fail(message);
  return ResultOf(call, *view, operation(*view));
}

int64_t RowOf(const String& text) {
  if (EqualsIgnoreCase(text, "top")) return kFirstRow;
  return EqualsIgnoreCase(text, "bottom") ? kLastRow : ReadInteger64(text);
}

}  // namespace

StateResult ProcessVxSKIP(TagCall& call) {
  return OnView(call, [&](DatabaseView& view) { return view.Skip(call.Integer("ROWS")); });
}

StateResult ProcessVxGO(TagCall& call) {
  return OnView(call, [&](DatabaseView& view) { return view.Go(RowOf(call.Text("ROW"))); });
}

StateResult ProcessVxFIND(TagCall& call) {
  return OnView(call, [&](DatabaseView& view) {
    return view.Find(call.Text("VALUE"), call.Has("EXACT") ? 1 : 0);
  });
}

StateResult ProcessVxFILTER(TagCall& call) {
  return OnView(call, [&](DatabaseView& view) { return view.SetFilter(call.Text("FILTER")); });
}

StateResult ProcessVxADD(TagCall& call) {
  return OnView(call, [](DatabaseView& view) { return view.Add(); });
}

StateResult ProcessVxUPDATE(TagCall& call) {
  return OnView(call, [](DatabaseView& view) { return view.Update(); });
}

StateResult ProcessVxDELETE(TagCall& call) {
  return OnView(call, [](DatabaseView& view) { return view.Delete(); });
}

StateResult ProcessVxUNDELETE(TagCall& call) {
  return OnView(call, [](DatabaseView& view) { return view.UnDelete(); });
}

StateResult ProcessVxREVEALSTRUCTURE(TagCall& call) {
  return OnView(call,
                [&](DatabaseView& view) { return view.RevealStructure(call.Text("DATABASE")); });
}

}  // namespace vexa
