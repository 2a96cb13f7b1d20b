#pragma once
// The platform seam under HTTPClient: one open HTTP session of the platform's transport
// (libcurl on POSIX, WinInet on Windows). It performs one request at a time, as a task on a
// loop, and reports what arrived; HTTPClient turns that into bodies, header blocks, Progress
// events and the client's error numbers. libcurl's transfers interleave on the loop; WinInet's
// block the thread, so there each request runs to its end before any other.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "engine/io.h"

namespace vmio {

// How a request ended, as far as the transport can tell.
enum class HttpOutcome {
  Complete,      // the whole body arrived
  Truncated,     // the server closed the connection before the announced length arrived
  BadUrl,        // the URL cannot be used: malformed, or a scheme other than http
  NoRequest,     // the transport could not make a request for the URL
  Offline,       // the system is set to work offline
  NoResponse,    // no complete response header arrived (refused, time-out, reset)
  BodyBroken,    // the headers arrived, then reading the body failed (reset, time-out)
  Stopped,       // the receiver asked to stop
  NoDescriptor,  // the process has no descriptor left for a connection
};

struct HttpResult {
  HttpOutcome outcome = HttpOutcome::NoResponse;
  int64_t content_length = -1;  // of the final response; -1 when it announced none
};

// Who the client is to a device and which certificate it trusts. They travel beside the URL,
// never in it, so a password may hold any character and reaches the device as given.
struct HttpAccess {
  bool authenticate = false;  // answer Basic and Digest challenges with user and password
  std::string user;
  std::string password;
  // 32 bytes: trust only a server whose own certificate has this SHA-256 digest, whatever its
  // issuer and names; empty: the CA store decides.
  std::string certificate_sha256;
  bool insecure = false;  // trust any certificate: for testing only
};

// What the transport hands over while a request runs, on the caller's thread.
class HttpReceiver {
 public:
  // Every response header line as it arrives, CR LF included: status line, headers and the
  // closing blank line, for each response of the exchange (1xx, authentication, redirects).
  virtual void OnHeaderLine(std::string_view line) = 0;
  // A chunk of the final response's body; total is its Content-Length or -1. False stops.
  virtual bool OnBody(std::span<const uint8_t> chunk, int64_t total) = 0;

 protected:
  ~HttpReceiver() = default;
};

class HttpSession {
 public:
  virtual ~HttpSession() = default;
  // The receive (inactivity) time-out; 0 waits without limit.
  virtual void SetReceiveTimeout(uint32_t ms) = 0;
  // GET the URL, or POST postData when it is not empty; sendHeaders holds extra request
  // header lines separated by CR LF. Credentials and trust come from access; a URL carrying
  // credentials of its own is refused (BadUrl).
  // The task keeps its own copies of the texts; receiver must outlive it.
  virtual engine::Task<HttpResult> Perform(engine::Io& io, std::string url, std::string sendHeaders,
                                           std::string postData, HttpAccess access, HttpReceiver& receiver) = 0;
  // The transport's own text about the last request: why it failed, "" when it went well.
  virtual std::string LastResponse() const = 0;
};

// A session sending userAgent, with the receive time-out at 5000 ms and the connect time-out
// at 10000 ms; nullptr when the platform cannot open one.
std::unique_ptr<HttpSession> OpenHttpSession(const std::string& userAgent);

}  // namespace vmio
