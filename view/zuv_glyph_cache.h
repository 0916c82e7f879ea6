/*
 * zuv_glyph_cache.h -- glyphs of the view's faces as coverage bitmaps, kept
 * for reuse, and the drawing of one glyph through the platform.
 *
 * A sheet shows few distinct characters at few sizes, but draws them one at
 * a time, over and over.  An embedder that hands the view its pixels may
 * also hand it a glyph cache: each glyph is then rendered once, by the
 * embedder's render function, and blended from the cache after that
 * (zuvbit_draw_glyph).  The cache keeps the 500 glyphs used most recently.
 *
 * Statuses are those of kel_status.h; 0 is success.
 */
#ifndef ZUV_GLYPH_CACHE_H
#define ZUV_GLYPH_CACHE_H

#include <stdint.h>

#include "platform/zuv_platform.h"
#include "view/zuv_bitmap_helper.h"

enum { ZUV_GLYPH_CACHE_ENTRIES = 500 };

/* One glyph.  key is glyph | size << 20 | face << 16 (12 bits of size, 4 of
 * face); 0 marks an empty entry.  The ink is rows x columns coverage bytes,
 * row after row, 0 solid ink to 255 nothing, from the C library's malloc and
 * owned by the entry.  A glyph without ink (a space) has no bitmap and all
 * its numbers 0, so its advance through the cache is 0. */
struct zuv_glyph_bitmap_t {
  zuv_glyph_bitmap_t* next;  /* less recently used; the ring closes */
  zuv_glyph_bitmap_t* prev;  /* more recently used */
  uint32_t key;
  uint32_t rows, columns;
  int32_t left_bearing;      /* blank columns before the ink */
  int32_t right_bearing;     /* blank after it, up to the advance; may be < 0 */
  int32_t top;               /* rows from the ink's top row to the baseline */
  uint8_t* bitmap;
};

/* Renders glyph of face at size pixels, black on white, into a bitmap it
 * keeps: at least 2 * size + 1 rows, the baseline on row height / 2, the
 * glyph's origin on column 0.  Stores the bitmap in *result and the advance
 * in pixels in *advance.  The bitmap must stay valid until the release
 * function is called; returns a status. */
typedef uint32_t (*zuv_glyph_render_fn)(void* user, zuvbit_t** result, uint32_t face,
                                        uint32_t size, unsigned short glyph,
                                        int32_t* advance);
/* Tells the renderer that its last bitmap has been read. */
typedef void (*zuv_glyph_release_fn)(void);

struct zuv_glyph_cache_t {
  zuv_glyph_bitmap_t* head;  /* most recently used; head->prev least */
  zuv_glyph_bitmap_t entries[ZUV_GLYPH_CACHE_ENTRIES];
  zuv_glyph_render_fn render;
  zuv_glyph_release_fn release;  /* may be null */
  void* user;                    /* the render function's */
};

/* An empty cache in *cache.  KEL_ERR_INVALID_ARGUMENT for a null cache or
 * render; KEL_ERR_OUT_OF_MEMORY, with *cache null, if it can't be
 * allocated. */
uint32_t zuv_glyph_cache_init(zuv_glyph_cache_t** cache, zuv_glyph_render_fn render,
                              void* user, zuv_glyph_release_fn release);

/* Frees the cache with its bitmaps and nulls *cache; safe on a null cache
 * and on a null *cache. */
void zuv_glyph_cache_destroy(zuv_glyph_cache_t** cache);

/* The cached glyph in *result, rendered first if it isn't in the cache.  The
 * entry stays valid until the next call.  KEL_ERR_GENERAL for a null cache;
 * a failure of the render function is returned as it is;
 * KEL_ERR_NOT_FOUND if the render function gave a bitmap of an unknown
 * format, KEL_ERR_OUT_OF_MEMORY if the ink can't be stored.  After a
 * failure the least recently used entry has been given up. */
uint32_t zuv_glyph_cache_get_bitmap(zuv_glyph_cache_t* cache, uint32_t face, uint32_t size,
                                    unsigned short glyph, zuv_glyph_bitmap_t** result);

/* Draws one glyph of face (see zuv_font_emulation.h) through the platform,
 * with its origin at x and its baseline at y, in the canvas's colour, clip
 * and text mode: the face's device font at size twips, in the character
 * set that the font manager gives the glyph.  Stores the glyph's advance in
 * pixels in *advance first.  Returns the first failure of the platform. */
uint32_t zuv_glyph_render(ICanvas* canvas, IZuvFontManager* fonts, int32_t x, int32_t y,
                          unsigned short glyph, uint32_t face, int32_t size,
                          int32_t* advance);

#endif /* ZUV_GLYPH_CACHE_H */
