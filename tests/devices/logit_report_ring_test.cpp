// The logger's byte stream rebuilt from plain report sequences, with no device involved.
#include <gtest/gtest.h>

#include <vector>

#include "devices/logit/report_ring.h"

namespace vmio {
namespace {

// A report carrying data at offsets 1..7 and the counter at 8.
HidReport Report(std::vector<uint8_t> data, uint8_t counter) {
  HidReport r{};
  for (size_t i = 0; i < data.size(); ++i) r[8 - data.size() + i] = data[i];
  r[8] = counter;
  return r;
}

std::vector<uint8_t> TakeAll(ReportRing& ring) {
  std::vector<uint8_t> out(256);
  out.resize(static_cast<size_t>(ring.Take(out)));
  return out;
}

TEST(LogITReportRing, TheCounterAloneSaysWhichBytesAreNew) {
  ReportRing ring;
  ring.Resync(Report({}, 250));
  ring.Fold(Report({}, 250));
  EXPECT_EQ(ring.Pending(), 0) << "a repeated counter adds nothing";
  ring.Fold(Report({1, 2, 3, 4, 5, 6, 7}, 252));
  EXPECT_EQ(TakeAll(ring), (std::vector<uint8_t>{6, 7})) << "only the newest two, oldest first";
  ring.Fold(Report({1, 2, 3, 4, 0xA, 0xB, 0xC}, 252));
  EXPECT_EQ(ring.Pending(), 0) << "same counter, other stale bytes: still nothing";
  // 255 -> 2 wraps: three bytes at offsets 5, 6, 7.
  ring.Resync(Report({}, 255));
  ring.Fold(Report({9, 9, 9, 9, 0x21, 0x22, 0x23}, 2));
  EXPECT_EQ(TakeAll(ring), (std::vector<uint8_t>{0x21, 0x22, 0x23}));
  EXPECT_EQ(ring.LastCount(), 2);
}

TEST(LogITReportRing, AGapOfMoreThanSevenTakesSevenAndCountsTheNextReportFromSevenBehind) {
  ReportRing ring;
  ring.Resync(Report({}, 100));
  ring.Fold(Report({1, 2, 3, 4, 5, 6, 7}, 110));
  EXPECT_EQ(TakeAll(ring), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(ring.LastCount(), 103);
  // The same report again is counted against 103, so its seven bytes come in once more.
  ring.Fold(Report({1, 2, 3, 4, 5, 6, 7}, 110));
  EXPECT_EQ(ring.Pending(), 7);
  // 3 -> 20 is 17 ahead: the stored counter is 20 - 7; below zero it wraps.
  ring.Resync(Report({}, 3));
  ring.Fold(Report({7, 6, 5, 4, 3, 2, 1}, 20));
  EXPECT_EQ(ring.LastCount(), 13);
  ring.Resync(Report({}, 250));
  ring.Fold(Report({7, 6, 5, 4, 3, 2, 1}, 4));
  EXPECT_EQ(ring.LastCount(), 253) << "(4 - 7) AND 255";
}

TEST(LogITReportRing, BytesBeyondARequestWaitForTheNextAndOverflowWrapsThePendingCount) {
  ReportRing ring;
  ring.Resync(Report({}, 0));
  ring.Fold(Report({10, 11, 12, 13, 14}, 5));
  std::vector<uint8_t> three(3);
  EXPECT_EQ(ring.Take(three), 3);
  EXPECT_EQ(three, (std::vector<uint8_t>{10, 11, 12}));
  EXPECT_EQ(ring.Pending(), 2);
  ring.Fold(Report({15}, 6));
  EXPECT_EQ(TakeAll(ring), (std::vector<uint8_t>{13, 14, 15}));

  // 259 unread bytes: the ring keeps its last 256 writes and reports 3 pending (wrapped).
  uint8_t counter = 6;
  for (int i = 0; i < 37; ++i) ring.Fold(Report({1, 2, 3, 4, 5, 6, 7}, counter += 7));
  EXPECT_EQ(ring.Pending(), 259 % 256);
  ring.Clear();
  EXPECT_EQ(ring.Pending(), 0);
  EXPECT_EQ(ring.LastCount(), counter) << "Clear keeps the counter";
}

}  // namespace
}  // namespace vmio
