#include "http_sim_args.h"

#include <stdexcept>

namespace vmio::sim::cli {

std::string HttpSimUsage(const HttpSimMake& make) {
  return std::string(make.options_help) +
         "  --listen HOST:PORT        address to serve on (default 127.0.0.1:0, an ephemeral port)\n"
         "  --user U --password P     require these credentials (default: the demo device's)\n"
         "  --auth basic|digest|none  how credentials are checked (default " +
         (make.default_auth == AuthScheme::Digest ? "digest" : "basic") + "); none: not at all\n" +
         "  --tls                     serve https with a self-signed certificate made at start\n";
}

std::string HttpSimHelp(const HttpSimMake& make) {
  return HttpSimUsage(make) +
         "\n"
         "With no options it is the device `vmio demo` runs against.\n"
         "Prints \"device: DEVICE\" and serves until interrupted; with --tls, first\n"
         "\"VMIO_CA_FILE=PATH\" (the certificate, for the client to trust) and\n"
         "\"VMIO_TLS_SHA256=FINGERPRINT\" (for the client to pin: DEVICE#sha256=FINGERPRINT).\n"
         "Lines on standard input:\n" +
         std::string(kPointControlHelp) + std::string(make.control_help);
}

std::optional<HttpSimArgs> ReadHttpSimOptions(const HttpSimMake& make, const HttpAuth& fixture_auth,
                                              const std::vector<std::string>& args, const OptionReader& read_option,
                                              int& exit_code) {
  HttpSimArgs out;
  std::optional<std::string> user, password, auth_name;
  const auto read_common_or_own = [&](const std::vector<std::string>& a, size_t& i) {
    const std::string& option = a[i];
    if (option == "--listen") {
      ParseListen(TakeValue(a, i), out.host, out.port);
    } else if (option == "--tls") {
      out.tls = true;
    } else if (option == "--user") {
      user = TakeValue(a, i);
    } else if (option == "--password") {
      password = TakeValue(a, i);
    } else if (option == "--auth") {
      auth_name = TakeValue(a, i);
      if (*auth_name != "basic" && *auth_name != "digest" && *auth_name != "none") {
        throw std::invalid_argument("--auth wants basic, digest or none, not '" + *auth_name + "'");
      }
    } else {
      return read_option(a, i);
    }
    return true;
  };
  const std::string usage = HttpSimUsage(make);
  if (const std::optional<int> code = ReadOptions(make.name, HttpSimHelp(make), usage, args, read_common_or_own)) {
    exit_code = *code;
    return std::nullopt;
  }
  out.auth = fixture_auth;
  if (user || password) out.auth = {make.default_auth, user.value_or(""), password.value_or("")};
  if (auth_name == "none") {
    out.auth = {};
  } else if (auth_name) {
    if (out.auth.user.empty() && out.auth.password.empty()) {
      exit_code = BadCommandLine(make.name, "--auth needs --user and --password", usage);
      return std::nullopt;
    }
    out.auth.scheme = *auth_name == "digest" ? AuthScheme::Digest : AuthScheme::Basic;
  }
  return out;
}

void SetStartingStates(PointBank& points, const std::vector<std::pair<PointKind, int>>& on) {
  for (const auto& [kind, number] : on) {
    if (number <= points.Count(kind)) points.Set(kind, number, 1);
  }
}

}  // namespace vmio::sim::cli
