#pragma once
// Running a simulated HTTP device from the command line: the options every one takes
// (--listen, --user, --password, --auth), its help, and the run itself.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "http_sim_server.h"
#include "serve.h"

namespace vmio::sim::cli {

// What a make's runner tells the shared code about itself.
struct HttpSimMake {
  std::string_view name;                        // "acti"
  std::string_view options_help;                // the usage line and the make's own options
  std::string_view control_help;                // the lines standard input takes
  AuthScheme default_auth = AuthScheme::Basic;  // the scheme when --user is given without --auth
};

struct HttpSimArgs {
  std::string host = "127.0.0.1";
  int port = 0;
  HttpAuth auth;
};

// The whole --help text, and the shorter usage shown after a bad option.
std::string HttpSimHelp(const HttpSimMake& make);
std::string HttpSimUsage(const HttpSimMake& make);

// Reads the common options and hands the others to read_option. When the run ends here (help
// shown, or a bad option reported), sets exit_code and returns nothing.
std::optional<HttpSimArgs> ReadHttpSimOptions(const HttpSimMake& make, const std::vector<std::string>& args,
                                              const OptionReader& read_option, int& exit_code);

// The whole run of `vmio-sim MAKE`: reads the options into a Sim's Options (the make's own ones
// through read_option), starts the simulator where --listen says and serves it, each line of
// standard input going to control. Returns the exit code.
template <class Sim, class Options>
int RunHttpSim(const HttpSimMake& make, const std::vector<std::string>& args,
               bool (*read_option)(Options& options, const std::vector<std::string>& args, size_t& i),
               std::string (*control)(Sim& sim, const std::string& line)) {
  Options options;
  int exit_code = 0;
  const std::optional<HttpSimArgs> common = ReadHttpSimOptions(
      make, args, [&](const std::vector<std::string>& a, size_t& i) { return read_option(options, a, i); }, exit_code);
  if (!common) return exit_code;
  options.auth = common->auth;
  Sim sim(options);
  return StartAndServe(
      make.name,
      [&] {
        sim.Start(common->host, common->port);
        return sim.DeviceString();
      },
      [&sim, control](const std::string& line) { return control(sim, line); });
}

}  // namespace vmio::sim::cli
