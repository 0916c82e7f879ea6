/*
 * kel_table_paint.cpp -- the paint of a sheet: white ground, cell fills,
 * cell texts, gridlines, headings and the open note.
 *
 * Nothing is kept between paints: every visible cell is read from the
 * workbook as it is drawn.  Cell positions are sheet pixels; the drawing
 * layer's origin takes the pane's scroll offset off them.
 */
#include <stdio.h>
#include <stdlib.h>

#include "format/xls_format_cell.h"
#include "formula/xls_value.h"
#include "foundation/zuv_array.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "view/kel_table.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_notes.h"
#include "workbook/kel_xls_sheet.h"

const DRGBValue kel_white = {0x00, 0xFF, 0xFF, 0xFF};
const DRGBValue kel_black = {0x00, 0x00, 0x00, 0x00};
const DRGBValue kel_grey = {0x00, 0xB6, 0xB6, 0xB6};
const DRGBValue kel_label_face = {0x00, 0xCC, 0xCC, 0xCC};
const DRGBValue kel_note_fill = {0xFF, 0xFF, 0xFF, 0xC0};
const DRGBValue kel_note_text = {0xFF, 0x00, 0x00, 0x00};
const DRGBValue kel_note_line = {0xFF, 0x64, 0x64, 0x64};

namespace {

/* Horizontal alignments (the low three bits of the XF's alignment byte). */
enum { ALIGN_LEFT = 1, ALIGN_CENTRE = 2, ALIGN_RIGHT = 3 };

/* Headings and notes are measured in the plain sans face. */
const unsigned kSansFace = 4;
const uint16_t kNoteFontHeight = 200;  /* twips */
const uint16_t kDefaultXf = 15;

int32_t min32(int32_t a, int32_t b) { return a < b ? a : b; }
int32_t max32(int32_t a, int32_t b) { return a > b ? a : b; }

bool is_white(const DRGBValue& colour) {
  return colour.red == 0xFF && colour.green == 0xFF && colour.blue == 0xFF;
}

/* What a value stands for: a formula its cached result, an array its first
 * element; a range has no kind of its own (bvt_empty). */
xls_basic_value_t basic_of(const xls_value_t* value) {
  xls_basic_value_t basic = {};
  if (xls_basic_value(value, &basic)) return xls_basic_value_t{};
  if (basic.kind == bvt_array) {
    const xls_basic_array_t& array = basic.u.array;
    if (array.rows && array.columns && array.elements) return array.elements[0];
    return xls_basic_value_t{};
  }
  return basic;
}

/* The text of a string cell, or null if it holds anything else or nothing. */
const unsigned short* non_empty_string(const xls_cell_t* cell) {
  if (!cell) return nullptr;
  xls_basic_value_t basic = basic_of(&cell->value);
  if (basic.kind != bvt_string || !basic.u.string || !basic.u.string[0]) return nullptr;
  return basic.u.string;
}

/* Whether an overflowing text may run into (column, row): no cell there, or
 * a blank one.  A read failure counts as taken, which stops the overflow. */
bool cell_is_free(xls_sheet_t* sheet, int32_t column, int32_t row) {
  auto_value_t value = nullptr;
  if (xls_get_cell_value(sheet, column, row, &value)) return false;
  bool free_cell = !value ||
                   (value->value.kind == vt_basic && value->value.u.basic.kind == bvt_empty);
  auto_cell_release(&value);
  return free_cell;
}

/* Characters whose positions line up in columns of figures. */
bool lines_up(unsigned short c) {
  return c == ',' || c == '.' || c == '(' || c == ')' || (c >= '0' && c <= '9');
}

/* The Text format ("@") shows even a number as text, on the left. */
bool is_text_format(const unsigned short* format) {
  return format && format[0] == '@' && format[1] == 0;
}

bool inside(const cell_rect_t& cells, const cell_t& cell) {
  return cell.row >= cells.top_row && cell.row <= cells.bottom_row &&
         cell.col >= cells.left_col && cell.col <= cells.right_col;
}

}  // namespace

