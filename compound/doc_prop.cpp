/*
 * doc_prop.cpp -- document properties from the summary information stream of
 * a compound file: the OLE property set format of [MS-OLEPS], of which only
 * the five properties a viewer shows are read.
 */
#include "compound/doc_prop.h"

#include <new>
#include <string.h>

#include "compound/zuv_ole.h"

namespace {

const char doc_prop_stream_name_str[] = "\005SummaryInformation";

enum {
  kByteOrderMark = 0xFFFE,
  kTypeNarrowString = 0x1E,  /* VT_LPSTR */
  kTypeFileTime = 0x40,      /* VT_FILETIME */
  /* 100-nanosecond ticks in a second, and the seconds from 1601 to 1970
   * taken modulo 2^32 (the wrap-around lands on 1970). */
  kTicksPerSecond = 10000000,
  kEpoch1601To1970 = 0x49EF6F00
};

/* Property ids ([MS-OLEPS] 2.18 PIDSI_*) in the order they are read. */
const uint32_t kWantedIds[] = {2, 4, 6, 12, 13};
enum { kWantedCount = sizeof kWantedIds / sizeof kWantedIds[0] };

/* Makes the window hold at least one byte at the current offset. */
bool binary_fill(binary_read_buffer_t* buffer, uint32_t* status) {
  if (buffer->window_position < buffer->window_bytes) return true;
  buffer->offset += buffer->window_bytes;
  buffer->window_position = 0;
  buffer->window_bytes = 0;
  uint32_t got = 0;
  uint32_t result = buffer->provider(buffer->context, buffer->window,
                                     BINARY_WINDOW_SIZE, buffer->offset, &got);
  if (result || got == 0) {
    *status = result ? result : KEL_ERR_END_OF_FILE;
    return false;
  }
  buffer->window_bytes = got < BINARY_WINDOW_SIZE ? got : (uint32_t)BINARY_WINDOW_SIZE;
  return true;
}

/* Copies count bytes from the current offset. */
bool binary_get_bytes(binary_read_buffer_t* buffer, unsigned char* out,
                      uint32_t count, uint32_t* status) {
  while (count > 0) {
    if (!binary_fill(buffer, status)) return false;
    uint32_t part = buffer->window_bytes - buffer->window_position;
    if (part > count) part = count;
    memcpy(out, buffer->window + buffer->window_position, part);
    buffer->window_position += part;
    out += part;
    count -= part;
  }
  return true;
}

uint32_t binary_tell(const binary_read_buffer_t* buffer) {
  return buffer->offset + buffer->window_position;
}

/* Reads a narrow string property (its length counts the terminator) into
 * target. */
uint32_t doc_prop_read_string(binary_read_buffer_t* buffer, VString* target) {
  uint32_t status = 0;
  uint32_t length = binary_get_dword(buffer, &status);
  if (status) return status;
  uint32_t start = binary_tell(buffer);
  if (length > 0) {
    /* The last byte must be there before memory is taken for all of them: a
     * length field is no promise of data. */
    if (start + length < start) return KEL_ERR_END_OF_FILE;
    binary_seek_offset(buffer, start + length - 1, &status);
    binary_get_byte(buffer, &status);
    binary_seek_offset(buffer, start, &status);
    if (status) return status;
  }
  /* The provider brings no memory interface; this block is bounded by the
   * bytes the stream really holds. */
  unsigned char* text = new (std::nothrow) unsigned char[length ? length : 1];
  if (!text) return KEL_ERR_OUT_OF_MEMORY;
  if (binary_get_bytes(buffer, text, length, &status))
    status = target->SetString(text, VString::kCodePage, (int32_t)length);
  delete[] text;
  return status;
}

bool doc_prop_is_summary_name(const ole_dir* dir) {
  for (int i = 0; i < OLE_NAME_CHARS; i++) {
    uint16_t wanted = (uint16_t)(unsigned char)doc_prop_stream_name_str[i];
    if (dir->name[i] != wanted) return false;
    if (wanted == 0) return true;
  }
  return false;
}

}  // namespace

void binary_init(binary_read_buffer_t* buffer, void* context,
                 doc_prop_provider_fn provider) {
  buffer->context = context;
  buffer->provider = provider;
  buffer->window_position = 0;
  buffer->window_bytes = 0;
  buffer->offset = 0;
}

uint8_t binary_get_byte(binary_read_buffer_t* buffer, uint32_t* status) {
  if (!binary_fill(buffer, status)) return 0;
  return buffer->window[buffer->window_position++];
}

uint16_t binary_get_word(binary_read_buffer_t* buffer, uint32_t* status) {
  unsigned char bytes[2];
  if (!binary_get_bytes(buffer, bytes, 2, status)) return 0;
  return (uint16_t)(bytes[0] | bytes[1] << 8);
}

