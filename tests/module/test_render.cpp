// The flat calls of the paint and of what is where: a workbook built in
// memory, opened as a session the way a viewer opens one.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "module/kel_session.h"
#include "test_support.h"
#include "tests/workbook/biff_test_file.h"
#include "view/kel_table.h"
#include "workbook/kel_xls_sheet.h"

using biff_test::Bytes;
using biff_test::Stream;
using tabulon_test::u16;

namespace {

const unsigned short* w(const std::u16string& text) {
  return reinterpret_cast<const unsigned short*>(text.c_str());
}

// A session on a workbook with a body of width x height pixels and both
// heading strips, 32-bit.
struct Session {
  tabulon_test::TempDir dir;
  kel_file* file = nullptr;
  int width, height, heading_width = 0, heading_height = 0;
  std::vector<uint32_t> body, columns, rows;
  unsigned status;

  Session(const Bytes& workbook, int body_width = 300, int body_height = 120)
      : width(body_width), height(body_height), body(size_t(body_width) * body_height) {
    std::string path = dir.file("book.xls");
    tabulon_test::write_file(path, biff_test::compound(workbook));
    std::u16string wide = u16(path), fonts = u16(tabulon_test::font_dir());
    status = kel_open_file(w(wide), nullptr, w(fonts), nullptr, &file);
    if (!status) status = kel_set_offscreen_buffer(file, 0, body.data(), width, height);
    if (!status)
      status = kel_cell_bounds(file, 0, -1, -1, nullptr, nullptr, &heading_width,
                               &heading_height);
    if (status) return;
    columns.assign(size_t(width) * heading_height, 0);
    rows.assign(size_t(heading_width) * height, 0);
    status = kel_set_column_offscreen_buffer(file, 0, columns.data(), width, heading_height);
    if (!status)
      status = kel_set_row_offscreen_buffer(file, 0, rows.data(), heading_width, height);
  }
  ~Session() { kel_close_file(&file); }

  KELTable* table() const { return file->draw.table; }
  uint32_t at(int x, int y) const { return body[size_t(y) * width + x] & 0xFFFFFF; }
  // Sheet pixels of a column's edges and of a row's.
  void column(int col, int32_t* left, int32_t* right) const {
    table()->state.horizontal_col_pos(uint32_t(col), left, right);
  }
  void row(int r, int32_t* top, int32_t* bottom) const {
    table()->state.vertical_row_pos(uint32_t(r), top, bottom);
  }
};

bool has_ink(const std::vector<uint32_t>& pixels) {
  for (uint32_t p : pixels)
    if ((p & 0xFFFFFF) != 0xFFFFFF) return true;
  return false;
}

Bytes small_book() {
  return biff_test::one_sheet([](Stream& s) {
    s.label(0, 0, 15, u"Hello");
    s.number(1, 1, 15, 42);
    s.label(3, 2, 15, u"A long piece of text that runs on and on");  // C4: autofit
    s.window2();
  });
}

TEST(Render, PaintFillsTheBodyAndTheHeadingStrips) {
  Session session(small_book());
  ASSERT_EQ(0u, session.status);
  EXPECT_EQ(24, session.heading_width);
  EXPECT_GT(session.heading_height, 0);
  ASSERT_EQ(0u, kel_render_sheet(session.file, 0, 0, 0));

  // Gridlines are grey along the right and bottom edges of each cell; the
  // body starts one pixel past the separators, so sheet pixel p of an edge
  // lands at p - 1 of the body.
  int32_t left, right, top, bottom;
  session.column(0, &left, &right);
  session.row(1, &top, &bottom);
  EXPECT_EQ(0xB6B6B6u, session.at(right - 1, top + 3));
  EXPECT_EQ(0xB6B6B6u, session.at(right + 3, bottom - 1));
  EXPECT_EQ(0xFFFFFFu, session.at(right + 3, bottom - 3));
  EXPECT_TRUE(has_ink(session.columns));
  EXPECT_TRUE(has_ink(session.rows));
#ifdef TABULON_TEST_WITH_CAIRO
  // "Hello" puts ink into A1 (the paint's own tests place text in cells).
  session.row(0, &top, &bottom);
  bool ink = false;
  for (int y = top; y < bottom - 1; ++y)
    for (int x = left; x < right - 1; ++x) ink |= session.at(x, y) != 0xFFFFFF;
  EXPECT_TRUE(ink);
#endif

  // Far positions are clamped by the view; bad calls change nothing.
  EXPECT_EQ(0u, kel_render_sheet(session.file, 0, 1 << 30, 1 << 30));
  EXPECT_EQ(KEL_ERR_OUT_OF_RANGE, kel_render_sheet(session.file, 1, 0, 0));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_render_sheet(nullptr, 0, 0, 0));
  EXPECT_EQ(nullptr, g_current_wb);
}

