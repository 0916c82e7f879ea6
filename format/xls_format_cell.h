/*
 * xls_format_cell.h -- the text that a cell shows when it is painted: its
 * value through its number format, cut to the room it has.
 */
#ifndef XLS_FORMAT_CELL_H
#define XLS_FORMAT_CELL_H

#include <stdint.h>

#include "formula/xls_value.h"
#include "platform/zuv_platform.h"

struct biff_font;
struct xls_locale;

/* xls_format_cell_params.flags */
enum { XLS_FORMAT_CELL_1904 = 0x01 };
/* xls_format_cell_params.result_flags */
enum { XLS_FORMAT_CELL_HAS_COLOUR = 0x01 };

struct xls_format_cell_params {
  const xls_value_t* value;
  const unsigned short* number_format; /* null: General */
  uint32_t flags;                      /* XLS_FORMAT_CELL_ */
  int32_t width;                       /* room in the cell; 0: no limit */
  const biff_font* font;               /* the text's font, for width */
  const xls_locale* locale;
  unsigned short* result;              /* heap, the caller's to free */
  uint8_t result_flags;                /* XLS_FORMAT_CELL_HAS_COLOUR */
  DRGBValue colour;                    /* the format's colour, with the flag */
};

/* Fills result (and the colour) for value: a number through the number
 * format, a string as it is, anything else as its text; a range shows
 * #VALUE! and an array its first element.  With a width, a text wider than
 * it becomes as many "#" as fit.  KEL_ERR_OUT_OF_MEMORY leaves result
 * null. */
uint32_t xls_format_cell(xls_format_cell_params* params);

#endif /* XLS_FORMAT_CELL_H */
