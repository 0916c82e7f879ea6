/*
 * Rows and columns of a sheet.  ROW records are never loaded: a row is found
 * in the file through INDEX and its DBCELL, with two reads and a walk of at
 * most 32 records.  Row positions come from two levels of running sums: a
 * grid of 256-row blocks, an estimate laid at open, and a window of 256
 * exact tops around the rows in view.
 */
#include <string.h>

#include "compound/kel_io_stack.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

static void default_row(uint16_t row, biff_row_v2* result) {
  *result = biff_row_v2{};
  result->row = row;
  result->height = BIFF_ROW_DEFAULT_HEIGHT;
  result->flags = 0x100;
}

static void parse_row(const unsigned char* body, biff_row_v2* result) {
  result->row = get_le16(body);
  result->first_col = get_le16(body + 2);
  result->last_col = get_le16(body + 4);
  result->height = get_le16(body + 6);
  result->flags = get_le16(body + 12);
  result->xf = get_le16(body + 14);
}

/* The first ROW record of the block of dbcell and the bytes from there to
 * the DBCELL; false if dbcell is no DBCELL or points nowhere sensible. */
static bool block_rows(zuv_io* stream, uint32_t dbcell, uint32_t* first_row_offset,
                       uint16_t* dbcell_length) {
  uint16_t id = 0;
  uint32_t distance = 0;
  if (kel_read_header(stream, dbcell, &id, dbcell_length) || id != BIFF_DBCELL ||
      *dbcell_length < 4 || io_read_le32(stream, dbcell + 4, &distance))
    return false;
  if (distance < BIFF_ROW_SIZE || distance > dbcell) return false;
  *first_row_offset = dbcell - distance;
  return true;
}

uint32_t xls_read_ROW_v2(const xls_pool*, zuv_io* stream, uint32_t index_offset,
                         uint16_t row, biff_row_v2* result, bool* not_found) {
  default_row(row, result);
  if (not_found) *not_found = true;
  if (!index_offset) return 0;
  uint16_t length = 0;
  uint32_t first = 0, last = 0, dbcell = 0;
  uint32_t status = kel_read_header(stream, index_offset, nullptr, &length);
  if (!status) status = io_read_le32(stream, index_offset + 8, &first);
  if (!status) status = io_read_le32(stream, index_offset + 12, &last);
  if (status) return status;
  if (row < first || row >= last) return 0;
  uint32_t entry = 20 + 4 * ((row - first) >> 5);
  if (entry + 4 > 4u + length) return 0;
  status = io_read_le32(stream, index_offset + entry, &dbcell);
  if (status) return status;
  uint32_t offset = 0;
  uint16_t dbcell_length = 0;
  if (!block_rows(stream, dbcell, &offset, &dbcell_length)) return 0;
  for (; offset + BIFF_ROW_SIZE <= dbcell; offset += BIFF_ROW_SIZE) {
    uint16_t id = 0;
    status = kel_read_header(stream, offset, &id, nullptr);
    if (status) return status;
    if (id != BIFF_ROW) break;
    unsigned char body[BIFF_ROW_SIZE - 4];
    uint32_t got = stream->read(stream->context, body, sizeof body, offset + 4, &status);
    if (got != sizeof body) return status ? status : KEL_ERR_END_OF_FILE;
    uint16_t found = get_le16(body);
    if (found > row) break;
    if (found == row) {
      parse_row(body, result);
      if (not_found) *not_found = false;
      break;
    }
  }
  return 0;
}

static uint32_t get_row_height(const xls_sheet_t* sheet, const biff_row_v2* row) {
  if (row->flags & BIFF_ROW_HIDDEN) return 0;
  if (row->height & BIFF_ROW_DEFAULT_HEIGHT) return sheet->default_row_height;
  return row->height;
}

/* A row that can't be read is shown at the default height: the view goes
 * on painting. */
static uint32_t read_row_height(xls_sheet_t* sheet, uint16_t row) {
  biff_row_v2 record;
  if (xls_read_ROW_v2(&sheet->workbook->pool, sheet->workbook->stream, sheet->index_offset,
                      row, &record, nullptr))
    return sheet->default_row_height;
  return get_row_height(sheet, &record);
}

bool xls_is_row_hidden(xls_sheet_t* sheet, uint16_t row) {
  biff_row_v2 record;
  if (xls_read_ROW_v2(&sheet->workbook->pool, sheet->workbook->stream, sheet->index_offset,
                      row, &record, nullptr))
    return false;
  return (record.flags & BIFF_ROW_HIDDEN) != 0;
}

uint16_t xls_get_default_row_height(const xls_sheet_t* sheet) {
  return sheet->default_row_height;
}

