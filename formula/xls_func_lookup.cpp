/*
 * Worksheet functions: lookup and reference.
 *
 * A lookup never searches by halves: the table is scanned whole, sorted or
 * not, so an unsorted table gives the best candidate of all its elements
 * rather than whatever a binary search would have met.  Only the row or
 * column that is searched is read into memory; the answer is read from its
 * cell alone.
 */
#include <stdlib.h>

#include "formula/xls_functions.h"
#include "formula/xls_recalc_env.h"
#include "foundation/zuv_uni_string.h"
#include "workbook/kel_xls_sheet.h"

/* ---- Comparison and search ---------------------------------------------- */

/* The order of kinds: numbers, then strings, then booleans; 0 for kinds
 * that compare with nothing. */
static int kind_rank(const xls_basic_value_t* value) {
  switch (value->kind) {
    case bvt_long:
    case bvt_double:
      return 1;
    case bvt_string:
      return 2;
    case bvt_bool:
      return 3;
    default:
      return 0;
  }
}

int xls_lookup_compare(const xls_basic_value_t* element, const xls_basic_value_t* target) {
  int element_rank = kind_rank(element), target_rank = kind_rank(target);
  if (!element_rank || !target_rank) return 3;
  int order; /* the sign of target minus element */
  if (element_rank != target_rank) {
    order = target_rank - element_rank;
  } else if (element_rank == 1) {
    double e = xls_basic_value_todouble(element), t = xls_basic_value_todouble(target);
    order = excel_is_equal(t, e) ? 0 : (t < e ? -1 : 1);
  } else if (element_rank == 2) {
    /* ucs2_cmpi answers second minus first. */
    order = ucs2_cmpi(element->u.string, target->u.string);
  } else {
    order = (target->u.boolean != 0) - (element->u.boolean != 0);
  }
  return order == 0 ? 0 : order < 0 ? 1 : 2;
}

int xls_lookup_find_match(const xls_basic_value_t* elements, const xls_basic_value_t* target,
                          int count, int type, int stride) {
  xls_basic_value_t wanted = *target;
  if (wanted.kind == bvt_empty) {
    wanted.kind = bvt_long;
    wanted.u.long_value = 0;
  }
  if (stride < 1) stride = 1;
  int candidate = -1;
  /* count elements, not count strides: with a row's stride the walk ends at
   * the last row instead of running past the table. */
  for (int i = 0; i < count; ++i) {
    const xls_basic_value_t* element = &elements[static_cast<size_t>(i) * stride];
    int order = xls_lookup_compare(element, &wanted);
    if (order == 0) return i;
    const xls_basic_value_t* best =
        candidate < 0 ? nullptr : &elements[static_cast<size_t>(candidate) * stride];
    /* Strict comparison with the candidate: of equal elements the first
     * stays. */
    if (type > 0 && order == 2 && (!best || xls_lookup_compare(best, element) == 2))
      candidate = i;
    else if (type < 0 && order == 1 && (!best || xls_lookup_compare(best, element) == 1))
      candidate = i;
  }
  return candidate;
}

/* ---- Helpers of the handlers --------------------------------------------- */

static const xls_basic_value_t kEmpty = {};

/* The error a status of a cell access stands for. */
static biff_error_t status_error(uint32_t status) {
  switch (status) {
    case KEL_ERR_REF:
      return xls_error_ref;
    case KEL_ERR_VALUE:
      return xls_error_value;
    case KEL_ERR_OUT_OF_MEMORY:
      return xls_error_out_of_memory;
    default:
      return xls_error_function_failed;
  }
}

static const xls_basic_value_t* first_element(const xls_basic_value_t* value) {
  if (value->kind != bvt_array) return value;
  const xls_basic_array_t& array = value->u.array;
  return array.rows && array.columns && array.elements ? array.elements : &kEmpty;
}

/* result becomes a copy of value (0x105 without memory). */
static void set_copy(xls_value_t* result, const xls_basic_value_t* value) {
  xls_value_empty(result);
  if (xls_copy_basic_value(&result->u.basic, value))
    xls_value_error(result, xls_error_out_of_memory);
}

