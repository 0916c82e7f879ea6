/*
 * zuv_iodiff.h -- a copy-on-write overlay on a stream.
 *
 * The workbook is edited byte by byte in a logical stream that the overlay
 * makes up of chunks: ranges that still stand in the unchanged stream below
 * (the base), and ranges held in memory.  Inserting ten bytes into a large
 * file costs one array entry and ten bytes, not a rewrite of the rest; the
 * base is never written.  After a save the overlay is re-based on the new
 * stream, which frees the memory chunks.
 *
 * Chunks lie in a flat array in order of logical offset, without gaps: each
 * starts where the one before ends, the first at 0, and the logical size is
 * the end of the last.  No chunk is empty but that a failed call may leave
 * one at the very end.  Each edit costs a binary search and a pass over the
 * later entries: it grows with the number of edits, never with the file.
 *
 * The logical stream is limited to 2 GiB - 1 bytes, as a chunk's length has
 * 31 bits; an edit that would pass that is KEL_ERR_OUT_OF_RANGE.
 */
#ifndef ZUV_IODIFF_H
#define ZUV_IODIFF_H

#include <stdint.h>

#include "foundation/zuv_io.h"
#include "foundation/zuv_iocache.h"

struct iod_open_params {
  zuv_io base;    /* the stream edited; all null for a stream made from nothing */
  zuv_io scratch; /* a temporary file; read null if there is none */
  zuv_mem mem;    /* memory of the chunks and the array */
};

/* Bit 31 of iod_chunk.length: the chunk's bytes are in memory. */
#define IOD_CHUNK_IN_MEMORY 0x80000000u
#define IOD_CHUNK_LENGTH_MASK 0x7FFFFFFFu

/* Three words on a 32-bit device; the array may hold thousands. */
struct iod_chunk {
  uint32_t offset; /* in the logical stream */
  uint32_t length; /* bytes, with IOD_CHUNK_IN_MEMORY */
  union {
    uint8_t* bytes;       /* in memory: allocated with the overlay's zuv_mem */
    uint32_t base_offset; /* in the base: where its bytes start there */
  } data;
};

#define IOD_INITIAL_CAPACITY 5000

enum {
  /* The scratch stream holds data of the overlay.  Nothing moves chunk data
   * there yet: a spill of memory chunks would set it. */
  IOD_SCRATCH_HOLDS_DATA = 1
};

/* Begins with the base stream's interface, so that the overlay may be passed
 * where that interface is wanted (zuv_io.h). */
struct io_diff {
  zuv_io base;
  zuv_io scratch;
  zuv_mem mem;
  io_cache* scratch_cache; /* one block over scratch; null without it */
  iod_chunk* chunks;
  uint32_t chunk_count;
  uint32_t chunk_capacity;
  uint8_t flags; /* IOD_SCRATCH_ */
};

/* Opens an overlay whose logical stream is params->base as it stands, and
 * stores it in *result (null on failure). */
uint32_t iod_open(const iod_open_params* params, io_diff** result);
/* Frees the overlay, its chunks and its scratch cache, and nulls *diff.
 * Safe on a null. */
void iod_discard(io_diff** diff);

/* The zuv_io slots; context is the io_diff.
 *
 * iod_read stores KEL_ERR_END_OF_FILE whenever fewer than size bytes come,
 * past the end or after a short read of the base, and returns the count that
 * came. */
uint32_t iod_read(void* context, void* buffer, uint32_t size, uint32_t offset,
                  uint32_t* status);
/* Overwrites; a write past the end leaves a gap of zeros.  On failure
 * (KEL_ERR_OUT_OF_MEMORY) it returns 0 with the stream as it was. */
uint32_t iod_write(void* context, const void* buffer, uint32_t size,
                   uint32_t offset, uint32_t* status);
uint32_t iod_get_size(void* context);
/* Cuts the stream, or grows it with zeros; returns a status. */
uint32_t iod_change_size(void* context, uint32_t size);
/* Answers self for ZUV_IO_LEVEL_DIFF. */
zuv_io* iod_get_base(zuv_io* self, uint16_t level);

/* Edits that only the overlay can do; workbook code calls them on the
 * io_diff found in the stack.  iod_insert makes room at offset and writes
 * there (past the end it writes as iod_write); it fails as iod_write.
 * iod_delete removes size bytes at offset; a range that runs past the end
 * stops there.  It returns a status. */
uint32_t iod_insert(io_diff* diff, const void* buffer, uint32_t size,
                    uint32_t offset, uint32_t* status);
uint32_t iod_delete(io_diff* diff, uint32_t offset, uint32_t size);

/* Makes base (null: none) the stream below, unchanged: frees every memory
 * chunk and leaves one chunk over all of base, none if base is empty or has
 * no read.  KEL_ERR_OUT_OF_RANGE for a base of 2 GiB or more.
 * Empties the scratch stream if it holds data. */
uint32_t iod_reset_to_new_base(io_diff* diff, const zuv_io* base);

/* Copies size bytes from source to target through buffer, in pieces of at
 * most buffer_size (0 is KEL_ERR_INVALID_ARGUMENT).  The first short
 * transfer ends the copy with its status (KEL_ERR_END_OF_FILE or
 * KEL_ERR_GENERAL if the stream stored none). */
uint32_t copy_distinct(zuv_io* source, uint32_t source_offset, uint32_t size,
                       zuv_io* target, uint32_t target_offset, void* buffer,
                       uint32_t buffer_size);
/* Copies the whole of source to the start of target.  The buffer takes at
 * most half of the memory available, and no more than the stream; without
 * that memory it copies through 256 bytes on the stack. */
uint32_t copy_data(zuv_io* target, zuv_io* source, const zuv_mem* mem);

#endif /* ZUV_IODIFF_H */
