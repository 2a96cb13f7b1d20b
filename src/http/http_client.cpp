#include "http/http_client.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <limits>
#include <span>

#include "core/call_guard.h"
#include "core/errors.h"
#include "core/string_encoding.h"
#include "core/trace.h"
#include "http/device_address.h"
#include "http/header_block.h"
#include "http/http_session.h"

namespace vmio {
namespace {

constexpr size_t kLastResponseChars = 1024;
constexpr int64_t kMaxReserve = 1 << 20;  // a Content-Length is not trusted further than this

std::unique_ptr<HttpSession> OpenSession(const std::string& agent) {
  std::unique_ptr<HttpSession> session = OpenHttpSession(agent.empty() ? kDefaultHttpUserAgent : agent);
  if (!session) Raise(kInvalidProcedureCall);
  return session;
}

// Texts reach the platform's calls in the ANSI code page; ASCII (the usual URL) is not copied.
const std::string& Ansi(const std::string& text, std::string& storage) {
  if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) return text;
  const std::vector<uint8_t> bytes = StringToBytes(text, kCodePage1252);
  storage.assign(bytes.begin(), bytes.end());
  return storage;
}

// Credentials go out in the same code page as the rest of the request.
HttpAccess AnsiAccess(const HttpAccess& access) {
  HttpAccess ansi = access;
  std::string storage;
  ansi.user = Ansi(access.user, storage);
  ansi.password = Ansi(access.password, storage);
  return ansi;
}

int32_t Clamp32(int64_t n) { return static_cast<int32_t>(std::min<int64_t>(n, std::numeric_limits<int32_t>::max())); }

HttpResponse Failure(int32_t number, std::string text) {
  return ExchangeFailure<HttpResponse>(number, std::move(text));
}

}  // namespace

// Where a body goes: into memory or into a file.
class HttpBodySink {
 public:
  virtual ~HttpBodySink() = default;
  // Stores a chunk; raises when it cannot.
  virtual void Write(std::span<const uint8_t> chunk, int64_t total) = 0;
  // What Progress reports as Received.
  virtual int64_t Received() const = 0;
  // After the whole body: raises when it fell short of total.
  virtual void Finish(int64_t total) = 0;
};

namespace {

class MemorySink final : public HttpBodySink {
 public:
  void Write(std::span<const uint8_t> chunk, int64_t total) override {
    if (body.empty() && total > 0) body.reserve(static_cast<size_t>(std::min(total, kMaxReserve)));
    body.insert(body.end(), chunk.begin(), chunk.end());
  }
  int64_t Received() const override { return static_cast<int64_t>(body.size()); }
  void Finish(int64_t) override {}

  std::vector<uint8_t> body;
};

// Writes from the start of the file without truncating it, so a longer old file keeps its
// tail; the file's length (old tail included) is what Progress and the truncation test see.
class FileSink final : public HttpBodySink {
 public:
  explicit FileSink(const std::string& name) {
    file_ = std::fopen(name.c_str(), "r+b");
    if (!file_ && errno == ENOENT) file_ = std::fopen(name.c_str(), "wb");
    if (!file_) {
      if (errno == ENOENT) Raise(kPathNotFound, "Path not found");
      Raise(kPathFileAccessError, "Path/File access error");
    }
    if (std::fseek(file_, 0, SEEK_END) == 0) old_length_ = std::max<int64_t>(0, std::ftell(file_));
    std::rewind(file_);
  }
  ~FileSink() override { std::fclose(file_); }
  FileSink(const FileSink&) = delete;
  FileSink& operator=(const FileSink&) = delete;

  void Write(std::span<const uint8_t> chunk, int64_t) override {
    if (std::fwrite(chunk.data(), 1, chunk.size(), file_) != chunk.size()) RaiseWriteError();
    written_ += static_cast<int64_t>(chunk.size());
  }
  int64_t Received() const override { return std::max(old_length_, written_); }
  void Finish(int64_t total) override {
    if (std::fflush(file_) != 0) RaiseWriteError();
    if (total >= 0 && Received() < total) Raise(kHttpReceiveFailed, "Download file truncated");
  }

