#include "workbook/kel_cell_cache.h"

void kel_cell_cache_init(kel_cell_cache_t* cache, const zuv_mem* mem,
                         uint32_t available) {
  // The product wraps on purpose where memory is plentiful: the chunk size
  // then falls anywhere between the bounds, and any of them works.
  uint32_t factor = available * 15u / 3600000u;
  if (factor < 1) factor = 1;
  if (factor > KEL_CELL_CACHE_MAX_FACTOR) factor = KEL_CELL_CACHE_MAX_FACTOR;
  *cache = xls_array{};
  cache->mem = mem;
  cache->element_size = sizeof(xls_cell_t);
  cache->grow_step = KEL_CELL_CACHE_GROW_STEP;
  cache->chunk_factor = static_cast<int>(factor);
}

void kel_cell_cache_free(kel_cell_cache_t* cache) {
  kel_cell_iterator it;
  kel_cell_cache_init_it(&it, cache);
  while (xls_cell_t* cell = kel_cell_cache_next_cell(&it)) xls_free_value(&cell->value);
  xls_array_free(cache);
}

int kel_cell_cache_count(const kel_cell_cache_t* cache) { return cache->count; }

/* Negative when (column, row) sorts before the cell. */
static int compare_position(uint32_t column, uint32_t row, const xls_cell_t* cell) {
  if (row != cell->row) return row < cell->row ? -1 : 1;
  if (column != cell->column) return column < cell->column ? -1 : 1;
  return 0;
}

static const xls_cell_t* at(const kel_cell_cache_t* cache, int index) {
  return static_cast<const xls_cell_t*>(xls_array_access(cache, index));
}

/* Where (column, row) falls among the count cells from cells on, which
 * lie in one block: as kel_cell_cache_find_pos, relative to cells. */
static int find_in_block(const xls_cell_t* cells, int count, uint32_t column,
                         uint32_t row, bool* found) {
  int low = 0, high = count;
  while (high - low >= 3) {
    int middle = low + (high - low) / 2;
    int order = compare_position(column, row, &cells[middle]);
    if (order == 0) {
      *found = true;
      return middle;
    }
    if (order < 0) high = middle;
    else low = middle + 1;
  }
  for (; low < high; ++low) {
    int order = compare_position(column, row, &cells[low]);
    if (order <= 0) {
      *found = order == 0;
      return low;
    }
  }
  return low;
}

int kel_cell_cache_find_pos(const kel_cell_cache_t* cache, uint32_t column,
                            uint32_t row, bool* found) {
  bool found_here = false;
  int low = 0;
  if (cache->chunk_factor) {
    // The chunk whose head is the last not after the key: a binary search
    // of the heads finds the chunk the walk from the second would.
    int chunk = cache->grow_step * cache->chunk_factor;
    int first = 1, last = (cache->count - 1) / chunk;  // chunks with cells, after the first
    while (first <= last) {
      int middle = first + (last - first) / 2;
      if (compare_position(column, row, at(cache, middle * chunk)) < 0) {
        last = middle - 1;
      } else {
        first = middle + 1;
      }
    }
    low = last * chunk;
  }
  int contiguous = 0;
  const xls_cell_t* cells = static_cast<const xls_cell_t*>(xls_array_span(cache, low, &contiguous));
  int index = low + (cells ? find_in_block(cells, contiguous, column, row, &found_here) : 0);
  if (found) *found = found_here;
  return index;
}

uint32_t kel_cell_cache_find_cell(auto_cell_t* cell, const kel_cell_cache_t* cache,
                                  uint32_t column, uint32_t row) {
  bool found = false;
  int index = kel_cell_cache_find_pos(cache, column, row, &found);
  auto_cell_set(cell, found ? static_cast<xls_cell_t*>(xls_array_access(cache, index))
                            : nullptr);
  return 0;
}

