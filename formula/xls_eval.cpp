/*
 * The evaluator: one recursive walk over a packed formula from its root,
 * standing at the formula's cell.  Formula errors travel as values; a
 * status stops the walk (memory, a cell that cannot be read, a broken
 * tree).  Nothing is compiled or cached beyond the cell's own result, and
 * a calculation changes no cell but the one being recalculated.
 */
#include <stdlib.h>
#include <string.h>

#include "formula/xls_func_table.h"
#include "formula/xls_recalc_env.h"
#include "kel_status.h"
#include "workbook/kel_xls_sheet.h"

/* Empty is an empty basic value, or a formula whose cache is one. */
static bool is_empty(const xls_value_t* value) {
  return (value->kind == vt_basic && value->u.basic.kind == bvt_empty) ||
         (value->kind == vt_expr && value->u.expr.cache.kind == bvt_empty);
}

/* Where the formula's caller wants no empty value, one becomes the long 0. */
static void apply_empty_rule(xls_value_t* value, bool keep_empty) {
  if (keep_empty || !is_empty(value)) return;
  xls_free_value(value);
  xls_value_long(value, 0);
}

/* When operand is an error (or a formula whose cache is one), sets it as
 * result and says so. */
static bool take_error(const xls_value_t* operand, xls_value_t* result) {
  xls_basic_value_t basic;
  if (xls_basic_value(operand, &basic) || basic.kind != bvt_error) return false;
  xls_value_error(result, basic.u.error);
  return true;
}

static uint32_t eval_child(xls_recalc_env* env, const xls_packed_expr_t* packed,
                           const xls_expr_t* child, xls_value_t* value, bool keep_empty) {
  xls_value_empty(value);
  if (!child) return KEL_ERR_GENERAL;
  return expr_eval_recursive(env, packed, child, value, keep_empty);
}

/* The root of another packed form (a name's definition, a nested form, a
 * shared formula's expression), evaluated at the same place.  A form
 * without nodes (one kept as text) cannot be evaluated: the status keeps
 * the cell's cached result. */
static uint32_t eval_form(xls_recalc_env* env, const xls_packed_expr_t* form,
                          xls_value_t* result, bool keep_empty) {
  // Names may refer to each other in a circle, which nothing else detects:
  // a chain of definitions this deep gives #NAME? instead of running out
  // of stack.  One evaluation runs at a time, so one counter serves.
  enum { kMaxDefinitionDepth = 64 };
  static int depth = 0;
  const xls_expr_t* root = expr_root_expr(form);
  if (!root) return KEL_ERR_GENERAL;
  if (depth >= kMaxDefinitionDepth) {
    xls_value_error(result, xls_error_name);
    return 0;
  }
  ++depth;
  uint32_t status = expr_eval_recursive(env, form, root, result, keep_empty);
  --depth;
  return status;
}

/* A child that is a plain cell reference, as a one-cell range rather than
 * the cell's value: what the range operators and the functions that read a
 * reference's position (ROW, COLUMNS ...) need of it. */
static uint32_t eval_reference(xls_recalc_env* env, const xls_packed_expr_t* packed,
                               const xls_expr_t* child, xls_value_t* value, bool keep_empty) {
  if (!child || child->op != xop_cellref || child->u.cell.sheet == XLS_DELETED_SHEET)
    return eval_child(env, packed, child, value, keep_empty);
  xls_range_ref_t range = {child->u.cell, child->u.cell};
  return xls_value_range(value, &range);
}

/* ---- Operators ----------------------------------------------------------- */

static uint32_t eval_comparison(xls_recalc_env* env, const xls_packed_expr_t* packed,
                                const xls_expr_t* node, xls_value_t* result) {
  xls_value_t left, right;
  uint32_t status = eval_child(env, packed, expr_binary_left(packed, node), &left, true);
  if (status || take_error(&left, result)) {
    xls_free_value(&left);
    return status;
  }
  status = eval_child(env, packed, expr_binary_right(packed, node), &right, true);
  if (!status && !take_error(&right, result)) {
    int order = xls_value_compare(&left, &right);
    bool truth = false;
    switch (node->op) {
      case xop_eq: truth = order == 0; break;
      case xop_gt: truth = order > 0; break;
      case xop_lt: truth = order < 0; break;
      case xop_ge: truth = order >= 0; break;
      case xop_le: truth = order <= 0; break;
      default: truth = order != 0; break;
    }
    xls_value_bool(result, truth);
  }
  xls_free_value(&left);
  xls_free_value(&right);
  return status;
}

