#include "http_sim_args.h"

namespace vmio::sim::cli {

std::string HttpSimUsage(const HttpSimMake& make) {
  return std::string(make.options_help) +
         "  --listen HOST:PORT        address to serve on (default 127.0.0.1:0, an ephemeral port)\n"
         "  --user U --password P     require these credentials\n"
         "  --auth basic|digest       how credentials are checked (default " +
         (make.default_auth == AuthScheme::Digest ? "digest" : "basic") + ")\n";
}

std::string HttpSimHelp(const HttpSimMake& make) {
  return HttpSimUsage(make) +
         "\n"
         "Prints \"device: DEVICE\" and serves until interrupted. Lines on standard input:\n" +
         std::string(make.control_help);
}

std::optional<HttpSimArgs> ReadHttpSimOptions(const HttpSimMake& make, const std::vector<std::string>& args,
                                              const OptionReader& read_option, int& exit_code) {
  HttpSimArgs out;
  std::string auth_name;
  const auto read_common_or_own = [&](const std::vector<std::string>& a, size_t& i) {
    const std::string& option = a[i];
    if (option == "--listen") {
      ParseListen(TakeValue(a, i), out.host, out.port);
    } else if (option == "--user") {
      out.auth.user = TakeValue(a, i);
    } else if (option == "--password") {
      out.auth.password = TakeValue(a, i);
    } else if (option == "--auth") {
      auth_name = TakeValue(a, i);
      if (auth_name != "basic" && auth_name != "digest") {
        throw std::invalid_argument("--auth wants basic or digest, not '" + auth_name + "'");
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
  if (!out.auth.user.empty() || !out.auth.password.empty()) {
    out.auth.scheme = auth_name.empty()       ? make.default_auth
                      : auth_name == "digest" ? AuthScheme::Digest
                                              : AuthScheme::Basic;
  } else if (!auth_name.empty()) {
    exit_code = BadCommandLine(make.name, "--auth needs --user and --password", usage);
    return std::nullopt;
  }
  return out;
}

}  // namespace vmio::sim::cli
