// The AX200 software as a local service: a client of the line protocol on the socket that
// VMIO_AX200 names ("unix:PATH" or "tcp:HOST:PORT"; unix:/run/ax200/ax200.sock when unset).
//
// Events are handled wherever they are read: between a request and its reply as well as in
// WaitForEvents. The service closing, or a line that makes no sense where a reply is awaited,
// counts as Disconnected and drops the connection. A reply that does not come within
// kReplyTimeout drops it too (quietly): a late answer would otherwise be taken for the next.
//
// A status answer names no door, so it can only be matched to its request by order: one
// request is outstanding at a time, and an answer with none outstanding is dropped. Whatever
// the service sent before a request is read and dropped first; when the previous request is
// still unanswered then (its reader gave up), its answer may yet come and would be taken for
// the new one's, so the bridge attaches afresh on a new connection before asking.
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <utility>

#include "access/access_bridge.h"
#include "access/ax200_lines.h"
#include "core/call_guard.h"
#include "engine/waits.h"

namespace vmio {
namespace {

constexpr char kDefaultService[] = "unix:/run/ax200/ax200.sock";
constexpr int kMaxReadsPerReceive = 16;  // 64 KiB

using Deadline = WaitClock::time_point;

int MillisecondsLeft(Deadline deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - WaitClock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// Waits for events on fd until the deadline, retrying after signals. True when they came.
bool PollFor(int fd, short events, Deadline deadline) {
  for (;;) {
    pollfd pfd{fd, events, 0};
    const int left = MillisecondsLeft(deadline);
    const int ready = ::poll(&pfd, 1, left);
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR || left == 0) return false;
  }
}

// A non-blocking stream socket connected to the address within the deadline, or -1.
int ConnectWithin(int family, const sockaddr* address, socklen_t length, Deadline deadline) {
  const int fd = ::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (::connect(fd, address, length) == 0) return fd;
  if (errno == EINPROGRESS && PollFor(fd, POLLOUT, deadline)) {
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0) return fd;
  }
  ::close(fd);
  return -1;
}

int ConnectUnix(const std::string& path, Deadline deadline) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return -1;
  std::memcpy(address.sun_path, path.data(), path.size());
  return ConnectWithin(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address, deadline);
}

int ConnectTcp(const std::string& host_port, Deadline deadline) {
  const size_t colon = host_port.rfind(':');
  if (colon == std::string::npos) return -1;
  std::string host = host_port.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  const std::string port = host_port.substr(colon + 1);
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return -1;
  int fd = -1;
  for (const addrinfo* a = found; a && fd < 0; a = a->ai_next) {
    fd = ConnectWithin(a->ai_family, a->ai_addr, a->ai_addrlen, deadline);
  }
  ::freeaddrinfo(found);
  return fd;
}

int ConnectToService(Deadline deadline) {
  const char* env = std::getenv("VMIO_AX200");
  const std::string where = env && *env ? env : kDefaultService;
  if (where.starts_with("unix:")) return ConnectUnix(where.substr(5), deadline);
  if (where.starts_with("tcp:")) return ConnectTcp(where.substr(4), deadline);
  return -1;
}

class ServiceBridge final : public AccessBridge {
 public:
  explicit ServiceBridge(AccessEvents& events) : events_(events) {}
  ~ServiceBridge() override { Close(); }

  bool Attach(const std::string& device) override {
    const CallGuard exchange(busy_);
    device_ = device;
    address_.reset();
    return Hello(WaitClock::now() + kReplyTimeout);
  }

  void SetAddress(const std::string& address) override {
    const CallGuard exchange(busy_);
    address_ = address;
    TellAddress(WaitClock::now() + kReplyTimeout);
  }

  AccessDoorList Doors(const std::string& a, const std::string& b) override {
    const CallGuard exchange(busy_);
    AccessDoorList list;
    const Deadline deadline = WaitClock::now() + kReplyTimeout;
    const std::optional<std::string> head = Ask(ServiceLine({"DOORS", a, b}), deadline);
    if (!head) return {};
    const auto fields = LineFields(*head);
    const std::optional<int32_t> count = fields.size() == 3 ? ParseDecimal(fields[2]) : std::nullopt;
    if (fields.size() != 3 || fields[0] != "DOORS" || (fields[1] != "1" && fields[1] != "0") || !count || *count < 0 ||
        *count > kMaxListed) {
      Gone();
      return {};
    }
    for (int32_t i = 0; i < *count; ++i) {
      const std::optional<std::string> line = AwaitLine(deadline);
      if (!line) return {};
      const auto door = LineFields(*line);
      const std::optional<int32_t> id = door.size() == 3 ? ParseDecimal(door[1]) : std::nullopt;
      if (door.size() != 3 || door[0] != "DOOR" || !id) {
        Gone();
        return {};
      }
      list.doors.push_back({*id, std::string(door[2])});
    }
    list.valid = fields[1] == "1";
    if (!list.valid) list.doors.clear();
    return list;
  }

