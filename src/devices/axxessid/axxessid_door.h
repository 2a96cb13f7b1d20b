#pragma once
// AxxessIDDoor: the doors of an AxxessID access-control installation, one string port each.
//
// The driver never touches door hardware: it drives the AX200 software on this computer
// through the access bridge. Connect hands the software the device string (passed through
// unchanged) and this computer's first IPv4 address, then loads the door list asked with "Y"
// and "". A list the software calls not valid gives a connected driver with 0 ports.
//
// Reading a door asks for its status and waits up to 2000 ms for the answer event, letting
// the thread's pending events (timers) run meanwhile; nothing guards against re-entry from
// them. Modes read as "Unlocked", "Normal", "Secure", "Locked" (an unknown mode: empty).
// Writing "Open", "Unlocked", "Normal", "Secure" or "Locked" (exactly, case-sensitive) sends
// that command and does not wait for its outcome; any other value is ignored.
//
// Quirks kept: PortDirection, PortType and PortName check only the index, never the
// connection. Disconnect clears only the connected flag; the software stays attached. A wait
// that timed out leaves the request outstanding, so a late answer may satisfy the next read.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "access/access_bridge.h"
#include "vmio/io_device.h"

namespace vmio {

class AxxessIDDoor final : public IODevice, private AccessEvents {
 public:
  AxxessIDDoor();
  ~AxxessIDDoor() override;

  void Connect(const std::string& Device) override;
  void Disconnect() override;
  int32_t Ports() override;
  int32_t PortDirection(int32_t Index) override;
  int32_t PortType(int32_t Index) override;
  std::string PortName(int32_t Index) override;
  Variant PortValue(int32_t Index) override;
  void PortValue(int32_t Index, const Variant& NewValue) override;

 private:
  void DoorStatus() override;
  void Disconnected() override;
  void CheckIndex(int32_t Index) const;

  bool Connected = false;
  std::vector<int16_t> DoorIDs;
  std::vector<std::string> DoorNames;
  bool WaitingForStatus = false;
  std::unique_ptr<AccessBridge> door_con_;
};

}  // namespace vmio
