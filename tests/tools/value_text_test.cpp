#include "value_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace vmio::cli {
namespace {

TEST(TypedValues, ReadBackAsTheyWereWrittenWithTheirTypeCodes) {
  const struct {
    const char* text;
    int32_t type;
  } cases[] = {
      {"empty", vtEmpty},
      {"bool:true", vtBool},
      {"u1:255", vtUI1},
      {"i2:-32768", vtI2},
      {"i4:2147483647", vtI4},
      {"r8:-0", vtR8},
      {"r8:5e-324", vtR8},
      {"r8:inf", vtR8},
      {"str:", vtString},
      {"str:two  blanks  ", vtString},
      {"str:a\\\\b\\r\\n\\t\\x01\\x7F", vtString},
      {"str:caf\xC3\xA9", vtString},
  };
  for (const auto& c : cases) {
    const auto value = ParseTypedValue(c.text);
    ASSERT_TRUE(value) << c.text;
    EXPECT_EQ(value->VarType(), c.type) << c.text;
    EXPECT_EQ(FormatTypedValue(*value), c.text);
  }
  EXPECT_EQ(*ParseTypedValue("bool:True"), Variant(true));
  EXPECT_EQ(*ParseTypedValue("str:x\\x41\\x4a"), Variant("xAJ"));
}

TEST(TypedValues, DoublesPrintInTheShortestFormThatReadsBackExactly) {
  EXPECT_EQ(FormatTypedValue(0.1), "r8:0.1");
  EXPECT_EQ(FormatTypedValue(100.0), "r8:100");
  EXPECT_EQ(FormatTypedValue(1.0 / 3), "r8:0.3333333333333333");
  EXPECT_EQ(FormatTypedValue(1e21), "r8:1e+21");
  EXPECT_EQ(FormatTypedValue(-2.5), "r8:-2.5");
  const double samples[] = {0.1 + 0.2,
                            std::nextafter(1.0, 2.0),
                            std::numeric_limits<double>::max(),
                            std::numeric_limits<double>::denorm_min(),
                            -123.456e-7,
                            2.0 / 3};
  for (const double d : samples) {
    const auto back = ParseTypedValue(FormatTypedValue(d));
    ASSERT_TRUE(back);
    const double got = back->AsDouble();
    EXPECT_EQ(std::memcmp(&got, &d, sizeof d), 0) << FormatTypedValue(d);
  }
  EXPECT_EQ(FormatTypedValue(0.1 + 0.2), "r8:0.30000000000000004");
}

TEST(TypedValues, MalformedTextOrOutOfRangeNumbersAreRejected) {
  for (const char* text :
       {"",       "Empty",    "int:1",  "i4",      "u1:256",     "u1:-1",    "i2:32768", "i4:2147483648",
        "i4:",    "i4:+1",    "i4: 1",  "i4:1 ",   "i4:0x10",    "r8:",      "r8:abc",   "r8:1e999",
        "r8:1,5", "bool:yes", "bool:1", "str:\\q", "str:ends\\", "str:\\x4", "str:\\xZZ"}) {
    EXPECT_FALSE(ParseTypedValue(text)) << text;
  }
}

TEST(TextEscapes, EveryControlCharacterAndBackslashIsEscapedAndReadsBack) {
  EXPECT_EQ(EscapeText("a\\b\r\n\t"), "a\\\\b\\r\\n\\t");
  EXPECT_EQ(EscapeText(std::string("\0\x01\x1F\x7F", 4)), "\\x00\\x01\\x1F\\x7F");
  EXPECT_EQ(EscapeText("\xC2\x85"), "\\xC2\\x85");  // NEL, a C1 control character
  EXPECT_EQ(EscapeText("\xFF"
                       "a\xC3"),
            "\\xFFa\\xC3");                                  // bytes that are not UTF-8
  EXPECT_EQ(EscapeText("\xED\xA0\x80"), "\\xED\\xA0\\x80");  // an encoded surrogate
  const std::string readable = "caf\xC3\xA9 \xC2\xA0\xE2\x82\xAC \xF0\x9F\x98\x80 ~";
  EXPECT_EQ(EscapeText(readable), readable);

  std::string every_byte;
  for (int b = 0; b < 256; ++b) every_byte += static_cast<char>(b);
  const std::string escaped = EscapeText(every_byte);
  EXPECT_EQ(escaped.find_first_of(std::string("\r\n\0", 3)), std::string::npos);
  EXPECT_EQ(UnescapeText(escaped), every_byte);
  EXPECT_EQ(UnescapeText("\\x4a\\x4A"), "JJ");
}

}  // namespace
}  // namespace vmio::cli
