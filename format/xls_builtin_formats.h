/*
 * xls_builtin_formats.h -- the number formats that BIFF numbers 0 to 49
 * stand for when a workbook doesn't write them out.
 */
#ifndef XLS_BUILTIN_FORMATS_H
#define XLS_BUILTIN_FORMATS_H

#include <stdint.h>

struct xls_locale;

enum { XLS_BUILTIN_FORMAT_COUNT = 50 };

extern const unsigned short xls_bfmt_general_str[];

/* The text of built-in format index, or null (23 to 36 have none, and 50
 * on).  With a locale, the short date (14) and date-time (22) follow its
 * order of day, month and year. */
const unsigned short* xls_default_format_by_index(uint16_t index, const xls_locale* locale);

#endif /* XLS_BUILTIN_FORMATS_H */
