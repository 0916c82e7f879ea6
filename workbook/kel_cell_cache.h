/*
 * kel_cell_cache.h -- a sheet's cells: one array sorted by row, then column,
 * grown in steps of 500 cells and stored in chunks, so that a large sheet
 * never needs one large block and an insertion moves at most one chunk.
 *
 * A pointer to a cell is handed out counted: every function that gives a
 * cell raises its use count once, and the receiver lowers it with
 * auto_cell_release.  The count guards no memory; it lets a caller see
 * that a cell is in use.  Pointers stay good until the table changes.
 */
#ifndef KEL_CELL_CACHE_H
#define KEL_CELL_CACHE_H

#include <stdint.h>

#include "foundation/zuv_array.h"
#include "formula/xls_value.h"

/* xls_cell_t.flags */
enum {
  XLS_CELL_RICH_STRING = 0x01, /* the string has rich text or phonetic data */
  XLS_CELL_INLINE_STRING = 0x02 /* from a LABEL record, not the SST */
};

enum { XLS_NO_SST_INDEX = 0xFFFFFFFFu };

struct xls_sheet_t;

struct xls_cell_t {
  uint32_t column;
  uint32_t row;
  uint16_t xf;
  uint8_t flags;
  uint8_t use_count;
  uint32_t sst_index;     /* for a string of the SST; else XLS_NO_SST_INDEX */
  uint32_t new_sst_index; /* its index in the table a save writes */
  /* The workbook's calculation chain (xls_calc_chain.h): a formula's next
   * formula, a plain cell's first reader; a null sheet is no link.  The
   * index sits before the value and the sheet behind it, so that a cell is
   * 64 bytes on 64-bit hosts and 52 in the 32-bit build. */
  int32_t link_index; /* index in link_sheet's table */
  xls_value_t value;
  xls_sheet_t* link_sheet;
};

/* A counted pointer to a cell, or null. */
typedef xls_cell_t* auto_cell_t;
typedef xls_cell_t* auto_value_t;

/* Lets go of what pin holds; pin becomes null. */
inline void auto_cell_release(auto_cell_t* pin) {
  if (*pin && (*pin)->use_count) (*pin)->use_count -= 1;
  *pin = nullptr;
}
/* Lets go of what pin holds (if anything) and takes cell, counted. */
inline void auto_cell_set(auto_cell_t* pin, xls_cell_t* cell) {
  auto_cell_release(pin);
  if (cell) cell->use_count += 1;
  *pin = cell;
}

typedef xls_array kel_cell_cache_t;

enum { KEL_CELL_CACHE_GROW_STEP = 500, KEL_CELL_CACHE_MAX_FACTOR = 20 };

/* An empty table in mem whose chunks are sized by the memory available:
 * available * 15 / 3,600,000 in 32-bit arithmetic (so a large figure
 * wraps), at least 1 and at most 20 grow steps. */
void kel_cell_cache_init(kel_cell_cache_t* cache, const zuv_mem* mem,
                         uint32_t available);
/* Frees every cell's value and the table. */
void kel_cell_cache_free(kel_cell_cache_t* cache);

/* The index of the cell at (column, row), with *found true, or of the first
 * cell after it, or the count. */
int kel_cell_cache_find_pos(const kel_cell_cache_t* cache, uint32_t column,
                            uint32_t row, bool* found);
/* *cell gets the cell at (column, row), counted, or null. */
uint32_t kel_cell_cache_find_cell(auto_cell_t* cell,
                                  const kel_cell_cache_t* cache,
                                  uint32_t column, uint32_t row);
/* Where a walk through the table stands: the index of the cell found last,
 * and the block around it, so that a walk in order, as painting or reading
 * a whole sheet is, finds its next cell with neither a search nor a
 * division.  Zero-filled is a hint at the start.  A hint is only a guess:
 * one from before the table changed, or from another table, is a wrong
 * one. */
struct kel_cell_hint {
  int index;
  xls_array_block block;
};
/* The rest of kel_cell_cache_find_cell_near, once the cell after the
 * hint's isn't in the hint's block or isn't the one: that cell again, the
 * block moved to it, then the hint's own cell, then a search. */
uint32_t kel_cell_cache_find_cell_search(auto_cell_t* cell, const kel_cell_cache_t* cache,
                                         uint32_t column, uint32_t row, kel_cell_hint* hint);
/* The cell after the hint's, unpinned, with the hint moved onto it, when
 * it is at (column, row) and in the hint's block; else null, the hint as
 * it was. */
