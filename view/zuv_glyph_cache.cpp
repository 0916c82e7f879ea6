/*
 * zuv_glyph_cache.cpp -- the ring of cached glyph bitmaps, and one glyph
 * drawn through the platform.
 */
#include "view/zuv_glyph_cache.h"

#include <stdlib.h>
#include <string.h>

#include "view/zuv_font_emulation.h"

namespace {

int64_t min64(int64_t a, int64_t b) { return a < b ? a : b; }
int64_t max64(int64_t a, int64_t b) { return a > b ? a : b; }

uint32_t glyph_key(uint32_t face, uint32_t size, unsigned short glyph) {
  return glyph | size << 20 | face << 16;
}

void unlink_entry(zuv_glyph_bitmap_t* entry) {
  entry->prev->next = entry->next;
  entry->next->prev = entry->prev;
}

void insert_before(zuv_glyph_bitmap_t* entry, zuv_glyph_bitmap_t* at) {
  entry->next = at;
  entry->prev = at->prev;
  at->prev->next = entry;
  at->prev = entry;
}

void clear_entry(zuv_glyph_bitmap_t* entry) {
  free(entry->bitmap);
  entry->bitmap = nullptr;
  entry->key = 0;
  entry->rows = entry->columns = 0;
  entry->left_bearing = entry->right_bearing = entry->top = 0;
}

/* The entry with key, walking from the most recently used.  Empty entries
 * only ever lie at the ring's end, so the first one ends the search. */
zuv_glyph_bitmap_t* find_entry(zuv_glyph_cache_t* cache, uint32_t key) {
  zuv_glyph_bitmap_t* entry = cache->head;
  do {
    if (entry->key == 0) return nullptr;
    if (entry->key == key) return entry;
    entry = entry->next;
  } while (entry != cache->head);
  return nullptr;
}

/* A rendered pixel as glyph coverage: 0 is black, 255 white.  RGB565 takes
 * red, widened as zuvbit_get_pixel widens it; ARGB32 takes blue. */
uint8_t coverage_of(const zuvbit_t* bitmap, int32_t x, int32_t y) {
  const unsigned char* row = (const unsigned char*)bitmap->pixels + (size_t)y * bitmap->bytes_per_row;
  if (bitmap->format == ZUVBIT_RGB565) {
    uint32_t red = (((const uint16_t*)row)[x] & 0xF800u) >> 8;
    return (uint8_t)(red & 8 ? red | 7 : red);
  }
  return (uint8_t)((const uint32_t*)row)[x];
}

bool blank_pixel(const zuvbit_t* bitmap, int32_t x, int32_t y) {
  const unsigned char* row = (const unsigned char*)bitmap->pixels + (size_t)y * bitmap->bytes_per_row;
  if (bitmap->format == ZUVBIT_RGB565) return ((const uint16_t*)row)[x] == 0xFFFF;
  return (((const uint32_t*)row)[x] & 0xFFFFFFu) == 0xFFFFFFu;
}

/* Finds the ink of a rendered glyph and copies it into entry.  The renderer
 * puts the baseline at mid-height, so the ink of a glyph of size pixels lies
 * within size rows of it, and within twice the advance from column 0 (room
 * for an italic overhang).  The scan stays inside the bitmap whatever the
 * renderer gave. */
uint32_t store_ink(zuv_glyph_bitmap_t* entry, const zuvbit_t* rendered, uint32_t size,
                   int32_t advance) {
  int32_t bytes = rendered->format == ZUVBIT_RGB565 ? 2 : 4;
  int32_t row_pixels = (int32_t)(rendered->bytes_per_row / (uint32_t)bytes);
  int64_t height = rendered->height > 0 ? rendered->height : 0;
  int32_t mid = (int32_t)(height / 2);
  int32_t y0 = (int32_t)max64(mid - (int64_t)size, 0);
  int32_t y1 = (int32_t)min64(mid + (int64_t)size, height);
  int32_t x1 = (int32_t)min64(2 * (int64_t)advance, row_pixels);

  int32_t first_row = -1, last_row = -1, first_column = x1, last_column = -1;
  for (int32_t y = y0; y < y1; ++y) {
    for (int32_t x = 0; x < x1; ++x) {
      if (blank_pixel(rendered, x, y)) continue;
      if (first_row < 0) first_row = y;
      last_row = y;
      if (x < first_column) first_column = x;
      if (x > last_column) last_column = x;
    }
  }
  if (first_row < 0) return 0;  // a blank glyph: the entry keeps all zeros

  uint32_t rows = (uint32_t)(last_row - first_row + 1);
  uint32_t columns = (uint32_t)(last_column - first_column + 1);
  uint8_t* ink = (uint8_t*)malloc((size_t)rows * columns);
  if (!ink) return KEL_ERR_OUT_OF_MEMORY;
  for (uint32_t r = 0; r < rows; ++r)
    for (uint32_t c = 0; c < columns; ++c)
      ink[r * columns + c] = coverage_of(rendered, first_column + (int32_t)c, first_row + (int32_t)r);
  entry->bitmap = ink;
  entry->rows = rows;
  entry->columns = columns;
  entry->left_bearing = first_column;
  entry->right_bearing = advance - last_column - 1;
  entry->top = mid - first_row;
  return 0;
}

void release_rendered(const zuv_glyph_cache_t* cache) {
  if (cache->release) cache->release();
}

}  // namespace

