#include "logit_sim.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

namespace vmio::sim {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr size_t kMaxCommandsKept = 10000;
constexpr size_t kMaxPending = 4096;  // answers a host never reads are dropped beyond this
constexpr uint8_t kFiller = 0xEE;
constexpr uint8_t kOutputSensor = 136;
constexpr char kWakeAnswer[] = "OK\r";

[[noreturn]] void Fail(const std::string& what) { throw std::runtime_error("LogIT simulator: " + what); }

int Listen(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) Fail("path too long for a socket: " + path);
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  unlink(path.c_str());
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) Fail("socket: " + std::string(std::strerror(errno)));
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(fd, 8) != 0) {
    const std::string why = std::strerror(errno);
    close(fd);
    Fail("cannot serve " + path + ": " + why);
  }
  return fd;
}

struct Node {
  int number = 0;
  std::string path;
  int listener = -1;
  std::vector<int> clients;

  void CloseClients() {
    for (const int fd : clients) close(fd);
    clients.clear();
  }
  void Unplug() {
    CloseClients();
    if (listener >= 0) close(listener);
    listener = -1;
    unlink(path.c_str());
  }
};

struct Logger {
  LogITLoggerOptions options;
  Node node;
  std::deque<uint8_t> pending;  // answers not yet streamed
  std::array<uint8_t, 7> window{};
  uint8_t counter = 0;
  int jump = 0;
  bool silent = false;
  bool streaming = true;
  bool drop = false;
  bool unplug = false;
  uint8_t outputs = 0;
  Clock::time_point last_command{};
  std::deque<LogITCommand> commands;

  uint16_t ReadingOf(int p) const {
    const LogITSocket& s = options.sockets[static_cast<size_t>(p)];
    if (s.type == kOutputSensor) return (outputs >> p) & 1;
    return s.reading;
  }

  void Answer(std::initializer_list<uint8_t> bytes) { pending.insert(pending.end(), bytes); }

  void Handle(const std::vector<uint8_t>& data, Clock::time_point now, milliseconds sleep_after) {
    commands.push_back({data, now});
    if (commands.size() > kMaxCommandsKept) commands.pop_front();
    if (data.empty() || pending.size() >= kMaxPending) return;
    const uint8_t command = data[0];
    if (command != 13 && now - last_command >= sleep_after) return;  // asleep
    last_command = now;
    const auto arg = [&](size_t i) { return i < data.size() ? data[i] : uint8_t{0}; };
    const int socket = arg(1);
    const bool known_socket = socket < static_cast<int>(options.sockets.size());
    if (command == 20) outputs = arg(1);
    if (silent) return;
    switch (command) {
      case 13:
        pending.insert(pending.end(), kWakeAnswer, kWakeAnswer + 3);
        break;
      case 1:
        Answer({options.model});
        break;
      case 2:
        for (size_t i = 0; i < 4; ++i)
          pending.push_back(i < options.version.size() ? static_cast<uint8_t>(options.version[i]) : 0);
        break;
      case 4:
        if (known_socket) {
          const LogITSocket& s = options.sockets[static_cast<size_t>(socket)];
          Answer({s.type, s.channel});
        } else {
          Answer({0, 0});
        }
        break;
      case 16: {
        const uint16_t raw = known_socket ? ReadingOf(socket) : 0;
        Answer({static_cast<uint8_t>(raw >> 8), static_cast<uint8_t>(raw & 0xFF)});
        break;
      }
      default:
        break;
    }
  }

  // The next input report as hidraw delivers it: 7 data bytes, then the counter.
  std::array<uint8_t, 8> NextReport() {
    const auto push = [&](uint8_t b) {
      std::rotate(window.begin(), window.begin() + 1, window.end());
      window.back() = b;
      ++counter;
    };
    for (int n = 0; n < 7 && !pending.empty(); ++n) {
      push(pending.front());
      pending.pop_front();
    }
    for (; jump > 0; --jump) push(kFiller);
    std::array<uint8_t, 8> report{};
    std::copy(window.begin(), window.end(), report.begin());
    report[7] = counter;
    return report;
  }
};

}  // namespace

struct LogITSim::State {
  LogITSimOptions options;
  std::string root;
  bool own_root = false;
  std::vector<fs::path> created;  // tree entries to remove at the end
  mutable std::mutex mu;
  std::vector<Logger> loggers;
  std::vector<Node> foreign;
  int wake[2] = {-1, -1};
  std::atomic<bool> stop{false};
  std::thread thread;

  Logger& At(size_t k) {
    if (k >= loggers.size()) throw std::out_of_range("no logger " + std::to_string(k));
    return loggers[k];
  }

