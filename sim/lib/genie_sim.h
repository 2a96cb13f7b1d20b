#pragma once
// A simulated Genie device: the "/httpapi/" interface on a real loopback HTTP server.
//
// GetState?action=getinput answers one "KEY=value" line per state, for the keys named in the
// query (GIS_SENSOR1=0&GIS_BUZZER=0, in that order) or for all five when none is named:
// GIS_SENSOR1, GIS_SENSOR2 (inputs), GIS_ALARM1, GIS_ALARM2, GIS_BUZZER (outputs).
// SetState?action=setoutput&OUT_ALARM1=1 (OUT_ALARM2, OUT_BUZZER) switches an output and echoes
// the assignment. Another action or an unknown key answers 400; other paths 404.
#include <string>

#include "http_sim.h"

namespace vmio::sim {

struct GenieSimOptions {
  HttpAuth auth;
  std::string line_end = "\n";  // "\r\n" for firmware that ends its lines that way
  // Lines added to the end of every GetState reply as they stand (say a key of another case).
  std::string extra_lines;
};

class GenieSim : public HttpSim {
 public:
  explicit GenieSim(GenieSimOptions options = {});
  ~GenieSim() override { Stop(); }
  // Points(): the states by their GetState keys (also by number: inputs GIS_SENSOR1-2, outputs
  // GIS_ALARM1, GIS_ALARM2, GIS_BUZZER), as the number the device reports.

 private:
  HttpReply Handle(const HttpRequestInfo& request) override;
  HttpReply GetState(const std::string& query) const;
  HttpReply SetState(const std::string& query);

  const GenieSimOptions options_;
};

}  // namespace vmio::sim
