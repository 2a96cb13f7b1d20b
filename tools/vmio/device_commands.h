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

// The class named by its programmatic name ("VMIO.Axis") or short name ("axis"), in any case;
// UsageError when there is none.
const ClassInfo& FindClass(std::string_view name);

// Each connects, does its work, disconnects and returns the exit code. Errors the library
// raises are thrown on as AutomationError.
int ListPorts(const ClassInfo& cls, const std::string& device, std::ostream& out);
int GetPort(const ClassInfo& cls, const std::string& device, int32_t index, std::ostream& out);
int SetPort(const ClassInfo& cls, const std::string& device, int32_t index, bool state);

// Lists what the enumerating classes find (cls, or every one when null): per class a heading,
// then the ID and name of each device.
int ScanDevices(const ClassInfo* cls, std::ostream& out);

struct WatchOptions {
  int32_t interval_ms = 500;
  std::optional<int32_t> count;     // polls; until stop when absent
  WaitHandle stop = kNoWaitHandle;  // ends the watch once ready to read (a Ctrl-C pipe)
};
int WatchPorts(const ClassInfo& cls, const std::string& device, const WatchOptions& options, std::ostream& out);

}  // namespace vmio::cli
