// Text handlers, called directly with evaluated arguments.
#include <stdlib.h>

#include <string>

#include "formula/xls_functions.h"
#include "formula_test_book.h"
#include "test_support.h"

using namespace formula_test;

namespace {

TEST(FuncText, MidLeftRightCountUnits) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("s:b", call(xls_expr_func_mid, env, {str("abc"), lng(2), lng(1)}));
  EXPECT_EQ("s:bc", call(xls_expr_func_mid, env, {str("abc"), lng(2), lng(10)}));
  EXPECT_EQ("s:", call(xls_expr_func_mid, env, {str("abc"), lng(4), lng(1)}));
  EXPECT_EQ("s:", call(xls_expr_func_mid, env, {str("abc"), lng(1), lng(0)}));
  EXPECT_EQ("e:15", call(xls_expr_func_mid, env, {str("abc"), lng(0), lng(1)}));
  EXPECT_EQ("s:b", call(xls_expr_func_mid, env, {str("abc"), num(2.9), str("1")}));
  EXPECT_EQ("e:7", call(xls_expr_func_mid, env, {str("abc"), err(xls_error_div0), lng(1)}));

  EXPECT_EQ("s:a", call(xls_expr_func_left, env, {str("abc")}));
  EXPECT_EQ("s:abc", call(xls_expr_func_left, env, {str("abc"), lng(10)}));
  EXPECT_EQ("s:", call(xls_expr_func_left, env, {str("abc"), lng(0)}));
  EXPECT_EQ("e:15", call(xls_expr_func_left, env, {str("abc"), lng(-1)}));
  EXPECT_EQ("s:12.", call(xls_expr_func_left, env, {num(12.5), lng(3)}));
  EXPECT_EQ("s:T", call(xls_expr_func_left, env, {boolean(true)}));
  EXPECT_EQ("s:c", call(xls_expr_func_right, env, {str("abc")}));
  EXPECT_EQ("s:abc", call(xls_expr_func_right, env, {str("abc"), lng(5)}));
  EXPECT_EQ("e:15", call(xls_expr_func_right, env, {str("abc"), lng(-2)}));
}

TEST(FuncText, LenCaseAndExact) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:5", call(xls_expr_func_len, env, {num(-12.5)}));
  EXPECT_EQ("n:0", call(xls_expr_func_len, env, {empty()}));
  EXPECT_EQ("n:4", call(xls_expr_func_len, env, {boolean(true)}));
  EXPECT_EQ("e:23", call(xls_expr_func_len, env, {err(xls_error_ref)}));

  EXPECT_EQ("s:abc1-x", call(xls_expr_func_lower, env, {str("AbC1-X")}));
  EXPECT_EQ("s:ABC1-X", call(xls_expr_func_upper, env, {str("abc1-x")}));

  EXPECT_EQ("b:FALSE", call(xls_expr_func_exact, env, {str("abc"), str("aBc")}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_exact, env, {lng(1), str("1")}));
  EXPECT_EQ("b:TRUE", call(xls_expr_func_exact, env, {empty(), str("")}));
  EXPECT_EQ("e:42", call(xls_expr_func_exact, env, {str("a"), err(xls_error_na)}));
}

TEST(FuncText, ReptLimits) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("s:ababab", call(xls_expr_func_rept, env, {str("ab"), lng(3)}));
  EXPECT_EQ("e:15", call(xls_expr_func_rept, env, {str("ab"), lng(-1)}));
  // 2 * 16384 reaches the limit of a cell's text; one repetition less fits.
  EXPECT_EQ("e:15", call(xls_expr_func_rept, env, {str("ab"), lng(16384)}));
  EXPECT_EQ(2 + 32766u, call(xls_expr_func_rept, env, {str("ab"), lng(16383)}).size());
  EXPECT_EQ("e:15", call(xls_expr_func_rept, env, {str("abc"), lng(0x7FFFFFFF)}));

  // An empty text or no repetition is a null string.
  for (const char* text : {"", "ab"}) {
    xls_value_t args[2] = {str(text), lng(*text ? 0 : 5)};
    xls_value_t result;
    xls_value_empty(&result);
    xls_expr_func_rept(&result, &env, args, 2);
    EXPECT_EQ(static_cast<uint32_t>(bvt_string), result.u.basic.kind) << text;
    EXPECT_EQ(nullptr, tabulon_test::copied(result.u.basic.u.string)) << text;
    xls_free_value(&args[0]);
  }
}

