// The paint of a sheet: a small workbook made in memory, painted into a
// canvas of the class factory at 72 dpi, and checked pixel by pixel:
// ground, gridlines, fills, merges, overflowing text, headings, the note.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <utility>

#include "format/kel_locale.h"
#include "test_support.h"
#include "tests/platform/canvas_probe.h"
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

const uint32_t kWhite = 0xFFFFFF, kGrey = 0xB6B6B6, kBlack = 0, kLabelFace = 0xCCCCCC;
const uint32_t kRed = 0xFF0000, kBlue = 0x0000FF, kGreen = 0x00FF00;
const uint32_t kNoteFill = 0xFFFFC0, kHighlight = 0x3399FF;

// XFs: 0 to 14 plain; 15, the default, solid blue; 16 solid red; 17 left,
// 18 right, 19 centre aligned; 20 solid green; 21 the format "0"; 22 the
// underlined font, left aligned; 23 the Text format "@".
enum { XF_RED = 16, XF_LEFT, XF_RIGHT, XF_CENTRE, XF_GREEN, XF_INTEGER, XF_UNDERLINED, XF_TEXT };

void globals(Stream& s) {
  Bytes font;  // the file's seventh font, which XFs name as 7: Arial 10, underlined
  add16(&font, 200), add16(&font, 0), add16(&font, 0x7FFF), add16(&font, 400), add16(&font, 0);
  font.push_back(1), font.push_back(2), font.push_back(0), font.push_back(0);
  Bytes name = biff_test::text(u"Arial", true);
  font.insert(font.end(), name.begin(), name.end());
  s.record(0x31, font);
  const uint32_t solid = 1u << 26;
  const uint8_t fill_used = 0x40, font_used = 0x08;
  for (int i = 0; i < 15; ++i) s.xf(0, 0, 1);
  s.xf(0, 0, 1, 0, fill_used, 0, solid, 4);  // 15: blue
  s.xf(0, 0, 1, 0, fill_used, 0, solid, 2);  // 16: red
  s.xf(0, 0, 1, 1);
  s.xf(0, 0, 1, 3);
  s.xf(0, 0, 1, 2);
  s.xf(0, 0, 1, 0, fill_used, 0, solid, 3);  // 20: green
  s.xf(0, 1, 1);
  s.xf(7, 0, 1, 1, font_used);
  s.xf(0, 49, 1);
}

// MERGEDCELLS of one rectangle.
Bytes merge(uint16_t first_row, uint16_t last_row, uint16_t first_col, uint16_t last_col) {
  Bytes b;
  add16(&b, 1), add16(&b, first_row), add16(&b, last_row), add16(&b, first_col),
      add16(&b, last_col);
  return b;
}

// A workbook of one sheet, its view and a canvas of 32-bit pixels that the
// view paints straight into, at 72 dpi and 100 percent.
struct Painted {
  Book book;
  CanvasProbe canvas;
  FontsLoaded fonts;
  xls_locale locale = {};
  KELTable* table = nullptr;
  kel_draw_table_params_t params = {};

  Painted(const Bytes& workbook, int32_t width, int32_t height)
      : book(workbook), canvas(width, height, 32), fonts(tabulon_test::font_dir()) {
    EXPECT_EQ(0u, book.status);
    EXPECT_EQ(0u, canvas.status());
    EXPECT_EQ(0u, fonts.status());
    locale.decimal_separator = '.';
    locale.thousand_separator = ',';
    table = new (std::nothrow) KELTable(&locale);
    table->set_rect(0, 0, width, height);
    table->set_workbook(book.file);
    table->fill_cache();
    unsigned char* pixels = nullptr;
    uint32_t stride = 0;
    EXPECT_EQ(0u, canvas->GetImageData(&pixels, &stride));
    params.table = table;
    params.canvas = canvas.get();
    params.bitmap = zuvbit_t{ZUVBIT_ARGB32, pixels, width, height, stride};
    params.horizontal_dpi = params.vertical_dpi = 72;
    params.zoom = 100;
    params.font_manager = fonts.operator->();
  }
  ~Painted() { delete table; }
  Painted(const Painted&) = delete;
  Painted& operator=(const Painted&) = delete;

