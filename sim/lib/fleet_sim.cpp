#include "fleet_sim.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <modbus/modbus.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "axis_sim.h"
#include "bound_port.h"
#include "point_bank.h"

namespace vmio::sim {
namespace {

// The ADAM-6050's points: 12 inputs (coils 0-11) and 6 relays (coils 16-21).
constexpr int kModuleInputs = 12;
constexpr int kModuleRelays = 6;
constexpr int kRelayCoil = 16;
constexpr int kCoils = 32;
constexpr int kModelQueryPort = 1025;
constexpr std::string_view kModelQuery = "$01M\r";
constexpr std::string_view kModelAnswer = "!016050\r";
// Enough for any request these devices take; a client that sends more is dropped.
constexpr size_t kMaxRequestBytes = 64 * 1024;
constexpr size_t kMaxModbusFrame = MODBUS_TCP_MAX_ADU_LENGTH;

// What an epoll event belongs to: the kind in the high half, a device index or descriptor below.
enum class Source : uint64_t { Wake = 0, Listener = 1, Query = 2, Connection = 3 };
uint64_t Tag(Source source, uint32_t id) { return static_cast<uint64_t>(source) << 32 | id; }

int64_t NowMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error("fleet sim: " + what + ": " + std::strerror(errno));
}

uint32_t ParseBase(const std::string& base) {
  in_addr a{};
  if (inet_pton(AF_INET, base.c_str(), &a) != 1 || (ntohl(a.s_addr) >> 24) != 127)
    throw std::runtime_error("fleet sim: the base must be a loopback IPv4 address, not '" + base + "'");
  return ntohl(a.s_addr);
}

sockaddr_in Address(uint32_t host, int port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(host);
  a.sin_port = htons(static_cast<uint16_t>(port));
  return a;
}

std::string Dotted(uint32_t host) {
  const in_addr a{htonl(host)};
  char text[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &a, text, sizeof text);
  return text;
}

int Socket(int type) {
  const int fd = socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) Fail("socket");
  return fd;
}

// Raises the soft descriptor limit to the hard one: a fleet needs a few per device.
void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

// Spreads count marks evenly over n slots: whether slot i is one of them.
bool Spread(int i, int count, int n) { return count > 0 && (int64_t{i} * count) / n != (int64_t{i + 1} * count) / n; }

std::string_view Reason(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 404:
      return "Not Found";
    default:
      return "Internal Server Error";
  }
}

}  // namespace

struct FleetSim::State {
  struct Unit {
    FleetMake make;
    FleetHealth health;
    uint32_t host;
    int listen_fd = -1;
    int query_fd = -1;
    std::vector<int> fillers;       // the connects that fill an unaccepting listener's backlog
    std::unique_ptr<AxisSim> axis;  // a camera's answers
    PointBank module_points;        // a module's inputs and relays
  };
  struct Connection {
    uint32_t unit;
    uint64_t serial;  // tells a reused descriptor from the one a held reply was for
    std::string in;
    std::string out;
    bool close_after_reply = false;
  };
  struct HeldReply {
    int64_t due;
    int fd;
    uint64_t serial;          // 0 for a model answer
    sockaddr_in destination;  // the model answer's
    std::string bytes;
  };

  explicit State(FleetOptions o) : options(std::move(o)) {}
  ~State();

  void Bind();
  void BindUnit(uint32_t index, Unit& unit);
  void FillBacklog(Unit& unit);
  void Serve();
  void Accept(uint32_t index);
  void AnswerQuery(uint32_t index);
  void Read(int fd);
  void Flush(int fd);
  void Close(int fd);
  void Reply(int fd, std::string bytes, uint64_t serial, const sockaddr_in* destination);
  void Deliver(HeldReply& reply);
  bool TakeHttpRequest(Connection& c, std::string& reply);
  bool TakeModbusRequest(Connection& c, std::string& reply, bool& drop);
  void Watch(int fd, uint32_t events, uint64_t tag, int op = EPOLL_CTL_ADD);
  static PointBank& Points(Unit& unit);

