/*
 * xls_formula_bar.h -- a cell's value as the user edits it: the formula of
 * a formula cell, a date or time in a fixed edit form of the locale, a
 * percent as "12.5%", any other number in the shortest text that keeps its
 * digits (at most 16 to 21 characters, by magnitude, else "%g"), a string
 * as it is.  The formula printer shows its number constants the same way.
 */
#ifndef XLS_FORMULA_BAR_H
#define XLS_FORMULA_BAR_H

#include <stdint.h>

#include "formula/xls_value.h"

struct xls_locale;
struct xls_sheet_t;

/* xls_formula_bar_params.flags */
enum {
  XLS_FORMULA_BAR_1904 = 0x01,       /* the workbook counts dates from 1904 */
  XLS_FORMULA_BAR_APOSTROPHE = 0x02  /* a string gets a leading "'" */
};

struct xls_formula_bar_params {
  xls_sheet_t* sheet;  /* the cell, for a formula's relative references */
  int32_t row;
  int32_t column;
  const xls_value_t* value;
  const unsigned short* format; /* the cell's number format; may be null */
  const xls_locale* locale;     /* null: the neutral one */
  uint32_t flags;               /* XLS_FORMULA_BAR_ */
  unsigned short* result;       /* heap, the caller's; null for an empty value */
};

/* format_family results */
enum {
  XLS_FAMILY_NONE = 0,
  XLS_FAMILY_DATE = 5,
  XLS_FAMILY_TIME = 6,
  XLS_FAMILY_DATE_TIME = 7,
  XLS_FAMILY_PERCENT = 8
};
/* Classifies a number format by its date, time and percent elements,
 * without parsing it: "d" and "y" are dates, "h", "s", AM/PM and the
 * elapsed brackets [h] [mm] [ss] times, "m" minutes after a time element or
 * before ":s" and months otherwise; a "%" makes it a percent format
 * whatever else it holds.  Quoted text, characters after "\", "_" and
 * "*", and other brackets are passed over.  Null is XLS_FAMILY_NONE. */
int format_family(const unsigned short* format);

/* The edit text of params->value into params->result.  A range gives
 * KEL_ERR_GENERAL; a parsed formula its text ("=..."); a formula still in
 * text that text as it was kept.  A shared formula still in text, and a
 * formula kept only by its result, show the result as a basic value. */
uint32_t xls_create_formula_bar_str(xls_formula_bar_params* params);
/* The same for params->value's basic part (a formula's cached result):
 * empty gives a null result and status 0; a number with a date or time
 * format (params->format) and no sign shows as a date, a time or both --
 * a time of a day or more with its date; a percent format shows the value
 * times 100 and "%".  An array, which no cell holds, gives KEL_ERR_GENERAL. */
uint32_t kel_create_formula_bar_str_from_basic_value(xls_formula_bar_params* params);

#endif /* XLS_FORMULA_BAR_H */
