// Unpacking archives. The first pass checks every member and writes nothing; the second checks
// again, since the file may change in between, and writes.

#include "packages/package_extract.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>

#include "core/encoding.h"
#include "core/file.h"
#include "core/number.h"
#include "core/text.h"
#include "files/descriptor.h"
#include "files/trusted_file.h"
#include "packages/package_loader.h"

namespace vexa {

namespace {

constexpr size_t kLongestComponent = 255;
constexpr size_t kLongestName = 1000;
constexpr int kMostLevels = 32;
constexpr size_t kMostMembers = 10000;
constexpr int64_t kLargestMember = 64 << 20;
constexpr int64_t kLargestContents = 256 << 20;
constexpr size_t kLargestLicense = 1 << 20;
constexpr size_t kBlock = 16 << 10;

// A member's name for a page.
String ShownMember(std::string_view name) {
  String shown(name);
  for (char* byte = shown.Overwrite(name.size()); !name.empty(); name.remove_prefix(1), ++byte) {
    *byte = IsControl(name.front()) ? '?' : name.front();
  }
  return EntityEncoded(shown);
}

// What stands for a name among 10,000 that are remembered. Who makes two names with one digest has
// his own archive refused.
std::pair<uint64_t, uint64_t> Digest(std::string_view name) {
  uint64_t second = 0xCBF29CE484222325;
  for (const char c : name) second = (second ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  return {std::hash<std::string_view>()(name), second};
}

// The name without what stands for nothing.
std::string_view Trimmed(std::string_view name, bool directory) {
  if (name.starts_with("./")) name.remove_prefix(2);
  if (directory && name.ends_with('/')) name.remove_suffix(1);
  return name;
}

String Below(std::string_view directory, std::string_view rest) {
  return String::Concat({directory, rest.empty() ? "" : "/", rest});
}

}  // namespace

bool IsAllowedName(std::string_view name) {
  if (name.empty() || name.size() > kLongestName) return false;
  if (std::any_of(name.begin(), name.end(), [](char c) { return IsControl(c) || c == '\\'; })) {
    return false;
  }
  int levels = 0;
  for (size_t start = 0; start <= name.size();) {
    const size_t end = std::min(name.find('/', start), name.size());
    const std::string_view component = name.substr(start, end - start);
    if (component.empty() || component == "." || component == ".." ||
        component.size() > kLongestComponent || ++levels > kMostLevels) {
      return false;
    }
    start = end + 1;
  }
  return true;
}

bool PackageExtractor::Fail(std::string_view reason) {
  reason_ = reason;
  return false;
}

bool PackageExtractor::FailMember(std::string_view member, std::string_view reason) {
  return Fail(String::Concat({"'", ShownMember(member), "' ", reason}));
}

bool PackageExtractor::FailBySystem() { return Fail(std::strerror(errno)); }

bool PackageExtractor::ChooseDirectory(std::string_view directory) {
  while (directory.starts_with('/')) directory.remove_prefix(1);
  while (directory.ends_with('/')) directory.remove_suffix(1);
  if (directory.empty()) {
    directory = package_.defaultpath;
    while (directory.starts_with('/')) directory.remove_prefix(1);
    while (directory.ends_with('/')) directory.remove_suffix(1);
  }
  if (directory.empty()) return Fail("no directory was given");
  directory_ = directory;
  return IsAllowedName(directory) || FailMember(directory, "has a name that is not allowed");
}

bool PackageExtractor::Open(std::string_view directory, TrustedFile& archive) {
  if (!ChooseDirectory(directory)) return false;
  RefuseSiteDirectories(host_->places(), archive);
  return archive.Open(PackageFile(package_.path, ".tar")) || Fail(EntityEncoded(archive.reason()));
}

bool PackageExtractor::ReadLicense(std::string_view directory, String& text) {
  TrustedFile archive(host_->places().trusted_owner);
  if (!Open(directory, archive) || !ReadThrough(archive.descriptor(), Pass::Check)) return false;
  text = license_;
  return true;
}

bool PackageExtractor::Extract(std::string_view directory) {
  TrustedFile archive(host_->places().trusted_owner);
  if (!Open(directory, archive) || !ReadThrough(archive.descriptor(), Pass::Check) ||
      !ReadThrough(archive.descriptor(), Pass::Write)) {
    return false;
  }
  made_.clear();
  host_->logfile().Write(LogLevel::Files, "PACKAGEEXTRACTED",
                         String::Concat({"code=", package_.code, " directory=", directory_,
                                         " files=", PrintInteger(files_)}));
  return true;
}

bool PackageExtractor::List(int descriptor, std::vector<String>& names) {
  listed_ = &names;
  return ReadThrough(descriptor, Pass::Check);
}

bool PackageExtractor::ReadThrough(int descriptor, Pass pass) {
  members_.clear();
  total_ = 0;
  files_ = 0;
  ArchiveReader reader(descriptor);
  for (;;) {
    const ArchiveReader::Step step = reader.Next();
    if (step == ArchiveReader::Step::Failed) return Fail(reader.reason());
    if (step == ArchiveReader::Step::End) return true;
    if (reader.kind() == ArchiveReader::Kind::Directory && Trimmed(reader.name(), false).empty()) {
      continue;  // "./"
    }
    ArchiveMember member;
    if (!Classify(reader, member) || !TakeMember(reader, member, pass)) return false;
  }
}

bool PackageExtractor::Classify(const ArchiveReader& reader, ArchiveMember& member) {
  member.directory = reader.kind() == ArchiveReader::Kind::Directory;
  const std::string_view name = Trimmed(reader.name(), member.directory);
  if (!IsAllowedName(name)) return FailMember(reader.name(), "has a name that is not allowed");
  if (reader.kind() == ArchiveReader::Kind::Other) {
    return FailMember(name, "is neither a file nor a directory");
  }
  const size_t slash = std::min(name.find('/'), name.size());
  const std::string_view top = name.substr(0, slash);
  member.rest = slash == name.size() ? std::string_view() : name.substr(slash + 1);
  const bool whole_place = member.rest.empty() && !member.directory;
  if (name == "LICENSE" && !member.directory) {
    member.place = ArchiveMember::Place::License;
  } else if (top == "pages" && !whole_place) {
    member.place = ArchiveMember::Place::Pages;
  } else if (top == "data" && !whole_place) {
    member.place = ArchiveMember::Place::Data;
  } else {
    return FailMember(name, "lies neither in pages/ nor in data/");
  }
  return Count(name, member.directory ? 0 : reader.size());
}

bool PackageExtractor::Count(std::string_view name, int64_t size) {
  if (size < 0) return Fail("it is damaged");
  if (size > kLargestMember) return FailMember(name, "is too large");
  if (members_.size() >= kMostMembers) {
    return Fail(String::Concat({"it has more than ", PrintInteger(kMostMembers), " members"}));
  }
  total_ += size;
  if (total_ > kLargestContents) return Fail("its contents are larger than 256 MB");
  const NameDigest digest = Digest(name);
  const auto at = std::lower_bound(members_.begin(), members_.end(), digest);
  if (at != members_.end() && *at == digest) return FailMember(name, "appears twice");
  members_.insert(at, digest);
  if (listed_ != nullptr) listed_->emplace_back(name);
  return true;
}

// The name that a page would write: from the root of the site, whatever the site says of absolute
// names.
bool PackageExtractor::Resolve(ArchiveMember::Place place, const String& below_root, String& path) {
  const bool page = place == ArchiveMember::Place::Pages;
  const SitePlaces places = host_->places();
  const int absolute = page ? kAbsoluteScriptPaths : kAbsoluteDataPaths;
  const bool takes_absolute = (host_->config().securityoptions & absolute) != 0;
  const String root = takes_absolute ? (page ? places.scripts : places.data) : String();
  const String name = String::Concat({root, "/", below_root});
  if (host_->ResolvePath(name, path, page ? PathType::ScriptPath : PathType::DataPath, reason_) !=
      0) {
    return true;
  }
  if (!root.empty()) reason_.gsub(EntityEncoded(root), "");
  return false;
}

bool PackageExtractor::TakeMember(ArchiveReader& reader, const ArchiveMember& member, Pass pass) {
  if (member.place == ArchiveMember::Place::License) {
    license_.clear();
    return TakeData(reader, reader.size(), -1, &license_);
  }
  if (host_ == nullptr) return member.directory || TakeData(reader, reader.size(), -1, nullptr);
  const String below_root = Below(directory_, member.rest);
  String path;
  if (!Resolve(member.place, below_root, path)) return false;
  struct stat status;
  const bool exists = host_->filemanager().LookAt(path, status) == 0;
  if (member.directory) {
    if (exists && host_->filemanager().IsDirectory(path)) return true;
    if (exists) return FailMember(below_root, "exists");
    return pass == Pass::Check || MakeDirectories(member.place, below_root);
  }
  if (exists) return FailMember(below_root, "exists");
  if (pass == Pass::Check) return TakeData(reader, reader.size(), -1, nullptr);
  const std::string_view parent = below_root.view().substr(0, below_root.view().rfind('/'));
  return MakeDirectories(member.place, parent) && WriteFile(reader, member, path, reader.size());
}

// The directory and all above it, up to the root of the site.
bool PackageExtractor::MakeDirectories(ArchiveMember::Place place, std::string_view below_root) {
  for (size_t end = 0; end < below_root.size();) {
    end = std::min(below_root.find('/', end + 1), below_root.size());
    String path;
    if (!Resolve(place, below_root.substr(0, end), path)) return false;
    const mode_t mode = place == ArchiveMember::Place::Pages ? 0755 : 0700;
    NoteMade(path + "/");
    if (host_->filemanager().MakeDirectoryWith(path, mode) == 0) continue;
    ForgetMade();
    if (errno != EEXIST || !host_->filemanager().IsDirectory(path)) {
      return FailBySystem();
    }
  }
  return true;
}

// Reads a member to its end, into a file, a text, or nowhere.
bool PackageExtractor::TakeData(ArchiveReader& reader, int64_t size, int descriptor,
                                String* license) {
  const auto block = std::make_unique<char[]>(kBlock);
  int64_t taken = 0;
  for (;;) {
    if (host_ != nullptr && host_->timedout()) return Fail({});
    const ssize_t got = reader.Read(block.get(), kBlock);
    if (got < 0) return Fail(reader.reason());
    if (got == 0) break;
    taken += got;
    if (taken > size) return Fail("it is damaged");
    const auto length = static_cast<size_t>(got);
    if (license != nullptr && license->size() < kLargestLicense) {
      license->Append({block.get(), std::min(length, kLargestLicense - license->size())});
    }
    if (descriptor >= 0 && WriteFully(descriptor, block.get(), length) < 0) return FailBySystem();
  }
  return taken == size || Fail("it is damaged");
}

bool PackageExtractor::WriteFile(ArchiveReader& reader, const ArchiveMember& member,
                                 const String& path, int64_t size) {
  const mode_t mode = member.place == ArchiveMember::Place::Pages ? 0644 : 0600;
  NoteMade(path);
  const int descriptor =
      host_->filemanager().OpenDescriptor(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
  if (descriptor < 0) {
    ForgetMade();
    return FailBySystem();
  }
  ++files_;
  bool written = TakeData(reader, size, descriptor, nullptr);
  if (::close(descriptor) != 0 && written) written = FailBySystem();
  return written;
}

void PackageExtractor::NoteMade(String path) {
  const std::string_view inside = path.view().substr(0, path.size() - 1);
  const size_t parent = inside.rfind('/') + 1;
  if (!made_.empty() && made_.back().path.view() == inside.substr(0, parent)) {
    made_.back().path = std::move(path);
    ++made_.back().levels;
  } else {
    made_.push_back({std::move(path), 1});
  }
}

void PackageExtractor::ForgetMade() {
  Made& last = made_.back();
  if (--last.levels == 0) {
    made_.pop_back();
  } else {
    last.path.Truncate(last.path.view().rfind('/', last.path.size() - 2) + 1);
  }
}

// What this call made, and nothing else: a directory into which others have put something stays.
void PackageExtractor::RemoveAll() {
  for (; !made_.empty(); ForgetMade()) {
    FileManager& files = host_->filemanager();
    const std::string_view path = made_.back().path;
    if (path.ends_with('/')) {
      (void)files.RemoveDirectory(path.substr(0, path.size() - 1));
    } else {
      (void)files.Delete(path);
    }
  }
}

}  // namespace vexa