/* A range operand of arithmetic, on the formula's own sheet, becomes an
 * array of its cells' values in its shape; cells without a value stay
 * empty.  A range elsewhere is #REF!.  A shape that no array can hold, or
 * no memory for it, is error 0x105: a formula over a large range fails on
 * its own, without ending the recalculation of the others. */
static void range_to_array(const xls_recalc_env* env, xls_value_t* operand) {
  xls_range_ref_t range = *operand->u.range;
  xls_free_value(operand);
  bool own_sheet = (!range.first.sheet || range.first.sheet == env->sheet) &&
                   (!range.second.sheet || range.second.sheet == env->sheet);
  if (!own_sheet) {
    xls_value_error(operand, xls_error_ref);
    return;
  }
  int32_t top, bottom, left, right;
  expr_normalize_range(&range, env->column, env->row, &top, &bottom, &left, &right);
  int32_t rows = bottom - top + 1, columns = right - left + 1;
  if (rows > 0xFFFF || columns > 0xFFFF) {
    xls_value_error(operand, xls_error_out_of_memory);
    return;
  }
  xls_basic_value_t* values = nullptr;
  xls_array_info info = {};
  if (xls_range_collect_basic_value(operand, &range, &values, &info, env)) {
    for (int i = 0; i < info.count; ++i) xls_free_basic_value(&values[i]);
    free(values);
    return;
  }
  operand->kind = vt_basic;
  operand->u.basic.kind = bvt_array;
  operand->u.basic.u.array.rows = static_cast<uint16_t>(rows);
  operand->u.basic.u.array.columns = static_cast<uint16_t>(columns);
  operand->u.basic.u.array.elements = values;
}

static uint32_t eval_arith_operand(xls_recalc_env* env, const xls_packed_expr_t* packed,
                                   const xls_expr_t* child, xls_value_t* operand) {
  uint32_t status = eval_child(env, packed, child, operand, false);
  if (!status && operand->kind == vt_range) range_to_array(env, operand);
  return status;
}

static uint32_t eval_arithmetic(xls_recalc_env* env, const xls_packed_expr_t* packed,
                                const xls_expr_t* node, xls_value_t* result) {
  xls_value_t left, right;
  uint32_t status = eval_arith_operand(env, packed, expr_binary_left(packed, node), &left);
  if (status || take_error(&left, result)) {
    xls_free_value(&left);
    return status;
  }
  status = eval_arith_operand(env, packed, expr_binary_right(packed, node), &right);
  if (!status && !take_error(&right, result))
    xls_value_arith(result, &left, &right, static_cast<arith_symbol_t>(node->op - xop_add));
  xls_free_value(&left);
  xls_free_value(&right);
  return status;
}

static uint32_t eval_concat(xls_recalc_env* env, const xls_packed_expr_t* packed,
                            const xls_expr_t* node, xls_value_t* result) {
  xls_value_t left, right;
  uint32_t status = eval_child(env, packed, expr_binary_left(packed, node), &left, true);
  if (status || take_error(&left, result)) {
    xls_free_value(&left);
    return status;
  }
  status = eval_child(env, packed, expr_binary_right(packed, node), &right, true);
  // A range is not intersected here: it reads as the empty text.
  if (!status && !take_error(&right, result))
    xls_value_strcat(result, &left, &right, env->locale);
  xls_free_value(&left);
  xls_free_value(&right);
  return status;
}

/* Prefix minus or postfix percent of one number; false for a kind that
 * has no number. */
