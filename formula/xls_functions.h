/*
 * xls_functions.h -- the handlers of the function table and the numeric
 * helpers they share.  A handler has the shape of xls_expr_handler_t: it reads
 * evaluated arguments and sets result, an error value included; it never
 * fails by status and frees all it gathers.
 *
 * Statuses of the xls_math_ helpers: KEL_ERR_DIV_ZERO (a handler's
 * #DIV/0!), KEL_ERR_VALUE for a negative count.
 */
#ifndef XLS_FUNCTIONS_H
#define XLS_FUNCTIONS_H

#include <stdint.h>

#include "formula/xls_func_table.h"

/* ---- Numbers ------------------------------------------------------------- */

/* 10 to the power n: exact powers from -20 to 20; beyond, n is capped at
 * 1024 either way and the power is built by squaring 10.0 or 0.1. */
double xls_math_pow10(int32_t n);
/* Over count numbers; 0 numbers give 0 for the sum, MAX, MIN and PRODUCT. */
uint32_t xls_math_sum(const double* numbers, int count, double* result);
uint32_t xls_math_average(const double* numbers, int count, double* result);
uint32_t xls_math_count(const double* numbers, int count, double* result);
uint32_t xls_math_devsq(const double* numbers, int count, double* result);
uint32_t xls_math_var(const double* numbers, int count, double* result);
uint32_t xls_math_varp(const double* numbers, int count, double* result);
uint32_t xls_math_stdev(const double* numbers, int count, double* result);
uint32_t xls_math_stdevp(const double* numbers, int count, double* result);
uint32_t xls_math_max(const double* numbers, int count, double* result);
uint32_t xls_math_min(const double* numbers, int count, double* result);
uint32_t xls_math_product(const double* numbers, int count, double* result);

/* ---- Lookup -------------------------------------------------------------- */

/* 0 equal, 1 target below element, 2 target above, 3 incomparable (an
 * error or empty element).  Numbers before strings before booleans;
 * strings without case. */
int xls_lookup_compare(const xls_basic_value_t* element, const xls_basic_value_t* target);
/* The index (0 up) of the match of target among count elements taken every
 * stride: the first equal one; else with type > 0 the largest below
 * target, with type < 0 the smallest above it; -1 for none.  The whole
 * table is scanned, sorted or not. */
int xls_lookup_find_match(const xls_basic_value_t* elements, const xls_basic_value_t* target,
                          int count, int type, int stride);

/* ---- Financial helpers and root seeking (xls_func_finance) ----------------
 *
 * IRR and RATE find a root in three stages: Newton's method from the guess,
 * a search for two points of opposite sign, and a bisection mixed with
 * Ridders and secant steps between them.  Every point a stage computes
 * goes through xls_update_data, so a later stage starts from the bracket
 * the earlier ones found.  A status is 0 for success; any other value, the
 * one a function passes back included, is failure. */

/* (1 + x)^y: exp(y * log(1 + x)) for x within -0.5 to 0.5, else pow. */
double xls_math_pow1p(double x, double y);
/* The annuity factor ((1 + rate)^nper - 1) / rate; nper for rate 0. */
double xls_math_calculate_fvifa(double rate, double nper);

typedef uint32_t root_seek_status;
/* *y gets f(x); a non-zero status means f has no value at x. */
typedef root_seek_status (*root_seek_function)(double x, double* y, void* user);

struct root_seek_data {
  double xmin, xmax;           /* the range allowed for the root */
  double x_positive, y_positive; /* the best point with f above 0 */
  double x_negative, y_negative; /* the best point with f below 0 */
  uint8_t have_positive, have_negative;
  double precision;            /* relative width at which to stop */
  double root;                 /* the answer */
};

/* Notes a point: 1 when y is exactly 0 (root becomes x), else 0.  Before
 * the other sign is known the point whose value is nearest to 0 is kept
 * for its sign; after, the one nearest to the other sign's point. */
int xls_update_data(double x, double y, root_seek_data* data);
/* Newton from x0 with derivative df, at most iterations rounds; stops with
 * success on a relative step below precision, with failure on a step that
 * leaves the range or a slope of 0. */
root_seek_status xls_root_seek_newton(root_seek_function f, root_seek_function df,
                                      root_seek_data* data, void* user, double x0,
                                      int iterations);
/* Evaluates and notes one point: 0 only for an exact root; failure outside
 * the range.  What counts is the bracket left in data. */
root_seek_status xls_root_seek_point(root_seek_function f, root_seek_data* data, void* user,
                                     double x);
/* Needs both signs in data; at most 160 rounds. */
root_seek_status xls_root_seek_bisection(root_seek_function f, root_seek_data* data,
                                         void* user);

