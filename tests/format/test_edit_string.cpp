// Typed text to a value and a format: the order of the steps, and what each
// makes of the texts users type.
#include <gtest/gtest.h>

#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>

#include "format/kel_locale.h"
#include "format/xls_edit_string.h"
#include "formula/xls_datetime.h"
#include "foundation/zuv_uni_string.h"
#include "test_support.h"

namespace {

const unsigned short* u16(const char16_t* text) {
  return reinterpret_cast<const unsigned short*>(text);
}

std::u16string text_of(const unsigned short* text) {
  return text ? std::u16string(reinterpret_cast<const char16_t*>(text)) : u"(null)";
}

// The outcome of one typed text, copied out so that the result can be freed.
struct typed {
  uint32_t status = 0;
  uint32_t kind = bvt_empty;
  double number = 0;
  std::u16string string;
  std::u16string format;
  uint32_t flags = 0;
  uint8_t literal = 0;
};

typed type_in(const char16_t* text, const xls_locale* locale = nullptr,
              const char16_t* cell_format = nullptr, const auto_format_help_t* help = nullptr) {
  xls_autoformat_result result;
  typed out;
  out.status = xls_autoformat_edit_string(
      nullptr, 0, 0, cell_format ? u16(cell_format) : nullptr, u16(text),
      static_cast<unsigned>(std::char_traits<char16_t>::length(text)), locale, &result, help);
  const xls_basic_value_t& basic = result.value.u.basic;
  out.kind = basic.kind;
  if (basic.kind == bvt_long) out.number = basic.u.long_value;
  if (basic.kind == bvt_double) out.number = basic.u.double_value;
  if (basic.kind == bvt_string) out.string = text_of(basic.u.string);
  if (basic.kind == bvt_error) out.number = basic.u.error;
  if (basic.kind == bvt_bool) out.number = basic.u.boolean;
  out.format = text_of(result.format);
  out.flags = result.flags;
  out.literal = result.literal;
  xls_free_value(&result.value);
  if (!(help && help->builder)) free(result.format);
  return out;
}

xls_locale make_locale(int32_t order, unsigned short decimal = '.',
                       unsigned short thousands = ',') {
  xls_locale locale;
  memset(&locale, 0, sizeof locale);
  locale.decimal_separator = decimal;
  locale.thousand_separator = thousands;
  locale.time_separator = ':';
  locale.date_separator = '/';
  locale.date_order = order;
  return locale;
}

double serial_of(int year, int month, int day) {
  struct tm tm;
  datetime_init(&tm);
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  return datetime_tm_to_serial(&tm, false);
}

int this_year() {
  time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  return local.tm_year + 1900;
}

}  // namespace

TEST(EditString, LiteralsAndText) {
  typed t = type_in(u"'123");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(t.string, u"123");
  EXPECT_EQ(t.literal, XLS_AUTOFORMAT_LITERAL);
  EXPECT_EQ(t.format, u"(null)");

  t = type_in(u"42", nullptr, u"@");  // a text cell keeps digits as text
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(t.string, u"42");
  EXPECT_EQ(t.literal, 0);

  EXPECT_EQ(type_in(u"=").string, u"=");
  EXPECT_EQ(type_in(u"==1").string, u"==1");
  EXPECT_EQ(type_in(u"hello world").string, u"hello world");
  EXPECT_EQ(type_in(u"-").string, u"-");
  EXPECT_EQ(type_in(u"1/2/3/4").string, u"1/2/3/4");

  // A formula needs its cell (the formula tests type them into one),
  // unless the help says the text is none.
  t = type_in(u"=1+2");
  EXPECT_EQ(t.status, static_cast<uint32_t>(KEL_ERR_INVALID_ARGUMENT));
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_empty));
  auto_format_help_t help = {1, nullptr, nullptr};
  EXPECT_EQ(type_in(u"=1+2", nullptr, nullptr, &help).string, u"=1+2");

  // A journal's literal text replaces the typed one for strings only.
  auto_format_help_t literal = {0, u16(u"from journal"), nullptr};
  EXPECT_EQ(type_in(u"abc", nullptr, nullptr, &literal).string, u"from journal");
  EXPECT_EQ(type_in(u"7", nullptr, nullptr, &literal).number, 7);

  // Only length units count.
  xls_autoformat_result result;
  ASSERT_EQ(xls_autoformat_edit_string(nullptr, 0, 0, nullptr, u16(u"12345"), 2, nullptr,
                                       &result, nullptr),
            0u);
  EXPECT_EQ(result.value.u.basic.kind, static_cast<uint32_t>(bvt_long));
  EXPECT_EQ(result.value.u.basic.u.long_value, 12);
  xls_free_value(&result.value);
}

