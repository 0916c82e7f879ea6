/*
 * font_registry.h -- the faces loaded in this process, shared by every font
 * manager and canvas.
 *
 * The class factory makes canvases without a font manager, yet a canvas must
 * draw with the fonts that the host's font manager loaded.  So the faces live
 * here: a font manager adds the faces of its folder and drops them when it is
 * released (a file loaded by two managers is opened once and counted), and a
 * canvas resolves its font requests against whatever is loaded.  A canvas
 * notices faces coming and going by the generation number.
 *
 * A face lives as long as cairo holds it: an entry's cairo face owns the
 * FreeType face, which is closed when cairo drops the last scaled font made
 * from it, even after the entry has gone.  Single-threaded, as is the engine.
 */
#ifndef FONT_REGISTRY_H
#define FONT_REGISTRY_H

#include <stdint.h>

#include <cairo.h>

struct font_entry;

/* The entries that one owner (a font manager) holds a reference on. */
struct font_entry_list {
  font_entry** items;
  uint32_t count, capacity;
};

/* A face chosen for a request: the entry and the styles cairo must
 * synthesize because the family has no file for them (CAIRO_FT_SYNTHESIZE_
 * bits). */
struct font_choice {
  font_entry* entry;
  int synthesize;
};

/* Opens the scalable Unicode faces of the font file (every face of a
 * collection), or takes one more reference on them if they are open, and
 * appends them to owned.  A file that holds no usable face adds nothing and
 * is no failure; KEL_ERR_OUT_OF_MEMORY is. */
uint32_t font_registry_open_file(const char* path, font_entry_list* owned);
/* Gives back every reference of the list and empties it. */
void font_registry_drop_all(font_entry_list* owned);

/* Changes whenever an entry comes or goes; entries a caller remembers are
 * valid only while it stays the same. */
uint32_t font_registry_generation();

/* The face for a request: the family of that name if loaded, else what the
 * name stands for (a device face or a well-known family), else the family
 * code's kind (DFontFamily), else the sans face, else any.  name may be null
 * or "".  false if no face is loaded. */
bool font_registry_match(const char* name, int family, bool bold, bool italic,
                         font_choice* choice);

/* The loaded face that has the character and best fits the style (the
 * first of equals, in load order); false if none has it. */
bool font_registry_find_glyph(uint16_t unit, bool bold, bool italic,
                              font_choice* choice);

/* The glyph index of the character in the entry's face; 0 if it has none. */
uint32_t font_entry_glyph_index(const font_entry* entry, uint16_t unit);

/* cairo's face for the entry with those synthesized styles, made on first
 * use and owned by the entry; null if it can't be made. */
cairo_font_face_t* font_entry_cairo_face(font_entry* entry, int synthesize);

#endif /* FONT_REGISTRY_H */
