/*
 * zuv_array.cpp -- growing arrays: with an outside data pointer, with their
 * own data, and in a workbook's memory, flat or chunked.
 */
#include "foundation/zuv_array.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

namespace {

const int k_info_grow_step = 10;

/* Bytes of count elements; 0 when that doesn't fit 32 bits. */
uint32_t bytes_of(int count, int element_size) {
  if (count <= 0 || element_size <= 0) return 0;
  if ((uint32_t)count > 0xFFFFFFFFu / (uint32_t)element_size) return 0;
  return (uint32_t)count * (uint32_t)element_size;
}

char* slot(const void* data, int index, int element_size) {
  return (char*)data + (size_t)index * (size_t)element_size;
}

/* Opens a gap at index of a contiguous block holding count elements and
 * fills it from element, or leaves it as it is for a null element. */
void insert_contiguous(void* data, int count, int index, int element_size,
                       const void* element) {
  char* at = slot(data, index, element_size);
  memmove(at + element_size, at, (size_t)(count - index) * (size_t)element_size);
  if (element) memcpy(at, element, (size_t)element_size);
}

}  // namespace

/* ---- Array with an outside data pointer ---------------------------------- */

uint32_t xls_array_insert(xls_array_info* info, void** data, int index,
                          const void* element) {
  if (index < 0 || index > info->count) return KEL_ERR_GENERAL;
  if (info->count == info->capacity) {
    if (info->capacity > INT_MAX - k_info_grow_step) return KEL_ERR_OUT_OF_MEMORY;
    int capacity = info->capacity + k_info_grow_step;
    uint32_t bytes = bytes_of(capacity, info->element_size);
    void* grown = bytes ? realloc(*data, bytes) : nullptr;
    if (!grown) return KEL_ERR_OUT_OF_MEMORY;
    *data = grown;
    info->capacity = capacity;
  }
  insert_contiguous(*data, info->count, index, info->element_size, element);
  ++info->count;
  return 0;
}

uint32_t xls_array_push(xls_array_info* info, void** data, const void* element) {
  return xls_array_insert(info, data, info->count, element);
}

uint32_t xls_array_pop(xls_array_info* info, const void* data, void* element) {
  if (info->count <= 0) return KEL_ERR_GENERAL;
  --info->count;
  if (element) {
    memcpy(element, slot(data, info->count, info->element_size),
           (size_t)info->element_size);
  }
  return 0;
}

/* ---- Array with its own data --------------------------------------------- */

uint32_t xls_simple_array_insert(xls_simple_array* array, int index,
                                 const void* element) {
  if (index < 0 || index > array->count) return KEL_ERR_GENERAL;
  if (array->count == array->capacity) {
    if (array->grow_step <= 0) return KEL_ERR_GENERAL;
    if (array->capacity > INT_MAX - array->grow_step) return KEL_ERR_OUT_OF_MEMORY;
    int capacity = array->capacity + array->grow_step;
    uint32_t bytes = bytes_of(capacity, array->element_size);
    void* grown = bytes ? realloc(array->data, bytes) : nullptr;
    if (!grown) return KEL_ERR_OUT_OF_MEMORY;
    array->data = grown;
    array->capacity = capacity;
  }
  insert_contiguous(array->data, array->count, index, array->element_size, element);
  ++array->count;
  return 0;
}

int xls_ordered_array_pos(const xls_simple_array* array, const void* key,
                          int (*compare)(const void* key, const void* element),
                          bool* found) {
  if (found) *found = false;
  /* Everything before low sorts before the key, everything from high on
   * after it. */
  int low = 0, high = array->count;
  while (high - low >= 3) {
    int middle = low + (high - low) / 2;
    int order = compare(key, slot(array->data, middle, array->element_size));
    if (order == 0) {
      if (found) *found = true;
      return middle;
    }
    if (order < 0) high = middle;
    else low = middle + 1;
  }
  for (; low < high; ++low) {
    int order = compare(key, slot(array->data, low, array->element_size));
    if (order == 0 && found) *found = true;
    if (order <= 0) return low;
  }
  return high;
}

/* ---- Array in a workbook's memory ---------------------------------------- */

