#include "workbook/kel_xls_sst_texts.h"

#include <stdlib.h>
#include <string.h>

#include "compound/kel_io_stack.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_string.h"

/* Bytes in the bodies of the SST and its CONTINUE records: no more
 * characters than that can be in the table. */
static uint32_t table_bytes(xls_file* file) {
  uint32_t total = 0, offset = file->sst_offset;
  uint16_t id = BIFF_SST, length = 0;
  while (!kel_read_header(file->stream, offset, &id, &length) &&
         (offset == file->sst_offset || id == BIFF_CONTINUE)) {
    total += length;
    offset += 4u + length;
  }
  return total;
}

uint32_t sst_texts_load(xls_file* file, xls_sst_texts* texts) {
  *texts = xls_sst_texts{};
  uint32_t count = file->sst_unique_count;
  if (file->sst_offset == 0 || count == 0) return 0;
  uint16_t length = 0;
  if (kel_read_header(file->stream, file->sst_offset, nullptr, &length) || length < 8) return 0;
  // One block, sized once: growing would leave holes in the heap that every
  // cell's text would then be carved from.
  uint32_t chars = table_bytes(file);
  uint64_t bytes = 4ull * (count + 1) + 2ull * chars + count;
  uint32_t share = file->mem.available ? file->mem.available() / 8 : 0;
  if (bytes > share) return 0;
  void* block = malloc(static_cast<size_t>(bytes));
  if (!block) return 0;
  texts->starts = static_cast<uint32_t*>(block);
  texts->chars = reinterpret_cast<unsigned short*>(texts->starts + count + 1);
  texts->options = reinterpret_cast<uint8_t*>(texts->chars + chars);

  uint32_t offset = file->sst_offset + 4 + 8, record_start = file->sst_offset;
  uint16_t remaining = static_cast<uint16_t>(length - 8);
  uint32_t used = 0;
  texts->starts[0] = 0;
  for (uint32_t index = 0; index < count; ++index) {
    biff_string string = {};
    if (xls_read_string(&file->pool, file->stream, &offset, &remaining, &record_start,
                        file->second_record, &string, XLS_STRING_TEXT))
      break;
    bool fits = string.length <= chars - used;
    if (fits) {
      memcpy(texts->chars + used, string.text, string.length * sizeof(unsigned short));
      used += string.length;
      texts->starts[index + 1] = used;
      texts->options[index] = string.options;
      texts->count = index + 1;
    }
    biff_string_free(&string);
    if (!fits) break;
  }
  return 0;
}

void sst_texts_free(xls_sst_texts* texts) {
  free(texts->starts);
  *texts = xls_sst_texts{};
}

uint32_t sst_texts_dup(const xls_sst_texts* texts, xls_file* file, uint32_t index,
                       biff_string* result) {
  if (!texts || index >= texts->count) return sst_dup(file, index, result, XLS_STRING_TEXT);
  *result = biff_string{};
  uint32_t start = texts->starts[index], length = texts->starts[index + 1] - start;
  result->text = static_cast<unsigned short*>(malloc((length + 1) * sizeof(unsigned short)));
  if (!result->text) return KEL_ERR_OUT_OF_MEMORY;
  memcpy(result->text, texts->chars + start, length * sizeof(unsigned short));
  result->text[length] = 0;
  result->length = length;
  result->options = texts->options[index];
  return 0;
}
