/*
 * kel_render.cpp -- the flat calls that paint a sheet and tell what is where
 * on it: the paint and its heading painter, the selection highlight, cell
 * references and bounds, notes, and resizing of rows and columns.
 *
 * Positions come in sheet pixels at the session's zoom; the view turns them
 * into cells.  Most calls share one frame (enter_sheet): a null session, a
 * chart on display, a bad sheet index and a position outside the sheet each
 * give their status before anything changes.
 */
#include <stdlib.h>
#include <string.h>

#include "module/kel_session.h"
#include "view/kel_table.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_notes.h"
#include "workbook/kel_xls_sheet.h"

extern "C" KEL_API unsigned kel_check_x(kel_file* file, int x) {
  if (!file || !file->draw.table) return KEL_ERR_INVALID_ARGUMENT;
  if (x < 0 || static_cast<uint32_t>(x) >= file->draw.table->state.sheet_width)
    return KEL_ERR_OUT_OF_RANGE;
  return 0;
}

extern "C" KEL_API unsigned kel_check_y(kel_file* file, int y) {
  if (!file || !file->draw.table) return KEL_ERR_INVALID_ARGUMENT;
  if (y < 0 || static_cast<uint32_t>(y) >= file->draw.table->state.sheet_height)
    return KEL_ERR_OUT_OF_RANGE;
  return 0;
}

/* The frame of the calls about cells: the session's workbook in
 * g_current_wb and the sheet current, unless the session is null, has no
 * view, shows a chart (asked before the sheet changes) or the index is bad.
 * On success the caller clears g_current_wb when done. */
static uint32_t enter_sheet(kel_file* file, int sheet, bool chart_test,
                            xls_sheet_t** handle) {
  if (!file || !file->draw.table) return KEL_ERR_INVALID_ARGUMENT;
  if (chart_test && file->draw.table->is_displaying_chart()) return KEL_ERR_OUT_OF_RANGE;
  g_current_wb = file->workbook;
  *handle = set_current_sheet(file, sheet);
  if (!*handle) {
    g_current_wb = nullptr;
    return KEL_ERR_OUT_OF_RANGE;
  }
  return 0;
}

/* The pixel position checks of the frame; clears g_current_wb on failure. */
static uint32_t check_point(kel_file* file, int x, int y) {
  uint32_t status = kel_check_x(file, x);
  if (!status) status = kel_check_y(file, y);
  if (status) g_current_wb = nullptr;
  return status;
}

static uint32_t leave(uint32_t status) {
  g_current_wb = nullptr;
  return status;
}

/* ---- Paint ------------------------------------------------------------- */

extern "C" KEL_API unsigned kel_render_sheet(kel_file* file, int sheet, int x, int y) {
  if (!file) return KEL_ERR_INVALID_ARGUMENT;
  g_current_wb = file->workbook;
  // The heading painter takes the offsets as asked; the view clamps its
  // own.
  g_draw_label_info.offset_x = x;
  g_draw_label_info.offset_y = y;
  g_draw_label_info.canvas = file->draw.canvas;
  KELTable* table = file->draw.table;
  if (!table || !file->draw.canvas) return leave(KEL_ERR_GENERAL);
  rect_t headings = table->cell_to_coord(-1, -1);
  if (!set_current_sheet(file, sheet)) return leave(KEL_ERR_OUT_OF_RANGE);
  table->move_offset(x, y);
  uint32_t status = kel_draw_table(&file->draw);
  if (status) return leave(status);

  if (table->is_displaying_chart()) {
    copy_rect(file, 0, 0, file->main_buffer.width, file->main_buffer.height,
              file->main_buffer.width, file->main_buffer.height, file->main_buffer.pixels);
    return leave(0);
  }
  // The canvas holds headings and body side by side; the body starts one
  // pixel behind the strips, past the separator lines.
  const kel_buffer_t& columns = file->column_buffer;
  const kel_buffer_t& rows = file->row_buffer;
  const kel_buffer_t& body = file->main_buffer;
  if (columns.pixels)
    copy_rect(file, headings.right, 0, columns.width, headings.bottom, columns.width,
              columns.height, columns.pixels);
  if (rows.pixels)
    copy_rect(file, 0, headings.bottom, rows.width, rows.height, rows.width, rows.height,
              rows.pixels);
  copy_rect(file, headings.right + 1, headings.bottom + 1, body.width, body.height,
            body.width, body.height, body.pixels);
  return leave(0);
}

