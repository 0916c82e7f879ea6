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

#include "bench/bench_common.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

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
  long rss_before = status_kb("VmRSS:");
  FILE* stream = nullptr;
  xls_file* file = nullptr;
  double open_seconds = 0;
  if (int code = bench_open(argc, argv, "bench_read", &stream, &file, &open_seconds)) return code;
  double opened = bench_now();
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
  double read = bench_now();
  long peak = status_kb("VmHWM:");
  printf("open_s %.3f\nread_s %.3f\npeak_rss_kb %ld\ncells %ld\nbytes_per_cell %.1f\n",
         open_seconds, read - opened, peak, cells,
         cells ? (peak - rss_before) * 1024.0 / cells : 0.0);
  fprintf(stderr, "checksum %.6g\n", checksum);
  g_current_wb = nullptr;
  xls_close(file);
  fclose(stream);
  return 0;
}
