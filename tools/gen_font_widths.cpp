/*
 * gen_font_widths.cpp -- writes view/zuv_font_tables.cpp: the advance widths
 * of the engine's eight proportional faces and their lookup functions.
 *
 *   gen_font_widths FONT_FOLDER OUTPUT_FILE
 *
 * The engine measures text against built-in metrics so that a layout never
 * depends on the fonts a device holds.  The faces stand for Arial and Times
 * New Roman; their widths come from Liberation Sans and Liberation Serif,
 * which are made to the same advance widths.  Widths are read unscaled, in
 * font units, and brought to 2048 units to the em if a font has another em.
 * A character that a font has no glyph for gets width 0, as a character
 * outside the ranges does.
 *
 * Run by hand when the fonts or the ranges change; the build never runs it,
 * and its output is kept in the source tree.  The output depends on nothing
 * but the font files, so running it again on the same fonts gives the same
 * bytes.
 */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_ADVANCES_H
#include FT_SFNT_NAMES_H
#include FT_TRUETYPE_IDS_H

namespace {

const unsigned kEm = 2048;

/* Characters first to last, both included. */
struct Span {
  unsigned first, last;
};

/* The ranges that every proportional face covers, in ascending order.  The
 * two single characters between them (U+0259 and U+FFFC) are constants of
 * the lookup, not widths of the fonts. */
const Span kRanges[] = {
    {0x0020, 0x01FF}, {0x02C6, 0x0323}, {0x037E, 0x03CE}, {0x0401, 0x045F},
    {0x0490, 0x04E9}, {0x1E80, 0x1EF9}, {0x200C, 0x20AC}, {0x2105, 0x215E},
    {0x2190, 0x21A8}, {0x2202, 0x2265}, {0x2302, 0x2321}, {0x2500, 0x25E6},
    {0x263A, 0x266B}, {0xE801, 0xE83A}, {0xF001, 0xF031}, {0xFB01, 0xFB02},
};

const unsigned kSchwa = 0x0259, kSchwaWidth = 1139;
const unsigned kObjectReplacement = 0xFFFC, kObjectReplacementWidth = 2048;

struct Style {
  const char* prefix;  /* of the tables and the lookup */
  const char* file;
  bool italic;
  bool serif;
};

/* In the order of the faces that use them. */
const Style kStyles[] = {
    {"times", "LiberationSerif-Regular.ttf", false, true},
    {"timesbd", "LiberationSerif-Bold.ttf", false, true},
    {"timesbi", "LiberationSerif-BoldItalic.ttf", true, true},
    {"timesi", "LiberationSerif-Italic.ttf", true, true},
    {"arial", "LiberationSans-Regular.ttf", false, false},
    {"arialbd", "LiberationSans-Bold.ttf", false, false},
    {"arialbi", "LiberationSans-BoldItalic.ttf", true, false},
    {"ariali", "LiberationSans-Italic.ttf", true, false},
};

/* One width table: the spans it holds, one after the other.  Named after
 * its first character. */
struct Table {
  std::vector<Span> spans;
};

/* The tables of a style.  The italic serif faces lack U+2045 to U+207E, so
 * their table of general punctuation holds two spans; every italic face
 * stops its private-use range at U+E805. */
std::vector<Table> tables_of(const Style& style) {
  std::vector<Table> tables;
  for (const Span& range : kRanges) {
    Table table;
    if (range.first == 0x200C && style.italic && style.serif) {
      table.spans.push_back({0x200C, 0x2044});
      table.spans.push_back({0x207F, 0x20AC});
    } else if (range.first == 0xE801 && style.italic) {
      table.spans.push_back({0xE801, 0xE805});
    } else {
      table.spans.push_back(range);
    }
    tables.push_back(table);
  }
  return tables;
}

unsigned table_size(const Table& table) {
  unsigned size = 0;
  for (const Span& span : table.spans) size += span.last - span.first + 1;
  return size;
}

class Font {
 public:
  Font() : library_(nullptr), face_(nullptr) {}
  ~Font() {
    if (face_) FT_Done_Face(face_);
    if (library_) FT_Done_FreeType(library_);
  }
  Font(const Font&) = delete;
  Font& operator=(const Font&) = delete;

  bool open(const std::string& path) {
    return FT_Init_FreeType(&library_) == 0 &&
           FT_New_Face(library_, path.c_str(), 0, &face_) == 0 && face_->units_per_EM > 0;
  }
  /* The unscaled advance at 2048 units to the em; 0 without a glyph. */
  bool width(unsigned character, unsigned* width) {
    FT_UInt index = FT_Get_Char_Index(face_, character);
    if (index == 0) {
      *width = 0;
      return true;
    }
    FT_Fixed advance;
    if (FT_Get_Advance(face_, index, FT_LOAD_NO_SCALE, &advance) != 0) return false;
    unsigned em = face_->units_per_EM;
    *width = (unsigned)((advance * kEm + em / 2) / em);
    return true;
  }
  /* The font's own version string ("Version 2.1.5"), so that the output
   * says which fonts made it; empty if the font has none in ASCII. */
  std::string version() const {
    FT_UInt count = FT_Get_Sfnt_Name_Count(face_);
    for (FT_UInt i = 0; i < count; ++i) {
      FT_SfntName name;
      if (FT_Get_Sfnt_Name(face_, i, &name) != 0 || name.name_id != TT_NAME_ID_VERSION_STRING ||
          name.platform_id != TT_PLATFORM_MICROSOFT)
        continue;
      std::string text;  /* UTF-16BE, of which only ASCII is kept */
      for (FT_UInt at = 0; at + 1 < name.string_len; at += 2)
        if (name.string[at] == 0 && name.string[at + 1] >= 0x20 && name.string[at + 1] < 0x7F)
          text += (char)name.string[at + 1];
      return text;
    }
    return std::string();
  }

