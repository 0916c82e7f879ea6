/*
 * The one walk over a worksheet's substream at open: its cells go into the
 * cell table in file order, its settings into the sheet.  ROW, INDEX,
 * DBCELL and NOTE stay in the file and are found again by offset.
 */
#include <stdlib.h>
#include <string.h>

#include "compound/kel_io_stack.h"
#include "compound/kel_record_cursor.h"
#include "formula/xls_formula_codec.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"
#include "workbook/kel_xls_sst_texts.h"
#include "workbook/kel_xls_string.h"

/* Reads the BOF at offset: its version and type are never enciphered. */
static uint32_t read_bof(zuv_io* stream, uint32_t offset, uint16_t* version,
                         uint16_t* type) {
  uint16_t id = 0, length = 0;
  uint32_t status = kel_read_header(stream, offset, &id, &length);
  if (status) return status;
  if (id != BIFF_BOF || length != BIFF_BOF_BODY) return KEL_ERR_GENERAL;
  kel_io_stop_decryption(stream, true);
  status = io_read_le16x2(stream, offset + 4, version, type);
  kel_io_stop_decryption(stream, false);
  return status;
}

/* Steps over an embedded substream from its BOF at *offset to behind its
 * EOF, nested ones included. */
static uint32_t skip_substream(kel_record_cursor* cursor, uint32_t* offset, uint32_t end) {
  uint32_t depth = 0;
  while (*offset < end) {
    uint16_t id = 0, length = 0;
    uint32_t status = kel_record_cursor_header(cursor, *offset, &id, &length);
    if (status) return status;
    *offset += 4u + length;
    if (id == BIFF_BOF) depth += 1;
    if (id == BIFF_EOF && --depth == 0) return 0;
  }
  return KEL_ERR_END_OF_FILE;
}

static void read_window2(const unsigned char* body, uint32_t length, biff_window2* window) {
  unsigned char bytes[18] = {};
  memcpy(bytes, body, length < sizeof bytes ? length : sizeof bytes);
  window->options = le16_at(bytes);
  window->first_row = le16_at(bytes + 2);
  window->first_col = le16_at(bytes + 4);
  window->grid_colour = le16_at(bytes + 6);
  window->reserved1 = le16_at(bytes + 8);
  window->page_break_zoom = le16_at(bytes + 10);
  window->normal_zoom = le16_at(bytes + 12);
  window->rest = le32_at(bytes + 14);
}

static void read_colinfo(const unsigned char* body, xls_sheet_t* sheet) {
  uint32_t first = le16_at(body), last = le16_at(body + 2);
  // Some writers end a run at column 256: it means the last column.
  if (last == 256) last = 255;
  for (uint32_t col = first; col <= last && col < XLS_MAX_COLUMNS; ++col) {
    sheet->columns[col].width = le16_at(body + 4);
    sheet->columns[col].xf = le16_at(body + 6);
    sheet->columns[col].flags = le16_at(body + 8);
    sheet->columns[col].present = 1;
  }
}

/* What the walk over one worksheet carries. */
struct sheet_scan {
  xls_file* file;
  xls_sheet_t* sheet;
  kel_record_cursor cursor;
  dynamic_expr_t scratch;
  kel_cell_appender cells;
};

/* Puts a cell read from the file into the table, taking over its value.
 * Cells come in order and are appended; one out of order is inserted, and
 * a cell that a later record writes again takes that value, as the program
 * that wrote the file would show the last one. */
static uint32_t add_cell(sheet_scan* scan, uint32_t column, uint32_t row, uint16_t xf,
                         uint8_t flags, xls_value_t* value, uint32_t sst_index) {
  xls_sheet_t* sheet = scan->sheet;
  xls_cell_t* appended = nullptr;
  uint32_t status =
      kel_cell_cache_append(&scan->cells, column, row, xf, flags, value, sst_index, &appended);
  if (appended) {
    xls_sheet_take_in(sheet, column, row);
    return 0;
  }
  if (status) {
    xls_free_value(value);
    return status;
  }
  xls_cell_t cell = {};
  cell.column = column;
  cell.row = row;
  cell.xf = xf;
  cell.flags = flags;
  cell.sst_index = sst_index;
  cell.new_sst_index = sst_index;
  cell.value = *value;
  status = insert_cell(sheet, &cell, nullptr, nullptr);
  if (status == KEL_ERR_GENERAL) {
    auto_cell_t existing = nullptr;
    kel_cell_cache_find_cell(&existing, &sheet->cells, column, row);
    if (existing) {
      xls_free_value(&existing->value);
      cell.use_count = existing->use_count;
      *existing = cell;
      auto_cell_release(&existing);
      return 0;
    }
  }
  if (status) xls_free_value(value);
  return status;
}

