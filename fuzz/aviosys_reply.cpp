// Aviosys replies on plain text: the cleaning every reply gets, the "Pnn=v" states (inputs from
// pin 50 or 51, sockets from 60 or 61) and GetPortName's cut.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "devices/http/aviosys_pdu.h"
#include "reply_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = vmio::fuzz::SplitReplyInput(data, size);
  if (!input) return 0;
  const std::string reply = vmio::aviosys::CleanReply(std::string(input->reply));
  if (reply.size() > input->reply.size() || reply.find("\r\n") != std::string::npos) std::abort();
  switch (input->parser % 3) {
    case 0: {
      constexpr int32_t kBases[] = {50, 51, 60, 61};
      // The table may be smaller than the port count: a unit with no ports keeps the old one.
      const size_t ports = input->size % 32;
      const int32_t port_count = input->extra / 4 % 32;
      std::vector<bool> values(ports);
      vmio::fuzz::Parse([&] {
        vmio::aviosys::ReadStates(reply, kBases[input->extra % 4], input->size / 32 % 2 * 8, port_count, values);
      });
      if (values.size() != ports) std::abort();
      break;
    }
    case 1:
      vmio::fuzz::Parse([&] {
        if (vmio::aviosys::ReadPortName(reply).size() > reply.size()) std::abort();
      });
      break;
    default:
      break;  // the cleaning alone
  }
  return 0;
}
