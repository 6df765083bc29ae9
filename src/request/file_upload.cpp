// FileUpload: calling the page's functions, and the temporary file.

#include "request/file_upload.h"

#include <sys/stat.h>

#include <algorithm>
#include <cassert>
#include <ctime>
#include <new>
#include <vector>

#include "core/error.h"
#include "core/number.h"
#include "engine/script_parser.h"
#include "expr/expression_context.h"
#include "request/form.h"

namespace vexa {

namespace {

constexpr std::string_view kTemporaryName = "VEXA_FUP";
constexpr size_t kTemporaryDigits = 8;
// How long an upload can take at most, in seconds, before its file is a dead request's.
constexpr time_t kOldest = 24 * 3600;

// Removes what killed requests left beside `path`, where files have names from the beginning.
void CollectOld(FileManager& files, const String& path) {
  const String directory = path.view().substr(0, path.view().rfind('/') + 1);
  std::vector<String> names;
  if (files.ListDirectory(directory, names) < 0) return;
  for (const String& name : names) {
    const bool ours = name.view().starts_with(kTemporaryName) &&
                      name.size() == kTemporaryName.size() + kTemporaryDigits;
    struct stat status;
    const String old = String::Concat({directory, name});
    if (!ours || files.LookAt(old, status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (status.st_mtime < std::time(nullptr) - kOldest) (void)files.Delete(old);
  }
}

}  // namespace

// --- The page's functions --------------------------------------------------------------------

bool UploadFunctions::Find() {
  if (looked_) return true;
  looked_ = true;
  return FindOne("Vexa_ValidateFileUpload", 3, validate_) &&
         FindOne("Vexa_ProcessFileUpload", 6, process_);
}

bool UploadFunctions::FindOne(std::string_view name, int parameters, const Callable*& function) {
  if (!parser_.FindFunction(Symbol(name), function)) return false;
  if (function == nullptr || function->parameter_count() == parameters) return true;
  receiver_.Error(FatalError(
      String::Concat({"Function '", name, "' must be declared with ", PrintInteger(parameters),
                      " parameters, found ", PrintInteger(function->parameter_count())})));
  return false;
}

// The page has not begun: what a function's end does to the output levels must not reach it.
bool UploadFunctions::Call(const Callable& function, std::span<ScriptValue> arguments,
                           ScriptValue& result) {
  int output_level = parser_.standardoutputlevel();
  bool done = parser_.CallFunction(function, arguments, result);
  parser_.SetStandardOutputLevel(output_level);
  return done;
}

bool UploadFunctions::Validate(const PartHeader& part, int64_t& limit) {
  limit = -1;
  if (validate_ == nullptr) return true;
  ScriptValue arguments[] = {part.name, part.filename, part.content_type};
  ScriptValue result;
  if (!Call(*validate_, arguments, result)) return false;
  limit = result.Integer64();
  return true;
}

bool UploadFunctions::Process(const PartHeader& part, const String& path, int64_t size,
                              std::string_view status) {
  if (process_ == nullptr) return true;
  ScriptValue arguments[] = {part.name, part.filename,      part.content_type,
                             path,      PrintInteger(size), String(status)};
  ScriptValue result;
  return Call(*process_, arguments, result);
}

// --- One file --------------------------------------------------------------------------------

// When memory is wanting, it may be there the second time: a limit that was met is lifted.
FileUpload::~FileUpload() {
  for (int attempts = 2; attempts > 0; --attempts) {
    try {
      Remove();
      break;
    } catch (const std::bad_alloc&) {
      continue;
    }
  }
}

bool FileUpload::Fail(std::string_view message) {
  receiver_.Error(FatalError(message));
  return false;
}

bool FileUpload::Begin() {
  assert(file_ == nullptr && size_ == 0);
  if (!functions_.Find() || !functions_.Validate(part_, limit_)) return false;
  if (limit_ < 0) return true;
  String message;
  name_ = kTemporaryName;
  if (receiver_.ResolvePath(name_, path_, PathType::DataPath, message) == 0) return Fail(message);
  // Without a name nothing is left of it when the request is killed.
  file_ = receiver_.filemanager().MakeUnnamed(path_);
  unnamed_ = file_ != nullptr;
  if (unnamed_) return true;
  CollectOld(receiver_.filemanager(), path_);
  file_ = receiver_.filemanager().MakeTemporary(path_, name_, OpenRead | OpenWrite);
  if (file_ != nullptr) return true;
  return Fail("Unable to create a file for the upload: " + receiver_.filemanager().error());
}

bool FileUpload::Take(std::string_view data) {
  const int64_t most = receiver_.config().maxupload;
  sent_ += static_cast<int64_t>(data.size());
  if (most > 0 && sent_ > most) {
    receiver_.Error(RequestError(RequestError::Fault::TooLarge));
    return false;
  }
  if (file_ == nullptr) return true;
  assert(limit_ == 0 || size_ <= limit_);
  if (limit_ > 0 && static_cast<int64_t>(data.size()) > limit_ - size_) {
    larger_ = true;
    data = data.substr(0, static_cast<size_t>(limit_ - size_));
  }
  while (!data.empty()) {
    int written = file_->Write(data.data(), static_cast<int>(data.size()));
    if (written < 1) return Fail("Unable to store the upload: " + file_->error());
    size_ += written;
    data.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

bool FileUpload::Finish(Arrived arrived) {
  if (file_ == nullptr) return functions_.Process(part_, {}, 0, "SKIPPED");
  if (unnamed_ && receiver_.filemanager().GiveName(*file_, path_, name_) < 0) {
    return Fail("Unable to create a file for the upload: " + receiver_.filemanager().error());
  }
  bool complete = arrived == Arrived::Whole && !larger_;
  bool done = functions_.Process(part_, name_, size_, complete ? "COMPLETE" : "PARTIAL");
  Remove();
  return done;
}

// The file stays open until here, so that a name the page has freed, and another request has taken
// since, is not mistaken for it.
void FileUpload::Remove() {
  if (file_ != nullptr && file_->StillNamed() == 1) (void)receiver_.filemanager().Delete(path_);
  file_.reset();
}

}  // namespace vexa
