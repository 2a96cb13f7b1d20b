#pragma once
// The command line run in-process, as a terminal would see it.
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"

namespace vmio::cli {

struct Result {
  int code;
  std::string out;
  std::string err;
};

inline Result Vmio(std::vector<std::string> args, const std::string& input = "") {
  std::istringstream in(input);
  std::ostringstream out, err;
  const int code = RunCommand(args, in, out, err);
  return {code, out.str(), err.str()};
}

}  // namespace vmio::cli
