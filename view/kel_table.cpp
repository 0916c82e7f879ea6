/*
 * The view's geometry: twips to pixels and back, cells to view pixels and
 * back, the panes and their scrolling, and the keyboard helpers.  Painting
 * lives in kel_table_paint.cpp, the drawing layer in kel_table_draw.cpp.
 */
#include "view/kel_table.h"

#include <stdlib.h>

#include "format/xls_format_cell.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_notes.h"
#include "workbook/kel_xls_sheet.h"

/* Up to this many twips or pixels the products of a conversion fit 32
 * bits; above it the steps change order, and the results step a little. */
static const uint32_t k_conversion_bound = 1000000;

/* Heading width: 480 twips, a third of an inch. */
static const uint32_t k_row_label_twips = 480;

/* ---- KELState ------------------------------------------------------------ */

uint32_t KELState::zoom(uint32_t value) const {
  return static_cast<uint32_t>(static_cast<uint64_t>(value) * zoom_percentage / 100);
}

/* A zero zoom here, or a zero dpi below, gives 0 twips rather than a
 * fault: the view is then useless, but the module goes on. */
uint32_t KELState::reverse_zoom(uint32_t value) const {
  if (!zoom_percentage) return 0;
  return static_cast<uint32_t>(static_cast<uint64_t>(value) * 100 / zoom_percentage);
}

static uint32_t twips_to_pixels(const KELState* state, uint32_t dpi, uint32_t twips) {
  if (twips < k_conversion_bound)
    return state->zoom(static_cast<uint32_t>(static_cast<uint64_t>(dpi) * twips / 20)) / 72;
  return static_cast<uint32_t>(static_cast<uint64_t>(dpi) * state->zoom(twips / 20) / 72);
}

static uint32_t pixels_to_twips(const KELState* state, uint32_t dpi, uint32_t pixels) {
  if (!dpi) return 0;
  if (pixels < k_conversion_bound) return state->reverse_zoom(pixels * 1440) / dpi;
  return static_cast<uint32_t>(static_cast<uint64_t>(state->reverse_zoom(pixels / dpi)) * 1440);
}

uint32_t KELState::horizontal_twips_to_pixels(uint32_t twips) const {
  return twips_to_pixels(this, horizontal_dpi, twips);
}

uint32_t KELState::vertical_twips_to_pixels(uint32_t twips) const {
  return twips_to_pixels(this, vertical_dpi, twips);
}

uint32_t KELState::horizontal_pixels_to_twips(uint32_t pixels) const {
  return pixels_to_twips(this, horizontal_dpi, pixels);
}

uint32_t KELState::vertical_pixels_to_twips(uint32_t pixels) const {
  return pixels_to_twips(this, vertical_dpi, pixels);
}

int32_t KELState::text_pixels(int32_t units, int32_t font_height, int32_t em) const {
  int64_t twentieths = static_cast<int64_t>(font_height) * (units / 72) / 20;
  return static_cast<int32_t>(
      zoom(static_cast<uint32_t>(horizontal_dpi * twentieths / em)));
}

int32_t KELState::font_pixels(int32_t font_height) const {
  return static_cast<int32_t>(
      zoom(static_cast<uint32_t>(vertical_dpi * static_cast<uint32_t>(font_height))) / 1440);
}

int32_t KELState::get_label_col0_width() const {
  if (labels_hidden) return 0;
  return static_cast<int32_t>(horizontal_twips_to_pixels(k_row_label_twips));
}

/* The column headings are as tall as a row of the sheet's default height. */
int32_t KELState::get_label_row0_height() const {
  // A view not yet given a workbook has no row to take the height from.
  xls_sheet_t* sheet = active_sheet();
  if (labels_hidden || !sheet) return 0;
  return static_cast<int32_t>(vertical_twips_to_pixels(xls_get_default_row_height(sheet)));
}

