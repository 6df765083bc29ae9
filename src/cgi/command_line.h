// What people run the program for themselves: --version, --help, checking scripts, the
// configuration and tables.

#ifndef VEXA_CGI_COMMAND_LINE_H_
#define VEXA_CGI_COMMAND_LINE_H_

namespace vexa {

// Whether the arguments are meant for a person. Never inside a web server's request: some servers
// pass what a visitor typed as arguments.
[[nodiscard]] bool IsCommandLine(int argc, char** argv);

// Does what the arguments say. Returns the exit status in the usual sense: 0 when all is well.
[[nodiscard]] int RunCommandLine(int argc, char** argv);

}  // namespace vexa

#endif  // VEXA_CGI_COMMAND_LINE_H_
