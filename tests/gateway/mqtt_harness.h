#pragma once
// What the gateway's end-to-end tests run it against: Debian's mosquitto on a free loopback
// port with a configuration of its own, a client that records every message, and child
// processes (the broker, the gateway) that are killed when the test ends.
#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct mosquitto;
struct mosquitto_message;

namespace vmio::gateway::testing {

// A scratch folder, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string Write(const std::string& name, const std::string& text) const;

 private:
  std::string path_;
};

// A program run as a child, its standard error in a file; killed when dropped.
class Child {
 public:
  Child() = default;
  Child(const std::vector<std::string>& argv, const std::string& log_file);
  ~Child() { Kill(SIGKILL_); }
  Child(Child&& other) noexcept : pid_(other.pid_) { other.pid_ = -1; }
  Child& operator=(Child&& other) noexcept;
  // Sends the signal and waits for the exit; the exit status (-1 when it was not running).
  int Kill(int signal);
  int Wait() { return Kill(0); }
  bool Running() const { return pid_ > 0; }
  pid_t Pid() const { return pid_; }

 private:
  static constexpr int SIGKILL_ = 9;
  pid_t pid_ = -1;
};

// The broker: started on a port of its own, stopped by killing it (as a crash would). Start
// raises std::runtime_error when it does not listen within two seconds.
class Broker {
 public:
  // extra: more configuration after the plain anonymous listener (another listener, say).
  explicit Broker(const TempDir& dir, std::string extra = "");
  void Start();
  void Kill() { process_.Kill(9); }
  int port() const { return port_; }
  // A port nobody listens on now, for another listener.
  static int FreePort();

 private:
  const TempDir& dir_;
  std::string extra_;
  int port_;
  Child process_;
};

struct Received {
  std::string topic;
  std::string payload;
  bool retained;
  std::chrono::steady_clock::time_point at;
};

// A client subscribed to everything, reconnecting (and subscribing again) when the broker
// comes back; runs libmosquitto's own thread, which a test may.
class Recorder {
 public:
  // Subscribes to filter.
  explicit Recorder(int port, std::string filter = "#");
  ~Recorder();
  // Queued to the broker (QoS 1); false when the client cannot queue it.
  bool Publish(const std::string& topic, const std::string& payload, bool retain = false);
  // Waits until a message received at or after `from` (its index) matches, and returns it;
  // nothing after timeout.
  std::optional<Received> WaitFor(const std::function<bool(const Received&)>& match, std::chrono::milliseconds timeout,
                                  size_t from = 0);
  std::optional<Received> WaitFor(const std::string& topic, const std::string& payload,
                                  std::chrono::milliseconds timeout, size_t from = 0);
  // Called with every message as it arrives, on the client's thread, instead of keeping it.
  void SetListener(std::function<void(const Received&)> listener);
  size_t Count();
  std::vector<Received> Since(size_t from);

 private:
  static void OnConnect(struct mosquitto*, void* self, int rc);
  static void OnMessage(struct mosquitto*, void* self, const struct mosquitto_message* message);
  struct mosquitto* mosq_;
  std::string filter_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Received> messages_;
  std::function<void(const Received&)> listener_;  // takes the messages instead of the list
};

}  // namespace vmio::gateway::testing
