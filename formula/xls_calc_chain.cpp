/*
 * The calculation chain: built once by a topological sort done in the cell
 * records themselves, then walked -- to recalculate everything, or from a
 * changed cell to what stands behind it.
 */
#include "formula/xls_calc_chain.h"

#include <stdint.h>
#include <stdlib.h>

#include "formula/xls_recalc_env.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

/* Names may define each other in a circle: definitions nested deeper are
 * not followed, where the evaluator gives #NAME?. */
enum { kMaxDefinitionDepth = 64 };

static bool is_formula(const xls_cell_t* cell) {
  return cell->value.kind == vt_expr && xls_is_parsed_expr(&cell->value.u.expr.packed);
}

static xls_apos_sheet position_of(xls_sheet_t* sheet, const xls_cell_t* cell) {
  xls_apos_sheet position = {sheet, static_cast<uint16_t>(cell->row),
                             static_cast<uint8_t>(cell->column)};
  return position;
}

static xls_recalc_env env_at(const xls_apos_sheet* position, const xls_locale* locale) {
  xls_recalc_env env = {};
  env.locale = locale;
  env.sheet = position->sheet;
  env.row = position->row;
  env.column = position->column;
  return env;
}

static void set_link(xls_cell_t* cell, xls_sheet_t* sheet, int32_t index) {
  cell->link_sheet = sheet;
  cell->link_index = index;
}

/* ---- Sets of cells, ordered by sheet, column, row ------------------------ */

static xls_cell_ptr* set_at(const xls_simple_array* set, int i) {
  return static_cast<xls_cell_ptr*>(set->data) + i;
}

static int compare_place(const xls_sheet_t* sheet, uint32_t column, uint32_t row,
                         const xls_cell_ptr* entry) {
  uintptr_t mine = reinterpret_cast<uintptr_t>(sheet);
  uintptr_t theirs = reinterpret_cast<uintptr_t>(entry->sheet);
  if (mine != theirs) return mine < theirs ? -1 : 1;
  if (column != entry->cell->column) return column < entry->cell->column ? -1 : 1;
  if (row != entry->cell->row) return row < entry->cell->row ? -1 : 1;
  return 0;
}

static int cellptr_compare_cell(const void* key, const void* element) {
  const xls_cell_ptr* cell = static_cast<const xls_cell_ptr*>(key);
  return compare_place(cell->sheet, cell->cell->column, cell->cell->row,
                       static_cast<const xls_cell_ptr*>(element));
}

static int cellptr_compare_pos(const void* key, const void* element) {
  const xls_apos_sheet* position = static_cast<const xls_apos_sheet*>(key);
  return compare_place(position->sheet, position->column, position->row,
                       static_cast<const xls_cell_ptr*>(element));
}

/* Puts the cell into the set, pinned, unless it is there already. */
static uint32_t insert_ordered_cell_ptr(xls_simple_array* set, xls_sheet_t* sheet,
                                        xls_cell_t* cell) {
  xls_cell_ptr entry = {sheet, cell};
  bool found = false;
  int index = xls_ordered_array_pos(set, &entry, cellptr_compare_cell, &found);
  if (found) return 0;
  // Growing by half again keeps the copies few when a range brings
  // thousands of cells.
  if (set->count == set->capacity) set->grow_step = set->capacity < 16 ? 16 : set->capacity / 2;
  uint32_t status = xls_simple_array_insert(set, index, &entry);
  if (status) return status;
  auto_cell_t* pin = &set_at(set, index)->cell;
  *pin = nullptr;
  auto_cell_set(pin, cell);
  return 0;
}

void clear_cell_ptr(xls_simple_array* set) {
  for (int i = 0; i < set->count; ++i) auto_cell_release(&set_at(set, i)->cell);
  set->count = 0;
}

static bool set_holds(const xls_simple_array* set, xls_sheet_t* sheet, xls_cell_t* cell) {
  xls_cell_ptr key = {sheet, cell};
  bool found = false;
  xls_ordered_array_pos(set, &key, cellptr_compare_cell, &found);
  return found;
}

/* ---- What a formula reads ------------------------------------------------ */

