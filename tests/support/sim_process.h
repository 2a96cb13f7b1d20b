#pragma once
// Simulators in a child process, so their threads and sockets are not the test's own: a test
// that counts this process's threads or descriptors sees only what the library holds.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace vmio::test {

class SimProcess {
 public:
  // serve runs in the child: it starts the simulators (they live until the child is ended)
  // and returns one line telling where they are, which Where() gives here.
  explicit SimProcess(const std::function<std::string()>& serve) {
    int fds[2];
    if (pipe(fds) != 0) throw std::runtime_error("pipe");
    pid_ = fork();
    if (pid_ == 0) {
      close(fds[0]);
      const std::string where = serve() + "\n";
      if (write(fds[1], where.data(), where.size()) != static_cast<ssize_t>(where.size())) _exit(1);
      for (;;) pause();  // until the test ends it
    }
    close(fds[1]);
    char c;
    while (read(fds[0], &c, 1) == 1 && c != '\n') where_ += c;
    close(fds[0]);
  }
  ~SimProcess() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;

  const std::string& Where() const { return where_; }

 private:
  pid_t pid_ = -1;
  std::string where_;
};

}  // namespace vmio::test
