/*
 * Worksheet functions: criteria and database functions.
 *
 * COUNTIF, SUMIF and the D-functions parse a criterion once into a test and
 * a value and apply it cell by cell.  Ranges are walked through the cells
 * that exist, in the sheet's own order, so a criterion over whole columns
 * costs what the sheet holds, not what the range spans; that is also why an
 * empty cell never meets a COUNTIF or SUMIF criterion.
 */
#include <stdlib.h>

#include "formula/xls_functions.h"
#include "formula/xls_recalc_env.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

/* ---- Tests ---------------------------------------------------------------- */

static const xls_basic_value_t kEmpty = {};

/* The basic value a test looks at: the cache of a formula, the first
 * element of an array; null for a range. */
static const xls_basic_value_t* tested_value(const xls_value_t* value) {
  const xls_basic_value_t* basic = nullptr;
  if (value->kind == vt_basic) basic = &value->u.basic;
  else if (value->kind == vt_expr) basic = &value->u.expr.cache;
  if (basic && basic->kind == bvt_array)
    basic = basic->u.array.rows && basic->u.array.columns ? basic->u.array.elements : &kEmpty;
  return basic;
}

static int sign(double x) { return x < 0 ? -1 : x > 0 ? 1 : 0; }

/* How a cell stands to a criterion value: false for kinds that do not
 * compare; else *order is below, at or above 0 as the cell is, and
 * *ordered tells whether the kinds have an order (numbers and texts) or
 * only equality (truths and errors).  A numeric criterion reads a text
 * cell that is a number as that number. */
static bool relate(const xls_value_t* cell, const xls_value_t* value, int* order, bool* ordered) {
  const xls_basic_value_t* a = tested_value(cell);
  const xls_basic_value_t* b = tested_value(value);
  if (!a || !b) return false;
  *ordered = true;
  if (b->kind == bvt_long || b->kind == bvt_double) {
    double x;
    if (a->kind == bvt_long || a->kind == bvt_double) x = xls_basic_value_todouble(a);
    else if (a->kind != bvt_string || !xls_is_string_number(&x, a->u.string)) return false;
    *order = sign(x - xls_basic_value_todouble(b));
    return true;
  }
  if (a->kind != b->kind) return false;
  switch (a->kind) {
    case bvt_string:
      /* ucs2_cmpi gives the second text minus the first. */
      *order = sign(ucs2_cmpi(b->u.string, a->u.string));
      return true;
    case bvt_bool:
      *ordered = false;
      *order = (a->u.boolean != 0) == (b->u.boolean != 0) ? 0 : 1;
      return true;
    case bvt_error:
      *ordered = false;
      *order = a->u.error == b->u.error ? 0 : 1;
      return true;
    default:
      return false;
  }
}

bool xls_criteria_test_equal(const xls_value_t* cell, const xls_value_t* value) {
  int order;
  bool ordered;
  return cell && value && relate(cell, value, &order, &ordered) && order == 0;
}

bool xls_criteria_test_unequal(const xls_value_t* cell, const xls_value_t* value) {
  int order;
  bool ordered;
  if (!cell || !value) return false;
  return !relate(cell, value, &order, &ordered) || order != 0;
}

bool xls_criteria_test_less(const xls_value_t* cell, const xls_value_t* value) {
  int order;
  bool ordered;
  return cell && value && relate(cell, value, &order, &ordered) && ordered && order < 0;
}

bool xls_criteria_test_less_or_equal(const xls_value_t* cell, const xls_value_t* value) {
  int order;
  bool ordered;
  return cell && value && relate(cell, value, &order, &ordered) && ordered && order <= 0;
}

bool xls_criteria_test_greater(const xls_value_t* cell, const xls_value_t* value) {
  int order;
  bool ordered;
  return cell && value && relate(cell, value, &order, &ordered) && ordered && order > 0;
}

bool xls_criteria_test_greater_or_equal(const xls_value_t* cell, const xls_value_t* value) {
  int order;
  bool ordered;
  return cell && value && relate(cell, value, &order, &ordered) && ordered && order >= 0;
}

/* ---- Parsing -------------------------------------------------------------- */

