/*
 * cell_lines.h -- the text form of a workbook's cells that `tabulon cells`
 * prints and the conformance tests compare: one line a cell,
 *   SHEET \t A1 \t KIND \t VALUE
 * KIND n, s, b or e (a formula cell: the kind of its cached result);
 * numbers "%.17g"; strings with \\, \t, \r, \n escaped; TRUE or FALSE;
 * errors as their text.  Sheets in order, cells by row then column; empty
 * cells are left out.
 */
#ifndef TABULON_CELL_LINES_H
#define TABULON_CELL_LINES_H

#include <stdint.h>
#include <stdio.h>

#include <string>

struct xls_cell_t;
struct xls_file;

struct cell_line_t {
  char kind;     /* n, s, b or e */
  bool formula;  /* the value is a formula's cached result */
  std::string value;
};

/* The cell's line fields; false for a cell that shows nothing. */
bool cell_line_describe(const xls_cell_t* cell, cell_line_t* line);
/* "A1" style: column letters, then row + 1. */
std::string cell_reference(uint32_t column, uint32_t row);
/* Writes the lines of sheet (every sheet when sheet is negative). */
uint32_t cell_lines_write(xls_file* file, int sheet, FILE* out);

#endif /* TABULON_CELL_LINES_H */
