/*
 * xls_format_output.cpp -- writing into the formatter's fixed buffer, and
 * narrow printing with a point that doesn't depend on the process locale.
 */
#include <locale.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "format/kel_locale.h"
#include "format/xls_format_internal.h"

void fmt_put_ascii(unsigned short* out, int* position, const char* text) {
  for (; *text; ++text) fmt_put(out, position, static_cast<unsigned char>(*text));
}

void fmt_overflow(unsigned short* out, int* position) {
  for (int i = 0; i < XLS_FORMAT_LAST_NUMBER_POSITION; ++i) out[i] = '#';
  out[XLS_FORMAT_LAST_NUMBER_POSITION] = 0;
  *position = XLS_FORMAT_LAST_NUMBER_POSITION;
}

int fmt_printf(char* buffer, int size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(buffer, static_cast<size_t>(size), format, arguments);
  va_end(arguments);
  /* printf writes the point of the process locale, which the engine sets
   * from the environment; the formatter puts in its own separator later. */
  const char* point = localeconv()->decimal_point;
  size_t point_size = point ? strlen(point) : 0;
  if (point_size && strcmp(point, ".") != 0) {
    char* found = strstr(buffer, point);
    if (found) {
      *found = '.';
      memmove(found + 1, found + point_size, strlen(found + point_size) + 1);
    }
  }
  return static_cast<int>(strlen(buffer));
}

unsigned short fmt_decimal_separator(const xls_locale* locale) {
  return locale && locale->decimal_separator ? locale->decimal_separator : '.';
}

void fmt_cut_trailing_zeros(char* text, char* mantissa_end) {
  char* point = strchr(text, '.');
  if (!point || point >= mantissa_end) return;
  char* cut = mantissa_end;
  while (cut > point + 1 && cut[-1] == '0') --cut;
  if (cut == point + 1) cut = point;
  memmove(cut, mantissa_end, strlen(mantissa_end) + 1);
}