/* Each edge from the cumulative twips, so that rounding never adds up. */
void KELState::horizontal_col_pos(uint32_t col, int32_t* left, int32_t* right) const {
  uint32_t left_twips = 0;
  uint32_t width = xls_get_col_width(active_sheet(), static_cast<uint8_t>(col), &left_twips);
  if (left) *left = static_cast<int32_t>(horizontal_twips_to_pixels(left_twips));
  if (right) *right = static_cast<int32_t>(horizontal_twips_to_pixels(left_twips + width));
}

void KELState::vertical_row_pos(uint32_t row, int32_t* top, int32_t* bottom) const {
  uint32_t top_twips = 0;
  uint32_t height = xls_get_row_height(active_sheet(), static_cast<uint16_t>(row), &top_twips);
  if (top) *top = static_cast<int32_t>(vertical_twips_to_pixels(top_twips));
  if (bottom) *bottom = static_cast<int32_t>(vertical_twips_to_pixels(top_twips + height));
}

uint32_t KELState::get_next_visible_row(uint32_t row) const {
  if (row >= XLS_MAX_ROWS) return XLS_MAX_ROWS - 1;
  xls_sheet_t* sheet = active_sheet();
  for (uint32_t next = row + 1; next < XLS_MAX_ROWS; ++next)
    if (!xls_is_row_hidden(sheet, static_cast<uint16_t>(next))) return next;
  return row;
}

uint32_t KELState::get_next_visible_col(uint32_t col) const {
  if (col >= XLS_MAX_COLUMNS) return XLS_MAX_COLUMNS - 1;
  xls_sheet_t* sheet = active_sheet();
  for (uint32_t next = col + 1; next < XLS_MAX_COLUMNS; ++next)
    if (!xls_is_col_hidden(sheet, static_cast<uint8_t>(next))) return next;
  return col;
}

xls_sheet_t* KELState::active_sheet() const {
  return workbook ? xls_get_active_sheet(workbook) : nullptr;
}

/* ---- KELPane ------------------------------------------------------------- */

void KELPane::set(const rect_t& outer_rect, const rect_t& pane_rect, int32_t x, int32_t y,
                  uint32_t pane_flags) {
  outer = outer_rect;
  rect = pane_rect;
  offset_x = x;
  offset_y = y;
  flags = pane_flags;
}

void KELPane::move_offset(int32_t x, int32_t y) {
  offset_x = x;
  offset_y = y;
}

bool KELPane::pt_to_pane(int32_t x, int32_t y) const {
  return rect.left <= x && x <= rect.right && rect.top <= y && y <= rect.bottom;
}

int32_t KELPane::label_width() const {
  return (flags & KEL_PANE_NO_ROW_LABELS) ? 0 : state->get_label_col0_width();
}

int32_t KELPane::label_height() const {
  return (flags & KEL_PANE_NO_COLUMN_LABELS) ? 0 : state->get_label_row0_height();
}

rect_t KELPane::content_rectangle() const {
  rect_t content = rect;
  content.left += label_width();
  content.top += label_height();
  return content;
}

void KELPane::set_draw_area(rect_t* out, int32_t left, int32_t top, int32_t right,
                            int32_t bottom) const {
  int32_t dx = rect.left + label_width();
  int32_t dy = rect.top + label_height();
  out->left = left + dx;
  out->top = top + dy;
  out->right = right + dx;
  out->bottom = bottom + dy;
}

int KELPane::get_merged_cell_extents(const cell_t* cell, const xls_simple_array* merged,
                                     int32_t* left, int32_t* right, int32_t* top,
                                     int32_t* bottom) const {
  uint32_t row = static_cast<uint32_t>(cell->row), col = static_cast<uint32_t>(cell->col);
  const xls_orange* ranges = static_cast<const xls_orange*>(merged->data);
  for (int i = 0; i < merged->count; ++i) {
    const xls_orange& range = ranges[i];
    if (row < range.first_row || row > range.last_row || col < range.first_col ||
        col > range.last_col)
      continue;
    if (row != range.first_row || col != range.first_col) {
      // Covered: the top left cell paints the whole merge.
      state->horizontal_col_pos(col, left, right);
      return 0;
    }
    state->horizontal_col_pos(range.first_col, left, nullptr);
    state->horizontal_col_pos(range.last_col, nullptr, right);
    state->vertical_row_pos(range.first_row, top, nullptr);
    state->vertical_row_pos(range.last_row, nullptr, bottom);
    return 1;
  }
  state->horizontal_col_pos(col, left, right);
  return 1;
}

