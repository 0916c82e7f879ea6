/*
 * Rows and columns of a sheet.  ROW records are never loaded: a row is found
 * in the file through INDEX and its DBCELL, with two reads and a walk of at
 * most 32 records.  Row positions come from two levels of running sums: a
 * grid of 256-row blocks, an estimate laid at open, and a window of 256
 * exact tops around the rows in view.  A change of a row's height or
 * hiding goes into its ROW record in the stream's overlay.
 */
#include <string.h>

#include "compound/kel_io_stack.h"
#include "foundation/zuv_iodiff.h"
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

/* Whether the ROW records of block k (from the DBCELL at dbcell) all lie
 * in the block's 32 rows from first + 32k. */
static bool block_is_sound(zuv_io* stream, uint32_t dbcell, uint32_t first, uint32_t k) {
  uint16_t id = 0, length = 0;
  uint32_t distance = 0;
  if (kel_read_header(stream, dbcell, &id, &length) || id != BIFF_DBCELL || length < 4 ||
      io_read_le32(stream, dbcell + 4, &distance))
    return false;
  if (distance == 0) return true;  // a block without rows
  uint32_t offset = 0;
  if (!block_rows(stream, dbcell, &offset, &length)) return false;
  for (; offset + BIFF_ROW_SIZE <= dbcell; offset += BIFF_ROW_SIZE) {
    uint16_t row = 0;
    if (kel_read_header(stream, offset, &id, nullptr)) return false;
    if (id != BIFF_ROW) break;
    if (io_read_le16(stream, offset + 4, &row) || row < first + 32 * k || row > first + 32 * k + 31)
      return false;
  }
  return true;
}

