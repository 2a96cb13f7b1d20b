#pragma once
// The `vmio` command line: dispatch, help and usage errors.
#include <iosfwd>
#include <span>
#include <string>

namespace vmio::cli {

// Runs `vmio ARGS...` (args without the program's name). Returns the exit code: 0 on success,
// 1 when the library raised an error (printed to err as "error N: DESCRIPTION") or a demo
// driver failed, 2 for a usage error.
int RunCommand(std::span<const std::string> args, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace vmio::cli
