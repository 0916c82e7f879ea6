/*
 * kel_xls_sst_texts.h -- the texts of the shared string table, read in one
 * walk for the scans of an open.
 *
 * A cell of a shared string gets its own copy of the text.  Fetching each
 * from the file walks from a checkpoint and reads through the whole stream
 * stack; a sheet of a quarter million such cells spends most of its open
 * there.  The open reads the table's texts once into one block instead,
 * when a share of the free memory allows, and drops them when the scans
 * are done; strings it doesn't hold are fetched as before.
 */
#ifndef KEL_XLS_SST_TEXTS_H
#define KEL_XLS_SST_TEXTS_H

#include <stdint.h>

#include "workbook/kel_xls_records.h"

struct xls_file;

struct xls_sst_texts {
  uint32_t count;         /* strings held, from the first */
  uint32_t* starts;       /* count + 1 character offsets into chars; the
                             one block that holds all three */
  unsigned short* chars;  /* the texts one after another, unterminated */
  uint8_t* options;       /* each string's options byte */
};

/* Reads the texts of file's table into texts, stopping early (without a
 * status) at a string it can't read; a workbook without a table, or whose
 * table would take more than an eighth of the free memory, gives an empty
 * one. */
uint32_t sst_texts_load(xls_file* file, xls_sst_texts* texts);
void sst_texts_free(xls_sst_texts* texts);
/* As sst_dup asked for the text only: from texts when it holds index,
 * else from the file. */
uint32_t sst_texts_dup(const xls_sst_texts* texts, xls_file* file, uint32_t index,
                       biff_string* result);

#endif /* KEL_XLS_SST_TEXTS_H */