/* The definition that a name, nested array or shared node stands for. */
static const xls_packed_expr_t* definition_of(xls_expr_t* node) {
  switch (expr_op(node)) {
    case xop_name: return expr_name_expr(node);
    case xop_namex: return expr_name_x_expr(node);
    case xop_array: return expr_array(node);
    default: {
      const xls_shared_expr* shared = expr_shared_expr(node);
      return shared ? &shared->packed : nullptr;
    }
  }
}

static bool is_definition(xls_expr_op_t op) {
  return op == xop_name || op == xop_namex || op == xop_array || op == xop_shared;
}

/* The formula to look at: packed, or else the cell's own; null for a cell
 * without one. */
static const xls_packed_expr_t* formula_of(const xls_cell_ptr* cell,
                                           const xls_packed_expr_t* packed) {
  if (packed) return packed;
  return cell->cell->value.kind == vt_expr ? &cell->cell->value.u.expr.packed : nullptr;
}

/* What enum_children gathers, for whom, and where in a table the last
 * lookup landed: the cells a formula reads mostly stand side by side, so
 * the next one is often found there without a search. */
struct enum_state {
  xls_simple_array* set;
  const xls_cell_ptr* owner;
  kel_cell_hint hint;
};

/* Where (column, row) should stand judging by the cell at the hint: in a
 * row without gaps, columns and indexes advance together. */
static void guess_index(const kel_cell_cache_t* cells, uint32_t column, uint32_t row, int* hint) {
  auto_cell_t near = nullptr;
  kel_cell_cache_access(&near, cells, *hint);
  if (near && near->row == row) *hint += static_cast<int>(column) - static_cast<int>(near->column);
  auto_cell_release(&near);
}

/* The cell at (column, row), counted, or null; state->hint follows it. */
static uint32_t find_near(enum_state* state, const kel_cell_cache_t* cells, uint32_t column,
                          uint32_t row, auto_cell_t* cell) {
  guess_index(cells, column, row, &state->hint.index);
  return kel_cell_cache_find_cell_near(cell, cells, column, row, &state->hint);
}

static uint32_t add_unique_ref(enum_state* state, const xls_apos_sheet* position) {
  auto_cell_t found = nullptr;
  uint32_t status = find_near(state, &position->sheet->cells, position->column, position->row,
                              &found);
  if (!status && found && found != state->owner->cell)
    status = insert_ordered_cell_ptr(state->set, position->sheet, found);
  auto_cell_release(&found);
  return status;
}

/* The cells of rect on sheet.  The table is walked from the first cell of
 * each row of the rectangle that has cells, so positions without a cell
 * cost nothing: a range over whole columns costs the cells it holds. */
static uint32_t add_rect(enum_state* state, xls_sheet_t* sheet, const cell_rect_t* rect) {
  const kel_cell_cache_t* cells = &sheet->cells;
  uint32_t left = static_cast<uint32_t>(rect->left_col);
  uint32_t right = static_cast<uint32_t>(rect->right_col);
  uint32_t bottom = static_cast<uint32_t>(rect->bottom_row);
  auto_cell_t cell = nullptr;
  uint32_t status = find_near(state, cells, left, static_cast<uint32_t>(rect->top_row), &cell);
  int index = state->hint.index;
  while (!status) {
    status = kel_cell_cache_access(&cell, cells, index);
    if (status || !cell || cell->row > bottom) break;
    if (cell->column < left) {
      index = kel_cell_cache_find_pos(cells, left, cell->row, nullptr);
    } else if (cell->column > right) {
      index = kel_cell_cache_find_pos(cells, left, cell->row + 1, nullptr);
    } else {
      if (cell != state->owner->cell) status = insert_ordered_cell_ptr(state->set, sheet, cell);
      state->hint.index = index++;
    }
  }
  auto_cell_release(&cell);
  return status;
}

