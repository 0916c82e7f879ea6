#include "formula/xls_value.h"

#include <stdlib.h>
#include <string.h>

#include "format/kel_locale.h"
#include "formula/xls_expr.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"

const unsigned short xls_NULL_str[] = {'#', 'N', 'U', 'L', 'L', '!', 0};
const unsigned short xls_DIV0_str[] = {'#', 'D', 'I', 'V', '/', '0', '!', 0};
const unsigned short xls_VALUE_str[] = {'#', 'V', 'A', 'L', 'U', 'E', '!', 0};
const unsigned short xls_REF_str[] = {'#', 'R', 'E', 'F', '!', 0};
const unsigned short xls_NAME_str[] = {'#', 'N', 'A', 'M', 'E', '?', 0};
const unsigned short xls_NUM_str[] = {'#', 'N', 'U', 'M', '!', 0};
const unsigned short xls_NA_str[] = {'#', 'N', '/', 'A', 0};
const unsigned short xls_ERR_str[] = {'#', 'E', 'R', 'R', '!', 0};
const unsigned short xls_TRUE_str[] = {'T', 'R', 'U', 'E', 0};
const unsigned short xls_FALSE_str[] = {'F', 'A', 'L', 'S', 'E', 0};
const unsigned short xls_empty_str[] = {0};

/* The seven standard errors in ERROR.TYPE order (type = index + 1), which is
 * also the order of xls_locale.error_texts. */
static const biff_error_t kStandardErrors[7] = {
    xls_error_null, xls_error_div0, xls_error_value, xls_error_ref,
    xls_error_name, xls_error_num,  xls_error_na};
static const unsigned short* const kStandardErrorTexts[7] = {
    xls_NULL_str, xls_DIV0_str, xls_VALUE_str, xls_REF_str,
    xls_NAME_str, xls_NUM_str,  xls_NA_str};

/* ---- Construction ------------------------------------------------------- */

void xls_value_empty(xls_value_t* value) { memset(value, 0, sizeof *value); }

void xls_value_long(xls_value_t* value, int32_t number) {
  xls_value_empty(value);
  value->u.basic.kind = bvt_long;
  value->u.basic.u.long_value = number;
}

void xls_value_double(xls_value_t* value, double number) {
  xls_value_empty(value);
  value->u.basic.kind = bvt_double;
  value->u.basic.u.double_value = number;
}

void xls_value_bool(xls_value_t* value, bool truth) {
  xls_value_empty(value);
  value->u.basic.kind = bvt_bool;
  value->u.basic.u.boolean = truth ? 1 : 0;
}

void xls_value_string(xls_value_t* value, unsigned short* text) {
  xls_value_empty(value);
  value->u.basic.kind = bvt_string;
  value->u.basic.u.string = text;
}

void xls_value_error(xls_value_t* value, biff_error_t code) {
  xls_value_empty(value);
  value->u.basic.kind = bvt_error;
  value->u.basic.u.error = code;
}

uint32_t xls_value_array(xls_value_t* value, uint16_t rows, uint16_t columns) {
  xls_value_empty(value);
  size_t count = static_cast<size_t>(rows) * columns;
  xls_basic_value_t* elements = nullptr;
  if (count) {
    /* All-zero elements are bvt_empty. */
    elements = static_cast<xls_basic_value_t*>(calloc(count, sizeof *elements));
    if (!elements) return KEL_ERR_OUT_OF_MEMORY;
  }
  value->u.basic.kind = bvt_array;
  value->u.basic.u.array.rows = rows;
  value->u.basic.u.array.columns = columns;
  value->u.basic.u.array.elements = elements;
  return 0;
}

uint32_t xls_value_range(xls_value_t* value, const xls_range_ref_t* range) {
  xls_value_empty(value);
  xls_range_ref_t* copy = static_cast<xls_range_ref_t*>(malloc(sizeof *copy));
  if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  *copy = *range;
  value->kind = vt_range;
  value->u.range = copy;
  return 0;
}

void xls_create_expr_value(xls_value_t* value, const xls_packed_expr_t* packed,
                           const xls_basic_value_t* cache) {
  xls_value_empty(value);
  value->kind = vt_expr;
  value->u.expr.packed = *packed;
  if (cache) value->u.expr.cache = *cache;
}

