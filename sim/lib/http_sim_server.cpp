#include "http_sim_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <httplib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "self_signed_tls.h"

// cpp-httplib parses requests and writes responses; the connections are served here, so that
// they can be counted, kept alive for as long as a camera would, held while silent, and all
// woken at once by Stop.
namespace vmio::sim {
namespace {

constexpr char kRealm[] = "Simulated device";
constexpr char kUnauthorisedPage[] =
    "<html><head><title>401 Unauthorized</title></head>"
    "<body><h1>401 Unauthorized</h1><p>Authorization required.</p></body></html>";
constexpr int kIdleSeconds = 10;  // keep-alive: an idle connection is closed after this
constexpr size_t kMaxRequestsPerConnection = 10000;
constexpr int kIoTimeoutMs = 5000;  // inside one request

std::string Hex(const unsigned char* bytes, size_t n) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(n * 2);
  for (size_t i = 0; i < n; ++i) {
    out.push_back(kDigits[bytes[i] >> 4]);
    out.push_back(kDigits[bytes[i] & 15]);
  }
  return out;
}

std::string Md5Hex(const std::string& text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  const bool ok = ctx && EVP_DigestInit_ex(ctx, EVP_md5(), nullptr) == 1 &&
                  EVP_DigestUpdate(ctx, text.data(), text.size()) == 1 && EVP_DigestFinal_ex(ctx, digest, &size) == 1;
  EVP_MD_CTX_free(ctx);
  if (!ok) throw std::runtime_error("MD5 is not available");
  return Hex(digest, size);
}

std::string Base64(const std::string& text) {
  std::string out(4 * ((text.size() + 2) / 3) + 1, '\0');
  const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  out.resize(static_cast<size_t>(n));
  return out;
}

std::string RandomHex(size_t bytes) {
  std::vector<unsigned char> raw(bytes);
  if (RAND_bytes(raw.data(), static_cast<int>(bytes)) != 1) throw std::runtime_error("no random bytes");
  return Hex(raw.data(), raw.size());
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != std::tolower(static_cast<unsigned char>(prefix[i])))
      return false;
  }
  return true;
}

// cpp-httplib hands header values over with %XX sequences decoded.
std::string PercentDecoded(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      out.push_back(static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16)));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

// The name=value and name="value" pairs of a Digest Authorization header (after "Digest ").
// Values are kept as sent: clients put the uri in quotes unescaped, so a target ending in a
// backslash gives uri="/x\". A quoted value therefore ends at the quote that closes the
// field (followed by a comma or the end), not at the first quote after a backslash.
std::map<std::string, std::string> DigestFields(std::string_view text) {
  std::map<std::string, std::string> fields;
  const auto closes_field = [&text](size_t quote) {
    const size_t next = text.find_first_not_of(' ', quote + 1);
    return next == std::string_view::npos || text[next] == ',';
  };
  size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && (text[i] == ' ' || text[i] == ',')) ++i;
    const size_t eq = text.find('=', i);
    if (eq == std::string_view::npos) break;
    std::string name(text.substr(i, eq - i));
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    i = eq + 1;
    size_t end;
    if (i < text.size() && text[i] == '"') {
      ++i;
      end = text.find('"', i);
      while (end != std::string_view::npos && !closes_field(end)) end = text.find('"', end + 1);
      if (end == std::string_view::npos) end = text.size();
      fields[name] = std::string(text.substr(i, end - i));
      ++end;
    } else {
      end = std::min(text.find(',', i), text.size());
      std::string value(text.substr(i, end - i));
      while (!value.empty() && value.back() == ' ') value.pop_back();
      fields[name] = value;
    }
    i = end;
  }
  return fields;
}

// A thread per connection, so that idle keep-alive connections never starve new ones.
class ThreadPerConnection final : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> fn) override {
    Reap();
    workers_.emplace_back();
    Worker& w = workers_.back();
    w.thread = std::thread([&w, fn = std::move(fn)] {
      fn();
      w.done = true;
    });
  }
  void shutdown() override {
    for (Worker& w : workers_) w.thread.join();
    workers_.clear();
  }

 private:
  struct Worker {
    std::thread thread;
    std::atomic<bool> done{false};
  };
  void Reap() {
    for (auto it = workers_.begin(); it != workers_.end();) {
      if (it->done) {
        it->thread.join();
        it = workers_.erase(it);
      } else {
        ++it;
      }
    }
  }
  std::list<Worker> workers_;  // only the accepting thread touches the list
};