 private:
  FT_Library library_;
  FT_Face face_;
};

struct StyleWidths {
  std::string version;
  std::vector<std::vector<unsigned>> tables; /* parallel to tables_of() */
};

bool read_style(const std::string& folder, const Style& style, StyleWidths* out) {
  std::string path = folder + "/" + style.file;
  Font font;
  if (!font.open(path)) {
    fprintf(stderr, "gen_font_widths: cannot open %s\n", path.c_str());
    return false;
  }
  out->version = font.version();
  for (const Table& table : tables_of(style)) {
    std::vector<unsigned> widths;
    for (const Span& span : table.spans) {
      for (unsigned c = span.first; c <= span.last; ++c) {
        unsigned width;
        if (!font.width(c, &width) || width > 0xFFFF) {
          fprintf(stderr, "gen_font_widths: %s: no usable advance for U+%04X\n", path.c_str(), c);
          return false;
        }
        widths.push_back(width);
      }
    }
    out->tables.push_back(widths);
  }
  return true;
}

void write_table(FILE* out, const Style& style, const Table& table,
                 const std::vector<unsigned>& widths) {
  fprintf(out, "static const uint16_t %s_width_0x%x[%u] = {\n", style.prefix,
          table.spans[0].first, table_size(table));
  const unsigned kPerLine = 10;
  size_t at = 0;
  for (const Span& span : table.spans) {
    for (unsigned c = span.first; c <= span.last; c += kPerLine) {
      fprintf(out, "  /* %04X */", c);
      for (unsigned i = 0; i < kPerLine && c + i <= span.last; ++i)
        fprintf(out, " %u,", widths[at++]);
      fprintf(out, "\n");
    }
  }
  fprintf(out, "};\n\n");
}

void write_lookup(FILE* out, const Style& style) {
  fprintf(out, "int32_t %s_lookup(unsigned short c) {\n", style.prefix);
  bool schwa_written = false;
  for (const Table& table : tables_of(style)) {
    unsigned offset = 0;
    for (const Span& span : table.spans) {
      if (!schwa_written && span.first > kSchwa) {
        fprintf(out, "  if (c == 0x%x) return %u;\n", kSchwa, kSchwaWidth);
        schwa_written = true;
      }
      fprintf(out, "  if (c >= 0x%x && c <= 0x%x) return %s_width_0x%x[c - 0x%x",
              span.first, span.last, style.prefix, table.spans[0].first, span.first);
      if (offset) fprintf(out, " + %u", offset);
      fprintf(out, "];\n");
      offset += span.last - span.first + 1;
    }
  }
  fprintf(out, "  if (c == 0x%x) return %u;\n", kObjectReplacement, kObjectReplacementWidth);
  fprintf(out, "  return 0;\n}\n");
}

bool write_source(FILE* out, const std::vector<StyleWidths>& styles) {
  fprintf(out,
          "/*\n"
          " * zuv_font_tables.cpp -- advance widths of the eight proportional faces,\n"
          " * at 2048 units to the em, and the lookup of one character in them.\n"
          " *\n"
          " * GENERATED by tools/gen_font_widths from the Liberation fonts, which have\n"
          " * the advance widths of Arial and Times New Roman.  Do not edit by hand:\n"
          " * change the generator and run it again.\n"
          " *\n"
          " * Fonts read:\n");
  for (size_t i = 0; i < styles.size(); ++i)
    fprintf(out, " *   %-8s %s, %s\n", kStyles[i].prefix, kStyles[i].file,
            styles[i].version.c_str());
  fprintf(out,
          " *\n"
          " * A character that its font has no glyph for has width 0 in the tables.\n"
          " * Each table is named after its first character; timesi and timesbi hold\n"
          " * U+200C-U+2044 and U+207F-U+20AC one after the other in their table\n"
          " * of general punctuation.\n"
          " */\n"
          "#include \"view/zuv_font_emulation.h\"\n\n");
  for (size_t i = 0; i < styles.size(); ++i) {
    std::vector<Table> tables = tables_of(kStyles[i]);
    for (size_t t = 0; t < tables.size(); ++t)
      write_table(out, kStyles[i], tables[t], styles[i].tables[t]);
  }
  for (size_t i = 0; i < styles.size(); ++i) {
    if (i) fprintf(out, "\n");
    write_lookup(out, kStyles[i]);
  }
  return ferror(out) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: gen_font_widths FONT_FOLDER OUTPUT_FILE\n");
    return 2;
  }
  std::vector<StyleWidths> styles(sizeof kStyles / sizeof kStyles[0]);
  for (size_t i = 0; i < styles.size(); ++i)
    if (!read_style(argv[1], kStyles[i], &styles[i])) return 1;
  FILE* out = fopen(argv[2], "w");
  if (!out) {
    fprintf(stderr, "gen_font_widths: cannot write %s\n", argv[2]);
    return 1;
  }
  bool written = write_source(out, styles);
  if (fclose(out) != 0 || !written) {
    fprintf(stderr, "gen_font_widths: writing %s failed\n", argv[2]);
    return 1;
  }
  return 0;
}
