// The LogIT report folding on any report sequence. Each step is one byte choosing what the
// driver would do next, then a 9-byte report: fold it, resync on it, take some bytes or clear.
// The ring stays within its 256 bytes; a fold into an empty ring yields the report's newest bytes.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "devices/logit/report_ring.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kStep = 1 + 9;
  vmio::ReportRing ring;
  std::array<uint8_t, 256> out{};
  for (size_t at = 0; at + kStep <= size; at += kStep) {
    const uint8_t op = data[at];
    vmio::HidReport report;
    std::copy_n(data + at + 1, report.size(), report.begin());
    const int32_t before = ring.Pending();
    switch (op % 4) {
      case 0: {
        ring.Fold(report);
        const int32_t added = (ring.Pending() - before) & 0xFF;
        if (added > 7) std::abort();
        if (before == 0) {
          const int32_t taken = ring.Take(out);
          if (taken != added || !std::equal(out.begin(), out.begin() + taken, report.begin() + 8 - taken)) std::abort();
        }
        break;
      }
      case 1:
        ring.Resync(report);
        if (ring.Pending() != 0 || ring.LastCount() != report[8]) std::abort();
        break;
      case 2: {
        const size_t wanted = report[0];  // how many bytes the reader asks for
        const int32_t taken = ring.Take(std::span(out).first(wanted));
        if (taken != std::min<int32_t>(before, static_cast<int32_t>(wanted)) || ring.Pending() != before - taken)
          std::abort();
        break;
      }
      default:
        ring.Clear();
        if (ring.Pending() != 0) std::abort();
    }
    if (ring.LastCount() < 0 || ring.LastCount() > 255) std::abort();
  }
  return 0;
}
