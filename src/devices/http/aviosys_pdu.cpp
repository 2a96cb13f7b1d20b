#include "devices/http/aviosys_pdu.h"

#include <span>
#include <vector>

#include "core/common.h"
#include "core/errors.h"
#include "core/numeric.h"
#include "core/split2d.h"
#include "core/string_encoding.h"

namespace vmio {
namespace {

constexpr std::string_view kUnknownPin = "HTTPCMD_UNKNOWPIN";
constexpr int32_t kFixedModelInputs = 8;
constexpr int32_t kFixedModelSockets = 8;

// A GetPortName reply carries the name from its 14th character to the one before its last.
// Characters, not bytes, count (the text is UTF-8); a reply too short for the cut raises 5.
std::string NameFromReply(std::string_view reply) {
  std::vector<size_t> starts;
  for (size_t i = 0; i < reply.size(); ++i) {
    if ((static_cast<unsigned char>(reply[i]) & 0xC0) != 0x80) starts.push_back(i);
  }
  if (starts.size() < 14) Raise(5);
  return std::string(reply.substr(starts[13], starts.back() - starts[13]));
}

// The letter naming socket Index in GetPortName: "A" for 0, "B" for 1, and on through the code
// page, so from index 63 on it is a code page 1252 character (held as text, sent as its byte).
std::string PortLetter(int32_t Index) {
  const int32_t code = 'A' + Index;
  if (code > 255) Raise(5);
  const uint8_t byte = static_cast<uint8_t>(code);
  return BytesToString(std::span<const uint8_t>(&byte, 1), kCodePage1252);
}

}  // namespace

bool AviosysPDU::SendCommand(std::string_view Command) {
  std::string path = "/Set.cmd?CMD=";
  path += Command;
  std::optional<std::string> reply = TryGet(path);
  if (!reply) return false;
  if (const size_t end = reply->find("\r\n"); end != std::string::npos) reply->resize(end);
  if (reply->size() >= 13 && reply->starts_with("<html>") && reply->ends_with("</html>")) {
    reply->erase(reply->size() - 7).erase(0, 6);
  }
  LastReply = std::move(*reply);
  return LastStatusIs200();
}

void AviosysPDU::Connect(const std::string& Device) {
  Host = Device;
  Connected = SendCommand("GetPowerNum");
  if (!Connected) RaiseConnectionFailed();
  int32_t sockets = 0;
  if (LastReply == kUnknownPin) {
    fixed_model_ = true;  // never cleared: the numbering stays for later units
    InputCount = kFixedModelInputs;
    sockets = kFixedModelSockets;
  } else {
    InputCount = 0;
    if (!LastReply.starts_with("# Error")) sockets = TruncToInt32(Val(LastReply));
  }
  const int32_t count = InputCount + sockets;
  if (count > 0) {
    ResizePorts(count);
  } else {
    PortCount = count;
  }
}

void AviosysPDU::CheckIndex(int32_t Index) {
  if (Index < 0 || Index >= Ports()) Raise(9);
}

int32_t AviosysPDU::PortDirection(int32_t Index) {
  CheckIndex(Index);
  return Index < InputCount ? IOInput : IOBidirectional;
}

int32_t AviosysPDU::PortType(int32_t Index) {
  CheckIndex(Index);
  return vtBool;
}

std::string AviosysPDU::PortName(int32_t Index) {
  CheckIndex(Index);
  std::string name;
  if (!fixed_model_ && SendCommand("GetPortName" + PortLetter(Index))) name = NameFromReply(LastReply);
  if (!name.empty()) return name;
  if (InputCount == 0) return "Port " + std::to_string(Index + 1);
  if (Index >= InputCount) return "Output " + std::to_string(Index - InputCount + 1);
  return "Input " + std::to_string(Index + 1);
}

bool AviosysPDU::CachedValue(int32_t Index) const {
  if (Index < 0 || static_cast<size_t>(Index) >= PortValues.size()) Raise(9);
  return PortValues[static_cast<size_t>(Index)];
}

void AviosysPDU::StoreValue(int32_t Index, bool state) {
  if (Index < 0 || static_cast<size_t>(Index) >= PortValues.size()) Raise(9);
  PortValues[static_cast<size_t>(Index)] = state;
}

void AviosysPDU::StoreStates(int32_t base, int32_t first) {
  for (const Split2DRow& row : Split2D(LastReply, "=", ",")) {
    const double pin = Val(row.key.substr(row.key.empty() ? 0 : 1));
    const double index = pin - base + first;
    if (index >= 0 && index < PortCount) StoreValue(RoundToInt32(index), Val(row.value) == 1);
  }
}

void AviosysPDU::RefreshStates() {
  if (CacheIsFresh(last_read_)) return;
  if (InputCount > 0) {
    if (!SendCommand("GetIo")) RaiseGettingValue();
    StoreStates(50 + PinOffset(), 0);
  }
  if (!SendCommand("GetPower")) RaiseGettingValue();
  StoreStates(60 + PinOffset(), InputCount);
  last_read_ = TickCount();
}

Variant AviosysPDU::PortValue(int32_t Index) {
  if (!Connected) RaiseNotConnected();
  RefreshStates();
  return CachedValue(Index);
}

void AviosysPDU::PortValue(int32_t Index, const Variant& NewValue) {
  if (!Connected) RaiseNotConnected();
  if (Index < InputCount) RaiseNotAnOutput(Index);
  const bool state = RequireBoolean(NewValue);
  // The table's bounds are not checked before sending: an index beyond it switches the pin it
  // names and then fails with 9 when the cache is written.
  const int64_t socket = int64_t{60} + PinOffset() + Index - InputCount;
  if (!SendCommand("SetPower+P" + std::to_string(socket) + (state ? "=1" : "=0"))) RaiseGettingValue();
  StoreValue(Index, state);
}

}  // namespace vmio
