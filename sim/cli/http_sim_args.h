#pragma once
// The command-line options every simulated HTTP device takes, and its control-line helpers.
#include <optional>
#include <string>
#include <vector>

#include "http_sim_server.h"

namespace vmio::sim::cli {

// For a simulator's --help.
inline constexpr char kHttpSimOptionsHelp[] =
    "  --listen HOST:PORT        address to serve on (default 127.0.0.1:0, an ephemeral port)\n"
    "  --user U --password P     require these credentials\n"
    "  --auth basic|digest       how credentials are checked (default basic)\n";

struct HttpSimArgs {
  std::string host = "127.0.0.1";
  int port = 0;
  HttpAuth auth;
  std::vector<std::string> rest;  // the make's own options, in order
};

// Reads --listen, --user, --password and --auth; other arguments go to rest. On a malformed
// option, sets error and returns nothing.
std::optional<HttpSimArgs> ParseHttpSimArgs(const std::vector<std::string>& args, std::string& error);

// "on"/"1" or "off"/"0" in a control line; nothing for other words.
std::optional<bool> ParseOnOff(const std::string& word);

}  // namespace vmio::sim::cli
