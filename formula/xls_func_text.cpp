/*
 * Worksheet functions: text.
 *
 * Arguments become text through the checked conversion that hands errors
 * on, so that an error argument is the result; positions and lengths count
 * UTF-16 units.  Every handler frees the texts it converted on every path.
 */
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "format/xls_edit_string.h"
#include "formula/xls_functions.h"
#include "formula/xls_recalc_env.h"
#include "foundation/zuv_uni_string.h"

/* Repetitions of REPT must stay below the longest text a cell holds. */
enum { kMaxReptLength = 32768 };

/* The text of arg into *text (the caller frees it); false with result set
 * (the error handed on, or 0x105 without memory). */
static bool text_argument(xls_value_t* result, xls_recalc_env* env, const xls_value_t* arg,
                          unsigned short** text) {
  *text = nullptr;
  return xls_value_tostring(arg, result, text, env, xls_conv_error_propagate) == 0;
}

/* The integer of arg; false with result set. */
static bool long_argument(xls_value_t* result, xls_recalc_env* env, const xls_value_t* arg,
                          int32_t* number) {
  return xls_value_tolong(arg, result, number, env, xls_conv_error_propagate) == 0;
}

/* The result takes over text; null text means memory ran out. */
static void set_text(xls_value_t* result, unsigned short* text) {
  if (text) xls_value_string(result, text);
  else xls_value_error(result, xls_error_out_of_memory);
}

void xls_expr_func_len(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  unsigned short* text;
  if (!text_argument(result, env, &args[0], &text)) return;
  xls_value_long(result, static_cast<int32_t>(ucs2_len(text)));
  free(text);
}

static void left_or_right(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                          int count, bool from_right) {
  unsigned short* text;
  int32_t wanted = 1;
  if (!text_argument(result, env, &args[0], &text)) return;
  if (count > 1 && !long_argument(result, env, &args[1], &wanted)) {
    free(text);
    return;
  }
  if (wanted < 0) {
    free(text);
    xls_value_error(result, xls_error_value);
    return;
  }
  uint32_t length = ucs2_len(text);
  if (static_cast<uint32_t>(wanted) >= length) {
    xls_value_string(result, text);
    return;
  }
  uint32_t start = from_right ? length - static_cast<uint32_t>(wanted) : 0;
  set_text(result, ucs2_dupl(text + start, static_cast<uint32_t>(wanted)));
  free(text);
}

void xls_expr_func_left(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                        int count) {
  left_or_right(result, env, args, count, false);
}

void xls_expr_func_right(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  left_or_right(result, env, args, count, true);
}

void xls_expr_func_mid(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  unsigned short* text;
  int32_t start, wanted;
  if (!text_argument(result, env, &args[0], &text)) return;
  if (!long_argument(result, env, &args[1], &start) ||
      !long_argument(result, env, &args[2], &wanted)) {
    free(text);
    return;
  }
  if (start < 1 || wanted < 0) {
    free(text);
    xls_value_error(result, xls_error_value);
    return;
  }
  uint32_t length = ucs2_len(text);
  uint32_t from = static_cast<uint32_t>(start) - 1;
  uint32_t taken = 0;
  if (from < length) {
    taken = length - from;
    if (static_cast<uint32_t>(wanted) < taken) taken = static_cast<uint32_t>(wanted);
  } else {
    from = length;
  }
  set_text(result, ucs2_dupl(text + from, taken));
  free(text);
}

void xls_expr_func_rept(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  unsigned short* text;
  int32_t times;
  if (!text_argument(result, env, &args[0], &text)) return;
  if (!long_argument(result, env, &args[1], &times)) {
    free(text);
    return;
  }
  uint32_t length = ucs2_len(text);
  uint64_t total = static_cast<uint64_t>(length) * static_cast<uint64_t>(times < 0 ? 0 : times);
  if (times < 0 || total >= kMaxReptLength) {
    free(text);
    xls_value_error(result, xls_error_value);
    return;
  }
  if (total == 0) {
    free(text);
    xls_value_string(result, nullptr);
    return;
  }
  unsigned short* out = static_cast<unsigned short*>(malloc((total + 1) * sizeof *out));
  if (out) {
    for (int32_t i = 0; i < times; ++i) memcpy(out + i * length, text, length * sizeof *out);
    out[total] = 0;
  }
  set_text(result, out);
  free(text);
}

