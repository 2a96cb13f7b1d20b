#include "devices/http/genie.h"

#include <iterator>
#include <string_view>

#include "core/errors.h"
#include "core/numeric.h"
#include "core/split2d.h"

namespace vmio {
namespace {

constexpr std::string_view kCheckPath = "/httpapi/GetState?action=getinput";
constexpr std::string_view kStatesPath =
    "/httpapi/GetState?action=getinput&GIS_SENSOR1=0&GIS_SENSOR2=0&GIS_ALARM1=0&GIS_ALARM2=0&GIS_BUZZER=0";
constexpr int32_t kBuzzerIndex = 4;

// The port a GetState key reports, or -1; keys are compared exactly, case included.
int32_t PortOfKey(std::string_view key) {
  constexpr std::string_view kKeys[] = {"GIS_SENSOR1", "GIS_SENSOR2", "GIS_ALARM1", "GIS_ALARM2", "GIS_BUZZER"};
  for (size_t i = 0; i < std::size(kKeys); ++i) {
    if (key == kKeys[i]) return static_cast<int32_t>(i);
  }
  return -1;
}

}  // namespace

namespace genie {

void ReadStates(std::string_view reply, std::vector<bool>& values) {
  for (const Split2DRow& row : Split2D(reply, "=", "\n")) {
    const int32_t index = PortOfKey(row.key);
    if (index == -1) continue;
    if (static_cast<size_t>(index) >= values.size()) Raise(kSubscriptOutOfRange);
    values[static_cast<size_t>(index)] = Val(row.value) == 1;
  }
}

}  // namespace genie

engine::Task<void> Genie::BuildPortTable() {
  RequireConnectReply(co_await RequestPath(std::string(kCheckPath)));  // only whether it answers
  ResizePorts(InputCount + OutputCount);
  FillDirections(InputCount);
}

std::string Genie::PortName(int32_t Index) {
  switch (PortDirection(Index)) {
    case IOInput:
      return "Sensor " + std::to_string(Index + 1);
    case IOBidirectional:
      return Index < kBuzzerIndex ? "Alarm " + std::to_string(Index + 1 - InputCount) : "Buzzer";
    default:
      return {};
  }
}

engine::Task<void> Genie::ReadGroup(int32_t) {
  const std::string reply = co_await RequirePath(std::string(kStatesPath));
  ParseStates([&](std::vector<bool>& values) { genie::ReadStates(reply, values); });
}

engine::Task<void> Genie::WritePort(int32_t Index, Variant NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (!state) co_return;
  const std::string key = Index == kBuzzerIndex ? "OUT_BUZZER" : "OUT_ALARM" + std::to_string(Index + 1 - InputCount);
  co_await RequirePath("/httpapi/SetState?action=setoutput&" + key + (*state ? "=1" : "=0"));
  SetValue(Index, *state);
}

}  // namespace vmio
