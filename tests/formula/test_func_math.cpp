// Mathematics and statistics handlers, called directly with evaluated
// arguments; ranges read cells of a workbook built in memory.
#include <math.h>

#include "formula/xls_functions.h"
#include "formula_test_book.h"
#include "kel_status.h"

using namespace formula_test;

namespace {

TEST(FuncMath, ModTakesTheSignOfTheDivisor) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:2", call(xls_expr_func_mod, env, {num(-1), num(3)}));
  EXPECT_EQ("n:-2", call(xls_expr_func_mod, env, {num(1), num(-3)}));
  EXPECT_EQ("n:0", call(xls_expr_func_mod, env, {num(6), num(-3)}));  // not -0
  EXPECT_EQ("e:7", call(xls_expr_func_mod, env, {num(1), num(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_mod, env, {err(xls_error_na), num(0)}));
}

TEST(FuncMath, RoundAndTrunc) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:-3", call(xls_expr_func_round, env, {num(-2.5), lng(0)}));
  EXPECT_EQ("n:1200", call(xls_expr_func_round, env, {num(1234), lng(-2)}));
  EXPECT_EQ("n:1.23", call(xls_expr_func_round, env, {num(1.23456), num(2.9)}));
  EXPECT_EQ("n:0", call(xls_expr_func_round, env, {num(-0.2), lng(0)}));  // no -0
  // Digits beyond a double's reach: unchanged, or 0.
  EXPECT_EQ("n:1.5", call(xls_expr_func_round, env, {num(1.5), lng(400)}));
  EXPECT_EQ("n:0", call(xls_expr_func_round, env, {num(5), lng(-400)}));
  EXPECT_EQ("e:15", call(xls_expr_func_round, env, {str("x"), lng(0)}));
  EXPECT_EQ("e:15", call(xls_expr_func_round, env, {}));

  EXPECT_EQ("n:-1", call(xls_expr_func_trunc, env, {num(-1.7)}));
  EXPECT_EQ("n:1.78", call(xls_expr_func_trunc, env, {num(1.789), lng(2)}));
  EXPECT_EQ("e:7", call(xls_expr_func_trunc, env, {num(1), err(xls_error_div0)}));
}

TEST(FuncMath, FactEvenOdd) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:7.257415615308e+306", call(xls_expr_func_fact, env, {num(170)}));
  EXPECT_EQ("e:36", call(xls_expr_func_fact, env, {num(171)}));
  EXPECT_EQ("n:120", call(xls_expr_func_fact, env, {num(5.9)}));
  EXPECT_EQ("n:1", call(xls_expr_func_fact, env, {num(0)}));

  EXPECT_EQ("n:2", call(xls_expr_func_even, env, {num(1.5)}));
  EXPECT_EQ("n:-2", call(xls_expr_func_even, env, {num(-1)}));
  EXPECT_EQ("n:0", call(xls_expr_func_even, env, {num(0)}));
  EXPECT_EQ("n:1", call(xls_expr_func_odd, env, {num(0)}));
  EXPECT_EQ("n:3", call(xls_expr_func_odd, env, {num(2)}));
  EXPECT_EQ("n:-3", call(xls_expr_func_odd, env, {num(-2.5)}));
  // The result is a 32-bit long: 5e9 keeps its low 32 bits.
  EXPECT_EQ("n:705032704", call(xls_expr_func_even, env, {num(5e9)}));
}

TEST(FuncMath, DomainsOfSingleArgumentFunctions) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:2", call(xls_expr_func_log, env, {num(100)}));
  EXPECT_EQ("n:3", call(xls_expr_func_log, env, {num(8), num(2)}));
  EXPECT_EQ("e:36", call(xls_expr_func_log, env, {num(10), num(1)}));
  EXPECT_EQ("e:36", call(xls_expr_func_log, env, {num(0)}));
  EXPECT_EQ("e:36", call(xls_expr_func_ln, env, {num(0)}));
  EXPECT_EQ("e:36", call(xls_expr_func_log10, env, {num(-1)}));
  EXPECT_EQ("e:36", call(xls_expr_func_sqrt, env, {num(-1)}));
  EXPECT_EQ("e:36", call(xls_expr_func_asin, env, {num(1.5)}));
  EXPECT_EQ("e:36", call(xls_expr_func_exp, env, {num(1000)}));  // no infinity
  EXPECT_EQ("n:-3", call(xls_expr_func_int, env, {num(-2.5)}));
  EXPECT_EQ("n:180", call(xls_expr_func_degrees, env, {num(3.14159265358979323846)}));

  EXPECT_EQ("e:7", call(xls_expr_func_atan2, env, {num(0), num(0)}));
  EXPECT_EQ("n:1.5707963267949", call(xls_expr_func_atan2, env, {num(0), num(1)}));  // x, y

  EXPECT_EQ("e:36", call(xls_expr_func_power, env, {num(0), num(0)}));
  EXPECT_EQ("e:36", call(xls_expr_func_power, env, {num(-8), num(1.0 / 3)}));
  EXPECT_EQ("e:29", call(xls_expr_func_power, env, {err(xls_error_name), num(2)}));
}

