// Formula text from trees read out of BIFF8 tokens: parentheses from
// precedence, functions in the locale's words, references where they point
// from the cell, sheet names quoted only where they must be, and constants
// as the formula bar shows them.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "format/kel_locale.h"
#include "formula/xls_formula_codec.h"
#include "formula/xls_formula_text.h"
#include "formula_test_book.h"
#include "formula_tokens.h"
#include "kel_status.h"

namespace {

using formula_test::Bytes;
using formula_test::cat;
using formula_test::t_int;
using formula_test::t_num;
using formula_test::t_funcvar;
using formula_test::t_str;
using formula_test::tok;
using formula_test::u16dup;

// The column field of a reference: the column and its relative flags.
uint32_t col(uint32_t column, bool row_relative, bool column_relative) {
  return column | (row_relative ? 0x8000 : 0) | (column_relative ? 0x4000 : 0);
}
Bytes t_ref(uint32_t row, uint32_t column_field) { return tok({0x24}, {row, column_field}); }
Bytes t_area(uint32_t row1, uint32_t row2, uint32_t col1, uint32_t col2) {
  return tok({0x25}, {row1, row2, col1, col2});
}

const Bytes kAdd = {0x03}, kSub = {0x04}, kMul = {0x05}, kPow = {0x07}, kCat = {0x08},
            kLt = {0x09}, kEq = {0x0B}, kIsect = {0x0F}, kRange = {0x11}, kUminus = {0x13},
            kPercent = {0x14}, kMiss = {0x16}, kArray = {0x60, 0, 0, 0, 0, 0, 0, 0};
enum { kIf = 1, kSum = 4, kPi = 19 };

// A locale of its own texts, freed with it.
struct TestLocale {
  xls_locale locale = {};
  explicit TestLocale(unsigned short decimal) { locale.decimal_separator = decimal; }
  ~TestLocale() {
    for (unsigned short* name : locale.function_names) free(name);
    free(locale.true_word);
  }
};

class Print : public ::testing::Test {
 protected:
  void SetUp() override { expr_d_init(&scratch_); }
  void TearDown() override { expr_d_destroy(&scratch_); }
  xls_file* file() const { return book_.file(); }

  // Reads tokens, array constants behind them, as the formula of cell
  // (row, column) on sheet 0.
  uint32_t read(const Bytes& tokens, uint16_t row, uint16_t column, xls_packed_expr_t* packed,
                const Bytes& behind = {}) {
    Bytes all = cat({tokens, behind});
    biff_formula cell = {row, column};
    bool unsupported = false;
    return expr_read_formula(file(), book_.sheet(0), all.data(), uint32_t(tokens.size()),
                             uint32_t(all.size()), &cell, &scratch_, packed, &unsupported);
  }

  std::string print(const Bytes& tokens, uint16_t row = 0, uint16_t column = 0,
                    const xls_locale* locale = nullptr, const Bytes& behind = {}) {
    xls_packed_expr_t packed = {};
    if (read(tokens, row, column, &packed, behind)) return "read failed";
    std::string text = print_packed(packed, row, column, locale);
    expr_free(&packed, true);
    return text;
  }

  std::string print_packed(const xls_packed_expr_t& packed, int32_t row = 0, int32_t column = 0,
                           const xls_locale* locale = nullptr) {
    unsigned short* text = nullptr;
    uint32_t status = xls_expr_to_input_str(book_.sheet(0), row, column, &packed, &text, locale);
    std::string out = status ? "status " + std::to_string(status) : formula_test::ascii(text);
    if (status) {
      EXPECT_EQ(nullptr, text);
    }
    free(text);
    return out;
  }

  // One hand-made node as a whole formula.
  std::string print_node(const xls_expr_t& node) {
    xls_packed_expr_t one = {0, 1, {const_cast<xls_expr_t*>(&node)}};
    return print_packed(one);
  }

  void rename(int sheet, const std::string& name) {
    xls_sheet_t* handle = book_.sheet(sheet);
    free(handle->name);
    handle->name = u16dup(name);
  }

