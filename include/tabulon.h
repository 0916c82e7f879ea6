/*
 * tabulon.h -- the flat interface of TabulonModule.so.
 *
 * A host opens a workbook (.xls, .xlsx, .xlsm) as a session, tells the engine
 * where pixels go, and asks about sheets and the document.  Every call but
 * kel_close_file, kel_release_memory and kel_get_version takes the session
 * first; all return a status of kel_status.h, 0 meaning success.  A null
 * session gives KEL_ERR_INVALID_ARGUMENT.
 *
 * Text is zero-terminated UTF-16 (unsigned short units).  A call that copies
 * text out takes (buffer, capacity, needed): it copies at most capacity - 1
 * characters and a terminator, and stores the full length plus 1 in *needed;
 * a null buffer only asks for the size.
 *
 * The module is not re-entrant: calls, on one session or on several, must not
 * overlap.
 */
#ifndef TABULON_H
#define TABULON_H

#include "kel_status.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KEL_API __attribute__((visibility("default")))
#else
#define KEL_API
#endif

typedef struct kel_file kel_file;

/* A rectangle of a sheet in pixels at the session's zoom, counted from the
 * top left of cell A1 with the headings left out. */
typedef struct region {
  int sheet, x, y, width, height;
} region;

/* Opens the workbook at path.  password may be null (a protected workbook
 * without one is tried with the default password of the format); font_path
 * is the folder of the device's fonts; reserved is never read.  On success
 * *handle is the session; on failure it is null. */
KEL_API unsigned kel_open_file(const unsigned short* path,
                          const unsigned short* password,
                          const unsigned short* font_path, void* reserved,
                          kel_file** handle);
/* Closes the session and nulls *handle; safe with *handle null. */
KEL_API void kel_close_file(kel_file** handle);

/* The viewer's resolution; 72 at open.  The view zooms to dpi / 72. */
KEL_API unsigned kel_set_dpi(kel_file* file, int dpi);
/* The host's destinations of a paint: the sheet body, the column heading
 * strip and the row heading strip.  format 0 is 32-bit 0xAARRGGBB pixels,
 * anything else 16-bit RGB565; rows are packed tightly (width pixels). */
KEL_API unsigned kel_set_offscreen_buffer(kel_file* file, int format, void* pixels,
                                     int width, int height);
KEL_API unsigned kel_set_column_offscreen_buffer(kel_file* file, int format,
                                            void* pixels, int width,
                                            int height);
KEL_API unsigned kel_set_row_offscreen_buffer(kel_file* file, int format,
                                         void* pixels, int width, int height);

KEL_API unsigned kel_get_sheet_count(kel_file* file, int* count);
/* The sheet's used extent in pixels at the session's zoom; either pointer
 * may be null.  The sheet becomes the current one. */
KEL_API unsigned kel_get_sheet_dimensions(kel_file* file, int sheet, int* width,
                                          int* height);
/* The last used column of the sheet, plus 1. */
KEL_API unsigned kel_get_column_count(kel_file* file, int sheet, int* count);
KEL_API unsigned kel_get_sheet_title(kel_file* file, int sheet,
                                unsigned short* buffer, int capacity,
                                int* needed);

/* The document's properties, as the file states them. */
KEL_API unsigned kel_get_document_name(kel_file* file, unsigned short* buffer,
                                  int capacity, int* needed);
KEL_API unsigned kel_get_document_author(kel_file* file, unsigned short* buffer,
                                    int capacity, int* needed);
KEL_API unsigned kel_get_document_description(kel_file* file,
                                         unsigned short* buffer, int capacity,
                                         int* needed);
/* Seconds since 1970 (UTC); 0 if the file doesn't say. */
KEL_API unsigned kel_get_document_creation_date(kel_file* file, int* date);
KEL_API unsigned kel_get_document_last_saved_date(kel_file* file, int* date);

/* The module's version ("1.000") and build ("039").  Buffers are cleared
 * first; any pointer may be null. */
KEL_API unsigned kel_get_version(unsigned short* version, int version_capacity,
                            int* version_needed, unsigned short* build,
                            int build_capacity, int* build_needed);
