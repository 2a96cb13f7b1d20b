#include "genie_sim.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include "cgi_query.h"

namespace vmio::sim {
namespace {

constexpr const char* kStateKeys[] = {"GIS_SENSOR1", "GIS_SENSOR2", "GIS_ALARM1", "GIS_ALARM2", "GIS_BUZZER"};

// The GetState key an output is switched by: OUT_ALARM1 -> GIS_ALARM1, OUT_BUZZER -> GIS_BUZZER.
std::string StateOfOutput(const std::string& out_key) {
  if (out_key == "OUT_ALARM1" || out_key == "OUT_ALARM2" || out_key == "OUT_BUZZER") return "GIS_" + out_key.substr(4);
  return {};
}

HttpReply BadRequest() { return {400, "ERROR: bad request\n"}; }

}  // namespace

GenieSim::GenieSim(GenieSimOptions options)
    : options_(std::move(options)), server_([this](const HttpRequestInfo& r) { return Handle(r); }, options_.auth) {
  for (const char* key : kStateKeys) states_.emplace(key, 0);
}

void GenieSim::Start(const std::string& host, int port) { server_.Start(host, port); }

void GenieSim::SetState(std::string_view key, int value) {
  std::lock_guard lock(mutex_);
  const auto it = states_.find(key);
  if (it == states_.end()) throw std::out_of_range("no Genie state " + std::string(key));
  it->second = value;
}

int GenieSim::State(std::string_view key) const {
  std::lock_guard lock(mutex_);
  const auto it = states_.find(key);
  if (it == states_.end()) throw std::out_of_range("no Genie state " + std::string(key));
  return it->second;
}

void GenieSim::SetExtraLines(std::string lines) {
  std::lock_guard lock(mutex_);
  extra_lines_ = std::move(lines);
}

HttpReply GenieSim::Handle(const HttpRequestInfo& request) {
  if (request.path == "/httpapi/GetState") return GetState(request.query);
  if (request.path == "/httpapi/SetState") return SetState(request.query);
  return {404, "Not Found\n"};
}

HttpReply GenieSim::GetState(const std::string& query) const {
  const std::vector<QueryItem> params = SplitQuery(query);
  if (params.empty() || params[0].name != "action" || params[0].value != "getinput") return BadRequest();
  std::lock_guard lock(mutex_);
  std::string body;
  auto add = [&](const std::string& key, int value) { body += key + "=" + std::to_string(value) + options_.line_end; };
  if (params.size() == 1) {
    for (const char* key : kStateKeys) add(key, states_.at(key));
  }
  for (size_t i = 1; i < params.size(); ++i) {
    const auto it = states_.find(params[i].name);
    if (it == states_.end()) return BadRequest();
    add(it->first, it->second);
  }
  return {200, body + extra_lines_};
}

HttpReply GenieSim::SetState(const std::string& query) {
  const std::vector<QueryItem> params = SplitQuery(query);
  if (params.size() < 2 || params[0].name != "action" || params[0].value != "setoutput") return BadRequest();
  for (size_t i = 1; i < params.size(); ++i) {
    if (StateOfOutput(params[i].name).empty() || (params[i].value != "0" && params[i].value != "1"))
      return BadRequest();
  }
  std::lock_guard lock(mutex_);
  std::string body;
  for (size_t i = 1; i < params.size(); ++i) {
    states_[StateOfOutput(params[i].name)] = params[i].value == "1" ? 1 : 0;
    body += params[i].name + "=" + params[i].value + options_.line_end;
  }
  return {200, body};
}

}  // namespace vmio::sim
