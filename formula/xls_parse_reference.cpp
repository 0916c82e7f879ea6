/*
 * A1 references as text: an optional sheet part -- "Data!", "'My sheet'!",
 * "'First:Last'!", "'First':'Last'!", "First:Last!", "[1]Data!" for another
 * workbook, "#REF!" for a deleted sheet -- and a cell part: a cell, two
 * cells with ":", whole rows ("1:3") or whole columns ("A:C").
 *
 * Every reader here takes the text and its length and looks at nothing
 * beyond it, so that a caller can offer a reference a part of a longer text.
 */
#include <stdlib.h>

#include "formula/xls_formula_text.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

/* 1-based limits of a sheet's columns and rows. */
enum { kColumns = 256, kRows = 65536 };

static const unsigned short kRefText[] = {'#', 'R', 'E', 'F', '!', 0};
enum { kRefTextLength = 5 };

bool xls_parser_isalnum(unsigned short c) {
  if (c < 0x80)
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
  /* Latin-1 letters without the multiplication and division signs, and
   * Latin Extended-A and -B. */
  if (c >= 0xC0 && c <= 0x24F) return c != 0xD7 && c != 0xF7;
  /* Greek letters (not the Greek question mark and ano teleia before them). */
  if (c >= 0x386 && c <= 0x3CE) return c != 0x387;
  /* Cyrillic letters, without the thousands sign and the combining marks. */
  if (c >= 0x400 && c <= 0x4FF) return c <= 0x481 || c >= 0x48A;
  return c >= 0x1E00 && c <= 0x1EFF; /* Latin Extended Additional */
}

/* text[i], or 0 at and beyond length. */
static unsigned short char_at(const unsigned short* text, int32_t length, int32_t i) {
  return i < length ? text[i] : 0;
}

static bool is_forbidden_in_name(unsigned short c) {
  return c == '\\' || c == ':' || c == '/' || c == '?' || c == '*' || c == '[' || c == ']';
}

static bool ends_unquoted_name(unsigned short c) {
  switch (c) {
    case ' ': case '\t': case '\n': case '\v': case '\f': case '\r':
    case '!': case '$': case '{': case '}': case ',': case '%': case '&': case '+':
    case '-': case '#': case '|': case '(': case ')': case '`': case '~': case '@':
    case '^': case '=': case ';': case '<': case '>': case '\'': case '"':
      return true;
    default:
      return is_forbidden_in_name(c);
  }
}

/* Units of a workbook part "[...]" at the start of a sheet name, or 0. */
static int32_t book_part_length(const unsigned short* text, int32_t length) {
  if (char_at(text, length, 0) != '[') return 0;
  for (int32_t i = 1; i < length; ++i)
    if (text[i] == ']') return i + 1;
  return 0;
}

/* The length of an unquoted sheet name at text, 0 for none. */
static int32_t find_sheet_end(const unsigned short* text, int32_t length) {
  int32_t i = book_part_length(text, length);
  while (i < length && !ends_unquoted_name(text[i])) ++i;
  return i;
}

/* text follows an opening quote: the length of the name up to the closing
 * quote or to a ":" that separates two names in one pair of quotes, a
 * doubled quote standing for one.  -1 when the text ends first, a forbidden
 * character comes or the name is empty. */
static int32_t find_quoted_sheet_end(const unsigned short* text, int32_t length) {
  int32_t i = book_part_length(text, length);
  for (; i < length; ++i) {
    if (text[i] == '\'') {
      if (char_at(text, length, i + 1) != '\'') break;
      ++i;
    } else if (text[i] == ':') {
      break;
    } else if (is_forbidden_in_name(text[i])) {
      return -1;
    }
  }
  return i < length && i > 0 ? i : -1;
}

/* Resolves one sheet name (length units of text, doubled quotes undone when
 * quoted): a sheet of file, or the text of another workbook's sheet.
 * KEL_ERR_NOT_FOUND when file has no such sheet. */
