/*
 * The edit text of a cell.  Unlike the painted text, it must keep what the
 * value is, not how it looks: a date shows all its fields in a fixed form,
 * and a number as many digits as a double holds, with no format applied.
 */
#include "format/xls_formula_bar.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "format/kel_locale.h"
#include "format/xls_builtin_formats.h"
#include "format/xls_format_internal.h"
#include "format/xls_number_format.h"
#include "formula/xls_formula_text.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"

/* ---- Families of formats ---------------------------------------------------- */

static bool is_letter(unsigned short c, char lower) {
  return c == lower || c == lower - 'a' + 'A';
}

/* A bracket such as [h], [mm] or [ss]: elapsed time. */
static bool is_elapsed_bracket(const unsigned short* p, const unsigned short* close) {
  if (p == close) return false;
  for (const unsigned short* q = p; q < close; ++q) {
    if (!is_letter(*q, 'h') && !is_letter(*q, 'm') && !is_letter(*q, 's')) return false;
    if ((*q | 0x20) != (*p | 0x20)) return false;
  }
  return true;
}

int format_family(const unsigned short* format) {
  if (!format) return XLS_FAMILY_NONE;
  bool date = false, time = false;
  for (const unsigned short* p = format; *p; ++p) {
    unsigned short c = *p;
    if (c == '"') {
      while (p[1] && p[1] != '"') ++p;
      if (p[1]) ++p;
    } else if (c == '\\' || c == '_' || c == '*') {
      /* The next character is literal (or a width, or the fill). */
      if (p[1]) ++p;
    } else if (c == '[') {
      const unsigned short* close = p + 1;
      while (*close && *close != ']') ++close;
      if (is_elapsed_bracket(p + 1, close)) time = true;
      p = *close ? close : close - 1;
    } else if (c == '%') {
      return XLS_FAMILY_PERCENT;
    } else if (is_letter(c, 'd') || is_letter(c, 'y')) {
      date = true;
    } else if (is_letter(c, 'h') || is_letter(c, 's')) {
      time = true;
    } else if ((is_letter(c, 'a') || is_letter(c, 'p')) && is_letter(p[1], 'm')) {
      time = true;
      ++p;
    } else if (is_letter(c, 'm')) {
      /* Minutes after an hour or before seconds, a month otherwise. */
      while (is_letter(p[1], 'm')) ++p;
      if (time || (p[1] == ':' && is_letter(p[2], 's'))) time = true;
      else date = true;
    }
  }
  if (date && time) return XLS_FAMILY_DATE_TIME;
  if (date) return XLS_FAMILY_DATE;
  if (time) return XLS_FAMILY_TIME;
  return XLS_FAMILY_NONE;
}

/* ---- Numbers ------------------------------------------------------------ */

enum { k_number_text = 48 };

/* The shortest text of number that keeps the digits a double holds: fixed
 * point with as many decimals as the magnitude allows within a limit of
 * characters, and "%g" where fixed point would only show zeros or grow
 * too long.  Narrow, with "." as the point. */
static void shortest_number(double number, char* out) {
  double magnitude = fabs(number);
  if (number == 0 || magnitude < 1e-19 || magnitude >= 1e11) {
    fmt_printf(out, k_number_text, "%g", number);
    return;
  }
  int limit = magnitude >= 1 ? 16 : magnitude >= 0.1 ? 17 : magnitude >= 0.01 ? 18
            : magnitude >= 0.001 ? 19 : magnitude >= 0.0001 ? 20 : 21;
  /* A minus sign doesn't count against the limit. */
  size_t allowed = static_cast<size_t>(limit) + (number < 0 ? 1 : 0);
  int precision = limit;
  size_t length = 0;
  for (;;) {
    length = static_cast<size_t>(fmt_printf(out, k_number_text, "%.*f", precision, number));
    fmt_cut_trailing_zeros(out, out + length);
    length = strlen(out);
    if (length <= allowed || precision == 0) break;
    --precision;
  }
  /* A tiny number that needs the whole limit reads better in exponent
   * form; 1e-19 itself, the boundary, stays in fixed point. */
  if (length == allowed && magnitude < 1e-05 && magnitude != 1e-19)
    fmt_printf(out, k_number_text, "%g", number);
}

/* The number's text with the locale's decimal separator, and suffix (a
 * narrow text, possibly empty) behind it; heap. */