void KELPane::init_active_cell_note() { active_note = nullptr; }

bool KELPane::has_active_cell_note() const { return active_note != nullptr; }

void KELPane::set_active_cell_note(xls_note_t* note) {
  if (note != active_note) xls_note_free(active_note);
  active_note = note;
}

void KELPane::free_active_cell_note() {
  xls_note_free(active_note);
  active_note = nullptr;
}

/* ---- KELTable ------------------------------------------------------------ */

KELTable::KELTable(const xls_locale* locale)
    : panes(),
      dragger_position(-1),
      dragger_previous_position(-1),
      chart_view_enabled(true),
      state(),
      table_rect(),
      mode(KEL_MODE_NORMAL),
      dragging_row(false),
      selecting(false),
      active_pane(3),
      frozen_width(0),
      frozen_height(0),
      embedded_chart(-1) {
  state.horizontal_dpi = state.vertical_dpi = 72;
  state.zoom_percentage = 100;
  for (int32_t i = 0; i < 4; ++i) {
    panes[i].locale = locale;
    panes[i].state = &state;
    panes[i].index = i;
  }
}

KELTable::~KELTable() {
  for (KELPane& pane : panes) pane.free_active_cell_note();
}

/* The extent of all 256 columns and 65536 rows at the current zoom: the
 * bounds of scrolling and of every coordinate a caller may give. */
static void measure_sheet(KELState* state) {
  int32_t right = 0, bottom = 0;
  state->horizontal_col_pos(XLS_MAX_COLUMNS - 1, nullptr, &right);
  state->vertical_row_pos(XLS_MAX_ROWS - 1, nullptr, &bottom);
  state->sheet_width = static_cast<uint32_t>(right);
  state->sheet_height = static_cast<uint32_t>(bottom);
}

void KELTable::set_workbook(xls_file* workbook) {
  state.zoom_percentage = 100;
  state.workbook = workbook;
  if (workbook) update_panes();
}

void KELTable::set_rect(int32_t left, int32_t top, int32_t right, int32_t bottom) {
  table_rect = rect_t{left, top, right, bottom};
}

void KELTable::set_dpi(uint32_t horizontal, uint32_t vertical) {
  state.horizontal_dpi = horizontal;
  state.vertical_dpi = vertical;
}

/* The painter calls this before every paint, so the same zoom must cost
 * nothing. */
void KELTable::set_zoom_percentage(uint32_t percent) {
  if (!state.workbook || percent == state.zoom_percentage) return;
  state.zoom_percentage = percent;
  xls_sheet_t* sheet = state.active_sheet();
  if (!sheet) return;
  measure_sheet(&state);
  update_panes();
  update_scrollbars();
  uint32_t first_col = 0, first_row = 0, last_col = 0, last_row = 0;
  xls_sheet_get_sel(sheet, &first_col, &first_row, &last_col, &last_row);
  sel_set(first_col, first_row, last_col, last_row);
}

void KELTable::hide_labels(bool hidden) {
  state.labels_hidden = hidden;
  update_panes();
}

void KELTable::set_scrollbar_callbacks(IKELScrollBarEvent* horizontal,
                                       IKELScrollBarEvent* vertical) {
  state.horizontal_bar = horizontal;
  state.vertical_bar = vertical;
}

void KELTable::set_embedded_chart_display(int32_t chart) { embedded_chart = chart; }

int32_t KELTable::get_embedded_chart_display() const { return embedded_chart; }

