// Zones from files of the system's database.
//
// A file is a head and a block with times of 32 bits, which is skipped, then head and block again
// with times of 64 bits, and a rule between line feeds. All integers are big-endian:
//
//   head   0  "TZif", 4 the version ("2" or later), 20 six counts of 32 bits: UT marks, standard
//             marks, leap seconds, changes, kinds, bytes of names
//   block  changes x 8 bytes: moments; changes x 1: their kinds; kinds x 6: offset, daylight, place
//          of the name; the names; leap seconds x 12; standard marks; UT marks

#include "expr/time_zone.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "core/text.h"

namespace vexa {

namespace {

constexpr std::string_view kDirectory = "/usr/share/zoneinfo/";
constexpr size_t kLongestName = 64;
constexpr size_t kLargestFile = 64 * 1024;
constexpr size_t kHeadSize = 44;
constexpr size_t kKindSize = 6;
constexpr int32_t kLargestOffset = 26 * 3600;  // seconds

uint64_t BigEndian(std::string_view bytes) {
  uint64_t value = 0;
  for (const char c : bytes) value = value << 8 | static_cast<unsigned char>(c);
  return value;
}

// Words between slashes, and nothing that could lead elsewhere.
bool IsZoneName(std::string_view name) {
  const auto allowed = [](char c) {
    return IsAlpha(c) || IsDigit(c) || c == '_' || c == '-' || c == '+' || c == '/';
  };
  return !name.empty() && name.size() <= kLongestName && std::ranges::all_of(name, allowed) &&
         name.front() != '/' && name.back() != '/' && name.find("//") == name.npos;
}

// The counts of a head.
struct Counts {
  size_t ut_marks, standard_marks, leap_seconds, changes, kinds, name_bytes;

  // Takes a head off the front of `content`.
  bool Take(std::string_view& content) {
    if (content.size() < kHeadSize || !content.starts_with("TZif") || content[4] < '2') {
      return false;
    }
    size_t at = 20;
    for (size_t* count :
         {&ut_marks, &standard_marks, &leap_seconds, &changes, &kinds, &name_bytes}) {
      *count = BigEndian(content.substr(at, 4));
      at += 4;
    }
    content.remove_prefix(kHeadSize);
    return true;
  }
  [[nodiscard]] size_t BlockSize(size_t time_size) const {
    return changes * (time_size + 1) + kinds * kKindSize + name_bytes +
           leap_seconds * (time_size + 4) + standard_marks + ut_marks;
  }
};

}  // namespace

void TimeZone::Load(std::string_view name) {
  name_ = name;
  server_ = name.empty();
  if (server_) tzset();
  String content;
  valid_ = server_ || (IsZoneName(name) && ReadFile(content) && Read(content));
}

bool TimeZone::ReadFile(String& content) const {
  const String path = String::Concat({kDirectory, name_});
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  char* room = content.Overwrite(kLargestFile);
  size_t size = 0;
  ssize_t count;
  while ((count = read(file, room + size, kLargestFile - size)) > 0) {
    size += static_cast<size_t>(count);
  }
  close(file);
  content.Truncate(size);
  return count == 0;
}

bool TimeZone::Read(std::string_view content) {
  Counts counts;
  if (!counts.Take(content) || counts.BlockSize(4) > content.size()) return false;
  content.remove_prefix(counts.BlockSize(4));
  if (!counts.Take(content) || counts.BlockSize(8) > content.size()) return false;
  // Zones that count leap seconds tell another time than the rest of the system.
  if (counts.kinds == 0 || counts.leap_seconds > 0) return false;
  const auto take = [&content](size_t size) {
    const std::string_view taken = content.substr(0, size);
    content.remove_prefix(size);
    return taken;
  };
  const std::string_view moments = take(counts.changes * 8);
  const std::string_view kinds = take(counts.changes);
  const std::string_view known = take(counts.kinds * kKindSize);
  names_ = take(counts.name_bytes);
  for (size_t i = 0; i < counts.changes; ++i) {
    changes_.push_back(static_cast<int64_t>(BigEndian(moments.substr(i * 8, 8))));
    kinds_.push_back(static_cast<uint8_t>(kinds[i]));
    if (kinds_.back() >= counts.kinds) return false;
    if (i > 0 && changes_[i] <= changes_[i - 1]) return false;
  }
  for (size_t i = 0; i < counts.kinds; ++i) {
    const std::string_view kind = known.substr(i * kKindSize, kKindSize);
    const auto offset = static_cast<int32_t>(BigEndian(kind.substr(0, 4)));
    known_.push_back({{offset, kind[4] != 0, {}}, static_cast<unsigned char>(kind[5])});
    if (offset < -kLargestOffset || offset > kLargestOffset) return false;
  }
  content.remove_prefix(counts.standard_marks + counts.ut_marks);
  if (content.size() < 2) return content.empty();
  content = content.substr(1, content.size() - 2);
  if (content.empty()) return true;
  return rule_.emplace().Read(content);
}

ZoneTime TimeZone::TimeOf(size_t kind) const {
  ZoneTime time = known_[kind].time;
  const std::string_view names = names_;
  if (known_[kind].name < names.size()) time.name = names_.c_str() + known_[kind].name;
  return time;
}

ZoneTime TimeZone::At(int64_t seconds) const {
  if (server_) {
    std::tm fields{};
    if (localtime_r(&seconds, &fields) == nullptr) return {};
    return {static_cast<int32_t>(fields.tm_gmtoff), fields.tm_isdst > 0, fields.tm_zone};
  }
  const auto next = std::ranges::upper_bound(changes_, seconds);
  if (next == changes_.end() && rule_) return rule_->At(seconds);
  if (next == changes_.begin()) return TimeOf(0);
  return TimeOf(kinds_[static_cast<size_t>(next - changes_.begin()) - 1]);
}

int64_t TimeZone::MomentOf(int64_t local) const {
  constexpr int64_t kDay = 24 * 3600;
  const int64_t before = local - At(local - kDay).offset;
  if (local - before == At(before).offset) return before;
  const int64_t behind = local - At(local + kDay).offset;
  return local - behind == At(behind).offset ? behind : before;
}

}  // namespace vexa
