#include "workbook/kel_xls_string.h"

#include <stdlib.h>
#include <string.h>

#include "compound/kel_io_stack.h"
#include "platform/zuv_platform.h"
#include "workbook/kel_xls_file.h"

void biff_string_free(biff_string* string) {
  free(string->text);
  free(string->rich);
  free(string->phonetic);
  memset(string, 0, sizeof *string);
}

uint32_t parse_strhdr_without_len(const unsigned char* bytes, uint32_t limit,
                                  xls_strhdr* header) {
  if (limit < 1) return KEL_ERR_GENERAL;
  header->options = bytes[0];
  header->rich_bytes = 0;
  header->phonetic_bytes = 0;
  uint32_t size = 1;
  if (header->options & XLS_STRING_HAS_RICH) {
    if (limit < size + 2) return KEL_ERR_GENERAL;
    header->rich_bytes = 4u * get_le16(bytes + size);
    size += 2;
  }
  if (header->options & XLS_STRING_HAS_PHONETIC) {
    if (limit < size + 4) return KEL_ERR_GENERAL;
    header->phonetic_bytes = get_le32(bytes + size);
    size += 4;
  }
  header->header_size = size;
  return 0;
}

uint32_t parse_strhdr(const unsigned char* bytes, uint32_t limit,
                      bool byte_length, xls_strhdr* header) {
  uint32_t count_size = byte_length ? 1 : 2;
  if (limit < count_size) return KEL_ERR_GENERAL;
  uint32_t length = byte_length ? bytes[0] : get_le16(bytes);
  uint32_t status = parse_strhdr_without_len(bytes + count_size, limit - count_size, header);
  if (status) return status;
  header->length = length;
  header->header_size += count_size;
  return 0;
}

uint32_t xls_STRING_len(const unsigned char* bytes, uint32_t limit,
                        bool byte_length, uint32_t* size) {
  xls_strhdr header;
  uint32_t status = parse_strhdr(bytes, limit, byte_length, &header);
  if (status) return status;
  uint32_t width = header.options & XLS_STRING_WIDE ? 2 : 1;
  *size = header.header_size + header.length * width + header.rich_bytes +
          header.phonetic_bytes;
  return 0;
}

/* Widens count characters of one or two bytes into text. */
static void widen(const unsigned char* bytes, uint32_t count, bool wide,
                  unsigned short* text) {
  for (uint32_t i = 0; i < count; ++i)
    text[i] = wide ? get_le16(bytes + 2 * i) : bytes[i];
}

/* The text of a string whose header is parsed, the characters starting at
 * bytes with available bytes there. */
static uint32_t copy_text(const unsigned char* bytes, uint32_t available,
                          const xls_strhdr& header, unsigned short** text) {
  bool wide = header.options & XLS_STRING_WIDE;
  uint32_t count = header.length;
  if (count > available / (wide ? 2 : 1)) count = available / (wide ? 2 : 1);
  unsigned short* copy = static_cast<unsigned short*>(malloc((count + 1) * sizeof(unsigned short)));
  if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  widen(bytes, count, wide, copy);
  copy[count] = 0;
  *text = copy;
  return 0;
}

uint32_t xls_STRING_dup(const unsigned char* bytes, uint32_t limit,
                        bool byte_length, unsigned short** text) {
  *text = nullptr;
  xls_strhdr header;
  uint32_t status = parse_strhdr(bytes, limit, byte_length, &header);
  if (status) return status;
  return copy_text(bytes + header.header_size, limit - header.header_size, header, text);
}

uint32_t xls_read_string_without_len(const unsigned char* bytes,
                                     uint32_t limit, uint32_t length,
                                     unsigned short** text) {
  *text = nullptr;
  xls_strhdr header;
  uint32_t status = parse_strhdr_without_len(bytes, limit, &header);
  if (status) return status;
  header.length = length;
  return copy_text(bytes + header.header_size, limit - header.header_size, header, text);
}

/* Steps into the CONTINUE record at *offset. */
static uint32_t enter_continue(zuv_io* stream, uint32_t* offset,
                               uint16_t* remaining, uint32_t* record_start) {
  uint16_t id = 0, length = 0;
  uint32_t status = kel_read_header(stream, *offset, &id, &length);
  if (status) return status;
  if (id != BIFF_CONTINUE) return KEL_ERR_GENERAL;
  *record_start = *offset;
  *offset += 4;
  *remaining = length;
  return 0;
}

static uint32_t read_bytes(zuv_io* stream, uint32_t offset, void* buffer,
                           uint32_t size) {
  if (size == 0) return 0;
  uint32_t status = 0;
  uint32_t got = stream->read(stream->context, buffer, size, offset, &status);
  if (got < size) return status ? status : KEL_ERR_END_OF_FILE;
  return 0;
}

/* Reads or steps over size bytes of runs or phonetic data, which may go on
 * in CONTINUE records without a byte of their own in front. */
static uint32_t read_part(zuv_io* stream, uint32_t* offset, uint16_t* remaining,
                          uint32_t* record_start, uint32_t size,
                          uint8_t** result) {
  uint8_t* part = nullptr;
  if (result && size > 0) {
    part = static_cast<uint8_t*>(malloc(size));
    if (!part) return KEL_ERR_OUT_OF_MEMORY;
  }
  uint32_t done = 0;
  while (done < size) {
    if (*remaining == 0) {
      uint32_t status = enter_continue(stream, offset, remaining, record_start);
      if (status) {
        free(part);
        return status;
      }
      continue;
    }
    uint32_t piece = size - done < *remaining ? size - done : *remaining;
    if (part) {
      uint32_t status = read_bytes(stream, *offset, part + done, piece);
      if (status) {
        free(part);
        return status;
      }
    }
    done += piece;
    *offset += piece;
    *remaining = static_cast<uint16_t>(*remaining - piece);
  }
  if (result) *result = part;
  return 0;
}

