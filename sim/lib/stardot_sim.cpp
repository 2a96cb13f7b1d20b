#include "stardot_sim.h"

#include <stdexcept>
#include <utility>

namespace vmio::sim {

StarDotSim::StarDotSim(StarDotSimOptions options)
    : options_(std::move(options)),
      inputs_(static_cast<size_t>(options_.inputs), false),
      server_([this](const HttpRequestInfo& r) { return Handle(r); }, options_.auth) {}

StarDotSim::~StarDotSim() { server_.Stop(); }

void StarDotSim::Start(const std::string& host, int port) { server_.Start(host, port); }

size_t StarDotSim::Slot(int number) const {
  if (number < 1 || static_cast<size_t>(number) > inputs_.size())
    throw std::out_of_range("no input " + std::to_string(number));
  return static_cast<size_t>(number - 1);
}

void StarDotSim::SetInput(int number, bool active) {
  std::lock_guard lock(mutex_);
  inputs_[Slot(number)] = active;
}

bool StarDotSim::Input(int number) const {
  std::lock_guard lock(mutex_);
  return inputs_[Slot(number)];
}

bool StarDotSim::Relay() const {
  std::lock_guard lock(mutex_);
  return relay_;
}

void StarDotSim::SetRelay(bool active) {
  std::lock_guard lock(mutex_);
  if (options_.relay) relay_ = active;
}

std::string StarDotSim::States() const {
  std::string body;
  if (options_.relay) body += relay_ ? "relay=1\n" : "relay=0\n";
  if (!inputs_.empty()) body += inputs_[0] ? "io=1\n" : "io=0\n";
  return body;
}

HttpReply StarDotSim::Handle(const HttpRequestInfo& request) {
  std::lock_guard lock(mutex_);
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
      relay_ = request.query == "relay=1";
    return {200, States()};
  }
  return {404, "Not Found\n"};
}

}  // namespace vmio::sim