/* The canvas of the gradient scaled to width x height, from the six kept,
 * moved to the front of them; null with *status set if it can't be made. */
static ICanvas* label_canvas(kel_draw_label_info_t* info, int32_t width, int32_t height,
                             uint32_t* status) {
  int slot = 0;
  while (slot < info->count &&
         (info->slots[slot].width != width || info->slots[slot].height != height))
    ++slot;
  if (slot == info->count) {
    if (info->count < KEL_LABEL_CACHE_SLOTS) {
      slot = info->count++;
    } else {
      slot = KEL_LABEL_CACHE_SLOTS - 1;
      if (info->slots[slot].canvas) info->slots[slot].canvas->Release();
    }
    info->slots[slot] = kel_label_canvas_t();
    IZuvClassFactory* factory = ZuvLinuxClassFactory();
    if (!factory) {
      *status = KEL_ERR_OUT_OF_MEMORY;
      return nullptr;
    }
    ICanvas* canvas = nullptr;
    DRect bounds = {0, 0, width, height};
    if (factory->CreateCanvas(&canvas, 1, bounds, 32, 0, 0) != 0 || !canvas) {
      factory->Release();
      *status = KEL_ERR_OUT_OF_MEMORY;
      return nullptr;
    }
    // A picture that can't be drawn leaves a white heading: the text still
    // shows.
    if (info->gradient_stream) canvas->DrawImage(info->gradient_stream, kImagePng, bounds);
    info->slots[slot].canvas = canvas;
    info->slots[slot].width = width;
    info->slots[slot].height = height;
    factory->Release();
  }
  kel_label_canvas_t used = info->slots[slot];
  memmove(&info->slots[1], &info->slots[0], static_cast<size_t>(slot) * sizeof used);
  info->slots[0] = used;
  return used.canvas;
}

uint32_t draw_label(void* context, KELState* state, const rect_t& visible,
                    const unsigned short* text, bool /* selected: looks the same */,
                    const rect_t& full) {
  kel_draw_label_info_t* info = static_cast<kel_draw_label_info_t*>(context);
  ICanvas* canvas = info->canvas;
  if (!canvas) return KEL_ERR_GENERAL;
  int32_t label_width = state->get_label_col0_width();
  int32_t label_height = state->get_label_row0_height();
  int32_t x = full.left, y = full.top;
  int32_t width = full.right - full.left, height = full.bottom - full.top;
  bool row_heading = x < label_width;
  if (row_heading)
    y -= info->offset_y;
  else
    x -= info->offset_x;
  if (width <= 0 || height <= 0) return 0;

  uint32_t status = 0;
  ICanvas* gradient = label_canvas(info, width, height, &status);
  if (!gradient) return status;
  status = gradient->CopyRect(canvas, DRect{0, 0, width, height}, x, y);
  if (status) return status;

  // A 10-point heading face at the view's scale.
  VString name;
  status = name.SetString("Coconut-Medium", VString::kUtf8, -1);
  if (status) return status;
  DFontSpec font = {&name, kCharSetLatin, kFamilySans,
                    static_cast<int32_t>(state->zoom(state->vertical_dpi * 10 / 72) * 20),
                    1.0, false, false};
  status = canvas->SetFontByName(font);
  if (status) return status;
  int32_t ascent = 0, descent = 0;
  canvas->GetFontMetrics(&ascent, &descent);

  // Headings are letterspaced by a pixel.
  uint32_t total = 0;
  for (const unsigned short* c = text; *c; ++c) {
    int32_t advance = 0;
    canvas->MeasureChar(*c, &advance);
    total += static_cast<uint32_t>(advance) + 1;
  }
  // Unsigned, as the painter has always centred: a text wider than its
  // heading starts far off the canvas and isn't seen.
  uint32_t pen = static_cast<uint32_t>(x) + (static_cast<uint32_t>(width) - total) / 2;
  int32_t baseline = y + height / 2 + (ascent - descent - 1) / 2;
  for (const unsigned short* c = text; *c; ++c) {
    canvas->DrawChar(static_cast<int32_t>(pen), baseline, *c);
    int32_t advance = 0;
    canvas->MeasureChar(*c, &advance);
    pen += static_cast<uint32_t>(advance) + 1;
  }

  // The separator takes the rectangle as it is, scroll offset and all.
  static const DRGBValue gray = {0x00, 0xC0, 0xC0, 0xBD};
  canvas->SetColor(gray);
  canvas->SetPen(kPenSolid, 1, 1);
  if (visible.left < label_width) {
    int32_t line_y = visible.top == label_height ? visible.top : visible.top - 1;
    canvas->DrawLine(visible.left, line_y, visible.left + width, line_y);
  } else {
    int32_t line_x = visible.left == label_width ? visible.left : visible.left - 1;
    canvas->DrawLine(line_x, visible.top, line_x, visible.top + height);
  }
  canvas->SetColor(kel_black);
  return 0;
}

