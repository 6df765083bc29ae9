// The protocol of session files, and the removal of old ones.

#include "request/session_store.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <vector>

#include "core/base64.h"
#include "core/digest.h"
#include "core/file_access.h"
#include "core/text.h"
#include "files/locked_file.h"

namespace vexa {

namespace {

constexpr char kDirectory[] = "vexasessions";
constexpr char kCleaned[] = "/.cleaned";
constexpr size_t kNameLength = 64;  // of a file: a SHA-256 in hexadecimal digits
constexpr int64_t kSecond = 1'000'000'000;
// What a file is made beside under is old after an hour: nobody is still writing it.
constexpr int64_t kLongestWrite = 3600 * kSecond;

String CannotRead(std::string_view reason) {
  return String::Concat({"The session cannot be read: ", reason});
}

String CannotWrite(std::string_view reason) {
  return String::Concat({"The session cannot be written: ", reason});
}

// Nanoseconds since 1970, as files have them.
int64_t Now() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

// When the plain file at `path` was last changed. False when there is none.
bool LastChange(FileManager& files, const String& path, int64_t& changed) {
  struct stat status;
  if (files.LookAt(path, status) != 0 || !S_ISREG(status.st_mode)) return false;
  changed = int64_t{status.st_mtim.tv_sec} * kSecond + status.st_mtim.tv_nsec;
  return true;
}

// Whether there is nothing of that name, also for who may look everywhere.
bool IsMissing(FileManager& files, const String& path) {
  struct stat status;
  return files.LookAt(path, status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

bool IsNameOfSession(std::string_view name) {
  return name.size() == kNameLength && std::all_of(name.begin(), name.end(), [](char c) {
           return IsDigit(c) || (c >= 'a' && c <= 'f');
         });
}

}  // namespace

bool SessionStore::IsOver(int64_t last_used) const {
  const int64_t lifetime = host_.config().sessiontime;
  return lifetime > 0 && Now() - last_used >= lifetime * kSecond;
}

bool SessionStore::FindPath(const String& id, String& path, String& reason) const {
  const String name = HexOf(DigestOf(DigestMethod::Sha256, id).bytes());
  if (host_.ResolvePath(String::Concat({kDirectory, "/", name}), path, PathType::DataPath,
                        reason) == 0) {
    return false;
  }
  // Whatever the site allows of links: a file that other names lead to is none of a session.
  if (!host_.filemanager().FollowsLink(path)) return true;
  reason = "It is a symbolic link";
  return false;
}

bool SessionStore::Choose(const String& id, String& reason) {
  if (id == id_ && !id.empty()) return true;
  file_.reset();
  id_.clear();
  if (!FindPath(id, path_, reason)) return false;
  id_ = id;
  return true;
}

// --- Reading -----------------------------------------------------------------------------------

void SessionStore::KeepAlive(const String& id) {
  String ignored;
  int64_t changed = 0;
  // Within the same second it is not worth a write.
  if (!Choose(id, ignored) || !LastChange(host_.filemanager(), path_, changed)) return;
  const bool noted = std::abs(Now() - changed) < kSecond;
  if (!noted && !IsOver(changed)) (void)host_.filemanager().TouchFile(path_);
}

String SessionStore::Read(const String& id, std::string_view name, String& value) {
  value.clear();
  String reason;
  if (!Choose(id, reason)) return CannotRead(reason);
  FileStamp stamp;
  const bool known = file_ != nullptr && file_->StillNamed(NameCheck::ByPath, stamp) > 0 &&
                     stamp.length == length_;
  if (!known) {
    FileManager& files = host_.filemanager();
    file_.reset();
    std::unique_ptr<File> file = files.Open(path_, OpenRead);
    const String problem = file == nullptr ? files.error() : String();
    if (file == nullptr && IsMissing(files, path_)) return {};
    if (file == nullptr) return CannotRead(problem);
    if (!ReadValues(*file, values_, reason)) return CannotRead(reason);
    length_ = file->Length();
    file_ = std::move(file);
  } else if (IsOver(stamp.modified)) {
    return {};
  }
  value = values_.Find(name);
  return {};
}

bool SessionStore::ReadValues(File& file, SessionValues& values, String& reason) const {
  FileStamp stamp;
  const int64_t length = file.Length();
  if (length < 0 || file.StillNamed(NameCheck::ByPath, stamp) < 0) {
    reason = file.error();
    return false;
  }
  String content;
  constexpr auto kLongest = static_cast<int64_t>(SessionValues::kLongestFile);
  // Longer than a session can be, it is damaged; what is no plain file says so when it is read.
  if (length <= kLongest && !ReadContent(file, content, reason)) return false;
  if (IsOver(stamp.modified)) content.clear();
  values.Decode(content);
  return true;
}

// --- Changing ----------------------------------------------------------------------------------

std::unique_ptr<File> SessionStore::Lock(const String& id, Missing missing, String& reason) {
  if (!Choose(id, reason)) return nullptr;
  file_.reset();
  const int mode = OpenRead | OpenWrite | (missing == Missing::Made ? OpenCreate : 0);
  std::unique_ptr<File> file = OpenLocked(host_, path_, mode, reason);
  if (file != nullptr || !IsMissing(host_.filemanager(), path_)) return file;
  if (missing == Missing::Allowed) {
    reason.clear();
    return nullptr;
  }
  // The first session of the site. Another request may be making the directory, too: the second try
  // tells.
  const String directory = path_.before(path_.length() - static_cast<int>(kNameLength) - 1);
  FileManager& files = host_.filemanager();
  const String refused = files.MakeDirectory(directory) == 0 ? String() : files.error();
  file = OpenLocked(host_, path_, mode, reason);
  if (file == nullptr && !refused.empty() && IsMissing(files, directory)) reason = refused;
  return file;
}

String SessionStore::Change(const String& id, std::string_view name, std::string_view value) {
  const Missing missing = value.empty() ? Missing::Allowed : Missing::Made;
  String reason;
  std::unique_ptr<File> file = Lock(id, missing, reason);
  if (file == nullptr) return reason.empty() ? String() : CannotWrite(reason);
  SessionValues values;
  if (!ReadValues(*file, values, reason)) return CannotWrite(reason);
  const bool first = values.empty();
  values.Set(name, value);
  if (values.bytes() > SessionValues::kMostBytes) return kTooLarge;
  FileManager& files = host_.filemanager();
  if (values.empty()) return files.Delete(path_) == 0 ? String() : CannotWrite(files.error());
  const int written = files.WriteBeside(path_, values.Encoded());
  if (written < 0) return CannotWrite(files.error());
  if (written > 0) return CannotWrite("No file can take its place");
  file.reset();
  if (first) CleanUp();
  return {};
}

String SessionStore::Move(const String& from, const String& to) {
  String reason;
  const std::unique_ptr<File> file = Lock(from, Missing::Allowed, reason);
  if (file == nullptr) return reason.empty() ? String() : CannotWrite(reason);
  FileManager& files = host_.filemanager();
  FileStamp stamp;
  String new_path;
  if (file->StillNamed(NameCheck::ByPath, stamp) > 0 && IsOver(stamp.modified)) {
    return files.Delete(path_) == 0 ? String() : CannotWrite(files.error());
  }
  if (!FindPath(to, new_path, reason)) return CannotWrite(reason);
  return files.Rename(path_, new_path) == 0 ? String() : CannotWrite(files.error());
}

String SessionStore::Remove(const String& id) {
  String reason;
  const std::unique_ptr<File> file = Lock(id, Missing::Allowed, reason);
  if (file == nullptr) return reason.empty() ? String() : CannotWrite(reason);
  FileManager& files = host_.filemanager();
  return files.Delete(path_) == 0 ? String() : CannotWrite(files.error());
}

// --- Old sessions ------------------------------------------------------------------------------

bool SessionStore::CleaningIsDue(const String& directory) {
  const int64_t lifetime = host_.config().sessiontime * kSecond;
  const int64_t interval = lifetime > 0 ? std::min(lifetime / 16, kLongestWrite) : kLongestWrite;
  const String mark = directory + kCleaned;
  int64_t cleaned = 0;
  FileManager& files = host_.filemanager();
  if (LastChange(files, mark, cleaned) && std::abs(Now() - cleaned) < interval) return false;
  const std::unique_ptr<File> file = files.Open(mark, OpenWrite | OpenCreate);
  return file != nullptr && file->Touch() == 0;
}

void SessionStore::CleanUp() {
  String directory;
  String ignored;
  std::vector<String> names;
  FileManager& files = host_.filemanager();
  if (host_.ResolvePath(kDirectory, directory, PathType::DataPath, ignored) == 0 ||
      !CleaningIsDue(directory) || files.ListDirectory(directory, names) < 0) {
    return;
  }
  for (const String& name : names) {
    if (host_.timedout()) return;
    const String path = String::Concat({directory, "/", name});
    int64_t changed = 0;
    if (!IsNameOfSession(name.view().substr(0, kNameLength)) || !LastChange(files, path, changed))
      continue;
    if (name.size() == kNameLength) {
      if (IsOver(changed)) RemoveIfOver(path);
    } else if (Now() - changed > kLongestWrite) {
      (void)files.Delete(path);
    }
  }
}

// Unless somebody uses it right now.
void SessionStore::RemoveIfOver(const String& path) {
  FileManager& files = host_.filemanager();
  const std::unique_ptr<File> file = files.Open(path, OpenRead | OpenWrite);
  FileStamp stamp;
  if (file == nullptr || file->TryLock(FileLockType::Exclusive, 0, 0) <= 0 ||
      file->StillNamed(NameCheck::ByPath, stamp) <= 0 || !IsOver(stamp.modified)) {
    return;
  }
  (void)files.Delete(path);
}

}  // namespace vexa