/* The two-character prefixes first, so that "<=" is not read as "<". */
static const struct {
  unsigned short text[3];
  xls_criteria_test_t test;
} kPrefixes[] = {
    {{'<', '=', 0}, xls_criteria_test_less_or_equal},
    {{'>', '=', 0}, xls_criteria_test_greater_or_equal},
    {{'<', '>', 0}, xls_criteria_test_unequal},
    {{'<', 0, 0}, xls_criteria_test_less},
    {{'=', 0, 0}, xls_criteria_test_equal},
    {{'>', 0, 0}, xls_criteria_test_greater},
};

/* The value a criterion text stands for, after its prefix. */
static uint32_t parse_criteria_text(const unsigned short* text, xls_value_t* out,
                                    const xls_locale* locale) {
  double number;
  biff_error_t code;
  unsigned length = ucs2_len(text);
  if (xls_is_string_number(&number, text)) {
    xls_value_double(out, number);
  } else if (ucs2_cmpi(text, xls_bool_str(0, locale)) == 0) {
    xls_value_bool(out, true);
  } else if (ucs2_cmpi(text, xls_bool_str(1, locale)) == 0) {
    xls_value_bool(out, false);
  } else if (length && xls_match_error_str(text, length, locale, &code) == length) {
    xls_value_error(out, code);
  } else {
    unsigned short* copy = ucs2_dup(text);
    if (!copy) return KEL_ERR_OUT_OF_MEMORY;
    xls_value_string(out, copy);
  }
  return 0;
}

uint32_t xls_parse_criteria(const xls_value_t* value, xls_criteria_test_t* test,
                            xls_value_t** parsed, const xls_locale* locale) {
  const xls_basic_value_t* basic = tested_value(value);
  if (!basic) return KEL_ERR_VALUE;
  xls_value_t* out = static_cast<xls_value_t*>(malloc(sizeof *out));
  if (!out) return KEL_ERR_OUT_OF_MEMORY;
  *test = xls_criteria_test_equal;
  switch (basic->kind) {
    case bvt_long:
    case bvt_double:
    case bvt_error:
    case bvt_bool:
      out->kind = vt_basic;
      out->u.basic = *basic;
      break;
    case bvt_string: {
      const unsigned short* text = basic->u.string ? basic->u.string : xls_empty_str;
      for (const auto& prefix : kPrefixes) {
        unsigned length = ucs2_len(prefix.text);
        if (ucs2_ncmp(text, prefix.text, length) == 0) {
          *test = prefix.test;
          text += length;
          break;
        }
      }
      uint32_t status = parse_criteria_text(text, out, locale);
      if (status) {
        free(out);
        return status;
      }
      break;
    }
    default:
      /* An empty criterion asks for 0. */
      xls_value_long(out, 0);
      break;
  }
  *parsed = out;
  return 0;
}

static void free_criterion(xls_value_t* value) {
  if (!value) return;
  xls_free_value(value);
  free(value);
}

/* ---- Walking ranges -------------------------------------------------------- */

typedef uint32_t (*cell_visitor)(xls_cell_t* cell, int32_t sheet_offset, void* user);

/* Calls visit for every cell that exists in rect of sheet, in row and then
 * column order, skipping from the end of a row's span to the next row. */
static uint32_t walk_sheet(xls_sheet_t* sheet, const cell_rect_t* rect, int32_t sheet_offset,
                           cell_visitor visit, void* user) {
  const kel_cell_cache_t* cache = &sheet->cells;
  bool found;
  int index = kel_cell_cache_find_pos(cache, static_cast<uint32_t>(rect->left_col),
                                      static_cast<uint32_t>(rect->top_row), &found);
  for (;;) {
    auto_cell_t cell = nullptr;
    uint32_t status = kel_cell_cache_access(&cell, cache, index);
    if (status || !cell) return status;
    uint32_t row = cell->row, column = cell->column;
    if (row > static_cast<uint32_t>(rect->bottom_row)) {
      auto_cell_release(&cell);
      return 0;
    }
    if (column < static_cast<uint32_t>(rect->left_col)) {
      index = kel_cell_cache_find_pos(cache, static_cast<uint32_t>(rect->left_col), row, &found);
    } else if (column > static_cast<uint32_t>(rect->right_col)) {
      index = kel_cell_cache_find_pos(cache, static_cast<uint32_t>(rect->left_col), row + 1,
                                      &found);
    } else {
      status = visit(cell, sheet_offset, user);
      ++index;
    }
    auto_cell_release(&cell);
    if (status) return status;
  }
}

