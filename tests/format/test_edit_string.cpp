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

TEST(EditString, EachStepAndTheTextsNoStepTakes) {
  const uint32_t kLong = bvt_long, kDouble = bvt_double, kBool = bvt_bool, kError = bvt_error;
  const struct {
    const char16_t* text;
    uint32_t kind;
    double number;
    const char16_t* format;  // null: the cell keeps its own
  } cases[] = {
      // Simple values: a format only for an exponent.
      {u"123", kLong, 123, nullptr},
      {u"  -2.5  ", kDouble, -2.5, nullptr},
      {u"12345678901", kDouble, 12345678901.0, nullptr},  // beyond 32 bits
      {u"1e3", kDouble, 1000, u"0.00E+00"},
      {u"FaLsE", kBool, 0, nullptr},
      {u"true", kBool, 1, nullptr},
      {u"#DIV/0!", kError, xls_error_div0, nullptr},
      // Percents: the first "%" taken out, wherever it stands.
      {u"50%", kDouble, 0.5, u"0%"},
      {u"12.5%", kDouble, 0.125, u"0.00%"},
      {u" %7", kDouble, 0.07, u"0%"},
      {u"1,234%", kDouble, 12.34, u"0%"},
      // Grouped digits: groups of exactly three.
      {u"1,234", kDouble, 1234, u"#,##0"},
      {u"-12,345,678.25 ", kDouble, -12345678.25, u"#,##0.00"},
      // Amounts: the symbol's side chooses the format.
      {u"$1,234.50", kDouble, 1234.5, u"$#,##0.00"},
      {u"-$3", kDouble, -3, u"$#,##0"},
      {u"5$", kDouble, 5, u"#,##0 [$$-C0C]"},  // behind, as in Canadian French
      {u"\u20ac7", kDouble, 7, u"[$\u20ac-2] #,##0"},
      {u"7 \u20ac", kDouble, 7, u"#,##0 [$\u20ac-1]"},
      {u"\u00a39.99", kDouble, 9.99, u"[$\u00a3-809]#,##0.00"},
      // Times and a date with a time; the 12 of AM is midnight.
      {u"12:30:15", kDouble, (12 * 3600 + 30 * 60 + 15) / 86400.0, u"h:mm:ss"},
      {u"1:30 PM", kDouble, 13.5 / 24, u"h:mm AM/PM"},
      {u"12:15 am", kDouble, 0.25 / 24, u"h:mm AM/PM"},
      {u"12:15 PM", kDouble, 12.25 / 24, u"h:mm AM/PM"},
      {u"1:30:05 p", kDouble, (13.5 * 3600 + 5) / 86400, u"h:mm:ss AM/PM"},
      {u"1/31/2024 18:00", kDouble, 45322.75, u"M/D/YYYY h:mm"},
      {u"1/31/2024 6:00 PM", kDouble, 45322.75, u"M/D/YYYY h:mm"},
      // Dates: two-digit years below 30 are this century.
      {u"1/31/2024", kDouble, 45322, u"M/D/YYYY"},
      {u"1/1/29", kDouble, serial_of(2029, 1, 1), u"M/D/YYYY"},
      {u"1/1/30", kDouble, serial_of(1930, 1, 1), u"M/D/YYYY"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.text));
    typed t = type_in(c.text);
    EXPECT_EQ(0u, t.status);
    EXPECT_EQ(c.kind, t.kind);
    EXPECT_DOUBLE_EQ(c.number, t.number);
    EXPECT_EQ(c.format ? c.format : u"(null)", t.format);
  }
  EXPECT_EQ(static_cast<uint32_t>(XLS_AUTOFORMAT_DATE_ENTRY), type_in(u"12:30").flags);

  // What no step takes stays the typed text; "-" is no date separator
  // without a locale that says so.
  for (const char16_t* text :
       {u"#nonsense", u"=", u"==1", u"-", u"%", u"50%x", u"1,23%", u"1,23", u"1,2345",
        u"1,234,56", u",123", u"$", u"$5 each", u"13:00 PM", u"24:00", u"12:60", u"12:",
        u"1/31/202418:00", u"2024-01-31", u"13/1/2024", u"1/0/2024", u"1/x", u"1/2/3/4"}) {
    typed t = type_in(text);
    EXPECT_EQ(static_cast<uint32_t>(bvt_string), t.kind) << ::testing::PrintToString(text);
    EXPECT_EQ(text, t.string);
  }
}

