/*
 * png_file.h -- writing canvas pixels to a PNG file, for the reference host
 * and the tests to show what was drawn.  Needs zlib only, so that it serves
 * the cross build too, where there is no cairo.
 */
#ifndef PNG_FILE_H
#define PNG_FILE_H

#include <stdint.h>

/* Writes rows of bytes_per_row bytes, top row first, of 16-bit RGB565 or
 * 32-bit 0xAARRGGBB pixels (native byte order, alpha ignored) as an 8-bit
 * RGB PNG.  False if the arguments are bad or the file can't be written. */
bool png_write_file(const char* path, const unsigned char* pixels, uint32_t width,
                    uint32_t height, uint32_t bytes_per_row, int bits_per_pixel);

#endif /* PNG_FILE_H */