/* ---- Selection --------------------------------------------------------- */

static void select_cells(kel_file* file, int sheet, cell_t first, cell_t last) {
  file->selection_sheet = sheet;
  file->selection.cells.top_row = first.row;
  file->selection.cells.left_col = first.col;
  file->selection.cells.bottom_row = last.row;
  file->selection.cells.right_col = last.col;
  file->draw.table->state.selection_highlight = &file->selection;
}

extern "C" KEL_API unsigned kel_select_cell(kel_file* file, int sheet, int x, int y) {
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  if (!status) status = check_point(file, x, y);
  if (status) return status;
  cell_t cell = file->draw.table->coord_to_cell(static_cast<uint32_t>(x),
                                                static_cast<uint32_t>(y));
  select_cells(file, sheet, cell, cell);
  return leave(0);
}

extern "C" KEL_API unsigned kel_select_area(kel_file* file, int sheet, int x, int y,
                                            int width, int height) {
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  if (!status) status = check_point(file, x, y);
  if (!status) status = check_point(file, x + width, y + height);
  if (status) return status;
  // The far corner is included; negative sizes give swapped corners, which
  // then hold no cell.
  const KELTable* table = file->draw.table;
  select_cells(file, sheet,
               table->coord_to_cell(static_cast<uint32_t>(x), static_cast<uint32_t>(y)),
               table->coord_to_cell(static_cast<uint32_t>(x + width),
                                    static_cast<uint32_t>(y + height)));
  return leave(0);
}

/* Whole rows, between the pixels a and b down the sheet, or whole columns,
 * between a and b across it; both positions on the one axis. */
static uint32_t select_lines(kel_file* file, int sheet, int a, int b, bool rows, int* count) {
  if (count) *count = 0;
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  unsigned (*check)(kel_file*, int) = rows ? kel_check_y : kel_check_x;
  if (!status) status = check(file, a);
  if (!status) status = check(file, b);
  if (status) return leave(status);
  const KELTable* table = file->draw.table;
  uint32_t from = static_cast<uint32_t>(a), to = static_cast<uint32_t>(b);
  cell_t first = rows ? table->coord_to_cell(0, from) : table->coord_to_cell(from, 0);
  cell_t last = rows ? table->coord_to_cell(0, to) : table->coord_to_cell(to, 0);
  if (rows) {
    first.col = 0;
    last.col = XLS_MAX_COLUMNS - 1;
  } else {
    first.row = 0;
    last.row = XLS_MAX_ROWS - 1;
  }
  select_cells(file, sheet, first, last);
  if (count) *count = rows ? last.row - first.row + 1 : last.col - first.col + 1;
  return leave(0);
}

extern "C" KEL_API unsigned kel_select_row(kel_file* file, int sheet, int y1, int y2,
                                           int* count) {
  return select_lines(file, sheet, y1, y2, true, count);
}

