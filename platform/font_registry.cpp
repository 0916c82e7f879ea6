/*
 * font_registry.cpp -- the loaded faces, and how a request picks one.
 */
#include "font_registry.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <cairo-ft.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

#include "zuv_platform.h"

struct font_entry {
  char* path;
  long index;                  /* face within the file */
  uint32_t users;              /* references of font managers */
  FT_Face face;                /* owned by faces[0] */
  cairo_font_face_t* faces[4]; /* by CAIRO_FT_SYNTHESIZE_ bits */
  bool bold, italic;
  int weight, width;           /* OS/2 classes: 400 regular, 5 normal width */
};

namespace {

struct registry {
  font_entry** entries;
  uint32_t count, capacity;
  uint32_t generation;
};

registry g_registry;
FT_Library g_library;
uint32_t g_open_faces;  /* the library is closed with the last face */
const cairo_user_data_key_t kFaceKey = {0};

/* Families that stand for a kind of face, best first: the metric-compatible
 * ones first, so that text set for the device's faces keeps its widths. */
const char* const kSansFamilies[] = {"Liberation Sans", "Arimo", "Arial", "Helvetica",
                                     "DejaVu Sans", "FreeSans", nullptr};
const char* const kSerifFamilies[] = {"Liberation Serif", "Tinos", "Times New Roman",
                                      "Times", "DejaVu Serif", "FreeSerif", nullptr};
const char* const kMonoFamilies[] = {"Liberation Mono", "Cousine", "Courier New", "Courier",
                                     "DejaVu Sans Mono", "FreeMono", nullptr};

/* Names that aren't installed families but stand for a kind: the device's
 * faces (matched to faces of the same metrics) and common families. */
struct alias {
  const char* name;
  int family;
};
const alias kAliases[] = {
    {"Albany MT", kFamilySans},          {"Thorndale MT", kFamilySerif},
    {"Cumberland MT", kFamilyMono},      {"Coconut-Medium", kFamilySans},
    {"YingyDingSpecial", kFamilySymbol}, {"Symbol AT", kFamilySymbol},
    {"Arial", kFamilySans},              {"Helvetica", kFamilySans},
    {"Times New Roman", kFamilySerif},   {"Times", kFamilySerif},
    {"Courier New", kFamilyMono},        {"Courier", kFamilyMono},
    {"Symbol", kFamilySymbol},           {"Wingdings", kFamilySymbol},
};

void close_face(void* face) {
  FT_Done_Face(static_cast<FT_Face>(face));
  if (--g_open_faces == 0) {
    FT_Done_FreeType(g_library);
    g_library = nullptr;
  }
}

FT_Face open_face(const char* path, long index) {
  if (!g_library && FT_Init_FreeType(&g_library) != 0) return nullptr;
  FT_Face face;
  if (FT_New_Face(g_library, path, index, &face) != 0) {
    face = nullptr;
  } else {
    ++g_open_faces;
  }
  if (g_open_faces == 0) {
    FT_Done_FreeType(g_library);
    g_library = nullptr;
  }
  return face;
}

/* cairo's face over the FreeType face, which it then owns.  cairo shares one
 * face per FreeType face and options, so each synthesized variant needs a
 * FreeType face of its own. */
cairo_font_face_t* wrap_face(FT_Face face, int synthesize) {
  cairo_font_face_t* wrapped = cairo_ft_font_face_create_for_ft_face(face, 0);
  if (cairo_font_face_status(wrapped) != CAIRO_STATUS_SUCCESS ||
      cairo_font_face_set_user_data(wrapped, &kFaceKey, face, close_face) !=
          CAIRO_STATUS_SUCCESS) {
    cairo_font_face_destroy(wrapped);
    close_face(face);
    return nullptr;
  }
  if (synthesize) cairo_ft_font_face_set_synthesize(wrapped, synthesize);
  return wrapped;
}

bool grow(font_entry*** items, uint32_t count, uint32_t* capacity, uint32_t more) {
  if (count + more <= *capacity) return true;
  uint32_t wanted = (count + more) * 2;
  void* bigger = realloc(*items, wanted * sizeof **items);
  if (!bigger) return false;
  *items = static_cast<font_entry**>(bigger);
  *capacity = wanted;
  return true;
}

bool usable(FT_Face face) {
  return FT_IS_SCALABLE(face) && face->family_name &&
         FT_Select_Charmap(face, FT_ENCODING_UNICODE) == 0;
}

/* A new entry for the face, which it takes over; null (face closed) if
 * memory fails. */
font_entry* make_entry(const char* path, long index, FT_Face face) {
  font_entry* entry = static_cast<font_entry*>(calloc(1, sizeof *entry));
  char* copy = strdup(path);
  cairo_font_face_t* wrapped = entry && copy ? wrap_face(face, 0) : nullptr;
  if (!wrapped) {
    if (!entry || !copy) close_face(face);
    free(copy);
    free(entry);
    return nullptr;
  }
  entry->path = copy;
  entry->index = index;
  entry->users = 1;
  entry->face = face;
  entry->faces[0] = wrapped;
  entry->bold = (face->style_flags & FT_STYLE_FLAG_BOLD) != 0;
  entry->italic = (face->style_flags & FT_STYLE_FLAG_ITALIC) != 0;
  TT_OS2* os2 = static_cast<TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
  entry->weight = os2 && os2->usWeightClass ? os2->usWeightClass : (entry->bold ? 700 : 400);
  entry->width = os2 && os2->usWidthClass ? os2->usWidthClass : 5;
  return entry;
}

void free_entry(font_entry* entry) {
  /* The FreeType faces close when cairo lets go of these. */
  for (cairo_font_face_t* face : entry->faces) cairo_font_face_destroy(face);
  free(entry->path);
  free(entry);
}

bool contains_ignoring_case(const char* text, const char* part) {
  size_t n = strlen(part);
  for (; *text; ++text)
    if (strncasecmp(text, part, n) == 0) return true;
  return false;
}

/* How badly a face fits the style: one with a style that wasn't asked costs
 * more than one lacking an asked style (that can be synthesized); then the
 * weight and width furthest from plain. */
int style_cost(const font_entry* e, bool bold, bool italic) {
  int cost = abs(e->weight - (bold ? 700 : 400)) / 10 + abs(e->width - 5) * 10;
  if (e->bold != bold) cost += e->bold ? 1000 : 100;
  if (e->italic != italic) cost += e->italic ? 1000 : 100;
  return cost;
}

/* The face of the family that best fits the style; the first of equals. */
font_entry* best_in_family(const char* family, bool bold, bool italic) {
  font_entry* best = nullptr;
  int best_cost = 0;
  for (uint32_t i = 0; i < g_registry.count; ++i) {
    font_entry* e = g_registry.entries[i];
    if (strcasecmp(e->face->family_name, family) != 0) continue;
    int cost = style_cost(e, bold, italic);
    if (!best || cost < best_cost) best = e, best_cost = cost;
  }
  return best;
}

font_entry* first_of(const char* const* families, bool bold, bool italic) {
  for (; *families; ++families)
    if (font_entry* e = best_in_family(*families, bold, italic)) return e;
  return nullptr;
}

font_entry* of_kind(int family, bool bold, bool italic) {
  switch (family) {
    case kFamilyMono: return first_of(kMonoFamilies, bold, italic);
    case kFamilySerif: return first_of(kSerifFamilies, bold, italic);
    case kFamilySymbol:
      for (uint32_t i = 0; i < g_registry.count; ++i) {
        const char* name = g_registry.entries[i]->face->family_name;
        if (contains_ignoring_case(name, "symbol") || contains_ignoring_case(name, "dingbat"))
          return best_in_family(name, bold, italic);
      }
      /* DejaVu Sans holds most symbols and dingbats. */
      return best_in_family("DejaVu Sans", bold, italic);
    default: return first_of(kSansFamilies, bold, italic);
  }
}

void choose(font_entry* entry, bool bold, bool italic, font_choice* choice) {
  choice->entry = entry;
  choice->synthesize = (bold && !entry->bold ? CAIRO_FT_SYNTHESIZE_BOLD : 0) |
                       (italic && !entry->italic ? CAIRO_FT_SYNTHESIZE_OBLIQUE : 0);
}

}  // namespace

