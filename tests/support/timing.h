#pragma once
// How long a call took, on the wall clock and on this thread's processor.
#include <sys/resource.h>

#include <chrono>

namespace vmio::test {

using Clock = std::chrono::steady_clock;

inline long long MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

template <typename Call>
Clock::duration Timed(Call call) {
  const auto start = Clock::now();
  call();
  return Clock::now() - start;
}

// Microseconds of processor time this thread has used: a wait that sleeps uses few.
inline long CpuMicroseconds() {
  rusage r{};
  getrusage(RUSAGE_THREAD, &r);
  return (r.ru_utime.tv_sec + r.ru_stime.tv_sec) * 1000000L + r.ru_utime.tv_usec + r.ru_stime.tv_usec;
}

}  // namespace vmio::test
