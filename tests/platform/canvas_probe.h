// A canvas from the class factory, with ways to look at its pixels: raw
// values, colours, and a picture of its ink as text ('#' for any pixel that
// isn't white), which makes an expected shape readable in the test.
#ifndef CANVAS_PROBE_H
#define CANVAS_PROBE_H

#include <stdint.h>
#include <string.h>

#include <string>

#include "zuv_platform.h"

class CanvasProbe {
 public:
  CanvasProbe(int32_t width, int32_t height, int bits_per_pixel)
      : factory_(ZuvLinuxClassFactory()), canvas_(nullptr), width_(width), height_(height),
        bits_(bits_per_pixel) {
    ICanvas* made = nullptr;
    status_ = factory_->CreateCanvas(&made, 1, DRect{0, 0, width, height}, bits_per_pixel, 0, 0);
    canvas_ = static_cast<DCanvasMVCairo*>(made);
  }
  ~CanvasProbe() {
    if (canvas_) canvas_->Release();
    factory_->Release();
  }
  CanvasProbe(const CanvasProbe&) = delete;
  CanvasProbe& operator=(const CanvasProbe&) = delete;

  uint32_t status() const { return status_; }
  DCanvasMVCairo* get() const { return canvas_; }
  DCanvasMVCairo* operator->() const { return canvas_; }
  int32_t width() const { return width_; }
  int32_t height() const { return height_; }

  uint32_t stride() const {
    unsigned char* pixels;
    uint32_t stride;
    canvas_->GetImageData(&pixels, &stride);
    return stride;
  }
  const unsigned char* row(int32_t y) const {
    unsigned char* pixels;
    uint32_t stride;
    canvas_->GetImageData(&pixels, &stride);
    return pixels + (size_t)y * stride;
  }
  // The pixel as stored: 0xAARRGGBB or RGB565.
  uint32_t raw(int32_t x, int32_t y) const {
    if (bits_ == 16) {
      uint16_t p;
      memcpy(&p, row(y) + 2 * x, 2);
      return p;
    }
    uint32_t p;
    memcpy(&p, row(y) + 4 * x, 4);
    return p;
  }
  // The pixel as 0xRRGGBB, 565 widened by repeating its top bits.
  uint32_t rgb(int32_t x, int32_t y) const {
    uint32_t p = raw(x, y);
    if (bits_ == 32) return p & 0xFFFFFF;
    uint32_t r = p >> 11, g = (p >> 5) & 0x3F, b = p & 0x1F;
    return (r << 3 | r >> 2) << 16 | (g << 2 | g >> 4) << 8 | (b << 3 | b >> 2);
  }
  bool ink(int32_t x, int32_t y) const { return rgb(x, y) != 0xFFFFFF; }
  // Rows of the area, each ending in '\n'.
  std::string art(int32_t x, int32_t y, int32_t w, int32_t h) const {
    std::string s;
    for (int32_t j = y; j < y + h; ++j) {
      for (int32_t i = x; i < x + w; ++i) s += ink(i, j) ? '#' : '.';
      s += '\n';
    }
    return s;
  }
  std::string art() const { return art(0, 0, width_, height_); }
  int32_t ink_count() const {
    int32_t n = 0;
    for (int32_t y = 0; y < height_; ++y)
      for (int32_t x = 0; x < width_; ++x) n += ink(x, y);
    return n;
  }

 private:
  IZuvClassFactory* factory_;
  DCanvasMVCairo* canvas_;
  int32_t width_, height_;
  int bits_;
  uint32_t status_;
};

// Fonts loaded by a font manager for as long as the object lives; canvases
// see them meanwhile.
class FontsLoaded {
 public:
  explicit FontsLoaded(const std::string& folder)
      : factory_(ZuvLinuxClassFactory()), manager_(nullptr) {
    void* made = nullptr;
    status_ = factory_->CreateObject(ZUV_CLASS_FONT_MANAGER, &made);
    manager_ = static_cast<IZuvFontManager*>(made);
    if (manager_) status_ = manager_->LoadFonts(folder.c_str());
  }
  ~FontsLoaded() {
    if (manager_) manager_->Release();
    factory_->Release();
  }
  FontsLoaded(const FontsLoaded&) = delete;
  FontsLoaded& operator=(const FontsLoaded&) = delete;

  uint32_t status() const { return status_; }
  IZuvFontManager* operator->() const { return manager_; }

 private:
  IZuvClassFactory* factory_;
  IZuvFontManager* manager_;
  uint32_t status_;
};

#endif
