#pragma once
// libcurl's multi interface in its socket-action form, driven by an engine loop: libcurl says
// which sockets to watch and when to call it back, the loop does the waiting, and any number
// of transfers run at once on the loop's thread. A task awaits Perform(easy) and resumes with
// the transfer's result; destroying the waiting task takes its transfer off the multi handle.
// Host names are resolved by libcurl (a thread of its own on Debian); numeric addresses start
// no thread.
#include <curl/curl.h>

#include <coroutine>
#include <cstdint>
#include <optional>

#include "engine/loop.h"

namespace vmio::engine {

class CurlMulti {
 public:
  // Idle connections kept for reuse: enough for every device of a large fleet to keep its own.
  static constexpr long kMaxCachedConnections = 1 << 16;

  explicit CurlMulti(Loop& loop);
  ~CurlMulti();
  CurlMulti(const CurlMulti&) = delete;
  CurlMulti& operator=(const CurlMulti&) = delete;

  class Transfer {
   public:
    Transfer(CurlMulti& multi, CURL* easy) : multi_(multi), easy_(easy) {}
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer();

    bool await_ready() const noexcept { return false; }
    // Adds the transfer; when libcurl refuses it, the task resumes at once with that error.
    bool await_suspend(std::coroutine_handle<> waiting);
    CURLcode await_resume() const noexcept { return result_; }
    // Ends the transfer now with code (a time-out of the caller's): its task resumes here.
    void Abort(CURLcode code);

   private:
    friend class CurlMulti;
    CurlMulti& multi_;
    CURL* const easy_;
    std::coroutine_handle<> waiting_;
    bool added_ = false;
    CURLcode result_ = CURLE_OK;
  };

  // co_await multi.Perform(easy): runs the transfer the easy handle describes.
  Transfer Perform(CURL* easy) { return Transfer(*this, easy); }
  int Running() const { return running_; }

 private:
  static int OnSocket(CURL* easy, curl_socket_t fd, int what, void* self, void* socket_data);
  static int OnTimer(CURLM* multi, long timeout_ms, void* self);
  void Act(curl_socket_t fd, int ready);
  void CollectDone();

  Loop& loop_;
  CURLM* const multi_;
  std::optional<Loop::TimerId> timer_;
  int running_ = 0;
};

}  // namespace vmio::engine
