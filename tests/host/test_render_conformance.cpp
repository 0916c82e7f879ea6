// Paints every sheet of every .xls of the corpus through the flat calls, at
// 72 and 96 dpi in 32 and 16 bits: each paint must succeed, and a body where
// the sheet shows text must not come out blank.  A cell that can't be read
// ends a paint by design, so sheets with one in view aren't judged.  RENDER_DUMP=DIR writes the
// 32-bit pictures at 72 dpi there, to look at.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "host/cell_lines.h"
#include "host/png_file.h"
#include "module/kel_session.h"
#include "test_support.h"
#include "view/kel_table.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

namespace {

using tabulon_test::CorpusFile;

const int kWidth = 640, kHeight = 400;

const unsigned short* w(const std::u16string& text) {
  return reinterpret_cast<const unsigned short*>(text.c_str());
}

#ifdef TABULON_TEST_WITH_CAIRO
// Judging what a paint shows needs the fonts of the cairo side.
enum Content { kNothing, kText, kBrokenCell };

// Whether a cell that shows something other than blanks stands in the part
// of the sheet that a paint at (0, 0) covers, in a row and column not hidden;
// kBrokenCell when a cell there can't be read as the paint reads it (its XF
// names a font or format that isn't there): the paint ends at such a cell.
Content top_left_content(kel_file* file, int sheet) {
  xls_sheet_t* handle = xls_sheet_handle(file->workbook, uint32_t(sheet));
  if (!handle || xls_sheet_type(handle) != XLS_SHEET_WORKSHEET) return kNothing;
  const KELTable* table = file->draw.table;
  cell_t corner = table->coord_to_cell(kWidth, kHeight);
  Content found = kNothing;
  for (int row = 0; row < corner.row && row < XLS_MAX_ROWS; ++row) {
    if (xls_is_row_hidden(handle, uint16_t(row))) continue;
    for (int col = 0; col < corner.col && col < XLS_MAX_COLUMNS; ++col) {
      if (xls_is_col_hidden(handle, uint8_t(col))) continue;
      xls_read_cell_info info = {};
      info.flags = XLS_READ_CELL | XLS_READ_NUMBER_FORMAT | XLS_READ_FONT | XLS_READ_ALIGNMENT;
      if (xls_read_cell(handle, col, row, &info, file->locale)) return kBrokenCell;
      if (!info.cell) continue;
      std::string shown = cell_shown_text(handle, info.cell);
      auto_cell_release(&info.cell);
      if (shown.find_first_not_of(" ") != std::string::npos) found = kText;
    }
  }
  return found;
}

// Anything but the white ground and the grey grid.
bool has_ink(const std::vector<uint32_t>& body) {
  for (uint32_t p : body) {
    uint32_t rgb = p & 0xFFFFFF;
    if (rgb != 0xFFFFFF && rgb != 0xB6B6B6) return true;
  }
  return false;
}
#endif

TEST(RenderConformance, EverySheetPaintsAtBothResolutionsAndDepths) {
  std::vector<CorpusFile> corpus = tabulon_test::corpus_manifest();
  if (corpus.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  const char* dump = getenv("RENDER_DUMP");
  std::u16string fonts = tabulon_test::u16(tabulon_test::font_dir());
  int workbooks = 0, paints = 0, with_text = 0, blank = 0, broken = 0;
  for (const CorpusFile& entry : corpus) {
    if (entry.path.compare(0, 4, "xls/") != 0) continue;
    std::u16string path = tabulon_test::u16(tabulon_test::shared_dir() + "/corpus/" + entry.path);
    std::u16string password = tabulon_test::u16(entry.password());
    kel_file* file = nullptr;
    // Files the engine refuses are the open tests' business.
    if (kel_open_file(w(path), entry.password().empty() ? nullptr : w(password), w(fonts),
                      nullptr, &file))
      continue;
    ++workbooks;
    int sheets = 0;
    kel_get_sheet_count(file, &sheets);
    std::vector<uint32_t> body(size_t(kWidth) * kHeight), strip(size_t(kWidth) * 64);
    for (int sheet = 0; sheet < sheets; ++sheet) {
      for (int dpi : {72, 96}) {
        for (int format : {0, 1}) {
          std::fill(body.begin(), body.end(), 0u);
          ASSERT_EQ(0u, kel_set_dpi(file, dpi)) << entry.path;
          ASSERT_EQ(0u, kel_set_offscreen_buffer(file, format, body.data(), kWidth, kHeight));
          ASSERT_EQ(0u, kel_set_column_offscreen_buffer(file, format, strip.data(), kWidth, 40));
          ASSERT_EQ(0u, kel_set_row_offscreen_buffer(file, format, strip.data(), 40, kHeight));
          EXPECT_EQ(0u, kel_render_sheet(file, sheet, 0, 0)) << entry.path << " sheet " << sheet;
          ++paints;
          if (dpi != 72 || format != 0) continue;
          if (dump) {
            std::string name = entry.path.substr(4) + "." + std::to_string(sheet) + ".png";
            png_write_file((std::string(dump) + "/" + name).c_str(),
                           reinterpret_cast<const unsigned char*>(body.data()), kWidth, kHeight,
                           kWidth * 4, 32);
          }
#ifdef TABULON_TEST_WITH_CAIRO
          Content content = top_left_content(file, sheet);
          if (content == kBrokenCell) ++broken;
          if (content == kText) {
            ++with_text;
            if (!has_ink(body)) {
              ++blank;
              ADD_FAILURE() << entry.path << " sheet " << sheet << ": blank body";
            }
          }
#endif
        }
      }
    }
    kel_close_file(&file);
  }
  printf("render conformance: %d workbooks, %d paints, %d sheets with text at the top left, "
         "%d of them blank; %d sheets left out with a cell that can't be read\n",
         workbooks, paints, with_text, blank, broken);
}

}  // namespace
