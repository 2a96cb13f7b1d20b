#pragma once
// A simulated ACTi camera or video server: the "/cgi-bin/cmd/" commands on a real loopback
// HTTP server.
//
// The device has 1 to 4 video channels, each with inputs 1-2 and outputs 1-2.
// /cgi-bin/cmd/system?SYSTEM_INFO answers "Name = value" rows, among them the firmware version,
// whose second character is the channel count ("A1D-310-V3.12.15-AC" on a one-channel camera).
// /cgi-bin/cmd/mpeg4 takes "&"-separated items applied in order: CHANNEL=n selects the channel
// (1 when not named), DIO_STATUS answers DIO_STATUS='0xHH' (inputs in bits 0-1, outputs in bits
// 4-5), DIO_OUTPUT=0x0M sets both outputs of the channel from the mask M (bit 0 output 1,
// bit 1 output 2) and answers the mask it took. Rows end in LF. A command the device does not
// know, a bad channel or a malformed value is refused with status 200 and a body beginning
// with "ERROR:"; so is every command while the device refuses. Paths outside /cgi-bin/cmd/
// answer 404.
#include <array>
#include <mutex>
#include <string>
#include <vector>

#include "http_sim_server.h"

namespace vmio::sim {

struct ACTiSimOptions {
  int channels = 1;      // 1 to 4
  std::string firmware;  // the firmware version; empty: "A" + channels + "D-310-V3.12.15-AC"
  bool refuse = false;   // answer every command "ERROR: ..."
  HttpAuth auth;
};

class ACTiSim {
 public:
  explicit ACTiSim(ACTiSimOptions options = {});
  ~ACTiSim();
  ACTiSim(const ACTiSim&) = delete;
  ACTiSim& operator=(const ACTiSim&) = delete;

  void Start(const std::string& host = "127.0.0.1", int port = 0);
  // What ACTi::Connect takes (credentials included when the device requires them).
  std::string DeviceString() const { return server_.DeviceString(); }
  // Request counts and log, silence.
  HttpSimServer& Server() { return server_; }

  int Channels() const { return options_.channels; }
  // States by 1-based channel and number (1 or 2); std::out_of_range outside them. Thread-safe.
  void SetInput(int channel, int number, bool active);
  bool Input(int channel, int number) const;
  void SetOutput(int channel, int number, bool active);
  bool Output(int channel, int number) const;
  // While refusing, every command answers "ERROR: ...".
  void SetRefusing(bool refuse);

 private:
  struct Channel {
    std::array<bool, 2> inputs{};
    std::array<bool, 2> outputs{};
  };

  HttpReply Handle(const HttpRequestInfo& request);
  HttpReply SystemInfo(const std::string& query) const;
  HttpReply Mpeg4(const std::string& query);
  Channel& At(int channel, int number);
  const Channel& At(int channel, int number) const;

  const ACTiSimOptions options_;
  mutable std::mutex mutex_;
  std::vector<Channel> channels_;
  bool refusing_ = false;
  HttpSimServer server_;  // last: its threads stop before the state above goes
};

}  // namespace vmio::sim
