// Values and errors: RK numbers, equality at 15 digits, comparison,
// arithmetic, checked conversions and ownership.
#include <gtest/gtest.h>

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "format/kel_locale.h"
#include "formula/xls_expr.h"
#include "formula/xls_value.h"
#include "foundation/zuv_uni_string.h"
#include "test_support.h"

namespace {

unsigned short* heap(const char16_t* text) {
  return ucs2_dup(reinterpret_cast<const unsigned short*>(text));
}

std::u16string S(const unsigned short* text) {
  return text ? std::u16string(reinterpret_cast<const char16_t*>(text)) : u"(null)";
}

// The text of a plain conversion, freed.
std::u16string text_of(const xls_value_t& value, const xls_locale* locale = nullptr) {
  unsigned short* text = xls_value_tostring(&value, locale);
  std::u16string result = S(text);
  free(text);
  return result;
}

xls_value_t number(double x) { xls_value_t v; xls_value_double(&v, x); return v; }
xls_value_t integer(int32_t x) { xls_value_t v; xls_value_long(&v, x); return v; }
xls_value_t string(const char16_t* text) { xls_value_t v; xls_value_string(&v, heap(text)); return v; }
xls_value_t truth(bool b) { xls_value_t v; xls_value_bool(&v, b); return v; }
xls_value_t error(biff_error_t code) { xls_value_t v; xls_value_error(&v, code); return v; }

// A row-major array of doubles; NAN marks an empty element.
xls_value_t array(uint16_t rows, uint16_t columns, const std::initializer_list<double>& numbers) {
  xls_value_t v;
  EXPECT_EQ(0u, xls_value_array(&v, rows, columns));
  int i = 0;
  for (double x : numbers) {
    xls_value_t element = number(x);
    if (!isnan(x)) xls_value_array_set(&v, i / columns, i % columns, &element);
    ++i;
  }
  return v;
}

xls_basic_value_t error_of(const xls_value_t& v) {
  EXPECT_EQ((uint32_t)vt_basic, v.kind);
  EXPECT_EQ((uint32_t)bvt_error, v.u.basic.kind);
  return v.u.basic;
}

TEST(Value, RkForms) {
  // Integers (forms 2 and 3, the latter a hundredth, a long when whole) and
  // the high word of a double (forms 0 and 1).
  const struct { uint32_t rk; bool is_long; double value; } cases[] = {
      {0x66, true, 25},         {uint32_t(-5 * 4) | 2, true, -5},
      {(1234u << 2) | 3, false, 12.34}, {(1200u << 2) | 3, true, 12},
      {0x3FF00000, false, 1.0}, {0x3FF00001, false, 0.01},
  };
  for (const auto& c : cases) {
    xls_value_t v;
    kel_xls_value_from_rk(c.rk, &v);
    ASSERT_EQ((uint32_t)(c.is_long ? bvt_long : bvt_double), v.u.basic.kind) << c.rk;
    double got = c.is_long ? v.u.basic.u.long_value : tabulon_test::copied(v.u.basic.u.double_value);
    EXPECT_DOUBLE_EQ(c.value, got) << c.rk;
  }
}

TEST(Value, EqualityAtFifteenDigits) {
  EXPECT_TRUE(excel_is_equal(0.1 + 0.2, 0.3));
  EXPECT_TRUE(excel_is_equal(1e15, 1e15 + 1));
  EXPECT_FALSE(excel_is_equal(1e15, 1e15 + 10));
  EXPECT_FALSE(excel_is_equal(0, 1e-20));  // other exponent
  EXPECT_TRUE(excel_is_equal(0.5, 0.5 + 1e-15));
  EXPECT_FALSE(excel_is_equal(1, 1 + 1e-13));
  EXPECT_FALSE(excel_is_equal(9.999999999999999, 10));  // exponents 0 and 1
  EXPECT_FALSE(excel_is_equal(NAN, NAN));
}

TEST(Value, CompareOrdersAndAsymmetry) {
  xls_value_t one = integer(1), one_text = string(u"1"), a = string(u"a"), A = string(u"A"),
              empty, null_text, yes = truth(true), na = error(xls_error_na), range;
  xls_value_empty(&empty);
  xls_value_string(&null_text, nullptr);
  xls_range_ref_t ref = {};
  ASSERT_EQ(0u, xls_value_range(&range, &ref));
  EXPECT_EQ(-1, xls_value_compare(&one, &one_text));
  EXPECT_EQ(-1, xls_value_compare(&one_text, &one));
  EXPECT_EQ(-1, xls_value_compare(&one, &yes));
  EXPECT_EQ(-1, xls_value_compare(&yes, &one));
  EXPECT_EQ(-1, xls_value_compare(&range, &range));
  EXPECT_NE(0, xls_value_compare(&a, &A));
  EXPECT_EQ(0, xls_value_compare(&null_text, &empty));
  xls_value_t minus = integer(-1), zero = number(0), close = number(1 + 1e-16);
  EXPECT_EQ(0, xls_value_compare(&empty, &zero));
  EXPECT_EQ(1, xls_value_compare(&empty, &minus));
  EXPECT_EQ(0, xls_value_compare(&one, &close));
  xls_value_t true_word = string(u"TRUE"), na_text = string(u"#N/A");
  EXPECT_EQ(0, xls_value_compare(&yes, &true_word));
  EXPECT_EQ(0, xls_value_compare(&na, &na_text));
  // A formula by its cache, an array by its first element.
  xls_packed_expr_t packed = {};
  xls_value_t formula, first = array(1, 2, {1, 5});
  xls_create_expr_value(&formula, &packed, &one.u.basic);
  EXPECT_EQ(0, xls_value_compare(&formula, &first));
  for (xls_value_t* v : {&one_text, &a, &A, &range, &true_word, &na_text, &first})
    xls_free_value(v);
}

TEST(Value, Truth) {
  bool not_boolean = true;
  xls_value_t t = string(u"TRUE"), f = string(u"FALSE"), null_text, na = error(xls_error_na),
              zero = number(0);
  xls_value_string(&null_text, nullptr);
  EXPECT_TRUE(xls_value_as_bool(&t, &not_boolean));
  EXPECT_TRUE(xls_value_as_bool(&f, &not_boolean));
  EXPECT_FALSE(xls_value_as_bool(&null_text, &not_boolean));
  EXPECT_FALSE(not_boolean);
  EXPECT_FALSE(xls_value_as_bool(&zero, &not_boolean));
  EXPECT_FALSE(xls_value_as_bool(&na, &not_boolean));
  EXPECT_TRUE(not_boolean);
  xls_free_value(&t);
  xls_free_value(&f);
}

TEST(Value, ArithmeticShapesAndErrors) {
  xls_value_t r, two = integer(2), three = integer(3), zero = number(0);
  xls_value_arith(&r, &two, &three, arith_subtract);
  EXPECT_EQ((uint32_t)bvt_double, r.u.basic.kind);
  EXPECT_EQ(-1.0, tabulon_test::copied(r.u.basic.u.double_value));
  xls_value_arith(&r, &zero, &zero, arith_power);
  EXPECT_EQ((uint32_t)xls_error_num, error_of(r).u.error);
  xls_value_t big = number(1e308), ten = integer(10), four_hundred = integer(400);
  xls_value_arith(&r, &two, &zero, arith_divide);
  EXPECT_EQ((uint32_t)xls_error_div0, error_of(r).u.error);
  xls_value_arith(&r, &big, &ten, arith_multiply);
  EXPECT_TRUE(isinf(r.u.basic.u.double_value));
  xls_value_arith(&r, &ten, &four_hundred, arith_power);
  EXPECT_EQ((uint32_t)xls_error_num, error_of(r).u.error);
  xls_value_arith(&r, &two, &three, static_cast<arith_symbol_t>(9));
  EXPECT_EQ((uint32_t)xls_error_num, error_of(r).u.error);

  xls_value_t text = string(u"2.5"), word = string(u"x");
  xls_value_arith(&r, &text, &two, arith_add);
  EXPECT_EQ(4.5, tabulon_test::copied(r.u.basic.u.double_value));
  xls_value_arith(&r, &word, &two, arith_add);
  EXPECT_EQ((uint32_t)xls_error_value, error_of(r).u.error);

  // An empty element counts as 0; an error element is #VALUE!, not its own.
  xls_value_t holes = array(1, 2, {NAN, 4});
  xls_value_arith(&r, &holes, &two, arith_add);
  ASSERT_EQ((uint32_t)bvt_array, r.u.basic.kind);
  EXPECT_EQ(2.0, tabulon_test::copied(r.u.basic.u.array.elements[0].u.double_value));
  EXPECT_EQ(6.0, tabulon_test::copied(r.u.basic.u.array.elements[1].u.double_value));
  xls_free_value(&r);
  xls_value_t na = error(xls_error_na);
  xls_value_array_set(&holes, 0, 0, &na);
  xls_value_arith(&r, &holes, &two, arith_add);
  EXPECT_EQ((uint32_t)xls_error_value, error_of(r).u.error);

  // Two tables of different shapes: #N/A; a row against a column: a table.
  xls_value_t square = array(2, 2, {1, 2, 3, 4}), big_square = array(3, 3, {});
  xls_value_arith(&r, &square, &big_square, arith_add);
  EXPECT_EQ((uint32_t)xls_error_na, error_of(r).u.error);
  xls_value_t row = array(1, 3, {1, 2, 3}), column = array(2, 1, {10, 20});
  xls_value_arith(&r, &row, &column, arith_add);
  ASSERT_EQ((uint32_t)bvt_array, r.u.basic.kind);
  EXPECT_EQ(2, r.u.basic.u.array.rows);
  EXPECT_EQ(3, r.u.basic.u.array.columns);
  EXPECT_EQ(23.0, tabulon_test::copied(r.u.basic.u.array.elements[5].u.double_value));
  xls_free_value(&r);
  // Past the end of a longer dimension: an #N/A element.
  xls_value_t tall = array(3, 1, {1, 2, 3});
  xls_value_arith(&r, &tall, &column, arith_multiply);
  ASSERT_EQ((uint32_t)bvt_array, r.u.basic.kind);
  EXPECT_EQ(40.0, tabulon_test::copied(r.u.basic.u.array.elements[1].u.double_value));
  EXPECT_EQ((uint32_t)bvt_error, r.u.basic.u.array.elements[2].kind);
  xls_free_value(&r);
  // One zero divisor ends the whole operation.
  xls_value_t divisors = array(1, 2, {1, 0});
  xls_value_arith(&r, &two, &divisors, arith_divide);
  EXPECT_EQ((uint32_t)xls_error_div0, error_of(r).u.error);
  for (xls_value_t* v : {&text, &word, &holes, &square, &big_square, &row, &column,
                         &tall, &divisors})
    xls_free_value(v);
}

TEST(Value, CheckedConversionFlags) {
  xls_value_t result;
  double x = -1;
  int32_t n = -1;
  xls_basic_value_t empty = {}, text = string(u"12").u.basic, na = error(xls_error_na).u.basic,
                    yes = truth(true).u.basic, minus = number(-1.5).u.basic;

  EXPECT_EQ(0u, xls_basic_value_todouble(&empty, &result, &x, 0));
  EXPECT_EQ(0.0, x);
  EXPECT_EQ(KEL_ERR_VALUE, xls_basic_value_todouble(&empty, &result, &x, xls_conv_empty_invalid));
  EXPECT_EQ((uint32_t)xls_error_value, error_of(result).u.error);
  EXPECT_EQ(0u, xls_basic_value_todouble(&text, &result, &x, 0));
  EXPECT_EQ(12.0, x);
  EXPECT_EQ(0u, xls_basic_value_todouble(&text, &result, &x, xls_conv_string_zero));
  EXPECT_EQ(0.0, x);
  EXPECT_EQ(KEL_ERR_VALUE, xls_basic_value_todouble(&text, &result, &x, xls_conv_string_invalid));
  EXPECT_EQ(KEL_ERR_PROPAGATED,
            xls_basic_value_todouble(&na, &result, &x, xls_conv_error_propagate));
  EXPECT_EQ((uint32_t)xls_error_na, error_of(result).u.error);
  EXPECT_EQ(0u, xls_basic_value_todouble(&na, &result, &x, xls_conv_error_zero));
  EXPECT_EQ(0.0, x);
  EXPECT_EQ(0u, xls_basic_value_todouble(&na, &result, &x, 0));
  EXPECT_EQ(7.0, x);  // its ERROR.TYPE
  EXPECT_EQ(KEL_ERR_VALUE, xls_basic_value_todouble(&yes, &result, &x, xls_conv_bool_invalid));
  EXPECT_EQ(0u, xls_basic_value_todouble(&yes, &result, &x, 0));
  EXPECT_EQ(1.0, x);

  // Doubles truncate towards zero; a numeric string is floored first.
  EXPECT_EQ(0u, xls_basic_value_tolong(&minus, &result, &n, 0));
  EXPECT_EQ(-1, n);
  xls_basic_value_t minus_text = string(u"-1.5").u.basic;
  EXPECT_EQ(0u, xls_basic_value_tolong(&minus_text, &result, &n, 0));
  EXPECT_EQ(-2, n);
  EXPECT_EQ(-2, xls_basic_value_tolong(&minus_text));
  EXPECT_EQ(-1, xls_basic_value_tolong(&minus));

  xls_value_t first = array(1, 2, {3.7, 1});
  EXPECT_EQ(0u, xls_value_tolong(&first, &result, &n, nullptr, 0));
  EXPECT_EQ(3, n);
  EXPECT_EQ(KEL_ERR_VALUE, xls_value_tolong(&first, &result, &n, nullptr, xls_conv_array_invalid));
  xls_value_t range;
  xls_range_ref_t ref = {};
  ASSERT_EQ(0u, xls_value_range(&range, &ref));
  EXPECT_EQ(KEL_ERR_VALUE, xls_value_todouble(&range, &result, &x, nullptr, xls_conv_range_invalid));
  xls_value_t formula;
  xls_packed_expr_t packed = {};
  xls_create_expr_value(&formula, &packed, &yes);
  EXPECT_EQ(0u, xls_value_todouble(&formula, &result, &x, nullptr, 0));
  EXPECT_EQ(1.0, x);

  unsigned short* out = nullptr;
  EXPECT_EQ(0u, xls_basic_value_tostring(&minus, &result, &out, xls_conv_number_blank, nullptr));
  EXPECT_EQ(u"", S(out));
  free(out);
  EXPECT_EQ(0u, xls_basic_value_tostring(&yes, &result, &out, 0, nullptr));
  EXPECT_EQ(u"TRUE", S(out));
  free(out);
  EXPECT_EQ(KEL_ERR_PROPAGATED,
            xls_basic_value_tostring(&na, &result, &out, xls_conv_error_propagate, nullptr));
  xls_free_basic_value(&text);
  xls_free_basic_value(&minus_text);
  xls_free_value(&first);
  xls_free_value(&range);
}

TEST(Value, TextsAndLocale) {
  xls_locale locale = {};
  locale.decimal_separator = ',';
  unsigned short wahr[] = {'W', 'A', 'H', 'R', 0}, nv[] = {'#', 'N', 'V', 0};
  locale.true_word = wahr;
  locale.error_texts[6] = nv;
  xls_value_t half = number(1.5), x = string(u"x"), r;
  EXPECT_EQ(u"1.5", text_of(half));
  EXPECT_EQ(u"1,5", text_of(half, &locale));
  EXPECT_EQ(u"WAHR", text_of(truth(true), &locale));
  EXPECT_EQ(u"FALSE", S(xls_bool_str(1, &locale)));  // 1 asks for false
  EXPECT_EQ(u"#N/A", S(xls_error_str(xls_error_na, nullptr)));
  EXPECT_EQ(u"#NV", S(xls_error_str(xls_error_na, &locale)));
  EXPECT_EQ(u"#ERR!", S(xls_error_str(xls_error_out_of_memory, &locale)));
  xls_value_strcat(&r, &half, &x, &locale);
  EXPECT_EQ(u"1,5x", S(r.u.basic.u.string));
  xls_free_value(&r);

  biff_error_t code = 0;
  const unsigned short div[] = {'#', 'd', 'i', 'v', '/', '0', '!', '+', 0};
  EXPECT_EQ(7u, xls_match_error_str(div, 8, nullptr, &code));
  EXPECT_EQ((uint32_t)xls_error_div0, code);
  EXPECT_EQ(0u, xls_match_error_str(div, 6, nullptr, &code));  // too short
  EXPECT_EQ(3u, xls_match_error_str(nv, 3, &locale, &code));
  EXPECT_EQ((uint32_t)xls_error_na, code);

  xls_value_t type;
  xls_basic_value_t ref = error(xls_error_ref).u.basic, memory = error(xls_error_out_of_memory).u.basic;
  xls_get_error_type(&type, &ref);
  EXPECT_EQ(4, type.u.basic.u.long_value);
  xls_get_error_type(&type, &memory);
  EXPECT_EQ((uint32_t)xls_error_na, error_of(type).u.error);

  double number_value = 0;
  EXPECT_TRUE(xls_is_string_number(&number_value, reinterpret_cast<const unsigned short*>(u"1e3")));
  EXPECT_EQ(1000.0, number_value);
  EXPECT_FALSE(xls_is_string_number(&number_value, reinterpret_cast<const unsigned short*>(u"1 ")));
  EXPECT_FALSE(xls_is_string_number(&number_value, reinterpret_cast<const unsigned short*>(u"")));
  EXPECT_FALSE(xls_is_string_number(&number_value, nullptr));

  EXPECT_EQ(0.1, xls_math_add_epsilon(0.1));  // finite numbers stay as they are
  EXPECT_TRUE(isinf(xls_math_add_epsilon(-INFINITY)));
  EXPECT_TRUE(isnan(xls_math_add_epsilon(NAN)));
  xls_free_value(&x);
}

TEST(Value, ExtentOfRangesAndArrays) {
  // Column E (absolute) to the column left of the formula's, which is C.
  xls_range_ref_t ref = {};
  ref.first.column = 4;
  ref.second.column = -1;
  ref.second.column_relative = 1;
  ref.second.row = 2;
  xls_value_t range, table = array(2, 3, {}), one = integer(1);
  ASSERT_EQ(0u, xls_value_range(&range, &ref));
  cell_t cell = {0, 2};
  EXPECT_EQ(4, xls_value_area_getwidth(&range, &cell));
  EXPECT_EQ(3, xls_value_area_getheight(&range, &cell));
  EXPECT_EQ(3, xls_value_area_getwidth(&table, nullptr));
  EXPECT_EQ(2, xls_value_area_getheight(&table, nullptr));
  EXPECT_EQ(1, xls_value_area_getwidth(&one, nullptr));
  xls_free_value(&range);
  xls_free_value(&table);
}

TEST(Value, OwnershipOfCopies) {
  // A formula whose nodes own a string constant, a long parameter list and a
  // nested form; its copy must own its own of each (checked under ASan).
  xls_expr_t* nodes = static_cast<xls_expr_t*>(calloc(3, sizeof(xls_expr_t)));
  nodes[0].op = xop_constant;
  xls_value_string(&nodes[0].u.constant, heap(u"text"));
  nodes[1].op = xop_array;
  nodes[1].u.array.value = array(1, 1, {2});
  xls_value_t nested;
  ASSERT_EQ(0u, xls_create_unparsed_expr_value(&nested, nullptr,
                                               reinterpret_cast<const unsigned short*>(u"=A1"), 0));
  nodes[1].u.array.packed = nested.u.expr.packed;
  nodes[2].op = xop_func;
  nodes[2].u.func.count = 13;
  nodes[2].u.func.params = static_cast<uint16_t*>(calloc(13, sizeof(uint16_t)));
  nodes[2].u.func.params[12] = 1;
  xls_packed_expr_t packed = {};
  packed.count = 3;
  packed.nodes = nodes;
  xls_basic_value_t cache = string(u"cached").u.basic;
  xls_value_t formula, copy;
  xls_create_expr_value(&formula, &packed, &cache);
  ASSERT_EQ(0u, xls_value_copy(&copy, &formula));
  EXPECT_NE(tabulon_test::copied(formula.u.expr.packed.nodes),
            tabulon_test::copied(copy.u.expr.packed.nodes));
  EXPECT_NE(tabulon_test::copied(formula.u.expr.cache.u.string),
            tabulon_test::copied(copy.u.expr.cache.u.string));
  const xls_expr_t* copied = copy.u.expr.packed.nodes;
  EXPECT_NE(nodes[2].u.func.params, xls_expr_params(&copied[2]));
  EXPECT_EQ(1, xls_expr_params(&copied[2])[12]);
  EXPECT_EQ(u"text", S(copied[0].u.constant.u.basic.u.string));
  EXPECT_EQ(u"=A1", S(copied[1].u.array.packed.text));
  xls_free_value(&formula);
  xls_free_value(&formula);  // freeing twice is harmless
  EXPECT_EQ(u"cached", text_of(copy));
  xls_free_value(&copy);

  // Text of an array formula belongs to its record: neither copied nor freed.
  unsigned short* shared_text = heap(u"{=A1:B2}");
  xls_value_t cell;
  ASSERT_EQ(0u, xls_create_unparsed_expr_value(&cell, nullptr, shared_text,
                                               XLS_EXPR_UNPARSED | XLS_EXPR_UNPARSED_ARRAY));
  ASSERT_EQ(0u, xls_value_copy(&copy, &cell));
  EXPECT_EQ(shared_text, tabulon_test::copied(copy.u.expr.packed.text));
  xls_free_value(&cell);
  xls_free_value(&copy);
  free(shared_text);

  // A formula kept only by its cached result.
  xls_packed_expr_t none = {};
  xls_create_expr_value(&cell, &none, nullptr);
  ASSERT_EQ(0u, xls_value_copy(&copy, &cell));
  EXPECT_EQ(0, copy.u.expr.packed.count);
  EXPECT_EQ((uint32_t)bvt_empty, copy.u.expr.cache.kind);
  xls_free_value(&copy);

  // Setting an element takes a formula's cache and ignores bad positions.
  xls_value_t table = array(1, 2, {}), source;
  xls_basic_value_t word = string(u"w").u.basic;
  xls_create_expr_value(&source, &none, &word);
  xls_value_array_set(&table, 0, 1, &source);
  xls_value_array_set(&table, 1, 0, &source);
  xls_value_array_set(&table, 0, -1, &source);
  EXPECT_EQ(u"w", S(table.u.basic.u.array.elements[1].u.string));
  EXPECT_NE(tabulon_test::copied(word.u.string),
            tabulon_test::copied(table.u.basic.u.array.elements[1].u.string));
  ASSERT_EQ(0u, xls_value_copy(&copy, &table));
  xls_free_value(&table);
  EXPECT_EQ(u"w", S(copy.u.basic.u.array.elements[1].u.string));
  xls_free_value(&copy);
  xls_free_value(&source);
}

}  // namespace
