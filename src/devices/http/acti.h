#pragma once
// ACTi network cameras and video servers, driven by "/cgi-bin/cmd/" + group + "?" + parameters.
//
// Quirks kept on purpose:
//  - A refusal comes back with status 200 and a body that begins with "ERROR:"; RequestCommand
//    counts it as a failure.
//  - The channel count is the second character of the firmware version ("A4D-..." = 4
//    channels); every channel has inputs 1-2 and outputs 1-2, read together from one status
//    value (bits 0, 1, 4, 5), hex after three skipped characters.
//  - Each channel has its own 500 ms cache; the cache times are made once per object.
//  - Writing sets both outputs of the channel at once (DIO_OUTPUT mask), the other one from
//    its cached state; the cache takes the new state before the request is sent.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "devices/http/http_device.h"

namespace vmio {

// Reply handling on plain text, apart from the transport.
namespace acti {
// The channel count a SYSTEM_INFO reply gives: the firmware version's second character.
int32_t ReadChannelCount(std::string_view reply);
// The status value of a DIO_STATUS reply (0 when it has none).
int16_t ReadStatus(std::string_view reply);
}  // namespace acti

class ACTi final : public HttpDevice {
 public:
 private:
  engine::Task<void> BuildPortTable() override;
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;
  // GET /cgi-bin/cmd/Group?Parameters: the reply on status 200 when it does not begin with
  // "ERROR:"; nothing otherwise. Never raises.
  engine::Task<std::optional<std::string>> RequestCommand(std::string_view Group, std::string Parameters);
  // A channel's ports are one group (group c - 1 for channel c).
  int32_t GroupOf(int32_t Index) override;
  engine::Task<void> ReadGroup(int32_t Group) override;
  static int32_t PortChannel(int32_t Index) { return Index / 4 + 1; }

  int32_t ChannelCount = 0;
};

}  // namespace vmio
