// The drawing layer of the sheet view: rectangles, lines and glyphs into a
// canvas of the class factory, and text placed against the built-in
// metrics.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "test_support.h"
#include "tests/platform/canvas_probe.h"
#include "view/kel_table.h"
#include "view/zuv_glyph_cache.h"

namespace {

const DRGBValue kRed = {0, 0xFF, 0, 0};
const DRGBValue kBlue = {0, 0, 0, 0xFF};
const DRGBValue kInk = {0, 0, 0, 0};
const DRGBValue kPaper = {0, 0xFF, 0xFF, 0xFF};

// A canvas with its pixels handed to the view, at 72 dpi and 100 percent.
struct Target {
  CanvasProbe canvas;
  FontsLoaded fonts;
  kel_draw_table_params_t params = {};
  KELState state{};

  Target(int32_t width, int32_t height, int bits = 32)
      : canvas(width, height, bits), fonts(tabulon_test::font_dir()) {
    EXPECT_EQ(0u, canvas.status());
    EXPECT_EQ(0u, fonts.status());
    unsigned char* pixels = nullptr;
    uint32_t stride = 0;
    EXPECT_EQ(0u, canvas->GetImageData(&pixels, &stride));
    params.canvas = canvas.get();
    params.bitmap = zuvbit_t{bits == 16 ? ZUVBIT_RGB565 : ZUVBIT_ARGB32, pixels, width, height,
                             stride};
    params.horizontal_dpi = params.vertical_dpi = 72;
    params.zoom = 100;
    params.font_manager = fonts.operator->();
    state.params = &params;
    state.horizontal_dpi = state.vertical_dpi = 72;
    state.zoom_percentage = 100;
  }
  void clear() {
    state.set_origin(0, 0);
    state.draw_rect(0, 0, canvas.width(), canvas.height(), &kPaper, nullptr);
  }
  std::vector<int32_t> ink_columns(int32_t row) const {
    std::vector<int32_t> columns;
    for (int32_t x = 0; x < canvas.width(); ++x)
      if (canvas.ink(x, row)) columns.push_back(x);
    return columns;
  }
};

// A glyph cache whose glyphs are blocks of solid ink, ink_columns wide from
// column ink_x and ink_rows tall up to the baseline, each advancing by
// `advance`; a space has no ink.
struct BlockGlyphs {
  int32_t ink_x = 0, ink_columns = 1, ink_rows = 2, advance;
  uint32_t last_size = 0;
  std::vector<uint32_t> pixels;
  zuvbit_t bitmap = {};
  zuv_glyph_cache_t* cache = nullptr;

  explicit BlockGlyphs(int32_t glyph_advance) : advance(glyph_advance) {
    EXPECT_EQ(0u, zuv_glyph_cache_init(&cache, render, this, nullptr));
  }
  ~BlockGlyphs() { zuv_glyph_cache_destroy(&cache); }

