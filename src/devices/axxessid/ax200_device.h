#pragma once
// What the AxxessID drivers share: the bridge to the AX200 software on this computer, attaching
// to it, and ports that are the software's named points (doors, sensors), all strings of one
// direction. PortDirection, PortType and PortName check only the index, never the connection;
// Disconnect clears only the connected flag and the software stays attached.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "access/access_bridge.h"
#include "devices/common/port_table_device.h"

namespace vmio {

class AX200Device : public PortTableDevice, protected AccessEvents {
 public:
  // A host's blocking reads and writes: their waits for the software let the thread's events
  // run (the pumping wait), where the engine's suspend on its loop.
  Variant PortValue(int32_t Index) override;
  void PortValue(int32_t Index, const Variant& NewValue) override;

 protected:
  AX200Device(IOPortDirection direction, ReadCaching caching);

  // Connect's opening: hands the software the device string, then this computer's first IPv4
  // address (empty when it has none), so that the software's objects attach here. Raises 45001
  // "The AX200 software is not found", with Connected cleared, when the software is absent.
  void Attach(const std::string& Device);
  // The ports become the software's points, in its order: text ports of this driver's direction.
  void SetPoints(const std::vector<std::string>& names);

  std::unique_ptr<AccessBridge> bridge_;
  bool blocking_ = false;  // the exchange under way is a host's blocking call

 private:
  const IOPortDirection direction_;
};

}  // namespace vmio
