#include "devices/http/vivotek.h"

#include <algorithm>
#include <climits>

#include "core/common.h"
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

void Vivotek::Connect(const std::string& Device) {
  Host = Device;
  Connected = RequestPath(kCapabilityPath);
  if (!Connected) RaiseConnectionFailed();
  // A count the list does not name keeps its value; the counts are kept only once the table
  // has taken their sum, so they always describe the table.
  int32_t inputs = InputCount;
  int32_t outputs = OutputCount;
  if (!LastReply.empty()) {
    for (const Split2DRow& row : Split2D(LastReply, "=", kRowSep)) {
      const std::string_view value = Unquoted(row.value);
      if (row.key == "capability_ndi") {
        inputs = TruncToInt32(Val(value));
      } else if (row.key == "capability_ndo") {
        outputs = TruncToInt32(Val(value));
      }
    }
  }
  ResizePorts(int64_t{inputs} + outputs);
  InputCount = inputs;
  OutputCount = outputs;
  PortKinds.resize(static_cast<size_t>(PortCount));
  for (int32_t i = 0; i < PortCount; ++i)
    PortKinds[static_cast<size_t>(i)] = i < InputCount ? kDigitalInput : kDigitalOutput;
}

int32_t Vivotek::PortKind(int32_t Index) const {
  if (Index < 0 || static_cast<size_t>(Index) >= PortKinds.size()) Raise(9);
  return PortKinds[static_cast<size_t>(Index)];
}

int32_t Vivotek::PortDirection(int32_t Index) {
  CheckIndex(Index);
  return PortKind(Index) == kDigitalInput ? IOInput : IOBidirectional;
}

std::string Vivotek::PortName(int32_t Index) {
  if (PortKind(Index) == kDigitalInput) return "Input " + std::to_string(Index + 1);
  return "Output " + std::to_string(Index + 1 - InputCount);
}

Variant Vivotek::PortValue(int32_t Index) {
  if (!Connected) RaiseNotConnected();
  const int32_t kind = PortKind(Index);
  if (kind == kDigitalInput) RefreshInputs();
  if (kind == kDigitalOutput) RefreshOutputs();
  return Value(Index);
}

void Vivotek::PortValue(int32_t Index, const Variant& NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (state) {
    const std::string path = "/cgi-bin/dido/setdo.cgi?do" + std::to_string(Index - InputCount) + (*state ? "=1" : "=0");
    if (RequestPath(path)) {
      SetValue(Index, *state);
      return;
    }
  }
  RaiseGettingValue();
}

void Vivotek::RefreshInputs() { RefreshGroup("/cgi-bin/dido/getdi.cgi?", "di", InputCount, 0, LastInputRead); }

void Vivotek::RefreshOutputs() {
  RefreshGroup("/cgi-bin/dido/getdo.cgi?", "do", OutputCount, InputCount, LastOutputRead);
}

void Vivotek::RefreshGroup(const char* cgi, const char* item, int32_t count, int32_t offset, int32_t& lastRead) {
  if (CacheIsFresh(lastRead)) return;
  // A count above the table's size (only beside a negative count of the other kind) is listed
  // no further than the table: states beyond it could not be stored anyway.
  count = std::min(count, PortCount);
  std::string path = cgi;
  for (int32_t n = 0; n < count; ++n) {
    if (n > 0) path += '&';
    path.append(item).append(std::to_string(n));
  }
  if (!RequestPath(path)) RaiseGettingValue();
  if (!LastReply.empty()) {
    for (const Split2DRow& row : Split2D(LastReply, "=", kRowSep)) {
      // The reply's closing CR LF leaves an empty row, which is not port 0.
      if (row.key.empty() && row.value.empty()) continue;
      const int64_t index = int64_t{offset} + RoundToInt32(Val(row.key.substr(std::min<size_t>(2, row.key.size()))));
      if (index > INT32_MAX) Raise(9);
      SetValue(static_cast<int32_t>(index), Val(row.value) == 1);
    }
  }
  lastRead = TickCount();
}

}  // namespace vmio
