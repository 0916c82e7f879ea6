// Rows and columns of a sheet: ROW records found through INDEX and DBCELL,
// the height grid and window, y to row, and column widths.
#include <gtest/gtest.h>

#include <vector>

#include "biff_test_file.h"
#include "workbook/kel_xls_sheet.h"

using biff_test::Book;
using biff_test::Bytes;
using biff_test::one_sheet;
using biff_test::Stream;

namespace {

const uint32_t kDefault = 300;  // DEFAULTROWHEIGHT of these sheets

// Rows 1 to 299 each have a ROW record (77 hidden, 150 of default height);
// from 300 to 900 every tenth row has one.
uint32_t height(uint32_t row) {
  if (row < 300) return row == 77 ? 0 : row == 0 || row == 150 ? kDefault : 200 + row % 5 * 40;
  return row <= 900 && row % 10 == 0 ? 100 + row / 10 % 7 * 10 : kDefault;
}

std::vector<Stream::Row> row_records() {
  std::vector<Stream::Row> rows;
  for (uint16_t r = 1; r <= 900; ++r) {
    if (r >= 300 && r % 10) continue;
    uint16_t flags = r == 77 ? 0x20 : 0x40;
    rows.push_back({r, (uint16_t)(r == 150 ? 0x8000 | 555 : r == 77 ? 999 : height(r)), flags, 15});
  }
  return rows;
}

Bytes tall_sheet() {
  return one_sheet([](Stream& s) {
    s.record(0x225, {0, 0, kDefault & 0xFF, kDefault >> 8});
    s.row_blocks(1, 901, row_records());
    s.number(900, 0, 15, 1);
    s.window2();
  });
}

TEST(RowRecords, FoundThroughIndexAndDbcell) {
  Book book(tall_sheet());
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  ASSERT_NE(0u, sheet->index_offset);
  EXPECT_EQ(kDefault, xls_get_default_row_height(sheet));
  auto read = [&](uint32_t index_offset, uint16_t row, bool* not_found) {
    biff_row_v2 result;
    EXPECT_EQ(0u, xls_read_ROW_v2(&book.file->pool, book.file->stream, index_offset, row,
                                  &result, not_found));
    return result;
  };
  auto fields = [](const biff_row_v2& r) {
    return std::vector<uint32_t>({r.row, r.first_col, r.last_col, r.height, r.flags, r.xf});
  };
  bool not_found = true;
  for (uint16_t row : {1, 32, 33, 150, 299, 300, 640, 900}) {
    EXPECT_EQ(std::vector<uint32_t>({row, 0, 10, row == 150 ? 0x8000 | 555 : height(row), 0x140, 15}),
              fields(read(sheet->index_offset, row, &not_found)));
    EXPECT_FALSE(not_found) << row;
  }
  // Rows without a record, and past the INDEX's rows, get the default form.
  for (uint16_t row : {0, 301, 899, 901, 5000}) {
    not_found = false;
    EXPECT_EQ(std::vector<uint32_t>({row, 0, 0, 0x8000, 0x100, 0}),
              fields(read(sheet->index_offset, row, &not_found)));
    EXPECT_TRUE(not_found) << row;
  }
  EXPECT_EQ(0x8000, read(0, 10, nullptr).height);  // no INDEX
  EXPECT_TRUE(xls_is_row_hidden(sheet, 77));
  EXPECT_FALSE(xls_is_row_hidden(sheet, 78));
  EXPECT_FALSE(xls_is_row_hidden(sheet, 5000));

  // A DBCELL that points at no ROW (too near, or before the stream) leaves
  // its rows at the default.
  for (uint32_t distance : {0u, 12u, 0xFFFFFF00u}) {
    Stream s;
    s.bof(0x10);
    uint32_t index = s.row_blocks(0, 1, {{0, 400, 0, 15}});
    ole_test::put32(&s.bytes[s.bytes.size() - 2 - 4], distance);
    s.eof();
    xls_pool pool = {};
    zuv_memio memio;
    memio_open_bytes(&memio, s.bytes.data(), (uint32_t)s.bytes.size());
    biff_row_v2 result;
    not_found = false;
    EXPECT_EQ(0u, xls_read_ROW_v2(&pool, &memio.io, index, 0, &result, &not_found)) << distance;
    EXPECT_TRUE(not_found) << distance;
    EXPECT_EQ(0x8000, result.height);
    memio_close(&memio);
  }
}

TEST(HeightGrid, CountsTheRowRecordsOfABlockAsConsecutiveRows) {
  Book book(tall_sheet());
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  // The estimate: the rows before the first, then the n-th ROW record for
  // the n-th row after them.
  std::vector<uint32_t> estimate(1, kDefault);
  for (const Stream::Row& r : row_records()) estimate.push_back(height(r.row));
  estimate.resize(65536, kDefault);
  uint32_t sum = 0;
  for (uint32_t k = 0; k < XLS_HEIGHT_GRID; ++k) {
    for (uint32_t r = 256 * k; r < 256 * (k + 1); ++r) sum += estimate[r];
    ASSERT_EQ(sum, sheet->height_grid[k]) << k;
  }
  EXPECT_EQ(0, sheet->height_window_first);
  for (uint32_t top : sheet->height_window) EXPECT_EQ(XLS_HEIGHT_UNKNOWN, top);

  // No rows in the INDEX, or no INDEX: every row has the default height.
  for (bool index : {true, false}) {
    Book empty(one_sheet([&](Stream& s) {
      if (index) s.row_blocks(7, 7, {});
      s.window2();
    }));
    ASSERT_EQ(0u, empty.status);
    for (uint32_t k : {0u, 1u, 255u}) EXPECT_EQ((k + 1) * 256 * 0xFF, empty.sheet()->height_grid[k]);
  }
  // An INDEX too short for its fields is refused.
  Book broken(one_sheet([](Stream& s) {
    s.record(0x20B, {0, 0});
    s.window2();
  }));
  EXPECT_EQ(KEL_ERR_GENERAL, broken.status);
}

TEST(RowHeights, WindowGivesExactTopsAndSlides) {
  Book book(tall_sheet());
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  // Downwards from the top the window stays exact.
  uint32_t y = 0, top = 0;
  for (uint16_t row = 0; row < 1000; ++row) {
    ASSERT_EQ(height(row), xls_get_row_height(sheet, row, &top)) << row;
    ASSERT_EQ(y, top) << row;
    y += height(row);
  }
  EXPECT_EQ(999 - 254, sheet->height_window_first);

  // A row 255 after the window's first slides it by one, keeping the rest;
  // 510 after it nothing is kept, and the grid's estimate is the start.
  auto exact_top = [](uint32_t row) {
    uint32_t sum = 0;
    for (uint32_t r = 0; r < row; ++r) sum += height(r);
    return sum;
  };
  cache_sheet_heights(sheet);
  xls_get_row_height(sheet, 0, nullptr);
  xls_get_row_height(sheet, 255, nullptr);
  EXPECT_EQ(1, sheet->height_window_first);
  EXPECT_EQ(exact_top(1), sheet->height_window[0]);
  EXPECT_EQ(height(510), xls_get_row_height(sheet, 1 + 509, &top));
  EXPECT_EQ(256, sheet->height_window_first);
  EXPECT_EQ(exact_top(510), top);  // from row 256's top, kept
  cache_sheet_heights(sheet);
  xls_get_row_height(sheet, 255, nullptr);
  EXPECT_EQ(height(511), xls_get_row_height(sheet, 1 + 510, &top));
  EXPECT_EQ(257, sheet->height_window_first);
  uint32_t from_grid = sheet->height_grid[0];
  for (uint32_t r = 256; r < 511; ++r) from_grid += height(r);
  EXPECT_EQ(from_grid, top);
  // Backwards the row becomes the first entry.
  EXPECT_EQ(height(200), xls_get_row_height(sheet, 200, &top));
  EXPECT_EQ(200, sheet->height_window_first);
  EXPECT_EQ(exact_top(200), top);
  EXPECT_EQ(kDefault, xls_get_row_height(sheet, 0xFFFF, &top));
  EXPECT_EQ(0xFFFF - 254, sheet->height_window_first);
  EXPECT_EQ(sheet->height_grid[255] - kDefault, top);
}

TEST(RowHeights, EachRowHasItsOwnHeightWhateverTheOrderAskedIn) {
  Book book(tall_sheet());
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  // Rows 400 to 645 are asked for after the window, first at row 646, was
  // laid on grid entry 1, an estimate; it slides back to row 400, laid on
  // entry 0, which is exact, keeping the tops of rows 646 to 655.
  for (uint16_t row : {900, 400, 645, 646})
    EXPECT_EQ(height(row), xls_get_row_height(sheet, row, nullptr)) << row;
  // The same when the exact tops end just before the kept ones.
  cache_sheet_heights(sheet);
  for (uint16_t row : {900, 400, 644, 645})
    EXPECT_EQ(height(row), xls_get_row_height(sheet, row, nullptr)) << row;
}

TEST(RowHeights, FindRowIsTheInverseOfTheTops) {
  Book book(tall_sheet());
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  // Up to row 299 the grid is exact, so y and row agree both ways.
  for (uint16_t row = 0; row < 400; ++row) {
    uint32_t top = 0, h = xls_get_row_height(sheet, row, &top);
    EXPECT_EQ(h ? row : row + 1u, xls_find_row(sheet, top)) << row;
    EXPECT_EQ(h ? row : row + 1u, xls_find_row(sheet, top + (h ? h - 1 : 0))) << row;
  }
  // Far away: the row from the grid's block and the heights in it.
  EXPECT_EQ(65535u, xls_find_row(sheet, sheet->height_grid[255] - 1));
  EXPECT_EQ(0xFFFFu, xls_find_row(sheet, sheet->height_grid[255]));
  EXPECT_EQ(0xFFFFu, xls_find_row(sheet, 0xFFFFFFFF));
  EXPECT_EQ(1024u + 3, xls_find_row(sheet, sheet->height_grid[3] + 3 * kDefault + 10));
}

TEST(ColumnWidths, DefaultsHiddenColumnsAndChanges) {
  Book book(one_sheet([](Stream& s) {
    s.record(0x55, {9, 0});  // 9 characters, then STANDARDWIDTH's 10
    s.record(0x99, {0, 10});
    s.colinfo(0, 0, 0x0C00, 17);
    s.colinfo(1, 1, 0x0C00, 15, 1);
    s.colinfo(2, 2, 3, 15);
    s.colinfo(253, 253, 4, 15);
    s.colinfo(254, 254, 0x1000, 15);
    s.colinfo(255, 255, 3, 15);
    s.window2();
  }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  ASSERT_EQ(111u, book.file->default_zero_char_twips);  // "0" of Arial 10
  const uint32_t standard = 1110;
  uint32_t left = 7;
  EXPECT_EQ(1332u, xls_get_col_width(sheet, 0, &left));
  EXPECT_EQ(0u, left);
  EXPECT_EQ(0u, xls_get_col_width(sheet, 1, &left));  // hidden
  EXPECT_EQ(1332u, left);
  EXPECT_EQ(standard, xls_get_col_width(sheet, 2, nullptr));  // width below 4
  EXPECT_EQ(standard, xls_get_col_width(sheet, 3, &left));   // no COLINFO
  EXPECT_EQ(1332u + standard, left);
  EXPECT_EQ(1776u, xls_get_col_width(sheet, 254, nullptr));
  EXPECT_EQ(standard, xls_get_col_width(sheet, 255, &left));
  EXPECT_EQ(1u, xls_get_col_width(sheet, 253, nullptr));
  EXPECT_EQ(1332u + 251 * standard + 1 + 1776, left);

  EXPECT_EQ(0u, xls_set_col_width(sheet, 10, 2220));
  EXPECT_EQ(std::vector<uint32_t>({1, 15, 0, 0x1400}),
            std::vector<uint32_t>({sheet->columns[10].present, sheet->columns[10].xf,
                                   sheet->columns[10].flags, sheet->columns[10].width}));
  EXPECT_EQ(0u, xls_set_col_width(sheet, 0, 555));
  EXPECT_EQ(555u, xls_get_col_width(sheet, 0, nullptr));
  EXPECT_EQ(17, sheet->columns[0].xf);  // a present column keeps its XF

  // Hiding a column without COLINFO gives it one; showing one doesn't.
  EXPECT_EQ(0u, xls_hide_col(sheet, 20, true));
  EXPECT_TRUE(xls_is_col_hidden(sheet, 20) && sheet->columns[20].xf == 15);
  EXPECT_EQ(0u, xls_get_col_width(sheet, 20, nullptr));
  EXPECT_EQ(0u, xls_hide_col(sheet, 20, false));
  EXPECT_EQ(standard, xls_get_col_width(sheet, 20, nullptr));
  EXPECT_EQ(0u, xls_hide_col(sheet, 30, false));
  EXPECT_FALSE(sheet->columns[30].present);
  EXPECT_EQ(0u, xls_hide_col(sheet, 1, false));
  EXPECT_EQ(1332u, xls_get_col_width(sheet, 1, nullptr));

  // A protected sheet keeps its columns, and allows only what FEATHEADR's
  // mask (or 0x4400 without one) says.
  EXPECT_TRUE(xls_is_action_permitted(sheet, 0x0001));
  sheet->sheet_protected = 1;
  EXPECT_EQ(KEL_ERR_SHEET_PROTECTED, xls_hide_col(sheet, 7, true));
  EXPECT_FALSE(xls_is_col_hidden(sheet, 7));
  EXPECT_TRUE(xls_is_action_permitted(sheet, 0x4000));
  EXPECT_FALSE(xls_is_action_permitted(sheet, 0x0104));
  Bytes feat(23, 0);
  feat[19] = 0x04, feat[20] = 0x01;
  Book masked(one_sheet([&](Stream& s) {
    s.record(0x12, {1, 0});  // PROTECT
    s.record(0x867, feat);
    s.window2();
  }));
  ASSERT_EQ(0u, masked.status);
  EXPECT_TRUE(xls_is_action_permitted(masked.sheet(), 0x0005));
  EXPECT_FALSE(xls_is_action_permitted(masked.sheet(), 0x4400));
}

}  // namespace
