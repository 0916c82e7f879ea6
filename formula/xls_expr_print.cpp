/*
 * Formula text from trees.  Parentheses are not kept in trees; they come
 * back from the operators' precedence, by the same table the BIFF writer
 * uses, so that the text parses to the tree it came from.  References are
 * printed where they point from the formula's cell; constants as the
 * formula bar shows values.
 */
#include <stdlib.h>
#include <string.h>

#include "format/kel_locale.h"
#include "format/xls_formula_bar.h"
#include "formula/xls_formula_codec.h"
#include "formula/xls_formula_text.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_sheet.h"

static const unsigned short k_ref_prefix[] = {'#', 'R', 'E', 'F', '!', 0};

static uint32_t append_ascii(ucs2_str_builder* builder, const char* text) {
  unsigned short wide[8];
  uint32_t status = 0;
  while (*text && !status) {
    unsigned count = 0;
    while (count < 7 && text[count]) {
      wide[count] = static_cast<unsigned char>(text[count]);
      ++count;
    }
    wide[count] = 0;
    text += count;
    status = ucs2_str_builder_append(builder, wide);
  }
  return status;
}

/* ---- Columns and cells --------------------------------------------------- */

/* The letters of column into out (room for 8), terminated; their count.
 * Bijective base 26: Z is followed by AA, ZZ by AAA. */
static unsigned column_letters(unsigned short* out, uint32_t column) {
  unsigned short reversed[8];
  unsigned count = 0;
  uint64_t rest = static_cast<uint64_t>(column) + 1;
  while (rest) {
    --rest;
    reversed[count++] = static_cast<unsigned short>('A' + rest % 26);
    rest /= 26;
  }
  for (unsigned i = 0; i < count; ++i) out[i] = reversed[count - 1 - i];
  out[count] = 0;
  return count;
}

uint32_t xls_expr_render_colname(ucs2_str_builder* builder, uint32_t column) {
  unsigned short letters[8];
  column_letters(letters, column);
  return ucs2_str_builder_append(builder, letters);
}

/* "$" for an absolute part, the column, "$", the row plus one; either part
 * may be left out (negative), for whole rows and whole columns. */
static unsigned cell_text(unsigned short* out, int32_t row, bool row_relative, int32_t column,
                          bool column_relative) {
  unsigned length = 0;
  if (column >= 0) {
    if (!column_relative) out[length++] = '$';
    length += column_letters(out + length, static_cast<uint32_t>(column));
  }
  if (row >= 0) {
    if (!row_relative) out[length++] = '$';
    length += uni_printf_uint32(out + length, static_cast<uint32_t>(row) + 1);
  }
  out[length] = 0;
  return length;
}

/* ---- Sheet names -----------------------------------------------------------
 * A sheet name is written plain (Data!A1) when it reads back as nothing but
 * a name: ASCII letters, digits, "_" and ".", not beginning with a digit or
 * ".", and not itself a cell reference (letters and digits within A1 to
 * IV65536, "AB12") or a truth value.  Any other name -- an empty one too --
 * is quoted with "'" ('My sheet'!A1).  A span of sheets is quoted as one
 * ('First:Last'!A1) when either name needs it. */

