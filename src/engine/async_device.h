#pragma once
// What the engine asks of a device: its exchanges as tasks on a given Io, and its port table.
// Every driver's blocking members run these same tasks to completion (engine/io.h), so a
// device behaves the same, byte for byte, whether a host calls it or the engine drives it.
#include <cstdint>
#include <string>
#include <vector>

#include "engine/io.h"
#include "vmio/variant.h"

namespace vmio::engine {

class AsyncDevice {
 public:
  // Connect(device): the layout read and the table built; raises as Connect does.
  virtual Task<void> ConnectOn(Io& io, std::string device) = 0;
  // Reads every port's group from the device, whatever the caches say; raises as PortValue.
  virtual Task<void> RefreshOn(Io& io) = 0;
  // The property put PortValue(index, value).
  virtual Task<void> WriteOn(Io& io, int32_t index, Variant value) = 0;
  // The last values read, one per port.
  virtual std::vector<Variant> TableValues() const = 0;

 protected:
  ~AsyncDevice() = default;
};

}  // namespace vmio::engine
