/*
 * Worksheet functions: single-argument mathematics, rounding and constants.
 *
 * Arguments convert with errors handed on as the result, a range by its
 * cell in the formula's row.  A result that is no finite number (EXP of a
 * large value) is #NUM!: a cell never holds an infinity.
 */
#include <math.h>

#include "formula/xls_functions.h"
#include "formula/xls_recalc_env.h"
#include "kel_status.h"

static const double kPi = 3.14159265358979323846;

/* ---- Helpers ------------------------------------------------------------- */

double xls_math_pow10(int32_t n) {
  static const double kExact[] = {
      1e-20, 1e-19, 1e-18, 1e-17, 1e-16, 1e-15, 1e-14, 1e-13, 1e-12, 1e-11, 1e-10,
      1e-9,  1e-8,  1e-7,  1e-6,  1e-5,  1e-4,  1e-3,  1e-2,  1e-1,  1e0,   1e1,
      1e2,   1e3,   1e4,   1e5,   1e6,   1e7,   1e8,   1e9,   1e10,  1e11,  1e12,
      1e13,  1e14,  1e15,  1e16,  1e17,  1e18,  1e19,  1e20};
  if (n >= -20 && n <= 20) return kExact[n + 20];
  /* Far powers by squaring; from 0.1 the small ones carry its error. */
  double base = n > 0 ? 10.0 : 0.1;
  uint32_t exponent = n > 0 ? static_cast<uint32_t>(n) : 0u - static_cast<uint32_t>(n);
  if (exponent > 1024) exponent = 1024;
  double power = 1.0;
  for (; exponent; exponent >>= 1) {
    if (exponent & 1) power *= base;
    base *= base;
  }
  return power;
}

/* A failed conversion normally leaves its error in result; one that could
 * not say why (a cell that could not be read) leaves #VALUE!. */
static void settle_failure(xls_value_t* result) {
  if (result->kind == vt_basic && result->u.basic.kind == bvt_empty)
    xls_value_error(result, xls_error_value);
}

/* The number of args[index]; false when result already holds the answer. */
static bool number_argument(xls_value_t* result, xls_recalc_env* env, const xls_value_t* args,
                            int count, int index, double* number) {
  if (index >= count) {
    xls_value_error(result, xls_error_value);
    return false;
  }
  if (!xls_value_todouble(&args[index], result, number, env, xls_conv_error_propagate))
    return true;
  settle_failure(result);
  return false;
}

/* The integer of args[index], or fallback when it was not given. */
static bool long_argument(xls_value_t* result, xls_recalc_env* env, const xls_value_t* args,
                          int count, int index, int32_t fallback, int32_t* number) {
  *number = fallback;
  if (index >= count) return true;
  if (!xls_value_tolong(&args[index], result, number, env, xls_conv_error_propagate))
    return true;
  settle_failure(result);
  return false;
}

static void number_result(xls_value_t* result, double number, bool in_domain) {
  if (in_domain && isfinite(number)) xls_value_double(result, number);
  else xls_value_error(result, xls_error_num);
}

/* ---- Single argument ----------------------------------------------------- */

/* f(args[0]); values outside [low, high] are #NUM!. */
static void unary(xls_value_t* result, xls_recalc_env* env, const xls_value_t* args, int count,
                  double (*function)(double), double low, double high) {
  double x;
  if (!number_argument(result, env, args, count, 0, &x)) return;
  number_result(result, function(x), x >= low && x <= high);
}

void xls_expr_func_sin(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, sin, -HUGE_VAL, HUGE_VAL);
}

void xls_expr_func_cos(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, cos, -HUGE_VAL, HUGE_VAL);
}

void xls_expr_func_tan(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, tan, -HUGE_VAL, HUGE_VAL);
}

void xls_expr_func_atan(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, atan, -HUGE_VAL, HUGE_VAL);
}

void xls_expr_func_sqrt(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, sqrt, 0, HUGE_VAL);
}

void xls_expr_func_exp(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, exp, -HUGE_VAL, HUGE_VAL);
}

void xls_expr_func_abs(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, fabs, -HUGE_VAL, HUGE_VAL);
}

void xls_expr_func_int(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, floor, -HUGE_VAL, HUGE_VAL);
}

void xls_expr_func_asin(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, asin, -1, 1);
}

void xls_expr_func_acos(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  unary(result, env, args, count, acos, -1, 1);
}

void xls_expr_func_ln(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double x;
  if (!number_argument(result, env, args, count, 0, &x)) return;
  number_result(result, log(x), x > 0);
}

void xls_expr_func_log10(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double x;
  if (!number_argument(result, env, args, count, 0, &x)) return;
  number_result(result, log10(x), x > 0);
}

void xls_expr_func_log(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double x, base = 10;
  if (!number_argument(result, env, args, count, 0, &x)) return;
  if (count > 1 && !number_argument(result, env, args, count, 1, &base)) return;
  number_result(result, log(x) / log(base), x > 0 && base > 0 && base != 1);
}

