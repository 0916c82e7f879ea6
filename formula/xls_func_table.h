/*
 * xls_func_table.h -- the table of worksheet functions, one row per BIFF
 * function number (0 to 379).  The evaluator calls through it, the formula
 * writer takes token classes and counts from it, the formula text takes
 * names from it.
 *
 * A row without a handler names a function that can stand in a formula and
 * keep the result the file cached, but that the engine cannot compute: a
 * workbook that uses one is not recalculated.
 */
#ifndef XLS_FUNC_TABLE_H
#define XLS_FUNC_TABLE_H

#include <stdint.h>

#include "formula/xls_value.h"

struct xls_recalc_env;

/* A handler: arguments already evaluated (errors among them as values);
 * the result, an error included, goes into result.  It never fails by
 * status.  Arguments stay the caller's, who frees them after the call. */
typedef void (*xls_expr_handler_t)(xls_value_t* result, xls_recalc_env* env,
                                xls_value_t* args, int count);

/* expr_func_desc_t.flags */
enum {
  XLS_FUNC_EXTENSION = 0x01, /* row 255, the add-in slot */
  XLS_FUNC_FIXED = 0x02,     /* fixed argument count: ptgFunc */
  XLS_FUNC_VARIABLE = 0x04,  /* variable argument count: ptgFuncVar */
  XLS_FUNC_VOLATILE = 0x08,  /* kept for the record; nothing looks at it */
  XLS_FUNC_MACRO = 0x10,     /* macro-sheet function */
  XLS_FUNC_RESERVED = 0x20,  /* a number without a function */
  /* The handler reads its arguments of class R as references (their
   * position, shape or cells): a plain cell reference arrives there as a
   * one-cell range, not as the cell's value. */
  XLS_FUNC_TAKES_REFERENCES = 0x40
};

struct expr_func_desc_t {
  xls_expr_handler_t handler;      /* null: cannot be computed */
  const unsigned short* name;   /* upper-case English, UTF-16 */
  int32_t min_args, max_args;   /* -1 in both: cannot be called from a cell */
  uint32_t flags;               /* XLS_FUNC_ */
  uint32_t fixed_count;         /* entries a fixed function's token carries */
  const char* result_class;     /* "V", "R", "A", or null */
  const char* arg_classes;      /* one letter per argument, the last repeating; null for none */
  uint8_t ignore_for_circular;  /* ROW, COLUMN, ROWS, COLUMNS */
};

enum { EXPR_FUNC_DESC_COUNT = 380, EXPR_FUNC_EXTENSION_SLOT = 255 };

extern const expr_func_desc_t expr_func_desc[EXPR_FUNC_DESC_COUNT];
extern const uint32_t expr_func_desc_count;

/* The row of number, or null beyond the table. */
const expr_func_desc_t* expr_func_row(uint32_t number);

/* The handler that stands in for a missing one: result #ERR! (0x103). */
void xls_expr_func_error(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                         int count);

#endif /* XLS_FUNC_TABLE_H */
