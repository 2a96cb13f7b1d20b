// The Modbus/TCP client's reply judging, on what one read could give: the data part or the
// client's own error (or 9 for a length field below 2), never anything else, and never more than the buffer holds.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

#include "net/modbus_t.h"
#include "vmio/error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::array<uint8_t, 2048> buffer{};  // as the client reads: zero-filled, at most 2048 bytes
  const size_t count = std::min(size, buffer.size());
  std::copy_n(data, count, buffer.begin());
  try {
    const std::vector<uint8_t> reply = vmio::ModbusT::ReplyData(buffer, static_cast<int32_t>(count));
    if (reply.size() > buffer.size() - 8) std::abort();
  } catch (const vmio::AutomationError& e) {
    // A length field below 2 asks for a negative data length: 9, as cutting the array fails.
    if ((e.Number() < 46002 || e.Number() > 46005) && e.Number() != 9) std::abort();
  }
  return 0;
}