// One accepted socket as cpp-httplib's stream: reads are buffered (the request parser reads
// byte by byte), writes are gathered and sent before the next read or when the reply is done.
// Over TLS the socket is non-blocking, so that Stop is heard while a record is half received.
class ConnectionStream final : public httplib::Stream {
 public:
  ConnectionStream(int fd, int wake_fd) : fd_(fd), wake_fd_(wake_fd) {}
  ~ConnectionStream() override {
    if (!ssl_) return;
    SSL_shutdown(ssl_);  // one try: a close_notify if the socket takes it
    SSL_free(ssl_);
  }
  ConnectionStream(const ConnectionStream&) = delete;
  ConnectionStream& operator=(const ConnectionStream&) = delete;

  // The TLS handshake; false when it fails or times out (a client that refuses the certificate).
  bool Accept(SSL_CTX* context) {
    const int flags = fcntl(fd_, F_GETFL);
    if (flags < 0 || fcntl(fd_, F_SETFL, flags | O_NONBLOCK) != 0) return false;
    ssl_ = SSL_new(context);
    if (!ssl_ || SSL_set_fd(ssl_, fd_) != 1) return false;
    int result;
    while ((result = SSL_accept(ssl_)) != 1) {
      if (!WaitFor(result)) return false;
    }
    return true;
  }

  // True when a request's bytes are at hand, or arrive before the time-out (or Stop).
  bool Readable(int timeout_ms) const {
    return in_pos_ < in_len_ || (ssl_ && SSL_pending(ssl_) > 0) || Wait(POLLIN, timeout_ms);
  }

  bool is_readable() const override { return Readable(kIoTimeoutMs); }
  bool is_writable() const override { return Wait(POLLOUT, kIoTimeoutMs); }

  ssize_t read(char* ptr, size_t size) override {
    if (in_pos_ == in_len_) {
      if (!Flush()) return -1;
      const ssize_t n = Receive();
      if (n <= 0) return n;
      in_pos_ = 0;
      in_len_ = static_cast<size_t>(n);
    }
    const size_t n = std::min(size, in_len_ - in_pos_);
    std::memcpy(ptr, in_ + in_pos_, n);
    in_pos_ += n;
    return static_cast<ssize_t>(n);
  }

  ssize_t write(const char* ptr, size_t size) override {
    out_.append(ptr, size);
    return static_cast<ssize_t>(size);
  }

  bool Flush() {
    size_t sent = 0;
    while (sent < out_.size()) {
      const ssize_t n = Send(out_.data() + sent, out_.size() - sent);
      if (n < 0) return false;
      sent += static_cast<size_t>(n);
    }
    out_.clear();
    return true;
  }

  void get_remote_ip_and_port(std::string& ip, int& port) const override { Address(getpeername, ip, port); }
  void get_local_ip_and_port(std::string& ip, int& port) const override { Address(getsockname, ip, port); }
  socket_t socket() const override { return fd_; }

  // Waits for the socket (events) or for Stop; true when the socket is ready first.
  bool Wait(short events, int timeout_ms) const {
    pollfd fds[2] = {{fd_, events, 0}, {wake_fd_, POLLIN, 0}};
    if (::poll(fds, 2, timeout_ms) <= 0) return false;
    return fds[1].revents == 0 && fds[0].revents != 0;
  }

 private:
  // After a TLS call returned result: waits for what it wants; false when it failed instead.
  bool WaitFor(int result) const {
    switch (SSL_get_error(ssl_, result)) {
      case SSL_ERROR_WANT_READ:
        return Wait(POLLIN, kIoTimeoutMs);
      case SSL_ERROR_WANT_WRITE:
        return Wait(POLLOUT, kIoTimeoutMs);
      default:
        return false;
    }
  }