bool KELTable::is_displaying_chart() const {
  xls_sheet_t* sheet = state.active_sheet();
  return (sheet && xls_sheet_type(sheet) == XLS_SHEET_CHART) || embedded_chart != -1;
}

/* One scrolled pane over the whole table, starting at the sheet's stored
 * top left cell.  Frozen rows and columns stay in the file but do not
 * divide the view. */
void KELTable::update_panes() {
  xls_sheet_t* sheet = state.active_sheet();
  if (!sheet) return;
  biff_window2 window;
  xls_sheet_get_WINDOW2(sheet, &window);
  int32_t x = 0, y = 0;
  state.horizontal_col_pos(window.first_col, &x, nullptr);
  state.vertical_row_pos(window.first_row, &y, nullptr);
  frozen_width = frozen_height = 0;
  for (int i = 0; i < 3; ++i) panes[i].rect = rect_t{};
  uint32_t flags = state.labels_hidden ? KEL_PANE_NO_ROW_LABELS | KEL_PANE_NO_COLUMN_LABELS : 0;
  panes[3].set(table_rect, table_rect, x, y, flags);
  active_pane = 3;
}

/* A bar's range runs to the used area's far edge; a sheet that fits the
 * page still gets half a page more, so that it can be scrolled. */
static void set_bar(IKELScrollBarEvent* bar, int32_t page, int32_t far_edge, int32_t frozen,
                    int32_t offset) {
  int32_t total = far_edge - frozen;
  if (total < 0) total = 0;
  if (total <= page) total = page + page / 2;
  bar->set_range(static_cast<uint32_t>(total), static_cast<uint32_t>(page));
  bar->set_position(static_cast<uint32_t>(offset - frozen));
}

void KELTable::update_scrollbars() {
  xls_sheet_t* sheet = state.active_sheet();
  if (!sheet) return;
  xls_orange used;
  xls_sheet_dimensions(sheet, &used);
  const KELPane& pane = panes[active_pane];
  rect_t content = pane.content_rectangle();
  if (state.horizontal_bar) {
    int32_t right = 0;
    state.horizontal_col_pos(used.last_col, nullptr, &right);
    set_bar(state.horizontal_bar, content.right - content.left, right, frozen_width,
            pane.offset_x);
  }
  if (state.vertical_bar) {
    int32_t bottom = 0;
    state.vertical_row_pos(used.last_row, nullptr, &bottom);
    set_bar(state.vertical_bar, content.bottom - content.top, bottom, frozen_height,
            pane.offset_y);
  }
}

void KELTable::update_cache_on_sheet_change() {
  dragging_row = false;
  selecting = false;
  fill_cache();
  embedded_chart = -1;
}

/* Only a worksheet has cells to lay out. */
void KELTable::fill_cache() {
  xls_sheet_t* sheet = state.active_sheet();
  if (!sheet || xls_sheet_type(sheet) != XLS_SHEET_WORKSHEET) return;
  measure_sheet(&state);
  update_panes();
  update_scrollbars();
}

/* update_panes goes back to the sheet's stored top left cell; a command
 * must not move the view, so the offsets are put back. */
void KELTable::update_after_command() {
  int32_t x = panes[3].offset_x, y = panes[3].offset_y;
  update_panes();
  update_scrollbars();
  move_offset(x, y);
}

void KELTable::sel_set(uint32_t first_col, uint32_t first_row, uint32_t last_col,
                       uint32_t last_row) {
  xls_sheet_t* sheet = state.active_sheet();
  if (!sheet) return;
  xls_simple_array merged;
  if (!xls_get_merged_cells(sheet, &merged)) {
    // A merge that the rectangle takes in part is taken whole; the wider
    // rectangle may touch further merges, hence the repeat.
    const xls_orange* ranges = static_cast<const xls_orange*>(merged.data);
    for (bool grown = true; grown;) {
      grown = false;
      for (int i = 0; i < merged.count; ++i) {
        const xls_orange& range = ranges[i];
        if (range.first_row > last_row || range.last_row < first_row ||
            range.first_col > last_col || range.last_col < first_col)
          continue;
        if (range.first_row < first_row) first_row = range.first_row, grown = true;
        if (range.last_row > last_row) last_row = range.last_row, grown = true;
        if (range.first_col < first_col) first_col = range.first_col, grown = true;
        if (range.last_col > last_col) last_col = range.last_col, grown = true;
      }
    }
    free(merged.data);
  }
  xls_sheet_set_sel(sheet, first_col, first_row, last_col, last_row);
}

