/*
 * xls_format_internal.h -- what the files of the number formatter share:
 * writing into the fixed output buffer, and printf with a known point.
 */
#ifndef XLS_FORMAT_INTERNAL_H
#define XLS_FORMAT_INTERNAL_H

#include "format/xls_number_format.h"

struct xls_locale;

/* Appends one character while the buffer has room for it and a terminator. */
static inline void fmt_put(unsigned short* out, int* position, unsigned short c) {
  if (*position < XLS_FORMAT_MAX_LENGTH) out[(*position)++] = c;
}

/* Appends narrow (ASCII) text, as fmt_put. */
void fmt_put_ascii(unsigned short* out, int* position, const char* text);

/* Replaces the whole output by the overflow form: 252 "#". */
void fmt_overflow(unsigned short* out, int* position);

/* snprintf that always writes "." as the decimal point: the process locale
 * that printf follows is set from the environment, and its point may be
 * another.  Returns the length written, cut to size - 1. */
int fmt_printf(char* buffer, int size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/* The locale's decimal separator, "." without one. */
unsigned short fmt_decimal_separator(const xls_locale* locale);

/* Cuts zeros at the end of the digits after a point, then the point when
 * nothing follows it; text is narrow and zero-terminated.  mantissa_end,
 * where the cut happens: the end of the text, or the exponent letter. */
void fmt_cut_trailing_zeros(char* text, char* mantissa_end);

/* The state of format_number's walk over one section. */
struct fmt_walk_t {
  format_section_t* section;
  unsigned short* out;
  int position;
  const unsigned short* p;   /* the next character of the section */
  double number;             /* the absolute value, times 100 per "%" */
  double value;              /* the signed value, for dates and times */
  bool date1904;
  bool pending;              /* a placeholder seen, the number not written */
  bool hour_printed;         /* every later "m" is a minute */
  bool elapsed_mode;         /* the next h, m or s field shows total hours */
  bool elapsed_printed;
};

/* Writes a pending number.  False when that overflowed: the output is the
 * overflow form and the walk ends. */
bool fmt_render_pending(fmt_walk_t* walk);

/* The date or time field that starts at walk->p (a letter d, m, h, s, y, a
 * or p in either case), with the separator or bracket it consumes behind
 * it.  False when the value is no date: the output is the overflow form. */
bool fmt_date_field(fmt_walk_t* walk);

#endif /* XLS_FORMAT_INTERNAL_H */
