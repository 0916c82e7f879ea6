/*
 * kel_xls_file.h -- the workbook object and how it is opened.
 *
 * xls_open gives a caller an xls_file whatever the document's format: it
 * sniffs the first bytes (a ZIP archive is an OOXML package; anything else
 * must be a compound file with a workbook stream), sets up the stream
 * stack, reads the global records once and scans every sheet once.
 *
 * What stays in memory: fonts, number formats, XFs, styles, the palette,
 * the sheet list, EXTERNSHEET, defined names, and per sheet its settings.
 * What doesn't: the shared strings (reached through checkpoints), ROW,
 * INDEX and DBCELL records, notes, objects, charts and every record the
 * engine has no use for.  They stay in the file and are found by offset.
 */
#ifndef KEL_XLS_FILE_H
#define KEL_XLS_FILE_H

#include <stdint.h>

#include "foundation/zuv_array.h"
#include "foundation/zuv_io.h"
#include "platform/zuv_platform.h"
#include "formula/xls_calc_chain.h"
#include "formula/xls_expr.h"
#include "workbook/kel_xls_records.h"

struct xls_file;
struct xls_sheet_t;
struct xls_locale;
struct kel_wb_cache_t;
struct ole_file;
struct ole_storage;
struct ole_stream;
struct doc_props_t;

/* The workbook of the call in progress.  Module calls store their session's
 * workbook here on entry and null on every way out; code that has no
 * workbook argument takes it from here.  This is why the module serves one
 * call at a time. */
extern xls_file* g_current_wb;

/* The format of a workbook made without a file. */
enum kel_format_t { kel_format_biff8 = 0, kel_format_ooxml = 1 };

enum { XLS_SST_CHECKPOINTS = 5000 };

/* Where the walk through the shared strings may start again: the offset of
 * a string and the bytes left in its record there. */
struct xls_sst_checkpoint_t {
  uint32_t offset;
  uint16_t remaining;
};

/* xls_file.flags */
enum { XLS_FILE_CHANGED = 0x01 };

/* xls_file.row_cache_flags */
enum { XLS_ROW_CACHE_ENABLED = 0x01, XLS_ROW_CACHE_VALID = 0x02 };

struct xls_sst_texts;
struct xls_apos_sheet;

/* The texts of the number formats read last, by format index modulo the
 * slot count: a viewer asks the format of every cell it shows, and the
 * file's FORMAT records would otherwise be searched each time.  The slots
 * hold for one locale and one count of FORMAT records (records are only
 * ever added, and their texts stay until the close). */
enum { XLS_FORMAT_MEMO_SLOTS = 16 };
struct xls_format_memo {
  const xls_locale* locale;
  int32_t formats_count;
  uint16_t index[XLS_FORMAT_MEMO_SLOTS];
  const unsigned short* text[XLS_FORMAT_MEMO_SLOTS]; /* null: an empty slot */
};

struct xls_file {
  kel_wb_cache_t* cached;  /* not null: an OOXML workbook, and nothing below is used */
  uint8_t write_protected;
  xls_pool pool;
  zuv_mem mem;
  unsigned short* password; /* owned; wiped at close */
  uint8_t encrypted;
  ole_file* ole;
  ole_storage* root;
  ole_stream* workbook_stream;
  zuv_io* stream;           /* top of the stack: every read goes here */
  uint32_t window1_offset, new_window1_offset;
  unsigned char record[XLS_RECORD_BUFFER];
  unsigned char second_record[XLS_RECORD_BUFFER];
  biff_bof_v8 bof;
  bool dates_1904;
  xls_array_info fonts_info;
  biff_font* fonts;
  xls_array_info formats_info;
  biff_format_v4* formats;
  xls_array_info xfs_info;
  biff_xf* xfs;
  xls_format_memo format_memo;
  xls_array_info styles_info;
  biff_style* styles;
  uint32_t default_zero_char_twips;
  DRGBValue* palette;       /* owned */
  int32_t palette_size;
  uint32_t sst_unique_count, new_sst_unique_count;
  uint32_t sst_offset, new_sst_offset;  /* 0: no SST */
  xls_sst_checkpoint_t sst_checkpoints[XLS_SST_CHECKPOINTS];
  uint32_t sst_checkpoint_count;
  uint32_t sst_checkpoint_step;         /* 0: not yet laid */
  const xls_sst_texts* open_sst_texts;  /* the table's texts, during the open's scans */
  xls_array_info sheets_info;
  xls_sheet_t** sheets;
  uint16_t own_supbook;     /* 0xFFFF until the workbook's own SUPBOOK */
  uint16_t supbook_count;
  uint8_t flags;            /* XLS_FILE_ */
  xls_array_info externsheets_info;
  xls_externsheet_t* externsheets;
  xls_array_info names_info;
  xls_expr_named_t* names;  /* fixed once the open is done: nodes point in */
  xls_array_info expr_stack_info;  /* the formula reader's operand stack */
  uint16_t* expr_stack;
  xls_array_info unsupported_info; /* formula cells the engine can't compute */
  xls_apos_sheet* unsupported;
  uint32_t formula_records; /* FORMULA records the open's scan met */
  dep_global_t dep;          /* the calculation chain */
  biff_row_v2 row_cache;     /* the last ROW read while the view paints */
  uint8_t row_cache_flags;   /* XLS_ROW_CACHE_ */
  uint32_t active_tab;       /* WINDOW1's active sheet at open */
  xls_sheet_t* active_sheet;
};

