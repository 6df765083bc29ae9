// The calls of a commerce library.

#include "packages/commerce_order.h"

#include "core/encoding.h"

namespace vexa {

namespace {

vexa_text TextOf(const String& text) { return {text.c_str(), text.size()}; }

}  // namespace

CommerceOrder::~CommerceOrder() {
  if (!begun_) return;
  LibraryCall call(commerce_.library, LibraryCall::Kind::Commerce, &host_, &script_);
  CleanUp(call);
}

bool CommerceOrder::End() {
  if (!begun_) return true;
  LibraryCall call(commerce_.library, LibraryCall::Kind::Commerce, &host_, &script_);
  CleanUp(call);
  return !call.page_stops();
}

void CommerceOrder::CleanUp(LibraryCall& call) {
  begun_ = false;
  call.Run("vexa_commerce_cleanup", [&] { commerce_.cleanup(call.context(), state_); });
}

CommerceOrder::Step CommerceOrder::Begin(const Wanted& wanted) {
  std::vector<vexa_field> fields;
  for (const auto& [name, value] : wanted.fields) fields.push_back({TextOf(name), TextOf(value)});
  const vexa_commerce request = {TextOf(commerce_.method), TextOf(commerce_.metamethod),
                                 TextOf(wanted.action), fields.data(), fields.size()};
  begun_ = true;
  LibraryCall call(commerce_.library, LibraryCall::Kind::Commerce, &host_, &script_);
  const int status = call.Run("vexa_commerce_init",
                              [&] { return commerce_.init(call.context(), &request, &state_); });
  if (call.page_stops()) return Step::Stops;
  return status == VEXA_OK ? Next() : Fail(call);
}

CommerceOrder::Step CommerceOrder::Next() {
  LibraryCall call(commerce_.library, LibraryCall::Kind::Commerce, &host_, &script_);
  const int status =
      call.Run("vexa_commerce_loop", [&] { return commerce_.loop(call.context(), state_); });
  if (call.page_stops()) return Step::Stops;
  if (status == VEXA_MORE) return Step::More;
  return status == VEXA_OK ? Step::Done : Fail(call);
}

CommerceOrder::Step CommerceOrder::Fail(LibraryCall& call) {
  const char* reason =
      call.Run("vexa_commerce_error", [&] { return commerce_.error(call.context(), state_); });
  if (call.page_stops()) return Step::Stops;
  // A text at a bad address is the library's own crash.
  const LibraryRuns copied(commerce_.library.guarded, "vexa_commerce_error");
  error_ = reason == nullptr ? String("no reason given") : EntityEncoded(reason);
  return Step::Failed;
}

}  // namespace vexa
