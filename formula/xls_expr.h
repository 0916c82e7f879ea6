/*
 * xls_expr.h -- formulas in memory: a flat array of nodes whose children are
 * 16-bit indexes into the same array, the root last.  No node points to
 * another, so a packed form moves by a plain block copy; only constants,
 * long parameter lists and nested arrays own heap memory.
 *
 * While a formula is built (by the BIFF reader, later by the parser) its
 * nodes grow in a dynamic_expr_t; packing fixes them into an
 * xls_packed_expr_t of exact size, removing the holes (xop_unknown) that
 * building left.
 *
 * References keep relative parts as offsets from the formula's cell, so the
 * one expression of a shared formula serves every cell of its group; a
 * position is made with expr_abs_pos, which wraps at the sheet's edges
 * (rows modulo 65536, columns modulo 256) as the file format does.
 */
#ifndef XLS_EXPR_H
#define XLS_EXPR_H

#include <stdint.h>

#include "foundation/kel_geometry.h"
#include "foundation/zuv_array.h"
#include "formula/xls_value.h"

struct xls_shared_expr;
struct xls_apos_sheet;

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

/* A defined name of the workbook.  A name whose definition the reader
 * could not turn into a tree stays unparsed: it is known by its NAME
 * record's offset and evaluates to #NAME?. */
