#include <gtest/gtest.h>

#include <vector>

#include "core/common.h"
#include "core/numeric.h"
#include "core/split2d.h"
#include "core/string_encoding.h"
#include "support/raised.h"

namespace vmio {
namespace {

TEST(Split2D, CutsRowsAndKeepsOnlyTheFirstTwoColumns) {
  const std::string text = "a=1\nb=2=3\nplain\n\nk=v\r";
  const Split2DTable table = Split2D(text, "=", "\n");
  ASSERT_EQ(table.size(), 5u);
  const std::vector<Split2DRow> t(table.begin(), table.end());
  ASSERT_EQ(t.size(), 5u);
  EXPECT_EQ(t[0].key, "a");
  EXPECT_EQ(t[0].value, "1");
  EXPECT_EQ(t[1].value, "2");  // a value holding the separator is cut at it
  EXPECT_EQ(t[2].key, "plain");
  EXPECT_EQ(t[2].value, "");
  EXPECT_EQ(t[3].key, "");
  EXPECT_EQ(t[4].value, "v\r");  // separators are not trimmed
}

TEST(Split2D, EmptyTextRaisesSubscriptOutOfRange) {
  EXPECT_EQ(test::Raised([] { Split2D(std::string_view{}, "=", "\n"); }), "9 Subscript out of range");
}

TEST(TickDiff, MeasuresAcrossTheThirtyOneBitWrap) {
  EXPECT_EQ(TickDiff(0x7FFFFFF0, 0x10), 32);
  EXPECT_EQ(TickDiff(100, 350), 250);
  // The top bit is masked off both values, so a full 32-bit wrap still measures right.
  EXPECT_EQ(TickDiff(static_cast<int32_t>(0xFFFFFFF0u), 0x10), 32);
  EXPECT_GE(TickDiff(0), 0);
}

TEST(StringEncoding, Codepage1252RoundTripsEveryByte) {
  std::vector<uint8_t> all(256);
  for (int i = 0; i < 256; ++i) all[i] = static_cast<uint8_t>(i);
  const std::string text = BytesToString(all, kCodePage1252);
  EXPECT_EQ(StringToBytes(text, kCodePage1252), all);
  EXPECT_EQ(BytesToString(std::vector<uint8_t>{0x80, 0x41}, kCodePage1252),
            "\u20AC"
            "A");
  EXPECT_EQ(BytesToString(std::vector<uint8_t>{0x9F, 0xE9}, kCodePage1252), "\u0178\u00E9");
  EXPECT_EQ(BytesToString(std::vector<uint8_t>{0x81}, kCodePage1252), "\u0081");
  EXPECT_EQ(StringToBytes("\u4E2D", kCodePage1252), std::vector<uint8_t>{'?'});
  EXPECT_TRUE(BytesToString({}, kCodePage1252).empty());
  EXPECT_TRUE(StringToBytes("", kCodePage1252).empty());
}

TEST(Val, ReadsTheLeadingNumberLeniently) {
  EXPECT_EQ(Val("12abc"), 12);
  EXPECT_EQ(Val(" 1 2 "), 12);
  EXPECT_EQ(Val("-3.5e1x"), -35);
  EXPECT_EQ(Val("1\r"), 1);
  EXPECT_EQ(Val("abc"), 0);
  EXPECT_EQ(Val(""), 0);
  EXPECT_EQ(Val("&H1F"), 31);
  EXPECT_EQ(Val("&HFFFF"), -1);
  EXPECT_EQ(Val("'2'"), 0);
  EXPECT_EQ(RoundToInt32(2.5), 2);
  EXPECT_EQ(RoundToInt32(3.5), 4);
  EXPECT_EQ(test::Raised([] { RoundToInt32(3e9); }), "6 Overflow");
}

}  // namespace
}  // namespace vmio
