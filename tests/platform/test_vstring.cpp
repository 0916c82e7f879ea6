// VString: what each encoding reads as, and conversions between them.
#include <gtest/gtest.h>

#include <string>

#include "zuv_platform.h"

namespace {

std::u16string wide(VString& s) {
  EXPECT_EQ(0u, s.Convert(VString::kWide));
  const uint16_t* p = s.GetWideStringPointer();
  return p ? std::u16string(reinterpret_cast<const char16_t*>(p)) : u"<null>";
}

std::string utf8(VString& s) {
  EXPECT_EQ(0u, s.Convert(VString::kUtf8));
  const char* p = s.GetUtf8StringPointer();
  return p ? p : "<null>";
}

TEST(VString, CodePageConvertsThroughUnicode) {
  VString s;
  // 0x80 is the euro sign; 0x81 is unassigned and stays U+0081.
  ASSERT_EQ(0u, s.SetString("\x80" "A\xE9\x9F\x81", VString::kCodePage, -1));
  EXPECT_EQ(5u, s.GetNumChars());
  EXPECT_EQ(nullptr, s.GetWideStringPointer());  // held as bytes
  EXPECT_EQ(u"\u20AC" u"A\u00E9\u0178\u0081", wide(s));
  EXPECT_EQ("\xE2\x82\xAC" "A\xC3\xA9\xC5\xB8\xC2\x81", utf8(s));
  ASSERT_EQ(0u, s.Convert(VString::kCodePage));
  EXPECT_STREQ("\x80" "A\xE9\x9F\x81", static_cast<const char*>(s.GetData()));
  // What the code page lacks becomes '?'.
  ASSERT_EQ(0u, s.SetString(u"\u4E2D\u00FC", VString::kWide, -1));
  ASSERT_EQ(0u, s.Convert(VString::kCodePage));
  EXPECT_STREQ("?\xFC", static_cast<const char*>(s.GetData()));
}

TEST(VString, Utf8MultibyteBothWays) {
  VString s;
  const char* text = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80x";  // é € U+1F600 x
  ASSERT_EQ(0u, s.SetString(text, VString::kUtf8, -1));
  EXPECT_EQ(5u, s.GetNumChars());  // the emoji is a surrogate pair
  EXPECT_EQ(u"\u00E9\u20AC\U0001F600x", wide(s));
  EXPECT_EQ(text, utf8(s));
  // Malformed input: a cut sequence and an overlong '/' give U+FFFD a byte.
  ASSERT_EQ(0u, s.SetString("\xC3" "A\xC0\xAF", VString::kUtf8, -1));
  EXPECT_EQ(u"\uFFFDA\uFFFD\uFFFD", wide(s));
}

TEST(VString, LengthsTerminatorsAndBadInput) {
  VString s;
  ASSERT_EQ(0u, s.SetString(u"abcdef", VString::kWide, 3));
  EXPECT_EQ(u"abc", wide(s));
  // A terminator within the length ends the text (narrow properties count
  // theirs).
  ASSERT_EQ(0u, s.SetString("ab\0cd", VString::kCodePage, 5));
  EXPECT_EQ(2u, s.GetNumChars());
  ASSERT_EQ(0u, s.SetString(nullptr, VString::kUtf8, 4));
  EXPECT_EQ(0u, s.GetNumChars());
  EXPECT_EQ(u"", wide(s));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, s.SetString("x", 2, -1));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, s.Convert(7));
  EXPECT_EQ(u"", wide(s));  // unchanged by the refusals
}

}  // namespace
