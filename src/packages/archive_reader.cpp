// Reading tar archives through the library, which is bound by name.

#include "packages/archive_reader.h"

#include <archive.h>
#include <archive_entry.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/memory_limit.h"
#include "files/descriptor.h"

namespace vexa {

namespace {

constexpr size_t kBlock = 16 << 10;
// Two blocks of zeros end an archive.
constexpr size_t kEndMark = 1024;

#define VEXA_ARCHIVE_FUNCTIONS(X)    \
  X(archive_read_new)                \
  X(archive_read_free)               \
  X(archive_read_support_format_tar) \
  X(archive_read_open)               \
  X(archive_read_next_header)        \
  X(archive_read_header_position)    \
  X(archive_read_data)               \
  X(archive_entry_pathname)          \
  X(archive_entry_filetype)          \
  X(archive_entry_hardlink)          \
  X(archive_entry_sparse_count)      \
  X(archive_entry_size)

struct ArchiveLibrary {
#define VEXA_MEMBER(name) decltype(&::name) name;
  VEXA_ARCHIVE_FUNCTIONS(VEXA_MEMBER)
#undef VEXA_MEMBER
};

ArchiveLibrary library;

bool LoadArchiveLibrary() {
  static bool loaded = false;
  if (loaded) return true;
  void* handle = dlopen("libarchive.so.13", RTLD_LAZY | RTLD_LOCAL);
  if (handle == nullptr) return false;
#define VEXA_BIND(name)                                                          \
  library.name = reinterpret_cast<decltype(library.name)>(dlsym(handle, #name)); \
  if (library.name == nullptr) return false;
  VEXA_ARCHIVE_FUNCTIONS(VEXA_BIND)
#undef VEXA_BIND
  loaded = true;
  return true;
}

}  // namespace

ArchiveReader::~ArchiveReader() {
  if (archive_ != nullptr) library.archive_read_free(archive_);
}

ArchiveReader::Step ArchiveReader::Fail(std::string_view reason) {
  reason_ = error_ != 0 ? std::string_view(std::strerror(error_)) : reason;
  return Step::Failed;
}

ssize_t ArchiveReader::ReadBlock(archive*, void* reader, const void** block) {
  auto& self = *static_cast<ArchiveReader*>(reader);
  const ssize_t got = RetryInterrupted(
      [&] { return ::pread(self.descriptor_, self.block_.get(), kBlock, self.offset_); });
  if (got < 0) self.error_ = errno;
  if (got > 0) self.offset_ += got;
  *block = self.block_.get();
  return got;
}

// The library ends the process when it finds no memory for a name.
bool ArchiveReader::Open() {
  const MemoryLimitLifted lifted;
  if (!LoadArchiveLibrary()) {
    reason_ = "the archive library cannot be loaded";
    return false;
  }
  block_ = std::make_unique<char[]>(kBlock);
  archive_ = library.archive_read_new();
  if (archive_ == nullptr || library.archive_read_support_format_tar(archive_) != ARCHIVE_OK ||
      library.archive_read_open(archive_, this, nullptr, &ReadBlock, nullptr) != ARCHIVE_OK) {
    (void)Fail("it is not a tar archive");
    return false;
  }
  return true;
}

ArchiveReader::Step ArchiveReader::Next() {
  const MemoryLimitLifted lifted;
  if (archive_ == nullptr && !Open()) return Step::Failed;
  int result = ARCHIVE_RETRY;
  while (result == ARCHIVE_RETRY) result = library.archive_read_next_header(archive_, &entry_);
  if (result == ARCHIVE_EOF) return EndsAsItShould() ? Step::End : Fail("it is damaged");
  if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
    return Fail(member_seen_ ? "it is damaged" : "it is not a tar archive");
  }
  member_seen_ = true;
  return Step::Member;
}

// The library takes the end of the file for the end of the archive. One that was cut looks the same
// to it.
bool ArchiveReader::EndsAsItShould() const {
  char mark[kEndMark];
  const int64_t end = library.archive_read_header_position(archive_);
  const ssize_t got =
      RetryInterrupted([&] { return ::pread(descriptor_, mark, sizeof mark, end); });
  return got == static_cast<ssize_t>(sizeof mark) &&
         std::all_of(mark, mark + sizeof mark, [](char byte) { return byte == '\0'; });
}

std::string_view ArchiveReader::name() const {
  const char* name = library.archive_entry_pathname(entry_);
  return name == nullptr ? std::string_view() : name;
}

ArchiveReader::Kind ArchiveReader::kind() const {
  const auto type = library.archive_entry_filetype(entry_);
  if (library.archive_entry_hardlink(entry_) != nullptr ||
      library.archive_entry_sparse_count(entry_) != 0) {
    return Kind::Other;
  }
  if (type == AE_IFDIR) return Kind::Directory;
  return type == AE_IFREG ? Kind::File : Kind::Other;
}

int64_t ArchiveReader::size() const { return library.archive_entry_size(entry_); }

ssize_t ArchiveReader::Read(char* buffer, size_t count) {
  const ssize_t got = library.archive_read_data(archive_, buffer, count);
  if (got < 0) (void)Fail("it is damaged");
  return got;
}

}  // namespace vexa
