// The bytes of a journal, writing and reading it; see journal.h.
//
//   Marks    the number of a change, put into and read from headers in memory
//   Bytes    EncodeJournal and DecodeJournal, which are each other's reverse. Decoding checks the
//            length, then the checksum, then every count against the bytes that are left; what
//            fails any of it is no journal
//   File     ReadJournal tells a journal that is missing from one that cannot be read;
//            Journal::Write makes the file when needed, writes all bytes at once, and waits for the
//            disk when the change must outlive a power cut
//
// No locks are taken here: a writer holds those of its change. A reader may hold none and then
// meet half of a journal, which the checksum tells; what it read counts only with the table's mark.

#include "xbase/change/journal.h"

#include <unistd.h>

#include <cassert>
#include <filesystem>
#include <utility>

#include "core/byte_order.h"
#include "core/file_access.h"

namespace vexa {

namespace {

constexpr std::string_view kMagic = "VxChange";
constexpr size_t kLengthOffset = 16;
constexpr size_t kContentOffset = 24;
constexpr size_t kChecksumSize = 8;
// More than any change of ours comes near; a longer file is none of our journals.
constexpr int64_t kLongestJournal = int64_t{256} << 20;
constexpr int kPermissionBits = 0666;

uint64_t Checksum(std::string_view bytes) {
  constexpr uint64_t kPrime = 0x100000001b3;
  constexpr size_t kWord = 8;
  static constexpr auto kPowers = [] {
    std::array<uint64_t, kWord + 1> powers{1};
    for (size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * kPrime;
    return powers;
  }();
  uint64_t sum = 0xcbf29ce484222325;
  const char* at = bytes.data();
  size_t size = bytes.size();
  // Pages of an index are zeros mostly, and zeros only multiply.
  for (; size >= kWord; at += kWord, size -= kWord) {
    size_t left = kWord;
    for (uint64_t word = Get64(at); word != 0; word >>= 8, --left) {
      sum = (sum ^ (word & 0xFF)) * kPrime;
    }
    sum *= kPowers[left];
  }
  for (; size > 0; ++at, --size) sum = (sum ^ Get8(at)) * kPrime;
  return sum;
}

void Append16(std::string& to, size_t value) {
  char bytes[2];
  Put16(bytes, static_cast<uint16_t>(value));
  to.append(bytes, sizeof bytes);
}
void Append32(std::string& to, size_t value) {
  char bytes[4];
  Put32(bytes, static_cast<uint32_t>(value));
  to.append(bytes, sizeof bytes);
}
void Append64(std::string& to, uint64_t value) {
  char bytes[8];
  Put64(bytes, value);
  to.append(bytes, sizeof bytes);
}

std::filesystem::path DirectoryOf(const String& table) {
  return std::filesystem::path(table.c_str()).parent_path();
}

void AppendPath(std::string& to, const String& path, const String& table) {
  const std::string_view name = path;
  const size_t slash = name.rfind('/');
  if (slash != std::string_view::npos && slash == table.view().rfind('/') &&
      table.view().starts_with(name.substr(0, slash)) && slash + 1 < name.size()) {
    Append16(to, name.size() - slash - 1);
    to += name.substr(slash + 1);
    return;
  }
  const std::string relative =
      std::filesystem::path(path.c_str()).lexically_relative(DirectoryOf(table)).string();
  Append16(to, relative.size());
  to += relative;
}

// Takes numbers and bytes from the front of a text; `good` is false once it was too short.
class Taker {
 public:
  explicit Taker(std::string_view bytes) : rest_(bytes) {}

  std::string_view Bytes(size_t count) {
    if (count > rest_.size()) {
      good_ = false;
      rest_ = {};
      return {};
    }
    const std::string_view bytes = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return bytes;
  }
  size_t Number16() {
    const std::string_view bytes = Bytes(2);
    return good_ ? Get16(bytes.data()) : 0;
  }
  uint32_t Number32() {
    const std::string_view bytes = Bytes(4);
    return good_ ? Get32(bytes.data()) : 0;
  }
  uint64_t Number64() {
    const std::string_view bytes = Bytes(8);
    return good_ ? Get64(bytes.data()) : 0;
  }
  String Path(const String& table) {
    const std::string_view relative = Bytes(Number16());
    if (relative.empty() || relative.find('\0') != std::string_view::npos) good_ = false;
    if (!good_) return {};
    return String((DirectoryOf(table) / relative).lexically_normal().string());
  }
  [[nodiscard]] bool good() const { return good_; }

 private:
  std::string_view rest_;
  bool good_ = true;
};

std::string Marked(std::string_view header, size_t offset, uint64_t number) {
  std::string marked(header);
  Put64(marked.data() + offset, number);
  return marked;
}

}  // namespace

uint64_t MarkOfTable(std::string_view header) {
  assert(header.size() >= kMarkedTableHeader);
  return Get64(header.data() + kTableMark);
}
uint64_t MarkOfIndex(std::string_view header) {
  assert(header.size() >= kMarkedIndexHeader);
  return Get64(header.data() + kIndexMark);
}
std::string MarkedTable(std::string_view header, uint64_t number) {
  assert(header.size() >= kMarkedTableHeader);
  return Marked(header, kTableMark, number);
}
std::string MarkedIndex(std::string_view header, uint64_t number) {
  assert(header.size() >= kMarkedIndexHeader);
  return Marked(header, kIndexMark, number);
}

bool ChangeNumbers::Next(uint64_t& number) {
  do {
    if (left_ == 0) {
      // Who makes a second change makes many.
      const size_t count = drawn_ ? numbers_.size() : 1;
      if (::getentropy(numbers_.data(), count * sizeof number) != 0) return false;
      drawn_ = true;
      left_ = count;
    }
    number = numbers_[--left_];
  } while (number == 0);
  return true;
}

bool NewChangeNumber(uint64_t& number) {
  do {
    if (::getentropy(&number, sizeof number) != 0) return false;
  } while (number == 0);
  return true;
}

String NewFileName(const String& path, uint64_t number) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string digits;
  for (int shift = 60; shift >= 0; shift -= 4) digits += kDigits[number >> shift & 15];
  return String::Concat({path, ".", digits});
}

String JournalPath(const String& table) { return table + "-journal"; }

// --- Bytes -----------------------------------------------------------------------------------

std::string EncodeJournal(const JournalContent& content, const String& table) {
  constexpr size_t kMostNumbers = 24;  // of one entry
  constexpr size_t kUsualPath = 512;
  size_t size = kContentOffset + kMostNumbers + kUsualPath;
  for (const auto& index : content.indexes) size += kMostNumbers + index.former.size();
  for (const auto& place : content.places) size += kMostNumbers + place.bytes.size();
  std::string bytes;
  bytes.reserve(size);
  bytes = kMagic;
  Append64(bytes, content.number);
  Append64(bytes, 0);
  Append32(bytes, content.indexes.size());
  for (const auto& index : content.indexes) {
    AppendPath(bytes, index.path, table);
    assert(index.former.size() == kMarkedIndexHeader);
    bytes += index.former;
  }
  Append32(bytes, content.places.size());
  for (const auto& place : content.places) {
    Append32(bytes, place.file);
    Append64(bytes, static_cast<uint64_t>(place.offset));
    Append32(bytes, place.bytes.size());
    bytes += place.bytes;
  }
  Append32(bytes, content.swaps.size());
  for (const auto& swap : content.swaps) {
    AppendPath(bytes, swap.from, table);
    AppendPath(bytes, swap.to, table);
  }
  Put64(bytes.data() + kLengthOffset, bytes.size() + kChecksumSize);
  Append64(bytes, Checksum(bytes));
  return bytes;
}

bool DecodeJournal(std::string stored, const String& table, JournalContent& content) {
  content = {};
  content.storage = std::move(stored);
  std::string_view bytes = content.storage;
  if (bytes.size() < kContentOffset + kChecksumSize || !bytes.starts_with(kMagic)) return false;
  const uint64_t length = Get64(bytes.data() + kLengthOffset);
  if (length < kContentOffset + kChecksumSize || length > bytes.size()) return false;
  bytes = bytes.substr(0, length - kChecksumSize);
  if (Get64(bytes.data() + bytes.size()) != Checksum(bytes)) return false;

  content.number = Get64(bytes.data() + kMagic.size());
  Taker taker(bytes.substr(kContentOffset));
  for (uint32_t left = taker.Number32(); left > 0 && taker.good(); --left) {
    String path = taker.Path(table);
    content.indexes.push_back({std::move(path), taker.Bytes(kMarkedIndexHeader)});
  }
  for (uint32_t left = taker.Number32(); left > 0 && taker.good(); --left) {
    JournalContent::Place place{taker.Number32(), static_cast<int64_t>(taker.Number64()), {}};
    place.bytes = taker.Bytes(taker.Number32());
    if (place.file > content.indexes.size() || place.offset < 0) return false;
    content.places.push_back(place);
  }
  for (uint32_t left = taker.Number32(); left > 0 && taker.good(); --left) {
    String from = taker.Path(table);
    content.swaps.push_back({std::move(from), taker.Path(table)});
  }
  return taker.good() && content.number != 0;
}

// --- The file --------------------------------------------------------------------------------

JournalState ReadJournal(FileManager& files, const String& table, JournalContent& content,
                         String& reason) {
  const String path = JournalPath(table);
  // A link could lead to a file that somebody else may write.
  if (files.FollowsLink(path) || !files.Exists(path)) return JournalState::Missing;
  const auto file = files.Open(path, OpenRead);
  if (file == nullptr) {
    reason = files.error();
    return JournalState::Unreadable;
  }
  const int64_t length = file->Length();
  if (length > kLongestJournal) return JournalState::Missing;
  std::string bytes(static_cast<size_t>(length < 0 ? 0 : length), '\0');
  const int got = length < 0 ? -1 : file->ReadAt(0, bytes.data(), static_cast<int>(length));
  if (got < 0) {
    reason = file->error();
    return JournalState::Unreadable;
  }
  bytes.resize(static_cast<size_t>(got));
  return DecodeJournal(std::move(bytes), table, content) ? JournalState::Found
                                                         : JournalState::Missing;
}

bool Journal::Open(const String& table, Durability durability, String& reason) {
  // Somebody may have cleaned up: what is written to a file without a name nobody finds.
  if (file_ != nullptr && file_->StillNamed() == 1) return true;
  file_.reset();
  const String path = JournalPath(table);
  if (files_.FollowsLink(path)) {
    reason = "A journal cannot be a symbolic link";
    return false;
  }
  const bool is_new = !files_.Exists(path);
  file_ = files_.Open(path, OpenRead | OpenWrite | OpenCreate);
  if (file_ == nullptr) {
    reason = files_.error();
    return false;
  }
  if (!is_new) return true;
  // Whoever may change the table must be able to finish a change of it.
  const int mode = files_.Mode(table);
  if (mode >= 0) (void)files_.ChangeMode(path, mode & kPermissionBits);
  if (durability == Durability::None || files_.SyncDirectory(path) == 0) return true;
  reason = files_.error();
  file_.reset();
  return false;
}

bool Journal::Write(const JournalContent& content, const String& table, const String& errorname,
                    Durability durability, String& error) {
  assert(content.number != 0);
  String reason;
  const auto fail = [&](std::string_view action) {
    error = String::Concat({"Error ", action, " '", JournalPath(errorname), "': ", reason});
    return false;
  };
  if (!Open(table, durability, reason)) return fail("creating");
  const std::string bytes = EncodeJournal(content, table);
  if (bytes.size() > static_cast<size_t>(kLongestJournal)) {
    reason = "The change is too large";
    return fail("writing to");
  }
  if (!WriteExactly(*file_, 0, bytes.data(), static_cast<int>(bytes.size()), reason)) {
    return fail("writing to");
  }
  if (durability == Durability::None || file_->Sync() == 0) return true;
  reason = file_->error();
  return fail("writing to");
}

}  // namespace vexa
