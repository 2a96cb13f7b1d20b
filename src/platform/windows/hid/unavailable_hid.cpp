// USB HID on Windows is not built yet: no interface is listed and none opens, so LogIT's
// Connect fails with its own "Connection failed" and LogITEnum lists no loggers.
#include "hid/hid_device.h"

namespace vmio {

std::vector<HidInterfaceInfo> ListHidInterfaces() { return {}; }

std::unique_ptr<HidDevice> OpenHidDevice(const std::string&) { return nullptr; }

}  // namespace vmio