  void paint() { EXPECT_EQ(0u, kel_draw_table(&params)); }
  // The heading sizes at the current zoom.
  int32_t label_w() const { return table->state.get_label_col0_width(); }
  int32_t label_h() const { return table->state.get_label_row0_height(); }
  // View pixels of a column's and a row's edges: where their gridlines go.
  int32_t left(int32_t col) const { return edge(col, true); }
  int32_t right(int32_t col) const { return edge(col, false); }
  int32_t top(int32_t row) const { return row_edge(row, true); }
  int32_t bottom(int32_t row) const { return row_edge(row, false); }
  int32_t middle_x(int32_t col) const { return (left(col) + right(col)) / 2; }
  int32_t middle_y(int32_t row) const { return (top(row) + bottom(row)) / 2; }
  uint32_t at(int32_t x, int32_t y) const { return canvas.rgb(x, y); }
  // Text ink, as against fills, gridlines and heading faces.
  bool dark(int32_t x, int32_t y) const {
    uint32_t c = at(x, y);
    return ((c >> 16) + ((c >> 8) & 0xFF) + (c & 0xFF)) / 3 < 0x80;
  }
  // The first and last column of text ink inside a cell (-1 if none).
  std::pair<int32_t, int32_t> ink_span(int32_t col, int32_t row) const {
    return ink_span_in(left(col) + 1, right(col), top(row) + 1, bottom(row));
  }
  std::pair<int32_t, int32_t> ink_span_in(int32_t x0, int32_t x1, int32_t y0, int32_t y1) const {
    std::pair<int32_t, int32_t> span(-1, -1);
    for (int32_t x = x0; x < x1; ++x)
      for (int32_t y = y0; y < y1; ++y)
        if (dark(x, y)) {
          if (span.first < 0) span.first = x;
          span.second = x;
        }
    return span;
  }
  int32_t count(int32_t x0, int32_t x1, int32_t y0, int32_t y1, uint32_t colour) const {
    int32_t n = 0;
    for (int32_t y = y0; y < y1; ++y)
      for (int32_t x = x0; x < x1; ++x) n += at(x, y) == colour;
    return n;
  }

 private:
  int32_t edge(int32_t col, bool left_edge) const {
    int32_t l = 0, r = 0;
    table->state.horizontal_col_pos(col, &l, &r);
    return (left_edge ? l : r) - table->panes[3].offset_x + label_w();
  }
  int32_t row_edge(int32_t row, bool top_edge) const {
    int32_t t = 0, b = 0;
    table->state.vertical_row_pos(row, &t, &b);
    return (top_edge ? t : b) - table->panes[3].offset_y + label_h();
  }
};