TEST(Render, SelectionAndBoundsAreInSheetPixels) {
  Session session(small_book());
  ASSERT_EQ(0u, session.status);
  int32_t a_left, a_right, b_left, b_right, top0, bottom0, top1, bottom1;
  session.column(0, &a_left, &a_right);
  session.column(1, &b_left, &b_right);
  session.row(0, &top0, &bottom0);
  session.row(1, &top1, &bottom1);

  int x = -1, y = -1, width = -1, height = -1;
  ASSERT_EQ(0u, kel_cell_bounds(session.file, 0, b_left + 2, top1 + 2, &x, &y, &width, &height));
  EXPECT_EQ(b_left, x);
  EXPECT_EQ(top1, y);
  EXPECT_EQ(b_right - b_left, width);
  EXPECT_EQ(bottom1 - top1, height);
  // On a boundary the cell to the right is meant.
  int row = -1, col = -1;
  ASSERT_EQ(0u, kel_get_cell_reference_at_location(session.file, 0, a_right, top0, &row, &col));
  EXPECT_EQ(0, row);
  EXPECT_EQ(1, col);

  // After a scroll, (-1, -1) gives the scroll position and the headings.
  ASSERT_EQ(0u, kel_render_sheet(session.file, 0, 100, 200));
  ASSERT_EQ(0u, kel_cell_bounds(session.file, 0, -1, -1, &x, &y, &width, &height));
  EXPECT_EQ(100, x);
  EXPECT_EQ(200, y);
  EXPECT_EQ(session.heading_width, width);
  EXPECT_EQ(session.heading_height, height);
  // Bounds don't move with scrolling.
  ASSERT_EQ(0u, kel_cell_bounds(session.file, 0, b_left + 2, top1 + 2, &x, &y, nullptr, nullptr));
  EXPECT_EQ(top1, y);

  // A selected cell paints in the highlight colour.
  const unsigned char blue[3] = {0x10, 0x80, 0xF0};
  ASSERT_EQ(0u, kel_set_highlight_color(session.file, blue));
  ASSERT_EQ(0u, kel_select_cell(session.file, 0, b_left + 1, top1 + 1));
  ASSERT_EQ(0u, kel_render_sheet(session.file, 0, 0, 0));
  EXPECT_EQ(0x1080F0u, session.at(b_left + 3, top1 + 3));
  EXPECT_EQ(0xFFFFFFu, session.at(a_left + 3, top1 + 3));

  int count = -1;
  ASSERT_EQ(0u, kel_select_column(session.file, 0, b_left, b_left, &count));
  EXPECT_EQ(1, count);
  EXPECT_EQ(0, session.file->selection.cells.top_row);
  EXPECT_EQ(65535, session.file->selection.cells.bottom_row);
  ASSERT_EQ(0u, kel_select_row(session.file, 0, top0, top1, &count));
  EXPECT_EQ(2, count);
  EXPECT_EQ(255, session.file->selection.cells.right_col);
  ASSERT_EQ(0u, kel_select_area(session.file, 0, a_left, top0, 0, 0));
  EXPECT_EQ(0, session.file->selection.cells.right_col);
  EXPECT_EQ(0u, kel_clear_selection(session.file));
  EXPECT_EQ(nullptr, session.table()->state.selection_highlight);

  // Positions outside the sheet's full extent are refused, the width itself
  // included; a refused count is 0.
  int sheet_width = int(session.table()->state.sheet_width);
  EXPECT_EQ(KEL_ERR_OUT_OF_RANGE, kel_check_x(session.file, sheet_width));
  EXPECT_EQ(0u, kel_check_x(session.file, sheet_width - 1));
  EXPECT_EQ(KEL_ERR_OUT_OF_RANGE, kel_select_cell(session.file, 0, -1, 0));
  EXPECT_EQ(KEL_ERR_OUT_OF_RANGE, kel_select_row(session.file, 0, 0, -5, &count));
  EXPECT_EQ(0, count);
  EXPECT_EQ(KEL_ERR_OUT_OF_RANGE, kel_select_cell(session.file, 3, 0, 0));
  EXPECT_EQ(nullptr, g_current_wb);
}

TEST(Render, ColumnsResizeAndAutofitThroughTheZoom) {
  Session session(small_book());
  ASSERT_EQ(0u, session.status);
  xls_sheet_t* sheet = xls_sheet_handle(session.file->workbook, 0);
  // Widths are kept in 1/256 of a character, so twips come back within a
  // unit or two; pixels exactly.
  KELTable* table = session.table();
  int32_t before = table->get_col_width(0);
  ASSERT_EQ(0u, kel_resize_column(session.file, 0, 1, 10));
  EXPECT_EQ(before + 10, table->get_col_width(0));
  // A shrink past zero is a success without effect.
  EXPECT_EQ(0u, kel_resize_column(session.file, 0, 1, -100000));
  EXPECT_EQ(before + 10, table->get_col_width(0));
  ASSERT_EQ(0u, kel_resize_column(session.file, 0, 1, -10));
  EXPECT_EQ(before, table->get_col_width(0));

  // Autofit takes the widest cell of the column through the same zoom.
  int32_t c_left, c_right;
  session.column(2, &c_left, &c_right);
  int32_t content_width = 0, content_height = 0;
  table->get_content_size(cell_t{3, 2}, &content_width, &content_height, session.file->locale);
  ASSERT_GT(content_width, c_right - c_left);
  ASSERT_EQ(0u, kel_autofit_column(session.file, 0, c_left + 1));
  EXPECT_NEAR(double(table->state.horizontal_pixels_to_twips(uint32_t(content_width))),
              double(xls_get_col_width(sheet, 2, nullptr)), 2.0);
  // An empty column keeps its width.
  int32_t f_left, f_right;
  session.column(7, &f_left, &f_right);
  uint32_t empty = xls_get_col_width(sheet, 7, nullptr);
  ASSERT_EQ(0u, kel_autofit_column(session.file, 0, f_left + 1));
  EXPECT_EQ(empty, xls_get_col_width(sheet, 7, nullptr));
}

}  // namespace
