/*
 * kel_xls_recalc.h -- computing a workbook's formulas after the open.
 */
#ifndef KEL_XLS_RECALC_H
#define KEL_XLS_RECALC_H

#include <stdint.h>

struct xls_file;
struct xls_locale;

/* Evaluates every parsed formula once, sheet by sheet and in each sheet by
 * row, then column -- the order in which the file holds them -- so that
 * each cell's cache is what the engine computes.  A formula that reads a
 * formula further on reads that one's cached result. */
uint32_t xls_recalc_in_file_order(xls_file* file, const xls_locale* locale);

#endif /* KEL_XLS_RECALC_H */
