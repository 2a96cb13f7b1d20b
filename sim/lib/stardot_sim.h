#pragma once
// A simulated StarDot camera: /info.cgi and /io.cgi on a real loopback HTTP server.
//
// /info.cgi answers "key=value" rows describing the camera, among them relay=1 (or 0) and
// external_inputs=N. /io.cgi answers the states: relay=0|1 (when the camera has a relay) and
// io=0|1, the state of external input 1 (when it has inputs); /io.cgi?relay=1 (or 0) switches
// the relay and answers the states. Rows end in LF. Other paths answer 404.
#include <string>

#include "http_sim.h"

namespace vmio::sim {

struct StarDotSimOptions {
  bool relay = true;
  int inputs = 1;  // external inputs
  HttpAuth auth;
};

class StarDotSim : public HttpSim {
 public:
  explicit StarDotSim(StarDotSimOptions options = {});
  ~StarDotSim() override { Stop(); }
  // Points(): external inputs by 1-based number; the relay, when the camera has one, is output 1.

 private:
  HttpReply Handle(const HttpRequestInfo& request) override;
  std::string States() const;

  const StarDotSimOptions options_;
};

}  // namespace vmio::sim
