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

engine::Task<std::optional<std::string>> ACTi::RequestCommand(std::string_view Group, std::string Parameters) {
  std::string path;
  path.reserve(13 + Group.size() + 1 + Parameters.size());
  path.append("/cgi-bin/cmd/").append(Group).append("?").append(Parameters);
  std::optional<std::string> body = Body200(co_await Fetch(std::move(path)));
  if (body && body->starts_with("ERROR:")) body.reset();
  co_return body;
}

engine::Task<void> ACTi::BuildPortTable() {
  ChannelCount = acti::ReadChannelCount(RequireConnectReply(co_await RequestCommand("system", "SYSTEM_INFO")));
  ResizePorts(ChannelCount * 4);
  for (int32_t i = 0; i < PortCount; ++i) {
    const int32_t position = i % 4;
    const bool input = position < 2;
    std::string name = ChannelCount >= 2 ? "Channel " + std::to_string(PortChannel(i)) + " " : "";
    name += input ? "input " : "output ";
    name += std::to_string(position % 2 + 1);
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    At(i).direction = input ? IOInput : IOBidirectional;
    At(i).name = std::move(name);
  }
}

int32_t ACTi::GroupOf(int32_t Index) {
  CheckIndex(Index);
  return PortChannel(Index) - 1;
}

engine::Task<void> ACTi::ReadGroup(int32_t Group) {
  const int32_t channel = Group + 1;
  const std::optional<std::string> reply =
      co_await RequestCommand("mpeg4", "CHANNEL=" + std::to_string(channel) + "&DIO_STATUS");
  if (!reply) RaiseGettingValue();
  const int16_t status = acti::ReadStatus(*reply);
  const int32_t base = Group * 4;
  for (int p = 0; p < 4; ++p) SetValue(base + p, bool((status >> kStatusBits[p]) & 1));
}

engine::Task<void> ACTi::WritePort(int32_t Index, Variant NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (!state) co_return;
  const int32_t channel = PortChannel(Index);
  const int32_t base = (channel - 1) * 4;
  SetValue(Index, *state);
  const int mask = (Value(base + 2).AsBool() ? 1 : 0) | (Value(base + 3).AsBool() ? 2 : 0);
  std::string parameters = ChannelCount >= 2 ? "CHANNEL=" + std::to_string(channel) + "&" : "";
  parameters += "DIO_OUTPUT=0x0";
  parameters += static_cast<char>('0' + mask);
  if (!co_await RequestCommand("mpeg4", std::move(parameters))) RaiseGettingValue();
}

}  // namespace vmio
