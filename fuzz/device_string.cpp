// Reading a device string: the split, the mask, the join and the HTTP address must agree on
// every input, and the mask must never show a password.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "http/device_address.h"
#include "vmio/device_string.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view device(reinterpret_cast<const char*>(data), size);
  const vmio::DeviceString parts = vmio::SplitDeviceString(device);
  if (parts.host.find('@') != std::string::npos || parts.host.find('#') != std::string::npos) std::abort();
  if (parts.user && parts.user->find(':') != std::string::npos) std::abort();
  // Nothing is lost or decoded: the parts joined are the string again.
  if (vmio::JoinDeviceString(parts) != device) std::abort();

  const std::string masked = vmio::MaskDeviceString(device);
  if (parts.password) {
    const vmio::DeviceString shown = vmio::SplitDeviceString(masked);
    if (shown.password != "***" || shown.user != parts.user || shown.host != parts.host ||
        shown.option != parts.option || shown.scheme != parts.scheme) {
      std::abort();
    }
  } else if (masked != device) {
    std::abort();
  }

  std::string problem;
  const std::optional<vmio::DeviceAddress> address = vmio::ParseDeviceAddress(device, problem);
  if (address) {
    if (address->host != parts.host || address->access.password != parts.password.value_or("")) std::abort();
    if (!address->access.certificate_sha256.empty() && address->access.certificate_sha256.size() != 32) std::abort();
  } else if (problem.empty()) {
    std::abort();
  }
  return 0;
}