uint32_t font_registry_open_file(const char* path, font_entry_list* owned) {
  /* Open already: one more reference on each of its faces. */
  uint32_t known = 0;
  for (uint32_t i = 0; i < g_registry.count; ++i)
    if (strcmp(g_registry.entries[i]->path, path) == 0) ++known;
  if (known) {
    if (!grow(&owned->items, owned->count, &owned->capacity, known)) return KEL_ERR_OUT_OF_MEMORY;
    for (uint32_t i = 0; i < g_registry.count; ++i) {
      font_entry* e = g_registry.entries[i];
      if (strcmp(e->path, path) == 0) ++e->users, owned->items[owned->count++] = e;
    }
    return 0;
  }
  FT_Face face = open_face(path, 0);
  if (!face) return 0;
  long faces = face->num_faces;
  for (long index = 0; index < faces; ++index) {
    if (index > 0 && !(face = open_face(path, index))) continue;
    if (!usable(face)) {
      close_face(face);
      continue;
    }
    if (!grow(&g_registry.entries, g_registry.count, &g_registry.capacity, 1) ||
        !grow(&owned->items, owned->count, &owned->capacity, 1)) {
      close_face(face);
      return KEL_ERR_OUT_OF_MEMORY;
    }
    font_entry* entry = make_entry(path, index, face);
    if (!entry) return KEL_ERR_OUT_OF_MEMORY;
    g_registry.entries[g_registry.count++] = entry;
    owned->items[owned->count++] = entry;
    ++g_registry.generation;
  }
  return 0;
}

