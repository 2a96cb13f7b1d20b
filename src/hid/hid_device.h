#pragma once
// The HID seam: the HID interfaces present on this machine, and one open interface's reports.
//
// Reports are the 9-byte layout of a device without numbered reports: report ID 0, then the 8
// bytes of the report. Where an OS delivers input reports without the ID byte, the seam puts
// it back, so callers always see 9 bytes. No call blocks without limit: a read waits at most
// its time-out, and a write to a device that takes no more reports fails after a short wait.
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vmio {

using HidReport = std::array<uint8_t, 9>;

struct HidInterfaceInfo {
  std::string path;  // what OpenHidDevice takes
  uint16_t vendor_id = 0;
  uint16_t product_id = 0;
};

// Every HID interface whose vendor and product IDs could be read, in the system's order.
std::vector<HidInterfaceInfo> ListHidInterfaces();

class HidDevice {
 public:
  virtual ~HidDevice() = default;  // closes the device

  // Writes one output report; false when the device did not take it.
  virtual bool Write(const HidReport& report) = 0;
  // Reads the next input report, waiting at most timeout_ms (0: only one already there).
  // False when none arrived in time or the device is gone; report is then unchanged.
  virtual bool Read(HidReport& report, int32_t timeout_ms) = 0;
};

// Opens the interface at path for reading and writing, shared with other openers; nullptr when
// it cannot be opened.
std::unique_ptr<HidDevice> OpenHidDevice(const std::string& path);

}  // namespace vmio