static uint32_t add_basic_cell(sheet_scan* scan, const unsigned char* body, xls_value_t* value) {
  return add_cell(scan, le16_at(body + 2), le16_at(body), le16_at(body + 4), 0, value,
                  XLS_NO_SST_INDEX);
}

/* The cell of a NUMBER or an RK record. */
static uint32_t read_number(sheet_scan* scan, uint16_t id, const unsigned char* body) {
  xls_value_t value;
  if (id == BIFF_NUMBER) {
    double number;
    memcpy(&number, body + 6, sizeof number);
    xls_value_double(&value, number);
  } else {
    kel_xls_value_from_rk(le32_at(body + 6), &value);
  }
  return add_basic_cell(scan, body, &value);
}

static uint32_t read_mulrk(sheet_scan* scan, const unsigned char* body, uint16_t length) {
  uint32_t row = le16_at(body), first = le16_at(body + 2);
  uint32_t last = le16_at(body + length - 2);
  for (uint32_t column = first, at = 4; column <= last && at + 6 <= length - 2u;
       ++column, at += 6) {
    xls_value_t value;
    kel_xls_value_from_rk(le32_at(body + at + 2), &value);
    uint32_t status = add_cell(scan, column, row, le16_at(body + at), 0, &value,
                               XLS_NO_SST_INDEX);
    if (status) return status;
  }
  return 0;
}

static uint32_t read_mulblank(sheet_scan* scan, const unsigned char* body,
                              uint16_t length) {
  uint32_t row = le16_at(body), first = le16_at(body + 2);
  uint32_t count = (length - 6u) / 2u;
  for (uint32_t i = 0; i < count; ++i) {
    xls_value_t value;
    xls_value_empty(&value);
    uint32_t status = add_cell(scan, first + i, row, le16_at(body + 4 + 2 * i), 0,
                               &value, XLS_NO_SST_INDEX);
    if (status) return status;
  }
  return 0;
}

static uint32_t read_label(sheet_scan* scan, const unsigned char* body, uint16_t length) {
  unsigned short* text = nullptr;
  uint32_t status = xls_read_string_without_len(body + 8, length - 8u, le16_at(body + 6),
                                                &text);
  if (status) return status;
  xls_value_t value;
  xls_value_string(&value, text);
  return add_cell(scan, le16_at(body + 2), le16_at(body), le16_at(body + 4),
                  XLS_CELL_INLINE_STRING, &value, XLS_NO_SST_INDEX);
}

static uint32_t read_labelsst(sheet_scan* scan, const unsigned char* body) {
  uint32_t index = le32_at(body + 6);
  biff_string string = {};
  uint32_t status = sst_texts_dup(scan->file->open_sst_texts, scan->file, index, &string);
  if (status) return status;
  // The options byte's bits 2 and 3 say phonetic data and rich text.
  uint8_t flags = (string.options & 0x0C) ? XLS_CELL_RICH_STRING : 0;
  xls_value_t value;
  xls_value_string(&value, string.text);
  string.text = nullptr;
  biff_string_free(&string);
  return add_cell(scan, le16_at(body + 2), le16_at(body), le16_at(body + 4), flags,
                  &value, index);
}

static void read_boolerr(const unsigned char* body, xls_value_t* value) {
  if (body[7]) xls_value_error(value, body[6]);
  else xls_value_bool(value, body[6] != 0);
}

/* The cached result of a FORMULA record, from the 8 bytes at 6 of its body
 * and, for a string, the STRING record that follows. */
static uint32_t read_formula_result(xls_file* file, const unsigned char* body,
                                    uint32_t next, xls_basic_value_t* result) {
  *result = xls_basic_value_t{};
  if (le16_at(body + 12) != 0xFFFF) {
    double number;
    memcpy(&number, body + 6, sizeof number);
    result->kind = bvt_double;
    result->u.double_value = number;
    return 0;
  }
  switch (body[6]) {
    case 1: result->kind = bvt_bool; result->u.boolean = body[8] != 0; return 0;
    case 2: result->kind = bvt_error; result->u.error = body[8]; return 0;
    case 3: result->kind = bvt_empty; return 0;
    case 0: break;
    default: result->kind = bvt_error; result->u.error = xls_error_unknown_result; return 0;
  }
  // A string result: a shared or array formula's record may come first.
  zuv_io* stream = file->stream;
  uint16_t id = 0, length = 0;
  uint32_t status = kel_read_header(stream, next, &id, &length);
  if (status) return status;
  if (id == BIFF_SHRFMLA || id == BIFF_ARRAY) {
    next += 4u + length;
    status = kel_read_header(stream, next, &id, &length);
    if (status) return status;
  }
  result->kind = bvt_error;
  result->u.error = xls_error_missing_string;
  if (id != BIFF_STRING) return 0;
  uint32_t offset = next + 4, record_start = next;
  uint16_t remaining = length;
  biff_string string = {};
  status = xls_read_string(&file->pool, stream, &offset, &remaining, &record_start,
                           file->second_record, &string, XLS_STRING_TEXT);
  if (status) return status;
  result->kind = bvt_string;
  result->u.string = string.text;
  string.text = nullptr;
  biff_string_free(&string);
  return 0;
}

