// HID on Linux: interfaces from sysfs, reports through hidraw nodes.
//
// The tree's root is "/" unless VMIO_SYSFS_ROOT names another, so a simulator can lay out a
// tree of its own. A device node may also be a Unix SOCK_SEQPACKET socket standing in for a
// hidraw node: one message is one report, read and written like the node's.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "hid/hid_device.h"

namespace vmio {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Input reports held while nobody reads: the newest this many, as the Windows HID class driver
// keeps them. Older ones are dropped, so a reader that pauses (a settle after a command) finds
// recent reports first, never ones from before its pause.
constexpr size_t kInputBuffers = 32;
// A write to a device that takes no more reports fails after this long.
constexpr int kWriteWaitMs = 1000;

fs::path Root() {
  const char* root = std::getenv("VMIO_SYSFS_ROOT");
  return root && *root ? fs::path(root) : fs::path("/");
}

// "hidraw2" before "hidraw10": digit runs compare by their value.
bool NaturalLess(const std::string& a, const std::string& b) {
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (std::isdigit(static_cast<unsigned char>(a[i])) && std::isdigit(static_cast<unsigned char>(b[j]))) {
      const size_t i0 = i, j0 = j;
      while (i < a.size() && std::isdigit(static_cast<unsigned char>(a[i]))) ++i;
      while (j < b.size() && std::isdigit(static_cast<unsigned char>(b[j]))) ++j;
      std::string_view da(a.data() + i0, i - i0), db(b.data() + j0, j - j0);
      while (da.size() > 1 && da.front() == '0') da.remove_prefix(1);
      while (db.size() > 1 && db.front() == '0') db.remove_prefix(1);
      if (da.size() != db.size()) return da.size() < db.size();
      if (da != db) return da < db;
      continue;
    }
    if (a[i] != b[j]) return a[i] < b[j];
    ++i;
    ++j;
  }
  return a.size() - i < b.size() - j;
}

// The vendor and product of a uevent's "HID_ID=BBBB:VVVVVVVV:PPPPPPPP" line.
bool ReadHidId(const fs::path& uevent, HidInterfaceInfo& info) {
  std::ifstream in(uevent);
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with("HID_ID=")) continue;
    unsigned bus = 0;
    unsigned long vendor = 0, product = 0;
    char end = 0;
    if (std::sscanf(line.c_str() + 7, "%x:%lx:%lx%c", &bus, &vendor, &product, &end) != 3) return false;
    if (vendor > 0xFFFF || product > 0xFFFF) return false;
    info.vendor_id = static_cast<uint16_t>(vendor);
    info.product_id = static_cast<uint16_t>(product);
    return true;
  }
  return false;
}

int OpenSocket(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) return -1;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

int WaitMs(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 1 << 30));
}

class HidrawDevice final : public HidDevice {
 public:
  HidrawDevice(int fd, bool socket) : fd_(fd), socket_(socket) {}
  ~HidrawDevice() override { close(fd_); }

  bool Write(const HidReport& report) override {
    const auto deadline = Clock::now() + std::chrono::milliseconds(kWriteWaitMs);
    for (;;) {
      // A socket whose peer has gone must fail the write, not raise SIGPIPE.
      const ssize_t n =
          socket_ ? send(fd_, report.data(), report.size(), MSG_NOSIGNAL) : write(fd_, report.data(), report.size());
      if (n == static_cast<ssize_t>(report.size())) return true;
      if (n >= 0 || (errno != EAGAIN && errno != EINTR)) return false;
      pollfd pfd{fd_, POLLOUT, 0};
      if (errno == EAGAIN && poll(&pfd, 1, WaitMs(deadline)) == 0) return false;
      if (Clock::now() >= deadline) return false;
    }
  }

  bool Read(HidReport& report, int32_t timeout_ms) override {
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(timeout_ms, 0));
    TakeQueued();
    while (queue_.empty() && !gone_) {
      pollfd pfd{fd_, POLLIN, 0};
      const int ready = poll(&pfd, 1, WaitMs(deadline));
      if (ready < 0 && errno != EINTR) break;
      if (ready > 0) TakeQueued();
      if (Clock::now() >= deadline) break;
    }
    if (queue_.empty()) return false;
    report = queue_.front();
    queue_.pop_front();
    return true;
  }

 private:
  // Moves every report waiting at the descriptor (non-blocking) into the queue, keeping the
  // newest.
  void TakeQueued() {
    uint8_t buffer[64];
    for (;;) {
      const ssize_t n = read(fd_, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno == EAGAIN) return;
      if (n <= 0) {  // 0: the peer of a socket closed; otherwise the node is gone
        gone_ = true;
        return;
      }
      queue_.push_back(Normalised(buffer, static_cast<size_t>(n)));
      if (queue_.size() > kInputBuffers) queue_.pop_front();
    }
  }

  // A device without numbered reports delivers its 8 bytes without the report ID: put ID 0
  // in front. Nine bytes or more are taken as they stand.
  static HidReport Normalised(const uint8_t* bytes, size_t size) {
    HidReport report{};
    if (size >= report.size()) {
      std::copy_n(bytes, report.size(), report.begin());
    } else {
      std::copy_n(bytes, size, report.begin() + 1);
    }
    return report;
  }

  int fd_;
  bool socket_;
  bool gone_ = false;
  std::deque<HidReport> queue_;
};

}  // namespace

std::vector<HidInterfaceInfo> ListHidInterfaces() {
  const fs::path root = Root();
  std::error_code ec;
  std::vector<std::string> entries;
  for (const auto& entry : fs::directory_iterator(root / "sys/class/hidraw", ec)) {
    entries.push_back(entry.path().filename().string());
  }
  std::sort(entries.begin(), entries.end(), NaturalLess);
  std::vector<HidInterfaceInfo> found;
  for (const std::string& name : entries) {
    HidInterfaceInfo info;
    if (!ReadHidId(root / "sys/class/hidraw" / name / "device/uevent", info)) continue;
    info.path = (root / "dev" / name).string();
    found.push_back(std::move(info));
  }
  return found;
}

std::unique_ptr<HidDevice> OpenHidDevice(const std::string& path) {
  struct stat st {};
  if (path.empty() || stat(path.c_str(), &st) != 0) return nullptr;
  int fd = -1;
  if (S_ISSOCK(st.st_mode)) {
    fd = OpenSocket(path);
  } else if (S_ISCHR(st.st_mode)) {
    fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  }
  if (fd < 0) return nullptr;
  // Writes must not block without limit either.
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  return std::make_unique<HidrawDevice>(fd, S_ISSOCK(st.st_mode));
}

}  // namespace vmio