/* Frees nothing: the engine keeps no memory that a host could ask back. */
KEL_API void kel_release_memory(kel_file* file);

/* ---- Painting and what is where --------------------------------------------
 *
 * Positions are sheet pixels at the session's zoom: counted from the top
 * left of cell A1, headings left out.  Each call below makes its sheet the
 * current one; one that gives a pixel position checks it first (not
 * negative, inside the extent of all 256 columns and 65536 rows), else
 * KEL_ERR_OUT_OF_RANGE.  Calls about cells give KEL_ERR_OUT_OF_RANGE on a
 * chart sheet. */

/* 0 if x (y) is a pixel position inside the sheet, else
 * KEL_ERR_OUT_OF_RANGE. */
KEL_API unsigned kel_check_x(kel_file* file, int x);
KEL_API unsigned kel_check_y(kel_file* file, int y);

/* Paints the sheet with the pixel (x, y) at the top left of the body (the
 * view clamps it to the sheet) into the three buffers of
 * kel_set_offscreen_buffer and its siblings: the body, the column heading
 * strip (as wide as its buffer, as high as the headings) and the row heading
 * strip.  A strip whose buffer wasn't given is left out. */
KEL_API unsigned kel_render_sheet(kel_file* file, int sheet, int x, int y);

/* The selection is a highlight of the paint only; the sheet's own stored
 * selection is not touched.  It lasts until cleared or replaced. */
KEL_API unsigned kel_select_cell(kel_file* file, int sheet, int x, int y);
/* The cells from (x, y) to (x + width, y + height), both included. */
KEL_API unsigned kel_select_area(kel_file* file, int sheet, int x, int y, int width,
                                 int height);
/* Whole rows between y1 and y2 (whole columns between x1 and x2); *count,
 * if given, gets the number of them, 0 on failure. */
KEL_API unsigned kel_select_row(kel_file* file, int sheet, int y1, int y2, int* count);
KEL_API unsigned kel_select_column(kel_file* file, int sheet, int x1, int x2, int* count);
KEL_API unsigned kel_clear_selection(kel_file* file);

/* Row and column of the cell at (x, y); 256 or 65536 beyond the sheet. */
KEL_API unsigned kel_get_cell_reference_at_location(kel_file* file, int sheet, int x,
                                                    int y, int* row, int* col);
/* The bounds of the cell at (x, y) in sheet pixels (a merged cell's own, not
 * its merge's); each pointer may be null.  At (-1, -1): the scroll position
 * and the heading sizes. */
KEL_API unsigned kel_cell_bounds(kel_file* file, int sheet, int x, int y, int* out_x,
                                 int* out_y, int* out_width, int* out_height);
/* The note of the cell at (x, y), copied from offset in parts of capacity
 * characters (the terminator counted in the length); *needed gets the full
 * length + 1.  A null buffer only asks for the size.  No note:
 * KEL_ERR_OUT_OF_RANGE, with *needed 1 and an empty buffer. */
KEL_API unsigned kel_get_comment(kel_file* file, int sheet, int x, int y,
                                 unsigned short* buffer, unsigned capacity,
                                 unsigned offset, unsigned* needed);
/* A region for each cell with a note; the caller frees *rects with free(). */
KEL_API unsigned kel_get_comment_marks_rects(kel_file* file, int sheet, region** rects,
                                             int* count);
/* Changes the height of the row at y (the width of the column at x) by delta
 * pixels; a change that would make it negative does nothing. */
KEL_API unsigned kel_resize_row(kel_file* file, int sheet, int y, int delta);
KEL_API unsigned kel_resize_column(kel_file* file, int sheet, int x, int delta);
/* Makes the column at x as wide as its widest cell; an empty column keeps its
 * width. */
KEL_API unsigned kel_autofit_column(kel_file* file, int sheet, int x);

/* The colour (three bytes: red, green, blue) of the find and selection
 * highlights, from the next paint on. */
KEL_API unsigned kel_set_highlight_color(kel_file* file, const unsigned char* rgb);
/* The regions of the last find; the array stays the session's. */
KEL_API unsigned kel_get_found_regions(kel_file* file, int* count,
                                  region** regions);

#ifdef __cplusplus
}
#endif

#endif /* TABULON_H */