/* ---- Entry --------------------------------------------------------------- */

uint32_t kel_draw_table(kel_draw_table_params_t* params) {
  if (!params || !params->table) return 0;
  KELTable* table = params->table;
  /* A zoom of 0 would shrink the sheet to nothing: the last zoom stays. */
  if (params->zoom) table->set_zoom_percentage(params->zoom);
  table->set_draw_callbacks(params);
  table->table_render();
  return 0;
}

void KELTable::set_draw_callbacks(kel_draw_table_params_t* params) {
  state.params = params;
  state.set_origin(0, 0);
}

void KELTable::table_render() {
  xls_file* workbook = state.workbook;
  kel_draw_table_params_t* params = state.params;
  if (!workbook || !params) return;
  const int32_t width = table_rect.right - table_rect.left;
  const int32_t height = table_rect.bottom - table_rect.top;
  if (params->canvas)
    params->canvas->SetClip(DRect{table_rect.left, table_rect.top, width, height});

  if (is_displaying_chart()) {
    /* No chart painter in this build: a chart shows as an empty table. */
    state.draw_rect(table_rect.left, table_rect.top, width, height, &kel_white, nullptr);
    return;
  }

  xls_enable_drawing_cache(workbook);
  if (mode == KEL_MODE_DRAG) {
    /* Only the rubber line moves: XOR takes the old one away. */
    if (dragging_row) {
      if (dragger_previous_position != -1)
        state.draw_rect_xor(table_rect.left, dragger_previous_position + table_rect.top,
                            width + 1, 1);
      dragger_previous_position = dragger_position;
      if (dragger_position != -1)
        state.draw_rect_xor(table_rect.left, dragger_position + table_rect.top, width + 1, 1);
    } else {
      if (dragger_previous_position != -1)
        state.draw_rect_xor(dragger_previous_position + table_rect.left, table_rect.top, 1,
                            height + 1);
      dragger_previous_position = dragger_position;
      if (dragger_position != -1)
        state.draw_rect_xor(dragger_position + table_rect.left, table_rect.top, 1, height + 1);
    }
  } else {
    state.draw_rect(table_rect.left, table_rect.top, width, height, &kel_white, nullptr);
    KELPane* noted = nullptr;
    for (KELPane& pane : panes) {
      pane.pane_render();
      if (pane.has_active_cell_note()) noted = &pane;
    }
    /* Last, so that the note lies above every pane. */
    if (noted) noted->draw_active_cell_note();
  }
  xls_disable_drawing_cache(workbook);
}

/* ---- Pane ---------------------------------------------------------------- */

