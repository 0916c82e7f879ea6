/*
 * Worksheet functions: logic, choice and information.
 *
 * A condition reads a range by its cell in the formula's row and takes no
 * text: IF("x", ...) is #VALUE!, not a guess at what the text means.  AND
 * and OR instead walk whole ranges and arrays and pass over text.
 */
#include <string.h>

#include "formula/xls_functions.h"
#include "formula/xls_recalc_env.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

/* A condition: errors are handed on, text is #VALUE!. */
static const uint16_t kConditionFlags = xls_conv_error_propagate | xls_conv_string_invalid;

/* A failed conversion normally leaves its error in result; one that could
 * not say why (a cell that could not be read) leaves #VALUE!. */
static void settle_failure(xls_value_t* result) {
  if (result->kind == vt_basic && result->u.basic.kind == bvt_empty)
    xls_value_error(result, xls_error_value);
}

static bool missing_argument(xls_value_t* result, int count, int needed) {
  if (count >= needed) return false;
  xls_value_error(result, xls_error_value);
  return true;
}

/* The value args[0] reads as for a condition; false when result already
 * holds the answer. */
static bool condition_argument(xls_value_t* result, xls_recalc_env* env, const xls_value_t* args,
                               int count, bool* truth) {
  if (missing_argument(result, count, 1)) return false;
  double number;
  if (xls_value_todouble(&args[0], result, &number, env, kConditionFlags)) {
    settle_failure(result);
    return false;
  }
  *truth = number != 0;
  return true;
}

/* ---- IF, NOT, CHOOSE ----------------------------------------------------- */

/* The value of a chosen branch as the function's own: a range stays a
 * range for an enclosing function to use, a formula gives its cache (the
 * first element of an array), and an empty value becomes 0. */
static void take_branch(xls_value_t* result, const xls_value_t* branch) {
  uint32_t status;
  if (branch->kind == vt_range) {
    status = xls_value_copy(result, branch);
  } else {
    xls_basic_value_t basic = {};
    xls_basic_value(branch, &basic);
    if (branch->kind == vt_expr && basic.kind == bvt_array) {
      const xls_basic_array_t& array = basic.u.array;
      if (array.rows && array.columns && array.elements) basic = array.elements[0];
      else basic.kind = bvt_empty;
    }
    if (basic.kind == bvt_empty) {
      xls_value_long(result, 0);
      return;
    }
    xls_value_empty(result);
    status = xls_copy_basic_value(&result->u.basic, &basic);
  }
  if (status) xls_value_error(result, xls_error_out_of_memory);
}

void xls_expr_func_if(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  bool truth;
  if (!condition_argument(result, env, args, count, &truth)) return;
  int branch = truth ? 1 : 2;
  if (branch < count) take_branch(result, &args[branch]);
  else xls_value_bool(result, false);
}

void xls_expr_func_not(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  bool truth;
  if (condition_argument(result, env, args, count, &truth)) xls_value_bool(result, !truth);
}

void xls_expr_func_choose(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                          int count) {
  if (missing_argument(result, count, 1)) return;
  int32_t index;
  if (xls_value_tolong(&args[0], result, &index, env, xls_conv_error_propagate)) {
    settle_failure(result);
    return;
  }
  if (index < 1 || index >= count) {
    xls_value_error(result, xls_error_value);
    return;
  }
  if (xls_value_copy(result, &args[index])) xls_value_error(result, xls_error_out_of_memory);
}

/* ---- AND, OR ------------------------------------------------------------- */

/* OR ends at the first true value, AND at the first false one. */
struct logic_walk {
  bool decisive;   /* the truth that ends the walk */
  int counted;     /* numbers and booleans met */
};

/* Takes one value; false ends the walk with result set. */
static bool logic_take(logic_walk* walk, const xls_basic_value_t* value, xls_value_t* result) {
  switch (value->kind) {
    case bvt_long:
    case bvt_double:
    case bvt_bool: {
      bool truth = xls_basic_value_todouble(value) != 0;
      walk->counted++;
      if (truth != walk->decisive) return true;
      xls_value_bool(result, truth);
      return false;
    }
    case bvt_error:
      xls_value_error(result, value->u.error);
      return false;
    case bvt_array: {
      const xls_basic_array_t& array = value->u.array;
      int size = array.elements ? array.rows * array.columns : 0;
      for (int i = 0; i < size; ++i)
        if (!logic_take(walk, &array.elements[i], result)) return false;
      return true;
    }
    default: /* empty and text have no effect */
      return true;
  }
}

/* Walks a range cell by cell, sheets, then rows, then columns, so that a
 * large range needs no copy and the walk can end early. */