static bool negate_or_percent(uint32_t op, const xls_basic_value_t* value,
                              xls_basic_value_t* out) {
  double number = 0;
  switch (value->kind) {
    case bvt_long:
      // The long stays a long under minus, but -2^31 has no long.
      if (op == xop_neg && value->u.long_value != INT32_MIN) {
        out->kind = bvt_long;
        out->u.long_value = -value->u.long_value;
        return true;
      }
      number = value->u.long_value;
      break;
    case bvt_double:
      number = value->u.double_value;
      break;
    case bvt_bool:
      number = value->u.boolean ? 1 : 0;
      break;
    case bvt_string:
      if (!xls_is_string_number(&number, value->u.string)) return false;
      break;
    default:
      return false;
  }
  out->kind = bvt_double;
  out->u.double_value = op == xop_neg ? -number : number / 100;
  return true;
}

/* Element by element; an element without a number repeats the element
 * before it (0 at the start). */
static void unary_array(uint32_t op, const xls_basic_array_t* array, xls_value_t* result) {
  if (xls_value_array(result, array->rows, array->columns)) {
    xls_value_error(result, xls_error_out_of_memory);
    return;
  }
  xls_basic_value_t previous = {};
  previous.kind = bvt_double;
  size_t count = static_cast<size_t>(array->rows) * array->columns;
  for (size_t i = 0; i < count; ++i) {
    const xls_basic_value_t* element = &array->elements[i];
    xls_basic_value_t out = {};
    bool numeric = element->kind == bvt_long || element->kind == bvt_double;
    if (!numeric || !negate_or_percent(op, element, &out)) out = previous;
    result->u.basic.u.array.elements[i] = out;
    previous = out;
  }
}

static uint32_t eval_unary(xls_recalc_env* env, const xls_packed_expr_t* packed,
                           const xls_expr_t* node, xls_value_t* result) {
  xls_value_t operand;
  uint32_t status = eval_child(env, packed, expr_unary(packed, node), &operand, false);
  if (status || take_error(&operand, result)) {
    xls_free_value(&operand);
    return status;
  }
  if (node->op == xop_plus) {
    *result = operand; // unchanged, of whatever kind
    return 0;
  }
  xls_basic_value_t basic, out = {};
  if (xls_basic_value(&operand, &basic)) {
    xls_value_error(result, xls_error_value);
  } else if (basic.kind == bvt_array) {
    unary_array(node->op, &basic.u.array, result);
  } else if (negate_or_percent(node->op, &basic, &out)) {
    xls_value_empty(result);
    result->u.basic = out;
  } else {
    xls_value_error(result, xls_error_value);
  }
  xls_free_value(&operand);
  return status;
}

/* ---- References ---------------------------------------------------------- */

/* The value of the cell a reference names.  A formula cell gives a vt_expr
 * that carries only the cache, with an empty packed form: the evaluator and
 * every function read a referenced formula's cache and never its tree, and
 * a copy of the tree per reference would cost an allocation per node on a
 * small device.  The kind stays vt_expr so that a formula cell never reads
 * as a blank one (ISBLANK, the empty rule of function arguments). */
static uint32_t eval_cellref(const xls_recalc_env* env, const xls_cell_ref_t* ref,
                             xls_value_t* result) {
  if (ref->sheet == XLS_DELETED_SHEET) {
    xls_value_error(result, xls_error_ref);
    return 0;
  }
  cell_t base = {env->row, env->column}, position;
  expr_abs_pos(&position, ref, &base);
  auto_cell_t cell = nullptr;
  uint32_t status = xls_get_cell_value(ref->sheet ? ref->sheet : env->sheet, position.col,
                                       position.row, &cell);
  xls_value_empty(result);
  if (!status && cell) {
    if (cell->value.kind == vt_expr) {
      xls_basic_value_t cache;
      status = xls_copy_basic_value(&cache, &cell->value.u.expr.cache);
      xls_packed_expr_t no_form = {};
      if (!status) xls_create_expr_value(result, &no_form, &cache);
    } else {
      status = xls_value_copy(result, &cell->value);
    }
  }
  auto_cell_release(&cell);
  return status;
}

/* One operand of a range operator: a range with a living sheet, resolved
 * at the formula's cell; otherwise the error that is the result. */
