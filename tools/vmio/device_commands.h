#pragma once
// The one-shot commands that open one device: ports, get, set, watch.
#include <cstdint>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

#include "core/pumping_wait.h"
#include "vmio/objects.h"

namespace vmio::cli {

// A command line that cannot be carried out as given (exit code 2).
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A library error with what the operator was doing: which port (index and name) or the valid
// index range. The number and description stay the library's own.
struct OperatorError : AutomationError {
  OperatorError(const AutomationError& error, std::string what_failed)
      : AutomationError(error), context(std::move(what_failed)) {}
  std::string context;
};

// The class named by its programmatic name ("VMIO.Axis") or short name ("axis"), in any case;
// UsageError when there is none.
const ClassInfo& FindClass(std::string_view name);

// Where a command sends its results: a table or lines for people, or JSON (one object per
// line) for scripts.
struct Output {
  std::ostream& out;
  bool json = false;
};

// Each connects, does its work, disconnects and returns the exit code. Errors the library
// raises are thrown on as OperatorError.
int ListPorts(const ClassInfo& cls, const std::string& device, const Output& output);
int GetPort(const ClassInfo& cls, const std::string& device, int32_t index, const Output& output);
int SetPort(const ClassInfo& cls, const std::string& device, int32_t index, bool state);

// Lists what the enumerating classes find (cls, or every one when null): per class a heading,
// then the ID and name of each device; with JSON, one array of {class, id, name}.
int ScanDevices(const ClassInfo* cls, const Output& output);

struct WatchOptions {
  int32_t interval_ms = 500;
  std::optional<int32_t> count;     // polls; until stop when absent
  WaitHandle stop = kNoWaitHandle;  // ends the watch once ready to read (a Ctrl-C pipe)
};
int WatchPorts(const ClassInfo& cls, const std::string& device, const WatchOptions& options, const Output& output);

}  // namespace vmio::cli
