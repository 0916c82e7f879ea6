/*
 * kel_table_draw.cpp -- the drawing layer of the sheet view: rectangles,
 * lines and glyphs into the target of the draw parameters, and the placing
 * of text against the built-in metrics.
 *
 * The target's pixels are written directly where the parameters carry them,
 * since a rectangle or a cached glyph is cheaper there than through the
 * canvas; text that isn't in a glyph cache, and lines, go to the canvas.
 */
#include <stdint.h>

#include "view/kel_table.h"
#include "view/zuv_bitmap_helper.h"
#include "view/zuv_font_emulation.h"
#include "view/zuv_glyph_cache.h"

namespace {

int32_t max32(int32_t a, int32_t b) { return a > b ? a : b; }
int32_t min32(int32_t a, int32_t b) { return a < b ? a : b; }

/* A rectangle that starts left of or above the target keeps only its part
 * inside. */
void clamp_to_target(int32_t* x, int32_t* y, int32_t* width, int32_t* height) {
  if (*x < 0) {
    *width += *x;
    *x = 0;
  }
  if (*y < 0) {
    *height += *y;
    *y = 0;
  }
}

/* The resolution that glyph sizes are reckoned at: an embedder may render
 * text at another one than the view's.  0 if neither is known. */
int32_t glyph_dpi(const kel_draw_table_params_t* params) {
  return params->text_dpi ? params->text_dpi : params->vertical_dpi;
}

/* A glyph through the canvas in the face's device font.  The canvas is
 * left black and with its own clip, as the rest of the view expects; a
 * black glyph relies on the canvas being black already. */
uint32_t draw_glyph_by_name(kel_draw_table_params_t* params, unsigned face, int32_t size,
                            unsigned short glyph, const DRGBValue& colour, int32_t x,
                            int32_t y, const DRect* clip, int32_t* advance) {
  ICanvas* canvas = params->canvas;
  int32_t dpi = glyph_dpi(params);
  if (!canvas || dpi <= 0) return KEL_ERR_INVALID_ARGUMENT;
  bool coloured = colour.red || colour.green || colour.blue;
  uint32_t status = coloured ? canvas->SetColor(colour) : 0;
  DRect saved = {0, 0, 0, 0};
  bool clipped = false;
  if (!status && clip) {
    status = canvas->GetClip(&saved);
    if (!status) {
      clipped = true;
      status = canvas->SetClip(*clip);
    }
  }
  if (!status)
    status = zuv_glyph_render(canvas, params->font_manager, x, y, glyph, face,
                              size * 1440 / dpi, advance);
  uint32_t restored = clipped ? canvas->SetClip(saved) : 0;
  if (coloured) {
    uint32_t black = canvas->SetColor(kel_black);
    if (!restored) restored = black;
  }
  return status ? status : restored;
}

/* A glyph through the canvas by font family alone, for a target without
 * pixels.  A failure leaves the canvas's colour and clip as they are. */
uint32_t draw_glyph_by_family(kel_draw_table_params_t* params, unsigned face, int32_t size,
                              unsigned short glyph, const DRGBValue& colour, int32_t x,
                              int32_t y, const DRect* clip, int32_t* advance) {
  ICanvas* canvas = params->canvas;
  int32_t dpi = glyph_dpi(params);
  if (!canvas || dpi <= 0) return KEL_ERR_INVALID_ARGUMENT;
  const fe_platform_font_t* font = fe_platform_font(face);
  uint32_t status =
      canvas->SetFontByFamily(font->family, size * 72 / dpi, font->bold, font->italic, 1.0);
  if (status) return status;
  status = canvas->SetColor(colour);
  DRect saved = {0, 0, 0, 0};
  if (!status && clip) {
    status = canvas->GetClip(&saved);
    if (!status) status = canvas->SetClip(*clip);
  }
  if (!status) status = canvas->SetTextMode(kTextTransparent);
  if (!status) status = canvas->DrawChar(x, y, glyph);
  if (!status) status = canvas->MeasureChar(glyph, advance);
  if (status) return status;
  if (clip) status = canvas->SetClip(saved);
  uint32_t black = canvas->SetColor(kel_black);
  return status ? status : black;
}

int32_t char_units(unsigned face, unsigned short c) { return fe_string_width(face, &c, 1); }

/* Characters whose neighbours must line up in columns of numbers. */
bool is_number_mark(unsigned short c) {
  return c == ',' || c == '.' || c == '(' || c == ')' || (c >= '0' && c <= '9');
}

/* Text is laid out with the built-in metrics but each glyph advances by the
 * device font's own width, so the pen drifts.  Before each character it is
 * pulled back to where the metrics put it: after or at a blank by at least
 * 1 pixel forward, elsewhere by at most 1 pixel back.  Thin letters that
 * aren't next to number marks are left where the font put them. */
struct pen_walk_t {
  const KELState* state;
  unsigned face;
  int32_t font_height;  /* twips */
  int32_t em;
  int32_t start;        /* the pen at the first character */
  int32_t units;        /* of the characters placed so far */
  unsigned short prev;
};

int32_t place_pen(const pen_walk_t* walk, unsigned short c, int32_t pen) {
  const KELState* state = walk->state;
  int32_t ideal = walk->start + state->text_pixels(walk->units, walk->font_height, walk->em);
  if (c == ' ' || walk->prev == ' ') return ideal < pen + 1 ? pen + 1 : ideal;
  bool qualifies =
      is_number_mark(c) || is_number_mark(walk->prev) ||
      state->text_pixels(char_units(walk->face, c), walk->font_height, walk->em) >= 3;
  if (!qualifies) return pen;
  return ideal < pen - 1 ? pen - 1 : ideal;
}

void pen_passed(pen_walk_t* walk, unsigned short c) {
  walk->units += char_units(walk->face, c);
  walk->prev = c;
}

}  // namespace