uint32_t binary_get_dword(binary_read_buffer_t* buffer, uint32_t* status) {
  unsigned char bytes[4];
  if (!binary_get_bytes(buffer, bytes, 4, status)) return 0;
  return (uint32_t)bytes[0] | (uint32_t)bytes[1] << 8 |
         (uint32_t)bytes[2] << 16 | (uint32_t)bytes[3] << 24;
}

void binary_skip_bytes(binary_read_buffer_t* buffer, uint32_t count,
                       uint32_t* status) {
  uint32_t here = binary_tell(buffer);
  if (here + count < here) {
    *status = KEL_ERR_END_OF_FILE;
    return;
  }
  binary_seek_offset(buffer, here + count, status);
}

void binary_seek_offset(binary_read_buffer_t* buffer, uint32_t offset,
                        uint32_t* status) {
  (void)status;  /* a seek never fails; the read after it may */
  if (offset >= buffer->offset &&
      offset - buffer->offset <= buffer->window_bytes) {
    buffer->window_position = offset - buffer->offset;
    return;
  }
  buffer->offset = offset;
  buffer->window_position = 0;
  buffer->window_bytes = 0;
}

uint32_t doc_prop_binary(void* context, doc_prop_provider_fn provider,
                         doc_props_t* props) {
  binary_read_buffer_t buffer;
  binary_init(&buffer, context, provider);
  uint32_t status = 0;

  uint16_t byte_order = binary_get_word(&buffer, &status);
  binary_skip_bytes(&buffer, 22, &status);  /* version, system, class id */
  uint32_t section_count = binary_get_dword(&buffer, &status);
  if (status) return status;
  if (byte_order != kByteOrderMark || section_count != 1)
    return KEL_ERR_OLE_BAD_CHAIN;

  /* The offset is 32 bits in the format; only its low word is taken, as the
   * one section of a summary stream follows the header closely. */
  binary_skip_bytes(&buffer, 16, &status);  /* format id */
  uint32_t section = binary_get_word(&buffer, &status);
  binary_seek_offset(&buffer, section, &status);
  binary_get_dword(&buffer, &status);  /* section size */
  uint32_t property_count = binary_get_dword(&buffer, &status);
  if (status) return status;

  uint32_t found[kWantedCount] = {0};
  bool present[kWantedCount] = {false};
  for (uint32_t i = 0; i < property_count; i++) {
    uint32_t id = binary_get_dword(&buffer, &status);
    uint32_t offset = binary_get_dword(&buffer, &status);
    if (status) return status;
    for (int w = 0; w < kWantedCount; w++) {
      if (id == kWantedIds[w]) {
        found[w] = section + offset;
        present[w] = true;
      }
    }
  }

  VString* strings[] = {&props->title, &props->author, &props->description};
  uint32_t* times[] = {&props->created, &props->last_saved};
  for (int w = 0; w < kWantedCount; w++) {
    if (!present[w]) continue;
    binary_seek_offset(&buffer, found[w], &status);
    uint32_t type = binary_get_dword(&buffer, &status);
    if (status) return status;
    if (type == kTypeNarrowString && w < 3) {
      status = doc_prop_read_string(&buffer, strings[w]);
    } else if (type == kTypeFileTime && w >= 3) {
      uint32_t low = binary_get_dword(&buffer, &status);
      uint32_t high = binary_get_dword(&buffer, &status);
      if (!status) {
        uint64_t ticks = (uint64_t)high << 32 | low;
        *times[w - 3] = (uint32_t)(ticks / kTicksPerSecond) + kEpoch1601To1970;
      }
    }
    if (status) return status;
  }
  return 0;
}

uint32_t doc_prop_data_provider(void* stream, unsigned char* buffer,
                                uint32_t size, uint32_t offset,
                                uint32_t* bytes_read) {
  uint32_t status = 0;
  *bytes_read = ole_read_stream(stream, buffer, size, offset, &status);
  return 0;
}

uint32_t doc_prop_read_summary(ole_storage* root, doc_props_t* props) {
  ole_dir dir;
  for (uint32_t index = 0;; index++) {
    uint32_t status = ole_get_dir(root, index, &dir);
    if (status == KEL_ERR_OLE_NO_ENTRY) return 0;
    if (status) return status;
    if (doc_prop_is_summary_name(&dir)) break;
  }
  ole_stream* stream;
  uint32_t status = ole_open_stream(root, &dir, &stream);
  if (status) return status;
  status = doc_prop_binary(stream, doc_prop_data_provider, props);
  ole_close_stream(stream);
  return status;
}
