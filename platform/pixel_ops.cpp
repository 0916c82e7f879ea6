/*
 * pixel_ops.cpp -- rectangles, lines and copies in canvas memory.
 */
#include "pixel_ops.h"

#include <math.h>
#include <string.h>

namespace {

/* Far beyond any canvas; a sloped line reaching past it is cut to it, which
 * keeps the products of the line walk within 64 bits. */
const double kFar = 1 << 20;

const uint8_t kDash[] = {6, 3, 0};
const uint8_t kDot[] = {1, 2, 0};
const uint8_t kDashDot[] = {6, 3, 1, 3, 0};

/* Whether step k along a dashed line is drawn. */
bool dash_on(const uint8_t* pattern, int64_t k, int width) {
  int64_t period = 0;
  for (const uint8_t* p = pattern; *p; ++p) period += *p;
  int64_t at = (k / width) % period;
  bool on = true;
  for (const uint8_t* p = pattern; at >= *p; ++p, on = !on) at -= *p;
  return on;
}

/* Liang-Barsky: the part of the line within kFar of the origin; false if
 * none. */
bool cut_far(int32_t* x1, int32_t* y1, int32_t* x2, int32_t* y2) {
  double dx = (double)*x2 - *x1, dy = (double)*y2 - *y1;
  double p[4] = {-dx, dx, -dy, dy};
  double q[4] = {*x1 + kFar, kFar - *x1, *y1 + kFar, kFar - *y1};
  double t0 = 0, t1 = 1;
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0) {
      if (q[i] < 0) return false;
      continue;
    }
    double r = q[i] / p[i];
    if (p[i] < 0 && r > t0) t0 = r;
    if (p[i] > 0 && r < t1) t1 = r;
  }
  if (t0 > t1) return false;
  double sx = *x1, sy = *y1;
  *x1 = (int32_t)lround(sx + t0 * dx), *y1 = (int32_t)lround(sy + t0 * dy);
  *x2 = (int32_t)lround(sx + t1 * dx), *y2 = (int32_t)lround(sy + t1 * dy);
  return true;
}

uint32_t to_32(uint16_t p) {
  uint32_t r = p >> 11, g = (p >> 5) & 0x3F, b = p & 0x1F;
  return 0xFF000000u | (r << 3 | r >> 2) << 16 | (g << 2 | g >> 4) << 8 | (b << 3 | b >> 2);
}

uint16_t to_16(uint32_t p) {
  return (uint16_t)(((p >> 8) & 0xF800) | ((p >> 5) & 0x07E0) | ((p >> 3) & 0x001F));
}

void copy_row(const unsigned char* src, int from_bits, unsigned char* dst, int to_bits,
              int32_t n) {
  if (from_bits == to_bits) {
    memmove(dst, src, (size_t)n * (to_bits / 8));
  } else if (from_bits == 16) {
    const uint16_t* in = reinterpret_cast<const uint16_t*>(src);
    uint32_t* out = reinterpret_cast<uint32_t*>(dst);
    for (int32_t i = 0; i < n; ++i) out[i] = to_32(in[i]);
  } else {
    const uint32_t* in = reinterpret_cast<const uint32_t*>(src);
    uint16_t* out = reinterpret_cast<uint16_t*>(dst);
    for (int32_t i = 0; i < n; ++i) out[i] = to_16(in[i]);
  }
}

}  // namespace

uint32_t pixel_pack(int bits_per_pixel, const DRGBValue& c) {
  if (bits_per_pixel == 16) return (uint32_t)(c.red >> 3) << 11 | (uint32_t)(c.green >> 2) << 5 | c.blue >> 3;
  return 0xFF000000u | (uint32_t)c.red << 16 | (uint32_t)c.green << 8 | c.blue;
}

bool pixel_intersect(DRect* r, const DRect& bounds) {
  int64_t left = r->x > bounds.x ? r->x : bounds.x;
  int64_t top = r->y > bounds.y ? r->y : bounds.y;
  int64_t right = (int64_t)r->x + r->width;
  int64_t bottom = (int64_t)r->y + r->height;
  if (right > (int64_t)bounds.x + bounds.width) right = (int64_t)bounds.x + bounds.width;
  if (bottom > (int64_t)bounds.y + bounds.height) bottom = (int64_t)bounds.y + bounds.height;
  if (right <= left || bottom <= top) {
    *r = DRect{(int32_t)left, (int32_t)top, 0, 0};
    return false;
  }
  *r = DRect{(int32_t)left, (int32_t)top, (int32_t)(right - left), (int32_t)(bottom - top)};
  return true;
}