static uint32_t parse_one_sheet(xls_file* file, const unsigned short* text, int32_t length,
                                bool quoted, xls_sheet_reference* sheet) {
  sheet->index = -1;
  unsigned short* name = ucs2_dupl(text, static_cast<unsigned>(length));
  if (!name) return KEL_ERR_OUT_OF_MEMORY;
  uint32_t name_length = 0;
  for (int32_t i = 0; i < length; ++i) {
    name[name_length++] = text[i];
    if (quoted && text[i] == '\'') ++i;
  }
  name[name_length] = 0;
  if (name[0] == '[') {
    sheet->foreign = name;
    return 0;
  }
  xls_sheet_t* found = xls_find_sheet_by_name(file, name, name_length);
  free(name);
  if (!found) return KEL_ERR_NOT_FOUND;
  sheet->index = xls_sheet_index(file, found);
  return 0;
}

/* One name at text[*at]: quoted or not.  On success *at stands behind it
 * (behind the closing quote of a quoted one, unless it ended at a ":"
 * inside the quotes, *inside set). */
struct name_span {
  int32_t start, length;
  bool quoted;
};

static bool read_name(const unsigned short* text, int32_t length, int32_t* at, name_span* span,
                      bool* inside) {
  *inside = false;
  if (char_at(text, length, *at) == '\'') {
    int32_t end = find_quoted_sheet_end(text + *at + 1, length - *at - 1);
    if (end < 0) return false;
    *span = {*at + 1, end, true};
    *at += 1 + end;
    *inside = text[*at] == ':';
    if (!*inside) *at += 1;
    return true;
  }
  int32_t end = find_sheet_end(text + *at, length - *at);
  if (end == 0) return false;
  *span = {*at, end, false};
  *at += end;
  return true;
}

/* The sheet part at the start of text: on a match the sheets are set in
 * reference and *used stands behind the "!"; otherwise *used is 0. */
static uint32_t parse_sheet_part(xls_file* file, const unsigned short* text, int32_t length,
                                 int32_t* used, xls_reference* reference) {
  *used = 0;
  name_span names[2];
  int32_t at = 0;
  bool inside = false;
  if (!read_name(text, length, &at, &names[0], &inside)) return 0;
  int count = 1;
  if (inside) {
    /* 'First:Last': the second name closes the quotes. */
    ++at;
    int32_t end = find_quoted_sheet_end(text + at, length - at);
    if (end < 0 || text[at + end] != '\'') return 0;
    names[count++] = {at, end, true};
    at += end + 1;
  } else if (char_at(text, length, at) == ':') {
    ++at;
    if (!read_name(text, length, &at, &names[count++], &inside) || inside) return 0;
  }
  if (char_at(text, length, at) != '!') return 0;
  for (int i = 0; i < count; ++i) {
    uint32_t status = parse_one_sheet(file, text + names[i].start, names[i].length,
                                      names[i].quoted, &reference->sheets[i]);
    if (status) return status;
  }
  reference->kind = count == 2 ? XLS_REFERENCE_TWO_SHEETS : XLS_REFERENCE_ONE_SHEET;
  *used = at + 1;
  return 0;
}

/* "#REF!" in any case: its length, or 0. */
static int32_t parse_referr(const unsigned short* text, int32_t length) {
  if (length < kRefTextLength || ucs2_ncmpi(text, kRefText, kRefTextLength) != 0) return 0;
  return kRefTextLength;
}

/* A column: "$" and letters, "A" to "IV".  Its units, or 0. */
static int32_t parse_col(const unsigned short* text, int32_t length, uint32_t* column,
                         bool* relative) {
  int32_t i = char_at(text, length, 0) == '$' ? 1 : 0;
  *relative = i == 0;
  uint32_t value = 0;
  int32_t first = i;
  for (; i < length; ++i) {
    unsigned short c = text[i];
    if (c >= 'a' && c <= 'z') c = static_cast<unsigned short>(c - 'a' + 'A');
    if (c < 'A' || c > 'Z') break;
    value = value * 26 + (c - 'A' + 1);
    if (value > kColumns) return 0;
  }
  if (i == first) return 0;
  *column = value - 1;
  return i;
}

/* A row: "$" and digits, "1" to "65536".  Its units, or 0. */
static int32_t parse_row(const unsigned short* text, int32_t length, uint32_t* row,
                         bool* relative) {
  int32_t i = char_at(text, length, 0) == '$' ? 1 : 0;
  *relative = i == 0;
  uint32_t value = 0;
  int32_t first = i;
  for (; i < length && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + (text[i] - '0');
    if (value > kRows) return 0;
  }
  if (i == first || value == 0) return 0;
  *row = value - 1;
  return i;
}