TEST(FuncText, FindIsCaseSensitiveAndChecksTheStart) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:2", call(xls_expr_func_find, env, {str("b"), str("abcb")}));
  EXPECT_EQ("n:4", call(xls_expr_func_find, env, {str("b"), str("abcb"), lng(3)}));
  EXPECT_EQ("n:3", call(xls_expr_func_find, env, {str("c"), str("abc"), lng(3)}));
  EXPECT_EQ("e:15", call(xls_expr_func_find, env, {str("B"), str("abc")}));
  EXPECT_EQ("e:15", call(xls_expr_func_find, env, {str("a"), str("abc"), lng(0)}));
  EXPECT_EQ("e:15", call(xls_expr_func_find, env, {str("a"), str("abc"), lng(4)}));
  // An empty search text answers the start, whatever it is.
  EXPECT_EQ("n:1", call(xls_expr_func_find, env, {str(""), str("abc")}));
  EXPECT_EQ("n:7", call(xls_expr_func_find, env, {str(""), str("abc"), lng(7)}));
  EXPECT_EQ("n:0", call(xls_expr_func_find, env, {empty(), str(""), lng(0)}));
  EXPECT_EQ("n:2", call(xls_expr_func_find, env, {lng(2), num(123)}));
  EXPECT_EQ("e:7", call(xls_expr_func_find, env, {str("a"), err(xls_error_div0)}));
}

TEST(FuncText, SubstituteAllOrTheNth) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("s:a+b+c", call(xls_expr_func_substitute, env, {str("a-b-c"), str("-"), str("+")}));
  EXPECT_EQ("s:a-b+c",
            call(xls_expr_func_substitute, env, {str("a-b-c"), str("-"), str("+"), lng(2)}));
  EXPECT_EQ("s:a-b-c",
            call(xls_expr_func_substitute, env, {str("a-b-c"), str("-"), str("+"), lng(3)}));
  EXPECT_EQ("e:15",
            call(xls_expr_func_substitute, env, {str("a-b-c"), str("-"), str("+"), lng(0)}));
  // Occurrences don't overlap; matching is case-sensitive.
  EXPECT_EQ("s:ba", call(xls_expr_func_substitute, env, {str("aaa"), str("aa"), str("b")}));
  EXPECT_EQ("s:aab",
            call(xls_expr_func_substitute, env, {str("aaaa"), str("aa"), str("b"), lng(2)}));
  EXPECT_EQ("s:bA", call(xls_expr_func_substitute, env, {str("aA"), str("a"), str("b")}));
  EXPECT_EQ("s:xyyx", call(xls_expr_func_substitute, env, {str("xyx"), str("y"), str("yy")}));
  EXPECT_EQ("s:", call(xls_expr_func_substitute, env, {str("aaa"), str("a"), str("")}));
  EXPECT_EQ("s:abc", call(xls_expr_func_substitute, env, {str("abc"), str(""), str("x")}));
  EXPECT_EQ("e:42",
            call(xls_expr_func_substitute, env, {str("abc"), str("a"), err(xls_error_na)}));
}

TEST(FuncText, ReplaceOnUnits) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("s:aXef", call(xls_expr_func_replace, env, {str("abcdef"), lng(2), lng(3), str("X")}));
  EXPECT_EQ("s:aXbc", call(xls_expr_func_replace, env, {str("abc"), lng(2), lng(0), str("X")}));
  EXPECT_EQ("s:abcX", call(xls_expr_func_replace, env, {str("abc"), lng(10), lng(1), str("X")}));
  EXPECT_EQ("s:c", call(xls_expr_func_replace, env, {str("abc"), lng(1), lng(2), str("")}));
  EXPECT_EQ("e:15", call(xls_expr_func_replace, env, {str("abc"), lng(0), lng(1), str("X")}));
  EXPECT_EQ("e:15", call(xls_expr_func_replace, env, {str("abc"), lng(1), lng(-1), str("X")}));
  EXPECT_EQ("e:29",
            call(xls_expr_func_replace, env, {str("abc"), lng(1), lng(1), err(xls_error_name)}));
}

