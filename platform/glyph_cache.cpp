/*
 * glyph_cache.cpp -- an open-addressing table of rendered glyphs per scaled
 * font.  It starts small, since most fonts of a sheet draw a few dozen
 * glyphs, and doubles up to a limit; full at the limit, it is emptied and
 * starts again, so that memory stays bounded.
 */
#include "glyph_cache.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

namespace {

const uint32_t kFirstCapacity = 64;  /* powers of two */
const uint32_t kMostCapacity = 1024;

struct cached_glyph {
  unsigned long index;
  bool used;
  glyph_image image;
};

struct glyph_table {
  cached_glyph* slots;
  uint32_t capacity, used;
};

const cairo_user_data_key_t kTableKey = {0};

uint32_t home(const glyph_table* table, unsigned long index) {
  return (uint32_t)(index * 2654435761u) & (table->capacity - 1);
}

void empty_table(glyph_table* table) {
  for (uint32_t i = 0; i < table->capacity; ++i) {
    if (table->slots[i].used) free(const_cast<uint8_t*>(table->slots[i].image.coverage));
    table->slots[i].used = false;
  }
  table->used = 0;
}

void free_table(void* data) {
  glyph_table* table = static_cast<glyph_table*>(data);
  empty_table(table);
  free(table->slots);
  free(table);
}

/* Rehashes into twice the room; false (table unchanged) if memory fails. */
bool grow(glyph_table* table) {
  glyph_table bigger = {static_cast<cached_glyph*>(calloc(table->capacity * 2, sizeof(cached_glyph))),
                        table->capacity * 2, table->used};
  if (!bigger.slots) return false;
  for (uint32_t i = 0; i < table->capacity; ++i) {
    if (!table->slots[i].used) continue;
    uint32_t at = home(&bigger, table->slots[i].index);
    while (bigger.slots[at].used) at = (at + 1) & (bigger.capacity - 1);
    bigger.slots[at] = table->slots[i];
  }
  free(table->slots);
  *table = bigger;
  return true;
}

glyph_table* table_of(cairo_scaled_font_t* font) {
  void* found = cairo_scaled_font_get_user_data(font, &kTableKey);
  if (found) return static_cast<glyph_table*>(found);
  glyph_table* table = static_cast<glyph_table*>(malloc(sizeof(glyph_table)));
  cached_glyph* slots = static_cast<cached_glyph*>(calloc(kFirstCapacity, sizeof(cached_glyph)));
  if (!table || !slots) {
    free(table);
    free(slots);
    return nullptr;
  }
  *table = glyph_table{slots, kFirstCapacity, 0};
  if (cairo_scaled_font_set_user_data(font, &kTableKey, table, free_table) !=
      CAIRO_STATUS_SUCCESS) {
    free_table(table);
    return nullptr;
  }
  return table;
}
/* Draws the glyph with its origin on whole pixels, as the canvas places it,
 * into an 8-bit alpha surface a pixel larger than its ink all round. */
bool render(cairo_scaled_font_t* font, unsigned long index, glyph_image* image) {
  cairo_glyph_t glyph = {index, 0, 0};
  cairo_text_extents_t ink;
  cairo_scaled_font_glyph_extents(font, &glyph, 1, &ink);
  *image = glyph_image{0, 0, 0, 0, (int32_t)lround(ink.x_advance), nullptr};
  if (ink.width <= 0 || ink.height <= 0) return true;
  int32_t left = (int32_t)floor(ink.x_bearing) - 1;
  int32_t top = (int32_t)floor(ink.y_bearing) - 1;
  int32_t width = (int32_t)ceil(ink.x_bearing + ink.width) + 1 - left;
  int32_t height = (int32_t)ceil(ink.y_bearing + ink.height) + 1 - top;
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_A8, width, height);
  cairo_t* cr = cairo_create(surface);
  cairo_set_scaled_font(cr, font);
  glyph.x = -left;
  glyph.y = -top;
  cairo_show_glyphs(cr, &glyph, 1);
  cairo_surface_flush(surface);
  uint8_t* coverage = nullptr;
  if (cairo_status(cr) == CAIRO_STATUS_SUCCESS &&
      (coverage = static_cast<uint8_t*>(malloc((size_t)width * height)))) {
    const unsigned char* rows = cairo_image_surface_get_data(surface);
    int stride = cairo_image_surface_get_stride(surface);
    for (int32_t y = 0; y < height; ++y)
      memcpy(coverage + (size_t)y * width, rows + (size_t)y * stride, width);
    *image = glyph_image{left, top, width, height, image->advance, coverage};
  }
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
  return coverage != nullptr;
}

}  // namespace

const glyph_image* glyph_cache_get(cairo_scaled_font_t* font, unsigned long index) {
  glyph_table* table = table_of(font);
  if (!table) return nullptr;
  uint32_t at = home(table, index);
  for (; table->slots[at].used; at = (at + 1) & (table->capacity - 1))
    if (table->slots[at].index == index) return &table->slots[at].image;
  /* Kept at most three quarters full, so that probes stay short. */
  if (table->used + 1 > table->capacity / 4 * 3) {
    if (table->capacity >= kMostCapacity || !grow(table)) empty_table(table);
    at = home(table, index);
    while (table->slots[at].used) at = (at + 1) & (table->capacity - 1);
  }
  cached_glyph* slot = &table->slots[at];
  if (!render(font, index, &slot->image)) return nullptr;
  slot->index = index;
  slot->used = true;
  ++table->used;
  return &slot->image;
}

void glyph_cache_drop(cairo_scaled_font_t* font) {
  cairo_scaled_font_set_user_data(font, &kTableKey, nullptr, nullptr);
}
