#include "workbook/kel_xls_file.h"

#include <stdlib.h>
#include <string.h>

#include "foundation/zuv_uni_string.h"

xls_file* g_current_wb = nullptr;

/* First bytes of a ZIP archive (an OOXML package) and of a compound file. */
static const unsigned char kZipSignature[4] = {0x50, 0x4B, 0x03, 0x04};
static const unsigned char kCompoundSignature[4] = {0xD0, 0xCF, 0x11, 0xE0};

struct xls_file {
  uint32_t cached; /* 0: a BIFF workbook */
};

static void wipe_password(unsigned short* password) {
  if (!password) return;
  memset(password, 0, ucs2_len(password) * sizeof(unsigned short));
  free(password);
}

uint32_t xls_open(const xls_pool* pool, xls_file** result, int /* read_cells */,
                  const xls_locale* /* locale */, kel_format_t /* format */,
                  unsigned short* password) {
  *result = nullptr;
  wipe_password(password);
  // Workbooks without a file, OOXML packages and the workbook stream of a
  // compound file are not read yet: sniff the document and say why it
  // can't be opened.
  if (!pool->document.read) return KEL_ERR_UNSUPPORTED;
  unsigned char first[4];
  uint32_t status = 0;
  uint32_t got = pool->document.read(pool->document.context, first, 4, 0, &status);
  if (got < 4) return status ? status : KEL_ERR_END_OF_FILE;
  if (memcmp(first, kZipSignature, 4) == 0) return KEL_ERR_UNSUPPORTED;
  if (memcmp(first, kCompoundSignature, 4) != 0) return KEL_ERR_OLE_BAD_CHAIN;
  return KEL_ERR_UNSUPPORTED;
}

void xls_close(xls_file* file) { free(file); }

kel_format_t kel_file_format(const xls_file* file) {
  return file && file->cached ? kel_format_ooxml : kel_format_biff8;
}

uint32_t xls_sheet_count(const xls_file*) { return 0; }

xls_sheet_t* xls_sheet_handle(const xls_file*, uint32_t) { return nullptr; }

const unsigned short* xls_sheet_name(const xls_sheet_t*) { return nullptr; }

xls_sheet_t* xls_get_active_sheet(const xls_file*) { return nullptr; }

uint32_t xls_set_active_sheet(xls_file*, xls_sheet_t*) { return KEL_ERR_OUT_OF_RANGE; }