TEST(FuncMath, ArgumentConversions) {
  Book book;
  book.put("A1", 4.0);
  book.put("A2", -9.0);
  xls_recalc_env env = book.env("B2");
  EXPECT_EQ("n:2", call(xls_expr_func_sqrt, env, {str("4")}));
  EXPECT_EQ("n:1", call(xls_expr_func_abs, env, {boolean(true)}));
  EXPECT_EQ("n:0", call(xls_expr_func_abs, env, {empty()}));
  EXPECT_EQ("e:42", call(xls_expr_func_sin, env, {err(xls_error_na)}));
  EXPECT_EQ("e:15", call(xls_expr_func_sin, env, {}));
  // A range is read in the formula's row.
  EXPECT_EQ("n:9", call(xls_expr_func_abs, env, {range("A1:A3")}));
  EXPECT_EQ("e:15", call(xls_expr_func_abs, env, {range("A1:B1")}));

  EXPECT_EQ("n:3.14159265358979", call(xls_expr_func_pi, env, {}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_true, env, {}));
  EXPECT_EQ("e:42", call(xls_expr_func_na, env, {}));
}

TEST(FuncMath, Pow10) {
  EXPECT_EQ(100.0, xls_math_pow10(2));
  EXPECT_EQ(0.01, xls_math_pow10(-2));
  EXPECT_EQ(1e20, xls_math_pow10(20));
  EXPECT_NEAR(1e25, xls_math_pow10(25), 1e11);
  EXPECT_TRUE(isinf(xls_math_pow10(5000)));
  EXPECT_EQ(0.0, xls_math_pow10(-5000));
}

TEST(FuncStat, ArrayArithmetic) {
  const double tenths[] = {0.1, 0.2, 0.3};
  double result = -1;
  // The second pass takes back what the first lost to rounding.
  EXPECT_EQ(0u, xls_math_sum(tenths, 3, &result));
  EXPECT_EQ(0.6, result);
  EXPECT_EQ(0u, xls_math_sum(tenths, 0, &result));
  EXPECT_EQ(0.0, result);
  EXPECT_EQ(KEL_ERR_VALUE, xls_math_sum(tenths, -1, &result));
  EXPECT_EQ(KEL_ERR_DIV_ZERO, xls_math_average(tenths, 0, &result));
  EXPECT_EQ(KEL_ERR_DIV_ZERO, xls_math_var(tenths, 1, &result));
  EXPECT_EQ(KEL_ERR_DIV_ZERO, xls_math_varp(tenths, 0, &result));
  EXPECT_EQ(0u, xls_math_product(tenths, 0, &result));
  EXPECT_EQ(0.0, result);
  const double spread[] = {2, 4, 4, 4, 5, 5, 7, 9};
  EXPECT_EQ(0u, xls_math_devsq(spread, 8, &result));
  EXPECT_EQ(32.0, result);
  EXPECT_EQ(0u, xls_math_stdevp(spread, 8, &result));
  EXPECT_EQ(2.0, result);
}

TEST(FuncStat, DirectArguments) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:6", call(xls_expr_func_sum, env, {num(1), lng(2), num(3)}));
  // Text and booleans given directly count as they would in cells: not at all.
  EXPECT_EQ("n:0", call(xls_expr_func_sum, env, {str("3"), boolean(true)}));
  EXPECT_EQ("e:7", call(xls_expr_func_sum, env, {num(1), err(xls_error_div0)}));
  EXPECT_EQ("e:36", call(xls_expr_func_sum, env, {num(1e308), num(1e308)}));
  EXPECT_EQ("n:0", call(xls_expr_func_sum, env, {}));
  EXPECT_EQ("n:1", call(xls_expr_func_count, env, {num(1), str("a"), boolean(true)}));
  EXPECT_EQ("n:0", call(xls_expr_func_count, env, {err(xls_error_na), empty()}));
  EXPECT_EQ("n:3", call(xls_expr_func_counta,
                        env, {str("a"), boolean(false), err(xls_error_na), empty()}));
  EXPECT_EQ("n:2.5", call(xls_expr_func_average, env, {num(1), num(2), num(3), num(4)}));
  EXPECT_EQ("e:7", call(xls_expr_func_average, env, {str("a")}));
  EXPECT_EQ("n:3", call(xls_expr_func_max, env, {num(3), num(-1), num(2)}));
  EXPECT_EQ("n:0", call(xls_expr_func_max, env, {}));
  EXPECT_EQ("n:0", call(xls_expr_func_product, env, {str("a")}));
  EXPECT_EQ("e:7", call(xls_expr_func_var, env, {num(1)}));
  EXPECT_EQ("n:4.57142857142857",
            call(xls_expr_func_var, env, {array(2, 4, {2, 4, 4, 4, 5, 5, 7, 9})}));
  EXPECT_EQ("n:2.1380899352994",
            call(xls_expr_func_stdev, env, {array(1, 8, {2, 4, 4, 4, 5, 5, 7, 9})}));
}

TEST(FuncStat, Ranges) {
  Book book;
  book.put("A1", 1.0);
  book.put("A2", "text");
  book.put("A3", 5.0);
  book.put("A4", boolean(true));
  book.put("B1", "x");
  book.put("B2", "y");
  book.put("C1", err(xls_error_na));
  xls_recalc_env env = book.env("D1");
  EXPECT_EQ("n:6", call(xls_expr_func_sum, env, {range("A1:A5")}));
  EXPECT_EQ("n:2", call(xls_expr_func_count, env, {range("A1:A5")}));
  EXPECT_EQ("n:4", call(xls_expr_func_counta, env, {range("A1:A5")}));
  EXPECT_EQ("n:2", call(xls_expr_func_counta, env, {range("C1:C3"), range("B2")}));
  EXPECT_EQ("n:0", call(xls_expr_func_max, env, {range("B1:B2")}));
  EXPECT_EQ("e:7", call(xls_expr_func_average, env, {range("B1:B2")}));
  EXPECT_EQ("e:42", call(xls_expr_func_sum, env, {range("A1:C1")}));
  EXPECT_EQ("n:0", call(xls_expr_func_count, env, {range("B1:C2")}));
}

}  // namespace
