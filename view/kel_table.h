/*
 * kel_table.h -- the view of a sheet: its geometry, its panes and its paint.
 *
 * KELTable is one view; KELState holds what its panes share (the workbook,
 * the resolution and zoom, the highlights, the heading painter) and is the
 * drawing layer too (CPortableTableDraw); KELPane is one scrolled rectangle.
 *
 * Units.  The workbook keeps column widths and row heights in twips (1/20
 * point).  "Sheet pixels" count from the top left of cell A1 at the current
 * zoom; every pixel position is worked out afresh from the cumulative twips,
 * so that rounding never adds up along a row.  "View pixels" are those of the
 * canvas: sheet pixels less the pane's offset, plus the pane's place and the
 * heading sizes.  The view works at 72 dpi; the viewer's resolution reaches
 * it as a zoom percentage.
 *
 * A paint walks the rows and cells on screen and reads each cell from the
 * workbook: nothing is kept between paints but the rubber line of a drag.
 * The sheet is always one pane (pane 3): frozen panes stay in the file but
 * do not divide the view.  Panes 0 to 2 keep zero rectangles, and the
 * geometry is written for four panes so that they may be used one day.
 */
#ifndef KEL_TABLE_H
#define KEL_TABLE_H

#include <stdint.h>

#include "foundation/kel_geometry.h"
#include "platform/zuv_platform.h"
#include "view/kel_draw_params.h"
#include "view/zuv_font_emulation.h"

struct xls_file;
struct xls_sheet_t;
struct xls_locale;
struct xls_note_t;
struct xls_simple_array;
struct kel_find_highlight_t;
class KELState;

/* Directions of the keyboard helpers. */
enum direction_t { KEL_DIR_UP = 0, KEL_DIR_DOWN = 1, KEL_DIR_LEFT = 2, KEL_DIR_RIGHT = 3 };

/* KELPane.flags */
enum { KEL_PANE_NO_ROW_LABELS = 1, KEL_PANE_NO_COLUMN_LABELS = 2 };

/* KELTable.mode: 1 while a heading is dragged (only the rubber line is
 * painted), 2 otherwise. */
enum { KEL_MODE_DRAG = 1, KEL_MODE_NORMAL = 2 };

/* The selection highlight: the selected cells, then the colour that the
 * paint fills them with. */
struct kel_selection_highlight_t {
  cell_rect_t cells;
  DRGBValue colour;
};

/* Colours of the paint. */
extern const DRGBValue kel_white;       /* ground of the table */
extern const DRGBValue kel_black;       /* label lines and text, note frame */
extern const DRGBValue kel_grey;        /* gridlines */
extern const DRGBValue kel_label_face;  /* fill of plain labels */
extern const DRGBValue kel_note_fill;
extern const DRGBValue kel_note_text;   /* note text and frame */
extern const DRGBValue kel_note_line;   /* leader from the cell to the note */

/* The heading painter that a host may put in place of the plain labels:
 * called once per visible heading with the rectangles of KELPane::draw_label.
 * Its status is not looked at. */
typedef uint32_t (*kel_label_painter_fn)(void* context, KELState* state,
                                         const rect_t& visible,
                                         const unsigned short* text, bool selected,
                                         const rect_t& full);

/* ---- Drawing layer ------------------------------------------------------- */

/* Draws into the target of the draw parameters: the canvas, or its pixels
 * directly where that is faster.  Every coordinate given has the origin
 * added.  Failures of the platform come back as its status. */
class CPortableTableDraw {
 public:
  kel_draw_table_params_t* params;
  int32_t origin_x, origin_y;

  void set_origin(int32_t x, int32_t y);
  /* A filled rectangle; negative x or y are raised to 0 with the size
   * reduced; clip (target coordinates, may be null) is intersected; an
   * empty rectangle draws nothing. */
  uint32_t draw_rect(int32_t x, int32_t y, int32_t width, int32_t height,
                     const DRGBValue* colour, const DRect* clip);
  /* Inverts the pixels of a rectangle, clamped as draw_rect. */
  uint32_t draw_rect_xor(int32_t x, int32_t y, int32_t width, int32_t height);
  /* A line of the given pen width, each end clamped into clip. */
  uint32_t draw_line(int32_t x1, int32_t y1, int32_t x2, int32_t y2, int32_t width,
                     const DRGBValue* colour, const DRect* clip);
  /* A frame whose right and bottom are 2 pixels thick; for origin (0, 0)
   * only, as each side adds the origin again. */
  uint32_t draw_empty_rect_with_shadow(int32_t x, int32_t y, int32_t width,
                                       int32_t height, const DRGBValue* colour,
                                       const DRect* clip);

