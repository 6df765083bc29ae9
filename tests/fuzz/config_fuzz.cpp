// Fuzzing of the files of settings, with libFuzzer: configurations with sections, and authorization
// files. However a file is cut into blocks it must mean the same, and what a check finds clean must
// be so for everybody. tests/fuzz/run builds and runs it.

#include "config/auth_file.h"
#include "config/config_check.h"
#include "config/config_parser.h"
#include "config/unix_config.h"
#include "core/buffer.h"
#include "core/output.h"
#include "fake_receiver.h"
#include "fuzz_target.h"
#include "memory_files.h"

namespace vexa {
namespace {

// Reads the file "f" for somebody; all that came of it.
std::string Read(MemoryFiles& files, bool users, int block_size) {
  FakeReceiver receiver(files, "www.a.org");
  UNIXConfig config(receiver, ServerSafeMode::Off, "/");
  Buffer source(files, block_size);
  Require(source.Open("f", "f"), "the file cannot be opened");
  String directory = "before";
  const UserEntry owner{1000, 1000, "-", "-"};  // as the check has it
  const bool done = users ? AuthFileReader(receiver, config, source, &owner).Read(directory)
                          : UNIXConfigParser(receiver, config, source).Read();
  Require(receiver.errors.size() == (done ? 0 : 1), "an error is not told, or told twice");
  std::string all = done ? "" : receiver.errors[0];
  all.append(directory.view()).append(config.virtualhost().view());
  for (size_t i = 0; !Config::KeyOfSetting(i).empty(); ++i) {
    all.append("\n").append(config.ValueOfSetting(i).view());
  }
  return all;
}

// Whether the check finds nothing in the file.
bool IsClean(MemoryFiles& files, bool users) {
  FakeReceiver receiver(files, "");
  StringOutput out;
  std::vector<Finding> findings;
  if (!users) {
    char* nothing[] = {nullptr};
    (void)CheckConfigurationFile(files, Environment(nothing), ServerSafeMode::Off, "f", out);
    out.Flush();
    return out.data().empty();
  }
  UNIXConfig config(receiver, ServerSafeMode::Off, "/");
  Buffer source(files, 8192);
  Require(source.Open("f", "f"), "the file cannot be opened");
  AuthFileReader(receiver, config, source, nullptr).CheckAll(findings);
  return findings.empty();
}

void UseSettings(std::string_view input, bool users) {
  MemoryFiles files;
  files["f"].assign(input);
  const std::string whole = Read(files, users, 8192);
  for (const int block : {1, 7}) {
    Require(whole == Read(files, users, block), "blocks make a difference");
  }
  Require(!IsClean(files, users) || !whole.starts_with("Syntax error"),
          "the check misses an error");
}

void UseConfiguration(std::string_view input) { UseSettings(input, false); }
void UseUsers(std::string_view input) { UseSettings(input, true); }

}  // namespace
}  // namespace vexa

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return vexa::UseTarget({{"config", vexa::UseConfiguration}, {"users", vexa::UseUsers}}, data,
                         size);
}
