/*
 * xls_format_parse.cpp -- splitting a format into its two sections, with
 * the flags and the colour of each.
 */
#include <stdlib.h>
#include <string.h>

#include "foundation/zuv_uni_string.h"
#include "format/xls_number_format.h"

const xls_colour_name_t xls_colour_names[XLS_COLOUR_NAME_COUNT] = {
    {"Black", {255, 0, 0, 0}},       {"Blue", {255, 0, 0, 255}},
    {"Cyan", {255, 0, 255, 255}},    {"Green", {255, 0, 255, 0}},
    {"Magenta", {255, 255, 0, 255}}, {"Red", {255, 255, 0, 0}},
    {"White", {255, 255, 255, 255}}, {"Yellow", {255, 255, 255, 0}}};

static bool starts_with(const unsigned short* text, const char* word) {
  for (; *word; ++word, ++text)
    if (*text != static_cast<unsigned char>(*word)) return false;
  return true;
}

static bool is_date_letter(unsigned short c) {
  switch (c) {
    case 'D': case 'd': case 'H': case 'h': case 'M': case 'm':
    case 'S': case 's': case 'Y': case 'y':
      return true;
    default:
      return false;
  }
}

static bool is_elapsed_letter(unsigned short c) {
  return c == 'h' || c == 'H' || c == 'm' || c == 'M' || c == 's' || c == 'S';
}

/* [h], [mm], [SS]: one letter of an elapsed field, as often as it likes. */
static bool is_elapsed_bracket(const unsigned short* content, unsigned length) {
  if (!length || !is_elapsed_letter(content[0])) return false;
  unsigned short letter = ucs2_tolower(content[0]);
  for (unsigned i = 1; i < length; ++i)
    if (ucs2_tolower(content[i]) != letter) return false;
  return true;
}

/* The colour whose name begins with the whole content, case-sensitively;
 * the first in table order wins, so "[B]" is black. */
static const xls_colour_name_t* colour_of(const unsigned short* content, unsigned length) {
  if (!length) return nullptr;
  for (const xls_colour_name_t& colour : xls_colour_names) {
    unsigned i = 0;
    while (i < length && content[i] == static_cast<unsigned char>(colour.name[i])) ++i;
    if (i == length) return &colour;
  }
  return nullptr;
}

/* Walks one section from *cursor to its ";" or the end, filling section and
 * copying its text into text (room for the rest of the format).  *cursor
 * ends on the ";" or the terminator. */
static void parse_section(const unsigned short** cursor, format_section_t* section,
                          unsigned short* text) {
  const unsigned short* p = *cursor;
  unsigned length = 0;
  while (*p && *p != ';') {
    unsigned short c = *p;
    if (c == '"' || c == '\'') {
      text[length++] = *p++;
      while (*p && *p != c) {
        if (*p == '\\' && p[1]) text[length++] = *p++;
        text[length++] = *p++;
      }
      if (*p) text[length++] = *p++;
      continue;
    }
    if (c == '/' && ((p[1] >= '0' && p[1] <= '9') || p[1] == '?')) {
      section->has_fraction = 1;
      text[length++] = *p++;
      text[length++] = *p++;
      continue;
    }
    if ((c == 'A' || c == 'a' || c == 'P' || c == 'p') && (p[1] == 'M' || p[1] == 'm'))
      section->has_am_pm = 1;
    if (is_date_letter(c) && !section->reserved) section->is_date = 1;
    if (c == 'G' && starts_with(p + 1, "eneral")) {
      /* A unit: its letters are no date letters. */
      for (int i = 0; i < 7; ++i) text[length++] = *p++;
      continue;
    }
    if (c == '\\') {
      text[length++] = *p++;
      if (*p) text[length++] = *p++;
      continue;
    }
    if (c == '[') {
      const unsigned short* end = p + 1;
      while (*end && *end != ']') end += (*end == '\\' && end[1]) ? 2 : 1;
      if (*end) {
        const unsigned short* content = p + 1;
        unsigned content_length = static_cast<unsigned>(end - content);
        bool keep = true;
        if (*content == '<' || *content == '>' || *content == '=') {
          /* Conditions never choose a section: the sign does. */
          keep = false;
        } else if (is_elapsed_bracket(content, content_length)) {
          section->has_elapsed = 1;
        } else if (*content != '$' && !section->has_colour) {
          if (const xls_colour_name_t* colour = colour_of(content, content_length)) {
            section->has_colour = 1;
            section->colour = colour->value;
            keep = length != 0;
          }
        }
        if (keep)
          while (p <= end) text[length++] = *p++;
        p = end + 1;
        continue;
      }
    }
    text[length++] = *p++;
  }
  text[length] = 0;
  *cursor = p;
}

uint32_t parse_format(const unsigned short* format, format_info_t* info) {
  memset(info, 0, sizeof *info);
  if (!format) return 0;
  const unsigned short* p = format;
  /* Only two sections: after the second ";" nothing more is read, so a zero
   * section and a text section never have any effect. */
  for (int i = 0; i < 2; ++i) {
    unsigned short* text =
        static_cast<unsigned short*>(malloc((ucs2_len(p) + 1) * sizeof *text));
    if (!text) {
      format_info_free(info);
      return KEL_ERR_OUT_OF_MEMORY;
    }
    info->section[i].text = text;
    parse_section(&p, &info->section[i], text);
    if (!*p) break;
    ++p;
  }
  return 0;
}

void format_info_free(format_info_t* info) {
  for (format_section_t& section : info->section) {
    free(section.text);
    section.text = nullptr;
  }
}
