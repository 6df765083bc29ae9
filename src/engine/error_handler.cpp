// The error settings of a script.

#include "engine/error_handler.h"

#include <algorithm>
#include <utility>

namespace vexa {

namespace {

constexpr unsigned kCategoryMask = 0xFF000000;

// The tags whose runtime errors do not stop a script.
constexpr unsigned kNonFatalTags[] = {0x02, 0x04, 0x08, 0x09, 0x14, 0x17, 0x1C, 0x1E, 0x20,
                                      0x39, 0x3A, 0x3B, 0x3C, 0x3E, 0x3F, 0x40, 0x41, 0x42,
                                      0x43, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B, 0x4C};
static_assert(std::size(kNonFatalTags) == 27);

bool IsNonFatal(unsigned code) {
  return std::any_of(std::begin(kNonFatalTags), std::end(kNonFatalTags),
                     [code](unsigned tag) { return code == (kRuntimeErrors | tag); });
}

}  // namespace

int ErrorHandler::Error(unsigned code, const vexa::Error& error) {
  ErrorSettings settings = Settings(code);
  if (!message_.empty()) host_.Error(message_);
  bool shown =
      (code & kAlwaysShown) != 0 || (settings.display && (code & level_ & kCategoryMask) != 0);
  if (shown) host_.Error(error);
  return settings.fatal ? 0 : 1;
}

unsigned ErrorHandler::SetErrorOutputLevel(unsigned level) { return std::exchange(level_, level); }

String ErrorHandler::SetErrorMessage(const String& text) { return std::exchange(message_, text); }

void ErrorHandler::SetFatal(unsigned code, bool fatal) {
  changed_.try_emplace(code, Settings(code)).first->second.fatal = fatal;
}

void ErrorHandler::SetDisplay(unsigned code, bool display) {
  changed_.try_emplace(code, Settings(code)).first->second.display = display;
}

void ErrorHandler::CopySettings(const ErrorHandler& other) {
  level_ = other.level_;
  message_ = other.message_;
  changed_ = other.changed_;
}

ErrorHandler::ErrorSettings ErrorHandler::Settings(unsigned code) const {
  if (auto found = changed_.find(code); found != changed_.end()) return found->second;
  return {.fatal = !IsNonFatal(code), .display = true};
}

}  // namespace vexa
