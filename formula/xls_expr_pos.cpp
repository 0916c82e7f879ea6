/*
 * Positions from references.  A relative part is an offset from the cell
 * the formula stands at, and wraps around the sheet's edges: a shared
 * formula written for one cell may name the far end of the sheet from
 * another, as it does in the program that wrote the file.
 */
#include "formula/xls_expr.h"
#include "kel_status.h"
#include "workbook/kel_xls_sheet.h"

static int32_t wrap(int32_t value, int32_t size) {
  int32_t rest = value % size;
  return rest < 0 ? rest + size : rest;
}

void expr_abs_pos(cell_t* cell, const xls_cell_ref_t* ref, const cell_t* base) {
  cell->row = ref->row_relative ? wrap(ref->row + base->row, XLS_MAX_ROWS) : ref->row;
  cell->col = ref->column_relative ? wrap(ref->column + base->col, XLS_MAX_COLUMNS) : ref->column;
}

void expr_abs_pos(xls_apos* cell, const xls_cell_ref_t* ref, const xls_apos* base) {
  cell_t from = {base->row, base->column}, to;
  expr_abs_pos(&to, ref, &from);
  cell->row = static_cast<uint16_t>(to.row);
  cell->column = static_cast<uint8_t>(to.col);
}

void expr_aps_pos_sheet(xls_apos_sheet* out, const xls_cell_ref_t* ref,
                        const xls_apos_sheet* base) {
  xls_apos from = {base->row, base->column}, to;
  expr_abs_pos(&to, ref, &from);
  out->sheet = ref->sheet ? ref->sheet : base->sheet;
  out->row = to.row;
  out->column = to.column;
}

void expr_normalize_range(const xls_range_ref_t* range, int32_t column, int32_t row,
                          int32_t* first_row, int32_t* last_row, int32_t* first_column,
                          int32_t* last_column) {
  cell_t base = {row, column}, first, second;
  expr_abs_pos(&first, &range->first, &base);
  expr_abs_pos(&second, &range->second, &base);
  *first_row = first.row < second.row ? first.row : second.row;
  *last_row = first.row < second.row ? second.row : first.row;
  *first_column = first.col < second.col ? first.col : second.col;
  *last_column = first.col < second.col ? second.col : first.col;
}

void expr_ref_normalize(cell_rect_t* rect) {
  if (rect->top_row > rect->bottom_row) {
    int32_t swap = rect->top_row;
    rect->top_row = rect->bottom_row;
    rect->bottom_row = swap;
  }
  if (rect->left_col > rect->right_col) {
    int32_t swap = rect->left_col;
    rect->left_col = rect->right_col;
    rect->right_col = swap;
  }
}

uint32_t expr_rangeref_normalize(const xls_range_ref_t* range, xls_sheet_t* sheet,
                                 const cell_t* cell, xls_sheet_t** first_sheet,
                                 xls_sheet_t** last_sheet, cell_rect_t* rect) {
  if (range->first.sheet == XLS_DELETED_SHEET || range->second.sheet == XLS_DELETED_SHEET)
    return KEL_ERR_REF;
  *first_sheet = range->first.sheet ? range->first.sheet : sheet;
  *last_sheet = range->second.sheet ? range->second.sheet : *first_sheet;
  expr_normalize_range(range, cell->col, cell->row, &rect->top_row, &rect->bottom_row,
                       &rect->left_col, &rect->right_col);
  return 0;
}

uint32_t packed_expr_to_range(const xls_packed_expr_t* packed, xls_range_ref_t* range) {
  if (packed->flags & XLS_EXPR_UNPARSED) return KEL_ERR_GENERAL;
  const xls_expr_t* root = expr_root_expr(packed);
  if (!root || root->op != xop_constant || root->u.constant.kind != vt_range)
    return KEL_ERR_NOT_FOUND;
  *range = *root->u.constant.u.range;
  return 0;
}

/* True when a relative part of ref leaves the sheet at cell. */
static bool passes_edge(const xls_cell_ref_t& ref, const cell_t& cell) {
  if (ref.row_relative) {
    int32_t row = ref.row + cell.row;
    if (row < 0 || row >= XLS_MAX_ROWS) return true;
  }
  if (ref.column_relative) {
    int32_t column = ref.column + cell.col;
    if (column < 0 || column >= XLS_MAX_COLUMNS) return true;
  }
  return false;
}

void bind_relative_references(xls_packed_expr_t* packed, const cell_t* cell) {
  if (packed->flags & XLS_EXPR_UNPARSED) return;
  for (uint32_t i = 0; i < packed->count; ++i) {
    xls_expr_t* node = &packed->nodes[i];
    bool off = false;
    if (node->op == xop_cellref) {
      off = passes_edge(node->u.cell, *cell);
    } else if (node->op == xop_constant && node->u.constant.kind == vt_range) {
      const xls_range_ref_t& range = *node->u.constant.u.range;
      off = passes_edge(range.first, *cell) || passes_edge(range.second, *cell);
    }
    if (!off) continue;
    expr_free(node);
    node->op = xop_constant;
    xls_value_error(&node->u.constant, xls_error_ref);
  }
}