TEST(EditString, SimpleValues) {
  typed t = type_in(u"123");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_long));
  EXPECT_EQ(t.number, 123);
  EXPECT_EQ(t.format, u"(null)");

  t = type_in(u"  -2.5  ");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_EQ(t.number, -2.5);

  t = type_in(u"12345678901");  // beyond 32 bits
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_EQ(t.number, 12345678901.0);

  t = type_in(u"1e3");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_EQ(t.number, 1000);
  EXPECT_EQ(t.format, u"0.00E+00");

  t = type_in(u"true");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_bool));
  EXPECT_EQ(t.number, 1);
  EXPECT_EQ(t.format, u"(null)");
  t = type_in(u"FaLsE");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_bool));
  EXPECT_EQ(t.number, 0);

  t = type_in(u"#DIV/0!");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_error));
  EXPECT_EQ(t.number, xls_error_div0);
  EXPECT_EQ(type_in(u"#N/A").number, xls_error_na);
  EXPECT_EQ(type_in(u"#nonsense").kind, static_cast<uint32_t>(bvt_string));

  // A decimal comma reads "1,5" as one and a half.
  xls_locale comma = make_locale(XLS_DATE_DMY, ',', '.');
  t = type_in(u"1,5", &comma);
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_EQ(t.number, 1.5);

  xls_value_t value;
  EXPECT_EQ(xls_format_match_simple(u16(u"+"), nullptr, &value), 0);
  EXPECT_EQ(xls_format_match_simple(u16(u""), nullptr, &value), 0);
  EXPECT_EQ(xls_format_match_simple(u16(u"   "), nullptr, &value), 0);
  EXPECT_EQ(xls_format_match_simple(u16(u"12x"), nullptr, &value), 0);
}