uint32_t xls_create_unparsed_expr_value(xls_value_t* value,
                                        const xls_basic_value_t* cache,
                                        const unsigned short* text,
                                        uint16_t flags) {
  xls_value_empty(value);
  flags |= XLS_EXPR_UNPARSED;
  unsigned short* own = nullptr;
  if (flags & XLS_EXPR_UNPARSED_ARRAY) {
    /* The array's record keeps the text for all its cells; freeing a cell
     * leaves it alone, so a copy here would never be freed. */
    own = const_cast<unsigned short*>(text);
  } else if (text) {
    own = ucs2_dup(text);
    if (!own) return KEL_ERR_OUT_OF_MEMORY;
  }
  value->kind = vt_expr;
  value->u.expr.packed.flags = flags;
  value->u.expr.packed.text = own;
  if (cache) value->u.expr.cache = *cache;
  return 0;
}

/* ---- Lifetime ----------------------------------------------------------- */

bool kel_value_is_sst_str(const unsigned short* text) {
  return g_current_wb && xls_is_sst_str(g_current_wb, text);
}

void xls_free_basic_value(xls_basic_value_t* value) {
  switch (value->kind) {
    case bvt_string:
      if (!kel_value_is_sst_str(value->u.string)) free(value->u.string);
      break;
    case bvt_array: {
      const xls_basic_array_t& array = value->u.array;
      size_t count = static_cast<size_t>(array.rows) * array.columns;
      if (array.elements)
        for (size_t i = 0; i < count; ++i) xls_free_basic_value(&array.elements[i]);
      free(array.elements);
      break;
    }
    default:
      break;
  }
  /* Left empty, so that freeing twice is harmless. */
  memset(value, 0, sizeof *value);
}

void xls_free_value(xls_value_t* value) {
  switch (value->kind) {
    case vt_basic:
      xls_free_basic_value(&value->u.basic);
      break;
    case vt_expr:
      expr_free(&value->u.expr.packed, true);
      xls_free_basic_value(&value->u.expr.cache);
      break;
    case vt_range:
      free(value->u.range);
      break;
    default:
      break;
  }
  xls_value_empty(value);
}

void xls_free_value_array(xls_value_t* values, int count) {
  if (!values) return;
  for (int i = 0; i < count; ++i) xls_free_value(&values[i]);
  free(values);
}

uint32_t xls_copy_basic_value(xls_basic_value_t* target,
                              const xls_basic_value_t* source) {
  memset(target, 0, sizeof *target);
  switch (source->kind) {
    case bvt_string: {
      unsigned short* text = nullptr;
      if (source->u.string) {
        text = ucs2_dup(source->u.string);
        if (!text) return KEL_ERR_OUT_OF_MEMORY;
      }
      target->kind = bvt_string;
      target->u.string = text;
      return 0;
    }
    case bvt_array: {
      const xls_basic_array_t& array = source->u.array;
      size_t count = static_cast<size_t>(array.rows) * array.columns;
      xls_basic_value_t* elements = nullptr;
      if (count && array.elements) {
        elements = static_cast<xls_basic_value_t*>(calloc(count, sizeof *elements));
        if (!elements) return KEL_ERR_OUT_OF_MEMORY;
        for (size_t i = 0; i < count; ++i) {
          uint32_t status = xls_copy_basic_value(&elements[i], &array.elements[i]);
          if (status) {
            for (size_t j = 0; j < i; ++j) xls_free_basic_value(&elements[j]);
            free(elements);
            return status;
          }
        }
      }
      target->kind = bvt_array;
      target->u.array.rows = elements ? array.rows : 0;
      target->u.array.columns = elements ? array.columns : 0;
      target->u.array.elements = elements;
      return 0;
    }
    default:
      *target = *source;
      return 0;
  }
}

uint32_t xls_value_copy(xls_value_t* target, const xls_value_t* source) {
  xls_value_empty(target);
  switch (source->kind) {
    case vt_basic:
      return xls_copy_basic_value(&target->u.basic, &source->u.basic);
    case vt_expr: {
      xls_packed_expr_t packed;
      uint32_t status = xls_packed_expr_copy(&packed, &source->u.expr.packed);
      if (status) return status;
      xls_basic_value_t cache;
      status = xls_copy_basic_value(&cache, &source->u.expr.cache);
      if (status) {
        expr_free(&packed, true);
        return status;
      }
      xls_create_expr_value(target, &packed, &cache);
      return 0;
    }
    case vt_range:
      return xls_value_range(target, source->u.range);
    default:
      return KEL_ERR_GENERAL;
  }
}

/* ---- Access ------------------------------------------------------------- */

const xls_basic_value_t* xls_value_basic_part(const xls_value_t* value) {
  if (value->kind == vt_basic) return &value->u.basic;
  return value->kind == vt_expr ? &value->u.expr.cache : nullptr;
}

uint32_t xls_basic_value(const xls_value_t* value, xls_basic_value_t* basic) {
  const xls_basic_value_t* part = xls_value_basic_part(value);
  if (!part) return KEL_ERR_GENERAL;
  *basic = *part;
  return 0;
}

