#pragma once
/// @file
/// The concurrent engine (vmio::Engine): one host thread keeps many devices fresh at once.
///
/// A host creates device objects as usual (CreateObject, then any configuration such as an
/// RS232 command list), hands each to Add with its device string and a WatchOptions, and lets
/// the engine run. The engine connects every device concurrently, reads all of a device's
/// ports every interval, queues writes per device, and reports each value change, error,
/// state change and write result as an EngineEvent. A device that does not answer costs its
/// own time-outs and nothing else: no other device's connect, read or write waits for it.
///
/// Threads: the engine starts none. It belongs to the thread that created it, as do the
/// devices added to it; a call from another thread raises -2147417842 ("The application
/// called an interface that was marshalled for a different thread."), never crashes.
///
/// Driving it, always on the owner's thread, in one of two ways:
/// - blocking: RunUntil(deadline) or RunUntilIdle(deadline);
/// - from the host's own event loop (epoll, GLib, Qt, libuv, asyncio): watch the descriptors
///   the engine names (Descriptors, or the changes told to a WatchListener) and call Ready
///   when one is ready; call RunTimers when Timeout() milliseconds have passed.
///
/// The thread's timers (vmio/events.h: a logger's keep-alive) run inside the engine too:
/// Timeout() counts them and RunTimers() and RunUntil run them.
///
/// While a device is in an engine, the engine drives it: a blocking member called on it
/// during one of its exchanges raises 5 "Invalid procedure call or argument" when it needs
/// the device (an Axis camera's PortName asks the camera); the table members (Ports,
/// PortDirection, PortType) answer at any time.
///
/// Running out of descriptors is not a dead device: such an exchange ends with error 67 "Too
/// many files" (a kError event), the device's state is left as it was and it is tried again
/// 50 ms later.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vmio/export.h"
#include "vmio/object.h"
#include "vmio/variant.h"

namespace vmio {

/// What a host shows for a device.
enum class DeviceState : int32_t {
  kConnecting = 0,  ///< not yet connected, and not trying for longer than offline_after_ms
  kOnline = 1,      ///< the last good read is at most stale_after_ms old
  kStale = 2,       ///< the last good read is older than stale_after_ms; nothing failed since
  kOffline = 3,     ///< a connect or read failed, or nothing good came for offline_after_ms
};

/// "connecting", "online", "stale" or "offline".
VMIO_API const char* DeviceStateName(DeviceState state);

/// How the engine treats one device. Zero picks the default.
struct WatchOptions {
  int32_t interval_ms = 1000;      ///< every port is read this often (at least 10 ms)
  int32_t stale_after_ms = 0;      ///< default: twice the interval
  int32_t offline_after_ms = 0;    ///< default: twice stale_after_ms
  int32_t max_backoff_ms = 60000;  ///< retries of a failed device start at the interval and
                                   ///< double up to this
  int32_t max_queued_writes = 64;  ///< a write beyond this drops the oldest queued one
};

/// One thing that happened to a device, in the order it happened.
struct EngineEvent {
  /// What happened.
  enum class Kind : int32_t {
    kValue = 0,  ///< a port's value changed (or was read for the first time): port, value
    kState = 1,  ///< the device's state changed: state
    kError = 2,  ///< a connect or read failed: error, description (port -1 when not a port's)
    kWrite = 3,  ///< a queued write ended: write_id, port, value, error 0 or its failure
  };
  Kind kind = Kind::kValue;                      ///< what happened
  int32_t device = 0;                            ///< the id Add returned
  int32_t port = -1;                             ///< 0-based port index, or -1
  Variant value;                                 ///< the new value (kValue), the value written (kWrite)
  DeviceState state = DeviceState::kConnecting;  ///< the device's state when it happened
  int32_t error = 0;                             ///< the automation error number, 0 for none
  std::string description;                       ///< its description, as the blocking member would raise it
  uint64_t write_id = 0;                         ///< kWrite: what Write returned
  int64_t time_ms = 0;                           ///< Engine::Now() when it was read or happened
};

/// The concurrent engine; see the file's notes.
class VMIO_API Engine {
 public:
  Engine();
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  /// Adds a device object (not connected yet; the engine calls its Connect with
  /// device_string) and returns its id (1, 2, ...). Raises 13 for an object that is no
  /// device, 457 for one already added, 5 for options out of range.
  int32_t Add(std::shared_ptr<Object> device, const std::string& device_string, const WatchOptions& options = {});
  /// Stops watching a device: its exchange in flight is cancelled and its queued writes end
  /// (no events). 9 for an unknown id.
  void Remove(int32_t id);
  /// Queues a write of value to a port; the result comes as a kWrite event with the returned
  /// id. Writes of a device run in order, between its reads, without waiting for its
  /// interval. 9 for an unknown id.
  uint64_t Write(int32_t id, int32_t port, const Variant& value);

  /// The device's state now.
  DeviceState State(int32_t id) const;
  /// The port count and last read values of a device (empty before its first good read).
  std::vector<Variant> Values(int32_t id) const;
  /// The device object added as id.
  std::shared_ptr<Object> Device(int32_t id) const;
  /// The ids of the devices, in the order they were added.
  std::vector<int32_t> Devices() const;

  /// Takes the oldest event waiting; false when none is. At most kMaxQueuedEvents wait: at
  /// the cap the oldest is dropped and counted (DroppedEvents).
  bool NextEvent(EngineEvent& event);
  /// How many events were dropped at the cap so far.
  size_t DroppedEvents() const;
  /// The most events that wait to be taken.
  static constexpr size_t kMaxQueuedEvents = 1 << 16;
  /// Called (on the owner's thread) each time an event is queued, so a host loop knows to
  /// take events; the engine may not be called back from inside it except NextEvent.
  void SetEventListener(std::function<void()> listener);

  /// Milliseconds on the library's monotonic clock: the time base of time_ms and deadlines.
  static int64_t Now();
  /// Runs until Now() reaches deadline_ms.
  void RunUntil(int64_t deadline_ms);
  /// Runs until no device has an exchange in flight (each waits for its interval or its
  /// retry) or until deadline_ms; true when idle.
  bool RunUntilIdle(int64_t deadline_ms);

  /// A descriptor to watch and for what.
  struct Watch {
    int fd;      ///< the descriptor (a socket on Windows)
    int events;  ///< 1 readable, 2 writable, 3 both
  };
  /// Host-loop integration: the descriptors to watch now, and for what.
  std::vector<Watch> Descriptors() const;
  /// Told of every change: fd and its new events, 0 when it is no longer watched.
  void SetWatchListener(std::function<void(int fd, int events)> listener);
  /// Milliseconds until RunTimers must be called (0: now), -1 when no timer is set.
  int64_t Timeout() const;
  /// A watched descriptor is ready for events (1 readable, 2 writable; both on an error).
  void Ready(int fd, int events);
  /// Runs the timers that are due.
  void RunTimers();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vmio
