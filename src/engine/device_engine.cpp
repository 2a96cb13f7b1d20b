// The concurrent engine: each device lives as one task on the engine's loop (connect, then
// writes and reads in turn, a retry with a growing pause after a failure), so a device that
// does not answer only ever holds up its own task.
#include <algorithm>
#include <cstdint>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "core/errors.h"
#include "engine/async_device.h"
#include "engine/poll_descriptors.h"
#include "vmio/engine.h"
#include "vmio/error.h"
#include "vmio/events.h"
#include "vmio/io_device.h"

namespace vmio {
namespace {

constexpr int32_t kMinIntervalMs = 10;
// How soon an exchange that found no descriptor left is tried again.
constexpr int64_t kNoDescriptorPauseMs = 50;

// The failure of an exchange as a host sees it: the automation error the blocking member
// would raise.
struct Failure {
  int32_t number = 0;
  std::string description;
};

// co_await Nap(...): sleeps until due, or less when Wake moves it earlier (a write came in).
class Nap {
 public:
  Nap(engine::Loop& loop, int64_t due, Nap*& slot) : loop_(loop), due_(due), slot_(slot) {}
  Nap(const Nap&) = delete;
  Nap& operator=(const Nap&) = delete;
  ~Nap() {
    if (timer_) loop_.CancelTimer(*timer_);
    if (slot_ == this) slot_ = nullptr;
  }

  bool await_ready() const noexcept { return due_ <= engine::NowMs(); }
  void await_suspend(std::coroutine_handle<> waiting) {
    waiting_ = waiting;
    slot_ = this;
    Arm(due_);
  }
  void await_resume() noexcept {}

  void Wake() { Arm(engine::NowMs()); }

 private:
  void Arm(int64_t due) {
    if (timer_) loop_.CancelTimer(*timer_);
    timer_ = loop_.AddTimer(due, [this] {
      timer_.reset();
      slot_ = nullptr;
      waiting_.resume();
    });
  }

  engine::Loop& loop_;
  const int64_t due_;
  Nap*& slot_;
  std::coroutine_handle<> waiting_;
  std::optional<engine::Loop::TimerId> timer_;
};

}  // namespace

const char* DeviceStateName(DeviceState state) {
  switch (state) {
    case DeviceState::kConnecting:
      return "connecting";
    case DeviceState::kOnline:
      return "online";
    case DeviceState::kStale:
      return "stale";
    case DeviceState::kOffline:
      return "offline";
  }
  return "unknown";
}

struct Engine::Impl {
  struct Write {
    uint64_t id;
    int32_t port;
    Variant value;
  };

  struct Device {
    int32_t id = 0;
    std::shared_ptr<Object> object;
    engine::AsyncDevice* exchanges = nullptr;
    std::string device_string;
    WatchOptions options;

    engine::Task<void> life;
    bool busy = false;       // an exchange is under way
    bool connected = false;  // since the last good Connect, until a failure
    bool failed = false;     // the last connect or read failed
    int64_t last_good = -1;  // when the last connect or read went well
    int64_t trying_since = 0;
    DeviceState state = DeviceState::kConnecting;
    std::optional<engine::Loop::TimerId> state_check;
    std::vector<Variant> values;
    std::deque<Write> writes;
    Nap* nap = nullptr;  // set while the device waits for its next read or retry
  };

  Object owner;  // the engine's thread, checked the way an object's is
  engine::Io io;
  std::map<int32_t, std::unique_ptr<Device>> devices;
  int32_t last_id = 0;
  uint64_t last_write = 0;
  std::deque<EngineEvent> events;
  size_t dropped = 0;
  std::function<void()> event_listener;
  bool in_listener = false;

  void Check() const { owner.RequireOwnThread(); }
  void CheckOutsideListener() const {
    Check();
    if (in_listener) Raise(kInvalidProcedureCall);
  }

  Device& Find(int32_t id) const {
    const auto it = devices.find(id);
    if (it == devices.end()) Raise(kSubscriptOutOfRange);
    return *it->second;
  }

  void Emit(EngineEvent event) {
    if (events.size() >= kMaxQueuedEvents) {
      events.pop_front();
      ++dropped;
    }
    events.push_back(std::move(event));
    if (!event_listener) return;
    in_listener = true;
    try {
      event_listener();
    } catch (...) {
      // A host's exception has nowhere to go from inside the loop; the event stays queued.
    }
    in_listener = false;
  }

