// Text library: UTF-16 strings, UTF-8 conversion, numbers, the holder and
// the builders.
#include "foundation/zuv_uni_string.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <vector>

namespace {

// UTF-16 text in the engine's unit type, terminated.
std::vector<unsigned short> W(const std::u16string& text) {
  std::vector<unsigned short> units(text.begin(), text.end());
  units.push_back(0);
  return units;
}

std::u16string S(const unsigned short* text) {
  std::u16string out;
  for (; text && *text; ++text) out.push_back((char16_t)*text);
  return out;
}

const uint32_t kGeneral = KEL_ERR_GENERAL;

TEST(TextCompare, OrderCaseAndNulls) {
  EXPECT_LT(ucs2_cmp(W(u"ab").data(), W(u"abc").data()), 0);
  EXPECT_LT(ucs2_cmp(W(u"B").data(), W(u"a").data()), 0);  // code units: case counts
  EXPECT_EQ(0, ucs2_cmp(nullptr, W(u"").data()));
  EXPECT_EQ(0, ucs2_ncmp(W(u"abcX").data(), W(u"abcY").data(), 3));
  EXPECT_NE(0, ucs2_ncmp(W(u"abcX").data(), W(u"abcY").data(), 4));

  EXPECT_EQ(0, ucs2_cmpi(W(u"Total").data(), W(u"tOTAL").data()));
  // Second minus first: the opposite sign of ucs2_cmp.
  EXPECT_EQ('B' - 'A', ucs2_cmpi(W(u"a").data(), W(u"B").data()));
  EXPECT_LT(ucs2_cmpi(W(u"banana").data(), W(u"APPLE").data()), 0);
  EXPECT_GT(ucs2_cmpi(W(u"ab").data(), W(u"abc").data()), 0);
  EXPECT_EQ(0, ucs2_cmpi(nullptr, W(u"").data()));
  EXPECT_EQ(0, ucs2_cmpi(W(u"").data(), nullptr));
  EXPECT_EQ(1, ucs2_cmpi(nullptr, W(u"x").data()));
  EXPECT_EQ(-1, ucs2_cmpi(W(u"x").data(), nullptr));
  EXPECT_EQ(0, ucs2_ncmpi(W(u"SUMx").data(), W(u"sumy").data(), 3));
  EXPECT_NE(0, ucs2_ncmpi(W(u"SUMx").data(), W(u"sumy").data(), 4));

  EXPECT_EQ('a', ucs2_tolower('A'));
  EXPECT_EQ('Z', ucs2_toupper('z'));
  EXPECT_EQ(0x03C3, ucs2_toupper(0x03C3));  // above 0xFF nothing changes
  EXPECT_EQ(0x0410, ucs2_tolower(0x0410));
}

TEST(TextCopy, ConcatenateSearchDuplicate) {
  unsigned short buffer[16];
  ucs2_cat(ucs2_cpy(buffer, W(u"ab").data()), W(u"cd").data());
  ucs2_ncat(buffer, W(u"efgh").data(), 2);
  ucs2_ncat(buffer, W(u"g").data(), 5);  // stops at the end of the text
  EXPECT_EQ(u"abcdefg", S(buffer));
  EXPECT_EQ(7u, ucs2_len(buffer));
  EXPECT_EQ(buffer + 2, ucs2_n_chr(buffer, 3, 'c'));
  EXPECT_EQ(nullptr, ucs2_n_chr(buffer, 2, 'c'));    // beyond the count
  EXPECT_EQ(nullptr, ucs2_n_chr(buffer, 100, 'x'));  // stops at the end

  // dupl takes exactly the length, even across a zero, and terminates.
  const unsigned short raw[] = {'a', 0, 'b', 'c'};
  unsigned short* copy = ucs2_dupl(raw, 3);
  EXPECT_EQ(0, memcmp(raw, copy, sizeof raw - sizeof raw[0]));
  EXPECT_EQ(0, copy[3]);
  free(copy);
  copy = ucs2_ndup(W(u"abcdef").data(), 3);
  EXPECT_EQ(u"abc", S(copy));
  EXPECT_EQ(0u, ucs2_rdup(&copy, W(u"new").data()));
  EXPECT_EQ(u"new", S(copy));
  EXPECT_EQ(0u, ucs2_rdup(&copy, nullptr));
  EXPECT_EQ(nullptr, copy);

  char* narrow = ndup("xl/workbook.xml", 2);
  EXPECT_STREQ("xl", narrow);
  free(narrow);
  unsigned short* wide = dup2ucs2("K\xC3\xB6ln");
  EXPECT_EQ(u"K\x00F6ln", S(wide));
  narrow = dup2utf8(wide);
  EXPECT_STREQ("K\xC3\xB6ln", narrow);
  free(wide);
  free(narrow);
}

TEST(TextCopy, SharedNarrowString) {
  zuv_str8_t* name = str8_dup("xl/styles.xml");
  EXPECT_EQ(1u, name->use_count);
  zuv_str8_t* other = name;
  ++other->use_count;
  str8_unuse(&name);  // still used elsewhere: neither freed nor cleared
  EXPECT_EQ(other, name);
  EXPECT_STREQ("xl/styles.xml", other->text);
  str8_unuse(&other);
  EXPECT_EQ(nullptr, other);
  str8_unuse(&other);

  zuv_str8_t* part = str8_ndup("xl/worksheets/sheet1.xml", 13);
  EXPECT_STREQ("xl/worksheets", part->text);
  str8_unuse(&part);
  zuv_str8_t* room = str8_new(40);
  EXPECT_STREQ("", room->text);
  memset(room->text, 'x', 40);  // the whole length is usable, still terminated
  EXPECT_EQ(40u, strlen(room->text));
  str8_unuse(&room);
}

TEST(TextUtf8, WellFormed) {
  // One, two and three bytes, and the last character of the basic plane.
  const char* utf8 = "a\xC3\xA9\xE2\x82\xAC\xEF\xBF\xBF";
  unsigned short wide[16];
  EXPECT_EQ(4u, utf8_to_ucs2(wide, utf8));
  EXPECT_EQ(u"a\x00E9\x20AC\xFFFF", S(wide));
  char back[16];
  EXPECT_EQ(9u, ucs2_to_utf8(back, wide));
  EXPECT_STREQ(utf8, back);
  EXPECT_EQ(3u, ucs2n_to_utf8(back, wide, 2));
  EXPECT_STREQ("a\xC3\xA9", back);
  // A lone surrogate unit is written as U+FFFD.
  EXPECT_EQ(3u, encode_utf8_char(back, 0xD83D));
  EXPECT_EQ(0, memcmp(back, "\xEF\xBF\xBD", 3));

  EXPECT_EQ(2u, utf8_byte_to_char(utf8, 2));  // the second character begins before
  EXPECT_EQ(4u, utf8_byte_to_char(utf8, 100));
  EXPECT_EQ(3u, utf8_char_to_byte(utf8, 2));
  EXPECT_EQ(9u, utf8_char_to_byte(utf8, 100));
}

TEST(TextUtf8, MalformedBecomesReplacement) {
  const std::pair<const char*, std::u16string> cases[] = {
      {"\xF0\x9F\x98\x80!", u"\xFFFD!"},        // beyond the basic plane: one unit
      {"\xC0\x80", u"\xFFFD\xFFFD"},            // overlong
      {"\xE0\x9F\x80", u"\xFFFD\xFFFD\xFFFD"},  // overlong
      {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},  // an encoded surrogate
      {"\xE2\x82" "A", u"\xFFFD" "A"},          // cut short: one U+FFFD
      {"\x80" "b", u"\xFFFD" "b"},
      {"\xF5\x80", u"\xFFFD\xFFFD"},
      {"\xE2\x82", u"\xFFFD"},                  // cut by the terminator
  };
  for (const auto& c : cases) {
    unsigned short wide[16];
    utf8_to_ucs2(wide, c.first);
    EXPECT_EQ(c.second, S(wide)) << c.first;
  }
  unsigned short character = 1;
  EXPECT_EQ(2u, decode_utf8_char("\xE2\x82", &character));
  EXPECT_EQ(0xFFFD, character);
  EXPECT_EQ(4u, get_utf8_char_size("\xF0\x9F\x98\x80"));
  EXPECT_EQ(0u, decode_utf8_char("", &character));

  // A counted text isn't read past its count, even mid-sequence: the bytes
  // lie in a block of exactly their size.
  char* block = (char*)malloc(3);
  memcpy(block, "a\xE2\x82", 3);
  unsigned short wide[8];
  EXPECT_EQ(2u, utf8n_to_ucs2(wide, block, 3));
  EXPECT_EQ(u"a\xFFFD", S(wide));
  free(block);
  EXPECT_EQ(2u, utf8n_to_ucs2(wide, "ab\0cd", 5));  // stops at a zero
}

TEST(TextNumbers, LongFromText) {
  const unsigned short* end = nullptr;
  long value = 0;
  std::vector<unsigned short> text = W(u"  -42x");
  EXPECT_EQ(0u, ucs2_tol(text.data(), &end, &value));
  EXPECT_EQ(-42, value);
  EXPECT_EQ(text.data() + 5, end);

  EXPECT_EQ(0u, ucs2_tol(W(u"2147483647").data(), nullptr, &value));
  EXPECT_EQ(2147483647L, value);
  EXPECT_EQ(0u, ucs2_tol(W(u"-2147483648").data(), nullptr, &value));
  EXPECT_EQ(-2147483647L - 1, value);
  EXPECT_EQ(kGeneral, ucs2_tol(W(u"2147483648").data(), nullptr, &value));
  EXPECT_EQ(kGeneral, ucs2_tol(W(u"-2147483649").data(), nullptr, &value));
  EXPECT_EQ(kGeneral, ucs2_tol(W(u"99999999999").data(), nullptr, &value));
  EXPECT_EQ(kGeneral, ucs2_tol(nullptr, nullptr, &value));

  // No digit: 0 and success; a lone sign is used up.
  text = W(u"-");
  EXPECT_EQ(0u, ucs2_tol(text.data(), &end, &value));
  EXPECT_EQ(0, value);
  EXPECT_EQ(text.data() + 1, end);
  text = W(u"\t1");  // only 0x20 is a blank
  EXPECT_EQ(0u, ucs2_tol(text.data(), &end, &value));
  EXPECT_EQ(text.data(), end);
}

TEST(TextNumbers, DoubleFromText) {
  const unsigned short* end = nullptr;
  double value = 0;
  EXPECT_EQ(0u, ucs2_tog(W(u" -2.5e3").data(), nullptr, &value, false));
  EXPECT_EQ(-2500.0, value);
  EXPECT_EQ(0u, ucs2_tog(W(u"1,25").data(), nullptr, &value, true));
  EXPECT_EQ(1.25, value);
  EXPECT_EQ(0u, ucs2_tog(W(u".5").data(), nullptr, &value, false));
  EXPECT_EQ(0.5, value);
  EXPECT_EQ(0u, ucs2_tog(W(u"0.1").data(), nullptr, &value, false));
  EXPECT_EQ(0.1, value);  // correctly rounded

  std::vector<unsigned short> text = W(u"1,5");  // ',' isn't the mark here
  EXPECT_EQ(0u, ucs2_tog(text.data(), &end, &value, false));
  EXPECT_EQ(text.data() + 1, end);
  text = W(u"7e+%");  // an exponent without digits isn't taken
  EXPECT_EQ(0u, ucs2_tog(text.data(), &end, &value, false));
  EXPECT_EQ(7.0, value);
  EXPECT_EQ(text.data() + 1, end);

  for (const char16_t* bad : {u"", u".", u"-", u"e5", u"1e999"}) {
    text = W(bad);
    EXPECT_EQ(kGeneral, ucs2_tog(text.data(), &end, &value, false));
    EXPECT_EQ(text.data(), end);
  }

  for (const char16_t* yes : {u"  -3.5  ", u"1e2e3", u"1.2.3", u"+", u"-", u"7E"}) {
    EXPECT_TRUE(ucs2_is_number(W(yes).data(), false));
  }
  for (const char16_t* no : {u"", u".5", u"1 2", u"1x", u"1,5"}) {
    EXPECT_FALSE(ucs2_is_number(W(no).data(), false));
  }
  EXPECT_TRUE(ucs2_is_number(W(u"1,5").data(), true));
  EXPECT_FALSE(ucs2_is_number(nullptr, false));
}

TEST(TextNumbers, NarrowUnsigned) {
  const char* end = nullptr;
  const char* text = " +123x";
  EXPECT_EQ(123u, zuv_strtoul(text, &end, 10));
  EXPECT_EQ(text + 5, end);
  EXPECT_EQ(0x1Fu, zuv_strtoul("0x1F", nullptr, 16));
  EXPECT_EQ(4294967295u, zuv_strtoul("4294967295", nullptr, 10));
  EXPECT_EQ(4294967295u, zuv_strtoul("99999999999", nullptr, 10));  // saturates
  text = "-1";
  EXPECT_EQ(0u, zuv_strtoul(text, &end, 10));
  EXPECT_EQ(text, end);
}

TEST(TextNumbers, NumbersToText) {
  unsigned short buffer[300];
  EXPECT_EQ(10u, uni_printf_uint32(buffer, 4294967295u));
  EXPECT_EQ(u"4294967295", S(buffer));
  EXPECT_EQ(11u, zuv_printf_int32(buffer, -2147483647 - 1));
  EXPECT_EQ(u"-2147483648", S(buffer));
  EXPECT_EQ(19u, zuv_printf_int64(buffer, 9223372036854775807LL));
  EXPECT_EQ(u"9223372036854775807", S(buffer));
  // A negative value gives '0' plus its first (negative) remainder, alone.
  EXPECT_EQ(1u, zuv_printf_int64(buffer, -123));
  EXPECT_EQ(u"-", S(buffer));
  zuv_printf_int64(buffer, -10);
  EXPECT_EQ(u"0", S(buffer));

  EXPECT_EQ(9, ucs2_sprintf(buffer, 300, "%d|%s|%.1f", 42, "ab", 1.25));
  EXPECT_EQ(u"42|ab|1.2", S(buffer));
  EXPECT_EQ(5, ucs2_sprintf(buffer, 4, "%d", 12345));  // cut, full length told
  EXPECT_EQ(u"123", S(buffer));
  EXPECT_EQ(-1, ucs2_sprintf(buffer, 0, "%d", 1));
  std::string long_text(280, 'q');  // past what the holder keeps inside
  EXPECT_EQ(280, ucs2_sprintf(buffer, 300, "%s", long_text.c_str()));
  EXPECT_EQ(std::u16string(280, u'q'), S(buffer));

  struct tm time = {};
  time.tm_year = 124;
  time.tm_mon = 1;
  time.tm_mday = 29;
  EXPECT_EQ(10u, uni_printf_tm(buffer, 300, "%Y-%m-%d", &time));
  EXPECT_EQ(u"2024-02-29", S(buffer));
  EXPECT_EQ(0u, uni_printf_tm(buffer, 5, "%Y-%m-%d", &time));
  EXPECT_EQ(u"", S(buffer));
}

TEST(TextHash, Djb2XorOverTheLength) {
  EXPECT_EQ(5860902u, ucs2_hash(W(u"ab").data(), 2));
  EXPECT_EQ(358000238u, ucs2_hash(W(u"The quick brown fox").data(), 19));  // wraps
  const unsigned short with_zero[] = {'a', 0, 'b'};
  EXPECT_EQ(193410726u, ucs2_hash(with_zero, 3));
}

TEST(TextUnescape, QuotedText) {
  std::vector<unsigned short> text = W(u"\"a\\\"b\\\\c\"+1");
  unsigned short* result = nullptr;
  const unsigned short* behind = ucs2_cpy_unescape(&result, text.data());
  EXPECT_EQ(u"a\"b\\c", S(result));
  EXPECT_EQ(u"+1", S(behind));
  free(result);
  EXPECT_EQ(behind, ucs2_cpy_unescape(nullptr, text.data()));  // only stepped over

  text = W(u"'Sheet 1'!A1");
  behind = ucs2_cpy_unescape(&result, text.data());
  EXPECT_EQ(u"Sheet 1", S(result));
  EXPECT_EQ(u"!A1", S(behind));
  free(result);

  for (const char16_t* open : {u"\"abc", u"\"ab\\\"", u"\"ab\\", u""}) {
    text = W(open);
    result = text.data();
    EXPECT_EQ(nullptr, ucs2_cpy_unescape(&result, text.data()));
    EXPECT_EQ(nullptr, result);
  }
}

TEST(TextHolder, OnlyLongTextAllocates) {
  struct Case {
    unsigned length;
    bool utf8, inside;
  };
  for (const Case& c : {Case{127, false, true}, Case{128, false, false},
                        Case{255, true, true}, Case{256, true, false}}) {
    zuv_stack_str_t holder;
    ASSERT_EQ(0u, zuv_stack_create(&holder, c.length, c.utf8));
    char* text = zuv_stack_utf8(&holder);
    const char* self = (const char*)&holder;
    EXPECT_EQ(c.inside, text >= self && text < self + sizeof holder) << c.length;
    EXPECT_EQ(0, text[0]);
    // The whole length is usable, and the terminator is in place.
    if (c.utf8) {
      memset(text, 'x', c.length);
      EXPECT_EQ(c.length, strlen(text));
    } else {
      for (unsigned i = 0; i < c.length; ++i) zuv_stack_ucs2(&holder)[i] = 'x';
      EXPECT_EQ(c.length, ucs2_len(zuv_stack_ucs2(&holder)));
    }
    zuv_stack_free(&holder);
    EXPECT_EQ(1, holder.is_utf8);
    EXPECT_EQ(0u, holder.length);
  }
}

TEST(TextHolder, ConvertingCreation) {
  zuv_stack_str_t holder;
  ASSERT_EQ(0u, zuv_stack_create_from_utf8(&holder, "Z\xC3\xBCrich", false));
  EXPECT_EQ(6u, holder.length);
  EXPECT_EQ(u"Z\x00FCrich", S(zuv_stack_ucs2(&holder)));
  zuv_stack_free(&holder);

  // Long texts of both kinds go to the heap and come back whole.
  std::u16string long_text(200, u'\x00E9');
  ASSERT_EQ(0u, zuv_stack_create_from_ucs2(&holder, W(long_text).data(), true));
  EXPECT_EQ(400u, holder.length);  // bytes
  std::string utf8 = zuv_stack_utf8(&holder);
  zuv_stack_free(&holder);
  ASSERT_EQ(0u, zuv_stack_create_from_utf8(&holder, utf8.c_str(), false));
  EXPECT_EQ(200u, holder.length);
  EXPECT_EQ(long_text, S(zuv_stack_ucs2(&holder)));
  zuv_stack_free(&holder);
}

TEST(TextBuilder, ByteBuilderGrowth) {
  string_builder_t sb = {};
  ASSERT_EQ(0u, sb_reserve_min(&sb, 10));
  EXPECT_EQ(1024u, sb.capacity);
  ASSERT_EQ(0u, sb_add(&sb, "<row r=\""));
  ASSERT_EQ(0u, sb_add(&sb, '1'));
  ASSERT_EQ(0u, sb_add(&sb, "\"/>ignored", 3));
  EXPECT_EQ("<row r=\"1\"/>", std::string(sb.buffer, sb.length));
  ASSERT_EQ(0u, sb_reserve_min(&sb, 5000));
  EXPECT_EQ(1024u + 5000u, sb.capacity);

  std::string expected(sb.buffer, sb.length);
  for (int i = 0; i < 3000; ++i) {
    ASSERT_EQ(0u, sb_add(&sb, "abc"));
    expected += "abc";
  }
  EXPECT_EQ(expected, std::string(sb.buffer, sb.length));
  free(sb.buffer);
}

TEST(TextBuilder, WideBuilder) {
  ucs2_str_builder builder;
  ucs2_str_builder_init(&builder);
  EXPECT_EQ(u"", S(ucs2_str_builder_str(&builder)));
  ASSERT_EQ(0u, ucs2_str_builder_append(&builder, W(u"SUM(").data()));
  EXPECT_EQ(512, builder.capacity);
  ASSERT_EQ(0u, ucs2_str_builder_append_int(&builder, -12));
  ASSERT_EQ(0u, ucs2_str_builder_append_n(&builder, W(u");junk").data(), 1));
  EXPECT_EQ(u"SUM(-12)", S(ucs2_str_builder_str(&builder)));
  ASSERT_EQ(0u, ucs2_str_builder_reserve_min(&builder, 503));  // 8 + 503 < 512
  EXPECT_EQ(512, builder.capacity);
  ASSERT_EQ(0u, ucs2_str_builder_reserve_min(&builder, 504));
  EXPECT_EQ(8 + 512, builder.capacity);
  ASSERT_EQ(0u, ucs2_str_builder_reserve_min(&builder, 1000));
  EXPECT_EQ(8 + 1000, builder.capacity);
  ucs2_str_builder_destroy(&builder);

  ASSERT_EQ(0u, ucs2_str_builder_append_escaped(&builder, W(u"it's \"a\\b\"").data(), '"'));
  EXPECT_EQ(u"\"it''s \\\"a\\\\b\\\"\"", S(ucs2_str_builder_str(&builder)));
  ucs2_str_builder_destroy(&builder);
  // Backslashes aren't counted when room is reserved; they still fit.
  ASSERT_EQ(0u, ucs2_str_builder_append_escaped(
                    &builder, W(std::u16string(600, u'\\')).data(), '\''));
  EXPECT_EQ(u"'" + std::u16string(1200, u'\\') + u"'", S(ucs2_str_builder_str(&builder)));
  ucs2_str_builder_destroy(&builder);
}

TEST(TextBuilder, WideBuilderLimit) {
  ucs2_str_builder builder;
  ucs2_str_builder_init(&builder);
  ASSERT_EQ(0u, ucs2_str_builder_append(&builder, W(std::u16string(65534, u'a')).data()));
  // One more unit can't be held: refused, and the text is unchanged.
  EXPECT_EQ(kGeneral, ucs2_str_builder_append(&builder, W(u"b").data()));
  EXPECT_EQ(65534, builder.length);
  EXPECT_EQ(65534u, ucs2_len(ucs2_str_builder_str(&builder)));
  ucs2_str_builder_destroy(&builder);

  // Escaping that runs into the limit midway leaves the text as it was.
  ASSERT_EQ(0u, ucs2_str_builder_append(&builder, W(u"keep").data()));
  EXPECT_EQ(kGeneral, ucs2_str_builder_append_escaped(
                          &builder, W(std::u16string(40000, u'"')).data(), '"'));
  EXPECT_EQ(u"keep", S(ucs2_str_builder_str(&builder)));
  ucs2_str_builder_destroy(&builder);
}

}  // namespace
