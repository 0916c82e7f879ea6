#include "workbook/kel_xls_recalc.h"

#include "formula/xls_recalc_env.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

uint32_t xls_recalc_in_file_order(xls_file* file, const xls_locale* locale) {
  for (uint32_t s = 0; s < xls_sheet_count(file); ++s) {
    xls_sheet_t* sheet = xls_sheet_handle(file, s);
    for (int i = 0; i < kel_cell_cache_count(&sheet->cells); ++i) {
      auto_cell_t cell = nullptr;
      uint32_t status = kel_cell_cache_access(&cell, &sheet->cells, i);
      if (status) return status;
      if (cell->value.kind != vt_expr || !xls_is_parsed_expr(&cell->value.u.expr.packed)) {
        auto_cell_release(&cell);
        continue;
      }
      xls_recalc_env env = {};
      env.locale = locale;
      env.sheet = sheet;
      env.row = static_cast<int32_t>(cell->row);
      env.column = static_cast<int32_t>(cell->column);
      status = expr_recalc(&env, &cell);
      auto_cell_release(&cell);
      // A formula that can't be computed keeps the file's result; only a
      // lack of memory ends the open.
      if (status == KEL_ERR_OUT_OF_MEMORY) return status;
    }
  }
  return 0;
}