TEST(TablePaint, GroundGridFillsMergesAndSelection) {
  Painted p(one_sheet(
                [](Stream& s) {
                  s.colinfo(4, 4, 0x800, 15, XLS_COLUMN_HIDDEN);  // E
                  s.colinfo(6, 6, 0x800, XF_RED);                 // G: empty cells red
                  s.blank(3, 1, XF_RED);    // B4
                  s.blank(3, 2, 15);        // C4: a cell of XF 15 takes its fill
                  s.blank(3, 4, XF_RED);    // E4, hidden
                  s.blank(4, 1, XF_GREEN);  // B5:C6 merged
                  s.blank(5, 2, XF_RED);    // C6, covered by the merge
                  s.blank(7, 2, XF_RED);    // C8, selected
                  s.record(0xE5, merge(4, 5, 1, 2));
                  s.window2();
                },
                globals),
            480, 200);
  ASSERT_TRUE(p.table);
  p.paint();
  // White ground; an empty cell of the default XF stays white although
  // that XF has a fill, a cell record of it does not.
  EXPECT_EQ(kWhite, p.at(p.middle_x(0), p.middle_y(0)));
  EXPECT_EQ(kWhite, p.at(p.middle_x(3), p.middle_y(3)));
  EXPECT_EQ(kBlue, p.at(p.middle_x(2), p.middle_y(3)));
  // Grey gridlines on the right and bottom edges of every cell, drawn
  // whatever the sheet's gridline flag, on empty cells too.
  for (int32_t col : {0, 3}) {
    EXPECT_EQ(kGrey, p.at(p.right(col), p.middle_y(0))) << col;
    EXPECT_EQ(kGrey, p.at(p.middle_x(col), p.bottom(10))) << col;
  }
  // A fill lies inside the gridlines around it.
  EXPECT_EQ(kRed, p.at(p.left(1) + 1, p.top(3) + 1));
  EXPECT_EQ(kRed, p.at(p.right(1) - 1, p.bottom(3) - 1));
  EXPECT_EQ(kGrey, p.at(p.left(1), p.middle_y(3)));
  EXPECT_EQ(kGrey, p.at(p.middle_x(1), p.top(3)));
  // Empty cells of a column's XF fill.
  EXPECT_EQ(kRed, p.at(p.middle_x(6), p.middle_y(9)));
  // The hidden column has no width and paints nothing: no red beside B4.
  EXPECT_EQ(p.right(3), p.left(5));
  EXPECT_EQ(0, p.count(p.left(3), p.right(5), p.top(3), p.bottom(3) + 1, kRed));
  // The merge paints once over its whole extent: no inner grid, no trace of
  // the covered cell, its outer edges gridded.
  EXPECT_EQ(kGreen, p.at(p.right(1), p.middle_y(4)));
  EXPECT_EQ(kGreen, p.at(p.middle_x(1), p.bottom(4)));
  EXPECT_EQ(0, p.count(p.left(1), p.right(2), p.top(4), p.bottom(5), kRed));
  EXPECT_EQ(kGrey, p.at(p.right(2), p.middle_y(4)));
  EXPECT_EQ(kGrey, p.at(p.middle_x(2), p.bottom(5)));

  // The selection highlight fills the selected cells, over their own fill,
  // inside the grid; the cells around stay as they were.
  kel_selection_highlight_t selection = {{7, 1, 8, 2}, {0, 0x33, 0x99, 0xFF}};
  p.table->state.selection_highlight = &selection;
  p.paint();
  for (int32_t row : {7, 8})
    for (int32_t col : {1, 2}) {
      EXPECT_EQ(kHighlight, p.at(p.middle_x(col), p.middle_y(row))) << row << "," << col;
      EXPECT_EQ(kHighlight, p.at(p.left(col) + 1, p.top(row) + 1)) << row << "," << col;
      EXPECT_EQ(kGrey, p.at(p.right(col), p.middle_y(row))) << row << "," << col;
    }
  EXPECT_EQ(kWhite, p.at(p.middle_x(0), p.middle_y(7)));
  EXPECT_EQ(kWhite, p.at(p.middle_x(3), p.middle_y(8)));
  p.table->state.selection_highlight = nullptr;

  // At another zoom every edge moves with the geometry.
  const int32_t old_right = p.right(0);
  p.params.zoom = 200;
  p.paint();
  ASSERT_EQ(200u, p.table->state.zoom_percentage);
  EXPECT_NE(old_right, p.right(0));
  EXPECT_EQ(kGrey, p.at(p.right(0), p.middle_y(0)));
  EXPECT_EQ(kWhite, p.at(old_right, p.middle_y(0)));
}

