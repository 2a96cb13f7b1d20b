/* The concurrent engine through the C interface, driven the way a host with its own poll loop
 * drives it: descriptors from the watch listener, the engine's time-out, ready and timers. */
#include <poll.h>
#include <stdio.h>
#include <string.h>

#include "capi_checks.h"
#include "vmio/vmio.h"

static char failure[512];

#define CHECK(cond)                                                                                                 \
  do {                                                                                                              \
    if (!(cond)) {                                                                                                  \
      snprintf(failure, sizeof failure, "line %d: %s (last error: %s)", __LINE__, #cond, vmio_error_description()); \
      goto done;                                                                                                    \
    }                                                                                                               \
  } while (0)

enum { kMaxFd = 4096, kMaxDevices = 64 };

/* What the watch listener was told: the interest of every descriptor, and how many there are. */
struct Watched {
  int events[kMaxFd];
  int count;
  int bad; /* a descriptor out of range, or one dropped that was never watched */
};

static void OnWatch(int fd, int events, void* context) {
  struct Watched* w = (struct Watched*)context;
  if (fd < 0 || fd >= kMaxFd || (!events && !w->events[fd])) {
    w->bad = 1;
    return;
  }
  w->count += (events != 0) - (w->events[fd] != 0);
  w->events[fd] = events;
}

/* What the events told about each device. */
struct Seen {
  int values[kMaxDevices]; /* VMIO_EVENT_VALUE events */
  int errors[kMaxDevices];
  int state[kMaxDevices]; /* the last state event's */
  uint64_t write_id;      /* the write waited for, and how it ended */
  int write_done;
  int32_t write_error;
  char write_description[128];
  int out_of_order; /* an event's time before the run began or after now */
};

static int Take(vmio_engine* engine, struct Seen* seen, int64_t start) {
  vmio_engine_event event;
  for (;;) {
    if (vmio_engine_next_event(engine, &event) != 0) return 0;
    if (event.kind == VMIO_EVENT_NONE) return 1;
    if (event.time_ms < start || event.time_ms > vmio_engine_now()) seen->out_of_order = 1;
    if (event.device > 0 && event.device < kMaxDevices) {
      if (event.kind == VMIO_EVENT_VALUE) ++seen->values[event.device];
      if (event.kind == VMIO_EVENT_ERROR) ++seen->errors[event.device];
      if (event.kind == VMIO_EVENT_STATE) seen->state[event.device] = event.state;
    }
    if (event.kind == VMIO_EVENT_WRITE && event.write_id == seen->write_id) {
      seen->write_done = 1;
      seen->write_error = event.error;
      snprintf(seen->write_description, sizeof seen->write_description, "%s", event.description);
    }
    vmio_engine_event_clear(&event);
  }
}

/* One turn of a host's loop: poll what the listener asked for, until the engine's time-out. */
static int Turn(vmio_engine* engine, const struct Watched* watched, int64_t limit_ms) {
  static struct pollfd fds[kMaxFd];
  nfds_t n = 0;
  int64_t timeout = -1;
  int fd;
  for (fd = 0; fd < kMaxFd; ++fd) {
    if (!watched->events[fd]) continue;
    fds[n].fd = fd;
    fds[n].events = (short)(((watched->events[fd] & VMIO_WATCH_READ) ? POLLIN : 0) |
                            ((watched->events[fd] & VMIO_WATCH_WRITE) ? POLLOUT : 0));
    fds[n].revents = 0;
    ++n;
  }
  if (vmio_engine_timeout(engine, &timeout) != 0) return 0;
  if (timeout < 0 || timeout > limit_ms) timeout = limit_ms;
  if (poll(fds, n, (int)timeout) < 0) return 0;
  for (nfds_t i = 0; i < n; ++i) {
    int events = 0;
    if (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) events |= VMIO_WATCH_READ;
    if (fds[i].revents & (POLLOUT | POLLHUP | POLLERR)) events |= VMIO_WATCH_WRITE;
    if (events && vmio_engine_ready(engine, fds[i].fd, events) != 0) return 0;
  }
  return vmio_engine_run_timers(engine) == 0;
}

/* Whether every live device has its values and every dead one is offline. */
static int Settled(vmio_engine* engine, const int32_t* ids, const int* live, int count) {
  for (int i = 0; i < count; ++i) {
    int32_t state = -1;
    size_t ports = 0;
    if (vmio_engine_state(engine, ids[i], &state) != 0) return 0;
    if (!live[i] && state != VMIO_STATE_OFFLINE) return 0;
    if (live[i] && (state != VMIO_STATE_ONLINE || vmio_engine_values(engine, ids[i], NULL, 0, &ports) != 0 || !ports))
      return 0;
  }
  return 1;
}

/* Runs the host loop until the write waited for has ended, or settled when none is. */
static int RunUntil(vmio_engine* engine, struct Watched* watched, struct Seen* seen, const int32_t* ids,
                    const int* live, int count, int64_t start) {
  const int64_t deadline = vmio_engine_now() + 20000;
  while (vmio_engine_now() < deadline) {
    if (!Turn(engine, watched, 50) || !Take(engine, seen, start)) return 0;
    if (seen->write_id ? seen->write_done : Settled(engine, ids, live, count)) return 1;
  }
  return 0;
}

const char* CheckEngineThroughC(int count, const char* const* classes, const char* const* devices, const int* live,
                                int camera) {
  static struct Watched watched;
  static struct Seen seen;
  vmio_engine* engine = NULL;
  vmio_object* objects[kMaxDevices] = {0};
  vmio_object* lister = NULL;
  int32_t ids[kMaxDevices] = {0};
  int32_t id = 0;
  int32_t state = 0;
  vmio_value value = {0};
  vmio_value values[8];
  size_t n = 0;
  const vmio_watch_options options = {200, 0, 0, 1000, 0}; /* stale after 400 ms, offline after 800 */
  int64_t start = vmio_engine_now();
  memset(&watched, 0, sizeof watched);
  memset(&seen, 0, sizeof seen);
  failure[0] = '\0';

  CHECK(count > 0 && count < kMaxDevices);
  CHECK(strcmp(vmio_device_state_name(VMIO_STATE_STALE), "stale") == 0 && vmio_device_state_name(4) == NULL);
  CHECK(vmio_engine_add(NULL, NULL, "x", NULL, &id) == 91);
  CHECK(vmio_engine_new(&engine) == 0 && engine != NULL);
  CHECK(vmio_engine_set_watch_listener(engine, OnWatch, &watched) == 0);

  /* What the engine refuses: no device, an object that is no device, one added twice. */
  CHECK(vmio_engine_add(engine, NULL, "x", NULL, &id) == 91);
  CHECK(vmio_create("logitenum", &lister) == 0);
  CHECK(vmio_engine_add(engine, lister, "x", NULL, &id) == 13 && id == 0);
  CHECK(vmio_engine_state(engine, 999, &state) == 9);
  CHECK(vmio_engine_write(engine, 999, 0, &value, NULL) == 9);

  for (int i = 0; i < count; ++i) {
    CHECK(vmio_create(classes[i], &objects[i]) == 0);
    CHECK(vmio_engine_add(engine, objects[i], devices[i], &options, &ids[i]) == 0 && ids[i] > 0);
    CHECK(ids[i] < kMaxDevices && (i == 0 || ids[i] != ids[i - 1]));
  }
  CHECK(vmio_engine_add(engine, objects[0], devices[0], &options, &id) == 457);
  /* The engine holds its own reference: the host's handles can go at once. */
  for (int i = 0; i < count; ++i) {
    vmio_release(objects[i]);
    objects[i] = NULL;
  }

  CHECK(RunUntil(engine, &watched, &seen, ids, live, count, start));
  /* Settled long before a dead device's own time-outs (5 s and more) end: none held up the rest. */
  CHECK(vmio_engine_now() - start < 3000);
  CHECK(!watched.bad && !seen.out_of_order);
  for (int i = 0; i < count; ++i) {
    CHECK(vmio_engine_state(engine, ids[i], &state) == 0);
    CHECK(vmio_engine_values(engine, ids[i], values, 8, &n) == 0);
    for (size_t v = 0; v < n && v < 8; ++v) vmio_value_clear(&values[v]);
    if (live[i]) {
      CHECK(state == VMIO_STATE_ONLINE && n > 0 && seen.values[ids[i]] == (int)n && seen.errors[ids[i]] == 0);
    } else {
      CHECK(state == VMIO_STATE_OFFLINE && n == 0 && seen.values[ids[i]] == 0);
    }
    CHECK(seen.state[ids[i]] == state);
  }
  {
    /* The descriptors the engine lists are those the listener was told of. */
    static vmio_engine_watch all[kMaxFd];
    CHECK(vmio_engine_descriptors(engine, all, kMaxFd, &n) == 0 && (int)n == watched.count);
    for (size_t i = 0; i < n; ++i) CHECK(all[i].fd < kMaxFd && watched.events[all[i].fd] == all[i].events);
  }

  /* Writes: each ends in its own event, a refused one with the error the port rules give. */
  value.type = VMIO_BOOL;
  value.integer = 1;
  CHECK(vmio_engine_write(engine, ids[camera], 4, &value, &seen.write_id) == 0 && seen.write_id != 0);
  CHECK(RunUntil(engine, &watched, &seen, ids, live, count, start));
  CHECK(seen.write_error == 0);
  seen.write_done = 0;
  CHECK(vmio_engine_write(engine, ids[camera], 0, &value, &seen.write_id) == 0);
  CHECK(RunUntil(engine, &watched, &seen, ids, live, count, start));
  CHECK(seen.write_error == 45004 && strcmp(seen.write_description, "Port 1is not an output port") == 0);

  CHECK(vmio_engine_remove(engine, ids[camera]) == 0);
  CHECK(vmio_engine_state(engine, ids[camera], &state) == 9 && vmio_engine_remove(engine, ids[camera]) == 9);

done:
  for (int i = 0; i < count && i < kMaxDevices; ++i) vmio_release(objects[i]);
  vmio_release(lister);
  vmio_engine_free(engine);
  return failure[0] ? failure : NULL;
}
