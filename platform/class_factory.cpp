/*
 * class_factory.cpp -- ZuvLinuxClassFactory: the process's one factory of
 * font managers and canvases.  It holds nothing but its count of
 * references, so it is a static object and lives as long as the process;
 * the count only catches a Release without its ZuvLinuxClassFactory().
 */
#include "canvas_cairo.h"
#include "font_manager.h"
#include "zuv_platform.h"

namespace {

class ClassFactory final : public IZuvClassFactory {
 public:
  constexpr ClassFactory() : references_(0) {}

  IZuvClassFactory* Take() {
    ++references_;
    return this;
  }

  uint32_t CreateObject(uint32_t code, void** result) override {
    if (!result) return KEL_ERR_INVALID_ARGUMENT;
    *result = nullptr;
    if (code != ZUV_CLASS_FONT_MANAGER) return KEL_ERR_NOT_FOUND;
    IZuvFontManager* manager = font_manager_create();
    if (!manager) return KEL_ERR_OUT_OF_MEMORY;
    *result = manager;
    return 0;
  }

  uint32_t CreateCanvas(ICanvas** result, int kind, const DRect& rect, int bits_per_pixel,
                        int /*reserved1*/, int /*reserved2*/) override {
    if (!result) return KEL_ERR_INVALID_ARGUMENT;
    *result = nullptr;
    if (kind != 1) return KEL_ERR_INVALID_ARGUMENT;
    DCanvasMVCairo* canvas;
    uint32_t status = canvas_cairo_create(rect.width, rect.height, bits_per_pixel, &canvas);
    if (status == 0) *result = canvas;
    return status;
  }

  uint32_t Release() override {
    if (references_ == 0) return KEL_ERR_GENERAL;
    --references_;
    return 0;
  }

 private:
  uint32_t references_;
};

ClassFactory g_factory;

}  // namespace

extern "C" IZuvClassFactory* ZuvLinuxClassFactory() { return g_factory.Take(); }
