/*
 * bench_paint -- the time of one kel_render_sheet of a body at a resolution,
 * averaged over many paints, as a viewer would ask for them.
 *
 *   bench_paint WORKBOOK [--sheet N] [--size WxH] [--paints N] [--fonts DIR]
 *
 * For dpi 72 and 96, prints "dpi D paints N ms_per_paint M" for paints at the
 * top left and "dpi D scrolled ..." for paints at positions that step down and
 * right through the sheet, so that the view can't answer from one place.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "foundation/zuv_uni_string.h"
#include "tabulon.h"

namespace {

std::vector<unsigned short> wide(const char* utf8) {
  std::vector<unsigned short> text(strlen(utf8) + 1, 0);
  utf8_to_ucs2(text.data(), utf8);
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fputs("usage: bench_paint WORKBOOK [--sheet N] [--size WxH] [--paints N] [--fonts DIR]\n",
          stderr);
    return 1;
  }
  int sheet = 0, width = 800, height = 600, paints = 200;
  const char* fonts = TABULON_FONT_DIR;
  for (int i = 2; i + 1 < argc; i += 2) {
    if (!strcmp(argv[i], "--sheet")) sheet = atoi(argv[i + 1]);
    else if (!strcmp(argv[i], "--paints")) paints = atoi(argv[i + 1]);
    else if (!strcmp(argv[i], "--fonts")) fonts = argv[i + 1];
    else if (!strcmp(argv[i], "--size")) sscanf(argv[i + 1], "%dx%d", &width, &height);
  }
  std::vector<unsigned short> path = wide(argv[1]), font_path = wide(fonts);
  kel_file* file = nullptr;
  unsigned status = kel_open_file(path.data(), nullptr, font_path.data(), nullptr, &file);
  if (status) {
    fprintf(stderr, "bench_paint: %s: 0x%08X\n", argv[1], status);
    return 2;
  }
  std::vector<uint32_t> body(size_t(width) * height), columns(size_t(width) * 64),
      rows(size_t(64) * height);
  for (int dpi : {72, 96}) {
    status = kel_set_dpi(file, dpi);
    if (!status) status = kel_set_offscreen_buffer(file, 0, body.data(), width, height);
    if (!status) status = kel_set_column_offscreen_buffer(file, 0, columns.data(), width, 64);
    if (!status) status = kel_set_row_offscreen_buffer(file, 0, rows.data(), 64, height);
    if (!status) status = kel_render_sheet(file, sheet, 0, 0);  // fonts and headings warm
    if (status) break;
    double start = bench_now();
    for (int i = 0; i < paints && !status; ++i) status = kel_render_sheet(file, sheet, 0, 0);
    double still = (bench_now() - start) * 1000 / paints;
    start = bench_now();
    for (int i = 0; i < paints && !status; ++i)
      status = kel_render_sheet(file, sheet, (i % 20) * 137, i * 997);
    double scrolled = (bench_now() - start) * 1000 / paints;
    if (status) break;
    printf("dpi %d size %dx%d paints %d ms_per_paint %.3f\n", dpi, width, height, paints, still);
    printf("dpi %d size %dx%d paints %d scrolled_ms_per_paint %.3f\n", dpi, width, height,
           paints, scrolled);
  }
  kel_close_file(&file);
  if (status) {
    fprintf(stderr, "bench_paint: %s: 0x%08X\n", argv[1], status);
    return 2;
  }
  return 0;
}