  std::optional<std::vector<AccessSensor>> Sensors() override {
    const CallGuard exchange(busy_);
    std::vector<AccessSensor> sensors;
    const Deadline deadline = WaitClock::now() + kReplyTimeout;
    const std::optional<std::string> head = Ask(ServiceLine({"SENSORS"}), deadline);
    if (!head) return std::nullopt;
    const auto fields = LineFields(*head);
    const std::optional<int32_t> count = fields.size() == 2 ? ParseDecimal(fields[1]) : std::nullopt;
    if (fields.size() != 2 || fields[0] != "SENSORS" || !count || *count < 0 || *count > kMaxListed) {
      Gone();
      return std::nullopt;
    }
    for (int32_t i = 0; i < *count; ++i) {
      const std::optional<std::string> line = AwaitLine(deadline);
      if (!line) return std::nullopt;
      const auto sensor = LineFields(*line);
      if (sensor.size() != 4 || sensor[0] != "SENSOR") {
        Gone();
        return std::nullopt;
      }
      sensors.push_back({std::string(sensor[1]), std::string(sensor[2]), std::string(sensor[3])});
    }
    return sensors;
  }

  void RequestStatus(const std::string& id) override {
    const CallGuard exchange(busy_);
    DropEarlierInput();
    if (status_ == StatusRequest::kUnanswered && fd_ >= 0 && !Reattach()) return;
    // Asking a service that has gone is answered at once: it has gone.
    if (!Send(ServiceLine({"STATUS", id}))) {
      Gone();
      return;
    }
    status_ = StatusRequest::kAwaited;
  }

  std::string Status() const override { return status_text_; }

  void Command(DoorCommand command, const std::string& id) override {
    if (fd_ >= 0 && !Send(ServiceLine({"COMMAND", CommandName(command), id}))) Gone();
  }

  void WaitForEvents(Deadline deadline) override {
    // The host's timers run in this wait: one that reads a door (or attaches) is refused.
    const CallGuard exchange(busy_);
    if (PumpingWait(fd_ >= 0 ? fd_ : kNoWaitHandle, deadline)) Receive();
  }

  engine::Task<void> AwaitEvents(engine::Io& io, Deadline deadline) override {
    const CallGuard exchange(busy_);
    const int64_t until = engine::NowMs() + MillisecondsLeft(deadline);
    // A connection that has gone waits out the time, as the pumping wait does.
    if (fd_ < 0) {
      co_await engine::Sleep(io.loop(), until - engine::NowMs());
      co_return;
    }
    const bool readable = co_await engine::Ready(io.loop(), fd_, engine::kReadable, until);
    if (readable) Receive();
  }

 private:
  // Whether a status request is outstanding, and whether its answer is still wanted.
  enum class StatusRequest { kNone, kAwaited, kUnanswered };

  // Opens a new connection and hands over the device string: whether the software is present.
  bool Hello(Deadline deadline) {
    Close();
    status_ = StatusRequest::kNone;
    fd_ = ConnectToService(deadline);
    const std::optional<std::string> reply = Ask(ServiceLine({"HELLO", device_}), deadline);
    if (!reply) return false;
    const auto fields = LineFields(*reply);
    if (fields.size() == 2 && fields[0] == "PRESENT" && (fields[1] == "1" || fields[1] == "0")) return fields[1] == "1";
    Gone();
    return false;
  }

  bool TellAddress(Deadline deadline) {
    const std::optional<std::string> reply = Ask(ServiceLine({"ADDRESS", *address_}), deadline);
    if (reply && *reply == "OK") return true;
    if (reply) Gone();
    return false;
  }

  // The same attachment on a new connection, so that nothing sent on the old one can arrive;
  // false (the service counted as gone) when it cannot be made within kReplyTimeout.
  bool Reattach() {
    const Deadline deadline = WaitClock::now() + kReplyTimeout;
    const bool attached = Hello(deadline) && (!address_ || TellAddress(deadline));
    if (!attached) Gone();
    return attached;
  }