void font_registry_drop_all(font_entry_list* owned) {
  for (uint32_t i = 0; i < owned->count; ++i) {
    font_entry* entry = owned->items[i];
    if (--entry->users) continue;
    for (uint32_t j = 0; j < g_registry.count; ++j) {
      if (g_registry.entries[j] != entry) continue;
      /* Kept in load order, which decides between equal faces. */
      memmove(g_registry.entries + j, g_registry.entries + j + 1,
              (g_registry.count - j - 1) * sizeof *g_registry.entries);
      --g_registry.count;
      break;
    }
    free_entry(entry);
    ++g_registry.generation;
  }
  free(owned->items);
  *owned = font_entry_list{nullptr, 0, 0};
  if (g_registry.count == 0) {
    free(g_registry.entries);
    g_registry.entries = nullptr;
    g_registry.capacity = 0;
  }
}

uint32_t font_registry_generation() { return g_registry.generation; }

bool font_registry_match(const char* name, int family, bool bold, bool italic,
                         font_choice* choice) {
  if (g_registry.count == 0) return false;
  font_entry* entry = nullptr;
  if (name && *name) {
    entry = best_in_family(name, bold, italic);
    for (const alias& a : kAliases)
      if (!entry && strcasecmp(a.name, name) == 0) entry = of_kind(a.family, bold, italic);
  }
  if (!entry) entry = of_kind(family, bold, italic);
  if (!entry) entry = of_kind(kFamilySans, bold, italic);
  if (!entry) entry = best_in_family(g_registry.entries[0]->face->family_name, bold, italic);
  choose(entry, bold, italic, choice);
  return true;
}

bool font_registry_find_glyph(uint16_t unit, bool bold, bool italic,
                              font_choice* choice) {
  font_entry* best = nullptr;
  int best_cost = 0;
  for (uint32_t i = 0; i < g_registry.count; ++i) {
    font_entry* e = g_registry.entries[i];
    int cost = style_cost(e, bold, italic);
    if ((!best || cost < best_cost) && FT_Get_Char_Index(e->face, unit)) best = e, best_cost = cost;
  }
  if (best) choose(best, bold, italic, choice);
  return best != nullptr;
}

uint32_t font_entry_glyph_index(const font_entry* entry, uint16_t unit) {
  return FT_Get_Char_Index(entry->face, unit);
}

cairo_font_face_t* font_entry_cairo_face(font_entry* entry, int synthesize) {
  cairo_font_face_t** slot = &entry->faces[synthesize & 3];
  if (!*slot) {
    FT_Face face = open_face(entry->path, entry->index);
    if (face && FT_Select_Charmap(face, FT_ENCODING_UNICODE) == 0) {
      *slot = wrap_face(face, synthesize);
    } else if (face) {
      close_face(face);
    }
  }
  return *slot;
}
