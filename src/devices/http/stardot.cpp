#include "devices/http/stardot.h"

#include "core/common.h"
#include "core/errors.h"
#include "core/numeric.h"
#include "core/split2d.h"
#include "core/text_match.h"

namespace vmio {
namespace {

constexpr char kRowSep[] = "\n";

}  // namespace

void StarDot::Connect(const std::string& Device) {
  Host = Device;
  Connected = false;  // until the device has answered
  const std::string reply = FetchPath("/info.cgi");
  // Counts the reply does not name keep their values; they are kept only once the table has
  // taken their sum.
  int32_t relays = RelayCount;
  int32_t inputs = InputCount;
  if (!reply.empty()) {
    for (const Split2DRow& row : Split2D(reply, "=", kRowSep)) {
      const std::string_view key = TrimSpaces(row.key);
      if (EqualsNoCase(key, "relay")) {
        relays = Val(row.value) == 0 ? 0 : 1;
      } else if (EqualsNoCase(key, "external_inputs")) {
        inputs = TruncToInt32(Val(row.value));
      }
    }
  }
  ResizePorts(int64_t{relays} + inputs);
  RelayCount = relays;
  InputCount = inputs;
  PortNames.assign(static_cast<size_t>(PortCount), "Input");
  for (int32_t i = 0; i < PortCount; ++i)
    PortDirections[static_cast<size_t>(i)] = i < RelayCount ? IOBidirectional : IOInput;
  if (RelayCount > 0) PortNames[0] = "Relay";
  Connected = true;
}

std::string StarDot::PortName(int32_t Index) {
  CheckIndex(Index);
  return PortNames[static_cast<size_t>(Index)];
}

void StarDot::RefreshStates() {
  if (CacheIsFresh(LastRead)) return;
  const std::string reply = FetchPath("/io.cgi");
  if (!reply.empty()) {
    for (const Split2DRow& row : Split2D(reply, "=", kRowSep)) {
      if (EqualsNoCase(row.key, "relay")) {
        if (RelayCount > 0) SetValue(0, Val(row.value) == 1);
      } else if (EqualsNoCase(row.key, "io")) {
        // The fixed index: the first input behind a relay, else the third input.
        const int32_t index = 2 - RelayCount;
        if (index < PortCount) SetValue(index, Val(row.value) == 1);
      }
    }
  }
  LastRead = TickCount();
}

Variant StarDot::PortValue(int32_t Index) {
  if (!Connected) RaiseNotConnected();
  RefreshStates();
  return Value(Index);
}

void StarDot::PortValue(int32_t Index, const Variant& NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (!state || Index >= RelayCount) return;
  SetValue(Index, *state);
  FetchPath(*state ? "/io.cgi?relay=1" : "/io.cgi?relay=0");
}

}  // namespace vmio
