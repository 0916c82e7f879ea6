/*
 * linux_pool.h -- the callbacks with which a session hands a stdio file and
 * the C library's memory to the engine, and the device's free memory.
 *
 * Each has the shape of its slot in xls_pool (foundation/zuv_io.h); the
 * stream callbacks take the FILE* as their context.
 */
#ifndef LINUX_POOL_H
#define LINUX_POOL_H

#include <stdint.h>
#include <stdio.h>

#include "foundation/zuv_io.h"

/* Reads size bytes at offset from the file's start.  Size 0 reads nothing.
 * A failed seek stores KEL_ERR_GENERAL; a short read KEL_ERR_END_OF_FILE at
 * the end of the file, else KEL_ERR_GENERAL.  Returns the bytes read. */
uint32_t linux_fread(void* file, void* buffer, uint32_t size, uint32_t offset,
                     uint32_t* status);
/* As linux_fread; a short write stores KEL_ERR_DISK_FULL for ENOSPC,
 * KEL_ERR_OUT_OF_MEMORY for ENOMEM and KEL_ERR_GENERAL otherwise. */
uint32_t linux_fwrite(void* file, const void* buffer, uint32_t size,
                      uint32_t offset, uint32_t* status);
/* The file's size; 0 if the end can't be sought.  Leaves the position at the
 * end. */
uint32_t linux_fget_size(void* file);
/* Truncates or extends the file; a status. */
uint32_t linux_fchange_size(void* file, uint32_t size);

/* The C library's allocator; the identity is ignored. */
void* linux_malloc(mem_ident* ident, uint32_t size);
void linux_free(mem_ident* ident, void* block);
void* linux_realloc(mem_ident* ident, void* block, uint32_t size);

/* Free memory of the device in bytes, from /proc/meminfo (free, buffers and
 * page cache), else from sysconf; 32-bit arithmetic, as on the device. */
uint32_t linux_available_mem(void);
/* Free storage: not known, always 0. */
uint32_t linux_available_storage(void);

/* Fills a pool for viewing file: reads and the size only (no write, no
 * change of size), the C library's memory, no scratch stream. */
void linux_pool_for_file(FILE* file, xls_pool* pool);

#endif /* LINUX_POOL_H */
