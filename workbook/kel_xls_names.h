/*
 * kel_xls_names.h -- the defined names of a BIFF workbook.  The lookups the
 * formula reader makes (names by index, EXTERNSHEET entries) and the list
 * of unsupported cells are declared with the reader and the workbook.
 */
#ifndef KEL_XLS_NAMES_H
#define KEL_XLS_NAMES_H

#include <stdint.h>

struct xls_file;

/* Reads the definition of every NAME record the global walk kept.  A name
 * whose definition can't be read stays unparsed; only a failure of memory
 * or of the stream stops the open. */
uint32_t xls_read_names(xls_file* file);
/* Frees the names with their texts and definitions. */
void xls_free_names(xls_file* file);

#endif /* KEL_XLS_NAMES_H */