void CPortableTableDraw::set_origin(int32_t x, int32_t y) {
  origin_x = x;
  origin_y = y;
}

uint32_t CPortableTableDraw::draw_rect(int32_t x, int32_t y, int32_t width, int32_t height,
                                       const DRGBValue* colour, const DRect* clip) {
  x += origin_x;
  y += origin_y;
  clamp_to_target(&x, &y, &width, &height);
  if (clip) {
    int32_t right = min32(x + width, clip->x + clip->width);
    int32_t bottom = min32(y + height, clip->y + clip->height);
    x = max32(x, clip->x);
    y = max32(y, clip->y);
    width = right - x;
    height = bottom - y;
  }
  if (width <= 0 || height <= 0) return 0;
  if (params->bitmap.pixels) {
    zuvbit_fill_solid(&params->bitmap, x, y, width, height, *colour);
    return 0;
  }
  ICanvas* canvas = params->canvas;
  if (!canvas) return KEL_ERR_INVALID_ARGUMENT;
  uint32_t status = canvas->SetColor(*colour);
  if (!status) status = canvas->SetBrush(kBrushSolid);
  if (!status) status = canvas->FillRectangle(DRect{x, y, width, height});
  return status;
}

uint32_t CPortableTableDraw::draw_rect_xor(int32_t x, int32_t y, int32_t width,
                                           int32_t height) {
  x += origin_x;
  y += origin_y;
  clamp_to_target(&x, &y, &width, &height);
  if (width <= 0 || height <= 0) return 0;
  zuvbit_fill_xor(&params->bitmap, x, y, width, height);
  return 0;
}

