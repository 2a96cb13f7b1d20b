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
// Quirk kept: a wait that timed out leaves the request outstanding, so a late answer may
// satisfy the next read.
#include <cstdint>
#include <string>
#include <vector>

#include "devices/axxessid/ax200_device.h"

namespace vmio {

class AxxessIDDoor final : public AX200Device {
 public:
  // Every read asks the software: a door's mode is never cached.
  AxxessIDDoor() : AX200Device(IOBidirectional, ReadCaching::kNever) {}

  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;

 private:
  engine::Task<void> BuildPortTable() override;
  engine::Task<void> ReadGroup(int32_t Index) override;
  void DoorStatus() override;
  void Disconnected() override;

  std::vector<int16_t> DoorIDs;  // beside the ports, the doors' IDs
  bool WaitingForStatus = false;
};

}  // namespace vmio
