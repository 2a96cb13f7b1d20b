// vmio-sim stardot: a simulated StarDot camera with a relay and external inputs.
#include <string>
#include <vector>

#include "http_sim_args.h"
#include "stardot_sim.h"

namespace vmio::sim::cli {
namespace {

bool ReadOption(StarDotSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--no-relay") {
    options.relay = false;
  } else if (a == "--inputs") {
    options.inputs = ParseCount(TakeValue(args, i));
  } else {
    return false;
  }
  return true;
}

StarDotSimOptions Fixture() { return {}; }

const bool kRegistered = RegisterHttpMake<StarDotSim, StarDotSimOptions>({
    .text =
        {
            .name = "stardot",
            .progid = "VMIO.StarDot",
            .help = "a StarDot camera with a relay and external inputs (CGI over HTTP)",
            .options_help = "usage: vmio-sim stardot [options]\n"
                            "  --inputs N                external inputs (default 1; /io.cgi reports input 1)\n"
                            "  --no-relay                a camera without a relay (output 1)\n",
        },
    .fixture = &Fixture,
    .on = {{PointKind::Input, 1}},
    .read_option = &ReadOption,
});

}  // namespace
}  // namespace vmio::sim::cli
