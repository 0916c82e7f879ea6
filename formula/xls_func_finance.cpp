/*
 * Worksheet functions: financial functions.
 *
 * IRR and RATE look for a root in three stages: Newton's method from the
 * guess, then a search outwards from the guess for two points of opposite
 * sign, then a bisection mixed with Ridders and secant steps inside that
 * bracket.  The other functions are closed formulas on (1 + rate)^n and
 * the annuity factor.
 */
#include <math.h>
#include <stdlib.h>

#include "formula/xls_functions.h"
#include "formula/xls_recalc_env.h"
#include "kel_status.h"

/* ---- Helpers -------------------------------------------------------------- */

double xls_math_pow1p(double x, double y) {
  if (x < -0.5 || x > 0.5) return pow(1 + x, y);
  return exp(y * log(1 + x));
}

double xls_math_calculate_fvifa(double rate, double nper) {
  if (rate == 0) return nper;
  if (rate <= -1) return (pow(1 + rate, nper) - 1) / rate;
  return expm1(nper * log(1 + rate)) / rate;
}

/* ---- Root seeking --------------------------------------------------------- */

int xls_update_data(double x, double y, root_seek_data* data) {
  if (y == 0) {
    data->root = x;
    return 1;
  }
  if (y > 0) {
    /* Before the other sign is known the value nearest to 0 is kept; after,
     * the point nearest to the other side, which narrows the bracket. */
    bool take = !data->have_positive ||
                (!data->have_negative ? y < data->y_positive
                                      : fabs(x - data->x_negative) <
                                            fabs(data->x_positive - data->x_negative));
    if (take) {
      data->x_positive = x;
      data->y_positive = y;
      data->have_positive = 1;
    }
  } else {
    bool take = !data->have_negative ||
                (!data->have_positive ? y > data->y_negative
                                      : fabs(x - data->x_positive) <
                                            fabs(data->x_negative - data->x_positive));
    if (take) {
      data->x_negative = x;
      data->y_negative = y;
      data->have_negative = 1;
    }
  }
  return 0;
}

root_seek_status xls_root_seek_newton(root_seek_function f, root_seek_function df,
                                      root_seek_data* data, void* user, double x0,
                                      int iterations) {
  if (iterations <= 0 || x0 < data->xmin || x0 > data->xmax) return 1;
  double x = x0;
  for (int i = 0; i < iterations; ++i) {
    double y, slope;
    root_seek_status status = f(x, &y, user);
    if (status) return status;
    if (xls_update_data(x, y, data)) return 0;
    status = df(x, &slope, user);
    if (status) return status;
    if (slope == 0) return 1;
    double next = x - y / slope;
    if (next == x) {
      data->root = x;
      return 0;
    }
    if (fabs(next - x) / (fabs(x) + fabs(next)) < data->precision) {
      data->root = next;
      return 0;
    }
    if (!(next >= data->xmin && next <= data->xmax)) return 1;
    x = next;
  }
  return 1;
}

root_seek_status xls_root_seek_point(root_seek_function f, root_seek_data* data, void* user,
                                     double x) {
  if (!(x >= data->xmin && x <= data->xmax)) return 1;
  double y;
  root_seek_status status = f(x, &y, user);
  if (status) return status;
  return xls_update_data(x, y, data) ? 0 : 1;
}

