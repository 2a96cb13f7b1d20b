// vmio-sim vivotek: a simulated Vivotek camera with digital inputs and outputs.
#include <string>
#include <vector>

#include "http_sim_args.h"
#include "vivotek_sim.h"

namespace vmio::sim::cli {
namespace {

bool ReadOption(VivotekSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--bare") {
    options.quoted_values = false;
  } else if (a == "--lf") {
    options.line_end = std::string(1, '\n');  // not a literal: GCC 12 warns wrongly on that
  } else if (a == "--inputs") {
    options.inputs = ParseCount(TakeValue(args, i));
  } else if (a == "--outputs") {
    options.outputs = ParseCount(TakeValue(args, i));
  } else {
    return false;
  }
  return true;
}

VivotekSimOptions Fixture() {
  VivotekSimOptions o;
  o.inputs = 2;
  o.outputs = 2;
  o.auth = {AuthScheme::Digest, "root", "pass"};
  return o;
}

const bool kRegistered = RegisterHttpMake<VivotekSim, VivotekSimOptions>({
    .text =
        {
            .name = "vivotek",
            .progid = "VMIO.Vivotek",
            .help = "a Vivotek camera with digital inputs and outputs (CGI over HTTP)",
            .options_help = "usage: vmio-sim vivotek [options]\n"
                            "  --inputs N                digital inputs (default 2; input 1 is di0)\n"
                            "  --outputs N               digital outputs (default 2)\n"
                            "  --bare                    capability values without quotes (older firmware)\n"
                            "  --lf                      end reply rows with LF instead of CR LF\n",
            .default_auth = AuthScheme::Digest,
        },
    .fixture = &Fixture,
    .on = {{PointKind::Input, 1}},
    .read_option = &ReadOption,
});

}  // namespace
}  // namespace vmio::sim::cli