static uint32_t eval_area_operand(xls_recalc_env* env, const xls_packed_expr_t* packed,
                                  const xls_expr_t* child, xls_value_t* result,
                                  xls_sheet_t** sheet, cell_rect_t* rect, bool* failed) {
  xls_value_t operand;
  *failed = true;
  uint32_t status = eval_reference(env, packed, child, &operand, true);
  if (status || take_error(&operand, result)) {
    xls_free_value(&operand);
    return status;
  }
  cell_t base = {env->row, env->column};
  xls_sheet_t* first = nullptr;
  xls_sheet_t* last = nullptr;
  if (operand.kind != vt_range ||
      expr_rangeref_normalize(operand.u.range, env->sheet, &base, &first, &last, rect)) {
    xls_value_error(result, xls_error_ref);
  } else {
    *sheet = operand.u.range->first.sheet;
    *failed = false;
  }
  xls_free_value(&operand);
  return 0;
}

/* xop_range gives the rectangle that covers both operands, xop_isect the
 * one they share; the sheet is the left operand's first. */
static uint32_t eval_area_op(xls_recalc_env* env, const xls_packed_expr_t* packed,
                             const xls_expr_t* node, xls_value_t* result) {
  xls_sheet_t *sheet = nullptr, *unused = nullptr;
  cell_rect_t a, b;
  bool failed = false;
  uint32_t status = eval_area_operand(env, packed, expr_binary_left(packed, node), result,
                                      &sheet, &a, &failed);
  if (status || failed) return status;
  status = eval_area_operand(env, packed, expr_binary_right(packed, node), result, &unused, &b,
                             &failed);
  if (status || failed) return status;
  cell_rect_t out;
  if (node->op == xop_range) {
    out.top_row = a.top_row < b.top_row ? a.top_row : b.top_row;
    out.left_col = a.left_col < b.left_col ? a.left_col : b.left_col;
    out.bottom_row = a.bottom_row > b.bottom_row ? a.bottom_row : b.bottom_row;
    out.right_col = a.right_col > b.right_col ? a.right_col : b.right_col;
  } else {
    out.top_row = a.top_row > b.top_row ? a.top_row : b.top_row;
    out.left_col = a.left_col > b.left_col ? a.left_col : b.left_col;
    out.bottom_row = a.bottom_row < b.bottom_row ? a.bottom_row : b.bottom_row;
    out.right_col = a.right_col < b.right_col ? a.right_col : b.right_col;
    if (out.top_row > out.bottom_row || out.left_col > out.right_col) {
      xls_value_error(result, xls_error_null);
      return 0;
    }
  }
  xls_range_ref_t range = {};
  range.first = {sheet, out.top_row, out.left_col, 0, 0};
  range.second = {sheet, out.bottom_row, out.right_col, 0, 0};
  return xls_value_range(result, &range);
}

/* ---- Functions, names, shared formulas ----------------------------------- */

/* Whether argument i of a function of row is read as a reference. */
static bool takes_reference(const expr_func_desc_t* row, int i) {
  if (!row || !(row->flags & XLS_FUNC_TAKES_REFERENCES) || !row->arg_classes) return false;
  const char* classes = row->arg_classes;
  size_t length = strlen(classes);
  return classes[static_cast<size_t>(i) < length ? i : length - 1] == 'R';
}

static uint32_t eval_function(xls_recalc_env* env, const xls_packed_expr_t* packed,
                              const xls_expr_t* node, xls_value_t* result, bool keep_empty) {
  const expr_func_desc_t* row = expr_func_row(node->u.func.number);
  int32_t count = static_cast<int32_t>(expr_func_param_count(node));
  if (row && (count < row->min_args || count > row->max_args)) {
    xls_value_error(result, xls_error_value);
    return 0;
  }
  xls_value_t* args = nullptr;
  if (count > 0) {
    args = static_cast<xls_value_t*>(calloc(static_cast<size_t>(count), sizeof *args));
    if (!args) return KEL_ERR_OUT_OF_MEMORY;
  }
  // Every argument is evaluated, errors included: no function is lazy, and
  // the handler decides what an error argument means.
  uint32_t status = 0;
  int done = 0;
  for (; done < count && !status; ++done) {
    xls_value_t* arg = &args[done];
    const xls_expr_t* param = expr_func_param(packed, node, done);
    status = takes_reference(row, done) ? eval_reference(env, packed, param, arg, true)
                                        : eval_child(env, packed, param, arg, true);
    if (arg->kind == vt_expr && arg->u.expr.cache.kind == bvt_empty) {
      arg->u.expr.cache.kind = bvt_long;
      arg->u.expr.cache.u.long_value = 0;
    }
  }
  if (!status) {
    xls_expr_handler_t handler = row && row->handler ? row->handler : xls_expr_func_error;
    xls_value_empty(result);
    handler(result, env, args, count);
    apply_empty_rule(result, keep_empty);
  }
  xls_free_value_array(args, done);
  return status;
}

