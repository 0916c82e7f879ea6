/*
 * xls_number_format.h -- a number and a number format to the text a cell
 * shows, and the colour the format asks for.
 *
 * A format is not compiled into a lasting object: each call splits the
 * format text into at most two sections, walks the chosen section character
 * by character, and writes into a fixed buffer.  The walker has habits of
 * its own, unlike other spreadsheet programs, and what is painted, printed
 * and copied relies on them:
 *
 *   - only two sections count: a third (zero) and fourth (text) section are
 *     dropped, and conditions such as [>5] are ignored; the sign alone
 *     chooses the section;
 *   - the number is written once, at its first field; placeholders after a
 *     literal that followed the number print nothing;
 *   - commas group digits but never scale the number;
 *   - "#" after the point drops the last run of non-zero digits, so "0.##"
 *     shows 1.25 as "1." and 1.5 as "1.50";
 *   - fractions of a second are never computed: "ss.00" always ends ".00";
 *   - an exponent loses one of its first pair of zeros: "E+00" shows "E+0";
 *   - General without a width keeps one significant digit in scientific
 *     form: 1.5e20 shows "2E+20".
 *
 * Output buffers hold XLS_FORMAT_BUFFER_SIZE units: 253 characters and a
 * terminator.  A number field that does not fit or has no finite value,
 * and a date out of range, show as 252 "#" (the overflow form).  Nothing here
 * fails except an allocation, which gives an empty text and the length 0.
 * Texts are zero-terminated UTF-16.  A null locale means English with "."
 * and ",".
 */
#ifndef XLS_NUMBER_FORMAT_H
#define XLS_NUMBER_FORMAT_H

#include <stdint.h>

#include "platform/zuv_platform.h"

struct biff_font;
struct tm;
struct xls_locale;

enum {
  XLS_FORMAT_BUFFER_SIZE = 254,
  XLS_FORMAT_MAX_LENGTH = 253,
  /* The last position a number may reach, and the length of the overflow
   * form. */
  XLS_FORMAT_LAST_NUMBER_POSITION = 252
};

/* The colours a format names, as DRGBValue of the platform: flags 255 for
 * a named colour, all four bytes 0 for "the cell's own colour". */
struct xls_colour_name_t {
  const char* name;
  DRGBValue value;
};
/* Black, Blue, Cyan, Green, Magenta, Red, White, Yellow: the order in which
 * a bracket is matched against them. */
enum { XLS_COLOUR_NAME_COUNT = 8 };
extern const xls_colour_name_t xls_colour_names[XLS_COLOUR_NAME_COUNT];

/* One section of a format: what parse_format finds in it, and the counts
 * that format_number gathers while it walks it. */
struct format_section_t {
  const xls_locale* locale;   /* set by the caller, may be null */
  unsigned short* text;       /* heap; leading colours and all conditions cut */
  DRGBValue colour;
  uint8_t has_colour;
  uint8_t is_date;            /* has a letter of a date or time field */
  uint8_t has_elapsed;        /* [h], [mm], [s] ... */
  uint8_t has_am_pm;          /* AM/PM: hours count to twelve */
  uint8_t reserved;           /* while set, date letters don't make is_date;
                                 parse_format clears it with the rest */
  uint8_t has_fraction;       /* a "/" before a digit or "?" */
  uint32_t rendered;          /* the number has been written */
  uint32_t has_decimal_point;
  uint32_t thousands;
  int32_t optional_decimals;  /* "#" after the point */
  int32_t zero_decimals;      /* "0" after the point */
  int32_t zero_decimals_again; /* the same count: with optional_decimals,
                                   the digits the number is rounded to */
  int32_t decimal_width;      /* "0" and "?" after the point */
  int32_t integer_width;      /* "0" and "?" before the point */
  int32_t integer_zeros;      /* "0" before the point */
};

/* The positive (or only) section, then the negative one. */
struct format_info_t {
  format_section_t section[2];
};

/* ---- The two entries ---------------------------------------------------- */

/* Formats value into out and returns the number of characters written;
 * *colour receives the colour of the chosen section, or all zeros.  A null
 * format, "General" in any case, or exactly "@" show the value by the
 * General rules.  This form, without a width, serves charts. */
int xls_print_formatted_number(double value, bool date1904, const xls_locale* locale,
                               const unsigned short* format, unsigned short* out,
                               DRGBValue* colour);
/* The form for cells: width is the room in the cell, in the units that a
 * text of font measures in (see format_text_width); 0 means no limit.  Only
 * General uses it, to choose as many decimals as fit. */
int xls_print_formatted_number(double value, bool date1904, int32_t width,
                               const biff_font* font, const xls_locale* locale,
                               const unsigned short* format, unsigned short* out,
                               DRGBValue* colour);