static uint32_t walk_range(const xls_range_span* range, cell_visitor visit, void* user) {
  for (int32_t index = 0; index < range->sheet_count; ++index) {
    xls_sheet_t* sheet = xls_range_span_sheet(range, index);
    if (!sheet) continue;
    uint32_t status = walk_sheet(sheet, &range->rect, index, visit, user);
    if (status) return status;
  }
  return 0;
}

/* The error of a status from parsing or arithmetic. */
static void set_status_error(xls_value_t* result, uint32_t status) {
  switch (status) {
    case KEL_ERR_DIV_ZERO: xls_value_error(result, xls_error_div0); break;
    case KEL_ERR_NUM: xls_value_error(result, xls_error_num); break;
    case KEL_ERR_VALUE: xls_value_error(result, xls_error_value); break;
    case KEL_ERR_REF: xls_value_error(result, xls_error_ref); break;
    case KEL_ERR_OUT_OF_MEMORY: xls_value_error(result, xls_error_out_of_memory); break;
    default: xls_value_error(result, xls_error_function_failed); break;
  }
}

/* The range of the first argument and the parsed criterion of the second;
 * false with result set. */
static bool criteria_call(xls_value_t* result, const xls_recalc_env* env,
                          const xls_value_t* args, xls_range_span* range,
                          xls_criteria_test_t* test, xls_value_t** criterion) {
  if (args[0].kind != vt_range) {
    xls_value_error(result, xls_error_value);
    return false;
  }
  uint32_t status = xls_range_span_resolve(args[0].u.range, env, range);
  if (!status) status = xls_parse_criteria(&args[1], test, criterion, env->locale);
  if (status) set_status_error(result, status);
  return status == 0;
}

/* ---- COUNTIF, SUMIF, COUNTBLANK --------------------------------------------- */

struct criteria_walk {
  xls_criteria_test_t test;
  const xls_value_t* criterion;
  long matches;
  /* SUMIF */
  const xls_range_span* range;
  const xls_range_span* sum_range; /* null: the matching cells are added */
  double sum;
  biff_error_t error;
  bool has_error;
};

static uint32_t count_match(xls_cell_t* cell, int32_t, void* user) {
  criteria_walk* walk = static_cast<criteria_walk*>(user);
  if (walk->test(&cell->value, walk->criterion)) ++walk->matches;
  return 0;
}

void xls_expr_func_countif(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  (void)count;
  xls_range_span range;
  criteria_walk walk = {};
  xls_value_t* criterion = nullptr;
  if (!criteria_call(result, env, args, &range, &walk.test, &criterion)) return;
  walk.criterion = criterion;
  uint32_t status = walk_range(&range, count_match, &walk);
  free_criterion(criterion);
  if (status) xls_value_error(result, xls_error_function_failed);
  else xls_value_long(result, static_cast<int32_t>(walk.matches));
}

/* Adds the number of value; an error ends the sum with that error. */
static void add_value(criteria_walk* walk, const xls_value_t* value) {
  const xls_basic_value_t* basic = tested_value(value);
  if (!basic) return;
  if (basic->kind == bvt_long || basic->kind == bvt_double) {
    walk->sum += xls_basic_value_todouble(basic);
  } else if (basic->kind == bvt_error && !walk->has_error) {
    walk->error = basic->u.error;
    walk->has_error = true;
  }
}