/* A cell of an array formula whose expression is a range shows the range's
 * cells, taken from the array's anchor: the result is an array of the
 * range's shape, a cell without value 0, and all #REF! for a range over
 * several sheets or a deleted one. */
static uint32_t array_of_range(const xls_recalc_env* env, const xls_shared_expr* shared,
                               xls_value_t* result) {
  xls_range_ref_t range = *result->u.range;
  xls_free_value(result);
  cell_t anchor = {shared->array_row, shared->array_column};
  xls_sheet_t *first = nullptr, *last = nullptr;
  cell_rect_t rect;
  bool unreadable = expr_rangeref_normalize(&range, env->sheet, &anchor, &first, &last, &rect) ||
                    first != last;
  if (unreadable) expr_normalize_range(&range, anchor.col, anchor.row, &rect.top_row,
                                       &rect.bottom_row, &rect.left_col, &rect.right_col);
  int32_t rows = rect.bottom_row - rect.top_row + 1, columns = rect.right_col - rect.left_col + 1;
  if (rows > 0xFFFF || columns > 0xFFFF ||
      xls_value_array(result, static_cast<uint16_t>(rows), static_cast<uint16_t>(columns))) {
    xls_value_error(result, xls_error_out_of_memory);
    return 0;
  }
  auto_cell_t cell = nullptr;
  uint32_t status = 0;
  xls_basic_value_t* element = result->u.basic.u.array.elements;
  for (int32_t row = rect.top_row; row <= rect.bottom_row && !status; ++row) {
    for (int32_t column = rect.left_col; column <= rect.right_col; ++column, ++element) {
      if (unreadable) {
        element->kind = bvt_error;
        element->u.error = xls_error_ref;
        continue;
      }
      status = xls_get_cell_value(first, column, row, &cell);
      if (status) break;
      xls_basic_value_t value;
      if (cell && !xls_basic_value(&cell->value, &value) && value.kind != bvt_empty) {
        status = xls_copy_basic_value(element, &value);
        if (status) break;
      } else {
        element->kind = bvt_long;
        element->u.long_value = 0;
      }
    }
  }
  auto_cell_release(&cell);
  return status;
}

static uint32_t eval_shared(xls_recalc_env* env, const xls_expr_t* node, xls_value_t* result,
                            bool keep_empty) {
  const xls_shared_expr* shared = expr_shared_expr(node);
  if (!shared) return KEL_ERR_GENERAL;
  // Relative references are offsets, so the group's one expression is
  // evaluated as it stands, at this cell.
  uint32_t status = eval_form(env, &shared->packed, result, keep_empty);
  if (status || result->kind != vt_range || !(shared->flags & XLS_SHARED_ARRAY)) return status;
  return array_of_range(env, shared, result);
}

