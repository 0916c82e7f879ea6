/*
 * xls_format_general.cpp -- the General format: fixed notation with up to
 * nine decimals where that is readable, scientific notation elsewhere, and
 * for a cell of known width as many digits as fit.
 */
#include <math.h>
#include <string.h>

#include "format/xls_format_internal.h"
#include "view/zuv_font_emulation.h"
#include "workbook/kel_xls_records.h"

/* Fixed notation is for 0 and magnitudes from 1e-9 below 1e11. */
static bool fits_fixed(double value) {
  double magnitude = fabs(value);
  return value == 0 || (magnitude >= 1e-9 && magnitude < 1e11);
}

/* "%.*f", without trailing zeros and point unless precision is 0. */
static int fixed(char* text, int size, double value, int precision) {
  fmt_printf(text, size, "%.*f", precision, value);
  if (precision) fmt_cut_trailing_zeros(text, text + strlen(text));
  return static_cast<int>(strlen(text));
}

/* "%.*E" without trailing zeros (and point) in the mantissa. */
static int scientific(char* text, int size, double value, int precision) {
  fmt_printf(text, size, "%.*E", precision, value);
  char* exponent = strchr(text, 'E');
  if (exponent) fmt_cut_trailing_zeros(text, exponent);
  return static_cast<int>(strlen(text));
}

/* Five decimals, or four when the exponent (with its letter) is longer
 * than four characters, as in "E+100". */
static int first_precision(double value) {
  char text[40];
  fmt_printf(text, sizeof text, "%.5E", value);
  const char* exponent = strchr(text, 'E');
  return exponent && strlen(exponent) > 4 ? 4 : 5;
}

/* text into out, its "." as the locale's decimal separator. */
static int widen(const char* text, const xls_locale* locale, unsigned short* out) {
  unsigned short point = fmt_decimal_separator(locale);
  int position = 0;
  for (; *text; ++text)
    fmt_put(out, &position, *text == '.' ? point : static_cast<unsigned char>(*text));
  out[position] = 0;
  return position;
}

int format_general(double value, const xls_locale* locale, unsigned short* out) {
  char text[400];
  if (fits_fixed(value)) {
    fixed(text, sizeof text, value, 9);
  } else {
    /* Cutting trailing zeros and printing again with one digit less, down
     * to none, ends in the mantissa of one digit whatever the value. */
    fmt_printf(text, sizeof text, "%.0E", value);
  }
  return widen(text, locale, out);
}

int format_general_inline(double value, const xls_locale* locale, unsigned short* out) {
  char text[400];
  if (fits_fixed(value)) fixed(text, sizeof text, value, 9);
  else fmt_printf(text, sizeof text, "%.*E", first_precision(value), value);
  return widen(text, locale, out);
}

int32_t format_text_width(const unsigned short* text, int length, const biff_font* font) {
  unsigned face;
  fe_match(font, &face, FE_DEFAULT_FACE);
  fe_info info;
  fe_font_info(face, &info);
  int64_t height = font ? font->height : 10;
  return static_cast<int32_t>(fe_string_width(face, text, length) * height / info.em);
}

/* Whether text, printed and widened, fits width. */
static bool fits(const char* text, int32_t width, const biff_font* font,
                 const xls_locale* locale) {
  unsigned short wide[XLS_FORMAT_BUFFER_SIZE];
  int length = widen(text, locale, wide);
  return format_text_width(wide, length, font) <= width;
}

int format_general_width(double value, int32_t width, const biff_font* font,
                         const xls_locale* locale, unsigned short* out) {
  char text[400];
  if (fits_fixed(value)) {
    for (int precision = 9; precision >= 0; --precision) {
      int length = fixed(text, sizeof text, value, precision);
      if (!width) return widen(text, locale, out);
      /* 0 always goes down to "0"; others take the first that fits in
       * eleven characters and a sign. */
      if (value != 0 && length < (value > 0 ? 12 : 13) && fits(text, width, font, locale))
        return widen(text, locale, out);
    }
    /* Too wide even without decimals: small numbers show as they are,
     * for the cell to show its "#" instead. */
    if (value < 100000) return widen(text, locale, out);
  }
  for (int precision = first_precision(value);; --precision) {
    scientific(text, sizeof text, value, precision);
    if (!width || !precision || fits(text, width, font, locale)) break;
  }
  return widen(text, locale, out);
}