  static uint32_t render(void* user, zuvbit_t** result, uint32_t, uint32_t size,
                         unsigned short glyph, int32_t* advance) {
    BlockGlyphs* g = static_cast<BlockGlyphs*>(user);
    g->last_size = size;
    const int32_t width = 64, height = 2 * (int32_t)size + 1, baseline = height / 2;
    g->pixels.assign((size_t)width * height, 0xFFFFFFFFu);
    for (int32_t y = baseline - g->ink_rows; glyph != ' ' && y < baseline; ++y)
      for (int32_t x = g->ink_x; x < g->ink_x + g->ink_columns; ++x)
        g->pixels[(size_t)y * width + x] = 0xFF000000u;
    g->bitmap = zuvbit_t{ZUVBIT_ARGB32, g->pixels.data(), width, height, (uint32_t)width * 4};
    *result = &g->bitmap;
    *advance = g->advance;
    return 0;
  }
};

std::vector<unsigned short> u16(const char* text) {
  std::vector<unsigned short> units;
  for (const char* p = text; *p; ++p) units.push_back((unsigned char)*p);
  units.push_back(0);
  return units;
}

TEST(TableDraw, Rectangles) {
  // Filled straight into the pixels and through the canvas alike.
  for (bool direct : {true, false}) {
    SCOPED_TRACE(direct ? "pixels" : "canvas");
    Target t(16, 8);
    if (!direct) t.params.bitmap.pixels = nullptr;
    KELState& s = t.state;
    EXPECT_EQ(0u, s.draw_rect(-2, -3, 5, 6, &kRed, nullptr));  // cut to 3 x 3
    s.set_origin(10, 5);
    EXPECT_EQ(0u, s.draw_rect(0, 0, 2, 2, &kRed, nullptr));
    DRect clip = {13, 2, 2, 3};  // target coordinates: the origin isn't added
    EXPECT_EQ(0u, s.draw_rect(-10, -5, 100, 100, &kRed, &clip));
    // Nothing: cut away on the left, no width, outside the clip.
    EXPECT_EQ(0u, s.draw_rect(-20, 0, 5, 5, &kRed, nullptr));
    EXPECT_EQ(0u, s.draw_rect(0, 0, 0, 3, &kRed, nullptr));
    clip = DRect{0, 7, 3, 1};
    EXPECT_EQ(0u, s.draw_rect(-10, -5, 3, 2, &kRed, &clip));
    EXPECT_EQ("###.............\n"
              "###.............\n"
              "###..........##.\n"
              ".............##.\n"
              ".............##.\n"
              "..........##....\n"
              "..........##....\n"
              "................\n",
              t.canvas.art());
    EXPECT_EQ(0xFF0000u, t.canvas.rgb(14, 4));
  }
}

TEST(TableDraw, XorFrameAndLine) {
  Target t(12, 7);
  KELState& s = t.state;
  s.draw_rect_xor(-1, 0, 3, 2);  // x 0 to 1
  s.set_origin(5, 3);
  s.draw_rect_xor(0, 0, 1, 1);
  s.draw_rect_xor(-5, -3, 1, 1);  // inverted twice: white again
  s.draw_rect_xor(0, 0, 0, 4);
  EXPECT_EQ(".#..........\n"
            "##..........\n"
            "............\n"
            ".....#......\n",
            t.canvas.art(0, 0, 12, 4));
  EXPECT_EQ(0u, t.canvas.rgb(1, 1));

  // The right and bottom sides are two pixels thick; a clip cuts them.
  Target frame(12, 7);
  EXPECT_EQ(0u, frame.state.draw_empty_rect_with_shadow(2, 1, 5, 3, &kInk, nullptr));
  EXPECT_EQ("............\n"
            "..######....\n"
            "..#....##...\n"
            "..#....##...\n"
            "..#######...\n"
            "...######...\n"
            "............\n",
            frame.canvas.art());
  // Clipped: the same pixels inside the clip, none outside.
  Target clipped(12, 7);
  DRect clip = {0, 0, 8, 5};
  EXPECT_EQ(0u, clipped.state.draw_empty_rect_with_shadow(2, 1, 5, 3, &kInk, &clip));
  const std::string inside = frame.canvas.art(0, 0, 8, 5);
  EXPECT_EQ(inside, clipped.canvas.art(0, 0, 8, 5));
  EXPECT_EQ(std::count(inside.begin(), inside.end(), '#'), clipped.canvas.ink_count());

  // Each end of a line is held inside the clip.
  Target line(12, 7);
  clip = DRect{2, 0, 5, 7};
  EXPECT_EQ(0u, line.state.draw_line(-5, 1, 100, 1, 1, &kRed, &clip));
  line.state.set_origin(1, 1);
  clip = DRect{0, 0, 12, 6};
  EXPECT_EQ(0u, line.state.draw_line(8, 2, 8, 100, 1, &kRed, &clip));
  EXPECT_EQ("............\n"
            "..#####.....\n"
            "............\n"
            ".........#..\n"
            ".........#..\n"
            ".........#..\n"
            "............\n",
            line.canvas.art());
}

TEST(TableDraw, GlyphsFromTheCache) {
  Target t(16, 12);
  BlockGlyphs glyphs(5);
  glyphs.ink_x = 1;
  glyphs.ink_columns = 2;
  glyphs.ink_rows = 3;
  t.params.glyph_cache = glyphs.cache;
  KELState& s = t.state;
  s.set_origin(1, 2);
  int32_t x = 3;
  EXPECT_EQ(0u, s.draw_glyph(4, 6, 'A', &kRed, &x, 8, nullptr));
  EXPECT_EQ(8, x);
  EXPECT_EQ(6u, glyphs.last_size);
  // The clip is moved by the origin too: x 1 to 12 of the target.
  DRect clip = {0, 0, 12, 20};
  x = 10;
  EXPECT_EQ(0u, s.draw_glyph(4, 6, 'B', &kRed, &x, 8, &clip));
  EXPECT_EQ(15, x);
  x = 0;
  EXPECT_EQ(0u, s.draw_glyph(4, 6, ' ', &kRed, &x, 8, nullptr));
  EXPECT_EQ(0, x);  // no ink, no advance: the pen rules give a blank its room
  EXPECT_EQ("................\n"
            ".....##.....#...\n"
            ".....##.....#...\n"
            ".....##.....#...\n"
            "................\n",
            t.canvas.art(0, 6, 16, 5));
  EXPECT_EQ(0xFF0000u, t.canvas.rgb(5, 7));

  // Upright text only through a cache (the bitmap helper's tests give its
  // shape); the pen moves up by the advance.
  Target up(16, 12, 16);
  int32_t y = 9;
  EXPECT_EQ(0u, up.state.draw_glyph_vertical(4, 6, 'A', &kRed, 6, &y, nullptr));
  EXPECT_EQ(9, y);
  EXPECT_EQ(0, up.canvas.ink_count());
  up.params.glyph_cache = glyphs.cache;
  EXPECT_EQ(0u, up.state.draw_glyph_vertical(4, 6, 'A', &kRed, 6, &y, nullptr));
  EXPECT_EQ(4, y);
  EXPECT_EQ(6, up.canvas.ink_count());
}

TEST(TableDraw, GlyphsThroughThePlatform) {
  Target t(60, 40);
  DCanvasMVCairo* canvas = t.canvas.get();
  DRect whole = {0, 0, 60, 40};
  ASSERT_EQ(0u, canvas->SetClip(whole));

  // Pixels but no cache: the face's device font, clipped, and the canvas
  // left black with its own clip.
  int32_t x = 5;
  DRect clip = {0, 0, 10, 40};
  EXPECT_EQ(0u, t.state.draw_glyph(4, 20, 'H', &kRed, &x, 30, &clip));
  int32_t advance = 0;
  EXPECT_EQ(0u, canvas->MeasureChar('H', &advance));
  EXPECT_EQ(5 + advance, x);
  DRGBValue colour = {};
  DRect now = {};
  EXPECT_EQ(0u, canvas->GetColor(&colour));
  EXPECT_EQ(0, colour.red + colour.green + colour.blue);
  EXPECT_EQ(0u, canvas->GetClip(&now));
  EXPECT_EQ(60, now.width);
  EXPECT_EQ(40, now.height);
#ifdef TABULON_TEST_WITH_CAIRO
  EXPECT_GT(t.canvas.ink_count(), 20);
  int32_t outside = 0;
  for (int32_t y = 0; y < 40; ++y)
    for (int32_t i = 10; i < 60; ++i) outside += t.canvas.ink(i, y);
  EXPECT_EQ(0, outside);
  // Twice the text resolution, half the glyph.
  t.params.text_dpi = 144;
  x = 0;
  EXPECT_EQ(0u, t.state.draw_glyph(4, 20, 'H', &kRed, &x, 30, nullptr));
  EXPECT_LT(x, advance * 3 / 4);
  t.params.text_dpi = 0;
#endif

  // A black glyph takes the canvas's colour as it is.
  Target blue(30, 30);
  ASSERT_EQ(0u, blue.canvas->SetColor(kBlue));
  x = 2;
  EXPECT_EQ(0u, blue.state.draw_glyph(4, 20, 'H', &kInk, &x, 25, nullptr));
  EXPECT_EQ(0u, blue.canvas->GetColor(&colour));
  EXPECT_EQ(0xFF, colour.blue);
#ifdef TABULON_TEST_WITH_CAIRO
  bool blue_ink = false;
  for (int32_t y = 0; y < 30; ++y)
    for (int32_t i = 0; i < 30; ++i) blue_ink |= blue.canvas.rgb(i, y) == 0x0000FF;
  EXPECT_TRUE(blue_ink);
#endif

  // No pixels: a font of the family, at its size in points.
  Target plain(30, 30);
  plain.params.bitmap.pixels = nullptr;
  x = 2;
  EXPECT_EQ(0u, plain.state.draw_glyph(0, 20, 'H', &kRed, &x, 25, &clip));
  EXPECT_EQ(0u, plain.canvas->MeasureChar('H', &advance));
  EXPECT_EQ(2 + advance, x);
  EXPECT_EQ(0u, plain.canvas->GetColor(&colour));
  EXPECT_EQ(0, colour.red + colour.green + colour.blue);
#ifdef TABULON_TEST_WITH_CAIRO
  EXPECT_GT(plain.canvas.ink_count(), 20);
#endif
}

// The columns where the glyphs of text start, each glyph a one-pixel block
// advancing by `advance`, text from x 2 at 10 points.
std::vector<int32_t> pen_marks(const char* text, int32_t advance, const DRect* clip = nullptr) {
  Target t(60, 12);
  BlockGlyphs glyphs(advance);
  t.params.glyph_cache = glyphs.cache;
  DPoint point = {2, 10};
  std::vector<unsigned short> units = u16(text);
  EXPECT_EQ(0u, t.state.draw_string(units.data(), 4, 10, &kInk, &point, clip, &t.state, 200));
  EXPECT_EQ(10u, glyphs.last_size);
  return t.ink_columns(9);
}

TEST(TableDraw, StringPen) {
  typedef std::vector<int32_t> marks;
  // "A" is 6 pixels by the metrics: a wide font is pulled back 1 pixel a
  // glyph, a narrow one forward to where the metrics put it.
  EXPECT_EQ((marks{2, 21}), pen_marks("AA", 20));
  EXPECT_EQ((marks{2, 8}), pen_marks("AA", 2));
  // Thin letters keep the font's advance, except next to number marks.
  EXPECT_EQ((marks{2, 22}), pen_marks("ii", 20));
  EXPECT_EQ((marks{2, 21}), pen_marks("i,", 20));
  // A blank moves the pen at least 1 pixel (its glyph has no advance here),
  // and so does the character after it; a line feed is a blank.
  EXPECT_EQ((marks{2, 25}), pen_marks("A  A", 20));
  EXPECT_EQ((marks{2, 13}), pen_marks("A  A", 2));
  EXPECT_EQ((marks{2, 24}), pen_marks("A\nA", 20));
  // It stops at the clip's right edge.
  DRect clip = {0, 0, 21, 12};
  EXPECT_EQ((marks{2}), pen_marks("AAA", 20, &clip));
  clip.width = 22;
  EXPECT_EQ((marks{2, 21}), pen_marks("AAA", 20, &clip));
}

TEST(TableDraw, WordWrappedLines) {
  Target t(40, 12);
  BlockGlyphs glyphs(9);
  t.params.glyph_cache = glyphs.cache;
  fe_info info;
  fe_font_info(4, &info);
  // 20 pixels at 200 twips are 4096 units: two "W" of 1933 and a bit.
  auto line = [&](const char* text, unsigned position, unsigned width = 20) {
    std::vector<unsigned short> units = u16(text);
    EXPECT_EQ(0u, t.state.draw_word_wrapped_text_line(units.data(), &position, 2, 10, width,
                                                      &info, 200, nullptr, &kInk, &t.state));
    return position;
  };
  // A word too long is cut where the width runs out; the rest comes next.
  EXPECT_EQ(3u, line("WWWWW", 0));
  EXPECT_EQ((std::vector<int32_t>{2, 11, 20}), t.ink_columns(9));
  EXPECT_EQ(10u, glyphs.last_size);
  EXPECT_EQ(5u, line("WWWWW", 3));
  EXPECT_EQ(5u, line("WWWWW", 5));  // at the end: nothing more
  EXPECT_EQ(3u, line(" WWWWW", 0));  // a blank that starts the line is no break
  // The line breaks after a blank, and blanks past the width stay on it.
  EXPECT_EQ(2u, line("A WWW", 0));
  EXPECT_EQ(6u, line("WW    AB", 0));
  // A line feed ends a line, and a last one past the width stays on it.
  EXPECT_EQ(2u, line("A\nB", 0));
  EXPECT_EQ(4u, line("WWW\n", 0));
  EXPECT_EQ(3u, line("WWW\nA", 0));
  // No room at all: an empty line, and the position stays.
  EXPECT_EQ(0u, line("AB", 0, 0));
}

}  // namespace
