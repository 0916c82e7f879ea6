/*
 * vstring.cpp -- VString: text held in one encoding at a time, converted on
 * request.  Conversions go through Unicode code points, so that any pair of
 * encodings converts directly; a character the target can't hold becomes '?'
 * (code page) or U+FFFD (UTF-8, for a lone surrogate).
 */
#include <stdlib.h>
#include <string.h>

#include "vstring_chars.h"
#include "zuv_platform.h"

namespace {

/* The empty text of every encoding: two zero bytes end a wide string too. */
const uint16_t kEmpty[1] = {0};

/* Unicode of the bytes 0x80 to 0x9F; 0 where the code page assigns none. */
const uint16_t kCp1252High[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
    0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

bool valid_encoding(int encoding) {
  return encoding == VString::kWide || encoding == VString::kCodePage ||
         encoding == VString::kUtf8;
}

uint32_t unit_size(int encoding) { return encoding == VString::kWide ? 2 : 1; }

/* One character of terminated UTF-8.  A malformed sequence (overlong,
 * surrogate, truncated, beyond U+10FFFF) gives U+FFFD for its first byte and
 * resumes at the next one. */
uint32_t utf8_decode(const unsigned char** text) {
  const unsigned char* p = *text;
  uint32_t c = p[0];
  int extra;
  uint32_t least;
  *text = p + 1;
  if (c < 0x80) return c;
  if (c >= 0xC2 && c <= 0xDF) {
    extra = 1, c &= 0x1F, least = 0x80;
  } else if (c >= 0xE0 && c <= 0xEF) {
    extra = 2, c &= 0x0F, least = 0x800;
  } else if (c >= 0xF0 && c <= 0xF4) {
    extra = 3, c &= 0x07, least = 0x10000;
  } else {
    return 0xFFFD;
  }
  for (int i = 1; i <= extra; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0xFFFD;
    c = c << 6 | (p[i] & 0x3F);
  }
  if (c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0xFFFD;
  *text = p + 1 + extra;
  return c;
}

/* The next code point: a surrogate pair joined, a lone surrogate as it is. */
bool next_point(vstring_chars* reader, uint32_t* point) {
  uint16_t unit;
  if (!vstring_chars_next(reader, &unit)) return false;
  *point = unit;
  if (unit >= 0xD800 && unit <= 0xDBFF) {
    vstring_chars after = *reader;
    uint16_t low;
    if (vstring_chars_next(&after, &low) && low >= 0xDC00 && low <= 0xDFFF) {
      *point = 0x10000 + ((unit - 0xD800u) << 10) + (low - 0xDC00u);
      *reader = after;
    }
  }
  return true;
}

unsigned char unicode_to_cp1252(uint32_t point) {
  if (point < 0x80 || (point >= 0xA0 && point <= 0xFF)) return (unsigned char)point;
  for (int i = 0; i < 32; ++i) {
    uint16_t mapped = kCp1252High[i] ? kCp1252High[i] : (uint16_t)(0x80 + i);
    if (mapped == point) return (unsigned char)(0x80 + i);
  }
  return '?';
}

/* Writes the text in encoding to out (not terminated), or only counts when
 * out is null; returns the units. */
uint32_t encode(const VString& from, int encoding, void* out) {
  unsigned char* bytes = static_cast<unsigned char*>(out);
  uint16_t* wide = static_cast<uint16_t*>(out);
  vstring_chars reader;
  vstring_chars_begin(&reader, from);
  uint32_t n = 0;
  uint32_t c;
  while (next_point(&reader, &c)) {
    if (encoding == VString::kWide) {
      if (c >= 0x10000) {
        if (wide) wide[n] = (uint16_t)(0xD800 + ((c - 0x10000) >> 10));
        ++n;
        c = 0xDC00 + ((c - 0x10000) & 0x3FF);
      }
      if (wide) wide[n] = (uint16_t)c;
      ++n;
    } else if (encoding == VString::kCodePage) {
      if (bytes) bytes[n] = unicode_to_cp1252(c);
      ++n;
    } else {
      if (c >= 0xD800 && c <= 0xDFFF) c = 0xFFFD;
      unsigned char seq[4];
      int len = utf8_encode(c, seq);
      if (bytes) memcpy(bytes + n, seq, len);
      n += len;
    }
  }
  return n;
}

}  // namespace

int utf8_encode(uint32_t point, unsigned char* out) {
  int len = point < 0x80 ? 1 : point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
  static const unsigned char kLead[5] = {0, 0x00, 0xC0, 0xE0, 0xF0};
  out[0] = (unsigned char)(kLead[len] | point >> (6 * (len - 1)));
  for (int i = 1; i < len; ++i) out[i] = (unsigned char)(0x80 | ((point >> (6 * (len - 1 - i))) & 0x3F));
  return len;
}

uint16_t cp1252_to_unicode(unsigned char byte) {
  if (byte < 0x80 || byte >= 0xA0) return byte;
  return kCp1252High[byte - 0x80] ? kCp1252High[byte - 0x80] : byte;
}

void vstring_chars_begin(vstring_chars* reader, const VString& text) {
  reader->at = static_cast<const unsigned char*>(text.GetData());
  reader->encoding = text.GetEncoding();
  reader->pending = 0;
}

bool vstring_chars_next(vstring_chars* reader, uint16_t* unit) {
  if (reader->pending) {
    *unit = reader->pending;
    reader->pending = 0;
    return true;
  }
  if (reader->encoding == VString::kWide) {
    uint16_t u = *reinterpret_cast<const uint16_t*>(reader->at);
    if (!u) return false;
    reader->at += 2;
    *unit = u;
    return true;
  }
  if (!*reader->at) return false;
  if (reader->encoding == VString::kCodePage) {
    *unit = cp1252_to_unicode(*reader->at++);
    return true;
  }
  uint32_t c = utf8_decode(&reader->at);
  if (c >= 0x10000) {
    c -= 0x10000;
    *unit = (uint16_t)(0xD800 | c >> 10);
    reader->pending = (uint16_t)(0xDC00 | (c & 0x3FF));
  } else {
    *unit = (uint16_t)c;
  }
  return true;
}

VString::VString() : data_(nullptr), units_(0), encoding_(kWide) {}

VString::~VString() { free(data_); }

uint32_t VString::SetString(const void* text, int encoding, int32_t length) {
  if (!valid_encoding(encoding)) return KEL_ERR_INVALID_ARGUMENT;
  uint32_t unit = unit_size(encoding);
  uint32_t n = 0;
  if (text) {
    const unsigned char* bytes = static_cast<const unsigned char*>(text);
    const uint16_t* wide = static_cast<const uint16_t*>(text);
    while ((length < 0 || n < (uint32_t)length) && (unit == 2 ? wide[n] : bytes[n])) ++n;
  }
  void* copy = malloc((n + 1) * unit);
  if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  if (n) memcpy(copy, text, n * unit);
  memset(static_cast<unsigned char*>(copy) + n * unit, 0, unit);
  free(data_);
  data_ = copy;
  units_ = n;
  encoding_ = encoding;
  return 0;
}

uint32_t VString::Convert(int encoding) {
  if (!valid_encoding(encoding)) return KEL_ERR_INVALID_ARGUMENT;
  if (encoding == encoding_) return 0;
  uint32_t unit = unit_size(encoding);
  uint32_t n = encode(*this, encoding, nullptr);
  void* out = malloc((n + 1) * unit);
  if (!out) return KEL_ERR_OUT_OF_MEMORY;
  encode(*this, encoding, out);
  memset(static_cast<unsigned char*>(out) + n * unit, 0, unit);
  free(data_);
  data_ = out;
  units_ = n;
  encoding_ = encoding;
  return 0;
}

uint32_t VString::GetNumChars() const {
  if (encoding_ != kUtf8) return units_;
  vstring_chars reader;
  vstring_chars_begin(&reader, *this);
  uint32_t n = 0;
  uint16_t unit;
  while (vstring_chars_next(&reader, &unit)) ++n;
  return n;
}

const uint16_t* VString::GetWideStringPointer() const {
  return encoding_ == kWide ? static_cast<const uint16_t*>(GetData()) : nullptr;
}

const char* VString::GetUtf8StringPointer() const {
  return encoding_ == kUtf8 ? static_cast<const char*>(GetData()) : nullptr;
}

const void* VString::GetData() const { return data_ ? data_ : kEmpty; }
