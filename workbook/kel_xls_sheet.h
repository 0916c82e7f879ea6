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
#include "workbook/kel_xls_records.h"

struct xls_file;
struct kel_sheet_cache_t;

/* BOUNDSHEET's sheet types. */
enum {
  XLS_SHEET_WORKSHEET = 0,
  XLS_SHEET_MACRO = 1,
  XLS_SHEET_CHART = 2,
  XLS_SHEET_MODULE = 6
};

enum { XLS_MAX_COLUMNS = 256, XLS_MAX_ROWS = 65536, XLS_PANES = 4 };

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
  uint32_t window2_offset, new_window2_offset;
  uint32_t note_offset, new_note_offset;       /* first NOTE; 0 if none */
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

const unsigned short* xls_sheet_name(const xls_sheet_t* sheet);
uint8_t xls_sheet_visibility(const xls_sheet_t* sheet);
uint8_t xls_sheet_type(const xls_sheet_t* sheet);

#endif /* KEL_XLS_SHEET_H */
