#include "platform/posix/http/curl_multi.h"

#include <stdexcept>

namespace vmio::engine {

CurlMulti::CurlMulti(Loop& loop) : loop_(loop), multi_(curl_multi_init()) {
  if (!multi_) throw std::bad_alloc();
  curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &CurlMulti::OnSocket);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &CurlMulti::OnTimer);
  curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, kMaxCachedConnections);
}

CurlMulti::~CurlMulti() {
  if (timer_) loop_.CancelTimer(*timer_);
  curl_multi_cleanup(multi_);  // transfers still added are gone with their tasks by now
}

int CurlMulti::OnSocket(CURL*, curl_socket_t fd, int what, void* self, void*) {
  auto& multi = *static_cast<CurlMulti*>(self);
  if (what == CURL_POLL_REMOVE) {
    multi.loop_.Unwatch(fd);
    return 0;
  }
  const int interest = (what & CURL_POLL_IN ? kReadable : 0) | (what & CURL_POLL_OUT ? kWritable : 0);
  multi.loop_.Watch(fd, interest, [&multi, fd](int ready) { multi.Act(fd, ready); });
  return 0;
}

int CurlMulti::OnTimer(CURLM*, long timeout_ms, void* self) {
  auto& multi = *static_cast<CurlMulti*>(self);
  if (multi.timer_) multi.loop_.CancelTimer(*multi.timer_);
  multi.timer_.reset();
  if (timeout_ms >= 0) {
    multi.timer_ = multi.loop_.AddTimer(NowMs() + timeout_ms, [&multi] {
      multi.timer_.reset();
      multi.Act(CURL_SOCKET_TIMEOUT, 0);
    });
  }
  return 0;
}

void CurlMulti::Act(curl_socket_t fd, int ready) {
  const int mask = (ready & kReadable ? CURL_CSELECT_IN : 0) | (ready & kWritable ? CURL_CSELECT_OUT : 0);
  curl_multi_socket_action(multi_, fd, mask, &running_);
  CollectDone();
}

void CurlMulti::CollectDone() {
  int queued = 0;
  while (CURLMsg* message = curl_multi_info_read(multi_, &queued)) {
    if (message->msg != CURLMSG_DONE) continue;
    Transfer* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    const CURLcode result = message->data.result;
    curl_multi_remove_handle(multi_, message->easy_handle);
    if (!transfer) continue;
    transfer->added_ = false;
    transfer->result_ = result;
    // The task goes on here; it may start other transfers or end, destroying this one.
    transfer->waiting_.resume();
  }
}

bool CurlMulti::Transfer::await_suspend(std::coroutine_handle<> waiting) {
  waiting_ = waiting;
  curl_easy_setopt(easy_, CURLOPT_PRIVATE, this);
  const CURLMcode added = curl_multi_add_handle(multi_.multi_, easy_);
  if (added != CURLM_OK) {
    result_ = CURLE_FAILED_INIT;
    return false;
  }
  added_ = true;
  return true;
}

void CurlMulti::Transfer::Abort(CURLcode code) {
  if (!added_) return;
  curl_multi_remove_handle(multi_.multi_, easy_);  // mid-transfer: libcurl closes its connection
  added_ = false;
  result_ = code;
  waiting_.resume();
}

CurlMulti::Transfer::~Transfer() {
  if (added_) curl_multi_remove_handle(multi_.multi_, easy_);  // its task was cancelled
  curl_easy_setopt(easy_, CURLOPT_PRIVATE, nullptr);
}

}  // namespace vmio::engine