static uint32_t enum_form(enum_state* state, const xls_packed_expr_t* packed, int depth) {
  if (!packed || (packed->flags & XLS_EXPR_UNPARSED) || depth > kMaxDefinitionDepth) return 0;
  xls_apos_sheet base = position_of(state->owner->sheet, state->owner->cell);
  xls_recalc_env env = env_at(&base, nullptr);
  uint32_t status = 0;
  for (uint32_t i = 0; i < packed->count && !status; ++i) {
    xls_expr_t* node = expr_from_idx(packed, i);
    xls_expr_op_t op = expr_op(node);
    if (op == xop_constant) {
      const xls_value_t* constant = expr_constant(node);
      xls_range_span span;
      // A range with a deleted sheet reads nothing.
      if (constant->kind != vt_range || xls_range_span_resolve(constant->u.range, &env, &span))
        continue;
      for (int32_t s = 0; s < span.sheet_count && !status; ++s) {
        xls_sheet_t* sheet = xls_range_span_sheet(&span, s);
        if (sheet) status = add_rect(state, sheet, &span.rect);
      }
    } else if (op == xop_cellref) {
      const xls_cell_ref_t* ref = expr_cellref(node);
      if (ref->sheet == XLS_DELETED_SHEET) continue;
      xls_apos_sheet position;
      expr_aps_pos_sheet(&position, ref, &base);
      status = add_unique_ref(state, &position);
    } else if (is_definition(op)) {
      const xls_packed_expr_t* definition = definition_of(node);
      status = definition ? enum_form(state, definition, depth + 1) : KEL_ERR_GENERAL;
    }
  }
  return status;
}

/* enum_children for the cell at index of its table. */
static uint32_t enum_at(xls_cell_ptr* cell, int32_t index, xls_simple_array* set) {
  enum_state state = {set, cell, {}};
  state.hint.index = index;
  return enum_form(&state, formula_of(cell, nullptr), 0);
}

uint32_t enum_children(xls_cell_ptr* cell, xls_simple_array* set,
                       const xls_packed_expr_t* packed) {
  enum_state state = {set, cell, {}};
  return enum_form(&state, formula_of(cell, packed), 0);
}

/* What reads are matched against: the cells of a set, or one position. */
struct match_target {
  const xls_simple_array* set;
  const xls_apos_sheet* position;
};

static bool in_span(const xls_range_span* span, xls_sheet_t* sheet, uint32_t row,
                    uint32_t column) {
  const cell_rect_t& rect = span->rect;
  if (row < static_cast<uint32_t>(rect.top_row) || row > static_cast<uint32_t>(rect.bottom_row) ||
      column < static_cast<uint32_t>(rect.left_col) ||
      column > static_cast<uint32_t>(rect.right_col))
    return false;
  if (!span->workbook) return sheet == span->first_sheet;
  int32_t index = xls_sheet_index(span->workbook, sheet);
  return index >= span->first_index && index < span->first_index + span->sheet_count;
}

static bool target_in_span(const match_target* target, const xls_range_span* span) {
  if (!target->set) {
    const xls_apos_sheet* p = target->position;
    return in_span(span, p->sheet, p->row, p->column);
  }
  for (int i = 0; i < target->set->count; ++i) {
    const xls_cell_ptr* entry = set_at(target->set, i);
    if (in_span(span, entry->sheet, entry->cell->row, entry->cell->column)) return true;
  }
  return false;
}

static bool target_has(const match_target* target, const xls_apos_sheet* position) {
  if (!target->set) {
    const xls_apos_sheet* p = target->position;
    return p->sheet == position->sheet && p->row == position->row &&
           p->column == position->column;
  }
  bool found = false;
  xls_ordered_array_pos(target->set, position, cellptr_compare_pos, &found);
  return found;
}

/* Walks the nodes of packed, standing at base, to the first read of the
 * target.  *done: the walk is over; *found: with a read that counts --
 * one that feeds a function ignoring circles ends the walk uncounted. */
static uint32_t match_form(const xls_apos_sheet* base, const xls_packed_expr_t* packed,
                           const match_target* target, int depth, bool* found, bool* done) {
  if (!packed || (packed->flags & XLS_EXPR_UNPARSED) || depth > kMaxDefinitionDepth) return 0;
  xls_recalc_env env = env_at(base, nullptr);
  for (uint32_t i = 0; i < packed->count; ++i) {
    xls_expr_t* node = expr_from_idx(packed, i);
    xls_expr_op_t op = expr_op(node);
    bool hit = false;
    if (op == xop_constant) {
      const xls_value_t* constant = expr_constant(node);
      xls_range_span span;
      hit = constant->kind == vt_range &&
            !xls_range_span_resolve(constant->u.range, &env, &span) &&
            target_in_span(target, &span);
    } else if (op == xop_cellref) {
      const xls_cell_ref_t* ref = expr_cellref(node);
      if (ref->sheet == XLS_DELETED_SHEET) continue;
      xls_apos_sheet position;
      expr_aps_pos_sheet(&position, ref, base);
      hit = target_has(target, &position);
    } else if (is_definition(op)) {
      const xls_packed_expr_t* definition = definition_of(node);
      if (!definition) return KEL_ERR_GENERAL;
      bool inner_done = false;
      uint32_t status = match_form(base, definition, target, depth + 1, &hit, &inner_done);
      if (status) return status;
      if (inner_done && !hit) {
        *done = true;
        return 0;
      }
    }
    if (!hit) continue;
    *done = true;
    const xls_expr_t* next = expr_from_idx(packed, i + 1);
    *found = !(next && expr_op(next) == xop_func && expr_func_ignore_for_circular(next));
    return 0;
  }
  return 0;
}