 private:
  [[noreturn]] static void RaiseWriteError() {
    if (errno == ENOSPC) Raise(kDiskFull, "Disk full");
    Raise(kDeviceIOError, "Device I/O error");
  }

  std::FILE* file_ = nullptr;
  int64_t old_length_ = 0;
  int64_t written_ = 0;
};

// One request's traffic: keeps the header block of the final response, feeds the sink and
// raises Progress after each chunk. Nothing thrown here may cross the transport, so a
// handler's exception waits until the transport has returned.
class Exchange final : public HttpReceiver {
 public:
  Exchange(HttpBodySink& sink, const decltype(HTTPClient::Progress)& progress) : sink_(sink), progress_(progress) {}

  void OnHeaderLine(std::string_view line) override {
    if (line.starts_with("HTTP/")) Trace("http: ", line.substr(0, line.find_first_of("\r\n")));
    headers_.AddLine(line);
  }

  bool OnBody(std::span<const uint8_t> chunk, int64_t total) override {
    bool cancel = false;
    try {
      // Checked before storing, so an oversized reply never takes more than the limit.
      if (total > kMaxBodyBytes || received_ + static_cast<int64_t>(chunk.size()) > kMaxBodyBytes) {
        Raise(kHttpReceiveFailed, "Disconnected while recieving data");
      }
      received_ += static_cast<int64_t>(chunk.size());
      sink_.Write(chunk, total);
      if (progress_) progress_(Clamp32(sink_.Received()), total < 0 ? -1 : Clamp32(total), cancel);
    } catch (...) {
      thrown_ = std::current_exception();
      return false;
    }
    return !cancel;
  }

  // Why the receiver stopped the request: a failure of its own, else a cancel. Exceptions
  // other than the library's (a Progress handler's own) are rethrown as they are.
  HttpResponse StopFailure() const {
    if (!thrown_) return Failure(kHttpCancelled, "Download cancelled");
    try {
      std::rethrow_exception(thrown_);
    } catch (const AutomationError& e) {
      return Failure(e.Number(), e.Description());
    }
  }

  std::string TakeHeaders() { return headers_.Take(); }

 private:
  HttpBodySink& sink_;
  const decltype(HTTPClient::Progress)& progress_;
  HeaderBlock headers_;
  int64_t received_ = 0;
  std::exception_ptr thrown_;
};

}  // namespace

HTTPClient::HTTPClient() : session_(OpenSession({})) {}

HTTPClient::~HTTPClient() = default;

engine::Task<HttpResponse> HTTPClient::Perform(engine::Io& io, std::string URL, std::string SendHeaders,
                                               std::string PostData, HttpBodySink& sink) {
  // A session that failed to re-open (UserAgent) leaves none: the request cannot start.
  if (!session_) co_return Failure(kHttpSessionFailed, "Failed to initialise the HTTP session");
  std::string url_storage;
  std::string headers_storage;
  std::string post_storage;
  Exchange exchange(sink, Progress);
  Trace("http: ", PostData.empty() ? "GET " : "POST ", UrlForTrace(URL, access_));
  if (access_.insecure) Trace("http: INSECURE: the certificate is not checked, any server can pose as this device");
  // The platform reads the URL as a C string: a NUL would silently send the request somewhere
  // else than the device string says, so such a string names no server at all.
  if (URL.find('\0') != std::string::npos)
    co_return Failure(kHttpConnectFailed, "Failed to connect to the HTTP server.");
  const HttpResult result = co_await session_->Perform(io, Ansi(URL, url_storage), Ansi(SendHeaders, headers_storage),
                                                       Ansi(PostData, post_storage), AnsiAccess(access_), exchange);
  if (result.outcome != HttpOutcome::Complete) Trace("http: ", session_->LastResponse());
  switch (result.outcome) {
    case HttpOutcome::Complete:
    case HttpOutcome::Truncated:  // an early close is an end of data, as the platform reports it
      break;
    case HttpOutcome::BadUrl:
      co_return Failure(kHttpSessionFailed, "Failed to initialise the HTTP session");
    case HttpOutcome::NoRequest:
      co_return Failure(kHttpRequestFailed, "Failed to initialise the HTTP request");
    case HttpOutcome::Offline:
      co_return Failure(kHttpRequestFailed, "Windows is in offline mode.");
    case HttpOutcome::NoResponse:
      co_return Failure(kHttpConnectFailed, "Failed to connect to the HTTP server.");
    case HttpOutcome::BodyBroken:
      co_return Failure(kHttpReceiveFailed, "Disconnected while recieving data");
    case HttpOutcome::NoDescriptor:
      co_return Failure(kTooManyFiles, StandardErrorText(kTooManyFiles));
    case HttpOutcome::Stopped:
      co_return exchange.StopFailure();
  }
  try {
    sink.Finish(result.content_length);
  } catch (const AutomationError& e) {
    co_return Failure(e.Number(), e.Description());
  }
  last_headers_ = exchange.TakeHeaders();
  HttpResponse response;
  response.headers = last_headers_;
  co_return response;
}

