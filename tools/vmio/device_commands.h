#pragma once
// The one-shot commands that open one device: ports, get, set, watch.
#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "vmio/events.h"
#include "vmio/objects.h"

namespace vmio::cli {

// A command line that cannot be carried out as given (exit code 2).
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A library error with what the operator was doing: which port (index and name) or the valid
// index range. The number and description stay the library's own.
struct OperatorError : AutomationError {
  OperatorError(const AutomationError& error, std::string what_failed, bool while_connecting = false)
      : AutomationError(error), context(std::move(what_failed)), connecting(while_connecting) {}
  std::string context;
  bool connecting;  // raised by Connect
};

// A device command given a class that is not a device one connects to (an enumerator, the
// bare interface).
struct NotADeviceError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The class named by its programmatic name ("VMIO.Axis") or short name ("axis"), in any case;
// UsageError when there is none.
const ClassInfo& FindClass(std::string_view name);

// The device a command opens: its class (NotADeviceError when it is not a device class), the
// DEVICE string, and the commands to add before connecting (RS232's ports; UsageError when
// given for a class without AddCommand).
struct Target {
  Target(const ClassInfo& cls, std::string device, std::vector<std::string> commands = {});
  const ClassInfo& cls;
  std::string device;
  std::vector<std::string> commands;
};

// text as a value for a port of the type (a Variant type code): true/false, on/off, 1/0 for a
// Boolean, any text for a string, a number in range for a numeric type; nothing otherwise.
std::optional<Variant> ValueForPort(std::string_view text, int32_t type);

// Where a command sends its results: a table or lines for people, or JSON (one object per
// line) for scripts.
struct Output {
  std::ostream& out;
  bool json = false;
};

// Each connects, does its work, disconnects and returns the exit code. Errors the library
// raises are thrown on as OperatorError.
int ListPorts(const Target& target, const Output& output);
int GetPort(const Target& target, int32_t index, const Output& output);
// Writes text to port index as the port's type takes it (a Boolean word, a number, text),
// reads the port back and prints what it reads; exits 1 when that is not what was written.
int SetPort(const Target& target, int32_t index, const std::string& text, const Output& output);

// Lists what the enumerating classes find (cls, or every one when null): per class a heading,
// then the ID and name of each device; with JSON, one array of {class, id, name}.
int ScanDevices(const ClassInfo* cls, const Output& output);

// "2024-05-01 12:00:00.123": a local time (the current one unless given) for people.
std::string Timestamp(std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

struct WatchOptions {
  int32_t interval_ms = 500;
  std::optional<int32_t> count;     // polls; until stop when absent
  WaitHandle stop = kNoWaitHandle;  // ends the watch once ready to read (a Ctrl-C pipe)
};
int WatchPorts(const Target& target, const WatchOptions& options, const Output& output);

}  // namespace vmio::cli