static unsigned short* number_text(double number, const xls_locale* locale,
                                   const char* suffix) {
  char narrow[k_number_text];
  shortest_number(number, narrow);
  size_t length = strlen(narrow), suffix_length = strlen(suffix);
  unsigned short* text =
      static_cast<unsigned short*>(malloc((length + suffix_length + 1) * sizeof *text));
  if (!text) return nullptr;
  unsigned short separator = fmt_decimal_separator(locale);
  for (size_t i = 0; i < length; ++i)
    text[i] = narrow[i] == '.' ? separator : static_cast<unsigned char>(narrow[i]);
  for (size_t i = 0; i <= suffix_length; ++i)
    text[length + i] = static_cast<unsigned char>(suffix[i]);
  return text;
}

/* A date, a time or both in the fixed edit form of the locale. */
static unsigned short* date_text(double number, int family, const xls_formula_bar_params* params) {
  uint32_t parts = family == XLS_FAMILY_DATE   ? XLS_EDIT_DATE
                   : family == XLS_FAMILY_TIME ? XLS_EDIT_TIME
                                               : XLS_EDIT_DATE | XLS_EDIT_TIME;
  unsigned short out[XLS_FORMAT_BUFFER_SIZE];
  DRGBValue colour = {};
  xls_print_formatted_number(number, (params->flags & XLS_FORMULA_BAR_1904) != 0,
                             params->locale, xls_edit_format(parts, params->locale), out,
                             &colour);
  return ucs2_dup(out);
}

/* ---- Entries -------------------------------------------------------------- */

static unsigned short* string_text(const unsigned short* string, bool apostrophe) {
  if (!string) string = xls_empty_str;
  if (!apostrophe) return ucs2_dup(string);
  unsigned length = ucs2_len(string);
  unsigned short* text = static_cast<unsigned short*>(malloc((length + 2) * sizeof *text));
  if (!text) return nullptr;
  text[0] = '\'';
  memcpy(text + 1, string, (length + 1) * sizeof *text);
  return text;
}

uint32_t kel_create_formula_bar_str_from_basic_value(xls_formula_bar_params* params) {
  params->result = nullptr;
  xls_basic_value_t basic;
  if (xls_basic_value(params->value, &basic)) return KEL_ERR_GENERAL;
  unsigned short* text = nullptr;
  switch (basic.kind) {
    case bvt_empty:
      return 0;
    case bvt_string:
      text = string_text(basic.u.string, (params->flags & XLS_FORMULA_BAR_APOSTROPHE) != 0);
      break;
    case bvt_error:
      text = ucs2_dup(xls_error_str(basic.u.error, params->locale));
      break;
    case bvt_bool:
      text = ucs2_dup(xls_bool_str(basic.u.boolean ? 0 : 1, params->locale));
      break;
    case bvt_long:
    case bvt_double: {
      double number = xls_basic_value_todouble(&basic);
      int family = format_family(params->format);
      /* A time of a day or more shows its date as well. */
      if (family == XLS_FAMILY_TIME && number >= 1) family = XLS_FAMILY_DATE_TIME;
      if (number >= 0 && family >= XLS_FAMILY_DATE && family <= XLS_FAMILY_DATE_TIME)
        text = date_text(number, family, params);
      else if (family == XLS_FAMILY_PERCENT)
        text = number_text(number * 100, params->locale, "%");
      else
        text = number_text(number, params->locale, "");
      break;
    }
    default:
      return KEL_ERR_GENERAL;
  }
  if (!text) return KEL_ERR_OUT_OF_MEMORY;
  params->result = text;
  return 0;
}

uint32_t xls_create_formula_bar_str(xls_formula_bar_params* params) {
  params->result = nullptr;
  const xls_value_t* value = params->value;
  if (value->kind == vt_range) return KEL_ERR_GENERAL;
  if (value->kind == vt_expr) {
    const xls_packed_expr_t* packed = &value->u.expr.packed;
    if (xls_is_parsed_expr(packed))
      return xls_expr_to_input_str(params->sheet, params->row, params->column, packed,
                                   &params->result, params->locale);
    if ((packed->flags & XLS_EXPR_UNPARSED) && !(packed->flags & XLS_EXPR_UNPARSED_SHARED) &&
        packed->text) {
      params->result = ucs2_dup(packed->text);
      return params->result ? 0 : KEL_ERR_OUT_OF_MEMORY;
    }
  }
  /* A shared formula still in text, or one kept only by its result. */
  return kel_create_formula_bar_str_from_basic_value(params);
}
