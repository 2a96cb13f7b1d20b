#pragma once
// What every simulated HTTP device shares: a real loopback server that hands each request to
// the make's Handle, and the device's points.
#include <string>

#include "http_sim_server.h"
#include "point_bank.h"

namespace vmio::sim {

class HttpSim {
 public:
  HttpSim(const HttpSim&) = delete;
  HttpSim& operator=(const HttpSim&) = delete;

  void Start(const std::string& host = "127.0.0.1", int port = 0) { server_.Start(host, port); }
  // What the driver's Connect takes (credentials included when the device requires them).
  std::string DeviceString() const { return server_.DeviceString(); }
  // Request counts and log, silence.
  HttpSimServer& Server() { return server_; }
  PointBank& Points() { return points_; }
  // The device's answer to a request, for a host that serves it itself (the fleet); the
  // caller does the credential check and the counting the server would.
  HttpReply Answer(const HttpRequestInfo& request) { return Handle(request); }

 protected:
  explicit HttpSim(const HttpAuth& auth) : server_([this](const HttpRequestInfo& r) { return Handle(r); }, auth) {}
  // A make's destructor calls Stop first: its state goes before this part, and the serving
  // threads must be done with it by then.
  virtual ~HttpSim() = default;
  void Stop() { server_.Stop(); }
  // Runs on the server's threads.
  virtual HttpReply Handle(const HttpRequestInfo& request) = 0;

  PointBank points_;

 private:
  HttpSimServer server_;
};

}  // namespace vmio::sim
