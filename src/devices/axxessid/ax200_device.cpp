#include "devices/axxessid/ax200_device.h"

#include <utility>

#include "core/errors.h"
#include "net/local_addresses.h"

namespace vmio {

AX200Device::AX200Device(IOPortDirection direction, ReadCaching caching)
    : PortTableDevice(caching), bridge_(CreateAccessBridge(*this)), direction_(direction) {}

Variant AX200Device::PortValue(int32_t Index) {
  const bool outer = std::exchange(blocking_, true);
  try {
    Variant value = PortTableDevice::PortValue(Index);
    blocking_ = outer;
    return value;
  } catch (...) {
    blocking_ = outer;
    throw;
  }
}

void AX200Device::PortValue(int32_t Index, const Variant& NewValue) {
  const bool outer = std::exchange(blocking_, true);
  try {
    PortTableDevice::PortValue(Index, NewValue);
  } catch (...) {
    blocking_ = outer;
    throw;
  }
  blocking_ = outer;
}

void AX200Device::Attach(const std::string& Device) {
  // A NUL would cut the string on its way to the software: it counts as not found.
  Connected = Device.find('\0') == std::string::npos && bridge_->Attach(Device);
  std::vector<std::string> addresses;
  GetLocalIPs(addresses);
  bridge_->SetAddress(addresses.empty() ? std::string() : addresses.front());
  if (!Connected) Raise(IOErrorConnectionFailed, "The AX200 software is not found");
}

void AX200Device::SetPoints(const std::vector<std::string>& names) {
  // As many as the software lists: its points are not a device's claim to be bounded.
  PortTable.clear();
  for (const std::string& name : names) PortTable.push_back(Port{direction_, vtString, name, Variant(std::string())});
  PortCount = static_cast<int32_t>(PortTable.size());
}

}  // namespace vmio
