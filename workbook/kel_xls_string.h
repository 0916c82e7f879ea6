/*
 * kel_xls_string.h -- the strings of BIFF8 records, and the shared string
 * table reached through checkpoints instead of held in memory.
 *
 * A string in a record is a header (character count of one or two bytes,
 * an options byte, a count of formatting runs if bit 3, a size of phonetic
 * data if bit 2), then the characters (one byte each, or two with bit 0),
 * the runs (4 bytes each) and the phonetic data.  In the shared string
 * table and in STRING records a string may run on into CONTINUE records;
 * characters that continue start with an options byte of their own, so the
 * width may change in the middle of a string.
 */
#ifndef KEL_XLS_STRING_H
#define KEL_XLS_STRING_H

#include <stdint.h>

#include "foundation/zuv_io.h"
#include "workbook/kel_xls_records.h"

struct xls_file;

/* What a string header says. */
struct xls_strhdr {
  uint32_t length;          /* characters */
  uint8_t options;          /* bit 0 two-byte characters, 2 phonetic, 3 rich */
  uint32_t rich_bytes;      /* 4 bytes a run */
  uint32_t phonetic_bytes;
  uint32_t header_size;     /* bytes of the header itself */
};

enum {
  XLS_STRING_WIDE = 0x01,
  XLS_STRING_HAS_PHONETIC = 0x04,
  XLS_STRING_HAS_RICH = 0x08
};

/* The header that starts with the options byte, within limit bytes;
 * KEL_ERR_GENERAL if it doesn't fit. */
uint32_t parse_strhdr_without_len(const unsigned char* bytes, uint32_t limit,
                                  xls_strhdr* header);
/* The header with the character count in front: one byte with byte_length,
 * else two. */
uint32_t parse_strhdr(const unsigned char* bytes, uint32_t limit,
                      bool byte_length, xls_strhdr* header);

/* The size in bytes of the whole string at bytes. */
uint32_t xls_STRING_len(const unsigned char* bytes, uint32_t limit,
                        bool byte_length, uint32_t* size);
/* A heap UTF-16 copy of the string's text at bytes.  Characters beyond
 * limit are left out: a record cut short loses its tail, not the string. */
uint32_t xls_STRING_dup(const unsigned char* bytes, uint32_t limit,
                        bool byte_length, unsigned short** text);
/* The same for a string whose character count stands elsewhere in the
 * record: bytes start at the options byte. */
uint32_t xls_read_string_without_len(const unsigned char* bytes,
                                     uint32_t limit, uint32_t length,
                                     unsigned short** text);

/* Reads the string at *offset of the stream, remaining bytes being left in
 * the current record (0: the string starts in the CONTINUE record that
 * follows), and moves both past it; *record_start follows the record in
 * which the string ends.  flags (XLS_STRING_BYTE_LENGTH, XLS_STRING_TEXT,
 * XLS_STRING_RICH, XLS_STRING_PHONETIC) say what to deliver into result;
 * what isn't asked for is stepped over.  buffer holds XLS_RECORD_BUFFER
 * bytes of scratch.  A string that runs on into anything but CONTINUE gives
 * KEL_ERR_GENERAL. */
uint32_t xls_read_string(const xls_pool* pool, zuv_io* stream,
                         uint32_t* offset, uint16_t* remaining,
                         uint32_t* record_start, unsigned char* buffer,
                         biff_string* result, int flags);

/* The shared string of index, its parts as flags ask.  An index at or past
 * the table's count leaves result empty and succeeds. */
uint32_t sst_dup(xls_file* file, uint32_t index, biff_string* result,
                 int flags);

#endif /* KEL_XLS_STRING_H */
