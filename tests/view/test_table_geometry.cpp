// The sheet view's geometry: twips and pixels, cells and view coordinates,
// the pane and its scrolling, merges and the keyboard helpers, measured on
// small workbooks built in memory.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <vector>

#include "tests/workbook/biff_test_file.h"
#include "view/kel_table.h"
#include "workbook/kel_xls_notes.h"
#include "workbook/kel_xls_sheet.h"

using biff_test::add16;
using biff_test::Book;
using biff_test::Bytes;
using biff_test::one_sheet;
using biff_test::Stream;

namespace {

// The merges of the grid, in this list order: J6:J7 comes before H5:I6, so
// that a selection must be widened twice to take both; K1:IV1 reaches the
// sheet's last column.
const xls_orange kMerges[] = {{5, 9, 6, 9}, {4, 7, 5, 8}, {0, 10, 0, 255}};

// Default rows of 240 twips (12 px at 72 dpi and 100%); row 1 is 400 twips,
// rows 2 and 3 hidden.  Column 0 is 1000 twips, column 1 480, column 2
// hidden, the rest 888 (eight "0" of Arial 10).  A text "00000" at E10.
Bytes grid(uint16_t first_row = 0, uint16_t first_col = 0, bool frozen = false) {
  return one_sheet([=](Stream& s) {
    s.record(0x225, {0, 0, 240, 0});
    s.colinfo(0, 0, 2307, 15);
    s.colinfo(1, 1, 1108, 15);
    s.colinfo(2, 2, 1108, 15, 1);
    s.row_blocks(0, 10, {{1, 400, 0x40, 15}, {2, 240, 0x20, 15}, {3, 240, 0x20, 15}});
    s.label(9, 4, 15, u"00000");
    Bytes merged;
    add16(&merged, 3);
    for (const xls_orange& m : kMerges)
      add16(&merged, m.first_row), add16(&merged, m.last_row), add16(&merged, m.first_col),
          add16(&merged, m.last_col);
    s.record(0xE5, merged);
    if (frozen) s.record(0x41, {2, 0, 1, 0, 1, 0, 2, 0, 0, 0});
    s.window2(frozen ? 0x6B6 | 0x08 : 0x6B6, first_row, first_col);
  });
}

// Left and top edges in twips; a column or row ends where the next starts.
uint32_t col_twips(uint32_t col) {
  return col < 3 ? (col ? 1000 + (col - 1) * 480 : 0) : 1480 + (col - 3) * 888;
}
uint32_t row_twips(uint32_t row) {
  return row < 4 ? (row > 1 ? 640 : row * 240) : 640 + (row - 4) * 240;
}
// The same in pixels at 72 dpi and 100%, where a pixel is 20 twips.
int32_t col_left(uint32_t col) { return (int32_t)(col_twips(col) / 20); }
int32_t row_top(uint32_t row) { return (int32_t)(row_twips(row) / 20); }

struct Bar : IKELScrollBarEvent {
  uint32_t total = 0, page = 0, position = 0;
  int calls = 0;
  void set_range(uint32_t t, uint32_t p) override { total = t, page = p, ++calls; }
  void set_position(uint32_t p) override { position = p, ++calls; }
};

// A view of a workbook in a table at (0, 0) of 200 by 100 pixels.
struct View {
  Book book;
  KELTable table;
  Bar horizontal, vertical;
  explicit View(const Bytes& workbook) : book(workbook), table(nullptr) {
    table.set_rect(0, 0, 200, 100);
    table.set_scrollbar_callbacks(&horizontal, &vertical);
    table.set_workbook(book.file);
    table.fill_cache();
  }
  xls_sheet_t* sheet() const { return book.sheet(); }
  std::vector<uint32_t> selection() const {
    uint32_t sel[4];
    xls_sheet_get_sel(sheet(), &sel[0], &sel[1], &sel[2], &sel[3]);
    return std::vector<uint32_t>(sel, sel + 4);
  }
};

std::vector<int32_t> edges(const rect_t& r) { return {r.left, r.top, r.right, r.bottom}; }

TEST(TableConversions, TwipsPixelsTextAndFontAtDpiAndZoom) {
  KELTable table(nullptr);
  KELState& s = table.state;
  EXPECT_EQ(12u, s.horizontal_twips_to_pixels(240));
  // Past the bound the steps change order: twips lose the remainder of
  // pixels / dpi, so 1000000 pixels give fewer twips than 999999.
  EXPECT_EQ(100000u, s.horizontal_twips_to_pixels(2000000));
  EXPECT_EQ(19999980u, s.horizontal_pixels_to_twips(999999));
  EXPECT_EQ(19998720u, s.horizontal_pixels_to_twips(1000000));

  // The two axes keep their own dpi; the zoom applies to both.
  table.set_dpi(96, 144);
  EXPECT_EQ(16u, s.horizontal_twips_to_pixels(240));
  EXPECT_EQ(24u, s.vertical_twips_to_pixels(240));
  EXPECT_EQ(240u, s.vertical_pixels_to_twips(24));
  EXPECT_EQ(20, s.font_pixels(200));
  table.set_dpi(72, 72);
  s.zoom_percentage = 133;
  EXPECT_EQ(31, s.get_label_col0_width());
  s.zoom_percentage = 200;
  EXPECT_EQ(44, s.text_pixels(4 * 1139, 200, 2048));

  // Without a workbook the zoom stays.
  table.state.zoom_percentage = 100;
  table.set_zoom_percentage(150);
  EXPECT_EQ(100u, table.state.zoom_percentage);
}

TEST(TablePositions, EdgesFromCumulativeTwipsHiddenWithoutExtent) {
  View view(grid());
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  int32_t left = -1, right = -1, top = -1, bottom = -1;
  for (uint32_t col : {0u, 1u, 2u, 3u, 7u, 255u}) {
    t.state.horizontal_col_pos(col, &left, &right);
    EXPECT_EQ(col_left(col), left) << col;
    EXPECT_EQ(col_left(col + 1), right) << col;
  }
  for (uint32_t row : {0u, 1u, 2u, 3u, 4u, 65535u}) {
    t.state.vertical_row_pos(row, &top, &bottom);
    EXPECT_EQ(row_top(row), top) << row;
    EXPECT_EQ(row_top(row + 1), bottom) << row;
  }
  EXPECT_EQ(12, t.state.get_label_row0_height());  // the sheet's default row
  EXPECT_EQ(24, t.get_col_width(1));
  EXPECT_EQ(20, t.get_row_height(1));
  EXPECT_EQ(edges({50, 12, 74, 32}), edges(t.cell_rect({1, 1})));
  EXPECT_EQ((uint32_t)col_left(256), t.state.sheet_width);
  EXPECT_EQ((uint32_t)row_top(65536), t.state.sheet_height);
  uint32_t width = 0, height = 0;
  t.dimension_sheet_size(&width, &height);  // the used range ends at E10
  EXPECT_EQ((uint32_t)col_left(5), width);
  EXPECT_EQ((uint32_t)row_top(10), height);

  // At 133% the 1000-twip column ends at 4788 / 72 pixels.
  t.set_zoom_percentage(133);
  t.state.horizontal_col_pos(0, &left, &right);
  EXPECT_EQ(0, left);
  EXPECT_EQ(66, right);
  // From the sum of the twips: 66 + 31 + 253 * 59 for the rounded widths
  // would be 14 pixels short.
  t.state.horizontal_col_pos(255, nullptr, &right);
  EXPECT_EQ(15038, right);
  EXPECT_EQ((uint32_t)right, t.state.sheet_width);
}

TEST(TablePixelToCell, BoundariesHiddenCellsAndBeyondTheSheet) {
  View view(grid());
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  unsigned short col = 999, row = 999;
  auto pixel = [&](int32_t x, int32_t y) {
    col = row = 999;
    uint32_t status = t.pixel_to_cell(x, y, &col, &row);
    return std::vector<uint32_t>({status, col, row});
  };
  auto coord = [&](uint32_t x, uint32_t y) {
    cell_t c = t.coord_to_cell(x, y);
    return std::vector<uint32_t>({0, (uint32_t)c.col, (uint32_t)c.row});
  };
  // A pixel on a boundary belongs to the cell after it, either way.
  EXPECT_EQ(std::vector<uint32_t>({0, 1, 1}), pixel(50, 12));
  EXPECT_EQ(coord(50, 12), pixel(50, 12));
  EXPECT_EQ(std::vector<uint32_t>({0, 0, 0}), pixel(49, 11));
  // Where hidden column 2 starts, the pixel scan stops on it; the plain
  // scan skips it.  Hidden rows are skipped by both, as the row search
  // starts past them.
  EXPECT_EQ(std::vector<uint32_t>({0, 2, 4}), pixel(74, 32));
  EXPECT_EQ(std::vector<uint32_t>({0, 3, 4}), coord(74, 32));
  // Left of the sheet: column 0.
  EXPECT_EQ(std::vector<uint32_t>({0, 0, 0}), pixel(-30, 0));

  // Beyond column 255 and row 65535.
  const uint32_t width = t.state.sheet_width, height = t.state.sheet_height;
  EXPECT_EQ(std::vector<uint32_t>({0, 256, 1}), coord(width, 13));
  EXPECT_EQ(std::vector<uint32_t>({0, 255, 1}), pixel(width - 1, 13));
  EXPECT_EQ(std::vector<uint32_t>({KEL_ERR_GENERAL, 999, 999}), pixel(width, 13));
  EXPECT_EQ(std::vector<uint32_t>({0, 0, 65536}), coord(0, height));
  EXPECT_EQ(std::vector<uint32_t>({0, 0, 65535}), pixel(0, height - 1));
  EXPECT_EQ(std::vector<uint32_t>({KEL_ERR_GENERAL, 999, 999}), pixel(0, height));
}

TEST(TableCoordinates, CellsLabelsAndCentresInViewPixels) {
  View view(grid());
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  t.set_rect(10, 7, 410, 307);
  t.update_panes();
  // A -1 asks for the heading sizes, whatever the other number.
  EXPECT_EQ(edges({0, 0, 24, 12}), edges(t.cell_to_coord(-1, 5)));
  EXPECT_EQ(edges({0, 0, 24, 12}), edges(t.cell_to_coord(3, -1)));
  // x: table left + headings; y: twice the table top + headings.
  EXPECT_EQ(edges({84, 38, 108, 58}), edges(t.cell_to_coord(1, 1)));
  uint32_t x = 0, y = 0;
  t.center_of_cell(1, 1, &x, &y);
  EXPECT_EQ(96u, x);
  EXPECT_EQ(48u, y);
  // The headings of row 1 and column 1 line up with the cell.
  rect_t r;
  ASSERT_EQ(1, t.label_row_to_coord_if_visible(1, &r));
  EXPECT_EQ(edges({10, 38, 34, 58}), edges(r));
  ASSERT_EQ(1, t.label_col_to_coord_if_visible(1, &r));
  EXPECT_EQ(edges({84, 14, 108, 26}), edges(r));
  EXPECT_EQ(0, t.label_row_to_coord_if_visible(100, &r));  // below the pane

  // Scrolled, the offset comes off.
  t.move_offset(50, 12);
  EXPECT_EQ(edges({34, 26, 58, 46}), edges(t.cell_to_coord(1, 1)));
  EXPECT_EQ(0, t.label_col_to_coord_if_visible(0, &r));  // scrolled out
}

TEST(TablePanes, OnePaneFromTheStoredTopLeftEvenWhenFrozen) {
  View view(grid(5, 3, true));
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  ASSERT_TRUE(xls_is_sheet_frozen(view.sheet()));
  t.set_rect(10, 20, 210, 120);
  t.update_panes();
  EXPECT_EQ(3, t.active_pane);
  EXPECT_EQ(0, t.frozen_width);
  EXPECT_EQ(0, t.frozen_height);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(edges({0, 0, 0, 0}), edges(t.panes[i].rect)) << i;
  const KELPane& pane = t.panes[3];
  EXPECT_EQ(edges({10, 20, 210, 120}), edges(pane.rect));
  EXPECT_EQ(col_left(3), pane.offset_x);
  EXPECT_EQ(row_top(5), pane.offset_y);
  EXPECT_EQ(1, t.vertical_split_col());
  EXPECT_EQ(0, t.horizontal_split_row());
  EXPECT_EQ(edges({34, 32, 210, 120}), edges(pane.content_rectangle()));
  rect_t area;
  pane.set_draw_area(&area, 1, 2, 3, 4);
  EXPECT_EQ(edges({35, 34, 37, 36}), edges(area));
  // Both edges count as inside.
  EXPECT_TRUE(pane.pt_to_pane(10, 20) && pane.pt_to_pane(210, 120));
  EXPECT_FALSE(pane.pt_to_pane(9, 50) || pane.pt_to_pane(50, 121));

  // Hidden labels: no heading sizes, both pane flags.
  t.hide_labels(true);
  EXPECT_EQ(3u, pane.flags);
  EXPECT_EQ(edges(pane.rect), edges(pane.content_rectangle()));
  EXPECT_EQ(edges({0, 0, 0, 0}), edges(t.cell_to_coord(-1, 5)));
}

TEST(TableScrolling, MoveOffsetClampsKeepsTheTopLeftAndMovesTheBars) {
  View view(grid());
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  biff_window2 window;
  // The used range (to E10) is narrower than the page (176 pixels): half a
  // page more.  It is taller than the page (88 pixels).
  EXPECT_EQ(176u + 88, view.horizontal.total);
  EXPECT_EQ(176u, view.horizontal.page);
  EXPECT_EQ((uint32_t)row_top(10), view.vertical.total);
  EXPECT_EQ(88u, view.vertical.page);

  t.move_offset(-5, -5);
  EXPECT_EQ(0, t.panes[3].offset_x);
  EXPECT_EQ(0, t.panes[3].offset_y);
  t.move_offset(60, 40);
  EXPECT_EQ(60, t.panes[3].offset_x);
  EXPECT_EQ(40, t.panes[3].offset_y);
  EXPECT_EQ(60u, view.horizontal.position);
  EXPECT_EQ(40u, view.vertical.position);
  xls_sheet_get_WINDOW2(view.sheet(), &window);
  EXPECT_EQ(1, window.first_col);
  EXPECT_EQ(4, window.first_row);
  uint32_t cols = 0, rows = 0;
  t.get_dimension_of_visible_cells(&cols, &rows);  // to pixels (236, 128)
  EXPECT_EQ(5u, cols);                             // column 1 to column 6
  EXPECT_EQ(8u, rows);                             // row 4 to row 12

  // A command keeps the offset inside a cell; the stored top left alone
  // would move the view to the cell's edge.
  t.update_after_command();
  EXPECT_EQ(60, t.panes[3].offset_x);
  EXPECT_EQ(40, t.panes[3].offset_y);
  t.update_panes();
  EXPECT_EQ(50, t.panes[3].offset_x);
  EXPECT_EQ(32, t.panes[3].offset_y);

  t.move_offset(1 << 30, 1 << 30);
  EXPECT_EQ((int32_t)t.state.sheet_width - 176, t.panes[3].offset_x);
  EXPECT_EQ((int32_t)t.state.sheet_height - 88, t.panes[3].offset_y);
  xls_sheet_get_WINDOW2(view.sheet(), &window);
  EXPECT_EQ(252, window.first_col);

  // Content wider than the sheet: the highest offset is negative and wins,
  // and the pixel scan still finds column 0.
  t.set_rect(0, 0, 12000, 100);
  t.update_panes();
  t.move_offset(100, 0);
  EXPECT_EQ((int32_t)t.state.sheet_width - (12000 - 24), t.panes[3].offset_x);
  EXPECT_EQ(0u, view.horizontal.position);
  xls_sheet_get_WINDOW2(view.sheet(), &window);
  EXPECT_EQ(0, window.first_col);
}

TEST(TableZoom, SameZoomTwiceDoesNothingAndSelectionWidensOverMerges) {
  View view(grid());
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  xls_sheet_set_sel(view.sheet(), 8, 4, 9, 4);  // I5:J5, inside H5:I6
  t.set_zoom_percentage(200);
  EXPECT_EQ(200u, t.state.zoom_percentage);
  EXPECT_EQ(22614u, t.state.sheet_width);  // 2 * 72 * 226144 / 20 / 72
  EXPECT_EQ(48, t.panes[3].label_width());
  EXPECT_EQ(std::vector<uint32_t>({7, 4, 9, 6}), view.selection());

  int calls = view.horizontal.calls + view.vertical.calls;
  EXPECT_GT(calls, 0);
  xls_sheet_set_sel(view.sheet(), 8, 4, 9, 4);
  t.set_zoom_percentage(200);
  EXPECT_EQ(calls, view.horizontal.calls + view.vertical.calls);
  EXPECT_EQ(std::vector<uint32_t>({8, 4, 9, 4}), view.selection());

  // A new workbook starts at 100%.
  t.set_workbook(view.book.file);
  EXPECT_EQ(100u, t.state.zoom_percentage);
}

TEST(TableMerges, ExtentsJumpsAndSelection) {
  View view(grid());
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  xls_simple_array merged;
  ASSERT_EQ(0u, xls_get_merged_cells(view.sheet(), &merged));
  ASSERT_EQ(3, merged.count);
  auto extents = [&](int32_t col, int32_t row) {
    int32_t e[4] = {-7, -7, -7, -7};
    cell_t cell = {row, col};
    int32_t shown = t.panes[3].get_merged_cell_extents(&cell, &merged, &e[0], &e[1], &e[2], &e[3]);
    return std::vector<int32_t>({shown, e[0], e[1], e[2], e[3]});
  };
  // The top left cell spans the merge; a covered one paints nothing and a
  // cell outside every merge keeps its own columns, its rows untouched.
  EXPECT_EQ(std::vector<int32_t>({1, col_left(7), col_left(9), row_top(4), row_top(6)}),
            extents(7, 4));
  EXPECT_EQ(std::vector<int32_t>({0, col_left(8), col_left(9), -7, -7}), extents(8, 5));
  EXPECT_EQ(std::vector<int32_t>({1, col_left(0), col_left(1), -7, -7}), extents(0, 0));
  free(merged.data);

  auto jump = [&](unsigned char col, unsigned short row, direction_t direction) {
    t.jump_over_merged_cells(&col, &row, direction);
    return std::vector<uint32_t>({col, row});
  };
  EXPECT_EQ(std::vector<uint32_t>({9, 4}), jump(8, 4, KEL_DIR_RIGHT));
  EXPECT_EQ(std::vector<uint32_t>({7, 4}), jump(7, 4, KEL_DIR_RIGHT));  // the top left itself
  EXPECT_EQ(std::vector<uint32_t>({7, 6}), jump(7, 5, KEL_DIR_DOWN));
  EXPECT_EQ(std::vector<uint32_t>({8, 4}), jump(8, 4, KEL_DIR_LEFT));   // back: not handled
  EXPECT_EQ(std::vector<uint32_t>({11, 0}), jump(11, 0, KEL_DIR_RIGHT));  // no column past IV

  t.sel_set(0, 0, 11, 0);  // touches K1:IV1 only
  EXPECT_EQ(std::vector<uint32_t>({0, 0, 255, 0}), view.selection());
  t.sel_set(3, 3, 3, 3);
  EXPECT_EQ(std::vector<uint32_t>({3, 3, 3, 3}), view.selection());
}

TEST(TableKeyboard, NextVisibleRowsAndColumns) {
  View view(one_sheet([](Stream& s) {
    s.colinfo(0, 1, 0, 15, 1);
    s.colinfo(5, 5, 0, 15, 1);
    s.colinfo(250, 255, 0, 15, 1);
    std::vector<Stream::Row> rows;
    for (uint16_t r : {0, 1, 5, 6}) rows.push_back({r, 240, 0x20, 15});
    s.row_blocks(0, 8, rows);
    s.window2();
  }));
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  auto row = [&](int32_t from, direction_t direction) {
    cell_rect_t r = {from, 7, from + 3, 7};
    t.move_to_next_visible_row(&r, direction);
    return std::vector<int32_t>({r.top_row, r.left_col, r.bottom_row, r.right_col});
  };
  EXPECT_EQ(std::vector<int32_t>({4, 7, 4, 7}), row(6, KEL_DIR_UP));
  EXPECT_EQ(std::vector<int32_t>({2, 7, 2, 7}), row(1, KEL_DIR_UP));  // all hidden above
  EXPECT_EQ(std::vector<int32_t>({7, 7, 7, 7}), row(5, KEL_DIR_DOWN));
  EXPECT_EQ(std::vector<int32_t>({5, 7, 8, 7}), row(5, KEL_DIR_LEFT));
  auto col = [&](int32_t from, direction_t direction) {
    cell_rect_t r = {9, from, 9, from + 3};
    t.move_to_next_visible_col(&r, direction);
    return std::vector<int32_t>({r.top_row, r.left_col, r.bottom_row, r.right_col});
  };
  EXPECT_EQ(std::vector<int32_t>({9, 4, 9, 4}), col(5, KEL_DIR_LEFT));
  EXPECT_EQ(std::vector<int32_t>({9, 2, 9, 2}), col(1, KEL_DIR_LEFT));
  EXPECT_EQ(std::vector<int32_t>({9, 252, 9, 255}), col(252, KEL_DIR_RIGHT));  // none left

  EXPECT_EQ(7u, t.state.get_next_visible_row(4));
  EXPECT_EQ(65535u, t.state.get_next_visible_row(65535));
  EXPECT_EQ(65535u, t.state.get_next_visible_row(70000));
  EXPECT_EQ(2u, t.state.get_next_visible_col(0));
  EXPECT_EQ(249u, t.state.get_next_visible_col(249));
  EXPECT_EQ(255u, t.state.get_next_visible_col(256));
}

TEST(TableContent, ContentSizeOfTextAndOfAnEmptyCell) {
  View view(grid());
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  int32_t width = -1, height = -1;
  // "00000" in Arial 10: 5 * 1139 units, divided by 72 and rounded up to
  // 80 (truncated, 79 would give 27); 200 * 80 / 20 * 72 / 2048 = 28, 4 of margin, and (10 + 7) / 8 for the
  // font's size.  The height is the face's ascent to descent:
  // 72 * 2288 * 200 / 2048 / 1440.
  t.get_content_size({9, 4}, &width, &height, nullptr);
  EXPECT_EQ(34, width);
  EXPECT_EQ(11, height);
  t.get_content_size({0, 0}, &width, &height, nullptr);
  EXPECT_EQ(0, width);
  EXPECT_EQ(11, height);
  // The margin is zoomed, the eighth of the font's size is taken after.
  t.set_zoom_percentage(200);
  t.get_content_size({9, 4}, &width, &height, nullptr);
  EXPECT_EQ(64 + 3, width);
  EXPECT_EQ(22, height);
}

xls_note_t* new_note(const char16_t* text) {
  xls_note_t* note = static_cast<xls_note_t*>(calloc(1, sizeof(xls_note_t)));
  size_t length = std::char_traits<char16_t>::length(text);
  note->text = static_cast<unsigned short*>(malloc((length + 1) * 2));
  memcpy(note->text, text, (length + 1) * 2);
  note->text_length = (uint32_t)length;
  return note;
}

TEST(TableState, NotesAndChartDisplay) {
  View view(grid());
  ASSERT_EQ(0u, view.book.status);
  KELTable& t = view.table;
  // A replaced note is freed; the last one goes with the table (the
  // sanitizers see a leak).
  t.panes[3].set_active_cell_note(new_note(u"first"));
  t.panes[3].set_active_cell_note(new_note(u"second"));
  EXPECT_TRUE(t.panes[3].has_active_cell_note());
  t.panes[3].free_active_cell_note();
  EXPECT_FALSE(t.panes[3].has_active_cell_note());
  t.panes[1].set_active_cell_note(new_note(u"kept"));

  EXPECT_FALSE(t.is_displaying_chart());
  t.set_embedded_chart_display(0);
  EXPECT_TRUE(t.is_displaying_chart());
  t.selecting = true;
  t.update_cache_on_sheet_change();
  EXPECT_EQ(-1, t.get_embedded_chart_display());
  EXPECT_FALSE(t.selecting);
  // A chart sheet is shown as a chart and has no cells to lay out.
  view.sheet()->type = XLS_SHEET_CHART;
  EXPECT_TRUE(t.is_displaying_chart());
  t.state.sheet_width = 5;
  t.fill_cache();
  EXPECT_EQ(5u, t.state.sheet_width);
}

}  // namespace
