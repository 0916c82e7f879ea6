#include "workbook/kel_xls_sheet.h"

#include <stdlib.h>
#include <string.h>

#include "compound/kel_io_stack.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_file.h"

/* The BOF that a new sheet records until its own is read. */
static const biff_bof_v8 kSheetBof = {BIFF_VERSION_8, BIFF_BOF_WORKSHEET, 0x2775, 0x7CD,
                                      0x80C1, 0x206};

xls_sheet_t* sheet_constructor(xls_file* workbook) {
  xls_sheet_t* sheet = static_cast<xls_sheet_t*>(calloc(1, sizeof(xls_sheet_t)));
  if (!sheet) return nullptr;
  sheet->workbook = workbook;
  sheet->bof = kSheetBof;
  sheet->window2.options = 0xB6;
  sheet->window2.grid_colour = 0x40;
  sheet->pane.active_pane = 3;
  for (int pane = 0; pane < XLS_PANES; ++pane)
    sheet->selections[pane].pane = static_cast<uint8_t>(pane);
  // The bottom right pane holds the selection of an unsplit sheet: A1.
  sheet->selections[3].refs = static_cast<biff_ref8*>(calloc(1, sizeof(biff_ref8)));
  if (!sheet->selections[3].refs) {
    free(sheet);
    return nullptr;
  }
  sheet->selections[3].count = 1;
  sheet->first_row = 0xFFFFFFFF;
  sheet->first_col = 0xFFFF;
  sheet->default_col_width = 0x800;
  sheet->default_row_height = 0xFF;
  sheet->charts.mem = &workbook->mem;
  sheet->charts.element_size = sizeof(uint32_t);
  sheet->charts.grow_step = 10;
  return sheet;
}

void sheet_destructor(xls_sheet_t* sheet) {
  if (!sheet) return;
  for (biff_selection& selection : sheet->selections) free(selection.refs);
  free(sheet->name);
  xls_array_free(&sheet->charts);
  free(sheet);
}

