#pragma once
// Every make of simulated device, each registered from its own file in this folder: the
// device the demo and the tests start with (its default fixture), and `vmio-sim MAKE`, which
// with no options serves that same device.
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vmio/io_device.h"

namespace vmio::sim {

// A simulated device serving in-process.
struct RunningDevice {
  std::shared_ptr<void> simulator;  // serves until released
  std::string device;               // what the driver's Connect takes
};

struct SimMake {
  std::string_view progid;  // "VMIO.Axis": the class the make stands in for
  std::function<RunningDevice()> start;
  // Set-up on the driver object before Connect (RS232's commands); may be empty.
  std::function<void(Object&)> prepare = {};
  // For devices whose outputs take other values than Booleans: the value the demo writes to the
  // first output of its type, expected to read back as written. Empty: switch a Boolean output.
  Variant write = {};
  // A class that lists such devices ("VMIO.LogITEnum"): the demo lists them and connects to the
  // first entry, as a host finds a device. Empty: the demo connects to the fixture's device.
  std::string_view lister = {};
  std::string_view name = {};  // "axis": the word after vmio-sim; empty for a second class of a make
  std::string_view help = {};  // one line for `vmio-sim --help`
  // `vmio-sim MAKE ARGS` with the arguments after the name; returns the exit code.
  std::function<int(const std::vector<std::string>& args)> run = {};
};

// Called once per make at start-up, from a namespace-scope constant in the make's file.
bool RegisterMake(SimMake make);

// Every registered make, by name.
std::span<const SimMake> SimMakes();
// The make standing in for a class, or nullptr.
const SimMake* FindMake(std::string_view progid);

}  // namespace vmio::sim