/* The formula of a cell, unless it can't be read; then the cell keeps the
 * cached result alone, as an error 42 if the tokens can't be read at all,
 * and goes on the list of unsupported cells. */
static uint32_t add_unsupported(xls_file* file, xls_sheet_t* sheet, uint32_t row,
                                uint32_t column) {
  xls_apos_sheet position = {sheet, static_cast<uint16_t>(row), static_cast<uint8_t>(column)};
  return xls_add_unsupported_cell(file, position);
}

/* A SHRFMLA or ARRAY record behind a FORMULA: its expression joins the
 * sheet's shared expressions.  Not being able to read it is no failure:
 * the cells that use it are unsupported. */
static uint32_t read_shared_record(sheet_scan* scan, uint32_t offset, uint16_t id,
                                   uint16_t length, const biff_formula* origin) {
  xls_file* file = scan->file;
  xls_sheet_t* sheet = scan->sheet;
  bool array = id == BIFF_ARRAY;
  uint32_t tokens_at = array ? 14 : 10;
  if (length < tokens_at) return KEL_ERR_GENERAL;
  uint32_t status = kel_read_record(file->stream, offset, file->second_record, 0xFFFF);
  if (status) return status;
  const unsigned char* body = file->second_record + 4;
  uint32_t token_length = le16_at(body + tokens_at - 2);
  if (tokens_at + token_length > length) return KEL_ERR_GENERAL;
  xls_shared_expr record = {};
  record.flags = array ? XLS_SHARED_ARRAY : 0;
  record.first_row = le16_at(body);
  record.last_row = le16_at(body + 2);
  record.first_column = body[4];
  record.last_column = body[5];
  record.array_row = record.first_row;
  record.array_column = record.first_column;
  biff_formula anchor = {record.first_row, record.first_column};
  bool unsupported = false;
  status = expr_read_formula(file, sheet, body + tokens_at, token_length, length - tokens_at,
                             &anchor, &scan->scratch, &record.packed, &unsupported);
  if (status == KEL_ERR_UNSUPPORTED) return add_unsupported(file, sheet, origin->row, origin->column);
  if (status) return status;
  // A record that calls what the engine can't compute is kept all the same,
  // so that its cells keep their formula: each of them is listed as
  // unsupported when its token names the record.
  if (unsupported) record.flags |= XLS_SHARED_NOT_COMPUTED;
  status = xls_array_insert(&sheet->shared_exprs, sheet->shared_exprs.count, &record);
  if (status) expr_free(&record.packed, true);
  return status;
}

/* A formula cell: its tree beside the result the file cached.  A formula
 * whose tokens can't be read keeps that result alone; such a cell, and one
 * whose tree calls what the engine can't compute, goes on the list of
 * unsupported cells.  The tokens stay in the cursor's buffer throughout:
 * the records behind are read into the second buffer. */
static uint32_t read_formula(sheet_scan* scan, const unsigned char* body, uint16_t length,
                             uint32_t next) {
  xls_file* file = scan->file;
  xls_sheet_t* sheet = scan->sheet;
  if (length < 22 || length < 22u + le16_at(body + 20)) return KEL_ERR_GENERAL;
  uint32_t row = le16_at(body), column = le16_at(body + 2);
  uint16_t xf = le16_at(body + 4);
  uint8_t flags = static_cast<uint8_t>(le16_at(body + 14));
  biff_formula origin = {static_cast<uint16_t>(row), static_cast<uint16_t>(column)};
  uint16_t next_id = 0, next_length = 0;
  uint32_t status = kel_read_header(file->stream, next, &next_id, &next_length);
  if (!status && (next_id == BIFF_SHRFMLA || next_id == BIFF_ARRAY))
    status = read_shared_record(scan, next, next_id, next_length, &origin);
  if (status) return status;
  xls_basic_value_t cache;
  status = read_formula_result(file, body, next, &cache);
  if (status) return status;
  xls_value_t value;
  if (cache.kind == bvt_error && cache.u.error > 0xFF) {
    xls_value_error(&value, cache.u.error);
    return add_cell(scan, column, row, xf, flags, &value, XLS_NO_SST_INDEX);
  }
  xls_packed_expr_t packed = {};
  bool unsupported = false;
  status = expr_read_formula(file, sheet, body + 22, le16_at(body + 20), length - 22u,
                             &origin, &scan->scratch, &packed, &unsupported);
  if (status == KEL_ERR_UNSUPPORTED) unsupported = true;
  else if (status) {
    xls_free_basic_value(&cache);
    return status;
  }
  xls_create_expr_value(&value, &packed, &cache);
  status = unsupported ? add_unsupported(file, sheet, row, column) : 0;
  if (status) {
    xls_free_value(&value);
    return status;
  }
  return add_cell(scan, column, row, xf, flags, &value, XLS_NO_SST_INDEX);
}

