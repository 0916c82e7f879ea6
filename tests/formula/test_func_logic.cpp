// Logic, choice and information handlers, called directly with evaluated
// arguments; ranges read cells of a workbook built in memory.
#include "formula/xls_functions.h"
#include "formula_test_book.h"

using namespace formula_test;

namespace {

// A formula value kept only by its cached result, here an array.
xls_value_t formula_with_array(double first, double second) {
  xls_value_t cache = array(1, 2, {first, second});
  xls_packed_expr_t packed = {};
  xls_value_t v;
  xls_create_expr_value(&v, &packed, &cache.u.basic);
  return v;
}

TEST(FuncLogic, IfChoosesAPrivateValue) {
  Book book;
  book.put("A1", 1.0);
  book.put("A2", 0.0);
  xls_recalc_env env = book.env("B2");
  EXPECT_EQ("n:2", call(xls_expr_func_if, env, {num(1), num(2), num(3)}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_if, env, {num(0), num(2)}));
  EXPECT_EQ("e:15", call(xls_expr_func_if, env, {str("TRUE"), num(2), num(3)}));
  EXPECT_EQ("e:42", call(xls_expr_func_if, env, {err(xls_error_na), num(2), num(3)}));
  EXPECT_EQ("n:0", call(xls_expr_func_if, env, {num(1), empty()}));
  // A range stays a range for an enclosing function; an array constant stays
  // whole, a formula's array gives its first element.
  EXPECT_EQ("r:R0C0:R2C0", call(xls_expr_func_if, env, {num(1), range("A1:A3")}));
  EXPECT_EQ("a1x2:{n:1,n:2}", call(xls_expr_func_if, env, {num(1), array(1, 2, {1, 2})}));
  EXPECT_EQ("n:7", call(xls_expr_func_if, env, {num(1), formula_with_array(7, 8)}));
  // The condition as a range is read in the formula's row: A2 is 0.
  EXPECT_EQ("n:3", call(xls_expr_func_if, env, {range("A1:A3"), num(2), num(3)}));
  EXPECT_EQ("e:15", call(xls_expr_func_if, env, {range("A1:B1"), num(2), num(3)}));
  EXPECT_EQ("e:15", call(xls_expr_func_if, env, {}));

  EXPECT_EQ("b:TRUE", call(xls_expr_func_not, env, {num(0)}));
  EXPECT_EQ("e:15", call(xls_expr_func_not, env, {str("a")}));
  EXPECT_EQ("e:7", call(xls_expr_func_not, env, {err(xls_error_div0)}));
}

TEST(FuncLogic, ChooseBounds) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("s:b", call(xls_expr_func_choose, env, {num(2), str("a"), str("b"), str("c")}));
  EXPECT_EQ("e:15", call(xls_expr_func_choose, env, {num(0), str("a"), str("b")}));
  EXPECT_EQ("e:15", call(xls_expr_func_choose, env, {num(3), str("a"), str("b")}));
  EXPECT_EQ("e:23", call(xls_expr_func_choose, env, {err(xls_error_ref), str("a")}));
  EXPECT_EQ("r:R1C1:R3C2", call(xls_expr_func_choose, env, {num(1), range("B2:C4")}));
  EXPECT_EQ("e:15", call(xls_expr_func_choose, env, {}));
}

TEST(FuncLogic, AndOrOnValues) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("b:TRUE", call(xls_expr_func_and, env, {num(1), boolean(true)}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_and, env, {num(1), lng(0)}));
  // Text and empties have no effect; with nothing else there is no truth.
  EXPECT_EQ("e:15", call(xls_expr_func_or, env, {str("a")}));
  EXPECT_EQ("e:15", call(xls_expr_func_and, env, {str("TRUE"), empty()}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_and, env, {str("a"), num(2)}));
  // An error counts where it stands: a decisive value before it wins.
  EXPECT_EQ("b:TRUE", call(xls_expr_func_or, env, {num(1), err(xls_error_div0)}));
  EXPECT_EQ("e:7", call(xls_expr_func_or, env, {num(0), err(xls_error_div0)}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_or, env, {array(1, 3, {0, 0, 1})}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_and, env, {array(2, 2, {1, 1, 0, 1})}));
  EXPECT_EQ("e:15", call(xls_expr_func_or, env, {}));
}