  EngineEvent EventOf(const Device& d, EngineEvent::Kind kind) const {
    EngineEvent event;
    event.kind = kind;
    event.device = d.id;
    event.state = d.state;
    event.time_ms = engine::NowMs();
    return event;
  }

  DeviceState StateNow(const Device& d, int64_t now) const {
    if (d.failed) return DeviceState::kOffline;
    if (d.last_good < 0) {
      return now - d.trying_since > d.options.offline_after_ms ? DeviceState::kOffline : DeviceState::kConnecting;
    }
    const int64_t age = now - d.last_good;
    if (age > d.options.offline_after_ms) return DeviceState::kOffline;
    return age > d.options.stale_after_ms ? DeviceState::kStale : DeviceState::kOnline;
  }

  // Reports a change of state, and looks again when the state would next change by age alone.
  void UpdateState(Device& d) {
    const int64_t now = engine::NowMs();
    if (const DeviceState state = StateNow(d, now); state != d.state) {
      d.state = state;
      Emit(EventOf(d, EngineEvent::Kind::kState));
    }
    if (d.state_check) io.loop().CancelTimer(*d.state_check);
    d.state_check.reset();
    if (d.failed) return;
    const int64_t since = d.last_good >= 0 ? d.last_good : d.trying_since;
    std::optional<int64_t> next;
    for (const int64_t limit : {d.options.stale_after_ms, d.options.offline_after_ms}) {
      if (d.last_good < 0 && limit == d.options.stale_after_ms) continue;  // connecting has no stale
      if (since + limit + 1 > now && (!next || since + limit + 1 < *next)) next = since + limit + 1;
    }
    if (next) {
      d.state_check = io.loop().AddTimer(*next, [this, &d] {
        d.state_check.reset();
        UpdateState(d);
      });
    }
  }

  void ReportFailure(Device& d, const Failure& failure, int32_t port = -1) {
    EngineEvent event = EventOf(d, EngineEvent::Kind::kError);
    event.port = port;
    event.error = failure.number;
    event.description = failure.description;
    Emit(std::move(event));
  }

  void ReportValues(Device& d) {
    std::vector<Variant> now = d.exchanges->TableValues();
    for (size_t i = 0; i < now.size(); ++i) {
      if (i < d.values.size() && d.values[i] == now[i]) continue;
      EngineEvent event = EventOf(d, EngineEvent::Kind::kValue);
      event.port = static_cast<int32_t>(i);
      event.value = now[i];
      Emit(std::move(event));
    }
    d.values = std::move(now);
  }

  void EndWrite(Device& d, const Write& write, const Failure& failure) {
    EngineEvent event = EventOf(d, EngineEvent::Kind::kWrite);
    event.port = write.port;
    event.value = write.value;
    event.write_id = write.id;
    event.error = failure.number;
    event.description = failure.description;
    Emit(std::move(event));
  }

  // What a driver threw, as the host sees it.
  static Failure FailureOf(std::exception_ptr thrown) {
    try {
      std::rethrow_exception(std::move(thrown));
    } catch (const AutomationError& e) {
      return Failure{e.Number(), e.Description()};
    } catch (const std::bad_alloc&) {
      return Failure{kOutOfMemory, StandardErrorText(kOutOfMemory)};
    } catch (...) {
      return Failure{kInvalidProcedureCall, StandardErrorText(kInvalidProcedureCall)};
    }
  }

  // Runs one exchange; its failure, if any, as a value (nothing a driver throws leaves here).
  engine::Task<std::optional<Failure>> Exchange(Device& d, engine::Task<void> exchange) {
    d.busy = true;
    std::exception_ptr thrown;
    try {
      co_await exchange;
    } catch (...) {
      thrown = std::current_exception();
    }
    d.busy = false;
    if (thrown) co_return FailureOf(std::move(thrown));
    co_return std::nullopt;
  }

