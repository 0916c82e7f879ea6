/*
 * tabulon -- the reference host: drives the engine from the command line the
 * way a document viewer drives it, through the flat calls, and where those
 * have nothing to say, through the workbook calls behind them.
 *
 *   tabulon info FILE [--password P] [--fonts DIR]
 *   tabulon cells FILE [--sheet N] [--formatted] [--formulas] [--password P] [--fonts DIR]
 *   tabulon render FILE [--sheet N] [--dpi D] [--at X,Y] [--size WxH]
 *                  [--bpp 16|32] [--password P] [--fonts DIR] -o OUT.png
 *
 * Output formats are stable: scripts and checks read them.  A failure prints
 * "tabulon: FILE: NAME (0x0737....)" to stderr and exits with 2; a misuse of
 * the command line exits with 1.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "foundation/zuv_uni_string.h"
#include "host/cell_lines.h"
#include "host/png_file.h"
#include "module/kel_session.h"
#include "tabulon.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

namespace {

const char* status_name(unsigned status) {
#define KEL_STATUS_NAME_CASE(name, value, text) \
  case value:                                   \
    return #name;
  switch (status) { KEL_STATUS_LIST(KEL_STATUS_NAME_CASE) }
#undef KEL_STATUS_NAME_CASE
  return "KEL_ERR_UNKNOWN";
}

int fail(const char* file, unsigned status) {
  fprintf(stderr, "tabulon: %s: %s (0x%08X)\n", file, status_name(status), status);
  return 2;
}

int usage() {
  fputs("usage: tabulon info FILE [--password P] [--fonts DIR]\n"
        "       tabulon cells FILE [--sheet N] [--formatted] [--formulas] [--password P] [--fonts DIR]\n"
        "       tabulon render FILE [--sheet N] [--dpi D] [--at X,Y] [--size WxH]\n"
        "                      [--bpp 16|32] [--password P] [--fonts DIR] -o OUT.png\n",
        stderr);
  return 1;
}

/* UTF-16 copy of a UTF-8 argument. */
std::u16string wide(const char* utf8) {
  std::u16string text(strlen(utf8) + 1, u'\0');
  unsigned length = utf8_to_ucs2(reinterpret_cast<unsigned short*>(&text[0]), utf8);
  text.resize(length);
  return text;
}

const unsigned short* units(const std::u16string& text) {
  return reinterpret_cast<const unsigned short*>(text.c_str());
}

std::string narrow(const unsigned short* text) {
  std::string utf8(4 * ucs2_len(text) + 1, '\0');
  utf8.resize(ucs2_to_utf8(&utf8[0], text));
  return utf8;
}

struct Options {
  const char* file = nullptr;
  const char* password = nullptr;
  const char* fonts = TABULON_FONT_DIR;
  int sheet = -1;  /* every sheet */
  bool formatted = false;
  bool formulas = false;
  int dpi = 72;
  int x = 0, y = 0;
  int width = 800, height = 600;
  int bits = 32;
  const char* output = nullptr;
};

/* Options after the command; false on anything unknown. */
bool parse_options(int argc, char** argv, Options* options) {
  for (int i = 0; i < argc; ++i) {
    if (strcmp(argv[i], "--password") == 0 && i + 1 < argc)
      options->password = argv[++i];
    else if (strcmp(argv[i], "--fonts") == 0 && i + 1 < argc)
      options->fonts = argv[++i];
    else if (strcmp(argv[i], "--sheet") == 0 && i + 1 < argc)
      options->sheet = atoi(argv[++i]);
    else if (strcmp(argv[i], "--formatted") == 0)
      options->formatted = true;
    else if (strcmp(argv[i], "--formulas") == 0)
      options->formulas = true;
    else if (strcmp(argv[i], "--dpi") == 0 && i + 1 < argc)
      options->dpi = atoi(argv[++i]);
    else if (strcmp(argv[i], "--at") == 0 && i + 1 < argc) {
      if (sscanf(argv[++i], "%d,%d", &options->x, &options->y) != 2) return false;
    } else if (strcmp(argv[i], "--size") == 0 && i + 1 < argc) {
      if (sscanf(argv[++i], "%dx%d", &options->width, &options->height) != 2 ||
          options->width <= 0 || options->height <= 0)
        return false;
    } else if (strcmp(argv[i], "--bpp") == 0 && i + 1 < argc) {
      options->bits = atoi(argv[++i]);
      if (options->bits != 16 && options->bits != 32) return false;
    } else if (strcmp(argv[i], "-o") == 0 && i + 1 < argc)
      options->output = argv[++i];
    else if (argv[i][0] == '-' || options->file)
      return false;
    else
      options->file = argv[i];
  }
  return options->file != nullptr;
}

/* A session on the file, or a printed failure. */
unsigned open_session(const Options& options, kel_file** session) {
  std::u16string path = wide(options.file);
  std::u16string fonts = wide(options.fonts);
  std::u16string password = options.password ? wide(options.password) : u"";
  return kel_open_file(units(path), options.password ? units(password) : nullptr,
                       units(fonts), nullptr, session);
}

