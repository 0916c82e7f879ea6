/*
 * xls_format_pattern.cpp -- digit patterns such as "(###) ###-####": the
 * digits of the integer part poured into the placeholders from the right,
 * without sign, rounding or sections.
 */
#include <math.h>
#include <stdlib.h>

#include "foundation/zuv_uni_string.h"
#include "format/xls_format_internal.h"

bool format_is_digit_pattern(const unsigned short* text) {
  bool other = false;
  for (; *text; ++text) {
    switch (*text) {
      case '0': case '#':
        break;
      case '$': case '-': case '+': case '/': case '(': case ')': case ':': case ' ':
        other = true;
        break;
      case '\\':
        if (!text[1]) return false;
        ++text;
        other = true;
        break;
      default:
        return false;
    }
  }
  return other;
}

/* Whether the character at index follows an escaping "\": an odd run of
 * backslashes stands before it. */
static bool is_escaped(const unsigned short* pattern, int index) {
  int run = 0;
  while (index - run > 0 && pattern[index - run - 1] == '\\') ++run;
  return run % 2 == 1;
}

int format_digit_pattern(double value, const unsigned short* pattern, unsigned short* out) {
  out[0] = 0;
  double whole = trunc(value);
  int64_t integer = !(whole == whole)  ? 0
                    : whole >= 9.2e18  ? INT64_MAX
                    : whole <= -9.2e18 ? INT64_MIN
                                       : static_cast<int64_t>(whole);
  unsigned short digits[24];
  int left = static_cast<int>(zuv_printf_int64(digits, integer));
  int length = static_cast<int>(ucs2_len(pattern));

  int leftmost = -1;
  for (int i = 0; i < length; ++i) {
    if (pattern[i] == '\\') ++i;
    else if (pattern[i] == '0' || pattern[i] == '#') {
      leftmost = i;
      break;
    }
  }

  /* Built backwards from the end of a region that holds every digit and
   * every pattern character. */
  int size = left + length;
  unsigned short* region = static_cast<unsigned short*>(malloc((size + 1) * sizeof *region));
  if (!region) return 0;
  int at = size;
  for (int i = length - 1; i >= 0; --i) {
    unsigned short c = pattern[i];
    if (is_escaped(pattern, i)) {
      region[--at] = c;
      --i;
    } else if (c == '0' || c == '#') {
      if (left) region[--at] = digits[--left];
      else if (c == '0') region[--at] = '0';
      /* No digit is lost: the leftmost placeholder takes all that remain. */
      if (i == leftmost)
        while (left) region[--at] = digits[--left];
    } else {
      region[--at] = c;
    }
  }
  int position = 0;
  while (at < size) fmt_put(out, &position, region[at++]);
  out[position] = 0;
  free(region);
  return position;
}
