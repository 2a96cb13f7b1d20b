#include "log.h"

#include <cstdio>
#include <string>

namespace vmio::gateway {
namespace {

constexpr std::string_view kNames[] = {"error", "warning", "info", "debug"};
LogLevel g_level = LogLevel::kInfo;

}  // namespace

bool ParseLogLevel(std::string_view word, LogLevel& level) {
  for (size_t i = 0; i < std::size(kNames); ++i) {
    if (kNames[i] == word) {
      level = static_cast<LogLevel>(i);
      return true;
    }
  }
  return false;
}

void SetLogLevel(LogLevel level) { g_level = level; }

void Log(LogLevel level, std::string_view message) {
  if (level > g_level) return;
  std::string line(kNames[static_cast<int>(level)]);
  line.append(": ").append(message).append("\n");
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

}  // namespace vmio::gateway
