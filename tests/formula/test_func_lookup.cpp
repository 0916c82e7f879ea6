// Lookup handlers and their search, called directly with evaluated
// arguments; ranges read cells of a workbook built in memory.
#include <stdlib.h>

#include "formula/xls_functions.h"
#include "formula_test_book.h"

using namespace formula_test;

namespace {

xls_basic_value_t basic_of(xls_value_t value) { return value.u.basic; }

TEST(FuncLookup, CompareOrdersKindsAndIgnoresCase) {
  xls_basic_value_t one = basic_of(lng(1)), two = basic_of(num(2));
  xls_basic_value_t abc = basic_of(str("abc")), ABC = basic_of(str("ABC"));
  xls_basic_value_t b = basic_of(str("b")), yes = basic_of(boolean(true));
  xls_basic_value_t no = basic_of(boolean(false)), error = basic_of(err(xls_error_na));
  xls_basic_value_t nothing = basic_of(empty());
  EXPECT_EQ(0, xls_lookup_compare(&one, &one));
  EXPECT_EQ(1, xls_lookup_compare(&two, &one));  // target below element
  EXPECT_EQ(2, xls_lookup_compare(&one, &two));
  EXPECT_EQ(0, xls_lookup_compare(&abc, &ABC));
  EXPECT_EQ(2, xls_lookup_compare(&ABC, &b));
  // Numbers before strings before booleans.
  EXPECT_EQ(1, xls_lookup_compare(&abc, &two));
  EXPECT_EQ(2, xls_lookup_compare(&abc, &no));
  EXPECT_EQ(1, xls_lookup_compare(&yes, &no));
  EXPECT_EQ(3, xls_lookup_compare(&error, &one));
  EXPECT_EQ(3, xls_lookup_compare(&nothing, &one));
  for (xls_basic_value_t* v : {&abc, &ABC, &b}) xls_free_basic_value(v);
}

TEST(FuncLookup, FindMatchScansTheWholeTable) {
  xls_value_t table = array(1, 4, {9, 1, 5, 1});
  const xls_basic_value_t* e = table.u.basic.u.array.elements;
  xls_basic_value_t five = basic_of(num(5)), four = basic_of(num(4)), zero = basic_of(num(0));
  xls_basic_value_t nothing = basic_of(empty());
  EXPECT_EQ(2, xls_lookup_find_match(e, &five, 4, 0, 1));
  EXPECT_EQ(-1, xls_lookup_find_match(e, &four, 4, 0, 1));
  EXPECT_EQ(1, xls_lookup_find_match(e, &four, 4, 1, 1));   // 1, the first of two
  EXPECT_EQ(2, xls_lookup_find_match(e, &four, 4, -1, 1));  // 5, not 9
  EXPECT_EQ(-1, xls_lookup_find_match(e, &zero, 4, 1, 1));
  xls_free_value(&table);

  // An empty target reads as 0; the first exact match wins at any type.
  xls_value_t zeros = array(1, 3, {3, 0, 0});
  EXPECT_EQ(1, xls_lookup_find_match(zeros.u.basic.u.array.elements, &nothing, 3, 1, 1));
  xls_free_value(&zeros);

  // With the stride of a row the walk stops at the last row.
  xls_value_t rows = array(3, 2, {1, 10, 2, 20, 3, 30});
  xls_basic_value_t big = basic_of(num(25));
  EXPECT_EQ(2, xls_lookup_find_match(rows.u.basic.u.array.elements, &big, 3, 1, 2));
  EXPECT_EQ(-1, xls_lookup_find_match(rows.u.basic.u.array.elements, &big, 3, 0, 2));
  EXPECT_EQ(-1, xls_lookup_find_match(rows.u.basic.u.array.elements, &big, 3, -1, 2));
  xls_free_value(&rows);
}

TEST(FuncLookup, MatchOnArrays) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:3", call(xls_expr_func_match, env, {num(5), array(1, 3, {9, 1, 5}), lng(0)}));
  EXPECT_EQ("n:2", call(xls_expr_func_match, env, {num(4), array(1, 3, {9, 1, 5}), lng(1)}));
  EXPECT_EQ("n:2", call(xls_expr_func_match, env, {num(4), array(3, 1, {9, 1, 5})}));
  EXPECT_EQ("n:3", call(xls_expr_func_match, env, {num(4), array(1, 3, {9, 1, 5}), num(-3)}));
  EXPECT_EQ("e:42", call(xls_expr_func_match, env, {num(0), array(1, 3, {9, 1, 5})}));
  EXPECT_EQ("n:1", call(xls_expr_func_match, env, {array(1, 2, {9, 7}), array(1, 3, {9, 1, 5})}));
  EXPECT_EQ("e:42", call(xls_expr_func_match, env, {num(1), array(2, 2, {1, 2, 3, 4}), lng(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_match, env, {num(1), num(1), lng(0)}));
  EXPECT_EQ("e:15", call(xls_expr_func_match, env, {range("A1"), array(1, 2, {1, 2})}));
  EXPECT_EQ("e:7", call(xls_expr_func_match, env, {err(xls_error_div0), array(1, 2, {1, 2})}));
  EXPECT_EQ("e:36", call(xls_expr_func_match, env,
                         {num(1), array(1, 2, {1, 2}), err(xls_error_num)}));
}

TEST(FuncLookup, MatchOnRanges) {
  Book book;
  book.put("A1", 10);
  book.put("A2", "b");
  book.put("A3", 30);
  book.put("A4", boolean(true));
  xls_recalc_env env = book.env("C1");
  EXPECT_EQ("n:2", call(xls_expr_func_match, env, {str("B"), range("A1:A4"), lng(0)}));
  EXPECT_EQ("n:1", call(xls_expr_func_match, env, {num(25), range("A1:A4"), lng(1)}));
  EXPECT_EQ("n:4", call(xls_expr_func_match, env, {boolean(true), range("A1:A4"), lng(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_match, env, {num(5), range("A1:A4"), lng(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_match, env, {num(10), range("A1:B2"), lng(0)}));
  EXPECT_EQ("e:23", call(xls_expr_func_match, env,
                         {num(10), range("A1:A4", XLS_DELETED_SHEET), lng(0)}));
}

TEST(FuncLookup, VlookupAndHlookupOnArrays) {
  Book book;
  xls_recalc_env env = book.env();
  auto vtable = [] { return array(3, 2, {1, 10, 2, 20, 3, 30}); };
  EXPECT_EQ("n:20", call(xls_expr_func_vlookup, env, {num(2), vtable(), lng(2), lng(0)}));
  EXPECT_EQ("n:20", call(xls_expr_func_vlookup, env, {num(2.5), vtable(), lng(2)}));
  EXPECT_EQ("n:2", call(xls_expr_func_vlookup, env, {num(2.5), vtable(), lng(1), boolean(true)}));
  EXPECT_EQ("e:42", call(xls_expr_func_vlookup, env, {num(2.5), vtable(), lng(2), lng(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_vlookup, env, {num(0.5), vtable(), lng(2)}));
  EXPECT_EQ("e:42", call(xls_expr_func_vlookup, env, {empty(), vtable(), lng(2)}));
  EXPECT_EQ("e:23", call(xls_expr_func_vlookup, env, {num(2), vtable(), lng(3), lng(0)}));
  EXPECT_EQ("e:15", call(xls_expr_func_vlookup, env, {num(2), vtable(), lng(0), lng(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_vlookup, env, {num(2), vtable(), err(xls_error_na)}));
  EXPECT_EQ("e:7", call(xls_expr_func_vlookup, env, {num(2), err(xls_error_div0), lng(1)}));

  auto htable = [] { return array(2, 3, {1, 2, 3, 10, 20, 30}); };
  EXPECT_EQ("n:20", call(xls_expr_func_hlookup, env, {num(2), htable(), lng(2), lng(0)}));
  EXPECT_EQ("n:3", call(xls_expr_func_hlookup, env, {num(9), htable(), lng(1)}));
  EXPECT_EQ("e:23", call(xls_expr_func_hlookup, env, {num(2), htable(), lng(3), lng(0)}));
  // Only the first row is searched, not the values below it.
  EXPECT_EQ("e:42", call(xls_expr_func_hlookup, env, {num(20), htable(), lng(2), lng(0)}));
}

TEST(FuncLookup, VlookupAndHlookupOnRanges) {
  Book book;
  book.put("A1", 1);
  book.put("B1", "one");
  book.put("A2", 2);
  book.put("B2", "two");
  book.put("A3", 3);  // B3 stays absent
  xls_recalc_env env = book.env("D1");
  EXPECT_EQ("s:two", call(xls_expr_func_vlookup, env, {num(2), range("A1:B3"), lng(2), lng(0)}));
  EXPECT_EQ("empty", call(xls_expr_func_vlookup, env, {num(3), range("A1:B3"), lng(2), lng(0)}));
  EXPECT_EQ("e:23", call(xls_expr_func_vlookup, env, {num(2), range("A1:B3"), lng(3), lng(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_vlookup, env, {str("two"), range("A1:B3"), lng(2), lng(0)}));
  EXPECT_EQ("e:23", call(xls_expr_func_vlookup, env,
                         {num(2), range("A1:B3", XLS_DELETED_SHEET), lng(2)}));

  EXPECT_EQ("s:two", call(xls_expr_func_hlookup, env, {str("ONE"), range("B1:B2"), lng(2), lng(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_hlookup, env, {str("two"), range("B1:B2"), lng(1), lng(0)}));
  EXPECT_EQ("n:2", call(xls_expr_func_hlookup, env, {num(1), range("A1:B2"), lng(2), lng(0)}));
}

TEST(FuncLookup, IndexOnRanges) {
  Book book;
  book.put("A1", 1);
  book.put("B1", "x");
  book.put("A2", 3);  // B2 stays absent
  xls_basic_value_t cache = basic_of(lng(42));
  xls_packed_expr_t packed = {};
  xls_value_t formula;
  xls_create_expr_value(&formula, &packed, &cache);
  book.put("C1", formula);
  xls_recalc_env env = book.env("E5");
  EXPECT_EQ("r:R0C0:R1C0", call(xls_expr_func_index, env, {range("A1:B2"), lng(0), lng(1)}));
  EXPECT_EQ("r:R1C0:R1C1", call(xls_expr_func_index, env, {range("A1:B2"), lng(2), lng(0)}));
  EXPECT_EQ("r:R0C0:R1C1", call(xls_expr_func_index, env, {range("B2:A1"), lng(0), lng(0)}));
  EXPECT_EQ("s:x", call(xls_expr_func_index, env, {range("A1:B2"), lng(1), lng(2)}));
  EXPECT_EQ("n:0", call(xls_expr_func_index, env, {range("A1:B2"), lng(2), lng(2)}));
  EXPECT_EQ("n:42", call(xls_expr_func_index, env, {range("C1:C2"), lng(1), lng(1)}));
  EXPECT_EQ("e:23", call(xls_expr_func_index, env, {range("A1:B2"), lng(3), lng(1)}));
  EXPECT_EQ("e:15", call(xls_expr_func_index, env, {range("A1:B2"), lng(-1), lng(1)}));
  EXPECT_EQ("n:1", call(xls_expr_func_index, env, {range("A1:B2"), lng(1), lng(1), lng(1)}));
  EXPECT_EQ("e:15", call(xls_expr_func_index, env, {range("A1:B2"), lng(1), lng(1), lng(0)}));
  EXPECT_EQ("e:23", call(xls_expr_func_index, env, {range("A1:B2"), lng(1), lng(1), lng(2)}));
  EXPECT_EQ("e:42", call(xls_expr_func_index, env, {range("A1:B2"), err(xls_error_na)}));
  EXPECT_EQ("e:23", call(xls_expr_func_index, env,
                         {range("A1:B2", XLS_DELETED_SHEET), lng(1), lng(1)}));

  xls_value_t across = range("A1:B2", book.sheet(0));
  across.u.range->second.sheet = book.sheet(1);
  EXPECT_EQ("e:15", call(xls_expr_func_index, env, {across, lng(1), lng(1)}));
  EXPECT_EQ("n:3", call(xls_expr_func_index, env, {range("A1:B2", book.sheet(0)), lng(2), lng(1)}));
}

TEST(FuncLookup, IndexOnArraysAndSingleValues) {
  Book book;
  xls_recalc_env env = book.env();
  auto square = [] { return array(2, 2, {1, 2, 3, 4}); };
  EXPECT_EQ("n:3", call(xls_expr_func_index, env, {square(), lng(2), lng(1)}));
  EXPECT_EQ("a2x1:{n:2,n:4}", call(xls_expr_func_index, env, {square(), lng(0), lng(2)}));
  EXPECT_EQ("a1x2:{n:3,n:4}", call(xls_expr_func_index, env, {square(), lng(2)}));
  EXPECT_EQ("e:23", call(xls_expr_func_index, env, {square(), lng(3), lng(1)}));
  // One index runs along a vector, whichever way it lies.
  EXPECT_EQ("n:2", call(xls_expr_func_index, env, {array(1, 3, {1, 2, 3}), lng(2)}));
  EXPECT_EQ("n:2", call(xls_expr_func_index, env, {array(3, 1, {1, 2, 3}), lng(2)}));
  EXPECT_EQ("e:23", call(xls_expr_func_index, env, {array(1, 3, {1, 2, 3}), lng(4)}));
  EXPECT_EQ("n:7", call(xls_expr_func_index, env, {num(7), lng(1), lng(1)}));
  EXPECT_EQ("e:23", call(xls_expr_func_index, env, {num(7), lng(2)}));
  EXPECT_EQ("e:42", call(xls_expr_func_index, env, {err(xls_error_na), lng(1)}));
}

}  // namespace
