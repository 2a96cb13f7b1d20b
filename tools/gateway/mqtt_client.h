#pragma once
// The broker connection, driven from the gateway's own loop: libmosquitto in its external-loop
// form (its socket, want-write, loop_read/write/misc), with the reconnect and its capped
// back-off scheduled here, since the library's own reconnect lives only in its threaded loop.
#include <cstdint>
#include <functional>
#include <string>

#include "config.h"

struct mosquitto;
struct mosquitto_message;

namespace vmio::gateway {

class MqttClient {
 public:
  struct Handlers {
    std::function<void()> connected;  // CONNACK accepted: subscribe and publish everything
    std::function<void(const std::string& topic, const std::string& payload, bool retained)> message;
  };
  // The last will: will_payload on will_topic, retained, should the connection die.
  MqttClient(const MqttConfig& config, const std::string& will_topic, const std::string& will_payload,
             Handlers handlers);
  ~MqttClient();
  MqttClient(const MqttClient&) = delete;
  MqttClient& operator=(const MqttClient&) = delete;

  // The descriptor to watch (-1 while there is none) and whether to watch it for writing.
  int Socket() const;
  bool WantWrite() const;
  void Readable(int64_t now_ms);
  void Writable(int64_t now_ms);
  // Milliseconds from now_ms until RunTimers is due (keep-alive, reconnect); never negative.
  int64_t Timeout(int64_t now_ms) const;
  void RunTimers(int64_t now_ms);

  bool Connected() const { return connected_; }
  // Queued when connected (QoS 1 for what must arrive, 0 for what is sent again anyway);
  // false, and dropped, while disconnected: everything is published again on reconnect.
  bool Publish(const std::string& topic, const std::string& payload, bool retain, int qos);
  void Subscribe(const std::string& filter);
  // Sends what is queued and a DISCONNECT, waiting at most timeout_ms.
  void Close(int timeout_ms);
  int Reconnects() const { return reconnects_; }

 private:
  void Connect(int64_t now_ms);
  void Lost(int64_t now_ms, const std::string& why);
  static void OnConnect(struct mosquitto*, void* self, int rc);
  static void OnDisconnect(struct mosquitto*, void* self, int rc);
  static void OnMessage(struct mosquitto*, void* self, const struct mosquitto_message* message);

  struct mosquitto* mosq_ = nullptr;
  MqttConfig config_;
  Handlers handlers_;
  bool started_ = false;    // the first connect was made (later ones reconnect)
  bool connected_ = false;  // CONNACK seen
  bool socket_open_ = false;
  int64_t reconnect_at_ = 0;  // when not socket_open_
  int64_t backoff_ms_ = kFirstBackoffMs;
  int64_t misc_at_ = 0;
  int reconnects_ = 0;
  int failures_ = 0;  // connects failed since the last success
  static constexpr int64_t kFirstBackoffMs = 500;
};

}  // namespace vmio::gateway