  // Bytes into in_: their count, 0 at the end of the stream, -1 on a failure or time-out.
  ssize_t Receive() {
    if (!ssl_) return Wait(POLLIN, kIoTimeoutMs) ? ::recv(fd_, in_, sizeof in_, 0) : -1;
    for (;;) {
      const int n = SSL_read(ssl_, in_, static_cast<int>(sizeof in_));
      if (n > 0) return n;
      if (SSL_get_error(ssl_, n) == SSL_ERROR_ZERO_RETURN) return 0;
      if (!WaitFor(n)) return -1;
    }
  }

  // Sends some of data: the count sent, or -1.
  ssize_t Send(const char* data, size_t size) {
    if (!ssl_) return Wait(POLLOUT, kIoTimeoutMs) ? ::send(fd_, data, size, MSG_NOSIGNAL) : -1;
    for (;;) {
      const int n = SSL_write(ssl_, data, static_cast<int>(size));
      if (n > 0) return n;
      if (!WaitFor(n)) return -1;
    }
  }

  template <typename Query>
  void Address(Query query, std::string& ip, int& port) const {
    sockaddr_storage addr{};
    socklen_t len = sizeof addr;
    char text[INET6_ADDRSTRLEN] = "";
    if (query(fd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0) return;
    if (addr.ss_family == AF_INET) {
      const auto* in = reinterpret_cast<const sockaddr_in*>(&addr);
      inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
      port = ntohs(in->sin_port);
    } else if (addr.ss_family == AF_INET6) {
      const auto* in6 = reinterpret_cast<const sockaddr_in6*>(&addr);
      inet_ntop(AF_INET6, &in6->sin6_addr, text, sizeof text);
      port = ntohs(in6->sin6_port);
    }
    ip = text;
  }

  int fd_;
  int wake_fd_;
  SSL* ssl_ = nullptr;  // over TLS only
  char in_[4096];
  size_t in_pos_ = 0;
  size_t in_len_ = 0;
  std::string out_;
};

}  // namespace

struct HttpSimServer::State {
  State(Handler h, HttpAuth a) : handler(std::move(h)), auth(std::move(a)) {}

  class Server;

  const Handler handler;
  const HttpAuth auth;
  const std::string nonce = RandomHex(16);
  const std::string opaque = RandomHex(8);
  bool serve_tls = false;
  std::unique_ptr<SelfSignedTls> tls;  // made by a TLS Start

  std::unique_ptr<Server> server;
  std::thread listener;
  std::atomic<bool> listener_ended{false};
  int port = 0;
  int wake_fd = -1;
  std::atomic<bool> stopping{false};

  mutable std::mutex mutex;  // guards everything below
  std::condition_variable unsilenced;
  bool silent = false;
  std::optional<HttpReply> fixed_reply;
  std::map<std::string, int> counts;
  std::vector<std::string> log;
  int total = 0;
  int connections = 0;
  struct Connection {
    bool busy = false;   // serving a request
    bool close = false;  // to be closed once that request is answered
  };
  std::map<int, Connection> open;  // by socket

  std::string Challenge() const {
    if (auth.scheme == AuthScheme::Basic) return std::string("Basic realm=\"") + kRealm + "\"";
    return std::string("Digest realm=\"") + kRealm + "\", qop=\"auth\", nonce=\"" + nonce + "\", opaque=\"" + opaque +
           "\", algorithm=MD5";
  }

  bool Authorised(const httplib::Request& req) const {
    if (auth.scheme == AuthScheme::None) return true;
    const std::string header = req.get_header_value("Authorization");
    if (auth.scheme == AuthScheme::Basic) {
      return StartsWithNoCase(header, "Basic ") && header.substr(6) == Base64(auth.user + ":" + auth.password);
    }
    if (!StartsWithNoCase(header, "Digest ")) return false;
    auto f = DigestFields(std::string_view(header).substr(7));
    if (f["username"] != auth.user || f["realm"] != kRealm || f["nonce"] != nonce ||
        f["uri"] != PercentDecoded(req.target) || f["qop"] != "auth" || f["nc"].empty() || f["cnonce"].empty() ||
        (!f["algorithm"].empty() && f["algorithm"] != "MD5"))
      return false;
    const std::string ha1 = Md5Hex(auth.user + ":" + kRealm + ":" + auth.password);
    // The client hashed the uri as it sent it, which is the raw request target.
    const std::string ha2 = Md5Hex(req.method + ":" + req.target);
    return f["response"] == Md5Hex(ha1 + ":" + nonce + ":" + f["nc"] + ":" + f["cnonce"] + ":auth:" + ha2);
  }

