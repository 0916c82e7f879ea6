// The font manager, the factory, and the faces a canvas picks: checked
// against what FreeType itself says of the font files.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <memory>
#include <string>

#include <ft2build.h>
#include FT_FREETYPE_H

#include "canvas_probe.h"
#include "test_support.h"

namespace {

using tabulon_test::font_dir;

const char kFontRoot[] = "/usr/share/fonts/truetype";

// A font file as FreeType itself reads it.
class FreeTypeFace {
 public:
  explicit FreeTypeFace(const std::string& file) : library_(nullptr), face_(nullptr) {
    if (FT_Init_FreeType(&library_) == 0 && FT_New_Face(library_, file.c_str(), 0, &face_) != 0)
      face_ = nullptr;
  }
  ~FreeTypeFace() {
    if (face_) FT_Done_Face(face_);
    if (library_) FT_Done_FreeType(library_);
  }
  // The hinted advance in whole pixels; -1 if the face lacks the character.
  int32_t advance(int pixels, uint32_t unit) {
    FT_UInt index = face_ ? FT_Get_Char_Index(face_, unit) : 0;
    if (!index || FT_Set_Pixel_Sizes(face_, 0, pixels) != 0 ||
        FT_Load_Glyph(face_, index, FT_LOAD_DEFAULT) != 0)
      return -1;
    return (int32_t)((face_->glyph->advance.x + 32) >> 6);
  }

 private:
  FT_Library library_;
  FT_Face face_;
};

int32_t freetype_advance(const std::string& file, int pixels, uint32_t unit) {
  return FreeTypeFace(file).advance(pixels, unit);
}

int32_t measure(CanvasProbe& c, uint16_t unit) {
  int32_t advance = -1;
  EXPECT_EQ(0u, c->MeasureChar(unit, &advance)) << unit;
  return advance;
}

TEST(FontManager, LoadStatusesAndFactory) {
  tabulon_test::TempDir dir;
  EXPECT_EQ(KEL_ERR_CANNOT_OPEN_FILE, FontsLoaded(dir.file("missing")).status());
  tabulon_test::write_file(dir.file("notes.txt"), {'x'});
  tabulon_test::write_file(dir.file("broken.ttf"), {'n', 'o', 't', ' ', 'a', ' ', 'f', 'o', 'n', 't'});
  EXPECT_EQ(KEL_ERR_NOT_FOUND, FontsLoaded(dir.path()).status());
  EXPECT_EQ(0u, FontsLoaded(font_dir()).status());
  struct stat info;
  if (stat(kFontRoot, &info) == 0) {
    EXPECT_EQ(0u, FontsLoaded(kFontRoot).status());  // through subfolders
  }

  IZuvClassFactory* factory = ZuvLinuxClassFactory();
  ASSERT_NE(nullptr, factory);
  EXPECT_EQ(factory, ZuvLinuxClassFactory());
  void* object = &info;
  EXPECT_EQ(KEL_ERR_NOT_FOUND, factory->CreateObject(0x78787878u, &object));
  EXPECT_EQ(nullptr, object);
  ICanvas* canvas = nullptr;
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, factory->CreateCanvas(&canvas, 1, DRect{0, 0, 4, 4}, 24, 0, 0));
  EXPECT_EQ(nullptr, canvas);
  EXPECT_EQ(0u, factory->Release());
  EXPECT_EQ(0u, factory->Release());
  EXPECT_EQ(KEL_ERR_GENERAL, factory->Release());  // one more than taken
}

TEST(FontManager, GlyphCharSets) {
  FontsLoaded fonts(font_dir());
  const struct {
    uint16_t unit;
    int charset;
  } cases[] = {
      {'A', kCharSetLatin},     {0x20AC, kCharSetLatin},    {0x0A, kCharSetNone},
      {0x03B1, kCharSetGreek},  {0x0416, kCharSetCyrillic}, {0x4E2D, kCharSetCJK},
      {0xAC00, kCharSetCJK},    {0x2192, kCharSetSymbol},   {0xE000, kCharSetSymbol},
      {0x0627, kCharSetOther},  {0xFFFF, kCharSetNone},
  };
  for (const auto& c : cases) {
    int charset = -1;
    ASSERT_EQ(0u, fonts->GetGlyphCharSet(c.unit, &charset));
    EXPECT_EQ(c.charset, charset) << std::hex << c.unit;
  }
}

// Canvases have no font manager of their own: they see whatever faces some
// manager holds, for as long as one holds them.
TEST(FontManager, CanvasesSeeFacesWhileAManagerHoldsThem) {
  CanvasProbe c(20, 20, 32);
  int32_t value;
  EXPECT_EQ(KEL_ERR_NOT_FOUND, c->MeasureChar('A', &value));
  EXPECT_EQ(KEL_ERR_NOT_FOUND, c->DrawChar(2, 15, 'A'));
  EXPECT_EQ(KEL_ERR_NOT_FOUND, c->GetFontMetrics(&value, &value));
  auto first = std::make_unique<FontsLoaded>(font_dir());
  auto second = std::make_unique<FontsLoaded>(font_dir());
  EXPECT_GT(measure(c, 'A'), 0);
  first.reset();
  EXPECT_GT(measure(c, 'A'), 0);
  EXPECT_EQ(0u, c->DrawChar(2, 15, 'A'));
  second.reset();
  EXPECT_EQ(KEL_ERR_NOT_FOUND, c->MeasureChar('A', &value));
  EXPECT_GT(c.ink_count(), 0);
}

