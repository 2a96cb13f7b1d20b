#include "demo.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

extern char** environ;

namespace vmio::cli {
namespace {

std::string SimulatorProgram() {
  if (const char* named = std::getenv("VMIO_SIM"); named && *named) return named;
  std::error_code ec;
  const auto beside = std::filesystem::canonical("/proc/self/exe", ec).parent_path() / "vmio-sim";
  if (!ec && access(beside.c_str(), X_OK) == 0) return beside.string();
  return "vmio-sim";  // through PATH
}

}  // namespace

int RunSimulatorDemo(std::ostream& out) {
  const std::string program = SimulatorProgram();
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], STDOUT_FILENO);
  std::string demo = "demo";
  char* argv[] = {const_cast<char*>(program.c_str()), demo.data(), nullptr};
  pid_t child = 0;
  const int spawned = posix_spawnp(&child, program.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_fds[1]);
  if (spawned != 0) {
    close(pipe_fds[0]);
    throw std::runtime_error("cannot run " + program + ": " + std::strerror(spawned) +
                             " (install vmio-sim, or name it in VMIO_SIM)");
  }
  char buffer[4096];
  for (ssize_t n; (n = read(pipe_fds[0], buffer, sizeof buffer)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    out.write(buffer, n).flush();
  }
  close(pipe_fds[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status)) throw std::runtime_error(program + " demo did not finish");
  return WEXITSTATUS(status);
}

}  // namespace vmio::cli
