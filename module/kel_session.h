/*
 * kel_session.h -- the session record behind the flat calls, the module's
 * process-wide state, and the internal helpers the flat calls share.
 */
#ifndef KEL_SESSION_H
#define KEL_SESSION_H

#include <stdint.h>
#include <stdio.h>

#include "compound/doc_prop.h"
#include "foundation/kel_geometry.h"
#include "platform/zuv_platform.h"
#include "tabulon.h"
#include "view/kel_draw_params.h"
#include "view/kel_table.h"

struct xls_file;
struct xls_sheet_t;
struct xls_locale;

/* A destination of the host's: the sheet body or one heading strip. */
struct kel_buffer_t {
  int32_t format; /* 0: 32-bit pixels, otherwise 16-bit */
  void* pixels;
  int32_t width;
  int32_t height;
};


struct kel_file {
  const xls_locale* locale;     /* the shared g_os_locale; not owned */
  FILE* stream;
  xls_file* workbook;
  kel_buffer_t main_buffer;
  kel_buffer_t column_buffer;
  kel_buffer_t row_buffer;
  int32_t dpi;
  kel_draw_table_params_t draw; /* view, canvas, pixels, resolution, fonts */
  char* font_path;              /* UTF-8 */
  DRGBValue find_highlight;
  unsigned short* find_text;
  region* found_regions;        /* grown with realloc */
  int32_t found_count;
  doc_props_t* summary;
  int32_t selection_sheet;
  kel_selection_highlight_t selection;
};

/* Process-wide state.  g_dbg_ref is the life count of the module: 0 until
 * the first open, 1 when ready with no session, 1 + n with n sessions. */
extern int g_dbg_ref;
extern xls_locale* g_os_locale;

/* The heading painter's state, shared by all sessions: the scroll offsets of
 * the paint in progress, its canvas, the gradient picture, and canvases of
 * the picture scaled to heading sizes, most recently used first. */
enum { KEL_LABEL_CACHE_SLOTS = 6 };
struct kel_label_canvas_t {
  ICanvas* canvas;
  int32_t width;
  int32_t height;
};
struct kel_draw_label_info_t {
  int32_t offset_x;
  int32_t offset_y;
  ICanvas* canvas;
  VFileStream* gradient_stream;
  VFile* gradient_file;
  int32_t count;
  kel_label_canvas_t slots[KEL_LABEL_CACHE_SLOTS];
};
extern kel_draw_label_info_t g_draw_label_info;

/* The heading painter that sessions give their tables: the gradient picture
 * scaled to the heading, its text letterspaced by a pixel, a grey separator.
 * context is the kel_draw_label_info_t. */
uint32_t draw_label(void* context, KELState* state, const rect_t& visible,
                    const unsigned short* text, bool selected, const rect_t& full);

/* Makes what the session lacks of view, font manager and canvas, and sets
 * the zoom from the dpi.  Run at open and after every change of geometry. */
uint32_t init_on_demand(kel_file* file);

/* The sheet of index, made active if it isn't; null for a bad index or a
 * null session. */
xls_sheet_t* set_current_sheet(kel_file* file, int sheet);

/* Copies text out by the flat calls' rule: the smaller of capacity - 1 and
 * the length, then a terminator; *needed, if given, gets length + 1; a null
 * buffer only asks for the size. */
void kel_copy_text_out(const unsigned short* text, uint32_t length,
                       unsigned short* buffer, int capacity, int* needed);
/* The same for a platform string, converted to wide form first. */
uint32_t vstr_to_buffer(VString& text, unsigned short* buffer, int capacity,
                        int* needed);

/* Copies a rectangle of the session's canvas into a tightly packed
 * destination of dest_width pixels a row, at most dest_height rows. */
void copy_rect(kel_file* file, int x, int y, int width, int height,
               int dest_width, int dest_height, void* destination);

/* Splits a path into its folder (with the trailing slash), name and
 * extension (without the dot); any result may be null and each must hold
 * the path's length + 1 bytes. */
uint32_t SplitPath(const char* path, char* directory, char* name,
                   char* extension);

#endif /* KEL_SESSION_H */
