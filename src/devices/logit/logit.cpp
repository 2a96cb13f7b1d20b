#include "devices/logit/logit.h"

#include <chrono>
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

LogIT::LogIT() { LoadSensorTable(); }

LogIT::~LogIT() {
  try {
    Disconnect();
  } catch (...) {
    // Ending on another thread than the one that started the timer: nothing left to stop here.
  }
}

void LogIT::Connect(const std::string& Device) {
  StopKeepAlive();  // a second Connect must not leave the first one's timer behind
  connected_ = usb_.OpenDevice(Device);
  if (!connected_) RaiseConnectionFailed("Connection failed");

  last_command_tick_ = TickCount();
  SendCommand({kAttention});
  Pause(kSettleMs);
  usb_.Flush();

  port_count_ = 0;
  SendCommand({kModelQuery});
  const int16_t model = usb_.ReceiveByte(100);
  if (model == -1) RaiseConnectionFailed("No response from the LogIT device");
  if (model < 48 || model > 55) RaiseConnectionFailed("Unsupported model number " + ModelHex(model));
  port_count_ = 3;

  sensor_type_.assign(static_cast<size_t>(port_count_), 0);
  sensor_channel_.assign(static_cast<size_t>(port_count_), 0);
  for (int32_t p = 0; p < port_count_; ++p) {
    SendCommand({kSensorQuery, p});
    const std::vector<uint8_t> reply = ReceiveBytes(2, 100);
    sensor_type_[static_cast<size_t>(p)] = reply[0];
    sensor_channel_[static_cast<size_t>(p)] = reply[1];
  }
  timer_id_ = StartCallbackTimer(std::make_shared<KeepAlive>(*this), kKeepAliveInterval);
}

void LogIT::Disconnect() {
  StopKeepAlive();
  usb_.CloseDevice();
  connected_ = false;
}

int32_t LogIT::Ports() {
  if (!connected_) RaiseNotConnected();
  return port_count_;
}

int32_t LogIT::PortDirection(int32_t Index) {
  CheckIndex(Index);
  return sensor_type_[static_cast<size_t>(Index)] == kOutputSensor ? IOBidirectional : IOInput;
}

int32_t LogIT::PortType(int32_t Index) {
  CheckIndex(Index);
  return IsOnOffTable(TableOf(Index)) ? vtBool : vtString;
}

std::string LogIT::PortName(int32_t Index) {
  if (Index < 0 || static_cast<size_t>(Index) >= sensor_type_.size()) Raise(kSubscriptOutOfRange);
  return GetSensorName(sensor_type_[static_cast<size_t>(Index)]);
}

Variant LogIT::PortValue(int32_t Index) {
  if (!connected_) RaiseNotConnected();
  if (Index < 0 || static_cast<size_t>(Index) >= sensor_channel_.size()) Raise(kSubscriptOutOfRange);
  if (!SendCommand({kReading, Index, sensor_channel_[static_cast<size_t>(Index)]})) RaiseCommunicationError();
  const std::vector<uint8_t> reply = ReceiveBytes(2, 50);
  const int32_t raw = reply[0] * 256 + reply[1];

  const std::string table = TableOf(Index);
  if (table.empty()) return Variant(raw);
  Variant value;
  try {
    value = Variant(ConvertReading(raw, table));
  } catch (const AutomationError&) {
    // A table the file does not define: the reading stays empty.
  }
  if (IsOnOffTable(table)) return Variant(!value.IsEmpty() && value.AsDouble() == 1);
  return value;
}

void LogIT::PortValue(int32_t Index, const Variant& NewValue) {
  if (!connected_) RaiseNotConnected();
  const int32_t direction = PortDirection(Index);
  if (direction == IOInput) RaiseNotAnOutput(Index);
  const int32_t mask = RequireBoolean(NewValue) ? 1 << Index : 0;
  if (!SendCommand({kSetOutputs, mask})) RaiseCommunicationError();
  Pause(kOutputSettleMs);
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

// The conversion table named by the port's sensor record; "" for none.
std::string LogIT::TableOf(int32_t Index) const {
  const SensorRecord* sensor = FindSensor(std::to_string(sensor_type_[static_cast<size_t>(Index)]));
  return sensor && sensor->size() > 6 ? (*sensor)[6] : std::string();
}

void LogIT::StopKeepAlive() {
  if (timer_id_ == 0) return;
  const int32_t id = timer_id_;
  timer_id_ = 0;
  StopCallbackTimer(id);
}

}  // namespace vmio
