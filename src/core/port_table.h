#pragma once
// The port table most drivers share, and the accessors that answer from it.
//
// A driver derives from PortTableDevice, fills the table in Connect (ResizePorts, then the
// directions) and states only where it differs from the shared accessors:
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
  void Disconnect() override;
  int32_t Ports() override;
  int32_t PortDirection(int32_t Index) override;
  int32_t PortType(int32_t Index) override;

 protected:
  // The most ports a table takes; a device that claims more is refused before the table is
  // allocated (and before a refresh names every one of them in a request).
  static constexpr int32_t kMaxPorts = 65536;

  // Sizes the table to count ports: directions 0, values false. A count read from a device
  // that the table cannot take fails the Connect that asked: Connected is cleared, the table
  // is left as it was, and 9 (negative), 6 (beyond 32 bits) or 7 (above kMaxPorts) is raised.
  void ResizePorts(int64_t count);
  // Raises 9 unless 0 <= Index < PortCount.
  void CheckIndex(int32_t Index) const;
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
