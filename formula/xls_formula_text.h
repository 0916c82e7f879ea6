/*
 * xls_formula_text.h -- formulas as the user reads and types them.
 *
 * xls_parser turns text into a packed expression standing at a cell;
 * xls_expr_to_input_str turns a packed expression back into text.  Both
 * follow a locale: its argument separator (";" always, "," too when the
 * decimal separator is "."), its function names and its texts of true,
 * false and the errors.  A null locale is the neutral form -- English names,
 * "," between arguments, "." for decimals -- which the OOXML reader and the
 * text round trip use.
 *
 * References are A1 style: columns A to IV, rows 1 to 65536, "$" for an
 * absolute part, whole rows (1:3) and whole columns (A:C), a sheet prefix
 * quoted ('My sheet'!A1) or not (Data!A1), a span of sheets
 * ('First:Last'!A1), and "#REF!" for a deleted sheet or cell.
 *
 * Texts are UTF-16, terminated, heap memory of the caller's unless said
 * otherwise.
 */
#ifndef XLS_FORMULA_TEXT_H
#define XLS_FORMULA_TEXT_H

#include <stdint.h>

#include "formula/xls_expr.h"

struct ucs2_str_builder;
struct xls_file;
struct xls_locale;
struct xls_orange;
struct xls_sheet_t;

/* ---- Parsing --------------------------------------------------------------- */

/* xls_parser_error_t.code */
enum xls_parser_error_code {
  XLS_PARSE_OK = 0,
  XLS_PARSE_STRING_NOT_CLOSED = 1, /* from the opening quote to the end */
  XLS_PARSE_BAD_NUMBER = 2,        /* the number */
  XLS_PARSE_EMPTY_PARENS = 3,      /* the two characters before the position */
  XLS_PARSE_UNION = 4,             /* "(1,2)": the two characters before it */
  XLS_PARSE_UNOPENED_PAREN = 5,    /* that character */
  XLS_PARSE_UNCLOSED_PAREN = 6,    /* the end of the text */
  XLS_PARSE_EARLY_END = 7,         /* the end of the text */
  XLS_PARSE_UNEXPECTED = 8,        /* that character */
  XLS_PARSE_TOO_FEW_ARGS = 10,     /* the position */
  XLS_PARSE_TOO_MANY_ARGS = 11,    /* the position */
  XLS_PARSE_BAD_ARRAY = 12         /* the position */
};

/* Where a parse failed, in characters from the start of the text. */
struct xls_parser_error_t {
  uint32_t code; /* xls_parser_error_code */
  uint32_t start;
  uint32_t end;
};

/* Parses text (no leading "=") as the formula of the cell at row, column
 * of sheet; on success packed (empty on entry) holds the expression, its
 * relative references as offsets from that cell.  Sheets named in
 * references get EXTERNSHEET entries.
 *
 * A syntax error gives KEL_ERR_GENERAL with error set.  A word that is no
 * value, no defined name and no function (at this place), or a sheet that
 * does not exist, gives KEL_ERR_GENERAL with error code 0; a reference to
 * another workbook KEL_ERR_EXTERNAL_REFERENCE, and a lack of memory --
 * inside a rule, or nesting beyond the parser's stack of 10000 states --
 * KEL_ERR_OUT_OF_MEMORY, both with error code 0. */
uint32_t xls_parser(const unsigned short* text, const xls_locale* locale,
                    xls_sheet_t* sheet, int32_t row, int32_t column,
                    xls_parser_error_t* error, xls_packed_expr_t* packed);

/* The characters of words and names besides "_", "$" and ".": ASCII
 * letters and digits, and the Latin, Greek and Cyrillic letters. */
bool xls_parser_isalnum(unsigned short c);

/* xls_reference.kind */
enum xls_reference_kind {
  XLS_REFERENCE_NO_SHEET = 0,
  XLS_REFERENCE_DELETED_SHEET = 1,
  XLS_REFERENCE_ONE_SHEET = 2,
  XLS_REFERENCE_TWO_SHEETS = 3
};

/* A sheet of a reference: a sheet index of the workbook, or the text of a
 * sheet of another workbook ("[1]Sheet"). */
struct xls_sheet_reference {
  int32_t index;         /* -1 when foreign or deleted */
  unsigned short* foreign; /* owned; null unless foreign */
  uint8_t is_ref_error;  /* "#REF!" stood here */
};