/* ---- Criteria (xls_func_database) -------------------------------------------
 *
 * A criterion ("<=5", "apple", 7, TRUE) is parsed once into a test and a
 * value and then applied cell by cell.  Texts compare as a whole and
 * without case: there are no wildcards.  A numeric criterion also matches
 * a text cell that reads as that number. */

struct xls_array_info;

/* Whether a cell's value passes against the parsed value; false when
 * either is null. */
typedef bool (*xls_criteria_test_t)(const xls_value_t* cell, const xls_value_t* value);
bool xls_criteria_test_equal(const xls_value_t* cell, const xls_value_t* value);
/* Values of different kinds are unequal, so they match. */
bool xls_criteria_test_unequal(const xls_value_t* cell, const xls_value_t* value);
/* Numbers with numbers, texts with texts; other pairs never match. */
bool xls_criteria_test_less(const xls_value_t* cell, const xls_value_t* value);
bool xls_criteria_test_less_or_equal(const xls_value_t* cell, const xls_value_t* value);
bool xls_criteria_test_greater(const xls_value_t* cell, const xls_value_t* value);
bool xls_criteria_test_greater_or_equal(const xls_value_t* cell, const xls_value_t* value);

/* Parses value (an array by its first element) into *test and *parsed, a
 * new heap value the caller frees with xls_free_value and free.  Numbers,
 * errors and booleans test equal; an empty criterion is the number 0; a
 * text may start with <=, >=, <>, <, = or >, and what follows is a number,
 * the locale's TRUE or FALSE, an error text, or else a text.
 * KEL_ERR_VALUE for a range, KEL_ERR_OUT_OF_MEMORY. */
uint32_t xls_parse_criteria(const xls_value_t* value, xls_criteria_test_t* test,
                            xls_value_t** parsed, const xls_locale* locale);

/* One row of a criteria range: its conditions, all of which must hold. */
struct xls_criteria_entry_t {
  xls_criteria_test_t test;
  xls_value_t* value;  /* owned */
  int32_t column;      /* the sheet column of the database it looks at */
};
struct xls_database_criteria_t {
  int count;
  xls_criteria_entry_t* entries; /* malloc'd */
};

/* The conditions of rows first_row to last_row of sheet, columns
 * first_column to last_column: one entry for each cell that is not empty
 * and whose column maps (columns[offset], -1 for none) to a database
 * column; rows without entries are dropped.  The rows are appended to
 * *rows, an array described by info; on failure the caller still frees
 * them. */
uint32_t xls_parse_criteria_range(xls_array_info* info, xls_database_criteria_t** rows,
                                  int* count, xls_sheet_t* sheet, int32_t first_row,
                                  int32_t last_row, int32_t first_column,
                                  int32_t last_column, const int32_t* columns,
                                  const xls_locale* locale);
/* The rows of a criteria range (its first row names fields of database),
 * into *rows and *count, freed with xls_free_database_criteria.  A heading
 * that names no field is KEL_ERR_VALUE; an empty heading is passed over. */
uint32_t xls_parse_database_criteria(const xls_range_ref_t* database,
                                     const xls_range_ref_t* criteria,
                                     xls_database_criteria_t** rows, int* count,
                                     const xls_recalc_env* env);
/* True when row of sheet meets all conditions of one of the rows; a cell
 * that does not exist is tested as empty.  No rows match nothing. */
bool xls_database_match_criteria(xls_sheet_t* sheet, int32_t row,
                                 const xls_database_criteria_t* rows, int count);
/* Appends to *numbers (doubles described by info) the numbers of column
 * (an offset into database) of every matching row below the heading,
 * gathered as the conversion flags say.  A non-zero status leaves the
 * error in result. */
uint32_t xls_database_find_values(xls_value_t* result, const xls_range_ref_t* database,
                                  int32_t column, const xls_database_criteria_t* rows,
                                  int count, const xls_recalc_env* env, double** numbers,
                                  xls_array_info* info, uint16_t flags);
/* The column (offset from 0) that field names in database: a number or
 * boolean counts from 1; a text is looked for, without case, in the
 * heading row, and a text found nowhere gives -1 and KEL_ERR_VALUE. */
uint32_t xls_find_col_of_field(const xls_range_ref_t* database, const xls_value_t* field,
                               int32_t* column, const xls_recalc_env* env);
/* The body of DSUM, DCOUNT and their family: arguments database, field,
 * criteria; the numbers of the field's column in the matching rows,
 * gathered under flags, go to math. */
typedef uint32_t (*xls_math_function_t)(const double* numbers, int count, double* result);
void xls_database_funcs(const xls_value_t* args, xls_value_t* result, xls_math_function_t math,
                        const xls_recalc_env* env, uint16_t flags);
