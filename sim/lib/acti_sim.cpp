#include "acti_sim.h"

#include <charconv>
#include <cstdio>
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
    : HttpSim(options.auth), options_(std::move(options)), refusing_(options_.refuse) {
  points_.Add(PointKind::Input, 2 * options_.channels);
  points_.Add(PointKind::Output, 2 * options_.channels);
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
      if (channel < 1 || channel > options_.channels) return Refusal("Invalid channel");
    } else if (item.name == "DIO_STATUS" && !item.has_value) {
      const auto on = [&](PointKind kind, int n) { return points_.Get(kind, PointNumber(channel, n)) == 1 ? 1 : 0; };
      const int status = on(PointKind::Input, 1) | on(PointKind::Input, 2) << 1 | on(PointKind::Output, 1) << 4 |
                         on(PointKind::Output, 2) << 5;
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
      points_.SetOutput(PointNumber(channel, 1), mask & 1);
      points_.SetOutput(PointNumber(channel, 2), (mask & 2) >> 1);
      body += "DIO_OUTPUT='0x0" + std::to_string(mask) + "'\n";
    } else {
      return Refusal("Unknown parameter " + item.name);
    }
  }
  if (body.empty()) return Refusal("No command");
  return {200, body};
}

HttpReply ACTiSim::Handle(const HttpRequestInfo& request) {
  if (!request.path.starts_with("/cgi-bin/cmd/")) return {404, "Not Found\n"};
  if (refusing_) return Refusal("Device busy");
  if (request.path == "/cgi-bin/cmd/system") return SystemInfo(request.query);
  if (request.path == "/cgi-bin/cmd/mpeg4") return Mpeg4(request.query);
  return Refusal("Unknown command group");
}

}  // namespace vmio::sim