void pixel_fill(const pixel_surface* s, int32_t x, int32_t y, int32_t width,
                int32_t height, uint32_t value) {
  DRect r = {x, y, width, height};
  if (!pixel_intersect(&r, s->clip)) return;
  for (int32_t row = r.y; row < r.y + r.height; ++row) {
    unsigned char* line = s->pixels + (size_t)row * s->bytes_per_row;
    if (s->bits_per_pixel == 16) {
      uint16_t* p = reinterpret_cast<uint16_t*>(line) + r.x;
      for (int32_t i = 0; i < r.width; ++i) p[i] = (uint16_t)value;
    } else {
      uint32_t* p = reinterpret_cast<uint32_t*>(line) + r.x;
      for (int32_t i = 0; i < r.width; ++i) p[i] = value;
    }
  }
}

void pixel_line(const pixel_surface* s, int32_t x1, int32_t y1, int32_t x2,
                int32_t y2, int width, int style, uint32_t value) {
  if (style == kPenNone) return;
  if (width < 1) width = 1;
  const int32_t back = (width - 1) / 2;
  const uint8_t* dashes = pixel_dash_pattern(style);
  if (!dashes && (x1 == x2 || y1 == y2)) {
    /* One rectangle, computed in 64 bits and kept within 32. */
    int64_t left = (int64_t)(x1 < x2 ? x1 : x2) - back, top = (int64_t)(y1 < y2 ? y1 : y2) - back;
    int64_t right = (int64_t)(x1 < x2 ? x2 : x1) - back + width;
    int64_t bottom = (int64_t)(y1 < y2 ? y2 : y1) - back + width;
    if (left < INT32_MIN) left = INT32_MIN;
    if (top < INT32_MIN) top = INT32_MIN;
    if (right - left > INT32_MAX) right = left + INT32_MAX;
    if (bottom - top > INT32_MAX) bottom = top + INT32_MAX;
    pixel_fill(s, (int32_t)left, (int32_t)top, (int32_t)(right - left), (int32_t)(bottom - top), value);
    return;
  }
  int32_t far = (int32_t)kFar;
  if ((x1 < -far || x1 > far || y1 < -far || y1 > far || x2 < -far || x2 > far ||
       y2 < -far || y2 > far) && !cut_far(&x1, &y1, &x2, &y2))
    return;
  /* Walk the longer (major) axis a; the minor axis b at step k is
   * b1 + round(k * db / n), rounding halves away from the start.  Only the
   * steps whose pen can touch the clip along the major axis are walked, which
   * bounds the work by the clip's size however long the line. */
  const bool x_major = (x2 >= x1 ? x2 - (int64_t)x1 : x1 - (int64_t)x2) >=
                       (y2 >= y1 ? y2 - (int64_t)y1 : y1 - (int64_t)y2);
  const int64_t a1 = x_major ? x1 : y1, a2 = x_major ? x2 : y2;
  const int64_t b1 = x_major ? y1 : x1, b2 = x_major ? y2 : x2;
  const int64_t n = a2 >= a1 ? a2 - a1 : a1 - a2;
  const int64_t m = b2 >= b1 ? b2 - b1 : b1 - b2;
  const int sa = a2 >= a1 ? 1 : -1, sb = b2 >= b1 ? 1 : -1;
  const int64_t clip_lo = x_major ? s->clip.x : s->clip.y;
  const int64_t clip_hi = clip_lo + (x_major ? s->clip.width : s->clip.height) - 1;
  const int64_t reach_lo = clip_lo + back - width + 1, reach_hi = clip_hi + back;
  int64_t k0 = sa > 0 ? reach_lo - a1 : a1 - reach_hi;
  int64_t k1 = sa > 0 ? reach_hi - a1 : a1 - reach_lo;
  if (k0 < 0) k0 = 0;
  if (k1 > n) k1 = n;
  if (k0 > k1) return;
  /* b at k0, and the remainder that the error term carries on from there. */
  int64_t twice_n = 2 * (n ? n : 1);
  int64_t numerator = 2 * k0 * m + (n ? n : 1);
  int64_t minor = numerator / twice_n;
  int64_t error = numerator % twice_n;
  for (int64_t k = k0; k <= k1; ++k) {
    if (!dashes || dash_on(dashes, k, width)) {
      int64_t a = a1 + sa * k, b = b1 + sb * minor;
      int32_t px = (int32_t)(x_major ? a : b), py = (int32_t)(x_major ? b : a);
      pixel_fill(s, px - back, py - back, width, width, value);
    }
    error += 2 * m;
    while (error >= twice_n) error -= twice_n, ++minor;
  }
}