void xls_free_database_criteria(xls_database_criteria_t* rows, int count);

/* ---- Handlers ------------------------------------------------------------ */

/* xls_func_math: single-argument mathematics, rounding and constants. */
void xls_expr_func_sin(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_cos(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_tan(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_atan(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_pi(xls_value_t* result, xls_recalc_env* env,
                      xls_value_t* args, int count);
void xls_expr_func_sqrt(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_exp(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_ln(xls_value_t* result, xls_recalc_env* env,
                      xls_value_t* args, int count);
void xls_expr_func_log10(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_abs(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_int(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_round(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_mod(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_atan2(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_asin(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_acos(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_log(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_fact(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_trunc(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_even(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_odd(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_power(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_radians(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_degrees(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_true(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_false(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_na(xls_value_t* result, xls_recalc_env* env,
                      xls_value_t* args, int count);

/* xls_func_stat: sums, counts and the statistical family. */
void xls_expr_func_count(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_sum(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_average(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_min(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_max(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_stdev(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_var(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_counta(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_product(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_stdevp(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_varp(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);

/* xls_func_logic: logic, choice and information. */
void xls_expr_func_if(xls_value_t* result, xls_recalc_env* env,
                      xls_value_t* args, int count);
void xls_expr_func_and(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_or(xls_value_t* result, xls_recalc_env* env,
                      xls_value_t* args, int count);
void xls_expr_func_not(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_choose(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_isna(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_iserror(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_iserr(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_istext(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_isnumber(xls_value_t* result, xls_recalc_env* env,
                            xls_value_t* args, int count);
void xls_expr_func_isblank(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_islogical(xls_value_t* result, xls_recalc_env* env,
                             xls_value_t* args, int count);
void xls_expr_func_isnontext(xls_value_t* result, xls_recalc_env* env,
                             xls_value_t* args, int count);
void xls_expr_func_error_type(xls_value_t* result, xls_recalc_env* env,
                              xls_value_t* args, int count);
void xls_expr_func_row(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_rows(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_columns(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_n(xls_value_t* result, xls_recalc_env* env,
                     xls_value_t* args, int count);
void xls_expr_func_t(xls_value_t* result, xls_recalc_env* env,
                     xls_value_t* args, int count);

/* xls_func_text: text. */
void xls_expr_func_rept(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_mid(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_len(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_value(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_lower(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_upper(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_proper(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_left(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_right(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_exact(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_trim(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_replace(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_substitute(xls_value_t* result, xls_recalc_env* env,
                              xls_value_t* args, int count);
void xls_expr_func_find(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_concatenate(xls_value_t* result, xls_recalc_env* env,
                               xls_value_t* args, int count);

/* xls_func_lookup: lookup and reference. */
void xls_expr_func_index(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_match(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_hlookup(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_vlookup(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);

/* xls_func_date: dates and times. */
void xls_expr_func_date(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_time(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_day(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_month(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_year(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_weekday(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_hour(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_minute(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_second(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_now(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_today(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);

/* xls_func_finance: financial functions. */
void xls_expr_func_npv(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_pv(xls_value_t* result, xls_recalc_env* env,
                      xls_value_t* args, int count);
void xls_expr_func_fv(xls_value_t* result, xls_recalc_env* env,
                      xls_value_t* args, int count);
void xls_expr_func_nper(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_pmt(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_rate(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_irr(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_sln(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_syd(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);
void xls_expr_func_ddb(xls_value_t* result, xls_recalc_env* env,
                       xls_value_t* args, int count);

/* xls_func_database: criteria and database functions. */
void xls_expr_func_sumif(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_countif(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_countblank(xls_value_t* result, xls_recalc_env* env,
                              xls_value_t* args, int count);
void xls_expr_func_dcount(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_dcounta(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_dsum(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_daverage(xls_value_t* result, xls_recalc_env* env,
                            xls_value_t* args, int count);
void xls_expr_func_dmin(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_dmax(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_dproduct(xls_value_t* result, xls_recalc_env* env,
                            xls_value_t* args, int count);
void xls_expr_func_dstdev(xls_value_t* result, xls_recalc_env* env,
                          xls_value_t* args, int count);
void xls_expr_func_dstdevp(xls_value_t* result, xls_recalc_env* env,
                           xls_value_t* args, int count);
void xls_expr_func_dvar(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);
void xls_expr_func_dvarp(xls_value_t* result, xls_recalc_env* env,
                         xls_value_t* args, int count);
void xls_expr_func_dget(xls_value_t* result, xls_recalc_env* env,
                        xls_value_t* args, int count);

#endif /* XLS_FUNCTIONS_H */
