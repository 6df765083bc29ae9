// The people's options.

#include "cgi/command_line.h"

#include <unistd.h>

#include <cstdlib>
#include <span>
#include <string_view>
#include <vector>

#include "cgi/cgi_vexa.h"
#include "config/config_check.h"
#include "engine/script_check.h"
#include "packages/package_check.h"
#include "tags/tag_table.h"
#include "xbase/check/table_check.h"

namespace vexa {

namespace {

constexpr std::string_view kHelp =
    "Vexa runs page scripts for a web server, once for each request, through CGI.\n"
    "\n"
    "  vexa --version                       print the version\n"
    "  vexa --help                          print this text\n"
    "  vexa --check FILE...                 read scripts and print their syntax errors\n"
    "  vexa --check-config [FILE]           read a configuration for all its hosts\n"
    "  vexa --check-table FILE [INDEX...]   check a table, its memo file and its indexes\n"
    "  vexa --check-package PATH            load a package's library and read its archive\n";

constexpr int kPrintBuffer = 4096;

// Standard output for people, who may read as slowly as they like; who wants no more sends a
// signal.
class PrintedOutput final : public Output {
 public:
  PrintedOutput() : Output(kPrintBuffer) {}
  ~PrintedOutput() override { Flush(); }

 protected:
  int DoWrite(const char* text, int length) override {
    for (int done = 0; done < length && !broken_;) {
      const ssize_t written = write(STDOUT_FILENO, text + done, static_cast<size_t>(length - done));
      broken_ = written <= 0;
      done += static_cast<int>(written);
    }
    return broken_ ? -1 : length;
  }

 private:
  bool broken_ = false;
};

using Arguments = std::span<char* const>;

int PrintVersion(Output& out, Arguments, Process&) {
  out.Write("vexa ");
  out.Write(kVersion);
  out.Write("\n");
  return EXIT_SUCCESS;
}

int PrintHelp(Output& out, Arguments, Process&) {
  out.Write(kHelp);
  return EXIT_SUCCESS;
}

ServerSafeMode ModeOf(const Process& process) {
  return process.RunningSetUIDRoot() ? ServerSafeMode::On : ServerSafeMode::Off;
}

// 0 when every script is free of syntax errors, else 1.
int CheckScripts(Output& out, Arguments paths, Process& process) {
  process.TakeOverSignals();
  CGIVexa host(process);
  if (String path; process.GetConfigurationFile(path) != 0) {
    const Settings settings =
        SettingsOfFile(host.filemanager(), host.environment(), ModeOf(process), path);
    host.SetDefaultMacroEncoding(static_cast<MacroEncoding>(settings.defaultmacroencoding));
  }
  bool clean = !paths.empty();
  if (paths.empty()) out.Write("vexa --check: no file given\n");
  for (const char* path : paths) {
    if (!CheckScript(host, kVexaTags, path, out)) clean = false;
  }
  return clean ? EXIT_SUCCESS : EXIT_FAILURE;
}

// 0 when the file, or that of this program, is free of errors, else 1.
int CheckConfigurationOf(Output& out, Arguments paths, Process& process) {
  if (paths.size() > 1) {
    out.Write("vexa --check-config: one file, please\n");
    return EXIT_FAILURE;
  }
  String path;
  if (!paths.empty()) {
    path = paths[0];
  } else if (process.GetConfigurationFile(path) == 0) {
    out.Write("vexa --check-config: no file found\n");
    return EXIT_FAILURE;
  }
  process.TakeOverSignals();
  CGIVexa host(process);
  return CheckConfigurationFile(host.filemanager(), host.environment(), ModeOf(process), path, out)
             ? EXIT_SUCCESS
             : EXIT_FAILURE;
}

// 0 when everything is good, else 1.
int CheckTableFiles(Output& out, Arguments paths, Process& process) {
  if (paths.empty()) {
    out.Write("vexa --check-table: no file given\n");
    return EXIT_FAILURE;
  }
  process.TakeOverSignals();
  CGIVexa host(process);
  std::vector<String> indexes(paths.begin() + 1, paths.end());
  return CheckTable(host.filemanager(), String(paths[0]), indexes, out);
}

// 0 when everything is good, else 1.
int CheckPackageFiles(Output& out, Arguments paths, Process&) {
  if (paths.size() != 1) {
    out.Write("vexa --check-package: one path, please\n");
    return EXIT_FAILURE;
  }
  return CheckPackage(paths[0], out) ? EXIT_SUCCESS : EXIT_FAILURE;
}

struct Option {
  std::string_view name;
  // `arguments` are those behind the option. Returns the exit status.
  int (*handler)(Output& out, Arguments arguments, Process& process);
};

constexpr Option kOptions[] = {
    {"--version", PrintVersion},        {"--help", PrintHelp},
    {"--check", CheckScripts},          {"--check-config", CheckConfigurationOf},
    {"--check-table", CheckTableFiles}, {"--check-package", CheckPackageFiles},
};

const Option* FindOption(std::string_view name) {
  for (const Option& option : kOptions) {
    if (option.name == name) return &option;
  }
  return nullptr;
}

}  // namespace

bool IsCommandLine(int argc, char** argv) {
  return argc > 1 && std::getenv("GATEWAY_INTERFACE") == nullptr &&
         std::getenv("PATH_INFO") == nullptr && FindOption(argv[1]) != nullptr;
}

int RunCommandLine(int argc, char** argv) {
  PrintedOutput out;
  // A set-user-ID program must not read for somebody what that user may not read.
  if (!GiveUpRaisedRights()) {
    out.Write("vexa: the rights of the program cannot be given up\n");
    return EXIT_FAILURE;
  }
  Process process(argc, argv);
  Arguments arguments(argv + 2, argv + argc);
  return FindOption(argv[1])->handler(out, arguments, process);
}

}  // namespace vexa
