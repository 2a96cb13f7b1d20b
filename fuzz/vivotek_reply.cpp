// Vivotek replies on plain text: the capability list's counts and the getdi/getdo states.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "devices/http/vivotek.h"
#include "reply_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = vmio::fuzz::SplitReplyInput(data, size);
  if (!input) return 0;
  if (input->parser % 2 == 0) {
    vmio::fuzz::Parse([&] { vmio::vivotek::ReadCapabilities(input->reply, {input->size, input->extra}); });
    return 0;
  }
  const size_t ports = input->size % 64;
  std::vector<bool> values(ports);
  vmio::fuzz::Parse([&] { vmio::vivotek::ReadStates(input->reply, input->extra % 32, values); });
  if (values.size() != ports) std::abort();
  return 0;
}
