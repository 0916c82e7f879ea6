/*
 * zuv_io.h -- the stream and memory interfaces that every layer of the engine
 * shares, and the pool with which a host hands a file to the engine.
 *
 * The engine never reads a file into memory as one block.  A file is a stack
 * of stream objects with random access by absolute offset; each layer has the
 * interface below and holds the layer under it.  A layer object begins with a
 * copy of the zuv_io of the layer below, so that its address may stand for
 * that interface.
 *
 * Statuses (kel_status.h) live in the caller's variable and are written only
 * on failure: callers set it to 0 first or test the returned count.
 */
#ifndef ZUV_IO_H
#define ZUV_IO_H

#include <stdint.h>

#include "kel_status.h"

struct zuv_io;

/* Reads size bytes at the absolute offset; returns the bytes read.  On a
 * short read *status holds the reason. */
typedef uint32_t (*zuv_io_read_fn)(void* context, void* buffer, uint32_t size,
                                   uint32_t offset, uint32_t* status);
typedef uint32_t (*zuv_io_write_fn)(void* context, const void* buffer,
                                    uint32_t size, uint32_t offset,
                                    uint32_t* status);
typedef uint32_t (*zuv_io_get_size_fn)(void* context);
/* Returns a status. */
typedef uint32_t (*zuv_io_change_size_fn)(void* context, uint32_t size);
/* Finds the layer of the given level at or below self (the interface through
 * which this layer was reached): a layer answers self for its own level and
 * passes the question to the layer below otherwise; null if none has it. */
typedef struct zuv_io* (*zuv_io_get_base_fn)(struct zuv_io* self,
                                             uint16_t level);

/* Levels that get_base knows. */
enum {
  ZUV_IO_LEVEL_DIFF = 1,      /* the copy-on-write overlay */
  ZUV_IO_LEVEL_CACHE = 2,     /* the block cache */
  ZUV_IO_LEVEL_ENCRYPTION = 3 /* the workbook's RC4 layer */
};

/* A stream.  Every slot is called with context as its first argument, but
 * get_base, which takes the interface itself.  Any slot may be null where a
 * stream can't do it (a read-only file has no write). */
struct zuv_io {
  zuv_io_read_fn read;
  zuv_io_write_fn write;
  zuv_io_get_size_fn get_size;
  zuv_io_change_size_fn change_size;
  zuv_io_get_base_fn get_base;
  void* context;
};

typedef void mem_ident;

/* Memory of a workbook.  ident is given back to the three allocating calls. */
struct zuv_mem {
  void* (*mem_alloc)(mem_ident* ident, uint32_t size);
  void (*mem_free)(mem_ident* ident, void* block);
  void* (*mem_realloc)(mem_ident* ident, void* block, uint32_t size);
  uint32_t (*available)(void); /* free memory of the device in bytes */
  mem_ident* ident;
};

/* What a host passes to xls_open; the engine copies it.  A document stream
 * without a read slot asks for a new workbook; one without write and
 * change_size can only be viewed. */
struct xls_pool {
  struct zuv_io document;
  struct zuv_io scratch;  /* a temporary file; all null if the host has none */
  uint32_t carried[6];    /* carried along, never used; zero from every caller */
  struct zuv_mem mem;
};

#endif /* ZUV_IO_H */
