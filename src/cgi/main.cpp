// main: one request, or what a person asked for on the command line.

#include <cstdlib>
#include <new>
#include <stdexcept>

#include "cgi/cgi_vexa.h"
#include "cgi/command_line.h"
#include "core/error.h"
#include "host/process.h"

namespace vexa {
namespace {

// The one place where the standard library's allocation failures end. Everything the script held
// is released by then; what is left is to say so on the page.
int RunRequest(Host& host) {
  try {
    return host.Go();
  } catch (const std::bad_alloc&) {
    host.Error(FatalError("Out of memory"));
  } catch (const std::length_error&) {
    host.Error(FatalError("Out of memory"));
  }
  return host.script_started() ? 1 : 0;
}

}  // namespace
}  // namespace vexa

int main(int argc, char** argv) {
  if (!vexa::FillStandardDescriptors()) return EXIT_FAILURE;
  if (vexa::IsCommandLine(argc, argv)) return vexa::RunCommandLine(argc, argv);
  vexa::Process process(argc, argv);
  process.TakeOverSignals();
  vexa::CGIVexa host(process);
  return vexa::RunRequest(host);
}
