/*
 * zuv_font_emulation.cpp -- the face table, string widths and the choice of
 * a face for a font record.  The width tables and the per-style lookups are
 * generated into zuv_font_tables.cpp.
 */
#include "view/zuv_font_emulation.h"

#include <stddef.h>

#include "platform/zuv_platform.h"
#include "workbook/kel_xls_records.h"

namespace {

const int32_t kFixedWidth = 1229;
const int32_t kCjkWidth = 1800;

enum { kSerif = 0, kSans = 4, kSansBold = 5, kMono = 8, kDingbats = 12, kSymbol = 13 };

const fe_platform_font_t kPlatformFonts[FE_FACE_COUNT] = {
    {"Thorndale MT", kFamilySerif, false, false},
    {"Thorndale MT", kFamilySerif, true, false},
    {"Thorndale MT", kFamilySerif, true, true},
    {"Thorndale MT", kFamilySerif, false, true},
    {"Albany MT", kFamilySans, false, false},
    {"Albany MT", kFamilySans, true, false},
    {"Albany MT", kFamilySans, true, true},
    {"Albany MT", kFamilySans, false, true},
    {"Cumberland MT", kFamilyMono, false, false},
    {"Cumberland MT", kFamilyMono, true, false},
    {"Cumberland MT", kFamilyMono, true, true},
    {"Cumberland MT", kFamilyMono, false, true},
    {"YingyDingSpecial", kFamilySymbol, false, false},
    {"Symbol AT", kFamilySymbol, false, false},
};

/* Face names that workbooks commonly use, and the face that stands for each.
 * "Zapf Dingbats" with a blank and "Monotype Sorts" are taken as sans on
 * purpose; only "ZapfDingbats" is the dingbats face. */
struct KnownFont {
  const char* name;
  unsigned face;
};

const KnownFont kKnownFonts[] = {
    {"Bodoni MT", kSerif},
    {"Bookman Old Style", kSerif},
    {"Book Antiqua", kSerif},
    {"Century", kSerif},
    {"Georgia", kSerif},
    {"Garamond", kSerif},
    {"Monotype Corsiva", kSerif},
    {"Palatino", kSerif},
    {"Palatino Linotype", kSerif},
    {"Times", kSerif},
    {"Times New Roman", kSerif},
    {"Arial", kSans},
    {"Arial Black", kSans},
    {"Arial Narrow", kSans},
    {"Arial Unicode MS", kSans},
    {"AvantGarde", kSans},
    {"Century Gothic", kSans},
    {"Comic Sans MS", kSans},
    {"Crayon", kSans},
    {"Franklin Gothic Medium", kSans},
    {"Geneva", kSans},
    {"Helvetica", kSans},
    {"Helvetica-Narrow", kSans},
    {"Haettenschweiler", kSans},
    {"Impact", kSans},
    {"Lucida Sans", kSans},
    {"Lucida Grande", kSans},
    {"Lucida Sans Unicode", kSans},
    {"Microsoft Sans Serif", kSans},
    {"MS Reference Sans Serif", kSans},
    {"Monotype Sorts", kSans},
    {"Osaka", kSans},
    {"Tahoma", kSans},
    {"Trebuchet MS", kSans},
    {"Trebuchet", kSans},
    {"Univers 57 Condensed", kSans},
    {"Verdana", kSans},
    {"Zapf Dingbats", kSans},
    {"Univers 67 CondensedBold", kSansBold},
    {"Courier New", kMono},
    {"Courier", kMono},
    {"Lucida Console", kMono},
    {"Wingdings", kDingbats},
    {"ZapfDingbats", kDingbats},
    {"Symbol", kSymbol},
};

unsigned checked_face(unsigned face) {
  return face < FE_FACE_COUNT ? face : FE_DEFAULT_FACE;
}

/* Whole-string equality of a terminated UTF-16 name and an ASCII one. */
bool same_name(const unsigned short* name, const char* known) {
  for (; *known; ++name, ++known)
    if (*name != (unsigned char)*known) return false;
  return *name == 0;
}

/* The base face of a known name; false for any other name. */
bool known_face(const unsigned short* name, unsigned* face) {
  if (!name) return false;
  for (const KnownFont& known : kKnownFonts) {
    if (same_name(name, known.name)) {
      *face = known.face;
      return true;
    }
  }
  return false;
}

}  // namespace

const fe_info font_info[FE_FACE_COUNT] = {
    {2048, 1825, -443}, {2048, 1825, -443}, {2048, 1825, -443}, {2048, 1825, -443},
    {2048, 1854, -434}, {2048, 1854, -434}, {2048, 1854, -434}, {2048, 1854, -434},
    {2048, 1705, -615}, {2048, 1705, -615}, {2048, 1705, -615}, {2048, 1705, -615},
    {2048, 1841, -432}, {2048, 2059, -450},
};

const fe_lookup_fn fe_lookup[FE_FACE_COUNT] = {
    times_lookup, timesbd_lookup, timesbi_lookup, timesi_lookup,
    arial_lookup, arialbd_lookup, arialbi_lookup, ariali_lookup,
    nullptr,      nullptr,        nullptr,        nullptr,
    nullptr,      nullptr,
};

const fe_platform_font_t* fe_platform_font(unsigned face) {
  return &kPlatformFonts[checked_face(face)];
}

void fe_font_info(unsigned face, fe_info* info) {
  *info = font_info[checked_face(face)];
}

int32_t fe_string_width(unsigned face, const unsigned short* text, int32_t length) {
  face = checked_face(face);
  fe_lookup_fn lookup = fe_lookup[face];
  if (!lookup) return length * kFixedWidth;
  int32_t width = 0;
  for (int32_t i = 0; i < length; ++i) {
    unsigned short c = text[i];
    /* CJK has one width in every face; the tables hold only Latin, Greek,
     * Cyrillic and symbols. */
    if ((c >= 0x3000 && c <= 0x303F) || (c >= 0x4E00 && c <= 0x9FBF))
      width += kCjkWidth;
    else
      width += lookup(c == 0x2015 ? 0x2014 : c);
  }
  return width;
}

void fe_match(const biff_font* font, unsigned* face, unsigned default_face) {
  if (!font) {
    *face = default_face;
    return;
  }
  unsigned base;
  if (!known_face(font->name, &base)) {
    switch (font->family) {
      case 1: base = kSerif; break;
      case 2: base = kSans; break;
      case 3: base = kMono; break;
      default: base = default_face; break;
    }
  }
  bool bold = font->weight >= 500;
  bool italic = (font->flags & BIFF_FONT_ITALIC) != 0;
  if (base == kSerif || base == kSans || base == kMono) {
    /* Each family lies in the order plain, bold, bold italic, italic. */
    if (bold) base += italic ? 2 : 1;
    else if (italic) base += 3;
  }
  *face = base;
}