  const FleetOptions options;
  std::vector<FleetDevice> devices;
  std::deque<Unit> units;                                // a deque: a unit holds a lock and never moves
  std::vector<std::unique_ptr<Connection>> connections;  // by descriptor
  std::deque<HeldReply> held;                            // in due order: the delay is fixed
  uint64_t next_serial = 1;
  int epoll_fd = -1;
  int wake_fd = -1;
  // libmodbus writes its reply into one end; the fleet takes it from the other and sends it
  // when due, so replies can be held back like the cameras'.
  int modbus_pair[2] = {-1, -1};
  modbus_t* modbus = nullptr;
  modbus_mapping_t* coils = nullptr;
  std::thread thread;
  std::atomic<bool> stopping{false};
  std::atomic<int64_t> requests{0};
  std::atomic<int64_t> accepted{0};
};

FleetSim::State::~State() {
  for (Unit& unit : units) {
    if (unit.listen_fd >= 0) close(unit.listen_fd);
    if (unit.query_fd >= 0) close(unit.query_fd);
    for (int fd : unit.fillers) close(fd);
  }
  for (size_t fd = 0; fd < connections.size(); ++fd) {
    if (connections[fd]) close(static_cast<int>(fd));
  }
  for (int fd : {epoll_fd, wake_fd, modbus_pair[0], modbus_pair[1]}) {
    if (fd >= 0) close(fd);
  }
  if (coils) modbus_mapping_free(coils);
  if (modbus) modbus_free(modbus);
}

void FleetSim::State::Watch(int fd, uint32_t events, uint64_t tag, int op) {
  epoll_event e{};
  e.events = events;
  e.data.u64 = tag;
  if (epoll_ctl(epoll_fd, op, fd, &e) != 0) Fail("epoll_ctl");
}

void FleetSim::State::Bind() {
  if (options.devices < 0 || options.adam > options.devices || options.silent + options.unaccepting > options.devices ||
      options.silent < 0 || options.unaccepting < 0)
    throw std::runtime_error("fleet sim: more ADAM or dead devices than devices");
  const uint32_t base = ParseBase(options.base);
  if (base + static_cast<uint32_t>(options.devices) - 1 > 0x7FFFFFFEu)
    throw std::runtime_error("fleet sim: the addresses run past 127.255.255.254");
  RaiseDescriptorLimit();
  epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (epoll_fd < 0 || wake_fd < 0) Fail("epoll");
  Watch(wake_fd, EPOLLIN, Tag(Source::Wake, 0));
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, modbus_pair) != 0) Fail("socketpair");
  modbus = modbus_new_tcp("127.0.0.1", 502);
  coils = modbus_mapping_new(kCoils, 0, 0, 0);
  if (!modbus || !coils) throw std::runtime_error("fleet sim: out of memory");
  modbus_set_socket(modbus, modbus_pair[0]);

  // Dead devices are spread over the fleet, and the two kinds of dead over those.
  const int dead = options.silent + options.unaccepting;
  int dead_seen = 0;
  for (int i = 0; i < options.devices; ++i) {
    Unit& unit = units.emplace_back();
    unit.make = Spread(i, options.adam, options.devices) ? FleetMake::Adam : FleetMake::Axis;
    unit.health = FleetHealth::Live;
    if (Spread(options.devices - 1 - i, dead, options.devices))  // out of step with the modules
      unit.health = Spread(dead_seen++, options.silent, dead) ? FleetHealth::Silent : FleetHealth::Unaccepting;
    unit.host = base + static_cast<uint32_t>(i);
    BindUnit(static_cast<uint32_t>(i), unit);
  }
}

