#include "devices/http/aviosys_pdu.h"

#include <span>
#include <vector>

#include "core/errors.h"
#include "core/numeric.h"
#include "core/split2d.h"
#include "core/string_encoding.h"

namespace vmio {
namespace {

constexpr std::string_view kUnknownPin = "HTTPCMD_UNKNOWPIN";
constexpr int32_t kFixedModelInputs = 8;
constexpr int32_t kFixedModelSockets = 8;

// The letter naming socket Index in GetPortName: "A" for 0, "B" for 1, and on through the code
// page, so from index 63 on it is a code page 1252 character (held as text, sent as its byte).
std::string PortLetter(int32_t Index) {
  const int32_t code = 'A' + Index;
  if (code > 255) Raise(kInvalidProcedureCall);
  const uint8_t byte = static_cast<uint8_t>(code);
  return BytesToString(std::span<const uint8_t>(&byte, 1), kCodePage1252);
}

}  // namespace

namespace aviosys {

std::string CleanReply(std::string reply) {
  if (const size_t end = reply.find("\r\n"); end != std::string::npos) reply.resize(end);
  if (reply.size() >= 13 && reply.starts_with("<html>") && reply.ends_with("</html>")) {
    reply.erase(reply.size() - 7).erase(0, 6);
  }
  return reply;
}

void ReadStates(std::string_view reply, int32_t base, int32_t first, int32_t portCount, std::vector<bool>& values) {
  for (const Split2DRow& row : Split2D(reply, "=", ",")) {
    const double pin = Val(row.key.substr(row.key.empty() ? 0 : 1));
    const double index = pin - base + first;
    if (!(index >= 0 && index < portCount)) continue;
    const int32_t port = RoundToInt32(index);
    if (static_cast<size_t>(port) >= values.size()) Raise(kSubscriptOutOfRange);
    values[static_cast<size_t>(port)] = Val(row.value) == 1;
  }
}

// A GetPortName reply carries the name from its 14th character to the one before its last.
// Characters, not bytes, count (the text is UTF-8); a reply too short for the cut raises 5.
std::string ReadPortName(std::string_view reply) {
  std::vector<size_t> starts;
  for (size_t i = 0; i < reply.size(); ++i) {
    if ((static_cast<unsigned char>(reply[i]) & 0xC0) != 0x80) starts.push_back(i);
  }
  if (starts.size() < 14) Raise(kInvalidProcedureCall);
  return std::string(reply.substr(starts[13], starts.back() - starts[13]));
}

}  // namespace aviosys

engine::Task<std::optional<std::string>> AviosysPDU::SendCommand(std::string Command) {
  std::optional<std::string> reply = Body200(co_await Fetch("/Set.cmd?CMD=" + Command));
  if (!reply) co_return std::nullopt;
  co_return aviosys::CleanReply(std::move(*reply));
}

engine::Task<void> AviosysPDU::BuildPortTable() {
  const std::string reply = RequireConnectReply(co_await SendCommand("GetPowerNum"));
  int32_t inputs = 0;
  int32_t sockets = 0;
  const bool fixed_model = reply == kUnknownPin;
  if (fixed_model) {
    inputs = kFixedModelInputs;
    sockets = kFixedModelSockets;
  } else if (!reply.starts_with("# Error")) {
    sockets = TruncToInt32(Val(reply));
  }
  // A unit with no ports keeps the value array; a count no table can take is refused.
  const int64_t count = int64_t{inputs} + sockets;
  if (count != 0) {
    ResizePorts(count);
  } else {
    PortCount = 0;
  }
  fixed_model_ = fixed_model_ || fixed_model;  // never cleared: the numbering stays for later units
  InputCount = inputs;
  FillDirections(InputCount);
}

void AviosysPDU::CheckIndex(int32_t Index) {
  if (Index < 0 || Index >= Ports()) Raise(kSubscriptOutOfRange);
}

std::string AviosysPDU::PortName(int32_t Index) {
  CheckIndex(Index);
  std::string name;
  if (!fixed_model_) {
    if (const std::optional<std::string> reply = RunExchange(SendCommand("GetPortName" + PortLetter(Index))))
      name = aviosys::ReadPortName(*reply);
  }
  if (!name.empty()) return name;
  if (InputCount == 0) return "Port " + std::to_string(Index + 1);
  if (Index >= InputCount) return "Output " + std::to_string(Index - InputCount + 1);
  return "Input " + std::to_string(Index + 1);
}

engine::Task<void> AviosysPDU::ReadGroup(int32_t) {
  if (InputCount > 0) {
    const std::optional<std::string> io = co_await SendCommand("GetIo");
    if (!io) RaiseGettingValue();
    ParseStates([&](std::vector<bool>& values) { aviosys::ReadStates(*io, 50 + PinOffset(), 0, PortCount, values); });
  }
  const std::optional<std::string> power = co_await SendCommand("GetPower");
  if (!power) RaiseGettingValue();
  ParseStates(
      [&](std::vector<bool>& values) { aviosys::ReadStates(*power, 60 + PinOffset(), InputCount, PortCount, values); });
}

engine::Task<void> AviosysPDU::WritePort(int32_t Index, Variant NewValue) {
  RequireConnected();
  if (Index < InputCount) RaiseNotAnOutput(Index);
  const bool state = RequireBoolean(NewValue);
  // The table's bounds are not checked before sending: an index beyond it switches the pin it
  // names and then fails with 9 when the cache is written.
  const int64_t socket = int64_t{60} + PinOffset() + Index - InputCount;
  if (!co_await SendCommand("SetPower+P" + std::to_string(socket) + (state ? "=1" : "=0"))) RaiseGettingValue();
  SetValue(Index, state);
}

}  // namespace vmio
