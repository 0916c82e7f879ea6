/*
 * kel_record_cursor.h -- a forward walk over the records of a stream, read
 * in bulk.
 *
 * A walk over a sheet at open touches every record once; two reads through
 * the whole stack for each record cost more than the record's own work.  A
 * cursor reads a window of the stream at a time and hands out records from
 * it.  An enciphered stream, whose headers are plain and bodies are not, is
 * read record by record as kel_read_header and kel_read_record do; so is any
 * stream when the window can't be had.
 *
 * Bytes handed out stay good until the next call on the cursor.  The
 * stream must not be written while a cursor is open on it.
 */
#ifndef KEL_RECORD_CURSOR_H
#define KEL_RECORD_CURSOR_H

#include <stdint.h>

#include "foundation/zuv_io.h"

enum { KEL_RECORD_WINDOW = 64 * 1024 };

struct kel_record_cursor {
  zuv_io* stack;
  unsigned char* record;  /* a record buffer (header and body) for the slow way */
  unsigned char* window;  /* null: record by record */
  uint32_t window_start;  /* stream offset of window[0] */
  uint32_t window_length;
};

/* A cursor over stack; record is a buffer of 4 + XLS_MAX_RECORD_BODY bytes
 * that the caller keeps for the cursor's life. */
void kel_record_cursor_open(kel_record_cursor* cursor, zuv_io* stack, unsigned char* record);
void kel_record_cursor_close(kel_record_cursor* cursor);

/* The id and body length of the record at offset. */
uint32_t kel_record_cursor_header(kel_record_cursor* cursor, uint32_t offset,
                                  uint16_t* id, uint16_t* length);
/* *body points at the deciphered body of the record at offset, whose length
 * is length (as its header gives it, at most XLS_MAX_RECORD_BODY). */
uint32_t kel_record_cursor_body(kel_record_cursor* cursor, uint32_t offset, uint16_t length,
                                const unsigned char** body);

/* The record at offset, header and body, when the window holds it whole,
 * deciphered; else null, and the two calls above read it.  Inline: a walk
 * over a sheet asks it once a record. */
inline const unsigned char* kel_record_cursor_peek(const kel_record_cursor* cursor,
                                                   uint32_t offset) {
  uint32_t at = offset - cursor->window_start;
  if (!cursor->window || offset < cursor->window_start || cursor->window_length < 4 ||
      at > cursor->window_length - 4)
    return nullptr;
  const unsigned char* record = cursor->window + at;
  uint32_t size = 4u + (record[2] | record[3] << 8);
  return size <= cursor->window_length - at ? record : nullptr;
}

#endif /* KEL_RECORD_CURSOR_H */