namespace {

void* mem_alloc(const zuv_mem* mem, uint32_t size) {
  return mem ? mem->mem_alloc(mem->ident, size) : malloc(size);
}

void* mem_realloc(const zuv_mem* mem, void* block, uint32_t size) {
  if (!block) return mem_alloc(mem, size);
  return mem ? mem->mem_realloc(mem->ident, block, size) : realloc(block, size);
}

void mem_free(const zuv_mem* mem, void* block) {
  if (!block) return;
  if (mem) mem->mem_free(mem->ident, block);
  else free(block);
}

int grow_step_of(const xls_array* array) {
  return array->grow_step > 0 ? array->grow_step : XLS_ARRAY_DEFAULT_GROW_STEP;
}

bool is_chunked(const xls_array* array) {
  return array->chunk_factor > 0;
}

/* Elements per chunk; 0 if that doesn't fit an int. */
int chunk_size_of(const xls_array* array) {
  int64_t size = (int64_t)grow_step_of(array) * array->chunk_factor;
  return size <= INT_MAX ? (int)size : 0;
}

char* element_at(const xls_array* array, int chunk_size, int index) {
  if (!chunk_size) return slot(array->data, index, array->element_size);
  void** chunks = (void**)array->data;
  return slot(chunks[index / chunk_size], index % chunk_size, array->element_size);
}

uint32_t grow_flat(xls_array* array) {
  int step = grow_step_of(array);
  if (array->capacity > INT_MAX - step) return KEL_ERR_OUT_OF_MEMORY;
  int capacity = array->capacity + step;
  uint32_t bytes = bytes_of(capacity, array->element_size);
  void* grown = bytes ? mem_realloc(array->mem, array->data, bytes) : nullptr;
  if (!grown) return KEL_ERR_OUT_OF_MEMORY;
  array->data = grown;
  array->capacity = capacity;
  return 0;
}

/* Grows the last chunk in use, or, when it is full, opens the next one; so
 * no single allocation passes one chunk.  The first chunk starts at a step
 * and doubles, so that a small array stays small and a large one isn't
 * copied over and over; a later chunk is only needed by an array that has
 * already filled one, and is taken whole. */
uint32_t grow_chunked(xls_array* array, int chunk_size) {
  int step = grow_step_of(array);
  if (!array->data) {
    uint32_t table_bytes = XLS_ARRAY_CHUNKS * sizeof(void*);
    void* table = mem_alloc(array->mem, table_bytes);
    if (!table) return KEL_ERR_OUT_OF_MEMORY;
    memset(table, 0, table_bytes);
    array->data = table;
  }
  void** chunks = (void**)array->data;
  int chunks_in_use = array->capacity / chunk_size + (array->capacity % chunk_size != 0);
  int last_capacity = chunks_in_use ? array->capacity - (chunks_in_use - 1) * chunk_size : 0;
  if (chunks_in_use && last_capacity < chunk_size) {
    int grown_capacity = last_capacity + (last_capacity > step ? last_capacity : step);
    if (grown_capacity > chunk_size || grown_capacity < last_capacity) grown_capacity = chunk_size;
    uint32_t bytes = bytes_of(grown_capacity, array->element_size);
    void* grown = bytes ? mem_realloc(array->mem, chunks[chunks_in_use - 1], bytes) : nullptr;
    if (!grown) return KEL_ERR_OUT_OF_MEMORY;
    chunks[chunks_in_use - 1] = grown;
    array->capacity += grown_capacity - last_capacity;
    return 0;
  }
  /* The table has room for one more pointer than is ever used. */
  if (chunks_in_use >= XLS_ARRAY_CHUNKS - 1) return KEL_ERR_GENERAL;
  int capacity = chunks_in_use ? chunk_size : step;
  uint32_t bytes = bytes_of(capacity, array->element_size);
  void* chunk = bytes ? mem_alloc(array->mem, bytes) : nullptr;
  if (!chunk) return KEL_ERR_OUT_OF_MEMORY;
  chunks[chunks_in_use] = chunk;
  array->capacity += capacity;
  return 0;
}

/* Makes room for one more element, growing a full array: *chunk_size gets
 * the chunk size, 0 for a flat array. */
uint32_t make_room(xls_array* array, int* chunk_size) {
  *chunk_size = 0;
  if (is_chunked(array)) {
    *chunk_size = chunk_size_of(array);
    if (!*chunk_size) return KEL_ERR_GENERAL;
  }
  if (array->count < array->capacity) return 0;
  return *chunk_size ? grow_chunked(array, *chunk_size) : grow_flat(array);
}

}  // namespace

