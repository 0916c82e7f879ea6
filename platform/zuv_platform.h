/*
 * zuv_platform.h -- what the engine needs of the device: canvases, fonts,
 * platform strings, files, and a few small helpers.
 *
 * The engine talks only to these interfaces.  This project ships one
 * implementation (cairo for drawing, FreeType for fonts) as the shared library
 * ZuvPlatformLib; a device build links its own library of the same shape.
 *
 * Several operations are known by their position in the object's table of
 * operations ("slot", counted in words).  Those numbers are noted beside the
 * methods so that the mapping to a device library can be checked.
 *
 * Conventions: every operation that can fail returns a status of kel_status.h
 * (0 is success).  No exceptions; objects come from the class factory or from
 * the non-throwing new.  Coordinates are pixels, y grows downwards, and a
 * rectangle (DRect) covers the pixels x .. x + width - 1, y .. y + height - 1.
 */
#ifndef ZUV_PLATFORM_H
#define ZUV_PLATFORM_H

#include <stdint.h>

#include "kel_status.h"

struct DRect {
  int32_t x, y, width, height;
};

struct DPoint {
  int32_t x, y;
};

/* A colour: a flags byte (not an opacity: every drawing is opaque), then the
 * three channels. */
struct DRGBValue {
  uint8_t flags, red, green, blue;
};

/* True if the point lies inside the rectangle (right and bottom exclusive). */
bool DRectPointInRectangle(const DRect* rect, const DPoint* point);

/* Little-endian reads of unaligned bytes. */
uint16_t get_le16(const unsigned char* bytes);
uint32_t get_le32(const unsigned char* bytes);

/* Writes value in the radix (2 to 36) with a leading '-' for a negative
 * decimal, terminated; buffer must hold 34 bytes.  Returns buffer. */
char* ZuvImplIToA(int32_t value, char* buffer, int radix);

/* ------------------------------------------------------------------------ */
/* Platform strings                                                          */

/*
 * VString: a string that converts between the encodings of the platform.
 * It holds its text in one encoding at a time; Convert changes that encoding.
 * Characters are UTF-16 code units of the basic plane.
 */
class VString {
 public:
  enum EncodeType {
    kWide = 1,      /* UTF-16, native byte order */
    kCodePage = 3,  /* the code page of narrow property strings (Windows-1252) */
    kUtf8 = 11      /* UTF-8 or ASCII */
  };

  VString();
  ~VString();
  VString(const VString&) = delete;
  VString& operator=(const VString&) = delete;

  /* Replaces the text.  length counts units of the encoding (bytes for the
   * narrow ones, 16-bit units for kWide); -1 means "up to the terminator".
   * Terminators inside length end the text there.  A null text makes the
   * string empty. */
  uint32_t SetString(const void* text, int encoding, int32_t length);
  /* Converts the held text into encoding. */
  uint32_t Convert(int encoding);
  /* Characters of the text (UTF-16 units, whatever the held encoding). */
  uint32_t GetNumChars() const;
  /* The text in UTF-16, terminated; valid after Convert(kWide) and until the
   * next change.  Null while the text is held in another encoding. */
  const uint16_t* GetWideStringPointer() const;
  /* The text in UTF-8, terminated; valid after Convert(kUtf8). */
  const char* GetUtf8StringPointer() const;
  int GetEncoding() const { return encoding_; }
  /* The held text as it is, in GetEncoding(), terminated; never null.  For
   * readers that take a const string in whatever encoding it holds (the
   * canvas measuring it, a font name). */
  const void* GetData() const;

 private:
  void* data_;        /* malloc'd, terminated, in encoding_ */
  uint32_t units_;    /* code units in data_, terminator not counted */
  int encoding_;
};

/* ------------------------------------------------------------------------ */
/* Files                                                                     */

/* A file by path; a VFileStream reads from it.  Destroyed by delete, which
 * is slot 1 of both classes. */
class VFile {
 public:
  VFile();
  virtual ~VFile();                                /* slots 0, 1 */
  VFile(const VFile&) = delete;
  VFile& operator=(const VFile&) = delete;
  /* Remembers the path (UTF-8).  The file need not exist yet. */
  uint32_t Init(const char* path);
  const char* GetPath() const { return path_; }

 private:
  char* path_;
};

class VFileStream {
 public:
  VFileStream();
  virtual ~VFileStream();                          /* slots 0, 1 */
  VFileStream(const VFileStream&) = delete;
  VFileStream& operator=(const VFileStream&) = delete;

