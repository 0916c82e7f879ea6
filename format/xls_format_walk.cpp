/*
 * xls_format_walk.cpp -- format_number: the walk over the chosen section,
 * character by character, with its fractions and scientific form.
 */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "foundation/zuv_uni_string.h"
#include "format/xls_format_internal.h"

bool fmt_render_pending(fmt_walk_t* walk) {
  if (!walk->pending) return true;
  walk->pending = false;
  if (walk->section->rendered) return true;
  walk->section->rendered = 1;
  return render_number(walk->out, &walk->position, walk->number, walk->section);
}

/* Literal text splits the number from what follows: a pending number is
 * written before it. */
static bool put_literal(fmt_walk_t* walk, unsigned short c) {
  if (!fmt_render_pending(walk)) return false;
  fmt_put(walk->out, &walk->position, c);
  return true;
}

static int decimal_digits(int64_t n) {
  int digits = 1;
  while (n >= 10) n /= 10, ++digits;
  return digits;
}

/* A double to a 64-bit integer, saturating. */
static int64_t to_int64(double x) {
  if (!(x == x)) return 0;
  if (x >= 9.2e18) return INT64_MAX;
  if (x <= -9.2e18) return INT64_MIN;
  return static_cast<int64_t>(x);
}

enum walk_step { kStepGoOn, kStepLiteral, kStepEnd };

/* At a "/" that is a fraction: the field "numerator/denominator", after
 * which the walk ends.  kStepLiteral when the "/" turns out to be none. */
static walk_step fraction(fmt_walk_t* walk) {
  format_section_t* section = walk->section;
  if (!isfinite(walk->number)) {
    fmt_overflow(walk->out, &walk->position);
    return kStepEnd;
  }
  const unsigned short* q = walk->p + 1;
  double whole = trunc(walk->number);
  double part = walk->number - whole;
  int32_t numerator, denominator;
  int n = 0;
  if (*q == '?') {
    while (q[n] == '?') ++n;
    if (n > 9) n = 9;
    int32_t maximum = 1;
    for (int i = 0; i < n; ++i) maximum *= 10;
    /* 10^n itself is allowed, though it has a digit too many to show. */
    continued_fraction(part, maximum, &numerator, &denominator);
  } else {
    int64_t parsed = 0;
    while (q[n] >= '0' && q[n] <= '9' && parsed <= INT32_MAX) parsed = parsed * 10 + (q[n++] - '0');
    if (!n || parsed <= 0 || parsed > INT32_MAX) return kStepLiteral;
    denominator = static_cast<int32_t>(parsed);
    numerator = static_cast<int32_t>(trunc(part * denominator + 0.5));
  }
  if (denominator <= 0) return kStepLiteral;
  int64_t top = numerator;
  if (!section->rendered) {
    /* No integer field before: the fraction is improper. */
    top = to_int64(static_cast<double>(numerator) + whole * denominator);
    section->rendered = 1;
  }
  walk->pending = false;
  char field[16];
  if (top <= 0 || decimal_digits(denominator) > n)
    fmt_printf(field, 11, "%-*s", section->integer_width + 1 + n, "");
  else
    fmt_printf(field, 11, "%*lld/%-*d", section->integer_width, static_cast<long long>(top), n,
               static_cast<int>(denominator));
  fmt_put_ascii(walk->out, &walk->position, field);
  return kStepEnd;
}

/* At "E" or "e": the value in scientific form with as many mantissa digits
 * as decimals were counted; what follows the exponent is dropped. */
static void scientific(fmt_walk_t* walk) {
  const format_section_t* section = walk->section;
  if (!isfinite(walk->number)) {
    fmt_overflow(walk->out, &walk->position);
    return;
  }
  unsigned short letter = *walk->p;
  int digits = section->optional_decimals + section->zero_decimals;
  /* printf's text (at most 40 characters), a point, and the zeros beyond
   * printf's precision, which need not pass the end of the output. */
  char text[48 + XLS_FORMAT_MAX_LENGTH];
  int length = fmt_printf(text, 40, letter == 'e' ? "%.*e" : "%.*E", digits > 14 ? 14 : digits,
                          walk->number);
  char* exponent = strchr(text, letter == 'e' ? 'e' : 'E');
  if (exponent && digits == 0 && text[1] != '.') {
    /* A point after the first digit even without decimals: "1.E+00".  The
     * number is never negative here: its sign was written before. */
    memmove(text + 2, text + 1, length);
    text[1] = '.';
    ++exponent;
  }
  if (exponent && digits > 14) {
    int zeros = digits - 14 < XLS_FORMAT_MAX_LENGTH ? digits - 14 : XLS_FORMAT_MAX_LENGTH;
    memmove(exponent + zeros, exponent, strlen(exponent) + 1);
    memset(exponent, '0', zeros);
    exponent += zeros;
  }
  if (exponent) {
    /* The exponent loses one of its first pair of zeros: "E+00" is "E+0",
     * "E+100" is "E+10". */
    char* pair = strstr(exponent + 1, "00");
    if (pair) memmove(pair, pair + 1, strlen(pair));
  }
  unsigned short point = fmt_decimal_separator(section->locale);
  for (const char* c = text; *c; ++c)
    fmt_put(walk->out, &walk->position, *c == '.' ? point : static_cast<unsigned char>(*c));
}