void KELPane::pane_render() {
  if (!rect.left && !rect.top && !rect.right && !rect.bottom) return;
  xls_sheet_t* sheet = state->active_sheet();
  const int32_t label_w = label_width(), label_h = label_height();
  /* The sheet pixels where the pane ends. */
  const int32_t sheet_right = rect.right + offset_x - rect.left;
  const int32_t sheet_bottom = rect.bottom + offset_y - rect.top;

  uint32_t sel_left = 0, sel_top = 0, sel_right = 0, sel_bottom = 0;
  if (xls_sheet_get_sel(sheet, &sel_left, &sel_top, &sel_right, &sel_bottom))
    sel_left = sel_top = sel_right = sel_bottom = 0;

  const uint32_t first_row =
      xls_find_row(sheet, state->vertical_pixels_to_twips(static_cast<uint32_t>(offset_y)));

  if (!(flags & KEL_PANE_NO_ROW_LABELS) && !(flags & KEL_PANE_NO_COLUMN_LABELS)) {
    state->draw_rect(rect.left + label_w, rect.top, 1, label_h, &kel_black, nullptr);
    state->draw_rect(rect.left, rect.top + label_h, label_w, 1, &kel_black, nullptr);
  }

  state->set_origin(-offset_x, -offset_y);
  xls_simple_array merged = {};
  if (xls_get_merged_cells(sheet, &merged)) merged = xls_simple_array{};

  for (uint32_t row = first_row; row < XLS_MAX_ROWS; ++row) {
    if (xls_is_row_hidden(sheet, static_cast<uint16_t>(row))) continue;
    int32_t row_top = 0, row_bottom = 0;
    state->vertical_row_pos(row, &row_top, &row_bottom);
    if (sheet_bottom <= label_h + row_top) break;
    if (!(offset_y < label_h + row_bottom)) continue;

    /* Always from column 0: a text left of the view may run into it. */
    int32_t col = 0, skip = 0;
    do {
      col += skip;
      skip = 0;
      if (xls_is_col_hidden(sheet, static_cast<uint8_t>(col))) continue;
      cell_t cell = {static_cast<int32_t>(row), col};
      int32_t left = 0, right = 0, top = row_top, bottom = row_bottom;
      const int drawn = get_merged_cell_extents(&cell, &merged, &left, &right, &top, &bottom);
      if (sheet_right - label_w <= left) break;
      if (!drawn) continue;

      int32_t text_left = left, text_right = right;
      check_string_extents(&cell, &text_left, &text_right, top, bottom, &skip);
      if (min32(text_right, sheet_right) - max32(text_left, offset_x) <= 0) continue;

      rect_t area;
      set_draw_area(&area, max32(offset_x, left), max32(top, offset_y), right, bottom);
      uint32_t status = draw_cell_background(sheet, cell, area, false, false);

      const int32_t x0 = max32(text_left, offset_x), y0 = max32(top, offset_y);
      const DRect clip = {x0 + rect.left + label_w, y0 + rect.top + label_h,
                          min32(text_right, sheet_right - label_w) - x0,
                          min32(bottom, sheet_bottom - label_h) - y0};
      if (!status) {
        rect_t cell_area, text_area;
        set_draw_area(&cell_area, left, top, right, bottom);
        set_draw_area(&text_area, text_left, top, text_right, bottom);
        status = draw_cell_content(sheet, cell, text_area, cell_area, &clip);
      }
      if (status) {
        /* The pane's paint ends here; the next paint resets the origin. */
        free(merged.data);
        return;
      }
      /* Gridlines whatever the sheet says; an overflowing text has widened
       * the clip over the columns it covers, so no grid stands under it. */
      state->draw_rect(clip.x, clip.y + clip.height, clip.width + 1, 1, &kel_grey, nullptr);
      state->draw_rect(clip.x + clip.width, clip.y + 1, 1, clip.height, &kel_grey, nullptr);
    } while (++col + skip < XLS_MAX_COLUMNS);
  }
  free(merged.data);
  state->set_origin(0, 0);

  if (!(flags & KEL_PANE_NO_COLUMN_LABELS)) {
    state->set_origin(-offset_x, 0);
    for (uint32_t col = 0; col < XLS_MAX_COLUMNS; ++col) {
      int32_t left = 0, right = 0;
      state->horizontal_col_pos(col, &left, &right);
      if (sheet_right <= label_w + left) break;
      if (min32(right, sheet_right) - max32(left, offset_x) <= 0) continue;
      const int32_t l = max32(left - offset_x, 0), r = right - offset_x;
      const int32_t x = l + rect.left + label_w, room = rect.right - x, w = r - l;
      const rect_t visible = {x + offset_x, rect.top - 1, x + offset_x + min32(w, room),
                              label_h + rect.top};
      rect_t full = visible;
      full.right = x + offset_x + w;
      unsigned short text[3] = {0, 0, 0};
      if (col < 26) {
        text[0] = static_cast<unsigned short>('A' + col);
      } else {
        text[0] = static_cast<unsigned short>(col / 26 + 64);
        text[1] = static_cast<unsigned short>(col % 26 + 65);
      }
      draw_label(visible, text, col >= sel_left && col <= sel_right, full);
    }
    state->set_origin(0, 0);
  }

  if (!(flags & KEL_PANE_NO_ROW_LABELS)) {
    state->set_origin(0, -offset_y);
    for (uint32_t row = first_row; row < XLS_MAX_ROWS; ++row) {
      int32_t top = 0, bottom = 0;
      state->vertical_row_pos(row, &top, &bottom);
      if (sheet_bottom <= label_h + top) break;
      /* Hidden rows have no height, and so no label. */
      if (min32(bottom, sheet_bottom) - max32(top, offset_y) <= 0) continue;
      const int32_t t = max32(top - offset_y, 0), b = bottom - offset_y;
      const int32_t y = t + rect.top + label_h, room = rect.bottom - y, h = b - t;
      const rect_t visible = {rect.left - 1, y + offset_y, label_w + rect.left,
                              y + offset_y + min32(h, room)};
      rect_t full = visible;
      full.bottom = y + offset_y + h;
      char digits[12];
      snprintf(digits, sizeof digits, "%lu", static_cast<unsigned long>(row + 1));
      unsigned short text[11];
      int n = 0;
      for (; digits[n] && n < 10; ++n) text[n] = static_cast<unsigned char>(digits[n]);
      text[n] = 0;
      draw_label(visible, text, row >= sel_top && row <= sel_bottom, full);
    }
    state->set_origin(0, 0);
  }
}