uint32_t xls_read_string(const xls_pool*, zuv_io* stream, uint32_t* offset,
                         uint16_t* remaining, uint32_t* record_start,
                         unsigned char* buffer, biff_string* result,
                         int flags) {
  memset(result, 0, sizeof *result);
  uint32_t status;
  if (*remaining == 0) {
    status = enter_continue(stream, offset, remaining, record_start);
    if (status) return status;
  }
  // The header never crosses a record: 2 + 1 + 2 + 4 bytes at most.
  uint32_t want = *remaining < 11 ? *remaining : 11;
  status = 0;
  uint32_t got = want ? stream->read(stream->context, buffer, want, *offset, &status) : 0;
  xls_strhdr header;
  if (parse_strhdr(buffer, got, flags & XLS_STRING_BYTE_LENGTH, &header) != 0)
    return status ? status : KEL_ERR_GENERAL;
  *offset += header.header_size;
  *remaining = static_cast<uint16_t>(*remaining - header.header_size);
  result->length = header.length;
  result->options = header.options;

  // The characters, in pieces as far as each record goes; a record that
  // continues them begins with an options byte giving their width anew.
  unsigned short* text = nullptr;
  if (flags & XLS_STRING_TEXT) {
    text = static_cast<unsigned short*>(malloc((header.length + 1) * sizeof(unsigned short)));
    if (!text) return KEL_ERR_OUT_OF_MEMORY;
  }
  bool wide = header.options & XLS_STRING_WIDE;
  uint32_t done = 0;
  while (done < header.length) {
    if (*remaining == 0) {
      status = enter_continue(stream, offset, remaining, record_start);
      if (!status && *remaining == 0) status = KEL_ERR_GENERAL;
      if (!status) status = read_bytes(stream, *offset, buffer, 1);
      if (status) {
        free(text);
        return status;
      }
      wide = buffer[0] & XLS_STRING_WIDE;
      *offset += 1;
      *remaining = static_cast<uint16_t>(*remaining - 1);
      continue;
    }
    uint32_t width = wide ? 2 : 1;
    uint32_t count = header.length - done;
    if (count > *remaining / width) count = *remaining / width;
    if (count == 0) {  // half a character left in the record
      free(text);
      return KEL_ERR_GENERAL;
    }
    if (text) {
      status = read_bytes(stream, *offset, buffer, count * width);
      if (status) {
        free(text);
        return status;
      }
      widen(buffer, count, wide, text + done);
    }
    done += count;
    *offset += count * width;
    *remaining = static_cast<uint16_t>(*remaining - count * width);
  }
  if (text) text[header.length] = 0;
  result->text = text;

  status = read_part(stream, offset, remaining, record_start, header.rich_bytes,
                     flags & XLS_STRING_RICH ? &result->rich : nullptr);
  if (!status && (flags & XLS_STRING_RICH)) result->rich_size = header.rich_bytes;
  if (!status)
    status = read_part(stream, offset, remaining, record_start, header.phonetic_bytes,
                       flags & XLS_STRING_PHONETIC ? &result->phonetic : nullptr);
  if (!status && (flags & XLS_STRING_PHONETIC)) result->phonetic_size = header.phonetic_bytes;
  if (status) biff_string_free(result);
  return status;
}

uint32_t sst_dup(xls_file* file, uint32_t index, biff_string* result,
                 int flags) {
  memset(result, 0, sizeof *result);
  if (file->sst_offset == 0 || index >= file->sst_unique_count) return 0;
  // Checkpoints are laid on first use, one every step strings, so that the
  // walk to any string costs at most step string headers.
  if (file->sst_checkpoint_step == 0) {
    file->sst_checkpoint_step = (file->sst_unique_count + 5000) / 5001;
    if (file->sst_checkpoint_step == 0) file->sst_checkpoint_step = 1;
    file->sst_checkpoint_count = 0;
  }
  uint32_t step = file->sst_checkpoint_step;
  uint32_t offset, record_start = file->sst_offset, at;
  uint16_t remaining;
  uint32_t checkpoint = index / step;
  if (checkpoint >= file->sst_checkpoint_count) checkpoint = file->sst_checkpoint_count;
  if (checkpoint == 0) {
    uint16_t length = 0;
    uint32_t status = kel_read_header(file->stream, file->sst_offset, nullptr, &length);
    if (status) return status;
    if (length < 8) return KEL_ERR_GENERAL;
    offset = file->sst_offset + 4 + 8;
    remaining = static_cast<uint16_t>(length - 8);
    at = 0;
  } else {
    offset = file->sst_checkpoints[checkpoint - 1].offset;
    remaining = file->sst_checkpoints[checkpoint - 1].remaining;
    at = checkpoint * step;
  }
  // Checkpoint k (k from 1) stands at string k * step.
  for (;; ++at) {
    if (at % step == 0 && at / step == file->sst_checkpoint_count + 1 &&
        file->sst_checkpoint_count < XLS_SST_CHECKPOINTS) {
      file->sst_checkpoints[file->sst_checkpoint_count].offset = offset;
      file->sst_checkpoints[file->sst_checkpoint_count].remaining = remaining;
      file->sst_checkpoint_count += 1;
    }
    bool wanted = at == index;
    uint32_t status = xls_read_string(&file->pool, file->stream, &offset, &remaining,
                                      &record_start, file->second_record, result,
                                      wanted ? flags : 0);
    if (status || wanted) return status;
  }
}
