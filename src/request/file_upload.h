// FileUpload: one uploaded file on its way through the page's own functions.
//
//   Vexa_ValidateFileUpload(field, filename, content_type)
//       returns the largest size in bytes to accept (0: any), or a negative number to skip it
//   Vexa_ProcessFileUpload(field, filename, content_type, temporary_path, size, status)
//       is called when the file was read to its end; status is COMPLETE, PARTIAL (larger than
//       accepted, or the body ended early) or SKIPPED (then the path is empty and the size 0)
//
// A page without the first function skips every upload. The temporary file lies in the data
// directory; it is removed when the second function returns, unless that moved it away.

#ifndef VEXA_REQUEST_FILE_UPLOAD_H_
#define VEXA_REQUEST_FILE_UPLOAD_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "core/file.h"
#include "core/script_value.h"
#include "core/string.h"
#include "request/body_reader.h"
#include "request/part_header.h"

namespace vexa {

class Callable;
class FormReceiver;
class ScriptParser;

// The page's functions for uploads, looked for once a request.
class UploadFunctions {
 public:
  // Both are borrowed.
  UploadFunctions(FormReceiver& receiver, ScriptParser& parser)
      : receiver_(receiver), parser_(parser) {}

  // Finds the functions. False after an error was shown.
  [[nodiscard]] bool Find();
  // Calls them; without the function nothing happens. False after an error was shown.
  // `limit` becomes the largest size to accept, 0 for any, or negative to skip the file.
  [[nodiscard]] bool Validate(const PartHeader& part, int64_t& limit);
  [[nodiscard]] bool Process(const PartHeader& part, const String& path, int64_t size,
                             std::string_view status);

 private:
  [[nodiscard]] bool FindOne(std::string_view name, int parameters, const Callable*& function);
  [[nodiscard]] bool Call(const Callable& function, std::span<ScriptValue> arguments,
                          ScriptValue& result);

  FormReceiver& receiver_;
  ScriptParser& parser_;
  bool looked_ = false;
  const Callable* validate_ = nullptr;
  const Callable* process_ = nullptr;
};

class FileUpload final : public PartSink {
 public:
  // Everything is borrowed.
  FileUpload(FormReceiver& receiver, UploadFunctions& functions, const PartHeader& part)
      : receiver_(receiver), functions_(functions), part_(part) {}
  // Removes the temporary file when it is still there.
  ~FileUpload() override;
  FileUpload(const FileUpload&) = delete;
  FileUpload& operator=(const FileUpload&) = delete;

  // Asks whether the file is wanted and makes room for it. False after an error was shown.
  [[nodiscard]] bool Begin();
  [[nodiscard]] bool Take(std::string_view data) override;
  enum class Arrived { Whole, Cut };
  // Hands the file to the page. False after an error was shown.
  [[nodiscard]] bool Finish(Arrived arrived);

 private:
  bool Fail(std::string_view message);
  void Remove();

  FormReceiver& receiver_;
  UploadFunctions& functions_;
  const PartHeader& part_;
  int64_t limit_ = 0;  // bytes; 0: any
  int64_t sent_ = 0;   // bytes that came
  int64_t size_ = 0;   // bytes written
  bool larger_ = false;
  std::unique_ptr<File> file_;  // null when the file is skipped
  bool unnamed_ = false;        // until the page is told of it
  String name_;                 // as the page names it
  String path_;
};

}  // namespace vexa

#endif  // VEXA_REQUEST_FILE_UPLOAD_H_