void xls_expr_func_find(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                        int count) {
  unsigned short *wanted, *text;
  int32_t start = 1;
  if (!text_argument(result, env, &args[0], &wanted)) return;
  if (!text_argument(result, env, &args[1], &text)) {
    free(wanted);
    return;
  }
  if (count > 2 && !long_argument(result, env, &args[2], &start)) {
    free(wanted);
    free(text);
    return;
  }
  uint32_t wanted_length = ucs2_len(wanted), length = ucs2_len(text);
  /* An empty search text is found where the search starts, even outside
   * the text. */
  int32_t found = wanted_length ? 0 : start;
  if (wanted_length && start >= 1 && static_cast<uint32_t>(start) <= length) {
    for (uint32_t i = static_cast<uint32_t>(start) - 1; i + wanted_length <= length; ++i) {
      if (ucs2_ncmp(text + i, wanted, wanted_length) == 0) {
        found = static_cast<int32_t>(i) + 1;
        break;
      }
    }
  }
  free(wanted);
  free(text);
  if (found || !wanted_length) xls_value_long(result, found);
  else xls_value_error(result, xls_error_value);
}

void xls_expr_func_exact(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  unsigned short *first, *second;
  if (!text_argument(result, env, &args[0], &first)) return;
  if (!text_argument(result, env, &args[1], &second)) {
    free(first);
    return;
  }
  xls_value_bool(result, ucs2_cmp(first, second) == 0);
  free(first);
  free(second);
}

static void change_case(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                        unsigned short (*convert)(unsigned short)) {
  unsigned short* text;
  if (!text_argument(result, env, &args[0], &text)) return;
  for (unsigned short* p = text; *p; ++p) *p = convert(*p);
  xls_value_string(result, text);
}

void xls_expr_func_lower(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  change_case(result, env, args, ucs2_tolower);
}

void xls_expr_func_upper(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  change_case(result, env, args, ucs2_toupper);
}

void xls_expr_func_proper(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  unsigned short* text;
  if (!text_argument(result, env, &args[0], &text)) return;
  /* Only ASCII letters are letters here: an accented letter starts a new
   * word as a digit or a blank does. */
  bool in_word = false;
  for (unsigned short* p = text; *p; ++p) {
    bool upper = *p >= 'A' && *p <= 'Z', lower = *p >= 'a' && *p <= 'z';
    if (upper && in_word) *p = static_cast<unsigned short>(*p + ('a' - 'A'));
    else if (lower && !in_word) *p = static_cast<unsigned short>(*p - ('a' - 'A'));
    in_word = upper || lower;
  }
  xls_value_string(result, text);
}

void xls_expr_func_trim(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  unsigned short* text;
  if (!text_argument(result, env, &args[0], &text)) return;
  /* Only the blank counts: tabs and other spaces stay. */
  unsigned short* out = text;
  bool blank_pending = false;
  for (const unsigned short* p = text; *p; ++p) {
    if (*p == ' ') {
      blank_pending = out != text;
      continue;
    }
    if (blank_pending) *out++ = ' ';
    blank_pending = false;
    *out++ = *p;
  }
  *out = 0;
  xls_value_string(result, text);
}

void xls_expr_func_replace(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  unsigned short *text, *insert = nullptr;
  int32_t start, removed;
  if (!text_argument(result, env, &args[0], &text)) return;
  if (!long_argument(result, env, &args[1], &start) ||
      !long_argument(result, env, &args[2], &removed) ||
      !text_argument(result, env, &args[3], &insert)) {
    free(text);
    free(insert);
    return;
  }
  if (start < 1 || removed < 0) {
    free(text);
    free(insert);
    xls_value_error(result, xls_error_value);
    return;
  }
  uint32_t length = ucs2_len(text), insert_length = ucs2_len(insert);
  /* A start beyond the end appends. */
  uint32_t head = static_cast<uint32_t>(start) - 1 < length ? static_cast<uint32_t>(start) - 1
                                                            : length;
  uint32_t tail = length - head <= static_cast<uint32_t>(removed)
                      ? length
                      : head + static_cast<uint32_t>(removed);
  size_t total = static_cast<size_t>(head) + insert_length + (length - tail);
  unsigned short* out = static_cast<unsigned short*>(malloc((total + 1) * sizeof *out));
  if (out) {
    memcpy(out, text, head * sizeof *out);
    memcpy(out + head, insert, insert_length * sizeof *out);
    memcpy(out + head + insert_length, text + tail, (length - tail) * sizeof *out);
    out[total] = 0;
  }
  set_text(result, out);
  free(text);
  free(insert);
}

/* Replaces in text the occurrences of old (not overlapping, from the left):
 * all of them for nth 0, else only the nth.  A new heap text, or null
 * without memory. */
