#pragma once
// The serial line RS232 drives: the few operations of a comm control it uses, behind one
// small interface with one implementation per platform (src/platform/<os>/serial/).
//
// Set InputLen and the port, then open it; every Input returns at most InputLen bytes of
// what has arrived and never waits. The line settings are fixed: 9600 baud, no parity,
// 8 data bits, 1 stop bit, no handshaking, raw bytes both ways.
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "core/pumping_wait.h"

namespace vmio {

// Raised by Input on a line that is not open (the comm control's own error).
inline constexpr int32_t kSerialPortNotOpen = 8018;
inline constexpr const char* kSerialPortNotOpenText = "Operation valid only when the port is open";

class SerialLine {
 public:
  virtual ~SerialLine() = default;  // closes the line when open

  // The most bytes one Input returns (0: everything that has arrived).
  virtual void SetInputLen(int32_t bytes) = 0;
  // Chooses the port to open by number (1 is the system's first serial port) or by the path
  // of a terminal device. False when the number can name no port.
  virtual bool SetCommPort(int16_t number) = 0;
  virtual void SetCommPath(std::string path) = 0;
  // Opens (with the fixed settings) or closes the chosen port; false when that fails.
  virtual bool SetPortOpen(bool open) = 0;
  virtual bool PortOpen() const = 0;
  // Queues bytes for sending. A write the line does not take is not reported: the missing
  // reply shows it.
  virtual void Output(std::span<const uint8_t> bytes) = 0;
  // The bytes that have arrived, up to InputLen; empty when none. Raises kSerialPortNotOpen
  // when the line is not open.
  virtual std::string Input() = 0;
  // What a wait for input waits on; kNoWaitHandle when the line is closed or has hung up
  // (then nothing will arrive, and a wait only sleeps out its time).
  virtual WaitHandle ReadyHandle() const = 0;
  // Whether ReadyHandle is a descriptor an engine loop can watch (false where the platform's
  // loop watches sockets only: there a wait for input blocks, one exchange at a time).
  virtual bool WatchableByLoop() const = 0;
};

std::unique_ptr<SerialLine> CreateSerialLine();

}  // namespace vmio
