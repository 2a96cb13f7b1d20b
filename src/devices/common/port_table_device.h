#pragma once
// The port table most drivers share, and the accessors that answer from it.
//
// A driver derives from PortTableDevice, fills the table in BuildPortTable (ResizePorts, then
// the directions) and states only where it differs from the shared accessors:
//   Connect        Host = Device; unconnected until BuildPortTable returns, so a Connect that
//                  fails at any step leaves Connected false when its error is raised
//   Ports          45003 "Not connected" unless connected, else PortCount
//   PortDirection  9 outside 0..PortCount-1, else the stored direction (no connection test)
//   PortType       9 outside the table, else 11 (Boolean) (no connection test)
//   Disconnect     Connected = false, Host = ""; nothing is sent, the table is kept
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vmio/io_device.h"

namespace vmio {

class PortTableDevice : public IODevice {
 public:
  void Connect(const std::string& Device) override;
  void Disconnect() override;
  int32_t Ports() override;
  int32_t PortDirection(int32_t Index) override;
  int32_t PortType(int32_t Index) override;

 protected:
  // Asks the device for its layout and fills the table; raises when it cannot. A driver that
  // must stay connected past one of its steps sets Connected itself.
  virtual void BuildPortTable() = 0;

  // The most ports a table takes; a device that claims more is refused before the table is
  // allocated (and before a refresh names every one of them in a request).
  static constexpr int32_t kMaxPorts = 65536;

  // Sizes the table to count ports: directions 0, values false. A count read from a device
  // that the table cannot take fails the Connect that asked: the table is left as it was, and
  // 9 (negative), 6 (beyond 32 bits) or 7 (above kMaxPorts) is raised.
  void ResizePorts(int64_t count);
  // Inputs first: ports below inputs get IOInput, the rest IOBidirectional (read back).
  void FillDirections(int32_t inputs);
  // Raises 9 unless 0 <= Index < PortCount. PortDirection and PortType ask it first.
  virtual void CheckIndex(int32_t Index);
  // The cached state; 9 outside the value array.
  bool Value(int32_t Index) const;
  void SetValue(int32_t Index, bool state);

  // The common opening of a write: 45003 when not connected; the direction (9 for a bad
  // index); 45004 for an input; 13 for a value that is not Boolean. Returns the state to send,
  // or nothing when the port is neither an input nor a read-back output (the write is a no-op).
  std::optional<bool> BeginOutputWrite(int32_t Index, const Variant& NewValue);

  bool Connected = false;
  std::string Host;
  int32_t PortCount = 0;
  std::vector<int32_t> PortDirections;
  std::vector<bool> PortValues;
};

}  // namespace vmio