TEST(EditString, Percents) {
  typed t = type_in(u"50%");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_EQ(t.number, 0.5);
  EXPECT_EQ(t.format, u"0%");

  t = type_in(u"12.5%");
  EXPECT_DOUBLE_EQ(t.number, 0.125);
  EXPECT_EQ(t.format, u"0.00%");

  t = type_in(u" %7");
  EXPECT_DOUBLE_EQ(t.number, 0.07);

  t = type_in(u"1,234%");
  EXPECT_DOUBLE_EQ(t.number, 12.34);

  // A cell that already shows percents keeps its format.
  t = type_in(u"50%", nullptr, u"0.0%");
  EXPECT_EQ(t.number, 0.5);
  EXPECT_EQ(t.format, u"(null)");
  // A quoted "%" is no percent format.
  EXPECT_EQ(type_in(u"50%", nullptr, u"0\"%\"").format, u"0%");

  EXPECT_EQ(type_in(u"%").kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(type_in(u"50%x").kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(type_in(u"1,23%").kind, static_cast<uint32_t>(bvt_string));
}

TEST(EditString, GroupedDigits) {
  typed t = type_in(u"1,234");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_EQ(t.number, 1234);
  EXPECT_EQ(t.format, u"#,##0");

  t = type_in(u"-12,345,678.25 ");
  EXPECT_EQ(t.number, -12345678.25);
  EXPECT_EQ(t.format, u"#,##0.00");

  EXPECT_EQ(type_in(u"1,23").string, u"1,23");
  EXPECT_EQ(type_in(u"1,2345").string, u"1,2345");
  EXPECT_EQ(type_in(u"1,234,56").string, u"1,234,56");
  EXPECT_EQ(type_in(u",123").string, u",123");

  // Groups by "." beside a decimal ",".
  xls_locale comma = make_locale(XLS_DATE_DMY, ',', '.');
  t = type_in(u"1.234,5", &comma);
  EXPECT_EQ(t.number, 1234.5);

  double number = 0;
  int failed = 0;
  const unsigned short* text = u16(u"1,234x");
  const unsigned short* end = check_thousand_separator(text, 'x', &number, nullptr, &failed);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(number, 1234);
  EXPECT_EQ(end, text + 5);
  end = check_thousand_separator(text, 0, &number, nullptr, &failed);
  EXPECT_EQ(failed, 1);
  EXPECT_EQ(end, text);
}

TEST(EditString, Amounts) {
  typed t = type_in(u"$5");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_EQ(t.number, 5);
  EXPECT_EQ(t.format, u"$#,##0");

  t = type_in(u"5$");  // the dollar written behind, as in Canadian French
  EXPECT_EQ(t.number, 5);
  EXPECT_EQ(t.format, u"#,##0 [$$-C0C]");

  t = type_in(u"$1,234.50");
  EXPECT_EQ(t.number, 1234.5);
  EXPECT_EQ(t.format, u"$#,##0.00");

  t = type_in(u"-$3");
  EXPECT_EQ(t.number, -3);
  EXPECT_EQ(t.format, u"$#,##0");

  EXPECT_EQ(type_in(u"\u20ac7").format, u"[$\u20ac-2] #,##0");
  EXPECT_EQ(type_in(u"7 \u20ac").format, u"#,##0 [$\u20ac-1]");
  EXPECT_EQ(type_in(u"\u00a39.99").format, u"[$\u00a3-809]#,##0.00");

  EXPECT_EQ(type_in(u"$").kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(type_in(u"$5 each").kind, static_cast<uint32_t>(bvt_string));

  // Through a builder, formats land in it rather than on the heap.
  ucs2_str_builder builder;
  ucs2_str_builder_init(&builder);
  auto_format_help_t help = {0, nullptr, &builder};
  EXPECT_EQ(type_in(u"$5", nullptr, nullptr, &help).format, u"$#,##0");
  EXPECT_EQ(text_of(ucs2_str_builder_str(&builder)), u"$#,##0");
  EXPECT_EQ(type_in(u"25%", nullptr, nullptr, &help).format, u"0%");
  EXPECT_EQ(text_of(ucs2_str_builder_str(&builder)), u"0%");
  ucs2_str_builder_destroy(&builder);
}

TEST(EditString, Dates) {
  // Month first without a locale: 4 March of this year.
  typed t = type_in(u"3/4");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_EQ(t.number, serial_of(this_year(), 3, 4));
  EXPECT_EQ(t.format, u"M/D/YYYY");
  EXPECT_EQ(t.flags, static_cast<uint32_t>(XLS_AUTOFORMAT_DATE_ENTRY));

  t = type_in(u"1/31/2024");
  EXPECT_EQ(t.number, serial_of(2024, 1, 31));
  EXPECT_EQ(t.number, 45322);

  xls_locale day_first = make_locale(XLS_DATE_DMY);
  t = type_in(u"3/4", &day_first);
  EXPECT_EQ(t.number, serial_of(this_year(), 4, 3));
  EXPECT_EQ(t.format, u"D/M/YYYY");
  t = type_in(u"31/1/24", &day_first);
  EXPECT_EQ(t.number, 45322);
  EXPECT_EQ(type_in(u"1/31/2024", &day_first).kind, static_cast<uint32_t>(bvt_string));

  // Year first, with the locale's own separator beside "/".
  xls_locale year_first = make_locale(XLS_DATE_YMD);
  year_first.date_separator = '-';
  t = type_in(u"2024-01-31", &year_first);
  EXPECT_EQ(t.number, 45322);
  EXPECT_EQ(t.format, u"YYYY/M/D");
  EXPECT_EQ(type_in(u"2024/1/31", &year_first).number, 45322);
  // Without that locale, "-" is no date separator.
  EXPECT_EQ(type_in(u"2024-01-31").kind, static_cast<uint32_t>(bvt_string));

  // Two-digit years: below 30 this century.
  EXPECT_EQ(type_in(u"1/1/29").number, serial_of(2029, 1, 1));
  EXPECT_EQ(type_in(u"1/1/30").number, serial_of(1930, 1, 1));

  EXPECT_EQ(type_in(u"13/1/2024").kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(type_in(u"1/0/2024").kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(type_in(u"1/x").kind, static_cast<uint32_t>(bvt_string));

  // The calendar follows the workbook; no workbook is 1900.
  xls_value_t value;
  unsigned short* format = nullptr;
  int not_date = 0;
  ASSERT_EQ(xls_format_date_if_avail(nullptr, nullptr, nullptr, u16(u"1/1/1904"), &value,
                                     &format, &not_date),
            0u);
  EXPECT_EQ(not_date, 0);
  EXPECT_EQ(tabulon_test::copied(value.u.basic.u.double_value), 1462);
  free(format);
  format = nullptr;
  ASSERT_EQ(xls_format_date_if_avail(nullptr, nullptr, nullptr, u16(u"soon"), &value,
                                     &format, &not_date),
            0u);
  EXPECT_EQ(not_date, 1);
  EXPECT_EQ(format, nullptr);
}

TEST(EditString, Times) {
  typed t = type_in(u"12:30");
  EXPECT_EQ(t.kind, static_cast<uint32_t>(bvt_double));
  EXPECT_DOUBLE_EQ(t.number, 12.5 / 24);
  EXPECT_EQ(t.format, u"h:mm");
  EXPECT_EQ(t.flags, static_cast<uint32_t>(XLS_AUTOFORMAT_DATE_ENTRY));

  EXPECT_EQ(type_in(u"12:30:15").format, u"h:mm:ss");
  EXPECT_DOUBLE_EQ(type_in(u"12:30:15").number, (12 * 3600 + 30 * 60 + 15) / 86400.0);

  t = type_in(u"1:30 PM");
  EXPECT_DOUBLE_EQ(t.number, 13.5 / 24);
  EXPECT_EQ(t.format, u"h:mm AM/PM");
  EXPECT_DOUBLE_EQ(type_in(u"12:15 am").number, 0.25 / 24);
  EXPECT_DOUBLE_EQ(type_in(u"12:15 PM").number, 12.25 / 24);
  EXPECT_EQ(type_in(u"1:30:05 p").format, u"h:mm:ss AM/PM");

  EXPECT_EQ(type_in(u"13:00 PM").kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(type_in(u"24:00").kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(type_in(u"12:60").kind, static_cast<uint32_t>(bvt_string));
  EXPECT_EQ(type_in(u"12:").kind, static_cast<uint32_t>(bvt_string));

  t = type_in(u"1/31/2024 18:00");
  EXPECT_DOUBLE_EQ(t.number, 45322.75);
  EXPECT_EQ(t.format, u"M/D/YYYY h:mm");
  EXPECT_EQ(type_in(u"1/31/2024 6:00 PM").number, 45322.75);
  EXPECT_EQ(type_in(u"1/31/202418:00").kind, static_cast<uint32_t>(bvt_string));
}