root_seek_status xls_root_seek_bisection(root_seek_function f, root_seek_data* data,
                                         void* user) {
  if (!data->have_positive || !data->have_negative) return 1;
  /* The value of the negative point in the divisor is how the first round
   * has always chosen its step; later rounds use the bracket's width. */
  double precision = fabs(data->x_positive - data->x_negative) /
                     (fabs(data->x_positive) + fabs(data->y_negative));
  int slope_steps = 0;
  for (int round = 0; round < 160; ++round) {
    double x = 0;
    bool chosen = false;
    root_seek_status status;
    if (round % 4 == 0) {
      /* Ridders: an exponential fitted through the ends and the middle. */
      double xm = (data->x_positive + data->x_negative) / 2, ym;
      status = f(xm, &ym, user);
      if (status) return status;
      if (ym == 0) {
        data->root = xm;
        return 0;
      }
      double s = sqrt(ym * ym - data->y_positive * data->y_negative);
      if (s != 0) {
        x = xm + (xm - data->x_positive) * ym / s;
        chosen = true;
      }
    } else if (round % 4 == 2 && precision <= 0.1) {
      /* A secant through two close points around one end or the middle. */
      double from, y_from;
      switch (slope_steps++ % 4) {
        case 0:
          from = data->x_positive;
          y_from = data->y_positive;
          break;
        case 2:
          from = data->x_negative;
          y_from = data->y_negative;
          break;
        default:
          from = (data->x_positive + data->x_negative) / 2;
          status = f(from, &y_from, user);
          if (status) return status;
          break;
      }
      double step = from / 1e6;
      double left = from - step, right = from + step;
      if (!(left >= data->xmin && left <= data->xmax)) left = from;
      if (!(right >= data->xmin && right <= data->xmax)) right = from;
      if (left != right) {
        double y_left, y_right;
        status = f(left, &y_left, user);
        if (status) return status;
        status = f(right, &y_right, user);
        if (status) return status;
        double slope = (y_right - y_left) / (right - left);
        if (isfinite(slope) && slope != 0) {
          double next = from - y_from / slope;
          double low = fmin(data->x_positive, data->x_negative);
          double high = fmax(data->x_positive, data->x_negative);
          if (next > low && next < high) {
            x = next;
            chosen = true;
          }
        }
      }
    }
    if (!chosen) x = (data->x_positive + data->x_negative) / 2;
    double y;
    status = f(x, &y, user);
    if (status) return status;
    if (xls_update_data(x, y, data)) return 0;
    precision = fabs(data->x_positive - data->x_negative) /
                (fabs(data->x_positive) + fabs(data->x_negative));
    if (precision < data->precision) {
      data->root = x;
      if (fabs(data->y_positive) < fabs(y)) {
        data->root = data->x_positive;
        y = data->y_positive;
      }
      if (fabs(data->y_negative) < fabs(y)) data->root = data->x_negative;
      return 0;
    }
  }
  return 1;
}

/* After a failed Newton stage: points ever further from the guess, on its
 * side of 0, until the signs differ, then the bisection between them. */
static root_seek_status seek_bracket(root_seek_function f, root_seek_data* data, void* user,
                                     double guess) {
  for (double factor = 2; factor <= 64; factor *= 2) {
    if (data->have_positive && data->have_negative) break;
    if (xls_root_seek_point(f, data, user, guess * factor) == 0) return 0;
    if (xls_root_seek_point(f, data, user, guess / factor) == 0) return 0;
  }
  if (!data->have_positive || !data->have_negative) return 1;
  return xls_root_seek_bisection(f, data, user);
}

static void init_data(root_seek_data* data, double xmin, double xmax) {
  *data = root_seek_data();
  data->xmin = xmin;
  data->xmax = xmax;
  data->precision = 1e-10;
}

/* The largest n-th root that keeps (1 + r)^n within the doubles, with room. */
static double growth_bound(double n) { return pow(1.7976931348623157e+298, 1 / n); }

/* ---- Arguments ------------------------------------------------------------ */

/* Argument index as a number, or fallback when there are fewer arguments;
 * false with the error in result. */
static bool number_arg(xls_value_t* result, const xls_recalc_env* env, const xls_value_t* args,
                       int count, int index, double fallback, double* number) {
  if (index >= count) {
    *number = fallback;
    return true;
  }
  return xls_value_todouble(&args[index], result, number, env, xls_conv_error_propagate) == 0;
}

/* A result that overflowed or has no meaning is #NUM!. */
static void set_number(xls_value_t* result, double number) {
  if (isfinite(number)) xls_value_double(result, number);
  else xls_value_error(result, xls_error_num);
}

/* ---- IRR and NPV ------------------------------------------------------------ */

struct xls_irr_t {
  int count;
  const double* values;
};

/* The net present value times (1 + r)^n, which needs no division: the first
 * value carries the exponent n, the last the exponent 1. */
static root_seek_status xls_irr_npv(double r, double* y, void* user) {
  const xls_irr_t* irr = static_cast<const xls_irr_t*>(user);
  double q = 1 + r, sum = 0;
  for (int i = 0; i < irr->count; ++i) sum = (sum + irr->values[i]) * q;
  *y = sum;
  return isfinite(sum) ? 0 : 1;
}

