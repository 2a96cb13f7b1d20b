#pragma once
// The simulated devices `vmio demo` runs every driver against: one entry per driver.
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "vmio/io_device.h"

namespace vmio::cli {

struct DemoTarget {
  std::string_view progid;  // "VMIO.Axis"
  // Starts the simulated device in-process and sets the device string to connect with; the
  // returned object keeps the device running until it is released.
  std::function<std::shared_ptr<void>(std::string& device)> start;
  // Extra set-up on the created object before Connect (RS232's commands); may be empty.
  std::function<void(Object&)> prepare = {};
  // For devices whose outputs take other values than Booleans: the value to write to the first
  // output of its type, expected to read back as written. Empty: switch a Boolean output.
  Variant write = {};
};

std::span<const DemoTarget> DemoTargets();

}  // namespace vmio::cli
