// The concurrent engine in the C interface: a handle owning a vmio::Engine, its events copied
// out as C values the caller frees.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "capi/c_support.h"
#include "vmio/engine.h"
#include "vmio/vmio.h"

struct vmio_engine {
  vmio::Engine engine;
};

namespace {

using vmio::capi::CopyText;
using vmio::capi::Guard;
using vmio::capi::Require;

vmio::Engine& EngineOf(vmio_engine* handle) {
  if (!handle) vmio::Raise(vmio::kObjectNotSet);
  return handle->engine;
}

vmio::WatchOptions OptionsOf(const vmio_watch_options* c) {
  vmio::WatchOptions options;
  if (!c) return options;
  // Zero keeps the default, as a zero-initialised struct in C asks for.
  const auto pick = [](int32_t given, int32_t fallback) { return given ? given : fallback; };
  options.interval_ms = pick(c->interval_ms, options.interval_ms);
  options.stale_after_ms = pick(c->stale_after_ms, options.stale_after_ms);
  options.offline_after_ms = pick(c->offline_after_ms, options.offline_after_ms);
  options.max_backoff_ms = pick(c->max_backoff_ms, options.max_backoff_ms);
  options.max_queued_writes = pick(c->max_queued_writes, options.max_queued_writes);
  return options;
}

}  // namespace

extern "C" {

const char* vmio_device_state_name(int32_t state) {
  if (state < VMIO_STATE_CONNECTING || state > VMIO_STATE_OFFLINE) return nullptr;
  return vmio::DeviceStateName(static_cast<vmio::DeviceState>(state));
}

int64_t vmio_engine_now(void) { return vmio::Engine::Now(); }

int32_t vmio_engine_new(vmio_engine** engine) {
  return Guard([&] {
    Require(engine);
    *engine = nullptr;
    *engine = new vmio_engine{};
  });
}

void vmio_engine_free(vmio_engine* engine) { delete engine; }

int32_t vmio_engine_add(vmio_engine* engine, vmio_object* device, const char* device_string,
                        const vmio_watch_options* options, int32_t* id) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    vmio::capi::ObjectOf(device);  // null or another thread's: refused before the engine sees it
    Require(device_string);
    Require(id);
    *id = 0;
    *id = e.Add(device->object, device_string, OptionsOf(options));
  });
}

int32_t vmio_engine_remove(vmio_engine* engine, int32_t id) {
  return Guard([&] { EngineOf(engine).Remove(id); });
}

int32_t vmio_engine_write(vmio_engine* engine, int32_t id, int32_t port, const vmio_value* value, uint64_t* write_id) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    Require(value);
    const uint64_t queued = e.Write(id, port, vmio::capi::FromC(*value));
    if (write_id) *write_id = queued;
  });
}

int32_t vmio_engine_state(vmio_engine* engine, int32_t id, int32_t* state) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    Require(state);
    *state = static_cast<int32_t>(e.State(id));
  });
}

int32_t vmio_engine_values(vmio_engine* engine, int32_t id, vmio_value* values, size_t capacity, size_t* count) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    Require(count);
    if (capacity) Require(values);
    const std::vector<vmio::Variant> read = e.Values(id);
    const size_t copied = std::min(capacity, read.size());
    for (size_t i = 0; i < copied; ++i) values[i] = vmio_value{};
    try {
      for (size_t i = 0; i < copied; ++i) vmio::capi::ToC(read[i], values[i]);
    } catch (...) {
      for (size_t i = 0; i < copied; ++i) vmio_value_clear(&values[i]);
      throw;
    }
    *count = read.size();
  });
}

int32_t vmio_engine_next_event(vmio_engine* engine, vmio_engine_event* event) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    Require(event);
    *event = vmio_engine_event{};
    event->kind = VMIO_EVENT_NONE;
    event->port = -1;
    vmio::EngineEvent taken;
    if (!e.NextEvent(taken)) return;
    vmio_engine_event c{};
    c.kind = static_cast<int32_t>(taken.kind);
    c.device = taken.device;
    c.port = taken.port;
    c.state = static_cast<int32_t>(taken.state);
    c.error = taken.error;
    c.write_id = taken.write_id;
    c.time_ms = taken.time_ms;
    std::unique_ptr<char, decltype(&std::free)> description(CopyText(taken.description), &std::free);
    vmio::capi::ToC(taken.value, c.value);
    c.description = description.release();
    *event = c;
  });
}

void vmio_engine_event_clear(vmio_engine_event* event) {
  if (!event) return;
  vmio_value_clear(&event->value);
  std::free(event->description);
  *event = vmio_engine_event{};
  event->kind = VMIO_EVENT_NONE;
  event->port = -1;
}

int32_t vmio_engine_dropped_events(vmio_engine* engine, uint64_t* count) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    Require(count);
    *count = e.DroppedEvents();
  });
}

int32_t vmio_engine_set_event_listener(vmio_engine* engine, vmio_engine_event_listener listener, void* context) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    if (!listener) {
      e.SetEventListener({});
      return;
    }
    e.SetEventListener([listener, context] { listener(context); });
  });
}

int32_t vmio_engine_run_until(vmio_engine* engine, int64_t deadline_ms) {
  return Guard([&] { EngineOf(engine).RunUntil(deadline_ms); });
}

int32_t vmio_engine_run_until_idle(vmio_engine* engine, int64_t deadline_ms, int32_t* idle) {
  return Guard([&] {
    const bool done = EngineOf(engine).RunUntilIdle(deadline_ms);
    if (idle) *idle = done ? 1 : 0;
  });
}

int32_t vmio_engine_descriptors(vmio_engine* engine, vmio_engine_watch* watches, size_t capacity, size_t* count) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    Require(count);
    if (capacity) Require(watches);
    const std::vector<vmio::Engine::Watch> all = e.Descriptors();
    const size_t copied = std::min(capacity, all.size());
    for (size_t i = 0; i < copied; ++i) watches[i] = vmio_engine_watch{all[i].fd, all[i].events};
    *count = all.size();
  });
}

int32_t vmio_engine_set_watch_listener(vmio_engine* engine, vmio_engine_watch_listener listener, void* context) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    if (!listener) {
      e.SetWatchListener({});
      return;
    }
    e.SetWatchListener([listener, context](int fd, int events) { listener(fd, events, context); });
  });
}

int32_t vmio_engine_timeout(vmio_engine* engine, int64_t* milliseconds) {
  return Guard([&] {
    vmio::Engine& e = EngineOf(engine);
    Require(milliseconds);
    *milliseconds = e.Timeout();
  });
}

int32_t vmio_engine_ready(vmio_engine* engine, int fd, int events) {
  return Guard([&] { EngineOf(engine).Ready(fd, events); });
}

int32_t vmio_engine_run_timers(vmio_engine* engine) {
  return Guard([&] { EngineOf(engine).RunTimers(); });
}

}  // extern "C"
