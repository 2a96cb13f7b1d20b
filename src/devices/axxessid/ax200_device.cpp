#include "devices/axxessid/ax200_device.h"

#include "core/errors.h"
#include "net/local_addresses.h"

namespace vmio {

AX200Device::AX200Device(IOPortDirection direction) : bridge_(CreateAccessBridge(*this)), direction_(direction) {}

void AX200Device::Attach(const std::string& Device) {
  // A NUL would cut the string on its way to the software: it counts as not found.
  Connected = Device.find('\0') == std::string::npos && bridge_->Attach(Device);
  std::vector<std::string> addresses;
  GetLocalIPs(addresses);
  bridge_->SetAddress(addresses.empty() ? std::string() : addresses.front());
  if (!Connected) Raise(IOErrorConnectionFailed, "The AX200 software is not found");
}

void AX200Device::Disconnect() { Connected = false; }

int32_t AX200Device::Ports() {
  if (!Connected) RaiseNotConnected();
  return static_cast<int32_t>(PortNames.size());
}

int32_t AX200Device::PortDirection(int32_t Index) {
  CheckIndex(Index);
  return direction_;
}

int32_t AX200Device::PortType(int32_t Index) {
  CheckIndex(Index);
  return vtString;
}

std::string AX200Device::PortName(int32_t Index) {
  CheckIndex(Index);
  return PortNames[static_cast<size_t>(Index)];
}

void AX200Device::CheckIndex(int32_t Index) const {
  if (Index < 0 || static_cast<size_t>(Index) >= PortNames.size()) Raise(kSubscriptOutOfRange);
}

}  // namespace vmio
