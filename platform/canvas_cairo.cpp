/*
 * canvas_cairo.cpp -- ICanvas over a cairo image surface.
 *
 * Rectangles, lines, outlines of rectangles and polygons, and copies go
 * straight into the pixels (pixel_ops), where they land exactly; so do
 * glyphs, which cairo renders once, grey-scale anti-aliased, into the glyph
 * cache.  Curves, filled polygons and pictures go through cairo, with
 * anti-aliasing off.
 *
 * The 32-bit surface is ARGB32 and not RGB24: the engine reads alpha 0xFF
 * from every pixel, and RGB24 leaves the top byte undefined.  Everything
 * drawn is opaque, so the white start keeps alpha at 0xFF.
 */
#include "canvas_cairo.h"

#include <string.h>

#include <new>

#include "canvas_font.h"
#include "pixel_ops.h"
#include "vstring_chars.h"

namespace {

/* Radii of a degenerate ellipse (a rectangle one pixel wide): small but not
 * 0, since cairo can't draw through a singular scale. */
const double kThinRadius = 0.01;

const DRGBValue kWhite = {0, 0xFF, 0xFF, 0xFF};

const double kFullTurn = 6.283185307179586;

uint32_t status_of(cairo_status_t status) {
  if (status == CAIRO_STATUS_SUCCESS) return 0;
  return status == CAIRO_STATUS_NO_MEMORY ? KEL_ERR_OUT_OF_MEMORY : KEL_ERR_GENERAL;
}

cairo_status_t read_stream(void* closure, unsigned char* data, unsigned int length) {
  VFileStream* stream = static_cast<VFileStream*>(closure);
  while (length) {
    uint32_t got;
    if (stream->Read(data, length, &got) != 0 || got == 0) return CAIRO_STATUS_READ_ERROR;
    data += got;
    length -= got;
  }
  return CAIRO_STATUS_SUCCESS;
}

class CairoCanvas final : public DCanvasMVCairo {
 public:
  CairoCanvas(cairo_surface_t* surface, cairo_t* cr, int bits_per_pixel);
  ~CairoCanvas();
  bool Init() { return font_.Init(); }

  uint32_t Release() override;
  uint32_t SetClip(const DRect& clip) override;
  uint32_t GetClip(DRect* clip) override;
  uint32_t SetColor(const DRGBValue& color) override;
  uint32_t GetColor(DRGBValue* color) override;
  uint32_t DrawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2) override;
  uint32_t DrawRectangle(const DRect& rect) override;
  uint32_t FillRectangle(const DRect& rect) override;
  uint32_t FillPolygon(int count, const DPoint* points) override;
  uint32_t DrawPolygon(int count, const DPoint* points, bool closed) override;
  uint32_t SetBrush(int style) override;
  uint32_t SetPen(int style, int width, int height) override;
  uint32_t DrawArc(const DRect& rect, double start, double end) override;
  uint32_t DrawEllipse(const DRect& rect) override;
  uint32_t DrawPie(const DRect& rect, double start, double end) override;
  uint32_t FillPie(const DRect& rect, double start, double end) override;
  uint32_t CopyRect(ICanvas* target, const DRect& source, int32_t x, int32_t y) override;
  uint32_t DrawImage(VFileStream* stream, int image_type, const DRect& rect) override;
  uint32_t SetTextMode(int mode) override;
  uint32_t SetFontByFamily(int family, int32_t points, bool bold, bool italic,
                           double scale) override;
  uint32_t SetFontByName(const DFontSpec& font) override;
  uint32_t GetFontMetrics(int32_t* ascent, int32_t* descent) override;
  uint32_t DrawChar(int32_t x, int32_t y, uint16_t glyph) override;
  uint32_t MeasureChar(uint16_t glyph, int32_t* advance) override;
  uint32_t MeasureString(const VString& text, int32_t* width) override;
  uint32_t GetImageData(unsigned char** pixels, uint32_t* bytes_per_row) override;

