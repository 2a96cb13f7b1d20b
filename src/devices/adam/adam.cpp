#include "devices/adam/adam.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "core/common.h"
#include "core/errors.h"
#include "core/string_encoding.h"

namespace vmio {
namespace {

struct AdamModel {
  std::string_view model;  // compared as text, exactly
  int32_t digital_inputs;
  int32_t analog_inputs;
  int32_t digital_outputs;
  int32_t analog_outputs;
};

constexpr AdamModel kModels[] = {
    {"6015", 0, 7, 0, 0},  {"6017", 0, 8, 2, 0}, {"6018", 0, 8, 8, 0}, {"6024", 2, 6, 2, 2}, {"6050", 12, 0, 6, 0},
    {"6051", 14, 0, 2, 0}, {"6052", 8, 0, 8, 0}, {"6060", 6, 0, 6, 0}, {"6066", 6, 0, 6, 0},
};

constexpr int16_t kFirstRelayCoil = 16;
constexpr int16_t kCoilsRead = 32;
constexpr float kQueryWaitSeconds = 5.0f;
constexpr int32_t kQueryWaitMs = 5000;  // a UDP connect only sets the peer: it never waits

// The port piece of "host:port" as a number; nothing when it is not one.
std::optional<uint16_t> ParsePort(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  if (text.empty() || text.size() > 5) return std::nullopt;
  uint32_t port = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    port = port * 10 + static_cast<uint32_t>(c - '0');
  }
  if (port > 65535) return std::nullopt;
  return static_cast<uint16_t>(port);
}

// Closes the model query's socket on every way out.
class QuerySocket {
 public:
  QuerySocket() : handle_(OpenSocket(SocketKind::Udp)) {}
  ~QuerySocket() {
    if (handle_ != kNoSocket) CloseSocket(handle_);
  }
  QuerySocket(const QuerySocket&) = delete;
  QuerySocket& operator=(const QuerySocket&) = delete;
  SocketHandle get() const { return handle_; }

 private:
  SocketHandle handle_;
};

uint8_t StatusByte(const std::vector<uint8_t>& data, size_t index) {
  if (index >= data.size()) Raise(kSubscriptOutOfRange);
  return data[index];
}

}  // namespace

// Marked before asking, so a failed read also holds off the next one.
ADAM::ADAM(uint16_t modelQueryPort) : PortTableDevice(ReadCaching::kBeforeRead), query_port_(modelQueryPort) {}

ADAM::~ADAM() { Disconnect(); }

engine::Task<void> ADAM::BuildPortTable() {
  // Connected starts false, so a failed reconnect reports the connect that failed, not a probe
  // on the old state. From the Modbus connect on, a failure leaves it connected.
  const std::string_view device(Host);
  const size_t colon = device.find(':');
  const std::string host(device.substr(0, colon));
  std::optional<uint16_t> port = kAdamModbusPort;
  if (colon != std::string_view::npos) {
    const std::string_view rest = device.substr(colon + 1);
    port = ParsePort(rest.substr(0, rest.find(':')));
  }
  // A port that is not a number fails like the connect itself, before any attempt.
  engine::Io& io = CurrentIo();
  if (port) {
    const ModbusResult opened = co_await Modbus.OpenOn(io, host, *port);
    if (opened.error == kTooManyFiles) Raise(kTooManyFiles);
    Connected = opened.Ok();
  }
  if (!Connected) RaiseConnectionFailed("Connection failed");
  if (!(co_await Modbus.ReadCoilsOn(io, 0, 1)).Ok()) RaiseConnectionFailed("Unrecognised device");

  DigitalInputs = AnalogInputs = DigitalOutputs = AnalogOutputs = 0;
  Model = co_await GetModelNumber(io, host);
  const auto* found = std::ranges::find(kModels, std::string_view(Model), &AdamModel::model);
  if (found == std::end(kModels)) RaiseConnectionFailed("Unsupported model number");
  DigitalInputs = found->digital_inputs;
  AnalogInputs = found->analog_inputs;
  DigitalOutputs = found->digital_outputs;
  AnalogOutputs = found->analog_outputs;

  ResizePorts(DigitalInputs + DigitalOutputs);
  FillDirections(DigitalInputs);  // relays are read back as well as switched
}

engine::Task<std::string> ADAM::GetModelNumber(engine::Io& io, std::string HostName) {
  const QuerySocket udp;
  if (udp.get() == kNoSocket && NoDescriptorLeft()) Raise(kTooManyFiles);
  if (!BindAnyLocal(udp.get())) RaiseConnectionFailed("Failed to open a UDP port");
  if (!co_await ConnectIPv4On(io.loop(), udp.get(), HostName, query_port_, kQueryWaitMs)) {
    RaiseConnectionFailed("Failed to open a UDP port");
  }
  SendBytes(udp.get(), StringToBytes("$01M\r", kCodePage1252));

  std::array<uint8_t, 20> reply{};
  const int32_t count = co_await RecvTimeoutOn(io.loop(), udp.get(), reply.data(), static_cast<int32_t>(reply.size()),
                                               0, kQueryWaitSeconds);
  if (count == -1) RaiseConnectionFailed("Failed to get the model number");
  // A time-out goes on with the empty buffer.
  co_return AdamModelFromAnswer(reply);
}

std::string AdamModelFromAnswer(std::span<const uint8_t> answer) {
  // The model runs from the fourth character up to the first CR; the reply marker and
  // address before it are not checked.
  const auto cr = std::ranges::find(answer, uint8_t{'\r'});
  if (cr == answer.end() || cr - answer.begin() < 3) Raise(kInvalidProcedureCall);  // no CR, or one inside the marker
  return BytesToString(std::span<const uint8_t>(answer.begin() + 3, cr), kCodePage1252);
}

engine::Task<void> ADAM::ReadGroup(int32_t) {
  ModbusResult read = co_await Modbus.ReadCoilsOn(CurrentIo(), 0, kCoilsRead);
  read.RaiseIfFailed();
  const std::vector<uint8_t>& data = read.data;
  for (int32_t i = 0; i < DigitalInputs; ++i) {
    // Only the first status byte is consulted: inputs 8 and above read false.
    SetValue(i, i < 8 && (StatusByte(data, 0) >> i & 1));
  }
  for (int32_t j = 0; j < DigitalOutputs; ++j) SetValue(DigitalInputs + j, j < 8 && (StatusByte(data, 2) >> j & 1));
}

void ADAM::Disconnect() {
  Modbus.Disconnect();
  PortTableDevice::Disconnect();
}

std::string ADAM::PortName(int32_t Index) {
  if (PortDirection(Index) == IOInput) return "Digital input " + std::to_string(Index);
  return "Relay output " + std::to_string(Index - DigitalInputs);
}

engine::Task<void> ADAM::WritePort(int32_t Index, Variant NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (!state) co_return;
  const int16_t coil = static_cast<int16_t>(kFirstRelayCoil + Index - DigitalInputs);
  (co_await Modbus.WriteCoilOn(CurrentIo(), coil, *state)).RaiseIfFailed();
  SetValue(Index, *state);
}

}  // namespace vmio