TEST(CanvasFonts, AdvancesAreFreeTypes) {
  FontsLoaded fonts(font_dir());
  CanvasProbe c(10, 10, 32);
  FreeTypeFace sans(font_dir() + "/LiberationSans-Regular.ttf");
  for (int pixels : {10, 23}) {
    ASSERT_EQ(0u, c->SetFontByFamily(kFamilySans, pixels, false, false, 1.0));
    int32_t sum = 0;
    for (const char* p = "Sheet1 0Wi."; *p; ++p) sum += sans.advance(pixels, (uint8_t)*p);
    VString text;
    text.SetString("Sheet1 0Wi.", VString::kUtf8, -1);
    int32_t width = 0;
    ASSERT_EQ(0u, c->MeasureString(text, &width));
    EXPECT_EQ(sum, width) << pixels;
    // Every glyph of Latin, Greek and Cyrillic: more than one font's glyph
    // cache holds, so it fills and starts again on the way.
    for (uint32_t unit = 0x20; unit < 0x530; ++unit) {
      int32_t expected = sans.advance(pixels, unit);
      if (expected < 0) continue;  // not in the face
      ASSERT_EQ(expected, measure(c, (uint16_t)unit)) << pixels << " U+" << std::hex << unit;
    }
    EXPECT_EQ(sans.advance(pixels, 'W'), measure(c, 'W'));
  }
}

// Device faces and family names go to the metric-compatible files; unknown
// names go by the family code.  Widths of "aiW0" tell the files apart
// (serif 'a' and 'i' differ from sans, italic serif from upright, bold
// from regular, and mono has one width).
TEST(CanvasFonts, NamesMapToFacesOfTheSameMetrics) {
  FontsLoaded fonts(font_dir());
  CanvasProbe c(10, 10, 32);
  const struct {
    const char* name;
    int family;
    bool bold, italic;
    const char* file;
  } cases[] = {
      {"Albany MT", kFamilySans, false, false, "LiberationSans-Regular.ttf"},
      {"Albany MT", kFamilySans, true, false, "LiberationSans-Bold.ttf"},
      {"Thorndale MT", kFamilySerif, false, true, "LiberationSerif-Italic.ttf"},
      {"Cumberland MT", kFamilyMono, true, true, "LiberationMono-BoldItalic.ttf"},
      {"Coconut-Medium", kFamilySans, false, false, "LiberationSans-Regular.ttf"},
      {"Times New Roman", kFamilySans, false, false, "LiberationSerif-Regular.ttf"},
      {"liberation mono", kFamilySans, false, false, "LiberationMono-Regular.ttf"},
      {"No Such Face", kFamilySerif, true, false, "LiberationSerif-Bold.ttf"},
      {"YingyDingSpecial", kFamilySymbol, false, false, "LiberationSans-Regular.ttf"},
  };
  for (const auto& t : cases) {
    VString name;
    name.SetString(t.name, VString::kCodePage, -1);
    DFontSpec font = {&name, kCharSetLatin, t.family, 23 * 20, 1.0, t.bold, t.italic};
    ASSERT_EQ(0u, c->SetFontByName(font)) << t.name;
    for (const char* p = "aiW0"; *p; ++p)
      EXPECT_EQ(freetype_advance(font_dir() + "/" + t.file, 23, (uint8_t)*p), measure(c, (uint8_t)*p))
          << t.name << (t.bold ? " bold" : "") << (t.italic ? " italic" : "") << " '" << *p << "'";
  }
}

// With a system's font root loaded, a character that the sans face lacks
// comes from a face that has it, and the symbol names find a symbol face.
TEST(CanvasFonts, MissingGlyphsComeFromOtherFaces) {
  const std::string dejavu = std::string(kFontRoot) + "/dejavu/DejaVuSans.ttf";
  const std::string symbols = std::string(kFontRoot) + "/libreoffice/opens___.ttf";
  const std::string sans = font_dir() + "/LiberationSans-Regular.ttf";
  const uint16_t snowman = 0x2603;
  if (freetype_advance(dejavu, 20, snowman) < 0 || freetype_advance(symbols, 20, '0') < 0)
    GTEST_SKIP() << "needs DejaVu Sans and OpenSymbol under " << kFontRoot;
  ASSERT_LT(freetype_advance(sans, 20, snowman), 0);

  FontsLoaded fonts(kFontRoot);
  CanvasProbe c(30, 30, 32);
  ASSERT_EQ(0u, c->SetFontByFamily(kFamilySans, 20, false, false, 1.0));
  EXPECT_EQ(freetype_advance(sans, 20, 'a'), measure(c, 'a'));
  EXPECT_EQ(freetype_advance(dejavu, 20, snowman), measure(c, snowman));
  ASSERT_EQ(0u, c->DrawChar(5, 22, snowman));
  EXPECT_GT(c.ink_count(), 20);

  VString name;
  name.SetString("Symbol AT", VString::kUtf8, -1);
  DFontSpec font = {&name, kCharSetSymbol, kFamilySymbol, 20 * 20, 1.0, false, false};
  ASSERT_EQ(0u, c->SetFontByName(font));
  EXPECT_EQ(freetype_advance(symbols, 20, '0'), measure(c, '0'));
}

}  // namespace
