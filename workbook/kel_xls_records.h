/*
 * kel_xls_records.h -- BIFF8 records as the workbook holds them in memory,
 * and the ids of the records it reads.
 *
 * Records are those of the published Excel binary file format (BIFF8).  A
 * record in a buffer has its 4-byte header (id, length) at 0 and its body at
 * 4; no body is longer than XLS_MAX_RECORD_BODY.
 */
#ifndef KEL_XLS_RECORDS_H
#define KEL_XLS_RECORDS_H

#include <stdint.h>

#include "platform/zuv_platform.h"

enum {
  XLS_MAX_RECORD_BODY = 8224,
  XLS_RECORD_BUFFER = 4 + XLS_MAX_RECORD_BODY
};

/* Record ids. */
enum {
  BIFF_EOF = 0x000A,
  BIFF_FORMULA_OLD = 0x0006,
  BIFF_FORMULA_BIFF4 = 0x0406, /* found in some BIFF8 files: same layout */
  BIFF_PROTECT = 0x0012,
  BIFF_EXTERNSHEET = 0x0017,
  BIFF_NAME = 0x0018,
  BIFF_NOTE = 0x001C,
  BIFF_SELECTION = 0x001D,
  BIFF_DATEMODE = 0x0022,
  BIFF_FILEPASS = 0x002F,
  BIFF_FONT = 0x0031,
  BIFF_CONTINUE = 0x003C,
  BIFF_WINDOW1 = 0x003D,
  BIFF_PANE = 0x0041,
  BIFF_DEFCOLWIDTH = 0x0055,
  BIFF_OBJPROTECT = 0x0063,
  BIFF_COLINFO = 0x007D,
  BIFF_BOUNDSHEET = 0x0085,
  BIFF_WRITEPROT = 0x0086,
  BIFF_PALETTE = 0x0092,
  BIFF_STANDARDWIDTH = 0x0099,
  BIFF_MULRK = 0x00BD,
  BIFF_MULBLANK = 0x00BE,
  BIFF_DBCELL = 0x00D7,
  BIFF_SCENPROTECT = 0x00DD,
  BIFF_XF = 0x00E0,
  BIFF_MERGEDCELLS = 0x00E5,
  BIFF_SST = 0x00FC,
  BIFF_LABELSST = 0x00FD,
  BIFF_SUPBOOK = 0x01AE,
  BIFF_DIMENSIONS = 0x0200,
  BIFF_BLANK = 0x0201,
  BIFF_NUMBER = 0x0203,
  BIFF_LABEL = 0x0204,
  BIFF_BOOLERR = 0x0205,
  BIFF_FORMULA = 0x0206,
  BIFF_STRING = 0x0207,
  BIFF_ROW = 0x0208,
  BIFF_INDEX = 0x020B,
  BIFF_ARRAY = 0x0221,
  BIFF_DEFAULTROWHEIGHT = 0x0225,
  BIFF_WINDOW2 = 0x023E,
  BIFF_RK = 0x027E,
  BIFF_STYLE = 0x0293,
  BIFF_FORMAT = 0x041E,
  BIFF_SHRFMLA = 0x04BC,
  BIFF_BOF = 0x0809,
  BIFF_FEATHEADR = 0x0867
};

/* BOF: the version and kind of a substream. */
enum {
  BIFF_VERSION_8 = 0x0600,
  BIFF_BOF_GLOBALS = 0x0005,
  BIFF_BOF_WORKSHEET = 0x0010,
  BIFF_BOF_CHART = 0x0020,
  BIFF_BOF_MACRO = 0x0040,
  BIFF_BOF_BODY = 16
};

struct biff_bof_v8 {
  uint16_t version;
  uint16_t type;
  uint16_t build;
  uint16_t year;
  uint32_t history_flags;
  uint32_t lowest_version;
};

/* A FONT record.  The name is kept as text, and where it stands in the
 * stream with its length in bytes there, so that a save can copy it. */
struct biff_font {
  uint16_t height;      /* twips */
  uint16_t flags;       /* bit 1 italic, bit 3 struck out */
  uint16_t colour;      /* palette index */
  uint16_t weight;      /* 400 normal, 700 bold */
  uint16_t escapement;  /* 0 none, 1 superscript, 2 subscript */
  uint8_t underline;
  uint8_t family;
  uint8_t charset;
  uint16_t name_length; /* bytes of the name in the record */
  uint32_t name_offset; /* stream offset of the name */
  unsigned short* name; /* owned; empty, never null */
};

enum { BIFF_FONT_ITALIC = 0x0002, BIFF_FONT_STRUCK = 0x0008 };