uint32_t match_children(const xls_apos_sheet* position, xls_cell_ptr* cell,
                        const xls_simple_array* set, bool* found,
                        const xls_packed_expr_t* packed) {
  match_target target = {set, nullptr};
  bool done = false;
  *found = false;
  return match_form(position, formula_of(cell, packed), &target, 0, found, &done);
}

uint32_t match_children_pos(const xls_apos_sheet* position, xls_cell_ptr* cell,
                            const xls_apos_sheet* target, bool* found,
                            const xls_packed_expr_t* packed) {
  match_target one = {nullptr, target};
  bool done = false;
  *found = false;
  return match_form(position, formula_of(cell, packed), &one, 0, found, &done);
}

/* ---- Walking ------------------------------------------------------------- */

/* A walk along the chain: cell is the cell at (sheet, index), pinned. */
struct chain_walk {
  xls_sheet_t* sheet;
  int32_t index;
  auto_cell_t cell;
};

/* Steps onto (sheet, index).  False at the end of the chain (a null sheet)
 * and when the link names no cell (*status KEL_ERR_GENERAL). */
static bool walk_to(chain_walk* walk, xls_sheet_t* sheet, int32_t index, uint32_t* status) {
  auto_cell_release(&walk->cell);
  walk->sheet = sheet;
  walk->index = index;
  if (!sheet) return false;
  *status = kel_cell_cache_access(&walk->cell, &sheet->cells, index);
  if (!*status && !walk->cell) *status = KEL_ERR_GENERAL;
  return !*status;
}

static bool walk_head(chain_walk* walk, const dep_global_t* global, uint32_t* status) {
  return walk_to(walk, global->head_sheet, global->head_index, status);
}

static bool walk_on(chain_walk* walk, uint32_t* status) {
  return walk_to(walk, walk->cell->link_sheet, walk->cell->link_index, status);
}

static xls_cell_ptr walk_cell(const chain_walk* walk) {
  xls_cell_ptr cell = {walk->sheet, walk->cell};
  return cell;
}

static bool walk_is(const chain_walk* walk, xls_sheet_t* sheet, int32_t index) {
  return walk->sheet == sheet && walk->index == index;
}

/* Makes the link that leads to the walk's cell -- before's, or the head's
 * without one -- lead past it. */
static void unlink_here(dep_global_t* global, xls_cell_t* before, const chain_walk* walk) {
  if (before) {
    set_link(before, walk->cell->link_sheet, walk->cell->link_index);
  } else {
    global->head_sheet = walk->cell->link_sheet;
    global->head_index = walk->cell->link_index;
  }
}

/* Calls visit(sheet, index, cell) for every cell of every sheet, forward or
 * backward; a status ends the walk. */
template <typename Visit>
static uint32_t visit_cells(xls_file* file, bool forward, Visit visit) {
  uint32_t count = xls_sheet_count(file);
  for (uint32_t s = 0; s < count; ++s) {
    xls_sheet_t* sheet = xls_sheet_handle(file, forward ? s : count - 1 - s);
    kel_cell_iterator it;
    kel_cell_cache_init_it(&it, &sheet->cells);
    xls_cell_t* cell = forward ? kel_cell_cache_next_cell(&it) : kel_cell_cache_prior_cell(&it);
    while (cell) {
      uint32_t status = visit(sheet, it.index, cell);
      if (status) return status;
      cell = forward ? kel_cell_cache_next_cell(&it) : kel_cell_cache_prior_cell(&it);
    }
  }
  return 0;
}

static xls_cell_ptr pin_cell(xls_sheet_t* sheet, xls_cell_t* cell) {
  xls_cell_ptr pinned = {sheet, nullptr};
  auto_cell_set(&pinned.cell, cell);
  return pinned;
}

