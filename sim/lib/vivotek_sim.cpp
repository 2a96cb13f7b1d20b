#include "vivotek_sim.h"

#include <charconv>
#include <stdexcept>
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

// The slot of a 1-based number.
size_t Slot(const std::vector<bool>& states, int number, const char* what) {
  if (number < 1 || static_cast<size_t>(number) > states.size())
    throw std::out_of_range(std::string("no ") + what + " " + std::to_string(number));
  return static_cast<size_t>(number - 1);
}

}  // namespace

VivotekSim::VivotekSim(VivotekSimOptions options)
    : options_(std::move(options)),
      inputs_(static_cast<size_t>(options_.inputs), false),
      outputs_(static_cast<size_t>(options_.outputs), false),
      server_([this](const HttpRequestInfo& r) { return Handle(r); }, options_.auth) {}

VivotekSim::~VivotekSim() { server_.Stop(); }

void VivotekSim::Start(const std::string& host, int port) { server_.Start(host, port); }

void VivotekSim::SetInput(int number, bool active) {
  std::lock_guard lock(mutex_);
  inputs_[Slot(inputs_, number, "input")] = active;
}

bool VivotekSim::Input(int number) const {
  std::lock_guard lock(mutex_);
  return inputs_[Slot(inputs_, number, "input")];
}

void VivotekSim::SetOutput(int number, bool active) {
  std::lock_guard lock(mutex_);
  outputs_[Slot(outputs_, number, "output")] = active;
}

bool VivotekSim::Output(int number) const {
  std::lock_guard lock(mutex_);
  return outputs_[Slot(outputs_, number, "output")];
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

HttpReply VivotekSim::States(const std::string& query, const std::vector<bool>& states, const char* prefix) const {
  std::string body;
  const std::vector<QueryItem> wanted = SplitQuery(query);
  if (wanted.empty()) {
    for (size_t n = 0; n < states.size(); ++n) body += Row(prefix + std::to_string(n), states[n] ? "1" : "0");
  }
  for (const QueryItem& item : wanted) {
    const int n = ItemNumber(item.name, prefix);
    if (n >= 0 && static_cast<size_t>(n) < states.size())
      body += Row(item.name, states[static_cast<size_t>(n)] ? "1" : "0");
  }
  return {200, body};
}

HttpReply VivotekSim::SwitchOutputs(const std::string& query) {
  std::string body;
  for (const QueryItem& item : SplitQuery(query)) {
    const int n = ItemNumber(item.name, "do");
    if (n < 0 || static_cast<size_t>(n) >= outputs_.size() || (item.value != "0" && item.value != "1")) continue;
    outputs_[static_cast<size_t>(n)] = item.value == "1";
    body += Row(item.name, item.value);
  }
  return {200, body};
}

HttpReply VivotekSim::Handle(const HttpRequestInfo& request) {
  std::lock_guard lock(mutex_);
  if (request.path == "/cgi-bin/viewer/getparam.cgi") return Capabilities(request.query);
  if (request.path == "/cgi-bin/dido/getdi.cgi") return States(request.query, inputs_, "di");
  if (request.path == "/cgi-bin/dido/getdo.cgi") return States(request.query, outputs_, "do");
  if (request.path == "/cgi-bin/dido/setdo.cgi") return SwitchOutputs(request.query);
  return {404, "Not Found\n"};
}

}  // namespace vmio::sim