 private:
  /* Direct writes into the pixels are bracketed so that cairo neither holds
   * pending drawing over them nor keeps stale copies of them. */
  void BeginPixels() { cairo_surface_flush(surface_); }
  void EndPixels() { cairo_surface_mark_dirty(surface_); }
  /* The path of an arc of the ellipse in rect.  An outline runs through the
   * centres of the rectangle's outermost pixels, a filled shape along its
   * edges; a pie adds the radii. */
  void ArcPath(const DRect& rect, double start, double end, bool outline, bool pie);
  uint32_t Stroke();
  uint32_t Fill();
  uint32_t Select(font_request* request, int family, double pixels, bool bold, bool italic,
                  double scale);

  cairo_surface_t* surface_;
  cairo_t* cr_;
  pixel_surface pixels_;
  DRGBValue color_;
  uint32_t packed_;  /* color_ as a pixel */
  int pen_style_, pen_width_, brush_, text_mode_;
  CanvasFont font_;
};

CairoCanvas::CairoCanvas(cairo_surface_t* surface, cairo_t* cr, int bits_per_pixel)
    : surface_(surface),
      cr_(cr),
      pixels_(),
      color_(),
      packed_(pixel_pack(bits_per_pixel, DRGBValue())),
      pen_style_(kPenSolid),
      pen_width_(1),
      brush_(kBrushSolid),
      text_mode_(kTextTransparent) {
  pixels_.pixels = cairo_image_surface_get_data(surface);
  pixels_.bytes_per_row = (uint32_t)cairo_image_surface_get_stride(surface);
  pixels_.width = cairo_image_surface_get_width(surface);
  pixels_.height = cairo_image_surface_get_height(surface);
  pixels_.bits_per_pixel = bits_per_pixel;
  pixels_.clip = DRect{0, 0, pixels_.width, pixels_.height};
  cairo_set_antialias(cr, CAIRO_ANTIALIAS_NONE);
  cairo_set_source_rgb(cr, 0, 0, 0);
}

CairoCanvas::~CairoCanvas() {
  cairo_destroy(cr_);
  cairo_surface_destroy(surface_);
}

uint32_t CairoCanvas::Release() {
  delete this;
  return 0;
}

uint32_t CairoCanvas::SetClip(const DRect& clip) {
  DRect bounds = {0, 0, pixels_.width, pixels_.height};
  pixels_.clip = clip;
  pixel_intersect(&pixels_.clip, bounds);
  cairo_reset_clip(cr_);
  cairo_rectangle(cr_, pixels_.clip.x, pixels_.clip.y, pixels_.clip.width, pixels_.clip.height);
  cairo_clip(cr_);
  return status_of(cairo_status(cr_));
}

uint32_t CairoCanvas::GetClip(DRect* clip) {
  if (!clip) return KEL_ERR_INVALID_ARGUMENT;
  *clip = pixels_.clip;
  return 0;
}

uint32_t CairoCanvas::SetColor(const DRGBValue& color) {
  color_ = color;
  packed_ = pixel_pack(pixels_.bits_per_pixel, color);
  cairo_set_source_rgb(cr_, color.red / 255.0, color.green / 255.0, color.blue / 255.0);
  return 0;
}

uint32_t CairoCanvas::GetColor(DRGBValue* color) {
  if (!color) return KEL_ERR_INVALID_ARGUMENT;
  *color = color_;
  return 0;
}

uint32_t CairoCanvas::DrawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2) {
  BeginPixels();
  pixel_line(&pixels_, x1, y1, x2, y2, pen_width_, pen_style_, packed_);
  EndPixels();
  return 0;
}

uint32_t CairoCanvas::DrawRectangle(const DRect& rect) {
  if (rect.width <= 0 || rect.height <= 0) return 0;
  /* In 64 bits: the far edge of a huge rectangle may lie past INT32_MAX. */
  int64_t far_x = (int64_t)rect.x + rect.width - 1, far_y = (int64_t)rect.y + rect.height - 1;
  int32_t right = (int32_t)(far_x < INT32_MAX ? far_x : INT32_MAX);
  int32_t bottom = (int32_t)(far_y < INT32_MAX ? far_y : INT32_MAX);
  DPoint corners[4] = {{rect.x, rect.y}, {right, rect.y}, {right, bottom}, {rect.x, bottom}};
  return DrawPolygon(4, corners, true);
}

