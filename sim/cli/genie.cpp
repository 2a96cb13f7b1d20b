// vmio-sim genie: a simulated Genie device with two sensors, two alarm outputs and a buzzer.
#include <string>
#include <vector>

#include "genie_sim.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

bool ReadOption(GenieSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  if (args[i] != "--crlf") return false;
  options.line_end = "\r\n";
  return true;
}

GenieSimOptions Fixture() { return {}; }

const bool kRegistered = RegisterHttpMake<GenieSim, GenieSimOptions>({
    .text =
        {
            .name = "genie",
            .progid = "VMIO.Genie",
            .help = "a Genie device: two sensors, two alarm outputs and a buzzer (/httpapi/ over HTTP)",
            .options_help = "usage: vmio-sim genie [options]\n"
                            "  --crlf                    end reply lines with CR LF instead of LF\n"
                            "Inputs 1-2 are GIS_SENSOR1-2; outputs 1-3 GIS_ALARM1, GIS_ALARM2, GIS_BUZZER.\n",
        },
    .fixture = &Fixture,
    .on = {{PointKind::Input, 1}},
    .read_option = &ReadOption,
});

}  // namespace
}  // namespace vmio::sim::cli
