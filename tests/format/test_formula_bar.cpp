// The edit text of cells: formats classified by their date, time and
// percent letters, dates and times in the locale's fixed edit forms, and
// numbers in the shortest text that keeps their digits.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "format/kel_locale.h"
#include "format/xls_formula_bar.h"
#include "formula/xls_expr.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"

namespace {

const unsigned short* u16(const char16_t* text) {
  return reinterpret_cast<const unsigned short*>(text);
}

std::u16string text_of(const unsigned short* text) {
  return text ? std::u16string(reinterpret_cast<const char16_t*>(text)) : u"(null)";
}

xls_locale make_locale(int32_t order, int32_t hour24, unsigned short decimal = '.') {
  xls_locale locale;
  memset(&locale, 0, sizeof locale);
  locale.decimal_separator = decimal;
  locale.time_separator = ':';
  locale.date_separator = '/';
  locale.date_order = order;
  locale.hour24 = hour24;
  return locale;
}

// The edit text of value (taken over and freed) under format.
std::u16string edit(xls_value_t value, const char16_t* format = nullptr,
                    const xls_locale* locale = nullptr, uint32_t flags = 0,
                    uint32_t* status = nullptr) {
  xls_formula_bar_params params = {};
  params.value = &value;
  params.format = format ? u16(format) : nullptr;
  params.locale = locale;
  params.flags = flags;
  uint32_t result = xls_create_formula_bar_str(&params);
  if (status) *status = result;
  std::u16string text = text_of(params.result);
  free(params.result);
  xls_free_value(&value);
  return text;
}

xls_value_t num(double number) {
  xls_value_t v;
  xls_value_double(&v, number);
  return v;
}

TEST(FormatFamily, DateTimeAndPercentLettersOutsideQuotesAndBrackets) {
  const std::pair<const char16_t*, int> formats[] = {
      {u"", 0},         {u"General", 0},    {u"\"day\"0", 0},       {u"\\d0", 0},
      {u"[Red]0", 0},   {u"_(0_)", 0},      {u"M/D/YYYY", 5},       {u"mmm", 5},
      {u"mm d", 5},     {u"h:mm", 6},       {u"mm:ss", 6},          {u"[mm]:ss", 6},
      {u"AM/PM", 6},    {u"[$-409]h:mm", 6}, {u"M/D/YYYY h:mm", 7}, {u"d h:mm", 7},
      {u"0.00%", 8},    {u"0\"%\"", 0},
  };
  EXPECT_EQ(0, format_family(nullptr));
  for (const auto& format : formats)
    EXPECT_EQ(format.second, format_family(u16(format.first)))
        << std::string(format.first, format.first + std::char_traits<char16_t>::length(format.first));
}

TEST(FormulaBar, StringsErrorsBooleansAndEmpty) {
  xls_value_t v;
  xls_value_string(&v, ucs2_dup(u16(u"123")));
  EXPECT_EQ(u"123", edit(v));
  xls_value_string(&v, ucs2_dup(u16(u"123")));
  EXPECT_EQ(u"'123", edit(v, nullptr, nullptr, XLS_FORMULA_BAR_APOSTROPHE));
  xls_value_string(&v, nullptr);
  EXPECT_EQ(u"'", edit(v, nullptr, nullptr, XLS_FORMULA_BAR_APOSTROPHE));
  xls_value_error(&v, xls_error_div0);
  EXPECT_EQ(u"#DIV/0!", edit(v));
  xls_locale german = make_locale(XLS_DATE_DMY, 1, ',');
  german.true_word = ucs2_dup(u16(u"WAHR"));
  xls_value_bool(&v, true);
  EXPECT_EQ(u"WAHR", edit(v, nullptr, &german));
  xls_value_bool(&v, false);
  EXPECT_EQ(u"FALSE", edit(v, nullptr, &german));
  free(german.true_word);
  uint32_t status = 1;
  xls_value_empty(&v);
  EXPECT_EQ(u"(null)", edit(v, nullptr, nullptr, 0, &status));
  EXPECT_EQ(0u, status);
}

TEST(FormulaBar, DatesAndTimesInTheLocalesEditForm) {
  const double march15 = 45000;  // 15 March 2023
  xls_locale dmy = make_locale(XLS_DATE_DMY, 1), ymd = make_locale(XLS_DATE_YMD, 1);
  // Whatever the format shows, the edit form has every field.
  EXPECT_EQ(u"3/15/2023", edit(num(march15), u"d-mmm"));
  EXPECT_EQ(u"15/3/2023", edit(num(march15), u"d-mmm", &dmy));
  EXPECT_EQ(u"2023/3/15", edit(num(march15), u"d-mmm", &ymd));
  const double evening = (18 * 3600 + 30 * 60 + 15) / 86400.0;
  EXPECT_EQ(u"6:30:15 PM", edit(num(evening), u"h:mm"));
  EXPECT_EQ(u"18:30:15", edit(num(evening), u"h:mm AM/PM", &dmy));
  EXPECT_EQ(u"12:00:00 AM", edit(num(0), u"mm:ss"));
  EXPECT_EQ(u"3/15/2023 6:00:00 PM", edit(num(march15 + 0.75), u"M/D/YYYY h:mm"));
  // A time of a day or more shows its date.
  EXPECT_EQ(u"15/3/2023 6:00:00", edit(num(march15 + 0.25), u"[h]:mm", &dmy));
  // The 1904 calendar; negative values are plain numbers.
  EXPECT_EQ(u"1/1/1904", edit(num(0), u"d/m/yy", nullptr, XLS_FORMULA_BAR_1904));
  EXPECT_EQ(u"-1.5", edit(num(-1.5), u"d/m/yy"));
}

TEST(FormulaBar, PercentsAndTheShortestNumberText) {
  xls_locale comma = make_locale(XLS_DATE_DMY, 1, ',');
  EXPECT_EQ(u"12.5%", edit(num(0.125), u"0%"));
  EXPECT_EQ(u"12,5%", edit(num(0.125), u"0.00%", &comma));
  EXPECT_EQ(u"-50%", edit(num(-0.5), u"0%"));
  xls_value_t integer;
  xls_value_long(&integer, -42);
  EXPECT_EQ(u"-42", edit(integer, u"0.00"));

  // By magnitude: the limits 16 to 21 characters, and "%g" outside them.
  const std::pair<double, const char16_t*> numbers[] = {
      {0, u"0"},
      {0.1, u"0.1"},
      {1.0 / 3, u"0.333333333333333"},
      {2.0 / 3, u"0.666666666666667"},
      {1.0 / 30, u"0.0333333333333333"},
      {1.0 / 30000, u"0.0000333333333333333"},    // 21 characters, not below 1e-05
      {1.0 / 300000, u"3.33333e-06"},             // 21 characters below 1e-05
      {1e-19, u"0.0000000000000000001"},          // the boundary stays fixed
      {1e-20, u"1e-20"},
      {99999999999.0, u"99999999999"},
      {98765432109.87654, u"98765432109.8765"},
      {1e11, u"1e+11"},
      {123456789012.0, u"1.23457e+11"},
      {-1e20, u"-1e+20"},
  };
  for (const auto& number : numbers) EXPECT_EQ(number.second, edit(num(number.first))) << number.first;
  EXPECT_EQ(u"0,1", edit(num(0.1), nullptr, &comma));
  EXPECT_EQ(u"1,23457e+11", edit(num(123456789012.0), nullptr, &comma));
}

TEST(FormulaBar, FormulasShowTheirTextOrTheirResult) {
  uint32_t status = 0;
  xls_range_ref_t range = {};
  xls_value_t v;
  ASSERT_EQ(0u, xls_value_range(&v, &range));
  edit(v, nullptr, nullptr, 0, &status);
  EXPECT_EQ(KEL_ERR_GENERAL, status);

  // A parsed formula: its text, numbers in the locale's form.
  dynamic_expr_t d;
  expr_d_init(&d);
  uint16_t left = 0, right = 0, root = 0;
  ASSERT_EQ(0u, expr_d_create(&d, xop_constant, &left));
  expr_set_ptg_num(expr_d_from_idx(&d, left), 0.5);
  ASSERT_EQ(0u, expr_d_create(&d, xop_constant, &right));
  expr_set_ptg_int(expr_d_from_idx(&d, right), 2);
  ASSERT_EQ(0u, expr_d_create(&d, xop_add, &root));
  expr_set_ptg_binary_family(expr_d_from_idx(&d, root), left, right);
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, expr_d_to_packed_expr(&packed, &d));
  xls_basic_value_t cache = {};
  cache.kind = bvt_double;
  cache.u.double_value = 2.5;
  xls_create_expr_value(&v, &packed, &cache);
  xls_locale comma = make_locale(XLS_DATE_DMY, 1, ',');
  EXPECT_EQ(u"=0,5+2", edit(v, nullptr, &comma));

  // Kept as text: that text, unless shared; then, as when only the result
  // was kept, the result.
  ASSERT_EQ(0u, xls_create_unparsed_expr_value(&v, &cache, u16(u"=A1*2"), 0));
  EXPECT_EQ(u"=A1*2", edit(v));
  ASSERT_EQ(0u, xls_create_unparsed_expr_value(&v, &cache, u16(u"=A1*2"), XLS_EXPR_UNPARSED_SHARED));
  EXPECT_EQ(u"2.5", edit(v));
  xls_packed_expr_t none = {};
  xls_create_expr_value(&v, &none, &cache);
  EXPECT_EQ(u"2,5", edit(v, nullptr, &comma));
}

}  // namespace