/* ---- Cells --------------------------------------------------------------- */

uint32_t KELPane::draw_cell_background(xls_sheet_t* sheet, const cell_t& cell,
                                       const rect_t& area, bool invert, bool force) {
  xls_read_cell_info info = {};
  info.flags = XLS_READ_ALIGNMENT | XLS_READ_FILL;
  uint32_t status = xls_read_cell(sheet, cell.col, cell.row, &info, locale);
  if (status) return status;

  /* A solid pattern shows its pattern colour, which the reader gives as the
   * background. */
  DRGBValue colour = info.fill_background;
  const kel_selection_highlight_t* selection = state->selection_highlight;
  if (selection && inside(selection->cells, cell)) {
    colour = selection->colour;
    force = true;
  } else {
    /* An empty cell of the default format takes its XF as written, without
     * the style's fill, whose colours would read as black. */
    if (!(info.flags & XLS_CELL_EXISTS) && info.xf == kDefaultXf)
      colour.red = colour.green = colour.blue = 0xFF;
    if (invert) {
      colour.red ^= 0x49;
      colour.green ^= 0x35;
      colour.blue ^= 0x15;
    }
  }
  if ((info.fill_pattern && !is_white(colour)) || force || invert)
    return state->draw_rect(area.left + 1, area.top + 1, area.right - area.left - 1,
                            area.bottom - area.top - 1, &colour, nullptr);
  return 0;
}

