/*
 * xls_format_print.cpp -- the entries: a number or a text cell's text with
 * its format, into the caller's buffer.
 */
#include <string.h>

#include "foundation/zuv_uni_string.h"
#include "format/xls_number_format.h"

/* Formats that mean "no format": the General rules show the whole value. */
static bool is_general(const unsigned short* format) {
  static const unsigned short kGeneral[] = {'G', 'e', 'n', 'e', 'r', 'a', 'l', 0};
  return !format || ucs2_cmpi(format, kGeneral) == 0 || (format[0] == '@' && !format[1]);
}

/* A format other than General: its sections, a digit pattern or the walk. */
static int print_with_format(double value, bool date1904, const xls_locale* locale,
                             const unsigned short* format, unsigned short* out,
                             DRGBValue* colour) {
  format_info_t info;
  if (parse_format(format, &info)) return 0;
  info.section[0].locale = locale;
  info.section[1].locale = locale;
  int length;
  if (format_is_digit_pattern(info.section[0].text)) {
    length = format_digit_pattern(value, info.section[0].text, out);
  } else {
    int section = 0;
    length = format_number(value, &info, &section, out, date1904);
    if (info.section[section].has_colour) *colour = info.section[section].colour;
  }
  format_info_free(&info);
  return length;
}

int xls_print_formatted_number(double value, bool date1904, const xls_locale* locale,
                               const unsigned short* format, unsigned short* out,
                               DRGBValue* colour) {
  out[0] = 0;
  memset(colour, 0, sizeof *colour);
  if (is_general(format)) return format_general(value, locale, out);
  return print_with_format(value, date1904, locale, format, out, colour);
}

int xls_print_formatted_number(double value, bool date1904, int32_t width,
                               const biff_font* font, const xls_locale* locale,
                               const unsigned short* format, unsigned short* out,
                               DRGBValue* colour) {
  out[0] = 0;
  memset(colour, 0, sizeof *colour);
  if (is_general(format)) return format_general_width(value, width, font, locale, out);
  return print_with_format(value, date1904, locale, format, out, colour);
}

unsigned xls_print_formatted_text(const unsigned short* text, unsigned length, int32_t,
                                  const biff_font*, const unsigned short*,
                                  unsigned short* out, unsigned size, DRGBValue* colour) {
  memset(colour, 0, sizeof *colour);
  memcpy(out, text, (length < size ? length : size) * sizeof *out);
  return length;
}
