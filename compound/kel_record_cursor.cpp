#include "compound/kel_record_cursor.h"

#include <stdlib.h>

#include "compound/kel_encio.h"
#include "compound/kel_io_stack.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_records.h"

void kel_record_cursor_open(kel_record_cursor* cursor, zuv_io* stack, unsigned char* record) {
  *cursor = kel_record_cursor{};
  cursor->stack = stack;
  cursor->record = record;
  kel_io_enc* encryption = kel_io_stack_io_enc(stack);
  if (encryption && encryption->enabled) return;
  // Without the window the walk is only slower.
  cursor->window = static_cast<unsigned char*>(malloc(KEL_RECORD_WINDOW));
}

void kel_record_cursor_close(kel_record_cursor* cursor) {
  free(cursor->window);
  cursor->window = nullptr;
}

/* Makes the window hold [offset, offset + size) if the stream has it. */
static uint32_t cover(kel_record_cursor* cursor, uint32_t offset, uint32_t size) {
  if (offset >= cursor->window_start && offset - cursor->window_start <= cursor->window_length &&
      cursor->window_length - (offset - cursor->window_start) >= size)
    return 0;
  uint32_t status = 0;
  uint32_t got = cursor->stack->read(cursor->stack->context, cursor->window, KEL_RECORD_WINDOW,
                                     offset, &status);
  cursor->window_start = offset;
  cursor->window_length = got;
  if (got >= size) return 0;
  // A read short of the window is the end of the stream: an error only
  // when the record itself runs past it.
  return status ? status : KEL_ERR_END_OF_FILE;
}

uint32_t kel_record_cursor_header(kel_record_cursor* cursor, uint32_t offset, uint16_t* id,
                                  uint16_t* length) {
  if (!cursor->window) return kel_read_header(cursor->stack, offset, id, length);
  uint32_t status = cover(cursor, offset, 4);
  if (status) return status;
  const unsigned char* header = cursor->window + (offset - cursor->window_start);
  *id = le16_at(header);
  *length = le16_at(header + 2);
  return 0;
}

uint32_t kel_record_cursor_body(kel_record_cursor* cursor, uint32_t offset, uint16_t length,
                                const unsigned char** body) {
  if (length > XLS_MAX_RECORD_BODY) return KEL_ERR_GENERAL;
  if (!cursor->window) {
    uint32_t status = kel_read_record(cursor->stack, offset, cursor->record, length);
    *body = cursor->record + 4;
    return status;
  }
  uint32_t status = cover(cursor, offset, 4u + length);
  if (status) return status;
  *body = cursor->window + (offset - cursor->window_start) + 4;
  return 0;
}