/* Bytes of its body that a record needs before it is acted on; a record
 * too short for its fields is passed over, as a reader that trusted it
 * would read the next record's bytes. */
static uint16_t body_needed(uint16_t id) {
  switch (id) {
    case BIFF_NUMBER: return 14;
    case BIFF_RK: case BIFF_LABELSST: return 10;
    case BIFF_MULRK: return 12;
    case BIFF_BLANK: return 6;
    case BIFF_MULBLANK: return 8;
    case BIFF_LABEL: return 9;
    case BIFF_BOOLERR: return 8;
    case BIFF_FORMULA: case BIFF_FORMULA_OLD: case BIFF_FORMULA_BIFF4:
      return 1; /* its reader checks */
    case BIFF_DEFAULTROWHEIGHT: return 4;
    case BIFF_WINDOW2: return 10;
    case BIFF_FEATHEADR: return 21;
    case BIFF_PROTECT: case BIFF_OBJPROTECT: case BIFF_SCENPROTECT:
    case BIFF_STANDARDWIDTH: return 2;
    case BIFF_DEFCOLWIDTH: return 1;
    case BIFF_SELECTION: return 9;
    case BIFF_PANE: return 9;
    case BIFF_COLINFO: return 10;
    default: return 0;
  }
}

/* The ROW records, as they come: each one extends the run it follows, or
 * starts a new one.  They find the rows of a sheet whose INDEX is missing
 * (as some writers make them) or unsound. */
static uint32_t note_row_run(kel_record_cursor* cursor, xls_sheet_t* sheet, uint32_t offset,
                             uint16_t length) {
  xls_simple_array* runs = &sheet->row_runs;
  if (runs->count > 0) {
    xls_row_run_t* last = static_cast<xls_row_run_t*>(runs->data) + runs->count - 1;
    if (length == BIFF_ROW_SIZE - 4 && last->count < 0xFFFF &&
        offset == last->offset + last->count * BIFF_ROW_SIZE) {
      last->count += 1;
      return 0;
    }
  }
  const unsigned char* body = nullptr;
  uint32_t status = kel_record_cursor_body(cursor, offset, length, &body);
  if (status) return status;
  xls_row_run_t run = {offset, le16_at(body), 1};
  return xls_simple_array_insert(runs, runs->count, &run);
}