extern "C" KEL_API unsigned kel_select_column(kel_file* file, int sheet, int x1, int x2,
                                              int* count) {
  return select_lines(file, sheet, x1, x2, false, count);
}

extern "C" KEL_API unsigned kel_clear_selection(kel_file* file) {
  if (!file || !file->draw.table) return KEL_ERR_INVALID_ARGUMENT;
  file->draw.table->state.selection_highlight = nullptr;
  return 0;
}

/* ---- What is where ----------------------------------------------------- */

extern "C" KEL_API unsigned kel_get_cell_reference_at_location(kel_file* file, int sheet,
                                                               int x, int y, int* row,
                                                               int* col) {
  if (!file || !file->draw.table) return KEL_ERR_INVALID_ARGUMENT;
  if (!set_current_sheet(file, sheet)) return KEL_ERR_OUT_OF_RANGE;
  uint32_t status = kel_check_x(file, x);
  if (!status) status = kel_check_y(file, y);
  if (status) return status;
  cell_t cell = file->draw.table->coord_to_cell(static_cast<uint32_t>(x),
                                                static_cast<uint32_t>(y));
  if (row) *row = cell.row;
  if (col) *col = cell.col;
  return 0;
}

extern "C" KEL_API unsigned kel_cell_bounds(kel_file* file, int sheet, int x, int y,
                                            int* out_x, int* out_y, int* out_width,
                                            int* out_height) {
  if (!file || !file->draw.table) return KEL_ERR_INVALID_ARGUMENT;
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  if (status) return status;
  const KELTable* table = file->draw.table;
  rect_t headings = table->cell_to_coord(-1, -1);
  rect_t bounds = headings;
  if (x != -1 && y != -1) {
    status = check_point(file, x, y);
    if (status) return status;
    cell_t cell = table->coord_to_cell(static_cast<uint32_t>(x), static_cast<uint32_t>(y));
    bounds = table->cell_to_coord(cell.col, cell.row);
  } else {
    headings.right = headings.bottom = 0;  // the headings' own rectangle is the answer
  }
  const KELPane& pane = table->panes[table->active_pane];
  // Sheet pixels: a cell's bounds don't move with scrolling.
  if (out_x) *out_x = bounds.left + pane.offset_x - headings.right;
  if (out_y) *out_y = bounds.top + pane.offset_y - headings.bottom;
  if (out_width) *out_width = bounds.right - bounds.left;
  if (out_height) *out_height = bounds.bottom - bounds.top;
  return leave(0);
}

/* ---- Notes ------------------------------------------------------------- */

extern "C" KEL_API unsigned kel_get_comment(kel_file* file, int sheet, int x, int y,
                                            unsigned short* buffer, unsigned capacity,
                                            unsigned offset, unsigned* needed) {
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  if (!status) status = check_point(file, x, y);
  if (status) return status;
  cell_t cell = file->draw.table->coord_to_cell(static_cast<uint32_t>(x),
                                                static_cast<uint32_t>(y));
  xls_note_t* note = nullptr;
  status = kel_xls_get_note_text(handle, cell.col, cell.row, &note);
  if (status) return leave(status);
  if (!note || !note->text) {
    xls_note_free(note);
    if (needed) *needed = 1;
    if (buffer && capacity) *buffer = 0;
    return leave(KEL_ERR_OUT_OF_RANGE);
  }
  unsigned short* text = note->text;
  uint32_t total = note->text_length + 1;
  note->text = nullptr;
  xls_note_free(note);
  if (needed) *needed = total;
  if (!buffer) {
    free(text);
    return leave(0);
  }
  if (offset >= total) {
    free(text);
    return leave(KEL_ERR_OUT_OF_RANGE);
  }
  uint32_t count = total - offset < capacity ? total - offset : capacity;
  memcpy(buffer, text + offset, count * sizeof *text);
  free(text);
  return leave(0);
}

