/*
 * helpers.cpp -- the small functions of the platform: a point test, unaligned
 * little-endian reads, and integer to text.
 */
#include "zuv_platform.h"

bool DRectPointInRectangle(const DRect* rect, const DPoint* point) {
  if (!rect || !point) return false;
  /* 64-bit sums: x + width may pass INT32_MAX. */
  return point->x >= rect->x && point->y >= rect->y &&
         (int64_t)point->x < (int64_t)rect->x + rect->width &&
         (int64_t)point->y < (int64_t)rect->y + rect->height;
}

uint16_t get_le16(const unsigned char* bytes) {
  return (uint16_t)(bytes[0] | bytes[1] << 8);
}

uint32_t get_le32(const unsigned char* bytes) {
  return (uint32_t)bytes[0] | (uint32_t)bytes[1] << 8 | (uint32_t)bytes[2] << 16 |
         (uint32_t)bytes[3] << 24;
}

/* As the C library's itoa: only decimal has a sign; other radices show the
 * 32 bits of the value unsigned.  A radix out of range gives "". */
char* ZuvImplIToA(int32_t value, char* buffer, int radix) {
  char* out = buffer;
  if (radix < 2 || radix > 36) {
    *out = '\0';
    return buffer;
  }
  uint32_t magnitude = (uint32_t)value;
  if (radix == 10 && value < 0) {
    *out++ = '-';
    magnitude = 0u - magnitude;
  }
  char digits[32];
  int n = 0;
  do {
    digits[n++] = "0123456789abcdefghijklmnopqrstuvwxyz"[magnitude % (uint32_t)radix];
    magnitude /= (uint32_t)radix;
  } while (magnitude);
  while (n) *out++ = digits[--n];
  *out = '\0';
  return buffer;
}