uint32_t xls_read_height_grid(const xls_pool*, zuv_io* stream, unsigned char* buffer,
                              unsigned char* second_buffer, uint32_t index_offset,
                              uint16_t default_height, uint32_t* grid) {
  uint32_t first = 0, last = 0, entries = 0;
  if (index_offset) {
    uint32_t status = kel_read_record(stream, index_offset, buffer, 0xFFFF);
    if (status) return status;
    uint16_t length = get_le16(buffer + 2);
    if (length < 4) return KEL_ERR_GENERAL;
    if (length >= 12) {
      first = get_le32(buffer + 8);
      last = get_le32(buffer + 12);
    }
    entries = length >= 16 ? (length - 16u) / 4u : 0;
  }
  memset(grid, 0, XLS_HEIGHT_GRID * sizeof *grid);
  if (first >= last) {
    for (uint32_t k = 0; k < XLS_HEIGHT_GRID; ++k) grid[k] = (k + 1) * 256u * default_height;
    return 0;
  }
  // Rows are counted one after the other from the first row, each ROW
  // record taking the next: rows missing between two records of a block
  // aren't counted.  A fast estimate; the window works out exact tops.
  uint32_t row = 0;
  auto add_defaults_until = [&](uint32_t end) {
    for (; row < end && row < XLS_MAX_ROWS; ++row) grid[row >> 8] += default_height;
  };
  add_defaults_until(first);
  const uint32_t capacity = XLS_RECORD_BUFFER / BIFF_ROW_SIZE;
  for (uint32_t i = 0; i < entries && row < XLS_MAX_ROWS; ++i) {
    uint32_t dbcell = get_le32(buffer + 20 + 4 * i);
    uint32_t offset = 0;
    uint16_t length = 0;
    // A block that can't be found counts as default rows.
    if (!block_rows(stream, dbcell, &offset, &length)) continue;
    uint32_t count = (length - 4u) / 2u;
    if (count > capacity) count = capacity;
    if ((dbcell - offset) / BIFF_ROW_SIZE < count) count = (dbcell - offset) / BIFF_ROW_SIZE;
    uint32_t status = 0, size = count * BIFF_ROW_SIZE;
    if (stream->read(stream->context, second_buffer, size, offset, &status) != size)
      return status ? status : KEL_ERR_END_OF_FILE;
    // The bodies came deciphered, but headers are never enciphered: in an
    // encrypted workbook they must be read again, plain.
    for (uint32_t r = 0; r < count; ++r) {
      uint16_t id = 0;
      status = kel_read_header(stream, offset + r * BIFF_ROW_SIZE, &id, nullptr);
      if (status) return status;
      second_buffer[r * BIFF_ROW_SIZE] = static_cast<unsigned char>(id);
      second_buffer[r * BIFF_ROW_SIZE + 1] = static_cast<unsigned char>(id >> 8);
    }
    for (uint32_t r = 0; r < count && row < XLS_MAX_ROWS; ++r) {
      const unsigned char* record = second_buffer + r * BIFF_ROW_SIZE;
      if (get_le16(record) != BIFF_ROW) break;
      biff_row_v2 parsed;
      parse_row(record + 4, &parsed);
      uint32_t height = (parsed.flags & BIFF_ROW_HIDDEN) ? 0
                        : (parsed.height & BIFF_ROW_DEFAULT_HEIGHT) ? default_height
                                                                    : parsed.height;
      grid[row >> 8] += height;
      row += 1;
    }
  }
  add_defaults_until(XLS_MAX_ROWS);
  for (uint32_t k = 1; k < XLS_HEIGHT_GRID; ++k) grid[k] += grid[k - 1];
  return 0;
}

static void empty_height_window(xls_sheet_t* sheet) {
  sheet->height_window_first = 0;
  for (uint32_t& top : sheet->height_window) top = XLS_HEIGHT_UNKNOWN;
}

uint32_t cache_sheet_heights(xls_sheet_t* sheet) {
  xls_file* file = sheet->workbook;
  uint32_t status = xls_read_height_grid(&file->pool, file->stream, file->record,
                                         file->second_record, sheet->index_offset,
                                         sheet->default_row_height, sheet->height_grid);
  empty_height_window(sheet);
  return status;
}

/* Moves the window so that it starts at first, keeping the tops that both
 * windows hold. */
static void slide_window(xls_sheet_t* sheet, uint32_t first) {
  uint32_t* window = sheet->height_window;
  uint32_t old_first = sheet->height_window_first;
  if (first < old_first) {
    uint32_t shift = old_first - first;
    for (int i = XLS_HEIGHT_WINDOW - 1; i >= 0; --i)
      window[i] = static_cast<uint32_t>(i) >= shift ? window[i - shift] : XLS_HEIGHT_UNKNOWN;
  } else {
    uint32_t shift = first - old_first;
    for (uint32_t i = 0; i < XLS_HEIGHT_WINDOW; ++i)
      window[i] = i + shift < XLS_HEIGHT_WINDOW ? window[i + shift] : XLS_HEIGHT_UNKNOWN;
  }
  sheet->height_window_first = static_cast<uint16_t>(first);
}

