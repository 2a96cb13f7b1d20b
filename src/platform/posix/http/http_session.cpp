// The HTTP seam on libcurl. Each session keeps one easy handle for its whole life; its
// transfers run on the multi handle of the loop it is given (one per loop and certificate
// rule, made on first use), whose connection cache keeps the connection to a device open
// between requests; libcurl opens a new one by itself when the device has closed it. A loop
// drives any number of sessions' transfers at once (libcurl's socket-action form).
//
// The receive time-out is a true inactivity time-out with millisecond precision: it runs from
// the moment a request goes out and restarts whenever response bytes arrive. Since a reply
// dripping a byte at a time never trips it, a request limit also runs from the first send of
// a request (redirects and authentication round trips included) and ends it whatever arrives.
// Both are timers on the loop racing the transfer.
#include <arpa/inet.h>
#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "http/http_session.h"
#include "net/resolver.h"
#include "platform/posix/http/curl_multi.h"

namespace vmio {
namespace {

constexpr long kConnectTimeoutMs = 10000;
constexpr uint32_t kReceiveTimeoutMs = 5000;
constexpr long long kRequestLimitMs = 30000;
constexpr long kMaxRedirects = 10;
constexpr int64_t kIdleCheckMs = 1000;  // the longest a time-out check sleeps when none is near

bool GlobalInit() {
  static const bool kInitialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return kInitialised;
}

// Request headers every request carries: no caching (what a reloading client sends), and
// none of the headers libcurl would add by itself beyond Host, User-Agent, Authorization and
// Content-Length: no Accept, no Expect: 100-continue, no default Content-Type on a POST.
curl_slist* BaseHeaders() {
  curl_slist* list = nullptr;
  for (const char* h : {"Cache-Control: no-cache", "Pragma: no-cache", "Accept:", "Expect:", "Content-Type:"}) {
    curl_slist* next = curl_slist_append(list, h);
    if (!next) {
      curl_slist_free_all(list);
      return nullptr;
    }
    list = next;
  }
  return list;
}

// Adds the certificates of the bundle VMIO_CA_FILE names to those the system trusts. A bundle
// that cannot be read fails the connection, so a mistyped name does not pass unnoticed.
CURLcode AddExtraCertificates(SSL_CTX* ssl_ctx) {
  const char* file = std::getenv("VMIO_CA_FILE");
  if (!file || !*file) return CURLE_OK;
  X509_STORE* store = SSL_CTX_get_cert_store(ssl_ctx);
  return X509_STORE_load_file(store, file) == 1 ? CURLE_OK : CURLE_SSL_CACERT_BADFILE;
}

// In place of the chain check when a certificate is pinned: the server's own certificate must
// have the pinned SHA-256 digest; its issuer, names and dates do not matter.
int MatchesPin(X509_STORE_CTX* store, void* pin_ptr) {
  const std::string& pin = *static_cast<const std::string*>(pin_ptr);
  X509* leaf = X509_STORE_CTX_get0_cert(store);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  const bool match = leaf && X509_digest(leaf, EVP_sha256(), digest, &size) == 1 && size == pin.size() &&
                     std::memcmp(digest, pin.data(), size) == 0;
  X509_STORE_CTX_set_error(store, match ? X509_V_OK : X509_V_ERR_CERT_REJECTED);
  return match ? 1 : 0;
}

// The multi handles of one loop: one per certificate rule, since libcurl would hand a
// connection trusted under one pin to a request under another (it does not know the pin).
class CurlMultis final : public engine::Io::Service {
 public:
  explicit CurlMultis(engine::Io& io) : loop_(io.loop()) {}
  engine::CurlMulti& For(const std::string& pin, bool insecure) {
    std::unique_ptr<engine::CurlMulti>& multi = multis_[{pin, insecure}];
    if (!multi) multi = std::make_unique<engine::CurlMulti>(loop_);
    return *multi;
  }

