// StarDot replies on plain text: /info.cgi's counts (at most one relay) and /io.cgi's states.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "devices/http/stardot.h"
#include "reply_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = vmio::fuzz::SplitReplyInput(data, size);
  if (!input) return 0;
  const int32_t relays = input->extra % 2;
  if (input->parser % 2 == 0) {
    vmio::fuzz::Parse([&] {
      const vmio::stardot::Counts counts = vmio::stardot::ReadInfo(input->reply, {relays, input->size});
      if (counts.relays != 0 && counts.relays != 1) std::abort();
    });
    return 0;
  }
  const size_t ports = input->size % 16;
  std::vector<bool> values(ports);
  vmio::fuzz::Parse([&] { vmio::stardot::ReadStates(input->reply, relays, values); });
  if (values.size() != ports) std::abort();
  return 0;
}
