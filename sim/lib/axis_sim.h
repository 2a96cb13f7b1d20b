#pragma once
// A simulated Axis camera: the parameter CGIs and the I/O CGIs on a real loopback HTTP server.
//
// Parameter lists (view/, operator/ and admin/param.cgi?action=list&group=A,B) answer
// "root.<name>=<value>" lines for the Input, Output and, on newer firmware, IOPort groups; a
// group the device does not have answers "# Error: ...". input.cgi, output.cgi and (newer
// firmware) port.cgi read states with check=1,2,... and switch outputs with action=N:/ (active)
// or action=N:\ (inactive), optionally a pulse sequence such as N:/300\ (the last state holds).
// Numbers in the CGIs are 1-based; port.cgi counts every I/O port, input.cgi only the inputs
// and output.cgi only the outputs.
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "http_sim.h"

namespace vmio::sim {

struct AxisSimOptions {
  int inputs = 4;
  int outputs = 2;
  // Newer firmware: the IOPort group and port.cgi, with a direction per port.
  bool ioport_group = true;
  // With the IOPort group, one letter per port in port order, 'i' or 'o' ("ioii"); replaces
  // inputs/outputs. Empty: the inputs first, then the outputs.
  std::string port_layout;
  // Port names by 1-based input / output number; unnamed ports are "Input N" / "Output N".
  std::map<int, std::string> input_names;
  std::map<int, std::string> output_names;
  HttpAuth auth;

  // Faults.
  bool refuse_input_output_groups = false;  // the Input and Output groups answer "# Error"
  bool fail_ioport_query = false;           // a query of the IOPort group answers 500
  bool viewer_only = false;                 // operator/ and admin/ CGIs answer 401 (no names)
};

class AxisSim : public HttpSim {
 public:
  explicit AxisSim(AxisSimOptions options = {});
  ~AxisSim() override { Stop(); }

 private:
  using Port = std::pair<PointKind, int>;  // kind and number within it

  HttpReply Handle(const HttpRequestInfo& request) override;
  HttpReply ParamList(const std::string& groups) const;
  HttpReply Check(const std::string& list, char kind) const;
  HttpReply Switch(const std::string& action, char kind);
  std::vector<std::string> Parameters() const;
  // The port behind a 1-based number of the kind ('i' inputs, 'o' outputs, 'p' all ports).
  const Port* Find(char kind, int number) const;

  const AxisSimOptions options_;
  std::vector<Port> ports_;  // port order: IOPort.I0, I1, ...
};

}  // namespace vmio::sim
