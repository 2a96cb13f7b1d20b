#pragma once
// ADAM: the driver for ADAM-6000 Ethernet I/O modules.
//
// Device quirks: the points are read and switched over Modbus/TCP (unit 1; inputs are coils
// from 0, relay j is coil 16 + j), but the module's model, and with it the number of points,
// is only known from its ASCII command protocol over UDP port 1025 ("$01M" CR, answered by
// three marker characters, the model and a CR). Analogue channels are counted, never ported.
// One 32-coil read serves every port for 500 ms, and only its first byte is consulted for
// inputs, so inputs 8 and above (6050, 6051) always read false.
//
// Device string: a dotted IPv4 address, optionally followed by ":" and a port (default 502).
// Connect fails with 45001 "Connection failed" (the Modbus connect), "Unrecognised device"
// (the probe read), "Failed to open a UDP port" / "Failed to get the model number" (the
// model query), "Unsupported model number", or run-time error 5 when the model reply has no
// CR (as after 5 s of silence). A failure after the Modbus connect leaves Connected true and
// the port table as it was. A process out of descriptors gets 67 "Too many files" instead of
// "Connection failed" or "Failed to open a UDP port": the device is not at fault. Reads and writes pass the client's
// 46002-46005 through.
#include <cstdint>
#include <span>
#include <string>

#include "devices/common/port_table_device.h"
#include "net/modbus_t.h"

namespace vmio {

inline constexpr uint16_t kAdamModbusPort = 502;
inline constexpr uint16_t kAdamQueryPort = 1025;

// The model in the answer to "$01M" CR: the text between the three marker characters and
// the first CR. Raises 5 when there is no CR after the marker.
std::string AdamModelFromAnswer(std::span<const uint8_t> answer);

class ADAM : public PortTableDevice {
 public:
  // modelQueryPort: where the UDP model query goes; only tests move it off 1025.
  explicit ADAM(uint16_t modelQueryPort = kAdamQueryPort);
  ~ADAM() override;

  void Disconnect() override;
  std::string PortName(int32_t Index) override;
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;

 private:
  engine::Task<void> BuildPortTable() override;
  engine::Task<std::string> GetModelNumber(engine::Io& io, std::string HostName);
  // One coil read serves every port; the index is checked only when the table answers.
  int32_t GroupOf(int32_t) override { return 0; }
  engine::Task<void> ReadGroup(int32_t Group) override;

  ModbusT Modbus;
  std::string Model;
  int32_t DigitalInputs = 0;
  int32_t AnalogInputs = 0;
  int32_t DigitalOutputs = 0;
  int32_t AnalogOutputs = 0;
  uint16_t query_port_;
};

}  // namespace vmio
