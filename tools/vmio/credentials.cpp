#include "credentials.h"

#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "device_commands.h"
#include "vmio/device_string.h"

namespace vmio::cli {
namespace {

// A line without its line end (LF or CR LF); nothing at the end of the input.
std::optional<std::string> FirstLine(std::istream& in) {
  std::string line;
  if (!std::getline(in, line)) return std::nullopt;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

// Terminal echo off while it lives (the typed password stays off the screen), back on after.
class NoEcho {
 public:
  NoEcho() : saved_ok_(tcgetattr(STDIN_FILENO, &saved_) == 0) {
    if (!saved_ok_) return;
    termios quiet = saved_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  ~NoEcho() {
    if (saved_ok_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
  }
  NoEcho(const NoEcho&) = delete;
  NoEcho& operator=(const NoEcho&) = delete;

 private:
  termios saved_{};
  bool saved_ok_;
};

std::optional<std::string> AskOnTerminal(std::istream& in) {
  if (in.rdbuf() != std::cin.rdbuf() || !isatty(STDIN_FILENO)) return std::nullopt;
  std::cerr << "Password: " << std::flush;
  std::optional<std::string> password;
  {
    const NoEcho quiet;
    password = FirstLine(in);
  }
  std::cerr << std::endl;  // the Enter that was not echoed
  return password;
}

std::string ReadPassword(const std::optional<std::string>& password_file, std::istream& in) {
  if (password_file == "-") {
    if (std::optional<std::string> line = FirstLine(in)) return *line;
    throw UsageError("--password-file -: no password on standard input");
  }
  if (password_file) {
    std::ifstream file(*password_file);
    if (std::optional<std::string> line = file ? FirstLine(file) : std::nullopt) return *line;
    throw UsageError("cannot read --password-file '" + *password_file + "'");
  }
  if (const char* from_environment = std::getenv("VMIO_PASSWORD")) return from_environment;
  if (std::optional<std::string> typed = AskOnTerminal(in)) return *typed;
  throw UsageError(
      "--user needs a password: --password-file FILE, --password-file - (standard input) or VMIO_PASSWORD");
}

}  // namespace

std::string MaskCredentials(std::string_view device) { return MaskDeviceString(device); }

std::string RedactCredentials(std::string_view text, std::string_view device) {
  const DeviceString parts = SplitDeviceString(device);
  std::string out(text);
  if (!parts.password) return out;
  const std::string user_info = *parts.user + ":" + *parts.password;
  const std::string masked = *parts.user + ":***";
  for (size_t pos = 0; (pos = out.find(user_info, pos)) != std::string::npos; pos += masked.size()) {
    out.replace(pos, user_info.size(), masked);
  }
  return out;
}

std::string WithCredentials(std::string_view device, const std::string& user,
                            const std::optional<std::string>& password_file, std::istream& in) {
  DeviceString parts = SplitDeviceString(device);
  if (parts.user) throw UsageError("give credentials in DEVICE or with --user, not both");
  if (user.find(':') != std::string::npos) throw UsageError("a user name cannot hold ':'");
  parts.user = user;
  parts.password = ReadPassword(password_file, in);
  return JoinDeviceString(parts);
}

}  // namespace vmio::cli
