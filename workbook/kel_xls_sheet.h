/*
 * kel_xls_sheet.h -- a sheet of a BIFF workbook: what its BOUNDSHEET names,
 * and what one scan of its substream at open keeps in memory.
 *
 * Offsets are logical offsets in the workbook's top stream.  Each comes in
 * a pair: the second is the offset in the stream a save is writing.
 */
#ifndef KEL_XLS_SHEET_H
#define KEL_XLS_SHEET_H

#include <stdint.h>

#include "foundation/zuv_array.h"
#include "foundation/zuv_io.h"
#include "platform/zuv_platform.h"
#include "workbook/kel_cell_cache.h"
#include "workbook/kel_xls_records.h"

struct xls_file;
struct xls_locale;
struct xls_shared_expr;
struct kel_sheet_cache_t;

/* BOUNDSHEET's sheet types. */
enum {
  XLS_SHEET_WORKSHEET = 0,
  XLS_SHEET_MACRO = 1,
  XLS_SHEET_CHART = 2,
  XLS_SHEET_MODULE = 6
};

enum { XLS_MAX_COLUMNS = 256, XLS_MAX_ROWS = 65536, XLS_PANES = 4 };
enum { XLS_HEIGHT_GRID = 256, XLS_HEIGHT_WINDOW = 256 };
#define XLS_HEIGHT_UNKNOWN 0xFFFFFFFFu

/* Without INDEX, ROW records are found through runs of them noted by the
 * scan: count records one after the other from offset, the first for
 * first_row. */
struct xls_row_run_t {
  uint32_t offset;
  uint16_t first_row;
  uint16_t count;
};

/* A column's COLINFO. */
struct xls_column_t {
  uint16_t width;   /* 1/256 of the width of "0" */
  uint16_t xf;
  uint16_t flags;   /* bit 0 hidden */
  uint8_t present;  /* a COLINFO covered the column */
};

enum { XLS_COLUMN_HIDDEN = 0x0001 };

struct xls_sheet_t {
  kel_sheet_cache_t* cached;  /* not null: a sheet of an OOXML workbook */
  xls_file* workbook;
  uint32_t bof_offset, new_bof_offset;
  uint8_t visibility;         /* 0 visible, 1 hidden, 2 very hidden */
  uint8_t type;               /* XLS_SHEET_ */
  uint32_t name_length;       /* bytes of the name in BOUNDSHEET */
  uint32_t name_offset, new_name_offset;
  unsigned short* name;       /* owned */
  uint32_t boundsheet_offset, new_boundsheet_offset;
  uint32_t index_offset, new_index_offset;     /* 0 if none */
  xls_simple_array row_runs;  /* xls_row_run_t, kept only without INDEX */
  uint32_t window2_offset, new_window2_offset;
  uint32_t note_offset, new_note_offset;       /* first NOTE; 0 if none */
  uint32_t merged_offset;     /* first MERGEDCELLS; 0 if none */
  /* Entry k: the height in twips of rows 0 to 256 * (k + 1) - 1, a fast
   * estimate that counts every row as following on from the one before. */
  uint32_t height_grid[XLS_HEIGHT_GRID];
  /* The exact tops of 256 rows from height_window_first on; unknown ones
   * are XLS_HEIGHT_UNKNOWN. */
  uint16_t height_window_first;
  uint32_t height_window[XLS_HEIGHT_WINDOW];
  biff_bof_v8 bof;
  biff_window2 window2;
  biff_pane pane;
  biff_selection selections[XLS_PANES];
  uint32_t first_row, last_row;     /* extent of the cells: last is one past */
  uint16_t first_col, last_col;
  uint16_t default_col_width;       /* 1/256 of the width of "0" */
  xls_column_t columns[XLS_MAX_COLUMNS];
  uint16_t default_row_height;      /* twips */
  uint16_t default_row_flags;
  kel_cell_cache_t cells;
  kel_cell_hint cell_hint;          /* the cell read last */
  xls_array shared_exprs;           /* xls_shared_expr records */
  uint32_t sheet_protected;
  uint32_t scenarios_protected;
  uint32_t objects_protected;
  uint16_t allowed_actions;         /* from FEATHEADR */
  uint8_t has_allowed_actions;
  xls_array charts;                 /* offsets of embedded chart BOFs */
};

/* A new sheet of the workbook with every default; null without memory. */
xls_sheet_t* sheet_constructor(xls_file* workbook);
/* Frees what the sheet owns and the sheet; null is fine. */
void sheet_destructor(xls_sheet_t* sheet);

/* Reads a SELECTION record's body (length bytes) into selection, replacing
 * what it held. */
uint32_t xls_read_SELECTION(const unsigned char* body, uint32_t length,
                            biff_selection* selection);

/* One walk over the sheet's substream, keeping its settings.  A substream
 * that isn't a worksheet's is left unscanned. */
uint32_t xls_scan_sheet(xls_file* file, xls_sheet_t* sheet);

