/*
 * zuv_iodiff.cpp -- the copy-on-write overlay.
 *
 * Base data is never copied: an edit only re-points base chunks, and memory
 * holds just the bytes that were written.  Adjacent chunks are not merged in
 * general; a write absorbs the rest of a memory chunk that it runs into, and
 * consecutive insertions and appends grow one memory chunk, so that repeated
 * edits at one place don't leave a trail of small entries.
 */
#include "foundation/zuv_iodiff.h"

#include <string.h>

static_assert(sizeof(void*) != 4 || sizeof(iod_chunk) == 12,
              "a chunk must stay three words on 32-bit targets");

#define IOD_MAX_SIZE IOD_CHUNK_LENGTH_MASK
/* Entries one edit may add (a split in three), with room to spare. */
#define IOD_ROOM 10

static uint32_t chunk_length(const iod_chunk* c) {
  return c->length & IOD_CHUNK_LENGTH_MASK;
}

static bool in_memory(const iod_chunk* c) {
  return (c->length & IOD_CHUNK_IN_MEMORY) != 0;
}

static uint32_t chunk_end(const iod_chunk* c) {
  return c->offset + chunk_length(c);
}

/* Keeps the memory flag. */
static void set_length(iod_chunk* c, uint32_t length) {
  c->length = (c->length & IOD_CHUNK_IN_MEMORY) | length;
}

static iod_chunk memory_chunk(uint32_t offset, uint32_t length, uint8_t* bytes) {
  iod_chunk c;
  c.offset = offset;
  c.length = length | IOD_CHUNK_IN_MEMORY;
  c.data.bytes = bytes;
  return c;
}

static iod_chunk base_chunk(uint32_t offset, uint32_t length,
                            uint32_t base_offset) {
  iod_chunk c;
  c.offset = offset;
  c.length = length;
  c.data.base_offset = base_offset;
  return c;
}

/* Whether a logical stream reaching offset + size can be represented. */
static bool iod_fits(uint32_t offset, uint32_t size) {
  return offset <= IOD_MAX_SIZE && size <= IOD_MAX_SIZE - offset;
}

/* Stores a failure and gives the byte count of a failed transfer. */
static uint32_t fail(uint32_t* status, uint32_t code) {
  *status = code;
  return 0;
}

static uint8_t* iod_alloc(io_diff* d, uint32_t size) {
  return (uint8_t*)d->mem.mem_alloc(d->mem.ident, size);
}

/* Capacity check before an edit that may add entries: grows the array by
 * half when fewer than IOD_ROOM entries are left, so that one edit always has
 * room for what it adds. */
static uint32_t realloc_chunks(io_diff* d) {
  if (d->chunk_count <= d->chunk_capacity - IOD_ROOM) return 0;
  if (d->chunk_capacity > UINT32_MAX / 3) return KEL_ERR_OUT_OF_MEMORY;
  uint32_t capacity = d->chunk_capacity * 3 / 2;
  if (capacity > UINT32_MAX / sizeof(iod_chunk)) return KEL_ERR_OUT_OF_MEMORY;
  void* chunks = d->mem.mem_realloc(d->mem.ident, d->chunks,
                                    capacity * (uint32_t)sizeof(iod_chunk));
  if (!chunks) return KEL_ERR_OUT_OF_MEMORY;
  d->chunks = (iod_chunk*)chunks;
  d->chunk_capacity = capacity;
  return 0;
}

/* Index of the chunk that holds offset, or the count if it lies past the
 * end.  Binary search narrows the span to fewer than 3 entries; a walk does
 * the rest, and steps over a chunk left empty. */
static uint32_t locate_chunk(const io_diff* d, uint32_t offset) {
  uint32_t low = 0, high = d->chunk_count;
  while (high - low >= 3) {
    uint32_t middle = low + (high - low) / 2;
    if (d->chunks[middle].offset <= offset)
      low = middle;
    else
      high = middle;
  }
  for (; low < d->chunk_count; low++)
    if (offset < chunk_end(&d->chunks[low])) return low;
  return d->chunk_count;
}

