#include "devices/logit/report_ring.h"

namespace vmio {

void ReportRing::Fold(const HidReport& report) {
  const int32_t counter = report[8];
  int32_t n = (counter - last_count_) & 0xFF;
  last_count_ = counter;
  if (n > 7) {
    last_count_ = (counter - 7) & 0xFF;
    n = 7;
  }
  for (int32_t k = n; k >= 1; --k) {
    buffer_[static_cast<size_t>(head_)] = report[static_cast<size_t>(8 - k)];
    head_ = (head_ + 1) & 0xFF;
  }
}

void ReportRing::Resync(const HidReport& report) {
  last_count_ = report[8];
  Clear();
}

int32_t ReportRing::Take(std::span<uint8_t> out) {
  int32_t received = 0;
  while (tail_ != head_ && static_cast<size_t>(received) < out.size()) {
    out[static_cast<size_t>(received++)] = buffer_[static_cast<size_t>(tail_)];
    tail_ = (tail_ + 1) & 0xFF;
  }
  return received;
}

}  // namespace vmio
