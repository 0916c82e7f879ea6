/*
 * font_manager.cpp -- IZuvFontManager: loads a folder's fonts into the
 * process's font registry, where every canvas finds them, and gives them
 * back when released.
 */
#include "font_manager.h"

#include <new>

#include "charset.h"
#include "font_files.h"
#include "font_registry.h"

namespace {

class FontManager final : public IZuvFontManager {
 public:
  FontManager() : owned_{nullptr, 0, 0} {}
  ~FontManager() { font_registry_drop_all(&owned_); }

  uint32_t Release() override {
    delete this;
    return 0;
  }

  uint32_t LoadFonts(const char* utf8_path) override {
    if (!utf8_path) return KEL_ERR_INVALID_ARGUMENT;
    uint32_t before = owned_.count;
    uint32_t status = font_files_walk(utf8_path, LoadFile, this);
    if (status) return status;
    return owned_.count > before ? 0 : KEL_ERR_NOT_FOUND;
  }

  uint32_t GetGlyphCharSet(uint16_t glyph, int* charset) override {
    if (!charset) return KEL_ERR_INVALID_ARGUMENT;
    *charset = unicode_charset(glyph);
    return 0;
  }

 private:
  static uint32_t LoadFile(void* self, const char* path) {
    return font_registry_open_file(path, &static_cast<FontManager*>(self)->owned_);
  }

  font_entry_list owned_;
};

}  // namespace

IZuvFontManager* font_manager_create() { return new (std::nothrow) FontManager(); }