uint32_t kel_cell_cache_find_cell_search(auto_cell_t* cell, const kel_cell_cache_t* cache,
                                         uint32_t column, uint32_t row, kel_cell_hint* hint) {
  // A walk in order that crosses into the next block finds its cell here.
  for (int guess = hint->index + 1; guess >= hint->index; --guess) {
    xls_cell_t* candidate =
        static_cast<xls_cell_t*>(xls_array_access_near(cache, &hint->block, guess));
    if (candidate && compare_position(column, row, candidate) == 0) {
      hint->index = guess;
      auto_cell_set(cell, candidate);
      return 0;
    }
  }
  bool found = false;
  hint->index = kel_cell_cache_find_pos(cache, column, row, &found);
  auto_cell_set(cell, found ? static_cast<xls_cell_t*>(xls_array_access(cache, hint->index))
                            : nullptr);
  return 0;
}

uint32_t kel_cell_cache_access(auto_cell_t* cell, const kel_cell_cache_t* cache,
                               int index) {
  auto_cell_set(cell, static_cast<xls_cell_t*>(xls_array_access(cache, index)));
  return 0;
}

uint32_t kel_cell_cache_insert(kel_cell_cache_t* cache, const xls_cell_t* cell,
                               int* position) {
  int index = cache->count;
  // Cells read from a file come in order: they go on the end unsearched.
  if (index > 0 && compare_position(cell->column, cell->row, at(cache, index - 1)) <= 0) {
    bool found = false;
    index = kel_cell_cache_find_pos(cache, cell->column, cell->row, &found);
    if (found) return KEL_ERR_GENERAL;
  }
  xls_cell_t unpinned = *cell;
  unpinned.use_count = 0;
  unpinned.link_sheet = nullptr;
  unpinned.link_index = 0;
  uint32_t status = xls_array_insert(cache, index, &unpinned);
  if (status) return status;
  if (position) *position = index;
  return 0;
}

void kel_cell_appender_init(kel_cell_appender* appender, kel_cell_cache_t* cache) {
  *appender = kel_cell_appender{};
  appender->cache = cache;
}

void kel_cell_appender_resync(kel_cell_appender* appender) {
  const kel_cell_cache_t* cache = appender->cache;
  appender->room = 0;
  appender->count = cache->count;
  if (const xls_cell_t* last = at(cache, cache->count - 1)) {
    appender->last_column = last->column;
    appender->last_row = last->row;
  }
}

uint32_t kel_cell_appender_refill(kel_cell_appender* appender) {
  void* first = nullptr;
  uint32_t status = xls_array_free_tail(appender->cache, &first, &appender->room);
  appender->next = static_cast<xls_cell_t*>(first);
  return status;
}

void kel_cell_cache_init_it(kel_cell_iterator* it, const kel_cell_cache_t* cache) {
  *it = kel_cell_iterator{};
  it->cache = cache;
  it->index = -1;
}

static xls_cell_t* in_run(const kel_cell_iterator* it) {
  int offset = it->index - it->run_first;
  if (!it->run || it->run_table_count != it->cache->count || offset < 0 ||
      offset >= it->run_count)
    return nullptr;
  return it->run + offset;
}

xls_cell_t* kel_cell_cache_next_cell(kel_cell_iterator* it) {
  if (it->index < it->cache->count) it->index += 1;
  if (xls_cell_t* cell = in_run(it)) return cell;
  it->run = static_cast<xls_cell_t*>(xls_array_span(it->cache, it->index, &it->run_count));
  it->run_first = it->index;
  it->run_table_count = it->cache->count;
  return it->run;
}

xls_cell_t* kel_cell_cache_prior_cell(kel_cell_iterator* it) {
  // A new iterator stands before the first cell and behind the last.
  if (it->index < 0) it->index = it->cache->count;
  if (it->index >= 0) it->index -= 1;
  if (xls_cell_t* cell = in_run(it)) return cell;
  return static_cast<xls_cell_t*>(xls_array_access(it->cache, it->index));
}
