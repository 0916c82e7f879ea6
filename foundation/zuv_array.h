/*
 * zuv_array.h -- growing arrays of fixed-size elements.
 *
 * Three forms, from the lightest:
 *   xls_array_info    size, capacity and count; the owner keeps the data
 *                     pointer beside it and passes it in.  The C library's
 *                     realloc, 10 elements at a time.
 *   xls_simple_array  the same with its data and its own grow step; malloc.
 *   xls_array         memory of a workbook (zuv_mem), flat or chunked.  A
 *                     chunked array never asks for more than one chunk at a
 *                     time, which a small, fragmented heap can still serve,
 *                     and an insertion moves the rest of one chunk and then
 *                     one element per later chunk: the cells of a large
 *                     sheet live in one.
 *
 * Elements are raw bytes, copied with memcpy.  Sizes, counts and indexes
 * are int.  Statuses are those of kel_status.h; on KEL_ERR_OUT_OF_MEMORY an
 * array keeps its elements and count.
 */
#ifndef ZUV_ARRAY_H
#define ZUV_ARRAY_H

#include <stddef.h>
#include <stdint.h>

#include "foundation/zuv_io.h"
#include "kel_status.h"

/* ---- Array with an outside data pointer ---------------------------------
 *
 * A zero-filled record with the element size set, and a null data pointer,
 * is an empty array.  The owner frees the data with free. */
struct xls_array_info {
  int element_size;
  int capacity;
  int count;
};

/* Appends a copy of element; a null element leaves the new slot
 * uninitialised for the caller to fill.  Grows by 10 elements. */
uint32_t xls_array_push(xls_array_info* info, void** data, const void* element);
/* Inserts at index (0 to count), moving the elements behind it up;
 * element as for push.  KEL_ERR_GENERAL for an index outside 0 to count. */
uint32_t xls_array_insert(xls_array_info* info, void** data, int index,
                          const void* element);
/* Takes the last element off, copying it to element unless that is null;
 * KEL_ERR_GENERAL if the array is empty.  Memory isn't given back. */
uint32_t xls_array_pop(xls_array_info* info, const void* data, void* element);

/* ---- Array with its own data --------------------------------------------
 *
 * Zero-filled with element size and grow step set is empty; the owner frees
 * data with free. */
struct xls_simple_array {
  int element_size;
  int capacity;
  int count;
  int grow_step;
  void* data;
};

/* Inserts at index (0 to count), the capacity growing by the grow step;
 * a null element leaves the slot uninitialised.  KEL_ERR_GENERAL for an
 * index outside 0 to count, or a full array with grow step 0. */
uint32_t xls_simple_array_insert(xls_simple_array* array, int index,
                                 const void* element);

/* Binary search of a sorted array while the span is 3 or more elements, then
 * a linear walk.  compare(key, element) is negative when the key sorts before
 * the element, as for bsearch.  Returns the index of a matching element, with
 * *found true, or the index of the first element after the key -- where to
 * insert it -- with *found false.  An empty array gives 0.  found may be
 * null. */
int xls_ordered_array_pos(const xls_simple_array* array, const void* key,
                          int (*compare)(const void* key, const void* element),
                          bool* found);

/* ---- Array in a workbook's memory ---------------------------------------
 *
 * Flat (chunk_factor 0): data holds the elements, and the array grows by
 * grow_step with mem_realloc.
 *
 * Chunked (chunk_factor > 0): data is a table of XLS_ARRAY_CHUNKS chunk
 * pointers, allocated zeroed on first need.  Chunk i holds elements i * C to
 * i * C + C - 1, with C = grow_step * chunk_factor.  The first chunk
 * starts at grow_step elements and doubles up to C; every later chunk is
 * allocated whole.  All chunks before the last in use are full; so
 * capacity is the sum of what the chunks hold.  At most 255 chunks
 * are used.  Chunks stay allocated when elements are removed.
 *
 * A record holding its configuration and zero otherwise is empty:
 *   xls_array offsets = {&pool->mem, 4, 0, 0, 10, 0, nullptr};
 * A null mem means the C library's allocator. */
#define XLS_ARRAY_CHUNKS 256
#define XLS_ARRAY_DEFAULT_GROW_STEP 50

struct xls_array {
  const zuv_mem* mem;
  int element_size;
  int capacity;
  int count;
  int grow_step;    /* 0 stands for XLS_ARRAY_DEFAULT_GROW_STEP */
  int chunk_factor; /* 0: flat */
  void* data;
};

/* Inserts a copy of element at index (0 to count), moving the elements behind
 * it up; a null element gives a zero-filled slot.  KEL_ERR_GENERAL for an
 * index outside 0 to count, or for a chunked array that would need more than
 * 255 chunks. */
uint32_t xls_array_insert(xls_array* array, int index, const void* element);
/* Removes the element at index (0 to count - 1), moving the ones behind it
 * down; KEL_ERR_GENERAL for another index. */
uint32_t xls_array_remove(xls_array* array, int index);
/* The element at index; null for an index outside 0 to count - 1. */
void* xls_array_access(const xls_array* array, int index);
/* The block of elements that an index fell in, remembered so that access to
 * indexes near it needs no division.  Zero-filled knows no block.  A block
 * holds for any array of the same grow step and chunk factor, which are
 * checked, so one record may serve several arrays in turn. */
struct xls_array_block {
  int first, end; /* indexes of the block's first element and one past its last */
  int chunk;      /* its chunk */
  int grow_step, chunk_factor;
};
/* The element at index when it lies in block, else null. */
inline void* xls_array_access_in_block(const xls_array* array, const xls_array_block* block,
                                       int index) {
  if (index >= block->first && index < block->end && index < array->count &&
      block->grow_step == array->grow_step && block->chunk_factor == array->chunk_factor)
    return static_cast<char*>(static_cast<void**>(array->data)[block->chunk]) +
           static_cast<size_t>(index - block->first) * static_cast<size_t>(array->element_size);
  return nullptr;
}
/* xls_array_access_near when index lies outside block: block moves to it. */
void* xls_array_access_block(const xls_array* array, xls_array_block* block, int index);
/* As xls_array_access, through block: inline, as a walk through a large
 * table asks it once an element. */
inline void* xls_array_access_near(const xls_array* array, xls_array_block* block, int index) {
  if (void* element = xls_array_access_in_block(array, block, index)) return element;
  return xls_array_access_block(array, block, index);
}
/* The element at index, with *contiguous set to the number of elements
 * from it on that lie in one block (to the end of its chunk or of the
 * array); null, and 0, for an index outside 0 to count - 1. */
void* xls_array_span(const xls_array* array, int index, int* contiguous);
/* The free slots behind the last element that lie in one block, for a
 * caller that appends many elements in a row without a copy each: *first
 * gets the first of them and *room their number; a full array grows first,
 * failing as xls_array_insert does.  The caller fills them in order and
 * raises count by each one it fills; the pointer is good until the array
 * changes otherwise. */
uint32_t xls_array_free_tail(xls_array* array, void** first, int* room);
/* Appends count zero-filled elements.  On failure none are added. */
uint32_t xls_array_hint_size(xls_array* array, int count);
/* Frees the elements; the configuration stays, so the array can be used
 * again.  Null is accepted. */
void xls_array_free(xls_array* array);

#endif /* ZUV_ARRAY_H */
