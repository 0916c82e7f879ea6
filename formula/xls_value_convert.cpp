#include "formula/xls_value.h"

#include <locale.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "format/kel_locale.h"
#include "formula/xls_recalc_env.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_cell_cache.h"

/* ---- Numbers ------------------------------------------------------------ */

double xls_math_add_epsilon(double x) {
  /* Finite numbers pass unchanged: integer conversions, ROUND, TRUNC, FACT
   * and elapsed hours rely on never gaining a real epsilon. */
  if (isfinite(x) || x == 0) return x;
  bool negative = x < 0;
  int exponent;
  double mantissa = frexp(negative ? -x : x, &exponent);
  double result = ldexp(mantissa + ldexp(1.0, -52), exponent);
  return negative ? -result : result;
}

/* Towards zero, keeping the low 32 bits of what lies beyond the 32-bit range;
 * something that is no number gives 0. */
static int32_t double_to_long(double x) {
  double whole = x >= 0 ? floor(xls_math_add_epsilon(x))
                        : -floor(xls_math_add_epsilon(-x));
  if (!isfinite(whole)) return 0;
  double low = fmod(whole, 4294967296.0);
  if (low < 0) low += 4294967296.0;
  return static_cast<int32_t>(static_cast<uint32_t>(low));
}

bool xls_is_string_number(double* number, const unsigned short* text) {
  if (!text || !*text) return false;
  const unsigned short* end = nullptr;
  double parsed;
  if (ucs2_tog(text, &end, &parsed, false) || *end) return false;
  *number = parsed;
  return true;
}

void kel_xls_value_from_rk(uint32_t rk, xls_value_t* value) {
  if (rk & 0x02) {
    /* The word less its two low bits is the integer times 4; dividing
     * keeps the sign without relying on an arithmetic shift. */
    int32_t integer = static_cast<int32_t>(rk & ~3u) / 4;
    if (!(rk & 0x01)) xls_value_long(value, integer);
    else if (integer % 100 == 0) xls_value_long(value, integer / 100);
    else xls_value_double(value, integer / 100.0);
    return;
  }
  uint64_t bits = static_cast<uint64_t>(rk & ~3u) << 32;
  double number;
  memcpy(&number, &bits, sizeof number);
  xls_value_double(value, rk & 0x01 ? number / 100 : number);
}

/* ---- Plain conversions -------------------------------------------------- */

static const xls_basic_value_t kEmptyValue = {};

/* An array stands for its first element, an array without any for empty. */
static const xls_basic_value_t* first_element(const xls_basic_value_t* value) {
  if (value->kind != bvt_array) return value;
  const xls_basic_array_t& array = value->u.array;
  return array.rows && array.columns && array.elements ? array.elements : &kEmptyValue;
}

double xls_basic_value_todouble(const xls_basic_value_t* value) {
  switch (value->kind) {
    case bvt_long:
      return value->u.long_value;
    case bvt_double:
      return value->u.double_value;
    case bvt_bool:
      return value->u.boolean ? 1 : 0;
    case bvt_string: {
      double number;
      return xls_is_string_number(&number, value->u.string) ? number : 0;
    }
    case bvt_array:
      return xls_basic_value_todouble(first_element(value));
    default:
      return 0;
  }
}

double xls_value_todouble(const xls_value_t* value) {
  const xls_basic_value_t* basic = xls_value_basic_part(value);
  return basic ? xls_basic_value_todouble(basic) : 0;
}

int32_t xls_basic_value_tolong(const xls_basic_value_t* value) {
  double number = xls_basic_value_todouble(value);
  /* A numeric string is floored first, unlike a double: "-1.5" gives -2
   * where -1.5 gives -1; callers of both conversions see the same integer. */
  if (first_element(value)->kind == bvt_string) number = floor(number);
  return double_to_long(number);
}

int32_t xls_value_tolong(const xls_value_t* value) {
  const xls_basic_value_t* basic = xls_value_basic_part(value);
  return basic ? xls_basic_value_tolong(basic) : 0;
}

/* "%d" or "%.15g" of a number, its decimal point written as
 * decimal_separator, or as '.' for 0. */