uint32_t zuv_glyph_cache_init(zuv_glyph_cache_t** cache, zuv_glyph_render_fn render,
                              void* user, zuv_glyph_release_fn release) {
  if (!cache || !render) return KEL_ERR_INVALID_ARGUMENT;
  zuv_glyph_cache_t* made = (zuv_glyph_cache_t*)calloc(1, sizeof *made);
  *cache = made;
  if (!made) return KEL_ERR_OUT_OF_MEMORY;
  for (int i = 0; i < ZUV_GLYPH_CACHE_ENTRIES; ++i) {
    made->entries[i].next = &made->entries[(i + 1) % ZUV_GLYPH_CACHE_ENTRIES];
    made->entries[i].prev = &made->entries[(i + ZUV_GLYPH_CACHE_ENTRIES - 1) % ZUV_GLYPH_CACHE_ENTRIES];
  }
  made->head = &made->entries[0];
  made->render = render;
  made->release = release;
  made->user = user;
  return 0;
}

void zuv_glyph_cache_destroy(zuv_glyph_cache_t** cache) {
  if (!cache || !*cache) return;
  for (zuv_glyph_bitmap_t& entry : (*cache)->entries) free(entry.bitmap);
  free(*cache);
  *cache = nullptr;
}

uint32_t zuv_glyph_cache_get_bitmap(zuv_glyph_cache_t* cache, uint32_t face, uint32_t size,
                                    unsigned short glyph, zuv_glyph_bitmap_t** result) {
  if (!cache) return KEL_ERR_GENERAL;
  uint32_t key = glyph_key(face, size, glyph);
  /* The one key that marks an empty entry (NUL of face 0 at size 0, which
   * has nothing to draw) can't be kept. */
  if (key == 0) return KEL_ERR_NOT_FOUND;
  zuv_glyph_bitmap_t* entry = find_entry(cache, key);
  if (!entry) {
    /* Give up the least recently used entry; until the new glyph is stored
     * it is empty, and stays at the ring's end if rendering fails. */
    entry = cache->head->prev;
    clear_entry(entry);
    zuvbit_t* rendered = nullptr;
    int32_t advance = 0;
    uint32_t status = cache->render(cache->user, &rendered, face, size, glyph, &advance);
    if (status) return status;
    if (!rendered || !rendered->pixels ||
        (rendered->format != ZUVBIT_RGB565 && rendered->format != ZUVBIT_ARGB32)) {
      release_rendered(cache);
      return KEL_ERR_NOT_FOUND;
    }
    status = store_ink(entry, rendered, size, advance);
    release_rendered(cache);
    if (status) return status;
    entry->key = key;
  }
  if (entry != cache->head) {
    unlink_entry(entry);
    insert_before(entry, cache->head);
    cache->head = entry;
  }
  *result = entry;
  return 0;
}

uint32_t zuv_glyph_render(ICanvas* canvas, IZuvFontManager* fonts, int32_t x, int32_t y,
                          unsigned short glyph, uint32_t face, int32_t size,
                          int32_t* advance) {
  if (!canvas || !fonts || !advance) return KEL_ERR_INVALID_ARGUMENT;
  const fe_platform_font_t* platform = fe_platform_font(face);
  VString name, text;
  uint32_t status = name.SetString(platform->name, VString::kUtf8, -1);
  if (!status) status = text.SetString(&glyph, VString::kWide, 1);
  int charset = kCharSetNone;
  if (!status) status = fonts->GetGlyphCharSet(glyph, &charset);
  if (status) return status;
  DFontSpec font = {&name, charset, platform->family, size, 1.0, platform->bold, platform->italic};
  status = canvas->SetFontByName(font);
  if (!status) status = canvas->MeasureString(text, advance);
  if (!status) status = canvas->DrawChar(x, y, glyph);
  return status;
}
