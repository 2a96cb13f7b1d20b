#pragma once
// The logger's byte stream rebuilt from its input reports, apart from any device, so the
// folding can be checked on plain report sequences.
//
// Each 9-byte input report carries the newest bytes right-aligned at offsets 1..7 and, at
// offset 8, the running count of bytes the logger has sent (modulo 256). The count alone says
// how many bytes are new, so a repeated report adds nothing. A gap of more than 7 bytes
// cannot be in one report: the 7 present are taken and the stored count is put 7 behind the
// report's, so the next report counts against that (the logger's own protocol; kept as is).
//
// The ring holds 256 bytes and is never checked for overflow: more than 255 unread bytes
// overwrite older ones and the pending count wraps. Readers take bytes promptly.
#include <array>
#include <cstdint>
#include <span>

#include "hid/hid_device.h"

namespace vmio {

class ReportRing {
 public:
  // Adds the report's new bytes, oldest first.
  void Fold(const HidReport& report);
  // Starts counting from this report's counter with an empty ring.
  void Resync(const HidReport& report);
  // Empties the ring and keeps the counter.
  void Clear() { head_ = tail_ = 0; }

  // Bytes waiting: (head - tail) modulo 256.
  int32_t Pending() const { return (head_ - tail_) & 0xFF; }
  // Moves up to out.size() of the oldest waiting bytes to out; returns how many.
  int32_t Take(std::span<uint8_t> out);

  int32_t LastCount() const { return last_count_; }

 private:
  std::array<uint8_t, 256> buffer_{};
  int32_t head_ = 0;  // next index to write
  int32_t tail_ = 0;  // next index to read
  int32_t last_count_ = 0;
};

}  // namespace vmio