static uint32_t sum_match(xls_cell_t* cell, int32_t sheet_offset, void* user) {
  criteria_walk* walk = static_cast<criteria_walk*>(user);
  if (!walk->test(&cell->value, walk->criterion)) return 0;
  if (!walk->sum_range) {
    add_value(walk, &cell->value);
    return 0;
  }
  /* The sum range is only an anchor: the cell at the same offset is read,
   * wherever the sum range itself ends. */
  const xls_range_span* sum = walk->sum_range;
  int64_t row = static_cast<int64_t>(sum->rect.top_row) + cell->row - walk->range->rect.top_row;
  int64_t column =
      static_cast<int64_t>(sum->rect.left_col) + cell->column - walk->range->rect.left_col;
  if (row >= XLS_MAX_ROWS || column >= XLS_MAX_COLUMNS) return 0;
  int32_t sheet_index = sheet_offset < sum->sheet_count ? sheet_offset : sum->sheet_count - 1;
  xls_sheet_t* sheet = xls_range_span_sheet(sum, sheet_index);
  if (!sheet) return 0;
  auto_value_t pin = nullptr;
  uint32_t status =
      xls_get_cell_value(sheet, static_cast<int>(column), static_cast<int>(row), &pin);
  if (status) return status;
  if (pin) add_value(walk, &pin->value);
  auto_cell_release(&pin);
  return 0;
}

void xls_expr_func_sumif(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  xls_range_span range, sum_range;
  criteria_walk walk = {};
  if (count > 2) {
    if (args[2].kind != vt_range) {
      xls_value_error(result, xls_error_value);
      return;
    }
    if (xls_range_span_resolve(args[2].u.range, env, &sum_range)) {
      xls_value_error(result, xls_error_ref);
      return;
    }
    walk.sum_range = &sum_range;
  }
  xls_value_t* criterion = nullptr;
  if (!criteria_call(result, env, args, &range, &walk.test, &criterion)) return;
  walk.criterion = criterion;
  walk.range = &range;
  uint32_t status = walk_range(&range, sum_match, &walk);
  free_criterion(criterion);
  if (status) xls_value_error(result, xls_error_function_failed);
  else if (walk.has_error) xls_value_error(result, walk.error);
  else xls_value_double(result, walk.sum);
}

/* A cell that holds something: not empty, and not a formula whose result
 * is empty or the empty text. */
static uint32_t count_filled(xls_cell_t* cell, int32_t, void* user) {
  const xls_value_t& value = cell->value;
  bool blank = false;
  if (value.kind == vt_basic) {
    blank = value.u.basic.kind == bvt_empty;
  } else if (value.kind == vt_expr) {
    const xls_basic_value_t& cache = value.u.expr.cache;
    blank = cache.kind == bvt_empty ||
            (cache.kind == bvt_string && (!cache.u.string || !cache.u.string[0]));
  }
  if (!blank) ++*static_cast<int64_t*>(user);
  return 0;
}

void xls_expr_func_countblank(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                              int count) {
  (void)count;
  xls_range_span range;
  if (args[0].kind != vt_range) {
    xls_value_error(result, xls_error_value);
    return;
  }
  if (xls_range_span_resolve(args[0].u.range, env, &range)) {
    xls_value_error(result, xls_error_ref);
    return;
  }
  int64_t cells = static_cast<int64_t>(range.rect.bottom_row - range.rect.top_row + 1) *
                  (range.rect.right_col - range.rect.left_col + 1) * range.sheet_count;
  int64_t filled = 0;
  if (walk_range(&range, count_filled, &filled)) {
    xls_value_error(result, xls_error_function_failed);
    return;
  }
  xls_value_long(result, static_cast<int32_t>(cells - filled));
}

/* ---- Database criteria ------------------------------------------------------ */

void xls_free_database_criteria(xls_database_criteria_t* rows, int count) {
  for (int i = 0; i < count; ++i) {
    for (int j = 0; j < rows[i].count; ++j) free_criterion(rows[i].entries[j].value);
    free(rows[i].entries);
  }
  free(rows);
}

/* True when the cell holds nothing at all: no condition. */
static bool empty_cell(const xls_cell_t* cell) {
  const xls_basic_value_t* basic = cell ? tested_value(&cell->value) : nullptr;
  return !basic || basic->kind == bvt_empty;
}