uint32_t xls_array_insert(xls_array* array, int index, const void* element) {
  if (index < 0 || index > array->count) return KEL_ERR_GENERAL;
  int chunk_size = 0;
  uint32_t status = make_room(array, &chunk_size);
  if (status) return status;
  const size_t size = (size_t)array->element_size;
  if (!chunk_size) {
    insert_contiguous(array->data, array->count, index, array->element_size, nullptr);
  } else {
    /* From the top down: within a chunk one move, and across each boundary
     * the last element of the chunk below goes to the first place of the
     * chunk above. */
    int position = array->count;
    while (position > index) {
      int offset = position % chunk_size;
      if (offset == 0) {
        memcpy(element_at(array, chunk_size, position),
               element_at(array, chunk_size, position - 1), size);
        --position;
      } else {
        int first = position - offset > index ? position - offset : index;
        char* start = element_at(array, chunk_size, first);
        memmove(start + size, start, (size_t)(position - first) * size);
        position = first;
      }
    }
  }
  char* at = element_at(array, chunk_size, index);
  if (element) memcpy(at, element, size);
  else memset(at, 0, size);
  ++array->count;
  return 0;
}

uint32_t xls_array_remove(xls_array* array, int index) {
  if (index < 0 || index >= array->count) return KEL_ERR_GENERAL;
  const size_t size = (size_t)array->element_size;
  const int last = array->count - 1;
  if (!is_chunked(array)) {
    char* at = slot(array->data, index, array->element_size);
    memmove(at, at + size, (size_t)(last - index) * size);
  } else {
    /* From the bottom up, the inverse of insertion. */
    const int chunk_size = chunk_size_of(array);
    int position = index;
    while (position < last) {
      int offset = position % chunk_size;
      if (offset == chunk_size - 1) {
        memcpy(element_at(array, chunk_size, position),
               element_at(array, chunk_size, position + 1), size);
        ++position;
      } else {
        int chunk_end = position - offset + chunk_size - 1;
        int end = chunk_end < last ? chunk_end : last;
        char* at = element_at(array, chunk_size, position);
        memmove(at, at + size, (size_t)(end - position) * size);
        position = end;
      }
    }
  }
  --array->count;
  return 0;
}

void* xls_array_access(const xls_array* array, int index) {
  if (index < 0 || index >= array->count) return nullptr;
  return element_at(array, is_chunked(array) ? chunk_size_of(array) : 0, index);
}

void* xls_array_access_block(const xls_array* array, xls_array_block* block, int index) {
  if (index < 0 || index >= array->count) return nullptr;
  if (!is_chunked(array)) return slot(array->data, index, array->element_size);
  int chunk_size = chunk_size_of(array);
  if (!chunk_size) return nullptr;
  block->chunk = index / chunk_size;
  block->first = block->chunk * chunk_size;
  block->end = block->first + chunk_size;
  block->grow_step = array->grow_step;
  block->chunk_factor = array->chunk_factor;
  void** chunks = (void**)array->data;
  return slot(chunks[block->chunk], index - block->first, array->element_size);
}

void* xls_array_span(const xls_array* array, int index, int* contiguous) {
  *contiguous = 0;
  if (index < 0 || index >= array->count) return nullptr;
  int chunk_size = is_chunked(array) ? chunk_size_of(array) : 0;
  int block_end = chunk_size ? index - index % chunk_size + chunk_size : array->count;
  *contiguous = (block_end < array->count ? block_end : array->count) - index;
  return element_at(array, chunk_size, index);
}

uint32_t xls_array_free_tail(xls_array* array, void** first, int* room) {
  *first = nullptr;
  *room = 0;
  int chunk_size = 0;
  uint32_t status = make_room(array, &chunk_size);
  if (status) return status;
  int block_end = chunk_size ? array->count - array->count % chunk_size + chunk_size
                             : array->capacity;
  *room = (block_end < array->capacity ? block_end : array->capacity) - array->count;
  *first = element_at(array, chunk_size, array->count);
  return 0;
}

uint32_t xls_array_hint_size(xls_array* array, int count) {
  if (count < 0) return KEL_ERR_GENERAL;
  const int original_count = array->count;
  for (int i = 0; i < count; ++i) {
    uint32_t status = xls_array_insert(array, array->count, nullptr);
    if (status) {
      array->count = original_count;
      return status;
    }
  }
  return 0;
}

void xls_array_free(xls_array* array) {
  if (!array) return;
  if (array->data && is_chunked(array)) {
    void** chunks = (void**)array->data;
    for (int i = 0; i < XLS_ARRAY_CHUNKS; ++i) mem_free(array->mem, chunks[i]);
  }
  mem_free(array->mem, array->data);
  array->data = nullptr;
  array->capacity = 0;
  array->count = 0;
}
