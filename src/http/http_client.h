#pragma once
// The library's private HTTP/1.1 client: one per HTTP driver, for the driver's whole life.
//
// The connection to a device is kept alive between requests and re-opened transparently when
// the device closed it. Time-outs: 10000 ms to connect, 5000 ms without data while receiving
// (Timeout sets the latter), and 30000 ms for a whole request once it is sent, so a device
// that drips its reply cannot hold a call longer than the connect plus that. A reply body
// is accepted up to kMaxBodyBytes; a longer one fails the request with 13106 and nothing of
// it is kept. Credentials travel beside the URL (Access), never in it, and both Basic and
// Digest challenges are answered. HTTP status codes are not errors: a 401 or
// 404 reply is returned like a 200 one; callers judge it by GetResultCode or GetHeader("").
// Errors (exact texts): 13101 "Failed to initialise the HTTP session",
// 13102 "Failed to initialise the HTTP request" / "Windows is in offline mode.",
// 13104 "Failed to connect to the HTTP server.", 13106 "InternetQueryDataAvailable returned
// failure" / "GetLastError returned N" / "Disconnected while recieving data" / "Download file
// truncated", 13107 "Download cancelled", 67 "Too many files" (no descriptor was left for a
// connection: the host's limit, not the device, failed). A request made while one is in progress (from a
// handler the first one runs) raises 5 "Invalid procedure call or argument".
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/exchange_result.h"
#include "http/http_session.h"

namespace vmio {

inline constexpr char kDefaultHttpUserAgent[] = "Tolvane HTTP Client Object";
// Device CGI replies are small; this bounds what one hostile reply can make the host hold.
inline constexpr int64_t kMaxBodyBytes = 16 << 20;

class HttpBodySink;

// One request's outcome as a value: the reply of any status, or the client's error (its
// number and the text GetResource would raise with) and nothing else.
struct HttpResponse : ExchangeError {
  std::string headers;  // the raw header block, status line first (as GetHeader(""))
  std::vector<uint8_t> body;

  // Whether the status line carries "200" at characters 10-12.
  bool StatusIs200() const { return headers.size() >= 12 && headers.compare(9, 3, "200") == 0; }
};

class HTTPClient {
 public:
  HTTPClient();
  ~HTTPClient();
  HTTPClient(const HTTPClient&) = delete;
  HTTPClient& operator=(const HTTPClient&) = delete;

  // GET the URL into memory: the narrow call a device driver makes. The client's errors come
  // back in the result instead of being raised; a Progress handler's own exceptions still
  // propagate.
  HttpResponse Fetch(const std::string& URL);
  // Fetch as a task on a loop, beside any number of other clients' requests.
  engine::Task<HttpResponse> FetchOn(engine::Io& io, std::string URL);
  // GET (POST when PostData is not empty) the URL; returns the body of any status.
  std::vector<uint8_t> GetResource(const std::string& URL, const std::string& SendHeaders = {},
                                   const std::string& PostData = {});
  // As GetResource, writing the body to FileName from its start (an existing longer file keeps
  // its tail); 13106 "Download file truncated" when fewer bytes came than announced.
  void DownloadResource(const std::string& URL, const std::string& FileName, const std::string& SendHeaders = {},
                        const std::string& PostData = {});

  // The status code of the last successful request ("200"), or "" when the status line has
  // none in 100..599. Text receives the reason phrase, still ending in its CR.
  std::string GetResultCode(std::string* Text = nullptr) const;
  // With an empty name, the whole raw header block of the last successful request, lines
  // joined by CR LF, status line first, without the closing blank line; "" for any other name.
  std::string GetHeader(const std::string& HeaderName) const;

  const std::string& UserAgent() const;
  // Re-opens the session with the new agent; the receive time-out returns to 5000 ms.
  void UserAgent(const std::string& NewUserAgent);
  // The receive (inactivity) time-out in ms, taken as unsigned (0 waits without limit); the
  // connect time-out stays 10000 ms.
  void Timeout(int32_t NewTimeout);
  // True while a request is in progress (seen only from a Progress handler).
  bool Working() const;
  // The transport's text about the last request (why it failed; empty after a success) in a
  // 1024-character buffer: the text, then NULs.
  std::string LastResponse() const;

  // The credentials and certificate trust of every later request (none until set).
  void Access(const HttpAccess& access) { access_ = access; }

  // The Progress event, raised after each chunk of a body; a handler that sets Cancel ends
  // the request with 13107 "Download cancelled".
  std::function<void(int32_t Received, int32_t Total, bool& Cancel)> Progress;

 private:
  engine::Task<std::vector<uint8_t>> GetResourceOn(engine::Io& io, std::string URL, std::string SendHeaders,
                                                   std::string PostData);
  engine::Task<void> DownloadOn(engine::Io& io, std::string URL, std::string FileName, std::string SendHeaders,
                                std::string PostData);
  // One request into sink; the client's errors are returned in the result (body left empty).
  engine::Task<HttpResponse> Perform(engine::Io& io, std::string URL, std::string SendHeaders, std::string PostData,
                                     HttpBodySink& sink);

  std::unique_ptr<HttpSession> session_;
  std::string user_agent_;
  std::string last_headers_;
  HttpAccess access_;
  bool working_ = false;  // a request is in progress: another one from inside it raises 5
};

}  // namespace vmio
