// Hosts for unit tests: one whose request and answer are texts, and FakeHost, which says and hands
// out what a test set. What a test did not set and is asked for all the same ends the test.

#ifndef VEXA_TESTS_UNIT_FAKE_HOST_H_
#define VEXA_TESTS_UNIT_FAKE_HOST_H_

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/host.h"
#include "tags/tag_table.h"

namespace vexa {

class TextRequest final : public Request {
 public:
  TextRequest(char** environment, std::string body)
      : Request(environment, {}), body_(std::move(body)) {}
  int ReadBody(char* buffer, int count, int) override {
    size_t length = body_.copy(buffer, static_cast<size_t>(count));
    body_.erase(0, length);
    return static_cast<int>(length);
  }

 private:
  std::string body_;
};

class TextOutput final : public ResponseOutput {
 public:
  explicit TextOutput(int size = 10) : ResponseOutput(size) {}
  std::string text;  // what was flushed

 protected:
  [[nodiscard]] int SendSome(std::string_view bytes, int) override {
    text.append(bytes);
    return static_cast<int>(bytes.size());
  }
};

// A host with an empty request, for a process that is nothing else.
struct EmptyEnds {
  char* nothing[1] = {nullptr};
  Process process{0, nothing};
  TextRequest request{nothing, ""};
  TextOutput response;
};

class FakeHost final : private EmptyEnds, public Host, public FieldSource {
 public:
  FakeHost() : Host(process, kVexaTags, request, response) { SetHasFields(true); }
  ~FakeHost() override {
    while (!databases().empty()) RemoveDatabase(databases().back().get());
  }

  // What the host hands out; borrowed. Asking for one that is null ends the test.
  Settings settings;
  FileManager* files = nullptr;
  Variables* variables = nullptr;
  ExpressionContext* expressions = nullptr;
  StringOutput page;

  // What it answers.
  bool timed_out = false;
  // What was reported.
  std::vector<std::string> errors;

  const Settings& config() const override { return settings; }
  FileManager& filemanager() override { return Given(files, "filemanager"); }
  // Every name is its path.
  int ResolvePath(const String& name, String& resolved, PathType, String&) override {
    resolved = name;
    return 1;
  }
  Output& output() override { return page; }
  void Error(const vexa::Error& error) override { errors.emplace_back(error.message().view()); }
  void Error(const String& text) override { errors.emplace_back(text.view()); }
  Variables& vars() override { return Given(variables, "vars"); }
  bool timedout() override { return timed_out; }
  // Not a hash: the salt, a colon and the key.
  String Crypt(const String& key, const String& salt) override {
    return String::Concat({salt, ":", key});
  }
  // Of any open database.
  Variable* FindField(Symbol field, std::string_view) override {
    for (const auto& open : databases()) {
      for (DatabaseView* view : open->views()) {
        if (Variable* variable = view->FindVariable(field)) return variable;
      }
    }
    return nullptr;
  }
  ExpressionContext& expressioncontext() override { return Given(expressions, "expressions"); }

 private:
  template <typename T>
  static T& Given(T* thing, const char* name) {
    if (thing != nullptr) return *thing;
    std::fprintf(stderr, "The test did not set the host's %s\n", name);
    std::abort();
  }
};

}  // namespace vexa

#endif  // VEXA_TESTS_UNIT_FAKE_HOST_H_