static unsigned short* substitute(const unsigned short* text, const unsigned short* old,
                                  const unsigned short* replacement, int32_t nth) {
  uint32_t length = ucs2_len(text), old_length = ucs2_len(old);
  uint32_t replacement_length = ucs2_len(replacement);
  uint32_t matches = 0, nth_at = 0;
  for (uint32_t i = 0; old_length && i + old_length <= length;) {
    if (ucs2_ncmp(text + i, old, old_length) != 0) {
      ++i;
      continue;
    }
    if (++matches == static_cast<uint32_t>(nth)) nth_at = i;
    i += old_length;
  }
  if (nth) matches = matches >= static_cast<uint32_t>(nth) ? 1 : 0;
  uint64_t total = length + static_cast<uint64_t>(matches) * replacement_length -
                   static_cast<uint64_t>(matches) * old_length;
  if (total >= 0x7FFFFFFFu) return nullptr;
  unsigned short* out = static_cast<unsigned short*>(malloc((total + 1) * sizeof *out));
  if (!out) return nullptr;
  unsigned short* end = out;
  for (uint32_t i = 0; i < length;) {
    bool replace = matches && i + old_length <= length &&
                   (nth ? i == nth_at : ucs2_ncmp(text + i, old, old_length) == 0);
    if (replace) {
      memcpy(end, replacement, replacement_length * sizeof *out);
      end += replacement_length;
      i += old_length;
      if (nth) matches = 0;
    } else {
      *end++ = text[i++];
    }
  }
  *end = 0;
  return out;
}

void xls_expr_func_substitute(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                              int count) {
  unsigned short *text, *old = nullptr, *replacement = nullptr;
  int32_t nth = 0;
  if (!text_argument(result, env, &args[0], &text)) return;
  bool converted = text_argument(result, env, &args[1], &old) &&
                   text_argument(result, env, &args[2], &replacement) &&
                   (count < 4 || long_argument(result, env, &args[3], &nth));
  if (converted && count > 3 && nth < 1) {
    xls_value_error(result, xls_error_value);
    converted = false;
  }
  if (converted) set_text(result, substitute(text, old, replacement, nth));
  free(text);
  free(old);
  free(replacement);
}

void xls_expr_func_concatenate(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                               int count) {
  unsigned short* joined = nullptr;
  size_t length = 0;
  for (int i = 0; i < count; ++i) {
    unsigned short* piece;
    if (!text_argument(result, env, &args[i], &piece)) {
      free(joined);
      return;
    }
    size_t piece_length = ucs2_len(piece);
    unsigned short* grown =
        static_cast<unsigned short*>(realloc(joined, (length + piece_length + 1) * sizeof *grown));
    if (!grown) {
      free(piece);
      free(joined);
      xls_value_error(result, xls_error_out_of_memory);
      return;
    }
    joined = grown;
    memcpy(joined + length, piece, piece_length * sizeof *joined);
    length += piece_length;
    joined[length] = 0;
    free(piece);
  }
  set_text(result, joined ? joined : ucs2_dup(xls_empty_str));
}

/* result becomes the number typed text stands for, as the cell editor reads
 * it: "12%", "1,234" and dates are numbers too; other text is #VALUE!. */
static void set_typed_number(xls_value_t* result, xls_recalc_env* env,
                             const unsigned short* text) {
  /* A formula is no number, and is not evaluated here. */
  if (text[0] == '=') {
    xls_value_error(result, xls_error_value);
    return;
  }
  xls_autoformat_result typed = {};
  uint32_t status = xls_autoformat_edit_string(env->sheet, env->row, env->column, nullptr, text,
                                               ucs2_len(text), env->locale, &typed, nullptr);
  free(typed.format);
  const xls_basic_value_t& value = typed.value.u.basic;
  if (!status && typed.value.kind == vt_basic &&
      (value.kind == bvt_long || value.kind == bvt_double)) {
    *result = typed.value;
    return;
  }
  xls_free_value(&typed.value);
  xls_value_error(result, status == KEL_ERR_OUT_OF_MEMORY ? xls_error_out_of_memory
                                                           : xls_error_value);
}

void xls_expr_func_value(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  /* Whatever format the text implied, the result is a plain number. */
  env->result_format = nullptr;
  xls_cell_t* pin = nullptr;
  xls_basic_value_t operand = {};
  if (args[0].kind == vt_range) {
    if (xls_get_value_in_range(result, &pin, args[0].u.range, env)) return;
    if (pin) xls_basic_value(&pin->value, &operand);
  } else {
    xls_basic_value(&args[0], &operand);
  }
  const xls_basic_value_t* first = &operand;
  if (operand.kind == bvt_array && operand.u.array.rows && operand.u.array.columns)
    first = operand.u.array.elements;
  if (first->kind == bvt_string) {
    set_typed_number(result, env, first->u.string ? first->u.string : xls_empty_str);
  } else {
    double number;
    if (!xls_basic_value_todouble(&operand, result, &number,
                                  xls_conv_error_propagate | xls_conv_bool_invalid))
      xls_value_double(result, number);
  }
  auto_cell_release(&pin);
}
