#include "mqtt_client.h"

#include <mosquitto.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "log.h"
#include "vmio/engine.h"

namespace vmio::gateway {
namespace {

// loop_misc checks the keep-alive and retries unacknowledged messages; once a second is
// what the library's own loop does.
constexpr int64_t kMiscEveryMs = 1000;

std::string Why(int rc) { return rc == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(rc); }

}  // namespace

MqttClient::MqttClient(const MqttConfig& config, const std::string& will_topic, const std::string& will_payload,
                       Handlers handlers)
    : config_(config), handlers_(std::move(handlers)) {
  static const bool initialised = [] { return mosquitto_lib_init() == MOSQ_ERR_SUCCESS; }();
  if (!initialised) throw std::runtime_error("libmosquitto did not initialise");
  mosq_ = mosquitto_new(config_.client_id.c_str(), true, this);
  if (!mosq_) throw std::runtime_error("libmosquitto could not create a client");
  mosquitto_connect_callback_set(mosq_, &OnConnect);
  mosquitto_disconnect_callback_set(mosq_, &OnDisconnect);
  mosquitto_message_callback_set(mosq_, &OnMessage);
  auto check = [](int rc, const std::string& what) {
    if (rc != MOSQ_ERR_SUCCESS) throw std::runtime_error(what + ": " + Why(rc));
  };
  check(mosquitto_will_set(mosq_, will_topic.c_str(), static_cast<int>(will_payload.size()), will_payload.data(), 1,
                           true),
        "last will");
  if (!config_.user.empty()) {
    check(
        mosquitto_username_pw_set(mosq_, config_.user.c_str(), config_.password ? config_.password->c_str() : nullptr),
        "broker user");
  }
  if (config_.tls) {
    const TlsConfig& tls = *config_.tls;
    check(
        mosquitto_tls_set(mosq_, tls.ca_file.c_str(), nullptr, tls.cert_file.empty() ? nullptr : tls.cert_file.c_str(),
                          tls.key_file.empty() ? nullptr : tls.key_file.c_str(), nullptr),
        "TLS (ca_file " + tls.ca_file + ")");
    check(mosquitto_tls_insecure_set(mosq_, tls.insecure), "TLS");
  }
  mosquitto_int_option(mosq_, MOSQ_OPT_TCP_NODELAY, 1);
}

MqttClient::~MqttClient() { mosquitto_destroy(mosq_); }

int MqttClient::Socket() const { return socket_open_ ? mosquitto_socket(mosq_) : -1; }

bool MqttClient::WantWrite() const { return socket_open_ && mosquitto_want_write(mosq_); }

void MqttClient::Readable(int64_t now_ms) {
  if (!socket_open_) return;
  const int rc = mosquitto_loop_read(mosq_, 1);
  if (rc != MOSQ_ERR_SUCCESS) Lost(now_ms, Why(rc));
}

void MqttClient::Writable(int64_t now_ms) {
  if (!socket_open_) return;
  const int rc = mosquitto_loop_write(mosq_, 1);
  if (rc != MOSQ_ERR_SUCCESS) Lost(now_ms, Why(rc));
}

int64_t MqttClient::Timeout(int64_t now_ms) const {
  const int64_t due = socket_open_ ? misc_at_ : reconnect_at_;
  return std::max<int64_t>(0, due - now_ms);
}

void MqttClient::RunTimers(int64_t now_ms) {
  if (!socket_open_) {
    if (now_ms >= reconnect_at_) Connect(now_ms);
    return;
  }
  if (now_ms < misc_at_) return;
  misc_at_ = now_ms + kMiscEveryMs;
  const int rc = mosquitto_loop_misc(mosq_);
  if (rc != MOSQ_ERR_SUCCESS) Lost(now_ms, Why(rc));
}

void MqttClient::Connect(int64_t now_ms) {
  Log(LogLevel::kDebug, "broker: connecting to " + config_.host + ":" + std::to_string(config_.port));
  // The connect itself does not wait (the socket is non-blocking); a host name is looked up
  // on this thread, so a broker given by address never delays the devices.
  const int rc = started_ ? mosquitto_reconnect_async(mosq_)
                          : mosquitto_connect_async(mosq_, config_.host.c_str(), config_.port, config_.keepalive_s);
  started_ = true;
  if (rc != MOSQ_ERR_SUCCESS) {
    socket_open_ = true;  // so Lost schedules the next try
    Lost(now_ms, Why(rc));
    return;
  }
  socket_open_ = true;
  misc_at_ = now_ms + kMiscEveryMs;
}

void MqttClient::Lost(int64_t now_ms, const std::string& why) {
  if (!socket_open_) return;
  const std::string where = config_.host + ":" + std::to_string(config_.port);
  if (connected_) {
    Log(LogLevel::kWarning, "broker: connection to " + where + " lost (" + why + "), reconnecting");
  } else {
    // The first failure of a series is worth a warning (a wrong password, a wrong CA); the
    // retries are not.
    Log(failures_ == 0 ? LogLevel::kWarning : LogLevel::kDebug,
        "broker: cannot connect to " + where + " (" + why + "), next try in " + std::to_string(backoff_ms_) + " ms");
    ++failures_;
  }
  connected_ = false;
  socket_open_ = false;
  mosquitto_disconnect(mosq_);  // closes the socket; no DISCONNECT reaches a dead broker anyway
  reconnect_at_ = now_ms + backoff_ms_;
  backoff_ms_ = std::min<int64_t>(backoff_ms_ * 2, config_.reconnect_max_ms);
}

bool MqttClient::Publish(const std::string& topic, const std::string& payload, bool retain, int qos) {
  if (!connected_) return false;
  const int rc =
      mosquitto_publish(mosq_, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), qos, retain);
  if (rc != MOSQ_ERR_SUCCESS) Log(LogLevel::kDebug, "broker: publish to " + topic + " failed: " + Why(rc));
  return rc == MOSQ_ERR_SUCCESS;
}