uint32_t xls_parse_criteria_range(xls_array_info* info, xls_database_criteria_t** rows,
                                  int* count, xls_sheet_t* sheet, int32_t first_row,
                                  int32_t last_row, int32_t first_column,
                                  int32_t last_column, const int32_t* columns,
                                  const xls_locale* locale) {
  int width = last_column - first_column + 1;
  for (int32_t row = first_row; row <= last_row; ++row) {
    xls_database_criteria_t line = {0, static_cast<xls_criteria_entry_t*>(
                                           malloc(width * sizeof(xls_criteria_entry_t)))};
    if (!line.entries) return KEL_ERR_OUT_OF_MEMORY;
    uint32_t status = 0;
    for (int i = 0; i < width && !status; ++i) {
      if (columns[i] < 0) continue;
      auto_value_t pin = nullptr;
      status = xls_get_cell_value(sheet, first_column + i, row, &pin);
      if (!status && !empty_cell(pin)) {
        xls_criteria_entry_t* entry = &line.entries[line.count];
        entry->column = columns[i];
        status = xls_parse_criteria(&pin->value, &entry->test, &entry->value, locale);
        if (!status) ++line.count;
      }
      auto_cell_release(&pin);
    }
    if (!status && line.count)
      status = xls_array_push(info, reinterpret_cast<void**>(rows), &line);
    if (status || !line.count) {
      for (int j = 0; j < line.count; ++j) free_criterion(line.entries[j].value);
      free(line.entries);
    }
    *count = info->count;
    if (status) return status;
  }
  return 0;
}

uint32_t xls_find_col_of_field(const xls_range_ref_t* database, const xls_value_t* field,
                               int32_t* column, const xls_recalc_env* env) {
  *column = -1;
  const xls_basic_value_t* basic = tested_value(field);
  if (!basic) return KEL_ERR_VALUE;
  if (basic->kind == bvt_long || basic->kind == bvt_double || basic->kind == bvt_bool) {
    *column = xls_basic_value_tolong(basic) - 1;
    return 0;
  }
  if (basic->kind != bvt_string) return KEL_ERR_VALUE;
  xls_range_span range;
  uint32_t status = xls_range_span_resolve(database, env, &range);
  if (status) return status;
  for (int32_t c = range.rect.left_col; c <= range.rect.right_col; ++c) {
    auto_value_t pin = nullptr;
    status = xls_get_cell_value(range.first_sheet, c, range.rect.top_row, &pin);
    if (status) return status;
    const xls_basic_value_t* heading = pin ? tested_value(&pin->value) : nullptr;
    unsigned short* text = heading ? xls_basic_value_tostring(heading, env->locale) : nullptr;
    bool same = text && ucs2_cmpi(text, basic->u.string) == 0;
    free(text);
    auto_cell_release(&pin);
    if (same) {
      *column = c - range.rect.left_col;
      return 0;
    }
  }
  return KEL_ERR_VALUE;
}

uint32_t xls_parse_database_criteria(const xls_range_ref_t* database,
                                     const xls_range_ref_t* criteria,
                                     xls_database_criteria_t** rows, int* count,
                                     const xls_recalc_env* env) {
  *rows = nullptr;
  *count = 0;
  xls_range_span base, range;
  uint32_t status = xls_range_span_resolve(database, env, &base);
  if (!status) status = xls_range_span_resolve(criteria, env, &range);
  if (status) return status;
  const cell_rect_t& rect = range.rect;
  int width = rect.right_col - rect.left_col + 1;
  int32_t* columns = static_cast<int32_t*>(malloc(width * sizeof(int32_t)));
  if (!columns) return KEL_ERR_OUT_OF_MEMORY;
  for (int i = 0; i < width && !status; ++i) {
    /* Headings name fields by their text, a number heading too. */
    auto_value_t pin = nullptr;
    columns[i] = -1;
    status = xls_get_cell_value(range.first_sheet, rect.left_col + i, rect.top_row, &pin);
    if (!status && !empty_cell(pin)) {
      xls_value_t name;
      unsigned short* text = xls_basic_value_tostring(tested_value(&pin->value), env->locale);
      if (!text) {
        status = KEL_ERR_OUT_OF_MEMORY;
      } else {
        xls_value_string(&name, text);
        int32_t offset;
        status = xls_find_col_of_field(database, &name, &offset, env);
        if (!status) columns[i] = base.rect.left_col + offset;
        xls_free_value(&name);
      }
    }
    auto_cell_release(&pin);
  }
  if (!status) {
    xls_array_info info = {sizeof(xls_database_criteria_t), 0, 0};
    status = xls_parse_criteria_range(&info, rows, count, range.first_sheet, rect.top_row + 1,
                                      rect.bottom_row, rect.left_col, rect.right_col, columns,
                                      env->locale);
    if (status) {
      xls_free_database_criteria(*rows, *count);
      *rows = nullptr;
      *count = 0;
    }
  }
  free(columns);
  return status;
}

