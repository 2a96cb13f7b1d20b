#include "devices/logit/logit_enum.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "core/numeric.h"
#include "core/string_encoding.h"
#include "devices/logit/logit_usb.h"
#include "hid/hid_device.h"

namespace vmio {
namespace {

constexpr uint16_t kVendor = 0x0C6F;
constexpr uint8_t kProductFamily = 0x01;  // high byte of the product ID

struct ModelRange {
  int32_t first;
  int32_t last;
  const char* name;
};

constexpr ModelRange kModels[] = {
    {2, 2, "LogIT SL"},
    {16, 23, "SCC/DCP Controller"},
    {24, 31, "LogIT Explorer"},
    {32, 32, "LogIT DataVision CX"},
    {33, 33, "LogIT DataVision BX"},
    {34, 39, "LogIT DataVision"},
    {40, 47, "LogIT Voyager"},
    {48, 55, "LogIT Black Box"},
};

std::string ModelNameOf(const std::string& path) {
  LogITUSB usb;
  if (!usb.OpenDevice(path)) return "LogIT device";
  usb.SendByte(13);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  usb.Flush();
  usb.SendByte(2);
  uint8_t version[4] = {};
  usb.ReceiveData(4, version, 100);
  usb.SendByte(1);
  const int16_t model = usb.ReceiveByte(50);
  return LogITModelName(model, BytesToString(version, kCodePage1252));
}

}  // namespace

std::string LogITModelName(int32_t model, const std::string& version) {
  if (model == -1) return "Unknown LogIT device";
  if (model >= 8 && model <= 15) {
    const double whole = std::trunc(Val(version));
    return whole == 1 ? "LogIT LIVE" : whole == 2 ? "LogIT DataMeter" : "";
  }
  for (const ModelRange& range : kModels) {
    if (model >= range.first && model <= range.last) return range.name;
  }
  return "LogIT model " + ModelHex(model);
}

std::string ModelHex(int32_t model) {
  char hex[12];
  std::snprintf(hex, sizeof hex, "%X", static_cast<unsigned>(model));
  return hex;
}

LogITEnum::LogITEnum() {
  for (const HidInterfaceInfo& hid : ListHidInterfaces()) {
    if (hid.vendor_id != kVendor || (hid.product_id >> 8) != kProductFamily) continue;
    const std::string name = ModelNameOf(hid.path) + " " + std::to_string(Count() + 1);
    Add(hid.path, std::make_shared<IODeviceInfo>(hid.path, name));
  }
}

}  // namespace vmio
