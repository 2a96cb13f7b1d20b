#pragma once
// A real HTTP server on a loopback port that simulated devices answer through.
//
// It owns the listening socket and its serving threads, checks Basic or Digest credentials
// the way cameras do (401 with a WWW-Authenticate challenge), counts and logs the requests it
// lets through, and can be told to go silent (hold requests unanswered) to test time-outs.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vmio::sim {

enum class AuthScheme { None, Basic, Digest };

struct HttpAuth {
  AuthScheme scheme = AuthScheme::None;
  std::string user;
  std::string password;
};

struct HttpRequestInfo {
  std::string method;  // "GET" or "POST"
  std::string path;    // "/axis-cgi/io/port.cgi", not decoded
  std::string query;   // everything after "?", raw (not decoded: "+" stays "+")
  std::string body;
};

struct HttpReply {
  int status = 200;
  std::string body;
  std::string content_type = "text/plain";
};

class HttpSimServer {
 public:
  using Handler = std::function<HttpReply(const HttpRequestInfo&)>;

  // The handler runs on the server's threads: it must guard the state it shares.
  explicit HttpSimServer(Handler handler, HttpAuth auth = {});
  ~HttpSimServer();  // stops
  HttpSimServer(const HttpSimServer&) = delete;
  HttpSimServer& operator=(const HttpSimServer&) = delete;

  // Binds host:port (0 = an ephemeral port) and serves on background threads; returns once
  // the socket listens. Raises std::runtime_error when the address cannot be bound.
  void Start(const std::string& host = "127.0.0.1", int port = 0);
  void Stop();

  // Serves TLS from the next Start on, presenting a self-signed certificate for 127.0.0.1 and
  // localhost made then; DeviceString() then begins with "https://".
  void ServeTls();
  // The PEM file of that certificate, for a client to trust (VMIO_CA_FILE); empty until a TLS
  // Start. It is removed when the server is destroyed.
  std::string CaFile() const;
  // That certificate's SHA-256 fingerprint, "AB:CD:..." as openssl prints it, for a client to
  // pin; empty until a TLS Start.
  std::string CertificateSha256() const;

  int Port() const;
  // "127.0.0.1:PORT".
  std::string Authority() const;
  // What a driver's Connect takes: the authority, with "user:password@" in front when the
  // server requires credentials (and "https://" before that when it serves TLS).
  std::string DeviceString() const;

  // Requests that passed the credential check, by path (without the query), and in all.
  int RequestCount(std::string_view path) const;
  int RequestCount() const;
  // "path?query" (or just the path) of every request that passed, in order.
  std::vector<std::string> RequestLog() const;
  // Forgets the log and the request counts (not the connection count).
  void ClearLog();
  // TCP connections accepted so far (to check that clients reuse theirs). A connection is
  // kept alive until it has been idle for 10 s.
  int ConnectionCount() const;
  // Closes every kept-alive connection (one serving a request once it has answered), as a
  // device does when its keep-alive timer runs out: clients must open a new one.
  void CloseConnections();

  // While set, every request that passes the credential check is answered with this reply
  // instead of the device's own, as a broken or hostile device would; nothing resets it.
  void SetFixedReply(std::optional<HttpReply> reply);

  // While silent, requests are held unanswered (until silence ends or the server stops).
  // When silence ends, a held request whose client has hung up meanwhile is dropped without
  // reaching the handler or the counts; the others are answered then.
  void SetSilent(bool silent);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vmio::sim
