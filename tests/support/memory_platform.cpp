// A class factory for builds without cairo (the cross build for the device):
// canvases are plain memory, so that the engine's tests run there too.
// Rectangles, axis-aligned lines and copies set exact pixels, as the real
// canvas does (the same pixel_ops); curves and filled polygons succeed and
// draw nothing; text has a fixed cell (advance 6, ascent 8, descent 2) and
// no ink.  Pixels are tightly packed rows.
#include <stdlib.h>
#include <string.h>

#include <new>

#include "charset.h"
#include "font_files.h"
#include "pixel_ops.h"
#include "zuv_platform.h"

namespace {

const int32_t kAdvance = 6, kAscent = 8, kDescent = 2;

class MemoryCanvas final : public DCanvasMVCairo {
 public:
  explicit MemoryCanvas(const pixel_surface& s) : s_(s), color_(), pen_(kPenSolid), width_(1) {}
  ~MemoryCanvas() { free(s_.pixels); }

  uint32_t Release() override { delete this; return 0; }
  uint32_t SetClip(const DRect& clip) override {
    s_.clip = clip;
    pixel_intersect(&s_.clip, DRect{0, 0, s_.width, s_.height});
    return 0;
  }
  uint32_t GetClip(DRect* clip) override { *clip = s_.clip; return 0; }
  uint32_t SetColor(const DRGBValue& color) override { color_ = color; return 0; }
  uint32_t GetColor(DRGBValue* color) override { *color = color_; return 0; }
  uint32_t DrawLine(int32_t x1, int32_t y1, int32_t x2, int32_t y2) override {
    if (x1 == x2 || y1 == y2) pixel_line(&s_, x1, y1, x2, y2, width_, pen_, Packed());
    return 0;
  }
  uint32_t DrawRectangle(const DRect&) override { return 0; }
  uint32_t FillRectangle(const DRect& r) override {
    pixel_fill(&s_, r.x, r.y, r.width, r.height, Packed());
    return 0;
  }
  uint32_t FillPolygon(int, const DPoint*) override { return 0; }
  uint32_t DrawPolygon(int, const DPoint*, bool) override { return 0; }
  uint32_t SetBrush(int) override { return 0; }
  uint32_t SetPen(int style, int width, int) override {
    pen_ = style, width_ = width;
    return 0;
  }
  uint32_t DrawArc(const DRect&, double, double) override { return 0; }
  uint32_t DrawEllipse(const DRect&) override { return 0; }
  uint32_t DrawPie(const DRect&, double, double) override { return 0; }
  uint32_t FillPie(const DRect&, double, double) override { return 0; }
  uint32_t CopyRect(ICanvas* target, const DRect& source, int32_t x, int32_t y) override {
    pixel_copy(&s_, source, &static_cast<MemoryCanvas*>(target)->s_, x, y);
    return 0;
  }
  uint32_t DrawImage(VFileStream* stream, int, const DRect&) override {
    return stream->Seek(0);
  }
  uint32_t SetTextMode(int) override { return 0; }
  uint32_t SetFontByFamily(int, int32_t, bool, bool, double) override { return 0; }
  uint32_t SetFontByName(const DFontSpec&) override { return 0; }
  uint32_t GetFontMetrics(int32_t* ascent, int32_t* descent) override {
    *ascent = kAscent, *descent = kDescent;
    return 0;
  }
  uint32_t DrawChar(int32_t, int32_t, uint16_t) override { return 0; }
  uint32_t MeasureChar(uint16_t, int32_t* advance) override { *advance = kAdvance; return 0; }
  uint32_t MeasureString(const VString& text, int32_t* width) override {
    *width = kAdvance * (int32_t)text.GetNumChars();
    return 0;
  }
  uint32_t GetImageData(unsigned char** pixels, uint32_t* bytes_per_row) override {
    *pixels = s_.pixels, *bytes_per_row = s_.bytes_per_row;
    return 0;
  }

 private:
  uint32_t Packed() const { return pixel_pack(s_.bits_per_pixel, color_); }

  pixel_surface s_;
  DRGBValue color_;
  int pen_, width_;
};

class MemoryFontManager final : public IZuvFontManager {
 public:
  uint32_t Release() override { delete this; return 0; }
  uint32_t LoadFonts(const char* path) override {
    uint32_t fonts = 0;
    uint32_t status = font_files_walk(path, Count, &fonts);
    return status ? status : fonts ? 0 : KEL_ERR_NOT_FOUND;
  }
  uint32_t GetGlyphCharSet(uint16_t glyph, int* charset) override {
    *charset = unicode_charset(glyph);
    return 0;
  }

 private:
  static uint32_t Count(void* fonts, const char*) {
    ++*static_cast<uint32_t*>(fonts);
    return 0;
  }
};

class MemoryFactory final : public IZuvClassFactory {
 public:
  uint32_t CreateObject(uint32_t code, void** result) override {
    *result = nullptr;
    if (code != ZUV_CLASS_FONT_MANAGER) return KEL_ERR_NOT_FOUND;
    *result = new (std::nothrow) MemoryFontManager();
    return *result ? 0 : KEL_ERR_OUT_OF_MEMORY;
  }
  uint32_t CreateCanvas(ICanvas** result, int, const DRect& rect, int bits_per_pixel, int,
                        int) override {
    *result = nullptr;
    if (rect.width < 0 || rect.height < 0 || (bits_per_pixel != 16 && bits_per_pixel != 32))
      return KEL_ERR_INVALID_ARGUMENT;
    pixel_surface s = {};
    s.bits_per_pixel = bits_per_pixel;
    s.width = rect.width, s.height = rect.height;
    s.bytes_per_row = (uint32_t)rect.width * (bits_per_pixel / 8);
    s.clip = DRect{0, 0, rect.width, rect.height};
    size_t bytes = (size_t)s.bytes_per_row * rect.height;
    s.pixels = static_cast<unsigned char*>(malloc(bytes ? bytes : 1));
    MemoryCanvas* canvas = s.pixels ? new (std::nothrow) MemoryCanvas(s) : nullptr;
    if (!canvas) {
      free(s.pixels);
      return KEL_ERR_OUT_OF_MEMORY;
    }
    memset(s.pixels, 0xFF, bytes);  // white in both formats
    *result = canvas;
    return 0;
  }
  uint32_t Release() override { return 0; }
};

MemoryFactory g_factory;

}  // namespace

extern "C" IZuvClassFactory* ZuvLinuxClassFactory() { return &g_factory; }