bool xls_database_match_criteria(xls_sheet_t* sheet, int32_t row,
                                 const xls_database_criteria_t* rows, int count) {
  xls_value_t empty;
  xls_value_empty(&empty);
  for (int i = 0; i < count; ++i) {
    bool all = true;
    for (int j = 0; j < rows[i].count && all; ++j) {
      const xls_criteria_entry_t& entry = rows[i].entries[j];
      auto_value_t pin = nullptr;
      if (xls_get_cell_value(sheet, entry.column, row, &pin)) pin = nullptr;
      all = entry.test(pin ? &pin->value : &empty, entry.value);
      auto_cell_release(&pin);
    }
    if (all) return true;
  }
  return false;
}

uint32_t xls_database_find_values(xls_value_t* result, const xls_range_ref_t* database,
                                  int32_t column, const xls_database_criteria_t* rows,
                                  int count, const xls_recalc_env* env, double** numbers,
                                  xls_array_info* info, uint16_t flags) {
  xls_range_span range;
  uint32_t status = xls_range_span_resolve(database, env, &range);
  if (status) {
    set_status_error(result, status);
    return status;
  }
  int32_t sheet_column = range.rect.left_col + column;
  for (int32_t row = range.rect.top_row + 1; row <= range.rect.bottom_row; ++row) {
    if (!xls_database_match_criteria(range.first_sheet, row, rows, count)) continue;
    /* One cell at a time through the range collector keeps the gathering
     * rules (absent cells, formulas, arrays) those of every function. */
    xls_range_ref_t cell = {{range.first_sheet, row, sheet_column, 0, 0},
                            {range.first_sheet, row, sheet_column, 0, 0}};
    status = xls_range_collect_num(result, &cell, numbers, info, env, flags);
    if (status) return status;
  }
  return 0;
}

/* What a database function works on, once its arguments are checked. */
struct database_call {
  xls_range_span database;
  int32_t column;
  xls_database_criteria_t* rows;
  int count;
};

/* Checks database, field and criteria and parses the criteria; false with
 * result set. */
static bool prepare_database_call(const xls_value_t* args, xls_value_t* result,
                                  const xls_recalc_env* env, database_call* call) {
  call->rows = nullptr;
  call->count = 0;
  if (args[0].kind != vt_range || args[2].kind != vt_range) {
    xls_value_error(result, xls_error_value);
    return false;
  }
  xls_range_span criteria;
  if (xls_range_span_resolve(args[0].u.range, env, &call->database) ||
      xls_range_span_resolve(args[2].u.range, env, &criteria)) {
    xls_value_error(result, xls_error_ref);
    return false;
  }
  const cell_rect_t& rect = call->database.rect;
  xls_basic_value_t given;
  if (xls_basic_value(&args[1], &given) || given.kind == bvt_array) {
    xls_value_error(result, xls_error_value);
    return false;
  }
  const xls_basic_value_t* field = &given;
  if (field->kind == bvt_error) {
    xls_value_error(result, field->u.error);
    return false;
  }
  if (rect.top_row == rect.bottom_row || criteria.rect.top_row == criteria.rect.bottom_row) {
    xls_value_error(result, xls_error_value);
    return false;
  }
  if (field->kind == bvt_empty) {
    /* No field: the database must be the one column to look at. */
    call->column = rect.left_col == rect.right_col ? 0 : -1;
  } else if (xls_find_col_of_field(args[0].u.range, &args[1], &call->column, env)) {
    call->column = -1;
  }
  if (call->column < 0 || call->column > rect.right_col - rect.left_col) {
    xls_value_error(result, xls_error_value);
    return false;
  }
  uint32_t status =
      xls_parse_database_criteria(args[0].u.range, args[2].u.range, &call->rows, &call->count, env);
  if (status) {
    set_status_error(result, status);
    return false;
  }
  return true;
}

