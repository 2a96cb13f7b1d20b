#include "devices/common/port_table_device.h"

#include <algorithm>
#include <cstdint>

#include "core/errors.h"

namespace vmio {

void PortTableDevice::Connect(const std::string& Device) {
  RequireOwnThread();
  engine::RunBlocking([&](engine::Io& io) { return ConnectOn(io, Device); });
}

engine::Task<void> PortTableDevice::ConnectOn(engine::Io& io, std::string device) {
  const IoBinding bind(*this, io);
  Host = std::move(device);
  Connected = false;
  co_await BuildPortTable();
  Connected = true;
}

void PortTableDevice::Disconnect() {
  Connected = false;
  Host.clear();
}

void PortTableDevice::RequireConnected() {
  if (!Connected) RaiseNotConnected();
}

int32_t PortTableDevice::Ports() {
  RequireOwnThread();
  RequireConnected();
  return PortCount;
}

int32_t PortTableDevice::PortDirection(int32_t Index) {
  RequireOwnThread();
  CheckIndex(Index);
  return At(Index).direction;
}

int32_t PortTableDevice::PortType(int32_t Index) {
  RequireOwnThread();
  CheckIndex(Index);
  return At(Index).type;
}

std::string PortTableDevice::PortName(int32_t Index) {
  RequireOwnThread();
  CheckIndex(Index);
  return At(Index).name;
}

Variant PortTableDevice::PortValue(int32_t Index) {
  RequireOwnThread();
  RequireConnected();
  // A fresh cache answers without an exchange: the common case stays a table look-up.
  if (const int32_t group = GroupOf(Index); group != kNoGroup) {
    if (caching_ == ReadCaching::kNever || GroupCache(group).Stale()) RunExchange(RefreshGroup(group));
  }
  return Value(Index);
}

engine::Task<void> PortTableDevice::RefreshGroup(int32_t Group) {
  if (caching_ == ReadCaching::kBeforeRead) GroupCache(Group).MarkFresh();
  co_await ReadGroup(Group);
  if (caching_ == ReadCaching::kAfterRead) GroupCache(Group).MarkFresh();
}

void PortTableDevice::PortValue(int32_t Index, const Variant& NewValue) {
  RequireOwnThread();
  RunExchange(WritePort(Index, NewValue));
}

engine::Task<void> PortTableDevice::RefreshOn(engine::Io& io) {
  const IoBinding bind(*this, io);
  RequireConnected();
  // Each group once, in port order, whatever its cache says: the host asked for fresh values.
  std::vector<int32_t> read;
  for (int32_t index = 0; index < PortCount; ++index) {
    const int32_t group = GroupOf(index);
    if (group == kNoGroup || std::find(read.begin(), read.end(), group) != read.end()) continue;
    read.push_back(group);
    co_await ReadGroup(group);
    if (caching_ != ReadCaching::kNever) GroupCache(group).MarkFresh();
  }
}

engine::Task<void> PortTableDevice::WriteOn(engine::Io& io, int32_t index, Variant value) {
  const IoBinding bind(*this, io);
  co_await WritePort(index, std::move(value));
}

std::vector<Variant> PortTableDevice::TableValues() const {
  std::vector<Variant> values;
  values.reserve(PortTable.size());
  for (const Port& port : PortTable) values.push_back(port.value);
  return values;
}

int32_t PortTableDevice::GroupOf(int32_t Index) {
  CheckIndex(Index);
  return Index;
}

void PortTableDevice::ResizePorts(int64_t count, int32_t type) {
  if (count < 0 || count > kMaxPorts) {
    if (count < 0) Raise(kSubscriptOutOfRange);
    if (count > INT32_MAX) Raise(kOverflow);
    Raise(kOutOfMemory);
  }
  PortCount = static_cast<int32_t>(count);
  const Port blank{0, type, {}, type == vtBool ? Variant(false) : Variant(std::string())};
  PortTable.assign(static_cast<size_t>(count), blank);
}

void PortTableDevice::FillDirections(int32_t inputs) {
  for (int32_t i = 0; i < PortCount; ++i) At(i).direction = i < inputs ? IOInput : IOBidirectional;
}

void PortTableDevice::CheckIndex(int32_t Index) {
  if (Index < 0 || Index >= PortCount) Raise(kSubscriptOutOfRange);
}

Port& PortTableDevice::At(int32_t Index) {
  if (Index < 0 || static_cast<size_t>(Index) >= PortTable.size()) Raise(kSubscriptOutOfRange);
  return PortTable[static_cast<size_t>(Index)];
}

StateCache& PortTableDevice::GroupCache(int32_t Group) {
  if (static_cast<size_t>(Group) >= group_caches_.size()) group_caches_.resize(static_cast<size_t>(Group) + 1);
  return group_caches_[static_cast<size_t>(Group)];
}

std::vector<bool> PortTableDevice::BooleanStates() const {
  std::vector<bool> states(PortTable.size());
  for (size_t i = 0; i < PortTable.size(); ++i) states[i] = PortTable[i].value.IsBool() && PortTable[i].value.AsBool();
  return states;
}

void PortTableDevice::SetBooleanStates(const std::vector<bool>& states) {
  for (size_t i = 0; i < states.size() && i < PortTable.size(); ++i) PortTable[i].value = Variant(bool{states[i]});
}

bool PortTableDevice::BeginWrite(int32_t Index) {
  RequireConnected();
  const int32_t direction = PortDirection(Index);
  if (direction == IOInput) RaiseNotAnOutput(Index);
  return direction == IOBidirectional;
}

std::optional<bool> PortTableDevice::BeginOutputWrite(int32_t Index, const Variant& NewValue) {
  if (!BeginWrite(Index)) return std::nullopt;
  return RequireBoolean(NewValue);
}

}  // namespace vmio