void FleetSim::State::BindUnit(uint32_t index, Unit& unit) {
  unit.listen_fd = Socket(SOCK_STREAM);
  const int one = 1;
  setsockopt(unit.listen_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  const sockaddr_in address = Address(unit.host, 0);
  if (bind(unit.listen_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    Fail("bind " + Dotted(unit.host));
  const bool unaccepting = unit.health == FleetHealth::Unaccepting;
  if (listen(unit.listen_fd, unaccepting ? 0 : SOMAXCONN) != 0) Fail("listen");
  const int port = BoundPort(unit.listen_fd);
  FleetDevice device{unit.make, unit.health, "", Dotted(unit.host) + ":" + std::to_string(port)};
  if (unit.make == FleetMake::Axis) {
    AxisSimOptions axis;
    axis.inputs = options.camera_inputs;
    axis.outputs = options.camera_outputs;
    unit.axis = std::make_unique<AxisSim>(axis);
    device.progid = "VMIO.Axis";
  } else {
    unit.module_points.Add(PointKind::Input, kModuleInputs);
    unit.module_points.Add(PointKind::Output, kModuleRelays);
    unit.query_fd = Socket(SOCK_DGRAM);
    const sockaddr_in query = Address(unit.host, kModelQueryPort);
    if (bind(unit.query_fd, reinterpret_cast<const sockaddr*>(&query), sizeof query) != 0)
      Fail("bind UDP " + Dotted(unit.host) + ":1025");
    Watch(unit.query_fd, EPOLLIN, Tag(Source::Query, index));
    device.progid = "VMIO.ADAM";
  }
  if (unaccepting) {
    FillBacklog(unit);
  } else {
    Watch(unit.listen_fd, EPOLLIN, Tag(Source::Listener, index));
  }
  devices.push_back(std::move(device));
}

void FleetSim::State::FillBacklog(Unit& unit) {
  // A backlog of 0 still queues one connection; once it is queued and never accepted, the
  // kernel drops every further SYN, so later connects hang until the client gives up.
  const sockaddr_in target = Address(unit.host, BoundPort(unit.listen_fd));
  for (int i = 0; i < 2; ++i) {
    const int fd = Socket(SOCK_STREAM);
    connect(fd, reinterpret_cast<const sockaddr*>(&target), sizeof target);  // completes in the kernel
    unit.fillers.push_back(fd);
  }
}

void FleetSim::State::Serve() {
  std::vector<epoll_event> events(256);
  while (!stopping) {
    int timeout = -1;
    if (!held.empty()) timeout = static_cast<int>(std::clamp<int64_t>(held.front().due - NowMs(), 0, 1000));
    const int n = epoll_wait(epoll_fd, events.data(), static_cast<int>(events.size()), timeout);
    for (int k = 0; k < n; ++k) {
      const uint64_t tag = events[static_cast<size_t>(k)].data.u64;
      const auto id = static_cast<uint32_t>(tag);
      switch (static_cast<Source>(tag >> 32)) {
        case Source::Wake:
          break;
        case Source::Listener:
          Accept(id);
          break;
        case Source::Query:
          AnswerQuery(id);
          break;
        case Source::Connection:
          if (events[static_cast<size_t>(k)].events & EPOLLOUT) Flush(static_cast<int>(id));
          if (events[static_cast<size_t>(k)].events & (EPOLLIN | EPOLLHUP | EPOLLERR)) Read(static_cast<int>(id));
          break;
      }
    }
    const int64_t now = NowMs();
    while (!held.empty() && held.front().due <= now) {
      Deliver(held.front());
      held.pop_front();
    }
  }
}

void FleetSim::State::Accept(uint32_t index) {
  for (;;) {
    const int fd = accept4(units[index].listen_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;  // drained, or out of descriptors: the client waits in the backlog
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (connections.size() <= static_cast<size_t>(fd)) connections.resize(static_cast<size_t>(fd) + 1);
    connections[static_cast<size_t>(fd)] = std::make_unique<Connection>(Connection{index, next_serial++, {}, {}});
    Watch(fd, EPOLLIN, Tag(Source::Connection, static_cast<uint32_t>(fd)));
    ++accepted;
  }
}

void FleetSim::State::AnswerQuery(uint32_t index) {
  const Unit& unit = units[index];
  char buffer[64];
  for (;;) {
    sockaddr_in from{};
    socklen_t from_length = sizeof from;
    const ssize_t n =
        recvfrom(unit.query_fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &from_length);
    if (n < 0) return;
    ++requests;
    if (unit.health != FleetHealth::Live || std::string_view(buffer, static_cast<size_t>(n)) != kModelQuery) continue;
    Reply(unit.query_fd, std::string(kModelAnswer), 0, &from);
  }
}

void FleetSim::State::Read(int fd) {
  Connection& c = *connections[static_cast<size_t>(fd)];
  char buffer[4096];
  for (;;) {
    const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
    if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) return Close(fd);
    if (n < 0) break;
    const Unit& unit = units[c.unit];
    if (unit.health == FleetHealth::Silent) continue;  // heard, never answered
    c.in.append(buffer, static_cast<size_t>(n));
    if (c.in.size() > kMaxRequestBytes) return Close(fd);
  }
  for (;;) {
    std::string reply;
    bool drop = false;
    const bool taken =
        units[c.unit].make == FleetMake::Axis ? TakeHttpRequest(c, reply) : TakeModbusRequest(c, reply, drop);
    if (drop) return Close(fd);
    if (!taken) return;
    ++requests;
    Reply(fd, std::move(reply), c.serial, nullptr);
  }
}

bool FleetSim::State::TakeHttpRequest(Connection& c, std::string& reply) {
  const size_t end = c.in.find("\r\n\r\n");
  if (end == std::string::npos) return false;
  const std::string_view head(c.in.data(), end);
  const std::string_view line = head.substr(0, head.find("\r\n"));
  HttpRequestInfo request;
  const size_t sp1 = line.find(' ');
  const size_t sp2 = line.find(' ', sp1 == std::string_view::npos ? sp1 : sp1 + 1);
  HttpReply answer{400, "bad request\n"};
  if (sp1 != std::string_view::npos && sp2 != std::string_view::npos) {
    request.method = std::string(line.substr(0, sp1));
    const std::string_view target = line.substr(sp1 + 1, sp2 - sp1 - 1);
    const size_t q = target.find('?');
    request.path = std::string(target.substr(0, q));
    if (q != std::string_view::npos) request.query = std::string(target.substr(q + 1));
    answer = units[c.unit].axis->Answer(request);
  }
  // Bodies are not expected (every CGI is a GET); a request announcing one is answered, then
  // the connection closes rather than guess where the next request starts.
  std::string lower(head);
  std::ranges::transform(lower, lower.begin(), [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
  c.close_after_reply = lower.find("\r\ncontent-length:") != std::string::npos ||
                        lower.find("\r\nconnection: close") != std::string::npos;
  c.in.erase(0, end + 4);
  reply = "HTTP/1.1 " + std::to_string(answer.status) + " " + std::string(Reason(answer.status)) +
          "\r\nContent-Type: " + answer.content_type + "\r\nContent-Length: " + std::to_string(answer.body.size()) +
          "\r\n\r\n" + answer.body;
  return true;
}

bool FleetSim::State::TakeModbusRequest(Connection& c, std::string& reply, bool& drop) {
  if (c.in.size() < 8) return false;
  const auto* frame = reinterpret_cast<const uint8_t*>(c.in.data());
  const size_t length = 6 + (size_t{frame[4]} << 8 | frame[5]);
  if (length < 8 || length > kMaxModbusFrame) {
    drop = true;
    return false;
  }
  if (c.in.size() < length) return false;
  Unit& unit = units[c.unit];
  const int function = frame[7];
  const int address = frame[8] << 8 | frame[9];
  const int value = frame[10] << 8 | frame[11];
  {
    for (int i = 0; i < kModuleInputs; ++i) coils->tab_bits[i] = unit.module_points.Input(i + 1) != 0;
    for (int j = 0; j < kModuleRelays; ++j) coils->tab_bits[kRelayCoil + j] = unit.module_points.Output(j + 1) != 0;
    if (function == MODBUS_FC_WRITE_SINGLE_COIL && (address < kRelayCoil || address >= kRelayCoil + kModuleRelays)) {
      modbus_reply_exception(modbus, frame, MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS);  // inputs are read-only
    } else {
      if (function == MODBUS_FC_WRITE_SINGLE_COIL && (value == 0xFF00 || value == 0))
        unit.module_points.SetOutput(address - kRelayCoil + 1, value != 0);
      modbus_reply(modbus, frame, static_cast<int>(length), coils);
    }
  }
  c.in.erase(0, length);
  // libmodbus has written its reply into the pair; it is short, so one read takes it whole.
  char buffer[kMaxModbusFrame];
  const ssize_t n = recv(modbus_pair[1], buffer, sizeof buffer, MSG_DONTWAIT);
  reply.assign(buffer, static_cast<size_t>(std::max<ssize_t>(n, 0)));
  return true;
}

void FleetSim::State::Reply(int fd, std::string bytes, uint64_t serial, const sockaddr_in* destination) {
  HeldReply reply{NowMs() + options.reply_delay_ms, fd, serial, destination ? *destination : sockaddr_in{},
                  std::move(bytes)};
  if (options.reply_delay_ms > 0) {
    held.push_back(std::move(reply));
  } else {
    Deliver(reply);
  }
}

void FleetSim::State::Deliver(HeldReply& reply) {
  if (reply.serial == 0) {
    sendto(reply.fd, reply.bytes.data(), reply.bytes.size(), 0, reinterpret_cast<const sockaddr*>(&reply.destination),
           sizeof reply.destination);
    return;
  }
  const auto index = static_cast<size_t>(reply.fd);
  if (index >= connections.size() || !connections[index] || connections[index]->serial != reply.serial) return;
  connections[index]->out += reply.bytes;
  Flush(reply.fd);
}

void FleetSim::State::Flush(int fd) {
  Connection& c = *connections[static_cast<size_t>(fd)];
  while (!c.out.empty()) {
    const ssize_t n = send(fd, c.out.data(), c.out.size(), MSG_NOSIGNAL);
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    if (n < 0) return Close(fd);
    c.out.erase(0, static_cast<size_t>(n));
  }
  if (c.out.empty() && c.close_after_reply) return Close(fd);
  Watch(fd, c.out.empty() ? EPOLLIN : EPOLLIN | EPOLLOUT, Tag(Source::Connection, static_cast<uint32_t>(fd)),
        EPOLL_CTL_MOD);
}

void FleetSim::State::Close(int fd) {
  epoll_ctl(epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
  close(fd);
  connections[static_cast<size_t>(fd)].reset();
}

FleetSim::FleetSim(FleetOptions options) : state_(std::make_unique<State>(std::move(options))) {}

FleetSim::~FleetSim() { Stop(); }

void FleetSim::Start() {
  if (state_->thread.joinable()) throw std::runtime_error("fleet sim already started");
  state_->Bind();
  state_->thread = std::thread([s = state_.get()] { s->Serve(); });
}

void FleetSim::Stop() {
  if (!state_->thread.joinable()) return;
  state_->stopping = true;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t n = write(state_->wake_fd, &one, sizeof one);
  state_->thread.join();
}

const std::vector<FleetDevice>& FleetSim::Devices() const { return state_->devices; }

// A device's points: the camera simulator's, or the module's own. Both banks are thread-safe.
PointBank& FleetSim::State::Points(Unit& unit) { return unit.axis ? unit.axis->Points() : unit.module_points; }

void FleetSim::SetInput(int device, int input, bool on) {
  State::Points(state_->units.at(static_cast<size_t>(device))).SetInput(input, on ? 1 : 0);
}

int FleetSim::Input(int device, int input) const {
  return State::Points(state_->units.at(static_cast<size_t>(device))).Input(input);
}

int FleetSim::Output(int device, int output) const {
  return State::Points(state_->units.at(static_cast<size_t>(device))).Output(output);
}

int64_t FleetSim::RequestCount() const { return state_->requests; }
int64_t FleetSim::ConnectionCount() const { return state_->accepted; }

std::string FleetDeviceList(const std::vector<FleetDevice>& devices) {
  std::string list;
  for (const FleetDevice& d : devices) list += d.progid + " " + d.device + "\n";
  return list;
}

}  // namespace vmio::sim
