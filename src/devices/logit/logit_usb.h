#pragma once
// LogITUSB: the byte stream to one LogIT logger over its HID reports.
//
// Commands go out as 9-byte output reports (report ID 0, a count byte, up to 7 data bytes,
// zeros); input reports are folded into a ring (see report_ring.h) from which callers take
// bytes with a time-out, and bytes beyond a request stay for the next one. Nothing here
// raises its own errors: failures show as False, -1 or short counts. On a closed object every
// call fails that way (Flush does nothing).
//
// Where the logger's own design blocks until a report arrives, we wait at most the call's
// time-out (Flush: 1000 ms) and count a missing report as none; a read that finds no report
// ends the wait, so a device that went away costs no more than one time-out.
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "devices/logit/report_ring.h"
#include "hid/hid_device.h"

namespace vmio {

class LogITUSB {
 public:
  // Opens the interface at DevicePath and synchronises the counter (Flush); false on failure.
  bool OpenDevice(const std::string& DevicePath);
  bool DeviceOpen() const { return device_ != nullptr; }
  void CloseDevice() { device_.reset(); }

  bool SendByte(uint8_t Value);
  // One output report: 0, the number of bytes, the bytes, zeros. More than 7 bytes raise 9
  // (at the eighth) and nothing is written. True when the device took the report.
  bool SendData(std::span<const uint8_t> Data);

  // The next byte, or -1 when none came within Timeout milliseconds.
  int16_t ReceiveByte(int32_t Timeout);
  // Waits until Count bytes are pending or Timeout milliseconds have passed (checked after
  // each report), then moves up to Count bytes into Data; returns how many.
  int16_t ReceiveData(int16_t Count, std::span<uint8_t> Data, int32_t Timeout);

  // Takes one report to restart the counter from, and empties the ring.
  void Flush();

 private:
  static constexpr int32_t kFlushWait = 1000;  // ms

  std::unique_ptr<HidDevice> device_;
  ReportRing ring_;
};

}  // namespace vmio
