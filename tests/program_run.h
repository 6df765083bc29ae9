// Running a program once, the way a web server runs a CGI program: with an environment of its own
// making, a body on standard input, and everything it writes collected.

#ifndef VEXA_TESTS_PROGRAM_RUN_H_
#define VEXA_TESTS_PROGRAM_RUN_H_

#include <map>
#include <string>
#include <vector>

struct ProgramStart {
  std::string path;       // Also argument 0.
  std::string directory;  // The working directory.
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;
  std::string input;  // What standard input delivers before it ends.
};

struct ProgramEnd {
  std::string output;
  std::string errors;  // Standard error.
  int status = -1;     // The exit status; -1 when there is none, for the reason in `trouble`.
  std::string trouble;
};

// Runs the program to its end. One that runs longer than `limit_seconds` is killed together with
// the processes it started.
[[nodiscard]] ProgramEnd RunProgram(const ProgramStart& start, int limit_seconds);

#endif  // VEXA_TESTS_PROGRAM_RUN_H_
