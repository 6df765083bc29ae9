// ErrorHandler: decides for one running script whether an error is shown and whether it stops the
// script. Everything is shown, and fatal but for the runtime errors of tags whose rows say other-
// wise, until the page changes that.

#ifndef VEXA_ENGINE_ERROR_HANDLER_H_
#define VEXA_ENGINE_ERROR_HANDLER_H_

#include <map>

#include "core/error.h"
#include "core/string.h"
#include "engine/tag_row.h"
#include "vexa.h"

namespace vexa {

class ErrorHandler {
 public:
  // Both are borrowed.
  ErrorHandler(Vexa& host, const TagSet& tags) : host_(host), tags_(tags) {}

  // Handles `error` under `code`: shows it where the settings say so. Returns 1 when the script
  // may go on, 0 when it must stop.
  [[nodiscard]] int Error(unsigned code, const vexa::Error& error);
  // Which categories are shown, as a mask of their top bytes. Returns the previous mask.
  unsigned SetErrorOutputLevel(unsigned level);
  // A text that is shown before every error; empty for none. Returns the previous one.
  String SetErrorMessage(const String& text);
  void SetFatal(unsigned code, bool fatal);
  void SetDisplay(unsigned code, bool display);
  // Takes over another script's settings, for a script that it runs.
  void CopySettings(const ErrorHandler& other);

 private:
  struct ErrorSettings {
    bool fatal;
    bool display;
  };
  // The settings that apply to `code`: the page's own, or the built-in ones.
  [[nodiscard]] ErrorSettings Settings(unsigned code) const;

  Vexa& host_;
  const TagSet& tags_;
  unsigned level_ = 0x7F000000;
  String message_;
  std::map<unsigned, ErrorSettings> changed_;  // only what the page changed
};

}  // namespace vexa

#endif  // VEXA_ENGINE_ERROR_HANDLER_H_