/* ---- The workbook's chain ------------------------------------------------ */

void dep_init_globals(const xls_pool*, dep_global_t* global) {
  global->head_sheet = nullptr;
  global->head_index = -1;
  global->working_set = xls_simple_array{};
  global->working_set.element_size = sizeof(xls_cell_ptr);
  global->working_set.grow_step = 16;
}

void dep_destroy_globals(dep_global_t* global) {
  clear_cell_ptr(&global->working_set);
  free(global->working_set.data);
  global->working_set.data = nullptr;
  global->working_set.capacity = 0;
}

/* Unlinks every cell; gives the number of formulas met. */
static uint32_t clear_links(xls_file* file) {
  uint32_t formulas = 0;
  visit_cells(file, true, [&formulas](xls_sheet_t*, int, xls_cell_t* cell) -> uint32_t {
    set_link(cell, nullptr, 0);
    formulas += is_formula(cell);
    return 0;
  });
  dep_global_t* global = xls_dep_global(file);
  global->head_sheet = nullptr;
  global->head_index = -1;
  return formulas;
}

/* A formula placed in the chain, or left out while it is built. */
static bool is_placed(const xls_cell_t* cell) {
  return cell->link_sheet || cell->link_index == -1;
}

/* Counts in each formula's link index the formulas that read it.  One
 * that reads itself is listed and left out (-1), never to be computed; the
 * formulas it reads wait for it as for any reader, and are left out too. */
static uint32_t count_readers(xls_file* file, xls_simple_array* set) {
  return visit_cells(file, true, [file, set](xls_sheet_t* sheet, int index, xls_cell_t* cell) {
    if (!is_formula(cell)) return 0u;
    xls_cell_ptr owner = pin_cell(sheet, cell);
    xls_apos_sheet position = position_of(sheet, cell);
    bool reads_itself = false;
    uint32_t status = match_children_pos(&position, &owner, &position, &reads_itself, nullptr);
    if (!status && reads_itself) {
      cell->link_index = -1;
      status = xls_add_unsupported_cell(file, position);
    }
    clear_cell_ptr(set);
    if (!status) status = enum_at(&owner, index, set);
    for (int i = 0; !status && i < set->count; ++i) {
      xls_cell_t* child = set_at(set, i)->cell;
      if (is_formula(child) && child->link_index != -1) child->link_index += 1;
    }
    clear_cell_ptr(set);
    auto_cell_release(&owner.cell);
    return status;
  });
}

/* The formula at index of sheet has gone to the front of the chain: each
 * formula it reads has one reader less to wait for, and each plain cell it
 * reads leads to it.  A later formula that reads that cell goes in front
 * of this one and takes the link over, so the link ends at the first
 * reader of the chain -- without another pass over it. */
static uint32_t release_children(xls_simple_array* set, xls_sheet_t* sheet, int32_t index,
                                 xls_cell_t* cell) {
  xls_cell_ptr owner = pin_cell(sheet, cell);
  uint32_t status = enum_at(&owner, index, set);
  for (int i = 0; !status && i < set->count; ++i) {
    xls_cell_t* child = set_at(set, i)->cell;
    if (!is_formula(child)) set_link(child, sheet, index);
    else if (is_placed(child)) continue;
    else if (child->link_index == 0) status = KEL_ERR_GENERAL;
    else child->link_index -= 1;
  }
  clear_cell_ptr(set);
  auto_cell_release(&owner.cell);
  return status;
}

/* Sweeps over the cells, in turn forward and backward, putting at the
 * front of the chain each formula that no formula left to place reads.
 * What is never placed stands in a circle, or behind one. */
static uint32_t place_formulas(xls_file* file, dep_global_t* global) {
  global->head_sheet = nullptr;
  global->head_index = -1;
  bool forward = true, progress = true, left = true;
  while (progress && left) {
    progress = left = false;
    uint32_t status = visit_cells(file, forward, [&](xls_sheet_t* sheet, int index,
                                                     xls_cell_t* cell) {
      if (!is_formula(cell) || is_placed(cell)) return 0u;
      if (cell->link_index > 0) {
        left = true;
        return 0u;
      }
      set_link(cell, global->head_sheet, global->head_index);
      global->head_sheet = sheet;
      global->head_index = index;
      progress = true;
      return release_children(&global->working_set, sheet, index, cell);
    });
    if (status) return status;
    forward = !forward;
  }
  if (!left) return 0;
  return visit_cells(file, true, [file](xls_sheet_t* sheet, int, xls_cell_t* cell) {
    if (!is_formula(cell) || is_placed(cell)) return 0u;
    set_link(cell, nullptr, 0);
    return xls_add_unsupported_cell(file, position_of(sheet, cell));
  });
}

