/*
 * bench_recalc -- how long a workbook's formulas take to compute:
 *   bench_recalc FILE [--password P]
 * prints "open_s" (the open builds the chain and computes everything once),
 * "formulas", "recalc_all_s" (one more walk of the whole chain) and
 * "recalc_one_s" (one dep_recalc after a change of the first plain cell
 * that the head of the chain reads: the change whose walk covers the most
 * of the chain), one "name value" pair a line.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "bench/bench_common.h"
#include "formula/xls_calc_chain.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

static long count_formulas(xls_file* file) {
  long count = 0;
  for (uint32_t s = 0; s < xls_sheet_count(file); ++s) {
    kel_cell_iterator it;
    kel_cell_cache_init_it(&it, &xls_sheet_handle(file, s)->cells);
    while (const xls_cell_t* cell = kel_cell_cache_next_cell(&it))
      if (cell->value.kind == vt_expr && xls_is_parsed_expr(&cell->value.u.expr.packed)) ++count;
  }
  return count;
}

/* The first plain cell that the head of the chain reads, pinned in *input;
 * false when the head reads none. */
static bool head_input(xls_file* file, xls_cell_ptr* input) {
  dep_global_t* global = xls_dep_global(file);
  if (!global->head_sheet) return false;
  xls_cell_ptr head = {global->head_sheet, nullptr};
  if (kel_cell_cache_access(&head.cell, &global->head_sheet->cells, global->head_index))
    return false;
  xls_simple_array children = {};
  children.element_size = sizeof(xls_cell_ptr);
  children.grow_step = 16;
  bool found = false;
  if (enum_children(&head, &children, nullptr) == 0) {
    for (int i = 0; i < children.count && !found; ++i) {
      xls_cell_ptr* child = static_cast<xls_cell_ptr*>(children.data) + i;
      if (child->cell->value.kind == vt_expr) continue;
      input->sheet = child->sheet;
      input->cell = nullptr;
      auto_cell_set(&input->cell, child->cell);
      found = true;
    }
  }
  clear_cell_ptr(&children);
  free(children.data);
  auto_cell_release(&head.cell);
  return found;
}

int main(int argc, char** argv) {
  FILE* stream = nullptr;
  xls_file* file = nullptr;
  double open_seconds = 0;
  if (int code = bench_open(argc, argv, "bench_recalc", &stream, &file, &open_seconds)) return code;
  g_current_wb = file;
  uint32_t unsupported = 0;
  xls_unsupported_cells(file, &unsupported);
  if (unsupported) fprintf(stderr, "bench_recalc: %u cells are not computed\n", unsupported);
  double all_start = bench_now();
  uint32_t status = dep_recalc_all_expressions(file, nullptr);
  double all_end = bench_now();
  double one = -1;
  xls_cell_ptr input = {};
  if (!status && head_input(file, &input)) {
    xls_value_t value;
    xls_value_double(&value, xls_value_todouble(&input.cell->value) + 1);
    xls_free_value(&input.cell->value);
    input.cell->value = value;
    double one_start = bench_now();
    status = dep_recalc(&input, nullptr, nullptr);
    one = bench_now() - one_start;
    auto_cell_release(&input.cell);
  }
  if (status) fprintf(stderr, "bench_recalc: recalculation failed, 0x%08X\n", status);
  printf("open_s %.3f\nformulas %ld\nrecalc_all_s %.3f\n", open_seconds, count_formulas(file),
         all_end - all_start);
  if (one >= 0) printf("recalc_one_s %.4f\n", one);
  else printf("recalc_one_s -\n");
  g_current_wb = nullptr;
  xls_close(file);
  fclose(stream);
  return status ? 2 : 0;
}
