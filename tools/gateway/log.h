#pragma once
// One line per event on standard error ("info: front-camera: online"); the service manager
// adds the time. The level comes from the configuration.
#include <string_view>

namespace vmio::gateway {

enum class LogLevel { kError = 0, kWarning = 1, kInfo = 2, kDebug = 3 };

// "error", "warning", "info" or "debug"; nothing for another word.
bool ParseLogLevel(std::string_view word, LogLevel& level);
void SetLogLevel(LogLevel level);
void Log(LogLevel level, std::string_view message);

}  // namespace vmio::gateway