struct xls_expr_named_t {
  int32_t parsed;
  xls_sheet_t* sheet;   /* parsed: the sheet of a local name, null for global */
  uint32_t offset;      /* the NAME record */
  uint16_t flags;       /* the record's option flags */
  unsigned short* name; /* owned; may be null */
  xls_packed_expr_t packed; /* the definition, while parsed */
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
      uint16_t index;           /* 1-based, as in the file */
      xls_expr_named_t* named;  /* not owned */
      uint16_t sheet_ref;       /* xop_namex: the EXTERNSHEET index */
    } name;
    xls_value_t constant;
    xls_cell_ref_t cell;
    xls_shared_expr* shared; /* not owned: the sheet's list holds it */
    struct {
      xls_sheet_t* first;
      xls_sheet_t* last;
      uint16_t sheet_ref; /* the EXTERNSHEET index it was read with */
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
enum {
  XLS_SHARED_ARRAY = 0x01,
  XLS_SHARED_NOT_COMPUTED = 0x02 /* calls what the engine can't compute */
};
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

/* A position packed as the file packs it. */
struct xls_apos {
  uint16_t row;
  uint8_t column;
};

/* ---- Access --------------------------------------------------------------
 * Node accessors don't check the op: the caller has looked at it. */

xls_expr_op_t expr_op(const xls_expr_t* node);
/* Null for an index at or past count. */
xls_expr_t* expr_from_idx(const xls_packed_expr_t* packed, uint32_t index);
/* The last node; null for an empty or unparsed form. */
xls_expr_t* expr_root_expr(const xls_packed_expr_t* packed);
xls_expr_t* expr_binary_left(const xls_packed_expr_t* packed, const xls_expr_t* node);
xls_expr_t* expr_binary_right(const xls_packed_expr_t* packed, const xls_expr_t* node);
xls_expr_t* expr_unary(const xls_packed_expr_t* packed, const xls_expr_t* node);
xls_expr_t* expr_func_param(const xls_packed_expr_t* packed, const xls_expr_t* node,
                            uint32_t i);
uint32_t expr_func_param_count(const xls_expr_t* node);
/* The parameter indexes of a function node. */
const uint16_t* xls_expr_params(const xls_expr_t* node);
/* The function's upper-case English name; null beyond the table. */
const unsigned short* expr_func_name(const xls_expr_t* node);
xls_value_t* expr_constant(xls_expr_t* node);
xls_cell_ref_t* expr_cellref(xls_expr_t* node);
xls_packed_expr_t* expr_array(xls_expr_t* node);
xls_shared_expr* expr_shared_expr(const xls_expr_t* node);
/* The definition of an xop_name (or xop_namex) node's name; null when the
 * name has none. */
xls_packed_expr_t* expr_name_expr(const xls_expr_t* node);
xls_packed_expr_t* expr_name_x_expr(const xls_expr_t* node);
/* True for functions that read a reference's position, not its cells
 * (ROW, COLUMN, ROWS, COLUMNS): they make no dependency. */
bool expr_func_ignore_for_circular(const xls_expr_t* node);

/* Tests on a cell's value: text flags for an unparsed formula, otherwise
 * whether it is one xop_shared node, whose record says array or not. */
bool expr_is_shared_formula_or_array(const xls_value_t* value);
bool expr_is_shared_formula(const xls_value_t* value);
bool expr_is_array(const xls_value_t* value);
bool xls_is_parsed_expr(const xls_packed_expr_t* packed);
/* The record of a one-node xop_shared form; null otherwise. */
xls_shared_expr* expr_shared_expr_from_val(const xls_value_t* value);

/* ---- Building ------------------------------------------------------------ */

struct dynamic_expr_t {
  xls_expr_t* nodes;
  xls_array_info info;
};

/* Null nodes, element size one node: an empty array. */
void expr_d_init(dynamic_expr_t* dynamic);
/* Appends a zeroed node of op (a constant reads bvt_empty); *index gets
 * its index.  KEL_ERR_GENERAL beyond 65535 nodes. */
uint32_t expr_d_create(dynamic_expr_t* dynamic, xls_expr_op_t op, uint16_t* index);
xls_expr_t* expr_d_from_idx(dynamic_expr_t* dynamic, uint32_t index);
/* Frees what the node owns and makes it a hole. */
void expr_d_replace_to_unknown(dynamic_expr_t* dynamic, uint32_t index);
/* Moves the nodes, holes removed, into packed (which must be empty); the
 * dynamic array is left empty.  KEL_ERR_GENERAL when a live node still
 * refers to a hole, KEL_ERR_OUT_OF_MEMORY. */
uint32_t expr_d_to_packed_expr(xls_packed_expr_t* packed, dynamic_expr_t* dynamic);
/* Frees the nodes and what they own. */
void expr_d_destroy(dynamic_expr_t* dynamic);

void expr_set_ptg_binary_family(xls_expr_t* node, uint16_t left, uint16_t right);
void expr_set_ptg_unary_family(xls_expr_t* node, uint16_t operand);
void expr_set_ref_family(xls_expr_t* node, const xls_cell_ref_t* ref);
/* A constant vt_range. */
uint32_t expr_set_area_family(xls_expr_t* node, const xls_range_ref_t* range);
/* Parameters above XLS_EXPR_INLINE_PARAMS get a heap list. */
uint32_t expr_set_func_family(xls_expr_t* node, uint32_t number, const uint16_t* params,
                              uint32_t count);
void expr_set_name(xls_expr_t* node, uint16_t index, xls_expr_named_t* named);
void expr_set_ptg_int(xls_expr_t* node, int32_t number);
void expr_set_ptg_num(xls_expr_t* node, double number);
/* A copy of text (length units; the copy is terminated). */
uint32_t expr_set_ptg_string(xls_expr_t* node, const unsigned short* text, uint32_t length);
void expr_set_ptg_error(xls_expr_t* node, biff_error_t code);
/* A constant bvt_array of empties. */
uint32_t expr_set_array(xls_expr_t* node, uint16_t rows, uint16_t columns);
/* Decodes BIFF row and column fields: bit 15 of the column field says the
 * row is relative, bit 14 the column, the low 8 bits are the column.  A
 * relative part becomes an offset: in the normal form the field less the
 * base; in the shared form (shared true) the field itself, sign-extended
 * from 16 bits for the row and 8 bits for the column. */
void expr_get_ref(uint16_t row_field, uint16_t column_field, int32_t base_row,
                  int32_t base_column, bool shared, xls_cell_ref_t* ref);

/* ---- Editing in place, for changes of the sheet's structure --------------- */

/* The node becomes a constant taking over value. */
void expr_replace_with_constant(xls_expr_t* node, xls_value_t* value);
void expr_replace_with_area_err(xls_expr_t* node);
void expr_replace_with_area_3d_err(xls_expr_t* node, xls_sheet_t* first, xls_sheet_t* last);

/* ---- Lifetime ------------------------------------------------------------ */

/* A new empty packed form on the heap; null without memory. */
xls_packed_expr_t* expr_create();
/* A one-node xop_shared form naming record. */
uint32_t expr_create_shared_expr(xls_packed_expr_t* packed, xls_shared_expr* record);
/* Frees what the nodes own (or the owned text of an unparsed form), and
 * the block of nodes unless free_block is false -- for a caller that has
 * moved the block elsewhere.  The form is left empty. */
void expr_free(xls_packed_expr_t* packed, bool free_block);
/* Frees what one node owns. */
void expr_free(xls_expr_t* node);
/* A stand-alone deep copy: a one-node shared form copies its group's
 * expression (so the copy takes no part in the group); an xop_shared among
 * other nodes fails with KEL_ERR_GENERAL.  On failure target is empty. */
uint32_t expr_copy(xls_packed_expr_t* target, const xls_packed_expr_t* source);
/* The copy of a shared formula's expression for one cell; anything but a
 * shared formula (an array formula too) gives KEL_ERR_GENERAL. */
uint32_t expr_break_shared_formula(const xls_packed_expr_t* source,
                                   xls_packed_expr_t* target);
/* A bit-for-bit deep copy that keeps xop_shared nodes as they are: how a
 * cell's value is copied. */
uint32_t xls_packed_expr_copy(xls_packed_expr_t* target, const xls_packed_expr_t* source);

/* ---- Positions ----------------------------------------------------------- */

/* The position a reference names from base: absolute parts as they are,
 * relative ones added to base and wrapped into 0..65535 and 0..255. */
void expr_abs_pos(cell_t* cell, const xls_cell_ref_t* ref, const cell_t* base);
void expr_abs_pos(xls_apos* cell, const xls_cell_ref_t* ref, const xls_apos* base);
/* As above; the sheet is the reference's, or base's for a null one. */
void expr_aps_pos_sheet(xls_apos_sheet* out, const xls_cell_ref_t* ref,
                        const xls_apos_sheet* base);
/* The two corners' positions from (row, column), ordered. */
void expr_normalize_range(const xls_range_ref_t* range, int32_t column, int32_t row,
                          int32_t* first_row, int32_t* last_row, int32_t* first_column,
                          int32_t* last_column);
/* Orders a rectangle's corners. */
void expr_ref_normalize(cell_rect_t* rect);
/* The ordered rectangle of a range at cell, and its first and last sheet
 * (a null sheet in the reference is sheet).  KEL_ERR_REF for a deleted
 * sheet. */
uint32_t expr_rangeref_normalize(const xls_range_ref_t* range, xls_sheet_t* sheet,
                                 const cell_t* cell, xls_sheet_t** first_sheet,
                                 xls_sheet_t** last_sheet, cell_rect_t* rect);
/* The range of a parsed form whose root is a vt_range constant;
 * KEL_ERR_NOT_FOUND for another root, KEL_ERR_GENERAL for text. */
uint32_t packed_expr_to_range(const xls_packed_expr_t* packed, xls_range_ref_t* range);
/* At cell, every relative reference or range that passes row 65535 or
 * column 255 becomes the error #REF!, in place. */
void bind_relative_references(xls_packed_expr_t* packed, const cell_t* cell);

#endif /* XLS_EXPR_H */
