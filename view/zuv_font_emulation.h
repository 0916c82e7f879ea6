/*
 * zuv_font_emulation.h -- the engine's own text metrics: fourteen faces with
 * built-in advance widths, and the choice of a face for a BIFF font record.
 *
 * Column widths, and whether a number fits its cell, must not depend on the
 * fonts that a device happens to hold.  So the view measures text against
 * these metrics, and only the drawing of a glyph goes to the platform.
 *
 * A face is an index from 0 to 13:
 *    0- 3  serif: plain, bold, bold italic, italic    (Times New Roman widths)
 *    4- 7  sans:  plain, bold, bold italic, italic    (Arial widths)
 *    8-11  mono:  plain, bold, bold italic, italic    (fixed 1229)
 *   12     dingbats                                   (fixed 1229)
 *   13     symbol                                     (fixed 1229)
 * Every fe_ function takes any other index as face 4.
 *
 * Widths are in units of 1/2048 em.  Text is UTF-16, one code unit one
 * character.  Nothing here allocates, reads a file or fails: an unknown face
 * is face 4 and an unknown character has width 0.
 */
#ifndef ZUV_FONT_EMULATION_H
#define ZUV_FONT_EMULATION_H

#include <stdint.h>

struct biff_font;

const unsigned FE_FACE_COUNT = 14;
const unsigned FE_DEFAULT_FACE = 4;

/* Vertical metrics of a face.  descent is negative. */
struct fe_info {
  int32_t em;      /* 2048 for every face */
  int32_t ascent;
  int32_t descent;
};

/* One row a face. */
extern const fe_info font_info[FE_FACE_COUNT];

/* The advance width of one character in a proportional face; 0 for a
 * character below U+0020, in a gap between the covered ranges, or missing
 * from the font the widths were taken from. */
typedef int32_t (*fe_lookup_fn)(unsigned short c);

/* One lookup a face; null for faces 8 to 13, which have one fixed width. */
extern const fe_lookup_fn fe_lookup[FE_FACE_COUNT];

/* The eight proportional styles, in the order of faces 0 to 7.  Each tests
 * the ranges it covers in ascending order: U+0020-U+01FF, U+02C6-U+0323,
 * U+037E-U+03CE, U+0401-U+045F, U+0490-U+04E9, U+1E80-U+1EF9, U+200C-U+20AC,
 * U+2105-U+215E, U+2190-U+21A8, U+2202-U+2265, U+2302-U+2321, U+2500-U+25E6,
 * U+263A-U+266B, U+E801-U+E83A, U+F001-U+F031, U+FB01-U+FB02, and the single
 * characters U+0259 (1139) and U+FFFC (2048).  The italic serif styles lack
 * U+2045-U+207E; all italic styles stop at U+E805. */
int32_t times_lookup(unsigned short c);
int32_t timesbd_lookup(unsigned short c);
int32_t timesbi_lookup(unsigned short c);
int32_t timesi_lookup(unsigned short c);
int32_t arial_lookup(unsigned short c);
int32_t arialbd_lookup(unsigned short c);
int32_t arialbi_lookup(unsigned short c);
int32_t ariali_lookup(unsigned short c);

/* How the platform is asked for a face: by the name of a device font, or by
 * a family code (DFontFamily of the platform) with bold and italic. */
struct fe_platform_font_t {
  const char* name;  /* UTF-8 */
  int32_t family;
  bool bold;
  bool italic;
};

const fe_platform_font_t* fe_platform_font(unsigned face);

void fe_font_info(unsigned face, fe_info* info);

/* The width of length units of text, a plain sum without kerning; text
 * need not be terminated.  The fixed faces 8 to 13 give length * 1229
 * without reading the text (so a negative length gives a negative width
 * there); for the others a length below 1 gives 0.  CJK ideographs
 * (U+4E00-U+9FBF) and CJK punctuation (U+3000-U+303F) are 1800 in every
 * proportional face, U+2015 measures as U+2014.  The sum fits 32 bits for
 * lengths up to a million. */
int32_t fe_string_width(unsigned face, const unsigned short* text, int32_t length);

/* The face that stands for a font record, stored in *face.  The face name
 * (compared whole and case-sensitively) picks a base face from a list of
 * well-known fonts; an unknown name falls back on the record's family byte
 * (1 Roman: serif, 2 Swiss: sans, 3 Modern: mono) and then on default_face.
 * Serif, sans and mono bases (0, 4, 8) then take the record's style: bold
 * from weight 500, italic from flag value 2.  A null font gives
 * default_face as it is.  Callers pass FE_DEFAULT_FACE. */
void fe_match(const biff_font* font, unsigned* face, unsigned default_face);

#endif /* ZUV_FONT_EMULATION_H */
