// A set message from the broker: its topic and payload are anyone's. Input: the topic, a
// newline, the payload. Reading never fails hard, a topic read back names the same topic, and
// a payload read for each port type gives a value of that type that states back as sent.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "topics.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t newline = input.find('\n');
  const std::string_view topic = input.substr(0, newline);
  const std::string_view payload = newline == std::string_view::npos ? std::string_view() : input.substr(newline + 1);

  const vmio::gateway::Topics topics("vmio");
  if (const auto target = topics.ParseSet(topic)) {
    if (target->device.empty() || target->device.find('/') != std::string::npos) std::abort();
    if (const auto port = vmio::gateway::ParsePortIndex(target->port)) {
      if (topics.Set(target->device, *port) != topic) std::abort();
    }
  }
  for (const int32_t type : {vmio::vtBool, vmio::vtString, vmio::vtI2, vmio::vtI4, vmio::vtR8, vmio::vtUI1}) {
    const auto value = vmio::gateway::ParseSetPayload(payload, type);
    if (!value) continue;
    if (value->VarType() != type) std::abort();
    const std::string state = vmio::gateway::StateText(*value);
    if (type == vmio::vtBool && state != "ON" && state != "OFF") std::abort();
    if (type == vmio::vtString && state != payload) std::abort();
  }
  return 0;
}
