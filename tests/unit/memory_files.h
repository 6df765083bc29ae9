// MemoryFiles: a file manager whose files are byte vectors, for tests that damage files, make
// operations fail, or stop a "process" at any of its operations. Also counts the locks that are
// held, so that a test can tell that all were given back.

#ifndef VEXA_TESTS_UNIT_MEMORY_FILES_H_
#define VEXA_TESTS_UNIT_MEMORY_FILES_H_

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/file.h"
#include "core/outside.h"

namespace vexa {

class MemoryFiles final : public FileManager {
 public:
  using Bytes = std::string;

  // What the next operations meet. Operations are counted from 1 by Arm.
  enum class Fault {
    None,
    FailOne,    // operation `at` fails, a write having done half of its work
    RefuseOne,  // operation `at` fails, having done nothing
    RefuseOn,   // from operation `at` on all fail, having done nothing
    Die,        // from operation `at` on nothing happens any more, as after a kill
    Tear,       // the same, but a write at `at` gets as far as the next border of 4,096 bytes
  };
  void Arm(Fault fault, int at) {
    fault_ = fault;
    at_ = at;
    operations_ = 0;
    refused_rewrite_.clear();
  }
  void Disarm() { Arm(Fault::None, 0); }
  // The file in which bytes that were there already could not be written over since Arm; empty when
  // there was none.
  [[nodiscard]] const std::string& refused_rewrite() const { return refused_rewrite_; }
  // Operations since Arm.
  [[nodiscard]] int operations() const { return operations_; }

  // From now on, reading a file that its path does not name any more fails.
  void BreakReplacedFiles() { break_replaced_ = true; }

  // From now on all is written at one time, which is yet to come: stamps tell nothing any more.
  void StopClock() { clock_stands_ = true; }