/* Widens the sheet's extent of known cells to take in (column, row).
 * Inline: a file's scan asks it once a cell. */
inline void xls_sheet_take_in(xls_sheet_t* sheet, uint32_t column, uint32_t row) {
  if (row + 1 > sheet->last_row) sheet->last_row = row + 1;
  if (column + 1 > sheet->last_col) sheet->last_col = static_cast<uint16_t>(column + 1);
  if (row < sheet->first_row) sheet->first_row = row;
  if (column < sheet->first_col) sheet->first_col = static_cast<uint16_t>(column);
}
/* Inserts a copy of cell in the table's order, the table taking over its
 * value, and widens the sheet's extent.  A cell already at that place gives
 * KEL_ERR_GENERAL and leaves the value the caller's.  result (counted) and
 * position, where not null, get the new cell and its index. */
uint32_t insert_cell(xls_sheet_t* sheet, const xls_cell_t* cell,
                     auto_cell_t* result, int* position);

/* ---- Cells and their formats ---------------------------------------------- */

/* xls_read_cell_info.flags: requests, and the result bit. */
enum {
  XLS_READ_CELL = 0x01,
  XLS_READ_NUMBER_FORMAT = 0x02,
  XLS_READ_FONT = 0x04,
  XLS_READ_ALIGNMENT = 0x08,
  XLS_READ_FILL = 0x10,
  XLS_CELL_EXISTS = 0x20
};

struct xls_read_cell_info {
  uint8_t flags;
  auto_cell_t cell;                    /* with XLS_READ_CELL */
  const unsigned short* number_format; /* not owned */
  uint16_t number_format_index;
  const biff_font* font;
  DRGBValue font_colour;
  uint16_t xf;                         /* with XLS_READ_ALIGNMENT */
  uint8_t alignment;
  uint16_t protection;
  uint8_t border_lines;
  uint8_t fill_pattern;
  DRGBValue fill_foreground, fill_background; /* with XLS_READ_FILL */
};

struct xls_xf_info {
  const unsigned short* number_format;
  uint8_t alignment;
  uint16_t flags;
};

/* The cell at (column, row) and what its XF says, as info's request bits
 * ask; a cell that doesn't exist takes its row's or its column's format.
 * The caller releases info->cell. */
uint32_t xls_read_cell(xls_sheet_t* sheet, int column, int row,
                       xls_read_cell_info* info, const xls_locale* locale);
/* *value gets the cell (counted) or null. */
uint32_t xls_get_cell_value(xls_sheet_t* sheet, int column, int row,
                            auto_value_t* value);
/* The XF of a cell with the attributes it inherits from its style; 0xFFFF
 * stands for the column's default XF. */
void xls_get_parent_xf(xls_sheet_t* sheet, uint16_t xf, int column, biff_xf* result);
/* The text of number format index: the workbook's, or a built-in one below
 * 50; null if neither. */
const unsigned short* xls_get_number_format(const xls_file* file, uint16_t index,
                                            const xls_locale* locale);
uint32_t xls_get_xf_info(const xls_file* file, uint16_t xf, xls_xf_info* info,
                         const xls_locale* locale);

/* The view's cache of one ROW record, for painting, which asks for the same
 * row again and again. */
void xls_enable_drawing_cache(xls_file* file);
void xls_disable_drawing_cache(xls_file* file);

/* ---- Rows and columns ----------------------------------------------------- */

/* Reads row's ROW record through the INDEX record at index_offset.  A row
 * without one gets the default form and *not_found (if given) true. */
uint32_t xls_read_ROW_v2(const xls_pool* pool, zuv_io* stream, uint32_t index_offset,
                         uint16_t row, biff_row_v2* result, bool* not_found);
/* Whether the INDEX record at index_offset leads to the sheet's rows: its
 * length fits its first and last row, each entry is a DBCELL, and each
 * block's ROW records lie in the block's 32 rows.  Writers get this wrong
 * now and then (a DBCELL entry pointing elsewhere, one entry for every
 * possible block); the rows the scan noted then serve instead. */
bool xls_index_is_sound(zuv_io* stream, uint32_t index_offset);
/* Sums the heights of each block of 256 rows into grid. */
uint32_t xls_read_height_grid(const xls_pool* pool, zuv_io* stream,
                              unsigned char* buffer, unsigned char* second_buffer,
                              uint32_t index_offset, uint16_t default_height,
                              uint32_t* grid);
/* Reads row's ROW record of the sheet (through INDEX, else through the runs
 * the scan noted); a row without one gets the default form and *not_found
 * (if given) true.  *offset, if given, gets the record's stream offset when
 * the runs found it, and is left as it is through INDEX. */
uint32_t xls_sheet_read_ROW(xls_sheet_t* sheet, uint16_t row, biff_row_v2* result,
                            bool* not_found, uint32_t* offset);