uint32_t CairoCanvas::FillRectangle(const DRect& rect) {
  BeginPixels();
  pixel_fill(&pixels_, rect.x, rect.y, rect.width, rect.height, packed_);
  EndPixels();
  return 0;
}

uint32_t CairoCanvas::FillPolygon(int count, const DPoint* points) {
  if (count > 0 && !points) return KEL_ERR_INVALID_ARGUMENT;
  if (count < 3) return 0;
  /* Points are pixel corners here: the polygon of a rectangle's corners
   * fills the same pixels as FillRectangle. */
  cairo_new_path(cr_);
  for (int i = 0; i < count; ++i) cairo_line_to(cr_, points[i].x, points[i].y);
  cairo_close_path(cr_);
  return Fill();
}

uint32_t CairoCanvas::DrawPolygon(int count, const DPoint* points, bool closed) {
  if (count > 0 && !points) return KEL_ERR_INVALID_ARGUMENT;
  if (count <= 0) return 0;
  BeginPixels();
  for (int i = 0; i + 1 < count; ++i)
    pixel_line(&pixels_, points[i].x, points[i].y, points[i + 1].x, points[i + 1].y,
               pen_width_, pen_style_, packed_);
  if (closed || count == 1)
    pixel_line(&pixels_, points[count - 1].x, points[count - 1].y, points[0].x, points[0].y,
               pen_width_, pen_style_, packed_);
  EndPixels();
  return 0;
}

uint32_t CairoCanvas::SetBrush(int style) {
  if (style != kBrushNone && style != kBrushSolid) return KEL_ERR_INVALID_ARGUMENT;
  brush_ = style;
  return 0;
}

/* Pens are square: height is taken to equal width.  A width below 1 draws
 * one pixel wide, as the thinnest pen does. */
uint32_t CairoCanvas::SetPen(int style, int width, int /*height*/) {
  if (style < kPenNone || style > kPenDashDot) return KEL_ERR_INVALID_ARGUMENT;
  pen_style_ = style;
  pen_width_ = width < 1 ? 1 : width;
  return 0;
}

uint32_t CairoCanvas::DrawArc(const DRect& rect, double start, double end) {
  if (rect.width <= 0 || rect.height <= 0) return 0;
  ArcPath(rect, start, end, true, false);
  return Stroke();
}

uint32_t CairoCanvas::DrawEllipse(const DRect& rect) {
  if (rect.width <= 0 || rect.height <= 0) return 0;
  uint32_t status = 0;
  if (brush_ == kBrushSolid) {
    ArcPath(rect, 0, kFullTurn, false, false);
    status = Fill();
  }
  if (status == 0) {
    ArcPath(rect, 0, kFullTurn, true, false);
    cairo_close_path(cr_);
    status = Stroke();
  }
  return status;
}

uint32_t CairoCanvas::DrawPie(const DRect& rect, double start, double end) {
  if (rect.width <= 0 || rect.height <= 0) return 0;
  ArcPath(rect, start, end, true, true);
  return Stroke();
}

uint32_t CairoCanvas::FillPie(const DRect& rect, double start, double end) {
  if (rect.width <= 0 || rect.height <= 0) return 0;
  ArcPath(rect, start, end, false, true);
  return Fill();
}

/* The target must be a canvas of this library (the class factory makes no
 * other).  It is drawn on, so its clip applies. */
uint32_t CairoCanvas::CopyRect(ICanvas* target, const DRect& source, int32_t x, int32_t y) {
  if (!target) return KEL_ERR_INVALID_ARGUMENT;
  CairoCanvas* to = static_cast<CairoCanvas*>(target);
  BeginPixels();
  to->BeginPixels();
  pixel_copy(&pixels_, source, &to->pixels_, x, y);
  to->EndPixels();
  return 0;
}

