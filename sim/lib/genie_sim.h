#pragma once
// A simulated Genie device: the "/httpapi/" interface on a real loopback HTTP server.
//
// GetState?action=getinput answers one "KEY=value" line per state, for the keys named in the
// query (GIS_SENSOR1=0&GIS_BUZZER=0, in that order) or for all five when none is named:
// GIS_SENSOR1, GIS_SENSOR2 (inputs), GIS_ALARM1, GIS_ALARM2, GIS_BUZZER (outputs).
// SetState?action=setoutput&OUT_ALARM1=1 (OUT_ALARM2, OUT_BUZZER) switches an output and echoes
// the assignment. Another action or an unknown key answers 400; other paths 404.
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "http_sim_server.h"

namespace vmio::sim {

struct GenieSimOptions {
  HttpAuth auth;
  std::string line_end = "\n";  // "\r\n" for firmware that ends its lines that way
};

class GenieSim {
 public:
  explicit GenieSim(GenieSimOptions options = {});
  GenieSim(const GenieSim&) = delete;
  GenieSim& operator=(const GenieSim&) = delete;

  void Start(const std::string& host = "127.0.0.1", int port = 0);
  // What Genie::Connect takes (credentials included when the device requires them).
  std::string DeviceString() const { return server_.DeviceString(); }
  // Request counts and log, silence.
  HttpSimServer& Server() { return server_; }

  // A state by its GetState key, as the number the device reports (inputs are set, outputs
  // read back); std::out_of_range for another key. Thread-safe.
  void SetState(std::string_view key, int value);
  int State(std::string_view key) const;
  // Lines added to the end of every GetState reply as they stand (say a key of another case).
  void SetExtraLines(std::string lines);

 private:
  HttpReply Handle(const HttpRequestInfo& request);
  HttpReply GetState(const std::string& query) const;
  HttpReply SetState(const std::string& query);

  const GenieSimOptions options_;
  mutable std::mutex mutex_;
  std::map<std::string, int, std::less<>> states_;
  std::string extra_lines_;
  HttpSimServer server_;  // last: its threads stop before the state above goes
};

}  // namespace vmio::sim
