#pragma once
// `vmio watch` over several devices at once, through the concurrent engine: a dead device's
// errors and state changes show up beside the others' values without holding them back.
#include <istream>
#include <string>
#include <vector>

#include "device_commands.h"

namespace vmio::cli {

// A device list: one "CLASS DEVICE" per line (DEVICE is the rest of the line, so it may hold
// blanks and '#'); blank lines and lines starting with '#' are skipped. UsageError names the
// first bad line by its number ("line 3: ...").
std::vector<Target> ReadDeviceList(std::istream& in);

// Watches every target on one thread: prints each port's first value and every change, each
// error and each state change, with the device as given (password masked). Stops after
// options.count intervals when given, else once options.stop is ready.
int WatchMany(const std::vector<Target>& targets, const WatchOptions& options, const Output& output);

}  // namespace vmio::cli
