// The serial line on Windows is not built yet: every port fails to open, so RS232's Connect
// raises its own "Error opening COM port N" and the object stays usable.
#include "serial/serial_line.h"

#include "core/errors.h"

namespace vmio {
namespace {

class UnavailableSerialLine final : public SerialLine {
 public:
  void SetInputLen(int32_t) override {}
  bool SetCommPort(int16_t number) override { return number >= 1; }
  void SetCommPath(std::string) override {}
  bool SetPortOpen(bool open) override { return !open; }
  bool PortOpen() const override { return false; }
  void Output(std::span<const uint8_t>) override {}
  std::string Input() override { Raise(kSerialPortNotOpen, kSerialPortNotOpenText); }
  WaitHandle ReadyHandle() const override { return kNoWaitHandle; }
};

}  // namespace

std::unique_ptr<SerialLine> CreateSerialLine() { return std::make_unique<UnavailableSerialLine>(); }

}  // namespace vmio
