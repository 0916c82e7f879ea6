/*
 * bench_read -- how long a workbook takes to open and to read whole, and
 * what memory it holds:
 *   bench_read FILE [--password P]
 * prints "open_s", "read_s", "peak_rss_kb", "cells" and "bytes_per_cell",
 * one "name value" pair a line.  Every cell is read through xls_read_cell
 * with its value and number format, as a viewer asks for them.
 */
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "foundation/zuv_uni_string.h"
#include "module/linux_pool.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

static double now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

/* A field of /proc/self/status in kB, such as "VmHWM:". */
static long status_kb(const char* field) {
  FILE* status = fopen("/proc/self/status", "r");
  if (!status) return 0;
  char line[256];
  long value = 0;
  size_t length = strlen(field);
  while (fgets(line, sizeof line, status))
    if (strncmp(line, field, length) == 0) sscanf(line + length, "%ld", &value);
  fclose(status);
  return value;
}

int main(int argc, char** argv) {
  if (argc != 2 && !(argc == 4 && strcmp(argv[2], "--password") == 0)) {
    fputs("usage: bench_read FILE [--password P]\n", stderr);
    return 1;
  }
  FILE* stream = fopen(argv[1], "rb");
  if (!stream) {
    perror(argv[1]);
    return 2;
  }
  long rss_before = status_kb("VmRSS:");
  xls_pool pool;
  linux_pool_for_file(stream, &pool);
  double start = now();
  xls_file* file = nullptr;
  uint32_t status = xls_open(&pool, &file, 1, nullptr, kel_format_biff8,
                             argc == 4 ? dup2ucs2(argv[3]) : nullptr);
  double opened = now();
  if (status) {
    fprintf(stderr, "bench_read: %s: open failed, 0x%08X\n", argv[1], status);
    return 2;
  }
  g_current_wb = file;
  long cells = 0;
  double checksum = 0;
  for (uint32_t s = 0; s < xls_sheet_count(file); ++s) {
    xls_sheet_t* sheet = xls_sheet_handle(file, s);
    kel_cell_iterator it;
    kel_cell_cache_init_it(&it, &sheet->cells);
    while (const xls_cell_t* cell = kel_cell_cache_next_cell(&it)) {
      xls_read_cell_info info = {};
      info.flags = XLS_READ_CELL | XLS_READ_NUMBER_FORMAT;
      if (xls_read_cell(sheet, cell->column, cell->row, &info, nullptr) == 0 && info.cell) {
        checksum += xls_value_todouble(&info.cell->value);
        ++cells;
      }
      auto_cell_release(&info.cell);
    }
  }
  double read = now();
  long peak = status_kb("VmHWM:");
  printf("open_s %.3f\nread_s %.3f\npeak_rss_kb %ld\ncells %ld\nbytes_per_cell %.1f\n",
         opened - start, read - opened, peak, cells,
         cells ? (peak - rss_before) * 1024.0 / cells : 0.0);
  fprintf(stderr, "checksum %.6g\n", checksum);
  g_current_wb = nullptr;
  xls_close(file);
  fclose(stream);
  return 0;
}
