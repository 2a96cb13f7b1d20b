#pragma once
// The gateway's one loop: the engine's descriptors (kept in an epoll set, told by its watch
// listener) and the broker's socket, with the earliest of their timers as the wait.
#include <csignal>

#include "bridge.h"
#include "mqtt_client.h"
#include "vmio/engine.h"

namespace vmio::gateway {

class EventLoop {
 public:
  EventLoop(Engine& engine, MqttClient& mqtt, Bridge& bridge);
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Runs until stop becomes non-zero (a signal handler sets it).
  void Run(const volatile std::sig_atomic_t& stop);

 private:
  void Watch(int fd, int events);
  void EngineReady();

  Engine& engine_;
  MqttClient& mqtt_;
  Bridge& bridge_;
  int epoll_fd_ = -1;
};

}  // namespace vmio::gateway
