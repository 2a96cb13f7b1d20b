#pragma once
// The gateway's topics and the text of what it publishes and takes: a port's state is ON/OFF
// for a Boolean and its text otherwise; a set's payload is read by the port's type.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vmio/variant.h"

namespace vmio::gateway {

// A set payload longer than this is refused unread: no port takes that much.
inline constexpr size_t kMaxSetPayload = 4096;

class Topics {
 public:
  explicit Topics(std::string prefix) : prefix_(std::move(prefix)) {}
  std::string BridgeState() const { return prefix_ + "/bridge/state"; }
  std::string BridgeStats() const { return prefix_ + "/bridge/stats"; }
  std::string Availability(std::string_view device) const;
  std::string State(std::string_view device, int32_t port) const { return PortTopic(device, port, "state"); }
  std::string Set(std::string_view device, int32_t port) const { return PortTopic(device, port, "set"); }
  std::string Error(std::string_view device, int32_t port) const { return PortTopic(device, port, "error"); }
  // What the gateway subscribes to for sets.
  std::string SetFilter() const { return prefix_ + "/+/+/set"; }

  // The device and port segments of a set topic, the port as written ("7", "x").
  struct SetTarget {
    std::string device;
    std::string port;
  };
  std::optional<SetTarget> ParseSet(std::string_view topic) const;

 private:
  std::string PortTopic(std::string_view device, int32_t port, std::string_view leaf) const;
  std::string prefix_;
};

// "0", "12": a port index as topics write it; nothing for anything else ("+1", "01", "-1").
std::optional<int32_t> ParsePortIndex(std::string_view text);

// ON/OFF for a Boolean, a number in its shortest form, text as it is; "None" for the empty
// value (an empty retained payload would delete the topic instead).
std::string StateText(const Variant& value);

// The value a set payload asks for on a port of the type (a variant type code): ON/OFF (also
// true/false, 1/0, any case) for a Boolean, a number in range for a numeric type, the text as
// it is for a string; nothing when the payload does not fit.
std::optional<Variant> ParseSetPayload(std::string_view payload, int32_t type);

}  // namespace vmio::gateway
