/*
 * zuv_bitmap_helper.cpp -- fills and glyphs drawn straight into the pixels
 * of a target bitmap, for embedders that hand the view their memory.
 */
#include "view/zuv_bitmap_helper.h"

#include <stddef.h>

#include "view/zuv_glyph_cache.h"

namespace {

/* Two RGB565 pixels stored at once.  The pixels are 16-bit values, so the
 * wider store must be allowed to alias them. */
typedef uint32_t __attribute__((may_alias)) pixel_pair_t;

/* The pixel area of a bitmap: x0 <= x < x1, y0 <= y < y1. */
struct Area {
  int32_t x0, y0, x1, y1;
};

int32_t pixel_bytes(const zuvbit_t* bitmap) {
  if (!bitmap->pixels) return 0;
  if (bitmap->format == ZUVBIT_RGB565) return 2;
  if (bitmap->format == ZUVBIT_ARGB32) return 4;
  return 0;
}

/* The whole bitmap; empty for one that can't be drawn into. */
Area bitmap_area(const zuvbit_t* bitmap) {
  int32_t bytes = pixel_bytes(bitmap);
  if (!bytes || bitmap->height <= 0) return Area{0, 0, 0, 0};
  return Area{0, 0, (int32_t)(bitmap->bytes_per_row / (uint32_t)bytes), bitmap->height};
}

bool area_empty(const Area& a) { return a.x0 >= a.x1 || a.y0 >= a.y1; }

int32_t max32(int32_t a, int32_t b) { return a > b ? a : b; }
int32_t min32(int32_t a, int32_t b) { return a < b ? a : b; }

/* The rectangle x, y, width, height within the bitmap.  Computed in 64 bits
 * so that a rectangle reaching past the 32-bit range is cut, not wrapped. */
Area clamp_rect(const zuvbit_t* bitmap, int32_t x, int32_t y, int32_t width, int32_t height) {
  Area whole = bitmap_area(bitmap);
  int64_t right = (int64_t)x + width, bottom = (int64_t)y + height;
  Area a;
  a.x0 = max32(x, whole.x0);
  a.y0 = max32(y, whole.y0);
  a.x1 = right < whole.x1 ? (int32_t)right : whole.x1;
  a.y1 = bottom < whole.y1 ? (int32_t)bottom : whole.y1;
  return a;
}

/* Where a glyph may be drawn: the clip, or the whole bitmap, within the
 * bitmap. */
Area glyph_clip(const zuvbit_t* bitmap, const DRect* clip) {
  if (!clip) return bitmap_area(bitmap);
  return clamp_rect(bitmap, clip->x, clip->y, clip->width, clip->height);
}

uint16_t* row16(const zuvbit_t* bitmap, int32_t y) {
  return (uint16_t*)((unsigned char*)bitmap->pixels + (size_t)y * bitmap->bytes_per_row);
}

uint32_t* row32(const zuvbit_t* bitmap, int32_t y) {
  return (uint32_t*)((unsigned char*)bitmap->pixels + (size_t)y * bitmap->bytes_per_row);
}

uint16_t pack565(uint32_t red, uint32_t green, uint32_t blue) {
  return (uint16_t)((red >> 3) << 11 | (green >> 2) << 5 | (blue >> 3));
}

uint32_t pack32(uint32_t red, uint32_t green, uint32_t blue) {
  return 0xFF000000u | red << 16 | green << 8 | blue;
}

/* One channel of the colour laid over the destination with coverage a (0
 * all colour, 255 all destination), rounded. */
uint32_t blend(uint32_t a, uint32_t colour, uint32_t destination) {
  return ((255 - a) * colour + 127 + destination * a) / 255;
}

/* Lays the colour over one pixel by coverage a. */
void blend_pixel(const zuvbit_t* bitmap, int32_t x, int32_t y, uint32_t a, DRGBValue colour) {
  if (a == 255) return;
  if (bitmap->format == ZUVBIT_RGB565) {
    uint16_t* p = row16(bitmap, y) + x;
    if (a == 0) {
      *p = pack565(colour.red, colour.green, colour.blue);
      return;
    }
    uint32_t red = (*p & 0xF800u) >> 8, green = (*p & 0x7E0u) >> 3, blue = (*p & 0x1Fu) * 8;
    *p = pack565(blend(a, colour.red, red), blend(a, colour.green, green),
                 blend(a, colour.blue, blue));
  } else {
    uint32_t* p = row32(bitmap, y) + x;
    if (a == 0) {
      *p = pack32(colour.red, colour.green, colour.blue);
      return;
    }
    uint32_t red = (*p >> 16) & 0xFF, green = (*p >> 8) & 0xFF, blue = *p & 0xFF;
    *p = pack32(blend(a, colour.red, red), blend(a, colour.green, green),
                blend(a, colour.blue, blue));
  }
}

int32_t glyph_advance(const zuv_glyph_bitmap_t* glyph) {
  return glyph->left_bearing + (int32_t)glyph->columns + glyph->right_bearing;
}

/* An RGB565 channel widened to 8 bits: low bits copy the channel's lowest
 * bit, so that full intensity stays full. */
uint8_t widen(uint32_t shifted, uint32_t lowest_bit) {
  return (uint8_t)(shifted & lowest_bit ? shifted | (lowest_bit - 1) : shifted);
}

}  // namespace

