/*
 * kel_xls_file.h -- the workbook object and how it is opened.
 *
 * xls_open gives a caller an xls_file whatever the document's format: it
 * sniffs the first bytes (a ZIP archive is an OOXML package, anything else
 * must be a compound file with a workbook stream).
 */
#ifndef KEL_XLS_FILE_H
#define KEL_XLS_FILE_H

#include <stdint.h>

#include "foundation/zuv_io.h"

struct xls_file;
struct xls_sheet_t;
struct xls_locale;

/* The workbook of the call in progress.  Module calls store their session's
 * workbook here on entry and null on every way out; code that has no
 * workbook argument takes it from here.  This is why the module serves one
 * call at a time. */
extern xls_file* g_current_wb;

/* The format of a workbook made without a file. */
enum kel_format_t { kel_format_biff8 = 0, kel_format_ooxml = 1 };

/* Opens the document of pool (copied).  The workbook takes password (heap
 * UTF-16, may be null): it is wiped and freed by the workbook, or at once
 * when the open fails.  read_cells 0 leaves the sheets unscanned.  On
 * failure *result is null. */
uint32_t xls_open(const xls_pool* pool, xls_file** result, int read_cells,
                  const xls_locale* locale, kel_format_t format,
                  unsigned short* password);
/* Closes the workbook; null is fine. */
void xls_close(xls_file* file);

/* 0 for a BIFF8 workbook, 1 for an OOXML package. */
kel_format_t kel_file_format(const xls_file* file);
uint32_t xls_sheet_count(const xls_file* file);
/* The sheet of index, or null. */
xls_sheet_t* xls_sheet_handle(const xls_file* file, uint32_t index);
/* The sheet's name (UTF-16, owned by the sheet). */
const unsigned short* xls_sheet_name(const xls_sheet_t* sheet);
xls_sheet_t* xls_get_active_sheet(const xls_file* file);
uint32_t xls_set_active_sheet(xls_file* file, xls_sheet_t* sheet);

#endif /* KEL_XLS_FILE_H */
