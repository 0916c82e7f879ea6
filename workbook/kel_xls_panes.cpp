/*
 * A sheet's window: selection, panes and freezing; its extent, its merged
 * cells, what protection allows, and the shared formulas of its cells.
 */
#include <stdlib.h>

#include "compound/kel_io_stack.h"
#include "formula/xls_expr.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

enum { WINDOW2_FROZEN = 0x0008 };

static const biff_selection& active_selection(const xls_sheet_t* sheet) {
  return sheet->selections[sheet->pane.active_pane & 3];
}

uint32_t xls_sheet_get_sel(const xls_sheet_t* sheet, uint32_t* first_column,
                           uint32_t* first_row, uint32_t* last_column, uint32_t* last_row) {
  const biff_selection& selection = active_selection(sheet);
  biff_ref8 ref = {};
  if (selection.count && selection.refs) ref = selection.refs[0];
  if (first_column) *first_column = ref.first_col;
  if (first_row) *first_row = ref.first_row;
  if (last_column) *last_column = ref.last_col;
  if (last_row) *last_row = ref.last_row;
  return 0;
}

uint32_t xls_sheet_set_sel(xls_sheet_t* sheet, uint32_t first_column, uint32_t first_row,
                           uint32_t last_column, uint32_t last_row) {
  biff_selection& selection = sheet->selections[sheet->pane.active_pane & 3];
  if (!selection.refs) {
    selection.refs = static_cast<biff_ref8*>(malloc(sizeof(biff_ref8)));
    if (!selection.refs) return KEL_ERR_OUT_OF_MEMORY;
  }
  selection.count = 1;
  selection.refs[0].first_row = static_cast<uint16_t>(first_row);
  selection.refs[0].last_row = static_cast<uint16_t>(last_row);
  selection.refs[0].first_col = static_cast<uint8_t>(first_column);
  selection.refs[0].last_col = static_cast<uint8_t>(last_column);
  selection.active_row = static_cast<uint16_t>(first_row);
  selection.active_col = static_cast<uint16_t>(first_column);
  selection.active_ref = 0;
  return 0;
}

uint32_t xls_sheet_get_pane(const xls_sheet_t* sheet, biff_pane* pane) {
  *pane = sheet->pane;
  return 0;
}

uint32_t xls_sheet_get_WINDOW2(const xls_sheet_t* sheet, biff_window2* window) {
  *window = sheet->window2;
  return 0;
}

uint32_t xls_sheet_set_WINDOW2(xls_sheet_t* sheet, const biff_window2* window) {
  sheet->window2 = *window;
  return 0;
}

uint32_t xls_sheet_set_pane(xls_sheet_t* sheet, biff_pane* pane) {
  if (pane->x_split == sheet->pane.x_split && pane->y_split == sheet->pane.y_split) {
    sheet->pane = *pane;
    return 0;
  }
  // New splits: only the active pane's selection survives, and it moves to
  // the pane that the new split makes active.
  uint16_t active = 3;
  bool frozen = (sheet->window2.options & WINDOW2_FROZEN) != 0;
  if (frozen && pane->y_split) active = pane->x_split ? 0 : 2;
  else if (pane->x_split) active = 1;
  biff_selection kept = sheet->selections[sheet->pane.active_pane & 3];
  sheet->selections[sheet->pane.active_pane & 3].refs = nullptr;
  for (biff_selection& selection : sheet->selections) {
    free(selection.refs);
    selection = biff_selection{};
  }
  for (int i = 0; i < XLS_PANES; ++i) sheet->selections[i].pane = static_cast<uint8_t>(i);
  kept.pane = static_cast<uint8_t>(active);
  sheet->selections[active] = kept;
  pane->active_pane = active;
  sheet->pane = *pane;
  return 0;
}

uint32_t xls_sheet_freeze_panes(xls_sheet_t* sheet) {
  uint32_t column = 0, row = 0;
  xls_sheet_get_sel(sheet, &column, &row, nullptr, nullptr);
  const biff_window2& window = sheet->window2;
  if (row == window.first_row && column == window.first_col) return 0;
  biff_pane pane = {};
  pane.x_split = static_cast<uint16_t>(column >= window.first_col ? column - window.first_col
                                                                  : window.first_col);
  pane.y_split = static_cast<uint16_t>(row >= window.first_row ? row - window.first_row
                                                               : window.first_row);
  // Frozen first: the new active pane depends on it.
  biff_window2 frozen = sheet->window2;
  frozen.options |= WINDOW2_FROZEN;
  uint32_t status = xls_sheet_set_WINDOW2(sheet, &frozen);
  if (status) return status;
  return xls_sheet_set_pane(sheet, &pane);
}

uint32_t xls_sheet_unfreeze_panes(xls_sheet_t* sheet) {
  sheet->window2.options &= ~WINDOW2_FROZEN;
  sheet->pane = biff_pane{};
  return 0;
}

bool xls_is_sheet_frozen(const xls_sheet_t* sheet) {
  return (sheet->window2.options & WINDOW2_FROZEN) &&
         (sheet->pane.x_split || sheet->pane.y_split);
}

