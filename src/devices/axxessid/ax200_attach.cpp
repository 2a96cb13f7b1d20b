#include "devices/axxessid/ax200_attach.h"

#include <vector>

#include "core/errors.h"
#include "net/local_addresses.h"
#include "vmio/io_device.h"

namespace vmio {

bool AttachToAX200(AccessBridge& bridge, const std::string& device) {
  const bool present = bridge.Attach(device);
  std::vector<std::string> addresses;
  GetLocalIPs(addresses);
  bridge.SetAddress(addresses.empty() ? std::string() : addresses.front());
  return present;
}

void RaiseSoftwareNotFound() { Raise(IOErrorConnectionFailed, "The AX200 software is not found"); }

}  // namespace vmio
