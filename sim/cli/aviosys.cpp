// vmio-sim aviosys: a simulated Aviosys IP power unit (sockets, and inputs on the fixed model).
#include <string>
#include <vector>

#include "aviosys_sim.h"
#include "http_sim_args.h"

namespace vmio::sim::cli {
namespace {

bool ReadOption(AviosysSimOptions& options, const std::vector<std::string>& args, size_t& i) {
  const std::string& a = args[i];
  if (a == "--fixed-model") {
    options.fixed_model = true;
  } else if (a == "--no-html") {
    options.html = false;
  } else if (a == "--extra-line") {
    options.extra_line = true;
  } else if (a == "--names-fail") {
    options.names_fail = true;
  } else if (a == "--sockets") {
    options.sockets = ParseCount(TakeValue(args, i));
  } else if (a == "--power-num") {
    options.power_num_reply = TakeValue(args, i);
    return !options.power_num_reply.empty();
  } else if (a == "--name") {
    const std::string& v = TakeValue(args, i);
    const size_t eq = v.find('=');
    if (eq == std::string::npos) return false;
    const auto socket = static_cast<size_t>(ParseCount(v.substr(0, eq)));
    if (socket < 1) return false;
    if (options.names.size() < socket) options.names.resize(socket);
    options.names[socket - 1] = v.substr(eq + 1);
  } else {
    return false;
  }
  return true;
}

AviosysSimOptions Fixture() {
  AviosysSimOptions o;
  o.sockets = 4;
  o.names = {"Camera 1", "Camera 2", "Heater", "Lights"};
  o.auth = {AuthScheme::Basic, "admin", "12345678"};
  return o;
}

const bool kRegistered = RegisterHttpMake<AviosysSim, AviosysSimOptions>({
    .text =
        {
            .name = "aviosys",
            .progid = "VMIO.AviosysPDU",
            .help = "an Aviosys IP power unit: switched sockets, inputs on the fixed model (Set.cmd over HTTP)",
            .options_help =
                "usage: vmio-sim aviosys [options]\n"
                "  --sockets N               sockets (the outputs) of a unit that reports its count (default 4)\n"
                "  --fixed-model             the model with 8 inputs (P51-P58) and 8 sockets (P61-P68)\n"
                "  --no-html                 replies without the <html>...</html> wrapper\n"
                "  --extra-line              a second line after every reply\n"
                "  --power-num TEXT          answer GetPowerNum with TEXT (\"# Error\", a smaller count)\n"
                "  --name N=NAME             name of socket N (1-based); repeatable\n"
                "  --names-fail              GetPortName answers 404\n",
        },
    .fixture = &Fixture,
    .on = {{PointKind::Output, 1}},
    .read_option = &ReadOption,
});

}  // namespace
}  // namespace vmio::sim::cli