/* result becomes the value of cell (null: none), an array by its first
 * element; an empty one is the long 0 when empty_as_zero is set. */
static void set_cell_value(xls_value_t* result, const xls_cell_t* cell, bool empty_as_zero) {
  xls_basic_value_t basic = kEmpty;
  if (cell && xls_basic_value(&cell->value, &basic)) basic = kEmpty;
  const xls_basic_value_t* value = first_element(&basic);
  if (value->kind == bvt_empty && empty_as_zero) xls_value_long(result, 0);
  else set_copy(result, value);
}

/* The value looked for: a range is refused, an array stands for its first
 * element, an error is the result.  Points into arg. */
static bool lookup_target(xls_value_t* result, const xls_value_t* arg,
                          const xls_basic_value_t** target) {
  if (arg->kind == vt_range) {
    xls_value_error(result, xls_error_value);
    return false;
  }
  *target = first_element(arg->kind == vt_expr ? &arg->u.expr.cache : &arg->u.basic);
  if ((*target)->kind != bvt_error) return true;
  xls_value_error(result, (*target)->u.error);
  return false;
}

/* The rectangle of a range at env and the sheet it starts on; false with
 * #REF! in result for a deleted sheet. */
static bool range_rect(xls_value_t* result, const xls_range_ref_t* range,
                       const xls_recalc_env* env, xls_sheet_t** first_sheet,
                       xls_sheet_t** last_sheet, cell_rect_t* rect) {
  cell_t at = {env->row, env->column};
  if (!expr_rangeref_normalize(range, env->sheet, &at, first_sheet, last_sheet, rect))
    return true;
  xls_value_error(result, xls_error_ref);
  return false;
}

/* Null values (a table that was not collected) are nothing to free. */
static void free_values(xls_basic_value_t* values, int count) {
  if (!values) return;
  for (int i = 0; i < count; ++i) xls_free_basic_value(&values[i]);
  free(values);
}

/* Copies of the cells of range; false with result set. */
static bool collect(xls_value_t* result, const xls_range_ref_t* range,
                    const xls_recalc_env* env, xls_basic_value_t** values, int* count) {
  xls_array_info info = {static_cast<int>(sizeof(xls_basic_value_t)), 0, 0};
  *values = nullptr;
  uint32_t status = xls_range_collect_basic_value(result, range, values, &info, env);
  if (!status) {
    *count = info.count;
    return true;
  }
  free_values(*values, info.count);
  *values = nullptr;
  return false;
}

/* The absolute reference of rows first_row to last_row and columns
 * first_column to last_column on the first sheet of range: a table that
 * spans sheets is searched on its first. */
static xls_range_ref_t sub_range(const xls_range_ref_t* range, int32_t first_row,
                                 int32_t first_column, int32_t last_row, int32_t last_column) {
  xls_range_ref_t part = {};
  part.first.sheet = range->first.sheet;
  part.first.row = first_row;
  part.first.column = first_column;
  part.second.sheet = range->first.sheet;
  part.second.row = last_row;
  part.second.column = last_column;
  return part;
}

/* ---- MATCH ---------------------------------------------------------------- */

void xls_expr_func_match(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  const xls_basic_value_t* target;
  if (!lookup_target(result, &args[0], &target)) return;

  const xls_value_t* table = &args[1];
  const xls_basic_value_t* elements = nullptr;
  int element_count = 0;
  if (table->kind == vt_range) {
    xls_sheet_t *first_sheet, *last_sheet;
    cell_rect_t rect;
    if (!range_rect(result, table->u.range, env, &first_sheet, &last_sheet, &rect)) return;
    if (first_sheet != last_sheet ||
        (rect.top_row != rect.bottom_row && rect.left_col != rect.right_col)) {
      xls_value_error(result, xls_error_na);
      return;
    }
  } else {
    xls_basic_value_t basic = kEmpty;
    xls_basic_value(table, &basic);
    if (basic.kind == bvt_error) {
      xls_value_error(result, basic.u.error);
      return;
    }
    const xls_basic_array_t& array = basic.u.array;
    if (basic.kind != bvt_array || (array.rows != 1 && array.columns != 1)) {
      xls_value_error(result, xls_error_na);
      return;
    }
    elements = array.elements;
    element_count = array.rows * array.columns;
  }

  double type = 1;
  if (count > 2 && xls_value_todouble(&args[2], result, &type, env, xls_conv_error_propagate))
    return;

  xls_basic_value_t* collected = nullptr;
  if (table->kind == vt_range) {
    if (!collect(result, table->u.range, env, &collected, &element_count)) return;
    elements = collected;
  }
  int found = xls_lookup_find_match(elements, target, element_count,
                                    type > 0 ? 1 : type < 0 ? -1 : 0, 1);
  free_values(collected, element_count);
  if (found < 0) xls_value_error(result, xls_error_na);
  else xls_value_long(result, found + 1);
}

