#pragma once
// A simulated ADAM-6000 Ethernet I/O module: a Modbus/TCP server (libmodbus) holding the
// module's coil map, plus the UDP responder of its ASCII command protocol.
//
// Coils: digital input i is coil i (read-only), relay j is coil 16 + j; 32 coils in all, so a
// read past coil 31 gets exception 2 (illegal data address), and so does a write to anything
// but a relay. A real module answers the model query on UDP port 1025 of its own address; with
// no host given, the simulator takes the first loopback address (127.0.0.1, 127.0.0.2, ...)
// where both of its ports are free, so several can serve 1025 at once. The UDP side answers "$01M" CR with "!01" +
// model + CR. Both sides are served by one background thread; every accessor is safe to call while it runs.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "point_bank.h"

namespace vmio::sim {

// How the module answers the model query.
enum class AdamUdpMode {
  Answer,            // "!01" + model + CR
  Silent,            // no answer at all
  NoCarriageReturn,  // "!01" + model, without the CR
};

constexpr int kModelQueryPort = 1025;

struct AdamSimOptions {
  std::string model = "6050";  // any text; a model the module table lacks has no points
  std::string host = "";       // empty: a free loopback address
  int modbus_port = 0;         // 0 = ephemeral
  int udp_port = 0;            // 0 = ephemeral; kModelQueryPort where the driver asks
  AdamUdpMode udp_mode = AdamUdpMode::Answer;
};

class AdamSim {
 public:
  explicit AdamSim(AdamSimOptions options = {});
  ~AdamSim();  // stops
  AdamSim(const AdamSim&) = delete;
  AdamSim& operator=(const AdamSim&) = delete;

  // Binds both ports and serves; returns once they listen. Raises std::runtime_error when a
  // port cannot be bound.
  void Start();
  // Stops serving and closes every socket; returns promptly.
  void Stop();

  const std::string& Host() const;
  int ModbusPort() const;
  int UdpPort() const;
  // "HOST:PORT": what ADAM's Connect takes.
  std::string DeviceString() const;
  const std::string& Model() const;
  // The module's points by its model (0 and 0 for a model the table lacks).
  int DigitalInputs() const;
  int DigitalOutputs() const;

  // Digital input N is coil N - 1, relay (output) N coil 15 + N; both 1-based here.
  PointBank& Points();

  void SetUdpMode(AdamUdpMode mode);
  // Answers every request of the function with this exception code (1..11); 0 answers
  // normally again.
  void SetException(int function, int code);

  // Modbus requests received, of one function code and in all; model queries received.
  int RequestCount(int function) const;
  int RequestCount() const;
  int QueryCount() const;
  // TCP connections accepted so far.
  int ConnectionCount() const;
  // The raw frames of the most recent requests (up to 256), oldest first.
  std::vector<std::vector<uint8_t>> RequestLog() const;
  void ClearLog();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vmio::sim