bool xls_is_col_frozen(const xls_sheet_t* sheet, uint32_t column) {
  return (sheet->window2.options & WINDOW2_FROZEN) && column == sheet->pane.x_split;
}

bool xls_is_row_frozen(const xls_sheet_t* sheet, uint32_t row) {
  return (sheet->window2.options & WINDOW2_FROZEN) && row == sheet->pane.y_split;
}

uint32_t xls_sheet_dimensions(xls_sheet_t* sheet, xls_orange* range) {
  uint32_t first_column = 0, first_row = 0, last_column = 0, last_row = 0;
  xls_sheet_get_sel(sheet, &first_column, &first_row, &last_column, &last_row);
  // A whole row or column selected doesn't stretch the other dimension.
  bool whole_row = first_column == 0 && last_column >= XLS_MAX_COLUMNS - 1;
  bool whole_column = first_row == 0 && last_row >= XLS_MAX_ROWS - 1;
  uint32_t used_column = sheet->last_col ? sheet->last_col - 1u : 0;
  uint32_t rows_end = 0;
  if (!sheet->index_offset ||
      io_read_le32(sheet->workbook->stream, sheet->index_offset + 12, &rows_end) || !rows_end)
    rows_end = sheet->last_row;
  uint32_t used_row = rows_end ? rows_end - 1 : 0;
  range->first_row = 0;
  range->first_col = 0;
  range->last_col = !whole_row && last_column > used_column ? last_column : used_column;
  range->last_row = !whole_column && last_row > used_row ? last_row : used_row;
  return 0;
}

uint32_t xls_sheet_col_count(xls_sheet_t* sheet) {
  xls_orange range;
  xls_sheet_dimensions(sheet, &range);
  return range.last_col + 1;
}

uint32_t xls_sheet_row_count(xls_sheet_t* sheet) {
  xls_orange range;
  xls_sheet_dimensions(sheet, &range);
  return range.last_row + 1;
}

bool xls_is_action_permitted(const xls_sheet_t* sheet, uint16_t action) {
  if (!sheet->sheet_protected) return true;
  uint16_t allowed = sheet->has_allowed_actions ? sheet->allowed_actions : 0x4400;
  return (allowed & action) != 0;
}

xls_shared_expr* xls_shared_expr_get(const xls_apos_sheet* position) {
  const xls_array& list = position->sheet->shared_exprs;
  for (int i = 0; i < list.count; ++i) {
    xls_shared_expr* entry = static_cast<xls_shared_expr*>(xls_array_access(&list, i));
    bool match = (entry->flags & XLS_SHARED_ARRAY)
                     ? entry->array_row == position->row &&
                           entry->array_column == position->column
                     : entry->first_row == position->row &&
                           entry->first_column == position->column;
    if (match) return entry;
  }
  return nullptr;
}

uint32_t xls_MERGEDCELLS_read(const xls_pool*, zuv_io* stream, unsigned char* buffer,
                              uint32_t offset, xls_simple_array* merged) {
  *merged = xls_simple_array{};
  merged->element_size = sizeof(xls_orange);
  merged->grow_step = 10;
  uint32_t end = stream->get_size(stream->context);
  uint32_t depth = 0, status = 0;
  while (offset < end && !status) {
    uint16_t id = 0, length = 0;
    status = kel_read_header(stream, offset, &id, &length);
    if (status) break;
    if (id == BIFF_EOF && depth-- == 0) break;
    if (id == BIFF_BOF) depth += 1;  // an embedded chart, up to its own EOF
    if (id == BIFF_MERGEDCELLS && length >= 2 && depth == 0) {
      status = kel_read_record(stream, offset, buffer, length);
      if (status) break;
      uint32_t count = get_le16(buffer + 4);
      if (count > (length - 2u) / 8u) count = (length - 2u) / 8u;
      for (uint32_t i = 0; i < count; ++i) {
        const unsigned char* ref = buffer + 6 + 8 * i;
        xls_orange range = {get_le16(ref), get_le16(ref + 4), get_le16(ref + 2),
                            get_le16(ref + 6)};
        status = range.last_row < range.first_row || range.last_col < range.first_col
                     ? KEL_ERR_GENERAL
                     : xls_simple_array_insert(merged, merged->count, &range);
        if (status) break;
      }
    }
    offset += 4u + length;
  }
  if (status) {
    free(merged->data);
    merged->data = nullptr;
    merged->count = merged->capacity = 0;
  }
  return status;
}

uint32_t xls_get_merged_cells(xls_sheet_t* sheet, xls_simple_array* merged) {
  // The list is read where the scan met its first record: the paint asks
  // for it every time, and the cells before it may be megabytes.
  if (sheet->bof.type != BIFF_BOF_WORKSHEET || !sheet->merged_offset) {
    *merged = xls_simple_array{};
    merged->element_size = sizeof(xls_orange);
    merged->grow_step = 10;
    return 0;
  }
  xls_file* file = sheet->workbook;
  return xls_MERGEDCELLS_read(&file->pool, file->stream, file->second_record,
                              sheet->merged_offset, merged);
}