uint32_t CairoCanvas::DrawImage(VFileStream* stream, int image_type, const DRect& rect) {
  if (!stream) return KEL_ERR_INVALID_ARGUMENT;
  if (image_type != kImagePng) return KEL_ERR_UNSUPPORTED;
  uint32_t status = stream->Seek(0);
  if (status) return status;
  cairo_surface_t* image = cairo_image_surface_create_from_png_stream(read_stream, stream);
  cairo_status_t decoded = cairo_surface_status(image);
  if (decoded != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(image);
    return decoded == CAIRO_STATUS_NO_MEMORY ? KEL_ERR_OUT_OF_MEMORY : KEL_ERR_GENERAL;
  }
  int width = cairo_image_surface_get_width(image);
  int height = cairo_image_surface_get_height(image);
  if (rect.width > 0 && rect.height > 0 && width > 0 && height > 0) {
    cairo_save(cr_);
    cairo_rectangle(cr_, rect.x, rect.y, rect.width, rect.height);
    cairo_clip(cr_);
    cairo_translate(cr_, rect.x, rect.y);
    cairo_scale(cr_, (double)rect.width / width, (double)rect.height / height);
    cairo_set_source_surface(cr_, image, 0, 0);
    /* Padding keeps the edges of a picture scaled up from fading out. */
    cairo_pattern_set_extend(cairo_get_source(cr_), CAIRO_EXTEND_PAD);
    cairo_pattern_set_filter(cairo_get_source(cr_), CAIRO_FILTER_GOOD);
    cairo_paint(cr_);
    cairo_restore(cr_);
  }
  cairo_surface_destroy(image);
  return status_of(cairo_status(cr_));
}

uint32_t CairoCanvas::SetTextMode(int mode) {
  if (mode != kTextOpaque && mode != kTextTransparent) return KEL_ERR_INVALID_ARGUMENT;
  text_mode_ = mode;
  return 0;
}

uint32_t CairoCanvas::Select(font_request* request, int family, double pixels, bool bold,
                             bool italic, double scale) {
  /* !(x > 0) also refuses NaN. */
  if (!(pixels > 0) || !(scale > 0)) return KEL_ERR_INVALID_ARGUMENT;
  request->family = family;
  request->pixels = pixels;
  request->scale = scale;
  request->bold = bold;
  request->italic = italic;
  return font_.Select(*request);
}

uint32_t CairoCanvas::SetFontByFamily(int family, int32_t points, bool bold, bool italic,
                                      double scale) {
  font_request request;
  request.name[0] = '\0';
  return Select(&request, family, points, bold, italic, scale);
}

/* The request's character set picks no face of its own: a glyph that the
 * face lacks comes from a loaded face that has it. */
uint32_t CairoCanvas::SetFontByName(const DFontSpec& font) {
  font_request request;
  font_request_set_name(&request, font.name);
  return Select(&request, font.family, font.size / 20.0, font.bold, font.italic, font.scale);
}

uint32_t CairoCanvas::GetFontMetrics(int32_t* ascent, int32_t* descent) {
  if (!ascent || !descent) return KEL_ERR_INVALID_ARGUMENT;
  return font_.Metrics(ascent, descent);
}

uint32_t CairoCanvas::DrawChar(int32_t x, int32_t y, uint16_t glyph) {
  const glyph_image* image;
  int32_t ascent, descent;
  uint32_t status = font_.Glyph(glyph, &image);
  if (status == 0 && text_mode_ == kTextOpaque) status = font_.Metrics(&ascent, &descent);
  if (status) return status;
  BeginPixels();
  /* Opaque text: the glyph's cell, its advance wide and from ascent to
   * descent, on white. */
  if (text_mode_ == kTextOpaque)
    pixel_fill(&pixels_, x, y - ascent, image->advance, ascent + descent,
               pixel_pack(pixels_.bits_per_pixel, kWhite));
  pixel_blend(&pixels_, x + image->left, y + image->top, image->width, image->height,
              image->coverage, color_);
  EndPixels();
  return 0;
}

uint32_t CairoCanvas::MeasureChar(uint16_t glyph, int32_t* advance) {
  if (!advance) return KEL_ERR_INVALID_ARGUMENT;
  return font_.Advance(glyph, advance);
}

uint32_t CairoCanvas::MeasureString(const VString& text, int32_t* width) {
  if (!width) return KEL_ERR_INVALID_ARGUMENT;
  *width = 0;
  vstring_chars reader;
  vstring_chars_begin(&reader, text);
  uint16_t unit;
  while (vstring_chars_next(&reader, &unit)) {
    int32_t advance;
    uint32_t status = font_.Advance(unit, &advance);
    if (status) return status;
    *width += advance;
  }
  return 0;
}