uint32_t dep_init_master(xls_file* file) {
  dep_global_t* global = xls_dep_global(file);
  // Each pass reads every cell; a workbook of plain values needs no more.
  if (!clear_links(file)) return 0;
  uint32_t status = count_readers(file, &global->working_set);
  if (!status) status = place_formulas(file, global);
  clear_cell_ptr(&global->working_set);
  // Half built, the link indexes are counts: nothing may walk them.
  if (status) clear_links(file);
  return status;
}

uint32_t dep_recalc_all_expressions(xls_file* file, const xls_locale* locale) {
  chain_walk walk = {};
  uint32_t status = 0;
  for (bool on = walk_head(&walk, xls_dep_global(file), &status); on;
       on = walk_on(&walk, &status)) {
    if (!is_formula(walk.cell)) {
      status = KEL_ERR_GENERAL;
      break;
    }
    xls_apos_sheet position = position_of(walk.sheet, walk.cell);
    xls_recalc_env env = env_at(&position, locale);
    status = expr_recalc(&env, &walk.cell);
    if (status) break;
  }
  auto_cell_release(&walk.cell);
  return status;
}

uint32_t dep_recalc(xls_cell_ptr* cell, const unsigned short** result_format,
                    const xls_locale* locale) {
  dep_global_t* global = xls_dep_global(cell->sheet->workbook);
  xls_simple_array* set = &global->working_set;
  uint32_t status = 0;
  if (is_formula(cell->cell)) {
    xls_apos_sheet position = position_of(cell->sheet, cell->cell);
    xls_recalc_env env = env_at(&position, locale);
    status = expr_recalc(&env, &cell->cell);
    if (!status && result_format) *result_format = env.result_format;
  }
  if (status || !cell->cell->link_sheet) {
    clear_cell_ptr(set);
    return status;
  }
  status = insert_ordered_cell_ptr(set, cell->sheet, cell->cell);
  chain_walk walk = {};
  bool on = false;
  if (!status && set->count == 1)
    on = walk_to(&walk, cell->cell->link_sheet, cell->cell->link_index, &status);
  else if (!status)
    on = walk_head(&walk, global, &status);
  for (; on; on = walk_on(&walk, &status)) {
    xls_apos_sheet position = position_of(walk.sheet, walk.cell);
    xls_cell_ptr here = walk_cell(&walk);
    bool found = false;
    status = match_children(&position, &here, set, &found, nullptr);
    if (!status && found && !is_formula(walk.cell)) status = KEL_ERR_GENERAL;
    if (!status && found) status = insert_ordered_cell_ptr(set, walk.sheet, walk.cell);
    if (!status && found) {
      xls_recalc_env env = env_at(&position, locale);
      status = expr_recalc(&env, &walk.cell);
    }
    if (status) break;
  }
  auto_cell_release(&walk.cell);
  clear_cell_ptr(set);
  return status;
}

/* Whether the new formula (cell at position) reads the walk's cell. */
static uint32_t new_reads(const xls_apos_sheet* position, xls_cell_ptr* cell,
                          const chain_walk* walk, bool* reads) {
  xls_apos_sheet at = position_of(walk->sheet, walk->cell);
  return match_children_pos(position, cell, &at, reads, nullptr);
}

/* The formula of start reads position.  From it the chain is followed to
 * last, each formula that reads the set of start and its readers joining
 * it: *has_circle when the new formula reads one of them. */
