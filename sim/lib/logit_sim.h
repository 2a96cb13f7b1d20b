#pragma once
// Simulated LogIT loggers on a device tree of their own.
//
// The simulator lays out ROOT/sys/class/hidraw/hidrawN/device/uevent (with its HID_ID line)
// for each logger and each foreign HID device, and serves each device node ROOT/dev/hidrawN as
// a SOCK_SEQPACKET socket, one message per report; point VMIO_SYSFS_ROOT at ROOT and the
// library finds them as it finds real hidraw nodes.
//
// A logger streams an 8-byte input report every interval (as hidraw delivers it, without the
// report ID): its newest bytes right-aligned in bytes 0..6, the running byte counter in byte 7,
// the same report again when it has nothing new, at most 7 new bytes per report. It takes
// output reports (report ID, count byte, data bytes) as one command each and answers:
// 13 with 3 bytes ("OK\r"), 1 with the model byte, 2 with the 4-byte version text, 4 p with the
// sensor type and channel byte of socket p, 16 p c with socket p's 16-bit reading (high byte
// first), 20 m by setting the outputs (no answer). An output socket (sensor 136) reads 1 while
// its bit is set. After a second without a command the logger sleeps and ignores everything
// but 13, which wakes it. Every accessor is safe while the serving thread runs.
#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vmio::sim {

struct LogITSocket {
  uint8_t type = 0;  // sensor type code; 0: nothing plugged in
  uint8_t channel = 0;
  uint16_t reading = 0;
};

struct LogITLoggerOptions {
  uint16_t product_id = 0x0101;
  uint8_t model = 48;            // Black Box
  std::string version = "1.05";  // 4 bytes are sent, padded with NULs
  // Temperature (25 degC by the example table), a relay, light (1000 lux).
  std::array<LogITSocket, 3> sockets{LogITSocket{17, 1, 0x4000}, LogITSocket{136, 2, 0}, LogITSocket{42, 3, 26208}};
  int node = -1;  // N of hidrawN; -1: the next free number
};

struct ForeignHidOptions {
  uint16_t vendor_id = 0x046D;
  uint16_t product_id = 0xC52B;
  bool readable_id = true;  // false: its uevent has no HID_ID line
  int node = -1;
};

struct LogITSimOptions {
  std::string root;  // empty: a new temporary directory, removed again at the end
  std::vector<LogITLoggerOptions> loggers{1};
  std::vector<ForeignHidOptions> foreign;
  int report_interval_ms = 10;
  int sleep_after_ms = 1000;
};

// One command the logger received: the data bytes of one output report, and when.
struct LogITCommand {
  std::vector<uint8_t> bytes;
  std::chrono::steady_clock::time_point at;
};

class LogITSim {
 public:
  // Lays out the tree, binds the nodes and starts serving; std::runtime_error on failure.
  explicit LogITSim(LogITSimOptions options = {});
  ~LogITSim();  // stops and removes what it created
  LogITSim(const LogITSim&) = delete;
  LogITSim& operator=(const LogITSim&) = delete;

  const std::string& Root() const;  // the value for VMIO_SYSFS_ROOT
  // ROOT/dev/hidrawN of logger k (0-based), what LogIT's Connect takes.
  std::string DevicePath(size_t k) const;
  size_t Loggers() const;

  void SetReading(size_t k, int socket, uint16_t raw);
  void SetSensor(size_t k, int socket, uint8_t type, uint8_t channel);
  void SetModel(size_t k, uint8_t model);
  void SetVersion(size_t k, const std::string& version);
  // Faults: silent (takes commands, answers none), no streaming (sends no reports at all),
  // a dropped connection (closes every open link now; new ones are accepted), a counter that
  // jumps (the next report advances the counter by n, carrying filler bytes 0xEE), and an
  // unplugged logger (its node disappears; its tree entry stays).
  void SetSilent(size_t k, bool silent);
  void SetStreaming(size_t k, bool streaming);
  void DropConnections(size_t k);
  void JumpCounter(size_t k, int n);
  void Unplug(size_t k);

  uint8_t Outputs(size_t k) const;  // the last output mask
  bool Asleep(size_t k) const;
  std::vector<LogITCommand> Commands(size_t k) const;
  void ClearCommands(size_t k);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vmio::sim
