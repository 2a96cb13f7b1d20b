#pragma once
// Simulated HTTP devices as makes: the options every one takes (--listen, --user, --password,
// --auth, --tls), its help, its default fixture and its run. A make's file states only its own
// options, its starting states and any control lines of its own.
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "control_lines.h"
#include "http_sim_server.h"
#include "serve.h"
#include "sim_makes.h"

namespace vmio::sim::cli {

// What a make tells the shared code about itself.
struct HttpSimMake {
  std::string_view name;                        // "acti"
  std::string_view progid;                      // "VMIO.ACTi"
  std::string_view help;                        // one line for `vmio-sim --help`
  std::string_view options_help;                // the usage line and the make's own options
  std::string_view control_help = {};           // the make's own control lines, if any
  AuthScheme default_auth = AuthScheme::Basic;  // the scheme when --user is given without --auth
};

struct HttpSimArgs {
  std::string host = "127.0.0.1";
  int port = 0;
  HttpAuth auth;
  bool tls = false;  // serve https with a certificate made at start
};

// The whole --help text, and the shorter usage shown after a bad option.
std::string HttpSimHelp(const HttpSimMake& make);
std::string HttpSimUsage(const HttpSimMake& make);

// Reads the common options and hands the others to read_option; the credentials start as
// fixture_auth. When the run ends here (help shown, or a bad option reported), sets exit_code
// and returns nothing.
std::optional<HttpSimArgs> ReadHttpSimOptions(const HttpSimMake& make, const HttpAuth& fixture_auth,
                                              const std::vector<std::string>& args, const OptionReader& read_option,
                                              int& exit_code);

// Sets the points to the states a fixture starts with; one the options left no point for is
// skipped.
void SetStartingStates(PointBank& points, const std::vector<std::pair<PointKind, int>>& on);

template <class Sim, class Options>
struct HttpMakeDescription {
  HttpSimMake text;
  Options (*fixture)();                            // the default device's options
  std::vector<std::pair<PointKind, int>> on = {};  // the points it starts with on
  bool (*read_option)(Options&, const std::vector<std::string>& args, size_t& i) = nullptr;
  std::optional<std::string> (*control)(Sim&, const std::string& word, const std::string& rest) = nullptr;
};

// Registers a simulated HTTP make; `vmio-sim MAKE` reads its options on top of the fixture's.
template <class Sim, class Options>
bool RegisterHttpMake(HttpMakeDescription<Sim, Options> make) {
  const auto start = [make] {
    auto sim = std::make_shared<Sim>(make.fixture());
    sim->Start();
    SetStartingStates(sim->Points(), make.on);
    return RunningDevice{sim, sim->DeviceString()};
  };
  const auto run = [make](const std::vector<std::string>& args) {
    Options options = make.fixture();
    int exit_code = 0;
    const auto own = [&](const std::vector<std::string>& a, size_t& i) {
      return make.read_option && make.read_option(options, a, i);
    };
    const std::optional<HttpSimArgs> common = ReadHttpSimOptions(make.text, options.auth, args, own, exit_code);
    if (!common) return exit_code;
    options.auth = common->auth;
    Sim sim(options);
    const OwnControl control = [&](const std::string& word, const std::string& rest) {
      return make.control ? make.control(sim, word, rest) : std::nullopt;
    };
    return StartAndServe(
        make.text.name,
        [&] {
          if (common->tls) sim.Server().ServeTls();
          sim.Start(common->host, common->port);
          SetStartingStates(sim.Points(), make.on);
          if (common->tls) {
            std::cout << "VMIO_CA_FILE=" << sim.Server().CaFile() << '\n'
                      << "VMIO_TLS_SHA256=" << sim.Server().CertificateSha256() << std::endl;
          }
          return sim.DeviceString();
        },
        [&](const std::string& line) { return AnswerControlLine(&sim.Points(), control, line); });
  };
  return RegisterMake(
      {.progid = make.text.progid, .start = start, .name = make.text.name, .help = make.text.help, .run = run});
}

}  // namespace vmio::sim::cli