  // Reads and drops what the service sent before now: a status answer in it is a late one.
  void DropEarlierInput() {
    if (status_ == StatusRequest::kAwaited) status_ = StatusRequest::kUnanswered;
    Receive();
  }

  // Sends the request and awaits its first reply line; nothing when there is none in time.
  std::optional<std::string> Ask(const std::string& request, Deadline deadline) {
    if (fd_ < 0) return std::nullopt;
    Receive();  // a reply line sent before the request is not its reply: dropped
    replies_.clear();
    if (fd_ < 0) return std::nullopt;
    if (!Send(request)) {
      Gone();
      return std::nullopt;
    }
    return AwaitLine(deadline);
  }
  std::optional<std::string> Ask(const std::string& request) { return Ask(request, WaitClock::now() + kReplyTimeout); }

  // The next line that is not an event; events met on the way are delivered.
  std::optional<std::string> AwaitLine(Deadline deadline) {
    awaiting_ = true;
    while (replies_.empty() && fd_ >= 0) {
      // The deadline holds even while the service keeps sending other things (events).
      if (WaitClock::now() >= deadline || !PollFor(fd_, POLLIN, deadline)) {
        Close();  // not answering
        break;
      }
      Receive();
    }
    awaiting_ = false;
    if (replies_.empty()) return std::nullopt;
    std::string line = std::move(replies_.front());
    replies_.pop_front();
    return line;
  }

  bool Send(const std::string& line) {
    if (fd_ < 0) return false;
    const Deadline deadline = WaitClock::now() + kReplyTimeout;
    for (size_t sent = 0; sent < line.size();) {
      const ssize_t n = ::send(fd_, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
      if (n > 0) {
        sent += static_cast<size_t>(n);
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) && PollFor(fd_, POLLOUT, deadline)) {
        continue;
      } else {
        return false;
      }
    }
    return true;
  }

  // Takes what has arrived, delivers the events and keeps reply lines while one is awaited.
  // A service that never stops sending cannot hold the caller here: one call reads at most
  // kMaxReadsPerReceive chunks, and the caller's own deadline decides whether to come back.
  void Receive() {
    char chunk[4096];
    for (int reads = 0; reads < kMaxReadsPerReceive; ++reads) {
      if (fd_ < 0) return;
      const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
      if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) {
        Gone();
        return;
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) break;
      lines_.Append({chunk, static_cast<size_t>(n)});
      if (!TakeLines()) return;
      if (static_cast<size_t>(n) < sizeof chunk) break;
    }
  }

  // False when the service sent something that ended the connection.
  bool TakeLines() {
    while (const std::optional<std::string> line = lines_.Next()) {
      const auto fields = LineFields(*line);
      if (fields[0] != "EVENT") {
        if (awaiting_) replies_.push_back(*line);
        if (replies_.size() > static_cast<size_t>(kMaxListed) + 1) {  // more than any list a reply can announce
          Gone();
          return false;
        }
      } else if (fields.size() >= 2 && fields[1] == "doorStatus") {
        const StatusRequest answered = std::exchange(status_, StatusRequest::kNone);
        if (answered == StatusRequest::kAwaited) {
          status_text_ = fields.size() >= 3 ? std::string(fields[2]) : std::string();
          events_.DoorStatus();
        }
      } else if (fields.size() == 2 && fields[1] == "Disconnected") {
        status_ = StatusRequest::kNone;
        status_text_.clear();
        events_.Disconnected();
      }
      if (fd_ < 0) return false;
    }
    if (lines_.Overflowed()) {
      Gone();
      return false;
    }
    return true;
  }

  // The service went away, or stopped speaking sense.
  void Gone() {
    Close();
    status_ = StatusRequest::kNone;
    status_text_.clear();
    events_.Disconnected();
  }

  void Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    lines_.Clear();
    replies_.clear();
  }

  AccessEvents& events_;
  int fd_ = -1;
  LineBuffer lines_;
  std::deque<std::string> replies_;
  bool awaiting_ = false;
  bool busy_ = false;  // an operation is under way: another one from inside it raises 5
  StatusRequest status_ = StatusRequest::kNone;
  std::string status_text_;
  std::string device_;                  // as Attach handed it over, for attaching afresh
  std::optional<std::string> address_;  // as SetAddress told it, once told
};

}  // namespace

std::unique_ptr<AccessBridge> CreateAccessBridge(AccessEvents& events) {
  return std::make_unique<ServiceBridge>(events);
}

}  // namespace vmio