static uint32_t follow_readers(xls_simple_array* set, const chain_walk* start,
                               xls_sheet_t* last_sheet, int32_t last_index,
                               const xls_apos_sheet* position, xls_cell_ptr* cell,
                               bool* has_circle) {
  uint32_t status = new_reads(position, cell, start, has_circle);
  if (status || *has_circle || walk_is(start, last_sheet, last_index)) return status;
  status = insert_ordered_cell_ptr(set, start->sheet, start->cell);
  chain_walk walk = {};
  bool on = !status && walk_to(&walk, start->cell->link_sheet, start->cell->link_index, &status);
  for (; on; on = walk_on(&walk, &status)) {
    if (walk.cell != cell->cell) {
      xls_apos_sheet at = position_of(walk.sheet, walk.cell);
      xls_cell_ptr here = walk_cell(&walk);
      bool found = false;
      status = match_children(&at, &here, set, &found, nullptr);
      if (!status && found) status = insert_ordered_cell_ptr(set, walk.sheet, walk.cell);
      if (!status && found) status = new_reads(position, cell, &walk, has_circle);
    }
    if (status || *has_circle || walk_is(&walk, last_sheet, last_index)) break;
  }
  auto_cell_release(&walk.cell);
  clear_cell_ptr(set);
  return status;
}

uint32_t dep_check_for_circle(xls_file* file, const xls_apos_sheet* position,
                              xls_cell_ptr* cell, bool* has_circle, bool* in_chain) {
  dep_global_t* global = xls_dep_global(file);
  *has_circle = *in_chain = false;
  uint32_t status = match_children_pos(position, cell, position, has_circle, nullptr);
  if (status || *has_circle) return status;
  // The last formula of the chain that the new formula reads: whatever
  // reads the position through a circle stands before it.
  xls_sheet_t* last_sheet = nullptr;
  int32_t last_index = -1;
  chain_walk walk = {};
  for (bool on = walk_head(&walk, global, &status); on; on = walk_on(&walk, &status)) {
    bool reads = false;
    if (walk.cell == cell->cell) *in_chain = true;
    else status = new_reads(position, cell, &walk, &reads);
    if (status) break;
    if (reads) {
      last_sheet = walk.sheet;
      last_index = walk.index;
    }
  }
  auto_cell_release(&walk.cell);
  if (status || !last_sheet) return status;
  for (bool on = walk_head(&walk, global, &status); on; on = walk_on(&walk, &status)) {
    if (walk.cell != cell->cell) {
      xls_apos_sheet at = position_of(walk.sheet, walk.cell);
      xls_cell_ptr here = walk_cell(&walk);
      bool reads = false;
      status = match_children_pos(&at, &here, position, &reads, nullptr);
      if (!status && reads)
        status = follow_readers(&global->working_set, &walk, last_sheet, last_index, position,
                                cell, has_circle);
    }
    if (status || *has_circle || walk_is(&walk, last_sheet, last_index)) break;
  }
  auto_cell_release(&walk.cell);
  return status;
}

/* Puts the cell (at index of its sheet) into the chain behind the cell at
 * (sheet, index), or at the front for a null sheet. */
static uint32_t insert(dep_global_t* global, xls_cell_ptr* cell, int32_t index,
                       xls_sheet_t* behind_sheet, int32_t behind_index) {
  if (!behind_sheet) {
    set_link(cell->cell, global->head_sheet, global->head_index);
    global->head_sheet = cell->sheet;
    global->head_index = index;
    return 0;
  }
  auto_cell_t before = nullptr;
  uint32_t status = kel_cell_cache_access(&before, &behind_sheet->cells, behind_index);
  if (!status && !before) status = KEL_ERR_GENERAL;
  if (!status) {
    set_link(cell->cell, before->link_sheet, before->link_index);
    set_link(before, cell->sheet, index);
  }
  auto_cell_release(&before);
  return status;
}

uint32_t dep_insert_expression_into_list(xls_file* file, xls_cell_ptr* cell, int32_t index) {
  dep_global_t* global = xls_dep_global(file);
  xls_simple_array* set = &global->working_set;
  clear_cell_ptr(set);
  uint32_t status = enum_children(cell, set, nullptr);
  xls_sheet_t* behind_sheet = nullptr;
  int32_t behind_index = -1;
  chain_walk walk = {};
  bool on = !status && set->count > 0 && walk_head(&walk, global, &status);
  for (; on; on = walk_on(&walk, &status)) {
    if (set_holds(set, walk.sheet, walk.cell)) {
      behind_sheet = walk.sheet;
      behind_index = walk.index;
    }
  }
  auto_cell_release(&walk.cell);
  if (!status) status = insert(global, cell, index, behind_sheet, behind_index);
  for (int i = 0; !status && i < set->count; ++i) {
    xls_cell_ptr* child = set_at(set, i);
    if (!is_formula(child->cell)) status = dep_link_cell_to_first_parent_expr(file, child);
  }
  clear_cell_ptr(set);
  return status;
}

