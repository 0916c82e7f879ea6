/*
 * glyph_cache.h -- the glyphs of a scaled font as coverage bitmaps, rendered
 * by cairo once and then blended by the canvas.
 *
 * The sheet painter draws one glyph at a time.  cairo_show_glyphs for a
 * single glyph allocates on every call and goes through the whole
 * compositing pipeline; a cached bitmap blended straight into the pixels
 * costs a table lookup and the blend.  The cache hangs on the cairo scaled
 * font itself (as its user data), so every canvas drawing at the same face
 * and size shares it, and it goes when cairo drops the scaled font.
 */
#ifndef GLYPH_CACHE_H
#define GLYPH_CACHE_H

#include <stdint.h>

#include <cairo.h>

struct glyph_image {
  int32_t left, top;       /* the bitmap's first pixel, from the origin */
  int32_t width, height;   /* 0 for a glyph without ink */
  int32_t advance;         /* whole pixels */
  const uint8_t* coverage; /* width * height bytes, row by row; 255 is ink */
};

/* The glyph's image, rendered on first use; null if memory fails.  Valid
 * until the next call for the same font. */
const glyph_image* glyph_cache_get(cairo_scaled_font_t* font, unsigned long index);

/* Frees the font's glyph images now.  For the last user of a scaled font:
 * cairo keeps fonts that were let go for a while, in case they come back,
 * and their images needn't wait with them. */
void glyph_cache_drop(cairo_scaled_font_t* font);

#endif /* GLYPH_CACHE_H */
