#include "serve.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <iostream>

namespace vmio::sim::cli {
namespace {

std::atomic<bool> g_stop{false};
void OnSignal(int) { g_stop = true; }

}  // namespace

int ServeUntilStopped(const std::string& device, const std::function<std::string(const std::string& line)>& control) {
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