TEST(FuncText, ProperTrimAndConcatenate) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("s:Hello World 2Nd-Place O'Neil",
            call(xls_expr_func_proper, env, {str("hello wORLD 2nd-place o'neil")}));
  // Only ASCII letters are letters: after an accented letter a word begins.
  xls_value_t accented;
  unsigned short text[] = {0xE9, 't', 0xC9, 'T', 'E', 0};
  xls_value_string(&accented, ucs2_dup(text));
  xls_value_t result;
  xls_value_empty(&result);
  xls_expr_func_proper(&result, &env, &accented, 1);
  unsigned short expected[] = {0xE9, 'T', 0xC9, 'T', 'e', 0};
  EXPECT_EQ(0, ucs2_cmp(expected, result.u.basic.u.string));
  xls_free_value(&result);
  xls_free_value(&accented);

  EXPECT_EQ("s:a b", call(xls_expr_func_trim, env, {str("  a   b  ")}));
  EXPECT_EQ("s:\ta b\t", call(xls_expr_func_trim, env, {str("\ta  b\t ")}));
  EXPECT_EQ("s:", call(xls_expr_func_trim, env, {str("   ")}));

  EXPECT_EQ("s:a1TRUE2.5", call(xls_expr_func_concatenate, env,
                                {str("a"), lng(1), boolean(true), num(2.5)}));
  EXPECT_EQ("s:x", call(xls_expr_func_concatenate, env, {empty(), str("x")}));
  EXPECT_EQ("e:42", call(xls_expr_func_concatenate, env,
                         {str("a"), err(xls_error_na), err(xls_error_div0)}));
}

TEST(FuncText, RangeArgumentsIntersectTheFormulasRow) {
  Book book;
  book.put("A1", "first");
  book.put("A2", 2.5);
  EXPECT_EQ("s:fir", call(xls_expr_func_left, book.env("C1"), {range("A1:A3"), lng(3)}));
  EXPECT_EQ("n:3", call(xls_expr_func_len, book.env("C2"), {range("A1:A3")}));
  EXPECT_EQ("n:0", call(xls_expr_func_len, book.env("C3"), {range("A1:A3")}));
  // A row of cells is not intersected with the formula's column.
  EXPECT_EQ("e:15", call(xls_expr_func_len, book.env("A3"), {range("A1:B1")}));
}

TEST(FuncText, ValueReadsEditStrings) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:0.12", call(xls_expr_func_value, env, {str("12%")}));
  EXPECT_EQ("n:36526", call(xls_expr_func_value, env, {str("1/1/2000")}));
  EXPECT_EQ("e:15", call(xls_expr_func_value, env, {str("=1+1")}));
  EXPECT_EQ("e:15", call(xls_expr_func_value, env, {boolean(true)}));
  EXPECT_EQ("e:42", call(xls_expr_func_value, env, {err(xls_error_na)}));
  EXPECT_EQ("n:0", call(xls_expr_func_value, env, {empty()}));
  EXPECT_EQ("n:3", call(xls_expr_func_value, env, {array(1, 2, {3, 4})}));
  book.put("A1", "25%");
  book.put("A2", "TRUE");
  EXPECT_EQ("n:0.25", call(xls_expr_func_value, book.env("C1"), {range("A1:A3")}));
  EXPECT_EQ("e:15", call(xls_expr_func_value, book.env("C2"), {range("A1:A3")}));
  EXPECT_EQ("n:0", call(xls_expr_func_value, book.env("C3"), {range("A1:A3")}));
  EXPECT_EQ("e:15", call(xls_expr_func_value, book.env("C4"), {range("A1:A3")}));

  // The suggestion of a format is taken back.
  env.result_format = xls_empty_str;
  xls_value_t arg = str("5%");
  xls_value_t result;
  xls_value_empty(&result);
  xls_expr_func_value(&result, &env, &arg, 1);
  EXPECT_EQ(nullptr, env.result_format);
  xls_free_value(&result);
  xls_free_value(&arg);
}

}  // namespace
