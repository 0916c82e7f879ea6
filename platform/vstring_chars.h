/*
 * vstring_chars.h -- reading a VString one UTF-16 unit at a time, whatever
 * encoding it holds, without converting it (the string may be const, and the
 * canvas reads names and measures text on every paint, so nothing may be
 * allocated).  Internal to the platform layer.
 */
#ifndef VSTRING_CHARS_H
#define VSTRING_CHARS_H

#include <stdint.h>

#include "zuv_platform.h"

struct vstring_chars {
  const unsigned char* at;  /* next byte (or 16-bit unit) of the held text */
  int encoding;
  uint16_t pending;         /* low surrogate still owed for a 4-byte UTF-8 */
};

void vstring_chars_begin(vstring_chars* reader, const VString& text);
/* Stores the next unit; false at the end of the text. */
bool vstring_chars_next(vstring_chars* reader, uint16_t* unit);

/* Writes the code point (below U+110000, no surrogate) as 1 to 4 bytes of
 * UTF-8; returns the count. */
int utf8_encode(uint32_t point, unsigned char* out);

/* Windows-1252 byte to Unicode; the five unassigned bytes map to the C1
 * controls of the same value, as Windows does. */
uint16_t cp1252_to_unicode(unsigned char byte);

#endif /* VSTRING_CHARS_H */
