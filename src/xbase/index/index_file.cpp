// Opening, creating and locking an index file; see index_file.h. The walks are in index_walk.cpp,
// changes in index_insert.cpp and index_delete.cpp.
//
//   Enter     begins every walk and change: the lock, of the file that the path names now, then the
//             header, then the refusal of a mark. Under LockExclusive the lock is held already and
//             the header is read again only when it may be stale
//   Gather    from here on pages go to the change and WriteHeader does nothing; DescribeChange puts
//             the header's old and new bytes into the change, and Unlock without Committed means
//             that nothing happened
//   ReadPage, WritePage
//             the only ways to pages. A page is first looked for among those gathered; the former
//             bytes of one that is written over are kept, so that the change can be taken back
//
// When the file or the shape of its pages becomes another, the cursor keeps its entry, so that
// the next step searches it again.

#include "xbase/index/index_file.h"

#include <cassert>
#include <utility>

namespace vexa {

namespace {

constexpr int kCreateMode = OpenRead | OpenWrite | OpenCreate | OpenTruncate;

}  // namespace

// --- Messages --------------------------------------------------------------------------------

bool ZDXIndexFile::Fail(std::string_view action, std::string_view reason) {
  error_ = String::Concat({"Error ", action, " '", errorpath_, "'", reason});
  return false;
}

bool ZDXIndexFile::FailCorrupt() {
  error_ = String::Concat({"'", errorpath_, "': File is corrupt"});
  return false;
}

bool ZDXIndexFile::FailNotAnIndex() {
  error_ = String::Concat({"'", errorpath_, "' is either corrupt or is not a valid index file"});
  return false;
}

String ZDXIndexFile::UniqueMessage(std::string_view errorpath, std::string_view key) {
  return String::Concat({"Index '", errorpath, "' was created with the UNIQUE flag and the key '",
                         key, "' already exists in the index file"});
}

// --- Opening and creating --------------------------------------------------------------------

int ZDXIndexFile::Open(const String& path, const String& errorpath, int mode) {
  Close();
  path_ = path;
  errorpath_ = errorpath;
  mode_ = mode;
  return OpenFile(file_, header_) ? 1 : 0;
}

bool ZDXIndexFile::OpenFile(std::unique_ptr<File>& file, ZDXIndexHeader& header) {
  auto opened = files_.Open(path_, mode_);
  if (opened == nullptr) return Fail("opening", ": " + files_.error());
  {
    RangeLock lock;
    if (!lock.Take(*opened, FileLockType::Shared, 0, kIndexHeaderSize)) {
      return Fail("locking", " for read");
    }
    if (!ReadHeaderOf(*opened, header, header_bytes_)) return false;
  }
  file = std::move(opened);
  return true;
}

int ZDXIndexFile::Create(const String& path, const String& errorpath, const ZDXIndexSpec& spec) {
  Close();
  errorpath_ = errorpath;
  if (spec.keyexpression.length() > kLongestKeyExpression) {
    Fail("creating", ": The key expression is longer than 399 characters");
    return 0;
  }
  auto file = files_.Open(path, kCreateMode);
  if (file == nullptr) {
    Fail("creating", ": " + files_.error());
    return 0;
  }
  return Create(std::move(file), path, errorpath, spec);
}

int ZDXIndexFile::Create(std::unique_ptr<File> file, const String& path, const String& errorpath,
                         const ZDXIndexSpec& spec) {
  Close();
  path_ = path;
  errorpath_ = errorpath;
  mode_ = OpenRead | OpenWrite;
  file_ = std::move(file);
  if (file_ == nullptr) {
    error_ = String::Concat({"Internal error opening '", errorpath_, "'"});
    return 0;
  }
  header_ = ZDXIndexHeader();
  header_.shape = spec.shape;
  header_.flags = spec.flags;
  header_.keyexpression = spec.keyexpression.before(kLongestKeyExpression);
  ZDXIndexPage root;
  root.Clear(header_.startingpage, header_.shape);
  if (WriteHeader() != 0 && WritePage(root) != 0) return 1;
  Close();
  (void)files_.Delete(path);
  return 0;
}

void ZDXIndexFile::Close() {
  Unlock();
  kept_.Forget();
  file_.reset();
  DropCursor();
}

// --- Locks -----------------------------------------------------------------------------------

bool ZDXIndexFile::TakeLock(RangeLock& lock, FileLockType type) {
  if (file_ == nullptr) {
    error_ = String::Concat({"Internal error opening '", errorpath_, "'"});
    return false;
  }
  String ignored;
  for (int i = 0; i < kMostReplacements; ++i) {
    switch (lock.TakeNamed(*file_, type, 0, kIndexHeaderSize, ignored)) {
      case LockOutcome::Taken:
        lock_stamp_ = lock.stamp();
        reads_only_ = type == FileLockType::Shared;
        unchanged_ = kept_.Locked(lock_stamp_);
        return true;
      case LockOutcome::Failed:
        return Fail("locking", type == FileLockType::Shared ? " for read" : " for write");
      case LockOutcome::Replaced:
        KeepCursorEntry();
        kept_.Forget();
        if (!OpenFile(file_, header_)) return false;
    }
  }
  return Fail("opening", ": The index is replaced again and again");
}

bool ZDXIndexFile::RefuseMark() {
  unfinished_ = true;
  return Fail("reading from", String(": ") + kUnfinishedChange);
}

bool ZDXIndexFile::Enter(RangeLock& lock, FileLockType type, Marks marks) {
  if (held_.held()) {
    if (!header_is_stale_) return true;
    KeepCursorEntry();
    if (ReadHeader() == 0) return false;
    header_is_stale_ = false;
    return true;
  }
  if (!TakeLock(lock, type)) return false;
  // Who is going to write reads all of it anew.
  if (type == FileLockType::Exclusive) kept_.Forget();
  if (header_epoch_ == kept_.epoch() && MarkOfIndex(header_bytes_) == 0) return true;
  if (ReadHeader() != 0 &&
      (marks == Marks::Ignored || MarkOfIndex(header_bytes_) == 0 || RefuseMark())) {
    return true;
  }
  lock.Release();
  return false;
}

bool ZDXIndexFile::LockExclusive(Marks marks) {
  assert(!held_.held());
  header_is_stale_ = false;
  return Enter(held_, FileLockType::Exclusive, marks);
}

void ZDXIndexFile::Unlock() {
  if (gathered_ != nullptr) {
    // What was gathered did not happen.
    header_ = former_header_;
    gathered_ = nullptr;
  }
  held_.Release();
}

// --- As part of a change ---------------------------------------------------------------------

void ZDXIndexFile::Gather(GatheredWrites& gathered) {
  assert(held_.held() && gathered_ == nullptr && !header_is_stale_);
  KeepCursorEntry();
  gathered_ = &gathered;
  former_header_ = header_;
}

bool ZDXIndexFile::DescribeChange(ChangedFile& file) const {
  assert(gathered_ != nullptr);
  bool changed = false;
  for (const auto& piece : gathered_->pieces()) {
    changed = changed || (piece.changed && piece.file == file_.get());
  }
  std::string header(kMarkedIndexHeader, '\0');
  header_.Encode(header.data());
  if (!changed && header_bytes_ == header) return false;
  file.file = file_.get();
  file.errorname = errorpath_;
  file.former = header_bytes_;
  file.header = header;
  if (header_.numpages > former_header_.numpages) {
    file.former_length = int64_t{former_header_.numpages} * former_header_.shape.pagesize;
  }
  return true;
}

void ZDXIndexFile::Committed() {
  former_header_ = header_;
  header_.Encode(header_bytes_.data());
}

void ZDXIndexFile::Adopt(std::unique_ptr<File> file) {
  KeepCursorEntry();
  held_.Release();
  kept_.Forget();
  file_ = std::move(file);
}

// --- Header and pages ------------------------------------------------------------------------

bool ZDXIndexFile::ReadHeaderOf(File& file, ZDXIndexHeader& header, std::string& bytes) {
  bytes.assign(kMarkedIndexHeader, '\0');
  const int got = file.ReadAt(0, bytes.data(), kMarkedIndexHeader);
  if (got < 0) return Fail("reading from", ": " + file.error());
  // A file that ends within the mark is no index, and is told from what the header says.
  if (got < kIndexHeaderSize) return Fail("reading from", String(": ") + kUnexpectedEnd);
  switch (DecodeIndexHeader(bytes.data(), header)) {
    case IndexHeaderState::Good:
      return true;
    case IndexHeaderState::NotAnIndex:
      return FailNotAnIndex();
    case IndexHeaderState::TooNew:
      error_ =
          String::Concat({"'", errorpath_, "' was created by a newer version of the software"});
      return false;
  }
  return false;
}

int ZDXIndexFile::ReadHeader() {
  const ZDXIndexShape shape = header_.shape;
  if (!ReadHeaderOf(*file_, header_, header_bytes_)) {
    kept_.Forget();
    return 0;
  }
  if (header_.shape != shape) {
    KeepCursorEntry();
    kept_.Forget();
  }
  header_epoch_ = kept_.epoch();
  return 1;
}

int ZDXIndexFile::WriteHeader() {
  if (gathered_ != nullptr) return 1;
  char bytes[kIndexHeaderSize];
  header_.Encode(bytes);
  String reason;
  if (WriteExactly(*file_, 0, bytes, kIndexHeaderSize, reason)) return 1;
  Fail("writing to", ": " + reason);
  return 0;
}

int ZDXIndexFile::ReadPage(uint32_t number, ZDXIndexPage& page) {
  // A page number equal to the count passes on purpose; reading there ends at the end of the file.
  if (number > header_.numpages) {
    error_ = String::Concat({"Error '", errorpath_, "' is corrupt ",
                             "(the page number is larger than the total pages )"});
    return 0;
  }
  if (reads_only_) return ReadSharedPage(number, page);
  String reason;
  return PageResult(page.ReadPage(*file_, gathered_, number, header_.shape, reason), reason);
}

int ZDXIndexFile::PageResult(int result, const String& reason) {
  if (result > 0) return 1;
  if (result == 0) {
    Fail("reading from", ": " + reason);
  } else {
    error_ = reason;
  }
  return 0;
}

int ZDXIndexFile::ReadSharedPage(uint32_t number, ZDXIndexPage& page) {
  const uint32_t epoch = kept_.epoch();
  if (page.epoch == epoch && page.number() == number) {
    page.cursor = 0;
    return 1;
  }
  bool kept = kept_.Find(number, header_.shape, page);
  if (!kept && stack_.depth() < levels_ && kept_.ShouldReadAhead()) {
    ReadAhead(number);
    kept = kept_.Find(number, header_.shape, page);
  }
  if (!kept) {
    String reason;
    const int result = page.ReadPage(*file_, nullptr, number, header_.shape, reason);
    if (result <= 0) return PageResult(result, reason);
    kept_.Keep(number, page.bytes().data(), header_.shape);
  }
  page.epoch = epoch;
  return 1;
}

// Keeps inner pages around page `number`: those that were made together often stand together. What
// cannot be read, or is damaged, is told when it is wanted itself.
void ZDXIndexFile::ReadAhead(uint32_t number) {
  constexpr uint32_t kAtOnce = 32768;  // bytes
  const uint32_t size = header_.shape.pagesize;
  const uint32_t count = kAtOnce / size;
  if (count < 2) return;
  const uint32_t first = number - number % count;
  const auto bytes = std::make_unique_for_overwrite<char[]>(size_t{count} * size);
  const int got = file_->ReadAt(int64_t{first} * size, bytes.get(), static_cast<int>(count * size));
  for (uint32_t i = first == 0 ? 1 : 0; (int64_t{i} + 1) * size <= got; ++i) {
    kept_.Keep(first + i, bytes.get() + size_t{i} * size, header_.shape);
  }
}

int ZDXIndexFile::WritePage(const ZDXIndexPage& page) {
  String reason;
  if (gathered_ != nullptr) {
    std::string former;
    if (page.number() < former_header_.numpages && !gathered_->Knows(*file_, page.offset())) {
      former.resize(header_.shape.pagesize);
      if (!ReadExactly(*file_, page.offset(), former.data(), header_.shape.pagesize, reason)) {
        Fail("reading from", ": " + reason);
        return 0;
      }
    }
    gathered_->Write(*file_, page.offset(), page.bytes(), former);
    return 1;
  }
  if (page.WritePage(*file_, reason) != 0) return 1;
  Fail("writing to", ": " + reason);
  return 0;
}

std::string_view ZDXIndexFile::CutKey(std::string_view key) const {
  key = key.substr(0, key.find('\0'));
  return key.substr(0, header_.shape.keysize() - 1);
}

int ZDXIndexFile::Compare(std::string_view searchkey, std::string_view pagekey, int exact,
                          uint32_t flags) {
  return SearchKey(searchkey, exact, flags).Compare(pagekey);
}

bool ZDXIndexFile::NumberCompare(std::string_view a, std::string_view b, int& order) {
  double x;
  double y;
  if (!KeyAsNumber(a, x) || !KeyAsNumber(b, y)) return false;
  order = x < y ? -1 : x > y ? 1 : 0;
  return true;
}

}  // namespace vexa
