/*
 * zuv_memio.cpp -- little-endian stream helpers, the in-memory stream and
 * the C library's memory interface.
 */
#include "foundation/zuv_memio.h"

#include <stdlib.h>
#include <string.h>

/* Reads exactly size bytes; the status of a short read as the header says. */
static uint32_t io_read_exact(zuv_io* io, void* bytes, uint32_t size,
                              uint32_t offset) {
  uint32_t status = 0;
  if (io->read(io->context, bytes, size, offset, &status) == size) return 0;
  return status ? status : (uint32_t)KEL_ERR_END_OF_FILE;
}

static uint32_t io_write_exact(zuv_io* io, const void* bytes, uint32_t size,
                               uint32_t offset) {
  uint32_t status = 0;
  if (io->write(io->context, bytes, size, offset, &status) == size) return 0;
  return status ? status : (uint32_t)KEL_ERR_GENERAL;
}

/* Assembled byte by byte, so that neither the host's byte order nor the
 * alignment of the offset matters. */
static uint16_t get16(const uint8_t* p) {
  return (uint16_t)(p[0] | (p[1] << 8));
}

static uint32_t get32(const uint8_t* p) {
  return (uint32_t)p[0] | ((uint32_t)p[1] << 8) | ((uint32_t)p[2] << 16) |
         ((uint32_t)p[3] << 24);
}

uint32_t io_read_le16(zuv_io* io, uint32_t offset, uint16_t* value) {
  uint8_t bytes[2];
  uint32_t status = io_read_exact(io, bytes, sizeof bytes, offset);
  if (status == 0) *value = get16(bytes);
  return status;
}

uint32_t io_read_le16x2(zuv_io* io, uint32_t offset, uint16_t* first,
                        uint16_t* second) {
  uint8_t bytes[4];
  uint32_t status = io_read_exact(io, bytes, sizeof bytes, offset);
  if (status == 0) {
    *first = get16(bytes);
    *second = get16(bytes + 2);
  }
  return status;
}

uint32_t io_read_le32(zuv_io* io, uint32_t offset, uint32_t* value) {
  uint8_t bytes[4];
  uint32_t status = io_read_exact(io, bytes, sizeof bytes, offset);
  if (status == 0) *value = get32(bytes);
  return status;
}

uint32_t io_read_le64(zuv_io* io, uint32_t offset, double* value) {
  uint8_t bytes[8];
  uint32_t status = io_read_exact(io, bytes, sizeof bytes, offset);
  if (status == 0) {
    /* ARM EABI, soft float included, stores a double as a little-endian
     * 64-bit word, as x86 does: the bits go over as they are. */
    uint64_t bits = (uint64_t)get32(bytes) | ((uint64_t)get32(bytes + 4) << 32);
    memcpy(value, &bits, sizeof *value);
  }
  return status;
}

uint32_t io_write_le16(zuv_io* io, uint32_t offset, uint16_t value) {
  unsigned char bytes[2];
  put_le16(bytes, value);
  return io_write_exact(io, bytes, sizeof bytes, offset);
}

uint32_t io_write_le32(zuv_io* io, uint32_t offset, uint32_t value) {
  unsigned char bytes[4];
  put_le32(bytes, value);
  return io_write_exact(io, bytes, sizeof bytes, offset);
}

void put_le16(unsigned char* bytes, uint32_t value) {
  bytes[0] = static_cast<unsigned char>(value);
  bytes[1] = static_cast<unsigned char>(value >> 8);
}

void put_le32(unsigned char* bytes, uint32_t value) {
  put_le16(bytes, value & 0xFFFF);
  put_le16(bytes + 2, value >> 16);
}

/* The in-memory stream. */

static uint32_t memio_read(void* context, void* buffer, uint32_t size,
                           uint32_t offset, uint32_t* status) {
  zuv_memio* m = (zuv_memio*)context;
  if (size == 0) return 0;
  if (offset >= m->size) {
    *status = KEL_ERR_END_OF_FILE;
    return 0;
  }
  if (size > m->size - offset) {
    size = m->size - offset;
    *status = KEL_ERR_END_OF_FILE;
  }
  memcpy(buffer, m->bytes + offset, size);
  return size;
}

/* Sets the size, growing the buffer geometrically so that a stream written
 * front to back isn't copied at every write; new bytes are zero. */
static uint32_t memio_resize(zuv_memio* m, uint32_t size) {
  if (size > m->capacity) {
    uint32_t capacity = m->capacity ? m->capacity : 256;
    while (capacity < size)
      capacity = capacity > UINT32_MAX / 2 ? size : capacity * 2;
    uint8_t* buffer = (uint8_t*)realloc(m->buffer, capacity);
    if (!buffer) return KEL_ERR_OUT_OF_MEMORY;
    m->buffer = buffer;
    m->bytes = buffer;
    m->capacity = capacity;
  }
  if (size > m->size) memset(m->buffer + m->size, 0, size - m->size);
  m->size = size;
  return 0;
}

static uint32_t memio_write(void* context, const void* buffer, uint32_t size,
                            uint32_t offset, uint32_t* status) {
  zuv_memio* m = (zuv_memio*)context;
  if (size == 0) return 0;
  if (size > UINT32_MAX - offset) {
    *status = KEL_ERR_OUT_OF_RANGE;
    return 0;
  }
  if (offset + size > m->size) {
    uint32_t failure = memio_resize(m, offset + size);
    if (failure) {
      *status = failure;
      return 0;
    }
  }
  memcpy(m->buffer + offset, buffer, size);
  return size;
}

static uint32_t memio_get_size(void* context) {
  return ((zuv_memio*)context)->size;
}

static uint32_t memio_change_size(void* context, uint32_t size) {
  return memio_resize((zuv_memio*)context, size);
}

void memio_open(zuv_memio* memio) {
  memset(memio, 0, sizeof *memio);
  memio->io.read = memio_read;
  memio->io.write = memio_write;
  memio->io.get_size = memio_get_size;
  memio->io.change_size = memio_change_size;
  memio->io.context = memio;
}

uint32_t memio_open_copy(zuv_memio* memio, const void* bytes, uint32_t size) {
  memio_open(memio);
  uint32_t status = memio_resize(memio, size);
  if (status == 0 && size) memcpy(memio->buffer, bytes, size);
  return status;
}

void memio_open_bytes(zuv_memio* memio, const void* bytes, uint32_t size) {
  memset(memio, 0, sizeof *memio);
  memio->io.read = memio_read;
  memio->io.get_size = memio_get_size;
  memio->io.context = memio;
  memio->bytes = (const uint8_t*)bytes;
  memio->size = size;
}

void memio_close(zuv_memio* memio) {
  if (!memio) return;
  free(memio->buffer);
  memio->buffer = nullptr;
  memio->bytes = nullptr;
  memio->size = 0;
  memio->capacity = 0;
}

/* The C library's memory. */

static void* system_alloc(mem_ident*, uint32_t size) { return malloc(size); }

static void system_free(mem_ident*, void* block) { free(block); }

static void* system_realloc(mem_ident*, void* block, uint32_t size) {
  return realloc(block, size);
}

static uint32_t system_available(void) { return ZUV_MEM_SYSTEM_AVAILABLE; }

void zuv_mem_system(zuv_mem* mem) {
  mem->mem_alloc = system_alloc;
  mem->mem_free = system_free;
  mem->mem_realloc = system_realloc;
  mem->available = system_available;
  mem->ident = nullptr;
}
