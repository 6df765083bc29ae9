// main: one request, or what a person asked for on the command line.

#include <unistd.h>

#include <cstdlib>
#include <new>
#include <string_view>

#include "cgi/cgi_vexa.h"
#include "cgi/command_line.h"
#include "cgi/run_request.h"
#include "host/process.h"

namespace {

// There is no memory to begin with.
int EndBeforeBegin() {
  constexpr std::string_view kAnswer =
      "Content-type: text/html\r\n\r\nFatal Error: Out of memory\r\n";
  (void)!write(STDOUT_FILENO, kAnswer.data(), kAnswer.size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) try {
  if (!vexa::FillStandardDescriptors()) return EXIT_FAILURE;
  if (vexa::IsCommandLine(argc, argv)) return vexa::RunCommandLine(argc, argv);
  vexa::Process process(argc, argv);
  process.TakeOverSignals();
  vexa::CGIVexa host(process);
  return vexa::RunRequest(host);
} catch (const std::bad_alloc&) {
  return EndBeforeBegin();
}
