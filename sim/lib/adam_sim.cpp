#include "adam_sim.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <modbus/modbus.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "bound_port.h"

namespace vmio::sim {
namespace {

// The modules' digital points, from their data sheets.
struct Module {
  std::string_view model;
  int inputs;
  int relays;
};
constexpr Module kModules[] = {
    {"6015", 0, 0},  {"6017", 0, 2}, {"6018", 0, 8}, {"6024", 2, 2}, {"6050", 12, 6},
    {"6051", 14, 2}, {"6052", 8, 8}, {"6060", 6, 6}, {"6066", 6, 6},
};

constexpr int kRelayCoil = 16;
constexpr int kCoils = 32;
constexpr size_t kLogLimit = 256;
constexpr std::string_view kModelQuery = "$01M\r";

sockaddr_in Address(const std::string& host, int port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  if (inet_pton(AF_INET, host.c_str(), &a.sin_addr) != 1) throw std::runtime_error("adam sim: bad address " + host);
  return a;
}

}  // namespace

struct AdamSim::State {
  AdamSimOptions options;
  PointBank points;
  int inputs = 0;
  int relays = 0;

  mutable std::mutex mutex;  // guards everything below it that the serving thread touches
  modbus_mapping_t* coils = nullptr;
  AdamUdpMode udp_mode;
  std::array<int, 256> exceptions{};
  std::array<int, 256> counts{};
  int queries = 0;
  int connections = 0;
  std::deque<std::vector<uint8_t>> log;

  modbus_t* ctx = nullptr;
  int listen_fd = -1;
  int udp_fd = -1;
  int wake[2] = {-1, -1};
  std::string bound_host;
  int modbus_port = 0;
  int udp_port = 0;
  struct Client {
    int fd = -1;
    std::vector<uint8_t> input;  // the start of a request not yet whole
  };
  std::vector<Client> clients;
  std::thread thread;