 private:
  engine::Loop& loop_;
  std::map<std::pair<std::string, bool>, std::unique_ptr<engine::CurlMulti>> multis_;
};

class CurlSession final : public HttpSession {
 public:
  explicit CurlSession(const std::string& userAgent) : easy_(curl_easy_init()), base_headers_(BaseHeaders()) {
    if (!Valid()) return;
    error_buffer_[0] = '\0';
    curl_easy_setopt(easy_, CURLOPT_USERAGENT, userAgent.c_str());
    curl_easy_setopt(easy_, CURLOPT_CONNECTTIMEOUT_MS, kConnectTimeoutMs);
    curl_easy_setopt(easy_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    // https only when the device string asks for it; certificates are verified (libcurl's
    // default) against the system's store plus the bundle VMIO_CA_FILE names, or by the pin.
    curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy_, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy_, CURLOPT_SSL_CTX_FUNCTION, &CurlSession::OnSslContext);
    curl_easy_setopt(easy_, CURLOPT_SSL_CTX_DATA, this);
    // A resumed TLS session skips the certificate check, which may since have changed (another
    // pin, the CA store instead of one); kept-alive connections make resuming rare anyway.
    curl_easy_setopt(easy_, CURLOPT_SSL_SESSIONID_CACHE, 0L);
    curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy_, CURLOPT_MAXREDIRS, kMaxRedirects);
    // Credentials come only from the access, as given (a URL with any is refused); without
    // them no authentication is attempted.
    curl_easy_setopt(easy_, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
    curl_easy_setopt(easy_, CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    curl_easy_setopt(easy_, CURLOPT_PROXY, "");  // no proxy, whatever the environment says
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    // Names are looked up before each request and handed over (ResolveHost), so libcurl's
    // cache of a thread's hosts needs no expiry, whose sweep would visit every host per request.
    curl_easy_setopt(easy_, CURLOPT_DNS_CACHE_TIMEOUT, -1L);
    curl_easy_setopt(easy_, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, error_buffer_);
    curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &CurlSession::OnHeader);
    curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &CurlSession::OnWrite);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy_, CURLOPT_OPENSOCKETFUNCTION, &CurlSession::OnOpenSocket);
    curl_easy_setopt(easy_, CURLOPT_OPENSOCKETDATA, this);
    curl_easy_setopt(easy_, CURLOPT_SOCKOPTFUNCTION, &CurlSession::OnNewSocket);
    curl_easy_setopt(easy_, CURLOPT_SOCKOPTDATA, this);
    curl_easy_setopt(easy_, CURLOPT_PREREQFUNCTION, &CurlSession::OnSending);
    curl_easy_setopt(easy_, CURLOPT_PREREQDATA, this);
  }

  ~CurlSession() override {
    if (easy_) curl_easy_cleanup(easy_);
    curl_slist_free_all(request_headers_);
    curl_slist_free_all(base_headers_);
    curl_slist_free_all(resolved_);
  }
  CurlSession(const CurlSession&) = delete;
  CurlSession& operator=(const CurlSession&) = delete;

  bool Valid() const { return easy_ && base_headers_; }

  void SetReceiveTimeout(uint32_t ms) override { receive_timeout_ms_ = ms; }