/* One character (or a unit that starts with it) of the section. */
static walk_step step(fmt_walk_t* walk) {
  format_section_t* section = walk->section;
  const unsigned short* p = walk->p;
  unsigned short c = *p;
  switch (c) {
    case '0':
      if (section->has_decimal_point) {
        ++section->zero_decimals;
        ++section->zero_decimals_again;
        ++section->decimal_width;
      } else {
        ++section->integer_width;
        ++section->integer_zeros;
      }
      walk->pending = true;
      break;
    case '#':
      if (section->has_decimal_point) ++section->optional_decimals;
      else walk->pending = true;
      break;
    case '?':
      if (section->has_decimal_point) ++section->decimal_width;
      else ++section->integer_width;
      walk->pending = true;
      break;
    case '.':
      section->has_decimal_point = 1;
      walk->pending = true;
      break;
    case ',':
      if (!walk->pending) return kStepLiteral;
      /* Grouping, never scaling. */
      section->thousands = 1;
      while (p[1] == ',') ++p;
      break;
    case '%':
      if (!section->rendered) {
        if (walk->number >= 1e250) {
          fmt_overflow(walk->out, &walk->position);
          return kStepEnd;
        }
        walk->number *= 100;
        walk->pending = true;
      }
      return kStepLiteral;
    case '/':
      if (walk->pending && section->integer_width > section->integer_zeros) {
        walk_step result = fraction(walk);
        if (result != kStepLiteral) return result;
      }
      return kStepLiteral;
    case 'E':
    case 'e':
      scientific(walk);
      return kStepEnd;
    case '\\':
      if (!p[1]) break;
      ++p;
      if (!put_literal(walk, *p)) return kStepEnd;
      break;
    case '"':
      if (!fmt_render_pending(walk)) return kStepEnd;
      for (++p; *p && *p != '"'; ++p) fmt_put(walk->out, &walk->position, *p);
      if (!*p) --p;
      break;
    case '_':
      if (!put_literal(walk, ' ')) return kStepEnd;
      if (p[1]) ++p;
      break;
    case '*':
      /* No fill: the character to repeat is skipped. */
      if (p[1]) ++p;
      break;
    case '[':
      if (p[1] == '$') {
        /* A currency: its symbol up to "-" or "]" shows, the locale code
         * behind it doesn't. */
        if (!fmt_render_pending(walk)) return kStepEnd;
        for (p += 2; *p && *p != '-' && *p != ']'; ++p) fmt_put(walk->out, &walk->position, *p);
        while (*p && *p != ']') ++p;
        if (!*p) --p;
      } else if (walk->elapsed_printed) {
        walk->elapsed_mode = true;
      }
      break;
    case ' ': case '$': case '(': case ')': case '+': case '-': case ':':
    case 0x00A3: case 0x00A5: case 0x20AC:  /* pound, yen, euro */
      return kStepLiteral;
    case 'G': {
      static const char kEneral[] = "eneral";
      int matched = 0;
      while (matched < 6 && p[1 + matched] == kEneral[matched]) ++matched;
      if (matched < 6) break;
      unsigned short general[XLS_FORMAT_BUFFER_SIZE];
      format_general_inline(walk->number, section->locale, general);
      for (unsigned short* g = general; *g; ++g) fmt_put(walk->out, &walk->position, *g);
      /* The General word is the number: a later literal writes no other. */
      section->rendered = 1;
      walk->pending = true;
      p += 6;
      break;
    }
    case 'd': case 'D': case 'm': case 'M': case 'h': case 'H': case 's': case 'S':
    case 'y': case 'Y': case 'a': case 'A': case 'p': case 'P':
      return fmt_date_field(walk) ? kStepGoOn : kStepEnd;
    default:
      /* Digits 1 to 9, "!", "&", "'", "<", "=", ">", "@" and letters
       * without a role show nothing. */
      break;
  }
  walk->p = p + 1;
  return kStepGoOn;
}

int format_number(double value, format_info_t* info, int* section_index, unsigned short* out,
                  bool date1904) {
  static const unsigned short kAt[] = {'@', 0};
  *section_index = 0;
  out[0] = 0;
  fmt_walk_t walk = {};
  walk.section = &info->section[0];
  walk.out = out;
  if (!walk.section->text) {
    char text[40];
    fmt_printf(text, sizeof text, "%g", value);
    fmt_put_ascii(out, &walk.position, text);
    out[walk.position] = 0;
    return walk.position;
  }
  walk.number = value;
  walk.value = value;
  walk.date1904 = date1904;
  if (value < 0) {
    walk.number = -value;
    if (info->section[1].text && ucs2_cmp(info->section[1].text, kAt) != 0) {
      *section_index = 1;
      walk.section = &info->section[1];
    } else if (!info->section[0].is_date) {
      fmt_put(out, &walk.position, '-');
    }
  }
  walk.elapsed_mode = walk.section->has_elapsed;
  walk.p = walk.section->text;
  walk_step result = kStepGoOn;
  while (*walk.p && result != kStepEnd) {
    result = step(&walk);
    if (result == kStepLiteral) {
      if (!put_literal(&walk, *walk.p)) result = kStepEnd;
      ++walk.p;
    }
  }
  if (result != kStepEnd) fmt_render_pending(&walk);
  out[walk.position] = 0;
  return walk.position;
}