  void Route(const httplib::Request& req, httplib::Response& res) {
    if (!Authorised(req)) {
      res.status = 401;
      res.set_header("WWW-Authenticate", Challenge());
      res.set_content(kUnauthorisedPage, "text/html");
      return;
    }
    HttpRequestInfo info;
    info.method = req.method;
    const size_t q = req.target.find('?');
    info.path = req.target.substr(0, q);
    if (q != std::string::npos) info.query = req.target.substr(q + 1);
    info.body = req.body;
    std::optional<HttpReply> fixed;
    {
      std::lock_guard lock(mutex);
      ++counts[info.path];
      ++total;
      log.push_back(req.target);
      fixed = fixed_reply;
    }
    HttpReply reply = fixed ? std::move(*fixed) : handler(info);
    res.status = reply.status;
    res.set_content(std::move(reply.body), reply.content_type);
  }

  // Holds a request while the server is silent; false when it must not be answered: the
  // server is stopping, or the client gave up waiting (it is then dropped, uncounted).
  bool ReleaseWhenHeard(int fd) {
    std::unique_lock lock(mutex);
    if (!silent) return true;
    unsilenced.wait(lock, [&] { return !silent || stopping; });
    if (stopping) return false;
    pollfd p{fd, POLLRDHUP, 0};
    return ::poll(&p, 1, 0) == 0;
  }

  void Busy(int fd) {
    std::lock_guard lock(mutex);
    open[fd].busy = true;
  }

  // False when the connection is to be closed now that its request is answered.
  bool Idle(int fd) {
    std::lock_guard lock(mutex);
    Connection& c = open[fd];
    c.busy = false;
    return !c.close;
  }

  void ServeConnection(int fd);
  void Serve(ConnectionStream& stream, int fd);
};

class HttpSimServer::State::Server final : public httplib::Server {
 public:
  explicit Server(State& state) : state_(state) {}

 private:
  bool process_and_close_socket(socket_t fd) override {
    state_.ServeConnection(fd);
    return true;
  }
  friend struct HttpSimServer::State;
  State& state_;
};

void HttpSimServer::State::ServeConnection(int fd) {
  {
    std::lock_guard lock(mutex);
    ++connections;
    open[fd] = Connection{};
  }
  const int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  {
    ConnectionStream stream(fd, wake_fd);
    if (!tls || stream.Accept(tls->Context())) Serve(stream, fd);
  }
  {
    std::lock_guard lock(mutex);
    open.erase(fd);
  }
  ::close(fd);
}

void HttpSimServer::State::Serve(ConnectionStream& stream, int fd) {
  for (size_t served = 0; served < kMaxRequestsPerConnection && !stopping; ++served) {
    if (!stream.Readable(kIdleSeconds * 1000) || !ReleaseWhenHeard(fd)) break;
    Busy(fd);
    bool closed = false;
    const bool last = served + 1 == kMaxRequestsPerConnection;
    const bool ok = server->process_request(stream, last, closed, nullptr) && stream.Flush();
    if (!ok || closed || !Idle(fd)) break;
  }
}

HttpSimServer::HttpSimServer(Handler handler, HttpAuth auth)
    : state_(std::make_unique<State>(std::move(handler), std::move(auth))) {}

HttpSimServer::~HttpSimServer() { Stop(); }