void zuvbit_fill_solid(zuvbit_t* bitmap, int32_t x, int32_t y, int32_t width,
                       int32_t height, DRGBValue colour) {
  Area a = clamp_rect(bitmap, x, y, width, height);
  if (area_empty(a)) return;
  if (bitmap->format == ZUVBIT_RGB565) {
    uint16_t value = pack565(colour.red, colour.green, colour.blue);
    pixel_pair_t pair = (uint32_t)value << 16 | value;
    for (int32_t row = a.y0; row < a.y1; ++row) {
      uint16_t* p = row16(bitmap, row) + a.x0;
      uint16_t* end = row16(bitmap, row) + a.x1;
      if (((uintptr_t)p & 3) != 0) *p++ = value;
      for (; end - p >= 2; p += 2) *(pixel_pair_t*)p = pair;
      if (p < end) *p = value;
    }
  } else {
    uint32_t value = pack32(colour.red, colour.green, colour.blue);
    for (int32_t row = a.y0; row < a.y1; ++row) {
      uint32_t* p = row32(bitmap, row);
      for (int32_t column = a.x0; column < a.x1; ++column) p[column] = value;
    }
  }
}

void zuvbit_fill_xor(zuvbit_t* bitmap, int32_t x, int32_t y, int32_t width, int32_t height) {
  Area a = clamp_rect(bitmap, x, y, width, height);
  if (area_empty(a)) return;
  for (int32_t row = a.y0; row < a.y1; ++row) {
    if (bitmap->format == ZUVBIT_RGB565) {
      uint16_t* p = row16(bitmap, row);
      for (int32_t column = a.x0; column < a.x1; ++column) p[column] ^= 0xFFFF;
    } else {
      uint32_t* p = row32(bitmap, row);
      for (int32_t column = a.x0; column < a.x1; ++column) p[column] ^= 0xFFFFFF;
    }
  }
}

DRGBValue zuvbit_get_pixel(const zuvbit_t* bitmap, int32_t x, int32_t y) {
  Area a = bitmap_area(bitmap);
  if (x < a.x0 || x >= a.x1 || y < a.y0 || y >= a.y1) return DRGBValue{0xFF, 0xFF, 0xFF, 0xFF};
  if (bitmap->format == ZUVBIT_RGB565) {
    uint32_t p = row16(bitmap, y)[x];
    return DRGBValue{0xFF, widen((p & 0xF800) >> 8, 8), widen((p & 0x7E0) >> 3, 4),
                     widen((p & 0x1F) << 3, 8)};
  }
  uint32_t p = row32(bitmap, y)[x];
  return DRGBValue{0xFF, (uint8_t)(p >> 16), (uint8_t)(p >> 8), (uint8_t)p};
}

void zuvbit_draw_glyph(zuvbit_t* bitmap, int32_t x, int32_t y, const DRect* clip,
                       const zuv_glyph_bitmap_t* glyph, DRGBValue colour, int32_t* advance) {
  *advance = glyph_advance(glyph);
  if (!glyph->bitmap) return;
  Area a = glyph_clip(bitmap, clip);
  int32_t left = x + glyph->left_bearing, top = y - glyph->top;
  int32_t rows = (int32_t)glyph->rows, columns = (int32_t)glyph->columns;
  int32_t r0 = max32(0, a.y0 - top), r1 = min32(rows, a.y1 - top);
  int32_t c0 = max32(0, a.x0 - left), c1 = min32(columns, a.x1 - left);
  for (int32_t r = r0; r < r1; ++r) {
    const uint8_t* coverage = glyph->bitmap + (size_t)r * columns;
    for (int32_t c = c0; c < c1; ++c) blend_pixel(bitmap, left + c, top + r, coverage[c], colour);
  }
}

void zuvbit_draw_glyph_vertical_up(zuvbit_t* bitmap, int32_t x, int32_t y, const DRect* clip,
                                   const zuv_glyph_bitmap_t* glyph, DRGBValue colour,
                                   int32_t* advance) {
  *advance = glyph_advance(glyph);
  if (!glyph->bitmap || bitmap->format != ZUVBIT_RGB565) return;
  Area a = glyph_clip(bitmap, clip);
  /* Row r of the glyph lies on column left + r; its column c on row
   * bottom - c.  So nothing is drawn when bottom is above the clip. */
  int32_t left = x - glyph->top, bottom = y - glyph->left_bearing;
  int32_t rows = (int32_t)glyph->rows, columns = (int32_t)glyph->columns;
  int32_t r0 = max32(0, a.x0 - left), r1 = min32(rows, a.x1 - left);
  int32_t c0 = max32(0, bottom - a.y1 + 1), c1 = min32(columns, bottom - a.y0 + 1);
  for (int32_t r = r0; r < r1; ++r) {
    const uint8_t* coverage = glyph->bitmap + (size_t)r * columns;
    for (int32_t c = c0; c < c1; ++c) blend_pixel(bitmap, left + r, bottom - c, coverage[c], colour);
  }
}
