#include "serve.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <cstdio>
#include <iostream>

namespace vmio::sim::cli {
namespace {

std::atomic<bool> g_stop{false};
void OnSignal(int) { g_stop = true; }

}  // namespace

std::optional<int> ReadOptions(std::string_view make, std::string_view help, std::string_view usage,
                               const std::vector<std::string>& args, const OptionReader& read_option) {
  try {
    for (size_t i = 0; i < args.size(); ++i) {
      if (args[i] == "--help" || args[i] == "-h") {
        std::cout << help;
        return 0;
      }
      if (!read_option(args, i)) throw BadArgument(args[i]);
    }
  } catch (const std::exception& e) {
    return BadCommandLine(make, e.what(), usage);
  }
  return std::nullopt;
}

int BadCommandLine(std::string_view make, std::string_view message, std::string_view usage) {
  std::cerr << "vmio-sim " << make << ": " << message << "\n" << usage;
  return 2;
}

std::invalid_argument BadArgument(const std::string& text) {
  return std::invalid_argument("bad argument '" + text + "'");
}

const std::string& TakeValue(const std::vector<std::string>& args, size_t& i) {
  if (i + 1 >= args.size()) throw BadArgument(args[i]);
  return args[++i];
}

int ParseCount(const std::string& text) {
  int n = 0;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, n);
  if (text.empty() || ec != std::errc() || ptr != end || n < 0) throw BadArgument(text);
  return n;
}

void ParseListen(const std::string& value, std::string& host, int& port) {
  const size_t colon = value.rfind(':');
  int n = -1;
  if (colon != std::string::npos) {
    const char* end = value.data() + value.size();
    const auto [ptr, ec] = std::from_chars(value.data() + colon + 1, end, n);
    if (ec != std::errc() || ptr != end) n = -1;
  }
  if (n < 0 || n > 65535) throw std::invalid_argument("--listen wants HOST:PORT, not '" + value + "'");
  host = value.substr(0, colon);
  port = n;
}

int StartAndServe(std::string_view make, const std::function<std::string()>& start, const LineControl& control) {
  std::string device;
  try {
    device = start();
  } catch (const std::exception& e) {
    std::cerr << "vmio-sim " << make << ": " << e.what() << "\n";
    return 1;
  }
  return ServeUntilStopped(device, control);
}

int ServeUntilStopped(const std::string& device, const LineControl& control) {
  struct sigaction sa {};
  sa.sa_handler = OnSignal;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  std::cout << "device: " << device << std::endl;
  bool stdin_open = true;
  std::string pending;
  while (!g_stop) {
    pollfd pfd{STDIN_FILENO, POLLIN, 0};
    if (!stdin_open || poll(&pfd, 1, 200) <= 0) {
      if (!stdin_open) usleep(200 * 1000);
      continue;
    }
    char buf[512];
    const ssize_t n = read(STDIN_FILENO, buf, sizeof buf);
    if (n <= 0) {
      stdin_open = false;
      continue;
    }
    pending.append(buf, static_cast<size_t>(n));
    for (size_t nl; (nl = pending.find('\n')) != std::string::npos;) {
      std::string line = pending.substr(0, nl);
      pending.erase(0, nl + 1);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.empty()) continue;
      const std::string answer = control(line);
      if (!answer.empty()) std::cout << answer << std::endl;
    }
  }
  return 0;
}

}  // namespace vmio::sim::cli