static unsigned short* number_text(const xls_basic_value_t* value,
                                   unsigned short decimal_separator) {
  char buffer[40];
  if (value->kind == bvt_long)
    snprintf(buffer, sizeof buffer, "%d", static_cast<int>(value->u.long_value));
  else
    snprintf(buffer, sizeof buffer, "%.15g", value->u.double_value);
  /* printf writes the point of the process locale, which the engine sets
   * from the environment. */
  const char* locale_point = localeconv()->decimal_point;
  size_t point_size = locale_point ? strlen(locale_point) : 0;
  unsigned short* text =
      static_cast<unsigned short*>(malloc((strlen(buffer) + 1) * sizeof *text));
  if (!text) return nullptr;
  size_t length = 0;
  for (const char* p = buffer; *p;) {
    if (point_size && strncmp(p, locale_point, point_size) == 0) {
      text[length++] = decimal_separator ? decimal_separator : '.';
      p += point_size;
    } else {
      text[length++] = static_cast<unsigned char>(*p++);
    }
  }
  text[length] = 0;
  return text;
}

static unsigned short* bool_text(const xls_basic_value_t* value,
                                 const xls_locale* locale) {
  return ucs2_dup(xls_bool_str(value->u.boolean ? 0 : 1, locale));
}

unsigned short* xls_basic_value_tostring(const xls_basic_value_t* value,
                                         const xls_locale* locale) {
  switch (value->kind) {
    case bvt_long:
    case bvt_double: {
      unsigned short separator = 0;
      if (locale && locale->decimal_separator != '.')
        separator = locale->decimal_separator;
      return number_text(value, separator);
    }
    case bvt_string:
      return ucs2_dup(value->u.string ? value->u.string : xls_empty_str);
    case bvt_error:
      return ucs2_dup(xls_error_str(value->u.error, locale));
    case bvt_bool:
      return bool_text(value, locale);
    case bvt_array:
      return xls_basic_value_tostring(first_element(value), locale);
    default:
      return ucs2_dup(xls_empty_str);
  }
}

unsigned short* xls_value_tostring(const xls_value_t* value,
                                   const xls_locale* locale) {
  xls_basic_value_t basic;
  if (xls_basic_value(value, &basic)) return ucs2_dup(xls_empty_str);
  return xls_basic_value_tostring(&basic, locale);
}

/* ---- Checked conversions ------------------------------------------------ */

static uint32_t value_error(xls_value_t* result) {
  xls_value_error(result, xls_error_value);
  return KEL_ERR_VALUE;
}

/* The number of a basic value under flags.  *from_string tells whether it was
 * parsed from text, which the integer conversion floors. */
static uint32_t checked_number(const xls_basic_value_t* value, xls_value_t* result,
                               double* number, bool* from_string, uint16_t flags) {
  *from_string = false;
  switch (value->kind) {
    case bvt_empty:
      if (flags & xls_conv_empty_invalid) return value_error(result);
      *number = 0;
      return 0;
    case bvt_long:
      *number = value->u.long_value;
      return 0;
    case bvt_double:
      *number = value->u.double_value;
      return 0;
    case bvt_string:
      if (flags & xls_conv_string_zero) {
        *number = 0;
        return 0;
      }
      if (flags & xls_conv_string_invalid) return value_error(result);
      if (!xls_is_string_number(number, value->u.string)) return value_error(result);
      *from_string = true;
      return 0;
    case bvt_error:
      if (flags & xls_conv_error_propagate) {
        xls_value_error(result, value->u.error);
        return KEL_ERR_PROPAGATED;
      }
      *number = flags & xls_conv_error_zero
                    ? 0
                    : xls_get_error_type_by_error_code(value->u.error);
      return 0;
    case bvt_bool:
      if (flags & xls_conv_bool_invalid) return value_error(result);
      *number = value->u.boolean ? 1 : 0;
      return 0;
    case bvt_array:
      if (flags & xls_conv_array_invalid) return value_error(result);
      return checked_number(first_element(value), result, number, from_string, flags);
    default:
      return value_error(result);
  }
}

uint32_t xls_basic_value_todouble(const xls_basic_value_t* value,
                                  xls_value_t* result, double* number,
                                  uint16_t flags) {
  bool from_string;
  return checked_number(value, result, number, &from_string, flags);
}

uint32_t xls_basic_value_tolong(const xls_basic_value_t* value,
                                xls_value_t* result, int32_t* number,
                                uint16_t flags) {
  double x;
  bool from_string;
  uint32_t status = checked_number(value, result, &x, &from_string, flags);
  if (status) return status;
  /* Floored first on purpose: the string "-1.5" gives -2, the double -1. */
  *number = double_to_long(from_string ? floor(x) : x);
  return 0;
}