  void MakeEntry(int number, const std::string& uevent) {
    const fs::path entry = fs::path(root) / "sys/class/hidraw" / ("hidraw" + std::to_string(number));
    fs::create_directories(entry / "device");
    std::ofstream(entry / "device/uevent") << uevent;
    created.push_back(entry);
  }

  static std::string Uevent(uint16_t vendor, uint16_t product, bool readable) {
    char id[64];
    std::snprintf(id, sizeof id, "HID_ID=0003:%08X:%08X\n", vendor, product);
    return std::string("DRIVER=hid-generic\n") + (readable ? id : "") + "HID_NAME=Simulated HID device\n";
  }

  void Layout() {
    if (root.empty()) {
      char pattern[] = "/tmp/vmio-logit-XXXXXX";
      if (!mkdtemp(pattern)) Fail("cannot make a temporary directory");
      root = pattern;
      own_root = true;
    }
    fs::create_directories(fs::path(root) / "dev");
    fs::create_directories(fs::path(root) / "sys/class/hidraw");
    std::set<int> used;
    for (const auto& l : options.loggers) used.insert(l.node);
    for (const auto& f : options.foreign) used.insert(f.node);
    int next = 0;
    const auto number = [&](int wanted) {
      if (wanted >= 0) return wanted;
      while (used.contains(next)) ++next;
      used.insert(next);
      return next;
    };
    const auto node = [&](int n) {
      Node result;
      result.number = n;
      result.path = (fs::path(root) / "dev" / ("hidraw" + std::to_string(n))).string();
      result.listener = Listen(result.path);
      created.push_back(result.path);
      return result;
    };
    const auto asleep_since = Clock::now() - milliseconds(options.sleep_after_ms);
    for (const auto& o : options.loggers) {
      Logger logger;
      logger.options = o;
      logger.last_command = asleep_since;
      logger.node = node(number(o.node));
      MakeEntry(logger.node.number, Uevent(0x0C6F, o.product_id, true));
      loggers.push_back(std::move(logger));
    }
    for (const auto& f : options.foreign) {
      foreign.push_back(node(number(f.node)));
      MakeEntry(foreign.back().number, Uevent(f.vendor_id, f.product_id, f.readable_id));
    }
  }

