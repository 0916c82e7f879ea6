/*
 * The implicit intersection: a range standing where one value is wanted
 * gives the cell of its column in the formula's own row.
 */
#include "formula/xls_recalc_env.h"
#include "kel_status.h"
#include "workbook/kel_xls_sheet.h"

uint32_t xls_get_value_in_range(xls_value_t* result, xls_cell_t** pin,
                                const xls_range_ref_t* range, const xls_recalc_env* env) {
  *pin = nullptr;
  cell_t base = {env->row, env->column};
  xls_sheet_t* sheet = nullptr;
  xls_sheet_t* last_sheet = nullptr;
  cell_rect_t rect;
  if (expr_rangeref_normalize(range, env->sheet, &base, &sheet, &last_sheet, &rect)) {
    xls_value_error(result, xls_error_ref);
    return KEL_ERR_REF;
  }
  // Only a column is intersected with the row; a row of cells is not
  // intersected with the column, by design.
  if (rect.left_col != rect.right_col || env->row < rect.top_row || env->row > rect.bottom_row) {
    xls_value_error(result, xls_error_value);
    return KEL_ERR_VALUE;
  }
  return xls_get_cell_value(sheet, rect.left_col, env->row, pin);
}
