// Axis replies on plain text: the parameter list's counts, the IOPort directions and the check
// CGIs' states. A table is never resized and holds only directions the driver knows.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "devices/http/axis.h"
#include "reply_input.h"
#include "vmio/io_device.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = vmio::fuzz::SplitReplyInput(data, size);
  if (!input) return 0;
  const size_t ports = input->size % 64;
  switch (input->parser % 3) {
    case 0:
      vmio::fuzz::Parse([&] { vmio::axis::ReadCounts(input->reply, {input->size, input->extra}); });
      break;
    case 1: {
      std::vector<int32_t> directions(ports);
      vmio::fuzz::Parse([&] { vmio::axis::ReadIOPortDirections(input->reply, directions); });
      if (directions.size() != ports) std::abort();
      for (const int32_t d : directions) {
        if (d != 0 && d != vmio::IOInput && d != vmio::IOBidirectional) std::abort();
      }
      break;
    }
    default: {
      // The key's name is "port", "input" or "output"; outputs start after the inputs.
      constexpr size_t kPrefixes[] = {4, 5, 6};
      std::vector<bool> values(ports);
      vmio::fuzz::Parse(
          [&] { vmio::axis::ReadStates(input->reply, kPrefixes[input->extra % 3], input->extra / 3 % 32, values); });
      if (values.size() != ports) std::abort();
    }
  }
  return 0;
}
