/*
 * The implicit intersection: a range standing where one value is wanted
 * gives the cell of its column in the formula's own row.
 */
#include "formula/xls_recalc_env.h"
#include "workbook/kel_xls_sheet.h"

static int32_t resolve(int32_t value, uint8_t relative, int32_t origin) {
  return relative ? origin + value : value;
}

uint32_t xls_get_value_in_range(xls_value_t* result, xls_cell_t** pin,
                                const xls_range_ref_t* range, const xls_recalc_env* env) {
  *pin = nullptr;
  if (range->first.sheet == XLS_DELETED_SHEET || range->second.sheet == XLS_DELETED_SHEET) {
    xls_value_error(result, xls_error_ref);
    return KEL_ERR_REF;
  }
  int32_t first_row = resolve(range->first.row, range->first.row_relative, env->row);
  int32_t last_row = resolve(range->second.row, range->second.row_relative, env->row);
  int32_t first_column = resolve(range->first.column, range->first.column_relative, env->column);
  int32_t last_column =
      resolve(range->second.column, range->second.column_relative, env->column);
  if (first_row > last_row) {
    int32_t swap = first_row;
    first_row = last_row;
    last_row = swap;
  }
  // Only a column is intersected with the row; a row of cells is not
  // intersected with the column, by design.
  if (first_column != last_column || env->row < first_row || env->row > last_row) {
    xls_value_error(result, xls_error_value);
    return KEL_ERR_VALUE;
  }
  xls_sheet_t* sheet = range->first.sheet ? range->first.sheet : env->sheet;
  return kel_cell_cache_find_cell_near(pin, &sheet->cells, static_cast<uint32_t>(first_column),
                                       static_cast<uint32_t>(env->row), &sheet->cell_hint);
}
