#pragma once
// A simulated Vivotek camera: its capability list and the DI/DO CGIs on a real loopback HTTP
// server.
//
// /cgi-bin/viewer/getparam.cgi?capability lists "capability_*=value" rows, among them
// capability_ndi (number of digital inputs) and capability_ndo (outputs); a query naming
// parameters lists those whose names begin with one of them. Values are single-quoted
// ('2') on firmware that quotes them, bare on older firmware. /cgi-bin/dido/getdi.cgi?di0&di1
// answers di0=1, di1=0 rows for the inputs named (all of them when none is), getdo.cgi likewise
// for do0, do1, ...; /cgi-bin/dido/setdo.cgi?do0=1 switches output do0 and answers its new
// state. Device numbers are 0-based; names outside the device are left out of a reply. Rows end
// in CR LF. Other paths answer 404.
#include <string>

#include "http_sim.h"

namespace vmio::sim {

struct VivotekSimOptions {
  int inputs = 2;
  int outputs = 1;
  bool quoted_values = true;  // capability_ndi='2' rather than capability_ndi=2
  std::string line_end = "\r\n";
  HttpAuth auth;
};

class VivotekSim : public HttpSim {
 public:
  explicit VivotekSim(VivotekSimOptions options = {});
  ~VivotekSim() override { Stop(); }
  // Points(): inputs and outputs by 1-based number (input 1 is di0). Setting an output stands for
  // something other than the driver switching it (a local alarm rule, say).

 private:
  HttpReply Handle(const HttpRequestInfo& request) override;
  HttpReply Capabilities(const std::string& query) const;
  HttpReply States(const std::string& query, PointKind kind, const char* prefix) const;
  HttpReply SwitchOutputs(const std::string& query);
  std::string Row(const std::string& key, const std::string& value) const;

  const VivotekSimOptions options_;
};

}  // namespace vmio::sim
