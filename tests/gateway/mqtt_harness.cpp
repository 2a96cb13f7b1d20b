#include "mqtt_harness.h"

#include <fcntl.h>
#include <mosquitto.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace vmio::gateway::testing {
// A port nobody listens on now; the broker binds it a moment later.
int Broker::FreePort() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t size = sizeof a;
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &size);
  close(fd);
  return ntohs(a.sin_port);
}

namespace {

bool Accepts(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool ok = connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
  close(fd);
  return ok;
}

}  // namespace

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vmio-gateway-XXXXXX").string();
  path_ = mkdtemp(pattern.data());
}

TempDir::~TempDir() { std::filesystem::remove_all(path_); }

std::string TempDir::Write(const std::string& name, const std::string& text) const {
  const std::string file = path_ + "/" + name;
  std::ofstream(file) << text;
  return file;
}

Child::Child(const std::vector<std::string>& argv, const std::string& log_file) {
  pid_ = fork();
  if (pid_ == 0) {
    const int log = open(log_file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(log, 2);
    dup2(log, 1);
    close_range(3, ~0U, 0);  // none of the parent's sockets (a fleet's thousands) for the child
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
}

Child& Child::operator=(Child&& other) noexcept {
  Kill(SIGKILL);
  pid_ = other.pid_;
  other.pid_ = -1;
  return *this;
}

int Child::Kill(int signal) {
  if (pid_ <= 0) return -1;
  kill(pid_, signal);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Broker::Broker(const TempDir& dir, std::string extra) : dir_(dir), extra_(std::move(extra)), port_(FreePort()) {}

void Broker::Start() {
  // No persistence: a restarted broker has forgotten every retained message, the worst case.
  const std::string conf =
      dir_.Write("mosquitto.conf", "per_listener_settings true\npersistence false\nlistener " + std::to_string(port_) +
                                       " 127.0.0.1\nallow_anonymous true\n" + extra_);
  process_ = Child({"/usr/sbin/mosquitto", "-c", conf}, dir_.path() + "/mosquitto.log");
  for (int i = 0; i < 100 && !Accepts(port_); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  if (!Accepts(port_)) throw std::runtime_error("mosquitto did not start on port " + std::to_string(port_));
}

Recorder::Recorder(int port, std::string filter) : filter_(std::move(filter)) {
  mosquitto_lib_init();
  mosq_ = mosquitto_new(nullptr, true, this);
  mosquitto_connect_callback_set(mosq_, &OnConnect);
  mosquitto_message_callback_set(mosq_, &OnMessage);
  mosquitto_reconnect_delay_set(mosq_, 1, 1, false);
  mosquitto_connect_async(mosq_, "127.0.0.1", port, 10);
  mosquitto_loop_start(mosq_);
}

Recorder::~Recorder() {
  mosquitto_disconnect(mosq_);
  mosquitto_loop_stop(mosq_, true);
  mosquitto_destroy(mosq_);
}

void Recorder::OnConnect(struct mosquitto* mosq, void* self, int rc) {
  if (rc == 0) mosquitto_subscribe(mosq, nullptr, static_cast<Recorder*>(self)->filter_.c_str(), 1);
}

void Recorder::OnMessage(struct mosquitto*, void* self, const struct mosquitto_message* message) {
  auto* recorder = static_cast<Recorder*>(self);
  Received r{message->topic, std::string(static_cast<const char*>(message->payload), message->payloadlen),
             message->retain, std::chrono::steady_clock::now()};
  std::lock_guard lock(recorder->mutex_);
  if (recorder->listener_) return recorder->listener_(r);
  recorder->messages_.push_back(std::move(r));
  recorder->changed_.notify_all();
}

bool Recorder::Publish(const std::string& topic, const std::string& payload, bool retain) {
  return mosquitto_publish(mosq_, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 1,
                           retain) == MOSQ_ERR_SUCCESS;
}

std::optional<Received> Recorder::WaitFor(const std::function<bool(const Received&)>& match,
                                          std::chrono::milliseconds timeout, size_t from) {
  std::unique_lock lock(mutex_);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  size_t seen = from;
  while (true) {
    for (; seen < messages_.size(); ++seen) {
      if (match(messages_[seen])) return messages_[seen];
    }
    if (changed_.wait_until(lock, deadline) == std::cv_status::timeout && seen == messages_.size()) break;
  }
  return std::nullopt;
}

std::optional<Received> Recorder::WaitFor(const std::string& topic, const std::string& payload,
                                          std::chrono::milliseconds timeout, size_t from) {
  return WaitFor([&](const Received& r) { return r.topic == topic && r.payload == payload; }, timeout, from);
}

void Recorder::SetListener(std::function<void(const Received&)> listener) {
  std::lock_guard lock(mutex_);
  listener_ = std::move(listener);
}

size_t Recorder::Count() {
  std::lock_guard lock(mutex_);
  return messages_.size();
}

std::vector<Received> Recorder::Since(size_t from) {
  std::lock_guard lock(mutex_);
  return {messages_.begin() + static_cast<std::ptrdiff_t>(std::min(from, messages_.size())), messages_.end()};
}

}  // namespace vmio::gateway::testing