/* Opens count entries at index at; the capacity check has made room. */
static void open_entries(io_diff* d, uint32_t at, uint32_t count) {
  memmove(d->chunks + at + count, d->chunks + at,
          (d->chunk_count - at) * sizeof(iod_chunk));
  d->chunk_count += count;
}

/* Removes the entries from first up to last, freeing their memory. */
static void remove_entries(io_diff* d, uint32_t first, uint32_t last) {
  for (uint32_t i = first; i < last; i++)
    if (in_memory(&d->chunks[i]))
      d->mem.mem_free(d->mem.ident, d->chunks[i].data.bytes);
  memmove(d->chunks + first, d->chunks + last,
          (d->chunk_count - last) * sizeof(iod_chunk));
  d->chunk_count -= last - first;
}

/* Adds gap zero bytes and then size bytes of data at the end: the last chunk
 * grows if it is in memory, else a memory chunk is appended (the capacity
 * check is the caller's). */
static uint32_t append_bytes(io_diff* d, uint32_t gap, const void* data,
                             uint32_t size) {
  uint32_t logical = iod_get_size(d);
  iod_chunk* last = d->chunk_count ? &d->chunks[d->chunk_count - 1] : nullptr;
  uint8_t* bytes;
  if (last && in_memory(last)) {
    uint32_t length = chunk_length(last);
    bytes = (uint8_t*)d->mem.mem_realloc(d->mem.ident, last->data.bytes,
                                         length + gap + size);
    if (!bytes) return KEL_ERR_OUT_OF_MEMORY;
    last->data.bytes = bytes;
    set_length(last, length + gap + size);
    bytes += length;
  } else {
    bytes = iod_alloc(d, gap + size);
    if (!bytes) return KEL_ERR_OUT_OF_MEMORY;
    d->chunks[d->chunk_count++] = memory_chunk(logical, gap + size, bytes);
  }
  memset(bytes, 0, gap);
  if (size) memcpy(bytes + gap, data, size);
  return 0;
}

/* After a write into chunk k: the chunks behind it that its end covers are
 * dropped, and a base chunk it runs into is trimmed at its start. */
static void clean_up(io_diff* d, uint32_t k) {
  uint32_t stop = chunk_end(&d->chunks[k]);
  uint32_t m = k + 1;
  while (m < d->chunk_count && chunk_end(&d->chunks[m]) <= stop) m++;
  if (m < d->chunk_count && d->chunks[m].offset < stop) {
    iod_chunk* c = &d->chunks[m];
    uint32_t overlap = stop - c->offset;
    c->offset += overlap;
    c->data.base_offset += overlap;
    set_length(c, chunk_length(c) - overlap);
  }
  remove_entries(d, k + 1, m);
}

