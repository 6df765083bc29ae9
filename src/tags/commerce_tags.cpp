// Payment: a block that a commerce library leads.
//
//   VxCOMMERCE: the library begins -> it wants a pass -> body -> closing tag -> asked again
//                                  -> it is done, or a stop tag -> skip to the closing tag
//
// The library's cleanup is called when the block is left, however that happens.

#include <memory>
#include <utility>

#include "core/encoding.h"
#include "core/text.h"
#include "engine/block_state.h"
#include "engine/script_parser.h"
#include "engine/tag_call.h"
#include "packages/commerce_order.h"
#include "tags/handlers.h"
#include "vexa.h"

namespace vexa {

namespace {

using Step = CommerceOrder::Step;

CommerceOrder::Wanted ReadTag(const TagCall& call) {
  CommerceOrder::Wanted wanted{call.Text("ACTION"), {}};
  for (PieceReader pieces(call.Text("FIELDS"), ","); pieces.Next();) {
    const std::string_view name = Stripped(pieces.piece());
    if (!name.empty()) wanted.fields.emplace_back(name, call.variables().Value(name));
  }
  return wanted;
}

class CommerceState final : public LoopState {
 public:
  CommerceState(const TagCall& call, std::unique_ptr<CommerceOrder> order)
      : LoopState(call), order_(std::move(order)) {}

  // Handled: the body is to run; Finished: the block is over; Failed.
  StateResult Begin(const CommerceOrder::Wanted& wanted) { return Result(order_->Begin(wanted)); }

  [[nodiscard]] StateResult ExitState() override {
    return EndOrder() ? BlockState::ExitState() : StateResult::Failed;
  }

  [[nodiscard]] StateResult Continue() override {
    return parser().CheckTimeout() ? Result(order_->Next()) : StateResult::Failed;
  }

 private:
  // False when the library's cleanup stopped the page.
  bool EndOrder() {
    const std::unique_ptr<CommerceOrder> order = std::move(order_);
    return order == nullptr || order->End();
  }

  StateResult Result(Step step) {
    switch (step) {
      case Step::More:
        return StateResult::Handled;
      case Step::Done:
        return StateResult::Finished;
      case Step::Stops:
        return StateResult::Failed;
      case Step::Failed:
        break;
    }
    const String message = String::Concat(
        {"Error in commerce method '", EntityEncoded(order_->method()), "': ", order_->error()});
    if (!EndOrder()) return StateResult::Failed;
    const StateResult result = parser().RuntimeError(opener(), message);
    return result == StateResult::Failed ? result : StateResult::Finished;
  }

  std::unique_ptr<CommerceOrder> order_;
};

}  // namespace

StateResult ProcessVxCOMMERCE(TagCall& call) {
  String message;
  std::unique_ptr<CommerceOrder> order =
      call.host().NewCommerceHandler(call.Text("METHOD"), call.script(), message);
  const bool usable = order != nullptr;
  auto state = std::make_unique<CommerceState>(call, std::move(order));
  StateResult result = StateResult::Finished;
  if (!usable) {
    result = call.Fail(message);
  } else {
    result = state->Begin(ReadTag(call));
  }
  if (result == StateResult::Failed) return result;
  if (result != StateResult::Handled) return state->ExitState();
  return call.Enter(std::move(state));
}

}  // namespace vexa
