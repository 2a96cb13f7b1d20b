#pragma once
// StarDot network cameras: configuration at /info.cgi, states at /io.cgi, relay via
// /io.cgi?relay=0|1.
//
// Quirks kept on purpose:
//  - Replies are never judged: any status is parsed as it stands, and transport errors of the
//    HTTP client reach the caller unchanged. Connect always ends connected.
//  - At most one relay (port 0, direction 3); every input is named just "Input".
//  - Only one input is ever read: the "io" row of /io.cgi goes to port 2 - relay count.
//  - Switching the relay records the new state before the request is sent.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "devices/http/http_device.h"

namespace vmio {

// Reply handling on plain text, apart from the transport.
namespace stardot {
struct Counts {
  int32_t relays = 0;
  int32_t inputs = 0;
};
// The counts an /info.cgi reply names; one it lacks keeps its value in previous.
Counts ReadInfo(std::string_view reply, Counts previous);
// The states an /io.cgi reply gives: the relay (port 0, when relays is 1) and the one input
// it reports (port 2 - relays, when the table has it).
void ReadStates(std::string_view reply, int32_t relays, std::vector<bool>& values);
}  // namespace stardot

class StarDot final : public HttpDevice {
 public:
 private:
  // GET the path; the decoded body of any status. The client's errors are raised as they are.
  engine::Task<std::string> FetchPath(std::string Path);
  engine::Task<void> BuildPortTable() override;
  engine::Task<void> WritePort(int32_t Index, Variant NewValue) override;
  // One /io.cgi reads every port; the index is checked only when the table answers.
  int32_t GroupOf(int32_t) override { return 0; }
  engine::Task<void> ReadGroup(int32_t Group) override;

  int32_t RelayCount = 0;
  int32_t InputCount = 0;
};

}  // namespace vmio
