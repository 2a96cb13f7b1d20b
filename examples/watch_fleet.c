/* Keeps a whole site fresh on one thread through the C interface, from the host's own poll
 * loop: watch_fleet_c LIST [SECONDS] [INTERVAL_MS], where LIST has one "CLASS DEVICE" per line
 * (`vmio-sim fleet --list FILE` writes one). Prints a summary: how many devices ended in each
 * state, how long until every online one had its values, and how often one went stale. */
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vmio/vmio.h>

enum { kMaxFd = 65536, kMaxDevices = 100000 };

/* The descriptors to poll, kept compact as the engine's watch listener tells of changes:
 * slot[fd] is the descriptor's place in watched, plus one (0: not watched). */
static struct pollfd watched[kMaxFd];
static nfds_t watched_count;
static nfds_t slot[kMaxFd];

static void OnWatch(int fd, int events, void* context) {
  (void)context;
  if (fd < 0 || fd >= kMaxFd) return;
  if (!events) {
    if (slot[fd]) { /* the last one takes its place */
      watched[slot[fd] - 1] = watched[--watched_count];
      slot[watched[slot[fd] - 1].fd] = slot[fd];
      slot[fd] = 0;
    }
    return;
  }
  if (!slot[fd]) {
    watched[watched_count].fd = fd;
    slot[fd] = ++watched_count;
  }
  watched[slot[fd] - 1].events =
      (short)(((events & VMIO_WATCH_READ) ? POLLIN : 0) | ((events & VMIO_WATCH_WRITE) ? POLLOUT : 0));
}

static int Fail(const char* what) {
  fprintf(stderr, "%s: error: %s\n", what, vmio_error_description());
  return 1;
}

int main(int argc, char** argv) {
  static int64_t first_value[kMaxDevices]; /* by id: when its first value came, 0 before */
  static char line[4096];
  const int seconds = argc > 2 ? atoi(argv[2]) : 5;
  const vmio_watch_options options = {argc > 3 ? atoi(argv[3]) : 1000, 0, 0, 0, 0};
  int32_t ids[kMaxDevices];
  int count = 0, went_stale = 0, i;
  int states[4] = {0, 0, 0, 0};
  int64_t start, end, all_values = 0;
  vmio_engine* engine = NULL;
  FILE* list = argc > 1 ? fopen(argv[1], "r") : NULL;
  if (!list) {
    fprintf(stderr, "usage: %s LIST [SECONDS] [INTERVAL_MS]\n", argv[0]);
    return 2;
  }
  if (vmio_engine_new(&engine) || vmio_engine_set_watch_listener(engine, OnWatch, NULL)) return Fail("engine");
  start = vmio_engine_now();
  while (count < kMaxDevices && fgets(line, sizeof line, list)) {
    char* device = strpbrk(line, " \t");
    vmio_object* object = NULL;
    if (line[0] == '#' || !device) continue;
    *device++ = '\0';
    device[strcspn(device, "\r\n")] = '\0';
    if (vmio_create(line, &object) || vmio_engine_add(engine, object, device, &options, &ids[count]))
      return Fail(device);
    vmio_release(object); /* the engine keeps its own reference */
    ++count;
  }
  fclose(list);

  end = start + seconds * 1000LL;
  for (int64_t now = start; now < end; now = vmio_engine_now()) {
    static struct pollfd ready[kMaxFd]; /* a copy: the engine changes watched while it runs */
    vmio_engine_event event;
    int64_t timeout = -1;
    nfds_t n = 0, p;
    if (vmio_engine_timeout(engine, &timeout)) return Fail("timeout");
    if (timeout < 0 || timeout > end - now) timeout = end - now;
    if (poll(watched, watched_count, (int)timeout) < 0) return Fail("poll");
    for (p = 0; p < watched_count; ++p) {
      if (watched[p].revents) ready[n++] = watched[p];
    }
    for (p = 0; p < n; ++p) {
      const short r = ready[p].revents;
      const int events = ((r & (POLLIN | POLLHUP | POLLERR)) ? VMIO_WATCH_READ : 0) |
                         ((r & (POLLOUT | POLLHUP | POLLERR)) ? VMIO_WATCH_WRITE : 0);
      if (vmio_engine_ready(engine, ready[p].fd, events)) return Fail("ready");
    }
    if (vmio_engine_run_timers(engine)) return Fail("timers");
    while (!vmio_engine_next_event(engine, &event) && event.kind != VMIO_EVENT_NONE) {
      if (event.kind == VMIO_EVENT_VALUE && event.device < kMaxDevices && !first_value[event.device])
        first_value[event.device] = event.time_ms;
      if (event.kind == VMIO_EVENT_STATE && event.state == VMIO_STATE_STALE) ++went_stale;
      vmio_engine_event_clear(&event);
    }
  }

  for (i = 0; i < count; ++i) {
    int32_t state = 0;
    if (vmio_engine_state(engine, ids[i], &state)) return Fail("state");
    ++states[state];
    if (state == VMIO_STATE_ONLINE && ids[i] < kMaxDevices && first_value[ids[i]] - start > all_values)
      all_values = first_value[ids[i]] - start;
  }
  printf(
      "devices %d: online %d, stale %d, offline %d, connecting %d; all values in %lld ms; went stale %d times in %d "
      "s\n",
      count, states[VMIO_STATE_ONLINE], states[VMIO_STATE_STALE], states[VMIO_STATE_OFFLINE],
      states[VMIO_STATE_CONNECTING], (long long)all_values, went_stale, seconds);
  vmio_engine_free(engine);
  return 0;
}