static root_seek_status xls_irr_npv_df(double r, double* y, void* user) {
  const xls_irr_t* irr = static_cast<const xls_irr_t*>(user);
  double q = 1 + r, sum = 0, slope = 0;
  for (int i = 0; i < irr->count; ++i) {
    slope = slope * q + sum + irr->values[i];
    sum = (sum + irr->values[i]) * q;
  }
  *y = slope;
  return isfinite(slope) ? 0 : 1;
}

static root_seek_status do_irr_solve(root_seek_data* data, xls_irr_t* irr, double guess,
                                     int iterations) {
  if (xls_root_seek_newton(xls_irr_npv, xls_irr_npv_df, data, irr, guess, iterations) == 0)
    return 0;
  return seek_bracket(xls_irr_npv, data, irr, guess);
}

/* The numbers of a range or array argument: strings, booleans and empties
 * skipped, an error the result.  Another status leaves result set. */
static uint32_t collect_numbers(xls_value_t* result, const xls_recalc_env* env,
                                const xls_value_t* arg, double** numbers, xls_array_info* info) {
  const uint16_t flags = xls_conv_skip_string | xls_conv_skip_bool | xls_conv_error_propagate |
                         xls_conv_skip_empty;
  if (arg->kind == vt_range)
    return xls_range_collect_num(result, arg->u.range, numbers, info, env, flags);
  xls_basic_value_t basic;
  if (xls_basic_value(arg, &basic)) {
    xls_value_error(result, xls_error_value);
    return KEL_ERR_VALUE;
  }
  return xls_array_collect_num(&basic, result, numbers, info, flags);
}

void xls_expr_func_irr(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double guess;
  if (!number_arg(result, env, args, count, 1, 0.1, &guess)) return;
  xls_basic_value_t basic = {};
  if (args[0].kind != vt_range && (xls_basic_value(&args[0], &basic) || basic.kind != bvt_array)) {
    /* One value is too few for a rate, unless it is an error. */
    xls_value_error(result, basic.kind == bvt_error ? xls_error_value : xls_error_num);
    return;
  }
  xls_array_info info = {sizeof(double), 0, 0};
  double* numbers = nullptr;
  if (collect_numbers(result, env, &args[0], &numbers, &info)) {
    free(numbers);
    return;
  }
  bool positive = false, negative = false;
  for (int i = 0; i < info.count; ++i) {
    positive |= numbers[i] > 0;
    negative |= numbers[i] < 0;
  }
  if (info.count < 2 || !positive || !negative) {
    free(numbers);
    xls_value_error(result, xls_error_num);
    return;
  }
  xls_irr_t irr = {info.count, numbers};
  double bound = growth_bound(info.count);
  root_seek_data data;
  init_data(&data, fmax(1 - bound, -0.05), fmin(bound - 1, 1e10));
  root_seek_status status = do_irr_solve(&data, &irr, guess, 50);
  if (status) {
    /* Rates far below 0 are rare and costly to look for: only now. */
    init_data(&data, -0.99, fmin(bound - 1, 1e10));
    status = do_irr_solve(&data, &irr, guess, 50);
  }
  free(numbers);
  if (status) xls_value_error(result, xls_error_num);
  else set_number(result, data.root);
}

void xls_expr_func_npv(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double rate;
  if (!number_arg(result, env, args, count, 0, 0, &rate)) return;
  xls_array_info info = {sizeof(double), 0, 0};
  double* numbers = nullptr;
  for (int i = 1; i < count; ++i) {
    xls_basic_value_t basic = {};
    if (args[i].kind != vt_range) xls_basic_value(&args[i], &basic);
    if (args[i].kind == vt_range || basic.kind == bvt_array) {
      if (collect_numbers(result, env, &args[i], &numbers, &info)) {
        free(numbers);
        return;
      }
      continue;
    }
    /* Given directly, only empties and strings are passed over. */
    if (basic.kind == bvt_empty || basic.kind == bvt_string) continue;
    if (basic.kind == bvt_error) {
      xls_value_error(result, basic.u.error);
      free(numbers);
      return;
    }
    double number = xls_basic_value_todouble(&basic);
    if (xls_array_push(&info, reinterpret_cast<void**>(&numbers), &number)) {
      xls_value_error(result, xls_error_out_of_memory);
      free(numbers);
      return;
    }
  }
  double sum = 0;
  for (int i = 0; i < info.count; ++i) sum += numbers[i] / xls_math_pow1p(rate, i + 1);
  free(numbers);
  set_number(result, sum);
}

