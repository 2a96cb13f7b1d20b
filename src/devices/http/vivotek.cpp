#include "devices/http/vivotek.h"

#include <algorithm>
#include <climits>

#include "core/errors.h"
#include "core/numeric.h"
#include "core/split2d.h"

namespace vmio {
namespace {

constexpr char kCapabilityPath[] = "/cgi-bin/viewer/getparam.cgi?capability";
constexpr char kRowSep[] = "\r\n";

// 'text' -> text; anything else as it stands.
std::string_view Unquoted(std::string_view value) {
  if (value.size() >= 2 && value.front() == '\'' && value.back() == '\'') return value.substr(1, value.size() - 2);
  return value;
}

}  // namespace

namespace vivotek {

Counts ReadCapabilities(std::string_view reply, Counts previous) {
  if (reply.empty()) return previous;
  for (const Split2DRow& row : Split2D(reply, "=", kRowSep)) {
    const std::string_view value = Unquoted(row.value);
    if (row.key == "capability_ndi") {
      previous.inputs = TruncToInt32(Val(value));
    } else if (row.key == "capability_ndo") {
      previous.outputs = TruncToInt32(Val(value));
    }
  }
  return previous;
}

void ReadStates(std::string_view reply, int32_t offset, std::vector<bool>& values) {
  if (reply.empty()) return;
  for (const Split2DRow& row : Split2D(reply, "=", kRowSep)) {
    // The reply's closing CR LF leaves an empty row, which is not port 0.
    if (row.key.empty() && row.value.empty()) continue;
    const int64_t index = int64_t{offset} + RoundToInt32(Val(row.key.substr(std::min<size_t>(2, row.key.size()))));
    if (index < 0 || static_cast<uint64_t>(index) >= values.size()) Raise(kSubscriptOutOfRange);
    values[static_cast<size_t>(index)] = Val(row.value) == 1;
  }
}

}  // namespace vivotek

engine::Task<void> Vivotek::BuildPortTable() {
  const std::string reply = RequireConnectReply(co_await RequestPath(kCapabilityPath));
  // The counts are kept only once the table has taken their sum, so they always describe it.
  const vivotek::Counts counts = vivotek::ReadCapabilities(reply, {InputCount, OutputCount});
  ResizePorts(int64_t{counts.inputs} + counts.outputs);
  InputCount = counts.inputs;
  OutputCount = counts.outputs;
  FillDirections(InputCount);
}

std::string Vivotek::PortName(int32_t Index) {
  if (PortDirection(Index) == IOInput) return "Input " + std::to_string(Index + 1);
  return "Output " + std::to_string(Index + 1 - InputCount);
}

engine::Task<void> Vivotek::WritePort(int32_t Index, Variant NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (state) {
    std::string path = "/cgi-bin/dido/setdo.cgi?do" + std::to_string(Index - InputCount) + (*state ? "=1" : "=0");
    if (co_await RequestPath(std::move(path))) {
      SetValue(Index, *state);
      co_return;
    }
  }
  RaiseGettingValue();
}

engine::Task<void> Vivotek::ReadGroup(int32_t Group) {
  if (Group == kInputs) return ReadStates("/cgi-bin/dido/getdi.cgi?", "di", InputCount, 0);
  return ReadStates("/cgi-bin/dido/getdo.cgi?", "do", OutputCount, InputCount);
}

engine::Task<void> Vivotek::ReadStates(const char* cgi, const char* item, int32_t count, int32_t offset) {
  // A count above the table's size (only beside a negative count of the other kind) is listed
  // no further than the table: states beyond it could not be stored anyway.
  count = std::min(count, PortCount);
  std::string path = cgi;
  for (int32_t n = 0; n < count; ++n) {
    if (n > 0) path += '&';
    path.append(item).append(std::to_string(n));
  }
  const std::string reply = co_await RequirePath(std::move(path));
  ParseStates([&](std::vector<bool>& values) { vivotek::ReadStates(reply, offset, values); });
}

}  // namespace vmio
