#pragma once
// `vmio shell`'s line protocol, spoken to the automation component through COM only.
#include <iosfwd>

namespace vmio::comshell {

// Reads commands from in until its end, one result line each to out (flushed after each).
// COM must be initialised on this thread (apartment-threaded). Returns 0, the exit code.
int RunShell(std::istream& in, std::ostream& out);

}  // namespace vmio::comshell
