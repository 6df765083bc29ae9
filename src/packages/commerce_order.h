// CommerceOrder: one VxCOMMERCE block as its library sees it. For every init that was called,
// cleanup is called once, when the order ends or is destroyed, however the block was left.

#ifndef VEXA_PACKAGES_COMMERCE_ORDER_H_
#define VEXA_PACKAGES_COMMERCE_ORDER_H_

#include <string_view>
#include <utility>
#include <vector>

#include "core/string.h"
#include "expr/expression_context.h"
#include "packages/package_loader.h"

namespace vexa {

class CommerceOrder {
 public:
  // What the library said.
  enum class Step {
    More,    // run the body
    Done,    // the block is over
    Failed,  // error() tells why
    Stops,   // the page must stop; its error was shown
  };

  // What the page asks for.
  struct Wanted {
    String action;
    std::vector<std::pair<String, String>> fields;  // names and values
  };

  // The libraries and places are borrowed.
  CommerceOrder(CommerceLibrary& commerce, Vexa& host, ExpressionContext& script)
      : commerce_(commerce), host_(host), script_(script) {}
  ~CommerceOrder();
  CommerceOrder(const CommerceOrder&) = delete;
  CommerceOrder& operator=(const CommerceOrder&) = delete;

  // The method as the configuration writes it.
  [[nodiscard]] const String& method() const { return commerce_.method; }
  // Begins, and asks for the first pass.
  [[nodiscard]] Step Begin(const Wanted& wanted);
  // Asks whether there is a further pass.
  [[nodiscard]] Step Next();
  // Calls cleanup, once. False when the page must stop, as after Step::Stops.
  [[nodiscard]] bool End();
  // Why it failed, as a part of a page.
  [[nodiscard]] const String& error() const { return error_; }

 private:
  // Asks the library why it failed.
  Step Fail(LibraryCall& call);
  void CleanUp(LibraryCall& call);

  CommerceLibrary& commerce_;
  Vexa& host_;
  ExpressionContext& script_;
  void* state_ = nullptr;
  bool begun_ = false;
  String error_;
};

}  // namespace vexa

#endif  // VEXA_PACKAGES_COMMERCE_ORDER_H_