  void Serve() {
    const milliseconds interval(std::max(options.report_interval_ms, 1));
    const milliseconds sleep_after(options.sleep_after_ms);
    auto due = Clock::now() + interval;
    while (!stop) {
      std::vector<pollfd> fds{{wake[0], POLLIN, 0}};
      std::vector<std::pair<Node*, Logger*>> owners{{nullptr, nullptr}};
      {
        std::lock_guard lock(mu);
        const auto add = [&](Node& n, Logger* l) {
          if (n.listener >= 0) {
            fds.push_back({n.listener, POLLIN, 0});
            owners.emplace_back(&n, l);
          }
          for (const int fd : n.clients) {
            fds.push_back({fd, POLLIN, 0});
            owners.emplace_back(&n, l);
          }
        };
        for (Logger& l : loggers) add(l.node, &l);
        for (Node& n : foreign) add(n, nullptr);
      }
      const auto wait = std::chrono::ceil<milliseconds>(due - Clock::now()).count();
      poll(fds.data(), fds.size(), static_cast<int>(std::max<int64_t>(wait, 0)));
      std::lock_guard lock(mu);
      for (size_t i = 1; i < fds.size(); ++i) {
        if (!fds[i].revents) continue;
        Node& n = *owners[i].first;
        if (fds[i].fd == n.listener) {
          const int fd = accept4(n.listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
          if (fd >= 0) n.clients.push_back(fd);
          continue;
        }
        if (std::find(n.clients.begin(), n.clients.end(), fds[i].fd) == n.clients.end()) continue;
        uint8_t message[64];
        const ssize_t got = recv(fds[i].fd, message, sizeof message, 0);
        if (got <= 0) {
          if (got < 0 && errno == EAGAIN) continue;
          close(fds[i].fd);
          std::erase(n.clients, fds[i].fd);
          continue;
        }
        if (Logger* l = owners[i].second; l && got >= 2) {
          const size_t count = std::min<size_t>(message[1], static_cast<size_t>(got) - 2);
          l->Handle(std::vector<uint8_t>(message + 2, message + 2 + count), Clock::now(), sleep_after);
        }
      }
      for (Logger& l : loggers) {
        if (l.drop) l.node.CloseClients();
        if (l.unplug) l.node.Unplug();
        l.drop = l.unplug = false;
      }
      if (Clock::now() < due) continue;
      due += interval;
      if (due < Clock::now()) due = Clock::now() + interval;
      for (Logger& l : loggers) {
        if (!l.streaming) continue;
        const auto report = l.NextReport();
        // A link that does not read loses reports, as a full input queue does.
        for (const int fd : l.node.clients) send(fd, report.data(), report.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      }
    }
  }

  // Lets the serving thread act on a flag now; returns once it has.
  void Nudge(const bool& flag) {
    const char byte = 1;
    if (write(wake[1], &byte, 1) < 0) return;
    const auto deadline = Clock::now() + std::chrono::seconds(1);
    for (;;) {
      {
        std::lock_guard lock(mu);
        if (!flag) return;
      }
      if (Clock::now() > deadline) return;
      std::this_thread::sleep_for(milliseconds(1));
    }
  }
};

LogITSim::LogITSim(LogITSimOptions options) : state_(std::make_unique<State>()) {
  state_->options = std::move(options);
  state_->root = state_->options.root;
  if (pipe2(state_->wake, O_CLOEXEC | O_NONBLOCK) != 0) Fail("pipe");
  state_->Layout();
  state_->thread = std::thread([s = state_.get()] { s->Serve(); });
}

LogITSim::~LogITSim() {
  state_->stop = true;
  const char byte = 0;
  if (write(state_->wake[1], &byte, 1) < 0) {
    // The thread still ends at its next report tick.
  }
  state_->thread.join();
  for (Logger& l : state_->loggers) l.node.Unplug();
  for (Node& n : state_->foreign) n.Unplug();
  close(state_->wake[0]);
  close(state_->wake[1]);
  std::error_code ec;
  if (state_->own_root) {
    fs::remove_all(state_->root, ec);
  } else {
    for (const fs::path& p : state_->created) fs::remove_all(p, ec);
  }
}

const std::string& LogITSim::Root() const { return state_->root; }
std::string LogITSim::DevicePath(size_t k) const {
  std::lock_guard lock(state_->mu);
  return state_->At(k).node.path;
}
size_t LogITSim::Loggers() const { return state_->loggers.size(); }

void LogITSim::SetReading(size_t k, int socket, uint16_t raw) {
  std::lock_guard lock(state_->mu);
  state_->At(k).options.sockets.at(static_cast<size_t>(socket)).reading = raw;
}
void LogITSim::SetSensor(size_t k, int socket, uint8_t type, uint8_t channel) {
  std::lock_guard lock(state_->mu);
  LogITSocket& s = state_->At(k).options.sockets.at(static_cast<size_t>(socket));
  s.type = type;
  s.channel = channel;
}
void LogITSim::SetModel(size_t k, uint8_t model) {
  std::lock_guard lock(state_->mu);
  state_->At(k).options.model = model;
}
void LogITSim::SetVersion(size_t k, const std::string& version) {
  std::lock_guard lock(state_->mu);
  state_->At(k).options.version = version;
}
void LogITSim::SetSilent(size_t k, bool silent) {
  std::lock_guard lock(state_->mu);
  state_->At(k).silent = silent;
}
void LogITSim::SetStreaming(size_t k, bool streaming) {
  std::lock_guard lock(state_->mu);
  state_->At(k).streaming = streaming;
}
void LogITSim::DropConnections(size_t k) {
  bool* flag;
  {
    std::lock_guard lock(state_->mu);
    flag = &state_->At(k).drop;
    *flag = true;
  }
  state_->Nudge(*flag);
}
void LogITSim::Unplug(size_t k) {
  bool* flag;
  {
    std::lock_guard lock(state_->mu);
    flag = &state_->At(k).unplug;
    *flag = true;
  }
  state_->Nudge(*flag);
}
void LogITSim::JumpCounter(size_t k, int n) {
  std::lock_guard lock(state_->mu);
  state_->At(k).jump += std::max(n, 0);
}
uint8_t LogITSim::Outputs(size_t k) const {
  std::lock_guard lock(state_->mu);
  return state_->At(k).outputs;
}
bool LogITSim::Asleep(size_t k) const {
  std::lock_guard lock(state_->mu);
  return Clock::now() - state_->At(k).last_command >= milliseconds(state_->options.sleep_after_ms);
}
std::vector<LogITCommand> LogITSim::Commands(size_t k) const {
  std::lock_guard lock(state_->mu);
  const auto& commands = state_->At(k).commands;
  return {commands.begin(), commands.end()};
}
void LogITSim::ClearCommands(size_t k) {
  std::lock_guard lock(state_->mu);
  state_->At(k).commands.clear();
}

}  // namespace vmio::sim
