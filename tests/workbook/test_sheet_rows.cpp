// Rows and columns of a sheet: ROW records found through INDEX and DBCELL,
// the height grid and window, y to row, and column widths.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "biff_test_file.h"
#include "foundation/zuv_iodiff.h"
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

// The tall sheet, open.
struct TallSheet : ::testing::Test {
  Book book{tall_sheet()};
  xls_sheet_t* sheet = book.sheet();
  void SetUp() override { ASSERT_EQ(0u, book.status); }
};

TEST_F(TallSheet, RowRecordsFoundThroughIndexAndDbcell) {
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

TEST_F(TallSheet, HeightGridCountsTheRowRecordsOfABlockAsConsecutiveRows) {
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

  // No rows in the INDEX, or no INDEX: every row has the default height.
  for (bool index : {true, false}) {
    Book empty(one_sheet([&](Stream& s) {
      if (index) s.row_blocks(7, 7, {});
      s.window2();
    }));
    ASSERT_EQ(0u, empty.status);
    for (uint32_t k : {0u, 1u, 255u}) EXPECT_EQ((k + 1) * 256 * 0xFF, empty.sheet()->height_grid[k]);
  }
  // An INDEX too short for its fields, or whose DBCELL entry points
  // elsewhere, is set aside: the rows are found as the scan met them.
  Book short_index(one_sheet([](Stream& s) {
    s.record(0x20B, {0, 0});
    s.window2();
  }));
  ASSERT_EQ(0u, short_index.status);
  EXPECT_EQ(0u, short_index.sheet()->index_offset);
  EXPECT_EQ(256u * 0xFF, short_index.sheet()->height_grid[0]);
  Book stray_dbcell(one_sheet([](Stream& s) {
    s.record(0x225, {0, 0, kDefault & 0xFF, kDefault >> 8});
    uint32_t index = s.row_blocks(0, 40, {{3, 500, 0x40, 15}, {35, 700, 0x40, 15}});
    ole_test::put32(&s.bytes[index + 20 + 4], index);
    s.window2();
  }));
  ASSERT_EQ(0u, stray_dbcell.status);
  xls_sheet_t* stray = stray_dbcell.sheet();
  EXPECT_EQ(0u, stray->index_offset);
  EXPECT_EQ(500u, xls_get_row_height(stray, 3, nullptr));
  EXPECT_EQ(700u, xls_get_row_height(stray, 35, nullptr));
  EXPECT_EQ(254u * kDefault + 1200, stray->height_grid[0]);
}

TEST_F(TallSheet, RowWindowGivesExactTopsAndSlides) {
  // A row 255 after the window's first slides it by one, keeping the rest;
  // 510 after it nothing is kept, and the grid's estimate is the start.
  // (Going down from the top stays exact: see the edits below.)
  auto exact_top = [](uint32_t row) {
    uint32_t sum = 0;
    for (uint32_t r = 0; r < row; ++r) sum += height(r);
    return sum;
  };
  uint32_t top = 0;
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

TEST_F(TallSheet, EachRowHasItsOwnHeightWhateverTheOrderAskedIn) {
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

TEST_F(TallSheet, FindRowIsTheInverseOfTheTops) {
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

// ---- Row edits ---------------------------------------------------------------

// The workbook stream as it now reads, overlay and all.
Bytes logical_stream(xls_file* file) {
  zuv_io* stream = file->stream;
  Bytes bytes(stream->get_size(stream->context));
  uint32_t status = 0;
  EXPECT_EQ(bytes.size(), stream->read(stream->context, bytes.data(), (uint32_t)bytes.size(), 0, &status));
  return bytes;
}

// Every block of the INDEX: a DBCELL whose distance leads to its ROW
// records, rows of the block's 32 in order, one cell offset per row; and
// the sheet's offsets at their records.
void expect_layout(xls_file* file, xls_sheet_t* sheet) {
  zuv_io* stream = file->stream;
  auto header = [&](uint32_t offset, uint16_t* length) {
    uint16_t id = 0;
    EXPECT_EQ(0u, io_read_le16x2(stream, offset, &id, length));
    return id;
  };
  uint16_t length = 0;
  ASSERT_EQ(0x20B, header(sheet->index_offset, &length));
  uint32_t first = 0, last = 0;
  io_read_le32(stream, sheet->index_offset + 8, &first);
  io_read_le32(stream, sheet->index_offset + 12, &last);
  uint32_t blocks = (length - 16u) / 4;
  EXPECT_EQ(last > first ? (last - first + 31) / 32 : 0, blocks);
  for (uint32_t k = 0; k < blocks; ++k) {
    uint32_t dbcell = 0, distance = 0;
    io_read_le32(stream, sheet->index_offset + 20 + 4 * k, &dbcell);
    ASSERT_EQ(0xD7, header(dbcell, &length)) << k;
    io_read_le32(stream, dbcell + 4, &distance);
    uint32_t rows = 0, previous = 0;
    for (uint32_t at = dbcell - distance; distance && at < dbcell; at += 20, ++rows) {
      uint16_t row_length = 0, row = 0;
      ASSERT_EQ(0x208, header(at, &row_length)) << k;
      io_read_le16(stream, at + 4, &row);
      EXPECT_TRUE(row >= first + 32 * k && row < first + 32 * k + 32 && row < last) << row;
      EXPECT_TRUE(!rows || row > previous) << row;
      previous = row;
    }
    EXPECT_EQ(4 + 2 * rows, length) << k;
  }
  EXPECT_EQ(0x23E, header(sheet->window2_offset, &length));
  if (sheet->note_offset) {
    EXPECT_EQ(0x1C, header(sheet->note_offset, &length));
  }
}

TEST_F(TallSheet, EditedHeightsAndHidingMoveTheRowsBehind) {
  std::vector<uint32_t> heights(65536);
  for (uint32_t r = 0; r < heights.size(); ++r) heights[r] = height(r);
  auto expect_heights = [&](xls_sheet_t* in, uint32_t from, uint32_t to) {
    uint32_t y = 0, top = 0;
    for (uint32_t r = 0; r < from; ++r) y += heights[r];
    for (uint32_t r = from; r < to; ++r) {
      ASSERT_EQ(heights[r], xls_get_row_height(in, (uint16_t)r, &top)) << r;
      ASSERT_EQ(y, top) << r;
      // y to row where the grid is exact: up to row 299 (see above).
      if (heights[r] && r < 300) {
        ASSERT_EQ(r, xls_find_row(in, top + heights[r] - 1)) << r;
      }
      y += heights[r];
    }
  };
  expect_heights(sheet, 0, 256);  // tops known in the window
  std::vector<uint32_t> grid(sheet->height_grid, sheet->height_grid + XLS_HEIGHT_GRID);

  EXPECT_EQ(0u, xls_set_row_height(sheet, 10, 1000));
  heights[10] = 1000;
  for (uint32_t k = 0; k < XLS_HEIGHT_GRID; ++k) EXPECT_EQ(grid[k] + 800, sheet->height_grid[k]);
  biff_row_v2 row;
  xls_read_ROW_v2(&book.file->pool, book.file->stream, sheet->index_offset, 10, &row, nullptr);
  EXPECT_EQ(1000, row.height);
  EXPECT_EQ(0x140, row.flags);
  expect_heights(sheet, 0, 300);

  // Hidden, the row takes no room; shown again, it has its height back.
  EXPECT_EQ(0u, xls_hide_row(sheet, 20, true));
  EXPECT_TRUE(xls_is_row_hidden(sheet, 20));
  heights[20] = 0;
  expect_heights(sheet, 0, 300);
  EXPECT_EQ(0u, xls_hide_row(sheet, 20, false));
  EXPECT_FALSE(xls_is_row_hidden(sheet, 20));
  heights[20] = height(20);
  expect_heights(sheet, 0, 300);
  EXPECT_EQ(0u, xls_set_row_height(sheet, 77, 440));  // hidden: no room taken yet
  EXPECT_EQ(0u, xls_hide_row(sheet, 77, false));
  heights[77] = 440;

  // Back to the default height, no longer set by hand.
  EXPECT_EQ(0u, xls_set_row_height(sheet, 30, 0x8000));
  EXPECT_EQ(0u, xls_set_row_height(sheet, 150, 0x8000));  // default already, but set by hand
  heights[30] = kDefault;
  for (uint16_t r : {30, 150}) {
    xls_read_ROW_v2(&book.file->pool, book.file->stream, sheet->index_offset, r, &row, nullptr);
    EXPECT_EQ(0x100, row.flags) << r;
    EXPECT_TRUE(row.height & 0x8000) << r;
  }
  expect_heights(sheet, 0, 400);
  EXPECT_EQ(KEL_ERR_OUT_OF_RANGE, xls_set_row_height(sheet, 5, 0x8001));

  // What is already so is left as it is: the overlay is not touched.
  io_diff* diff = (io_diff*)book.file->stream->context;
  uint32_t chunks = diff->chunk_count;
  EXPECT_EQ(0u, xls_set_row_height(sheet, 10, 1000));
  EXPECT_EQ(0u, xls_hide_row(sheet, 21, false));
  EXPECT_EQ(0u, xls_set_row_height(sheet, 5000, 0x8000));
  EXPECT_EQ(chunks, diff->chunk_count);

  // The stream says the same to a reader that opens it afresh.
  expect_layout(book.file, sheet);
  Book again(logical_stream(book.file));
  ASSERT_EQ(0u, again.status);
  expect_heights(again.sheet(), 0, 1000);
  EXPECT_TRUE(xls_is_row_hidden(again.sheet(), 20) == false && xls_is_row_hidden(again.sheet(), 77) == false);
}

// Two worksheets, the edited one first: the second's offsets must follow.
Bytes two_sheets(const std::function<void(Stream&)>& first) {
  Stream s;
  s.bof(5);
  s.window1();
  s.font(u"Arial");
  for (int i = 0; i < 16; ++i) s.xf(0, 0, 0);
  uint32_t one = s.boundsheet(u"S"), two = s.boundsheet(u"T");
  s.eof();
  s.patch_bof(one, s.bof(0x10));
  first(s);
  s.eof();
  s.patch_bof(two, s.bof(0x10));
  s.record(0x225, {0, 0, 44, 1});
  s.row_blocks(0, 40, {{3, 400, 0x40, 15}, {39, 500, 0x40, 15}});
  s.number(39, 2, 15, 7.5);
  s.window2();
  s.record(0x1C, {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0});  // a NOTE, whose offset moves too
  s.eof();
  return s.bytes;
}

TEST(RowEdits, RowsWithoutRecordGetOneInTheirBlock) {
  // Rows 70 to 130 in blocks from 70, with cells; an empty block in between.
  std::vector<Stream::Row> rows;
  for (uint16_t r = 70; r <= 130; ++r)
    if (r < 102 || r > 120) rows.push_back({r, (uint16_t)(200 + r), 0x40, 15});
  Book book(two_sheets([&](Stream& s) {
    s.record(0x225, {0, 0, kDefault & 0xFF, kDefault >> 8});
    s.row_blocks(70, 131, rows);
    s.record(0x200, Bytes(14, 0));
    for (const Stream::Row& r : rows) s.number(r.row, 1, 15, r.row);
    s.window2();
  }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  std::vector<uint32_t> heights(65536, kDefault);
  for (const Stream::Row& r : rows) heights[r.row] = r.height;

  // In a block, in an empty block, behind the last, far behind it, and
  // in front of the first: 67 rows, two whole blocks and three rows.
  struct Edit { uint16_t row; uint32_t twips; };
  for (Edit edit : {Edit{75, 111}, Edit{71, 0x8000}, Edit{110, 222}, Edit{101, 0}, Edit{135, 333},
                    Edit{70, 50}, Edit{4000, 444}, Edit{65535, 555}, Edit{3, 666}, Edit{0, 777}}) {
    uint32_t status = edit.twips ? xls_set_row_height(sheet, edit.row, edit.twips)
                                 : xls_hide_row(sheet, edit.row, true);
    ASSERT_EQ(0u, status) << edit.row;
    heights[edit.row] = edit.twips == 0x8000 ? kDefault : edit.twips;
    expect_layout(book.file, sheet);
  }
  bool not_found = true;
  biff_row_v2 row;
  xls_read_ROW_v2(&book.file->pool, book.file->stream, sheet->index_offset, 71, &row, &not_found);
  EXPECT_FALSE(not_found);  // a record, at the default height

  auto expect_rows = [&](xls_sheet_t* in) {
    for (uint32_t r = 0; r < 65536; r += r < 200 ? 1 : 61) {
      ASSERT_EQ(heights[r], xls_get_row_height(in, (uint16_t)r, nullptr)) << r;
      ASSERT_EQ(heights[r] == 0, xls_is_row_hidden(in, (uint16_t)r)) << r;
    }
    ASSERT_EQ(555u, xls_get_row_height(in, 65535, nullptr));
  };
  expect_rows(sheet);
  uint32_t top = 0;
  xls_get_row_height(sheet, 200, &top);
  uint32_t y = 0;
  for (uint32_t r = 0; r < 200; ++r) y += heights[r];
  EXPECT_EQ(y, top);

  // Afresh: the rows, the cells of both sheets, the second sheet's rows
  // and note behind the moved bytes.
  Book again(logical_stream(book.file));
  ASSERT_EQ(0u, again.status);
  expect_rows(again.sheet());
  for (const Stream::Row& r : rows) {
    auto_value_t cell = nullptr;
    xls_get_cell_value(again.sheet(), 1, r.row, &cell);
    ASSERT_TRUE(cell != nullptr) << r.row;
    auto_cell_release(&cell);
  }
  xls_sheet_t* second = xls_sheet_handle(again.file, 1);
  expect_layout(again.file, second);
  EXPECT_EQ(500u, xls_get_row_height(second, 39, nullptr));
  auto_value_t cell = nullptr;
  xls_get_cell_value(second, 2, 39, &cell);
  EXPECT_TRUE(cell != nullptr);
  auto_cell_release(&cell);
  expect_layout(book.file, xls_sheet_handle(book.file, 1));
}

TEST(RowEdits, SheetsWithoutRowsAndProtectedSheets) {
  // No rows yet: the first block goes behind DIMENSIONS.
  Book empty(one_sheet([](Stream& s) {
    s.row_blocks(0, 0, {});
    s.record(0x200, Bytes(14, 0));
    s.window2();
  }));
  ASSERT_EQ(0u, empty.status);
  EXPECT_EQ(0u, xls_hide_row(empty.sheet(), 40, true));
  EXPECT_EQ(0u, xls_set_row_height(empty.sheet(), 41, 900));
  expect_layout(empty.file, empty.sheet());
  Book again(logical_stream(empty.file));
  ASSERT_EQ(0u, again.status);
  EXPECT_TRUE(xls_is_row_hidden(again.sheet(), 40));
  EXPECT_EQ(900u, xls_get_row_height(again.sheet(), 41, nullptr));
  EXPECT_EQ(0xFFu, xls_get_row_height(again.sheet(), 39, nullptr));

  // Without an INDEX no row can be found, so none is written.
  Book bare(one_sheet([](Stream& s) { s.window2(); }));
  ASSERT_EQ(0u, bare.status);
  EXPECT_EQ(KEL_ERR_UNSUPPORTED, xls_hide_row(bare.sheet(), 0, true));

  Book book(tall_sheet());
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  sheet->sheet_protected = 1;
  uint32_t grid = sheet->height_grid[0];
  EXPECT_EQ(KEL_ERR_SHEET_PROTECTED, xls_set_row_height(sheet, 5, 999));
  EXPECT_EQ(KEL_ERR_SHEET_PROTECTED, xls_hide_row(sheet, 5, true));
  EXPECT_EQ(height(5), xls_get_row_height(sheet, 5, nullptr));
  EXPECT_FALSE(xls_is_row_hidden(sheet, 5));
  EXPECT_EQ(grid, sheet->height_grid[0]);
}

TEST(RowRecords, SheetsWithoutIndexFindTheirRowsAsScanned) {
  // Some writers leave INDEX and DBCELL out; the ROW records still count:
  // a run of rows 0 to 2 and another, out of order, for row 700 and 701.
  Book book(one_sheet([&](Stream& s) {
    s.record(0x225, {0, 0, kDefault & 0xFF, kDefault >> 8});
    s.row({700, 600, 0x40, 15});
    s.row({701, 100, 0x40, 15});
    s.number(700, 0, 15, 1);
    s.row({0, 420, 0x40, 15});
    s.row({1, 0x8000 | 255, 0x20, 15});  // hidden
    s.row({2, 200, 0x40, 15});
    s.number(0, 0, 15, 1);
    s.window2();
  }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  EXPECT_EQ(0u, sheet->index_offset);
  EXPECT_EQ(2, sheet->row_runs.count);
  EXPECT_EQ(420u, xls_get_row_height(sheet, 0, nullptr));
  EXPECT_TRUE(xls_is_row_hidden(sheet, 1));
  uint32_t top = 0;
  EXPECT_EQ(200u, xls_get_row_height(sheet, 2, &top));
  EXPECT_EQ(420u, top);
  EXPECT_EQ(kDefault, xls_get_row_height(sheet, 3, nullptr));
  // The grid is exact: rows 0 to 255 hold 420 + 0 + 200 and 253 defaults.
  EXPECT_EQ(620u + 253 * kDefault, sheet->height_grid[0]);
  EXPECT_EQ(sheet->height_grid[1] + 254 * kDefault + 600 + 100, sheet->height_grid[2]);
  EXPECT_EQ(600u, xls_get_row_height(sheet, 700, &top));
  EXPECT_EQ(sheet->height_grid[1] + (700 - 512) * kDefault, top);

  // A row with its record changes in place; one without can't get one.
  EXPECT_EQ(0u, xls_set_row_height(sheet, 2, 500));
  EXPECT_EQ(0u, xls_hide_row(sheet, 1, false));
  EXPECT_EQ(500u, xls_get_row_height(sheet, 2, &top));
  EXPECT_EQ(420u + kDefault, top);
  EXPECT_EQ(KEL_ERR_UNSUPPORTED, xls_hide_row(sheet, 5, true));
}

}  // namespace