  /* One glyph of face at size pixels with its origin at *x and baseline at
   * y; *x moves on by its advance. */
  uint32_t draw_glyph(unsigned face, int32_t size, unsigned short glyph,
                      const DRGBValue* colour, int32_t* x, int32_t y, const DRect* clip);
  /* The same turned to run upwards, through the glyph cache only; *y moves
   * up by the advance. */
  uint32_t draw_glyph_vertical(unsigned face, int32_t size, unsigned short glyph,
                               const DRGBValue* colour, int32_t x, int32_t* y,
                               const DRect* clip);
  /* A terminated text from point, with the pen pulled back to the built-in
   * metrics as it goes; font_height in twips, size in pixels. */
  uint32_t draw_string(const unsigned short* text, unsigned face, int32_t size,
                       const DRGBValue* colour, const DPoint* point, const DRect* clip,
                       KELState* state, unsigned short font_height);
  uint32_t draw_string_vertical(const unsigned short* text, unsigned face, int32_t size,
                                const DRGBValue* colour, const DPoint* point,
                                const DRect* clip, KELState* state,
                                unsigned short font_height);
  /* Draws the line of a note's text (face 4, terminated) that starts at
   * *position and fits width pixels, and moves *position past it. */
  uint32_t draw_word_wrapped_text_line(const unsigned short* text, unsigned* position,
                                       int32_t x, int32_t y, unsigned width,
                                       const fe_info* info, unsigned font_height,
                                       const DRect* clip, const DRGBValue* colour,
                                       KELState* state);
};

/* ---- What the panes share ------------------------------------------------ */

class KELState : public CPortableTableDraw {
 public:
  IKELScrollBarEvent* horizontal_bar;   /* may be null */
  IKELScrollBarEvent* vertical_bar;
  xls_file* workbook;                   /* not owned */
  uint32_t sheet_width;   /* pixels to the right of column 255 */
  uint32_t sheet_height;  /* pixels to the bottom of row 65535 */
  uint32_t horizontal_dpi, vertical_dpi;
  uint32_t zoom_percentage;
  bool labels_hidden;
  const kel_find_highlight_t* find_highlight;            /* null: none */
  const kel_selection_highlight_t* selection_highlight;  /* null: none */
  void* label_context;
  kel_label_painter_fn label_painter;   /* null: plain labels */

  /* All unsigned, each division truncating; products in 64 bits, results
   * their low 32 bits. */
  uint32_t zoom(uint32_t value) const;
  uint32_t reverse_zoom(uint32_t value) const;
  uint32_t horizontal_twips_to_pixels(uint32_t twips) const;
  uint32_t vertical_twips_to_pixels(uint32_t twips) const;
  uint32_t horizontal_pixels_to_twips(uint32_t pixels) const;
  uint32_t vertical_pixels_to_twips(uint32_t pixels) const;
  /* Pixels of a text of units (1/2048 em, em of the face) at font_height
   * twips, and the pixel size of that font. */
  int32_t text_pixels(int32_t units, int32_t font_height, int32_t em) const;
  int32_t font_pixels(int32_t font_height) const;

  /* Heading sizes: 0 when labels are hidden. */
  int32_t get_label_col0_width() const;
  int32_t get_label_row0_height() const;
  /* Sheet pixels of a column's or row's edges, of the active sheet; either
   * pointer may be null.  Hidden ones have no extent. */
  void horizontal_col_pos(uint32_t col, int32_t* left, int32_t* right) const;
  void vertical_row_pos(uint32_t row, int32_t* top, int32_t* bottom) const;
  uint32_t get_next_visible_row(uint32_t row) const;
  uint32_t get_next_visible_col(uint32_t col) const;

  xls_sheet_t* active_sheet() const;
};

/* ---- One scrolled rectangle ---------------------------------------------- */

class KELPane {
 public:
  const xls_locale* locale;
  KELState* state;
  uint32_t flags;           /* KEL_PANE_ */
  int32_t index;            /* 0 top left, 1 bottom left, 2 top right, 3 bottom right */
  rect_t rect;              /* view pixels, labels included */
  int32_t offset_x, offset_y;  /* the sheet pixel at the content's origin */
  xls_note_t* active_note;  /* owned, may be null */
  rect_t outer;             /* the table's rectangle at the last set */

  void set(const rect_t& outer_rect, const rect_t& pane_rect, int32_t x, int32_t y,
           uint32_t pane_flags);
  void move_offset(int32_t x, int32_t y);
  /* Both edges inside. */
  bool pt_to_pane(int32_t x, int32_t y) const;
  rect_t content_rectangle() const;
  int32_t label_width() const;   /* 0 with KEL_PANE_NO_ROW_LABELS */
  int32_t label_height() const;  /* 0 with KEL_PANE_NO_COLUMN_LABELS */
  /* Sheet-space extent to view coordinates. */
  void set_draw_area(rect_t* out, int32_t left, int32_t top, int32_t right,
                     int32_t bottom) const;
  /* The pixel extent of a cell, widened over the merge whose top left it
   * is; 0 for a cell covered by a merge, which paints nothing.  merged
   * holds xls_orange entries. */
  int get_merged_cell_extents(const cell_t* cell, const xls_simple_array* merged,
                              int32_t* left, int32_t* right, int32_t* top,
                              int32_t* bottom) const;

  void init_active_cell_note();
  bool has_active_cell_note() const;
  void set_active_cell_note(xls_note_t* note);  /* frees the old one */
  void free_active_cell_note();