TEST(FuncLogic, AndOrWalkRanges) {
  Book book;
  book.put("A1", "text");
  book.put("A2", 0.0);
  book.put("A3", err(xls_error_na));
  book.put("B1", "only text");
  book.put("C1", 1.0, 1);
  xls_recalc_env env = book.env("D1");
  EXPECT_EQ("b:FALSE", call(xls_expr_func_or, env, {range("A1:A2")}));
  EXPECT_EQ("e:42", call(xls_expr_func_or, env, {range("A1:A3")}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_and, env, {range("A1:A3")}));
  EXPECT_EQ("e:15", call(xls_expr_func_or, env, {range("B1:B3")}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_or, env, {range("B1:B3"), num(1)}));
  // Across two sheets: C1 is empty on the first and 1 on the second.
  xls_value_t both = range("C1", book.sheet(0));
  both.u.range->second.sheet = book.sheet(1);
  EXPECT_EQ("b:TRUE", call(xls_expr_func_or, env, {both}));
  xls_value_t deleted = range("A1", XLS_DELETED_SHEET);
  EXPECT_EQ("e:23", call(xls_expr_func_and, env, {deleted}));
}

TEST(FuncLogic, IsFunctions) {
  Book book;
  book.put("A1", 1.0);
  book.put("A2", "a");
  xls_recalc_env env = book.env("B2");
  EXPECT_EQ("b:TRUE", call(xls_expr_func_isna, env, {err(xls_error_na)}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_iserr, env, {err(xls_error_na)}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_iserr, env, {err(xls_error_div0)}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_iserror, env, {err(xls_error_na)}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_istext, env, {str("")}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_isnumber, env, {str("1")}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_isnumber, env, {array(1, 2, {1, 2})}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_isblank, env, {empty()}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_isblank, env, {lng(0)}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_isnontext, env, {err(xls_error_na)}));
  // Ranges by their cell in the formula's row (row 2); no cell there is blank.
  EXPECT_EQ("b:TRUE", call(xls_expr_func_istext, env, {range("A1:A3")}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_isblank, env, {range("C1:C3")}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_iserror, env, {range("A1:B1")}));
  EXPECT_EQ("b:FALSE", call(xls_expr_func_isblank, env, {range("A5:A6")}));
}

TEST(FuncLogic, ErrorTypeNAndT) {
  Book book;
  book.put("A2", 2.5);
  xls_recalc_env env = book.env("B2");
  EXPECT_EQ("n:4", call(xls_expr_func_error_type, env, {err(xls_error_ref)}));
  EXPECT_EQ("e:42", call(xls_expr_func_error_type, env, {num(1)}));
  EXPECT_EQ("e:42", call(xls_expr_func_error_type, env, {err(xls_error_out_of_memory)}));
  EXPECT_EQ("n:3", call(xls_expr_func_error_type, env, {range("A1:B1")}));

  EXPECT_EQ("n:1", call(xls_expr_func_n, env, {boolean(true)}));
  EXPECT_EQ("n:0", call(xls_expr_func_n, env, {str("5")}));
  EXPECT_EQ("e:7", call(xls_expr_func_n, env, {err(xls_error_div0)}));
  EXPECT_EQ("n:2.5", call(xls_expr_func_n, env, {range("A1:A3")}));
  EXPECT_EQ("n:0", call(xls_expr_func_n, env, {range("A1:B1")}));
  // N clears a number format the argument suggested.
  static const unsigned short kDate[] = {'d', 0};
  env.result_format = kDate;
  xls_value_t arg = num(3), result;
  xls_value_empty(&result);
  xls_expr_func_n(&result, &env, &arg, 1);
  EXPECT_EQ("n:3", describe(result));
  EXPECT_EQ(nullptr, env.result_format);

  EXPECT_EQ("s:abc", call(xls_expr_func_t, env, {str("abc")}));
  EXPECT_EQ("s:", call(xls_expr_func_t, env, {num(5)}));
  EXPECT_EQ("e:42", call(xls_expr_func_t, env, {err(xls_error_na)}));
}

TEST(FuncLogic, RowRowsColumns) {
  Book book;
  xls_recalc_env env = book.env("C5");
  EXPECT_EQ("n:5", call(xls_expr_func_row, env, {}));
  EXPECT_EQ("n:3", call(xls_expr_func_row, env, {range("D7:B3")}));  // the upper row
  EXPECT_EQ("e:15", call(xls_expr_func_row, env, {num(1)}));
  EXPECT_EQ("e:7", call(xls_expr_func_row, env, {err(xls_error_div0)}));
  EXPECT_EQ("e:23", call(xls_expr_func_row, env, {range("A1", XLS_DELETED_SHEET)}));

  EXPECT_EQ("n:5", call(xls_expr_func_rows, env, {range("B3:D7")}));
  EXPECT_EQ("n:3", call(xls_expr_func_columns, env, {range("B3:D7")}));
  EXPECT_EQ("n:2", call(xls_expr_func_rows, env, {array(2, 3, {1, 2, 3, 4, 5, 6})}));
  EXPECT_EQ("n:1", call(xls_expr_func_rows, env, {num(5)}));
  EXPECT_EQ("e:42", call(xls_expr_func_columns, env, {err(xls_error_na)}));
}

}  // namespace