/* ---- VLOOKUP and HLOOKUP ------------------------------------------------------ */

/* Looks target up in the first column of the table (the first row when
 * vertical is false) and answers from column (row) index of the row
 * (column) found. */
static void table_lookup(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count, bool vertical) {
  const xls_basic_value_t* target;
  if (!lookup_target(result, &args[0], &target)) return;
  if (target->kind == bvt_empty) {
    xls_value_error(result, xls_error_na);
    return;
  }

  const xls_value_t* table = &args[1];
  cell_rect_t rect = {};
  xls_basic_value_t basic = kEmpty;
  int rows, columns;
  if (table->kind == vt_range) {
    xls_sheet_t *first_sheet, *last_sheet;
    if (!range_rect(result, table->u.range, env, &first_sheet, &last_sheet, &rect)) return;
    rows = rect.bottom_row - rect.top_row + 1;
    columns = rect.right_col - rect.left_col + 1;
  } else {
    xls_basic_value(table, &basic);
    if (basic.kind == bvt_error) {
      xls_value_error(result, basic.u.error);
      return;
    }
    if (basic.kind != bvt_array) {
      xls_value_error(result, xls_error_na);
      return;
    }
    rows = basic.u.array.rows;
    columns = basic.u.array.columns;
  }

  int32_t index;
  if (xls_value_tolong(&args[2], result, &index, env,
                       xls_conv_error_propagate | xls_conv_empty_invalid))
    return;
  if (index < 1) {
    xls_value_error(result, xls_error_value);
    return;
  }
  double sorted = 1;
  if (count > 3 &&
      xls_value_todouble(&args[3], result, &sorted, env, xls_conv_error_propagate))
    return;

  /* The keys: the first column (row) only; for an array, every row's first
   * element (the first row's elements). */
  int key_count = vertical ? rows : columns;
  int extent = vertical ? columns : rows;
  xls_basic_value_t* collected = nullptr;
  const xls_basic_value_t* keys = nullptr;
  int stride = 1;
  if (table->kind != vt_range) {
    keys = basic.u.array.elements;
    stride = vertical ? columns : 1;
  } else {
    xls_range_ref_t line =
        sub_range(table->u.range, rect.top_row, rect.left_col,
                  vertical ? rect.bottom_row : rect.top_row,
                  vertical ? rect.left_col : rect.right_col);
    if (!collect(result, &line, env, &collected, &key_count)) return;
    keys = collected;
  }
  int found = xls_lookup_find_match(keys, target, key_count, sorted != 0 ? 1 : 0, stride);
  free_values(collected, key_count);
  if (found < 0) {
    xls_value_error(result, xls_error_na);
    return;
  }
  if (index > extent) {
    xls_value_error(result, xls_error_ref);
    return;
  }

  int32_t row = vertical ? found : index - 1;
  int32_t column = vertical ? index - 1 : found;
  if (table->kind != vt_range) {
    set_copy(result, &basic.u.array.elements[static_cast<size_t>(row) * columns + column]);
    return;
  }
  auto_cell_t pin = nullptr;
  uint32_t status = xls_get_value_from_range_by_row_col(&pin, table->u.range, column, row, env);
  if (status) xls_value_error(result, status_error(status));
  else set_cell_value(result, pin, false);
  auto_cell_release(&pin);
}

void xls_expr_func_vlookup(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  table_lookup(result, env, args, count, true);
}

void xls_expr_func_hlookup(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  table_lookup(result, env, args, count, false);
}

/* ---- INDEX ---------------------------------------------------------------- */

