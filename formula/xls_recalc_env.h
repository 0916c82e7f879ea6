/*
 * xls_recalc_env.h -- the evaluator: it walks a packed formula from its
 * root, standing at the formula's cell (the environment), and produces a
 * value.  Formula errors are values; a status means the evaluation could
 * not go on (memory, a cell that cannot be read).
 *
 * Ranges stay references: their cells are read one at a time through the
 * sheet's cell table, so a range over a large sheet needs no copy of it.
 * Every pin handed back by these calls is released by the caller.
 */
#ifndef XLS_RECALC_ENV_H
#define XLS_RECALC_ENV_H

#include <stdint.h>

#include "foundation/zuv_array.h"
#include "formula/xls_expr.h"
#include "workbook/kel_cell_cache.h"

struct xls_calc_section;
struct xls_file;

struct xls_recalc_env {
  xls_calc_section* calc;       /* the pool's calculation section */
  const xls_locale* locale;
  xls_sheet_t* sheet;
  int32_t row;
  int32_t column;
  const unsigned short* result_format; /* a format a function suggests */
};

/* Evaluates node of packed at env into result, which comes in empty (an
 * xop_empty node leaves it as it came) and which the caller frees.
 * keep_empty false turns every empty result (a constant, a cell, a
 * function's or a name's, a formula cell with an empty cache) into the
 * long 0.  A reference to a formula cell gives a vt_expr that carries the
 * cell's cache and an empty packed form: the tree is never evaluated
 * through a reference, so it is not copied. */
uint32_t expr_eval_recursive(xls_recalc_env* env, const xls_packed_expr_t* packed,
                             const xls_expr_t* node, xls_value_t* result, bool keep_empty);

/* Evaluates the formula of the pinned cell at env (whose sheet, row and
 * column are the cell's) and stores the result as its cache.  Anything but
 * a parsed formula is left alone.  On a failed evaluation the old cache
 * stays and the status is returned. */
uint32_t expr_recalc(xls_recalc_env* env, auto_cell_t* cell);

/* The implicit intersection of range with the env's row: only a range one
 * column wide whose rows hold env's row intersects; *pin gets that cell,
 * pinned (null where the sheet has none).  Other shapes set #VALUE! in
 * result and give KEL_ERR_VALUE; a deleted sheet #REF! and KEL_ERR_REF. */
uint32_t xls_get_value_in_range(xls_value_t* result, xls_cell_t** pin,
                                const xls_range_ref_t* range, const xls_recalc_env* env);

/* The cell at an offset into the normalised range: column runs through the
 * columns of the first sheet, then of the next; row through the rows.
 * KEL_ERR_VALUE outside, KEL_ERR_REF for a deleted sheet; *pin is set
 * (what it held is not released) and null for a position without a cell. */
uint32_t xls_get_value_from_range_by_row_col(auto_cell_t* pin, const xls_range_ref_t* range,
                                             int32_t column, int32_t row,
                                             const xls_recalc_env* env);

/* A range resolved at env: its ordered rectangle and the run of sheets it
 * covers, in workbook order whichever corner names which sheet. */
struct xls_range_span {
  xls_sheet_t* first_sheet;
  const xls_file* workbook; /* null: the range lies on first_sheet alone */
  int32_t first_index;      /* the first sheet's index, when it spans sheets */
  int32_t sheet_count;
  cell_rect_t rect;
};
/* KEL_ERR_REF for a deleted sheet. */
uint32_t xls_range_span_resolve(const xls_range_ref_t* range, const xls_recalc_env* env,
                                xls_range_span* span);
/* The sheet i (0 to sheet_count - 1) of the span. */
xls_sheet_t* xls_range_span_sheet(const xls_range_span* span, int32_t i);

/* Appends the numbers of a range (sheets in workbook order, then rows,
 * then columns) or of a bvt_array to *numbers, an array of doubles
 * described by info (whose element size is set here), as the conversion
 * flags say: a cell without value counts 0 unless xls_conv_skip_empty, a
 * formula without a result 0 whatever the flags, an array by its first
 * element unless xls_conv_skip_array.  A status other than 0 leaves result
 * set (an error passed on, #REF!, or 0x105 when memory runs out). */
uint32_t xls_range_collect_num(xls_value_t* result, const xls_range_ref_t* range,
                               double** numbers, xls_array_info* info,
                               const xls_recalc_env* env, uint16_t flags);
uint32_t xls_array_collect_num(const xls_basic_value_t* array, xls_value_t* result,
                               double** numbers, xls_array_info* info, uint16_t flags);
/* Copies of every cell's basic value (a formula's cache) of a range,
 * bvt_empty for a position without a cell, appended to *values, described
 * by info (element size set here).  The caller frees the copies. */
uint32_t xls_range_collect_basic_value(xls_value_t* result, const xls_range_ref_t* range,
                                       xls_basic_value_t** values, xls_array_info* info,
                                       const xls_recalc_env* env);
/* A flat list of count arguments with ranges unrolled (a deleted range
 * gives one #REF!); *out (malloc'd, freed with xls_free_value_array). */
uint32_t xls_expr_range_resolv(const xls_recalc_env* env, const xls_value_t* values,
                               int count, xls_value_t** out, int* out_count);
/* The numbers of the statistical functions' arguments into *numbers (info
 * is set to doubles and emptied first): direct strings, booleans and
 * empties skipped, ranges and arrays collected with strings, booleans and
 * empties skipped and errors passed on.  KEL_ERR_PROPAGATED with the error
 * in result, KEL_ERR_GENERAL with result set otherwise (#REF!, 0x105). */
uint32_t get_number_array(const xls_recalc_env* env, const xls_value_t* args, int count,
                          xls_array_info* info, double** numbers, xls_value_t* result);

#endif /* XLS_RECALC_ENV_H */