/* The text of a text cell: at most size characters of text are copied into
 * out, without a terminator, and the whole length is returned.  Formats
 * don't apply to text, so the colour is cleared. */
unsigned xls_print_formatted_text(const unsigned short* text, unsigned length,
                                  int32_t width, const biff_font* font,
                                  const unsigned short* format, unsigned short* out,
                                  unsigned size, DRGBValue* colour);

/* ---- The parts ---------------------------------------------------------- */

/* Zeroes *info and splits format into its first two sections; a null format
 * leaves it zeroed.  KEL_ERR_OUT_OF_MEMORY leaves no text allocated. */
uint32_t parse_format(const unsigned short* format, format_info_t* info);
/* Frees both section texts; the structure stays usable. */
void format_info_free(format_info_t* info);

/* Walks the section that value chooses, sets *section to its index and
 * returns the length of out. */
int format_number(double value, format_info_t* info, int* section, unsigned short* out,
                  bool date1904);

/* Writes the number field of section for a non-negative value at
 * *position and advances it, from the counts gathered so far.  False when
 * it did not fit: out then holds the overflow form. */
bool render_number(unsigned short* out, int* position, double value,
                   const format_section_t* section);

/* Date and time fields of a serial with half a second added: hours,
 * minutes and seconds are truncated from that.  In the 1900 calendar
 * serial 0 is "0 January 1900" and serial 60 is 29 February 1900.  value
 * must be a date, from 0 below 2958466: the walk tests that first. */
void format_split_time(struct tm* tm, double value, bool date1904);

/* Writes the total hours of an elapsed time ([h], [m] and [s] all show
 * them), the fraction rounded to a hundredth of a second; tm_hour receives
 * them too. */
void format_append_hour_elapsed(unsigned short* out, int* position, struct tm* tm,
                                double value);

/* The last convergent of value's continued fraction whose denominator is at
 * most maximum; a negative value gives a negative numerator. */
void continued_fraction(double value, int32_t maximum, int32_t* numerator,
                        int32_t* denominator);

/* True for a section like "(###) ###-####": only "0", "#", "$", "-", "+",
 * "/", "(", ")", ":", spaces and "\" pairs, and not only "0" and "#". */
bool format_is_digit_pattern(const unsigned short* text);
/* Fills the placeholders of such a pattern with the digits of value's
 * integer part, from the right; the leftmost placeholder takes all digits
 * left over.  A negative value has no digits: it shows as the one
 * character '0' + (value % 10).  Returns the length of out. */
int format_digit_pattern(double value, const unsigned short* pattern, unsigned short* out);

/* ---- General ------------------------------------------------------------ */

/* General without a width: "%.9f" without trailing zeros for 0 and for
 * magnitudes from 1e-9 below 1e11, otherwise scientific with one digit. */
int format_general(double value, const xls_locale* locale, unsigned short* out);
/* General as a word inside a format: as format_general, but scientific
 * form is never shortened: five decimals, four beside a three-digit
 * exponent. */
int format_general_inline(double value, const xls_locale* locale, unsigned short* out);
/* General for a cell of the given width: as many decimals as fit, then
 * scientific with fewer and fewer digits.  Width 0 takes the first try. */
int format_general_width(double value, int32_t width, const biff_font* font,
                         const xls_locale* locale, unsigned short* out);
/* The width of length characters of text in font: the emulated metrics
 * times the font's height, over the units of the metrics. */
int32_t format_text_width(const unsigned short* text, int length, const biff_font* font);

/* ---- Tables ------------------------------------------------------------- */

/* The group separator: the locale's, unless it equals the decimal
 * separator, then "." beside a decimal ",", and "," beside any other; ","
 * without a locale. */
unsigned short xls_thousand_separator(const xls_locale* locale);

/* A currency as number formats write it, and where it stands: placement 0
 * before the number ("$1"), 2 before it with a space ("€ 1"), 3 after it
 * with a space ("1 €").  Texts are UTF-8. */
struct xls_currency {
  const char* text;
  int32_t placement;
};
enum { XLS_CURRENCY_COUNT = 69 };
extern const xls_currency currency_formats[XLS_CURRENCY_COUNT];
/* The UTF-16 text of entry currency and its placement; null for -1 or any
 * index outside the table. */
const unsigned short* xls_currency_format(int32_t currency, int32_t* placement);

/* English names, ASCII; a locale's names go first where it has them. */
extern const char* const format_month_short[12];
extern const char* const format_month_one_letter[12];
extern const char* const format_month_long[12];
extern const char* const format_day_short[7];   /* Sunday first */
extern const char* const format_day_long[7];

#endif /* XLS_NUMBER_FORMAT_H */
