#include "devices/common/port_table_device.h"

#include <cstdint>

#include "core/errors.h"

namespace vmio {

void PortTableDevice::Connect(const std::string& Device) {
  Host = Device;
  Connected = false;
  BuildPortTable();
  Connected = true;
}

void PortTableDevice::Disconnect() {
  Connected = false;
  Host.clear();
}

int32_t PortTableDevice::Ports() {
  if (!Connected) RaiseNotConnected();
  return PortCount;
}

int32_t PortTableDevice::PortDirection(int32_t Index) {
  CheckIndex(Index);
  return PortDirections[static_cast<size_t>(Index)];
}

int32_t PortTableDevice::PortType(int32_t Index) {
  CheckIndex(Index);
  return vtBool;
}

void PortTableDevice::ResizePorts(int64_t count) {
  if (count < 0 || count > kMaxPorts) {
    if (count < 0) Raise(kSubscriptOutOfRange);
    if (count > INT32_MAX) Raise(kOverflow);
    Raise(kOutOfMemory);
  }
  PortCount = static_cast<int32_t>(count);
  PortDirections.assign(static_cast<size_t>(count), 0);
  PortValues.assign(static_cast<size_t>(count), false);
}

void PortTableDevice::FillDirections(int32_t inputs) {
  for (int32_t i = 0; i < PortCount; ++i)
    PortDirections[static_cast<size_t>(i)] = i < inputs ? IOInput : IOBidirectional;
}

void PortTableDevice::CheckIndex(int32_t Index) {
  if (Index < 0 || Index >= PortCount) Raise(kSubscriptOutOfRange);
}

bool PortTableDevice::Value(int32_t Index) const {
  if (Index < 0 || static_cast<size_t>(Index) >= PortValues.size()) Raise(kSubscriptOutOfRange);
  return PortValues[static_cast<size_t>(Index)];
}

void PortTableDevice::SetValue(int32_t Index, bool state) {
  if (Index < 0 || static_cast<size_t>(Index) >= PortValues.size()) Raise(kSubscriptOutOfRange);
  PortValues[static_cast<size_t>(Index)] = state;
}

std::optional<bool> PortTableDevice::BeginOutputWrite(int32_t Index, const Variant& NewValue) {
  if (!Connected) RaiseNotConnected();
  const int32_t direction = PortDirection(Index);
  if (direction == IOInput) RaiseNotAnOutput(Index);
  if (direction != IOBidirectional) return std::nullopt;
  return RequireBoolean(NewValue);
}

}  // namespace vmio
