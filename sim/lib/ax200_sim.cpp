#include "ax200_sim.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace vmio::sim {
namespace {

using Clock = std::chrono::steady_clock;

// The longest line a client may send before it is cut off: no request comes near it.
constexpr size_t kMaxRequest = 64 * 1024;

struct Client {
  int fd = -1;
  int serial = 0;  // fds are reused; a late answer finds its client by this
  std::string input;
  bool hang_up = false;  // closed once its answers are sent
};

struct LateAnswer {
  Clock::time_point due;
  int client = 0;
  std::string line;
};

std::vector<std::string> SplitTabs(const std::string& line) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1) {
    parts.push_back(line.substr(start, tab - start));
  }
  parts.push_back(line.substr(start));
  return parts;
}

void SendAll(int fd, const std::string& text) {
  for (size_t sent = 0; sent < text.size();) {
    const ssize_t n = ::send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return;
    sent += static_cast<size_t>(n);
  }
}

// The mode each door command leaves a door in; OPEN releases it once and changes nothing.
const char* ModeAfter(const std::string& command) {
  if (command == "UNLOCK") return "DoorUnlock";
  if (command == "NORMAL") return "Normal";
  if (command == "HIGHSECURITY") return "HighSecurity";
  if (command == "DEADLOCK") return "Deadlock";
  return nullptr;
}

}  // namespace

Ax200SimOptions DefaultAx200Site() {
  Ax200SimOptions o;
  o.doors = {{1, "Front door", "Normal"}, {2, "Server room", "HighSecurity"}};
  o.sensors = {{"1", "Server room temperature", "21.5"}, {"2", "Server room humidity", "40"}};
  return o;
}

struct Ax200Sim::State {
  mutable std::mutex mutex;
  Ax200SimOptions options;
  std::string address;
  std::string folder;  // the temporary folder to remove, when we made one
  std::string socket_path;
  int listener = -1;
  int wake[2] = {-1, -1};
  std::thread thread;
  std::atomic<bool> stop{false};

  std::vector<Client> clients;
  int next_serial = 1;
  int connections = 0;
  std::vector<LateAnswer> late;
  std::vector<std::string> requests;
  std::string last_device;
  StatusAnswer status_answer = StatusAnswer::kNow;
  int status_delay_ms = 0;
  bool present = true;
  bool doors_valid = true;
  bool silent = false;

  Ax200Door* FindDoor(int id) {
    for (Ax200Door& d : options.doors) {
      if (d.id == id) return &d;
    }
    return nullptr;
  }

  // The answer to one request line, or "" for none; may schedule a late answer.
  std::string Answer(Client& client, const std::string& line) {
    requests.push_back(line);
    if (silent) return {};
    const std::vector<std::string> f = SplitTabs(line);
    if (f[0] == "HELLO" && f.size() == 2) {
      last_device = f[1];
      return std::string("PRESENT\t") + (present ? "1" : "0") + "\n";
    }
    if (f[0] == "ADDRESS" && f.size() == 2) return "OK\n";
    if (f[0] == "DOORS" && f.size() == 3) {
      if (!doors_valid) return "DOORS\t0\t0\n";
      std::string reply = "DOORS\t1\t" + std::to_string(options.doors.size()) + "\n";
      for (const Ax200Door& d : options.doors) reply += "DOOR\t" + std::to_string(d.id) + "\t" + d.name + "\n";
      return reply;
    }
    if (f[0] == "SENSORS" && f.size() == 1) {
      std::string reply = "SENSORS\t" + std::to_string(options.sensors.size()) + "\n";
      for (const Ax200Sensor& s : options.sensors) reply += "SENSOR\t" + s.id + "\t" + s.name + "\t" + s.value + "\n";
      return reply;
    }
    if (f[0] == "STATUS" && f.size() == 2) {
      const Ax200Door* door = FindDoor(std::atoi(f[1].c_str()));
      const std::string event = "EVENT\tdoorStatus\t" + (door ? door->mode : std::string()) + "\n";
      if (status_answer == StatusAnswer::kNow) return event;
      if (status_answer == StatusAnswer::kDisconnect) return "EVENT\tDisconnected\n";
      client.hang_up = status_answer == StatusAnswer::kClose;
      if (status_answer == StatusAnswer::kLate) {
        late.push_back({Clock::now() + std::chrono::milliseconds(status_delay_ms), client.serial, event});
      }
      return {};
    }
    if (f[0] == "COMMAND" && f.size() == 3) {
      Ax200Door* door = FindDoor(std::atoi(f[2].c_str()));
      if (const char* mode = ModeAfter(f[1]); door && mode) door->mode = mode;
    }
    return {};
  }

