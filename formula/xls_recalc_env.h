/*
 * xls_recalc_env.h -- where an evaluation stands: the formula's sheet and
 * cell, against which relative references and implicit intersections
 * resolve.
 */
#ifndef XLS_RECALC_ENV_H
#define XLS_RECALC_ENV_H

#include <stdint.h>

#include "formula/xls_value.h"

struct xls_calc_section;
struct xls_cell_t;

struct xls_recalc_env {
  xls_calc_section* calc;       /* the pool's calculation section */
  const xls_locale* locale;
  xls_sheet_t* sheet;
  int32_t row;
  int32_t column;
  const unsigned short* result_format; /* a format a function suggests */
};

/* The implicit intersection of range with the env's row: only a range one
 * column wide whose rows hold env's row intersects; *pin gets that cell,
 * pinned (null where the sheet has none), and the caller releases it.
 * Other shapes set #VALUE! in result and give KEL_ERR_VALUE; a deleted
 * sheet #REF! and KEL_ERR_REF. */
uint32_t xls_get_value_in_range(xls_value_t* result, xls_cell_t** pin,
                                const xls_range_ref_t* range,
                                const xls_recalc_env* env);

#endif /* XLS_RECALC_ENV_H */