inline xls_cell_t* kel_cell_cache_next_in_block(const kel_cell_cache_t* cache,
                                                uint32_t column, uint32_t row,
                                                kel_cell_hint* hint) {
  xls_cell_t* next = static_cast<xls_cell_t*>(
      xls_array_access_in_block(cache, &hint->block, hint->index + 1));
  if (!next || next->row != row || next->column != column) return nullptr;
  hint->index += 1;
  return next;
}
/* As kel_cell_cache_find_cell, looking first at the cell after the hint's
 * and at the hint's own, and leaving in hint->index the index of the cell
 * found, or where it would go.  Its commonest case is inline. */
inline uint32_t kel_cell_cache_find_cell_near(auto_cell_t* cell, const kel_cell_cache_t* cache,
                                              uint32_t column, uint32_t row,
                                              kel_cell_hint* hint) {
  if (xls_cell_t* next = kel_cell_cache_next_in_block(cache, column, row, hint)) {
    auto_cell_set(cell, next);
    return 0;
  }
  return kel_cell_cache_find_cell_search(cell, cache, column, row, hint);
}
/* *cell gets the cell at index, counted, or null past the end. */
uint32_t kel_cell_cache_access(auto_cell_t* cell, const kel_cell_cache_t* cache,
                               int index);
/* Inserts a copy of cell in order, taking over its value, unless a cell is
 * at that place; then the status is KEL_ERR_GENERAL and the value stays
 * the caller's.  The new cell is unpinned and unlinked; the cells behind it
 * move up one index, which the chain's links must be told of.  position, if
 * not null, gets the index. */
uint32_t kel_cell_cache_insert(kel_cell_cache_t* cache, const xls_cell_t* cell,
                               int* position);
int kel_cell_cache_count(const kel_cell_cache_t* cache);

/* Appends cells that come in order, as a file's do, straight into the
 * table's free slots: no search and no copy of a whole cell per cell.  The
 * appender notices another change of the table by its count; the scan of a
 * file only ever inserts besides. */
struct kel_cell_appender {
  kel_cell_cache_t* cache;
  xls_cell_t* next; /* the first free slot, room of them in one block */
  int room;
  int count;        /* the table's count when the fields were last right */
  uint32_t last_column, last_row;
};
void kel_cell_appender_init(kel_cell_appender* appender, kel_cell_cache_t* cache);
/* Brings the appender up to date with its table after another change. */
void kel_cell_appender_resync(kel_cell_appender* appender);
/* Finds free slots behind the last cell, growing the table if need be. */
uint32_t kel_cell_appender_refill(kel_cell_appender* appender);
/* Appends a cell at (column, row) that sorts after every cell of the
 * table, taking over value: *cell gets it, unpinned and unlinked as an
 * inserted cell is.  A place that doesn't sort last leaves *cell null and
 * the value the caller's (insert such a cell with kel_cell_cache_insert).
 * Inline: a file's scan asks it once a cell. */
inline uint32_t kel_cell_cache_append(kel_cell_appender* appender, uint32_t column,
                                      uint32_t row, uint16_t xf, uint8_t flags,
                                      const xls_value_t* value, uint32_t sst_index,
                                      xls_cell_t** cell) {
  *cell = nullptr;
  if (appender->count != appender->cache->count) kel_cell_appender_resync(appender);
  if (appender->count > 0 && (row < appender->last_row ||
                              (row == appender->last_row && column <= appender->last_column)))
    return 0;
  if (!appender->room) {
    uint32_t status = kel_cell_appender_refill(appender);
    if (status) return status;
  }
  xls_cell_t* slot = appender->next++;
  appender->room -= 1;
  slot->column = column;
  slot->row = row;
  slot->xf = xf;
  slot->flags = flags;
  slot->use_count = 0;
  slot->sst_index = sst_index;
  slot->new_sst_index = sst_index;
  slot->link_index = 0;
  slot->value = *value;
  slot->link_sheet = nullptr;
  appender->count = ++appender->cache->count;
  appender->last_column = column;
  appender->last_row = row;
  *cell = slot;
  return 0;
}

/* Walks the cells in order: init_it, then next_cell until it gives null;
 * or backwards: init_it, then prior_cell until it gives null.  index is the
 * cell's.  These pointers are not counted: a walk holds each cell only until
 * its next step. */
struct kel_cell_iterator {
  const kel_cell_cache_t* cache;
  int index;
  /* The run of cells in one block that index last fell in, good while the
   * table keeps the count it had then (a table changes only by inserting
   * or removing): a forward walk then finds its cell without a division. */
  xls_cell_t* run;
  int run_first, run_count, run_table_count;
};
void kel_cell_cache_init_it(kel_cell_iterator* it, const kel_cell_cache_t* cache);
xls_cell_t* kel_cell_cache_next_cell(kel_cell_iterator* it);
xls_cell_t* kel_cell_cache_prior_cell(kel_cell_iterator* it);

#endif /* KEL_CELL_CACHE_H */
