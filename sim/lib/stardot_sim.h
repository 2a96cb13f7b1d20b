#pragma once
// A simulated StarDot camera: /info.cgi and /io.cgi on a real loopback HTTP server.
//
// /info.cgi answers "key=value" rows describing the camera, among them relay=1 (or 0) and
// external_inputs=N. /io.cgi answers the states: relay=0|1 (when the camera has a relay) and
// io=0|1, the state of external input 1 (when it has inputs); /io.cgi?relay=1 (or 0) switches
// the relay and answers the states. Rows end in LF. Other paths answer 404.
#include <mutex>
#include <string>
#include <vector>

#include "http_sim_server.h"

namespace vmio::sim {

struct StarDotSimOptions {
  bool relay = true;
  int inputs = 1;  // external inputs
  HttpAuth auth;
};

class StarDotSim {
 public:
  explicit StarDotSim(StarDotSimOptions options = {});
  ~StarDotSim();
  StarDotSim(const StarDotSim&) = delete;
  StarDotSim& operator=(const StarDotSim&) = delete;

  void Start(const std::string& host = "127.0.0.1", int port = 0);
  // What StarDot::Connect takes (credentials included when the device requires them).
  std::string DeviceString() const { return server_.DeviceString(); }
  // Request counts and log, silence.
  HttpSimServer& Server() { return server_; }

  bool HasRelay() const { return options_.relay; }
  int Inputs() const { return options_.inputs; }
  // External inputs by 1-based number; std::out_of_range outside them. Thread-safe.
  void SetInput(int number, bool active);
  bool Input(int number) const;
  // The relay's state (false on a camera without one); SetRelay switches it locally.
  bool Relay() const;
  void SetRelay(bool active);

 private:
  HttpReply Handle(const HttpRequestInfo& request);
  std::string States() const;
  size_t Slot(int number) const;

  const StarDotSimOptions options_;
  mutable std::mutex mutex_;
  std::vector<bool> inputs_;
  bool relay_ = false;
  HttpSimServer server_;  // last: its threads stop before the state above goes
};

}  // namespace vmio::sim
