#pragma once
// A device class whose driver or transport is not available on this platform yet: it has no
// ports, and Connect fails with the driver's own error for a device it cannot reach.
#include <string>

#include "core/errors.h"
#include "core/port_table.h"

namespace vmio::com {

class UnavailableDevice final : public PortTableDevice {
 public:
  explicit UnavailableDevice(std::string connect_error) : connect_error_(std::move(connect_error)) {}

  std::string PortName(int32_t Index) override {
    CheckIndex(Index);
    return {};
  }
  Variant PortValue(int32_t) override { RaiseNotConnected(); }
  void PortValue(int32_t, const Variant&) override { RaiseNotConnected(); }

 private:
  void BuildPortTable() override { RaiseConnectionFailed(connect_error_); }

  std::string connect_error_;
};

}  // namespace vmio::com
