// main: one request, or what a person asked for on the command line.

#include <cstdlib>

#include "cgi/cgi_vexa.h"
#include "cgi/command_line.h"
#include "cgi/run_request.h"
#include "host/process.h"

int main(int argc, char** argv) {
  if (!vexa::FillStandardDescriptors()) return EXIT_FAILURE;
  if (vexa::IsCommandLine(argc, argv)) return vexa::RunCommandLine(argc, argv);
  vexa::Process process(argc, argv);
  process.TakeOverSignals();
  vexa::CGIVexa host(process);
  return vexa::RunRequest(host);
}
