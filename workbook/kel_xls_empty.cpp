/*
 * The stock image of a new workbook: global records, three empty worksheets.
 * It is written into the overlay of a workbook without a file and then read
 * like any file, so a new workbook has no code path of its own.
 */
#include <string.h>

#include "format/kel_locale.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_file.h"

/* Names of the sheets when the locale has none. */
static const char* const default_sheet_name[3] = {"Sheet1", "Sheet2", "Sheet3"};

/* Appends records to the end of a stream. */
struct record_writer {
  zuv_io* stream;
  unsigned char* buffer;
  uint32_t offset;
  uint32_t status;
};

/* Writes the record whose body stands at buffer + 4. */
static void emit(record_writer* writer, uint16_t id, uint16_t length) {
  if (writer->status) return;
  put_le16(writer->buffer, id);
  put_le16(writer->buffer + 2, length);
  uint32_t size = 4u + length;
  uint32_t put = writer->stream->write(writer->stream->context, writer->buffer, size,
                                       writer->offset, &writer->status);
  if (put < size && !writer->status) writer->status = KEL_ERR_GENERAL;
  writer->offset += size;
}

static unsigned char* body(record_writer* writer, uint16_t length) {
  memset(writer->buffer + 4, 0, length);
  return writer->buffer + 4;
}

static void emit_bof(record_writer* writer, uint16_t type) {
  unsigned char* b = body(writer, 16);
  put_le16(b, BIFF_VERSION_8);
  put_le16(b + 2, type);
  put_le16(b + 4, 0x2775);
  put_le16(b + 6, 0x7CD);
  put_le32(b + 8, 0x80C1);
  put_le32(b + 12, 0x206);
  emit(writer, BIFF_BOF, 16);
}

static void emit_globals(record_writer* writer) {
  emit_bof(writer, BIFF_BOF_GLOBALS);
  put_le16(body(writer, 2), 1200);  // CODEPAGE: UTF-16
  emit(writer, 0x0042, 2);
  unsigned char* b = body(writer, 18);  // WINDOW1
  put_le16(b + 4, 0x3A00);
  put_le16(b + 6, 0x2300);
  put_le16(b + 8, 0x0038);
  put_le16(b + 14, 1);
  put_le16(b + 16, 0x0258);
  emit(writer, BIFF_WINDOW1, 18);
  body(writer, 2);  // DATEMODE: the 1900 calendar
  emit(writer, BIFF_DATEMODE, 2);
  for (int i = 0; i < 4; ++i) {  // FONT: Arial 10; the format has no font 4
    b = body(writer, 21);
    put_le16(b, 200);
    put_le16(b + 4, 0x7FFF);
    put_le16(b + 6, 400);
    b[11] = 2;  // sans
    b[14] = 5;
    memcpy(b + 16, "Arial", 5);
    emit(writer, BIFF_FONT, 21);
  }
  // XF: fifteen style XFs, then the cell XF 15 that every cell starts with.
  for (int i = 0; i < 16; ++i) {
    b = body(writer, 20);
    put_le16(b + 4, i < 15 ? 0xFFF5 : 0x0001);
    b[6] = 0x20;  // bottom aligned
    put_le16(b + 18, 0x20C0);
    emit(writer, BIFF_XF, 20);
  }
  b = body(writer, 4);  // STYLE: Normal
  put_le16(b, 0x8000);
  b[3] = 0xFF;
  emit(writer, BIFF_STYLE, 4);
}

static void emit_boundsheet(record_writer* writer, const unsigned short* name) {
  unsigned char* b = body(writer, 8 + 2 * 31);
  uint16_t count = 0;
  bool wide = false;
  while (name[count] && count < 31) wide |= name[count++] > 0xFF;
  b[6] = static_cast<unsigned char>(count);
  b[7] = wide ? 1 : 0;
  for (uint16_t i = 0; i < count; ++i) {
    if (wide)
      put_le16(b + 8 + 2 * i, name[i]);
    else
      b[8 + i] = static_cast<unsigned char>(name[i]);
  }
  emit(writer, BIFF_BOUNDSHEET, static_cast<uint16_t>(8 + count * (wide ? 2 : 1)));
}

static void emit_tail(record_writer* writer) {
  unsigned char* b = body(writer, 4);  // COUNTRY
  put_le16(b, 1);
  put_le16(b + 2, 1);
  emit(writer, 0x008C, 4);
  body(writer, 8);  // SST: no strings yet
  emit(writer, BIFF_SST, 8);
  emit(writer, BIFF_EOF, 0);
}

/* An empty worksheet's substream at the end of the stream. */
static void insert_empty_worksheet(record_writer* writer, bool first) {
  emit_bof(writer, BIFF_BOF_WORKSHEET);
  body(writer, 16);  // INDEX of no rows
  emit(writer, BIFF_INDEX, 16);
  unsigned char* b = body(writer, 4);
  put_le16(b + 2, 0xFF);
  emit(writer, BIFF_DEFAULTROWHEIGHT, 4);
  body(writer, 14);
  emit(writer, BIFF_DIMENSIONS, 14);
  b = body(writer, 18);
  put_le16(b, first ? 0x06B6 : 0x00B6);  // the first sheet is the selected one
  put_le16(b + 6, 0x40);
  emit(writer, BIFF_WINDOW2, 18);
  emit(writer, BIFF_EOF, 0);
}

uint32_t xls_create_empty_workbook(const xls_pool*, const xls_locale* locale,
                                   unsigned char* buffer, zuv_io* stream) {
  record_writer writer = {stream, buffer, 0, 0};
  emit_globals(&writer);
  uint32_t boundsheets[3];
  for (int i = 0; i < 3; ++i) {
    boundsheets[i] = writer.offset;
    unsigned short fallback[8] = {};
    const unsigned short* name = locale ? locale->sheet_names[i] : nullptr;
    if (!name) {
      for (int k = 0; default_sheet_name[i][k]; ++k) fallback[k] = default_sheet_name[i][k];
      name = fallback;
    }
    emit_boundsheet(&writer, name);
  }
  emit_tail(&writer);
  for (int i = 0; i < 3 && !writer.status; ++i) {
    writer.status = io_write_le32(stream, boundsheets[i] + 4, writer.offset);
    insert_empty_worksheet(&writer, i == 0);
  }
  return writer.status;
}
