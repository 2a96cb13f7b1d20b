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
#include <mutex>
#include <string>
#include <vector>

#include "http_sim_server.h"

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

class AviosysSim {
 public:
  explicit AviosysSim(AviosysSimOptions options = {});
  AviosysSim(const AviosysSim&) = delete;
  AviosysSim& operator=(const AviosysSim&) = delete;

  void Start(const std::string& host = "127.0.0.1", int port = 0);
  // What AviosysPDU::Connect takes (credentials included when the unit requires them).
  std::string DeviceString() const { return server_.DeviceString(); }
  // Request counts and log (every command is a request for /Set.cmd), silence.
  HttpSimServer& Server() { return server_; }

  int Inputs() const { return static_cast<int>(inputs_.size()); }
  int Sockets() const { return static_cast<int>(sockets_.size()); }
  // States by 1-based input / socket number, as the number the unit reports (1 on, 0 off);
  // std::out_of_range outside them. Thread-safe.
  void SetInput(int number, int value);
  void SetSocket(int number, int value);
  int Input(int number) const;
  int Socket(int number) const;

 private:
  HttpReply Handle(const HttpRequestInfo& request);
  std::string Answer(const std::string& command);
  std::string States(const std::vector<int>& states, int first_pin) const;
  std::string SetPower(const std::string& assignments);

  const AviosysSimOptions options_;
  const int first_socket_pin_;
  mutable std::mutex mutex_;
  std::vector<int> inputs_;
  std::vector<int> sockets_;
  HttpSimServer server_;  // last: its threads stop before the state above goes
};

}  // namespace vmio::sim
