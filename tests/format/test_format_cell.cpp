// The text a cell shows: numbers through the format, everything else as
// its text, and what a narrow cell does to each.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <string>

#include "format/xls_format_cell.h"
#include "format/xls_number_format.h"
#include "foundation/zuv_uni_string.h"

namespace {

const unsigned short* u16(const char16_t* text) {
  return reinterpret_cast<const unsigned short*>(text);
}

// The text of value under format, and the params left behind.
std::u16string shown(const xls_value_t& value, const char16_t* format,
                     xls_format_cell_params* out = nullptr, uint32_t flags = 0,
                     int32_t width = 0) {
  xls_format_cell_params params = {};
  params.value = &value;
  params.number_format = format ? u16(format) : nullptr;
  params.flags = flags;
  params.width = width;
  EXPECT_EQ(0u, xls_format_cell(&params));
  std::u16string text = params.result ? reinterpret_cast<const char16_t*>(params.result) : u"(null)";
  free(params.result);
  params.result = nullptr;
  if (out) *out = params;
  return text;
}

TEST(FormatCell, NumbersTakeTheFormatAndOtherValuesTheirText) {
  xls_value_t value;
  xls_format_cell_params params;
  xls_value_double(&value, 1.5);
  EXPECT_EQ(u"1.50", shown(value, u"[Red]0.00", &params));
  EXPECT_EQ(XLS_FORMAT_CELL_HAS_COLOUR, params.result_flags);
  EXPECT_EQ(255, params.colour.red);
  EXPECT_EQ(u"1.5", shown(value, nullptr, &params));
  EXPECT_EQ(0, params.result_flags);
  xls_value_long(&value, 7);
  EXPECT_EQ(u"007", shown(value, u"000"));
  // Serial 0 is a day of each calendar.
  xls_value_double(&value, 0);
  EXPECT_EQ(u"1900-01-00", shown(value, u"yyyy-mm-dd"));
  EXPECT_EQ(u"1904-01-01", shown(value, u"yyyy-mm-dd", nullptr, XLS_FORMAT_CELL_1904));

  // A string is shown as it is, whatever the format.
  xls_value_string(&value, ucs2_dup(u16(u"12")));
  EXPECT_EQ(u"12", shown(value, u"0.00"));
  xls_free_value(&value);
  xls_value_bool(&value, true);
  EXPECT_EQ(u"TRUE", shown(value, u"0.00"));
  xls_value_error(&value, 7);
  EXPECT_EQ(u"#DIV/0!", shown(value, u"0.00"));
  xls_value_empty(&value);
  EXPECT_EQ(u"", shown(value, u"0.00"));

  // A formula shows its cached result; an array its first element; a
  // range #VALUE!.
  xls_basic_value_t cache = {};
  cache.kind = bvt_double;
  cache.u.double_value = 0.25;
  xls_packed_expr_t packed = {};
  xls_create_expr_value(&value, &packed, &cache);
  EXPECT_EQ(u"25%", shown(value, u"0%"));
  xls_free_value(&value);
  ASSERT_EQ(0u, xls_value_array(&value, 1, 2));
  value.u.basic.u.array.elements[0].kind = bvt_double;
  value.u.basic.u.array.elements[0].u.double_value = 3;
  EXPECT_EQ(u"3.0", shown(value, u"0.0"));
  xls_free_value(&value);
  xls_range_ref_t range = {};
  ASSERT_EQ(0u, xls_value_range(&value, &range));
  EXPECT_EQ(u"#VALUE!", shown(value, u"0.0"));
  xls_free_value(&value);
}

TEST(FormatCell, TooNarrowCellsShowHashesButStringsStay) {
  static const unsigned short hash[] = {'#', 0};
  const int32_t each = format_text_width(hash, 1, nullptr);
  ASSERT_GT(each, 0);
  xls_value_t value;
  xls_value_double(&value, 123456.75);
  EXPECT_EQ(u"123,456.75", shown(value, u"#,##0.00", nullptr, 0, 1000 * each));
  EXPECT_EQ(u"#####", shown(value, u"#,##0.00", nullptr, 0, 5 * each + each / 2));
  EXPECT_EQ(u"#", shown(value, u"#,##0.00", nullptr, 0, 1));
  xls_value_string(&value, ucs2_dup(u16(u"a long piece of text")));
  EXPECT_EQ(u"a long piece of text", shown(value, nullptr, nullptr, 0, each));
  xls_free_value(&value);
}

}  // namespace