uint32_t xls_basic_value_tostring(const xls_basic_value_t* value,
                                  xls_value_t* result, unsigned short** text,
                                  uint16_t flags, const xls_locale* locale) {
  unsigned short* out;
  switch (value->kind) {
    case bvt_empty:
      if (flags & xls_conv_empty_invalid) return value_error(result);
      out = ucs2_dup(xls_empty_str);
      break;
    case bvt_long:
    case bvt_double:
      /* The point stays: this text feeds functions, not the screen. */
      out = flags & xls_conv_number_blank ? ucs2_dup(xls_empty_str)
                                          : number_text(value, 0);
      break;
    case bvt_string:
      out = ucs2_dup(value->u.string ? value->u.string : xls_empty_str);
      break;
    case bvt_error:
      if (flags & xls_conv_error_propagate) {
        xls_value_error(result, value->u.error);
        return KEL_ERR_PROPAGATED;
      }
      out = ucs2_dup(xls_error_str(value->u.error, locale));
      break;
    case bvt_bool:
      out = flags & xls_conv_bool_blank ? ucs2_dup(xls_empty_str)
                                        : bool_text(value, locale);
      break;
    case bvt_array:
      if (flags & xls_conv_array_invalid) return value_error(result);
      return xls_basic_value_tostring(first_element(value), result, text, flags,
                                      locale);
    default:
      return value_error(result);
  }
  if (!out) {
    xls_value_error(result, xls_error_out_of_memory);
    return KEL_ERR_OUT_OF_MEMORY;
  }
  *text = out;
  return 0;
}

/* The basic value that a checked conversion works on: a range gives the cell
 * at its implicit intersection, pinned in *pin, or empty where there is no
 * cell. */
static uint32_t checked_operand(const xls_value_t* value, xls_value_t* result,
                                const xls_recalc_env* env, uint16_t flags,
                                xls_cell_t** pin, xls_basic_value_t* basic) {
  *pin = nullptr;
  memset(basic, 0, sizeof *basic);
  if (value->kind != vt_range)
    return xls_basic_value(value, basic) ? value_error(result) : 0;
  if (flags & xls_conv_range_invalid) return value_error(result);
  uint32_t status = xls_get_value_in_range(result, pin, value->u.range, env);
  if (status) return status;
  if (*pin && xls_basic_value(&(*pin)->value, basic)) memset(basic, 0, sizeof *basic);
  return 0;
}

uint32_t xls_value_todouble(const xls_value_t* value, xls_value_t* result,
                            double* number, const xls_recalc_env* env,
                            uint16_t flags) {
  xls_cell_t* pin;
  xls_basic_value_t basic;
  uint32_t status = checked_operand(value, result, env, flags, &pin, &basic);
  if (!status) status = xls_basic_value_todouble(&basic, result, number, flags);
  auto_cell_release(&pin);
  return status;
}

uint32_t xls_value_tolong(const xls_value_t* value, xls_value_t* result,
                          int32_t* number, const xls_recalc_env* env,
                          uint16_t flags) {
  xls_cell_t* pin;
  xls_basic_value_t basic;
  uint32_t status = checked_operand(value, result, env, flags, &pin, &basic);
  if (!status) status = xls_basic_value_tolong(&basic, result, number, flags);
  auto_cell_release(&pin);
  return status;
}

uint32_t xls_value_tostring(const xls_value_t* value, xls_value_t* result,
                            unsigned short** text, const xls_recalc_env* env,
                            uint16_t flags) {
  xls_cell_t* pin;
  xls_basic_value_t basic;
  uint32_t status = checked_operand(value, result, env, flags, &pin, &basic);
  if (!status)
    status = xls_basic_value_tostring(&basic, result, text, flags,
                                      env ? env->locale : nullptr);
  auto_cell_release(&pin);
  return status;
}

/* ---- Truth -------------------------------------------------------------- */

bool xls_value_as_bool(const xls_value_t* value, bool* not_boolean) {
  *not_boolean = false;
  if (value->kind == vt_basic) {
    const xls_basic_value_t& basic = value->u.basic;
    switch (basic.kind) {
      case bvt_empty:
        return false;
      case bvt_long:
        return basic.u.long_value != 0;
      case bvt_double:
        return basic.u.double_value != 0;
      case bvt_string:
        /* Any text is true, "FALSE" included. */
        return basic.u.string && basic.u.string[0];
      case bvt_bool:
        return basic.u.boolean != 0;
      default:
        break;
    }
  }
  *not_boolean = true;
  return false;
}