/* The table's top is added twice on the y axis, as it has always been;
 * the module's table starts at 0, where it makes no difference. */
rect_t KELTable::cell_to_coord(int32_t col, int32_t row) const {
  int32_t label_width = state.get_label_col0_width();
  int32_t label_height = state.get_label_row0_height();
  if (col == -1 || row == -1) return rect_t{0, 0, label_width, label_height};
  rect_t cell = cell_rect(cell_t{row, col});
  const KELPane& pane = panes[active_pane];
  int32_t dx = table_rect.left - pane.offset_x + label_width;
  int32_t dy = 2 * table_rect.top - pane.offset_y + label_height;
  return rect_t{cell.left + dx, cell.top + dy, cell.right + dx, cell.bottom + dy};
}

/* A plain scan from A1: hidden columns and rows have no extent and never
 * match. */
cell_t KELTable::coord_to_cell(uint32_t x, uint32_t y) const {
  cell_t cell = {XLS_MAX_ROWS, XLS_MAX_COLUMNS};
  for (uint32_t col = 0; col < XLS_MAX_COLUMNS; ++col) {
    int32_t left = 0, right = 0;
    state.horizontal_col_pos(col, &left, &right);
    if (static_cast<uint32_t>(left) <= x && x < static_cast<uint32_t>(right)) {
      cell.col = static_cast<int32_t>(col);
      break;
    }
  }
  for (uint32_t row = 0; row < XLS_MAX_ROWS; ++row) {
    int32_t top = 0, bottom = 0;
    state.vertical_row_pos(row, &top, &bottom);
    if (static_cast<uint32_t>(top) <= y && y < static_cast<uint32_t>(bottom)) {
      cell.row = static_cast<int32_t>(row);
      break;
    }
  }
  return cell;
}

/* Moves on past every column or row that ends at or before the pixel: a
 * pixel on a boundary belongs to the cell after it, and a hidden column
 * that starts there stops the scan on itself.  The rows start near the
 * answer, from the sheet's table of heights. */
uint32_t KELTable::pixel_to_cell(int32_t x, int32_t y, unsigned short* col,
                                 unsigned short* row) const {
  uint32_t c = 0;
  for (;; ++c) {
    if (c >= XLS_MAX_COLUMNS) return KEL_ERR_GENERAL;
    int32_t left = 0, right = 0;
    state.horizontal_col_pos(c, &left, &right);
    if (!(left < x && right <= x)) break;
  }
  // A y above the sheet starts at row 0 rather than wrapping to a far row.
  uint32_t twips = y > 0 ? state.vertical_pixels_to_twips(static_cast<uint32_t>(y)) : 0;
  uint32_t r = xls_find_row(state.active_sheet(), twips);
  for (;; ++r) {
    if (r >= XLS_MAX_ROWS) return KEL_ERR_GENERAL;
    int32_t top = 0, bottom = 0;
    state.vertical_row_pos(r, &top, &bottom);
    if (!(top < y && bottom <= y)) break;
  }
  *col = static_cast<unsigned short>(c);
  *row = static_cast<unsigned short>(r);
  return 0;
}

rect_t KELTable::cell_rect(const cell_t& cell) const {
  rect_t r;
  state.horizontal_col_pos(static_cast<uint32_t>(cell.col), &r.left, &r.right);
  state.vertical_row_pos(static_cast<uint32_t>(cell.row), &r.top, &r.bottom);
  return r;
}

