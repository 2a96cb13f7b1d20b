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
#include <atomic>
#include <string>

#include "http_sim.h"

namespace vmio::sim {

struct ACTiSimOptions {
  int channels = 1;      // 1 to 4
  std::string firmware;  // the firmware version; empty: "A" + channels + "D-310-V3.12.15-AC"
  bool refuse = false;   // answer every command "ERROR: ..."
  HttpAuth auth;
};

class ACTiSim : public HttpSim {
 public:
  explicit ACTiSim(ACTiSimOptions options = {});
  ~ACTiSim() override { Stop(); }

  int Channels() const { return options_.channels; }
  // Inputs and outputs numbered across the channels: input or output N of channel C is
  // number 2 * (C - 1) + N.
  static int PointNumber(int channel, int n) { return 2 * (channel - 1) + n; }
  // While refusing, every command answers "ERROR: ...".
  void SetRefusing(bool refuse) { refusing_ = refuse; }

 private:
  HttpReply Handle(const HttpRequestInfo& request) override;
  HttpReply SystemInfo(const std::string& query) const;
  HttpReply Mpeg4(const std::string& query);

  const ACTiSimOptions options_;
  std::atomic<bool> refusing_;
};

}  // namespace vmio::sim
