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

#include "http/device_request.h"

namespace vmio {

class StarDot final : public HttpDevice {
 public:
  void Connect(const std::string& Device) override;
  std::string PortName(int32_t Index) override;
  Variant PortValue(int32_t Index) override;
  void PortValue(int32_t Index, const Variant& NewValue) override;

 private:
  // GET the path; the decoded body of any status. The client's errors are not caught.
  std::string FetchPath(std::string_view Path) { return Get(Path); }
  void RefreshStates();

  int32_t RelayCount = 0;
  int32_t InputCount = 0;
  std::vector<std::string> PortNames;
  int32_t LastRead = 0;
};

}  // namespace vmio