  void Bind(const std::string& host);
  void Serve();
  bool Receive(Client& client);
  void Answer(int fd, std::span<const uint8_t> request);
  void AnswerQuery();
  void Close();
};

AdamSim::AdamSim(AdamSimOptions options) : state_(std::make_unique<State>()) {
  State& s = *state_;
  s.options = std::move(options);
  s.udp_mode = s.options.udp_mode;
  const auto* m = std::ranges::find(kModules, std::string_view(s.options.model), &Module::model);
  if (m != std::end(kModules)) {
    s.inputs = m->inputs;
    s.relays = m->relays;
  }
  s.points.Add(PointKind::Input, s.inputs);
  s.points.Add(PointKind::Output, s.relays);
  s.coils = modbus_mapping_new(kCoils, 0, 0, 0);
  if (!s.coils) throw std::runtime_error("adam sim: out of memory");
}

AdamSim::~AdamSim() {
  Stop();
  modbus_mapping_free(state_->coils);
}

void AdamSim::Start() {
  State& s = *state_;
  if (s.thread.joinable()) return;
  if (!s.options.host.empty()) {
    s.Bind(s.options.host);
  } else {
    // 127.0.0.1, then 127.0.0.2 and on: every address of 127.0.0.0/8 is this machine.
    constexpr int kCandidates = 4096;
    for (int i = 0;; ++i) {
      const std::string host = "127.0." + std::to_string(i / 254) + "." + std::to_string(i % 254 + 1);
      try {
        s.Bind(host);
        break;
      } catch (const std::runtime_error&) {
        if (i + 1 == kCandidates) throw;
      }
    }
  }
  s.thread = std::thread([&s] { s.Serve(); });
}

// Binds both ports on host, or closes what it opened and raises std::runtime_error.
void AdamSim::State::Bind(const std::string& host) {
  try {
    ctx = modbus_new_tcp(host.c_str(), options.modbus_port);
    if (!ctx) throw std::runtime_error("adam sim: modbus_new_tcp failed");
    listen_fd = modbus_tcp_listen(ctx, 16);
    if (listen_fd < 0) {
      throw std::runtime_error("adam sim: cannot listen on " + host + ":" + std::to_string(options.modbus_port) + ": " +
                               modbus_strerror(errno));
    }
    modbus_port = BoundPort(listen_fd);

    udp_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in udp = Address(host, options.udp_port);
    if (udp_fd < 0 || bind(udp_fd, reinterpret_cast<const sockaddr*>(&udp), sizeof udp) != 0) {
      throw std::runtime_error("adam sim: cannot bind UDP " + host + ":" + std::to_string(options.udp_port) + ": " +
                               std::strerror(errno));
    }
    udp_port = BoundPort(udp_fd);
    if (pipe2(wake, O_CLOEXEC) != 0) throw std::runtime_error("adam sim: pipe failed");
    bound_host = host;
  } catch (...) {
    Close();
    throw;
  }
}

void AdamSim::Stop() {
  State& s = *state_;
  if (s.thread.joinable()) {
    const char stop = 'x';
    (void)!write(s.wake[1], &stop, 1);
    s.thread.join();
  }
  s.Close();
}

void AdamSim::State::Close() {
  for (const Client& c : clients) close(c.fd);
  clients.clear();
  for (int* fd : {&listen_fd, &udp_fd, &wake[0], &wake[1]}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
  if (ctx) {
    modbus_set_socket(ctx, -1);  // the sockets are ours to close, done above
    modbus_free(ctx);
    ctx = nullptr;
  }
}

void AdamSim::State::Serve() {
  std::vector<pollfd> fds;
  // Out of descriptors, new clients wait in the listen queue (poll skips a negative descriptor)
  // until one leaves, instead of the listener waking the loop again and again.
  bool accepting = true;
  for (;;) {
    fds.assign({{wake[0], POLLIN, 0}, {accepting ? listen_fd : -1, POLLIN, 0}, {udp_fd, POLLIN, 0}});
    for (const Client& c : clients) fds.push_back({c.fd, POLLIN, 0});
    if (poll(fds.data(), fds.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[0].revents) return;
    if (fds[1].revents & POLLIN) {
      const int fd = modbus_tcp_accept(ctx, &listen_fd);
      if (fd >= 0) {
        clients.push_back({fd, {}});
        std::lock_guard lock(mutex);
        ++connections;
      } else if (errno == EMFILE || errno == ENFILE) {
        accepting = false;
      }
    }
    if (fds[2].revents & POLLIN) AnswerQuery();
    // Accepting only appends: the clients polled keep their places until the loop is done.
    for (size_t i = 3; i < fds.size(); ++i) {
      Client& client = clients[i - 3];
      if (fds[i].revents && !Receive(client)) {
        close(client.fd);
        client.fd = -1;
      }
    }
    if (std::erase_if(clients, [](const Client& c) { return c.fd < 0; }) > 0) accepting = true;
  }
}

// Takes what a client sent and answers each whole request; false once the client is gone or
// sent what no request can be. Requests are cut here by the length in their header, not by
// modbus_receive: that waits with select, which aborts on a descriptor past FD_SETSIZE.
bool AdamSim::State::Receive(Client& client) {
  uint8_t chunk[1024];
  const ssize_t n = recv(client.fd, chunk, sizeof chunk, MSG_DONTWAIT);
  if (n == 0) return false;
  if (n < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
  client.input.insert(client.input.end(), chunk, chunk + n);
  constexpr size_t kHeader = 7;  // transaction, protocol, length, unit
  while (client.input.size() >= kHeader) {
    const size_t size = 6 + (size_t{client.input[4]} << 8 | client.input[5]);
    if (size < kHeader + 1 || size > MODBUS_TCP_MAX_ADU_LENGTH) return false;
    if (client.input.size() < size) break;
    Answer(client.fd, {client.input.data(), size});
    client.input.erase(client.input.begin(), client.input.begin() + static_cast<std::ptrdiff_t>(size));
  }
  return true;
}

// One whole request, answered through libmodbus's reply side.
void AdamSim::State::Answer(int fd, std::span<const uint8_t> request) {
  modbus_set_socket(ctx, fd);
  // Zero-padded to the largest request, since modbus_reply reads the fields its function has.
  uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH] = {};
  std::ranges::copy(request, query);
  const int length = static_cast<int>(request.size());
  const int header = modbus_get_header_length(ctx);
  const int function = query[header];
  const int address = query[header + 1] << 8 | query[header + 2];

  std::lock_guard lock(mutex);
  // The points live in the bank; the coil map mirrors them for this one request.
  for (int i = 0; i < inputs; ++i) coils->tab_bits[i] = points.Input(i + 1) != 0;
  for (int j = 0; j < relays; ++j) coils->tab_bits[kRelayCoil + j] = points.Output(j + 1) != 0;
  log.emplace_back(query, query + length);
  if (log.size() > kLogLimit) log.pop_front();
  ++counts[static_cast<size_t>(function)];
  if (const int code = exceptions[static_cast<size_t>(function)]) {
    modbus_reply_exception(ctx, query, static_cast<unsigned>(code));
  } else if (function == MODBUS_FC_WRITE_SINGLE_COIL && (address < kRelayCoil || address >= kRelayCoil + relays)) {
    modbus_reply_exception(ctx, query, MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS);  // inputs are read-only
  } else {
    // The point changes before the reply goes: a client that has its answer reads the new state.
    const int value = query[header + 3] << 8 | query[header + 4];
    if (function == MODBUS_FC_WRITE_SINGLE_COIL && (value == 0xFF00 || value == 0)) {
      points.SetOutput(address - kRelayCoil + 1, value != 0);
    }
    modbus_reply(ctx, query, length, coils);
  }
}

void AdamSim::State::AnswerQuery() {
  char buffer[64];
  sockaddr_in from{};
  socklen_t from_length = sizeof from;
  const ssize_t n = recvfrom(udp_fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &from_length);
  if (n <= 0 || std::string_view(buffer, static_cast<size_t>(n)) != kModelQuery) return;
  std::string reply = "!01" + options.model;
  {
    std::lock_guard lock(mutex);
    ++queries;
    if (udp_mode == AdamUdpMode::Silent) return;
    if (udp_mode == AdamUdpMode::Answer) reply += '\r';
  }
  sendto(udp_fd, reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr*>(&from), from_length);
}

const std::string& AdamSim::Host() const { return state_->bound_host; }
int AdamSim::ModbusPort() const { return state_->modbus_port; }
int AdamSim::UdpPort() const { return state_->udp_port; }
std::string AdamSim::DeviceString() const { return state_->bound_host + ":" + std::to_string(state_->modbus_port); }
PointBank& AdamSim::Points() { return state_->points; }
const std::string& AdamSim::Model() const { return state_->options.model; }
int AdamSim::DigitalInputs() const { return state_->inputs; }
int AdamSim::DigitalOutputs() const { return state_->relays; }

void AdamSim::SetUdpMode(AdamUdpMode mode) {
  std::lock_guard lock(state_->mutex);
  state_->udp_mode = mode;
}

void AdamSim::SetException(int function, int code) {
  std::lock_guard lock(state_->mutex);
  state_->exceptions.at(static_cast<size_t>(function)) = code;
}

int AdamSim::RequestCount(int function) const {
  std::lock_guard lock(state_->mutex);
  return state_->counts.at(static_cast<size_t>(function));
}

int AdamSim::RequestCount() const {
  std::lock_guard lock(state_->mutex);
  int total = 0;
  for (int c : state_->counts) total += c;
  return total;
}

int AdamSim::QueryCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->queries;
}

int AdamSim::ConnectionCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->connections;
}

std::vector<std::vector<uint8_t>> AdamSim::RequestLog() const {
  std::lock_guard lock(state_->mutex);
  return {state_->log.begin(), state_->log.end()};
}

void AdamSim::ClearLog() {
  std::lock_guard lock(state_->mutex);
  state_->log.clear();
  state_->counts.fill(0);
  state_->queries = 0;
}

}  // namespace vmio::sim
