#include "workbook/kel_xls_sheet.h"

#include <stdlib.h>
#include <string.h>

#include "formula/xls_expr.h"
#include "foundation/zuv_memio.h"
#include "foundation/zuv_uni_string.h"
#include "workbook/kel_xls_file.h"

/* The BOF that a new sheet records until its own is read. */
static const biff_bof_v8 kSheetBof = {BIFF_VERSION_8, BIFF_BOF_WORKSHEET, 0x2775, 0x7CD,
                                      0x80C1, 0x206};

xls_sheet_t* sheet_constructor(xls_file* workbook) {
  xls_sheet_t* sheet = static_cast<xls_sheet_t*>(calloc(1, sizeof(xls_sheet_t)));
  if (!sheet) return nullptr;
  sheet->workbook = workbook;
  sheet->bof = kSheetBof;
  sheet->window2.options = 0xB6;
  sheet->window2.grid_colour = 0x40;
  sheet->pane.active_pane = 3;
  for (int pane = 0; pane < XLS_PANES; ++pane)
    sheet->selections[pane].pane = static_cast<uint8_t>(pane);
  // The bottom right pane holds the selection of an unsplit sheet: A1.
  sheet->selections[3].refs = static_cast<biff_ref8*>(calloc(1, sizeof(biff_ref8)));
  if (!sheet->selections[3].refs) {
    free(sheet);
    return nullptr;
  }
  sheet->selections[3].count = 1;
  sheet->first_row = 0xFFFFFFFF;
  sheet->first_col = 0xFFFF;
  sheet->default_col_width = 0x800;
  sheet->default_row_height = 0xFF;
  kel_cell_cache_init(&sheet->cells, &workbook->mem,
                      workbook->mem.available ? workbook->mem.available() : 0);
  sheet->row_runs.element_size = sizeof(xls_row_run_t);
  sheet->row_runs.grow_step = 64;
  sheet->shared_exprs.mem = &workbook->mem;
  sheet->shared_exprs.element_size = sizeof(xls_shared_expr);
  sheet->shared_exprs.grow_step = 1000;
  sheet->shared_exprs.chunk_factor = 1;
  sheet->charts.mem = &workbook->mem;
  sheet->charts.element_size = sizeof(uint32_t);
  sheet->charts.grow_step = 10;
  return sheet;
}

void sheet_destructor(xls_sheet_t* sheet) {
  if (!sheet) return;
  for (biff_selection& selection : sheet->selections) free(selection.refs);
  free(sheet->name);
  kel_cell_cache_free(&sheet->cells);
  for (int i = 0; i < sheet->shared_exprs.count; ++i)
    expr_free(&static_cast<xls_shared_expr*>(xls_array_access(&sheet->shared_exprs, i))->packed, true);
  xls_array_free(&sheet->shared_exprs);
  xls_array_free(&sheet->charts);
  free(sheet->row_runs.data);
  free(sheet);
}

uint32_t xls_read_SELECTION(const unsigned char* body, uint32_t length,
                            biff_selection* selection) {
  if (length < 9) return KEL_ERR_GENERAL;
  uint16_t count = get_le16(body + 7);
  // Keep the rectangles the record really holds.
  if (count > (length - 9) / 6) count = static_cast<uint16_t>((length - 9) / 6);
  biff_ref8* refs = nullptr;
  if (count) {
    refs = static_cast<biff_ref8*>(malloc(count * sizeof(biff_ref8)));
    if (!refs) return KEL_ERR_OUT_OF_MEMORY;
    for (uint16_t i = 0; i < count; ++i) {
      const unsigned char* ref = body + 9 + 6 * i;
      refs[i].first_row = get_le16(ref);
      refs[i].last_row = get_le16(ref + 2);
      refs[i].first_col = ref[4];
      refs[i].last_col = ref[5];
    }
  }
  free(selection->refs);
  selection->pane = body[0];
  selection->active_row = get_le16(body + 1);
  selection->active_col = get_le16(body + 3);
  selection->active_ref = get_le16(body + 5);
  selection->count = count;
  selection->refs = refs;
  return 0;
}

const unsigned short* xls_sheet_name(const xls_sheet_t* sheet) { return sheet->name; }

xls_sheet_t* xls_find_sheet_by_name(const xls_file* file, const unsigned short* name,
                                    uint32_t length) {
  for (uint32_t i = 0; i < xls_sheet_count(file); ++i) {
    xls_sheet_t* sheet = xls_sheet_handle(file, i);
    const unsigned short* own = sheet->name;
    if (own && ucs2_ncmpi(own, name, length) == 0 && ucs2_len(own) == length) return sheet;
  }
  return nullptr;
}

uint8_t xls_sheet_visibility(const xls_sheet_t* sheet) { return sheet->visibility; }

uint8_t xls_sheet_type(const xls_sheet_t* sheet) { return sheet->type; }

uint32_t insert_cell(xls_sheet_t* sheet, const xls_cell_t* cell, auto_cell_t* result,
                     int* position) {
  int index = 0;
  uint32_t status = kel_cell_cache_insert(&sheet->cells, cell, &index);
  if (status) return status;
  xls_sheet_take_in(sheet, cell->column, cell->row);
  if (result) kel_cell_cache_access(result, &sheet->cells, index);
  if (position) *position = index;
  return 0;
}
