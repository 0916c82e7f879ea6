/*
 * canvas_font.h -- a canvas's current font: the request, the face it
 * resolved to, and cairo's scaled fonts for it.
 *
 * The sheet painter sets the font by name before every glyph it draws or
 * measures, so a request equal to the last one must cost no more than a
 * comparison, and a change between a few fonts (cells of several styles)
 * must find its scaled font in the small cache below instead of asking cairo
 * to make one.  Glyphs and advances come from the glyph cache of the scaled
 * font.
 */
#ifndef CANVAS_FONT_H
#define CANVAS_FONT_H

#include <stdint.h>

#include <cairo.h>

#include "font_registry.h"
#include "glyph_cache.h"
#include "zuv_platform.h"

struct font_request {
  char name[64];  /* UTF-8 family or device face name, "" for none */
  int family;     /* DFontFamily */
  double pixels;  /* em size */
  double scale;   /* horizontal stretch */
  bool bold, italic;
};

/* Fills the request's name from the string (cut at 63 bytes). */
void font_request_set_name(font_request* request, const VString* name);

class CanvasFont {
 public:
  CanvasFont();
  ~CanvasFont();
  CanvasFont(const CanvasFont&) = delete;
  CanvasFont& operator=(const CanvasFont&) = delete;

  /* False if memory fails. */
  bool Init();
  /* Makes the request current.  KEL_ERR_NOT_FOUND if no face is loaded (the
   * request stays, and applies once faces come). */
  uint32_t Select(const font_request& request);
  uint32_t Metrics(int32_t* ascent, int32_t* descent);
  /* The image of the character: from the current face, or from any loaded
   * face that has it, or the current face's missing-glyph box.  Valid until
   * the next call. */
  uint32_t Glyph(uint16_t unit, const glyph_image** image);
  /* The advance in whole pixels. */
  uint32_t Advance(uint16_t unit, int32_t* advance);

 private:
  struct slot {
    font_entry* entry;
    int synthesize;
    double pixels, scale;
    cairo_scaled_font_t* font;
  };
  static const int kSlots = 8;

  uint32_t Resolve();
  uint32_t Scaled(const font_choice& choice, cairo_scaled_font_t** font);
  void Forget();

  font_request request_;
  bool resolved_;
  uint32_t generation_;
  font_entry* entry_;
  cairo_scaled_font_t* font_;  /* the current one; always held by a slot */
  slot slots_[kSlots];
  int next_slot_;
  cairo_font_options_t* options_;
};

#endif /* CANVAS_FONT_H */