HttpResponse HTTPClient::Fetch(const std::string& URL) {
  return engine::RunBlocking([&](engine::Io& io) { return FetchOn(io, URL); });
}

engine::Task<HttpResponse> HTTPClient::FetchOn(engine::Io& io, std::string URL) {
  const CallGuard active(working_);
  MemorySink sink;
  HttpResponse response = co_await Perform(io, std::move(URL), {}, {}, sink);
  if (response.Ok()) response.body = std::move(sink.body);
  co_return response;
}

std::vector<uint8_t> HTTPClient::GetResource(const std::string& URL, const std::string& SendHeaders,
                                             const std::string& PostData) {
  return engine::RunBlocking([&](engine::Io& io) { return GetResourceOn(io, URL, SendHeaders, PostData); });
}

engine::Task<std::vector<uint8_t>> HTTPClient::GetResourceOn(engine::Io& io, std::string URL, std::string SendHeaders,
                                                             std::string PostData) {
  const CallGuard active(working_);
  MemorySink sink;
  (co_await Perform(io, std::move(URL), std::move(SendHeaders), std::move(PostData), sink)).RaiseIfFailed();
  co_return std::move(sink.body);
}

void HTTPClient::DownloadResource(const std::string& URL, const std::string& FileName, const std::string& SendHeaders,
                                  const std::string& PostData) {
  engine::RunBlocking([&](engine::Io& io) { return DownloadOn(io, URL, FileName, SendHeaders, PostData); });
}

engine::Task<void> HTTPClient::DownloadOn(engine::Io& io, std::string URL, std::string FileName,
                                          std::string SendHeaders, std::string PostData) {
  const CallGuard active(working_);
  FileSink sink(FileName);
  (co_await Perform(io, std::move(URL), std::move(SendHeaders), std::move(PostData), sink)).RaiseIfFailed();
}

std::string HTTPClient::GetResultCode(std::string* Text) const { return StatusCodeOf(last_headers_, Text); }

std::string HTTPClient::GetHeader(const std::string& HeaderName) const {
  return HeaderName.empty() ? last_headers_ : std::string();
}

const std::string& HTTPClient::UserAgent() const { return user_agent_; }

void HTTPClient::UserAgent(const std::string& NewUserAgent) {
  if (working_) throw ReentrantCall();  // the session is mid-request
  user_agent_ = NewUserAgent;
  session_.reset();
  session_ = OpenSession(user_agent_);
}

void HTTPClient::Timeout(int32_t NewTimeout) {
  if (session_) session_->SetReceiveTimeout(static_cast<uint32_t>(NewTimeout));
}

bool HTTPClient::Working() const { return working_; }

std::string HTTPClient::LastResponse() const {
  std::string buffer(kLastResponseChars, '\0');
  const std::string text = session_ ? session_->LastResponse() : std::string();
  std::copy_n(text.begin(), std::min(text.size(), kLastResponseChars - 1), buffer.begin());
  return buffer;
}

}  // namespace vmio
