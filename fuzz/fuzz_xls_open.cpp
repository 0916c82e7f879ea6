// Feeds bytes to the workbook reader as a document held in memory, then
// reads back what a viewer would: every cell with its format, row heights,
// merged cells and the extent.  Any input must give a status or a
// workbook, never a crash, hang or leak.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

static void read_sheet(xls_sheet_t* sheet) {
  kel_cell_iterator it;
  kel_cell_cache_init_it(&it, &sheet->cells);
  while (const xls_cell_t* cell = kel_cell_cache_next_cell(&it)) {
    xls_read_cell_info info = {};
    info.flags = XLS_READ_CELL | XLS_READ_NUMBER_FORMAT | XLS_READ_FONT |
                 XLS_READ_ALIGNMENT | XLS_READ_FILL;
    xls_read_cell(sheet, cell->column, cell->row, &info, nullptr);
    auto_cell_release(&info.cell);
  }
  for (uint32_t row = 0; row < 300; row += 7) xls_get_row_height(sheet, row, nullptr);
  xls_find_row(sheet, 100000);
  xls_orange range;
  xls_sheet_dimensions(sheet, &range);
  xls_simple_array merged;
  if (xls_get_merged_cells(sheet, &merged) == 0) free(merged.data);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zuv_memio document;
  memio_open_bytes(&document, data, static_cast<uint32_t>(size));
  xls_pool pool = {};
  pool.document = document.io;
  zuv_mem_system(&pool.mem);
  xls_file* file = nullptr;
  if (xls_open(&pool, &file, 1, nullptr, kel_format_biff8, nullptr) == 0) {
    for (uint32_t i = 0; i < xls_sheet_count(file); ++i) read_sheet(xls_sheet_handle(file, i));
    xls_close(file);
  }
  memio_close(&document);
  return 0;
}