void xls_expr_func_radians(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  double x;
  if (!number_argument(result, env, args, count, 0, &x)) return;
  number_result(result, x * (kPi / 180), true);
}

void xls_expr_func_degrees(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  double x;
  if (!number_argument(result, env, args, count, 0, &x)) return;
  number_result(result, x * (180 / kPi), true);
}

void xls_expr_func_fact(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double n;
  if (!number_argument(result, env, args, count, 0, &n)) return;
  /* 171! no longer fits in a double. */
  if (n < 0 || n >= 171) {
    xls_value_error(result, xls_error_num);
    return;
  }
  double product = 1;
  for (int factor = static_cast<int>(n); factor >= 2; --factor) product *= factor;
  xls_value_double(result, product);
}

/* EVEN and ODD away from zero; the result is a long, so that a huge value
 * keeps only its low 32 bits. */
static void even_odd(xls_value_t* result, xls_recalc_env* env, const xls_value_t* args,
                     int count, bool odd) {
  double x;
  if (!number_argument(result, env, args, count, 0, &x)) return;
  double whole = ceil(fabs(x));
  bool whole_is_odd = fmod(whole, 2) == 1;
  if (whole_is_odd != odd) whole += 1;
  xls_basic_value_t number = {};
  number.kind = bvt_double;
  number.u.double_value = x < 0 ? -whole : whole;
  xls_value_long(result, xls_basic_value_tolong(&number));
}

void xls_expr_func_even(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  even_odd(result, env, args, count, false);
}

void xls_expr_func_odd(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  even_odd(result, env, args, count, true);
}

/* ---- Rounding ------------------------------------------------------------ */

/* value to digits places (default 0), adding half before cutting: 0.5
 * rounds half away from zero, 0 truncates towards zero. */
static void round_digits(xls_value_t* result, xls_recalc_env* env, const xls_value_t* args,
                         int count, double half) {
  double value;
  int32_t digits;
  if (!number_argument(result, env, args, count, 0, &value)) return;
  if (!long_argument(result, env, args, count, 1, 0, &digits)) return;
  double scale = xls_math_pow10(digits);
  double scaled = value * scale;
  /* More places than a double holds change nothing. */
  if (!isfinite(scaled)) {
    xls_value_double(result, value);
    return;
  }
  double cut = scaled >= 0 ? floor(xls_math_add_epsilon(scaled + half))
                           : -floor(xls_math_add_epsilon(half - scaled));
  /* A zero stays unsigned, and a scale that underflowed to 0 gives 0. */
  xls_value_double(result, cut == 0 ? 0 : cut / scale);
}

void xls_expr_func_round(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  round_digits(result, env, args, count, 0.5);
}

void xls_expr_func_trunc(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  round_digits(result, env, args, count, 0);
}

/* ---- Two arguments ------------------------------------------------------- */

/* The remainder takes the sign of the divisor; a zero remainder has none. */
void xls_expr_func_mod(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double a, b;
  if (!number_argument(result, env, args, count, 0, &a)) return;
  if (!number_argument(result, env, args, count, 1, &b)) return;
  if (b == 0) {
    xls_value_error(result, xls_error_div0);
    return;
  }
  double remainder = fmod(fabs(a), fabs(b));
  if (remainder > 0 && (a < 0) != (b < 0)) remainder = fabs(b) - remainder;
  if (remainder != 0 && b < 0) remainder = -remainder;
  xls_value_double(result, remainder);
}

void xls_expr_func_atan2(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  double x, y;
  if (!number_argument(result, env, args, count, 0, &x)) return;
  if (!number_argument(result, env, args, count, 1, &y)) return;
  if (x == 0 && y == 0) {
    xls_value_error(result, xls_error_div0);
    return;
  }
  xls_value_double(result, atan2(y, x));
}

/* The power of the ^ operator, on the converted arguments. */
void xls_expr_func_power(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  double base, exponent;
  if (!number_argument(result, env, args, count, 0, &base)) return;
  if (!number_argument(result, env, args, count, 1, &exponent)) return;
  xls_value_t left, right;
  xls_value_double(&left, base);
  xls_value_double(&right, exponent);
  xls_value_arith(result, &left, &right, arith_power);
}

/* ---- Constants ----------------------------------------------------------- */

void xls_expr_func_pi(xls_value_t* result, xls_recalc_env*, xls_value_t*, int) {
  xls_value_double(result, kPi);
}

void xls_expr_func_true(xls_value_t* result, xls_recalc_env*, xls_value_t*, int) {
  xls_value_bool(result, true);
}

void xls_expr_func_false(xls_value_t* result, xls_recalc_env*, xls_value_t*, int) {
  xls_value_bool(result, false);
}

void xls_expr_func_na(xls_value_t* result, xls_recalc_env*, xls_value_t*, int) {
  xls_value_error(result, xls_error_na);
}
