#pragma once
// A simulated Aviosys IP power unit: "/Set.cmd?CMD=COMMAND" on a real loopback HTTP server.
//
// The command is the raw query after "CMD=" ("+" is a plus sign, not a blank). Commands:
// GetPowerNum (the socket count; the fixed model does not know it), GetPower
// ("P60=1,P61=0,..."), GetIo (fixed model only: "P51=0,...,P58=0"), SetPower+P60=1 (one or
// more "+Pnn=0|1" assignments, echoed), GetPortNameA, GetPortNameB, ... (socket names, answered
// "GetPortNameA=" + name + ","). Units with a socket count number their sockets from P60; the
// fixed model has inputs P51-P58 and sockets P61-P68. A command the unit does not know is
// answered "HTTPCMD_UNKNOWPIN". Replies are one line, optionally wrapped in <html>...</html>
// and optionally followed by a second line.
#include <string>
#include <vector>

#include "http_sim.h"

namespace vmio::sim {

struct AviosysSimOptions {
  // The model with eight inputs and eight sockets; sockets below is then ignored.
  bool fixed_model = false;
  int sockets = 4;
  bool html = true;         // wrap every reply in <html>...</html>
  bool extra_line = false;  // follow every reply with CR LF and a second line
  // Answered to GetPowerNum instead of the socket count when not empty ("# Error", a smaller
  // count than the unit really switches).
  std::string power_num_reply;
  std::vector<std::string> names;  // socket names, A first; missing ones are empty
  bool names_fail = false;         // GetPortName answers 404
  HttpAuth auth;
};

class AviosysSim : public HttpSim {
 public:
  explicit AviosysSim(AviosysSimOptions options = {});
  ~AviosysSim() override { Stop(); }
  // Points(): inputs and sockets (the outputs) by 1-based number.

 private:
  HttpReply Handle(const HttpRequestInfo& request) override;
  std::string Answer(const std::string& command);
  std::string States(PointKind kind, int first_pin) const;
  std::string SetPower(const std::string& assignments);

  const AviosysSimOptions options_;
  const int first_socket_pin_;
};

}  // namespace vmio::sim
