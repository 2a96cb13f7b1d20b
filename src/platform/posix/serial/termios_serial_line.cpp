// The serial line on a POSIX terminal device: port N is /dev/ttyS(N-1); a path opens any
// terminal (/dev/ttyUSB0, a pseudo-terminal). Reads never block (VMIN = VTIME = 0); waiting
// is the pumping wait's job, on the terminal's descriptor.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>

#include "core/errors.h"
#include "serial/serial_line.h"

namespace vmio {
namespace {

// 9600 baud, 8 data bits, no parity, 1 stop bit, no flow control, and bytes passed as they
// are: no echo, no line editing, no CR/LF translation.
bool ApplyLineSettings(int fd) {
  termios tio{};
  if (tcgetattr(fd, &tio) != 0) return false;  // not a terminal
  tio.c_iflag &= ~(IGNBRK | BRKINT | PARMRK | ISTRIP | INPCK | INLCR | IGNCR | ICRNL | IXON | IXOFF | IXANY);
  tio.c_oflag &= ~OPOST;
  tio.c_lflag &= ~(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
  tio.c_cflag &= ~(CSIZE | PARENB | CSTOPB | CRTSCTS);
  tio.c_cflag |= CS8 | CREAD | CLOCAL;
  tio.c_cc[VMIN] = 0;
  tio.c_cc[VTIME] = 0;
  if (cfsetispeed(&tio, B9600) != 0 || cfsetospeed(&tio, B9600) != 0) return false;
  return tcsetattr(fd, TCSANOW, &tio) == 0;
}

class TermiosSerialLine final : public SerialLine {
 public:
  ~TermiosSerialLine() override { Close(); }

  void SetInputLen(int32_t bytes) override { input_len_ = bytes; }

  bool SetCommPort(int16_t number) override {
    if (number < 1 || PortOpen()) return false;
    path_ = "/dev/ttyS" + std::to_string(number - 1);
    return true;
  }

  void SetCommPath(std::string path) override { path_ = std::move(path); }

  bool SetPortOpen(bool open) override {
    if (!open) {
      Close();
      return true;
    }
    if (PortOpen() || path_.empty()) return false;
    const int fd = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    if (!ApplyLineSettings(fd)) {
      ::close(fd);
      return false;
    }
    ioctl(fd, TIOCEXCL);  // a COM port has one user at a time
    fd_ = fd;
    return true;
  }

  bool PortOpen() const override { return fd_ >= 0; }
  bool WatchableByLoop() const override { return true; }

  void Output(std::span<const uint8_t> bytes) override {
    while (PortOpen() && !bytes.empty()) {
      const ssize_t n = ::write(fd_, bytes.data(), bytes.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;  // the line takes no more now
      bytes = bytes.subspan(static_cast<size_t>(n));
    }
  }

  std::string Input() override {
    if (!PortOpen()) Raise(kSerialPortNotOpen, kSerialPortNotOpenText);
    const size_t limit = input_len_ > 0 ? static_cast<size_t>(input_len_) : std::numeric_limits<size_t>::max();
    std::string got;
    while (got.size() < limit) {
      char buf[256];
      const ssize_t n = ::read(fd_, buf, std::min(sizeof buf, limit - got.size()));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;  // nothing more has arrived
      got.append(buf, static_cast<size_t>(n));
    }
    return got;
  }

  WaitHandle ReadyHandle() const override {
    if (!PortOpen()) return kNoWaitHandle;
    // A hung-up terminal polls ready for ever while reads return nothing, as an empty one
    // does: waiting on it would spin.
    pollfd pfd{fd_, POLLIN, 0};
    if (::poll(&pfd, 1, 0) > 0 && (pfd.revents & (POLLHUP | POLLERR | POLLNVAL))) return kNoWaitHandle;
    return fd_;
  }

 private:
  void Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  int fd_ = -1;
  int32_t input_len_ = 0;
  std::string path_ = "/dev/ttyS0";  // port 1 until told otherwise
};

}  // namespace

std::unique_ptr<SerialLine> CreateSerialLine() { return std::make_unique<TermiosSerialLine>(); }

}  // namespace vmio