void KELTable::center_of_cell(int32_t col, int32_t row, uint32_t* x, uint32_t* y) const {
  rect_t cell = cell_rect(cell_t{row, col});
  const KELPane& pane = panes[active_pane];
  *x = static_cast<uint32_t>(table_rect.left + cell.left + frozen_width - pane.offset_x +
                             (cell.right - cell.left) / 2 + state.get_label_col0_width());
  *y = static_cast<uint32_t>(cell.top + frozen_height + 2 * table_rect.top - pane.offset_y +
                             (cell.bottom - cell.top) / 2 + state.get_label_row0_height());
}

int32_t KELTable::get_row_height(uint32_t row) const {
  rect_t r = cell_rect(cell_t{static_cast<int32_t>(row), 0});
  return r.bottom - r.top;
}

int32_t KELTable::get_col_width(uint32_t col) const {
  rect_t r = cell_rect(cell_t{0, static_cast<int32_t>(col)});
  return r.right - r.left;
}

uint32_t KELTable::set_row_height(uint32_t row, uint32_t pixels) {
  uint32_t status = xls_set_row_height(state.active_sheet(), static_cast<uint16_t>(row),
                                       state.vertical_pixels_to_twips(pixels));
  if (status) return status;
  fill_cache();
  return 0;
}

uint32_t KELTable::set_col_width(uint32_t col, uint32_t pixels) {
  uint32_t status = xls_set_col_width(state.active_sheet(), static_cast<uint8_t>(col),
                                      state.horizontal_pixels_to_twips(pixels));
  if (status) return status;
  fill_cache();
  return 0;
}

/* Clamps the offset into the sheet and keeps the new top left cell in the
 * sheet's WINDOW2, so that it is saved with the workbook. */
void KELTable::move_offset(int32_t x, int32_t y) {
  rect_t content = panes[active_pane].content_rectangle();
  int32_t highest_x = static_cast<int32_t>(state.sheet_width) - (content.right - content.left);
  int32_t highest_y = static_cast<int32_t>(state.sheet_height) - (content.bottom - content.top);
  // Raised first, then lowered: content wider than the sheet makes the
  // highest value negative, and then it wins.
  if (x < 0) x = 0;
  if (y < 0) y = 0;
  if (x > highest_x) x = highest_x;
  if (y > highest_y) y = highest_y;
  xls_sheet_t* sheet = state.active_sheet();
  biff_window2 window;
  xls_sheet_get_WINDOW2(sheet, &window);
  unsigned short col = 0, row = 0;
  if (pixel_to_cell(x, y, &col, &row)) return;
  window.first_col = col;
  window.first_row = row;
  panes[3].move_offset(x, y);
  xls_sheet_set_WINDOW2(sheet, &window);
  if (state.horizontal_bar)
    state.horizontal_bar->set_position(
        x > frozen_width ? static_cast<uint32_t>(x - frozen_width) : 0);
  if (state.vertical_bar)
    state.vertical_bar->set_position(
        y > frozen_height ? static_cast<uint32_t>(y - frozen_height) : 0);
}

void KELTable::dimension_sheet_size(uint32_t* width, uint32_t* height) const {
  xls_orange used;
  xls_sheet_dimensions(state.active_sheet(), &used);
  if (width) {
    int32_t right = 0;
    state.horizontal_col_pos(used.last_col, nullptr, &right);
    *width = static_cast<uint32_t>(right);
  }
  if (height) {
    int32_t bottom = 0;
    state.vertical_row_pos(used.last_row, nullptr, &bottom);
    *height = static_cast<uint32_t>(bottom);
  }
}

void KELTable::get_dimension_of_visible_cells(uint32_t* cols, uint32_t* rows) const {
  const KELPane& pane = panes[active_pane];
  rect_t content = pane.content_rectangle();
  unsigned short first_col = 0, first_row = 0, last_col = 0, last_row = 0;
  if (pixel_to_cell(pane.offset_x, pane.offset_y, &first_col, &first_row) ||
      pixel_to_cell(pane.offset_x + content.right - content.left,
                    pane.offset_y + content.bottom - content.top, &last_col, &last_row)) {
    *cols = *rows = 0;
    return;
  }
  *cols = static_cast<uint32_t>(last_col - first_col);
  *rows = static_cast<uint32_t>(last_row - first_row);
}

