// The shell's line reading and argument parsing on any script. Commands that create objects,
// reach devices or wait are left out, so every other command parses its arguments and then
// meets no object: the run stays in-process and fast.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "shell.h"

namespace {

bool Reaches(std::string_view line) {
  const size_t start = line.find_first_not_of(" \t");
  if (start == std::string_view::npos) return false;
  const std::string_view word = line.substr(start, line.substr(start).find_first_of(" \t\r"));
  return word == "new" || word == "connect" || word == "sleep";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::string script;
  size_t lines = 0;
  for (size_t start = 0; start < input.size();) {
    size_t end = input.find('\n', start);
    if (end == std::string_view::npos) end = input.size();
    const std::string_view line = input.substr(start, end - start);
    if (!Reaches(line)) {
      script.append(line).push_back('\n');
      ++lines;
    }
    start = end + 1;
  }
  std::istringstream in(script);
  std::ostringstream out;
  vmio::cli::RunShell(in, out);
  // At most one result line per script line, each ending in LF.
  const std::string results = out.str();
  if (static_cast<size_t>(std::count(results.begin(), results.end(), '\n')) > lines) std::abort();
  if (!results.empty() && results.back() != '\n') std::abort();
  return 0;
}
