// The HTTP seam on WinInet. Each session is one InternetOpen handle for the client's whole
// life; WinInet keeps the connection to a device open between requests (HTTP/1.1 keep-alive)
// and opens a new one by itself when the device has closed it. WinInet does all the waiting:
// 10000 ms to connect, the receive time-out (5000 ms unless set) between arriving bytes. The
// request limit (30000 ms from the send, as elsewhere) is checked here between body chunks;
// while the headers arrive only WinInet's own time-outs apply. https is used when the device
// string asks for it, certificates checked against the system's store (VMIO_CA_FILE, which
// adds a bundle elsewhere, has no meaning to WinInet, and a certificate pin is refused).
#include <windows.h>

// After windows.h, which they need.
#include <wininet.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "http/http_session.h"

namespace vmio {
namespace {

constexpr DWORD kConnectTimeoutMs = 10000;
constexpr DWORD kReceiveTimeoutMs = 5000;
constexpr ULONGLONG kRequestLimitMs = 30000;
constexpr DWORD kChunkBytes = 64 * 1024;
// Always from the device, never into the cache; credentials only as given, no dialogs, no
// cookies: what the libcurl session does elsewhere.
constexpr DWORD kRequestFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_PRAGMA_NOCACHE |
                                INTERNET_FLAG_KEEP_CONNECTION | INTERNET_FLAG_NO_UI | INTERNET_FLAG_NO_COOKIES;
constexpr char kBaseHeaders[] = "Cache-Control: no-cache\r\n";

class InternetHandle {
 public:
  explicit InternetHandle(HINTERNET h = nullptr) : h_(h) {}
  ~InternetHandle() {
    if (h_) InternetCloseHandle(h_);
  }
  InternetHandle(const InternetHandle&) = delete;
  InternetHandle& operator=(const InternetHandle&) = delete;
  HINTERNET get() const { return h_; }
  explicit operator bool() const { return h_ != nullptr; }

 private:
  HINTERNET h_;
};

struct UrlParts {
  INTERNET_SCHEME scheme = INTERNET_SCHEME_UNKNOWN;
  std::string host;
  INTERNET_PORT port = 0;
  std::string user;
  std::string password;
  std::string path;  // path and query, as written, backslashes escaped
};

// A backslash goes out as %5C: Wine's WinInet turns a raw one into "/" before sending (an Axis
// output switched off would be switched on), and devices decode %5C in a query as the backslash.
std::string BackslashesEscaped(const std::string& path) {
  std::string out;
  for (const char c : path) out += c == '\\' ? std::string("%5C") : std::string(1, c);
  return out;
}

std::optional<UrlParts> Crack(const std::string& url) {
  std::string host(256, '\0'), user(128, '\0'), password(128, '\0'), path(2048, '\0');
  std::string extra(url.size() + 1, '\0');
  URL_COMPONENTSA c{};
  c.dwStructSize = sizeof c;
  c.lpszHostName = host.data();
  c.dwHostNameLength = static_cast<DWORD>(host.size());
  c.lpszUserName = user.data();
  c.dwUserNameLength = static_cast<DWORD>(user.size());
  c.lpszPassword = password.data();
  c.dwPasswordLength = static_cast<DWORD>(password.size());
  c.lpszUrlPath = path.data();
  c.dwUrlPathLength = static_cast<DWORD>(path.size());
  c.lpszExtraInfo = extra.data();
  c.dwExtraInfoLength = static_cast<DWORD>(extra.size());
  if (!InternetCrackUrlA(url.c_str(), static_cast<DWORD>(url.size()), 0, &c)) return std::nullopt;
  host.resize(c.dwHostNameLength);
  user.resize(c.dwUserNameLength);
  password.resize(c.dwPasswordLength);
  path.resize(c.dwUrlPathLength);
  extra.resize(c.dwExtraInfoLength);
  if (path.empty()) path.push_back('/');
  path += extra;
  return UrlParts{c.nScheme, host, c.nPort, user, password, BackslashesEscaped(path)};
}

// The text WinInet has for an error code, for LastResponse.
std::string ErrorText(DWORD error) {
  std::string text = "WinInet error " + std::to_string(error);
  char buffer[512] = {};
  const DWORD n =
      FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     GetModuleHandleA("wininet.dll"), error, 0, buffer, sizeof buffer, nullptr);
  if (n > 0) text += ": " + std::string(buffer, n);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  return text;
}

// The final response's headers, CR LF after each line and a blank line at the end.
std::optional<std::string> RawHeaders(HINTERNET request) {
  DWORD size = 0;
  HttpQueryInfoA(request, HTTP_QUERY_RAW_HEADERS_CRLF, nullptr, &size, nullptr);
  if (size == 0) return std::nullopt;
  std::string block(size, '\0');
  if (!HttpQueryInfoA(request, HTTP_QUERY_RAW_HEADERS_CRLF, block.data(), &size, nullptr)) return std::nullopt;
  block.resize(std::min<size_t>(size, block.size()));
  if (!block.ends_with("\r\n")) block += "\r\n";
  if (!block.ends_with("\r\n\r\n")) block += "\r\n";
  return block;
}

int64_t ContentLength(HINTERNET request) {
  char digits[32] = {};
  DWORD size = sizeof digits - 1;
  if (!HttpQueryInfoA(request, HTTP_QUERY_CONTENT_LENGTH, digits, &size, nullptr)) return -1;
  int64_t n = 0;
  for (DWORD i = 0; i < size; ++i) {
    if (digits[i] < '0' || digits[i] > '9' || n > (INT64_MAX - 9) / 10) return -1;
    n = n * 10 + (digits[i] - '0');
  }
  return size == 0 ? -1 : n;
}

// The "#insecure" opt-out: any certificate, for any name, at any date.
bool TrustAnyCertificate(HINTERNET request) {
  DWORD flags = 0;
  DWORD size = sizeof flags;
  if (!InternetQueryOptionA(request, INTERNET_OPTION_SECURITY_FLAGS, &flags, &size)) return false;
  flags |= SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
           SECURITY_FLAG_IGNORE_CERT_DATE_INVALID | SECURITY_FLAG_IGNORE_REVOCATION | SECURITY_FLAG_IGNORE_WRONG_USAGE;
  return InternetSetOptionA(request, INTERNET_OPTION_SECURITY_FLAGS, &flags, sizeof flags) != FALSE;
}

class WinInetSession final : public HttpSession {
 public:
  explicit WinInetSession(const std::string& userAgent)
      // Devices are on the local network: no proxy, whatever the system's settings say.
      : session_(InternetOpenA(userAgent.c_str(), INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)) {
    if (!session_) return;
    SetTimeouts(session_.get());
  }