/* Pixel height of a line of face's text at font_height twips. */
static int32_t line_pixels(const KELState& state, const fe_info& info, int32_t font_height) {
  int64_t scaled = static_cast<int64_t>(state.vertical_dpi) * (info.ascent - info.descent) *
                   font_height / info.em;
  return static_cast<int32_t>(state.zoom(static_cast<uint32_t>(scaled)) / 1440);
}

/* The room a cell's shown text needs, for fitting a column to its cells:
 * the text's width with 4 pixels of margin inside the zoom, and an eighth
 * of the font's pixel size outside it. */
void KELTable::get_content_size(const cell_t& cell, int32_t* width, int32_t* height,
                                const xls_locale* locale) const {
  *width = *height = 0;
  xls_sheet_t* sheet = state.active_sheet();
  xls_read_cell_info info = {};
  info.flags = XLS_READ_CELL | XLS_READ_NUMBER_FORMAT | XLS_READ_FONT;
  uint32_t status = xls_read_cell(sheet, cell.col, cell.row, &info, locale);
  if (status) {
    auto_cell_release(&info.cell);
    return;
  }
  int32_t font_height = info.font->height;
  fe_info metrics;
  if (!info.cell) {
    fe_font_info(FE_DEFAULT_FACE, &metrics);
    *height = line_pixels(state, metrics, font_height);
    return;
  }
  xls_format_cell_params params = {};
  params.value = &info.cell->value;
  params.number_format = info.number_format;
  params.flags = xls_1904_dates(state.workbook) ? XLS_FORMAT_CELL_1904 : 0;
  params.font = info.font;
  params.locale = locale;
  status = xls_format_cell(&params);
  auto_cell_release(&info.cell);
  if (status) return;
  unsigned face = FE_DEFAULT_FACE;
  fe_match(info.font, &face, FE_DEFAULT_FACE);
  fe_font_info(face, &metrics);
  int32_t length = static_cast<int32_t>(ucs2_len(params.result));
  int32_t units = fe_string_width(face, params.result, length);
  free(params.result);
  *height = line_pixels(state, metrics, font_height);
  int64_t twentieths = static_cast<int64_t>(font_height) * ((units + 71) / 72) / 20;
  int64_t text = static_cast<int64_t>(state.horizontal_dpi) * twentieths / metrics.em + 4;
  *width = static_cast<int32_t>(state.zoom(static_cast<uint32_t>(text)) +
                                ((static_cast<uint32_t>(state.font_pixels(font_height)) + 7) >> 3));
}

int32_t KELTable::vertical_split_col() const {
  biff_pane pane;
  xls_sheet_get_pane(state.active_sheet(), &pane);
  return pane.x_split - 1;
}

int32_t KELTable::horizontal_split_row() const {
  biff_pane pane;
  xls_sheet_get_pane(state.active_sheet(), &pane);
  return pane.y_split - 1;
}

int KELTable::label_row_to_coord_if_visible(uint32_t row, rect_t* r) const {
  r->left = table_rect.left;
  r->right = table_rect.left + state.get_label_col0_width();
  state.vertical_row_pos(row, &r->top, &r->bottom);
  for (int i = 0; i < 4; ++i) {
    const KELPane& pane = panes[i];
    if (pane.offset_y > r->top || r->bottom > pane.offset_y + pane.rect.bottom - pane.rect.top)
      continue;
    // Panes 1 and 3 lie below the column headings.
    int32_t shift = pane.rect.top - pane.offset_y + table_rect.top;
    if (i == 1 || i == 3) shift += state.get_label_row0_height();
    r->top += shift;
    r->bottom += shift;
    return 1;
  }
  return 0;
}

