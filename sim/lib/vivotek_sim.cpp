#include "vivotek_sim.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "cgi_query.h"

namespace vmio::sim {
namespace {

// "di3" -> 3 for the prefix "di"; -1 for anything else.
int ItemNumber(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix) || name.size() == prefix.size()) return -1;
  int n = -1;
  const auto [end, ec] = std::from_chars(name.data() + prefix.size(), name.data() + name.size(), n);
  return ec == std::errc() && end == name.data() + name.size() ? n : -1;
}

}  // namespace

VivotekSim::VivotekSim(VivotekSimOptions options) : HttpSim(options.auth), options_(std::move(options)) {
  points_.Add(PointKind::Input, options_.inputs);
  points_.Add(PointKind::Output, options_.outputs);
}

std::string VivotekSim::Row(const std::string& key, const std::string& value) const {
  return key + "=" + value + options_.line_end;
}

HttpReply VivotekSim::Capabilities(const std::string& query) const {
  const auto value = [this](const std::string& v) { return options_.quoted_values ? "'" + v + "'" : v; };
  const std::pair<std::string, std::string> params[] = {
      {"capability_api_httpversion", value("0301b")},
      {"capability_bootuptime", value("60")},
      {"capability_nir", value("1")},
      {"capability_npreset", value("0")},
      {"capability_ndi", value(std::to_string(options_.inputs))},
      {"capability_ndo", value(std::to_string(options_.outputs))},
      {"capability_nvi", value("0")},
      {"capability_nmediastream", value("2")},
  };
  const std::vector<QueryItem> wanted = SplitQuery(query);
  std::string body;
  for (const auto& [key, v] : params) {
    bool listed = wanted.empty();
    for (const QueryItem& item : wanted) listed = listed || key.starts_with(item.name);
    if (listed) body += Row(key, v);
  }
  return {200, body};
}

HttpReply VivotekSim::States(const std::string& query, PointKind kind, const char* prefix) const {
  std::string body;
  const std::vector<QueryItem> wanted = SplitQuery(query);
  const int count = points_.Count(kind);
  const auto state = [&](int n) { return std::to_string(points_.Get(kind, n + 1)); };
  if (wanted.empty()) {
    for (int n = 0; n < count; ++n) body += Row(prefix + std::to_string(n), state(n));
  }
  for (const QueryItem& item : wanted) {
    const int n = ItemNumber(item.name, prefix);
    if (n >= 0 && n < count) body += Row(item.name, state(n));
  }
  return {200, body};
}

HttpReply VivotekSim::SwitchOutputs(const std::string& query) {
  std::string body;
  for (const QueryItem& item : SplitQuery(query)) {
    const int n = ItemNumber(item.name, "do");
    if (n < 0 || n >= points_.Outputs() || (item.value != "0" && item.value != "1")) continue;
    points_.SetOutput(n + 1, item.value == "1" ? 1 : 0);
    body += Row(item.name, item.value);
  }
  return {200, body};
}

HttpReply VivotekSim::Handle(const HttpRequestInfo& request) {
  if (request.path == "/cgi-bin/viewer/getparam.cgi") return Capabilities(request.query);
  if (request.path == "/cgi-bin/dido/getdi.cgi") return States(request.query, PointKind::Input, "di");
  if (request.path == "/cgi-bin/dido/getdo.cgi") return States(request.query, PointKind::Output, "do");
  if (request.path == "/cgi-bin/dido/setdo.cgi") return SwitchOutputs(request.query);
  return {404, "Not Found\n"};
}

}  // namespace vmio::sim