static bool logic_take_range(logic_walk* walk, const xls_range_ref_t* range,
                             const xls_recalc_env* env, xls_value_t* result) {
  xls_range_span span;
  if (xls_range_span_resolve(range, env, &span)) {
    xls_value_error(result, xls_error_ref);
    return false;
  }
  const cell_rect_t& rect = span.rect;
  for (int32_t s = 0; s < span.sheet_count; ++s) {
    xls_sheet_t* sheet = xls_range_span_sheet(&span, s);
    for (int32_t row = rect.top_row; sheet && row <= rect.bottom_row; ++row) {
      for (int32_t column = rect.left_col; column <= rect.right_col; ++column) {
        auto_cell_t pin = nullptr;
        uint32_t status = kel_cell_cache_find_cell_near(&pin, &sheet->cells, column, row,
                                                        &sheet->cell_hint);
        bool going_on = true;
        xls_basic_value_t basic;
        if (status) {
          xls_value_error(result, xls_error_value);
          going_on = false;
        } else if (pin && !xls_basic_value(&pin->value, &basic)) {
          going_on = logic_take(walk, &basic, result);
        }
        auto_cell_release(&pin);
        if (!going_on) return false;
      }
    }
  }
  return true;
}

static void and_or(xls_value_t* result, const xls_recalc_env* env, const xls_value_t* args,
                   int count, bool is_or) {
  logic_walk walk = {is_or, 0};
  for (int i = 0; i < count; ++i) {
    bool going_on;
    if (args[i].kind == vt_range) {
      going_on = logic_take_range(&walk, args[i].u.range, env, result);
    } else {
      xls_basic_value_t basic = {};
      xls_basic_value(&args[i], &basic);
      going_on = logic_take(&walk, &basic, result);
    }
    if (!going_on) return;
  }
  /* Nothing but text and empties has no truth at all. */
  if (walk.counted) xls_value_bool(result, !is_or);
  else xls_value_error(result, xls_error_value);
}

void xls_expr_func_and(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  and_or(result, env, args, count, false);
}

void xls_expr_func_or(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  and_or(result, env, args, count, true);
}

/* ---- Information --------------------------------------------------------- */

/* The basic value an information function looks at: a range's cell in the
 * formula's row (pinned in *pin; the caller releases it), a formula's
 * cache, an array's first element; empty for no cell or no argument.  A
 * failed intersection gives false and its error code in *failure. */
static bool inspect(const xls_value_t* args, int count, const xls_recalc_env* env,
                    xls_cell_t** pin, xls_basic_value_t* basic, biff_error_t* failure) {
  *pin = nullptr;
  memset(basic, 0, sizeof *basic);
  if (count < 1) return true;
  const xls_value_t* value = &args[0];
  if (value->kind == vt_range) {
    xls_value_t error;
    xls_value_empty(&error);
    if (xls_get_value_in_range(&error, pin, value->u.range, env)) {
      bool coded = error.kind == vt_basic && error.u.basic.kind == bvt_error;
      *failure = coded ? error.u.basic.u.error : static_cast<biff_error_t>(xls_error_value);
      xls_free_value(&error);
      auto_cell_release(pin);
      return false;
    }
    if (!*pin) return true;
    value = &(*pin)->value;
  }
  if (xls_basic_value(value, basic)) memset(basic, 0, sizeof *basic);
  if (basic->kind == bvt_array) {
    const xls_basic_array_t array = basic->u.array;
    if (array.rows && array.columns && array.elements) *basic = array.elements[0];
    else memset(basic, 0, sizeof *basic);
  }
  return true;
}

/* An IS function: the test on the value looked at; false where the range
 * has no cell in the formula's row. */
static void information(xls_value_t* result, const xls_recalc_env* env, const xls_value_t* args,
                        int count, bool (*test)(const xls_basic_value_t*)) {
  xls_cell_t* pin;
  xls_basic_value_t basic;
  biff_error_t failure;
  bool truth = inspect(args, count, env, &pin, &basic, &failure) && test(&basic);
  auto_cell_release(&pin);
  xls_value_bool(result, truth);
}

static bool is_na(const xls_basic_value_t* value) {
  return value->kind == bvt_error && value->u.error == xls_error_na;
}
static bool is_error(const xls_basic_value_t* value) { return value->kind == bvt_error; }
static bool is_err(const xls_basic_value_t* value) {
  return value->kind == bvt_error && value->u.error != xls_error_na;
}
static bool is_text(const xls_basic_value_t* value) { return value->kind == bvt_string; }
static bool is_nontext(const xls_basic_value_t* value) { return value->kind != bvt_string; }
static bool is_numeric(const xls_basic_value_t* value) {
  return value->kind == bvt_long || value->kind == bvt_double;
}
static bool is_blank(const xls_basic_value_t* value) { return value->kind == bvt_empty; }
static bool is_logical(const xls_basic_value_t* value) { return value->kind == bvt_bool; }