void pixel_blend(const pixel_surface* s, int32_t x, int32_t y, int32_t width,
                 int32_t height, const uint8_t* coverage, const DRGBValue& color) {
  DRect r = {x, y, width, height};
  if (!pixel_intersect(&r, s->clip)) return;
  const uint32_t full = pixel_pack(s->bits_per_pixel, color);
  for (int32_t row = r.y; row < r.y + r.height; ++row) {
    const uint8_t* a = coverage + (size_t)(row - y) * width + (r.x - x);
    unsigned char* line = s->pixels + (size_t)row * s->bytes_per_row;
    for (int32_t i = 0; i < r.width; ++i) {
      uint32_t k = a[i];
      if (k == 0) continue;
      uint32_t* p32 = reinterpret_cast<uint32_t*>(line) + r.x + i;
      uint16_t* p16 = reinterpret_cast<uint16_t*>(line) + r.x + i;
      uint32_t old = s->bits_per_pixel == 16 ? to_32(*p16) : *p32;
      uint32_t mixed = full;
      if (k < 255) {
        /* Each channel (colour * k + old * (255 - k)) / 255, rounded. */
        uint32_t r8 = (color.red * k + ((old >> 16) & 0xFF) * (255 - k) + 127) / 255;
        uint32_t g8 = (color.green * k + ((old >> 8) & 0xFF) * (255 - k) + 127) / 255;
        uint32_t b8 = (color.blue * k + (old & 0xFF) * (255 - k) + 127) / 255;
        mixed = 0xFF000000u | r8 << 16 | g8 << 8 | b8;
        if (s->bits_per_pixel == 16) mixed = to_16(mixed);
      }
      if (s->bits_per_pixel == 16) {
        *p16 = (uint16_t)mixed;
      } else {
        *p32 = mixed;
      }
    }
  }
}

void pixel_copy(const pixel_surface* from, const DRect& source,
                const pixel_surface* to, int32_t x, int32_t y) {
  DRect src = source;
  DRect bounds = {0, 0, from->width, from->height};
  if (!pixel_intersect(&src, bounds)) return;
  DRect dst = {(int32_t)(x + ((int64_t)src.x - source.x)),
               (int32_t)(y + ((int64_t)src.y - source.y)), src.width, src.height};
  const DRect wanted = dst;
  if (!pixel_intersect(&dst, to->clip)) return;
  src.x += dst.x - wanted.x;
  src.y += dst.y - wanted.y;
  const int from_bytes = from->bits_per_pixel / 8, to_bytes = to->bits_per_pixel / 8;
  /* Within one surface, rows moving down are copied from the bottom up. */
  const bool upward = from->pixels == to->pixels && dst.y > src.y;
  for (int32_t i = 0; i < dst.height; ++i) {
    int32_t row = upward ? dst.height - 1 - i : i;
    const unsigned char* in = from->pixels + (size_t)(src.y + row) * from->bytes_per_row +
                              (size_t)src.x * from_bytes;
    unsigned char* out = to->pixels + (size_t)(dst.y + row) * to->bytes_per_row +
                         (size_t)dst.x * to_bytes;
    copy_row(in, from->bits_per_pixel, out, to->bits_per_pixel, dst.width);
  }
}

const uint8_t* pixel_dash_pattern(int style) {
  switch (style) {
    case kPenDash: return kDash;
    case kPenDot: return kDot;
    case kPenDashDot: return kDashDot;
    default: return nullptr;
  }
}