uint32_t iod_write(void* context, const void* buffer, uint32_t size,
                   uint32_t offset, uint32_t* status) {
  io_diff* d = (io_diff*)context;
  if (size == 0) return 0;
  if (!iod_fits(offset, size)) return fail(status, KEL_ERR_OUT_OF_RANGE);
  uint32_t failure = realloc_chunks(d);
  if (failure) return fail(status, failure);
  uint32_t logical = iod_get_size(d);
  if (offset >= logical) {
    failure = append_bytes(d, offset - logical, buffer, size);
    return failure ? fail(status, failure) : size;
  }

  uint32_t i = locate_chunk(d, offset);
  const iod_chunk chunk = d->chunks[i];
  uint32_t length = chunk_length(&chunk);
  uint32_t at = offset - chunk.offset;
  uint32_t end = at + size;

  /* A write past chunk i that ends inside a memory chunk takes that chunk's
   * tail into its own memory, so that no scrap of it stays behind. */
  const uint8_t* tail = nullptr;
  uint32_t tail_length = 0;
  if (end > length) {
    uint32_t range_end = offset + size;
    uint32_t j = locate_chunk(d, range_end);
    if (j < d->chunk_count && in_memory(&d->chunks[j])) {
      tail = d->chunks[j].data.bytes + (range_end - d->chunks[j].offset);
      tail_length = chunk_end(&d->chunks[j]) - range_end;
    }
  }

  uint32_t k = i; /* the chunk that ends up holding the data */
  if (in_memory(&chunk)) {
    if (end <= length) {
      memcpy(chunk.data.bytes + at, buffer, size);
    } else {
      uint8_t* bytes = (uint8_t*)d->mem.mem_realloc(
          d->mem.ident, chunk.data.bytes, end + tail_length);
      if (!bytes) return fail(status, KEL_ERR_OUT_OF_MEMORY);
      memcpy(bytes + at, buffer, size);
      if (tail_length) memcpy(bytes + end, tail, tail_length);
      d->chunks[i].data.bytes = bytes;
      set_length(&d->chunks[i], end + tail_length);
    }
  } else {
    uint8_t* bytes = iod_alloc(d, size + tail_length);
    if (!bytes) return fail(status, KEL_ERR_OUT_OF_MEMORY);
    memcpy(bytes, buffer, size);
    if (tail_length) memcpy(bytes + size, tail, tail_length);
    iod_chunk piece = memory_chunk(offset, size + tail_length, bytes);
    if (at > 0) {
      set_length(&d->chunks[i], at);
      k = i + 1;
      open_entries(d, k, 1);
    }
    d->chunks[k] = piece;
    if (end < length) {
      open_entries(d, k + 1, 1);
      d->chunks[k + 1] =
          base_chunk(offset + size, length - end, chunk.data.base_offset + end);
    }
  }
  clean_up(d, k);
  return size;
}

uint32_t iod_insert(io_diff* d, const void* buffer, uint32_t size,
                    uint32_t offset, uint32_t* status) {
  if (size == 0) return 0;
  uint32_t logical = iod_get_size(d);
  if (offset >= logical) return iod_write(d, buffer, size, offset, status);
  if (!iod_fits(logical, size)) return fail(status, KEL_ERR_OUT_OF_RANGE);
  uint32_t failure = realloc_chunks(d);
  if (failure) return fail(status, failure);

  uint32_t i = locate_chunk(d, offset);
  /* At the start of a chunk behind a memory chunk, that one grows instead:
   * a run of insertions at one place makes one block. */
  if (i > 0 && offset == d->chunks[i].offset && in_memory(&d->chunks[i - 1]))
    i--;
  const iod_chunk chunk = d->chunks[i];
  uint32_t length = chunk_length(&chunk);
  uint32_t at = offset - chunk.offset;
  uint32_t next; /* the first chunk behind the new bytes */
  if (in_memory(&chunk)) {
    uint8_t* bytes = (uint8_t*)d->mem.mem_realloc(d->mem.ident,
                                                  chunk.data.bytes, length + size);
    if (!bytes) return fail(status, KEL_ERR_OUT_OF_MEMORY);
    memmove(bytes + at + size, bytes + at, length - at);
    memcpy(bytes + at, buffer, size);
    d->chunks[i].data.bytes = bytes;
    set_length(&d->chunks[i], length + size);
    next = i + 1;
  } else {
    uint8_t* bytes = iod_alloc(d, size);
    if (!bytes) return fail(status, KEL_ERR_OUT_OF_MEMORY);
    memcpy(bytes, buffer, size);
    if (at == 0) {
      open_entries(d, i, 1);
      d->chunks[i] = memory_chunk(offset, size, bytes);
      next = i + 1;
    } else {
      set_length(&d->chunks[i], at);
      open_entries(d, i + 1, 2);
      d->chunks[i + 1] = memory_chunk(offset, size, bytes);
      d->chunks[i + 2] =
          base_chunk(offset, length - at, chunk.data.base_offset + at);
      next = i + 2;
    }
  }
  for (uint32_t j = next; j < d->chunk_count; j++) d->chunks[j].offset += size;
  return size;
}