  /* Slot 13: opens a stream on the file, of length bytes from offset (-1:
   * to the end); mode 1 reads.  KEL_ERR_CANNOT_OPEN_FILE if the file can't
   * be opened. */
  uint32_t Open(VFile* file, uint32_t offset, int32_t length, int mode);
  /* Reads up to size bytes at the stream's position; *read gets the count.
   * KEL_ERR_END_OF_FILE when nothing was left. */
  uint32_t Read(void* buffer, uint32_t size, uint32_t* read);
  /* Moves to position, counted from the stream's start. */
  uint32_t Seek(uint32_t position);
  uint32_t GetSize() const { return length_; }
  void Close();

 private:
  void* file_;        /* FILE* */
  uint32_t offset_;   /* first byte of the stream in the file */
  uint32_t length_;
  uint32_t position_;
};

/* ------------------------------------------------------------------------ */
/* Fonts                                                                     */

/* Character sets, as the font manager gives them for a glyph. */
enum DCharSet {
  kCharSetNone = 0,     /* a control character or a non-character */
  kCharSetLatin = 1,
  kCharSetGreek = 2,
  kCharSetCyrillic = 3,
  kCharSetCJK = 4,      /* Han, Kana, Hangul and their punctuation */
  kCharSetSymbol = 5,   /* arrows, mathematics, boxes, dingbats, private use */
  kCharSetOther = 6
};

/* Family codes of a font request. */
enum DFontFamily {
  kFamilyMono = 1,
  kFamilySerif = 2,
  kFamilySans = 3,
  kFamilySymbol = 4
};

class IZuvFontManager {
 public:
  virtual uint32_t Release() = 0;                           /* slot 2 */
  /* Loads the TrueType and OpenType files in the folder (UTF-8 path).
   * KEL_ERR_CANNOT_OPEN_FILE: no such folder; KEL_ERR_NOT_FOUND: no font
   * could be loaded from it. */
  virtual uint32_t LoadFonts(const char* utf8_path) = 0;    /* slot 27 */
  /* The character set that a glyph belongs to. */
  virtual uint32_t GetGlyphCharSet(uint16_t glyph, int* charset) = 0;

 protected:
  ~IZuvFontManager() {}
};

/* A request for a font by name.  The name is a device face ("Albany MT", ...)
 * or the name of an installed family; an unknown name falls back by family. */
struct DFontSpec {
  const VString* name;
  int charset;        /* DCharSet of the text to come */
  int family;         /* DFontFamily */
  int32_t size;       /* twips: twentieths of a point; 20 twips are 1 pixel */
  double scale;       /* horizontal stretch, 1.0 plain */
  bool bold;
  bool italic;
};

/* ------------------------------------------------------------------------ */
/* Canvas                                                                    */

enum DPenStyle {
  kPenNone = 0,
  kPenSolid = 1,
  kPenDash = 2,
  kPenDot = 3,
  kPenDashDot = 4
};

enum DBrushStyle {
  kBrushNone = 0,     /* shapes are outlined only */
  kBrushSolid = 1
};

enum DTextMode {
  kTextOpaque = 0,
  kTextTransparent = 1  /* glyphs are drawn without a background box */
};

enum DImageType {
  kImagePng = 4
};

/*
 * ICanvas: a pixel surface with a current colour, clip, pen, brush and font.
 *
 * Lines and outlines are drawn without anti-aliasing, so that a 1-pixel line
 * falls on exactly one row or column of pixels: a line covers the pixels of
 * both end points and those between.  Filled shapes cover the pixels whose
 * centres they contain.  Text is drawn with grey-scale anti-aliasing at a
 * baseline point.  Angles are radians, growing clockwise on the screen (y
 * down), 0 pointing right.
 */
class ICanvas {
 public:
  virtual uint32_t Release() = 0;                                 /* slot 2 */

  virtual uint32_t SetClip(const DRect& clip) = 0;                /* slot 15 */
  virtual uint32_t GetClip(DRect* clip) = 0;
  virtual uint32_t SetColor(const DRGBValue& color) = 0;          /* slot 17 */
  virtual uint32_t GetColor(DRGBValue* color) = 0;                /* slot 18 */