void KELPane::check_string_extents(cell_t* cell, int32_t* left, int32_t* right, int32_t top,
                                   int32_t bottom, int32_t* skip) {
  xls_sheet_t* sheet = state->active_sheet();
  xls_read_cell_info info = {};
  info.flags = XLS_READ_CELL | XLS_READ_FONT;
  if (xls_read_cell(sheet, cell->col, cell->row, &info, locale) ||
      !(info.flags & XLS_CELL_EXISTS)) {
    auto_cell_release(&info.cell);
    return;
  }
  /* Only strings overflow: a number too wide shows "#" signs instead. */
  const unsigned short* text = non_empty_string(info.cell);
  if (!text) {
    auto_cell_release(&info.cell);
    return;
  }
  unsigned face = kSansFace;
  fe_match(info.font, &face, kSansFace);
  fe_info metrics;
  fe_font_info(face, &metrics);
  const int32_t font_height = info.font->height;
  const int32_t units = fe_string_width(face, text, static_cast<int32_t>(ucs2_len(text)));
  const int32_t needed = state->text_pixels(units, font_height, metrics.em) + 2 +
                         ((state->font_pixels(font_height) + 7) >> 3);
  if (needed <= *right - *left) {
    auto_cell_release(&info.cell);
    return;
  }
  info.flags = XLS_READ_CELL | XLS_READ_ALIGNMENT;
  const bool read = !xls_read_cell(sheet, cell->col, cell->row, &info, locale);
  const bool string = read && (info.flags & XLS_CELL_EXISTS) &&
                      basic_of(&info.cell->value).kind == bvt_string;
  auto_cell_release(&info.cell);
  if (!string) return;

  const int32_t excess = needed - (*right - *left);
  int32_t left_part = 0, right_part = 0;
  switch (info.alignment & 7) {
    case ALIGN_RIGHT:
      left_part = excess;
      break;
    case ALIGN_CENTRE:
      left_part = excess / 2;
      right_part = excess - left_part;
      break;
    default:
      right_part = excess;
      break;
  }

  /* Leftwards the neighbours are painted already: their fill is laid again,
   * forced, so that the gridline between goes. */
  for (int32_t col = cell->col - 1; left_part > 0 && col >= 0; --col) {
    if (!cell_is_free(sheet, col, cell->row)) break;
    int32_t neighbour_left = 0, neighbour_right = 0;
    state->horizontal_col_pos(static_cast<uint32_t>(col), &neighbour_left, &neighbour_right);
    *left = neighbour_left;
    rect_t area;
    set_draw_area(&area, max32(*left, offset_x), max32(offset_y, top), neighbour_right + 1,
                  bottom);
    const cell_t neighbour = {cell->row, col};
    if (draw_cell_background(sheet, neighbour, area, false, true)) break;
    left_part -= neighbour_right - neighbour_left;
  }

  /* Rightwards the neighbours are taken over: the pane skips them. */
  if (right_part > 0 && cell->col < XLS_MAX_COLUMNS - 1) {
    const int32_t label_w = label_width();
    for (int32_t col = cell->col + 1 + *skip; right_part > 0 && col < XLS_MAX_COLUMNS;
         col = cell->col + 1 + *skip) {
      if (!cell_is_free(sheet, col, cell->row)) break;
      int32_t neighbour_left = 0, neighbour_right = 0;
      state->horizontal_col_pos(static_cast<uint32_t>(col), &neighbour_left, &neighbour_right);
      *right = neighbour_right;
      if (label_w + neighbour_left >= offset_x + rect.right) break;
      rect_t area;
      set_draw_area(&area, max32(neighbour_left - 1, offset_x), max32(offset_y, top), *right,
                    bottom);
      const cell_t neighbour = {cell->row, col};
      if (draw_cell_background(sheet, neighbour, area, false, false)) break;
      right_part -= neighbour_right - neighbour_left;
      *skip += 1;
    }
  }
}