int KELTable::label_col_to_coord_if_visible(uint32_t col, rect_t* r) const {
  r->top = 2 * table_rect.top;
  r->bottom = r->top + state.get_label_row0_height();
  state.horizontal_col_pos(col, &r->left, &r->right);
  for (int i = 0; i < 4; ++i) {
    const KELPane& pane = panes[i];
    if (pane.offset_x > r->left || r->right > pane.offset_x + pane.rect.right - pane.rect.left)
      continue;
    // Panes 2 and 3 lie right of the row headings.
    int32_t shift = pane.rect.left - pane.offset_x;
    if (i == 2 || i == 3) shift += state.get_label_col0_width();
    r->left += shift;
    r->right += shift;
    return 1;
  }
  return 0;
}

/* Moving right or down into a merge goes on to the cell past it.  Going
 * back over a merge is not handled: the cursor then lands inside it.  A
 * merge that reaches the sheet's edge keeps the cursor on the edge. */
void KELTable::jump_over_merged_cells(unsigned char* col, unsigned short* row,
                                      direction_t direction) const {
  if (direction != KEL_DIR_RIGHT && direction != KEL_DIR_DOWN) return;
  xls_simple_array merged;
  if (xls_get_merged_cells(state.active_sheet(), &merged)) return;
  const xls_orange* ranges = static_cast<const xls_orange*>(merged.data);
  for (int i = 0; i < merged.count; ++i) {
    const xls_orange& range = ranges[i];
    if (direction == KEL_DIR_RIGHT && range.first_row <= *row && *row <= range.last_row &&
        range.first_col < *col && *col <= range.last_col) {
      if (range.last_col < XLS_MAX_COLUMNS - 1)
        *col = static_cast<unsigned char>(range.last_col + 1);
      break;
    }
    if (direction == KEL_DIR_DOWN && range.first_col <= *col && *col <= range.last_col &&
        range.first_row < *row && *row <= range.last_row) {
      if (range.last_row < XLS_MAX_ROWS - 1)
        *row = static_cast<unsigned short>(range.last_row + 1);
      break;
    }
  }
  free(merged.data);
}

/* The first visible row from the rectangle's top in the direction given;
 * up to a sheet hidden above, the search turns downwards.  No visible row
 * leaves the rectangle as it is. */
void KELTable::move_to_next_visible_row(cell_rect_t* rect, direction_t direction) const {
  if (direction != KEL_DIR_UP && direction != KEL_DIR_DOWN) return;
  xls_sheet_t* sheet = state.active_sheet();
  int32_t row = rect->top_row;
  if (direction == KEL_DIR_UP)
    while (row >= 0 && xls_is_row_hidden(sheet, static_cast<uint16_t>(row))) --row;
  if (row < 0 || direction == KEL_DIR_DOWN) {
    for (row = rect->top_row;
         row < XLS_MAX_ROWS && xls_is_row_hidden(sheet, static_cast<uint16_t>(row)); ++row) {
    }
    if (row >= XLS_MAX_ROWS) return;
  }
  rect->top_row = rect->bottom_row = row;
}

void KELTable::move_to_next_visible_col(cell_rect_t* rect, direction_t direction) const {
  if (direction != KEL_DIR_LEFT && direction != KEL_DIR_RIGHT) return;
  xls_sheet_t* sheet = state.active_sheet();
  int32_t col = rect->left_col;
  if (direction == KEL_DIR_LEFT)
    while (col >= 0 && xls_is_col_hidden(sheet, static_cast<uint8_t>(col))) --col;
  if (col < 0 || direction == KEL_DIR_RIGHT) {
    for (col = rect->left_col;
         col < XLS_MAX_COLUMNS && xls_is_col_hidden(sheet, static_cast<uint8_t>(col)); ++col) {
    }
    if (col >= XLS_MAX_COLUMNS) return;
  }
  rect->left_col = rect->right_col = col;
}
