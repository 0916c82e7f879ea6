/*
 * zuv_bitmap_helper.h -- a target bitmap that the view may draw into
 * directly, pixel by pixel, instead of through the canvas.
 */
#ifndef ZUV_BITMAP_HELPER_H
#define ZUV_BITMAP_HELPER_H

#include <stdint.h>

#include "platform/zuv_platform.h"

struct zuv_glyph_bitmap_t;

/* Pixel formats of a zuvbit_t. */
enum {
  ZUVBIT_RGB565 = 1,   /* 16-bit */
  ZUVBIT_ARGB32 = 2    /* 32-bit 0xAARRGGBB, alpha written as 0xFF */
};

/* Rows are bytes_per_row apart; a row holds bytes_per_row / 2 or / 4
 * pixels. */
struct zuvbit_t {
  int32_t format;
  void* pixels;
  int32_t width;
  int32_t height;
  uint32_t bytes_per_row;
};

/*
 * The helpers below draw into a zuvbit_t.  A row holds bytes_per_row / 2
 * (RGB565) or / 4 (ARGB32) pixels, whatever width says, and there are height
 * rows.  Nothing is drawn outside the bitmap; a bitmap of another format or
 * without pixels is left alone.
 */

/* Fills the rectangle with the colour.  RGB565 keeps the top 5, 6, 5 bits
 * of red, green and blue; ARGB32 stores alpha 0xFF. */
void zuvbit_fill_solid(zuvbit_t* bitmap, int32_t x, int32_t y, int32_t width,
                       int32_t height, DRGBValue colour);

/* Inverts the colour of every pixel of the rectangle (alpha stays). */
void zuvbit_fill_xor(zuvbit_t* bitmap, int32_t x, int32_t y, int32_t width,
                     int32_t height);

/* The colour of a pixel, flags 0xFF.  RGB565 channels widen by repeating
 * their lowest bit into the bits below it (0x1F gives 0xFF, 0x10 gives
 * 0x80).  White outside the bitmap and for an unknown format. */
DRGBValue zuvbit_get_pixel(const zuvbit_t* bitmap, int32_t x, int32_t y);

/* Draws a glyph from the glyph cache with its origin at x and its baseline
 * at y, clipped to clip (null: the whole bitmap) and to the bitmap.  Each
 * pixel blends the colour with what is there by the glyph's coverage (0
 * solid, 255 nothing).  *advance gets the glyph's advance in pixels: left
 * bearing + columns + right bearing, whether or not anything was drawn. */
void zuvbit_draw_glyph(zuvbit_t* bitmap, int32_t x, int32_t y, const DRect* clip,
                       const zuv_glyph_bitmap_t* glyph, DRGBValue colour,
                       int32_t* advance);

/* The same glyph turned a quarter turn anticlockwise, for text that runs
 * upwards: its baseline is the column x, its origin at y, and its rows run
 * right from x - top.  Draws in RGB565 only; in other formats it only gives
 * the advance. */
void zuvbit_draw_glyph_vertical_up(zuvbit_t* bitmap, int32_t x, int32_t y,
                                   const DRect* clip, const zuv_glyph_bitmap_t* glyph,
                                   DRGBValue colour, int32_t* advance);

#endif /* ZUV_BITMAP_HELPER_H */
