/*
 * cell_lines.h -- the text form of a workbook's cells that `tabulon cells`
 * prints and the conformance tests compare: one line a cell,
 *   SHEET \t A1 \t KIND \t VALUE
 * KIND n, s, b or e (a formula cell: the kind of its cached result);
 * numbers "%.17g"; strings with \\, \t, \r, \n escaped; TRUE or FALSE;
 * errors as their text.  Sheets in order, cells by row then column; empty
 * cells are left out.  With CELL_LINES_FORMATTED a fifth field follows:
 * the text the cell shows through its number format (neutral locale, no
 * limit of width), escaped as strings are.  With CELL_LINES_FORMULAS a
 * formula cell gets a last field: its formula as the engine prints it
 * (neutral locale), starting with "=", escaped as strings are; a formula
 * the engine could not read prints "=" alone.
 */
#ifndef TABULON_CELL_LINES_H
#define TABULON_CELL_LINES_H

#include <stdint.h>
#include <stdio.h>

#include <string>

struct xls_cell_t;
struct xls_file;
struct xls_sheet_t;

/* cell_lines_write's flags */
enum { CELL_LINES_FORMATTED = 0x01, CELL_LINES_FORMULAS = 0x02 };

struct cell_line_t {
  char kind;     /* n, s, b or e */
  bool formula;  /* the value is a formula's cached result */
  std::string value;
};

/* UTF-8 of UTF-16 text, a surrogate pair making one character; a lone
 * surrogate becomes U+FFFD. */
std::string cell_text_utf8(const unsigned short* text);
/* The cell's line fields; false for a cell that shows nothing. */
bool cell_line_describe(const xls_cell_t* cell, cell_line_t* line);
/* The fifth field: the text cell shows in sheet; empty without memory. */
std::string cell_shown_text(xls_sheet_t* sheet, const xls_cell_t* cell);
/* The formula of a formula cell of sheet ("=...", UTF-8, not escaped);
 * empty for any other cell or without memory. */
std::string cell_formula_text(xls_sheet_t* sheet, const xls_cell_t* cell);
/* "A1" style: column letters, then row + 1. */
std::string cell_reference(uint32_t column, uint32_t row);
/* Writes the lines of sheet (every sheet when sheet is negative). */
uint32_t cell_lines_write(xls_file* file, int sheet, int flags, FILE* out);

#endif /* TABULON_CELL_LINES_H */
