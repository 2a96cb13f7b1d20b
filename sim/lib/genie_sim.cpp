#include "genie_sim.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include "cgi_query.h"

namespace vmio::sim {
namespace {

constexpr const char* kInputKeys[] = {"GIS_SENSOR1", "GIS_SENSOR2"};
constexpr const char* kOutputKeys[] = {"GIS_ALARM1", "GIS_ALARM2", "GIS_BUZZER"};

// The GetState key an output is switched by: OUT_ALARM1 -> GIS_ALARM1, OUT_BUZZER -> GIS_BUZZER.
std::string StateOfOutput(const std::string& out_key) {
  if (out_key == "OUT_ALARM1" || out_key == "OUT_ALARM2" || out_key == "OUT_BUZZER") return "GIS_" + out_key.substr(4);
  return {};
}

HttpReply BadRequest() { return {400, "ERROR: bad request\n"}; }

}  // namespace

GenieSim::GenieSim(GenieSimOptions options) : HttpSim(options.auth), options_(std::move(options)) {
  for (const char* key : kInputKeys) points_.Add(PointKind::Input, key);
  for (const char* key : kOutputKeys) points_.Add(PointKind::Output, key);
}

HttpReply GenieSim::Handle(const HttpRequestInfo& request) {
  if (request.path == "/httpapi/GetState") return GetState(request.query);
  if (request.path == "/httpapi/SetState") return SetState(request.query);
  return {404, "Not Found\n"};
}

HttpReply GenieSim::GetState(const std::string& query) const {
  const std::vector<QueryItem> params = SplitQuery(query);
  if (params.empty() || params[0].name != "action" || params[0].value != "getinput") return BadRequest();
  std::string body;
  auto add = [&](const std::string& key) { body += key + "=" + std::to_string(points_.Get(key)) + options_.line_end; };
  if (params.size() == 1) {
    for (const char* key : kInputKeys) add(key);
    for (const char* key : kOutputKeys) add(key);
  }
  try {
    for (size_t i = 1; i < params.size(); ++i) add(params[i].name);
  } catch (const std::out_of_range&) {
    return BadRequest();
  }
  return {200, body + options_.extra_lines};
}

HttpReply GenieSim::SetState(const std::string& query) {
  const std::vector<QueryItem> params = SplitQuery(query);
  if (params.size() < 2 || params[0].name != "action" || params[0].value != "setoutput") return BadRequest();
  for (size_t i = 1; i < params.size(); ++i) {
    if (StateOfOutput(params[i].name).empty() || (params[i].value != "0" && params[i].value != "1"))
      return BadRequest();
  }
  std::string body;
  for (size_t i = 1; i < params.size(); ++i) {
    points_.Set(StateOfOutput(params[i].name), params[i].value == "1" ? 1 : 0);
    body += params[i].name + "=" + params[i].value + options_.line_end;
  }
  return {200, body};
}

}  // namespace vmio::sim
