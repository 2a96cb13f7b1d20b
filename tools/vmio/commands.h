#pragma once
// The `vmio` command line: dispatch, help and usage errors.
#include <iosfwd>
#include <span>
#include <string>

namespace vmio::cli {

// The exit codes, so a script can tell failures apart without parsing messages. A library
// error is printed to err as "error N: DESCRIPTION" whatever the code.
enum ExitCode : int {
  kExitOk = 0,
  kExitDevice = 1,         // the device or the library refused (a port error, a demo driver failed)
  kExitUsage = 2,          // the command line cannot be carried out as given
  kExitNotADevice = 3,     // a device command was given a class that is not a device
  kExitConnection = 4,     // the device could not be reached (refused, unresolvable, no such port)
  kExitAuthorisation = 5,  // the device refused the credentials
  kExitTimeout = 6,        // the device did not answer in time
};

// Runs `vmio ARGS...` (args without the program's name) and returns its exit code.
int RunCommand(std::span<const std::string> args, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace vmio::cli
