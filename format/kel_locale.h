/*
 * kel_locale.h -- every text and separator that depends on the user's
 * language, in one plain structure.
 *
 * All formula and format code takes a const xls_locale* that may be null:
 * null means the neutral form (English names, "." and ",").  Every pointer
 * of the structure may be null too, and each reader falls back to its own
 * built-in English text.  Strings are heap UTF-16.
 */
#ifndef KEL_LOCALE_H
#define KEL_LOCALE_H

#include <stdint.h>

/* Rows of the table of worksheet functions that the locale names. */
enum { XLS_LOCALE_FUNCTION_COUNT = 380 };

/* Default sheet names: three for a new workbook, then the stems of the
 * names of new sheets and new chart sheets. */
enum {
  XLS_LOCALE_SHEET1 = 0,
  XLS_LOCALE_SHEET2 = 1,
  XLS_LOCALE_SHEET3 = 2,
  XLS_LOCALE_SHEET_STEM = 3,
  XLS_LOCALE_CHART_STEM = 4,
  XLS_LOCALE_SHEET_NAMES = 5
};

/* Order of day, month and year in dates. */
enum { XLS_DATE_MDY = 0, XLS_DATE_DMY = 1, XLS_DATE_YMD = 2 };

struct xls_locale {
  uint16_t decimal_separator;
  uint16_t thousand_separator;
  unsigned short* day_names[7][2];      /* Sunday first: long, short */
  unsigned short* month_names[12][3];   /* long, short, one letter */
  unsigned short* sheet_names[XLS_LOCALE_SHEET_NAMES];
  unsigned short* function_names[XLS_LOCALE_FUNCTION_COUNT];
  unsigned short* error_texts[7];       /* "#NULL!" to "#N/A" */
  unsigned short* true_word;
  unsigned short* false_word;
  uint16_t time_separator;
  uint16_t date_separator;
  int32_t date_order;                   /* XLS_DATE_ */
  int32_t hour24;                       /* not 0: 24-hour clock */
  uint32_t reserved;
};

#endif /* KEL_LOCALE_H */