/* xls_cell_reference.flags */
enum {
  XLS_CELL_REFERENCE_ERROR = 0x01,
  XLS_CELL_REFERENCE_COLUMN_RELATIVE = 0x02,
  XLS_CELL_REFERENCE_ROW_RELATIVE = 0x04
};

struct xls_cell_reference {
  uint16_t row;
  uint8_t column;
  uint8_t flags; /* XLS_CELL_REFERENCE_ */
};

/* A reference as text gives it, before it is tied to a cell. */
struct xls_reference {
  uint32_t kind; /* xls_reference_kind */
  xls_sheet_reference sheets[2];
  xls_cell_reference cells[2];
  uint8_t has_second; /* cells[1] was given */
};

/* Reads a reference at the start of text (length -1: the whole string),
 * sheet names resolved in file.  With one, *is_reference is true, *used
 * counts its characters and the caller frees reference by
 * xls_free_reference.  With none -- a reference that runs on into a word,
 * like "A1B" or "A1.5", and "A1:B" are none -- status 0, *is_reference
 * false, nothing to free, and *used stands behind any sheet part that was
 * read.  A sheet name that names no sheet of file gives KEL_ERR_NOT_FOUND. */
uint32_t xls_parse_reference(xls_file* file, const unsigned short* text, int32_t length,
                             int32_t* used, bool* is_reference, xls_reference* reference);
void xls_free_reference(xls_reference* reference);
/* The size of a reference: 1 for a single cell. */
uint32_t kel_num_reference_rows(const xls_reference* reference);
uint32_t kel_num_reference_cols(const xls_reference* reference);

/* ---- Printing -------------------------------------------------------------- */

/* "=" and the expression of packed standing at row, column of sheet, with
 * the locale's names and separators; an array formula as "{=...}", its
 * references read from the group's anchor.  *text gets a heap string, null
 * on failure: KEL_ERR_GENERAL for a form without a tree (kept as text or
 * only by its result), a broken node, or a text beyond 65534 characters;
 * KEL_ERR_OUT_OF_MEMORY.
 *
 * References show where they point from the cell.  A range is ordered,
 * each corner part keeping its own "$"; over all columns it prints as rows
 * (1:2), over all rows as columns (A:B), and as one cell when its corners
 * are the same, "$" included.
 *
 * Constants show as in the formula bar (xls_formula_bar.h): numbers in
 * their shortest text with the locale's decimal separator, strings in
 * double quotes (a backslash before " and \, an apostrophe doubled).
 * Array constants separate columns by "," and rows by ";" in every locale.
 * A name without text, and a function beyond the table, print "#NAME?"; a
 * reference into another workbook or one lost by an edit "#REF!", and one
 * on a deleted sheet "#REF!" in place of the sheet ("#REF!A1"). */
uint32_t xls_expr_to_input_str(xls_sheet_t* sheet, int32_t row, int32_t column,
                               const xls_packed_expr_t* packed, unsigned short** text,
                               const xls_locale* locale);
/* Appends node of packed to builder, as above without the "="; an operator
 * is put in parentheses unless its precedence is above parent_precedence
 * (0 for a whole formula or an argument), by the table of
 * xls_expr_op_desc -- except a sign under a sign and a percent under a
 * percent ("--A1", "A1%%"), which read back as they stand. */
uint32_t xls_expr_recursive_to_str(ucs2_str_builder* builder, xls_sheet_t* sheet,
                                   int32_t row, int32_t column,
                                   const xls_packed_expr_t* packed, const xls_expr_t* node,
                                   uint32_t parent_precedence, const xls_locale* locale);
/* Appends the letters of a column (0 is "A", 26 "AA"), with no limit. */
uint32_t xls_expr_render_colname(ucs2_str_builder* builder, uint32_t column);

/* Plain A1 texts of a position and a range, at most two letters: a range
 * over all columns prints as rows ("1:3"), over all rows as columns
 * ("A:C"), with equal corners as one cell; a position beyond the sheet
 * counts as its last row or column.  text holds at least 16 characters. */
void xls_printf_apos(unsigned short* text, const xls_apos* position);
void xls_printf_range(unsigned short* text, const xls_orange* range);
/* The range text of a sort, as xls_printf_range. */
void xls_get_sort_range_string(const xls_orange* range, unsigned short* text);

#endif /* XLS_FORMULA_TEXT_H */