uint32_t CPortableTableDraw::draw_line(int32_t x1, int32_t y1, int32_t x2, int32_t y2,
                                       int32_t width, const DRGBValue* colour,
                                       const DRect* clip) {
  ICanvas* canvas = params->canvas;
  if (!canvas) return KEL_ERR_INVALID_ARGUMENT;
  x1 += origin_x;
  y1 += origin_y;
  x2 += origin_x;
  y2 += origin_y;
  if (clip) {
    /* A clip with no pixels has no place for either end. */
    if (clip->width <= 0 || clip->height <= 0) return 0;
    int32_t right = clip->x + clip->width - 1, bottom = clip->y + clip->height - 1;
    x1 = min32(max32(x1, clip->x), right);
    x2 = min32(max32(x2, clip->x), right);
    y1 = min32(max32(y1, clip->y), bottom);
    y2 = min32(max32(y2, clip->y), bottom);
  }
  uint32_t status = canvas->SetColor(*colour);
  if (!status) status = canvas->SetPen(kPenSolid, width, width);
  if (!status) status = canvas->DrawLine(x1, y1, x2, y2);
  return status;
}

uint32_t CPortableTableDraw::draw_empty_rect_with_shadow(int32_t x, int32_t y, int32_t width,
                                                         int32_t height,
                                                         const DRGBValue* colour,
                                                         const DRect* clip) {
  x += origin_x;
  y += origin_y;
  clamp_to_target(&x, &y, &width, &height);
  uint32_t status = draw_rect(x, y, width + 1, 1, colour, clip);
  if (!status) status = draw_rect(x, y, 1, height + 1, colour, clip);
  if (!status) status = draw_rect(x + width, y + 1, 2, height + 1, colour, clip);
  if (!status) status = draw_rect(x + 1, y + height, width, 2, colour, clip);
  return status;
}

uint32_t CPortableTableDraw::draw_glyph(unsigned face, int32_t size, unsigned short glyph,
                                        const DRGBValue* colour, int32_t* x, int32_t y,
                                        const DRect* clip) {
  DRect moved = {0, 0, 0, 0};
  const DRect* target_clip = nullptr;
  if (clip) {
    moved = DRect{clip->x + origin_x, clip->y + origin_y, clip->width, clip->height};
    target_clip = &moved;
  }
  int32_t at_x = *x + origin_x, at_y = y + origin_y;
  int32_t advance = 0;
  uint32_t status = 0;
  if (params->bitmap.pixels) {
    zuv_glyph_bitmap_t* cached = nullptr;
    if (params->glyph_cache &&
        !zuv_glyph_cache_get_bitmap(params->glyph_cache, face, (uint32_t)size, glyph, &cached))
      zuvbit_draw_glyph(&params->bitmap, at_x, at_y, target_clip, cached, *colour, &advance);
    else
      status = draw_glyph_by_name(params, face, size, glyph, *colour, at_x, at_y, target_clip,
                                  &advance);
  } else {
    status = draw_glyph_by_family(params, face, size, glyph, *colour, at_x, at_y, target_clip,
                                  &advance);
  }
  if (status) return status;
  *x += advance;
  return 0;
}

uint32_t CPortableTableDraw::draw_glyph_vertical(unsigned face, int32_t size,
                                                 unsigned short glyph, const DRGBValue* colour,
                                                 int32_t x, int32_t* y, const DRect* clip) {
  /* Upright text has no way through the platform: only a cache can turn it. */
  if (!params->glyph_cache) return 0;
  zuv_glyph_bitmap_t* cached = nullptr;
  uint32_t status =
      zuv_glyph_cache_get_bitmap(params->glyph_cache, face, (uint32_t)size, glyph, &cached);
  if (status) return status;
  DRect moved = {0, 0, 0, 0};
  if (clip) moved = DRect{clip->x + origin_x, clip->y + origin_y, clip->width, clip->height};
  int32_t advance = 0;
  zuvbit_draw_glyph_vertical_up(&params->bitmap, x + origin_x, *y + origin_y,
                                clip ? &moved : nullptr, cached, *colour, &advance);
  *y -= advance;
  return 0;
}

