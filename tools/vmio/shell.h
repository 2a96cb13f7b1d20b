#pragma once
// `vmio shell`: the line protocol scripts and black-box tests drive the library through.
#include <iosfwd>

namespace vmio::cli {

// Reads commands from in until its end, writing one result line per command to out (flushed
// after each); blank and comment lines answer nothing. Returns 0, the exit code.
int RunShell(std::istream& in, std::ostream& out);

}  // namespace vmio::cli
