// The glyph cache over a renderer that the test controls.  Glyphs of the
// platform go through it in the drawing layer's tests.
#include <gtest/gtest.h>


#include <vector>

#include "view/zuv_glyph_cache.h"

namespace {

// Renders every glyph but a space as a block of ink, rows x columns, at
// column x and top rows above the baseline, into a white bitmap 12 x 21
// whose baseline is row 10.  The ink pixel is `ink`.
struct FakeRenderer {
  int32_t format = ZUVBIT_RGB565;
  int32_t x = 1, top = 3, rows = 4, columns = 2, advance = 5;
  uint32_t ink = 0;
  uint32_t fail = 0;  // status to return
  int renders = 0;
  std::vector<uint32_t> pixels;
  zuvbit_t bitmap = {};
};

int g_releases = 0;
void count_release() { ++g_releases; }

uint32_t fake_render(void* user, zuvbit_t** result, uint32_t, uint32_t, unsigned short glyph,
                     int32_t* advance) {
  FakeRenderer* r = static_cast<FakeRenderer*>(user);
  ++r->renders;
  if (r->fail) return r->fail;
  const int32_t width = 12, height = 21;
  r->pixels.assign((size_t)width * height, 0xFFFFFFFFu);
  r->bitmap = zuvbit_t{r->format, r->pixels.data(), width, height,
                       (uint32_t)(width * (r->format == ZUVBIT_RGB565 ? 2 : 4))};
  for (int32_t j = 0; glyph != ' ' && j < r->rows; ++j)
    for (int32_t i = 0; i < r->columns; ++i) {
      unsigned char* row = (unsigned char*)r->pixels.data() + (size_t)(10 - r->top + j) * r->bitmap.bytes_per_row;
      if (r->format == ZUVBIT_RGB565) ((uint16_t*)row)[r->x + i] = (uint16_t)r->ink;
      else ((uint32_t*)row)[r->x + i] = r->ink;
    }
  *result = &r->bitmap;
  *advance = r->advance;
  return 0;
}

struct Cache {
  FakeRenderer renderer;
  zuv_glyph_cache_t* cache = nullptr;
  Cache() { EXPECT_EQ(0u, zuv_glyph_cache_init(&cache, fake_render, &renderer, count_release)); }
  ~Cache() { zuv_glyph_cache_destroy(&cache); }
  zuv_glyph_bitmap_t* get(unsigned short glyph, uint32_t size = 10, uint32_t face = 4) {
    zuv_glyph_bitmap_t* entry = nullptr;
    EXPECT_EQ(0u, zuv_glyph_cache_get_bitmap(cache, face, size, glyph, &entry));
    return entry;
  }
};

TEST(GlyphCache, FindsTheInk) {
  Cache c;
  c.renderer.ink = 0x0841;  // red 00001: widened to 0x0F
  g_releases = 0;
  zuv_glyph_bitmap_t* e = c.get('A');
  ASSERT_NE(nullptr, e);
  EXPECT_EQ(1, g_releases);
  EXPECT_EQ('A' | 10u << 20 | 4u << 16, e->key);
  EXPECT_EQ(4u, e->rows);
  EXPECT_EQ(2u, e->columns);
  EXPECT_EQ(1, e->left_bearing);
  EXPECT_EQ(5 - 2 - 1, e->right_bearing);
  EXPECT_EQ(3, e->top);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(0x0F, e->bitmap[i]);

  // A hit renders nothing and releases nothing; other sizes and faces are
  // other glyphs.
  EXPECT_EQ(e, c.get('A'));
  EXPECT_EQ(1, c.renderer.renders);
  EXPECT_NE(e, c.get('A', 11));
  EXPECT_NE(e, c.get('A', 10, 5));
  EXPECT_EQ(3, c.renderer.renders);
  EXPECT_EQ(3, g_releases);

  // ARGB32 takes the low byte; ink beyond size rows of the baseline or twice
  // the advance is not looked at; a glyph below the baseline has top < 0.
  c.renderer.format = ZUVBIT_ARGB32;
  c.renderer.ink = 0xFF4020A0;
  c.renderer.top = -1;
  c.renderer.rows = 6;
  c.renderer.x = 2;
  c.renderer.columns = 10;
  e = c.get('B', 4);  // rows 10 - 4 to 13 and columns 0 to 9
  EXPECT_EQ(3u, e->rows);
  EXPECT_EQ(8u, e->columns);
  EXPECT_EQ(-1, e->top);
  EXPECT_EQ(2, e->left_bearing);
  EXPECT_EQ(-5, e->right_bearing);
  EXPECT_EQ(0xA0, e->bitmap[23]);

  // No ink: an entry with nothing in it, found again like any other.
  e = c.get(' ');
  EXPECT_EQ(nullptr, e->bitmap);
  EXPECT_EQ(0u, e->rows + e->columns);
  EXPECT_EQ(0, e->left_bearing + e->right_bearing + e->top);
  int renders = c.renderer.renders;
  EXPECT_EQ(e, c.get(' '));
  EXPECT_EQ(renders, c.renderer.renders);
}

TEST(GlyphCache, EvictsTheLeastRecentlyUsed) {
  Cache c;
  for (unsigned short g = 1; g <= ZUV_GLYPH_CACHE_ENTRIES; ++g) c.get(g);
  c.get(1);  // now 2 is the oldest
  EXPECT_EQ(ZUV_GLYPH_CACHE_ENTRIES, c.renderer.renders);
  c.get(1000);
  c.get(1);
  c.get(3);
  EXPECT_EQ(ZUV_GLYPH_CACHE_ENTRIES + 1, c.renderer.renders);
  c.get(2);
  EXPECT_EQ(ZUV_GLYPH_CACHE_ENTRIES + 2, c.renderer.renders);

  // The ring is whole: 500 entries either way round, the head first.
  zuv_glyph_bitmap_t* e = c.cache->head;
  EXPECT_EQ(2u, e->key & 0xFFFF);
  int count = 0;
  do {
    EXPECT_EQ(e, e->next->prev);
    e = e->next;
    ++count;
  } while (e != c.cache->head && count <= ZUV_GLYPH_CACHE_ENTRIES);
  EXPECT_EQ(ZUV_GLYPH_CACHE_ENTRIES, count);
}

TEST(GlyphCache, Failures) {
  Cache c;
  for (unsigned short g = 1; g <= ZUV_GLYPH_CACHE_ENTRIES; ++g) c.get(g);
  c.renderer.fail = KEL_ERR_GENERAL;
  g_releases = 0;
  zuv_glyph_bitmap_t* e = nullptr;
  EXPECT_EQ(KEL_ERR_GENERAL, zuv_glyph_cache_get_bitmap(c.cache, 4, 10, 1000, &e));
  EXPECT_EQ(0, g_releases);
  EXPECT_EQ(0u, c.cache->head->prev->key);  // glyph 1 given up, the entry empty
  EXPECT_EQ(nullptr, c.cache->head->prev->bitmap);
  int renders = c.renderer.renders;
  c.renderer.fail = 0;
  c.get(2);
  c.get(500);
  EXPECT_EQ(renders, c.renderer.renders);  // the others are still found

  c.renderer.format = 3;
  EXPECT_EQ(KEL_ERR_NOT_FOUND, zuv_glyph_cache_get_bitmap(c.cache, 4, 10, 1, &e));
  EXPECT_EQ(1, g_releases);
  c.renderer.format = ZUVBIT_RGB565;
  e = c.get(1);
  ASSERT_NE(nullptr, e);
  EXPECT_EQ(8u, e->rows * e->columns);
  EXPECT_EQ(renders + 2, c.renderer.renders);

  EXPECT_EQ(KEL_ERR_NOT_FOUND, zuv_glyph_cache_get_bitmap(c.cache, 0, 0, 0, &e));
  EXPECT_EQ(KEL_ERR_GENERAL, zuv_glyph_cache_get_bitmap(nullptr, 4, 10, 'B', &e));
  zuv_glyph_cache_t* none = nullptr;
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, zuv_glyph_cache_init(&none, nullptr, nullptr, nullptr));
  zuv_glyph_cache_destroy(&none);
  zuv_glyph_cache_destroy(nullptr);
}

}  // namespace