extern "C" KEL_API unsigned kel_get_comment_marks_rects(kel_file* file, int sheet,
                                                        region** rects, int* count) {
  if (!file || !rects || !count) return KEL_ERR_INVALID_ARGUMENT;
  *rects = nullptr;
  *count = 0;
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  if (status) return status;
  const KELTable* table = file->draw.table;
  rect_t headings = table->cell_to_coord(-1, -1);
  xls_simple_array notes = {};
  bool owned = false;
  status = xls_get_notes(handle, &notes, &owned);
  if (status) return leave(status);
  if (notes.count > 0) {
    *rects = static_cast<region*>(malloc(static_cast<size_t>(notes.count) * sizeof(region)));
    if (!*rects) {
      if (owned) free(notes.data);
      return leave(KEL_ERR_OUT_OF_MEMORY);
    }
  }
  const KELPane& pane = table->panes[table->active_pane];
  const xls_note_place_t* places = static_cast<const xls_note_place_t*>(notes.data);
  for (int i = 0; i < notes.count; ++i) {
    rect_t cell = table->cell_to_coord(places[i].col, places[i].row);
    region& r = (*rects)[i];
    r.sheet = sheet;
    r.x = cell.left + pane.offset_x - headings.right;
    r.y = cell.top + pane.offset_y - headings.bottom;
    r.width = cell.right - cell.left;
    r.height = cell.bottom - cell.top;
    *count += 1;
  }
  if (owned) free(notes.data);
  return leave(0);
}

/* ---- Resizing ---------------------------------------------------------- */

/* A change of pixels in twips; rows take the horizontal conversion too. */
static int32_t delta_twips(const KELState& state, int delta) {
  uint32_t magnitude = state.horizontal_pixels_to_twips(
      static_cast<uint32_t>(delta < 0 ? -static_cast<int64_t>(delta) : delta));
  return delta < 0 ? -static_cast<int32_t>(magnitude) : static_cast<int32_t>(magnitude);
}

extern "C" KEL_API unsigned kel_resize_row(kel_file* file, int sheet, int y, int delta) {
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  if (!status) status = kel_check_y(file, y);
  if (status) return leave(status);
  cell_t cell = file->draw.table->coord_to_cell(0, static_cast<uint32_t>(y));
  int64_t height = static_cast<int64_t>(xls_get_row_height(handle,
                                                           static_cast<uint16_t>(cell.row),
                                                           nullptr)) +
                   delta_twips(file->draw.table->state, delta);
  if (height < 0) return leave(0);
  return leave(xls_set_row_height(handle, static_cast<uint16_t>(cell.row),
                                  static_cast<uint32_t>(height)));
}

extern "C" KEL_API unsigned kel_resize_column(kel_file* file, int sheet, int x, int delta) {
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  if (!status) status = kel_check_x(file, x);
  if (status) return leave(status);
  cell_t cell = file->draw.table->coord_to_cell(static_cast<uint32_t>(x), 0);
  int64_t width = static_cast<int64_t>(xls_get_col_width(handle,
                                                         static_cast<uint8_t>(cell.col),
                                                         nullptr)) +
                  delta_twips(file->draw.table->state, delta);
  if (width < 0) return leave(0);
  return leave(xls_set_col_width(handle, static_cast<uint8_t>(cell.col),
                                 static_cast<uint32_t>(width)));
}

extern "C" KEL_API unsigned kel_autofit_column(kel_file* file, int sheet, int x) {
  xls_sheet_t* handle;
  uint32_t status = enter_sheet(file, sheet, true, &handle);
  if (!status) status = kel_check_x(file, x);
  if (status) return leave(status);
  const KELTable* table = file->draw.table;
  cell_t cell = table->coord_to_cell(static_cast<uint32_t>(x), 0);
  int32_t largest = 0;
  uint32_t rows = xls_sheet_row_count(handle);
  for (uint32_t row = 0; row < rows; ++row) {
    int32_t width = 0, height = 0;
    table->get_content_size(cell_t{static_cast<int32_t>(row), cell.col}, &width, &height,
                            file->locale);
    if (width > largest) largest = width;
  }
  if (largest)
    status = xls_set_col_width(handle, static_cast<uint8_t>(cell.col),
                               table->state.horizontal_pixels_to_twips(
                                   static_cast<uint32_t>(largest)));
  return leave(status);
}
