#include "serial_sim.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace vmio::sim {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr size_t kMaxCommandLength = 4096;  // a longer line is noise; it is dropped

int BaudOf(speed_t speed) {
  static const std::pair<speed_t, int> kSpeeds[] = {{B1200, 1200},   {B2400, 2400},    {B4800, 4800},
                                                    {B9600, 9600},   {B19200, 19200},  {B38400, 38400},
                                                    {B57600, 57600}, {B115200, 115200}};
  for (const auto& [code, baud] : kSpeeds) {
    if (code == speed) return baud;
  }
  return -1;
}

int DataBitsOf(tcflag_t cflag) {
  switch (cflag & CSIZE) {
    case CS5:
      return 5;
    case CS6:
      return 6;
    case CS7:
      return 7;
    default:
      return 8;
  }
}

[[noreturn]] void Fail(const char* what) { throw std::runtime_error(std::string("serial simulator: ") + what); }

}  // namespace

struct SerialSim::State {
  int master = -1;
  int slave = -1;  // held open, so the master never sees a hang-up between clients
  std::string path;

  mutable std::mutex mu;
  std::map<std::string, SerialReply> replies;
  std::string listen_text;
  int listen_interval_ms = 0;
  Clock::time_point listen_due{};
  bool silent = false;
  std::atomic<bool> flood{false};
  std::string received;
  std::string command;  // the line being received
  std::multimap<Clock::time_point, std::string> outgoing;

  std::mutex write_mu;  // keeps Send's bytes and the thread's whole
  std::atomic<bool> stop{false};
  std::thread thread;

  ~State() {
    if (slave >= 0) close(slave);
    if (master >= 0) close(master);
  }