uint32_t dep_link_cell_to_first_parent_expr(xls_file* file, xls_cell_ptr* cell) {
  set_link(cell->cell, nullptr, 0);
  // A set of one in the caller's frame: the working set may be in use.
  xls_cell_ptr only = pin_cell(cell->sheet, cell->cell);
  xls_simple_array one = {sizeof(xls_cell_ptr), 1, 1, 0, &only};
  chain_walk walk = {};
  uint32_t status = 0;
  for (bool on = walk_head(&walk, xls_dep_global(file), &status); on;
       on = walk_on(&walk, &status)) {
    xls_apos_sheet at = position_of(walk.sheet, walk.cell);
    xls_cell_ptr here = walk_cell(&walk);
    bool found = false;
    status = match_children(&at, &here, &one, &found, nullptr);
    if (!status && found) set_link(cell->cell, walk.sheet, walk.index);
    if (status || found) break;
  }
  auto_cell_release(&walk.cell);
  auto_cell_release(&only.cell);
  return status;
}

/* Links anew every plain cell (or unparsed formula) whose link named a
 * cell of sheet at index -- any index for index -1 -- that has left the
 * chain. */
static uint32_t relink_readers_of(xls_file* file, xls_sheet_t* sheet, int32_t index) {
  return visit_cells(file, true, [=](xls_sheet_t* here, int, xls_cell_t* cell) {
    if (is_formula(cell) || cell->link_sheet != sheet ||
        (index >= 0 && cell->link_index != index))
      return 0u;
    xls_cell_ptr pinned = pin_cell(here, cell);
    uint32_t status = dep_link_cell_to_first_parent_expr(file, &pinned);
    auto_cell_release(&pinned.cell);
    return status;
  });
}

uint32_t dep_remove_expression_from_list(xls_file* file, xls_cell_ptr* cell) {
  dep_global_t* global = xls_dep_global(file);
  chain_walk walk = {};
  auto_cell_t before = nullptr;
  uint32_t status = 0;
  bool on = walk_head(&walk, global, &status);
  for (; on && walk.cell != cell->cell; on = walk_on(&walk, &status))
    auto_cell_set(&before, walk.cell);
  int32_t index = walk.index;
  if (on) {
    unlink_here(global, before, &walk);
    set_link(cell->cell, nullptr, 0);
  }
  auto_cell_release(&before);
  auto_cell_release(&walk.cell);
  if (status) return status;
  if (!on) {
    // Out of the chain: left out for a circle, or the chain is broken.
    uint32_t unsupported = 0;
    xls_unsupported_cells(file, &unsupported);
    return unsupported ? KEL_ERR_CIRCULAR_REFERENCE : KEL_ERR_GENERAL;
  }
  return relink_readers_of(file, cell->sheet, index);
}

void dep_shift_indices(xls_file* file, xls_sheet_t* sheet, int32_t index, int32_t delta) {
  dep_global_t* global = xls_dep_global(file);
  if (global->head_sheet == sheet && global->head_index >= index) global->head_index += delta;
  visit_cells(file, true, [=](xls_sheet_t*, int, xls_cell_t* cell) {
    if (cell->link_sheet == sheet && cell->link_index >= index) cell->link_index += delta;
    return 0u;
  });
}

uint32_t dep_delete_sheet(xls_file* file, xls_sheet_t* sheet) {
  dep_global_t* global = xls_dep_global(file);
  chain_walk walk = {};
  auto_cell_t before = nullptr;
  uint32_t status = 0;
  for (bool on = walk_head(&walk, global, &status); on; on = walk_on(&walk, &status)) {
    if (walk.sheet == sheet) unlink_here(global, before, &walk);
    else auto_cell_set(&before, walk.cell);
  }
  auto_cell_release(&before);
  auto_cell_release(&walk.cell);
  if (status) return status;
  kel_cell_iterator it;
  kel_cell_cache_init_it(&it, &sheet->cells);
  for (xls_cell_t* cell = kel_cell_cache_next_cell(&it); cell; cell = kel_cell_cache_next_cell(&it))
    set_link(cell, nullptr, 0);
  return relink_readers_of(file, sheet, -1);
}
