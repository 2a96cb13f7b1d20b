#pragma once
// Elapsed time on the system's 32-bit millisecond tick counter.
#include <cstdint>

namespace vmio {

// Milliseconds since the system started, kept to 32 bits (wraps after about 49.7 days).
// Not a process clock: a cache whose last-read tick is 0 is stale on its first read.
int32_t TickCount();

// Milliseconds from start to end (now when omitted). Both are taken to their low 31 bits;
// an end below the start means the counter wrapped: 2^31 - start + end.
int32_t TickDiff(int32_t start);
int32_t TickDiff(int32_t start, int32_t end);

// The drivers' state caches: values read less than 501 ms ago are served from the port table,
// so a host polling every port costs about two requests a second per group.
inline bool CacheIsFresh(int32_t lastReadTick) { return TickDiff(lastReadTick) < 501; }

}  // namespace vmio
