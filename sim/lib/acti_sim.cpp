#include "acti_sim.h"

#include <charconv>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "cgi_query.h"

namespace vmio::sim {
namespace {

HttpReply Refusal(const std::string& why) { return {200, "ERROR: " + why + "\n"}; }

// A whole decimal number, or -1.
int Number(std::string_view s) {
  int n = -1;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), n);
  return ec == std::errc() && end == s.data() + s.size() && !s.empty() ? n : -1;
}

}  // namespace

ACTiSim::ACTiSim(ACTiSimOptions options)
    : options_(std::move(options)),
      channels_(static_cast<size_t>(options_.channels)),
      refusing_(options_.refuse),
      server_([this](const HttpRequestInfo& r) { return Handle(r); }, options_.auth) {}

ACTiSim::~ACTiSim() { server_.Stop(); }

void ACTiSim::Start(const std::string& host, int port) { server_.Start(host, port); }

ACTiSim::Channel& ACTiSim::At(int channel, int number) {
  return const_cast<Channel&>(std::as_const(*this).At(channel, number));
}

const ACTiSim::Channel& ACTiSim::At(int channel, int number) const {
  if (channel < 1 || static_cast<size_t>(channel) > channels_.size() || number < 1 || number > 2) {
    throw std::out_of_range("no port " + std::to_string(number) + " on channel " + std::to_string(channel));
  }
  return channels_[static_cast<size_t>(channel - 1)];
}

void ACTiSim::SetInput(int channel, int number, bool active) {
  std::lock_guard lock(mutex_);
  At(channel, number).inputs[static_cast<size_t>(number - 1)] = active;
}

bool ACTiSim::Input(int channel, int number) const {
  std::lock_guard lock(mutex_);
  return At(channel, number).inputs[static_cast<size_t>(number - 1)];
}

void ACTiSim::SetOutput(int channel, int number, bool active) {
  std::lock_guard lock(mutex_);
  At(channel, number).outputs[static_cast<size_t>(number - 1)] = active;
}

bool ACTiSim::Output(int channel, int number) const {
  std::lock_guard lock(mutex_);
  return At(channel, number).outputs[static_cast<size_t>(number - 1)];
}

void ACTiSim::SetRefusing(bool refuse) {
  std::lock_guard lock(mutex_);
  refusing_ = refuse;
}

HttpReply ACTiSim::SystemInfo(const std::string& query) const {
  const std::vector<QueryItem> items = SplitQuery(query);
  if (items.size() != 1 || items[0].name != "SYSTEM_INFO" || items[0].has_value) return Refusal("Unknown command");
  const std::string firmware =
      options_.firmware.empty() ? "A" + std::to_string(options_.channels) + "D-310-V3.12.15-AC" : options_.firmware;
  return {200,
          "Production ID = ACD-2100\n"
          "Firmware Version = " +
              firmware +
              "\n"
              "Hardware Version = A\n"
              "MAC Address = 00:0F:7C:05:1A:2B\n"};
}

HttpReply ACTiSim::Mpeg4(const std::string& query) {
  int channel = 1;
  std::string body;
  for (const QueryItem& item : SplitQuery(query)) {
    if (item.name == "CHANNEL") {
      channel = Number(item.value);
      if (channel < 1 || static_cast<size_t>(channel) > channels_.size()) return Refusal("Invalid channel");
    } else if (item.name == "DIO_STATUS" && !item.has_value) {
      const Channel& c = channels_[static_cast<size_t>(channel - 1)];
      const int status = c.inputs[0] | c.inputs[1] << 1 | c.outputs[0] << 4 | c.outputs[1] << 5;
      char row[32];
      std::snprintf(row, sizeof row, "DIO_STATUS='0x%02X'\n", status);
      body += row;
    } else if (item.name == "DIO_OUTPUT") {
      const std::string_view v = item.value;
      int mask = -1;
      if (v.size() > 2 && (v.starts_with("0x") || v.starts_with("0X"))) {
        const auto [end, ec] = std::from_chars(v.data() + 2, v.data() + v.size(), mask, 16);
        if (ec != std::errc() || end != v.data() + v.size()) mask = -1;
      }
      if (mask < 0 || mask > 3) return Refusal("Invalid DIO_OUTPUT value");
      Channel& c = channels_[static_cast<size_t>(channel - 1)];
      c.outputs = {(mask & 1) != 0, (mask & 2) != 0};
      body += "DIO_OUTPUT='0x0" + std::to_string(mask) + "'\n";
    } else {
      return Refusal("Unknown parameter " + item.name);
    }
  }
  if (body.empty()) return Refusal("No command");
  return {200, body};
}

HttpReply ACTiSim::Handle(const HttpRequestInfo& request) {
  std::lock_guard lock(mutex_);
  if (!request.path.starts_with("/cgi-bin/cmd/")) return {404, "Not Found\n"};
  if (refusing_) return Refusal("Device busy");
  if (request.path == "/cgi-bin/cmd/system") return SystemInfo(request.query);
  if (request.path == "/cgi-bin/cmd/mpeg4") return Mpeg4(request.query);
  return Refusal("Unknown command group");
}

}  // namespace vmio::sim
