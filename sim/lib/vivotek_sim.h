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
#include <mutex>
#include <string>
#include <vector>

#include "http_sim_server.h"

namespace vmio::sim {

struct VivotekSimOptions {
  int inputs = 2;
  int outputs = 1;
  bool quoted_values = true;  // capability_ndi='2' rather than capability_ndi=2
  std::string line_end = "\r\n";
  HttpAuth auth;
};

class VivotekSim {
 public:
  explicit VivotekSim(VivotekSimOptions options = {});
  ~VivotekSim();
  VivotekSim(const VivotekSim&) = delete;
  VivotekSim& operator=(const VivotekSim&) = delete;

  void Start(const std::string& host = "127.0.0.1", int port = 0);
  // What Vivotek::Connect takes (credentials included when the device requires them).
  std::string DeviceString() const { return server_.DeviceString(); }
  // Request counts and log, silence.
  HttpSimServer& Server() { return server_; }

  int Inputs() const { return options_.inputs; }
  int Outputs() const { return options_.outputs; }
  // States by 1-based number (input 1 is di0); std::out_of_range outside them. Thread-safe.
  void SetInput(int number, bool active);
  bool Input(int number) const;
  // An output switched by something other than the driver (a local alarm rule, say).
  void SetOutput(int number, bool active);
  bool Output(int number) const;

 private:
  HttpReply Handle(const HttpRequestInfo& request);
  HttpReply Capabilities(const std::string& query) const;
  HttpReply States(const std::string& query, const std::vector<bool>& states, const char* prefix) const;
  HttpReply SwitchOutputs(const std::string& query);
  std::string Row(const std::string& key, const std::string& value) const;

  const VivotekSimOptions options_;
  mutable std::mutex mutex_;
  std::vector<bool> inputs_;
  std::vector<bool> outputs_;
  HttpSimServer server_;  // last: its threads stop before the state above goes
};

}  // namespace vmio::sim
