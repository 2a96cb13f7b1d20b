#pragma once
// RS232: an instrument on a serial line that answers text commands with one line of text.
//
// Each command given to AddCommand becomes one string input port ("Sensor 1", ...). A
// command with text is sent as it is, its line end included, and the port's value is the
// reply up to its first CR or LF. A command that is only a line end (CR, LF or CR LF), or
// empty, makes a listening port instead: it returns the last complete line the instrument
// sent by itself (an empty command: everything received since the last read).
//
// Device quirks kept on purpose:
// - No connected flag: Ports, PortDirection, PortType and PortName work without a line;
//   PortValue without one (before Connect, after Disconnect) raises 91, and after a Connect
//   that failed it raises the line's 8018 "Operation valid only when the port is open".
// - All listening ports share one receive buffer and one last line: a listening port with
//   nothing new returns the line another listening port took. A last line beginning "*B"
//   loses its first 5 characters, and the shortened line is what is kept.
// - Before each command, pending input is discarded (the LF after a CR-ended reply, say).
// - A failed write is not reported: a dead or hung-up line shows as 45005 after 5001 ms. The
//   wait lets the thread's pending events (timers) run; nothing guards against re-entry from
//   them.
// - Bounded where the original was not: discarding input before a command counts against the
//   5001 ms, so a device that never stops sending makes the command fail with 45005 at that
//   time; a listening read takes what arrives for at most 5001 ms and answers from it. A
//   line is kept to its newest 64 KiB.
// - Connect's device is the COM port number with the run-time's leading-number rule ("3" and
//   "3abc" give 3, "COM3" gives 0 and fails); port N is the system's N-th serial port. A
//   device beginning with "/" is opened as that terminal's path, and a failure names the
//   path: "Error opening COM port /dev/ttyUSB0".
// - Text both ways is code page 1252; NUL characters are removed from replies.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "devices/common/port_table_device.h"
#include "serial/serial_line.h"

namespace vmio {

class RS232 final : public PortTableDevice {
 public:
  // Every read asks the instrument (or takes what it sent): values are never cached.
  RS232() : PortTableDevice(ReadCaching::kNever) {}

  // Appends a command and returns its port index (0 for the first).
  int32_t AddCommand(const std::string& Command);
  // The command of a port, line end included; 9 outside the list.
  std::string GetCommand(int32_t Index) const;

  void Disconnect() override;
  using PortTableDevice::PortValue;
  // Marks the exchange as a host's blocking call, whose reply wait lets the thread's events run.
  Variant PortValue(int32_t Index) override;
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;

  // The interface's members, then AddCommand and GetCommand.
  static const MemberTable kMembers;
  const MemberTable& Members() const override { return kMembers; }

 private:
  // The ports are the commands; Connect only opens the line named by the device string.
  engine::Task<void> BuildPortTable() override;
  // No connected flag: a read without a line raises 91 and one on a line that failed to open
  // raises the line's 8018, from the line itself.
  void RequireConnected() override {}
  engine::Task<void> ReadGroup(int32_t Index) override;
  SerialLine& Line();
  std::string ReadText();
  void ClearInput(WaitClock::time_point deadline);
  std::string Listen(std::string_view terminator);
  engine::Task<std::string> Ask(std::string command);
  engine::Task<void> WaitForInput(WaitClock::time_point deadline);

  std::unique_ptr<SerialLine> line_;
  std::vector<std::string> commands_;
  std::string listen_buffer_;
  std::string last_line_;
  bool reading_ = false;
  bool pumping_ = false;  // the exchange under way is a blocking member's
};

}  // namespace vmio
