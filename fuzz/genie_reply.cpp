// Genie's GetState reply on plain text, into a table of five ports (or a smaller or larger one,
// which the keys must not overrun).
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "devices/http/genie.h"
#include "reply_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = vmio::fuzz::SplitReplyInput(data, size);
  if (!input) return 0;
  const size_t ports = input->size % 8;
  std::vector<bool> values(ports);
  vmio::fuzz::Parse([&] { vmio::genie::ReadStates(input->reply, values); });
  if (values.size() != ports) std::abort();
  return 0;
}