  // A device's whole life on the engine.
  engine::Task<void> Life(Device& d) {
    int64_t pause = d.options.interval_ms;
    for (;;) {
      UpdateState(d);
      std::optional<Failure> failure = co_await Exchange(d, d.exchanges->ConnectOn(io, d.device_string));
      if (!failure) {
        d.connected = true;
        d.failed = false;
        d.last_good = engine::NowMs();
        pause = d.options.interval_ms;
        UpdateState(d);
      }
      while (!failure) {
        const int64_t started = engine::NowMs();
        failure = co_await Exchange(d, d.exchanges->RefreshOn(io));
        if (failure && failure->number == kTooManyFiles) {
          ReportFailure(d, *failure);
          co_await Nap(io.loop(), engine::NowMs() + kNoDescriptorPauseMs, d.nap);
          failure.reset();
          continue;
        }
        if (failure) break;
        d.last_good = engine::NowMs();
        ReportValues(d);
        UpdateState(d);
        // Until the next read is due: the writes that come in, each as soon as it comes.
        for (;;) {
          while (!d.writes.empty()) {
            const Write write = std::move(d.writes.front());
            d.writes.pop_front();
            std::optional<Failure> written = co_await Exchange(d, d.exchanges->WriteOn(io, write.port, write.value));
            // A failed write leaves the device as it was; the next read judges the device.
            EndWrite(d, write, written.value_or(Failure{}));
          }
          if (engine::NowMs() >= started + d.options.interval_ms) break;
          co_await Nap(io.loop(), started + d.options.interval_ms, d.nap);
        }
      }
      d.connected = false;
      ReportFailure(d, *failure);
      EndQueuedWrites(d);
      if (failure->number == kTooManyFiles) {
        // The host ran out of descriptors: no fault of the device, whose state and back-off
        // stay as they were; other devices' exchanges end soon and free some.
        co_await Nap(io.loop(), engine::NowMs() + kNoDescriptorPauseMs, d.nap);
        continue;
      }
      d.failed = true;
      UpdateState(d);
      co_await Nap(io.loop(), engine::NowMs() + pause, d.nap);
      pause = std::min<int64_t>(pause * 2, d.options.max_backoff_ms);
    }
  }

  // While a device is not connected, a write fails as the blocking member would.
  void EndQueuedWrites(Device& d) {
    while (!d.writes.empty()) {
      const Write write = std::move(d.writes.front());
      d.writes.pop_front();
      EndWrite(d, write, Failure{IOErrorNotConnected, "Not connected"});
    }
  }

