/*
 * Worksheet functions: sums, counts and the statistical family.
 *
 * The numbers of all arguments are gathered into one array first and the
 * arithmetic runs on that array, so that each statistic is one plain
 * function of (numbers, count).
 */
#include <math.h>
#include <stdlib.h>

#include "formula/xls_functions.h"
#include "formula/xls_recalc_env.h"
#include "kel_status.h"

/* ---- Arithmetic on arrays ------------------------------------------------ */

uint32_t xls_math_sum(const double* numbers, int count, double* result) {
  if (count < 0) return KEL_ERR_VALUE;
  *result = 0;
  if (count == 0) return 0;
  double sum = 0;
  for (int i = 0; i < count; ++i) sum += numbers[i];
  /* The differences from the mean add up to what the first pass lost to
   * rounding. */
  double mean = sum / count, correction = 0;
  for (int i = 0; i < count; ++i) correction += numbers[i] - mean;
  *result = sum + correction;
  return 0;
}

uint32_t xls_math_average(const double* numbers, int count, double* result) {
  if (count < 0) return KEL_ERR_VALUE;
  if (count == 0) return KEL_ERR_DIV_ZERO;
  double sum;
  xls_math_sum(numbers, count, &sum);
  *result = sum / count;
  return 0;
}

uint32_t xls_math_count(const double*, int count, double* result) {
  if (count < 0) return KEL_ERR_VALUE;
  *result = count;
  return 0;
}

/* The sum of the squared differences from the mean. */
uint32_t xls_math_devsq(const double* numbers, int count, double* result) {
  double mean;
  uint32_t status = xls_math_average(numbers, count, &mean);
  if (status) return status;
  double sum = 0;
  for (int i = 0; i < count; ++i) sum += (numbers[i] - mean) * (numbers[i] - mean);
  *result = sum;
  return 0;
}

uint32_t xls_math_var(const double* numbers, int count, double* result) {
  if (count < 0) return KEL_ERR_VALUE;
  if (count < 2) return KEL_ERR_DIV_ZERO;
  double squares;
  xls_math_devsq(numbers, count, &squares);
  *result = squares / (count - 1);
  return 0;
}

uint32_t xls_math_varp(const double* numbers, int count, double* result) {
  if (count < 0) return KEL_ERR_VALUE;
  if (count < 1) return KEL_ERR_DIV_ZERO;
  double squares;
  xls_math_devsq(numbers, count, &squares);
  *result = squares / count;
  return 0;
}

uint32_t xls_math_stdev(const double* numbers, int count, double* result) {
  uint32_t status = xls_math_var(numbers, count, result);
  if (!status) *result = sqrt(*result);
  return status;
}

uint32_t xls_math_stdevp(const double* numbers, int count, double* result) {
  uint32_t status = xls_math_varp(numbers, count, result);
  if (!status) *result = sqrt(*result);
  return status;
}

uint32_t xls_math_max(const double* numbers, int count, double* result) {
  if (count < 0) return KEL_ERR_VALUE;
  *result = 0;
  for (int i = 0; i < count; ++i)
    if (i == 0 || numbers[i] > *result) *result = numbers[i];
  return 0;
}

uint32_t xls_math_min(const double* numbers, int count, double* result) {
  if (count < 0) return KEL_ERR_VALUE;
  *result = 0;
  for (int i = 0; i < count; ++i)
    if (i == 0 || numbers[i] < *result) *result = numbers[i];
  return 0;
}

uint32_t xls_math_product(const double* numbers, int count, double* result) {
  if (count < 0) return KEL_ERR_VALUE;
  /* No numbers at all make 0, not the empty product 1. */
  *result = count ? 1 : 0;
  for (int i = 0; i < count; ++i) *result *= numbers[i];
  return 0;
}

/* ---- Handlers ------------------------------------------------------------ */