TEST(EditString, ApostropheTextCellsFormulasAndTheJournal) {
  typed t = type_in(u"'123");
  EXPECT_EQ(t.string, u"123");
  EXPECT_EQ(t.literal, XLS_AUTOFORMAT_LITERAL);
  t = type_in(u"42", nullptr, u"@");  // a text cell keeps digits as text
  EXPECT_EQ(t.string, u"42");
  EXPECT_EQ(t.literal, 0);

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

  // Through a builder, formats land in it rather than on the heap.
  ucs2_str_builder builder;
  ucs2_str_builder_init(&builder);
  auto_format_help_t help_builder = {0, nullptr, &builder};
  EXPECT_EQ(type_in(u"$5", nullptr, nullptr, &help_builder).format, u"$#,##0");
  EXPECT_EQ(text_of(ucs2_str_builder_str(&builder)), u"$#,##0");
  EXPECT_EQ(type_in(u"25%", nullptr, nullptr, &help_builder).format, u"0%");
  EXPECT_EQ(text_of(ucs2_str_builder_str(&builder)), u"0%");
  ucs2_str_builder_destroy(&builder);

  // A cell that already shows percents keeps its format; a quoted "%"
  // shows none.
  t = type_in(u"50%", nullptr, u"0.0%");
  EXPECT_EQ(t.number, 0.5);
  EXPECT_EQ(t.format, u"(null)");
  EXPECT_EQ(type_in(u"50%", nullptr, u"0\"%\"").format, u"0%");

  // Only length units count.
  xls_autoformat_result result;
  ASSERT_EQ(xls_autoformat_edit_string(nullptr, 0, 0, nullptr, u16(u"12345"), 2, nullptr,
                                       &result, nullptr),
            0u);
  EXPECT_EQ(result.value.u.basic.u.long_value, 12);
  xls_free_value(&result.value);
}

TEST(EditString, DecimalCommaAndTheNumberReaders) {
  xls_locale comma = make_locale(XLS_DATE_DMY, ',', '.');
  EXPECT_EQ(type_in(u"1,5", &comma).number, 1.5);
  EXPECT_EQ(type_in(u"1.234,5", &comma).number, 1234.5);

  xls_value_t value;
  for (const char16_t* text : {u"+", u"", u"   ", u"12x"})
    EXPECT_EQ(xls_format_match_simple(u16(text), nullptr, &value), 0);

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

TEST(EditString, DatesFollowTheLocalesOrderAndTheWorkbooksCalendar) {
  // Month first without a locale: 4 March of this year.
  typed t = type_in(u"3/4");
  EXPECT_EQ(t.number, serial_of(this_year(), 3, 4));
  EXPECT_EQ(t.format, u"M/D/YYYY");
  EXPECT_EQ(t.flags, static_cast<uint32_t>(XLS_AUTOFORMAT_DATE_ENTRY));

  xls_locale day_first = make_locale(XLS_DATE_DMY);
  t = type_in(u"3/4", &day_first);
  EXPECT_EQ(t.number, serial_of(this_year(), 4, 3));
  EXPECT_EQ(t.format, u"D/M/YYYY");
  EXPECT_EQ(type_in(u"31/1/24", &day_first).number, 45322);
  EXPECT_EQ(type_in(u"1/31/2024", &day_first).kind, static_cast<uint32_t>(bvt_string));

  // Year first, with the locale's own separator beside "/".
  xls_locale year_first = make_locale(XLS_DATE_YMD);
  year_first.date_separator = '-';
  t = type_in(u"2024-01-31", &year_first);
  EXPECT_EQ(t.number, 45322);
  EXPECT_EQ(t.format, u"YYYY/M/D");
  EXPECT_EQ(type_in(u"2024/1/31", &year_first).number, 45322);

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
}