/* The colours of palette indexes 8 to 63 when a workbook has no PALETTE. */
enum { XLS_DEFAULT_PALETTE_SIZE = 56 };
extern const DRGBValue xls_default_palette[XLS_DEFAULT_PALETTE_SIZE];

/* Opens the document of pool (copied).  The workbook takes password (heap
 * UTF-16, may be null): it is wiped and freed by the workbook, or at once
 * when the open fails.  read_cells 0 leaves the sheets unscanned.  With no
 * read slot in the document stream a new workbook of format is made.  On
 * failure *result is null. */
uint32_t xls_open(const xls_pool* pool, xls_file** result, int read_cells,
                  const xls_locale* locale, kel_format_t format,
                  unsigned short* password);
/* Closes the workbook; null is fine. */
void xls_close(xls_file* file);

/* Writes the stock image of a new workbook with three sheets into stream
 * (an overlay over nothing), the sheets named by the locale.  buffer holds
 * XLS_RECORD_BUFFER bytes of scratch. */
uint32_t xls_create_empty_workbook(const xls_pool* pool,
                                   const xls_locale* locale,
                                   unsigned char* buffer, zuv_io* stream);

/* The document properties: title, author, description and dates. */
uint32_t xls_get_summary_information(xls_file* file, doc_props_t* props);

/* kel_format_biff8 or kel_format_ooxml. */
kel_format_t kel_file_format(const xls_file* file);
bool xls_1904_dates(const xls_file* file);
bool xls_file_is_write_protected(const xls_file* file);
/* Always 0: a workbook that asked for a password was opened with it. */
int xls_is_file_password_protected(const xls_file* file);
uint32_t xls_sheet_count(const xls_file* file);
/* The sheet of index, or null. */
xls_sheet_t* xls_sheet_handle(const xls_file* file, uint32_t index);
/* The index of a sheet of file, or -1. */
int32_t xls_sheet_index(const xls_file* file, const xls_sheet_t* sheet);
xls_sheet_t* xls_get_active_sheet(const xls_file* file);
uint32_t xls_set_active_sheet(xls_file* file, xls_sheet_t* sheet);
const xls_pool* xls_pool_from_wb(const xls_file* file);
/* The colour of a palette index: the eight fixed colours below 8, the
 * workbook's palette from 8, the window's text and background colours at
 * 0x40 and 0x41; any other index is automatic, black. */
DRGBValue xls_palette_colour(const xls_file* file, uint16_t index);
/* Counts of the global tables. */
uint32_t xls_font_count(const xls_file* file);
uint32_t xls_format_count(const xls_file* file);
uint32_t xls_xf_count(const xls_file* file);
uint32_t xls_name_count(const xls_file* file);

/* The formula cells the engine cannot compute, and those the chain left
 * out for a circle.  A workbook that has one when its sheets are read is
 * not recalculated: every formula keeps the result the file cached. */
const xls_apos_sheet* xls_unsupported_cells(const xls_file* file, uint32_t* count);
uint32_t xls_add_unsupported_cell(xls_file* file, const xls_apos_sheet& position);

/* The workbook's calculation chain. */
dep_global_t* xls_dep_global(xls_file* file);

/* True when text is a string of file's in-memory shared string table, which
 * cell values borrow rather than own. */
bool xls_is_sst_str(const xls_file* file, const unsigned short* text);

#endif /* KEL_XLS_FILE_H */
