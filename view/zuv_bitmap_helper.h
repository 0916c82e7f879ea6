/*
 * zuv_bitmap_helper.h -- a target bitmap that the view may draw into
 * directly, pixel by pixel, instead of through the canvas.
 */
#ifndef ZUV_BITMAP_HELPER_H
#define ZUV_BITMAP_HELPER_H

#include <stdint.h>

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

#endif /* ZUV_BITMAP_HELPER_H */