uint32_t xls_get_row_height(xls_sheet_t* sheet, uint16_t row, uint32_t* top) {
  uint32_t first = sheet->height_window_first;
  if (row < first) slide_window(sheet, row);
  else if (row > first + 254) slide_window(sheet, row - 254u);
  first = sheet->height_window_first;
  uint32_t* window = sheet->height_window;
  uint32_t index = row - first;
  if (window[index] == XLS_HEIGHT_UNKNOWN || window[index + 1] == XLS_HEIGHT_UNKNOWN) {
    int known = static_cast<int>(index);
    while (known >= 0 && window[known] == XLS_HEIGHT_UNKNOWN) --known;
    if (known < 0) {
      // A new start, from the grid's estimate of the block the window
      // begins in.  Tops kept behind the row came from another start, and
      // the two needn't chain: the known tops always stay one run.
      for (uint32_t& entry : sheet->height_window) entry = XLS_HEIGHT_UNKNOWN;
      uint32_t y = 0, from = 0;
      if (first >= 256) {
        y = sheet->height_grid[(first >> 8) - 1];
        from = first & 0xFF00;
      }
      for (uint32_t r = from; r < first; ++r) y += read_row_height(sheet, static_cast<uint16_t>(r));
      window[0] = y;
      known = 0;
    }
    for (uint32_t i = static_cast<uint32_t>(known); i <= index; ++i)
      window[i + 1] = window[i] + read_row_height(sheet, static_cast<uint16_t>(first + i));
  }
  if (top) *top = window[index];
  return window[index + 1] - window[index];
}

uint32_t xls_find_row(xls_sheet_t* sheet, uint32_t y) {
  uint32_t block = 0;
  while (block < XLS_HEIGHT_GRID && sheet->height_grid[block] <= y) ++block;
  if (block == XLS_HEIGHT_GRID) return 0xFFFF;
  uint32_t sum = block ? sheet->height_grid[block - 1] : 0;
  uint32_t row = block * 256;
  for (uint32_t end = row + 255; row < end; ++row) {
    sum += xls_get_row_height(sheet, static_cast<uint16_t>(row), nullptr);
    if (sum > y) break;
  }
  return row;
}

/* Stored widths below 4 are no widths: such a column shows the default. */
static uint32_t col_width(const xls_sheet_t* sheet, uint32_t column) {
  uint32_t width = sheet->default_col_width;
  if (column < XLS_MAX_COLUMNS && sheet->columns[column].present) {
    const xls_column_t& info = sheet->columns[column];
    if (info.flags & XLS_COLUMN_HIDDEN) return 0;
    if (info.width >= 4) width = info.width;
  }
  return sheet->workbook->default_zero_char_twips * width >> 8;
}

uint32_t xls_get_col_width(const xls_sheet_t* sheet, uint8_t column, uint32_t* left) {
  if (left) {
    *left = 0;
    for (uint32_t c = 0; c < column; ++c) *left += col_width(sheet, c);
  }
  return col_width(sheet, column);
}

static void make_column_present(xls_column_t* info, uint16_t flags) {
  if (info->present) return;
  info->present = 1;
  info->flags = flags;
  info->width = 0;
  info->xf = 15;
}

uint32_t xls_set_col_width(xls_sheet_t* sheet, uint8_t column, uint32_t twips) {
  xls_column_t* info = &sheet->columns[column];
  make_column_present(info, 0);
  uint32_t zero_char = sheet->workbook->default_zero_char_twips;
  if (zero_char) info->width = static_cast<uint16_t>(twips * 256 / zero_char);
  return 0;
}

uint32_t xls_hide_col(xls_sheet_t* sheet, uint8_t column, bool hide) {
  if (sheet->sheet_protected) return KEL_ERR_SHEET_PROTECTED;
  xls_column_t* info = &sheet->columns[column];
  if (!info->present) {
    if (hide) make_column_present(info, XLS_COLUMN_HIDDEN);
    return 0;
  }
  if (hide) info->flags |= XLS_COLUMN_HIDDEN;
  else info->flags &= ~XLS_COLUMN_HIDDEN;
  return 0;
}

bool xls_is_col_hidden(const xls_sheet_t* sheet, uint8_t column) {
  const xls_column_t& info = sheet->columns[column];
  return info.present && (info.flags & XLS_COLUMN_HIDDEN);
}