uint32_t KELPane::draw_cell_content(xls_sheet_t* sheet, const cell_t& cell,
                                    const rect_t& text_area, const rect_t& cell_area,
                                    const DRect* clip) {
  xls_read_cell_info info = {};
  info.flags = XLS_READ_CELL | XLS_READ_NUMBER_FORMAT | XLS_READ_FONT | XLS_READ_ALIGNMENT;
  uint32_t status = xls_read_cell(sheet, cell.col, cell.row, &info, locale);
  if (status || !(info.flags & XLS_CELL_EXISTS) || !info.cell) {
    auto_cell_release(&info.cell);
    return status;
  }
  const int32_t font_height = info.font->height;

  /* The room in twips: the formatter turns a number wider than it into
   * "#" signs. */
  xls_format_cell_params format = {};
  format.value = &info.cell->value;
  format.number_format = info.number_format;
  format.flags = xls_1904_dates(state->workbook) ? XLS_FORMAT_CELL_1904 : 0;
  format.width = static_cast<int32_t>(state->reverse_zoom(
      static_cast<uint32_t>(text_area.right - text_area.left) * 1440u / state->horizontal_dpi));
  format.font = info.font;
  format.locale = locale;
  const unsigned short* text = nullptr;
  if (!xls_format_cell(&format) && format.result && format.result[0]) text = format.result;
  if (!text) {
    free(format.result);
    auto_cell_release(&info.cell);
    return 0;
  }
  const int32_t length = static_cast<int32_t>(ucs2_len(text));
  const DRGBValue colour =
      (format.result_flags & XLS_FORMAT_CELL_HAS_COLOUR) ? format.colour : info.font_colour;

  unsigned face = kSansFace;
  fe_match(info.font, &face, kSansFace);
  fe_info metrics;
  fe_font_info(face, &metrics);
  const int32_t text_width =
      state->text_pixels(fe_string_width(face, text, length), font_height, metrics.em);
  const int32_t size = state->font_pixels(font_height);
  const int32_t pad = max32(8, (size + 7) >> 3);

  const int32_t left_x = text_area.left + pad;
  const int32_t centre_x =
      cell_area.right - ((text_width + (cell_area.right - cell_area.left)) >> 1);
  int32_t x0 = left_x;
  switch (info.alignment & 7) {
    case ALIGN_RIGHT:
      x0 = text_area.right - text_width - pad;
      break;
    case ALIGN_CENTRE:
      x0 = centre_x;
      break;
    case ALIGN_LEFT:
      break;
    default:
      /* General: numbers right (and never left of their cell), booleans and
       * errors centred, the rest left; the Text format keeps numbers left. */
      if (is_text_format(info.number_format)) break;
      switch (basic_of(&info.cell->value).kind) {
        case bvt_long:
        case bvt_double:
          x0 = max32(text_area.right + 2 - text_width - pad, text_area.left + 1);
          break;
        case bvt_error:
        case bvt_bool:
          x0 = centre_x;
          break;
        default:
          break;
      }
      break;
  }

  /* On pixels the glyph bitmaps sit on the baseline: lift the text by the
   * face's descent at the font height plus a little leading. */
  int32_t baseline = text_area.bottom;
  if (state->params->bitmap.pixels) {
    const int64_t lift = static_cast<int64_t>(state->horizontal_dpi) * metrics.descent *
                         (-19 - font_height) / metrics.em;
    baseline -= static_cast<int32_t>(state->zoom(static_cast<uint32_t>(lift)) / 1440);
  }

  /* Glyph by glyph, the pen pulled back towards where the built-in metrics
   * put each character, so that figures line up down a column. */
  int32_t pen = x0, units_before = 0;
  unsigned short previous = 0;
  for (int32_t i = 0; i < length && !status; ++i) {
    unsigned short c = text[i];
    const int32_t ideal = x0 + state->text_pixels(units_before, font_height, metrics.em);
    units_before += fe_string_width(face, &text[i], 1);
    if (c == '\n') c = ' ';
    else if (c == 0x2015) c = 0x2014;
    if (c == ' ' || previous == ' ') {
      pen = ideal < pen + 1 ? pen + 1 : ideal;
    } else if (face > 3 && (lines_up(c) || lines_up(previous))) {
      pen = ideal < pen - 1 ? pen - 1 : ideal;
    }
    previous = c;
    if (pen >= text_area.right) break;
    status = state->draw_glyph(face, size, c, &colour, &pen, baseline, clip);
  }

  const int32_t underline_x = clip ? max32(x0, clip->x) : x0;
  if (!status && info.font->underline && pen > underline_x) {
    uint32_t thickness =
        state->zoom(state->vertical_dpi * static_cast<uint32_t>(font_height)) / 720;
    if (info.font->weight > 400) thickness += (thickness + 9) / 10;
    thickness = thickness < 20 ? 1 : thickness / 20;
    const int32_t t = static_cast<int32_t>(thickness);
    status = state->draw_rect(underline_x, baseline + t, pen - underline_x, t, &colour, nullptr);
  }
  free(format.result);
  auto_cell_release(&info.cell);
  return status;
}

