#include "devices/logit/logit.h"

#include <chrono>
#include <optional>
#include <thread>

#include "core/common.h"
#include "core/errors.h"
#include "devices/logit/logit_calibration.h"
#include "devices/logit/logit_enum.h"
#include "vmio/events.h"

namespace vmio {
namespace {

constexpr uint8_t kAttention = 13;
constexpr uint8_t kModelQuery = 1;
constexpr uint8_t kSensorQuery = 4;
constexpr uint8_t kReading = 16;
constexpr uint8_t kSetOutputs = 20;
constexpr uint8_t kOutputSensor = 136;

constexpr int32_t kSettleMs = 500;       // after the attention byte at connect
constexpr int32_t kOutputSettleMs = 50;  // after switching outputs

bool IsOnOffTable(const std::string& table) { return table == "OffOn" || table == "OnOff"; }

// The conversion table named by a sensor type's record; "" for none.
std::string TableOf(uint8_t SensorType) {
  const SensorRecord* sensor = FindSensor(std::to_string(SensorType));
  return sensor && sensor->size() > 6 ? (*sensor)[6] : std::string();
}

// A reading as its sensor's table gives it: the raw number without a table, empty when the
// file does not define the table, and a Boolean for an on/off table.
Variant Converted(int32_t raw, const std::string& table) {
  if (table.empty()) return Variant(raw);
  std::optional<double> value;
  try {
    value = ConvertReading(raw, table);
  } catch (const AutomationError&) {
    // A table the file does not define: the reading stays empty.
  }
  if (IsOnOffTable(table)) return Variant(value == 1.0);
  return value ? Variant(*value) : Variant();
}

[[noreturn]] void RaiseCommunicationError() { Raise(IOErrorGettingValue, "Device communication error"); }

void Pause(int32_t ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Forwards timer callbacks to a driver that outlives the timer (its end stops it).
class KeepAlive final : public Callbackable {
 public:
  explicit KeepAlive(Callbackable& owner) : owner_(owner) {}
  void Callback() override { owner_.Callback(); }

 private:
  Callbackable& owner_;
};

constexpr Member kLogITMembers[] = {
    MemberOf<&LogIT::Callback>("Callback", MemberKind::kMethod, 101),
};

}  // namespace

const MemberTable LogIT::kMembers{kLogITMembers, &IODevice::kMembers};

std::string GetSensorName(uint8_t SensorType) {
  switch (SensorType) {
    case 0:
      return "No device";
    case 250:
    case 251:
    case 252:
      return "Reserved";
    case 253:
      return "Elapsed time";
    case 254:
      return "Timestamp";
    case 255:
      return "Undefined";
    default:
      break;
  }
  const SensorRecord* sensor = FindSensor(std::to_string(SensorType));
  if (sensor && sensor->size() > 1) return (*sensor)[1];
  return "Port type " + std::to_string(SensorType);
}

// Every read asks the logger: readings are never cached.
LogIT::LogIT() : PortTableDevice(ReadCaching::kNever) { LoadSensorTable(); }

LogIT::~LogIT() {
  try {
    Disconnect();
  } catch (...) {
    // Ending on another thread than the one that started the timer: nothing left to stop here.
  }
}

engine::Task<void> LogIT::BuildPortTable() {
  StopKeepAlive();  // a second Connect must not leave the first one's timer behind
  Connected = usb_.OpenDevice(Host);
  if (!Connected) RaiseConnectionFailed("Connection failed");

  last_command_tick_ = TickCount();
  SendCommand({kAttention});
  Pause(kSettleMs);
  usb_.Flush();

  // A refused model leaves the last connection's sensors in the table, with no ports.
  PortCount = 0;
  SendCommand({kModelQuery});
  const int16_t model = usb_.ReceiveByte(100);
  if (model == -1) RaiseConnectionFailed("No response from the LogIT device");
  if (model < 48 || model > 55) RaiseConnectionFailed("Unsupported model number " + ModelHex(model));
  ResizePorts(3);

  sensor_type_.assign(static_cast<size_t>(PortCount), 0);
  sensor_channel_.assign(static_cast<size_t>(PortCount), 0);
  for (int32_t p = 0; p < PortCount; ++p) {
    SendCommand({kSensorQuery, p});
    const std::vector<uint8_t> reply = ReceiveBytes(2, 100);
    sensor_type_[static_cast<size_t>(p)] = reply[0];
    sensor_channel_[static_cast<size_t>(p)] = reply[1];
    At(p).direction = reply[0] == kOutputSensor ? IOBidirectional : IOInput;
  }
  timer_id_ = StartCallbackTimer(std::make_shared<KeepAlive>(*this), kKeepAliveInterval);
  co_return;
}

void LogIT::Disconnect() {
  StopKeepAlive();
  usb_.CloseDevice();
  PortTableDevice::Disconnect();
}

int32_t LogIT::PortType(int32_t Index) {
  CheckIndex(Index);
  return IsOnOffTable(TableOf(sensor_type_[static_cast<size_t>(Index)])) ? vtBool : vtString;
}

std::string LogIT::PortName(int32_t Index) {
  At(Index);
  return GetSensorName(sensor_type_[static_cast<size_t>(Index)]);
}

engine::Task<void> LogIT::ReadGroup(int32_t Index) {
  if (!SendCommand({kReading, Index, sensor_channel_[static_cast<size_t>(Index)]})) RaiseCommunicationError();
  const std::vector<uint8_t> reply = ReceiveBytes(2, 50);
  const int32_t raw = reply[0] * 256 + reply[1];

  SetValue(Index, Converted(raw, TableOf(sensor_type_[static_cast<size_t>(Index)])));
  co_return;
}

engine::Task<void> LogIT::WritePort(int32_t Index, Variant NewValue) {
  const std::optional<bool> state = BeginOutputWrite(Index, NewValue);
  if (!state) co_return;
  const int32_t mask = *state ? 1 << Index : 0;
  if (!SendCommand({kSetOutputs, mask})) RaiseCommunicationError();
  Pause(kOutputSettleMs);
  co_return;
}

void LogIT::Callback() {
  SendCommand({kModelQuery});
  usb_.ReceiveByte(100);
}

bool LogIT::SendCommand(std::initializer_list<int32_t> bytes) {
  if (TickDiff(last_command_tick_) >= kIdleWakeUp) {
    usb_.SendByte(kAttention);
    ReceiveBytes(3, 100);
    usb_.Flush();
  }
  std::vector<uint8_t> message;
  for (const int32_t b : bytes) {
    if (b < 0 || b > 255) Raise(kOverflow);
    message.push_back(static_cast<uint8_t>(b));
  }
  const bool sent = usb_.SendData(message);
  if (sent) last_command_tick_ = TickCount();
  return sent;
}

std::vector<uint8_t> LogIT::ReceiveBytes(int32_t Count, int32_t Timeout) {
  std::vector<uint8_t> data(static_cast<size_t>(Count), 0);
  usb_.ReceiveData(static_cast<int16_t>(Count), data, Timeout);
  return data;
}

void LogIT::CheckIndex(int32_t Index) {
  if (Index < 0 || Index >= Ports()) Raise(kSubscriptOutOfRange);
}

void LogIT::StopKeepAlive() {
  if (timer_id_ == 0) return;
  const int32_t id = timer_id_;
  timer_id_ = 0;
  StopCallbackTimer(id);
}

}  // namespace vmio
