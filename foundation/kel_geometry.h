/*
 * kel_geometry.h -- the plain rectangle and cell types that the workbook, the
 * view and the front end share.  All fields are 32-bit signed.
 */
#ifndef KEL_GEOMETRY_H
#define KEL_GEOMETRY_H

#include <stdint.h>

/* Right and bottom are exclusive in cell extents. */
struct rect_t {
  int32_t left, top, right, bottom;
};

struct cell_t {
  int32_t row, col;
};

struct cell_rect_t {
  int32_t top_row, left_col, bottom_row, right_col;
};

#endif /* KEL_GEOMETRY_H */
