/*
 * xls_formula_codec.h -- BIFF8 formula tokens to trees and back.
 *
 * The reader keeps no bytes: after reading, only the tree exists, and the
 * writer makes the tokens anew.  Tokens that cannot become a tree make the
 * whole formula unreadable (KEL_ERR_UNSUPPORTED); the caller then keeps the
 * cell by its cached result.  A tree that reads but names a function the
 * engine cannot compute, or an array formula, sets *has_unsupported.
 *
 * IF, CHOOSE and the SUM shortcut read as plain function nodes with all
 * their branches; parentheses are dropped and made again from precedence
 * when writing.
 */
#ifndef XLS_FORMULA_CODEC_H
#define XLS_FORMULA_CODEC_H

#include <stdint.h>

#include "formula/xls_expr.h"

struct xls_file;

/* The cell a formula belongs to: relative references are offsets from it. */
struct biff_formula {
  uint16_t row;
  uint16_t column;
};

/* Where a formula is written, which selects token classes and the
 * reference tokens. */
enum xls_write_context_t {
  xls_write_cell = 0,
  xls_write_name = 1,
  xls_write_shared = 2,  /* ptgRefN and ptgAreaN, offsets as they stand */
  xls_write_cond_format = 3,
  xls_write_validation = 4,
  xls_write_array = 5
};

/* xls_expr_adaptor_t: 1 keeps a one-cell three-dimensional range a range. */
enum xls_expr_adaptor_t { xls_adaptor_none = 0, xls_adaptor_keep_ranges = 1 };

/* Reads the token block bytes[0..length) of the formula at formula's cell
 * of sheet into packed (empty on entry).  Array constants stand behind the
 * tokens, up to total_length.  scratch is reused from formula to formula
 * (initialise it with expr_d_init, destroy it when done); the operand stack
 * is the workbook's.  KEL_ERR_UNSUPPORTED for tokens that cannot be read,
 * KEL_ERR_OUT_OF_MEMORY. */
uint32_t expr_read_formula(xls_file* file, xls_sheet_t* sheet, const unsigned char* bytes,
                           uint32_t length, uint32_t total_length,
                           const biff_formula* formula, dynamic_expr_t* scratch,
                           xls_packed_expr_t* packed, bool* has_unsupported);

/* Writes the tokens of packed for the cell (row, column) of sheet into
 * buffer, then the array constants: *token_length gets the tokens' size,
 * *total_length all.  The buffer is the caller's, sized by the record it
 * builds; it is not checked here. */
uint32_t expr_write_formula(xls_file* file, unsigned char* buffer, uint32_t* token_length,
                            uint32_t* total_length, xls_sheet_t* sheet, int32_t row,
                            int32_t column, const xls_packed_expr_t* packed,
                            xls_write_context_t context, xls_expr_adaptor_t adaptor);

/* A function node of scratch for function number, taking its count
 * parameters off the top of the operand stack (stack, described by
 * stack_info), the first pushed becoming the first parameter; its index
 * goes to *index and onto the stack.  A fixed-count function takes the
 * table's count instead, and a count beyond what the stack holds is cut to
 * it.  Number 255 and numbers beyond the table give KEL_ERR_UNSUPPORTED; a
 * function without a handler sets *has_unsupported. */
uint32_t xls_expr_make_function(xls_array_info* stack_info, uint16_t** stack,
                                dynamic_expr_t* scratch, uint32_t number, uint32_t count,
                                uint16_t* index, bool* has_unsupported);

/* The operator token (folded: 0x03 to 0x14) as an op; xop_unknown for
 * another token. */
xls_expr_op_t expr_xls2expr_conv(uint8_t token);

/* ---- Operators ------------------------------------------------------------
 * One table serves the writer (where ptgParen goes) and formula text (where
 * parentheses go).  A binary node needs parentheses when its precedence is
 * not above what its parent passes down; its left operand receives the
 * precedence less left_adjust, its right operand less right_adjust, so that
 * a-b-c needs none while a-(b-c) and (2^3)^4 keep theirs.  A unary operand
 * receives the precedence itself. */
enum xls_expr_op_family_t { xls_op_binary = 0, xls_op_prefix = 1, xls_op_postfix = 2 };
struct xls_expr_op_desc_t {
  const char* text;     /* as printed; the intersection is a blank */
  uint8_t token;        /* the BIFF operator token */
  uint8_t precedence;   /* 1 comparisons, 2 &, 3 + -, 4 * /, 5 ^, 6 %,
                           7 prefix + -, 8 intersection, 9 range */
  uint8_t left_adjust;
  uint8_t right_adjust;
  uint8_t family;       /* xls_expr_op_family_t */
};
/* The row of an operator op; null for an op that is no operator. */
const xls_expr_op_desc_t* xls_expr_op_desc(xls_expr_op_t op);

/* True when node (the root, for a null node) or anything it reaches --
 * behind shared formulas and the definitions of names -- calls a function
 * beyond the table or one without a handler. */
bool xls_expr_contains_unsupported_function(const xls_packed_expr_t* packed,
                                            const xls_expr_t* node);

/* ---- What the reader asks of the workbook ----------------------------------
 * Defined beside the workbook's tables. */

/* The sheets of EXTERNSHEET entry index: for the own workbook the sheets,
 * XLS_DELETED_SHEET for a deleted one, XLS_EXTERN_WORKBOOK (2) for the
 * workbook itself and for any other workbook.  KEL_ERR_EXTERNAL_REFERENCE
 * for an index beyond the table. */
uint32_t xls_externsheet_readref(const xls_file* file, uint16_t index, xls_sheet_t** first,
                                 xls_sheet_t** last);
/* The entry of the own workbook naming first to last, added when there is
 * none.  KEL_ERR_NOT_FOUND for sheets not of this workbook. */
uint32_t xls_externsheet_refindex(xls_file* file, xls_sheet_t* first, xls_sheet_t* last,
                                  uint16_t* index);
/* The defined name of 1-based index, or null. */
xls_expr_named_t* xls_named_get_by_index(const xls_file* file, uint32_t index);
/* The defined name whose text is the length units of text (which need not
 * be terminated), compared without case: the one local to sheet before a
 * global one; *index gets its 1-based index.  Null when there is none. */
xls_expr_named_t* xls_named_get_by_name(const xls_file* file, const xls_sheet_t* sheet,
                                        const unsigned short* text, uint32_t length,
                                        uint32_t* index);

#endif /* XLS_FORMULA_CODEC_H */
