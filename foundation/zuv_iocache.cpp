/*
 * zuv_iocache.cpp -- the write-back block cache.
 */
#include "foundation/zuv_iocache.h"

#include <string.h>

/* On the device a block with its header is 32,780 bytes; hosts size their
 * memory budget by that. */
static_assert(sizeof(void*) != 4 || sizeof(ioc_block) == 32780,
              "ioc_block header must stay three words on 32-bit targets");

#define IOC_OFFSET_MASK (IOC_BLOCK_SIZE - 1)
/* Room made beyond the block that asks, so that a growing stream doesn't
 * reallocate the table at every block. */
#define IOC_TABLE_SPARE 32

/* Makes the block table big enough for block number block. */
static uint32_t ioc_allocate_bp(io_cache* c, uint32_t block) {
  if (block + 1 < c->block_table_size) return 0;
  uint32_t entries = block + 1 + IOC_TABLE_SPARE;
  uint32_t bytes = entries * (uint32_t)sizeof(ioc_block*);
  void* table = c->block_table
                    ? c->mem.mem_realloc(c->mem.ident, c->block_table, bytes)
                    : c->mem.mem_alloc(c->mem.ident, bytes);
  if (!table) return KEL_ERR_OUT_OF_MEMORY;
  c->block_table = (ioc_block**)table;
  memset(c->block_table + c->block_table_size, 0,
         (entries - c->block_table_size) * sizeof(ioc_block*));
  c->block_table_size = entries;
  return 0;
}

/* Bytes of the stream that a block at position holds: a full block but for
 * the last one, none past the end. */
static uint32_t ioc_block_bytes(const io_cache* c, uint32_t position) {
  if (position >= c->size) return 0;
  uint32_t rest = c->size - position;
  return rest < IOC_BLOCK_SIZE ? rest : IOC_BLOCK_SIZE;
}

static void mark_block_access(io_cache* c, ioc_block* b) {
  if (c->most_recent == b) return;
  for (ioc_block* p = c->most_recent; p; p = p->next) {
    if (p->next == b) {
      p->next = b->next;
      break;
    }
  }
  b->next = c->most_recent;
  c->most_recent = b;
}

static uint32_t write_block(io_cache* c, ioc_block* b) {
  uint32_t count = ioc_block_bytes(c, b->position);
  uint32_t status = 0;
  if (c->lower.write(c->lower.context, b->data, count, b->position, &status) !=
      count)
    return status ? status : (uint32_t)KEL_ERR_GENERAL;
  b->flags &= ~IOC_BLOCK_DIRTY;
  return 0;
}

/* Loads the block at position.  The bytes behind the end of the stream are
 * zeroed, so that no byte of the block's previous use can turn up in a gap
 * that a later write leaves. */
static uint32_t read_block(io_cache* c, ioc_block* b, uint32_t position) {
  uint32_t count = ioc_block_bytes(c, position);
  if (count) {
    uint32_t status = 0;
    if (c->lower.read(c->lower.context, b->data, count, position, &status) !=
        count)
      return status ? status : (uint32_t)KEL_ERR_END_OF_FILE;
  }
  memset(b->data + count, 0, IOC_BLOCK_SIZE - count);
  b->flags = IOC_BLOCK_VALID;
  b->position = position;
  return 0;
}

/* Takes a block for block number block: the first unused one, else the least
 * recently used, written back first if it is dirty.  It comes back invalid,
 * entered in the table under its new number. */
static uint32_t find_free_block(io_cache* c, uint32_t block,
                                ioc_block** result) {
  ioc_block* b = c->most_recent;
  while (b->next && (b->flags & IOC_BLOCK_VALID)) b = b->next;
  if (b->flags & IOC_BLOCK_DIRTY) {
    uint32_t status = write_block(c, b);
    if (status) return status;
  }
  if (b->flags & IOC_BLOCK_VALID)
    c->block_table[b->position >> IOC_BLOCK_SHIFT] = nullptr;
  b->flags = 0;
  c->block_table[block] = b;
  *result = b;
  return 0;
}

/* The block for block number block, loaded and marked used.  whole: the
 * caller overwrites all of it, so its old bytes needn't be read. */
static uint32_t ioc_get_block(io_cache* c, uint32_t block, bool whole,
                              ioc_block** result) {
  uint32_t status = ioc_allocate_bp(c, block);
  if (status) return status;
  ioc_block* b = c->block_table[block];
  if (!b) {
    status = find_free_block(c, block, &b);
    if (status) return status;
    uint32_t position = block << IOC_BLOCK_SHIFT;
    if (whole) {
      b->flags = IOC_BLOCK_VALID;
      b->position = position;
    } else {
      status = read_block(c, b, position);
      if (status) {
        c->block_table[block] = nullptr;
        return status;
      }
    }
  }
  mark_block_access(c, b);
  *result = b;
  return 0;
}

