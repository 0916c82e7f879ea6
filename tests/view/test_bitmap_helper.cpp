// Fills, pixels and glyphs drawn straight into a target bitmap.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "view/zuv_bitmap_helper.h"
#include "view/zuv_glyph_cache.h"

namespace {

// A bitmap of row_pixels pixels a row (its width field says less, which the
// helpers must not go by), every pixel `fill`.
struct Bitmap {
  std::vector<uint32_t> store;
  zuvbit_t b;
  Bitmap(int32_t format, int32_t row_pixels, int32_t height, uint32_t fill) {
    uint32_t bytes = format == ZUVBIT_RGB565 ? 2 : 4;
    store.assign((size_t)(row_pixels * bytes * height + 3) / 4, 0);
    b = zuvbit_t{format, store.data(), row_pixels - 2, height, row_pixels * bytes};
    for (int32_t y = 0; y < height; ++y)
      for (int32_t x = 0; x < row_pixels; ++x) set(x, y, fill);
  }
  unsigned char* row(int32_t y) const { return (unsigned char*)b.pixels + (size_t)y * b.bytes_per_row; }
  uint32_t get(int32_t x, int32_t y) const {
    return b.format == ZUVBIT_RGB565 ? ((uint16_t*)row(y))[x] : ((uint32_t*)row(y))[x];
  }
  void set(int32_t x, int32_t y, uint32_t value) {
    if (b.format == ZUVBIT_RGB565) ((uint16_t*)row(y))[x] = (uint16_t)value;
    else ((uint32_t*)row(y))[x] = value;
  }
  // '#' for each pixel that differs from `background`, row by row.
  std::string art(uint32_t background) const {
    std::string s;
    int32_t row_pixels = (int32_t)b.bytes_per_row / (b.format == ZUVBIT_RGB565 ? 2 : 4);
    for (int32_t y = 0; y < b.height; ++y) {
      for (int32_t x = 0; x < row_pixels; ++x) s += get(x, y) == background ? '.' : '#';
      s += '\n';
    }
    return s;
  }
};

const DRGBValue kColour = {0, 0x12, 0x34, 0x56};

TEST(BitmapHelper, FillSolid) {
  // Rows of 7 pixels: row 0 starts 4-aligned, row 1 two bytes off, so both
  // a leading single pixel and trailing ones are written.
  Bitmap b(ZUVBIT_RGB565, 7, 4, 0xFFFF);
  zuvbit_fill_solid(&b.b, 1, 0, 100, 2, kColour);  // cut at the row's end
  zuvbit_fill_solid(&b.b, -2, 2, 4, 100, kColour);  // cut at the left and the bottom
  zuvbit_fill_solid(&b.b, 3, 3, 0, 1, kColour);
  zuvbit_fill_solid(&b.b, 3, 3, 1, -1, kColour);
  EXPECT_EQ(".######\n"
            ".######\n"
            "##.....\n"
            "##.....\n",
            b.art(0xFFFF));
  EXPECT_EQ(0x11AAu, b.get(1, 0));  // 0x12 >> 3 << 11 | 0x34 >> 2 << 5 | 0x56 >> 3
  EXPECT_EQ(0x11AAu, b.get(6, 1));

  Bitmap c(ZUVBIT_ARGB32, 3, 2, 0);
  zuvbit_fill_solid(&c.b, 1, 1, 5, 5, kColour);
  EXPECT_EQ("...\n.##\n", c.art(0));
  EXPECT_EQ(0xFF123456u, c.get(2, 1));

  Bitmap other(3, 3, 2, 0);
  zuvbit_fill_solid(&other.b, 0, 0, 3, 2, kColour);
  zuvbit_fill_xor(&other.b, 0, 0, 3, 2);
  EXPECT_EQ("...\n...\n", other.art(0));
  zuvbit_t empty = {ZUVBIT_ARGB32, nullptr, 4, 4, 16};
  zuvbit_fill_solid(&empty, 0, 0, 4, 4, kColour);
}

TEST(BitmapHelper, FillXorAndGetPixel) {
  Bitmap b(ZUVBIT_RGB565, 4, 2, 0x11AA);
  zuvbit_fill_xor(&b.b, 1, 1, 9, 9);
  EXPECT_EQ("....\n.###\n", b.art(0x11AA));
  EXPECT_EQ(0xEE55u, b.get(3, 1));
  Bitmap c(ZUVBIT_ARGB32, 2, 1, 0x80123456);
  zuvbit_fill_xor(&c.b, 0, 0, 1, 1);
  EXPECT_EQ(0x80EDCBA9u, c.get(0, 0));  // alpha kept

  auto expect = [](DRGBValue p, uint8_t r, uint8_t g, uint8_t bl) {
    EXPECT_EQ(0xFF, p.flags);
    EXPECT_EQ(r, p.red);
    EXPECT_EQ(g, p.green);
    EXPECT_EQ(bl, p.blue);
  };
  // A channel whose lowest bit is set widens with ones below it.
  const struct {
    uint32_t pixel;
    uint8_t r, g, b;
  } widened[] = {{0xF800, 0xFF, 0, 0}, {0x8410, 0x80, 0x80, 0x80}, {0x0821, 0x0F, 0x07, 0x0F}};
  for (const auto& w : widened) {
    b.set(0, 0, w.pixel);
    expect(zuvbit_get_pixel(&b.b, 0, 0), w.r, w.g, w.b);
  }
  c.set(1, 0, 0x00A1B2C3);
  expect(zuvbit_get_pixel(&c.b, 1, 0), 0xA1, 0xB2, 0xC3);
  expect(zuvbit_get_pixel(&c.b, 2, 0), 0xFF, 0xFF, 0xFF);  // past the row: white
  expect(zuvbit_get_pixel(&c.b, 0, -1), 0xFF, 0xFF, 0xFF);
  Bitmap other(7, 2, 1, 0);
  expect(zuvbit_get_pixel(&other.b, 0, 0), 0xFF, 0xFF, 0xFF);
}

// A glyph of rows x columns coverage bytes.
struct Glyph {
  std::vector<uint8_t> coverage;
  zuv_glyph_bitmap_t g = {};
  Glyph(uint32_t rows, uint32_t columns, std::vector<uint8_t> bytes, int32_t left, int32_t right,
        int32_t top)
      : coverage(bytes) {
    g.rows = rows, g.columns = columns;
    g.left_bearing = left, g.right_bearing = right, g.top = top;
    g.bitmap = coverage.data();
  }
};

TEST(BitmapHelper, DrawGlyphBlends) {
  Glyph glyph(2, 2, {0, 255, 128, 64}, 1, 2, 1);
  const DRGBValue colour = {0, 0xF0, 0x80, 0x00};
  int32_t advance = 0;

  Bitmap c(ZUVBIT_ARGB32, 5, 5, 0xFF102030);
  zuvbit_draw_glyph(&c.b, 1, 3, nullptr, &glyph.g, colour, &advance);
  EXPECT_EQ(5, advance);
  EXPECT_EQ(".....\n.....\n..#..\n..##.\n.....\n", c.art(0xFF102030));
  EXPECT_EQ(0xFFF08000u, c.get(2, 2));  // full coverage: the colour itself
  EXPECT_EQ(0xFF805018u, c.get(2, 3));
  EXPECT_EQ(0xFFB8680Cu, c.get(3, 3));

  Bitmap b(ZUVBIT_RGB565, 5, 5, 0x8410);
  zuvbit_draw_glyph(&b.b, 1, 3, nullptr, &glyph.g, colour, &advance);
  EXPECT_EQ(".....\n.....\n..#..\n..##.\n.....\n", b.art(0x8410));
  EXPECT_EQ(0xF400u, b.get(2, 2));
  EXPECT_EQ(0xBC08u, b.get(2, 3));
  EXPECT_EQ(0xD404u, b.get(3, 3));

  zuv_glyph_bitmap_t blank = {};
  advance = -1;
  zuvbit_draw_glyph(&b.b, 0, 0, nullptr, &blank, colour, &advance);
  EXPECT_EQ(0, advance);
}

TEST(BitmapHelper, DrawGlyphClips) {
  Glyph block(3, 3, std::vector<uint8_t>(9, 0), 0, 1, 2);
  const DRGBValue black = {0, 0, 0, 0};
  int32_t advance = 0;

  // Rows above the bitmap, columns past its right edge (which would wrap
  // onto the next row) and below its bottom are left out.
  Bitmap b(ZUVBIT_RGB565, 4, 3, 0xFFFF);
  zuvbit_draw_glyph(&b.b, 2, 1, nullptr, &block.g, black, &advance);
  zuvbit_draw_glyph(&b.b, -2, 3, nullptr, &block.g, black, &advance);
  EXPECT_EQ("..##\n#.##\n#...\n", b.art(0xFFFF));

  Bitmap c(ZUVBIT_ARGB32, 5, 4, 0);
  const DRect clip = {1, 1, 2, 2};
  zuvbit_draw_glyph(&c.b, 0, 3, &clip, &block.g, black, &advance);
  EXPECT_EQ(".....\n.##..\n.##..\n.....\n", c.art(0));
  advance = 0;
  zuvbit_draw_glyph(&c.b, 1000, 3, &clip, &block.g, black, &advance);
  EXPECT_EQ(4, advance);  // nothing in range, the advance all the same
}

TEST(BitmapHelper, DrawGlyphVerticalUp) {
  // An "L": rows run to the right from x - top, columns upwards from
  // y - left bearing.
  Glyph l(3, 2, {0, 255, 0, 255, 0, 0}, 1, 0, 2);
  const DRGBValue black = {0, 0, 0, 0};
  int32_t advance = 0;
  Bitmap b(ZUVBIT_RGB565, 6, 6, 0xFFFF);
  zuvbit_draw_glyph_vertical_up(&b.b, 3, 5, nullptr, &l.g, black, &advance);
  EXPECT_EQ(3, advance);
  EXPECT_EQ("......\n......\n......\n...#..\n.###..\n......\n", b.art(0xFFFF));
  EXPECT_EQ(0u, b.get(1, 4));

  Bitmap clipped(ZUVBIT_RGB565, 6, 6, 0xFFFF);
  const DRect clip = {0, 4, 2, 2};
  zuvbit_draw_glyph_vertical_up(&clipped.b, 3, 5, &clip, &l.g, black, &advance);
  zuvbit_draw_glyph_vertical_up(&clipped.b, 3, 3, &clip, &l.g, black, &advance);  // above the clip
  EXPECT_EQ("......\n......\n......\n......\n.#....\n......\n", clipped.art(0xFFFF));

  Bitmap c(ZUVBIT_ARGB32, 6, 6, 0xFFFFFFFF);
  advance = 0;
  zuvbit_draw_glyph_vertical_up(&c.b, 3, 5, nullptr, &l.g, black, &advance);
  EXPECT_EQ(3, advance);
  EXPECT_EQ(std::string::npos, c.art(0xFFFFFFFF).find('#'));
}

}  // namespace
