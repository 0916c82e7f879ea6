/*
 * kel_io_stack.h -- the stack of stream layers over a workbook stream, and
 * the record helpers that read and write BIFF records through it.
 *
 * From the top, the top being what all workbook code uses:
 *   copy-on-write overlay (io_diff)   level 1
 *   RC4 layer (kel_io_enc)            level 3
 *   block cache (io_cache)            level 2
 *   compound file stream (ole_stream)
 *   the pool's document stream
 * A workbook without a file has only the overlay, over nothing.
 */
#ifndef KEL_IO_STACK_H
#define KEL_IO_STACK_H

#include <stdint.h>

#include "foundation/zuv_io.h"

struct ole_stream;
struct io_cache;
struct kel_io_enc;

/* The stack of a workbook without a file: all its bytes live in the
 * overlay. */
uint32_t kel_io_stack_create(const xls_pool* pool, zuv_io** result);
/* The stack over a compound file stream.  The cache takes a fifth of the
 * free memory, at most what size_hint needs.  With previous (the stack of
 * the same workbook's old stream) the new stack ciphers as the old one. */
uint32_t kel_io_stack_open(const xls_pool* pool, ole_stream* stream,
                           uint32_t size_hint, zuv_io* previous,
                           zuv_io** result);
/* Frees every layer (nothing is flushed) and nulls *stack; safe on null. */
void kel_io_stack_discard(zuv_io** stack);

/* The layers of a stack, or null where there is none. */
io_cache* kel_io_stack_io_cache(zuv_io* stack);
kel_io_enc* kel_io_stack_io_enc(zuv_io* stack);

/* Stops (true) or resumes (false) deciphering of reads, around a read that
 * must see the file's bytes as they are; a stack without encryption
 * ignores it.  Every stop is followed by a resume. */
void kel_io_stop_decryption(zuv_io* stack, bool stop);

/* A record's header, read plain: record headers are never enciphered.  id
 * and length may be null. */
uint32_t kel_read_header(zuv_io* stack, uint32_t offset, uint16_t* id,
                         uint16_t* length);
/* A record into buffer: the plain header at 0, length body bytes at 4,
 * deciphered.  length 0xFFFF reads the record's own length, which must not
 * exceed the buffer's XLS_MAX_RECORD_BODY (else KEL_ERR_GENERAL). */
uint32_t kel_read_record(zuv_io* stack, uint32_t offset, unsigned char* buffer,
                         uint16_t length);
/* Writes the record in buffer (header at 0) through the encryption layer
 * encryption: the header plain, the body enciphered.  The buffer's body
 * holds the enciphered bytes afterwards. */
uint32_t kel_write_record(zuv_io* encryption, uint32_t offset,
                          unsigned char* buffer);

#endif /* KEL_IO_STACK_H */