uint32_t KELPane::draw_select_cell_border(xls_sheet_t* sheet, const cell_t& cell,
                                          const rect_t& area, int sides) {
  xls_read_cell_info info = {};
  info.flags = XLS_READ_ALIGNMENT | XLS_READ_FILL;
  uint32_t status = xls_read_cell(sheet, cell.col, cell.row, &info, locale);
  if (status) return status;
  /* The inverse of a fill stands out against it. */
  DRGBValue colour = kel_black;
  if (info.fill_pattern) {
    colour = info.fill_background;
    colour.red = static_cast<uint8_t>(0xFF - colour.red);
    colour.green = static_cast<uint8_t>(0xFF - colour.green);
    colour.blue = static_cast<uint8_t>(0xFF - colour.blue);
  }
  const int32_t width = area.right - area.left - 1, height = area.bottom - area.top - 1;
  if (!status && (sides & 4))
    status = state->draw_rect(area.left + 1, area.top + 1, 2, height, &colour, nullptr);
  if (!status && (sides & 2))
    status = state->draw_rect(area.left + 1, area.bottom - 2, width, 2, &colour, nullptr);
  if (!status && (sides & 8))
    status = state->draw_rect(area.right - 2, area.top + 1, 2, height, &colour, nullptr);
  if (!status && (sides & 1))
    status = state->draw_rect(area.left + 1, area.top + 1, width, 2, &colour, nullptr);
  return status;
}

/* ---- Headings ------------------------------------------------------------ */

void KELPane::draw_label(const rect_t& visible, const unsigned short* text, bool selected,
                         const rect_t& full) {
  if (state->label_painter) {
    state->label_painter(state->label_context, state, visible, text, selected, full);
    return;
  }
  state->draw_rect(visible.left + 1, visible.top + 1, visible.right - visible.left - 1,
                   visible.bottom - visible.top - 1, &kel_label_face, nullptr);
  state->draw_rect(visible.left + 1, visible.bottom, visible.right - visible.left - 1, 1,
                   &kel_black, nullptr);
  state->draw_rect(visible.right, visible.top, 1, visible.bottom - visible.top + 1, &kel_black,
                   nullptr);
  draw_label_text(state, visible, text, selected);
}

void KELPane::draw_label_text(KELState* drawing, const rect_t& r, const unsigned short* text,
                              bool) {
  if (r.right - r.left < 6 || r.bottom - r.top <= 2) return;
  const int32_t w = r.left < 0 ? r.right : r.right - r.left;
  const int32_t h = r.top < 0 ? r.bottom : r.bottom - r.top;
  const int32_t length = static_cast<int32_t>(ucs2_len(text));
  fe_info metrics;
  fe_font_info(kSansFace, &metrics);
  const uint32_t em = static_cast<uint32_t>(metrics.em);
  const uint32_t hdpi = drawing->horizontal_dpi, vdpi = drawing->vertical_dpi;
  const uint32_t units = static_cast<uint32_t>(fe_string_width(kSansFace, text, length));

  /* A nominal 10 pixels, smaller where the heading is too low or narrow. */
  const int32_t line = static_cast<int32_t>(
      drawing->zoom(vdpi * static_cast<uint32_t>(metrics.ascent - metrics.descent) * 10 / em) / 72);
  int32_t size = 10;
  if (line > h - 2) size = line > 0 ? 10 * (h - 2) / line : 0;
  if (size <= 0) return;  /* no room for a glyph of a pixel or more */
  int32_t text_width = static_cast<int32_t>(
      drawing->zoom(static_cast<uint32_t>(size) * hdpi * (units / 72) / em));
  if (text_width > 0 && text_width > w - 2 - 2 * length) {
    size = (w - 4) * size / text_width;
    text_width = size <= 0 ? 0
                           : static_cast<int32_t>(drawing->zoom(
                                 hdpi * (units / static_cast<uint32_t>(size)) / em));
  }
  if (size <= 0) return;
  const int32_t pixels =
      static_cast<int32_t>(drawing->zoom(vdpi * static_cast<uint32_t>(size)) / 72);
  if (pixels <= 1) return;

  /* Small shifts that centre the usual heading texts by eye. */
  int32_t shift = -2;
  if (length == 1) shift = 0;
  else if (length == 4) shift = -3;
  else if (length == 5) shift = 4;
  int32_t x = max32(r.left + (r.right - r.left) / 2 - text_width / 2 + shift, 0);
  int32_t baseline = r.bottom - 1;
  if (pixels <= h) baseline -= -metrics.descent * pixels / metrics.em;
  const int32_t end = w + max32(r.left, 0);
  for (int32_t i = 0; i < length && x < end; ++i)
    if (drawing->draw_glyph(kSansFace, pixels, text[i], &kel_black, &x, baseline, nullptr)) break;
}

