// Feeds bytes to the workbook reader as a document held in memory.  Any
// input must give a status or a workbook, never a crash, hang or leak.
#include <stddef.h>
#include <stdint.h>

#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zuv_memio document;
  memio_open_bytes(&document, data, static_cast<uint32_t>(size));
  xls_pool pool = {};
  pool.document = document.io;
  zuv_mem_system(&pool.mem);
  xls_file* file = nullptr;
  if (xls_open(&pool, &file, 1, nullptr, kel_format_biff8, nullptr) == 0) xls_close(file);
  memio_close(&document);
  return 0;
}