/* A gathering that failed has normally set its error in result already. */
static void gathering_failed(xls_value_t* result, uint32_t status) {
  if (result->kind == vt_basic && result->u.basic.kind == bvt_empty)
    xls_value_error(result, status == KEL_ERR_OUT_OF_MEMORY ? xls_error_out_of_memory
                                                            : xls_error_value);
}

static void statistic(xls_value_t* result, const xls_recalc_env* env, const xls_value_t* args,
                      int count, uint32_t (*math)(const double*, int, double*)) {
  xls_array_info info = {};
  double* numbers = nullptr;
  uint32_t status = get_number_array(env, args, count, &info, &numbers, result);
  if (status) {
    free(numbers);
    gathering_failed(result, status);
    return;
  }
  double value = 0;
  status = math(numbers, info.count, &value);
  free(numbers);
  if (status == KEL_ERR_DIV_ZERO) xls_value_error(result, xls_error_div0);
  else if (status == KEL_ERR_PROPAGATED) return;
  else if (status) xls_value_error(result, xls_error_value);
  /* Huge numbers can add up to an infinity, which no cell can hold. */
  else if (!isfinite(value)) xls_value_error(result, xls_error_num);
  else xls_value_double(result, value);
}

void xls_expr_func_sum(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  statistic(result, env, args, count, xls_math_sum);
}

void xls_expr_func_average(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  statistic(result, env, args, count, xls_math_average);
}

void xls_expr_func_min(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  statistic(result, env, args, count, xls_math_min);
}

void xls_expr_func_max(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  statistic(result, env, args, count, xls_math_max);
}

void xls_expr_func_product(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  statistic(result, env, args, count, xls_math_product);
}

void xls_expr_func_var(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  statistic(result, env, args, count, xls_math_var);
}

void xls_expr_func_varp(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  statistic(result, env, args, count, xls_math_varp);
}

void xls_expr_func_stdev(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  statistic(result, env, args, count, xls_math_stdev);
}

void xls_expr_func_stdevp(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                          int count) {
  statistic(result, env, args, count, xls_math_stdevp);
}

/* COUNT and COUNTA: ranges and arrays are collected under flags; a value
 * given directly is skipped under the same skip flags, and otherwise
 * counted. */
static void count_values(xls_value_t* result, const xls_recalc_env* env, const xls_value_t* args,
                         int count, uint16_t flags) {
  xls_array_info info = {};
  info.element_size = sizeof(double);
  double* numbers = nullptr;
  void** data = reinterpret_cast<void**>(&numbers);
  uint32_t status = 0;
  for (int i = 0; i < count && !status; ++i) {
    if (args[i].kind == vt_range) {
      status = xls_range_collect_num(result, args[i].u.range, &numbers, &info, env, flags);
      continue;
    }
    xls_basic_value_t basic;
    if (xls_basic_value(&args[i], &basic)) continue;
    bool skipped = (basic.kind == bvt_empty && (flags & xls_conv_skip_empty)) ||
                   (basic.kind == bvt_string && (flags & xls_conv_skip_string)) ||
                   (basic.kind == bvt_bool && (flags & xls_conv_skip_bool)) ||
                   (basic.kind == bvt_error && (flags & xls_conv_skip_error));
    if (basic.kind == bvt_array) {
      status = xls_array_collect_num(&basic, result, &numbers, &info, flags);
    } else if (!skipped) {
      double number;
      status = xls_basic_value_todouble(&basic, result, &number, flags);
      if (!status) status = xls_array_push(&info, data, &number);
    }
  }
  double counted = 0;
  if (!status) status = xls_math_count(numbers, info.count, &counted);
  free(numbers);
  if (status) gathering_failed(result, status);
  else xls_value_double(result, counted);
}

void xls_expr_func_count(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  count_values(result, env, args, count,
               xls_conv_skip_string | xls_conv_skip_bool | xls_conv_skip_error |
                   xls_conv_skip_empty);
}

void xls_expr_func_counta(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                          int count) {
  count_values(result, env, args, count,
               xls_conv_string_zero | xls_conv_error_zero | xls_conv_skip_empty);
}
