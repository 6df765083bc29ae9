// Opening, changing and reading files under a lock.

#include "files/locked_file.h"

#include <algorithm>
#include <cstdint>

namespace vexa {

namespace {

bool Fail(const File& file, String& error) {
  error = file.error();
  return false;
}

int SizeOf(std::string_view data) { return static_cast<int>(data.size()); }

}  // namespace

std::unique_ptr<File> OpenLocked(Vexa& host, const String& path, int mode, String& error) {
  const FileLockType type =
      (mode & OpenWrite) != 0 ? FileLockType::Exclusive : FileLockType::Shared;
  do {
    std::unique_ptr<File> file = host.filemanager().Open(path, mode);
    if (file == nullptr) {
      error = host.filemanager().error();
      return nullptr;
    }
    const bool locked = file->Lock(type, 0, 0) == 0;
    if (!locked && !host.timedout()) {
      error = file->error();
      return nullptr;
    }
    if (locked && file->StillNamed() != 0) return file;
  } while (!host.timedout());
  error = "Timed out waiting for lock";
  return nullptr;
}

bool AppendWhole(File& file, std::string_view data, String& error) {
  const int64_t length = file.Length();
  if (length < 0) return Fail(file, error);
  if (file.Write(data.data(), SizeOf(data)) == SizeOf(data)) return true;
  (void)Fail(file, error);
  (void)file.Truncate(length);
  return false;
}

namespace {

// What needs new room is written first, behind the former content.
bool ReplaceInPlace(File& file, std::string_view data, String& error) {
  const int64_t former = file.Length();
  if (former < 0) return Fail(file, error);
  const auto kept = std::min(data.size(), static_cast<size_t>(former));
  const std::string_view tail = data.substr(kept);
  if (file.WriteAt(former, tail.data(), SizeOf(tail)) < 0) {
    (void)Fail(file, error);
    (void)file.Truncate(former);
    return false;
  }
  if (file.WriteAt(0, data.data(), static_cast<int>(kept)) < 0) return Fail(file, error);
  return file.Truncate(static_cast<int64_t>(data.size())) == 0 || Fail(file, error);
}

}  // namespace

bool ReplaceContent(Vexa& host, const String& path, std::string_view data, String& error) {
  FileManager& files = host.filemanager();
  // A file that is not there yet comes into being with its content. Of one that is, nobody else may
  // be half way through reading or changing it.
  std::unique_ptr<File> locked;
  if (files.Exists(path)) {
    locked = OpenLocked(host, path, OpenWrite, error);
    if (locked == nullptr) return false;
  }
  const int beside = files.WriteBeside(path, data);
  if (beside < 0) error = files.error();
  if (beside <= 0) return beside == 0;
  if (locked == nullptr) locked = OpenLocked(host, path, OpenWrite | OpenCreate, error);
  return locked != nullptr && ReplaceInPlace(*locked, data, error);
}

bool ReadContent(File& file, String& content, String& error) {
  const int64_t length = file.Length();
  if (length < 0) return Fail(file, error);
  if (length > static_cast<int64_t>(String::kLongestText)) {
    error = "The file is too large for a variable";
    return false;
  }
  char* to = content.Overwrite(static_cast<size_t>(length));
  const int got = file.ReadAt(0, to, static_cast<int>(length));
  if (got < 0) return Fail(file, error);
  content.Truncate(static_cast<size_t>(got));
  return true;
}

}  // namespace vexa