int command_info(const Options& options) {
  kel_file* session = nullptr;
  unsigned status = open_session(options, &session);
  if (status) return fail(options.file, status);
  int count = 0;
  status = kel_get_sheet_count(session, &count);
  if (!status) {
    printf("format: %s\n",
           kel_file_format(session->workbook) == kel_format_ooxml ? "ooxml" : "biff8");
    printf("sheets: %d\n", count);
  }
  const xls_file* workbook = session->workbook;
  for (int i = 0; !status && i < count; ++i) {
    int needed = 0;
    status = kel_get_sheet_title(session, i, nullptr, 0, &needed);
    if (status) break;
    std::u16string title(static_cast<size_t>(needed), u'\0');
    status = kel_get_sheet_title(session, i, reinterpret_cast<unsigned short*>(&title[0]),
                                 needed, &needed);
    if (!status) printf("sheet %d: %s\n", i, narrow(units(title)).c_str());
  }
  if (!status) {
    printf("1904: %s\n", xls_1904_dates(workbook) ? "yes" : "no");
    printf("fonts: %u\nformats: %u\nxfs: %u\nnames: %u\n", xls_font_count(workbook),
           xls_format_count(workbook), xls_xf_count(workbook), xls_name_count(workbook));
  }
  kel_close_file(&session);
  return status ? fail(options.file, status) : 0;
}

int command_cells(const Options& options) {
  kel_file* session = nullptr;
  unsigned status = open_session(options, &session);
  if (status) return fail(options.file, status);
  if (options.sheet >= static_cast<int>(xls_sheet_count(session->workbook)))
    status = KEL_ERR_GENERAL;
  int flags = (options.formatted ? CELL_LINES_FORMATTED : 0) |
              (options.formulas ? CELL_LINES_FORMULAS : 0);
  if (!status) status = cell_lines_write(session->workbook, options.sheet, flags, stdout);
  kel_close_file(&session);
  return status ? fail(options.file, status) : 0;
}

/* Paints one sheet as a viewer shows it: the column strip on top, the row
 * strip on the left, the body beside them past the one-pixel separators. */
int command_render(const Options& options) {
  if (!options.output) return usage();
  kel_file* session = nullptr;
  unsigned status = open_session(options, &session);
  if (status) return fail(options.file, status);
  int sheet = options.sheet < 0 ? 0 : options.sheet;
  int format = options.bits == 32 ? 0 : 1;
  int bytes = options.bits / 8;
  std::vector<unsigned char> body(static_cast<size_t>(options.width) * options.height * bytes);
  std::vector<unsigned char> columns, rows;
  int heading_width = 0, heading_height = 0;
  status = kel_set_dpi(session, options.dpi);
  if (!status)
    status = kel_set_offscreen_buffer(session, format, body.data(), options.width,
                                      options.height);
  // The heading sizes, asked of the engine as the bounds of the cell (-1, -1),
  // once the sheet is current: that call refuses while a chart is shown.
  if (!status) status = kel_get_sheet_dimensions(session, sheet, nullptr, nullptr);
  if (!status)
    status = kel_cell_bounds(session, sheet, -1, -1, nullptr, nullptr, &heading_width,
                             &heading_height);
  if (status == KEL_ERR_OUT_OF_RANGE) status = 0;  // a chart sheet has no headings
  if (!status && heading_width > 0 && heading_height > 0) {
    columns.resize(static_cast<size_t>(options.width) * heading_height * bytes);
    rows.resize(static_cast<size_t>(heading_width) * options.height * bytes);
    status = kel_set_column_offscreen_buffer(session, format, columns.data(), options.width,
                                             heading_height);
    if (!status)
      status = kel_set_row_offscreen_buffer(session, format, rows.data(), heading_width,
                                            options.height);
  }
  if (!status) status = kel_render_sheet(session, sheet, options.x, options.y);
  kel_close_file(&session);
  if (status) return fail(options.file, status);

  int width = options.width, height = options.height;
  int left = 0, top = 0;
  if (!columns.empty()) {
    left = heading_width + 1;
    top = heading_height + 1;
  }
  int full_width = left + width, full_height = top + height;
  std::vector<unsigned char> picture(static_cast<size_t>(full_width) * full_height * bytes, 0xFF);
  auto blit = [&](const std::vector<unsigned char>& from, int from_width, int from_height,
                  int x, int y) {
    for (int row = 0; row < from_height; ++row)
      memcpy(&picture[(static_cast<size_t>(y + row) * full_width + x) * bytes],
             &from[static_cast<size_t>(row) * from_width * bytes],
             static_cast<size_t>(from_width) * bytes);
  };
  if (!columns.empty()) {
    blit(columns, width, heading_height, heading_width, 0);
    blit(rows, heading_width, height, 0, heading_height);
  }
  blit(body, width, height, left, top);
  if (!png_write_file(options.output, picture.data(), static_cast<uint32_t>(full_width),
                      static_cast<uint32_t>(full_height),
                      static_cast<uint32_t>(full_width * bytes), options.bits)) {
    fprintf(stderr, "tabulon: %s: can't write\n", options.output);
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return usage();
  Options options;
  if (!parse_options(argc - 2, argv + 2, &options)) return usage();
  if (strcmp(argv[1], "info") == 0) return command_info(options);
  if (strcmp(argv[1], "cells") == 0) return command_cells(options);
  if (strcmp(argv[1], "render") == 0) return command_render(options);
  return usage();
}
