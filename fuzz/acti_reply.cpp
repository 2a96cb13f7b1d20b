// ACTi replies on plain text: the channel count of SYSTEM_INFO (one digit of the firmware
// version, so 0 to 9) and the DIO_STATUS value.
#include <cstdint>
#include <cstdlib>

#include "devices/http/acti.h"
#include "reply_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = vmio::fuzz::SplitReplyInput(data, size);
  if (!input) return 0;
  if (input->parser % 2 == 0) {
    vmio::fuzz::Parse([&] {
      const int32_t channels = vmio::acti::ReadChannelCount(input->reply);
      if (channels < 0 || channels > 9) std::abort();
    });
  } else {
    vmio::fuzz::Parse([&] { vmio::acti::ReadStatus(input->reply); });
  }
  return 0;
}
