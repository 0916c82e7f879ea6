/*
 * zuv_iocache.h -- a write-back block cache over a stream.
 *
 * The streams under the engine (a compound file stream over a host's file)
 * are slow to reach and are read in small records at scattered offsets.  The
 * cache holds a fixed number of 32,768-byte blocks of the stream, the least
 * recently used one giving way to a new one.  Writes stay in the blocks and
 * reach the lower stream only when a block gives way or at ioc_flush; the
 * size of the cache's stream may differ from the lower one's until then.
 *
 * The block count is the caller's memory budget.  All blocks come from one
 * allocation; if that can't be had, the count is halved until it can.
 *
 * The lower stream must give read and get_size; write and change_size are
 * needed once blocks are written back.  The cache is meant for streams
 * written front to back: the bytes of a gap left by a write past the end are
 * zero within a block that the cache holds, and read from the lower stream
 * otherwise, which may not have them.
 */
#ifndef ZUV_IOCACHE_H
#define ZUV_IOCACHE_H

#include <stdint.h>

#include "foundation/zuv_io.h"

#define IOC_BLOCK_SHIFT 15
#define IOC_BLOCK_SIZE (1u << IOC_BLOCK_SHIFT) /* 32,768 */

struct ioc_open_params {
  zuv_io lower;         /* the stream to cache */
  zuv_mem mem;          /* where the cache's memory comes from */
  uint32_t block_count; /* blocks wanted; 0 fails */
};

enum {
  IOC_BLOCK_VALID = 1, /* data holds the stream's bytes at position */
  IOC_BLOCK_DIRTY = 2  /* data differs from the lower stream */
};

struct ioc_block {
  ioc_block* next; /* the next less recently used block */
  uint8_t flags;   /* IOC_BLOCK_ */
  uint32_t position; /* stream offset of data[0], a multiple of the size */
  uint8_t data[IOC_BLOCK_SIZE];
};

/* Begins with the lower stream's interface, so that the cache object may be
 * passed where that interface is wanted (zuv_io.h). */
struct io_cache {
  zuv_io lower;
  zuv_mem mem;
  uint32_t block_count; /* as allocated, after any halving */
  uint32_t size;        /* stream size in bytes, the lower stream's after a flush */
  ioc_block* block_pool;  /* all blocks, one allocation */
  ioc_block* most_recent; /* head of all blocks in order of use */
  /* One entry per block position of the stream (offset >> 15); null where
   * that block isn't in memory. */
  ioc_block** block_table;
  uint32_t block_table_size;
};

/* Opens a cache over params->lower and stores it in *result (null on
 * failure).  KEL_ERR_OUT_OF_MEMORY if not even one block can be had. */
uint32_t ioc_open(const ioc_open_params* params, io_cache** result);
/* Frees the cache and nulls *cache; writes nothing back (flush first to keep
 * the data).  Safe on a null. */
void ioc_discard(io_cache** cache);

/* The zuv_io slots; context is the io_cache.  A read over the end delivers
 * what there is and stores KEL_ERR_END_OF_FILE.  A read or write that fails
 * in the lower stream returns 0 and stores the lower stream's status (if it
 * stored none: KEL_ERR_END_OF_FILE for a read, KEL_ERR_GENERAL for a write). */
uint32_t ioc_read(void* context, void* buffer, uint32_t size, uint32_t offset,
                  uint32_t* status);
uint32_t ioc_write(void* context, const void* buffer, uint32_t size,
                   uint32_t offset, uint32_t* status);
uint32_t ioc_get_size(void* context);
/* Shrinking forgets the blocks behind the new end, written or not. */
uint32_t ioc_change_size(void* context, uint32_t size);
/* Answers self for ZUV_IO_LEVEL_CACHE. */
zuv_io* ioc_get_base(zuv_io* self, uint16_t level);

/* Sets the lower stream's size to the cache's, then writes back every block
 * written since it was loaded.  Stops at the first failure and returns it.
 * The blocks stay in memory. */
uint32_t ioc_flush(io_cache* cache);

#endif /* ZUV_IOCACHE_H */
