// vmio-sim axis: a simulated Axis camera with digital inputs and outputs.
#include <map>
#include <string>
#include <vector>

#include "axis_sim.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

void AddName(std::map<int, std::string>& names, const std::string& option) {
  const size_t eq = option.find('=');
  if (eq == std::string::npos) throw BadArgument(option);
  names[ParseCount(option.substr(0, eq))] = option.substr(eq + 1);
}

bool ReadOption(AxisSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--ioport" || a == "--no-ioport") {
    options.ioport_group = a == "--ioport";
  } else if (a == "--inputs") {
    options.inputs = ParseCount(TakeValue(args, i));
  } else if (a == "--outputs") {
    options.outputs = ParseCount(TakeValue(args, i));
  } else if (a == "--layout") {
    options.port_layout = TakeValue(args, i);
    return options.port_layout.find_first_not_of("io") == std::string::npos;
  } else if (a == "--name-input") {
    AddName(options.input_names, TakeValue(args, i));
  } else if (a == "--name-output") {
    AddName(options.output_names, TakeValue(args, i));
  } else {
    return false;
  }
  return true;
}

AxisSimOptions Fixture() {
  AxisSimOptions o;
  o.inputs = 4;
  o.outputs = 2;
  o.input_names = {{1, "Front door"}, {2, "Window"}};
  o.output_names = {{1, "Siren"}};
  o.auth = {AuthScheme::Digest, "operator", "secret"};
  return o;
}

const bool kRegistered = RegisterHttpMake<AxisSim, AxisSimOptions>({
    .text =
        {
            .name = "axis",
            .progid = "VMIO.Axis",
            .help = "an Axis camera with digital inputs and outputs (CGI over HTTP)",
            .options_help =
                "usage: vmio-sim axis [options]\n"
                "  --inputs N                digital inputs (default 4)\n"
                "  --outputs N               digital outputs (default 2)\n"
                "  --ioport | --no-ioport    newer firmware with the IOPort group (default) or older without\n"
                "  --layout LETTERS          with --ioport: one 'i' or 'o' per port in order (replaces the counts)\n"
                "  --name-input N=NAME       name of input N (1-based); repeatable\n"
                "  --name-output N=NAME      name of output N (1-based); repeatable\n",
            // The cameras challenge with Digest unless set otherwise.
            .default_auth = AuthScheme::Digest,
        },
    .fixture = &Fixture,
    .read_option = &ReadOption,
});

}  // namespace
}  // namespace vmio::sim::cli