  void Write(std::string_view bytes) {
    std::lock_guard lock(write_mu);
    while (!bytes.empty()) {
      const ssize_t n = write(master, bytes.data(), bytes.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;  // the client is not reading: the rest is lost, as on a real line
      bytes.remove_prefix(static_cast<size_t>(n));
    }
  }

  bool LineIsRaw() const {
    termios tio{};
    return tcgetattr(slave, &tio) == 0 && !(tio.c_lflag & ICANON);
  }

  // Called with mu held.
  void Receive(std::string_view bytes) {
    received += bytes;
    for (const char c : bytes) {
      if (c != '\r' && c != '\n') {
        if (command.size() < kMaxCommandLength) command += c;
        continue;
      }
      if (!command.empty() && !silent) {
        if (const auto it = replies.find(command); it != replies.end()) Schedule(it->second);
      }
      command.clear();
    }
  }

  // Called with mu held.
  void Schedule(const SerialReply& reply) {
    auto when = Clock::now() + milliseconds(reply.delay_ms);
    const size_t piece = reply.piece_size ? reply.piece_size : std::max<size_t>(reply.text.size(), 1);
    for (size_t pos = 0; pos < reply.text.size(); pos += piece) {
      outgoing.emplace(when, reply.text.substr(pos, piece));
      when += milliseconds(reply.piece_gap_ms);
    }
  }

  // Takes what is due to be sent now; returns the milliseconds until the next send (at most 10).
  int TakeDue(std::string& out) {
    std::lock_guard lock(mu);
    const auto now = Clock::now();
    while (!outgoing.empty() && outgoing.begin()->first <= now) {
      out += outgoing.begin()->second;
      outgoing.erase(outgoing.begin());
    }
    if (listen_interval_ms > 0 && listen_due <= now && LineIsRaw()) {
      out += listen_text;
      listen_due = now + milliseconds(listen_interval_ms);
    }
    int wait = 10;
    if (!outgoing.empty()) {
      const auto until = std::chrono::ceil<milliseconds>(outgoing.begin()->first - now).count();
      wait = static_cast<int>(std::clamp<decltype(until)>(until, 0, wait));
    }
    return wait;
  }

  void Run() {
    while (!stop) {
      std::string due;
      const int wait = TakeDue(due);
      if (!due.empty()) Write(due);
      pollfd pfd{master, static_cast<short>(POLLIN | (flood ? POLLOUT : 0)), 0};
      if (poll(&pfd, 1, wait) <= 0) continue;
      if (pfd.revents & POLLOUT) Write(std::string(512, 'x'));
      if (!(pfd.revents & POLLIN)) continue;
      char buf[512];
      const ssize_t n = read(master, buf, sizeof buf);
      if (n <= 0) continue;
      std::lock_guard lock(mu);
      Receive(std::string_view(buf, static_cast<size_t>(n)));
    }
  }
};

SerialSim::SerialSim(LineStart start) : state_(std::make_unique<State>()) {
  State& s = *state_;
  s.master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (s.master < 0) Fail("posix_openpt failed");
  if (grantpt(s.master) != 0 || unlockpt(s.master) != 0) Fail("cannot unlock the pseudo-terminal");
  char name[128];
  if (ptsname_r(s.master, name, sizeof name) != 0) Fail("ptsname failed");
  s.path = name;
  // The master side passes bytes unchanged already; termios calls on it would reach the
  // slave's settings, which belong to the client.
  fcntl(s.master, F_SETFL, fcntl(s.master, F_GETFL) | O_NONBLOCK);
  s.slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (s.slave < 0) Fail("cannot open the slave side");
  termios tio{};
  if (tcgetattr(s.slave, &tio) != 0) Fail("tcgetattr failed");
  if (start == LineStart::Raw) {
    cfmakeraw(&tio);
    cfsetispeed(&tio, B9600);
    cfsetospeed(&tio, B9600);
  } else {
    tio.c_cflag |= CSTOPB | CRTSCTS;  // data bits and parity a pseudo-terminal keeps at 8N
    tio.c_iflag |= ICRNL | INLCR | IXON | IXOFF;
    tio.c_oflag |= OPOST | ONLCR;
    tio.c_lflag |= ICANON | ECHO | ISIG;
    cfsetispeed(&tio, B19200);
    cfsetospeed(&tio, B19200);
  }
  if (tcsetattr(s.slave, TCSANOW, &tio) != 0) Fail("tcsetattr failed");
  s.thread = std::thread([&s] { s.Run(); });
}

SerialSim::~SerialSim() {
  state_->stop = true;
  if (state_->thread.joinable()) state_->thread.join();
}

const std::string& SerialSim::Path() const { return state_->path; }

void SerialSim::SetReply(const std::string& command, SerialReply reply) {
  std::lock_guard lock(state_->mu);
  state_->replies[command] = std::move(reply);
}

void SerialSim::SetListenLine(std::string text, int interval_ms) {
  std::lock_guard lock(state_->mu);
  state_->listen_text = std::move(text);
  state_->listen_interval_ms = interval_ms;
  state_->listen_due = Clock::now();
}

void SerialSim::SetSilent(bool silent) {
  std::lock_guard lock(state_->mu);
  state_->silent = silent;
}

void SerialSim::SetFlood(bool flood) { state_->flood = flood; }

void SerialSim::HangUp() {
  State& s = *state_;
  s.stop = true;
  if (s.thread.joinable()) s.thread.join();
  for (int* fd : {&s.slave, &s.master}) {
    close(*fd);
    *fd = -1;
  }
}

void SerialSim::Send(std::string_view bytes) {
  State& s = *state_;
  int before = 0;
  ioctl(s.slave, FIONREAD, &before);
  s.Write(bytes);
  // The terminal hands the bytes to the slave side a moment later.
  const auto deadline = Clock::now() + std::chrono::seconds(1);
  for (int ready = 0; Clock::now() < deadline; std::this_thread::sleep_for(milliseconds(1))) {
    if (ioctl(s.slave, FIONREAD, &ready) == 0 && ready >= before + static_cast<int>(bytes.size())) return;
  }
}

std::string SerialSim::Received() const {
  std::lock_guard lock(state_->mu);
  return state_->received;
}

void SerialSim::ClearReceived() {
  std::lock_guard lock(state_->mu);
  state_->received.clear();
}

SerialLineSettings SerialSim::LineSettings() const {
  termios tio{};
  SerialLineSettings out;
  if (tcgetattr(state_->slave, &tio) != 0) return out;
  out.input_baud = BaudOf(cfgetispeed(&tio));
  out.output_baud = BaudOf(cfgetospeed(&tio));
  out.data_bits = DataBitsOf(tio.c_cflag);
  out.parity = tio.c_cflag & PARENB;
  out.two_stop_bits = tio.c_cflag & CSTOPB;
  out.hardware_handshake = tio.c_cflag & CRTSCTS;
  out.software_handshake = tio.c_iflag & (IXON | IXOFF);
  out.canonical = tio.c_lflag & ICANON;
  out.echo = tio.c_lflag & ECHO;
  out.signals = tio.c_lflag & ISIG;
  out.output_processing = tio.c_oflag & OPOST;
  out.cr_to_nl = tio.c_iflag & ICRNL;
  out.nl_to_cr = tio.c_iflag & INLCR;
  out.ignore_cr = tio.c_iflag & IGNCR;
  out.vmin = tio.c_cc[VMIN];
  out.vtime = tio.c_cc[VTIME];
  return out;
}

}  // namespace vmio::sim
