// Unpacking a package's archive into a site: all of it or nothing.

#ifndef VEXA_PACKAGES_PACKAGE_EXTRACT_H_
#define VEXA_PACKAGES_PACKAGE_EXTRACT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "core/string.h"
#include "files/trusted_file.h"
#include "packages/archive_reader.h"
#include "vexa.h"

namespace vexa {

// What an archive of a package may hold; names are without "./" and a directory's last "/".
struct ArchiveMember {
  enum class Place { License, Pages, Data };
  Place place = Place::License;
  bool directory = false;
  String rest;  // behind "pages/" or "data/", empty for these two themselves
};

// What is wrong with a name, or with a directory that a page gave: empty when nothing is.
[[nodiscard]] bool IsAllowedName(std::string_view name);

class PackageExtractor {
 public:
  // Both are borrowed. Without a `host` archives can only be listed.
  PackageExtractor(Vexa* host, const PackageInfo& package) : host_(host), package_(package) {}
  // Removes what an extraction made that did not come to its end, also for want of memory.
  ~PackageExtractor() { RemoveAll(); }
  PackageExtractor(const PackageExtractor&) = delete;
  PackageExtractor& operator=(const PackageExtractor&) = delete;

  // Unpacks below `directory`, which is taken from the root of the site. False with reason() set;
  // nothing of what was made is left when this object goes.
  [[nodiscard]] bool Extract(std::string_view directory);
  // Checks the archive as Extract does, and gives the text of its licence, empty without one.
  [[nodiscard]] bool ReadLicense(std::string_view directory, String& text);
  // Checks an open archive as far as that can be done without a site, and gives the names of its
  // members, sorted.
  [[nodiscard]] bool List(int descriptor, std::vector<String>& names);
  // Why it failed, as a part of a page; empty when the page ran out of time.
  [[nodiscard]] const String& reason() const { return reason_; }

 private:
  // What was made, or is about to be: the last component of a path, and as many above it as levels
  // are beyond one. Directories have a "/" at the end.
  struct Made {
    String path;
    int levels;
  };
  using NameDigest = std::pair<uint64_t, uint64_t>;
  enum class Pass { Check, Write };

  [[nodiscard]] bool Fail(std::string_view reason);
  [[nodiscard]] bool FailMember(std::string_view member, std::string_view reason);
  [[nodiscard]] bool FailBySystem();
  [[nodiscard]] bool ChooseDirectory(std::string_view directory);
  [[nodiscard]] bool Open(std::string_view directory, TrustedFile& archive);
  [[nodiscard]] bool ReadThrough(int descriptor, Pass pass);
  // Takes a member's name apart and checks what can be told without the site.
  [[nodiscard]] bool Classify(const ArchiveReader& reader, ArchiveMember& member);
  [[nodiscard]] bool Count(std::string_view name, int64_t size);
  // Where a member goes in the site; `path` is its finished path.
  [[nodiscard]] bool Resolve(ArchiveMember::Place place, const String& below_root, String& path);
  [[nodiscard]] bool TakeMember(ArchiveReader& reader, const ArchiveMember& member, Pass pass);
  [[nodiscard]] bool MakeDirectories(ArchiveMember::Place place, std::string_view below_root);
  [[nodiscard]] bool TakeData(ArchiveReader& reader, int64_t size, int descriptor, String* license);
  [[nodiscard]] bool WriteFile(ArchiveReader& reader, const ArchiveMember& member,
                               const String& path, int64_t size);
  // Before something is made, and when that failed.
  void NoteMade(String path);
  void ForgetMade();
  void RemoveAll();

  Vexa* host_;
  const PackageInfo& package_;
  String directory_;  // without "/" at its ends
  String license_;
  std::vector<NameDigest> members_;        // of the members so far, sorted
  std::vector<String>* listed_ = nullptr;  // borrowed: where their names go
  int64_t total_ = 0;                      // bytes of the contents
  int files_ = 0;
  std::vector<Made> made_;
  String reason_;
};

}  // namespace vexa

#endif  // VEXA_PACKAGES_PACKAGE_EXTRACT_H_