/* Lays the height grid and empties the window: after the scan, and after
 * changes too large to follow row by row. */
uint32_t cache_sheet_heights(xls_sheet_t* sheet);

/* The height of row in twips, and in *top (if not null) its y. */
uint32_t xls_get_row_height(xls_sheet_t* sheet, uint16_t row, uint32_t* top);
/* The row at y, or 0xFFFF past the last. */
uint32_t xls_find_row(xls_sheet_t* sheet, uint32_t y);
uint16_t xls_get_default_row_height(const xls_sheet_t* sheet);
/* The width of column in twips, and in *left (if not null) its x. */
uint32_t xls_get_col_width(const xls_sheet_t* sheet, uint8_t column, uint32_t* left);
uint32_t xls_set_col_width(xls_sheet_t* sheet, uint8_t column, uint32_t twips);
bool xls_is_row_hidden(xls_sheet_t* sheet, uint16_t row);
/* Store a row's height in twips (0x8000: back to the default, the row no
 * longer set by hand), or hide or show it.  A row already in that state is
 * left.  KEL_ERR_SHEET_PROTECTED on a protected sheet. */
uint32_t xls_set_row_height(xls_sheet_t* sheet, uint16_t row, uint32_t twips);
uint32_t xls_hide_row(xls_sheet_t* sheet, uint16_t row, bool hide);
/* KEL_ERR_SHEET_PROTECTED on a protected sheet. */
uint32_t xls_hide_col(xls_sheet_t* sheet, uint8_t column, bool hide);
bool xls_is_col_hidden(const xls_sheet_t* sheet, uint8_t column);

/* ---- Selection, panes, extent ------------------------------------------- */

uint32_t xls_sheet_set_sel(xls_sheet_t* sheet, uint32_t first_column, uint32_t first_row,
                           uint32_t last_column, uint32_t last_row);
/* The first rectangle of the active pane's selection; each pointer may be
 * null.  No rectangle gives four zeros. */
uint32_t xls_sheet_get_sel(const xls_sheet_t* sheet, uint32_t* first_column,
                           uint32_t* first_row, uint32_t* last_column, uint32_t* last_row);
/* Stores pane; new splits move the active selection to the new active
 * pane, which pane gets back. */
uint32_t xls_sheet_set_pane(xls_sheet_t* sheet, biff_pane* pane);
uint32_t xls_sheet_get_pane(const xls_sheet_t* sheet, biff_pane* pane);
uint32_t xls_sheet_get_WINDOW2(const xls_sheet_t* sheet, biff_window2* window);
uint32_t xls_sheet_set_WINDOW2(xls_sheet_t* sheet, const biff_window2* window);
uint32_t xls_sheet_freeze_panes(xls_sheet_t* sheet);
uint32_t xls_sheet_unfreeze_panes(xls_sheet_t* sheet);
/* True only at the split itself. */
bool xls_is_col_frozen(const xls_sheet_t* sheet, uint32_t column);
bool xls_is_row_frozen(const xls_sheet_t* sheet, uint32_t row);
bool xls_is_sheet_frozen(const xls_sheet_t* sheet);

/* A rectangle of cells. */
struct xls_orange {
  uint32_t first_row, first_col, last_row, last_col;
};
/* From A1 to the last used or selected column and row. */
uint32_t xls_sheet_dimensions(xls_sheet_t* sheet, xls_orange* range);
uint32_t xls_sheet_col_count(xls_sheet_t* sheet);
uint32_t xls_sheet_row_count(xls_sheet_t* sheet);

/* On a protected sheet, whether the FEATHEADR mask (or the default one)
 * allows any bit of action. */
bool xls_is_action_permitted(const xls_sheet_t* sheet, uint16_t action);

/* A cell and the sheet it is on, packed. */
struct xls_apos_sheet {
  xls_sheet_t* sheet;
  uint16_t row;
  uint8_t column;
};
/* The shared or array formula that covers the cell, or null. */
xls_shared_expr* xls_shared_expr_get(const xls_apos_sheet* position);

/* The merged rectangles (xls_orange) of the substream from offset to its
 * EOF, read into merged, which is set up here. */
uint32_t xls_MERGEDCELLS_read(const xls_pool* pool, zuv_io* stream, unsigned char* buffer,
                              uint32_t offset, xls_simple_array* merged);
uint32_t xls_get_merged_cells(xls_sheet_t* sheet, xls_simple_array* merged);

const unsigned short* xls_sheet_name(const xls_sheet_t* sheet);
/* The sheet of file whose name is the length units of name (which need not
 * be terminated), compared without case; null when there is none. */
xls_sheet_t* xls_find_sheet_by_name(const xls_file* file, const unsigned short* name,
                                    uint32_t length);
uint8_t xls_sheet_visibility(const xls_sheet_t* sheet);
uint8_t xls_sheet_type(const xls_sheet_t* sheet);

#endif /* KEL_XLS_SHEET_H */