  // Reads what a client sent and answers each whole line; false when it has gone.
  bool Serve(Client& client) {
    char buf[4096];
    const ssize_t n = ::recv(client.fd, buf, sizeof buf, 0);
    if (n <= 0) return false;
    client.input.append(buf, static_cast<size_t>(n));
    for (size_t lf; (lf = client.input.find('\n')) != std::string::npos;) {
      std::string line = client.input.substr(0, lf);
      client.input.erase(0, lf + 1);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      const std::string reply = Answer(client, line);
      if (!reply.empty()) SendAll(client.fd, reply);
      if (client.hang_up) return false;
    }
    return client.input.size() <= kMaxRequest;
  }

  void SendLate() {
    const Clock::time_point now = Clock::now();
    for (auto it = late.begin(); it != late.end();) {
      if (it->due > now) {
        ++it;
        continue;
      }
      for (const Client& c : clients) {
        if (c.serial == it->client) SendAll(c.fd, it->line);
      }
      it = late.erase(it);
    }
  }

  int PollTimeout() const {
    int ms = 100;
    for (const LateAnswer& a : late) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(a.due - Clock::now()).count();
      ms = std::min<int>(ms, static_cast<int>(std::max<decltype(left)>(left, 0)));
    }
    return ms;
  }

  void Run() {
    while (!stop) {
      std::vector<pollfd> fds{{listener, POLLIN, 0}, {wake[0], POLLIN, 0}};
      int timeout = 0;
      {
        const std::lock_guard lock(mutex);
        for (const Client& c : clients) fds.push_back({c.fd, POLLIN, 0});
        timeout = PollTimeout();
      }
      ::poll(fds.data(), fds.size(), timeout);
      const std::lock_guard lock(mutex);
      if (fds[1].revents) {
        char drain[64];
        while (::read(wake[0], drain, sizeof drain) > 0) {
        }
      }
      for (size_t i = 2; i < fds.size(); ++i) {
        if (!fds[i].revents) continue;
        const auto it =
            std::find_if(clients.begin(), clients.end(), [&](const Client& c) { return c.fd == fds[i].fd; });
        if (it != clients.end() && !Serve(*it)) {
          ::close(it->fd);
          clients.erase(it);
        }
      }
      if (fds[0].revents) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
          clients.push_back({fd, next_serial++, {}});
          ++connections;
        }
      }
      SendLate();
    }
  }

  void Wake() const {
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(wake[1], &byte, 1);
  }
};

Ax200Sim::Ax200Sim(Ax200SimOptions options) : state_(std::make_unique<State>()) {
  state_->options = std::move(options);
}

Ax200Sim::~Ax200Sim() { Stop(); }