uint32_t iod_delete(io_diff* d, uint32_t offset, uint32_t size) {
  if (size == 0) return 0;
  uint32_t status = realloc_chunks(d);
  if (status) return status;
  uint32_t logical = iod_get_size(d);
  if (offset >= logical) return 0;
  if (size > logical - offset) size = logical - offset;

  /* Chunks not yet reached keep their old offsets; done is what has been
   * removed in front of the current one. */
  uint32_t end = offset + size;
  uint32_t done = 0;
  uint32_t i = locate_chunk(d, offset);
  while (done < size) {
    iod_chunk* c = &d->chunks[i];
    uint32_t start = c->offset, length = chunk_length(c);
    uint32_t from = offset > start ? offset - start : 0;
    uint32_t to = end < start + length ? end - start : length;
    uint32_t cut = to - from;
    if (cut == length) {
      remove_entries(d, i, i + 1);
      done += cut;
      continue;
    }
    c->offset = start - done;
    if (in_memory(c)) {
      /* The allocation stays as it is: the chunk may grow again. */
      memmove(c->data.bytes + from, c->data.bytes + to, length - to);
      set_length(c, length - cut);
    } else if (from == 0) {
      c->data.base_offset += cut;
      set_length(c, length - cut);
    } else if (to == length) {
      set_length(c, from);
    } else {
      uint32_t base_offset = c->data.base_offset;
      set_length(c, from);
      open_entries(d, i + 1, 1);
      d->chunks[i + 1] =
          base_chunk(start - done + from, length - to, base_offset + to);
      i++;
    }
    done += cut;
    i++;
  }
  for (; i < d->chunk_count; i++) d->chunks[i].offset -= done;
  return 0;
}

uint32_t iod_read(void* context, void* buffer, uint32_t size, uint32_t offset,
                  uint32_t* status) {
  io_diff* d = (io_diff*)context;
  if (size == 0) return 0;
  uint8_t* out = (uint8_t*)buffer;
  uint32_t done = 0;
  for (uint32_t i = locate_chunk(d, offset); i < d->chunk_count && done < size;
       i++) {
    const iod_chunk* c = &d->chunks[i];
    uint32_t at = offset + done - c->offset;
    uint32_t n = chunk_length(c) - at;
    if (n > size - done) n = size - done;
    if (in_memory(c)) {
      memcpy(out + done, c->data.bytes + at, n);
    } else {
      /* Whatever the base says, a short read is an end of file here. */
      uint32_t ignored = 0;
      uint32_t got = d->base.read(d->base.context, out + done, n,
                                  c->data.base_offset + at, &ignored);
      if (got < n) {
        done += got;
        break;
      }
    }
    done += n;
  }
  if (done != size) *status = KEL_ERR_END_OF_FILE;
  return done;
}

uint32_t iod_get_size(void* context) {
  io_diff* d = (io_diff*)context;
  return d->chunk_count ? chunk_end(&d->chunks[d->chunk_count - 1]) : 0;
}

uint32_t iod_change_size(void* context, uint32_t size) {
  io_diff* d = (io_diff*)context;
  uint32_t logical = iod_get_size(d);
  if (size == logical) return 0;
  if (size > logical) {
    if (!iod_fits(size, 0)) return KEL_ERR_OUT_OF_RANGE;
    if (d->chunk_count && !in_memory(&d->chunks[d->chunk_count - 1])) {
      uint32_t status = realloc_chunks(d);
      if (status) return status;
    }
    return append_bytes(d, size - logical, nullptr, 0);
  }
  /* A chunk across the new end keeps its flag and its allocation. */
  uint32_t i = locate_chunk(d, size);
  iod_chunk* across = &d->chunks[i];
  if (across->offset < size) {
    set_length(across, size - across->offset);
    i++;
  }
  remove_entries(d, i, d->chunk_count);
  return 0;
}

zuv_io* iod_get_base(zuv_io* self, uint16_t level) {
  if (level == ZUV_IO_LEVEL_DIFF) return self;
  zuv_io* base = &((io_diff*)self->context)->base;
  return base->get_base ? base->get_base(base, level) : nullptr;
}

