#include "stardot_sim.h"

#include <utility>

namespace vmio::sim {

StarDotSim::StarDotSim(StarDotSimOptions options) : HttpSim(options.auth), options_(std::move(options)) {
  points_.Add(PointKind::Input, options_.inputs);
  if (options_.relay) points_.Add(PointKind::Output, "Relay");
}

std::string StarDotSim::States() const {
  std::string body;
  if (options_.relay) body += "relay=" + std::to_string(points_.Output(1)) + "\n";
  if (options_.inputs > 0) body += "io=" + std::to_string(points_.Input(1)) + "\n";
  return body;
}

HttpReply StarDotSim::Handle(const HttpRequestInfo& request) {
  if (request.path == "/info.cgi") {
    return {200,
            "vendor=StarDot Technologies\n"
            "model=NetCam SC\n"
            "version=1.1.12\n"
            "relay=" +
                std::string(options_.relay ? "1" : "0") +
                "\n"
                "external_inputs=" +
                std::to_string(options_.inputs) + "\n"};
  }
  if (request.path == "/io.cgi") {
    if (options_.relay && (request.query == "relay=1" || request.query == "relay=0"))
      points_.SetOutput(1, request.query == "relay=1" ? 1 : 0);
    return {200, States()};
  }
  return {404, "Not Found\n"};
}

}  // namespace vmio::sim