/* ---- Note ---------------------------------------------------------------- */

void KELPane::draw_active_cell_note() {
  const xls_note_t* note = active_note;
  if (!note || !note->text) return;
  const int32_t label_w = label_width(), label_h = label_height();
  const DRect clip = {outer.left + label_w, outer.top, outer.right - outer.left - label_w,
                      outer.bottom - outer.top};

  int32_t cell_right = 0, cell_top = 0;
  state->horizontal_col_pos(note->col, nullptr, &cell_right);
  state->vertical_row_pos(note->row, &cell_top, nullptr);
  const int32_t cx = cell_right + rect.left - offset_x + label_w;
  const int32_t cy = cell_top + rect.top - offset_y + label_h;
  const int32_t box_top = cy < label_h ? cy : max32(cy - 10, label_h);
  const int32_t bx = cx + 5;

  fe_info metrics;
  fe_font_info(kSansFace, &metrics);
  const int32_t length = static_cast<int32_t>(note->text_length);
  int32_t inner_width = state->text_pixels(fe_string_width(kSansFace, note->text, length),
                                           kNoteFontHeight, metrics.em) + 10;
  if (inner_width >= 150) inner_width = 150;

  const uint32_t vdpi = state->vertical_dpi, em = static_cast<uint32_t>(metrics.em);
  const int32_t line = static_cast<int32_t>(
      state->zoom(vdpi * static_cast<uint32_t>(metrics.ascent - metrics.descent) *
                  kNoteFontHeight / em) / 1440) + 1;
  const int32_t descent = static_cast<int32_t>(
      state->zoom(vdpi * static_cast<uint32_t>(-metrics.descent) * kNoteFontHeight / em) / 1440);
  const int32_t ascent = static_cast<int32_t>(
      state->zoom(vdpi * static_cast<uint32_t>(metrics.ascent) * kNoteFontHeight / em) / 1440);

  if (rect.left > inner_width + bx) return;  /* off the view */

  state->draw_line(cx - 1, cy + 1, bx, box_top, 2, &kel_note_line, &clip);
  const int32_t box_width = inner_width + 6;
  state->draw_rect(bx, box_top, box_width,
                   static_cast<int32_t>(state->reverse_zoom(5) + state->zoom(3)) + line + descent,
                   &kel_note_fill, &clip);
  int32_t y = static_cast<int32_t>(state->zoom(6)) + ascent + box_top;
  unsigned position = 0;
  for (;;) {
    const unsigned before = position;
    if (state->draw_word_wrapped_text_line(note->text, &position, cx + 10, y,
                                           static_cast<unsigned>(inner_width), &metrics,
                                           kNoteFontHeight, &clip, &kel_note_text, state))
      break;
    if (position >= note->text_length || position == before) break;
    state->draw_rect(bx, y + descent + 1, box_width, line, &kel_note_fill, &clip);
    y += line;
  }
  state->draw_rect(bx, y + descent + 1, box_width, descent + 1, &kel_note_fill, &clip);
  state->draw_empty_rect_with_shadow(bx, box_top, box_width, 3 - box_top + 2 * descent + y,
                                     &kel_note_text, &clip);
}
