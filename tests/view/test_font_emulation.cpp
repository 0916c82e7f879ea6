// The built-in text metrics: widths of the faces, and the face chosen for a
// font record.
#include <gtest/gtest.h>

#include <string>

#include "test_support.h"
#include "view/zuv_font_emulation.h"
#include "workbook/kel_xls_records.h"

namespace {

int32_t width(unsigned face, const std::u16string& text) {
  return fe_string_width(face, reinterpret_cast<const unsigned short*>(text.data()),
                         (int32_t)text.size());
}

// The widths other tests count on: the view's texts are measured with them.
TEST(FontEmulation, TellingWidths) {
  EXPECT_EQ(1139, arial_lookup('0'));
  EXPECT_EQ(1366, arial_lookup('A'));
  EXPECT_EQ(1933, arial_lookup('W'));

  // Every style's ranges: what lies outside them, or in a gap, is 0.
  for (unsigned face = 0; face < 8; ++face) {
    fe_lookup_fn lookup = fe_lookup[face];
    EXPECT_EQ(0, lookup(0x1F)) << face;       // below the first range
    EXPECT_EQ(0, lookup(0x7F)) << face;       // in a range, but no glyph
    EXPECT_EQ(0, lookup(0x0300)) << face;     // a gap
    EXPECT_EQ(1139, lookup(0x0259)) << face;  // the two constants
    EXPECT_EQ(2048, lookup(0xFFFC)) << face;
    EXPECT_EQ(0, lookup(0xFFFD)) << face;
  }

  // The italic serif styles skip U+2045-U+207E and read on from U+207F in
  // the same table.
  EXPECT_NE(0, times_lookup(0x2074));
  EXPECT_EQ(0, timesi_lookup(0x2074));
  EXPECT_EQ(0, timesbi_lookup(0x207E));
  EXPECT_EQ(342, timesi_lookup(0x2044));
  EXPECT_EQ(645, timesi_lookup(0x207F));
}

TEST(FontEmulation, StringWidths) {
  EXPECT_EQ(1366, width(4, u"A"));
  EXPECT_EQ(1366, width(14, u"A"));  // unknown faces measure as 4
  EXPECT_EQ(1366, width(0xFFFFFFFFu, u"A"));
  EXPECT_EQ(1366 + 1933 + 569, width(4, u"AW "));
  for (unsigned face = 8; face < FE_FACE_COUNT; ++face) {
    EXPECT_EQ(1229, width(face, u"i")) << face;
    EXPECT_EQ(3 * 1229, width(face, u"\u4E00W\u0300")) << face;
  }
  for (unsigned face = 0; face < 8; ++face) {
    EXPECT_EQ(1800, width(face, u"\u4E00")) << face;
    EXPECT_EQ(4 * 1800, width(face, u"\u3000\u303F\u9FBF\u4E00")) << face;
    EXPECT_EQ(0, width(face, u"\u9FC0\u2FFF\u3040")) << face;  // past the CJK blocks: lookup
    EXPECT_EQ(0, width(face, u"\u0300\u0301")) << face;
    EXPECT_EQ(fe_lookup[face](0x2014), width(face, u"\u2015")) << face;
    EXPECT_NE(0, width(face, u"\u2015")) << face;
  }
  const unsigned short unterminated[] = {'A', 'W'};
  EXPECT_EQ(1366, fe_string_width(4, unterminated, 1));
  EXPECT_EQ(0, fe_string_width(4, unterminated, 0));
  EXPECT_EQ(0, fe_string_width(4, unterminated, -1));
  EXPECT_EQ(0, fe_string_width(4, nullptr, 0));
  EXPECT_EQ(2 * 1229, fe_string_width(8, nullptr, 2));  // the text isn't read
}

TEST(FontEmulation, FaceInfoAndPlatformFonts) {
  // Each family in the order plain, bold, bold italic, italic; a face
  // past the table is the default one.
  const struct {
    unsigned face;
    int32_t ascent, descent;
    const char* name;
    int32_t family;
    bool bold, italic;
  } faces[] = {{3, 1825, -443, "Thorndale MT", kFamilySerif, false, true},
               {6, 1854, -434, "Albany MT", kFamilySans, true, true},
               {9, 1705, -615, "Cumberland MT", kFamilyMono, true, false},
               {99, 1854, -434, "Albany MT", kFamilySans, false, false}};
  for (const auto& f : faces) {
    fe_info info;
    fe_font_info(f.face, &info);
    EXPECT_EQ(2048, info.em);
    EXPECT_EQ(f.ascent, info.ascent) << f.face;
    EXPECT_EQ(f.descent, info.descent) << f.face;
    const fe_platform_font_t* font = fe_platform_font(f.face);
    EXPECT_STREQ(f.name, font->name);
    EXPECT_EQ(f.family, font->family) << f.face;
    EXPECT_EQ(f.bold, font->bold) << f.face;
    EXPECT_EQ(f.italic, font->italic) << f.face;
  }
}

TEST(FontEmulation, MatchFontRecords) {
  struct Case {
    const char* name;
    uint8_t family;
    uint16_t weight, flags;
    unsigned default_face, expected;
  } cases[] = {
      {"Arial", 0, 700, BIFF_FONT_ITALIC, 4, 6},
      {"Arial", 0, 500, 0, 4, 5},  // bold from 500
      {"Arial", 0, 400, BIFF_FONT_ITALIC, 4, 7},
      {"Times New Roman", 2, 700, 0, 4, 1},  // the name wins over the family
      {"Courier New", 0, 700, BIFF_FONT_ITALIC, 4, 10},
      {"Wingdings", 0, 700, BIFF_FONT_ITALIC, 4, 12},
      {"Symbol", 0, 700, 0, 4, 13},
      {"Univers 67 CondensedBold", 0, 700, BIFF_FONT_ITALIC, 4, 5},
      {"Zapf Dingbats", 0, 400, 0, 4, 4},  // sans on purpose
      {"ZapfDingbats", 0, 400, 0, 4, 12},
      {"arial", 0, 400, 0, 4, 4},  // case counts: by family, then default
      {"arial", 1, 400, 0, 4, 0},
      {"Arialx", 2, 700, 0, 4, 5},
      {"", 1, 700, BIFF_FONT_ITALIC, 4, 2},
      {"Xyz", 3, 400, BIFF_FONT_ITALIC, 4, 11},
      {"Xyz", 0, 700, 0, 12, 12},  // a default of no family stays unstyled
      {"Xyz", 0, 700, 0, 0, 1},
      {"Xyz", 7, 700, 0, 8, 9},
  };
  for (const Case& c : cases) {
    std::u16string name = tabulon_test::u16(c.name);
    biff_font font = {};
    font.name = reinterpret_cast<unsigned short*>(&name[0]);
    font.family = c.family;
    font.weight = c.weight;
    font.flags = c.flags;
    unsigned face = 99;
    fe_match(&font, &face, c.default_face);
    EXPECT_EQ(c.expected, face) << c.name << " family " << (int)c.family << " weight "
                                << c.weight << " flags " << c.flags;
  }
  unsigned face = 99;
  fe_match(nullptr, &face, 7);
  EXPECT_EQ(7u, face);
}

}  // namespace
