// vexa-serve: the server for development.

#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

#include "cgi/serve_server.h"
#include "cgi/serve_site.h"
#include "cgi/serve_terminal.h"
#include "host/process.h"
#include "vexa.h"

namespace vexa {
namespace {

constexpr std::string_view kHelp =
    "vexa-serve [--port N] [--data DIR] [DIRECTORY]\n"
    "\n"
    "Serves the pages and files of a directory (of the working directory when none is named) on\n"
    "http://127.0.0.1:N/, to this machine only, until Ctrl-C. Without a port it finds a free one.\n"
    "What pages write goes to .vexa-NAME/data beside the directory, or to DIR.\n"
    "\n"
    "For development, not for production: it shows errors, and everybody on this machine may use "
    "it.\n";

struct Options {
  int port = 0;  // 0: a free one
  std::string data;
  std::string pages;
};

void Print(int descriptor, std::string_view text) {
  (void)!::write(descriptor, text.data(), text.size());
}

bool ReadPort(std::string_view text, int& port) {
  const char* end = text.data() + text.size();
  return std::from_chars(text.data(), end, port).ptr == end && port > 0 && port <= 65535;
}

bool ReadOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--port" || argument == "--data") {
      if (++i == argc) return false;
      if (argument == "--data") options.data = argv[i];
      if (argument == "--port" && !ReadPort(argv[i], options.port)) return false;
    } else if (argument.starts_with('-') || argument.empty() || !options.pages.empty()) {
      return false;
    } else {
      options.pages = argument;
    }
  }
  if (options.pages.empty()) options.pages = ".";
  return true;
}

int Serve(const Options& options) {
  ServeSite site;
  std::string problem;
  if (!PrepareSite(options.pages, options.data, site, problem)) {
    TellError("vexa-serve", problem);
    return EXIT_FAILURE;
  }
  ServeServer server(site);
  if (!server.Listen(options.port, problem)) {
    TellError("vexa-serve", problem);
    return EXIT_FAILURE;
  }
  TellLine("Vexa: http://127.0.0.1:" + std::to_string(server.port()) + "/ (Ctrl-C ends it)");
  TellLine("Pages: " + site.pages);
  TellLine("Data:  " + site.data);
  TellLine("For development, not for production.");
  if (::geteuid() == 0) TellLine("It runs as root: so does every page.");
  server.Run();
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace vexa

int main(int argc, char** argv) {
  // Pages run as who started the server, whatever bits its file has.
  if (!vexa::FillStandardDescriptors() || !vexa::GiveUpRaisedRights()) return EXIT_FAILURE;
  const std::string_view first = argc == 2 ? argv[1] : "";
  vexa::Options options;
  if (first == "--version") {
    vexa::Print(STDOUT_FILENO, std::string("vexa-serve ") + vexa::kVersion + "\n");
  } else if (first == "--help") {
    vexa::Print(STDOUT_FILENO, vexa::kHelp);
  } else if (!vexa::ReadOptions(argc, argv, options)) {
    vexa::Print(STDERR_FILENO, vexa::kHelp);
    return 2;
  } else {
    return vexa::Serve(options);
  }
  return EXIT_SUCCESS;
}
