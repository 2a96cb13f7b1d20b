#include "devices/http/acti.h"

#include <cctype>

#include "core/errors.h"
#include "core/numeric.h"
#include "core/split2d.h"
#include "core/text_match.h"

namespace vmio {
namespace {

constexpr char kRowSep[] = "\n";

// Positions within a channel: inputs 1-2, then outputs 1-2, and their bits in the status.
constexpr int kStatusBits[4] = {0, 1, 4, 5};

}  // namespace

namespace acti {

int32_t ReadChannelCount(std::string_view reply) {
  std::string_view firmware;
  if (!reply.empty()) {
    for (const Split2DRow& row : Split2D(reply, "=", kRowSep)) {
      if (EqualsNoCase(TrimSpaces(row.key), "firmware version")) firmware = TrimSpaces(row.value);
    }
  }
  return firmware.size() >= 2 ? static_cast<int32_t>(Val(firmware.substr(1, 1))) : 0;
}

int16_t ReadStatus(std::string_view reply) {
  int16_t status = 0;
  if (reply.empty()) return status;
  for (const Split2DRow& row : Split2D(reply, "=", kRowSep)) {
    if (row.key != "DIO_STATUS") continue;
    // The value's first three characters are skipped unread; hex digits follow.
    std::string hex = "&H";
    if (row.value.size() > 3) hex += row.value.substr(3);
    status = RoundToInt16(Val(hex));
  }
  return status;
}

}  // namespace acti

std::optional<std::string> ACTi::RequestCommand(std::string_view Group, std::string_view Parameters) {
  std::string path;
  path.reserve(13 + Group.size() + 1 + Parameters.size());
  path.append("/cgi-bin/cmd/").append(Group).append("?").append(Parameters);
  std::optional<std::string> body = TryGet(path);
  if (body && (!LastStatusIs200() || body->starts_with("ERROR:"))) body.reset();
  return body;
}

void ACTi::BuildPortTable() {
  ChannelCount = acti::ReadChannelCount(RequireConnectReply(RequestCommand("system", "SYSTEM_INFO")));
  ResizePorts(ChannelCount * 4);
  PortNames.assign(static_cast<size_t>(PortCount), {});
  for (int32_t i = 0; i < PortCount; ++i) {
    const int32_t position = i % 4;
    const bool input = position < 2;
    std::string name = ChannelCount >= 2 ? "Channel " + std::to_string(PortChannel(i)) + " " : "";
    name += input ? "input " : "output ";
    name += std::to_string(position % 2 + 1);
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    PortDirections[static_cast<size_t>(i)] = input ? IOInput : IOBidirectional;
    PortNames[static_cast<size_t>(i)] = std::move(name);
  }
}

std::string ACTi::PortName(int32_t Index) {
  CheckIndex(Index);
  return PortNames[static_cast<size_t>(Index)];
}

void ACTi::RefreshChannel(int32_t Channel) {
  // Made on the first read; grown (never reset) when a later Connect finds more channels.
  if (channel_reads_.size() < static_cast<size_t>(ChannelCount))
    channel_reads_.resize(static_cast<size_t>(ChannelCount));
  StateCache& cache = channel_reads_[static_cast<size_t>(Channel - 1)];
  if (!cache.Stale()) return;
  const std::optional<std::string> reply =
      RequestCommand("mpeg4", "CHANNEL=" + std::to_string(Channel) + "&DIO_STATUS");
  if (!reply) RaiseGettingValue();
  const int16_t status = acti::ReadStatus(*reply);
  const int32_t base = (Channel - 1) * 4;
  for (int p = 0; p < 4; ++p) SetValue(base + p, (status >> kStatusBits[p]) & 1);
  cache.MarkFresh();
}

Variant ACTi::PortValue(int32_t Index) {
  if (!Connected) RaiseNotConnected();
  CheckIndex(Index);
  RefreshChannel(PortChannel(Index));
  return Value(Index);
}

void ACTi::PortValue(int32_t Index, const Variant& NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (!state) return;
  const int32_t channel = PortChannel(Index);
  const int32_t base = (channel - 1) * 4;
  SetValue(Index, *state);
  const int mask = (Value(base + 2) ? 1 : 0) | (Value(base + 3) ? 2 : 0);
  std::string parameters = ChannelCount >= 2 ? "CHANNEL=" + std::to_string(channel) + "&" : "";
  parameters += "DIO_OUTPUT=0x0";
  parameters += static_cast<char>('0' + mask);
  if (!RequestCommand("mpeg4", parameters)) RaiseGettingValue();
}

}  // namespace vmio
