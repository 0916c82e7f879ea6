/*
 * canvas_font.cpp -- resolving a canvas's font request and caching its
 * scaled fonts.
 */
#include "canvas_font.h"

#include <math.h>
#include <string.h>

#include "vstring_chars.h"

namespace {

/* Lets go of a scaled font, and of its glyph images if no one else holds
 * it. */
void release(cairo_scaled_font_t* font) {
  if (font && cairo_scaled_font_get_reference_count(font) == 1) glyph_cache_drop(font);
  cairo_scaled_font_destroy(font);
}

bool same_request(const font_request& a, const font_request& b) {
  return a.family == b.family && a.pixels == b.pixels && a.scale == b.scale &&
         a.bold == b.bold && a.italic == b.italic && strcmp(a.name, b.name) == 0;
}

}  // namespace

void font_request_set_name(font_request* request, const VString* name) {
  size_t n = 0;
  if (name) {
    vstring_chars reader;
    vstring_chars_begin(&reader, *name);
    uint16_t c;
    while (vstring_chars_next(&reader, &c)) {
      if (c >= 0xD800 && c <= 0xDFFF) continue;  /* no family name needs them */
      unsigned char seq[4];
      size_t len = (size_t)utf8_encode(c, seq);
      if (n + len >= sizeof request->name) break;
      memcpy(request->name + n, seq, len);
      n += len;
    }
  }
  request->name[n] = '\0';
}

CanvasFont::CanvasFont()
    : request_(), resolved_(false), generation_(0), entry_(nullptr), font_(nullptr),
      slots_(), next_slot_(0), options_(nullptr) {
  request_.family = kFamilySans;
  request_.pixels = 10;
  request_.scale = 1;
}

CanvasFont::~CanvasFont() {
  Forget();
  cairo_font_options_destroy(options_);
}

bool CanvasFont::Init() {
  options_ = cairo_font_options_create();
  if (cairo_font_options_status(options_) != CAIRO_STATUS_SUCCESS) return false;
  cairo_font_options_set_antialias(options_, CAIRO_ANTIALIAS_GRAY);
  /* Whole-pixel advances, as MeasureChar gives them. */
  cairo_font_options_set_hint_metrics(options_, CAIRO_HINT_METRICS_ON);
  return true;
}

uint32_t CanvasFont::Select(const font_request& request) {
  if (resolved_ && generation_ == font_registry_generation() && same_request(request, request_))
    return 0;
  request_ = request;
  resolved_ = false;
  return Resolve();
}

uint32_t CanvasFont::Metrics(int32_t* ascent, int32_t* descent) {
  uint32_t status = Resolve();
  if (status) return status;
  cairo_font_extents_t extents;
  cairo_scaled_font_extents(font_, &extents);
  *ascent = (int32_t)lround(extents.ascent);
  *descent = (int32_t)lround(extents.descent);
  return 0;
}

uint32_t CanvasFont::Glyph(uint16_t unit, const glyph_image** image) {
  uint32_t status = Resolve();
  if (status) return status;
  cairo_scaled_font_t* font = font_;
  unsigned long index = font_entry_glyph_index(entry_, unit);
  font_choice choice;
  if (index == 0 && font_registry_find_glyph(unit, request_.bold, request_.italic, &choice)) {
    status = Scaled(choice, &font);
    if (status) return status;
    index = font_entry_glyph_index(choice.entry, unit);
  }
  *image = glyph_cache_get(font, index);
  return *image ? 0 : KEL_ERR_OUT_OF_MEMORY;
}

uint32_t CanvasFont::Advance(uint16_t unit, int32_t* advance) {
  const glyph_image* image;
  uint32_t status = Glyph(unit, &image);
  if (status) return status;
  *advance = image->advance;
  return 0;
}

uint32_t CanvasFont::Resolve() {
  uint32_t generation = font_registry_generation();
  if (generation != generation_) {
    /* Faces came or went: remembered entries may be gone. */
    Forget();
    generation_ = generation;
  }
  if (resolved_) return 0;
  font_choice choice;
  if (!font_registry_match(request_.name, request_.family, request_.bold, request_.italic,
                           &choice))
    return KEL_ERR_NOT_FOUND;
  uint32_t status = Scaled(choice, &font_);
  if (status) return status;
  entry_ = choice.entry;
  resolved_ = true;
  return 0;
}

uint32_t CanvasFont::Scaled(const font_choice& choice, cairo_scaled_font_t** font) {
  for (slot& s : slots_) {
    if (s.font && s.entry == choice.entry && s.synthesize == choice.synthesize &&
        s.pixels == request_.pixels && s.scale == request_.scale) {
      *font = s.font;
      return 0;
    }
  }
  cairo_font_face_t* face = font_entry_cairo_face(choice.entry, choice.synthesize);
  if (!face) return KEL_ERR_OUT_OF_MEMORY;
  cairo_matrix_t size, device;
  cairo_matrix_init(&size, request_.pixels * request_.scale, 0, 0, request_.pixels, 0, 0);
  cairo_matrix_init_identity(&device);
  cairo_scaled_font_t* made = cairo_scaled_font_create(face, &size, &device, options_);
  if (cairo_scaled_font_status(made) != CAIRO_STATUS_SUCCESS) {
    cairo_scaled_font_destroy(made);
    return KEL_ERR_OUT_OF_MEMORY;
  }
  /* Round robin, passing over the current font, which must stay. */
  int i = next_slot_;
  if (font_ && slots_[i].font == font_) i = (i + 1) % kSlots;
  next_slot_ = (i + 1) % kSlots;
  release(slots_[i].font);
  slots_[i] = slot{choice.entry, choice.synthesize, request_.pixels, request_.scale, made};
  *font = made;
  return 0;
}

void CanvasFont::Forget() {
  for (slot& s : slots_) {
    release(s.font);
    s = slot();
  }
  font_ = nullptr;
  entry_ = nullptr;
  resolved_ = false;
}