void xls_database_funcs(const xls_value_t* args, xls_value_t* result, xls_math_function_t math,
                        const xls_recalc_env* env, uint16_t flags) {
  database_call call;
  if (!prepare_database_call(args, result, env, &call)) return;
  xls_array_info info = {sizeof(double), 0, 0};
  double* numbers = nullptr;
  uint32_t status = 0;
  if (call.count)
    status = xls_database_find_values(result, args[0].u.range, call.column, call.rows,
                                      call.count, env, &numbers, &info, flags);
  xls_free_database_criteria(call.rows, call.count);
  if (!status) {
    double number;
    status = math(numbers, info.count, &number);
    if (status) set_status_error(result, status);
    else xls_value_double(result, number);
  }
  free(numbers);
}

void xls_expr_func_dget(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  (void)count;
  database_call call;
  if (!prepare_database_call(args, result, env, &call)) return;
  const cell_rect_t& rect = call.database.rect;
  int32_t found = -1, matches = 0;
  for (int32_t row = rect.top_row + 1; row <= rect.bottom_row && matches < 2; ++row) {
    if (!xls_database_match_criteria(call.database.first_sheet, row, call.rows, call.count))
      continue;
    found = row;
    ++matches;
  }
  xls_free_database_criteria(call.rows, call.count);
  if (matches != 1) {
    xls_value_error(result, matches ? xls_error_num : xls_error_value);
    return;
  }
  auto_value_t pin = nullptr;
  if (xls_get_cell_value(call.database.first_sheet, rect.left_col + call.column, found, &pin)) {
    xls_value_error(result, xls_error_function_failed);
    return;
  }
  const xls_basic_value_t* value = pin ? tested_value(&pin->value) : nullptr;
  xls_value_empty(result);
  if (value && xls_copy_basic_value(&result->u.basic, value))
    xls_value_error(result, xls_error_out_of_memory);
  auto_cell_release(&pin);
}

/* ---- The D-functions ---------------------------------------------------------
 * Flags as the functions of the same name gather: the statistical ones
 * skip texts, truths and empties and pass errors on; DCOUNT skips all but
 * numbers; DCOUNTA counts texts and errors as well. */

static const uint16_t kStatisticFlags =
    xls_conv_skip_string | xls_conv_skip_bool | xls_conv_error_propagate | xls_conv_skip_empty;
static const uint16_t kCountFlags =
    xls_conv_skip_string | xls_conv_skip_bool | xls_conv_skip_error | xls_conv_skip_empty;
static const uint16_t kCountAllFlags =
    xls_conv_string_zero | xls_conv_error_zero | xls_conv_skip_empty;

void xls_expr_func_dcount(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                          int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_count, env, kCountFlags);
}

void xls_expr_func_dcounta(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_count, env, kCountAllFlags);
}

void xls_expr_func_dsum(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_sum, env, kStatisticFlags);
}

void xls_expr_func_daverage(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                            int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_average, env, kStatisticFlags);
}

void xls_expr_func_dmin(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_min, env, kStatisticFlags);
}

void xls_expr_func_dmax(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_max, env, kStatisticFlags);
}

void xls_expr_func_dproduct(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                            int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_product, env, kStatisticFlags);
}

void xls_expr_func_dstdev(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                          int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_stdev, env, kStatisticFlags);
}

void xls_expr_func_dstdevp(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_stdevp, env, kStatisticFlags);
}

void xls_expr_func_dvar(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_var, env, kStatisticFlags);
}

void xls_expr_func_dvarp(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count) {
  (void)count;
  xls_database_funcs(args, result, xls_math_varp, env, kStatisticFlags);
}
