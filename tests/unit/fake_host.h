// FakeHost: a host for unit tests, with nothing behind it but public members that a test sets and
// looks at. What a test did not set and the tested code asks for all the same ends the test.

#ifndef VEXA_TESTS_UNIT_FAKE_HOST_H_
#define VEXA_TESTS_UNIT_FAKE_HOST_H_

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/file.h"
#include "core/text.h"
#include "database.h"
#include "vexa.h"

namespace vexa {

// Keeps what is written to the activity log, one "EVENT detail" a line.
class FakeLog final : public ActivityLog {
 public:
  void Write(LogLevel level, std::string_view event, std::string_view detail) override {
    levels.push_back(level);
    lines.push_back(std::string(event) + " " + std::string(detail));
  }

  std::vector<LogLevel> levels;
  std::vector<std::string> lines;
};

class FakeHost final : public Vexa, public FieldSource {
 public:
  // What the host hands out. Pointers are borrowed; asking for one that is null ends the test.
  Settings settings;
  FileManager* files = nullptr;
  Variables* variables = nullptr;
  ExpressionContext* expressions = nullptr;
  FakeLog log;
  StringOutput page;

  // What the host answers.
  bool timed_out = false;
  // When above 0, how often timedout() is asked before it becomes true.
  int64_t polls_left = 0;
  int64_t time_remaining = -1;
  String date = "Thu, 01 Jan 1970 00:00:00 +0000";
  String session_id = "session";
  // ResolvePath puts the name behind this directory, or fails with the message when that is set.
  String directory;
  String refusal;
  // FindModule fails with this.
  String no_module = "No modules here";
  // NewDatabase fails with this.
  String no_database = "No databases here";

  // What was reported.
  std::vector<std::string> errors;

  const Settings& config() const override { return settings; }
  FileManager& filemanager() override { return Given(files, "filemanager"); }
  ActivityLog& logfile() override { return log; }
  Output& output() override { return page; }
  Variables& vars() override { return Given(variables, "vars"); }

  bool timedout() override {
    if (polls_left > 0 && --polls_left == 0) timed_out = true;
    return timed_out;
  }
  int64_t timeremaining() override { return time_remaining; }
  String lasterror() override { return String(std::strerror(errno)); }
  String currentdate() override { return date; }
  // Not a hash: the salt, a colon and the key.
  String Crypt(const String& key, const String& salt) override {
    return String::Concat({salt, ":", key});
  }
  String MakeSessionID() override { return session_id; }

  int ResolvePath(const String& name, String& resolved, PathType /*type*/,
                  String& message) override {
    if (!refusal.empty()) {
      message = refusal;
      return 0;
    }
    resolved = directory.empty() ? name : String::Concat({directory, "/", name});
    return 1;
  }

  void Error(const vexa::Error& error) override { errors.emplace_back(error.message().view()); }
  void Error(const String& text) override { errors.emplace_back(text.view()); }

  const String& language() const override { return language_; }
  void SetLanguage(const String& language) override { language_ = language; }
  const String& defaultlanguage() const override { return default_language_; }
  void SetDefaultLanguage(const String& language) override { default_language_ = language; }
  MacroEncoding defaultmacroencoding() const override { return encoding_; }
  void SetDefaultMacroEncoding(MacroEncoding encoding) override { encoding_ = encoding; }

  std::unique_ptr<Database> NewDatabase(const String& /*type*/, const String& /*name*/,
                                        String& message) override {
    message = no_database;
    return nullptr;
  }
  void AddDatabase(std::unique_ptr<Database> database) override {
    databases_.push_back(std::move(database));
    has_fields_ = true;
  }
  bool RemoveDatabase(Database* database) override {
    for (auto it = databases_.begin(); it != databases_.end(); ++it) {
      if (it->get() != database) continue;
      if (primary_ == database) primary_ = nullptr;
      databases_.erase(it);
      return true;
    }
    return false;
  }
  Database* FindDatabase(std::string_view name) override {
    for (const auto& database : databases_) {
      if (EqualsIgnoreCase(database->name(), name)) return database.get();
    }
    return nullptr;
  }
  std::span<const std::unique_ptr<Database>> databases() const override { return databases_; }
  Database* PrimaryDB() override { return primary_; }
  void SetPrimaryDB(Database* database) override { primary_ = database; }

  Module* FindModule(const String& /*name*/, String& message) override {
    message = no_module;
    return nullptr;
  }
  Variable* FindField(Symbol field, std::string_view database) override {
    for (const auto& open : databases_) {
      if (!database.empty() && !EqualsIgnoreCase(open->name(), database)) continue;
      for (DatabaseView* view : open->views()) {
        if (Variable* variable = view->FindVariable(field)) return variable;
      }
    }
    return nullptr;
  }
  ExpressionContext& expressioncontext() override { return Given(expressions, "expressions"); }
  Module* currentmodule() override { return module_; }
  void SetCurrentModule(Module* module) override { module_ = module; }

  std::span<const PackageInfo> packages() const override { return packages_; }

 private:
  template <typename T>
  static T& Given(T* thing, const char* name) {
    if (thing == nullptr) {
      std::fprintf(stderr, "The test did not set the host's %s\n", name);
      std::abort();
    }
    return *thing;
  }

  String language_;
  String default_language_ = "en-US";
  MacroEncoding encoding_ = MacroEncoding::None;
  std::vector<std::unique_ptr<Database>> databases_;
  Database* primary_ = nullptr;
  Module* module_ = nullptr;
  std::vector<PackageInfo> packages_;
};

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_FAKE_HOST_H_