  /* A line between two points, in the pen's width and style. */
  virtual uint32_t DrawLine(int32_t x1, int32_t y1, int32_t x2,
                            int32_t y2) = 0;                      /* slot 26 */
  /* The outline of the rectangle along its outermost pixels. */
  virtual uint32_t DrawRectangle(const DRect& rect) = 0;          /* slot 28 */
  /* The rectangle filled in the current colour (brush style aside). */
  virtual uint32_t FillRectangle(const DRect& rect) = 0;          /* slot 29 */
  virtual uint32_t FillPolygon(int count, const DPoint* points) = 0; /* slot 32 */
  virtual uint32_t DrawPolygon(int count, const DPoint* points,
                               bool closed) = 0;                  /* slot 33 */
  virtual uint32_t SetBrush(int style) = 0;                       /* slot 47 */
  virtual uint32_t SetPen(int style, int width, int height) = 0;  /* slot 49 */
  /* An arc of the ellipse inscribed in rect, from start to end. */
  virtual uint32_t DrawArc(const DRect& rect, double start,
                           double end) = 0;                       /* slot 53 */
  /* The ellipse inscribed in rect: filled with a solid brush, outlined with
   * the pen unless its style is none. */
  virtual uint32_t DrawEllipse(const DRect& rect) = 0;            /* slot 56 */
  /* A slice of the ellipse inscribed in rect: arc and the two radii. */
  virtual uint32_t DrawPie(const DRect& rect, double start,
                           double end) = 0;                       /* slot 58 */
  virtual uint32_t FillPie(const DRect& rect, double start,
                           double end) = 0;                       /* slot 59 */

  /* Copies the source rectangle of this canvas to (x, y) of target, pixel for
   * pixel, converting between pixel formats; clipped to both canvases. */
  virtual uint32_t CopyRect(ICanvas* target, const DRect& source, int32_t x,
                            int32_t y) = 0;
  /* Decodes an image of the given type from the stream (read from its start)
   * and draws it scaled into rect. */
  virtual uint32_t DrawImage(VFileStream* stream, int image_type,
                             const DRect& rect) = 0;

  virtual uint32_t SetTextMode(int mode) = 0;
  /* A font by family code, in points at 72 dpi (one point is one pixel). */
  virtual uint32_t SetFontByFamily(int family, int32_t points, bool bold,
                                   bool italic, double scale) = 0;
  virtual uint32_t SetFontByName(const DFontSpec& font) = 0;
  /* Ascent and descent of the current font in pixels, both positive. */
  virtual uint32_t GetFontMetrics(int32_t* ascent, int32_t* descent) = 0;
  /* One character with its baseline at y and its origin at x. */
  virtual uint32_t DrawChar(int32_t x, int32_t y, uint16_t glyph) = 0;
  /* The advance of one character in whole pixels. */
  virtual uint32_t MeasureChar(uint16_t glyph, int32_t* advance) = 0;
  /* The advance of a string in whole pixels: the sum of its characters'. */
  virtual uint32_t MeasureString(const VString& text, int32_t* width) = 0;

 protected:
  ~ICanvas() {}
};

/*
 * The canvas class that the class factory makes.  Its pixels are rows of
 * bytes_per_row bytes, top row first: 32-bit pixels are 0xAARRGGBB words with
 * alpha 0xFF, 16-bit pixels RGB565 words, both in native byte order.
 */
class DCanvasMVCairo : public ICanvas {
 public:
  /* The canvas's own pixel memory and the number of bytes of one row. */
  virtual uint32_t GetImageData(unsigned char** pixels,
                                uint32_t* bytes_per_row) = 0;

 protected:
  ~DCanvasMVCairo() {}
};

/* ------------------------------------------------------------------------ */
/* Class factory                                                             */

/* Four-character codes of CreateObject. */
#define ZUV_CLASS_FONT_MANAGER 0x666e746du /* 'fntm' */

class IZuvClassFactory {
 public:
  /* Slot 2: an object by its four-character code; only 'fntm' (an
   * IZuvFontManager) is known.  KEL_ERR_NOT_FOUND for others. */
  virtual uint32_t CreateObject(uint32_t code, void** result) = 0;
  /* Slot 3: a canvas of rect's size, all white.  kind is 1; bits_per_pixel
   * is 16 or 32; the last two arguments are 0. */
  virtual uint32_t CreateCanvas(ICanvas** result, int kind, const DRect& rect,
                                int bits_per_pixel, int reserved1,
                                int reserved2) = 0;
  /* Slot 6: gives back one reference taken by ZuvLinuxClassFactory. */
  virtual uint32_t Release() = 0;

 protected:
  ~IZuvClassFactory() {}
};

/* The process's class factory, one more reference on every call (pair each
 * with Release); null if it can't be had. */
extern "C" IZuvClassFactory* ZuvLinuxClassFactory();

/* ------------------------------------------------------------------------ */
/* Scroll bars, given by an embedder to the view                             */

class IKELScrollBarEvent {
 public:
  virtual ~IKELScrollBarEvent() {}  /* the slot before the two the view uses */
  virtual void set_range(uint32_t total, uint32_t page) = 0;
  virtual void set_position(uint32_t position) = 0;
};

#endif /* ZUV_PLATFORM_H */