bool xls_index_is_sound(zuv_io* stream, uint32_t index_offset) {
  uint16_t length = 0;
  uint32_t first = 0, last = 0;
  if (kel_read_header(stream, index_offset, nullptr, &length) || length < 16 ||
      io_read_le32(stream, index_offset + 8, &first) || io_read_le32(stream, index_offset + 12, &last))
    return false;
  uint32_t blocks = first < last ? (last - first + 31) / 32 : 0;
  if (length != 16 + 4 * blocks) return false;
  for (uint32_t k = 0; k < blocks; ++k) {
    uint32_t dbcell = 0;
    if (io_read_le32(stream, index_offset + 20 + 4 * k, &dbcell) ||
        !block_is_sound(stream, dbcell, first, k))
      return false;
  }
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

/* The ROW record of row among the runs of a sheet without INDEX; runs are
 * walked all, as a writer may not keep them in order of rows. */
static uint32_t read_ROW_from_runs(xls_sheet_t* sheet, uint16_t row, biff_row_v2* result,
                                   bool* not_found, uint32_t* record_offset) {
  zuv_io* stream = sheet->workbook->stream;
  const xls_row_run_t* runs = static_cast<const xls_row_run_t*>(sheet->row_runs.data);
  for (int i = 0; i < sheet->row_runs.count; ++i) {
    const xls_row_run_t& run = runs[i];
    if (run.first_row > row || row - run.first_row >= run.count) continue;
    uint32_t offset = run.offset;
    for (uint32_t k = 0; k < run.count; ++k, offset += BIFF_ROW_SIZE) {
      uint16_t id = 0, length = 0;
      uint32_t status = kel_read_header(stream, offset, &id, &length);
      if (status) return status;
      if (id != BIFF_ROW || length < BIFF_ROW_SIZE - 4) break;
      unsigned char body[BIFF_ROW_SIZE - 4];
      uint32_t got = stream->read(stream->context, body, sizeof body, offset + 4, &status);
      if (got != sizeof body) return status ? status : KEL_ERR_END_OF_FILE;
      uint16_t found = get_le16(body);
      if (found == row) {
        parse_row(body, result);
        if (not_found) *not_found = false;
        if (record_offset) *record_offset = offset;
        return 0;
      }
    }
  }
  return 0;
}

uint32_t xls_sheet_read_ROW(xls_sheet_t* sheet, uint16_t row, biff_row_v2* result,
                            bool* not_found, uint32_t* offset) {
  xls_file* file = sheet->workbook;
  if (sheet->index_offset || !sheet->row_runs.count)
    return xls_read_ROW_v2(&file->pool, file->stream, sheet->index_offset, row, result,
                           not_found);
  default_row(row, result);
  if (not_found) *not_found = true;
  return read_ROW_from_runs(sheet, row, result, not_found, offset);
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
  if (xls_sheet_read_ROW(sheet, row, &record, nullptr, nullptr))
    return sheet->default_row_height;
  return get_row_height(sheet, &record);
}

bool xls_is_row_hidden(xls_sheet_t* sheet, uint16_t row) {
  biff_row_v2 record;
  if (xls_sheet_read_ROW(sheet, row, &record, nullptr, nullptr)) return false;
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

/* The grid of a sheet without INDEX, exact since every run knows its rows. */
static uint32_t height_grid_from_runs(xls_sheet_t* sheet) {
  uint32_t* grid = sheet->height_grid;
  uint32_t default_height = sheet->default_row_height;
  for (uint32_t k = 0; k < XLS_HEIGHT_GRID; ++k) grid[k] = 256u * default_height;
  zuv_io* stream = sheet->workbook->stream;
  unsigned char* buffer = sheet->workbook->second_record;
  const xls_row_run_t* runs = static_cast<const xls_row_run_t*>(sheet->row_runs.data);
  // A run's records lie end to end: they are read a buffer at a time.  The
  // bodies come deciphered; the headers, never enciphered, are not looked at.
  const uint32_t capacity = XLS_RECORD_BUFFER / BIFF_ROW_SIZE;
  for (int i = 0; i < sheet->row_runs.count; ++i) {
    uint32_t offset = runs[i].offset;
    for (uint32_t left = runs[i].count; left > 0;) {
      uint32_t count = left < capacity ? left : capacity;
      uint32_t status = 0, size = count * BIFF_ROW_SIZE;
      if (stream->read(stream->context, buffer, size, offset, &status) != size)
        return status ? status : KEL_ERR_END_OF_FILE;
      for (uint32_t k = 0; k < count; ++k) {
        biff_row_v2 row;
        parse_row(buffer + k * BIFF_ROW_SIZE + 4, &row);
        grid[row.row >> 8] += get_row_height(sheet, &row) - default_height;
      }
      offset += size;
      left -= count;
    }
  }
  for (uint32_t k = 1; k < XLS_HEIGHT_GRID; ++k) grid[k] += grid[k - 1];
  return 0;
}

uint32_t cache_sheet_heights(xls_sheet_t* sheet) {
  xls_file* file = sheet->workbook;
  if (!sheet->index_offset && sheet->row_runs.count) {
    empty_height_window(sheet);
    return height_grid_from_runs(sheet);
  }
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

/* ---- Row edits -------------------------------------------------------------
 *
 * A row has no home but its ROW record, so a change is written into the
 * stream's overlay at once.  A row that has a record is overwritten in
 * place.  One without gets a record in its block (block k holds the rows
 * first + 32k to first + 32k + 31 of INDEX's first row), blocks being made
 * where it has none; the bytes inserted move every record behind them, and
 * move_offsets brings the offsets the workbook keeps along.
 */

static uint32_t write_bytes(zuv_io* stream, uint32_t at, const void* bytes, uint32_t size) {
  uint32_t status = 0;
  if (stream->write(stream->context, bytes, size, at, &status) != size)
    return status ? status : KEL_ERR_GENERAL;
  return 0;
}

/* Offsets the workbook keeps of records behind a change at position in a
 * sheet's substream: delta bytes inserted there, or -delta bytes removed.
 * Only sheets' records lie behind a sheet's bytes; the globals lie before.
 * A sheet's BOF is written into its BOUNDSHEET too, and each INDEX's
 * DBCELL entries move with their records. */
static uint32_t move_offsets(xls_file* file, uint32_t position, int32_t delta) {
  uint32_t from = delta < 0 ? position - delta : position;
  auto move = [&](uint32_t* offset) {
    if (*offset >= from) *offset += delta;
  };
  zuv_io* stream = file->stream;
  for (int i = 0; i < file->sheets_info.count; ++i) {
    xls_sheet_t* sheet = file->sheets[i];
    if (sheet->cached) continue;
    if (sheet->bof_offset >= from) {
      move(&sheet->bof_offset);
      uint32_t status = io_write_le32(stream, sheet->boundsheet_offset + 4, sheet->bof_offset);
      if (status) return status;
    }
    move(&sheet->window2_offset);
    if (sheet->note_offset) move(&sheet->note_offset);
    if (sheet->merged_offset) move(&sheet->merged_offset);
    for (int c = 0; c < sheet->charts.count; ++c)
      move(static_cast<uint32_t*>(xls_array_access(&sheet->charts, c)));
    if (!sheet->index_offset) continue;
    move(&sheet->index_offset);
    // The entries are written back in one piece from the first that moved.
    unsigned char* entries = file->second_record;
    uint16_t length = 0;
    uint32_t status = kel_read_header(stream, sheet->index_offset, nullptr, &length);
    uint32_t size = length >= 16 ? (length - 16u) / 4u * 4u : 0;
    if (!status && stream->read(stream->context, entries, size, sheet->index_offset + 20,
                                &status) != size)
      return status ? status : KEL_ERR_END_OF_FILE;
    uint32_t moved = size;
    for (uint32_t at = 0; at < size; at += 4) {
      uint32_t dbcell = get_le32(entries + at);
      if (dbcell < from) continue;
      put_le32(entries + at, dbcell + delta);
      if (moved == size) moved = at;
    }
    if (moved < size)
      status = write_bytes(stream, sheet->index_offset + 20 + moved, entries + moved, size - moved);
    if (status) return status;
  }
  return 0;
}

static io_diff* overlay_of(xls_file* file) {
  zuv_io* stream = file->stream;
  zuv_io* layer = stream->get_base ? stream->get_base(stream, ZUV_IO_LEVEL_DIFF) : nullptr;
  return layer ? static_cast<io_diff*>(layer->context) : nullptr;
}

static uint32_t insert_bytes(xls_file* file, uint32_t at, const void* bytes, uint32_t size) {
  io_diff* diff = overlay_of(file);
  if (!diff) return KEL_ERR_GENERAL;
  uint32_t status = 0;
  if (iod_insert(diff, bytes, size, at, &status) != size) return status ? status : KEL_ERR_GENERAL;
  return move_offsets(file, at, static_cast<int32_t>(size));
}

static uint32_t delete_bytes(xls_file* file, uint32_t at, uint32_t size) {
  io_diff* diff = overlay_of(file);
  if (!diff) return KEL_ERR_GENERAL;
  uint32_t status = iod_delete(diff, at, size);
  return status ? status : move_offsets(file, at, -static_cast<int32_t>(size));
}

/* The ROW records of a block: from start to end, the DBCELL behind them
 * (start and end are the DBCELL's offset in a block without rows). */
struct row_block {
  uint32_t dbcell;
  uint32_t start, end;
  uint16_t dbcell_length;
};

static uint32_t read_block(zuv_io* stream, uint32_t dbcell, row_block* block) {
  uint16_t id = 0;
  uint32_t distance = 0;
  block->dbcell = dbcell;
  uint32_t status = kel_read_header(stream, dbcell, &id, &block->dbcell_length);
  if (!status && (id != BIFF_DBCELL || block->dbcell_length < 4)) status = KEL_ERR_GENERAL;
  if (!status) status = io_read_le32(stream, dbcell + 4, &distance);
  if (status) return status;
  if (distance && (distance < BIFF_ROW_SIZE || distance > dbcell)) return KEL_ERR_GENERAL;
  block->start = block->end = dbcell - distance;
  while (block->end + BIFF_ROW_SIZE <= dbcell) {
    status = kel_read_header(stream, block->end, &id, nullptr);
    if (status) return status;
    if (id != BIFF_ROW) break;
    block->end += BIFF_ROW_SIZE;
  }
  return 0;
}

/* Where row's record is in block, or where it belongs. */
static uint32_t place_in_block(zuv_io* stream, const row_block* block, uint32_t row,
                               uint32_t* offset, bool* found) {
  *found = false;
  for (*offset = block->start; *offset < block->end; *offset += BIFF_ROW_SIZE) {
    uint16_t at = 0;
    uint32_t status = io_read_le16(stream, *offset + 4, &at);
    if (status) return status;
    if (at >= row) {
      *found = at == row;
      break;
    }
  }
  return 0;
}

/* Makes the block's DBCELL say its rows again: the distance back to the
 * first ROW and one cell offset for each row.  The cell offsets are left
 * 0, as a save writes them: nothing here reads them, and the block's cells
 * have moved. */
static uint32_t rewrite_dbcell(xls_file* file, row_block* block) {
  uint32_t rows = (block->end - block->start) / BIFF_ROW_SIZE;
  if (rows > 32) return KEL_ERR_GENERAL;
  uint32_t length = 4 + 2 * rows;
  uint32_t status = 0;
  if (length > block->dbcell_length) {
    unsigned char zeros[64] = {};
    status = insert_bytes(file, block->dbcell + 4 + block->dbcell_length, zeros,
                          length - block->dbcell_length);
  } else if (length < block->dbcell_length) {
    status = delete_bytes(file, block->dbcell + 4 + length, block->dbcell_length - length);
  }
  if (status) return status;
  block->dbcell_length = static_cast<uint16_t>(length);
  unsigned char body[4 + 2 + 4 + 2 * 32] = {};
  put_le16(body, static_cast<uint16_t>(length));
  put_le32(body + 2, rows ? block->dbcell - block->start : 0);
  return write_bytes(file->stream, block->dbcell + 2, body, 2 + length);
}

/* INDEX: its first row, its last row + 1, and its DBCELL entries. */
struct row_index {
  uint32_t first, last;
  uint32_t blocks;
};

static uint32_t read_index(zuv_io* stream, uint32_t index_offset, row_index* index) {
  uint16_t length = 0;
  uint32_t status = kel_read_header(stream, index_offset, nullptr, &length);
  if (!status && length < 16) status = KEL_ERR_GENERAL;
  if (!status) status = io_read_le32(stream, index_offset + 8, &index->first);
  if (!status) status = io_read_le32(stream, index_offset + 12, &index->last);
  index->blocks = (length - 16u) / 4u;
  return status;
}

static uint32_t index_entry(zuv_io* stream, uint32_t index_offset, uint32_t k, uint32_t* dbcell) {
  return io_read_le32(stream, index_offset + 20 + 4 * k, dbcell);
}

/* Where a sheet without blocks gets its first: behind DIMENSIONS, where
 * the cell table begins, or else before WINDOW2. */
static uint32_t first_block_place(xls_sheet_t* sheet, uint32_t* place) {
  zuv_io* stream = sheet->workbook->stream;
  for (uint32_t offset = sheet->index_offset; offset < sheet->window2_offset;) {
    uint16_t id = 0, length = 0;
    uint32_t status = kel_read_header(stream, offset, &id, &length);
    if (status) return status;
    offset += 4u + length;
    if (id == BIFF_DIMENSIONS) {
      *place = offset;
      return 0;
    }
  }
  *place = sheet->window2_offset;
  return 0;
}

/* Adds count empty blocks in front of the first block or behind the last,
 * and their entries to the INDEX. */
static uint32_t add_blocks(xls_sheet_t* sheet, bool in_front, uint32_t count) {
  xls_file* file = sheet->workbook;
  zuv_io* stream = file->stream;
  uint16_t length = 0;
  row_index index;
  uint32_t status = read_index(stream, sheet->index_offset, &index);
  if (!status) status = kel_read_header(stream, sheet->index_offset, nullptr, &length);
  if (status) return status;
  if (index.blocks + count > XLS_MAX_ROWS / 32) return KEL_ERR_GENERAL;
  uint32_t place = 0;
  if (!index.blocks) {
    status = first_block_place(sheet, &place);
  } else {
    uint32_t dbcell = 0;
    row_block block;
    status = index_entry(stream, sheet->index_offset, in_front ? 0 : index.blocks - 1, &dbcell);
    if (!status) status = read_block(stream, dbcell, &block);
    place = in_front ? block.start : dbcell + 4 + block.dbcell_length;
  }
  if (status) return status;
  // Inserted in pieces of a few records: each insertion walks the INDEXes.
  const uint32_t piece_records = 32;
  unsigned char bytes[8 * piece_records] = {};
  for (uint32_t i = 0; i < piece_records; ++i) {
    put_le16(bytes + 8 * i, BIFF_DBCELL);
    put_le16(bytes + 8 * i + 2, 4);
  }
  for (uint32_t done = 0; done < count && !status; done += piece_records) {
    uint32_t piece = count - done < piece_records ? count - done : piece_records;
    status = insert_bytes(file, place + 8 * done, bytes, 8 * piece);
  }
  // The INDEX grows behind its entries, where the moves of offsets leave
  // them alone; the new entries are then put in their places.
  memset(bytes, 0, sizeof bytes);
  uint32_t end = sheet->index_offset + 20 + 4 * index.blocks;
  for (uint32_t done = 0; done < 4 * count && !status; done += sizeof bytes) {
    uint32_t piece = 4 * count - done < sizeof bytes ? 4 * count - done : sizeof bytes;
    status = insert_bytes(file, end, bytes, piece);
  }
  if (status) return status;
  if (place >= end) place += 4 * count;
  uint32_t first_new = in_front ? 0 : index.blocks;
  if (in_front) {
    for (uint32_t k = index.blocks; k-- > 0 && !status;) {
      uint32_t dbcell = 0;
      status = index_entry(stream, sheet->index_offset, k, &dbcell);
      if (!status) status = io_write_le32(stream, sheet->index_offset + 20 + 4 * (k + count), dbcell);
    }
  }
  for (uint32_t i = 0; i < count && !status; ++i)
    status = io_write_le32(stream, sheet->index_offset + 20 + 4 * (first_new + i), place + 8 * i);
  if (!status)
    status = io_write_le16(stream, sheet->index_offset + 2, static_cast<uint16_t>(length + 4 * count));
  return status;
}

/* Lowers the INDEX's first row by shift (1 to 31) rows: each block hands
 * the ROW records of its last shift rows to the block behind it, the last
 * block to a new one.  The cell records stay where they are: a save
 * rewrites every block's cells from memory. */
static uint32_t lower_first_row(xls_sheet_t* sheet, uint32_t shift) {
  xls_file* file = sheet->workbook;
  zuv_io* stream = file->stream;
  row_index index;
  uint32_t status = read_index(stream, sheet->index_offset, &index);
  if (status) return status;
  unsigned char moved[32 * BIFF_ROW_SIZE];
  for (uint32_t k = index.blocks; k-- > 0;) {
    uint32_t dbcell = 0;
    row_block block;
    uint32_t from = 0;
    bool found = false;
    status = index_entry(stream, sheet->index_offset, k, &dbcell);
    if (!status) status = read_block(stream, dbcell, &block);
    uint32_t first_handed = index.first + 32 * (k + 1) - shift;
    if (!status) status = place_in_block(stream, &block, first_handed, &from, &found);
    if (status) return status;
    uint32_t size = block.end - from;
    if (size > sizeof moved) return KEL_ERR_GENERAL;
    if (!size) continue;
    if (k + 1 == index.blocks) {
      status = add_blocks(sheet, false, 1);
      if (status) return status;
      index.blocks += 1;
    }
    if (stream->read(stream->context, moved, size, from, &status) != size)
      return status ? status : KEL_ERR_END_OF_FILE;
    // The records are whole 20-byte ROWs; their headers are plain.
    for (uint32_t r = 0; r < size; r += BIFF_ROW_SIZE) {
      put_le16(moved + r, BIFF_ROW);
      put_le16(moved + r + 2, BIFF_ROW_SIZE - 4);
    }
    // The DBCELLs still hold their old distances: both blocks are followed
    // by hand rather than read again.
    status = delete_bytes(file, from, size);
    block.end = from;
    block.dbcell -= size;
    if (!status) status = rewrite_dbcell(file, &block);
    row_block next;
    if (!status) status = index_entry(stream, sheet->index_offset, k + 1, &dbcell);
    if (!status) status = read_block(stream, dbcell, &next);
    if (!status) status = insert_bytes(file, next.start, moved, size);
    next.end += size;
    next.dbcell += size;
    if (!status) status = rewrite_dbcell(file, &next);
    if (status) return status;
  }
  return io_write_le32(stream, sheet->index_offset + 8, index.first - shift);
}

/* The DBCELL of row's block, the blocks and the INDEX's rows made to
 * cover the row first. */
static uint32_t block_of_row(xls_sheet_t* sheet, uint16_t row, uint32_t* dbcell) {
  zuv_io* stream = sheet->workbook->stream;
  row_index index;
  uint32_t status = read_index(stream, sheet->index_offset, &index);
  if (status) return status;
  if (index.first >= index.last) {
    // No rows yet: the first block starts at this one.
    if (index.blocks) return KEL_ERR_GENERAL;
    index.first = row;
    status = io_write_le32(stream, sheet->index_offset + 8, row);
  }
  if (!status && row < index.first) {
    uint32_t distance = index.first - row;
    uint32_t rest = distance % 32, blocks = distance / 32;
    // Whole blocks go in front; what is left over moves the blocks there
    // are, so that the first block starts at row.
    if (rest) status = lower_first_row(sheet, rest);
    if (!status && blocks) status = add_blocks(sheet, true, blocks);
    if (!status) status = io_write_le32(stream, sheet->index_offset + 8, row);
  }
  if (!status) status = read_index(stream, sheet->index_offset, &index);
  uint32_t k = (row - index.first) >> 5;
  if (!status && k >= index.blocks) status = add_blocks(sheet, false, k + 1 - index.blocks);
  if (!status && row >= index.last)
    status = io_write_le32(stream, sheet->index_offset + 12, row + 1u);
  if (!status) status = index_entry(stream, sheet->index_offset, k, dbcell);
  return status;
}

static void row_body(const biff_row_v2* row, unsigned char* body) {
  memset(body, 0, BIFF_ROW_SIZE - 4);
  put_le16(body, row->row);
  put_le16(body + 2, row->first_col);
  put_le16(body + 4, row->last_col);
  put_le16(body + 6, row->height);
  put_le16(body + 12, row->flags);
  put_le16(body + 14, row->xf);
}

/* Writes the height and flags of row into its ROW record, which is made if
 * the row has none. */
/* The two fields a change touches, where the record stands: the rest of it
 * stays as written. */
static uint32_t write_row_fields(zuv_io* stream, uint32_t offset, const biff_row_v2* row) {
  uint32_t status = io_write_le16(stream, offset + 4 + 6, row->height);
  return status ? status : io_write_le16(stream, offset + 4 + 12, row->flags);
}

/* Stores row; offset is where its record stands, if the reader said (0
 * otherwise). */
static uint32_t write_row(xls_sheet_t* sheet, const biff_row_v2* row, uint32_t offset) {
  xls_file* file = sheet->workbook;
  zuv_io* stream = file->stream;
  if (offset) return write_row_fields(stream, offset, row);
  // Without INDEX a row has no block that a new record could go into.
  if (!sheet->index_offset) return KEL_ERR_UNSUPPORTED;
  uint32_t dbcell = 0;
  row_block block;
  bool found = false;
  uint32_t status = block_of_row(sheet, row->row, &dbcell);
  if (!status) status = read_block(stream, dbcell, &block);
  if (!status) status = place_in_block(stream, &block, row->row, &offset, &found);
  if (status) return status;
  if (found) return write_row_fields(stream, offset, row);
  unsigned char record[BIFF_ROW_SIZE];
  put_le16(record, BIFF_ROW);
  put_le16(record + 2, BIFF_ROW_SIZE - 4);
  row_body(row, record + 4);
  status = insert_bytes(file, offset, record, sizeof record);
  if (status) return status;
  if (block.start == block.end) block.start = offset;
  block.end += BIFF_ROW_SIZE;
  block.dbcell += BIFF_ROW_SIZE;
  return rewrite_dbcell(file, &block);
}

/* A row's height changed by delta: the grid's sums from its block on, and
 * the tops of the window's rows behind it. */
static void update_height_grid(xls_sheet_t* sheet, uint16_t row, int32_t delta) {
  for (uint32_t k = row >> 8; k < XLS_HEIGHT_GRID; ++k) sheet->height_grid[k] += delta;
  uint32_t first = sheet->height_window_first;
  for (uint32_t i = 0; i < XLS_HEIGHT_WINDOW; ++i)
    if (first + i > row && sheet->height_window[i] != XLS_HEIGHT_UNKNOWN)
      sheet->height_window[i] += delta;
}

/* Reads row, lets change make it as wished, and stores it; change returns
 * false for a row that already is. */
template <typename Change>
static uint32_t change_row(xls_sheet_t* sheet, uint16_t row, Change change) {
  if (sheet->sheet_protected) return KEL_ERR_SHEET_PROTECTED;
  xls_file* file = sheet->workbook;
  biff_row_v2 record;
  uint32_t offset = 0;
  uint32_t status = xls_sheet_read_ROW(sheet, row, &record, nullptr, &offset);
  if (status) return status;
  biff_row_v2 wished = record;
  if (!change(&wished)) return 0;
  status = write_row(sheet, &wished, offset);
  if (status) return status;
  file->row_cache_flags &= ~XLS_ROW_CACHE_VALID;
  update_height_grid(sheet, row,
                     static_cast<int32_t>(get_row_height(sheet, &wished)) -
                         static_cast<int32_t>(get_row_height(sheet, &record)));
  return 0;
}

uint32_t xls_set_row_height(xls_sheet_t* sheet, uint16_t row, uint32_t twips) {
  if (twips > 0x7FFF && twips != BIFF_ROW_DEFAULT_HEIGHT) return KEL_ERR_OUT_OF_RANGE;
  return change_row(sheet, row, [twips](biff_row_v2* record) {
    uint16_t flags = twips == BIFF_ROW_DEFAULT_HEIGHT ? record->flags & ~BIFF_ROW_HEIGHT_SET
                                                      : record->flags | BIFF_ROW_HEIGHT_SET;
    bool same_height = twips == BIFF_ROW_DEFAULT_HEIGHT
                           ? (record->height & BIFF_ROW_DEFAULT_HEIGHT) != 0
                           : record->height == twips;
    if (same_height && flags == record->flags) return false;
    record->height = static_cast<uint16_t>(twips);
    record->flags = flags;
    return true;
  });
}

uint32_t xls_hide_row(xls_sheet_t* sheet, uint16_t row, bool hide) {
  return change_row(sheet, row, [hide](biff_row_v2* record) {
    if (((record->flags & BIFF_ROW_HIDDEN) != 0) == hide) return false;
    record->flags ^= BIFF_ROW_HIDDEN;
    return true;
  });
}