void HttpSimServer::Start(const std::string& host, int port) {
  State& s = *state_;
  if (s.server) throw std::runtime_error("HttpSimServer already started");
  s.stopping = false;
  if (s.serve_tls && !s.tls) s.tls = std::make_unique<SelfSignedTls>();
  s.wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (s.wake_fd < 0) throw std::runtime_error("eventfd failed");
  s.server = std::make_unique<State::Server>(s);
  s.server->new_task_queue = [] { return new ThreadPerConnection; };
  s.server->set_keep_alive_timeout(kIdleSeconds);
  s.server->set_keep_alive_max_count(kMaxRequestsPerConnection);
  auto route = [&s](const httplib::Request& req, httplib::Response& res) { s.Route(req, res); };
  s.server->Get(".*", route);
  s.server->Post(".*", route);
  const int bound = port == 0 ? s.server->bind_to_any_port(host) : (s.server->bind_to_port(host, port) ? port : -1);
  if (bound < 0) {
    s.server.reset();
    ::close(s.wake_fd);
    s.wake_fd = -1;
    throw std::runtime_error("HttpSimServer cannot bind " + host + ":" + std::to_string(port));
  }
  s.port = bound;
  s.listener_ended = false;
  s.listener = std::thread([&s] {
    s.server->listen_after_bind();
    s.listener_ended = true;
  });
  // Stop is only heard once the accept loop runs.
  while (!s.server->is_running() && !s.listener_ended) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (s.listener_ended) {
    s.listener.join();
    s.server.reset();
    ::close(s.wake_fd);
    s.wake_fd = -1;
    throw std::runtime_error("HttpSimServer cannot listen on " + host + ":" + std::to_string(port));
  }
}

void HttpSimServer::Stop() {
  State& s = *state_;
  if (!s.server) return;
  {
    std::lock_guard lock(s.mutex);
    s.stopping = true;
  }
  s.unsilenced.notify_all();
  const uint64_t one = 1;
  [[maybe_unused]] ssize_t n = ::write(s.wake_fd, &one, sizeof one);
  s.server->stop();
  s.listener.join();
  s.server.reset();
  ::close(s.wake_fd);
  s.wake_fd = -1;
}

void HttpSimServer::ServeTls() { state_->serve_tls = true; }

std::string HttpSimServer::CaFile() const { return state_->tls ? state_->tls->CertificateFile() : std::string(); }

std::string HttpSimServer::CertificateSha256() const {
  return state_->tls ? state_->tls->Sha256Fingerprint() : std::string();
}

int HttpSimServer::Port() const { return state_->port; }

std::string HttpSimServer::Authority() const { return "127.0.0.1:" + std::to_string(state_->port); }

std::string HttpSimServer::DeviceString() const {
  const HttpAuth& a = state_->auth;
  const std::string scheme = state_->tls ? "https://" : "";
  if (a.scheme == AuthScheme::None) return scheme + Authority();
  return scheme + a.user + ":" + a.password + "@" + Authority();
}

int HttpSimServer::RequestCount(std::string_view path) const {
  std::lock_guard lock(state_->mutex);
  auto it = state_->counts.find(std::string(path));
  return it == state_->counts.end() ? 0 : it->second;
}

int HttpSimServer::RequestCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->total;
}

std::vector<std::string> HttpSimServer::RequestLog() const {
  std::lock_guard lock(state_->mutex);
  return state_->log;
}

void HttpSimServer::ClearLog() {
  std::lock_guard lock(state_->mutex);
  state_->log.clear();
  state_->counts.clear();
  state_->total = 0;
}

int HttpSimServer::ConnectionCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->connections;
}

void HttpSimServer::CloseConnections() {
  std::lock_guard lock(state_->mutex);
  for (auto& [fd, connection] : state_->open) {
    if (connection.busy) {
      connection.close = true;
    } else {
      ::shutdown(fd, SHUT_RDWR);
    }
  }
}

void HttpSimServer::SetFixedReply(std::optional<HttpReply> reply) {
  std::lock_guard lock(state_->mutex);
  state_->fixed_reply = std::move(reply);
}

void HttpSimServer::SetSilent(bool silent) {
  {
    std::lock_guard lock(state_->mutex);
    state_->silent = silent;
  }
  state_->unsilenced.notify_all();
}

}  // namespace vmio::sim