TEST(TablePaint, TextOverflowAlignmentAndUnderline) {
  Painted p(one_sheet(
                [](Stream& s) {
                  s.label(0, 0, XF_LEFT, u"Overflowing text runs on and on");  // A1
                  s.number(0, 2, 0, 5);                                       // C1 cuts it
                  s.label(1, 2, XF_RIGHT, u"Text growing leftwards");        // C2
                  s.number(2, 0, XF_INTEGER, 12345678901234567890.0);         // A3: too wide
                  s.label(3, 0, 0, u"x");                                     // A4: fits
                  s.label(9, 0, XF_UNDERLINED, u"Under");                     // A10
                  s.number(10, 0, 0, 5);          // A11: general, a number: right
                  s.boolerr(10, 1, 0, 1, false);  // B11: a boolean: centred
                  s.label(10, 2, 0, u"ab");       // C11: text: left
                  s.number(10, 3, XF_TEXT, 7);    // D11: the Text format: left
                  s.number(10, 4, XF_RIGHT, 5);   // E11: right-aligned number
                  s.window2();
                },
                globals),
            480, 200);
  ASSERT_TRUE(p.table);
  p.paint();
  // Above the glyphs, the top row inside a cell shows only the grid: no
  // gridline where a text runs over its neighbours, one where it is cut.
  const int32_t y0 = p.top(0) + 1, y1 = p.top(1) + 1;
  EXPECT_EQ(kWhite, p.at(p.right(0), y0));  // A1 over B1
  EXPECT_EQ(kGrey, p.at(p.right(1), y0));   // cut by C1's number
  EXPECT_EQ(kWhite, p.at(p.right(0), y1));  // C2 back over A2 and B2
  EXPECT_EQ(kWhite, p.at(p.right(1), y1));
  EXPECT_EQ(kGrey, p.at(p.right(2), y1));
  EXPECT_EQ(kGrey, p.at(p.right(0), p.top(3) + 1));  // a text that fits
  EXPECT_EQ(kGrey, p.at(p.middle_x(1), p.bottom(0)));  // the bottom grid stays
  // A number too wide for its cell never runs over: its neighbour is
  // empty and stays white.
  EXPECT_EQ((p.right(1) - p.left(1) - 1) * (p.bottom(2) - p.top(2) - 1),
            p.count(p.left(1) + 1, p.right(1), p.top(2) + 1, p.bottom(2), kWhite));
  // The underline: from the text's start, 8 pixels into the cell, on the
  // last row inside the cell, in the text's colour (drawn without glyphs
  // too, as the pen moves by the canvas's advances).
  const int32_t under_y = p.bottom(9) - 1, start = p.left(0) + 8;
  EXPECT_EQ(kBlack, p.at(start + 2, under_y));
  EXPECT_EQ(kWhite, p.at(start - 1, under_y));
  EXPECT_EQ(kWhite, p.at(start, p.bottom(10) - 1));  // the next row's text has none

#ifdef TABULON_TEST_WITH_CAIRO
  // Ink runs from A1 into B1 up to C1's left edge, where the clip cuts it;
  // C1's number stands alone on its right.
  EXPECT_GE(p.ink_span(0, 0).first, p.left(0) + 8);
  EXPECT_GE(p.ink_span(1, 0).second, p.right(1) - 8);
  EXPECT_GT(p.ink_span(2, 0).first, p.middle_x(2));
  // The right-aligned text runs from C2 over B2 into A2.
  EXPECT_NE(-1, p.ink_span(0, 1).first);
  EXPECT_GE(p.ink_span(2, 1).second, p.right(2) - 12);
  // "#" signs inside A3's own extent.
  std::pair<int32_t, int32_t> hashes = p.ink_span(0, 2);
  EXPECT_NE(-1, hashes.first);
  EXPECT_LT(hashes.second, p.right(0));
  EXPECT_EQ(-1, p.ink_span(1, 2).first);
  // General alignment: a number right, a boolean centred, text left; the
  // Text format keeps a number left.  A general number sits 2 pixels
  // further right than a right-aligned one.
  EXPECT_GT(p.ink_span(0, 10).first, p.middle_x(0));
  std::pair<int32_t, int32_t> boolean = p.ink_span(1, 10);
  EXPECT_NEAR(p.middle_x(1), (boolean.first + boolean.second) / 2, 3);
  EXPECT_LT(p.ink_span(2, 10).second, p.middle_x(2));
  EXPECT_LT(p.ink_span(3, 10).second, p.middle_x(3));
  EXPECT_EQ(p.ink_span(0, 10).second - p.right(0), p.ink_span(4, 10).second - p.right(4) + 2);

  // Scrolled right past column A, the walk still starts there: A1's text
  // shows in the part of B1 that is left in view.
  int32_t b_left = 0;
  p.table->state.horizontal_col_pos(1, &b_left, nullptr);
  p.table->move_offset(b_left + 6, 0);
  ASSERT_EQ(b_left + 6, p.table->panes[3].offset_x);
  p.paint();
  EXPECT_NE(-1, p.ink_span_in(p.label_w() + 1, p.right(1), y0, p.bottom(0)).first);
#endif
}

