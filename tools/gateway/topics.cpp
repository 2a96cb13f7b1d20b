#include "topics.h"

#include "device_commands.h"
#include "value_text.h"

namespace vmio::gateway {

std::string Topics::Availability(std::string_view device) const {
  return prefix_ + "/" + std::string(device) + "/availability";
}

std::string Topics::PortTopic(std::string_view device, int32_t port, std::string_view leaf) const {
  return prefix_ + "/" + std::string(device) + "/" + std::to_string(port) + "/" + std::string(leaf);
}

std::optional<Topics::SetTarget> Topics::ParseSet(std::string_view topic) const {
  if (!topic.starts_with(prefix_) || topic.substr(prefix_.size(), 1) != "/") return std::nullopt;
  topic.remove_prefix(prefix_.size() + 1);
  const size_t slash = topic.find('/');
  if (slash == std::string_view::npos || slash == 0) return std::nullopt;
  const std::string_view device = topic.substr(0, slash);
  const std::string_view rest = topic.substr(slash + 1);
  const size_t leaf = rest.find('/');
  if (leaf == std::string_view::npos || leaf == 0 || rest.substr(leaf) != "/set") return std::nullopt;
  return SetTarget{std::string(device), std::string(rest.substr(0, leaf))};
}

std::optional<int32_t> ParsePortIndex(std::string_view text) {
  if (text.empty() || text.size() > 5 || (text.size() > 1 && text[0] == '0')) return std::nullopt;
  int32_t index = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    index = index * 10 + (c - '0');
  }
  return index;
}

std::string StateText(const Variant& value) {
  if (value.IsEmpty()) return "None";
  if (value.IsBool()) return value.AsBool() ? "ON" : "OFF";
  if (value.IsString()) return value.AsString();
  return cli::DisplayValue(value);
}

std::optional<Variant> ParseSetPayload(std::string_view payload, int32_t type) {
  if (payload.size() > kMaxSetPayload) return std::nullopt;
  if (type != vtString) {
    // Tools often end a typed command with a newline.
    while (!payload.empty() && (payload.back() == '\n' || payload.back() == '\r' || payload.back() == ' ')) {
      payload.remove_suffix(1);
    }
    while (!payload.empty() && payload.front() == ' ') payload.remove_prefix(1);
  }
  return cli::ValueForPort(payload, type);
}

}  // namespace vmio::gateway
