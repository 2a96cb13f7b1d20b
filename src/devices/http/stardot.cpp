#include "devices/http/stardot.h"

#include "core/errors.h"
#include "core/numeric.h"
#include "core/split2d.h"
#include "core/text_match.h"

namespace vmio {
namespace {

constexpr char kRowSep[] = "\n";

}  // namespace

namespace stardot {

Counts ReadInfo(std::string_view reply, Counts previous) {
  if (reply.empty()) return previous;
  for (const Split2DRow& row : Split2D(reply, "=", kRowSep)) {
    const std::string_view key = TrimSpaces(row.key);
    if (EqualsNoCase(key, "relay")) {
      previous.relays = Val(row.value) == 0 ? 0 : 1;
    } else if (EqualsNoCase(key, "external_inputs")) {
      previous.inputs = TruncToInt32(Val(row.value));
    }
  }
  return previous;
}

void ReadStates(std::string_view reply, int32_t relays, std::vector<bool>& values) {
  if (reply.empty()) return;
  for (const Split2DRow& row : Split2D(reply, "=", kRowSep)) {
    if (EqualsNoCase(row.key, "relay")) {
      if (relays > 0 && !values.empty()) values[0] = Val(row.value) == 1;
    } else if (EqualsNoCase(row.key, "io")) {
      // The fixed index: the first input behind a relay, else the third input.
      const size_t index = static_cast<size_t>(2 - relays);
      if (index < values.size()) values[index] = Val(row.value) == 1;
    }
  }
}

}  // namespace stardot

engine::Task<void> StarDot::BuildPortTable() {
  // Any reply is taken as it stands; only the client's own errors fail the Connect.
  const stardot::Counts counts = stardot::ReadInfo(co_await FetchPath("/info.cgi"), {RelayCount, InputCount});
  // The counts are kept only once the table has taken their sum.
  ResizePorts(int64_t{counts.relays} + counts.inputs);
  RelayCount = counts.relays;
  InputCount = counts.inputs;
  for (int32_t i = 0; i < PortCount; ++i) {
    At(i).direction = i < RelayCount ? IOBidirectional : IOInput;
    At(i).name = i < RelayCount ? "Relay" : "Input";
  }
}

engine::Task<std::string> StarDot::FetchPath(std::string Path) {
  const HttpResponse response = co_await Fetch(std::move(Path));
  response.RaiseIfFailed();
  co_return BodyText(response);
}

engine::Task<void> StarDot::ReadGroup(int32_t) {
  const std::string reply = co_await FetchPath("/io.cgi");
  ParseStates([&](std::vector<bool>& values) { stardot::ReadStates(reply, RelayCount, values); });
}

engine::Task<void> StarDot::WritePort(int32_t Index, Variant NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (!state || Index >= RelayCount) co_return;
  SetValue(Index, *state);
  co_await FetchPath(*state ? "/io.cgi?relay=1" : "/io.cgi?relay=0");
}

}  // namespace vmio