uint32_t CairoCanvas::GetImageData(unsigned char** pixels, uint32_t* bytes_per_row) {
  if (!pixels || !bytes_per_row) return KEL_ERR_INVALID_ARGUMENT;
  cairo_surface_flush(surface_);
  *pixels = pixels_.pixels;
  *bytes_per_row = pixels_.bytes_per_row;
  return 0;
}

void CairoCanvas::ArcPath(const DRect& rect, double start, double end, bool outline, bool pie) {
  double cx = rect.x + rect.width / 2.0, cy = rect.y + rect.height / 2.0;
  double rx = outline ? (rect.width - 1) / 2.0 : rect.width / 2.0;
  double ry = outline ? (rect.height - 1) / 2.0 : rect.height / 2.0;
  cairo_new_path(cr_);
  if (pie) cairo_move_to(cr_, cx, cy);
  cairo_save(cr_);
  cairo_translate(cr_, cx, cy);
  cairo_scale(cr_, rx > kThinRadius ? rx : kThinRadius, ry > kThinRadius ? ry : kThinRadius);
  cairo_arc(cr_, 0, 0, 1, start, end);
  cairo_restore(cr_);
  if (pie) cairo_close_path(cr_);
}

uint32_t CairoCanvas::Stroke() {
  if (pen_style_ == kPenNone) {
    cairo_new_path(cr_);
    return 0;
  }
  double dashes[4];
  int n = 0;
  if (const uint8_t* pattern = pixel_dash_pattern(pen_style_))
    for (; pattern[n]; ++n) dashes[n] = pattern[n] * pen_width_;
  cairo_set_dash(cr_, dashes, n, 0);
  /* Square caps make an open arc reach the pixels at its ends; dashes keep
   * the gaps they were given. */
  cairo_set_line_cap(cr_, n ? CAIRO_LINE_CAP_BUTT : CAIRO_LINE_CAP_SQUARE);
  cairo_set_line_width(cr_, pen_width_);
  cairo_stroke(cr_);
  return status_of(cairo_status(cr_));
}

uint32_t CairoCanvas::Fill() {
  cairo_fill(cr_);
  return status_of(cairo_status(cr_));
}

}  // namespace

uint32_t canvas_cairo_create(int32_t width, int32_t height, int bits_per_pixel,
                             DCanvasMVCairo** result) {
  if (!result) return KEL_ERR_INVALID_ARGUMENT;
  *result = nullptr;
  if (width < 0 || height < 0 || (bits_per_pixel != 16 && bits_per_pixel != 32))
    return KEL_ERR_INVALID_ARGUMENT;
  cairo_surface_t* surface = cairo_image_surface_create(
      bits_per_pixel == 16 ? CAIRO_FORMAT_RGB16_565 : CAIRO_FORMAT_ARGB32, width, height);
  cairo_status_t status = cairo_surface_status(surface);
  if (status != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return status == CAIRO_STATUS_INVALID_SIZE ? KEL_ERR_INVALID_ARGUMENT
                                               : KEL_ERR_OUT_OF_MEMORY;
  }
  /* White is all ones in both formats. */
  unsigned char* data = cairo_image_surface_get_data(surface);
  if (data) memset(data, 0xFF, (size_t)cairo_image_surface_get_stride(surface) * height);
  cairo_surface_mark_dirty(surface);
  cairo_t* cr = cairo_create(surface);
  if (cairo_status(cr) != CAIRO_STATUS_SUCCESS) {
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
    return KEL_ERR_OUT_OF_MEMORY;
  }
  CairoCanvas* canvas = new (std::nothrow) CairoCanvas(surface, cr, bits_per_pixel);
  if (!canvas) {
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
    return KEL_ERR_OUT_OF_MEMORY;
  }
  if (!canvas->Init()) {
    canvas->Release();
    return KEL_ERR_OUT_OF_MEMORY;
  }
  *result = canvas;
  return 0;
}