  bool Valid() const { return static_cast<bool>(session_); }

  void SetReceiveTimeout(uint32_t ms) override {
    receive_timeout_ms_ = ms == 0 ? INFINITE : ms;
    SetTimeouts(session_.get());
  }

  // WinInet blocks the thread: a request runs to its end before any other, whoever drives it.
  engine::Task<HttpResult> Perform(engine::Io&, std::string url, std::string sendHeaders, std::string postData,
                                   HttpAccess access, HttpReceiver& receiver) override {
    co_return PerformNow(url, sendHeaders, postData, access, receiver);
  }

 private:
  HttpResult PerformNow(const std::string& url, const std::string& sendHeaders, const std::string& postData,
                        const HttpAccess& access, HttpReceiver& receiver) {
    last_response_.clear();
    const std::optional<UrlParts> parts = Crack(url);
    if (!parts || (parts->scheme != INTERNET_SCHEME_HTTP && parts->scheme != INTERNET_SCHEME_HTTPS)) {
      last_response_ = "The URL is not an http or https URL: " + url;
      return {HttpOutcome::BadUrl, -1};
    }
    if (!parts->user.empty() || !parts->password.empty()) {
      last_response_ = "The URL carries credentials";
      return {HttpOutcome::BadUrl, -1};
    }
    if (!access.certificate_sha256.empty()) {
      last_response_ = "Certificate pinning (#sha256=) is not supported on Windows";
      return {HttpOutcome::BadUrl, -1};
    }
    // Credentials as given, beside the URL: WinInet decodes nothing it gets this way.
    const bool anonymous = !access.authenticate;
    const InternetHandle connection(
        InternetConnectA(session_.get(), parts->host.c_str(), parts->port, anonymous ? nullptr : access.user.c_str(),
                         anonymous ? nullptr : access.password.c_str(), INTERNET_SERVICE_HTTP, 0, 0));
    if (!connection) return Failed(HttpOutcome::BadUrl);
    const InternetHandle request(HttpOpenRequestA(
        connection.get(), postData.empty() ? "GET" : "POST", parts->path.c_str(), "HTTP/1.1", nullptr, nullptr,
        kRequestFlags | (anonymous ? INTERNET_FLAG_NO_AUTH : 0) |
            (parts->scheme == INTERNET_SCHEME_HTTPS ? INTERNET_FLAG_SECURE : 0),
        0));
    if (!request) return Failed(HttpOutcome::NoRequest);
    if (access.insecure && !TrustAnyCertificate(request.get())) return Failed(HttpOutcome::NoRequest);
    // On the request itself too: Wine's WinInet takes time-outs only from the handle they are set
    // on, and without them its wait for a silent device's headers has no end.
    SetTimeouts(request.get());

    const ULONGLONG limit = GetTickCount64() + kRequestLimitMs;
    std::string headers = kBaseHeaders + sendHeaders;
    if (!headers.ends_with("\r\n")) headers += "\r\n";
    if (!HttpSendRequestA(request.get(), headers.c_str(), static_cast<DWORD>(headers.size()),
                          postData.empty() ? nullptr : const_cast<char*>(postData.data()),
                          static_cast<DWORD>(postData.size()))) {
      return Failed(GetLastError() == ERROR_FILE_NOT_FOUND ? HttpOutcome::Offline : HttpOutcome::NoResponse);
    }

    const std::optional<std::string> block = RawHeaders(request.get());
    if (!block) return Failed(HttpOutcome::NoResponse);
    // Wine's WinInet takes a connection closed before any byte of a reply for a reply without
    // headers (Windows fails the send): either way the device did not answer.
    if (!block->starts_with("HTTP/")) {
      last_response_ = "The device closed the connection without answering";
      return {HttpOutcome::NoResponse, -1};
    }
    try {
      for (size_t start = 0; start < block->size();) {
        const size_t end = block->find("\r\n", start);
        receiver.OnHeaderLine(std::string_view(*block).substr(start, end + 2 - start));
        start = end + 2;
      }
    } catch (...) {
      return {HttpOutcome::NoResponse, -1};
    }

    const int64_t total = ContentLength(request.get());
    int64_t received = 0;
    std::vector<uint8_t> chunk;
    for (;;) {
      DWORD available = 0;
      if (!InternetQueryDataAvailable(request.get(), &available, 0, 0)) return Failed(HttpOutcome::BodyBroken, total);
      if (available == 0) break;
      chunk.resize(std::min(available, kChunkBytes));
      DWORD read = 0;
      if (!InternetReadFile(request.get(), chunk.data(), static_cast<DWORD>(chunk.size()), &read)) {
        return Failed(HttpOutcome::BodyBroken, total);
      }
      if (read == 0) break;
      received += read;
      if (!receiver.OnBody(std::span<const uint8_t>(chunk.data(), read), total)) return {HttpOutcome::Stopped, total};
      if (GetTickCount64() >= limit) {
        last_response_ = "Request time-out: no whole reply within " + std::to_string(kRequestLimitMs) + " ms";
        return {HttpOutcome::BodyBroken, total};
      }
    }
    return {total >= 0 && received < total ? HttpOutcome::Truncated : HttpOutcome::Complete, total};
  }

  std::string LastResponse() const override { return last_response_; }

 private:
  HttpResult Failed(HttpOutcome outcome, int64_t total = -1) {
    last_response_ = ErrorText(GetLastError());
    return {outcome, total};
  }

  void SetTimeouts(HINTERNET handle) const {
    DWORD connect = kConnectTimeoutMs;
    DWORD receive = receive_timeout_ms_;
    InternetSetOptionA(handle, INTERNET_OPTION_CONNECT_TIMEOUT, &connect, sizeof connect);
    InternetSetOptionA(handle, INTERNET_OPTION_RECEIVE_TIMEOUT, &receive, sizeof receive);
  }

  InternetHandle session_;
  DWORD receive_timeout_ms_ = kReceiveTimeoutMs;
  std::string last_response_;
};

}  // namespace

std::unique_ptr<HttpSession> OpenHttpSession(const std::string& userAgent) {
  auto session = std::make_unique<WinInetSession>(userAgent);
  if (!session->Valid()) return nullptr;
  return session;
}

}  // namespace vmio
