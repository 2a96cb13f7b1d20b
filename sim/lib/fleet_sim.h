#pragma once
// Many simulated devices in one process, all served by one thread, for hosts and benchmarks
// that watch a whole site: Axis cameras and ADAM modules side by side, some of them dead.
//
// Each device has a loopback address of its own (counting up from a base such as 127.20.0.1),
// so every ADAM module can answer its model query on UDP port 1025 of its address, as a real
// one does. Cameras answer the same CGIs as `vmio-sim axis` (the Axis simulator's own
// handler, without credentials); modules the Modbus/TCP coils of `vmio-sim adam` (libmodbus
// builds the replies). A dead device is dead in one of two ways:
//   Silent       accepts connections and reads requests, never answers (not the model query
//                either), as a hung device does;
//   Unaccepting  its listener's backlog is full, so a connect never completes, as a device
//                whose stack is wedged (or a firewall that drops the SYN).
// One epoll loop serves them all: thousands of devices cost a few descriptors each and no
// threads. Replies can be held back a fixed time to stand in for slower devices.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vmio::sim {

enum class FleetMake { Axis, Adam };
enum class FleetHealth { Live, Silent, Unaccepting };

struct FleetOptions {
  int devices = 10;
  int adam = 0;                     // how many of them are ADAM modules (spread evenly), the rest cameras
  int silent = 0;                   // dead devices that accept and never answer (spread evenly)
  int unaccepting = 0;              // dead devices that never accept
  std::string base = "127.20.0.1";  // the first device's address; the others count up from it
  int reply_delay_ms = 0;           // every answer is held back this long
  int camera_inputs = 4;
  int camera_outputs = 2;
};

struct FleetDevice {
  FleetMake make;
  FleetHealth health;
  std::string progid;  // "VMIO.Axis" or "VMIO.ADAM"
  std::string device;  // what the driver's Connect takes
};

class FleetSim {
 public:
  explicit FleetSim(FleetOptions options);
  ~FleetSim();  // stops
  FleetSim(const FleetSim&) = delete;
  FleetSim& operator=(const FleetSim&) = delete;

  // Raises the descriptor limit as far as allowed, binds every device and serves on one
  // background thread; returns once all listen. Raises std::runtime_error when an address or
  // port cannot be bound or descriptors run out.
  void Start();
  void Stop();

  const std::vector<FleetDevice>& Devices() const;
  // Sets input number (1-based) of device index (0-based): a camera input or a module's
  // digital input. Safe while serving. std::out_of_range for a point the device lacks.
  void SetInput(int device, int input, bool on);
  int Input(int device, int input) const;
  // Output number (1-based) as the device holds it (a camera output or a module's relay).
  int Output(int device, int output) const;

  // Requests answered or held (HTTP requests, Modbus frames and model queries), and TCP
  // connections accepted, over the whole fleet.
  int64_t RequestCount() const;
  int64_t ConnectionCount() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// The fleet as a host's device list: one "CLASS DEVICE" line per device (dead ones too), the
// form `vmio watch --devices FILE` reads.
std::string FleetDeviceList(const std::vector<FleetDevice>& devices);

}  // namespace vmio::sim
