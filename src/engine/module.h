// Module: one loaded script file with the parser that runs it.

#ifndef VEXA_ENGINE_MODULE_H_
#define VEXA_ENGINE_MODULE_H_

#include <memory>

#include "core/string.h"
#include "engine/macro_expander.h"
#include "engine/script_parser.h"
#include "vexa.h"

namespace vexa {

struct FileProof;
struct KeptPage;

class Module {
 public:
  // Both are borrowed.
  Module(Vexa& host, const TagSet& tags);
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Opens the script file `path` (a finished path), which messages call `name`. `proof` is what a
  // regular file there was seen to be; null: it is looked at. 1, or 0 with `message` set.
  [[nodiscard]] int Open(const String& path, const String& name, String& message,
                         const FileProof* proof = nullptr);

  [[nodiscard]] ScriptParser& scriptparser() { return parser_; }
  [[nodiscard]] const String& filepath() const { return filepath_; }
  // What the system knows of the file that was opened. False when it cannot tell.
  [[nodiscard]] bool Status(struct stat& status) const { return source_.Status(status); }
  // The directory of the file, without a trailing "/".
  [[nodiscard]] const String& directory() const { return directory_; }

 private:
  Vexa& host_;
  // The page where the process keeps pages, to be had for this one. Null: the file is read.
  [[nodiscard]] std::shared_ptr<KeptPage> FindKept(const String& path,
                                                   const FileProof* proof) const;

  String filepath_;
  String directory_;
  std::shared_ptr<KeptPage> page_;  // outlives the parser
  MacroExpander source_;
  ScriptParser parser_;
};

}  // namespace vexa

#endif  // VEXA_ENGINE_MODULE_H_
