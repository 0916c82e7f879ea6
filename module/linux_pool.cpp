#include "module/linux_pool.h"

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

uint32_t linux_fread(void* file, void* buffer, uint32_t size, uint32_t offset,
                     uint32_t* status) {
  FILE* stream = static_cast<FILE*>(file);
  if (size == 0) return 0;
  if (fseeko(stream, static_cast<off_t>(offset), SEEK_SET) != 0) {
    *status = KEL_ERR_GENERAL;
    return 0;
  }
  size_t got = fread(buffer, 1, size, stream);
  if (got < size) *status = feof(stream) ? KEL_ERR_END_OF_FILE : KEL_ERR_GENERAL;
  return static_cast<uint32_t>(got);
}

uint32_t linux_fwrite(void* file, const void* buffer, uint32_t size,
                      uint32_t offset, uint32_t* status) {
  FILE* stream = static_cast<FILE*>(file);
  if (size == 0) return 0;
  if (fseeko(stream, static_cast<off_t>(offset), SEEK_SET) != 0) {
    *status = KEL_ERR_GENERAL;
    return 0;
  }
  size_t put = fwrite(buffer, 1, size, stream);
  if (put < size) {
    if (errno == ENOSPC)
      *status = KEL_ERR_DISK_FULL;
    else if (errno == ENOMEM)
      *status = KEL_ERR_OUT_OF_MEMORY;
    else
      *status = KEL_ERR_GENERAL;
  }
  return static_cast<uint32_t>(put);
}

uint32_t linux_fget_size(void* file) {
  FILE* stream = static_cast<FILE*>(file);
  if (fseeko(stream, 0, SEEK_END) != 0) return 0;
  return static_cast<uint32_t>(ftello(stream));
}

uint32_t linux_fchange_size(void* file, uint32_t size) {
  FILE* stream = static_cast<FILE*>(file);
  fflush(stream);
  if (ftruncate(fileno(stream), static_cast<off_t>(size)) == 0) return 0;
  // The device's file systems may refuse to truncate; the old position is
  // restored and the call counts as done when both seeks succeed, sizes
  // unchecked: callers rely on that.
  off_t position = ftello(stream);
  if (fseeko(stream, 0, SEEK_END) != 0) return KEL_ERR_GENERAL;
  if (position < 0 || fseeko(stream, position, SEEK_SET) != 0) return KEL_ERR_GENERAL;
  return 0;
}

/* The engine fills its large blocks (a chunk of cells, a cache block) end
 * to end soon after it asks for them.  Faulting their pages in with one
 * call is several times cheaper than a fault per page on first touch; a
 * kernel without MADV_POPULATE_WRITE (Linux 5.14) just declines. */
static void populate(void* block, uint32_t size) {
#ifdef MADV_POPULATE_WRITE
  enum { k_large_block = 256 * 1024 };
  if (!block || size < k_large_block) return;
  uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  uintptr_t start = (reinterpret_cast<uintptr_t>(block) + page - 1) & ~(page - 1);
  uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) & ~(page - 1);
  if (end > start) madvise(reinterpret_cast<void*>(start), end - start, MADV_POPULATE_WRITE);
#else
  (void)block;
  (void)size;
#endif
}

void* linux_malloc(mem_ident*, uint32_t size) {
  void* block = malloc(size);
  populate(block, size);
  return block;
}

void linux_free(mem_ident*, void* block) { free(block); }

void* linux_realloc(mem_ident*, void* block, uint32_t size) {
  void* grown = realloc(block, size);
  populate(grown, size);
  return grown;
}

uint32_t linux_available_mem(void) {
  uint32_t mem_free = 0, buffers = 0, cached = 0;
  FILE* info = fopen("/proc/meminfo", "r");
  if (info) {
    char line[128];
    while (fgets(line, sizeof line, info)) {
      unsigned value;
      if (sscanf(line, "MemFree: %u", &value) == 1) mem_free = value;
      else if (sscanf(line, "Buffers: %u", &value) == 1) buffers = value;
      else if (sscanf(line, "Cached: %u", &value) == 1) cached = value;
    }
    fclose(info);
  }
  if (mem_free != 0) return (mem_free + buffers + cached) * 1024u;
  long pages = sysconf(_SC_AVPHYS_PAGES);
  long page_size = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || page_size <= 0) return 0;
  return static_cast<uint32_t>(pages) * static_cast<uint32_t>(page_size);
}

uint32_t linux_available_storage(void) { return 0; }

void linux_pool_for_file(FILE* file, xls_pool* pool) {
  memset(pool, 0, sizeof *pool);
  pool->document.read = linux_fread;
  pool->document.get_size = linux_fget_size;
  pool->document.context = file;
  pool->mem.mem_alloc = linux_malloc;
  pool->mem.mem_free = linux_free;
  pool->mem.mem_realloc = linux_realloc;
  pool->mem.available = linux_available_mem;
}
