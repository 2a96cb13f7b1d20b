#pragma once
// LogIT: a LogIT data logger on USB, one port per sensor socket.
//
// The logger speaks one-byte commands over its HID reports (see logit_usb.h): 13 (attention),
// 1 (model; also the keep-alive), 4 p (sensor type and channel byte of socket p), 16 p c (a
// 16-bit reading, high byte first), 20 m (outputs: bit p for socket p). Ports are named after
// the sensor plugged in, from "LogIT Sensors.txt" (logit_calibration.h), and readings are
// converted by the sensor's table.
//
// Device quirks kept on purpose:
// - Only the Black Box family (model byte 48..55, 3 sockets) connects. A Connect refused for
//   its model leaves the device open and Connected with 0 ports: call Disconnect.
// - The logger sleeps after a second without commands. While connected a 750 ms timer sends
//   the model query (it runs only when the host lets events run); any command sent after
//   1000 ms or more of silence is preceded by a carriage return and its 3-byte answer.
// - PortType is 11 only for on/off sensors (table "OffOn" or "OnOff"); numeric sensors say 8
//   although PortValue returns a double; sensors without a table return the raw reading.
// - Only code 136 is an output (IOBidirectional). Outputs are not remembered: writing True
//   to one port switches every other off, writing False switches all off.
// - PortName answers from the last connection's sensors without a connection check.
// - Device paths are the IDs LogITEnum lists ("/dev/hidraw0" on Linux).
//
// The keep-alive timer holds the object weakly, so a host that drops the object while it is
// connected ends it (and its timer) rather than leaving it alive inside the timer.
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "devices/common/port_table_device.h"
#include "devices/logit/logit_usb.h"
#include "vmio/callbackable.h"

namespace vmio {

class LogIT final : public PortTableDevice, public Callbackable {
 public:
  // Loads the sensor table; its errors (457, 9, 13) fail the creation.
  LogIT();
  ~LogIT() override;
  LogIT(const LogIT&) = delete;
  LogIT& operator=(const LogIT&) = delete;

  void Disconnect() override;
  // Names and types come from the thread's sensor table as it is at the call (a host may load
  // another); the name without a connection test, from the last connection's sensors.
  int32_t PortType(int32_t Index) override;
  std::string PortName(int32_t Index) override;
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;

  // The keep-alive: the model query, its answer discarded.
  void Callback() override;

  // The interface's members, then Callback.
  static const MemberTable kMembers;
  const MemberTable& Members() const override { return kMembers; }

 private:
  static constexpr int32_t kKeepAliveInterval = 750;  // ms
  static constexpr int32_t kIdleWakeUp = 1000;        // ms without a command

  engine::Task<void> BuildPortTable() override;
  // Each read asks the logger for one port's reading (9 outside the last connection's table).
  int32_t GroupOf(int32_t Index) override {
    At(Index);
    return Index;
  }
  engine::Task<void> ReadGroup(int32_t Index) override;
  // Through Ports, so an unconnected object answers 45003 before 9.
  void CheckIndex(int32_t Index) override;
  bool SendCommand(std::initializer_list<int32_t> bytes);
  std::vector<uint8_t> ReceiveBytes(int32_t Count, int32_t Timeout);
  void StopKeepAlive();

  LogITUSB usb_;
  std::vector<uint8_t> sensor_type_;     // beside the ports: each sensor's type code
  std::vector<uint8_t> sensor_channel_;  // and its channel byte
  int32_t timer_id_ = 0;
  int32_t last_command_tick_ = 0;
};

// The port name for a sensor type code: fixed names for 0 and 250..255, otherwise the
// sensor table's name, or "Port type " + the code.
std::string GetSensorName(uint8_t SensorType);

}  // namespace vmio