void xls_expr_func_isna(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  information(result, env, args, count, is_na);
}

void xls_expr_func_iserror(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  information(result, env, args, count, is_error);
}

void xls_expr_func_iserr(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  information(result, env, args, count, is_err);
}

void xls_expr_func_istext(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                          int count) {
  information(result, env, args, count, is_text);
}

void xls_expr_func_isnumber(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                            int count) {
  information(result, env, args, count, is_numeric);
}

void xls_expr_func_isblank(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  information(result, env, args, count, is_blank);
}

void xls_expr_func_islogical(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                             int count) {
  information(result, env, args, count, is_logical);
}

void xls_expr_func_isnontext(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                             int count) {
  information(result, env, args, count, is_nontext);
}

/* The type number of an error, #N/A for anything else; a range without a
 * cell in the row answers for the error that the intersection made. */
void xls_expr_func_error_type(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                              int count) {
  xls_cell_t* pin;
  xls_basic_value_t basic;
  biff_error_t failure;
  if (!inspect(args, count, env, &pin, &basic, &failure)) {
    basic.kind = bvt_error;
    basic.u.error = failure;
  }
  xls_get_error_type(result, &basic);
  auto_cell_release(&pin);
}

/* A number as it is, TRUE as 1, an error as itself, anything else 0.  The
 * result is no date or percentage even if the argument was. */
void xls_expr_func_n(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  env->result_format = nullptr;
  xls_cell_t* pin;
  xls_basic_value_t basic;
  biff_error_t failure;
  if (!inspect(args, count, env, &pin, &basic, &failure)) basic.kind = bvt_empty;
  switch (basic.kind) {
    case bvt_long:
    case bvt_double:
    case bvt_error:
      xls_value_empty(result);
      result->u.basic = basic;
      break;
    default:
      xls_value_long(result, basic.kind == bvt_bool && basic.u.boolean ? 1 : 0);
      break;
  }
  auto_cell_release(&pin);
}

/* The text of a text argument, an error as itself, else the empty text. */
void xls_expr_func_t(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  xls_cell_t* pin;
  xls_basic_value_t basic;
  biff_error_t failure;
  if (!inspect(args, count, env, &pin, &basic, &failure)) {
    xls_value_error(result, failure);
  } else if (basic.kind == bvt_error) {
    xls_value_error(result, basic.u.error);
  } else if (basic.kind == bvt_string && basic.u.string && basic.u.string[0]) {
    unsigned short* text = ucs2_dup(basic.u.string);
    if (text) xls_value_string(result, text);
    else xls_value_error(result, xls_error_out_of_memory);
  } else {
    xls_value_string(result, nullptr);
  }
  auto_cell_release(&pin);
}

/* ---- References ---------------------------------------------------------- */

static bool on_deleted_sheet(xls_value_t* result, const xls_range_ref_t* range) {
  if (range->first.sheet != XLS_DELETED_SHEET && range->second.sheet != XLS_DELETED_SHEET)
    return false;
  xls_value_error(result, xls_error_ref);
  return true;
}

/* ROW of a reference is the number of its first row; without one, the
 * formula's own. */
void xls_expr_func_row(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  if (count < 1) {
    xls_value_long(result, env->row + 1);
    return;
  }
  xls_basic_value_t basic;
  if (args[0].kind == vt_range) {
    const xls_range_ref_t* range = args[0].u.range;
    if (on_deleted_sheet(result, range)) return;
    int32_t first_row, last_row, first_column, last_column;
    expr_normalize_range(range, env->column, env->row, &first_row, &last_row, &first_column,
                         &last_column);
    xls_value_long(result, first_row + 1);
  } else if (!xls_basic_value(&args[0], &basic) && basic.kind == bvt_error) {
    xls_value_error(result, basic.u.error);
  } else {
    xls_value_error(result, xls_error_value);
  }
}

/* The height or width of a range or an array; 1 for another value. */
static void extent(xls_value_t* result, const xls_recalc_env* env, const xls_value_t* args,
                   int count, bool rows) {
  if (missing_argument(result, count, 1)) return;
  const xls_value_t* value = &args[0];
  xls_basic_value_t basic;
  if (value->kind == vt_range) {
    if (on_deleted_sheet(result, value->u.range)) return;
  } else if (!xls_basic_value(value, &basic) && basic.kind == bvt_error) {
    xls_value_error(result, basic.u.error);
    return;
  }
  cell_t at = {env->row, env->column};
  xls_value_long(result, rows ? xls_value_area_getheight(value, &at)
                              : xls_value_area_getwidth(value, &at));
}

void xls_expr_func_rows(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  extent(result, env, args, count, true);
}

void xls_expr_func_columns(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  extent(result, env, args, count, false);
}
