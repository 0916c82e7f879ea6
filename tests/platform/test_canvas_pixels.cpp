// The pixel rules that the engine relies on when it reads a canvas's memory:
// white start, exact fills and axis-aligned lines, the clip, RGB565 packing,
// copies between formats.  Built against the cairo canvas, and in builds
// without cairo against the memory canvas of the test support, which must
// keep the same rules.
#include <gtest/gtest.h>

#include "canvas_probe.h"

namespace {

class CanvasPixels : public ::testing::TestWithParam<int> {};

const DRGBValue kColor = {0, 0x12, 0x34, 0x56};

TEST_P(CanvasPixels, StartsWhiteWithRowsAsReported) {
  // An odd width: a 16-bit row of 7 pixels may be padded, and the reported
  // bytes per row must say so.
  CanvasProbe c(7, 3, GetParam());
  ASSERT_EQ(0u, c.status());
  EXPECT_GE(c.stride(), 7u * GetParam() / 8);
  const uint32_t white = GetParam() == 32 ? 0xFFFFFFFFu : 0xFFFFu;
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 7; ++x) ASSERT_EQ(white, c.raw(x, y)) << x << "," << y;
  DRect clip;
  ASSERT_EQ(0u, c->GetClip(&clip));
  EXPECT_EQ(7, clip.width);
  EXPECT_EQ(3, clip.height);
}

TEST_P(CanvasPixels, FillsAndLinesSetExactPixels) {
  CanvasProbe c(12, 8, GetParam());
  ASSERT_EQ(0u, c->SetColor(kColor));
  c->FillRectangle(DRect{1, 1, 3, 2});
  c->DrawLine(5, 1, 10, 1);  // both ends included
  c->DrawLine(11, 6, 11, 2); // drawn upwards
  c->DrawLine(6, 5, 6, 5);   // one point
  c->SetPen(kPenSolid, 3, 3);
  c->DrawLine(1, 5, 3, 5);   // a square pen, centred on each point
  EXPECT_EQ(
      "............\n"
      ".###.######.\n"
      ".###.......#\n"
      "...........#\n"
      "#####......#\n"
      "#####.#....#\n"
      "#####......#\n"
      "............\n",
      c.art());
  // 0x12 0x34 0x56 packed: 5 bits of red, 6 of green, 5 of blue.
  uint32_t expected = GetParam() == 32 ? 0xFF123456u : (0x12u >> 3) << 11 | (0x34u >> 2) << 5 | 0x56u >> 3;
  EXPECT_EQ(expected, c.raw(1, 1));
}

TEST_P(CanvasPixels, ClipBoundsDrawing) {
  CanvasProbe c(10, 6, GetParam());
  c->SetColor(kColor);
  ASSERT_EQ(0u, c->SetClip(DRect{6, 2, 10, 10}));  // reaches past the canvas
  DRect clip;
  c->GetClip(&clip);
  EXPECT_EQ(6, clip.x);
  EXPECT_EQ(4, clip.width);
  EXPECT_EQ(4, clip.height);
  c->FillRectangle(DRect{0, 0, 8, 3});
  c->DrawLine(0, 5, 9, 5);
  EXPECT_EQ(
      "..........\n"
      "..........\n"
      "......##..\n"
      "..........\n"
      "..........\n"
      "......####\n",
      c.art());
}

TEST_P(CanvasPixels, CopyConvertsFormatsAndClipsToTarget) {
  const int other = GetParam() == 32 ? 16 : 32;
  CanvasProbe from(4, 2, GetParam());
  CanvasProbe to(6, 3, other);
  from->SetColor(DRGBValue{0, 0x84, 0x82, 0x08});  // exact in RGB565
  from->FillRectangle(DRect{1, 0, 3, 2});
  // Lands at x 3..6: the column past the target's edge is dropped.
  ASSERT_EQ(0u, from->CopyRect(to.get(), DRect{0, 0, 4, 2}, 3, 1));
  EXPECT_EQ(
      "......\n"
      "....##\n"
      "....##\n",
      to.art());
  EXPECT_EQ(0x848208u, to.rgb(4, 1));
  EXPECT_EQ(0xFFFFFFu, to.rgb(3, 1));
  if (other == 32) {
    EXPECT_EQ(0xFFu, to.raw(4, 1) >> 24);
  }

  // Within one canvas, overlapping: a shift right by one mustn't smear.
  from->SetColor(DRGBValue{0, 0, 0, 0});
  from->FillRectangle(DRect{0, 0, 1, 1});
  from->CopyRect(from.get(), DRect{0, 0, 3, 1}, 1, 0);
  EXPECT_EQ(0u, from.rgb(1, 0));
  EXPECT_EQ(0x848208u, from.rgb(2, 0));
  EXPECT_EQ(0x848208u, from.rgb(3, 0));
}

INSTANTIATE_TEST_SUITE_P(Formats, CanvasPixels, ::testing::Values(16, 32),
                         [](const ::testing::TestParamInfo<int>& info) {
                           return std::to_string(info.param) + "bit";
                         });

}  // namespace