void MqttClient::Subscribe(const std::string& filter) {
  const int rc = mosquitto_subscribe(mosq_, nullptr, filter.c_str(), 1);
  if (rc != MOSQ_ERR_SUCCESS) Log(LogLevel::kWarning, "broker: cannot subscribe to " + filter + ": " + Why(rc));
}

void MqttClient::Close(int timeout_ms) {
  if (!connected_) return;
  // Our own wait, not mosquitto_loop: that one selects, and a large site's socket lies
  // beyond select's reach.
  const int64_t deadline = Engine::Now() + timeout_ms;
  while (mosquitto_want_write(mosq_) && Engine::Now() < deadline) {
    pollfd p{mosquitto_socket(mosq_), POLLOUT, 0};
    if (poll(&p, 1, 50) < 0 || mosquitto_loop_write(mosq_, 1) != MOSQ_ERR_SUCCESS) break;
  }
  mosquitto_disconnect(mosq_);
  if (mosquitto_want_write(mosq_)) mosquitto_loop_write(mosq_, 1);
  connected_ = false;
  socket_open_ = false;
}

void MqttClient::OnConnect(struct mosquitto*, void* self, int rc) {
  auto* client = static_cast<MqttClient*>(self);
  const std::string where = client->config_.host + ":" + std::to_string(client->config_.port);
  if (rc != 0) {
    // Refused (bad credentials, client id): retried with the back-off like any failure.
    client->Lost(Engine::Now(), std::string("refused: ") + mosquitto_connack_string(rc));
    return;
  }
  Log(LogLevel::kInfo, std::string("broker: ") + (client->reconnects_ ? "reconnected to " : "connected to ") + where);
  ++client->reconnects_;
  client->connected_ = true;
  client->failures_ = 0;
  client->backoff_ms_ = kFirstBackoffMs;
  if (client->handlers_.connected) client->handlers_.connected();
}

void MqttClient::OnDisconnect(struct mosquitto*, void* self, int rc) {
  auto* client = static_cast<MqttClient*>(self);
  if (rc != 0) client->Lost(Engine::Now(), mosquitto_strerror(rc));
}

void MqttClient::OnMessage(struct mosquitto*, void* self, const struct mosquitto_message* message) {
  auto* client = static_cast<MqttClient*>(self);
  if (!client->handlers_.message || !message->topic) return;
  const std::string payload(static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen));
  client->handlers_.message(message->topic, payload, message->retain);
}

}  // namespace vmio::gateway
