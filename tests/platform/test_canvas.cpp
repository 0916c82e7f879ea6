// The cairo canvas: shapes, pictures and text.
#include <gtest/gtest.h>

#include <string>

#include "canvas_probe.h"
#include "host/png_file.h"
#include "test_support.h"

namespace {

const DRGBValue kBlack = {0, 0, 0, 0};
const DRGBValue kRed = {0, 0xFF, 0, 0};
const DRGBValue kBlue = {0, 0, 0, 0xFF};
const double kQuarter = 1.5707963267948966;

TEST(CairoCanvas, OutlinesLinesAndPolygonsOnExactPixels) {
  CanvasProbe c(12, 10, 32);
  c->DrawRectangle(DRect{1, 1, 5, 4});
  // Polygon points are pixel corners: the same pixels as FillRectangle.
  DPoint corners[4] = {{7, 1}, {11, 1}, {11, 4}, {7, 4}};
  ASSERT_EQ(0u, c->FillPolygon(4, corners));
  c->DrawLine(0, 6, 6, 8);  // one pixel a column
  c->SetPen(kPenNone, 1, 1);
  c->DrawLine(7, 7, 11, 7);
  c->SetPen(kPenDash, 1, 1);
  c->DrawLine(0, 9, 11, 9);
  EXPECT_EQ(
      "............\n"
      ".#####.####.\n"
      ".#...#.####.\n"
      ".#...#.####.\n"
      ".#####......\n"
      "............\n"
      "##..........\n"
      "..###.......\n"
      ".....##.....\n"
      "######...###\n",
      c.art());
}

TEST(CairoCanvas, CurvesFillByPixelCentres) {
  for (int bits : {16, 32}) {
    CanvasProbe c(21, 21, bits);
    // Angles grow clockwise from 3 o'clock: 0 to a quarter is the lower
    // right.
    ASSERT_EQ(0u, c->FillPie(DRect{0, 0, 21, 21}, 0, kQuarter));
    EXPECT_TRUE(c.ink(15, 15)) << bits;
    EXPECT_FALSE(c.ink(5, 5) || c.ink(15, 5) || c.ink(5, 15)) << bits;
    EXPECT_FALSE(c.ink(20, 20)) << bits;  // outside the circle
  }
  CanvasProbe c(21, 21, 32);
  c->SetBrush(kBrushNone);
  ASSERT_EQ(0u, c->DrawEllipse(DRect{0, 0, 21, 21}));
  // The outline runs along the outermost pixels, the inside stays.
  EXPECT_TRUE(c.ink(10, 0) && c.ink(0, 10) && c.ink(20, 10) && c.ink(10, 20));
  EXPECT_FALSE(c.ink(10, 10) || c.ink(10, 1) || c.ink(0, 0));
  c->SetBrush(kBrushSolid);
  c->DrawEllipse(DRect{0, 0, 21, 21});
  EXPECT_TRUE(c.ink(10, 10));

  CanvasProbe arc(21, 21, 32);
  arc->DrawArc(DRect{0, 0, 21, 21}, 0, kQuarter);
  EXPECT_TRUE(arc.ink(20, 10) && arc.ink(10, 20));
  EXPECT_FALSE(arc.ink(10, 0) || arc.ink(0, 10) || arc.ink(10, 10));
  arc->DrawPie(DRect{0, 0, 21, 21}, 0, kQuarter);
  EXPECT_TRUE(arc.ink(10, 10) && arc.ink(15, 10) && arc.ink(10, 15));
  EXPECT_FALSE(arc.ink(15, 15));  // outlined, not filled
}

TEST(CairoCanvas, DrawsAPngScaledIntoTheRectangle) {
  VFile file;
  ASSERT_EQ(0u, file.Init(tabulon_test::gradient_path().c_str()));
  VFileStream stream;
  ASSERT_EQ(0u, stream.Open(&file, 0, -1, 1));
  for (int bits : {16, 32}) {
    CanvasProbe c(40, 50, bits);
    // Drawn twice: the stream is read again from its start.
    ASSERT_EQ(0u, c->DrawImage(&stream, kImagePng, DRect{10, 5, 20, 40}));
    ASSERT_EQ(0u, c->DrawImage(&stream, kImagePng, DRect{10, 5, 20, 40}));
    std::string expected;
    for (int y = 0; y < 50; ++y)
      expected += std::string(10, '.') + std::string(20, y >= 5 && y < 45 ? '#' : '.') +
                  std::string(10, '.') + "\n";
    EXPECT_EQ(expected, c.art()) << bits;
    // The gradient runs from grey 0xF6 at the top to 0xCF at the bottom.
    uint32_t top = c.rgb(20, 5), bottom = c.rgb(20, 44);
    EXPECT_GE(top & 0xFF, 0xF0u) << bits;
    EXPECT_LE(bottom & 0xFF, 0xD4u) << bits;
    EXPECT_EQ(top, c.rgb(11, 5)) << bits;
    if (bits == 32) {
      EXPECT_EQ((top & 0xFF) * 0x010101u, top);
    }
  }
  CanvasProbe c(4, 4, 32);
  EXPECT_EQ(KEL_ERR_UNSUPPORTED, c->DrawImage(&stream, 3, DRect{0, 0, 4, 4}));
  VFile text;
  tabulon_test::TempDir dir;
  tabulon_test::write_file(dir.file("not.png"), {'n', 'o', 't', ' ', 'a', ' ', 'p', 'n', 'g'});
  text.Init(dir.file("not.png").c_str());
  ASSERT_EQ(0u, stream.Open(&text, 0, -1, 1));
  EXPECT_NE(0u, c->DrawImage(&stream, kImagePng, DRect{0, 0, 4, 4}));
  stream.Close();
  EXPECT_NE(0u, c->DrawImage(&stream, kImagePng, DRect{0, 0, 4, 4}));
  EXPECT_EQ(0, c.ink_count());
}

// png_write_file, read back through DrawImage at its own size.
TEST(CairoCanvas, PngFileKeepsThePixels) {
  tabulon_test::TempDir dir;
  for (int bits : {16, 32}) {
    CanvasProbe c(9, 5, bits);
    c->SetColor(DRGBValue{0, 0x10, 0x80, 0xF8});
    c->FillRectangle(DRect{2, 1, 5, 3});
    c->SetColor(kRed);
    c->DrawLine(0, 4, 8, 0);
    std::string path = dir.file("round.png");
    ASSERT_TRUE(png_write_file(path.c_str(), c.row(0), 9, 5, c.stride(), bits));
    CanvasProbe back(9, 5, 32);
    VFile file;
    file.Init(path.c_str());
    VFileStream stream;
    ASSERT_EQ(0u, stream.Open(&file, 0, -1, 1));
    ASSERT_EQ(0u, back->DrawImage(&stream, kImagePng, DRect{0, 0, 9, 5}));
    for (int y = 0; y < 5; ++y)
      for (int x = 0; x < 9; ++x) ASSERT_EQ(c.rgb(x, y), back.rgb(x, y)) << bits << " " << x << "," << y;
  }
  EXPECT_FALSE(png_write_file(dir.file("bad.png").c_str(), nullptr, 1, 1, 4, 32));
}

TEST(CairoCanvas, TextInksInTheColourAboveTheBaseline) {
  FontsLoaded fonts(tabulon_test::font_dir());
  ASSERT_EQ(0u, fonts.status());
  CanvasProbe c(40, 30, 32);
  c->SetColor(kRed);
  ASSERT_EQ(0u, c->SetFontByFamily(kFamilySans, 20, false, false, 1.0));
  int32_t ascent, descent, advance;
  ASSERT_EQ(0u, c->GetFontMetrics(&ascent, &descent));
  ASSERT_EQ(0u, c->MeasureChar('H', &advance));
  ASSERT_EQ(0u, c->DrawChar(5, 22, 'H'));
  int solid = 0;
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 40; ++x) {
      if (!c.ink(x, y)) continue;
      // Within the cell, and no lower than the baseline: H has no descent.
      EXPECT_TRUE(x >= 5 && x < 5 + advance && y >= 22 - ascent && y < 22) << x << "," << y;
      uint32_t p = c.rgb(x, y);
      // Red blended over white: full red, equal green and blue.
      EXPECT_EQ(0xFFu, p >> 16) << x << "," << y;
      EXPECT_EQ((p >> 8) & 0xFF, p & 0xFF) << x << "," << y;
      solid += (p & 0xFF) < 0x10;
    }
  }
  EXPECT_GT(solid, 20);  // the stems are solid; grey only at the edges

  // Opaque text clears its cell to white; transparent text keeps the ground.
  CanvasProbe ground(40, 30, 16);
  ground->SetColor(kBlue);
  ground->FillRectangle(DRect{0, 0, 40, 30});
  ground->SetColor(kBlack);
  ground->SetFontByFamily(kFamilySans, 20, false, false, 1.0);
  ground->DrawChar(5, 22, 'H');
  EXPECT_EQ(0x0000FFu, ground.rgb(5 + advance - 1, 22 - ascent));
  ground->SetTextMode(kTextOpaque);
  ground->DrawChar(5, 22, 'H');
  EXPECT_EQ(0xFFFFFFu, ground.rgb(5 + advance - 1, 22 - ascent));
  EXPECT_EQ(0x0000FFu, ground.rgb(5 + advance, 22 - ascent));

  // Glyphs keep to the clip: half an H on a 16-bit canvas.
  CanvasProbe half(40, 30, 16);
  half->SetFontByFamily(kFamilySans, 20, false, false, 1.0);
  half->SetClip(DRect{0, 0, 5 + advance / 2, 30});
  half->DrawChar(5, 22, 'H');
  EXPECT_GT(half.ink_count(), 20);
  for (int y = 0; y < 30; ++y)
    for (int x = 5 + advance / 2; x < 40; ++x) ASSERT_FALSE(half.ink(x, y)) << x << "," << y;
}

}  // namespace