TEST(TablePaint, HeadingsNoteDragAndChart) {
  Painted p(one_sheet([](Stream& s) { s.window2(); }, globals), 320, 160);
  ASSERT_TRUE(p.table);
  p.paint();
  const int32_t w = p.label_w(), h = p.label_h();
  // The corner lines, then each column heading: its face inside a black
  // frame on the right and bottom; each row heading alike.
  EXPECT_EQ(kBlack, p.at(w, h / 2));
  EXPECT_EQ(kBlack, p.at(w / 2, h));
  EXPECT_EQ(kLabelFace, p.at(p.left(0) + 2, 2));
  EXPECT_EQ(kBlack, p.at(p.right(0), h / 2));
  EXPECT_EQ(kBlack, p.at(p.left(0) + 2, h));
  EXPECT_EQ(kLabelFace, p.at(2, p.top(0) + 2));
  EXPECT_EQ(kBlack, p.at(2, p.bottom(0)));
  EXPECT_EQ(kBlack, p.at(w, p.middle_y(1)));

  // Column AA, scrolled into view, is headed like any other.
  int32_t aa_left = 0;
  p.table->state.horizontal_col_pos(26, &aa_left, nullptr);
  p.table->move_offset(aa_left, 0);
  p.paint();
  EXPECT_EQ(w, p.left(26));
  EXPECT_EQ(kLabelFace, p.at(p.left(26) + 2, 2));
  EXPECT_EQ(kBlack, p.at(p.right(26), h / 2));
#ifdef TABULON_TEST_WITH_CAIRO
  // "AA" takes about twice the ink of "A"; row 1 is labelled.
  std::pair<int32_t, int32_t> two = p.ink_span_in(p.left(26) + 1, p.right(26), 0, h);
  p.table->move_offset(0, 0);
  p.paint();
  std::pair<int32_t, int32_t> one = p.ink_span_in(p.left(0) + 1, p.right(0), 0, h);
  ASSERT_NE(-1, one.first);
  ASSERT_NE(-1, two.first);
  EXPECT_GT(two.second - two.first, 3 * (one.second - one.first) / 2);
  EXPECT_NE(-1, p.ink_span_in(0, w, p.top(0), p.bottom(0)).first);
#endif
  p.table->move_offset(0, 0);

  // A note at B3: a box right of the cell's top right corner, filled and
  // framed, above the grid.
  xls_note_t* note = static_cast<xls_note_t*>(calloc(1, sizeof(xls_note_t)));
  ASSERT_TRUE(note);
  note->row = 2, note->col = 1;
  note->text = static_cast<unsigned short*>(calloc(3, sizeof(unsigned short)));
  note->text[0] = 'H', note->text[1] = 'i', note->text_length = 2;
  p.table->panes[3].set_active_cell_note(note);
  p.paint();
  const int32_t cx = p.right(1), cy = p.top(2);
  const int32_t box_left = cx + 5, box_top = cy < h ? cy : std::max(cy - 10, h);
  EXPECT_EQ(kBlack, p.at(box_left, box_top));
  EXPECT_EQ(kNoteFill, p.at(box_left + 3, box_top + 3));
  EXPECT_EQ(kNoteFill, p.at(box_left + 3, p.top(2)));  // over row 2's gridline
  p.table->panes[3].free_active_cell_note();

  // Dragging a heading moves only the rubber line: the old one is taken
  // back by XOR and nothing else is repainted.
  p.paint();
  const int32_t x = p.middle_x(1);
  const uint32_t before_30 = p.at(x, 30), before_40 = p.at(x, 40), heading_30 = p.at(0, 30);
  p.table->mode = KEL_MODE_DRAG;
  p.table->dragging_row = true;
  p.table->dragger_position = 30;
  p.paint();
  EXPECT_EQ(before_30 ^ 0xFFFFFF, p.at(x, 30));
  EXPECT_EQ(before_40, p.at(x, 40));
  EXPECT_EQ(heading_30 ^ 0xFFFFFF, p.at(0, 30));
  p.table->dragger_position = 40;
  p.paint();
  EXPECT_EQ(before_30, p.at(x, 30));
  EXPECT_EQ(before_40 ^ 0xFFFFFF, p.at(x, 40));
  p.table->dragger_position = -1;
  p.paint();
  EXPECT_EQ(before_40, p.at(x, 40));
  p.table->mode = KEL_MODE_NORMAL;

  // A chart on display: the table is only white (there is no chart painter).
  p.table->set_embedded_chart_display(0);
  p.paint();
  EXPECT_EQ(0, p.canvas.ink_count());
  p.table->set_embedded_chart_display(-1);
  p.paint();
  EXPECT_EQ(kGrey, p.at(p.right(0), p.middle_y(0)));
}

}  // namespace
