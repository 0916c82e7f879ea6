/*
 * Reading the cells of a range for the worksheet functions: one cell at an
 * offset, the numbers of a range or an array, copies of every cell, and
 * the common gathering of the statistical functions' arguments.
 *
 * A range is walked sheet by sheet (the sheets of a three-dimensional
 * reference in workbook order), row by row, column by column, each cell
 * read through the sheet's cell table and its pin given back at once: a
 * range over a large sheet costs no copy of the sheet.
 */
#include <stdlib.h>
#include <string.h>

#include "formula/xls_recalc_env.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

uint32_t xls_range_span_resolve(const xls_range_ref_t* range, const xls_recalc_env* env,
                                xls_range_span* span) {
  cell_t base = {env->row, env->column};
  xls_sheet_t* last = nullptr;
  memset(span, 0, sizeof *span);
  uint32_t status =
      expr_rangeref_normalize(range, env->sheet, &base, &span->first_sheet, &last, &span->rect);
  if (status) return status;
  span->sheet_count = 1;
  if (last == span->first_sheet || !span->first_sheet->workbook) return 0;
  const xls_file* workbook = span->first_sheet->workbook;
  int32_t first_index = xls_sheet_index(workbook, span->first_sheet);
  int32_t last_index = xls_sheet_index(workbook, last);
  // A sheet that left the workbook reads as the first one alone.
  if (first_index < 0 || last_index < 0) return 0;
  if (last_index < first_index) {
    int32_t swap = first_index;
    first_index = last_index;
    last_index = swap;
  }
  span->workbook = workbook;
  span->first_index = first_index;
  span->sheet_count = last_index - first_index + 1;
  return 0;
}

xls_sheet_t* xls_range_span_sheet(const xls_range_span* span, int32_t i) {
  if (!span->workbook) return span->first_sheet;
  return xls_sheet_handle(span->workbook, static_cast<uint32_t>(span->first_index + i));
}

static int32_t span_width(const xls_range_span* span) {
  return span->rect.right_col - span->rect.left_col + 1;
}

static int32_t span_height(const xls_range_span* span) {
  return span->rect.bottom_row - span->rect.top_row + 1;
}

uint32_t xls_get_value_from_range_by_row_col(auto_cell_t* pin, const xls_range_ref_t* range,
                                             int32_t column, int32_t row,
                                             const xls_recalc_env* env) {
  *pin = nullptr;
  xls_range_span span;
  if (xls_range_span_resolve(range, env, &span)) return KEL_ERR_REF;
  int32_t width = span_width(&span);
  if (row < 0 || row >= span_height(&span) || column < 0 || column >= width * span.sheet_count)
    return KEL_ERR_VALUE;
  xls_sheet_t* sheet = xls_range_span_sheet(&span, column / width);
  return xls_get_cell_value(sheet, span.rect.left_col + column % width, span.rect.top_row + row,
                            pin);
}

/* Calls visit for every position of the range in walking order, with the
 * cell there pinned (null for none); a non-zero answer ends the walk. */
template <typename Visit>
static uint32_t span_walk(const xls_range_span* span, Visit visit) {
  auto_cell_t pin = nullptr;
  uint32_t status = 0;
  for (int32_t s = 0; s < span->sheet_count && !status; ++s) {
    xls_sheet_t* sheet = xls_range_span_sheet(span, s);
    for (int32_t row = span->rect.top_row; row <= span->rect.bottom_row && !status; ++row) {
      for (int32_t column = span->rect.left_col; column <= span->rect.right_col; ++column) {
        status = xls_get_cell_value(sheet, column, row, &pin);
        if (!status) status = visit(pin);
        if (status) break;
      }
    }
  }
  auto_cell_release(&pin);
  return status;
}

static uint32_t push_number(double number, xls_value_t* result, double** numbers,
                            xls_array_info* info) {
  if (!xls_array_push(info, reinterpret_cast<void**>(numbers), &number)) return 0;
  xls_value_error(result, xls_error_out_of_memory);
  return KEL_ERR_OUT_OF_MEMORY;
}

static bool skipped_kind(uint32_t kind, uint16_t flags) {
  switch (kind) {
    case bvt_string: return (flags & xls_conv_skip_string) != 0;
    case bvt_bool: return (flags & xls_conv_skip_bool) != 0;
    case bvt_error: return (flags & xls_conv_skip_error) != 0;
    case bvt_empty: return (flags & xls_conv_skip_empty) != 0;
    default: return false;
  }
}

/* One value of a range or an array, as the flags say: an array by its first
 * element, skipped kinds left out, the rest converted. */
static uint32_t collect_basic(const xls_basic_value_t* value, xls_value_t* result,
                              double** numbers, xls_array_info* info, uint16_t flags) {
  xls_basic_value_t none = {};
  if (value->kind == bvt_array) {
    if (flags & xls_conv_skip_array) return 0;
    const xls_basic_array_t& array = value->u.array;
    value = array.rows && array.columns && array.elements ? array.elements : &none;
  }
  if (skipped_kind(value->kind, flags)) return 0;
  double number = 0;
  uint32_t status = xls_basic_value_todouble(value, result, &number, flags);
  if (status) return status;
  return push_number(number, result, numbers, info);
}

