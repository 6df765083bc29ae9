// Module: one loaded script file with the parser that runs it.

#ifndef VEXA_ENGINE_MODULE_H_
#define VEXA_ENGINE_MODULE_H_

#include "core/string.h"
#include "engine/macro_expander.h"
#include "engine/script_parser.h"
#include "vexa.h"

namespace vexa {

class Module {
 public:
  // Both are borrowed.
  Module(Vexa& host, const TagSet& tags);
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Opens the script file `path` (a finished path), which messages call `name`. 1, or 0 with
  // `message` set.
  [[nodiscard]] int Open(const String& path, const String& name, String& message);

  [[nodiscard]] ScriptParser& scriptparser() { return parser_; }
  [[nodiscard]] const String& filepath() const { return filepath_; }
  // What the system knows of the file that was opened. False when it cannot tell.
  [[nodiscard]] bool Status(struct stat& status) const { return source_.Status(status); }
  // The directory of the file, without a trailing "/".
  [[nodiscard]] const String& directory() const { return directory_; }

 private:
  Vexa& host_;
  String filepath_;
  String directory_;
  MacroExpander source_;
  ScriptParser parser_;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_MODULE_H_