/* A FORMAT record: a number format by its index. */
struct biff_format_v4 {
  uint16_t index;
  unsigned short* text; /* owned */
};

/* An XF record, field for field. */
struct biff_xf {
  uint16_t font;        /* index; 4 and above count one less, as font 4 doesn't exist */
  uint16_t format;      /* number format index */
  uint16_t flags;       /* bits 0-2 protection and style flag, 4-15 parent XF */
  uint8_t alignment;    /* bits 0-2 horizontal, 3 wrap, 4-6 vertical */
  uint8_t rotation;
  uint8_t indent;
  uint8_t used;         /* which attributes this XF sets itself */
  uint32_t border1;
  uint32_t border2;     /* bits 26-31: fill pattern */
  uint16_t fill_colours; /* bits 0-6 foreground, 7-13 background index */
};

enum { BIFF_XF_STYLE = 0x0004 };

/* A STYLE record: built-in by number and level, or named. */
struct biff_style {
  uint16_t flags;       /* bit 0 built in; the rest: the XF index */
  uint8_t builtin;
  uint8_t level;
  unsigned short* name; /* owned; null for a built-in style */
};

enum { BIFF_NAME_BUILTIN = 0x0020 };

/* An EXTERNSHEET entry.  For the own workbook's SUPBOOK the sheets are
 * resolved; XLS_EXTERN_DELETED and XLS_EXTERN_WORKBOOK stand for a deleted
 * sheet and a reference to the whole workbook.  Entries of other workbooks
 * keep their raw sheet numbers. */
struct xls_sheet_t;
#define XLS_EXTERN_DELETED (reinterpret_cast<xls_sheet_t*>(1))
#define XLS_EXTERN_WORKBOOK (reinterpret_cast<xls_sheet_t*>(2))
struct xls_externsheet_t {
  uint16_t supbook;
  uint16_t raw_first;
  uint16_t raw_last;
  xls_sheet_t* first;
  xls_sheet_t* last;
};

/* A string as read from a record, parts delivered as asked. */
struct biff_string {
  unsigned short* text;  /* owned, terminated; null unless text was asked */
  uint32_t length;       /* characters */
  uint8_t options;       /* bit 0 two-byte characters, 2 phonetic, 3 rich */
  uint8_t* rich;         /* owned: formatting runs, 4 bytes each */
  uint32_t rich_size;    /* bytes */
  uint8_t* phonetic;     /* owned */
  uint32_t phonetic_size;
};

/* Flags of the string readers. */
enum {
  XLS_STRING_BYTE_LENGTH = 1, /* the length is one byte, not two */
  XLS_STRING_TEXT = 2,        /* deliver the text */
  XLS_STRING_RICH = 4,        /* deliver the formatting runs */
  XLS_STRING_PHONETIC = 8     /* deliver the phonetic data */
};

/* Frees the parts of a string and empties it. */
void biff_string_free(biff_string* string);

/* WINDOW2 of a sheet, by the record's fields. */
struct biff_window2 {
  uint16_t options;
  uint16_t first_row;
  uint16_t first_col;
  uint16_t grid_colour;
  uint16_t reserved1;
  uint16_t page_break_zoom;
  uint16_t normal_zoom;
  uint32_t rest;
};

/* PANE: the split and the top left cell of the bottom right pane. */
struct biff_pane {
  uint16_t x_split;
  uint16_t y_split;
  uint16_t top_row;
  uint16_t left_col;
  uint16_t active_pane;
};

/* One rectangle of a selection. */
struct biff_ref8 {
  uint16_t first_row;
  uint16_t last_row;
  uint8_t first_col;
  uint8_t last_col;
};

struct biff_selection {
  uint8_t pane;
  uint16_t active_row;
  uint16_t active_col;
  uint16_t active_ref;
  uint16_t count;
  biff_ref8* refs; /* owned, count of them */
};

/* A ROW record: 20 bytes with its header. */
enum {
  BIFF_ROW_SIZE = 20,
  BIFF_ROW_DEFAULT_HEIGHT = 0x8000,
  BIFF_ROW_HIDDEN = 0x0020,
  BIFF_ROW_HEIGHT_SET = 0x0040,
  BIFF_ROW_XF_VALID = 0x0080
};
struct biff_row_v2 {
  uint16_t row;
  uint16_t first_col;
  uint16_t last_col;    /* last column + 1 */
  uint16_t height;      /* bit 15: default height */
  uint16_t flags;       /* bit 5 hidden, 6 height set by hand, 7 XF valid */
  uint16_t xf;          /* low 12 bits */
};

#endif /* KEL_XLS_RECORDS_H */
