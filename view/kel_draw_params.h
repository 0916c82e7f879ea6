/*
 * kel_draw_params.h -- the drawing target of a paint: the view, the
 * platform's canvas and its pixels, and the resolution.  A session keeps one
 * of these and hands its address to the view.
 */
#ifndef KEL_DRAW_PARAMS_H
#define KEL_DRAW_PARAMS_H

#include <stdint.h>

#include "view/zuv_bitmap_helper.h"

class KELTable;
class ICanvas;
class IZuvFontManager;
struct zuv_glyph_cache_t;

struct kel_draw_table_params_t {
  KELTable* table;
  ICanvas* canvas;
  zuvbit_t bitmap;                 /* the canvas's own pixels */
  zuv_glyph_cache_t* glyph_cache;  /* may be null */
  int32_t horizontal_dpi;
  int32_t vertical_dpi;
  int32_t text_dpi;                /* overrides vertical dpi for glyphs if not 0 */
  uint32_t zoom;                   /* percent */
  IZuvFontManager* font_manager;
};

#endif /* KEL_DRAW_PARAMS_H */