uint32_t ioc_read(void* context, void* buffer, uint32_t size, uint32_t offset,
                  uint32_t* status) {
  io_cache* c = (io_cache*)context;
  if (size == 0) return 0;
  if (offset >= c->size) {
    *status = KEL_ERR_END_OF_FILE;
    return 0;
  }
  if (size > c->size - offset) {
    size = c->size - offset;
    *status = KEL_ERR_END_OF_FILE;
  }
  uint8_t* out = (uint8_t*)buffer;
  for (uint32_t done = 0; done < size;) {
    uint32_t position = offset + done;
    uint32_t block = position >> IOC_BLOCK_SHIFT;
    uint32_t at = position & IOC_OFFSET_MASK;
    uint32_t good = block == c->size >> IOC_BLOCK_SHIFT
                        ? c->size & IOC_OFFSET_MASK
                        : IOC_BLOCK_SIZE;
    if (at >= good) {
      *status = KEL_ERR_GENERAL;
      return 0;
    }
    ioc_block* b;
    uint32_t failure = ioc_get_block(c, block, false, &b);
    if (failure) {
      *status = failure;
      return 0;
    }
    uint32_t n = IOC_BLOCK_SIZE - at;
    if (n > size - done) n = size - done;
    memcpy(out + done, b->data + at, n);
    done += n;
  }
  return size;
}

uint32_t ioc_write(void* context, const void* buffer, uint32_t size,
                   uint32_t offset, uint32_t* status) {
  io_cache* c = (io_cache*)context;
  if (size > UINT32_MAX - offset) {
    *status = KEL_ERR_OUT_OF_RANGE;
    return 0;
  }
  const uint8_t* in = (const uint8_t*)buffer;
  for (uint32_t done = 0; done < size;) {
    uint32_t position = offset + done;
    uint32_t at = position & IOC_OFFSET_MASK;
    uint32_t n = IOC_BLOCK_SIZE - at;
    if (n > size - done) n = size - done;
    ioc_block* b;
    uint32_t failure =
        ioc_get_block(c, position >> IOC_BLOCK_SHIFT, n == IOC_BLOCK_SIZE, &b);
    if (failure) {
      *status = failure;
      return 0;
    }
    b->flags |= IOC_BLOCK_DIRTY;
    memcpy(b->data + at, in + done, n);
    done += n;
    if (position + n > c->size) c->size = position + n;
  }
  return size;
}

uint32_t ioc_get_size(void* context) { return ((io_cache*)context)->size; }

uint32_t ioc_change_size(void* context, uint32_t size) {
  io_cache* c = (io_cache*)context;
  if (size < c->size) {
    for (ioc_block* b = c->most_recent; b; b = b->next) {
      if ((b->flags & IOC_BLOCK_VALID) && b->position >= size) {
        c->block_table[b->position >> IOC_BLOCK_SHIFT] = nullptr;
        b->flags = 0;
      }
    }
  }
  c->size = size;
  return 0;
}

zuv_io* ioc_get_base(zuv_io* self, uint16_t level) {
  if (level == ZUV_IO_LEVEL_CACHE) return self;
  zuv_io* lower = &((io_cache*)self->context)->lower;
  return lower->get_base ? lower->get_base(lower, level) : nullptr;
}

uint32_t ioc_flush(io_cache* c) {
  /* The size first: a stream that grew must have room before blocks are
   * written behind its old end. */
  uint32_t status = c->lower.change_size(c->lower.context, c->size);
  if (status) return status;
  for (ioc_block* b = c->most_recent; b; b = b->next) {
    if (b->flags & IOC_BLOCK_DIRTY) {
      status = write_block(c, b);
      if (status) return status;
    }
  }
  return 0;
}

/* One piece for all blocks; a count whose bytes don't fit in 32 bits fails
 * like a refused allocation, and is halved. */
static ioc_block* ioc_allocate_blocks(const io_cache* c) {
  if (c->block_count > UINT32_MAX / sizeof(ioc_block)) return nullptr;
  return (ioc_block*)c->mem.mem_alloc(
      c->mem.ident, c->block_count * (uint32_t)sizeof(ioc_block));
}

uint32_t ioc_open(const ioc_open_params* params, io_cache** result) {
  *result = nullptr;
  io_cache* c = (io_cache*)params->mem.mem_alloc(params->mem.ident,
                                                 sizeof(io_cache));
  if (!c) return KEL_ERR_OUT_OF_MEMORY;
  memset(c, 0, sizeof *c);
  c->lower = params->lower;
  c->mem = params->mem;
  c->block_count = params->block_count;
  c->size = c->lower.get_size(c->lower.context);
  while (c->block_count && !(c->block_pool = ioc_allocate_blocks(c)))
    c->block_count /= 2;
  if (!c->block_pool ||
      ioc_allocate_bp(c, (c->size >> IOC_BLOCK_SHIFT) + 1)) {
    ioc_discard(&c);
    return KEL_ERR_OUT_OF_MEMORY;
  }
  for (uint32_t i = 0; i < c->block_count; i++) {
    c->block_pool[i].next =
        i + 1 < c->block_count ? &c->block_pool[i + 1] : nullptr;
    c->block_pool[i].flags = 0;
  }
  c->most_recent = c->block_pool;
  *result = c;
  return 0;
}

void ioc_discard(io_cache** cache) {
  if (!cache || !*cache) return;
  io_cache* c = *cache;
  if (c->block_pool) c->mem.mem_free(c->mem.ident, c->block_pool);
  if (c->block_table) c->mem.mem_free(c->mem.ident, c->block_table);
  c->mem.mem_free(c->mem.ident, c);
  *cache = nullptr;
}
