// The self-pipe: a signal handler may only write, so it writes a byte where the wait looks.
#include "interrupt.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace vmio::cli {
namespace {

int g_pipe[2] = {-1, -1};
decltype(SIG_DFL) g_previous = SIG_DFL;

// A second Ctrl-C, while a slow device holds up the end of the watch, ends the program.
extern "C" void OnInterrupt(int) {
  const int saved = errno;
  [[maybe_unused]] const ssize_t n = write(g_pipe[1], "!", 1);  // a full pipe is ready already
  std::signal(SIGINT, SIG_DFL);
  errno = saved;
}

}  // namespace

InterruptWatch::InterruptWatch() {
  if (pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) return;  // then Ctrl-C ends the program as usual
  g_previous = std::signal(SIGINT, OnInterrupt);
}

InterruptWatch::~InterruptWatch() {
  if (g_pipe[0] < 0) return;
  std::signal(SIGINT, g_previous);
  for (int& fd : g_pipe) {
    close(fd);
    fd = -1;
  }
}

WaitHandle InterruptWatch::Handle() const { return g_pipe[0] < 0 ? kNoWaitHandle : g_pipe[0]; }

}  // namespace vmio::cli
