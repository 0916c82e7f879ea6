/*
 * xls_format_digits.cpp -- the number field of a section: integer digits
 * with grouping and padding, then the decimals; and the fractions that the
 * "?/?" fields show.
 */
#include <math.h>

#include "format/kel_locale.h"
#include "format/xls_format_internal.h"

unsigned short xls_thousand_separator(const xls_locale* locale) {
  if (!locale || !locale->thousand_separator) return ',';
  unsigned short decimal = fmt_decimal_separator(locale);
  if (locale->thousand_separator != decimal) return locale->thousand_separator;
  return decimal == ',' ? '.' : ',';
}

/* More digits than this never show: every further digit is 0. */
static const int kSignificantDigits = 16;

/* The next digit of a fraction part, which moves on. */
static int next_decimal(double* fraction, int* significant) {
  *fraction *= 10;
  double digit = floor(*fraction);
  *fraction -= digit;
  int d = digit < 0 ? 0 : digit > 9 ? 9 : static_cast<int>(digit);
  if (*significant >= kSignificantDigits) return 0;
  if (*significant || d) ++*significant;
  return d;
}

bool render_number(unsigned short* out, int* position, double value,
                   const format_section_t* section) {
  if (!isfinite(value)) {
    fmt_overflow(out, position);
    return false;
  }
  unsigned short group = xls_thousand_separator(section->locale);
  unsigned short point = fmt_decimal_separator(section->locale);
  /* Half a unit of the last digit shown; digits are then truncated.  A
   * fraction shows the value as it is. */
  if (!section->has_fraction)
    value += 5 * pow(10.0, -(section->optional_decimals + section->zero_decimals_again + 1));
  double whole;
  double fraction = modf(value, &whole);

  /* The integer digits, from the right, with separators.  Above 1e16 a
   * double has no more digits to give: they show as 0. */
  unsigned short digits[512];
  int length = 0, count = 0;
  auto push = [&](unsigned short digit) {
    if (section->thousands && count && count % 3 == 0) digits[length++] = group;
    digits[length++] = digit;
    ++count;
  };
  while (whole > 1e16) {
    whole /= 10;
    push('0');
  }
  while (whole >= 1) {
    double rest = floor(whole / 10);
    double digit = whole - rest * 10;
    push('0' + (digit < 0 ? 0 : digit > 9 ? 9 : static_cast<int>(digit)));
    whole = rest;
  }
  int significant = count;
  /* A value bumped by the rounding above has no "0" here: "#" shows
   * nothing for 0, "0" pads it below. */
  if (value == 0) push('0');

  int spaces = 0, zeros = 0;
  if (count < section->integer_zeros) {
    spaces = section->integer_width - section->integer_zeros;
    zeros = section->integer_zeros - count;
  }
  if (*position + spaces + zeros + length > XLS_FORMAT_MAX_LENGTH) {
    fmt_overflow(out, position);
    return false;
  }
  for (int i = 0; i < spaces; ++i) out[(*position)++] = ' ';
  for (int i = 0; i < zeros; ++i) out[(*position)++] = '0';
  while (length) out[(*position)++] = digits[--length];

  if (section->has_decimal_point ||
      (value > 0 && value < 1 && section->zero_decimals == 0 && section->optional_decimals > 0))
    fmt_put(out, position, point);
  for (int i = 0; i < section->zero_decimals; ++i)
    fmt_put(out, position, '0' + next_decimal(&fraction, &significant));

  /* Optional decimals drop the run of non-zero digits at their end; a zero
   * ends a run and takes the run's room, and its own, from the padding. */
  int pad = section->decimal_width - section->zero_decimals;
  int run = 0;
  for (int i = 0; i < section->optional_decimals; ++i) {
    int digit = next_decimal(&fraction, &significant);
    int before = *position;
    fmt_put(out, position, '0' + digit);
    if (digit) {
      run += *position - before;
    } else {
      pad -= 1 + run;
      run = 0;
    }
  }
  *position -= run;
  for (int i = 0; i < pad; ++i) fmt_put(out, position, ' ');
  return true;
}

void continued_fraction(double value, int32_t maximum, int32_t* numerator,
                        int32_t* denominator) {
  if (value < 0) {
    continued_fraction(-value, maximum, numerator, denominator);
    *numerator = -*numerator;
    return;
  }
  /* Convergents h/k from h(-1) = 1, h(-2) = 0, k(-1) = 0, k(-2) = 1. */
  double h1 = 1, h2 = 0, k1 = 0, k2 = 1;
  double r1 = value, r2 = 1.0;
  for (;;) {
    double a = trunc(r1 / r2);
    double h = a * h1 + h2;
    double k = a * k1 + k2;
    if (!(h <= 2147483647.0) || !(k <= 2147483647.0) || k > maximum) break;
    h2 = h1, h1 = h;
    k2 = k1, k1 = k;
    double r = r1 - a * r2;
    r1 = r2, r2 = r;
    if (!(r2 > 1e-10)) break;
  }
  *numerator = static_cast<int32_t>(h1);
  *denominator = static_cast<int32_t>(k1);
}