uint32_t xls_read_SELECTION(const unsigned char* body, uint32_t length,
                            biff_selection* selection) {
  if (length < 9) return KEL_ERR_GENERAL;
  uint16_t count = get_le16(body + 7);
  // Keep the rectangles the record really holds.
  if (count > (length - 9) / 6) count = static_cast<uint16_t>((length - 9) / 6);
  biff_ref8* refs = nullptr;
  if (count) {
    refs = static_cast<biff_ref8*>(malloc(count * sizeof(biff_ref8)));
    if (!refs) return KEL_ERR_OUT_OF_MEMORY;
    for (uint16_t i = 0; i < count; ++i) {
      const unsigned char* ref = body + 9 + 6 * i;
      refs[i].first_row = get_le16(ref);
      refs[i].last_row = get_le16(ref + 2);
      refs[i].first_col = ref[4];
      refs[i].last_col = ref[5];
    }
  }
  free(selection->refs);
  selection->pane = body[0];
  selection->active_row = get_le16(body + 1);
  selection->active_col = get_le16(body + 3);
  selection->active_ref = get_le16(body + 5);
  selection->count = count;
  selection->refs = refs;
  return 0;
}

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
static uint32_t skip_substream(zuv_io* stream, uint32_t* offset, uint32_t end) {
  uint32_t depth = 0;
  while (*offset < end) {
    uint16_t id = 0, length = 0;
    uint32_t status = kel_read_header(stream, *offset, &id, &length);
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
  window->options = get_le16(bytes);
  window->first_row = get_le16(bytes + 2);
  window->first_col = get_le16(bytes + 4);
  window->grid_colour = get_le16(bytes + 6);
  window->reserved1 = get_le16(bytes + 8);
  window->page_break_zoom = get_le16(bytes + 10);
  window->normal_zoom = get_le16(bytes + 12);
  window->rest = get_le32(bytes + 14);
}

static void read_colinfo(const unsigned char* body, xls_sheet_t* sheet) {
  uint32_t first = get_le16(body), last = get_le16(body + 2);
  // Some writers end a run at column 256: it means the last column.
  if (last == 256) last = 255;
  for (uint32_t col = first; col <= last && col < XLS_MAX_COLUMNS; ++col) {
    sheet->columns[col].width = get_le16(body + 4);
    sheet->columns[col].xf = get_le16(body + 6);
    sheet->columns[col].flags = get_le16(body + 8);
    sheet->columns[col].present = 1;
  }
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

  unsigned char* record = file->record;
  const unsigned char* body = record + 4;
  uint32_t end = stream->get_size(stream->context);
  uint32_t offset = sheet->bof_offset + 4 + BIFF_BOF_BODY;
  bool window2_seen = false;
  while (offset < end) {
    uint16_t id = 0, length = 0;
    status = kel_read_header(stream, offset, &id, &length);
    if (status) return status;
    if (length > XLS_MAX_RECORD_BODY) return KEL_ERR_GENERAL;
    if (id == BIFF_EOF) break;
    if (id == BIFF_BOF) {
      uint16_t embedded_version = 0, embedded_type = 0;
      status = read_bof(stream, offset, &embedded_version, &embedded_type);
      if (status) return status;
      if (embedded_type == BIFF_BOF_CHART) {
        status = xls_array_insert(&sheet->charts, sheet->charts.count, &offset);
        if (status) return status;
      }
      status = skip_substream(stream, &offset, end);
      if (status) return status;
      continue;
    }
    uint16_t needed = 0;  // bytes of the body the record's action reads
    switch (id) {
      case BIFF_INDEX: sheet->index_offset = offset; break;
      case BIFF_NOTE: if (!sheet->note_offset) sheet->note_offset = offset; break;
      case BIFF_DEFAULTROWHEIGHT: needed = 4; break;
      case BIFF_WINDOW2: needed = 10; break;
      case BIFF_FEATHEADR: needed = 21; break;
      case BIFF_PROTECT: case BIFF_OBJPROTECT: case BIFF_SCENPROTECT:
      case BIFF_STANDARDWIDTH: needed = 2; break;
      case BIFF_DEFCOLWIDTH: needed = 1; break;
      case BIFF_SELECTION: needed = 9; break;
      case BIFF_PANE: needed = 9; break;
      case BIFF_COLINFO: needed = 10; break;
      default: break;
    }
    if (needed) {
      // A record too short for its fields is passed over, as a reader that
      // trusted it would read the next record's bytes.
      if (length >= needed) {
        status = kel_read_record(stream, offset, record, length);
        if (status) return status;
        switch (id) {
          case BIFF_DEFAULTROWHEIGHT:
            sheet->default_row_flags = get_le16(body);
            sheet->default_row_height = get_le16(body + 2);
            break;
          case BIFF_WINDOW2:
            sheet->window2_offset = offset;
            read_window2(body, length, &sheet->window2);
            window2_seen = true;
            break;
          case BIFF_FEATHEADR:
            sheet->allowed_actions = get_le16(body + 19);
            sheet->has_allowed_actions = 1;
            break;
          case BIFF_PROTECT: sheet->sheet_protected = get_le16(body); break;
          case BIFF_OBJPROTECT: sheet->objects_protected = get_le16(body); break;
          case BIFF_SCENPROTECT: sheet->scenarios_protected = get_le16(body); break;
          case BIFF_DEFCOLWIDTH: sheet->default_col_width = static_cast<uint16_t>(body[0] << 8); break;
          case BIFF_STANDARDWIDTH: sheet->default_col_width = get_le16(body); break;
          case BIFF_SELECTION:
            if (body[0] < XLS_PANES) {
              status = xls_read_SELECTION(body, length, &sheet->selections[body[0]]);
              if (status) return status;
            }
            break;
          case BIFF_PANE:
            sheet->pane.x_split = get_le16(body);
            sheet->pane.y_split = get_le16(body + 2);
            sheet->pane.top_row = get_le16(body + 4);
            sheet->pane.left_col = get_le16(body + 6);
            sheet->pane.active_pane = body[8];
            break;
          case BIFF_COLINFO: read_colinfo(body, sheet); break;
        }
      }
    }
    offset += 4u + length;
  }
  if (!window2_seen) return KEL_ERR_GENERAL;
  return 0;
}

const unsigned short* xls_sheet_name(const xls_sheet_t* sheet) { return sheet->name; }

uint8_t xls_sheet_visibility(const xls_sheet_t* sheet) { return sheet->visibility; }

uint8_t xls_sheet_type(const xls_sheet_t* sheet) { return sheet->type; }