uint32_t CPortableTableDraw::draw_string(const unsigned short* text, unsigned face,
                                         int32_t size, const DRGBValue* colour,
                                         const DPoint* point, const DRect* clip,
                                         KELState* state, unsigned short font_height) {
  if (!text || !point || !state) return KEL_ERR_INVALID_ARGUMENT;
  fe_info info;
  fe_font_info(face, &info);
  pen_walk_t walk = {state, face, font_height, info.em, point->x, 0, 0};
  int32_t pen = point->x;
  for (const unsigned short* p = text; *p; ++p) {
    unsigned short c = *p == '\n' ? ' ' : *p;
    pen = place_pen(&walk, c, pen);
    if (clip && pen >= clip->x + clip->width) return 0;
    uint32_t status = draw_glyph(face, size, c, colour, &pen, point->y, clip);
    if (status) return status;
    pen_passed(&walk, c);
  }
  return 0;
}

uint32_t CPortableTableDraw::draw_string_vertical(const unsigned short* text, unsigned face,
                                                  int32_t size, const DRGBValue* colour,
                                                  const DPoint* point, const DRect* clip,
                                                  KELState* /*state*/,
                                                  unsigned short /*font_height*/) {
  /* Turned text is drawn with the cache's advances alone: it has no pen
   * rule, so it needs no metrics. */
  if (!text || !point) return KEL_ERR_INVALID_ARGUMENT;
  int32_t y = point->y;
  for (const unsigned short* p = text; *p; ++p) {
    if (clip && y < clip->y) return 0;
    uint32_t status = draw_glyph_vertical(face, size, *p, colour, point->x, &y, clip);
    if (status) return status;
  }
  return 0;
}

uint32_t CPortableTableDraw::draw_word_wrapped_text_line(const unsigned short* text,
                                                         unsigned* position, int32_t x,
                                                         int32_t y, unsigned width,
                                                         const fe_info* info,
                                                         unsigned font_height,
                                                         const DRect* clip,
                                                         const DRGBValue* colour,
                                                         KELState* state) {
  const unsigned face = FE_DEFAULT_FACE;
  if (!text || !position || !info || !state) return KEL_ERR_INVALID_ARGUMENT;
  unsigned length = 0;
  while (text[length]) ++length;
  unsigned start = *position;
  if (start >= length) return 0;
  if (!font_height || !state->horizontal_dpi) return KEL_ERR_INVALID_ARGUMENT;

  /* The width in units of the face; the scan counts a character in when
   * the text before it is still short of that. */
  uint32_t limit = state->reverse_zoom((uint32_t)info->em * (width * 1440 / font_height) /
                                       state->horizontal_dpi);
  unsigned end = length;
  uint32_t sum = 0;
  for (unsigned i = start; i < length; ++i) {
    unsigned short c = text[i];
    if (sum < limit) {
      if (c == '\n') {
        end = i + 1;
        break;
      }
    } else if (c != ' ') {
      /* Blanks past the width hang over; the first thing else breaks the
       * line after the last blank or line feed, or splits a word too long
       * for a line of its own. */
      if (c == '\n' && i + 1 == length) break;
      end = i;
      for (unsigned j = i; j > start + 1; --j)
        if (text[j - 1] == ' ' || text[j - 1] == '\n') {
          end = j;
          break;
        }
      break;
    }
    sum += (uint32_t)char_units(face, c);
  }
  if (end == start) return 0;

  pen_walk_t walk = {state, face, (int32_t)font_height, info->em, x, 0, 0};
  int32_t size = state->font_pixels((int32_t)font_height);
  int32_t pen = x;
  uint32_t status = 0;
  for (unsigned i = start; i < end && !status; ++i) {
    unsigned short c = text[i] == '\n' ? ' ' : text[i];
    pen = place_pen(&walk, c, pen);
    status = draw_glyph(face, size, c, colour, &pen, y, clip);
    pen_passed(&walk, c);
  }
  /* Moved on even after a failure, so that a caller walking the lines
   * can't go round the same one for ever. */
  *position = end;
  return status;
}
