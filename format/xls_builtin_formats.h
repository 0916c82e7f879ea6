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

/* The fixed forms in which a date, a time or both are edited, whatever the
 * cell's own format shows: the whole value with four-digit years and
 * seconds, so that what the user edits keeps every field.  The day, month
 * and year follow the locale's order; the clock has 24 hours where the
 * locale says so, AM/PM otherwise.  A null locale is month first with
 * AM/PM. */
enum { XLS_EDIT_DATE = 0x01, XLS_EDIT_TIME = 0x02 };
/* parts: XLS_EDIT_DATE, XLS_EDIT_TIME or both. */
const unsigned short* xls_edit_format(uint32_t parts, const xls_locale* locale);

#endif /* XLS_BUILTIN_FORMATS_H */