  /* Painting. */
  void pane_render();
  uint32_t draw_cell_background(xls_sheet_t* sheet, const cell_t& cell, const rect_t& area,
                                bool invert, bool force);
  uint32_t draw_cell_content(xls_sheet_t* sheet, const cell_t& cell, const rect_t& text_area,
                             const rect_t& cell_area, const DRect* clip);
  /* Widens a string's extent over empty neighbours that its text runs
   * into, painting their backgrounds; *skip counts the columns taken on
   * the right. */
  void check_string_extents(cell_t* cell, int32_t* left, int32_t* right, int32_t top,
                            int32_t bottom, int32_t* skip);
  void draw_label(const rect_t& visible, const unsigned short* text, bool selected,
                  const rect_t& full);
  void draw_label_text(KELState* drawing, const rect_t& r, const unsigned short* text,
                       bool selected);
  void draw_active_cell_note();
  /* sides: 1 top, 2 bottom, 4 left, 8 right. */
  uint32_t draw_select_cell_border(xls_sheet_t* sheet, const cell_t& cell, const rect_t& area,
                                   int sides);
};

/* ---- The view ------------------------------------------------------------ */

class KELTable {
 public:
  KELPane panes[4];
  int32_t dragger_position;           /* rubber line; -1 none */
  int32_t dragger_previous_position;
  bool chart_view_enabled;
  KELState state;
  rect_t table_rect;                  /* where the view paints in the canvas */
  int32_t mode;                       /* KEL_MODE_ */
  bool dragging_row;                  /* a row heading, else a column one */
  bool selecting;                     /* a selection is being dragged */
  int32_t active_pane;                /* always 3 */
  int32_t frozen_width, frozen_height;  /* always 0 */
  int32_t embedded_chart;             /* -1 none */

  /* Allocate with the non-throwing new. */
  explicit KELTable(const xls_locale* locale);
  virtual ~KELTable();
  KELTable(const KELTable&) = delete;
  KELTable& operator=(const KELTable&) = delete;

  void set_workbook(xls_file* workbook);
  void set_rect(int32_t left, int32_t top, int32_t right, int32_t bottom);
  void set_dpi(uint32_t horizontal, uint32_t vertical);
  void set_zoom_percentage(uint32_t percent);
  void hide_labels(bool hidden);
  void set_scrollbar_callbacks(IKELScrollBarEvent* horizontal, IKELScrollBarEvent* vertical);
  void set_embedded_chart_display(int32_t chart);
  int32_t get_embedded_chart_display() const;
  bool is_displaying_chart() const;
  void update_panes();
  void update_scrollbars();
  void update_cache_on_sheet_change();
  void fill_cache();
  void update_after_command();
  /* Stores the selection in the sheet, widened over merged cells. */
  void sel_set(uint32_t first_col, uint32_t first_row, uint32_t last_col, uint32_t last_row);

  /* (-1, anything) or (anything, -1): the heading rectangle. */
  rect_t cell_to_coord(int32_t col, int32_t row) const;
  /* Sheet pixels to a cell; 256 and 65536 stand for beyond the sheet. */
  cell_t coord_to_cell(uint32_t x, uint32_t y) const;
  /* KEL_ERR_GENERAL past column 255 or row 65535. */
  uint32_t pixel_to_cell(int32_t x, int32_t y, unsigned short* col, unsigned short* row) const;
  rect_t cell_rect(const cell_t& cell) const;
  void center_of_cell(int32_t col, int32_t row, uint32_t* x, uint32_t* y) const;
  int32_t get_row_height(uint32_t row) const;
  int32_t get_col_width(uint32_t col) const;
  uint32_t set_row_height(uint32_t row, uint32_t pixels);
  uint32_t set_col_width(uint32_t col, uint32_t pixels);
  void move_offset(int32_t x, int32_t y);
  void dimension_sheet_size(uint32_t* width, uint32_t* height) const;
  void get_dimension_of_visible_cells(uint32_t* cols, uint32_t* rows) const;
  void get_content_size(const cell_t& cell, int32_t* width, int32_t* height,
                        const xls_locale* locale) const;
  int32_t vertical_split_col() const;
  int32_t horizontal_split_row() const;
  int label_row_to_coord_if_visible(uint32_t row, rect_t* r) const;
  int label_col_to_coord_if_visible(uint32_t col, rect_t* r) const;
  void jump_over_merged_cells(unsigned char* col, unsigned short* row, direction_t direction) const;
  void move_to_next_visible_row(cell_rect_t* rect, direction_t direction) const;
  void move_to_next_visible_col(cell_rect_t* rect, direction_t direction) const;

  /* Painting. */
  void set_draw_callbacks(kel_draw_table_params_t* params);
  void table_render();
};

/* Paints the view of params->table into params' target at params' zoom.
 * Returns 0: an error inside a pane only ends that pane's paint. */
uint32_t kel_draw_table(kel_draw_table_params_t* params);

#endif /* KEL_TABLE_H */