uint32_t xls_range_collect_num(xls_value_t* result, const xls_range_ref_t* range,
                               double** numbers, xls_array_info* info,
                               const xls_recalc_env* env, uint16_t flags) {
  info->element_size = sizeof(double);
  xls_range_span span;
  if (xls_range_span_resolve(range, env, &span)) {
    xls_value_error(result, xls_error_ref);
    return KEL_ERR_REF;
  }
  return span_walk(&span, [&](const xls_cell_t* cell) -> uint32_t {
    if (!cell) {
      if (flags & xls_conv_skip_empty) return 0;
      return push_number(0.0, result, numbers, info);
    }
    xls_basic_value_t value;
    if (xls_basic_value(&cell->value, &value)) return 0;
    // A formula that has not produced a value yet counts as 0 whatever the
    // flags say, unlike a blank cell.
    if (cell->value.kind == vt_expr && value.kind == bvt_empty)
      return push_number(0.0, result, numbers, info);
    return collect_basic(&value, result, numbers, info, flags);
  });
}

uint32_t xls_array_collect_num(const xls_basic_value_t* array, xls_value_t* result,
                               double** numbers, xls_array_info* info, uint16_t flags) {
  info->element_size = sizeof(double);
  if (array->kind != bvt_array) return collect_basic(array, result, numbers, info, flags);
  size_t count = static_cast<size_t>(array->u.array.rows) * array->u.array.columns;
  for (size_t i = 0; i < count && array->u.array.elements; ++i) {
    uint32_t status = collect_basic(&array->u.array.elements[i], result, numbers, info, flags);
    if (status) return status;
  }
  return 0;
}

uint32_t xls_range_collect_basic_value(xls_value_t* result, const xls_range_ref_t* range,
                                       xls_basic_value_t** values, xls_array_info* info,
                                       const xls_recalc_env* env) {
  info->element_size = sizeof(xls_basic_value_t);
  xls_range_span span;
  if (xls_range_span_resolve(range, env, &span)) {
    xls_value_error(result, xls_error_ref);
    return KEL_ERR_REF;
  }
  return span_walk(&span, [&](const xls_cell_t* cell) -> uint32_t {
    xls_basic_value_t copy = {};
    xls_basic_value_t value;
    if (cell && !xls_basic_value(&cell->value, &value) &&
        xls_copy_basic_value(&copy, &value)) {
      xls_value_error(result, xls_error_out_of_memory);
      return KEL_ERR_OUT_OF_MEMORY;
    }
    if (!xls_array_push(info, reinterpret_cast<void**>(values), &copy)) return 0;
    xls_free_basic_value(&copy);
    xls_value_error(result, xls_error_out_of_memory);
    return KEL_ERR_OUT_OF_MEMORY;
  });
}

/* Appends the values one argument stands for to the list. */
static uint32_t resolve_argument(const xls_recalc_env* env, const xls_value_t* argument,
                                 xls_value_t** out, xls_array_info* info) {
  xls_value_t item;
  if (argument->kind != vt_range) {
    uint32_t status = xls_value_copy(&item, argument);
    if (!status) status = xls_array_push(info, reinterpret_cast<void**>(out), &item);
    if (status) xls_free_value(&item);
    return status;
  }
  xls_range_span span;
  if (xls_range_span_resolve(argument->u.range, env, &span)) {
    xls_value_error(&item, xls_error_ref);
    return xls_array_push(info, reinterpret_cast<void**>(out), &item);
  }
  return span_walk(&span, [&](const xls_cell_t* cell) -> uint32_t {
    xls_value_empty(&item);
    uint32_t status = cell ? xls_value_copy(&item, &cell->value) : 0;
    if (!status) status = xls_array_push(info, reinterpret_cast<void**>(out), &item);
    if (status) xls_free_value(&item);
    return status;
  });
}

uint32_t xls_expr_range_resolv(const xls_recalc_env* env, const xls_value_t* values,
                               int count, xls_value_t** out, int* out_count) {
  xls_array_info info = {static_cast<int>(sizeof(xls_value_t)), 0, 0};
  xls_value_t* list = nullptr;
  for (int i = 0; i < count; ++i) {
    uint32_t status = resolve_argument(env, &values[i], &list, &info);
    if (status) {
      xls_free_value_array(list, info.count);
      *out = nullptr;
      *out_count = 0;
      return status;
    }
  }
  *out = list;
  *out_count = info.count;
  return 0;
}

/* Strings, booleans and empties in ranges and arrays are left out; errors
 * in them are handed on. */
static const uint16_t number_array_flags =
    xls_conv_skip_string | xls_conv_skip_bool | xls_conv_skip_empty | xls_conv_error_propagate;

/* Statuses reduced to the two that the statistical functions tell apart. */
static uint32_t number_array_status(uint32_t status) {
  return !status || status == KEL_ERR_PROPAGATED ? status : KEL_ERR_GENERAL;
}

uint32_t get_number_array(const xls_recalc_env* env, const xls_value_t* args, int count,
                          xls_array_info* info, double** numbers, xls_value_t* result) {
  info->element_size = sizeof(double);
  info->count = 0;
  for (int i = 0; i < count; ++i) {
    const xls_value_t* argument = &args[i];
    uint32_t status;
    if (argument->kind == vt_range) {
      status = xls_range_collect_num(result, argument->u.range, numbers, info, env,
                                     number_array_flags);
    } else {
      xls_basic_value_t value;
      if (xls_basic_value(argument, &value)) continue;
      // Arguments given directly behave as cells do: SUM("3", TRUE) counts
      // neither.
      if (value.kind == bvt_empty || value.kind == bvt_string || value.kind == bvt_bool)
        continue;
      if (value.kind == bvt_array) {
        status = xls_array_collect_num(&value, result, numbers, info, number_array_flags);
      } else {
        double number = 0;
        status = xls_basic_value_todouble(&value, result, &number, xls_conv_error_propagate);
        if (!status) status = push_number(number, result, numbers, info);
      }
    }
    if (status) return number_array_status(status);
  }
  return 0;
}