uint32_t iod_reset_to_new_base(io_diff* d, const zuv_io* base) {
  remove_entries(d, 0, d->chunk_count);
  if (base)
    d->base = *base;
  else
    memset(&d->base, 0, sizeof d->base);
  if (d->base.read) {
    /* An empty base gets no chunk: empty chunks aren't made on purpose. */
    uint32_t size = d->base.get_size(d->base.context);
    if (!iod_fits(size, 0)) return KEL_ERR_OUT_OF_RANGE;
    if (size) {
      d->chunks[0] = base_chunk(0, size, 0);
      d->chunk_count = 1;
    }
  }
  if (d->flags & IOD_SCRATCH_HOLDS_DATA) {
    ioc_change_size(d->scratch_cache, 0);
    uint32_t status = ioc_flush(d->scratch_cache);
    if (status) return status;
    d->flags &= ~IOD_SCRATCH_HOLDS_DATA;
  }
  return 0;
}

uint32_t iod_open(const iod_open_params* params, io_diff** result) {
  *result = nullptr;
  io_diff* d = (io_diff*)params->mem.mem_alloc(params->mem.ident,
                                               sizeof(io_diff));
  if (!d) return KEL_ERR_OUT_OF_MEMORY;
  memset(d, 0, sizeof *d);
  d->base = params->base;
  d->scratch = params->scratch;
  d->mem = params->mem;
  d->chunks = (iod_chunk*)d->mem.mem_alloc(
      d->mem.ident, IOD_INITIAL_CAPACITY * sizeof(iod_chunk));
  if (!d->chunks) {
    iod_discard(&d);
    return KEL_ERR_OUT_OF_MEMORY;
  }
  d->chunk_capacity = IOD_INITIAL_CAPACITY;
  uint32_t status = 0;
  if (d->scratch.read) {
    ioc_open_params scratch = {d->scratch, d->mem, 1};
    status = ioc_open(&scratch, &d->scratch_cache);
  }
  if (status == 0) status = iod_reset_to_new_base(d, &params->base);
  if (status) {
    iod_discard(&d);
    return status;
  }
  *result = d;
  return 0;
}

void iod_discard(io_diff** diff) {
  if (!diff || !*diff) return;
  io_diff* d = *diff;
  if (d->chunks) {
    remove_entries(d, 0, d->chunk_count);
    d->mem.mem_free(d->mem.ident, d->chunks);
  }
  ioc_discard(&d->scratch_cache);
  d->mem.mem_free(d->mem.ident, d);
  *diff = nullptr;
}

uint32_t copy_distinct(zuv_io* source, uint32_t source_offset, uint32_t size,
                       zuv_io* target, uint32_t target_offset, void* buffer,
                       uint32_t buffer_size) {
  if (buffer_size == 0 && size) return KEL_ERR_INVALID_ARGUMENT;
  while (size) {
    uint32_t n = size < buffer_size ? size : buffer_size;
    uint32_t status = 0;
    if (source->read(source->context, buffer, n, source_offset, &status) != n)
      return status ? status : (uint32_t)KEL_ERR_END_OF_FILE;
    if (target->write(target->context, buffer, n, target_offset, &status) != n)
      return status ? status : (uint32_t)KEL_ERR_GENERAL;
    source_offset += n;
    target_offset += n;
    size -= n;
  }
  return 0;
}

uint32_t copy_data(zuv_io* target, zuv_io* source, const zuv_mem* mem) {
  uint32_t size = source->get_size(source->context);
  if (size == 0) return 0;
  /* Half of what is free, so that a large copy leaves room for the rest. */
  uint32_t buffer_size = mem->available() / 100 * 50;
  if (buffer_size > size) buffer_size = size;
  void* buffer = buffer_size ? mem->mem_alloc(mem->ident, buffer_size) : nullptr;
  if (!buffer) {
    uint8_t small[256];
    return copy_distinct(source, 0, size, target, 0, small, sizeof small);
  }
  uint32_t status =
      copy_distinct(source, 0, size, target, 0, buffer, buffer_size);
  mem->mem_free(mem->ident, buffer);
  return status;
}