static xls_cell_reference make_cell(uint32_t row, bool row_relative, uint32_t column,
                                    bool column_relative) {
  xls_cell_reference cell;
  cell.row = static_cast<uint16_t>(row);
  cell.column = static_cast<uint8_t>(column);
  cell.flags = static_cast<uint8_t>((row_relative ? XLS_CELL_REFERENCE_ROW_RELATIVE : 0) |
                                    (column_relative ? XLS_CELL_REFERENCE_COLUMN_RELATIVE : 0));
  return cell;
}

/* The cell part at the start of text: its units, or 0 for none. */
static int32_t parse_cell_part(const unsigned short* text, int32_t length,
                               xls_reference* reference) {
  uint32_t first = 0, second = 0, row = 0;
  bool first_relative = false, second_relative = false, row_relative = false;
  int32_t n = parse_row(text, length, &first, &first_relative), m = 0;
  if (n && char_at(text, length, n) == ':' &&
      (m = parse_row(text + n + 1, length - n - 1, &second, &second_relative))) {
    reference->cells[0] = make_cell(first, first_relative, 0, false);
    reference->cells[1] = make_cell(second, second_relative, kColumns - 1, false);
    reference->has_second = 1;
    return n + 1 + m;
  }
  n = parse_col(text, length, &first, &first_relative);
  if (!n) return 0;
  if (char_at(text, length, n) == ':' &&
      (m = parse_col(text + n + 1, length - n - 1, &second, &second_relative))) {
    reference->cells[0] = make_cell(0, false, first, first_relative);
    reference->cells[1] = make_cell(kRows - 1, false, second, second_relative);
    reference->has_second = 1;
    return n + 1 + m;
  }
  m = parse_row(text + n, length - n, &row, &row_relative);
  if (!m) return 0;
  reference->cells[0] = make_cell(row, row_relative, first, first_relative);
  int32_t at = n + m;
  if (char_at(text, length, at) != ':') return at;
  /* A second corner must follow the ":": "A1:B" is no reference at all. */
  ++at;
  if ((n = parse_referr(text + at, length - at))) {
    reference->cells[1].flags = XLS_CELL_REFERENCE_ERROR;
    reference->has_second = 1;
    return at + n;
  }
  n = parse_col(text + at, length - at, &second, &second_relative);
  m = n ? parse_row(text + at + n, length - at - n, &row, &row_relative) : 0;
  if (!m) return 0;
  reference->cells[1] = make_cell(row, row_relative, second, second_relative);
  reference->has_second = 1;
  return at + n + m;
}

uint32_t xls_parse_reference(xls_file* file, const unsigned short* text, int32_t length,
                             int32_t* used, bool* is_reference, xls_reference* reference) {
  *used = 0;
  *is_reference = false;
  *reference = xls_reference{};
  reference->sheets[0].index = reference->sheets[1].index = -1;
  if (length < 0) length = static_cast<int32_t>(ucs2_len(text));

  int32_t sheet_part = parse_referr(text, length);
  if (sheet_part) {
    reference->kind = XLS_REFERENCE_DELETED_SHEET;
    reference->sheets[0].is_ref_error = 1;
  } else {
    uint32_t status = parse_sheet_part(file, text, length, &sheet_part, reference);
    if (status) {
      xls_free_reference(reference);
      return status;
    }
  }
  *used = sheet_part;
  int32_t cells = parse_cell_part(text + sheet_part, length - sheet_part, reference);
  /* A reference that runs on into a word ("A1B", "A1_x", "A1.5") is none. */
  unsigned short next = char_at(text, length, sheet_part + cells);
  if (!cells || xls_parser_isalnum(next) || next == '_' || next == '.') {
    xls_free_reference(reference);
    return 0;
  }
  *used = sheet_part + cells;
  *is_reference = true;
  return 0;
}

void xls_free_reference(xls_reference* reference) {
  for (xls_sheet_reference& sheet : reference->sheets) {
    free(sheet.foreign);
    sheet.foreign = nullptr;
  }
}

static uint32_t span(uint32_t a, uint32_t b) { return (a > b ? a - b : b - a) + 1; }

uint32_t kel_num_reference_rows(const xls_reference* reference) {
  return reference->has_second ? span(reference->cells[0].row, reference->cells[1].row) : 1;
}

uint32_t kel_num_reference_cols(const xls_reference* reference) {
  return reference->has_second ? span(reference->cells[0].column, reference->cells[1].column)
                               : 1;
}