uint32_t expr_eval_recursive(xls_recalc_env* env, const xls_packed_expr_t* packed,
                             const xls_expr_t* node, xls_value_t* result, bool keep_empty) {
  if (!node) return KEL_ERR_GENERAL;
  uint32_t status = 0;
  switch (node->op) {
    case xop_eq:
    case xop_gt:
    case xop_lt:
    case xop_ge:
    case xop_le:
    case xop_ne:
      return eval_comparison(env, packed, node, result);
    case xop_add:
    case xop_sub:
    case xop_mul:
    case xop_div:
    case xop_pow:
      return eval_arithmetic(env, packed, node, result);
    case xop_concat:
      return eval_concat(env, packed, node, result);
    case xop_func:
      return eval_function(env, packed, node, result, keep_empty);
    case xop_name:
    case xop_namex: {
      const xls_packed_expr_t* definition =
          node->op == xop_name ? expr_name_expr(node) : expr_name_x_expr(node);
      if (!definition || !expr_root_expr(definition)) {
        xls_value_error(result, xls_error_name);
        return 0;
      }
      status = eval_form(env, definition, result, keep_empty);
      // A name of another sheet or workbook delivers its value as it is.
      if (node->op == xop_name) apply_empty_rule(result, keep_empty);
      return status;
    }
    case xop_constant:
      status = xls_value_copy(result, &node->u.constant);
      apply_empty_rule(result, keep_empty);
      return status;
    case xop_cellref:
      status = eval_cellref(env, &node->u.cell, result);
      apply_empty_rule(result, keep_empty);
      return status;
    case xop_neg:
    case xop_plus:
    case xop_percent:
      return eval_unary(env, packed, node, result);
    case xop_array:
      // A nested form without nodes stands for the value beside it.
      if (!expr_root_expr(&node->u.array.packed)) {
        status = xls_value_copy(result, &node->u.array.value);
      } else {
        status = eval_form(env, &node->u.array.packed, result, keep_empty);
      }
      apply_empty_rule(result, keep_empty);
      return status;
    case xop_empty:
      return 0;
    case xop_missing:
      xls_value_empty(result);
      return 0;
    case xop_range:
    case xop_isect:
      return eval_area_op(env, packed, node, result);
    case xop_ref3d_bad:
    case xop_area3d_err:
    case xop_area_err:
      xls_value_error(result, xls_error_ref);
      return 0;
    case xop_shared:
      return eval_shared(env, node, result, keep_empty);
    default:
      xls_value_error(result, xls_error_no_meaning);
      return 0;
  }
}

/* ---- Recalculation of a cell ------------------------------------------- */

/* The value a formula shows for a range result: the range's first cell, a
 * formula cell by its cache. */
static uint32_t first_cell_of(const xls_recalc_env* env, const xls_range_ref_t* range,
                              xls_basic_value_t* value) {
  auto_cell_t cell = nullptr;
  uint32_t status = xls_get_value_from_range_by_row_col(&cell, range, 0, 0, env);
  memset(value, 0, sizeof *value);
  xls_basic_value_t basic;
  if (status == KEL_ERR_REF) {
    value->kind = bvt_error;
    value->u.error = xls_error_ref;
    status = 0;
  } else if (status == KEL_ERR_VALUE || (!status && !cell) ||
             (!status && xls_basic_value(&cell->value, &basic))) {
    value->kind = bvt_error;
    value->u.error = xls_error_value;
    status = 0;
  } else if (!status) {
    status = xls_copy_basic_value(value, &basic);
  }
  auto_cell_release(&cell);
  return status;
}

uint32_t expr_recalc(xls_recalc_env* env, auto_cell_t* cell) {
  env->result_format = nullptr;
  xls_value_t* value = &(*cell)->value;
  if (value->kind != vt_expr || !xls_is_parsed_expr(&value->u.expr.packed)) return 0;
  xls_packed_expr_t packed = value->u.expr.packed;
  xls_value_t result;
  xls_value_empty(&result);
  uint32_t status = expr_eval_recursive(env, &packed, expr_root_expr(&packed), &result, false);
  if (status) {
    xls_free_value(&result);
    return status;
  }
  xls_basic_value_t cache = {};
  switch (result.kind) {
    case vt_basic:
      cache = result.u.basic;
      break;
    case vt_expr:
      cache = result.u.expr.cache;
      expr_free(&result.u.expr.packed, true);
      break;
    default:
      // The range may hold this very cell: its old cache is read before it
      // is freed below.
      status = first_cell_of(env, result.u.range, &cache);
      xls_free_value(&result);
      if (status) return status;
      break;
  }
  xls_free_basic_value(&value->u.expr.cache);
  xls_create_expr_value(value, &packed, &cache);
  return 0;
}
