/*
 * png_file.cpp -- a minimal PNG writer: signature, IHDR, the deflated rows
 * (filter 0) in IDAT chunks as the compressor gives them out, IEND.
 */
#include "png_file.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zlib.h>

namespace {

const uint32_t kChunkBytes = 65536;

void put_be32(unsigned char* p, uint32_t v) {
  p[0] = (unsigned char)(v >> 24), p[1] = (unsigned char)(v >> 16);
  p[2] = (unsigned char)(v >> 8), p[3] = (unsigned char)v;
}

bool write_chunk(FILE* f, const char* type, const unsigned char* data, uint32_t n) {
  unsigned char head[8], tail[4];
  put_be32(head, n);
  memcpy(head + 4, type, 4);
  uLong crc = crc32(0, head + 4, 4);
  if (n) crc = crc32(crc, data, n);  /* a null buffer would reset the sum */
  put_be32(tail, (uint32_t)crc);
  return fwrite(head, 1, 8, f) == 8 && (n == 0 || fwrite(data, 1, n, f) == n) &&
         fwrite(tail, 1, 4, f) == 4;
}

/* One row as PNG wants it: the filter byte, then R, G, B per pixel. */
void convert_row(const unsigned char* in, uint32_t width, int bits_per_pixel,
                 unsigned char* out) {
  *out++ = 0;
  for (uint32_t x = 0; x < width; ++x, out += 3) {
    if (bits_per_pixel == 16) {
      uint16_t p;
      memcpy(&p, in + 2 * x, 2);
      uint32_t r = p >> 11, g = (p >> 5) & 0x3F, b = p & 0x1F;
      out[0] = (unsigned char)(r << 3 | r >> 2);
      out[1] = (unsigned char)(g << 2 | g >> 4);
      out[2] = (unsigned char)(b << 3 | b >> 2);
    } else {
      uint32_t p;
      memcpy(&p, in + 4 * x, 4);
      out[0] = (unsigned char)(p >> 16), out[1] = (unsigned char)(p >> 8);
      out[2] = (unsigned char)p;
    }
  }
}

bool write_rows(FILE* f, const unsigned char* pixels, uint32_t width, uint32_t height,
                uint32_t bytes_per_row, int bits_per_pixel, unsigned char* row,
                unsigned char* out) {
  z_stream z;
  memset(&z, 0, sizeof z);
  if (deflateInit(&z, Z_DEFAULT_COMPRESSION) != Z_OK) return false;
  bool ok = true;
  for (uint32_t y = 0; ok && y < height; ++y) {
    convert_row(pixels + (size_t)y * bytes_per_row, width, bits_per_pixel, row);
    z.next_in = row;
    z.avail_in = 1 + 3 * width;
    int flush = y + 1 == height ? Z_FINISH : Z_NO_FLUSH;
    do {
      z.next_out = out;
      z.avail_out = kChunkBytes;
      if (deflate(&z, flush) == Z_STREAM_ERROR) ok = false;
      uint32_t have = kChunkBytes - z.avail_out;
      if (ok && have) ok = write_chunk(f, "IDAT", out, have);
    } while (ok && z.avail_out == 0);
  }
  deflateEnd(&z);
  return ok;
}

}  // namespace

bool png_write_file(const char* path, const unsigned char* pixels, uint32_t width,
                    uint32_t height, uint32_t bytes_per_row, int bits_per_pixel) {
  if (!path || !pixels || width == 0 || height == 0 || width > 0x7FFFFFFF / 4 ||
      (bits_per_pixel != 16 && bits_per_pixel != 32) ||
      bytes_per_row < width * (uint32_t)(bits_per_pixel / 8))
    return false;
  FILE* f = fopen(path, "wb");
  if (!f) return false;
  unsigned char* row = static_cast<unsigned char*>(malloc(1 + 3 * (size_t)width));
  unsigned char* out = static_cast<unsigned char*>(malloc(kChunkBytes));
  unsigned char header[13];
  put_be32(header, width);
  put_be32(header + 4, height);
  /* 8 bits a channel, colour type 2 (RGB), deflate, filter 0, no interlace */
  memcpy(header + 8, "\x08\x02\x00\x00\x00", 5);
  bool ok = row && out && fwrite("\x89PNG\r\n\x1a\n", 1, 8, f) == 8 &&
            write_chunk(f, "IHDR", header, 13) &&
            write_rows(f, pixels, width, height, bytes_per_row, bits_per_pixel, row, out) &&
            write_chunk(f, "IEND", nullptr, 0);
  free(row);
  free(out);
  return fclose(f) == 0 && ok;
}
