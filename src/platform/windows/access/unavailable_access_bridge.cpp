// The AX200 software's objects on Windows are not reached yet: the software counts as absent,
// so the AxxessID drivers' Connect fails with their own "The AX200 software is not found".
#include "access/access_bridge.h"

namespace vmio {
namespace {

class UnavailableAccessBridge final : public AccessBridge {
 public:
  bool Attach(const std::string&) override { return false; }
  void SetAddress(const std::string&) override {}
  AccessDoorList Doors(const std::string&, const std::string&) override { return {}; }
  std::optional<std::vector<AccessSensor>> Sensors() override { return std::nullopt; }
  void RequestStatus(const std::string&) override {}
  std::string Status() const override { return {}; }
  void Command(DoorCommand, const std::string&) override {}
  // No event of this bridge ever comes: the wait lets the thread's events run to the deadline.
  void WaitForEvents(WaitClock::time_point deadline) override { PumpingWait(kNoWaitHandle, deadline); }
};

}  // namespace

std::unique_ptr<AccessBridge> CreateAccessBridge(AccessEvents&) { return std::make_unique<UnavailableAccessBridge>(); }

}  // namespace vmio