/* The records of a worksheet behind its BOF, up to its EOF. */
static uint32_t scan_records(sheet_scan* scan) {
  xls_file* file = scan->file;
  xls_sheet_t* sheet = scan->sheet;
  kel_record_cursor* cursor = &scan->cursor;
  zuv_io* stream = file->stream;
  uint32_t end = stream->get_size(stream->context);
  uint32_t offset = sheet->bof_offset + 4 + BIFF_BOF_BODY;
  bool window2_seen = false;
  while (offset < end) {
    uint16_t id = 0, length = 0;
    uint32_t status = 0;
    const unsigned char* record = kel_record_cursor_peek(cursor, offset);
    if (record) {
      id = le16_at(record);
      length = le16_at(record + 2);
    } else {
      status = kel_record_cursor_header(cursor, offset, &id, &length);
      if (status) return status;
    }
    if (length > XLS_MAX_RECORD_BODY) return KEL_ERR_GENERAL;
    // Numbers make most of a large sheet: straight into the table.
    if (record && ((id == BIFF_NUMBER && length >= 14) || (id == BIFF_RK && length >= 10))) {
      status = read_number(scan, id, record + 4);
      if (status) return status;
      offset += 4u + length;
      continue;
    }
    if (id == BIFF_EOF) break;
    if (id == BIFF_BOF) {
      uint16_t embedded_version = 0, embedded_type = 0;
      status = read_bof(stream, offset, &embedded_version, &embedded_type);
      if (status) return status;
      if (embedded_type == BIFF_BOF_CHART) {
        status = xls_array_insert(&sheet->charts, sheet->charts.count, &offset);
        if (status) return status;
      }
      status = skip_substream(cursor, &offset, end);
      if (status) return status;
      continue;
    }
    switch (id) {
      case BIFF_INDEX: sheet->index_offset = offset; break;
      case BIFF_ROW:
        if (length >= 2) {
          status = note_row_run(cursor, sheet, offset, length);
          if (status) return status;
        }
        break;
      case BIFF_NOTE: if (!sheet->note_offset) sheet->note_offset = offset; break;
      case BIFF_MERGEDCELLS: if (!sheet->merged_offset) sheet->merged_offset = offset; break;
      default: break;
    }
    uint16_t needed = body_needed(id);
    if (needed && length >= needed) {
      const unsigned char* body = record ? record + 4 : nullptr;
      if (!body) status = kel_record_cursor_body(cursor, offset, length, &body);
      if (status) return status;
      uint32_t next = offset + 4u + length;
      xls_value_t value;
      switch (id) {
        case BIFF_NUMBER: case BIFF_RK: status = read_number(scan, id, body); break;
        case BIFF_MULRK: status = read_mulrk(scan, body, length); break;
        case BIFF_BLANK:
          xls_value_empty(&value);
          status = add_basic_cell(scan, body, &value);
          break;
        case BIFF_MULBLANK: status = read_mulblank(scan, body, length); break;
        case BIFF_LABEL: status = read_label(scan, body, length); break;
        case BIFF_LABELSST: status = read_labelsst(scan, body); break;
        case BIFF_BOOLERR:
          read_boolerr(body, &value);
          status = add_basic_cell(scan, body, &value);
          break;
        case BIFF_FORMULA: case BIFF_FORMULA_OLD: case BIFF_FORMULA_BIFF4:
          file->formula_records += 1;
          status = read_formula(scan, body, length, next);
          break;
        case BIFF_DEFAULTROWHEIGHT:
          sheet->default_row_flags = le16_at(body);
          sheet->default_row_height = le16_at(body + 2);
          break;
        case BIFF_WINDOW2:
          sheet->window2_offset = offset;
          read_window2(body, length, &sheet->window2);
          window2_seen = true;
          break;
        case BIFF_FEATHEADR:
          sheet->allowed_actions = le16_at(body + 19);
          sheet->has_allowed_actions = 1;
          break;
        case BIFF_PROTECT: sheet->sheet_protected = le16_at(body); break;
        case BIFF_OBJPROTECT: sheet->objects_protected = le16_at(body); break;
        case BIFF_SCENPROTECT: sheet->scenarios_protected = le16_at(body); break;
        case BIFF_DEFCOLWIDTH: sheet->default_col_width = static_cast<uint16_t>(body[0] << 8); break;
        case BIFF_STANDARDWIDTH: sheet->default_col_width = le16_at(body); break;
        case BIFF_SELECTION:
          if (body[0] < XLS_PANES)
            status = xls_read_SELECTION(body, length, &sheet->selections[body[0]]);
          break;
        case BIFF_PANE:
          sheet->pane.x_split = le16_at(body);
          sheet->pane.y_split = le16_at(body + 2);
          sheet->pane.top_row = le16_at(body + 4);
          sheet->pane.left_col = le16_at(body + 6);
          sheet->pane.active_pane = body[8];
          break;
        case BIFF_COLINFO: read_colinfo(body, sheet); break;
      }
      if (status) return status;
    }
    offset += 4u + length;
  }
  if (!window2_seen) return KEL_ERR_GENERAL;
  return 0;
}

uint32_t xls_scan_sheet(xls_file* file, xls_sheet_t* sheet) {
  zuv_io* stream = file->stream;
  uint16_t version = 0, type = 0;
  uint32_t status = read_bof(stream, sheet->bof_offset, &version, &type);
  if (status) return status;
  if (version != BIFF_VERSION_8) return KEL_ERR_GENERAL;
  sheet->bof.version = version;
  sheet->bof.type = type;
  if (type != BIFF_BOF_WORKSHEET) return 0;  // chart and macro sheets keep no cells

  sheet_scan scan = {};
  scan.file = file;
  scan.sheet = sheet;
  kel_record_cursor_open(&scan.cursor, stream, file->record);
  expr_d_init(&scan.scratch);
  kel_cell_appender_init(&scan.cells, &sheet->cells);
  status = scan_records(&scan);
  expr_d_destroy(&scan.scratch);
  kel_record_cursor_close(&scan.cursor);
  return status;
}
