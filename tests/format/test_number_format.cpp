// The number formatter: sections, the number field, fractions, scientific
// form, dates and times, digit patterns, General, and text cells.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <string>

#include "format/kel_locale.h"
#include "format/xls_number_format.h"
#include "foundation/zuv_uni_string.h"
#include "workbook/kel_xls_records.h"

namespace {

const std::u16string kOverflow(XLS_FORMAT_LAST_NUMBER_POSITION, u'#');

const unsigned short* units(const std::u16string& text) {
  return reinterpret_cast<const unsigned short*>(text.c_str());
}

std::u16string S(const unsigned short* text) {
  return std::u16string(reinterpret_cast<const char16_t*>(text));
}

// The text of value in format, by the form without a width; *colour if asked.
std::u16string F(const std::u16string& format, double value, DRGBValue* colour = nullptr,
                 const xls_locale* locale = nullptr, bool date1904 = false) {
  unsigned short out[XLS_FORMAT_BUFFER_SIZE];
  memset(out, 0xAA, sizeof out);
  DRGBValue ignored;
  int length = xls_print_formatted_number(value, date1904, locale, units(format), out,
                                          colour ? colour : &ignored);
  EXPECT_EQ(static_cast<int>(ucs2_len(out)), length) << "length for " << value;
  return S(out);
}

bool same(const DRGBValue& a, uint8_t flags, uint8_t red, uint8_t green, uint8_t blue) {
  return a.flags == flags && a.red == red && a.green == green && a.blue == blue;
}

xls_locale european() {
  xls_locale locale = {};
  locale.decimal_separator = ',';
  locale.thousand_separator = '.';
  locale.date_separator = '.';
  locale.time_separator = ':';
  return locale;
}

TEST(NumberFormat, SectionsAndSign) {
  EXPECT_EQ(u"-1.50", F(u"0.00", -1.5));
  EXPECT_EQ(u"(1.50)", F(u"0.00;(0.00)", -1.5));
  EXPECT_EQ(u"-1.50", F(u"0.00;@", -1.5));  // "@" is no negative section
  EXPECT_EQ(u"-0", F(u"0", -0.001));         // a rounded zero keeps its sign
  EXPECT_EQ(u"", F(u"0;", -5));              // an empty negative section
  // Only the sign chooses: the third section and conditions have no effect.
  EXPECT_EQ(u"0", F(u"0;-0;\"zero\"", 0));
  EXPECT_EQ(u"3", F(u"[>5]0;0", 3));
  EXPECT_EQ(u"a;b1", F(u"\"a;b\"0", 1));     // a quoted ";" splits nothing
  EXPECT_EQ(u";5", F(u"\\;0", 5));

  DRGBValue colour;
  EXPECT_EQ(u"1.50", F(u"[Red]0.00", 1.5, &colour));
  EXPECT_TRUE(same(colour, 255, 255, 0, 0));
  EXPECT_EQ(u"2", F(u"[Red]0;[Blue]0", -2, &colour));
  EXPECT_TRUE(same(colour, 255, 0, 0, 255));
  EXPECT_EQ(u"2", F(u"0;[Blue]0", 2, &colour));
  EXPECT_TRUE(same(colour, 0, 0, 0, 0));  // the positive section has none
  F(u"[B]0", 1, &colour);                 // a prefix, the first name wins
  EXPECT_TRUE(same(colour, 255, 0, 0, 0));
  F(u"[Blu]0", 1, &colour);
  EXPECT_TRUE(same(colour, 255, 0, 0, 255));
  // Names are case-sensitive; a bracket that names nothing stays in the
  // text, where its letters are read: "e" is an exponent.
  EXPECT_EQ(u"1.e+0", F(u"[red]0", 1, &colour));
  EXPECT_TRUE(same(colour, 0, 0, 0, 0));

  // General, a null format and "@" show the value.
  EXPECT_EQ(u"1.5", F(u"general", 1.5, &colour));
  EXPECT_EQ(u"1.5", F(u"@", 1.5));
  unsigned short out[XLS_FORMAT_BUFFER_SIZE];
  EXPECT_EQ(4, xls_print_formatted_number(-2.5, false, nullptr, nullptr, out, &colour));
  EXPECT_EQ(u"-2.5", S(out));
}

TEST(NumberFormat, TheNumberField) {
  EXPECT_EQ(u"1.", F(u"0.##", 1.25));  // optional decimals drop their last run
  EXPECT_EQ(u"1.50", F(u"0.##", 1.5));
  EXPECT_EQ(u"", F(u"#", 0));
  EXPECT_EQ(u".50", F(u"#.##", 0.5));
  EXPECT_EQ(u"00012", F(u"00000", 12));
  EXPECT_EQ(u"  05", F(u"??00", 5));   // "?" pads with spaces only beside zeros
  EXPECT_EQ(u"1.5 ", F(u"0.0?", 1.5));
  EXPECT_EQ(u"1,234,567", F(u"#,##0", 1234567));
  EXPECT_EQ(u"1,234,567", F(u"#,##0,", 1234567));  // commas never scale
  EXPECT_EQ(u"00012.35", F(u"00,000.00", 12.345));  // padding zeros aren't grouped
  EXPECT_EQ(u"50%", F(u"0%", 0.5));
  // Sixteen significant digits, then zeros.
  EXPECT_EQ(u"12345678901234560000", F(u"0", 12345678901234567890.0));
  EXPECT_EQ(u"0.1234567890123456000", F(u"0.0000000000000000000", 0.12345678901234567));
  // Literal text splits the number from later placeholders.
  EXPECT_EQ(u"12x", F(u"0\"x\"0", 12));
  EXPECT_EQ(u" 1", F(u"_)0", 1));
  EXPECT_EQ(u"1", F(u"*-0", 1));
  EXPECT_EQ(u"", F(u"1", 5));  // no placeholder, no number
  EXPECT_EQ(u"$1", F(u"[$$-409]0", 1));
  EXPECT_EQ(u"\u20ac 3.14", F(u"[$\u20ac-2] 0.00", 3.14159));

  xls_locale locale = european();
  EXPECT_EQ(u"1.234,50", F(u"#,##0.00", 1234.5, nullptr, &locale));

  // What doesn't fit, and what isn't a number, is a row of "#".
  EXPECT_EQ(kOverflow, F(u"0", 1e300));
  EXPECT_EQ(kOverflow, F(u"0", INFINITY));
  EXPECT_EQ(kOverflow, F(u"\"x\"0", -INFINITY));
}

TEST(NumberFormat, ScientificForm) {
  EXPECT_EQ(u"1.00E+0", F(u"0.00E+00", 1));       // one zero less in a first "00"
  EXPECT_EQ(u"1.00E+10", F(u"0.00E+00", 1e100));
  EXPECT_EQ(u"-1.5E-05", F(u"0.0E+00", -1.5e-5));
  EXPECT_EQ(u"1.E+04", F(u"0E+00", 12345));       // a point even without decimals
  EXPECT_EQ(u"1.2e+01", F(u"0.0e+0", 12.34));
  EXPECT_EQ(u"1.2E+01", F(u"##0.0E+0", 12.34));   // one integer digit, always
  EXPECT_EQ(u"1.2E+01", F(u"0.0E+0 \"units\"", 12.34));  // the tail is dropped
  EXPECT_EQ(u"1.0000000000000000E+0", F(u"0.0000000000000000E+00", 1));
  xls_locale locale = european();
  EXPECT_EQ(u"1,50E+0", F(u"0.00E+00", 1.5, nullptr, &locale));
}

TEST(NumberFormat, Fractions) {
  EXPECT_EQ(u"2 1/2", F(u"# ?/?", 2.5));
  EXPECT_EQ(u"5/2", F(u"?/?", 2.5));       // no integer field: improper
  EXPECT_EQ(u"-5/2", F(u"?/?", -2.5));
  EXPECT_EQ(u"2    ", F(u"# ?/?", 2));     // nothing to show: a padded gap
  EXPECT_EQ(u"2    ", F(u"# ?/?", 2.3));   // 3/10: "?" admits 10, too wide
  EXPECT_EQ(u"2 1/4", F(u"# ?/4", 2.3));
  EXPECT_EQ(u"2 2/4", F(u"# ?/4", 2.5));
  EXPECT_EQ(u"2  3/16", F(u"# ?\?/16", 2.2));
  EXPECT_EQ(u"3 1/7", F(u"# ?/?\" left\"", 3.142857));  // what follows is lost
  EXPECT_EQ(u"5/x", F(u"0/0\"x\"", 5));   // integer zeros only: no fraction
  EXPECT_EQ(u"0     ", F(u"0 ?/?", 0.01));  // "0" and "?" both widen the numerator

  int32_t numerator = 0, denominator = 0;
  continued_fraction(-0.75, 100, &numerator, &denominator);
  EXPECT_EQ(-3, numerator);
  EXPECT_EQ(4, denominator);
  continued_fraction(M_PI - 3, 1000, &numerator, &denominator);
  EXPECT_EQ(16, numerator);  // 355/113 less 3
  EXPECT_EQ(113, denominator);
}

TEST(NumberFormat, DatesAndTimes) {
  // The 1900 calendar's own days, and its limits.
  EXPECT_EQ(u"1900-02-29", F(u"YYYY-MM-DD", 60));
  EXPECT_EQ(u"1900-01-00", F(u"yyyy-mm-dd", 0));
  EXPECT_EQ(u"1900-03-01", F(u"yyyy-mm-dd", 61));
  EXPECT_EQ(u"9999-12-31", F(u"yyyy-mm-dd", 2958465.999));
  EXPECT_EQ(kOverflow, F(u"yyyy-mm-dd", 2958466));
  EXPECT_EQ(kOverflow, F(u"d", -1));
  EXPECT_EQ(kOverflow, F(u"0 a", -1));     // a marker is a time field too
  EXPECT_EQ(u"1904-01-01", F(u"yyyy-mm-dd", 0, nullptr, nullptr, true));

  EXPECT_EQ(u"Wednesday, March 15, 2023", F(u"dddd, mmmm d, yyyy", 45000));
  EXPECT_EQ(u"Wed 15-Mar-23 M", F(u"ddd dd-mmm-yy mmmmm", 45000));
  EXPECT_EQ(u"y 2023y", F(u"y yyyyy", 45000));
  EXPECT_EQ(u"3/15", F(u"m/d", 45000));
  EXPECT_EQ(u"03", F(u"mm", 45000));       // alone, a month

  double afternoon = 45000 + (14 * 3600 + 5 * 60 + 9) / 86400.0;
  EXPECT_EQ(u"14:05:09", F(u"hh:mm:ss", afternoon));
  EXPECT_EQ(u"2:05 PM", F(u"h:mm AM/PM", afternoon));
  EXPECT_EQ(u"2:05 pm", F(u"h:mm am/pm", afternoon));
  EXPECT_EQ(u"14 P", F(u"hh A/P", afternoon));  // no AM/PM pair: 24 hours
  EXPECT_EQ(u"02", F(u"hhh", afternoon));        // three letters: twelve hours
  EXPECT_EQ(u"05:09", F(u"mm:ss", afternoon));   // ":s" behind: minutes
  EXPECT_EQ(u"14 5", F(u"h m", afternoon));      // after an hour: minutes
  EXPECT_EQ(u"009", F(u"sss", afternoon));

  // Half a second is added, fractions of a second are never computed.
  EXPECT_EQ(u"00:02.0", F(u"mm:ss.0", 1.5 / 86400));
  EXPECT_EQ(u"00:00", F(u"hh:mm", 0.99999999));
  EXPECT_EQ(u"14:05:09.00", F(u"hh:mm:ss.00", afternoon + 0.4 / 86400));

  // Elapsed time: every letter shows the total hours.
  EXPECT_EQ(u"36:00", F(u"[h]:mm", 1.5));
  EXPECT_EQ(u"36:00", F(u"[mm]:ss", 1.5));
  EXPECT_EQ(u"72:00:00", F(u"[h]:mm:ss", 2.9999999999999996));
  EXPECT_EQ(u"1:00 1", F(u"[h]:mm [h", 1.0 / 24));  // a new "[" is elapsed again

  xls_locale locale = european();
  unsigned short march[] = {'M', 0xE4, 'r', 'z', 0};
  locale.month_names[2][0] = march;
  EXPECT_EQ(u"15.3 M\u00e4rz", F(u"d/m mmmm", 45000, nullptr, &locale));
}

TEST(NumberFormat, DigitPatterns) {
  EXPECT_EQ(u"(555) 123-4567", F(u"(###) ###-####", 5551234567.0));
  EXPECT_EQ(u"000-12", F(u"000-00", 12));
  EXPECT_EQ(u"12345-67", F(u"000-00", 1234567));  // no digit is lost
  EXPECT_EQ(u"000-12", F(u"000-00", 12.9));        // truncated, not rounded
  EXPECT_EQ(u"867-5309", F(u"[<=9999999]###-####;(###) ###-####", 8675309));
  EXPECT_EQ(u"12-34", F(u"##\\-##", 1234));
  // A negative value has no digits: its one character is '0' plus the
  // negative remainder.
  EXPECT_EQ(u"000-0.", F(u"000-00", -12));
  EXPECT_TRUE(format_is_digit_pattern(units(u"0-0")));
  EXPECT_FALSE(format_is_digit_pattern(units(u"000")));
  EXPECT_FALSE(format_is_digit_pattern(units(u"0\\")));
  EXPECT_FALSE(format_is_digit_pattern(units(u"")));
}

TEST(NumberFormat, General) {
  EXPECT_EQ(u"0", F(u"General", 0));
  EXPECT_EQ(u"0.000000012", F(u"General", 1.2345e-8));
  EXPECT_EQ(u"1E-10", F(u"General", 1.2345e-10));
  EXPECT_EQ(u"2E+20", F(u"General", 1.5e20));      // one significant digit
  EXPECT_EQ(u"-1E+11", F(u"General", -123456789012.0));
  xls_locale locale = european();
  EXPECT_EQ(u"-1,5", F(u"General", -1.5, nullptr, &locale));
  // Inside a format no shortening: five decimals, four for a long exponent.
  DRGBValue colour;
  EXPECT_EQ(u"1.50000E+20", F(u"[Blue]General", 1.5e20, &colour));
  EXPECT_TRUE(same(colour, 255, 0, 0, 255));
  EXPECT_EQ(u"1.2346E+100", F(u"[Blue]General", 1.23456e100));
  EXPECT_EQ(u"-x2.5", F(u"\"x\"General", -2.5));

  // With a width: as many decimals as fit.
  biff_font font = {};
  font.height = 200;
  auto fitted = [&](double value, int32_t room, const biff_font* f) {
    unsigned short out[XLS_FORMAT_BUFFER_SIZE];
    int length = xls_print_formatted_number(value, false, room, f, nullptr, nullptr, out, &colour);
    EXPECT_EQ(static_cast<int>(ucs2_len(out)), length);
    return S(out);
  };
  EXPECT_EQ(u"1.2346", fitted(1.23456789, format_text_width(units(u"1.2346"), 6, &font), &font));
  EXPECT_EQ(u"1.23456789", fitted(1.23456789, 0, &font));
  EXPECT_EQ(u"0", fitted(0, 1, &font));
  EXPECT_EQ(u"99999", fitted(99999, 1, &font));  // too narrow, small: kept for the cell's "#"
  EXPECT_EQ(u"1E+05", fitted(123456.5, 1, &font));
  EXPECT_EQ(u"1.23457E+11", fitted(123456789012.0, 100000, &font));
  EXPECT_EQ(u"1.23E+11",
            fitted(123456789012.0, format_text_width(units(u"1.23E+11"), 8, &font), &font));
  // Eleven characters at most, twelve with a sign.
  EXPECT_EQ(u"-12345.12346", fitted(-12345.123456789, 100000, nullptr));
  EXPECT_LT(format_text_width(units(u"1"), 1, nullptr), format_text_width(units(u"1"), 1, &font));
}

TEST(NumberFormat, ParsedSections) {
  format_info_t info;
  ASSERT_EQ(0u, parse_format(units(u"[Red][>5]#,##0.00 h;[<0]\"x;y\"0/4;zero;@"), &info));
  EXPECT_EQ(u"#,##0.00 h", S(info.section[0].text));  // leading colour and condition cut
  EXPECT_TRUE(info.section[0].has_colour);
  EXPECT_TRUE(info.section[0].is_date);
  EXPECT_EQ(u"\"x;y\"0/4", S(info.section[1].text));  // third and fourth never read
  EXPECT_TRUE(info.section[1].has_fraction);
  EXPECT_FALSE(info.section[1].is_date);
  format_info_free(&info);

  ASSERT_EQ(0u, parse_format(units(u"General 0[Green] [hh]:mm AM/PM"), &info));
  EXPECT_EQ(u"General 0[Green] [hh]:mm AM/PM", S(info.section[0].text));  // kept mid-text
  EXPECT_TRUE(info.section[0].has_colour);
  EXPECT_TRUE(info.section[0].has_elapsed);
  EXPECT_TRUE(info.section[0].has_am_pm);
  EXPECT_EQ(nullptr, info.section[1].text);
  format_info_free(&info);

  ASSERT_EQ(0u, parse_format(units(u"General\\;x"), &info));
  EXPECT_FALSE(info.section[0].is_date);  // General's letters are no date
  format_info_free(&info);
  ASSERT_EQ(0u, parse_format(nullptr, &info));
  EXPECT_EQ(nullptr, info.section[0].text);
}

TEST(NumberFormat, SeparatorsCurrenciesAndText) {
  EXPECT_EQ(u',', xls_thousand_separator(nullptr));
  xls_locale locale = european();
  EXPECT_EQ(u'.', xls_thousand_separator(&locale));
  locale.thousand_separator = ',';  // the same as the decimal separator
  EXPECT_EQ(u'.', xls_thousand_separator(&locale));
  locale.decimal_separator = locale.thousand_separator = '.';
  EXPECT_EQ(u',', xls_thousand_separator(&locale));

  // Currencies past either end of the table are none.
  int32_t placement = -1;
  EXPECT_NE(nullptr, xls_currency_format(XLS_CURRENCY_COUNT - 1, &placement));
  EXPECT_EQ(nullptr, xls_currency_format(XLS_CURRENCY_COUNT, &placement));
  EXPECT_EQ(nullptr, xls_currency_format(-1, &placement));

  // Text cells: copied up to the room, never terminated, never coloured.
  unsigned short out[4] = {'x', 'x', 'x', 'x'};
  DRGBValue colour = {255, 1, 2, 3};
  EXPECT_EQ(5u, xls_print_formatted_text(units(u"hello"), 5, 0, nullptr, units(u"0.00"), out, 3,
                                         &colour));
  EXPECT_EQ(u"helx", std::u16string(reinterpret_cast<char16_t*>(out), 4));
  EXPECT_TRUE(same(colour, 0, 0, 0, 0));
}

}  // namespace
