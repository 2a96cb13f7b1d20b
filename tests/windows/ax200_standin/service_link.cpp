#include "service_link.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

namespace ax200 {
namespace {

constexpr UINT kSocketMessage = WM_APP + 1;  // WSAAsyncSelect's report
constexpr UINT kEventsMessage = WM_APP + 2;  // events queued during a call are due
constexpr auto kReplyTimeout = std::chrono::milliseconds(2000);
constexpr wchar_t kWindowClass[] = L"AX200StandInLink";

using Clock = std::chrono::steady_clock;

// Waits until the socket is ready for what is asked, or the deadline passes.
bool WaitReady(SOCKET s, bool for_write, Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
  if (left <= 0) return false;
  fd_set ready, failed;
  FD_ZERO(&ready);
  FD_ZERO(&failed);
  FD_SET(s, &ready);
  FD_SET(s, &failed);
  timeval wait{static_cast<long>(left / 1000000), static_cast<long>(left % 1000000)};
  return select(0, for_write ? nullptr : &ready, for_write ? &ready : nullptr, &failed, &wait) > 0 &&
         FD_ISSET(s, &ready);
}

// "tcp:HOST:PORT" from VMIO_AX200 as a connected non-blocking socket, or INVALID_SOCKET.
SOCKET ConnectToService() {
  const char* where = std::getenv("VMIO_AX200");
  const std::string address = where ? where : "";
  const size_t colon = address.rfind(':');
  if (!address.starts_with("tcp:") || colon == std::string::npos || colon <= 4) return INVALID_SOCKET;
  const std::string host = address.substr(4, colon - 4), port = address.substr(colon + 1);
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return INVALID_SOCKET;
  SOCKET s = socket(found->ai_family, SOCK_STREAM, IPPROTO_TCP);
  u_long non_blocking = 1;
  bool connected = false;
  if (s != INVALID_SOCKET && ioctlsocket(s, FIONBIO, &non_blocking) == 0) {
    connected = connect(s, found->ai_addr, static_cast<int>(found->ai_addrlen)) == 0 ||
                (WSAGetLastError() == WSAEWOULDBLOCK && WaitReady(s, true, Clock::now() + kReplyTimeout));
  }
  freeaddrinfo(found);
  if (!connected && s != INVALID_SOCKET) {
    closesocket(s);
    s = INVALID_SOCKET;
  }
  return s;
}

}  // namespace

ServiceLink& ServiceLink::Get() {
  thread_local ServiceLink link;
  return link;
}

ServiceLink::ServiceLink() {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
  const HINSTANCE module = GetModuleHandleW(nullptr);
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = &WindowProcedure;
  window_class.hInstance = module;
  window_class.lpszClassName = kWindowClass;
  RegisterClassW(&window_class);
  window_ = CreateWindowExW(0, kWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, module, nullptr);
  SetWindowLongPtrW(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
}

bool ServiceLink::Connect() {
  if (socket_ != INVALID_SOCKET) return true;
  socket_ = ConnectToService();
  if (socket_ == INVALID_SOCKET) return false;
  WSAAsyncSelect(socket_, window_, kSocketMessage, FD_READ | FD_CLOSE);
  return true;
}

void ServiceLink::Close() {
  if (socket_ != INVALID_SOCKET) closesocket(socket_);
  socket_ = INVALID_SOCKET;
  input_.Clear();
  replies_.clear();
}

bool ServiceLink::Send(const std::string& line) {
  if (!Connect()) return false;
  const auto deadline = Clock::now() + kReplyTimeout;
  for (size_t sent = 0; sent < line.size();) {
    const int n = send(socket_, line.data() + sent, static_cast<int>(line.size() - sent), 0);
    if (n > 0) {
      sent += static_cast<size_t>(n);
    } else if (n < 0 && WSAGetLastError() == WSAEWOULDBLOCK && WaitReady(socket_, true, deadline)) {
      continue;
    } else {
      Lost();
      return false;
    }
  }
  return true;
}

std::optional<std::vector<std::string>> ServiceLink::Ask(const std::string& line,
                                                         size_t (*more_lines)(const std::string& first)) {
  replies_.clear();
  if (!Send(line)) return std::nullopt;
  const auto deadline = Clock::now() + kReplyTimeout;
  std::vector<std::string> reply;
  size_t wanted = 1;
  while (reply.size() < wanted) {
    if (replies_.empty()) {
      if (!WaitReady(socket_, false, deadline)) {
        Close();  // not answering: a late reply must not be taken for the next one
        return std::nullopt;
      }
      if (!Read()) return std::nullopt;
      continue;
    }
    reply.push_back(std::move(replies_.front()));
    replies_.pop_front();
    if (reply.size() == 1) wanted += more_lines(reply.front());
  }
  return reply;
}

bool ServiceLink::Read() {
  char chunk[4096];
  for (;;) {
    const int n = recv(socket_, chunk, sizeof chunk, 0);
    if (n > 0) {
      input_.Append({chunk, static_cast<size_t>(n)});
      SortLines();
      continue;
    }
    if (n < 0 && WSAGetLastError() == WSAEWOULDBLOCK) return true;
    Lost();
    return false;
  }
}

void ServiceLink::SortLines() {
  while (std::optional<std::string> line = input_.Next()) {
    if (line->starts_with("EVENT\t")) {
      events_.push_back(std::move(*line));
    } else {
      replies_.push_back(std::move(*line));
    }
  }
  if (!events_.empty()) PostMessageW(window_, kEventsMessage, 0, 0);
}

void ServiceLink::Lost() {
  Close();
  events_.push_back("EVENT\tDisconnected");
  PostMessageW(window_, kEventsMessage, 0, 0);
}

void ServiceLink::FireQueued() {
  while (!events_.empty()) {
    const std::string line = std::move(events_.front());
    events_.pop_front();
    const auto fields = vmio::LineFields(line);
    // A listener may go away while an event runs: fire at a copy of the list.
    const std::vector<EventListener*> listeners = listeners_;
    for (EventListener* listener : listeners) {
      if (std::find(listeners_.begin(), listeners_.end(), listener) == listeners_.end()) continue;
      if (fields.size() >= 2 && fields[1] == "doorStatus") {
        listener->OnDoorStatus(fields.size() >= 3 ? std::string(fields[2]) : std::string());
      } else if (fields.size() == 2 && fields[1] == "Disconnected") {
        listener->OnDisconnected();
      }
    }
  }
}

void ServiceLink::Listen(EventListener* listener) { listeners_.push_back(listener); }

void ServiceLink::Forget(EventListener* listener) {
  listeners_.erase(std::remove(listeners_.begin(), listeners_.end(), listener), listeners_.end());
}

LRESULT CALLBACK ServiceLink::WindowProcedure(HWND window, UINT message, WPARAM w, LPARAM l) {
  auto* link = reinterpret_cast<ServiceLink*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (!link || (message != kSocketMessage && message != kEventsMessage)) return DefWindowProcW(window, message, w, l);
  // A report about a socket closed since is stale.
  if (message == kSocketMessage && static_cast<SOCKET>(w) == link->socket_) {
    // Lines that are not events, with no call waiting for them, are dropped.
    if (link->Read()) link->replies_.clear();
    if (WSAGETSELECTEVENT(l) == FD_CLOSE && link->socket_ != INVALID_SOCKET) link->Lost();
  }
  link->FireQueued();
  return 0;
}

}  // namespace ax200
