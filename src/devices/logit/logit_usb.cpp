#include "devices/logit/logit_usb.h"

#include <algorithm>

#include "core/common.h"
#include "core/errors.h"

namespace vmio {

bool LogITUSB::OpenDevice(const std::string& DevicePath) {
  if (DevicePath.find('\0') != std::string::npos) return false;  // a NUL would cut the path
  device_ = OpenHidDevice(DevicePath);
  if (!device_) return false;
  Flush();
  return true;
}

bool LogITUSB::SendByte(uint8_t Value) {
  const uint8_t data[] = {Value};
  return SendData(data);
}

bool LogITUSB::SendData(std::span<const uint8_t> Data) {
  HidReport report{};
  report[1] = static_cast<uint8_t>(Data.size());
  for (size_t i = 0; i < Data.size(); ++i) {
    if (i + 2 >= report.size()) Raise(kSubscriptOutOfRange);
    report[i + 2] = Data[i];
  }
  return device_ && device_->Write(report);
}

int16_t LogITUSB::ReceiveByte(int32_t Timeout) {
  uint8_t byte[1] = {};
  return ReceiveData(1, byte, Timeout) == 1 ? byte[0] : -1;
}

int16_t LogITUSB::ReceiveData(int16_t Count, std::span<uint8_t> Data, int32_t Timeout) {
  const int32_t start = TickCount();
  const int32_t wanted = std::clamp<int32_t>(Count, 0, static_cast<int32_t>(Data.size()));
  while (device_ && ring_.Pending() < wanted) {
    HidReport report{};
    if (!device_->Read(report, std::max(Timeout - TickDiff(start), 0))) break;
    ring_.Fold(report);
    if (TickDiff(start) > Timeout) break;
  }
  return static_cast<int16_t>(ring_.Take(Data.first(static_cast<size_t>(wanted))));
}

void LogITUSB::Flush() {
  if (!device_) return;
  HidReport report{};
  if (device_->Read(report, kFlushWait)) {
    ring_.Resync(report);
  } else {
    ring_.Clear();
  }
}

}  // namespace vmio
