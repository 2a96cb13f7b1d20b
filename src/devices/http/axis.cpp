// Axis quirks:
// - Parameter CGIs answer "key=value" lines; a refusal (unknown group, or a group this firmware
//   lacks) is a 200 reply beginning "# Error". A device that refuses the Input,Output group
//   connects with no ports and leaves the previous table in place.
// - Port names need operator rights (operator/param.cgi); a refused name falls back to
//   "Input N" / "Output N".
// - Outputs are switched with "/" (active) and "\" (inactive) after the 1-based number; the
//   reply of a switch is not examined.
#include "devices/http/axis.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "core/common.h"
#include "core/errors.h"
#include "core/numeric.h"
#include "core/split2d.h"

namespace vmio {
namespace {

constexpr char kInputOutputGroups[] = "/axis-cgi/view/param.cgi?action=list&group=Input,Output";
constexpr char kIOPortGroup[] = "/axis-cgi/view/param.cgi?action=list&group=IOPort";
constexpr std::string_view kNameQuery = "/axis-cgi/operator/param.cgi?action=list&group=";

bool IsRefusal(std::string_view reply) { return reply.starts_with("# Error"); }

// A device number: the text's leading number, rounded halves to even.
int32_t Number(std::string_view text) { return RoundToInt32(Val(text)); }

Split2DTable Rows(std::string_view reply) { return Split2D(reply, "=", "\n"); }

}  // namespace

namespace axis {

Counts ReadCounts(std::string_view reply, Counts previous) {
  for (const Split2DRow& row : Rows(reply)) {
    if (row.key == "root.Input.NbrOfInputs") {
      previous.inputs = Number(row.value);
    } else if (row.key == "root.Output.NbrOfOutputs") {
      previous.outputs = Number(row.value);
    }
  }
  return previous;
}

void ReadIOPortDirections(std::string_view reply, std::vector<int32_t>& directions) {
  // Keys are "root.IOPort.I<n>.<rest>"; only a rest of exactly "Direction" sets a direction,
  // so ports the reply does not mention keep 0.
  constexpr std::string_view kPrefix = "root.IOPort.I";
  for (const Split2DRow& row : Rows(reply)) {
    if (!row.key.starts_with(kPrefix)) continue;
    const std::string_view port_and_rest = row.key.substr(kPrefix.size() - 1);  // "I<n>.<rest>"
    const size_t dot = port_and_rest.find('.');
    if (dot == std::string_view::npos || port_and_rest.substr(dot + 1) != "Direction") continue;
    const int32_t port = Number(port_and_rest.substr(1, dot - 1));
    if (port < 0 || static_cast<size_t>(port) >= directions.size()) Raise(kSubscriptOutOfRange);
    directions[static_cast<size_t>(port)] = row.value == "input" ? IOInput : IOBidirectional;
  }
}

void ReadStates(std::string_view reply, size_t keyPrefix, int32_t offset, std::vector<bool>& values) {
  // "port3=1": the number after the key's name is 1-based; 0 (or no number) is skipped.
  for (const Split2DRow& row : Rows(reply)) {
    const int32_t k = Number(row.key.substr(std::min(keyPrefix, row.key.size())));
    if (k == 0) continue;
    const int64_t index = int64_t{k} - 1 + offset;
    if (index < 0 || static_cast<uint64_t>(index) >= values.size()) Raise(kSubscriptOutOfRange);
    values[static_cast<size_t>(index)] = Val(row.value) == 1;
  }
}

}  // namespace axis

engine::Task<void> Axis::BuildPortTable() {
  const std::string reply = RequireConnectReply(co_await RequestPath(kInputOutputGroups));
  if (IsRefusal(reply)) {
    InputCount = 0;
    OutputCount = 0;
    co_return;
  }
  // The counts are not reset first: a key the reply lacks keeps the previous connection's count.
  // They are kept only once the table has taken their sum, so they always describe the table.
  const axis::Counts counts = axis::ReadCounts(reply, {InputCount, OutputCount});
  ResizePorts(int64_t{counts.inputs} + counts.outputs);
  InputCount = counts.inputs;
  OutputCount = counts.outputs;

  const std::optional<std::string> ioport = co_await RequestPath(kIOPortGroup);
  if (!ioport) RaiseConnectionFailed("Unable to get the device port info");
  UsesIOPortGroup = !IsRefusal(*ioport);
  if (UsesIOPortGroup) {
    // Directions read before a bad port number raises stay, as the table keeps them.
    std::vector<int32_t> directions(PortTable.size(), 0);
    const auto store = [&] {
      for (size_t i = 0; i < directions.size(); ++i) PortTable[i].direction = directions[i];
    };
    try {
      axis::ReadIOPortDirections(*ioport, directions);
    } catch (...) {
      store();
      throw;
    }
    store();
  } else {
    FillDirections(InputCount);
  }
}

std::string Axis::PortName(int32_t Index) {
  // A port of no declared direction (an IOPort the device did not describe) is named as an output.
  const bool input = PortDirection(Index) == IOInput;
  std::string group;
  std::string fallback;
  if (UsesIOPortGroup) {
    group = "IOPort.I" + std::to_string(Index) + (input ? ".Input.Name" : ".Output.Name");
    fallback = (input ? "Input " : "Output ") + std::to_string(Index + 1);
  } else if (input) {
    group = "Input.I" + std::to_string(Index) + ".Name";
    fallback = "Input " + std::to_string(Index + 1);
  } else {
    group = "Output.O" + std::to_string(Index - InputCount) + ".Name";
    fallback = "Output " + std::to_string(Index + 1 - InputCount);
  }
  const std::optional<std::string> reply = RunExchange(RequestPath(std::string(kNameQuery) + group));
  if (!reply) return fallback;
  // The value of the first line, whatever its key.
  return std::string(Rows(*reply).front().value);
}

int32_t Axis::GroupOf(int32_t Index) {
  if (UsesIOPortGroup) return kAllPorts;
  const int32_t direction = PortDirection(Index);
  if (direction == IOInput) return kInputs;
  return direction == IOBidirectional ? kOutputs : kNoGroup;
}

engine::Task<void> Axis::WritePort(int32_t Index, Variant NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (!state) co_return;
  std::string path = UsesIOPortGroup ? "/axis-cgi/io/port.cgi?action=" + std::to_string(Index + 1)
                                     : "/axis-cgi/io/output.cgi?action=" + std::to_string(Index + 1 - InputCount);
  path += ':';
  path += *state ? '/' : '\\';
  co_await RequirePath(std::move(path));
  // The caches stay: a read within 500 ms of the last refresh returns this state.
  SetValue(Index, *state);
}

engine::Task<void> Axis::ReadGroup(int32_t Group) {
  switch (Group) {
    case kAllPorts:
      return ReadStates(PortCount, "/axis-cgi/io/port.cgi?check=", 4, 0);
    case kInputs:
      return ReadStates(InputCount, "/axis-cgi/io/input.cgi?check=", 5, 0);
    default:
      return ReadStates(OutputCount, "/axis-cgi/io/output.cgi?check=", 6, InputCount);
  }
}

engine::Task<void> Axis::ReadStates(int32_t count, std::string checkPath, size_t keyPrefix, int32_t offset) {
  // A count above the table's size (only beside a negative count of the other kind) is listed
  // no further than the table: states beyond it could not be stored anyway.
  count = std::min(count, PortCount);
  std::string path = std::move(checkPath);
  for (int32_t k = 1; k <= count; ++k) {
    if (k > 1) path += ',';
    path += std::to_string(k);
  }
  const std::string reply = co_await RequirePath(std::move(path));
  ParseStates([&](std::vector<bool>& values) { axis::ReadStates(reply, keyPrefix, offset, values); });
}

}  // namespace vmio