  void Start(Device& d) {
    d.life = Life(d);
    d.life.Start([] {});
  }
};

Engine::Engine() : impl_(std::make_unique<Impl>()) {}

Engine::~Engine() {
  // The host's listeners may be gone already; they hear nothing of the engine's end.
  impl_->io.loop().SetWatchListener({});
  impl_->event_listener = {};
  // Tasks first: their waits take themselves off the loop, which is still there.
  for (auto& [id, device] : impl_->devices) {
    if (device->state_check) impl_->io.loop().CancelTimer(*device->state_check);
    device->life = {};
  }
}

int32_t Engine::Add(std::shared_ptr<Object> device, const std::string& device_string, const WatchOptions& options) {
  impl_->CheckOutsideListener();
  if (!device) Raise(kObjectNotSet);
  device->RequireOwnThread();
  auto* exchanges = dynamic_cast<engine::AsyncDevice*>(device.get());
  if (!exchanges) Raise(kTypeMismatch);
  for (const auto& [id, d] : impl_->devices) {
    if (d->object == device) Raise(kKeyAlreadyAssociated);
  }
  WatchOptions o = options;
  if (o.interval_ms < kMinIntervalMs || o.stale_after_ms < 0 || o.offline_after_ms < 0 || o.max_backoff_ms < 0 ||
      o.max_queued_writes < 1) {
    Raise(kInvalidProcedureCall);
  }
  if (o.stale_after_ms == 0) o.stale_after_ms = 2 * o.interval_ms;
  if (o.offline_after_ms == 0) o.offline_after_ms = 2 * o.stale_after_ms;
  o.max_backoff_ms = std::max(o.max_backoff_ms, o.interval_ms);

  auto entry = std::make_unique<Impl::Device>();
  Impl::Device& d = *entry;
  d.id = ++impl_->last_id;
  d.object = std::move(device);
  d.exchanges = exchanges;
  d.device_string = device_string;
  d.options = o;
  d.trying_since = engine::NowMs();
  impl_->devices.emplace(d.id, std::move(entry));
  // Started on the loop's next turn, so Add returns at once whatever the device does.
  impl_->io.loop().AddTimer(engine::NowMs(), [impl = impl_.get(), id = d.id] {
    if (const auto it = impl->devices.find(id); it != impl->devices.end() && !it->second->life.Valid())
      impl->Start(*it->second);
  });
  return d.id;
}

void Engine::Remove(int32_t id) {
  impl_->CheckOutsideListener();
  Impl::Device& d = impl_->Find(id);
  if (d.state_check) impl_->io.loop().CancelTimer(*d.state_check);
  d.life = {};  // cancels the exchange in flight: its waits unregister themselves
  impl_->devices.erase(id);
}

uint64_t Engine::Write(int32_t id, int32_t port, const Variant& value) {
  impl_->CheckOutsideListener();
  Impl::Device& d = impl_->Find(id);
  const Impl::Write write{++impl_->last_write, port, value};
  if (!d.connected) {
    impl_->EndWrite(d, write, {IOErrorNotConnected, "Not connected"});
    return write.id;
  }
  if (static_cast<int32_t>(d.writes.size()) >= d.options.max_queued_writes) {
    const Impl::Write dropped = std::move(d.writes.front());
    d.writes.pop_front();
    impl_->EndWrite(d, dropped, {kInvalidProcedureCall, "Dropped: too many writes queued for the device"});
  }
  d.writes.push_back(write);
  if (d.nap) d.nap->Wake();
  return write.id;
}

DeviceState Engine::State(int32_t id) const {
  impl_->Check();
  return impl_->Find(id).state;
}

std::vector<Variant> Engine::Values(int32_t id) const {
  impl_->Check();
  return impl_->Find(id).values;
}

std::shared_ptr<Object> Engine::Device(int32_t id) const {
  impl_->Check();
  return impl_->Find(id).object;
}

std::vector<int32_t> Engine::Devices() const {
  impl_->Check();
  std::vector<int32_t> ids;
  ids.reserve(impl_->devices.size());
  for (const auto& [id, d] : impl_->devices) ids.push_back(id);
  return ids;
}

bool Engine::NextEvent(EngineEvent& event) {
  impl_->Check();
  if (impl_->events.empty()) return false;
  event = std::move(impl_->events.front());
  impl_->events.pop_front();
  return true;
}

size_t Engine::DroppedEvents() const {
  impl_->Check();
  return impl_->dropped;
}

void Engine::SetEventListener(std::function<void()> listener) {
  impl_->CheckOutsideListener();
  impl_->event_listener = std::move(listener);
}

int64_t Engine::Now() { return engine::NowMs(); }

void Engine::RunUntil(int64_t deadline_ms) {
  impl_->CheckOutsideListener();
  for (int64_t left = deadline_ms - Now(); left > 0; left = deadline_ms - Now()) {
    int64_t wait = left;
    // The thread's own timers (a logger's keep-alive) run inside the engine too.
    if (const int32_t events = MillisecondsUntilNextEvent(); events >= 0) wait = std::min<int64_t>(wait, events);
    const int slice = static_cast<int>(std::min<int64_t>(wait, INT32_MAX));
    if (!impl_->io.loop().RunOnce(slice)) engine::PollDescriptors({}, slice);  // nothing to watch: just wait
    RunPendingEvents();
  }
  impl_->io.loop().RunDueTimers();
}

bool Engine::RunUntilIdle(int64_t deadline_ms) {
  impl_->CheckOutsideListener();
  const auto busy = [this] {
    for (const auto& [id, d] : impl_->devices) {
      if (d->busy || !d->life.Valid() || !d->writes.empty()) return true;
    }
    return false;
  };
  impl_->io.loop().RunDueTimers();  // devices added since the last run start now
  for (int64_t left = deadline_ms - Now(); busy() && left > 0; left = deadline_ms - Now()) {
    if (!impl_->io.loop().RunOnce(static_cast<int>(std::min<int64_t>(left, INT32_MAX)))) break;
  }
  return !busy();
}

std::vector<Engine::Watch> Engine::Descriptors() const {
  impl_->Check();
  std::vector<Watch> watches;
  for (const auto& [fd, interest] : impl_->io.loop().WatchedDescriptors()) watches.push_back({fd, interest});
  return watches;
}

void Engine::SetWatchListener(std::function<void(int fd, int events)> listener) {
  impl_->CheckOutsideListener();
  impl_->io.loop().SetWatchListener(std::move(listener));
}

int64_t Engine::Timeout() const {
  impl_->Check();
  const int64_t engine = impl_->io.loop().MillisecondsUntilNextTimer();
  const int64_t events = MillisecondsUntilNextEvent();
  if (engine < 0 || events < 0) return std::max(engine, events);
  return std::min(engine, events);
}

void Engine::Ready(int fd, int events) {
  impl_->CheckOutsideListener();
  impl_->io.loop().Dispatch(fd, events);
}

void Engine::RunTimers() {
  impl_->CheckOutsideListener();
  impl_->io.loop().RunDueTimers();
  RunPendingEvents();
}

}  // namespace vmio
