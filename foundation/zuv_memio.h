/*
 * zuv_memio.h -- little-endian values on a stream, a stream over bytes in
 * memory, and a memory interface over the C library.
 *
 * Every file format the engine reads stores its numbers little-endian; the
 * io_read_ and io_write_ helpers move one value at an absolute offset of any
 * zuv_io and say in one status whether it all went through.
 *
 * zuv_memio is the bottom of a stack for code that has its document in
 * memory rather than in a host's file: fuzzers, tests, tools.
 */
#ifndef ZUV_MEMIO_H
#define ZUV_MEMIO_H

#include <stdint.h>

#include "foundation/zuv_io.h"

/* Little-endian values.  Each returns a status: 0 when every byte went
 * through.  A short transfer returns the status that the stream stored; a
 * short read for which the stream stored none is KEL_ERR_END_OF_FILE (a
 * stream that ran out of bytes), a short write KEL_ERR_GENERAL.  On failure
 * the value read is left as it was. */
uint32_t io_read_le16(zuv_io* io, uint32_t offset, uint16_t* value);
/* Two consecutive 16-bit values in one read of four bytes; a BIFF record
 * header (id, length) is read this way. */
uint32_t io_read_le16x2(zuv_io* io, uint32_t offset, uint16_t* first,
                        uint16_t* second);
uint32_t io_read_le32(zuv_io* io, uint32_t offset, uint32_t* value);
/* Eight bytes of an IEEE 754 double. */
uint32_t io_read_le64(zuv_io* io, uint32_t offset, double* value);
uint32_t io_write_le16(zuv_io* io, uint32_t offset, uint16_t value);
uint32_t io_write_le32(zuv_io* io, uint32_t offset, uint32_t value);
/* The same values packed into memory, for records built before writing. */
void put_le16(unsigned char* bytes, uint32_t value);
void put_le32(unsigned char* bytes, uint32_t value);
/* And read from memory, inline: a walk over a sheet's records reads a few
 * of them per cell, where the platform's get_le16 is a call each. */
static inline uint16_t le16_at(const unsigned char* bytes) {
  return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}
static inline uint32_t le32_at(const unsigned char* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

/* A stream over bytes in memory.  The record is the caller's (on the stack,
 * or inside another object) and must stay where it is while io is in use:
 * io.context points at it.  io is the interface to hand out; as the bottom
 * of any stack it has no get_base.
 *
 * Reads past the end deliver what there is and store KEL_ERR_END_OF_FILE.  A
 * write past the end grows the stream and fills the gap with zeros; so does
 * change_size.  Growing memory comes from the C library allocator; a failed
 * allocation is KEL_ERR_OUT_OF_MEMORY with the stream as it was. */
struct zuv_memio {
  zuv_io io;
  const uint8_t* bytes; /* what reads see */
  uint8_t* buffer;      /* bytes, when the stream owns them; else null */
  uint32_t size;
  uint32_t capacity; /* of buffer */
};

/* An empty growable stream.  Allocates nothing until the first write. */
void memio_open(zuv_memio* memio);
/* A growable stream holding a copy of size bytes. */
uint32_t memio_open_copy(zuv_memio* memio, const void* bytes, uint32_t size);
/* A read-only view of the caller's bytes, which must outlive it.  Its write
 * and change_size slots are null, as with any stream that can only be
 * viewed. */
void memio_open_bytes(zuv_memio* memio, const void* bytes, uint32_t size);
/* Frees what the stream owns and leaves it empty.  Safe on a null and on a
 * stream closed before. */
void memio_close(zuv_memio* memio);

/* What available() of zuv_mem_system reports: the C library can't tell how
 * much memory is free, so a host without a better answer claims this much,
 * enough for caches to be sized as on a device with room to spare. */
#define ZUV_MEM_SYSTEM_AVAILABLE (64u * 1024u * 1024u)

/* Fills mem with malloc, free and realloc of the C library (ident null), and
 * an available() that answers ZUV_MEM_SYSTEM_AVAILABLE. */
void zuv_mem_system(zuv_mem* mem);

#endif /* ZUV_MEMIO_H */
