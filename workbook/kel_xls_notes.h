/*
 * kel_xls_notes.h -- the notes (comments) of a sheet of a BIFF workbook.
 *
 * A note is a NOTE record (its cell, flags and the id of its drawing
 * object) and a text box object (OBJ and TXO, the text in the CONTINUE
 * records behind TXO) met earlier in the sheet's substream.  Notes are not
 * held in memory: each call reads them from the stream.
 */
#ifndef KEL_XLS_NOTES_H
#define KEL_XLS_NOTES_H

#include <stdint.h>

#include "foundation/zuv_array.h"

struct xls_sheet_t;

/* One note.  Freed by xls_note_free: text, then the record. */
struct xls_note_t {
  uint16_t row;
  uint16_t col;
  uint16_t flags;            /* NOTE's: 0x0002 shown always */
  uint16_t object_id;
  unsigned short* text;      /* terminated, malloc'd; null: no text object, or
                                an empty text */
  uint32_t text_length;      /* characters, terminator not counted */
};

/* Where a note stands: an element of xls_get_notes. */
struct xls_note_place_t {
  uint16_t col;
  uint16_t row;
};

/* The note of a cell: *note gets a new record (with its text, if any), or
 * null if the cell has none.  Stream and memory errors come back as their
 * status, *note null. */
uint32_t kel_xls_get_note_text(xls_sheet_t* sheet, int col, int row, xls_note_t** note);

/* The places of all notes of the sheet, in the order of their records.
 * notes is set up here; *owned tells whether notes->data must be freed
 * (false when there is nothing in it). */
uint32_t xls_get_notes(xls_sheet_t* sheet, xls_simple_array* notes, bool* owned);

/* Frees the text and the record; null is fine. */
void xls_note_free(xls_note_t* note);

#endif /* KEL_XLS_NOTES_H */
