/*
 * xls_expr.h -- formulas in memory: a flat array of nodes whose children are
 * 16-bit indexes into the same array, the root last.  No node points to
 * another, so a packed form moves by a plain block copy; only constants,
 * long parameter lists and nested arrays own heap memory.
 */
#ifndef XLS_EXPR_H
#define XLS_EXPR_H

#include <stdint.h>

#include "formula/xls_value.h"

struct xls_expr_named_t;
struct xls_shared_expr;

enum xls_expr_op_t {
  xop_eq = 0,
  xop_gt = 1,
  xop_lt = 2,
  xop_ge = 3,
  xop_le = 4,
  xop_ne = 5,
  xop_add = 6,
  xop_sub = 7,
  xop_mul = 8,
  xop_div = 9,
  xop_pow = 10,
  xop_concat = 11,
  xop_func = 12,
  xop_name = 13,
  xop_constant = 14,
  xop_cellref = 15,
  xop_neg = 16,
  xop_plus = 17,
  xop_percent = 18,
  xop_array = 19,
  xop_empty = 20,
  xop_range = 21,
  xop_isect = 22,
  xop_ref3d_bad = 23,
  xop_namex = 24,
  xop_missing = 25,
  xop_shared = 26,
  xop_area3d_err = 27,
  xop_area_err = 28,
  xop_unknown = 29
};

/* Parameters that a function node holds in itself; more live on the heap. */
enum { XLS_EXPR_INLINE_PARAMS = 12 };

struct xls_expr_t {
  uint32_t op; /* xls_expr_op_t */
  union {
    struct {
      uint16_t left, right;
    } binary;
    uint16_t unary;
    struct {
      uint32_t number; /* row of the function table */
      uint32_t count;
      union {
        uint16_t inline_params[XLS_EXPR_INLINE_PARAMS];
        uint16_t* params; /* malloc'd, above XLS_EXPR_INLINE_PARAMS */
      };
    } func;
    struct {
      uint16_t index;
      xls_expr_named_t* named; /* not owned */
    } name;
    xls_value_t constant;
    xls_cell_ref_t cell;
    xls_shared_expr* shared; /* not owned: the sheet's list holds it */
    struct {
      xls_sheet_t* first;
      xls_sheet_t* last;
    } area_err;
    struct {
      uint16_t sheet_ref, row, column;
    } ref3d_bad;
    struct {
      xls_value_t value;
      xls_packed_expr_t packed;
    } array;
  } u;
};

/* A shared or array formula, held in its sheet's list and named by cells
 * through an xop_shared node. */
enum { XLS_SHARED_ARRAY = 0x01 };
struct xls_shared_expr {
  uint8_t flags;
  xls_packed_expr_t packed;
  uint16_t array_row;   /* anchor of an array formula */
  uint8_t array_column;
  uint16_t first_row;   /* anchor of a shared formula */
  uint8_t first_column;
  uint16_t last_row;    /* the range the record covers */
  uint8_t last_column;
};

/* The parameter indexes of a function node. */
const uint16_t* xls_expr_params(const xls_expr_t* node);

/* Frees what the nodes own, then the node array (or the owned text of an
 * unparsed formula); the packed form is left empty. */
void xls_packed_expr_free(xls_packed_expr_t* packed);
/* A deep copy; on failure target is empty and the status returned. */
uint32_t xls_packed_expr_copy(xls_packed_expr_t* target,
                              const xls_packed_expr_t* source);

#endif /* XLS_EXPR_H */
