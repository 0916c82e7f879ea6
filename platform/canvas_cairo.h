/*
 * canvas_cairo.h -- making the canvas of this platform: a cairo image
 * surface in the engine's pixel formats.
 */
#ifndef CANVAS_CAIRO_H
#define CANVAS_CAIRO_H

#include <stdint.h>

#include "zuv_platform.h"

/* A canvas of width x height pixels (either may be 0), all white, with the
 * initial state that ICanvas describes; 16 or 32 bits per pixel.  Released
 * through its Release. */
uint32_t canvas_cairo_create(int32_t width, int32_t height, int bits_per_pixel,
                             DCanvasMVCairo** result);

#endif /* CANVAS_CAIRO_H */