  engine::Task<HttpResult> Perform(engine::Io& io, std::string url, std::string sendHeaders, std::string postData,
                                   HttpAccess access, HttpReceiver& receiver) override {
    receiver_ = &receiver;
    waiting_ = false;
    headers_done_ = false;
    informational_ = false;
    stopped_ = false;
    no_descriptor_ = false;
    sent_ = false;
    timed_out_ = false;
    over_limit_ = false;
    error_buffer_[0] = '\0';
    curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
    UseAccess(access);
    if (postData.empty()) {
      curl_easy_setopt(easy_, CURLOPT_HTTPGET, 1L);
    } else {
      curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(postData.size()));
      curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, postData.data());
    }
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, HeaderList(sendHeaders));

    CURLcode code = co_await ResolveHost(io, url);
    if (code == CURLE_OK) code = co_await Transfer(io);
    receiver_ = nullptr;
    curl_off_t length = -1;
    curl_easy_getinfo(easy_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    last_response_ = code == CURLE_OK ? ""
                     : timed_out_     ? "Receive time-out: no data for " + std::to_string(receive_timeout_ms_) + " ms"
                     : over_limit_
                         ? "Request time-out: no whole reply within " + std::to_string(kRequestLimitMs) + " ms"
                     : error_buffer_[0] ? error_buffer_
                                        : curl_easy_strerror(code);
    // libcurl's text says "Couldn't connect"; the system's says why (refused, unreachable).
    long os_error = 0;
    if (code != CURLE_OK && curl_easy_getinfo(easy_, CURLINFO_OS_ERRNO, &os_error) == CURLE_OK && os_error != 0)
      last_response_ += " (" + std::string(std::strerror(static_cast<int>(os_error))) + ")";
    co_return HttpResult{Classify(code), length};
  }

  std::string LastResponse() const override { return last_response_; }

 private:
  // A host name is looked up on the loop (Resolver) and its addresses handed to libcurl as its
  // answer, since Debian's libcurl would start a thread to resolve it; an address needs
  // neither. A name that does not resolve fails as libcurl's own look-up would.
  engine::Task<CURLcode> ResolveHost(engine::Io& io, std::string url) {
    std::string host, port;
    if (!NamedHost(url, host, port)) co_return CURLE_OK;
    const std::vector<std::string> addresses = co_await io.Get<Resolver>().Resolve(host);
    if (addresses.empty()) {
      std::snprintf(error_buffer_, CURL_ERROR_SIZE, "Could not resolve host: %s", host.c_str());
      co_return CURLE_COULDNT_RESOLVE_HOST;
    }
    std::string entry = host + ":" + port + ":";
    for (const std::string& address : addresses) entry += (&address == &addresses.front() ? "" : ",") + address;
    curl_slist_free_all(resolved_);
    resolved_ = curl_slist_append(nullptr, entry.c_str());
    curl_easy_setopt(easy_, CURLOPT_RESOLVE, resolved_);
    co_return CURLE_OK;
  }
  // The host and port of url (the scheme's port when it names none) when the host is a name;
  // false for an address, or a URL libcurl will refuse by itself.
  static bool NamedHost(const std::string& url, std::string& host, std::string& port) {
    CURLU* parsed = curl_url();
    char* host_part = nullptr;
    char* port_part = nullptr;
    const bool parts = parsed && curl_url_set(parsed, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK &&
                       curl_url_get(parsed, CURLUPART_HOST, &host_part, 0) == CURLUE_OK &&
                       curl_url_get(parsed, CURLUPART_PORT, &port_part, CURLU_DEFAULT_PORT) == CURLUE_OK;
    if (parts) {
      host = host_part;
      port = port_part;
    }
    curl_free(host_part);
    curl_free(port_part);
    curl_url_cleanup(parsed);
    in_addr ipv4{};
    return parts && !host.empty() && host.front() != '[' && inet_pton(AF_INET, host.c_str(), &ipv4) != 1;
  }

  // Runs the transfer to its end, until no byte has arrived for the receive time-out, or until
  // the request limit has passed since the request first went out.
  engine::Task<CURLcode> Transfer(engine::Io& io) {
    engine::CurlMulti::Transfer transfer = io.Get<CurlMultis>().For(pin_, insecure_).Perform(easy_);
    loop_ = &io.loop();
    transfer_ = &transfer;
    // Also when the task is destroyed mid-transfer (cancelled): no check may outlive it.
    struct Checking {
      CurlSession& session;
      ~Checking() {
        session.StopChecking();
        session.transfer_ = nullptr;
      }
    } checking{*this};
    CheckTimeouts();
    co_return co_await transfer;
  }

  // Ends the transfer once a time-out has passed, else looks again when the next one is due
  // (at the latest a second from now, since a request may go out meanwhile).
  void CheckTimeouts() {
    StopChecking();
    if (!transfer_) return;
    const int64_t now = engine::NowMs();
    int64_t next = now + kIdleCheckMs;
    if (sent_) {
      if (now >= limit_) return Abort(over_limit_);
      next = std::min(next, limit_);
    }
    if (waiting_ && receive_timeout_ms_ > 0) {
      const int64_t quiet_until = last_activity_ + receive_timeout_ms_;
      if (now >= quiet_until) return Abort(timed_out_);
      next = std::min(next, quiet_until);
    }
    check_ = loop_->AddTimer(next, [this] {
      check_.reset();
      CheckTimeouts();
    });
  }
  // From inside libcurl's callbacks, which may not remove the handle: on the loop's next turn.
  void CheckSoon() {
    StopChecking();
    check_ = loop_->AddTimer(engine::NowMs(), [this] {
      check_.reset();
      CheckTimeouts();
    });
  }
  void StopChecking() {
    if (check_) loop_->CancelTimer(*check_);
    check_.reset();
  }
  // Removing the handle mid-transfer closes the connection.
  void Abort(bool& reason) {
    reason = true;
    transfer_->Abort(CURLE_OPERATION_TIMEDOUT);
  }

  void UseAccess(const HttpAccess& access) {
    curl_easy_setopt(easy_, CURLOPT_USERNAME, access.authenticate ? access.user.c_str() : nullptr);
    curl_easy_setopt(easy_, CURLOPT_PASSWORD, access.authenticate ? access.password.c_str() : nullptr);
    // Kept-alive connections trusted under another rule stay with another multi handle.
    pin_ = access.certificate_sha256;
    insecure_ = access.insecure;
    // The pin replaces the CA check, names included.
    curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYPEER, insecure_ ? 0L : 1L);
    curl_easy_setopt(easy_, CURLOPT_SSL_VERIFYHOST, insecure_ || !pin_.empty() ? 0L : 2L);
  }

  static CURLcode OnSslContext(CURL*, void* ssl_ctx, void* self_ptr) {
    auto* self = static_cast<CurlSession*>(self_ptr);
    auto* context = static_cast<SSL_CTX*>(ssl_ctx);
    if (!self->pin_.empty()) {
      SSL_CTX_set_cert_verify_callback(context, &MatchesPin, &self->pin_);
      return CURLE_OK;
    }
    return AddExtraCertificates(context);
  }

  HttpOutcome Classify(CURLcode code) const {
    if (stopped_) return HttpOutcome::Stopped;
    if (code != CURLE_OK && no_descriptor_) return HttpOutcome::NoDescriptor;
    switch (code) {
      case CURLE_OK:
        return HttpOutcome::Complete;
      case CURLE_PARTIAL_FILE:
        return headers_done_ ? HttpOutcome::Truncated : HttpOutcome::NoResponse;
      case CURLE_URL_MALFORMAT:
      case CURLE_LOGIN_DENIED:  // credentials in the URL
        return HttpOutcome::BadUrl;
      case CURLE_UNSUPPORTED_PROTOCOL:
        // Before sending it is the URL's scheme; after, a reply that is not HTTP at all
        // (libcurl refuses it as HTTP/0.9): the device failed the request.
        if (!sent_) return HttpOutcome::BadUrl;
        return headers_done_ ? HttpOutcome::BodyBroken : HttpOutcome::NoResponse;
      default:
        return headers_done_ ? HttpOutcome::BodyBroken : HttpOutcome::NoResponse;
    }
  }

  // The base list, or the base list plus the extra lines; rebuilt only when they change.
  curl_slist* HeaderList(const std::string& sendHeaders) {
    if (sendHeaders.empty()) return base_headers_;
    if (request_headers_ && sendHeaders == request_headers_for_) return request_headers_;
    curl_slist_free_all(request_headers_);
    request_headers_ = nullptr;
    request_headers_for_.clear();
    curl_slist* list = nullptr;
    const auto add = [&list](const std::string& line) {
      curl_slist* next = curl_slist_append(list, line.c_str());
      if (next) list = next;
      return next != nullptr;
    };
    bool ok = true;
    for (const curl_slist* h = base_headers_; h && ok; h = h->next) ok = add(h->data);
    for (size_t start = 0; start < sendHeaders.size() && ok;) {
      size_t end = sendHeaders.find('\n', start);
      if (end == std::string::npos) end = sendHeaders.size();
      std::string line = sendHeaders.substr(start, end - start);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (!line.empty()) ok = add(line);
      start = end + 1;
    }
    if (!ok) {
      curl_slist_free_all(list);
      return base_headers_;
    }
    request_headers_ = list;
    request_headers_for_ = sendHeaders;
    return request_headers_;
  }

  void Heard() { last_activity_ = engine::NowMs(); }

  static size_t OnHeader(char* data, size_t size, size_t count, void* self_ptr) {
    auto* self = static_cast<CurlSession*>(self_ptr);
    const std::string_view line(data, size * count);
    self->Heard();
    if (line.starts_with("HTTP/")) {
      const size_t blank = line.find(' ');
      self->informational_ = blank != line.npos && blank + 1 < line.size() && line[blank + 1] == '1';
      self->headers_done_ = false;
    } else if ((line == "\r\n" || line == "\n") && !self->informational_) {
      self->headers_done_ = true;
    }
    try {
      self->receiver_->OnHeaderLine(line);
    } catch (...) {
      return 0;
    }
    return size * count;
  }

  static size_t OnWrite(char* data, size_t size, size_t count, void* self_ptr) {
    auto* self = static_cast<CurlSession*>(self_ptr);
    self->Heard();
    curl_off_t total = -1;
    curl_easy_getinfo(self->easy_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &total);
    const std::span<const uint8_t> chunk(reinterpret_cast<const uint8_t*>(data), size * count);
    if (!self->receiver_->OnBody(chunk, total)) {
      self->stopped_ = true;
      return 0;
    }
    return size * count;
  }

  // libcurl says only that it could not connect; why matters when the process is out of
  // descriptors, which is no fault of the device.
  static curl_socket_t OnOpenSocket(void* self_ptr, curlsocktype, curl_sockaddr* address) {
    const curl_socket_t fd = socket(address->family, address->socktype, address->protocol);
    if (fd == CURL_SOCKET_BAD && (errno == EMFILE || errno == ENFILE))
      static_cast<CurlSession*>(self_ptr)->no_descriptor_ = true;
    return fd;
  }

  // A new connection is being opened: until a request goes out on it, the connect time-out
  // rules, and whatever response headers came before belong to an earlier exchange.
  static int OnNewSocket(void* self_ptr, curl_socket_t, curlsocktype) {
    auto* self = static_cast<CurlSession*>(self_ptr);
    self->waiting_ = false;
    self->headers_done_ = false;
    return CURL_SOCKOPT_OK;
  }

  // A request is about to go out on an open connection: the receive time-out starts.
  static int OnSending(void* self_ptr, char*, char*, int, int) {
    auto* self = static_cast<CurlSession*>(self_ptr);
    self->Heard();
    if (!self->sent_) self->limit_ = self->last_activity_ + kRequestLimitMs;
    self->sent_ = true;
    self->waiting_ = true;
    self->headers_done_ = false;
    self->CheckSoon();  // a receive time-out shorter than the idle check starts now
    return CURL_PREREQFUNC_OK;
  }

  CURL* easy_;
  curl_slist* base_headers_;
  curl_slist* resolved_ = nullptr;         // the last host name's answer, as libcurl takes it
  curl_slist* request_headers_ = nullptr;  // base plus request_headers_for_, kept while repeated
  std::string request_headers_for_;
  uint32_t receive_timeout_ms_ = kReceiveTimeoutMs;
  char error_buffer_[CURL_ERROR_SIZE];
  std::string last_response_;
  std::string pin_;  // of the last request: the certificate's SHA-256, or empty
  bool insecure_ = false;

  // The request in progress.
  HttpReceiver* receiver_ = nullptr;
  engine::Loop* loop_ = nullptr;
  engine::CurlMulti::Transfer* transfer_ = nullptr;
  std::optional<engine::Loop::TimerId> check_;  // the time-outs' next look
  int64_t last_activity_ = 0;                   // engine::NowMs() of the last byte heard or sent
  int64_t limit_ = 0;                           // when the request limit ends the request
  bool waiting_ = false;                        // a request is out: the receive time-out runs
  bool informational_ = false;                  // the response being read is a 1xx one
  bool headers_done_ = false;                   // a final response's headers are complete
  bool stopped_ = false;                        // the receiver stopped the transfer
  bool no_descriptor_ = false;                  // a connection's socket failed for want of a descriptor
  bool sent_ = false;                           // a request of this exchange has gone out: the limit runs
  bool timed_out_ = false;
  bool over_limit_ = false;
};

}  // namespace

std::unique_ptr<HttpSession> OpenHttpSession(const std::string& userAgent) {
  if (!GlobalInit()) return nullptr;
  auto session = std::make_unique<CurlSession>(userAgent);
  if (!session->Valid()) return nullptr;
  return session;
}

}  // namespace vmio