  formula_test::Book book_;
  dynamic_expr_t scratch_;
};

TEST_F(Print, ParenthesesComeFromPrecedenceAndAssociativity) {
  Bytes one = t_int(1), two = t_int(2), three = t_int(3), four = t_int(4);
  Bytes a1 = t_ref(0, 0), b2 = t_ref(1, 1), c1 = t_ref(0, 2);
  EXPECT_EQ("=1-2-3", print(cat({one, two, kSub, three, kSub})));
  EXPECT_EQ("=1-(2-3)", print(cat({one, two, three, kSub, kSub})));
  EXPECT_EQ("=2^3^4", print(cat({two, three, four, kPow, kPow})));
  EXPECT_EQ("=(2^3)^4", print(cat({two, three, kPow, four, kPow})));
  EXPECT_EQ("=(1+2)*3", print(cat({one, two, kAdd, three, kMul})));
  EXPECT_EQ("=1+2*3", print(cat({one, two, three, kMul, kAdd})));
  EXPECT_EQ("=1=(2<3)", print(cat({one, two, three, kLt, kEq})));
  EXPECT_EQ("=\"a\"&1+2", print(cat({t_str("a"), one, two, kAdd, kCat})));
  // Prefix and postfix operators.
  EXPECT_EQ("=-(1+2)", print(cat({one, two, kAdd, kUminus})));
  // The prefix sign binds tighter than the percent.
  EXPECT_EQ("=-$A$1%", print(cat({a1, kUminus, kPercent})));
  EXPECT_EQ("=-($A$1%)", print(cat({a1, kPercent, kUminus})));
  EXPECT_EQ("=-2^2", print(cat({two, kUminus, two, kPow})));
  EXPECT_EQ("=-(2^2)", print(cat({two, two, kPow, kUminus})));
  EXPECT_EQ("=--1", print(cat({one, kUminus, kUminus})));
  EXPECT_EQ("=1%%", print(cat({one, kPercent, kPercent})));
  EXPECT_EQ("=(-$A$1) $B$2", print(cat({a1, kUminus, b2, kIsect})));
  EXPECT_EQ("=$A$1:($B$2%)", print(cat({a1, b2, kPercent, kRange})));
  // Reference operators bind tightest: the blank intersects.
  EXPECT_EQ("=$A$1 $C$1", print(cat({a1, c1, kIsect})));
  EXPECT_EQ("=SUM($A$1:$B$2 $C$1)", print(cat({a1, b2, kRange, c1, kIsect, t_funcvar(1, kSum)})));
  EXPECT_EQ("=($A$1 $B$2):$C$1", print(cat({a1, b2, kIsect, c1, kRange})));
}

TEST_F(Print, FunctionsTakeTheLocalesNamesAndSeparator) {
  Bytes args = cat({t_int(1), t_num(2.5)});
  EXPECT_EQ("=IF(,1,#DIV/0!)", print(cat({kMiss, t_int(1), {0x1C, 0x07}, t_funcvar(3, kIf)})));
  EXPECT_EQ("=IF(1,)", print(cat({t_int(1), kMiss, t_funcvar(2, kIf)})));
  EXPECT_EQ("=PI()", print(tok({0x41}, {kPi})));

  TestLocale comma(',');
  comma.locale.function_names[kSum] = u16dup("SUMME");
  comma.locale.true_word = u16dup("WAHR");
  EXPECT_EQ("=SUMME(1;2,5;WAHR)",
            print(cat({args, {0x1D, 1}, t_funcvar(3, kSum)}), 0, 0, &comma.locale));
  // A row the locale leaves without a name keeps the English one.
  EXPECT_EQ("=IF(1;2,5)", print(cat({args, t_funcvar(2, kIf)}), 0, 0, &comma.locale));
  TestLocale point('.');
  EXPECT_EQ("=SUM(1,2.5)", print(cat({args, t_funcvar(2, kSum)}), 0, 0, &point.locale));

  // A number beyond the table names nothing.
  xls_expr_t node = {};
  node.op = xop_func;
  node.u.func.number = 400;
  EXPECT_EQ("=#NAME?()", print_node(node));
}

TEST_F(Print, ReferencesPointFromTheCellKeepingTheirDollars) {
  // At F11: relative parts are offsets that follow the cell.
  EXPECT_EQ("=E10", print(t_ref(9, col(4, true, true)), 10, 5));
  EXPECT_EQ("=$E10+E$10", print(cat({t_ref(9, col(4, true, false)), t_ref(9, col(4, false, true)),
                                     kAdd}), 10, 5));
  // A shared formula's offset wraps around the sheet's edges.
  EXPECT_EQ("=IV65536", print(tok({0x2C}, {0xFFFF, col(0xFF, true, true)}), 0, 0));
  // Ranges are ordered, each corner part keeping its own "$".
  EXPECT_EQ("=SUM($A1:B$3)",
            print(cat({t_area(2, 0, col(1, false, true), col(0, true, false)), t_funcvar(1, kSum)})));
  EXPECT_EQ("=SUM($C$4)", print(cat({t_area(3, 3, 2, 2), t_funcvar(1, kSum)})));
  EXPECT_EQ("=SUM(C$4:C4)", print(cat({t_area(3, 3, col(2, false, true), col(2, true, true)),
                                       t_funcvar(1, kSum)})));
  // Whole rows and columns, by extent.
  EXPECT_EQ("=SUM($1:$2)", print(cat({t_area(0, 1, 0, 255), t_funcvar(1, kSum)})));
  EXPECT_EQ("=SUM(2:3)", print(cat({t_area(1, 2, col(0, true, false), col(255, true, false)),
                                    t_funcvar(1, kSum)})));
  EXPECT_EQ("=SUM($A:B)", print(cat({t_area(0, 65535, 0, col(1, false, true)), t_funcvar(1, kSum)})));
  EXPECT_EQ("=SUM($1:$65536)", print(cat({t_area(0, 65535, 0, 255), t_funcvar(1, kSum)})));
  EXPECT_EQ("=SUM($A$1:$IU$65535)", print(cat({t_area(0, 65534, 0, 254), t_funcvar(1, kSum)})));
  // Errors in place of references.
  EXPECT_EQ("=#REF!+1", print(cat({tok({0x2A}, {0, 0}), t_int(1), kAdd})));
}

TEST_F(Print, SheetNamesAreQuotedOnlyWhereTheyWouldReadAsSomethingElse) {
  formula_test::add_references(book_);
  Bytes on_sheet1 = tok({0x3A}, {0, 3, 2});  // entry 0: sheet 1, $C$4
  const std::pair<const char*, const char*> names[] = {
      {"Data", "=Data!$C$4"},          {"x.y_1", "=x.y_1!$C$4"},
      {"IW1", "=IW1!$C$4"},            {"A0", "=A0!$C$4"},
      {"A65537", "=A65537!$C$4"},      {"My sheet", "='My sheet'!$C$4"},
      {"A1", "='A1'!$C$4"},            {"ab12", "='ab12'!$C$4"},
      {"IV65536", "='IV65536'!$C$4"},  {"2019", "='2019'!$C$4"},
      {".x", "='.x'!$C$4"},            {"true", "='true'!$C$4"},
      {"", "=''!$C$4"},                {"O'Brien", "='O''Brien'!$C$4"},
      {"Donn\xE9" "es", "='Donn?es'!$C$4"},
  };
  for (const auto& name : names) {
    rename(1, name.first);
    EXPECT_EQ(name.second, print(on_sheet1)) << name.first;
  }
  // A span of sheets is quoted as one when either name needs it.
  rename(0, "First");
  rename(2, "Last");
  Bytes span = tok({0x3A}, {1, 3, 2});  // entry 1: sheets 0 to 2
  EXPECT_EQ("=First:Last!$C$4", print(span));
  rename(2, "Last one");
  EXPECT_EQ("='First:Last one'!$C$4", print(span));
  EXPECT_EQ("=SUM('First:Last one'!$A$1:$B$10)",
            print(cat({tok({0x3B}, {1, 0, 9, 0, 1}), t_funcvar(1, kSum)})));

  // Another workbook, a deleted sheet: the error text.
  EXPECT_EQ("=#REF!", print(tok({0x3A}, {2, 3, 2})));
  EXPECT_EQ("=#REF!", print(tok({0x3B}, {2, 0, 1, 0, 1})));
  EXPECT_EQ("=#REF!", print(tok({0x3D}, {1, 0, 0, 0, 0})));
  xls_expr_t node = {};
  node.op = xop_cellref;
  node.u.cell = {XLS_DELETED_SHEET, 0, 1, 0, 0};
  EXPECT_EQ("=#REF!$B$1", print_node(node));
  node.u.cell.sheet = book_.sheet(0);
  EXPECT_EQ("=First!$B$1", print_node(node));  // the own sheet, named
  xls_range_ref_t range = {{book_.sheet(0), 0, 0, 0, 0}, {XLS_DELETED_SHEET, 1, 1, 0, 0}};
  xls_expr_t area = {};
  area.op = xop_constant;
  ASSERT_EQ(0u, xls_value_range(&area.u.constant, &range));
  EXPECT_EQ("=#REF!$A$1:$B$2", print_node(area));
  xls_free_value(&area.u.constant);
}

TEST_F(Print, NamesPrintTheirTextOrNameError) {
  formula_test::add_references(book_);
  EXPECT_EQ("=Other*2", print(cat({tok({0x23}, {2, 0}), t_int(2), kMul})));
  EXPECT_EQ("=Rate", print(tok({0x39}, {4, 1, 0})));
  xls_expr_named_t unnamed = {};
  xls_expr_t node = {};
  node.op = xop_name;
  EXPECT_EQ("=#NAME?", print_node(node));
  node.u.name.named = &unnamed;
  EXPECT_EQ("=#NAME?", print_node(node));
}

TEST_F(Print, ConstantsPrintAsTheFormulaBarShowsThem) {
  // Strings: backslashes and double quotes escaped, apostrophes doubled.
  EXPECT_EQ("=\"a\\\"b''c\\\\d\"", print(t_str("a\"b'c\\d")));
  EXPECT_EQ("=\"\"", print(t_str("")));
  EXPECT_EQ("=TRUE&FALSE&#N/A", print(cat({{0x1D, 1}, {0x1D, 0}, kCat, {0x1C, 42}, kCat})));
  // Numbers as the formula bar shows them (its own tests cover the texts).
  EXPECT_EQ("=0.333333333333333", print(t_num(1.0 / 3)));
  EXPECT_EQ("=-0.5", print(t_num(-0.5)));
  EXPECT_EQ("=65535", print(t_int(65535)));
  TestLocale comma(',');
  EXPECT_EQ("=2,5%", print(cat({t_num(2.5), kPercent}), 0, 0, &comma.locale));

  // {1,2;"a",TRUE}: fixed separators, strings quoted, with any locale.
  Bytes elements = {1, 1, 0,                           // 2 columns, 2 rows
                    1, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F,   // 1
                    1, 0, 0, 0, 0, 0, 0, 0x00, 0x40,   // 2
                    2, 1, 0, 0, 'a',                   // "a"
                    4, 1, 0, 0, 0, 0, 0, 0, 0};        // TRUE
  EXPECT_EQ("=SUM({1,2;\"a\",TRUE})", print(cat({kArray, t_funcvar(1, kSum)}), 0, 0, nullptr, elements));
  comma.locale.function_names[kSum] = u16dup("SUMME");
  EXPECT_EQ("=SUMME({1,2;\"a\",TRUE})",
            print(cat({kArray, t_funcvar(1, kSum)}), 0, 0, &comma.locale, elements));
}

TEST_F(Print, SharedFormulasPrintAtTheCellAndArrayFormulasAtTheirAnchor) {
  // Both groups: the cell above, times 2.
  xls_shared_expr records[2] = {};
  records[0].first_row = 4;
  records[0].first_column = 1;
  records[1].flags = XLS_SHARED_ARRAY;
  records[1].array_row = 7;
  records[1].array_column = 1;
  ASSERT_EQ(0u, read(cat({tok({0x2C}, {0xFFFF, col(0, true, true)}), t_int(2), kMul}), 4, 1,
                     &records[0].packed));
  ASSERT_EQ(0u, read(cat({t_ref(6, col(1, true, true)), t_int(2), kMul}), 7, 1, &records[1].packed));
  for (xls_shared_expr& record : records) {
    xls_packed_expr_t cell = {};
    ASSERT_EQ(0u, expr_create_shared_expr(&cell, &record));
    if (record.flags & XLS_SHARED_ARRAY) {
      EXPECT_EQ("{=B7*2}", print_packed(cell, 8, 2));
    } else {
      EXPECT_EQ("=B5*2", print_packed(cell, 5, 1));
      EXPECT_EQ("=D9*2", print_packed(cell, 9, 3));
    }
    expr_free(&cell, true);
    expr_free(&record.packed, true);
  }
}

TEST_F(Print, WhatCannotBePrintedFailsWithoutText) {
  xls_packed_expr_t empty = {};
  EXPECT_EQ("status " + std::to_string(KEL_ERR_GENERAL), print_packed(empty));
  unsigned short formula[] = {'1', '+', '1', 0};
  xls_packed_expr_t unparsed = {XLS_EXPR_UNPARSED, 0, {nullptr}};
  unparsed.text = formula;
  EXPECT_EQ("status " + std::to_string(KEL_ERR_GENERAL), print_packed(unparsed));
  // Longer than a text can be: 300 strings of 255 characters.
  Bytes tokens = t_str(std::string(255, 'x'));
  for (int i = 1; i < 300; ++i) tokens = cat({tokens, t_str(std::string(255, 'x')), kCat});
  EXPECT_EQ("status " + std::to_string(KEL_ERR_GENERAL), print(tokens));
}

TEST(ColumnNames, CountOnPastZAndPastTheSheet) {
  const std::pair<uint32_t, const char*> columns[] = {
      {0, "A"},     {25, "Z"},     {26, "AA"},     {255, "IV"},           {701, "ZZ"},
      {702, "AAA"}, {16383, "XFD"}, {18278, "AAAA"}, {0xFFFFFFFF, "MWLQKWV"}};
  for (const auto& column : columns) {
    ucs2_str_builder builder;
    ucs2_str_builder_init(&builder);
    ASSERT_EQ(0u, xls_expr_render_colname(&builder, column.first));
    EXPECT_EQ(column.second, formula_test::ascii(ucs2_str_builder_str(&builder)));
    ucs2_str_builder_destroy(&builder);
  }
}

TEST(PlainPositions, PrintInA1WithWholeRowsAndColumns) {
  unsigned short text[16];
  xls_apos first = {0, 0}, last = {65535, 255};
  xls_printf_apos(text, &first);
  EXPECT_EQ("A1", formula_test::ascii(text));
  xls_printf_apos(text, &last);
  EXPECT_EQ("IV65536", formula_test::ascii(text));
  const std::pair<xls_orange, const char*> ranges[] = {
      {{0, 0, 2, 2}, "A1:C3"},      {{1, 1, 1, 1}, "B2"},          {{0, 0, 2, 255}, "1:3"},
      {{4, 0, 4, 255}, "5:5"},      {{0, 0, 65535, 2}, "A:C"},     {{0, 0, 65535, 255}, "1:65536"},
      {{0, 3, 65534, 3}, "D1:D65535"}, {{9, 300, 70000, 300}, "IV10:IV65536"}};
  for (const auto& range : ranges) {
    xls_printf_range(text, &range.first);
    EXPECT_EQ(range.second, formula_test::ascii(text));
    memset(text, 0, sizeof text);
    xls_get_sort_range_string(&range.first, text);
    EXPECT_EQ(range.second, formula_test::ascii(text));
  }
}

}  // namespace