/* ---- Annuities ---------------------------------------------------------- */

/* rate, nper, a payment or value, and then the optional value and type of
 * PV, FV and PMT, which share their argument list's shape. */
struct annuity_args {
  double rate, nper, third, value, type;
};

static bool annuity_arguments(xls_value_t* result, const xls_recalc_env* env,
                              const xls_value_t* args, int count, annuity_args* a) {
  if (!number_arg(result, env, args, count, 0, 0, &a->rate) ||
      !number_arg(result, env, args, count, 1, 0, &a->nper) ||
      !number_arg(result, env, args, count, 2, 0, &a->third) ||
      !number_arg(result, env, args, count, 3, 0, &a->value) ||
      !number_arg(result, env, args, count, 4, 0, &a->type))
    return false;
  a->type = a->type != 0 ? 1 : 0;
  return true;
}

void xls_expr_func_pv(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  annuity_args a;
  if (!annuity_arguments(result, env, args, count, &a)) return;
  double growth = xls_math_pow1p(a.rate, a.nper);
  if (growth == 0) {
    xls_value_error(result, xls_error_div0);
    return;
  }
  double fvifa = xls_math_calculate_fvifa(a.rate, a.nper);
  set_number(result, (-a.value - (1 + a.rate * a.type) * a.third * fvifa) / growth);
}

void xls_expr_func_fv(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  annuity_args a;
  if (!annuity_arguments(result, env, args, count, &a)) return;
  double growth = xls_math_pow1p(a.rate, a.nper);
  double fvifa = xls_math_calculate_fvifa(a.rate, a.nper);
  set_number(result, -(a.value * growth + (1 + a.rate * a.type) * a.third * fvifa));
}

void xls_expr_func_pmt(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  annuity_args a;
  if (!annuity_arguments(result, env, args, count, &a)) return;
  if (a.nper == 0) {
    xls_value_error(result, xls_error_div0);
    return;
  }
  double growth = xls_math_pow1p(a.rate, a.nper);
  double fvifa = xls_math_calculate_fvifa(a.rate, a.nper);
  set_number(result, (-a.third * growth - a.value) / (fvifa * (1 + a.rate * a.type)));
}

void xls_expr_func_nper(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                        int count) {
  double rate, pmt, pv, fv, type;
  if (!number_arg(result, env, args, count, 0, 0, &rate) ||
      !number_arg(result, env, args, count, 1, 0, &pmt) ||
      !number_arg(result, env, args, count, 2, 0, &pv) ||
      !number_arg(result, env, args, count, 3, 0, &fv) ||
      !number_arg(result, env, args, count, 4, 0, &type))
    return;
  type = type != 0 ? 1 : 0;
  if (rate <= -1) {
    xls_value_error(result, xls_error_num);
    return;
  }
  if (rate == 0 && pmt == 0) {
    xls_value_error(result, xls_error_div0);
    return;
  }
  if (pmt == 0) {
    /* Only the value grows: pv * (1 + rate)^n = -fv. */
    double ratio = -fv / pv;
    if (!(ratio > 0)) xls_value_error(result, xls_error_num);
    else set_number(result, log(ratio) / log1p(rate));
    return;
  }
  if (rate == 0) {
    double periods = -(fv + pv) / pmt;
    set_number(result, periods == 0 ? 0.0 : periods);
    return;
  }
  double annuity = pmt * (1 + rate * type);
  double ratio = (annuity - fv * rate) / (annuity + pv * rate);
  if (ratio <= 0) xls_value_error(result, xls_error_value);
  else set_number(result, log(ratio) / log(1 + rate));
}

/* ---- RATE ----------------------------------------------------------------- */

struct rate_problem {
  double nper, pmt, pv, fv, type;
};

/* The future value of the whole contract at rate r; no value at r of -1 or
 * below, nor at 0, where the annuity factor's formula divides by r. */