/* Row or column 0 of a range: the whole column or row, as a reference. */
static void index_range(xls_value_t* result, const xls_range_ref_t* range, xls_sheet_t* sheet,
                        const cell_rect_t& rect, int32_t row, int32_t column) {
  if (row > rect.bottom_row - rect.top_row + 1 || column > rect.right_col - rect.left_col + 1) {
    xls_value_error(result, xls_error_ref);
    return;
  }
  if (row == 0 || column == 0) {
    xls_range_ref_t part = sub_range(
        range, row ? rect.top_row + row - 1 : rect.top_row,
        column ? rect.left_col + column - 1 : rect.left_col,
        row ? rect.top_row + row - 1 : rect.bottom_row,
        column ? rect.left_col + column - 1 : rect.right_col);
    if (xls_value_range(result, &part)) xls_value_error(result, xls_error_out_of_memory);
    return;
  }
  auto_value_t pin = nullptr;
  uint32_t status = xls_get_cell_value(sheet, rect.left_col + column - 1,
                                       rect.top_row + row - 1, &pin);
  if (status) xls_value_error(result, status_error(status));
  else set_cell_value(result, pin, true);
  auto_cell_release(&pin);
}

/* Row or column 0 of an array: the whole row or column, as an array. */
static void index_array(xls_value_t* result, const xls_basic_array_t& array, int32_t row,
                        int32_t column) {
  if (row > array.rows || column > array.columns) {
    xls_value_error(result, xls_error_ref);
    return;
  }
  int first_row = row ? row - 1 : 0, first_column = column ? column - 1 : 0;
  int rows = row ? 1 : array.rows, columns = column ? 1 : array.columns;
  const xls_basic_value_t* corner =
      &array.elements[static_cast<size_t>(first_row) * array.columns + first_column];
  if (rows == 1 && columns == 1) {
    set_copy(result, corner);
    return;
  }
  if (xls_value_array(result, static_cast<uint16_t>(rows), static_cast<uint16_t>(columns))) {
    xls_value_error(result, xls_error_out_of_memory);
    return;
  }
  xls_basic_value_t* out = result->u.basic.u.array.elements;
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < columns; ++c) {
      if (xls_copy_basic_value(out++, &corner[static_cast<size_t>(r) * array.columns + c])) {
        xls_free_value(result);
        xls_value_error(result, xls_error_out_of_memory);
        return;
      }
    }
  }
}

void xls_expr_func_index(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  const xls_value_t* reference = &args[0];
  xls_sheet_t *first_sheet = nullptr, *last_sheet = nullptr;
  cell_rect_t rect = {};
  if (reference->kind == vt_range) {
    if (!range_rect(result, reference->u.range, env, &first_sheet, &last_sheet, &rect)) return;
    if (first_sheet != last_sheet) {
      xls_value_error(result, xls_error_value);
      return;
    }
  }
  int32_t row, column = 0, area = 1;
  if (xls_value_tolong(&args[1], result, &row, env, xls_conv_error_propagate)) return;
  if (count > 2 &&
      xls_value_tolong(&args[2], result, &column, env, xls_conv_error_propagate))
    return;
  if (count > 3 && xls_value_tolong(&args[3], result, &area, env, xls_conv_error_propagate))
    return;
  if (row < 0 || column < 0 || area < 1) {
    xls_value_error(result, xls_error_value);
    return;
  }
  if (area > 1) {
    xls_value_error(result, xls_error_ref);
    return;
  }
  if (reference->kind == vt_range) {
    index_range(result, reference->u.range, first_sheet, rect, row, column);
    return;
  }
  xls_basic_value_t basic = kEmpty;
  xls_basic_value(reference, &basic);
  if (basic.kind != bvt_array) {
    if (row <= 1 && column <= 1) set_copy(result, &basic);
    else xls_value_error(result, xls_error_ref);
    return;
  }
  const xls_basic_array_t& array = basic.u.array;
  /* With one index a vector is reached along its length. */
  if (count == 2 && array.rows == 1) {
    column = row;
    row = 1;
  } else if (count == 2 && array.columns == 1) {
    column = 1;
  }
  index_array(result, array, row, column);
}