void xls_value_array_set(xls_value_t* array, int row, int column,
                         const xls_value_t* source) {
  if (array->kind != vt_basic || array->u.basic.kind != bvt_array) return;
  const xls_basic_array_t& target = array->u.basic.u.array;
  if (row < 0 || column < 0 || row >= target.rows || column >= target.columns)
    return;
  xls_basic_value_t basic;
  if (xls_basic_value(source, &basic)) return;
  xls_basic_value_t* element =
      &target.elements[static_cast<size_t>(row) * target.columns + column];
  xls_free_basic_value(element);
  xls_copy_basic_value(element, &basic);
}

/* A position of a reference: a relative part is an offset from base and wraps
 * around the sheet edge, as references do. */
static int32_t resolve_position(int32_t number, bool relative, int32_t base,
                                int32_t limit) {
  if (!relative) return number;
  int32_t position = (number + base) % limit;
  return position < 0 ? position + limit : position;
}

/* Two offsets or two positions differ as the cells do; only a mixed pair must
 * be resolved against the formula's cell first. */
static int reference_extent(int32_t first, bool first_relative, int32_t second,
                            bool second_relative, int32_t base, int32_t limit) {
  if (first_relative != second_relative) {
    first = resolve_position(first, first_relative, base, limit);
    second = resolve_position(second, second_relative, base, limit);
  }
  int32_t difference = first - second;
  return (difference < 0 ? -difference : difference) + 1;
}

int xls_value_area_getwidth(const xls_value_t* value, const cell_t* cell) {
  if (value->kind == vt_range) {
    const xls_range_ref_t& range = *value->u.range;
    return reference_extent(range.first.column, range.first.column_relative,
                            range.second.column, range.second.column_relative,
                            cell ? cell->col : 0, 256);
  }
  xls_basic_value_t basic;
  if (!xls_basic_value(value, &basic) && basic.kind == bvt_array)
    return basic.u.array.columns;
  return 1;
}

int xls_value_area_getheight(const xls_value_t* value, const cell_t* cell) {
  if (value->kind == vt_range) {
    const xls_range_ref_t& range = *value->u.range;
    return reference_extent(range.first.row, range.first.row_relative,
                            range.second.row, range.second.row_relative,
                            cell ? cell->row : 0, 65536);
  }
  xls_basic_value_t basic;
  if (!xls_basic_value(value, &basic) && basic.kind == bvt_array)
    return basic.u.array.rows;
  return 1;
}

bool is_number(const xls_basic_value_t* value) {
  return value->kind == bvt_empty || value->kind == bvt_long ||
         value->kind == bvt_double || value->kind == bvt_bool;
}

/* ---- Texts -------------------------------------------------------------- */

/* The index of a standard error in kStandardErrors, or -1. */
static int standard_error_index(biff_error_t code) {
  for (int i = 0; i < 7; ++i)
    if (kStandardErrors[i] == code) return i;
  return -1;
}

const unsigned short* xls_error_str(biff_error_t code, const xls_locale* locale) {
  int index = standard_error_index(code);
  if (index < 0) return xls_ERR_str;
  if (locale && locale->error_texts[index]) return locale->error_texts[index];
  return kStandardErrorTexts[index];
}

const unsigned short* xls_bool_str(int biff_bool, const xls_locale* locale) {
  /* Inverted on purpose: callers pass 0 for true, and rely on it. */
  if (biff_bool == 0)
    return locale && locale->true_word ? locale->true_word : xls_TRUE_str;
  return locale && locale->false_word ? locale->false_word : xls_FALSE_str;
}

unsigned xls_match_error_str(const unsigned short* text, unsigned length,
                             const xls_locale* locale, biff_error_t* code) {
  for (int i = 0; i < 7; ++i) {
    const unsigned short* error_text = xls_error_str(kStandardErrors[i], locale);
    unsigned error_length = ucs2_len(error_text);
    if (error_length == 0 || length < error_length) continue;
    if (ucs2_ncmpi(text, error_text, error_length) == 0) {
      *code = kStandardErrors[i];
      return error_length;
    }
  }
  return 0;
}

bool xls_value_is_std_error(biff_error_t code) {
  return standard_error_index(code) >= 0;
}

int xls_get_error_type_by_error_code(biff_error_t code) {
  return standard_error_index(code) + 1;
}

void xls_get_error_type(xls_value_t* result, const xls_basic_value_t* value) {
  int type = value->kind == bvt_error ? xls_get_error_type_by_error_code(value->u.error) : 0;
  if (type) xls_value_long(result, type);
  else xls_value_error(result, xls_error_na);
}
