// The text form of cells that `tabulon cells` prints.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "foundation/zuv_uni_string.h"
#include "host/cell_lines.h"
#include "workbook/kel_cell_cache.h"

namespace {

TEST(CellLines, ReferencesRunFromAToIV) {
  EXPECT_EQ("A1", cell_reference(0, 0));
  EXPECT_EQ("Z10", cell_reference(25, 9));
  EXPECT_EQ("AA1", cell_reference(26, 0));
  EXPECT_EQ("AZ2", cell_reference(51, 1));
  EXPECT_EQ("IV65536", cell_reference(255, 65535));
}

TEST(CellLines, KindsAndValuesFollowTheResult) {
  xls_cell_t cell = {};
  cell_line_t line;

  xls_value_double(&cell.value, 0.1);
  ASSERT_TRUE(cell_line_describe(&cell, &line));
  EXPECT_EQ('n', line.kind);
  EXPECT_EQ("0.10000000000000001", line.value);
  EXPECT_FALSE(line.formula);

  xls_value_long(&cell.value, -25);
  ASSERT_TRUE(cell_line_describe(&cell, &line));
  EXPECT_EQ("-25", line.value);

  xls_value_string(&cell.value, dup2ucs2("a\\b\tc\r\nd"));
  ASSERT_TRUE(cell_line_describe(&cell, &line));
  EXPECT_EQ('s', line.kind);
  EXPECT_EQ("a\\\\b\\tc\\r\\nd", line.value);
  xls_free_value(&cell.value);

  // A character beyond the 16-bit plane is one UTF-8 sequence.
  unsigned short* smile = static_cast<unsigned short*>(malloc(3 * sizeof(unsigned short)));
  smile[0] = 0xD83D;
  smile[1] = 0xDE0A;
  smile[2] = 0;
  xls_value_string(&cell.value, smile);
  ASSERT_TRUE(cell_line_describe(&cell, &line));
  EXPECT_EQ("\xF0\x9F\x98\x8A", line.value);
  xls_free_value(&cell.value);

  xls_value_error(&cell.value, 7);
  ASSERT_TRUE(cell_line_describe(&cell, &line));
  EXPECT_EQ('e', line.kind);
  EXPECT_EQ("#DIV/0!", line.value);

  // A formula shows its cached result.
  xls_basic_value_t cache = {};
  cache.kind = bvt_bool;
  cache.u.boolean = 1;
  xls_packed_expr_t packed = {};
  xls_create_expr_value(&cell.value, &packed, &cache);
  ASSERT_TRUE(cell_line_describe(&cell, &line));
  EXPECT_EQ('b', line.kind);
  EXPECT_EQ("TRUE", line.value);
  EXPECT_TRUE(line.formula);
  xls_free_value(&cell.value);

  xls_value_empty(&cell.value);
  EXPECT_FALSE(cell_line_describe(&cell, &line));
}

}  // namespace
