/*
 * pixel_ops.h -- exact drawing straight into canvas memory: rectangles,
 * lines and copies between the two pixel formats.
 *
 * Lines and rectangles must land on exact pixels (a grid line is one row, a
 * cell's fill stops at its grid lines), which an anti-aliasing rasteriser,
 * even with anti-aliasing off, doesn't promise for every slope and pen.  So
 * these few shapes are drawn here, by integer arithmetic, and only curves
 * and polygons are left to the rasteriser.  Internal to the platform layer
 * and its test double.
 */
#ifndef PIXEL_OPS_H
#define PIXEL_OPS_H

#include <stdint.h>

#include "zuv_platform.h"

struct pixel_surface {
  unsigned char* pixels;
  uint32_t bytes_per_row;
  int32_t width, height;
  int bits_per_pixel;  /* 16: RGB565; 32: 0xAARRGGBB */
  DRect clip;          /* lies within the surface; may be empty */
};

/* The colour as a pixel value of the format (alpha 0xFF for 32 bits). */
uint32_t pixel_pack(int bits_per_pixel, const DRGBValue& color);

/* Narrows r to its overlap with bounds; false if nothing is left (r is then
 * empty). */
bool pixel_intersect(DRect* r, const DRect& bounds);

/* Sets the pixels of the rectangle that lie in the clip. */
void pixel_fill(const pixel_surface* s, int32_t x, int32_t y, int32_t width,
                int32_t height, uint32_t value);

/* A line covering both end points and the pixels between (Bresenham), with a
 * square pen of width pixels placed at p - (width - 1) / 2 on both axes, so
 * that odd widths are centred on the line.  style is a DPenStyle; dashes are
 * counted along the longer axis. */
void pixel_line(const pixel_surface* s, int32_t x1, int32_t y1, int32_t x2,
                int32_t y2, int width, int style, uint32_t value);

/* Blends the colour into the pixels of the width x height area at (x, y)
 * by the coverage bytes (row by row, 0 none to 255 full), within the clip.
 * Drawing text from rendered glyphs. */
void pixel_blend(const pixel_surface* s, int32_t x, int32_t y, int32_t width,
                 int32_t height, const uint8_t* coverage, const DRGBValue& color);

/* Copies source of from to (x, y) of to, converting the format; clipped to
 * from's bounds and to's clip.  from and to may be the same surface. */
void pixel_copy(const pixel_surface* from, const DRect& source,
                const pixel_surface* to, int32_t x, int32_t y);

/* On and off lengths of a dashed pen, in pen widths, ending in 0; null for a
 * solid pen.  Shared with the rasteriser's dashes. */
const uint8_t* pixel_dash_pattern(int style);

#endif /* PIXEL_OPS_H */
