/*
 * xls_calc_chain.h -- the order of recalculation.
 *
 * A workbook keeps one chain: a singly linked list through all formula
 * cells of all sheets, in which every formula stands behind each formula it
 * reads.  The links live in the cell records themselves (link_sheet,
 * link_index); no table of dependants exists.  What a change touches is
 * found by walking the chain from the changed cell and matching each
 * formula's tree against the set of changed cells: two words per cell are
 * the whole graph, which a device with little memory can afford, and a
 * recalculation costs the part of the chain behind the change.
 *
 * A cell that holds no formula links to the first formula of the chain that
 * reads it (or to nothing), so that a change of a plain cell starts its walk
 * in the right place.
 *
 * A reference that feeds ROW, COLUMN, ROWS or COLUMNS directly is no
 * dependency, and a formula's reads are matched in node order, stopping at
 * the first match: =ROWS(A1:A3)+A1 therefore does not depend on A1.
 *
 * Statuses: KEL_ERR_GENERAL when the chain contradicts
 * the cell records, KEL_ERR_OUT_OF_MEMORY, the cell table's statuses.  An
 * operation that fails in mid-walk empties the working set and gives its
 * pins back; the chain stays as it was.  One operation at a time per
 * workbook: the working set is the workbook's.
 */
#ifndef XLS_CALC_CHAIN_H
#define XLS_CALC_CHAIN_H

#include <stdint.h>

#include "foundation/zuv_array.h"
#include "workbook/kel_cell_cache.h"

struct xls_apos_sheet;
struct xls_file;
struct xls_locale;
struct xls_sheet_t;
struct xls_pool;

/* A cell and its sheet; the cell is pinned while the pair is held. */
struct xls_cell_ptr {
  xls_sheet_t* sheet;
  xls_cell_t* cell;
};

/* The workbook's chain. */
struct dep_global_t {
  xls_sheet_t* head_sheet; /* sheet of the first formula; null: empty chain */
  int32_t head_index;      /* its index in the sheet's cell table */
  xls_simple_array working_set; /* of xls_cell_ptr, ordered; empty between calls */
};

/* An empty chain.  The working set takes its memory from the C library,
 * as xls_simple_array does: pool is not used. */
void dep_init_globals(const xls_pool* pool, dep_global_t* global);
/* Gives back the working set's pins and memory. */
void dep_destroy_globals(dep_global_t* global);

/* Builds the chain of the whole workbook from its parsed formulas.  Cells
 * that read themselves or stand in a circle -- and the formulas read only
 * through one -- go to the workbook's list of unsupported cells, stay out
 * of the chain and keep their cached values.  A failure leaves an empty
 * chain and no links. */
uint32_t dep_init_master(xls_file* file);
/* Recalculates every formula of the chain, in its order: one pass. */
uint32_t dep_recalc_all_expressions(xls_file* file, const xls_locale* locale);
/* Recalculates the pinned cell, if it holds a parsed formula, and every
 * formula behind it in the chain that reads it or what was recalculated.
 * result_format (may be null) gets the format that the cell's own
 * evaluation suggests. */
uint32_t dep_recalc(xls_cell_ptr* cell, const unsigned short** result_format,
                    const xls_locale* locale);
/* Whether the formula now at cell (the pinned cell at position) would
 * close a circle: it reads its own cell, or a formula of the chain that
 * reads it, directly or through others.  *in_chain: the cell itself stands
 * in the chain, with what it held before; it takes no part in the search. */
uint32_t dep_check_for_circle(xls_file* file, const xls_apos_sheet* position,
                              xls_cell_ptr* cell, bool* has_circle, bool* in_chain);
/* Puts a new formula into the chain directly behind the last formula it
 * reads (at the front when it reads none), and links the plain cells it
 * reads.  index is the cell's index in its sheet's table.  Formulas of the
 * chain that already read the cell keep their places, even before it. */
uint32_t dep_insert_expression_into_list(xls_file* file, xls_cell_ptr* cell, int32_t index);
/* Takes a formula out of the chain; plain cells that led to it get a new
 * link.  KEL_ERR_CIRCULAR_REFERENCE when the cell is not in the chain and
 * the workbook has unsupported cells (it was left out for a circle),
 * KEL_ERR_GENERAL when it has none. */
uint32_t dep_remove_expression_from_list(xls_file* file, xls_cell_ptr* cell);
/* Sets a plain cell's link to the first formula of the chain that reads
 * it, or to nothing. */
uint32_t dep_link_cell_to_first_parent_expr(xls_file* file, xls_cell_ptr* cell);
/* The cell table of sheet moved the cells from index on by delta: every
 * link into them follows. */
void dep_shift_indices(xls_file* file, xls_sheet_t* sheet, int32_t index, int32_t delta);
/* The sheet is going away: its formulas leave the chain, its cells lose
 * their links, and the plain cells of other sheets that led to them are
 * linked anew. */
uint32_t dep_delete_sheet(xls_file* file, xls_sheet_t* sheet);

/* ---- Building blocks, for the commands that edit formulas ---------------- */

/* Adds to set (ordered xls_cell_ptr) every existing cell that the formula
 * reads: through ranges, names, array and shared records.  A null packed
 * form means the cell's own formula; the formula's own cell is not added.
 * KEL_ERR_GENERAL for a name or record without definition. */
uint32_t enum_children(xls_cell_ptr* cell, xls_simple_array* set,
                       const xls_packed_expr_t* packed);
/* *found: the formula of cell (at position) reads a cell of set -- unless
 * the first such read feeds a function that ignores circles. */
uint32_t match_children(const xls_apos_sheet* position, xls_cell_ptr* cell,
                        const xls_simple_array* set, bool* found,
                        const xls_packed_expr_t* packed);
/* The same with one position instead of a set. */
uint32_t match_children_pos(const xls_apos_sheet* position, xls_cell_ptr* cell,
                            const xls_apos_sheet* target, bool* found,
                            const xls_packed_expr_t* packed);
/* Empties set and gives back its pins. */
void clear_cell_ptr(xls_simple_array* set);

#endif /* XLS_CALC_CHAIN_H */