  // Ranges that are locked now.
  [[nodiscard]] int locks() const { return locks_; }
  // A file's bytes, to look at or to damage; created when missing.
  Bytes& operator[](const char* path) {
    auto& file = files_[path];
    if (file == nullptr) file = std::make_shared<Bytes>();
    return *file;
  }
  [[nodiscard]] bool Has(const char* path) const { return files_.count(path) != 0; }
  [[nodiscard]] std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& [name, bytes] : files_) names.push_back(name);
    return names;
  }
  // The content of all files, to come back to.
  [[nodiscard]] std::map<std::string, Bytes> Snapshot() const {
    std::map<std::string, Bytes> copy;
    for (const auto& [name, bytes] : files_) copy[name] = *bytes;
    return copy;
  }
  void Restore(const std::map<std::string, Bytes>& snapshot) {
    files_.clear();
    for (const auto& [name, bytes] : snapshot) files_[name] = std::make_shared<Bytes>(bytes);
  }

  std::unique_ptr<File> Open(const String& path, int mode) override {
    if (!Proceed()) return nullptr;
    const std::string name = path.c_str();
    if (!Has(name.c_str()) && (mode & OpenCreate) == 0) {
      error_ = "No such file or directory";
      return nullptr;
    }
    if (Has(name.c_str()) && (mode & OpenExclusive) != 0) {
      error_ = "File exists";
      return nullptr;
    }
    Bytes& bytes = (*this)[name.c_str()];
    if ((mode & OpenTruncate) != 0) bytes.clear();
    return std::make_unique<OpenFile>(*this, name, files_[name]);
  }
  int Delete(const String& path) override {
    if (!Proceed()) return -1;
    return files_.erase(path.c_str()) != 0 ? 0 : -1;
  }
  int Rename(const String& from, const String& to) override {
    if (!Proceed()) return -1;
    auto it = files_.find(from.c_str());
    if (it == files_.end()) return -1;
    files_[to.c_str()] = it->second;
    files_.erase(from.c_str());
    for (OpenFile* file : open_) file->Renamed(from.c_str(), to.c_str());
    return 0;
  }
  bool Exists(const String& path) override { return !dead() && Has(path.c_str()); }
  int64_t Length(const String& path) override {
    return Has(path.c_str()) ? std::ssize((*this)[path.c_str()]) : -1;
  }
  bool MayWrite(const String& path) override { return Has(path.c_str()); }
  int RealPath(const String& path, String& real) override {
    if (!Has(path.c_str())) return -1;
    real = path;
    return 0;
  }
  int SyncDirectory(const String& /*path*/) override { return Proceed() ? 0 : -1; }
  int Mode(const String& path) override { return Has(path.c_str()) ? 0100600 : -1; }
  int ChangeMode(const String& /*path*/, int /*mode*/) override { return 0; }
  std::unique_ptr<File> MakeTemporary(String& path, String& suffix, int mode) override {
    for (int i = 1;; ++i) {
      char digits[16];
      std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned>(i));
      const String name = path + digits;
      if (Has(name.c_str())) continue;
      auto file = Open(name, mode | OpenCreate);
      if (file == nullptr) return nullptr;
      path = name;
      suffix.cat(digits);
      return file;
    }
  }
  String StripExtension(const String& path) const override {
    const size_t point = path.view().rfind('.');
    return point == std::string_view::npos ? path : String(path.view().substr(0, point));
  }
  const String& error() const override { return error_; }

  // Not needed by what is tested with this.
  int Lock(const String&) override { return -1; }
  int Copy(const String&, const String&) override { return -1; }
  int WriteBeside(const String&, std::string_view) override { return 1; }
  int WriteNew(const String&, std::string_view) override { return -1; }
  std::unique_ptr<File> MakeUnnamed(const String&) override { return nullptr; }
  int GiveName(File&, String&, String&) override { return -1; }
  int TouchFile(const String&) override { return 0; }
  bool IsDirectory(const String&) override { return false; }
  int MakeDirectoryWith(const String&, mode_t) override { return -1; }
  int OpenDescriptor(const String&, int, mode_t) override { return -1; }
  int LookAt(const String&, struct stat&) override { return -1; }
  bool FollowsLink(const String&) override { return false; }
  int RemoveDirectory(const String&) override { return -1; }
  int ListDirectory(const String&, std::vector<String>&) override { return -1; }
  int MakeSymbolicLink(const String&, const String&) override { return -1; }
  String StripDirectory(const String& path) const override { return path; }
  uid_t GetOwnerUID(const String&) const override { return static_cast<uid_t>(-1); }
  int FollowPath(String&, int, int) const override { return 0; }

 private:
  class OpenFile final : public File {
   public:
    OpenFile(MemoryFiles& manager, std::string name, std::shared_ptr<Bytes> bytes)
        : manager_(manager), name_(std::move(name)), bytes_(std::move(bytes)) {
      manager_.open_.insert(this);
    }
    ~OpenFile() override {
      manager_.locks_ -= static_cast<int>(ranges_.size());
      manager_.open_.erase(this);
    }
    void Renamed(std::string_view from, std::string_view to) {
      if (name_ == from) name_ = to;
    }

    int ReadAt(int64_t offset, char* buffer, int count) override {
      if (!Proceed()) return -1;
      if (manager_.break_replaced_ && StillNamed() == 0) return -1;
      const int64_t left = std::max<int64_t>(0, std::ssize(*bytes_) - offset);
      const auto got = static_cast<size_t>(std::min<int64_t>(left, count));
      if (got > 0) std::memcpy(buffer, bytes_->data() + offset, got);
      return static_cast<int>(got);
    }
    int WriteAt(int64_t offset, const char* data, int count) override {
      const bool proceed = Proceed();
      auto size = static_cast<size_t>(count);
      if (!proceed) size = manager_.PartDone(offset, size);
      const auto start = static_cast<size_t>(offset);
      if (!proceed && start + static_cast<size_t>(count) <= bytes_->size()) {
        manager_.refused_rewrite_ = name_;
      }
      if (size > 0 && start + size > bytes_->size()) bytes_->resize(start + size);
      if (size > 0) std::memcpy(bytes_->data() + start, data, size);
      ++manager_.writes_;
      return proceed ? count : -1;
    }
    int Lock(FileLockType /*type*/, int64_t start, int64_t length) override {
      if (!Proceed()) return -1;
      if (ranges_.insert({start, length}).second) ++manager_.locks_;
      return 0;
    }
    void KeepOpen() override {}
    int Status(struct stat&) override { return -1; }
    int TryLock(FileLockType type, int64_t start, int64_t length) override {
      return Lock(type, start, length) < 0 ? -1 : 1;
    }
    int Release(int64_t start, int64_t length) override {
      if (ranges_.erase({start, length}) != 0) --manager_.locks_;
      return 0;
    }
    int64_t Length() override { return Proceed() ? std::ssize(*bytes_) : -1; }
    int Sync() override { return Proceed() ? 0 : -1; }
    int Touch() override { return Proceed() ? 0 : -1; }
    using File::StillNamed;
    int StillNamed(NameCheck /*check*/, FileStamp& stamp) override {
      if (!Proceed()) return -1;
      stamp = {manager_.clock_stands_ ? INT64_MAX : manager_.writes_, std::ssize(*bytes_)};
      auto it = manager_.files_.find(name_);
      return it != manager_.files_.end() && it->second == bytes_ ? 1 : 0;
    }
    const String& error() const override { return error_; }

    // Not needed by what is tested with this.
    int Read(char*, int) override { return -1; }
    int Write(const char*, int) override { return -1; }
    int64_t Seek(int64_t) override { return -1; }
    int64_t Tell() override { return -1; }
    int Truncate(int64_t length) override {
      if (!Proceed()) return -1;
      bytes_->resize(static_cast<size_t>(length));
      return 0;
    }

   private:
    bool Proceed() {
      if (manager_.Proceed()) return true;
      error_ = manager_.error_;
      return false;
    }

    MemoryFiles& manager_;
    std::string name_;
    std::shared_ptr<Bytes> bytes_;
    std::set<std::pair<int64_t, int64_t>> ranges_;
    String error_;
  };

  [[nodiscard]] bool dead() const {
    return (fault_ == Fault::Die || fault_ == Fault::Tear) && operations_ >= at_;
  }
  // How much of a write of `size` bytes that fails is done all the same.
  [[nodiscard]] size_t PartDone(int64_t offset, size_t size) const {
    if (fault_ == Fault::FailOne) return size / 2;
    if (fault_ != Fault::Tear || operations_ != at_) return 0;
    const auto border = static_cast<size_t>(4096 - offset % 4096);
    return border < size ? border : 0;
  }
  bool Proceed() {
    LookOutside();
    ++operations_;
    error_ = "Input/output error";
    const bool one = fault_ == Fault::FailOne || fault_ == Fault::RefuseOne;
    const bool on = fault_ == Fault::RefuseOn && operations_ >= at_;
    return !(one && operations_ == at_) && !on && !dead();
  }

  std::map<std::string, std::shared_ptr<Bytes>> files_;
  String error_;
  Fault fault_ = Fault::None;
  int at_ = 0;
  int operations_ = 0;
  std::string refused_rewrite_;
  int locks_ = 0;
  bool break_replaced_ = false;
  bool clock_stands_ = false;
  int64_t writes_ = 0;  // the time, as far as stamps of files are concerned
  std::set<OpenFile*> open_;
};

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_MEMORY_FILES_H_