static bool is_ascii_letter(unsigned short c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
static bool is_digit(unsigned short c) { return c >= '0' && c <= '9'; }

static bool reads_as_cell(const unsigned short* name) {
  uint32_t column = 0, row = 0;
  const unsigned short* p = name;
  for (; is_ascii_letter(*p); ++p) {
    column = column * 26 + ((*p | 0x20) - 'a' + 1);
    if (column > XLS_MAX_COLUMNS) return false;
  }
  if (p == name || !*p) return false;
  for (; is_digit(*p); ++p) {
    row = row * 10 + (*p - '0');
    if (row > XLS_MAX_ROWS) return false;
  }
  return !*p && row > 0;
}

static bool sheet_name_needs_quotes(const unsigned short* name, const xls_locale* locale) {
  if (!*name || is_digit(name[0]) || name[0] == '.') return true;
  for (const unsigned short* p = name; *p; ++p) {
    if (!is_ascii_letter(*p) && !is_digit(*p) && *p != '_' && *p != '.') return true;
  }
  for (int word = 0; word < 2; ++word) {
    if (ucs2_cmpi(name, xls_bool_str(word, nullptr)) == 0 ||
        ucs2_cmpi(name, xls_bool_str(word, locale)) == 0)
      return true;
  }
  return reads_as_cell(name);
}

static const unsigned short* name_of(const xls_sheet_t* sheet) {
  const unsigned short* name = xls_sheet_name(sheet);
  return name ? name : xls_empty_str;
}

/* The sheet part of a reference and its "!"; nothing for the formula's own
 * sheet (null), "#REF!" for a deleted one.  last may be null or first. */
static uint32_t append_sheets(ucs2_str_builder* builder, const xls_sheet_t* first,
                              const xls_sheet_t* last, const xls_locale* locale) {
  if (!first) return 0;
  if (first == XLS_DELETED_SHEET || last == XLS_DELETED_SHEET)
    return ucs2_str_builder_append(builder, k_ref_prefix);
  const unsigned short* first_name = name_of(first);
  uint32_t status = 0;
  if (!last || last == first) {
    status = sheet_name_needs_quotes(first_name, locale)
                 ? ucs2_str_builder_append_escaped(builder, first_name, '\'')
                 : ucs2_str_builder_append(builder, first_name);
  } else {
    const unsigned short* last_name = name_of(last);
    unsigned first_length = ucs2_len(first_name), last_length = ucs2_len(last_name);
    unsigned short* span = static_cast<unsigned short*>(
        malloc((static_cast<size_t>(first_length) + last_length + 2) * sizeof *span));
    if (!span) return KEL_ERR_OUT_OF_MEMORY;
    memcpy(span, first_name, first_length * sizeof *span);
    span[first_length] = ':';
    memcpy(span + first_length + 1, last_name, (last_length + 1) * sizeof *span);
    status = sheet_name_needs_quotes(first_name, locale) ||
                     sheet_name_needs_quotes(last_name, locale)
                 ? ucs2_str_builder_append_escaped(builder, span, '\'')
                 : ucs2_str_builder_append(builder, span);
    free(span);
  }
  if (!status) status = append_ascii(builder, "!");
  return status;
}

/* ---- References ------------------------------------------------------------ */

static uint32_t append_cellref(ucs2_str_builder* builder, int32_t row, int32_t column,
                               const xls_cell_ref_t* ref, const xls_locale* locale) {
  uint32_t status = append_sheets(builder, ref->sheet, nullptr, locale);
  if (status) return status;
  cell_t base = {row, column}, at;
  expr_abs_pos(&at, ref, &base);
  unsigned short text[24];
  cell_text(text, at.row, ref->row_relative != 0, at.col, ref->column_relative != 0);
  return ucs2_str_builder_append(builder, text);
}

/* One coordinate of a corner after ordering, with the "$" it was written
 * with. */
struct coordinate {
  int32_t value;
  bool relative;
};

static void order(int32_t a, bool a_relative, int32_t b, bool b_relative, coordinate* low,
                  coordinate* high) {
  bool swap = b < a;
  *low = swap ? coordinate{b, b_relative} : coordinate{a, a_relative};
  *high = swap ? coordinate{a, a_relative} : coordinate{b, b_relative};
}

/* An ordered rectangle into out (room for 40): over all columns as whole
 * rows ("1:3"), else over all rows as whole columns ("A:C"), with equal
 * corners as one cell -- equal in their "$" too, as B$9:B9 moves unlike
 * B$9 when copied. */
static void range_text(unsigned short* out, coordinate top, coordinate bottom, coordinate left,
                       coordinate right) {
  bool whole_rows = left.value == 0 && right.value == XLS_MAX_COLUMNS - 1;
  bool whole_columns = !whole_rows && top.value == 0 && bottom.value == XLS_MAX_ROWS - 1;
  if (whole_rows) left.value = right.value = -1;
  if (whole_columns) top.value = bottom.value = -1;
  unsigned length = cell_text(out, top.value, top.relative, left.value, left.relative);
  bool one_cell = top.value == bottom.value && top.relative == bottom.relative &&
                  left.value == right.value && left.relative == right.relative;
  if (whole_rows || whole_columns || !one_cell) {
    out[length++] = ':';
    cell_text(out + length, bottom.value, bottom.relative, right.value, right.relative);
  }
}

static uint32_t append_range(ucs2_str_builder* builder, int32_t row, int32_t column,
                             const xls_range_ref_t* range, const xls_locale* locale) {
  uint32_t status = append_sheets(builder, range->first.sheet, range->second.sheet, locale);
  if (status) return status;
  cell_t base = {row, column}, a, b;
  expr_abs_pos(&a, &range->first, &base);
  expr_abs_pos(&b, &range->second, &base);
  coordinate top, bottom, left, right;
  order(a.row, range->first.row_relative, b.row, range->second.row_relative, &top, &bottom);
  order(a.col, range->first.column_relative, b.col, range->second.column_relative, &left,
        &right);
  unsigned short text[40];
  range_text(text, top, bottom, left, right);
  return ucs2_str_builder_append(builder, text);
}

/* ---- Constants ------------------------------------------------------------- */

/* A basic value as the formula bar shows it; a string in double quotes. */
static uint32_t append_basic(ucs2_str_builder* builder, const xls_basic_value_t* basic,
                             const xls_locale* locale) {
  if (basic->kind == bvt_string)
    return ucs2_str_builder_append_escaped(builder, basic->u.string ? basic->u.string
                                                                    : xls_empty_str, '"');
  xls_value_t value = {};
  value.kind = vt_basic;
  value.u.basic = *basic;
  xls_formula_bar_params params = {};
  params.value = &value;
  params.locale = locale;
  uint32_t status = kel_create_formula_bar_str_from_basic_value(&params);
  if (status || !params.result) return status;
  status = ucs2_str_builder_append(builder, params.result);
  free(params.result);
  return status;
}

/* {1,2;"a",TRUE}: the separators are fixed, whatever the locale. */
static uint32_t append_array(ucs2_str_builder* builder, const xls_basic_array_t* array,
                             const xls_locale* locale) {
  uint32_t status = append_ascii(builder, "{");
  for (uint32_t r = 0; r < array->rows && !status; ++r) {
    if (r) status = append_ascii(builder, ";");
    for (uint32_t c = 0; c < array->columns && !status; ++c) {
      if (c) status = append_ascii(builder, ",");
      if (!status)
        status = append_basic(builder, &array->elements[r * array->columns + c], locale);
    }
  }
  if (!status) status = append_ascii(builder, "}");
  return status;
}

static uint32_t append_constant(ucs2_str_builder* builder, int32_t row, int32_t column,
                                const xls_value_t* value, const xls_locale* locale) {
  if (value->kind == vt_range) return append_range(builder, row, column, value->u.range, locale);
  if (value->kind != vt_basic) return KEL_ERR_GENERAL;
  if (value->u.basic.kind == bvt_array)
    return append_array(builder, &value->u.basic.u.array, locale);
  return append_basic(builder, &value->u.basic, locale);
}

/* ---- Nodes ------------------------------------------------------------------ */

static uint32_t append_function(ucs2_str_builder* builder, xls_sheet_t* sheet, int32_t row,
                                int32_t column, const xls_packed_expr_t* packed,
                                const xls_expr_t* node, const xls_locale* locale) {
  uint32_t number = node->u.func.number;
  const unsigned short* name = nullptr;
  if (locale && number < XLS_LOCALE_FUNCTION_COUNT) name = locale->function_names[number];
  if (!name) name = expr_func_name(node);
  /* A number beyond the table names nothing: it prints as an unknown name. */
  if (!name) name = xls_error_str(xls_error_name, locale);
  const char* separator = !locale || locale->decimal_separator == '.' ? "," : ";";
  uint32_t status = ucs2_str_builder_append(builder, name);
  if (!status) status = append_ascii(builder, "(");
  uint32_t count = expr_func_param_count(node);
  for (uint32_t i = 0; i < count && !status; ++i) {
    if (i) status = append_ascii(builder, separator);
    const xls_expr_t* param = expr_func_param(packed, node, i);
    if (!status)
      status = param ? xls_expr_recursive_to_str(builder, sheet, row, column, packed, param, 0,
                                                 locale)
                     : KEL_ERR_GENERAL;
  }
  if (!status) status = append_ascii(builder, ")");
  return status;
}

static uint32_t append_operator(ucs2_str_builder* builder, xls_sheet_t* sheet, int32_t row,
                                int32_t column, const xls_packed_expr_t* packed,
                                const xls_expr_t* node, const xls_expr_op_desc_t* desc,
                                uint32_t parent_precedence, const xls_locale* locale) {
  bool binary = desc->family == xls_op_binary;
  const xls_expr_t* first = binary ? expr_binary_left(packed, node) : expr_unary(packed, node);
  const xls_expr_t* second = binary ? expr_binary_right(packed, node) : nullptr;
  if (!first || (binary && !second)) return KEL_ERR_GENERAL;
  uint32_t first_precedence = desc->precedence - (binary ? desc->left_adjust : 0);
  /* Signs before signs ("--A1") and percents after percents ("A1%%") read
   * back as they stand. */
  const xls_expr_op_desc_t* inner = binary ? nullptr : xls_expr_op_desc(expr_op(first));
  if (inner && inner->family == desc->family) --first_precedence;
  bool parenthesised = desc->precedence <= parent_precedence;
  uint32_t status = parenthesised ? append_ascii(builder, "(") : 0;
  if (!status && desc->family == xls_op_prefix) status = append_ascii(builder, desc->text);
  if (!status)
    status = xls_expr_recursive_to_str(builder, sheet, row, column, packed, first,
                                       first_precedence, locale);
  if (!status && desc->family != xls_op_prefix) status = append_ascii(builder, desc->text);
  if (!status && binary)
    status = xls_expr_recursive_to_str(builder, sheet, row, column, packed, second,
                                       desc->precedence - desc->right_adjust, locale);
  if (!status && parenthesised) status = append_ascii(builder, ")");
  return status;
}

static uint32_t append_name(ucs2_str_builder* builder, const xls_expr_t* node,
                            const xls_locale* locale) {
  const xls_expr_named_t* named = node->u.name.named;
  const unsigned short* name = named ? named->name : nullptr;
  return ucs2_str_builder_append(builder,
                                 name && *name ? name : xls_error_str(xls_error_name, locale));
}

uint32_t xls_expr_recursive_to_str(ucs2_str_builder* builder, xls_sheet_t* sheet,
                                   int32_t row, int32_t column,
                                   const xls_packed_expr_t* packed, const xls_expr_t* node,
                                   uint32_t parent_precedence, const xls_locale* locale) {
  const xls_expr_op_desc_t* desc = xls_expr_op_desc(expr_op(node));
  if (desc)
    return append_operator(builder, sheet, row, column, packed, node, desc, parent_precedence,
                           locale);
  switch (expr_op(node)) {
    case xop_func:
      return append_function(builder, sheet, row, column, packed, node, locale);
    case xop_name:
    case xop_namex:
      /* The reader makes xop_namex only for names of the workbook itself. */
      return append_name(builder, node, locale);
    case xop_constant:
      return append_constant(builder, row, column, &node->u.constant, locale);
    case xop_cellref:
      return append_cellref(builder, row, column, &node->u.cell, locale);
    case xop_array: {
      /* A nested form, or the value beside it when the form is empty. */
      const xls_expr_t* root = expr_root_expr(&node->u.array.packed);
      if (!root) return append_constant(builder, row, column, &node->u.array.value, locale);
      return xls_expr_recursive_to_str(builder, sheet, row, column, &node->u.array.packed, root,
                                       parent_precedence, locale);
    }
    case xop_shared: {
      /* The group's expression at this cell; an array formula's at its
       * anchor, where its relative references start. */
      const xls_shared_expr* shared = node->u.shared;
      const xls_expr_t* root = expr_root_expr(&shared->packed);
      if (!root) return KEL_ERR_GENERAL;
      if (shared->flags & XLS_SHARED_ARRAY) {
        row = shared->array_row;
        column = shared->array_column;
      }
      return xls_expr_recursive_to_str(builder, sheet, row, column, &shared->packed, root,
                                       parent_precedence, locale);
    }
    case xop_empty:
    case xop_missing:
      return 0;
    case xop_ref3d_bad:
    case xop_area3d_err:
    case xop_area_err:
      return ucs2_str_builder_append(builder, xls_error_str(xls_error_ref, locale));
    default:
      return KEL_ERR_GENERAL;
  }
}

uint32_t xls_expr_to_input_str(xls_sheet_t* sheet, int32_t row, int32_t column,
                               const xls_packed_expr_t* packed, unsigned short** text,
                               const xls_locale* locale) {
  *text = nullptr;
  const xls_expr_t* root = expr_root_expr(packed);
  if (!root) return KEL_ERR_GENERAL;
  bool array = expr_op(root) == xop_shared && (root->u.shared->flags & XLS_SHARED_ARRAY);
  ucs2_str_builder builder;
  ucs2_str_builder_init(&builder);
  uint32_t status = append_ascii(&builder, array ? "{=" : "=");
  if (!status)
    status = xls_expr_recursive_to_str(&builder, sheet, row, column, packed, root, 0, locale);
  if (!status && array) status = append_ascii(&builder, "}");
  if (status) {
    ucs2_str_builder_destroy(&builder);
    return status;
  }
  *text = builder.buffer;
  return 0;
}

/* ---- Plain positions ------------------------------------------------------ */

void xls_printf_apos(unsigned short* text, const xls_apos* position) {
  cell_text(text, position->row, true, position->column, true);
}

/* Beyond the sheet nothing is expected; clamping keeps the text short. */
static coordinate clamped(uint32_t value, int32_t size) {
  return coordinate{value < uint32_t(size) ? int32_t(value) : size - 1, true};
}

void xls_printf_range(unsigned short* text, const xls_orange* range) {
  range_text(text, clamped(range->first_row, XLS_MAX_ROWS), clamped(range->last_row, XLS_MAX_ROWS),
             clamped(range->first_col, XLS_MAX_COLUMNS), clamped(range->last_col, XLS_MAX_COLUMNS));
}

void xls_get_sort_range_string(const xls_orange* range, unsigned short* text) {
  xls_printf_range(text, range);
}
