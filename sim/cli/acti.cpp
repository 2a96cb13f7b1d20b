// vmio-sim acti: a simulated ACTi camera or video server with 1 to 4 channels of I/O.
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "acti_sim.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

bool ReadOption(ACTiSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--refuse") {
    options.refuse = true;
  } else if (a == "--channels") {
    options.channels = ParseCount(TakeValue(args, i));
    if (options.channels < 1 || options.channels > 4) throw std::invalid_argument("--channels wants 1 to 4");
  } else if (a == "--firmware") {
    options.firmware = TakeValue(args, i);
  } else {
    return false;
  }
  return true;
}

std::optional<std::string> Control(ACTiSim& sim, const std::string& word, const std::string& rest) {
  if (word != "refuse") return std::nullopt;
  const std::optional<bool> on = ParseOnOff(rest);
  if (!on) throw BadArgument(rest);
  sim.SetRefusing(*on);
  return "refusing " + rest;
}

ACTiSimOptions Fixture() {
  ACTiSimOptions o;
  o.channels = 2;
  o.auth = {AuthScheme::Basic, "Admin", "123456"};
  return o;
}

const bool kRegistered = RegisterHttpMake<ACTiSim, ACTiSimOptions>({
    .text =
        {
            .name = "acti",
            .progid = "VMIO.ACTi",
            .help = "an ACTi camera or video server, 1 to 4 channels of 2 inputs and 2 outputs (CGI over HTTP)",
            .options_help =
                "usage: vmio-sim acti [options]\n"
                "  --channels N              video channels, 1 to 4, each with 2 inputs and 2 outputs (default 2);\n"
                "                            input or output N of channel C is number 2 * (C - 1) + N\n"
                "  --firmware VERSION        the firmware version reported (its second character is read as\n"
                "                            the channel count; default A<N>D-310-V3.12.15-AC)\n"
                "  --refuse                  answer every command \"ERROR: ...\"\n",
            .control_help = "  refuse on|off             answer every command \"ERROR: ...\" or not\n",
        },
    .fixture = &Fixture,
    .on = {{PointKind::Input, ACTiSim::PointNumber(2, 1)}},
    .read_option = &ReadOption,
    .control = &Control,
});

}  // namespace
}  // namespace vmio::sim::cli
