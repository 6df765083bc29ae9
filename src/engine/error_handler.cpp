// The error settings of a script.

#include "engine/error_handler.h"

#include <utility>

namespace vexa {

namespace {

constexpr unsigned kCategoryMask = 0xFF000000;

}  // namespace

int ErrorHandler::Error(unsigned code, const vexa::Error& error) {
  ErrorSettings settings = Settings(code);
  if (settings.fatal) host_.answer().PageStops();
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
  const bool of_tag = (code & kCategoryMask) == kRuntimeErrors;
  const TagRow* row = of_tag ? tags_.WithNumber(static_cast<int>(code & ~kCategoryMask)) : nullptr;
  return {.fatal = row == nullptr || row->fatal, .display = true};
}

}  // namespace vexa