void Ax200Sim::Start() {
  State& s = *state_;
  const std::string& listen = s.options.listen;
  if (listen.empty() || listen.starts_with("unix:")) {
    if (listen.empty()) {
      char folder[] = "/tmp/vmio-ax200-XXXXXX";
      if (!::mkdtemp(folder)) throw std::runtime_error("cannot make a temporary folder");
      s.folder = folder;
      s.socket_path = s.folder + "/ax200.sock";
    } else {
      s.socket_path = listen.substr(5);
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (s.socket_path.empty() || s.socket_path.size() >= sizeof address.sun_path) {
      throw std::runtime_error("unusable socket path '" + s.socket_path + "'");
    }
    std::memcpy(address.sun_path, s.socket_path.data(), s.socket_path.size());
    s.listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (s.listener < 0 || ::bind(s.listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      Stop();
      throw std::runtime_error("cannot listen on " + s.socket_path + ": " + std::strerror(errno));
    }
    s.address = "unix:" + s.socket_path;
  } else if (listen.starts_with("tcp:")) {
    const size_t colon = listen.rfind(':');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(std::atoi(listen.c_str() + colon + 1)));
    if (colon <= 4 || ::inet_pton(AF_INET, listen.substr(4, colon - 4).c_str(), &address.sin_addr) != 1) {
      throw std::runtime_error("--listen wants tcp:IPV4:PORT, not '" + listen + "'");
    }
    s.listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    ::setsockopt(s.listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    socklen_t length = sizeof address;
    if (s.listener < 0 || ::bind(s.listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(s.listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      Stop();
      throw std::runtime_error("cannot listen on " + listen + ": " + std::strerror(errno));
    }
    s.address = "tcp:" + listen.substr(4, colon - 4) + ":" + std::to_string(ntohs(address.sin_port));
  } else {
    throw std::runtime_error("--listen wants unix:PATH or tcp:HOST:PORT, not '" + listen + "'");
  }
  if (::listen(s.listener, 16) != 0 || ::pipe2(s.wake, O_CLOEXEC | O_NONBLOCK) != 0) {
    Stop();
    throw std::runtime_error(std::string("cannot listen: ") + std::strerror(errno));
  }
  s.thread = std::thread([&s] { s.Run(); });
}

void Ax200Sim::Stop() {
  State& s = *state_;
  s.stop = true;
  if (s.thread.joinable()) {
    s.Wake();
    s.thread.join();
  }
  for (const Client& c : s.clients) ::close(c.fd);
  s.clients.clear();
  for (int* fd : {&s.listener, &s.wake[0], &s.wake[1]}) {
    if (*fd >= 0) ::close(*fd);
    *fd = -1;
  }
  if (!s.socket_path.empty()) ::unlink(s.socket_path.c_str());
  s.socket_path.clear();
  if (!s.folder.empty()) ::rmdir(s.folder.c_str());
  s.folder.clear();
}

std::string Ax200Sim::Address() const { return state_->address; }

void Ax200Sim::SetDoorMode(int id, const std::string& mode) {
  const std::lock_guard lock(state_->mutex);
  Ax200Door* door = state_->FindDoor(id);
  if (!door) throw std::out_of_range("no door " + std::to_string(id));
  door->mode = mode;
}

std::string Ax200Sim::DoorMode(int id) const {
  const std::lock_guard lock(state_->mutex);
  const Ax200Door* door = state_->FindDoor(id);
  if (!door) throw std::out_of_range("no door " + std::to_string(id));
  return door->mode;
}

void Ax200Sim::SetSensorValue(const std::string& id, const std::string& value) {
  const std::lock_guard lock(state_->mutex);
  for (Ax200Sensor& s : state_->options.sensors) {
    if (s.id == id) {
      s.value = value;
      return;
    }
  }
  throw std::out_of_range("no sensor " + id);
}

std::vector<Ax200Door> Ax200Sim::Doors() const {
  const std::lock_guard lock(state_->mutex);
  return state_->options.doors;
}

std::vector<Ax200Sensor> Ax200Sim::Sensors() const {
  const std::lock_guard lock(state_->mutex);
  return state_->options.sensors;
}

void Ax200Sim::SetStatusAnswer(StatusAnswer answer, int delay_ms) {
  const std::lock_guard lock(state_->mutex);
  state_->status_answer = answer;
  state_->status_delay_ms = delay_ms;
}

void Ax200Sim::SetPresent(bool present) {
  const std::lock_guard lock(state_->mutex);
  state_->present = present;
}

void Ax200Sim::SetDoorListValid(bool valid) {
  const std::lock_guard lock(state_->mutex);
  state_->doors_valid = valid;
}

void Ax200Sim::SetSilent(bool silent) {
  const std::lock_guard lock(state_->mutex);
  state_->silent = silent;
}

void Ax200Sim::SendDisconnected() {
  const std::lock_guard lock(state_->mutex);
  for (const Client& c : state_->clients) SendAll(c.fd, "EVENT\tDisconnected\n");
}

void Ax200Sim::CloseConnections() {
  const std::lock_guard lock(state_->mutex);
  // The serving thread sees each end and closes the descriptor itself.
  for (const Client& c : state_->clients) ::shutdown(c.fd, SHUT_RDWR);
  state_->Wake();
}

std::vector<std::string> Ax200Sim::Requests() const {
  const std::lock_guard lock(state_->mutex);
  return state_->requests;
}

void Ax200Sim::ClearRequests() {
  const std::lock_guard lock(state_->mutex);
  state_->requests.clear();
}

std::string Ax200Sim::LastDevice() const {
  const std::lock_guard lock(state_->mutex);
  return state_->last_device;
}

int Ax200Sim::ConnectionCount() const {
  const std::lock_guard lock(state_->mutex);
  return state_->connections;
}

}  // namespace vmio::sim
