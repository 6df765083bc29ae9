// The people's options.

#include "cgi/command_line.h"

#include <cstdlib>
#include <span>
#include <string_view>
#include <vector>

#include "cgi/cgi_vexa.h"
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
    "  vexa --check-table FILE [INDEX...]   check a table, its memo file and its indexes\n"
    "  vexa --check-package PATH            load a package's library and read its archive\n";

constexpr int kPrintBuffer = 4096;

using Arguments = std::span<char* const>;

int PrintVersion(Output& out, Arguments) {
  out.Write("vexa ");
  out.Write(kVersion);
  out.Write("\n");
  return EXIT_SUCCESS;
}

int PrintHelp(Output& out, Arguments) {
  out.Write(kHelp);
  return EXIT_SUCCESS;
}

// 0 when every script is free of syntax errors, else 1.
int CheckScripts(Output& out, Arguments paths) {
  Process process(0, nullptr);
  process.TakeOverSignals();
  CGIVexa host(process);
  bool clean = !paths.empty();
  if (paths.empty()) out.Write("vexa --check: no file given\n");
  for (const char* path : paths) {
    if (!CheckScript(host, kVexaTags, path, out)) clean = false;
  }
  return clean ? EXIT_SUCCESS : EXIT_FAILURE;
}

// 0 when everything is good, else 1.
int CheckTableFiles(Output& out, Arguments paths) {
  if (paths.empty()) {
    out.Write("vexa --check-table: no file given\n");
    return EXIT_FAILURE;
  }
  Process process(0, nullptr);
  process.TakeOverSignals();
  CGIVexa host(process);
  std::vector<String> indexes(paths.begin() + 1, paths.end());
  return CheckTable(host.filemanager(), String(paths[0]), indexes, out);
}

// 0 when everything is good, else 1.
int CheckPackageFiles(Output& out, Arguments paths) {
  if (paths.size() != 1) {
    out.Write("vexa --check-package: one path, please\n");
    return EXIT_FAILURE;
  }
  return CheckPackage(paths[0], out) ? EXIT_SUCCESS : EXIT_FAILURE;
}

struct Option {
  std::string_view name;
  // `arguments` are those behind the option. Returns the exit status.
  int (*handler)(Output& out, Arguments arguments);
};

constexpr Option kOptions[] = {
    {"--version", PrintVersion},
    {"--help", PrintHelp},
    {"--check", CheckScripts},
    {"--check-table", CheckTableFiles},
    {"--check-package", CheckPackageFiles},
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
  StandardOutput out(kPrintBuffer);
  // A set-user-ID program must not read for somebody what that user may not read.
  if (!GiveUpRaisedRights()) {
    out.Write("vexa: the rights of the program cannot be given up\n");
    return EXIT_FAILURE;
  }
  Arguments arguments(argv + 2, argv + argc);
  return FindOption(argv[1])->handler(out, arguments);
}

}  // namespace vexa
