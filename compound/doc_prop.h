/*
 * doc_prop.h -- the five document properties a viewer shows: title, author,
 * description, creation and last saved dates.  They come from a compound
 * file's summary information stream or an OOXML package's core properties.
 */
#ifndef DOC_PROP_H
#define DOC_PROP_H

#include <stdint.h>

#include "platform/zuv_platform.h"

struct ole_storage;

/* Made by the caller with empty strings and zero dates. */
struct doc_props_t {
  VString title;
  VString author;
  VString description;
  uint32_t created;     /* seconds since 1970, UTC; 0 if unknown */
  uint32_t last_saved;
};

/* ------------------------------------------------------------------------ */
/* The binary property set ([MS-OLEPS]) of a "\005SummaryInformation" stream */

/* Delivers up to size bytes of the property set at offset into buffer and
 * stores the count in *bytes_read; a count of 0 is the end.  Returns a
 * status. */
typedef uint32_t (*doc_prop_provider_fn)(void* context, unsigned char* buffer,
                                         uint32_t size, uint32_t offset,
                                         uint32_t* bytes_read);

enum { BINARY_WINDOW_SIZE = 255 };

/* Little-endian reads through a small window over a provider. */
struct binary_read_buffer_t {
  void* context;
  doc_prop_provider_fn provider;
  unsigned char window[BINARY_WINDOW_SIZE];
  uint32_t window_position;  /* next byte to read in the window */
  uint32_t window_bytes;     /* bytes held in the window */
  uint32_t offset;           /* absolute offset of window[0] */
};

/* Starts reading at offset 0. */
void binary_init(binary_read_buffer_t* buffer, void* context,
                 doc_prop_provider_fn provider);

/* Each reads on at the current offset.  *status is written only on failure
 * (KEL_ERR_END_OF_FILE at the end, or the provider's status), so a caller
 * may set it to 0 and test it once after several reads; a failed read gives
 * 0. */
uint8_t binary_get_byte(binary_read_buffer_t* buffer, uint32_t* status);
uint16_t binary_get_word(binary_read_buffer_t* buffer, uint32_t* status);
uint32_t binary_get_dword(binary_read_buffer_t* buffer, uint32_t* status);
void binary_skip_bytes(binary_read_buffer_t* buffer, uint32_t count,
                       uint32_t* status);
/* Moves to an absolute offset; the bytes there are fetched by the next
 * read. */
void binary_seek_offset(binary_read_buffer_t* buffer, uint32_t offset,
                        uint32_t* status);

/* Reads title (property 2), author (4), comments (6, the description),
 * creation (12) and last saved (13) times from a property set of one
 * section; other properties and types are passed over.  Returns 0,
 * KEL_ERR_OLE_BAD_CHAIN for a byte order other than 0xFFFE or a section count
 * other than 1, or a read failure's status with what was set so far
 * standing. */
uint32_t doc_prop_binary(void* context, doc_prop_provider_fn provider,
                         doc_props_t* props);

/* A provider over an ole_stream (context): reads by ole_read_stream and
 * always returns 0, so the stream's end shows as a count of 0. */
uint32_t doc_prop_data_provider(void* stream, unsigned char* buffer,
                                uint32_t size, uint32_t offset,
                                uint32_t* bytes_read);

/* Reads the properties of the root's "\005SummaryInformation" stream.  A
 * file without one leaves props as they are and gives 0. */
uint32_t doc_prop_read_summary(ole_storage* root, doc_props_t* props);

#endif /* DOC_PROP_H */