static root_seek_status xls_rate_f(double r, double* y, void* user) {
  const rate_problem* p = static_cast<const rate_problem*>(user);
  if (r <= -1 || r == 0) return 1;
  double fvifa = xls_math_calculate_fvifa(r, p->nper);
  *y = p->pv * xls_math_pow1p(r, p->nper) + (1 + r * p->type) * p->pmt * fvifa + p->fv;
  return isfinite(*y) ? 0 : 1;
}

static root_seek_status xls_rate_df(double r, double* y, void* user) {
  const rate_problem* p = static_cast<const rate_problem*>(user);
  if (r <= -1 || r == 0) return 1;
  double fvifa = xls_math_calculate_fvifa(r, p->nper);
  *y = -p->pmt * fvifa / r +
       p->nper * xls_math_pow1p(r, p->nper - 1) * (p->pv + (p->type + 1 / r) * p->pmt);
  return isfinite(*y) ? 0 : 1;
}

void xls_expr_func_rate(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                        int count) {
  rate_problem p;
  double guess;
  if (!number_arg(result, env, args, count, 0, 0, &p.nper) ||
      !number_arg(result, env, args, count, 1, 0, &p.pmt) ||
      !number_arg(result, env, args, count, 2, 0, &p.pv) ||
      !number_arg(result, env, args, count, 3, 0, &p.fv) ||
      !number_arg(result, env, args, count, 4, 0, &p.type) ||
      !number_arg(result, env, args, count, 5, 0.1, &guess))
    return;
  if (p.type != 0 && p.type != 1) {
    xls_value_error(result, xls_error_value);
    return;
  }
  if (p.fv == 0 && p.pmt == 0) {
    xls_value_error(result, xls_error_num);
    return;
  }
  if (guess == 0) guess = 0.1;
  double bound = growth_bound(p.nper);
  root_seek_data data;
  init_data(&data, fmax(1 - bound, -1e10), fmin(bound - 1, 1e10));
  root_seek_status status = xls_root_seek_newton(xls_rate_f, xls_rate_df, &data, &p, guess, 100);
  if (status) status = seek_bracket(xls_rate_f, &data, &p, guess);
  if (status) xls_value_error(result, xls_error_num);
  else set_number(result, data.root);
}

/* ---- Depreciation ----------------------------------------------------------- */

void xls_expr_func_sln(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double cost, salvage, life;
  if (!number_arg(result, env, args, count, 0, 0, &cost) ||
      !number_arg(result, env, args, count, 1, 0, &salvage) ||
      !number_arg(result, env, args, count, 2, 0, &life))
    return;
  if (life == 0) xls_value_error(result, xls_error_div0);
  else set_number(result, (cost - salvage) / life);
}

void xls_expr_func_syd(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double cost, salvage, life, period;
  if (!number_arg(result, env, args, count, 0, 0, &cost) ||
      !number_arg(result, env, args, count, 1, 0, &salvage) ||
      !number_arg(result, env, args, count, 2, 0, &life) ||
      !number_arg(result, env, args, count, 3, 0, &period))
    return;
  if (life <= 0 || period <= 0 || salvage < 0 || period > life) {
    xls_value_error(result, xls_error_num);
    return;
  }
  set_number(result, 2 * (cost - salvage) * (life - period + 1) / (life * (life + 1)));
}

void xls_expr_func_ddb(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  double cost, salvage, life, period, factor;
  if (!number_arg(result, env, args, count, 0, 0, &cost) ||
      !number_arg(result, env, args, count, 1, 0, &salvage) ||
      !number_arg(result, env, args, count, 2, 0, &life) ||
      !number_arg(result, env, args, count, 3, 0, &period) ||
      !number_arg(result, env, args, count, 4, 2, &factor))
    return;
  if (cost < 0 || salvage < 0 || life <= 0 || period <= 0 || factor <= 0 || period > life) {
    xls_value_error(result, xls_error_num);
    return;
  }
  /* The book value declines geometrically and stops at the salvage. */
  double keep = 1 - factor / life;
  double before = cost * pow(keep, period - 1);
  double after = fmax(cost * pow(keep, period), salvage);
  set_number(result, fmax(before - after, 0.0));
}
