#pragma once
// LogITEnum: the LogIT loggers attached to this machine, listed once when the object is made.
//
// Each entry's ID is the logger's HID interface path (what LogIT's Connect takes) and its
// Name the model name, a blank and the entry's position ("LogIT Black Box 1"). Loggers are the
// HID interfaces of vendor 0x0C6F with a product ID of 0x01xx. Each is asked for its model with
// a short-lived link of its own; one that cannot be opened is named "LogIT device", one that
// does not answer "Unknown LogIT device". A model byte of 8..15 is named by the version text
// (1: "LogIT LIVE", 2: "LogIT DataMeter", anything else an empty name, kept as the logger's
// own software has it). The list is never refreshed: create a new object for a fresh one.
#include <cstdint>
#include <string>

#include "vmio/enumerator.h"

namespace vmio {

class LogITEnum final : public IODeviceEnumerator {
 public:
  LogITEnum();
};

// A model byte in upper-case hexadecimal without leading zeros, as names and messages show it.
std::string ModelHex(int32_t model);

// The name of a model byte (-1: no answer), with the version text for models 8..15.
std::string LogITModelName(int32_t model, const std::string& version);

}  // namespace vmio
