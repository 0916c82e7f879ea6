/*
 * Notes of a sheet, read from the substream on each call.  A NOTE record
 * names its cell and the id of a drawing object; the object's OBJ comes
 * earlier, followed (behind any MSODRAWING) by a TXO whose CONTINUE
 * records hold the text.
 */
#include "workbook/kel_xls_notes.h"

#include <stdlib.h>

#include "compound/kel_io_stack.h"
#include "compound/kel_record_cursor.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

enum { BIFF_OBJ = 0x005D, BIFF_TXO = 0x01B6 };

/* OBJ opens with its common data: ft 0x15, then at 4 the object type and
 * at 6 the id. */
enum { OBJ_COMMON_DATA = 0x15, OBJ_ID_END = 8 };
/* NOTE: row, column, flags and the object id before the author. */
enum { NOTE_FIELDS = 8 };
/* TXO: the count of characters at 10. */
enum { TXO_TEXT_LENGTH = 10 };

/* A forward walk over the records of one sheet's substream, embedded
 * substreams (a chart's, whose objects number on their own) stepped over.
 * The walk ends at the sheet's EOF or at the end of the stream. */
struct sheet_walk {
  kel_record_cursor cursor;
  uint32_t next, end;
  uint32_t offset;  /* of the current record */
  uint16_t id, length;
};

static void walk_open(sheet_walk* walk, xls_file* file, uint32_t from) {
  kel_record_cursor_open(&walk->cursor, file->stream, file->record);
  walk->next = from;
  walk->end = file->stream->get_size(file->stream->context);
}

/* Moves to the next record; false at the end, with *status set if the
 * stream failed. */
static bool walk_step(sheet_walk* walk, uint32_t* status) {
  uint32_t depth = 0;
  while (walk->next < walk->end) {
    uint16_t id = 0, length = 0;
    *status = kel_record_cursor_header(&walk->cursor, walk->next, &id, &length);
    if (*status) return false;
    uint32_t offset = walk->next;
    walk->next += 4u + length;
    if (id == BIFF_BOF) depth += 1;
    if (depth) {
      if (id == BIFF_EOF) depth -= 1;
      continue;
    }
    if (id == BIFF_EOF) return false;
    walk->offset = offset;
    walk->id = id;
    walk->length = length;
    return true;
  }
  return false;
}

static uint32_t walk_body(sheet_walk* walk, const unsigned char** body) {
  return kel_record_cursor_body(&walk->cursor, walk->offset, walk->length, body);
}

/* The first record behind the sheet's BOF. */
static uint32_t first_record(const xls_sheet_t* sheet) {
  return sheet->bof_offset + 4 + BIFF_BOF_BODY;
}

/* Objects follow the cell table, whose end is the INDEX's last DBCELL: a
 * search for an object may start there rather than at the first cell.
 * Without a DBCELL that can be trusted, the sheet's first record. */
static uint32_t objects_start(xls_sheet_t* sheet) {
  zuv_io* stream = sheet->workbook->stream;
  uint16_t length = 0, id = 0;
  uint32_t dbcell = 0;
  if (!sheet->index_offset || kel_read_header(stream, sheet->index_offset, nullptr, &length) ||
      length < 20)
    return first_record(sheet);
  uint32_t last_entry = sheet->index_offset + 4 + 16 + 4 * ((length - 16u) / 4u - 1);
  if (io_read_le32(stream, last_entry, &dbcell) || dbcell <= sheet->index_offset ||
      kel_read_header(stream, dbcell, &id, nullptr) || id != BIFF_DBCELL)
    return first_record(sheet);
  return dbcell;
}

/* Reads the text of the TXO that walk stands on: the characters of its
 * CONTINUE records, each of which starts with a byte whose bit 0 says
 * 16-bit characters (else 8-bit ones, the low byte of each).  No
 * characters give a null text. */
static uint32_t read_txo_text(sheet_walk* walk, unsigned short** text, uint32_t* text_length) {
  const unsigned char* body = nullptr;
  if (walk->length < TXO_TEXT_LENGTH + 2) return KEL_ERR_GENERAL;
  uint32_t status = walk_body(walk, &body);
  if (status) return status;
  uint32_t count = get_le16(body + TXO_TEXT_LENGTH);
  if (!count) return 0;
  unsigned short* characters =
      static_cast<unsigned short*>(malloc((count + 1) * sizeof(unsigned short)));
  if (!characters) return KEL_ERR_OUT_OF_MEMORY;
  uint32_t done = 0;
  while (done < count) {
    // The text must go on in CONTINUE records; a record of another kind,
    // or an empty one, leaves it broken.
    if (!walk_step(walk, &status)) {
      if (!status) status = KEL_ERR_GENERAL;
      break;
    }
    if (walk->id != BIFF_CONTINUE || walk->length < 1) {
      status = KEL_ERR_GENERAL;
      break;
    }
    status = walk_body(walk, &body);
    if (status) break;
    bool wide = body[0] & 1;
    uint32_t available = (walk->length - 1u) / (wide ? 2u : 1u);
    const unsigned char* at = body + 1;
    for (; done < count && available; --available, ++done) {
      characters[done] = wide ? get_le16(at) : at[0];
      at += wide ? 2 : 1;
    }
  }
  if (status) {
    free(characters);
    return status;
  }
  characters[count] = 0;
  *text = characters;
  *text_length = count;
  return 0;
}

/* Looks for the object object_id from offset from to stop (or the EOF)
 * and reads the text of its TXO into note.  *met says whether the object
 * was met; one that a TXO doesn't follow before the next object or note
 * has no text. */
static uint32_t find_object_text(xls_sheet_t* sheet, uint32_t from, uint32_t stop,
                                 uint16_t object_id, bool* met, xls_note_t* note) {
  sheet_walk walk;
  walk_open(&walk, sheet->workbook, from);
  uint32_t status = 0;
  *met = false;
  while (!*met && walk_step(&walk, &status)) {
    if (walk.offset >= stop) break;
    if (walk.id != BIFF_OBJ || walk.length < OBJ_ID_END) continue;
    const unsigned char* body = nullptr;
    status = walk_body(&walk, &body);
    if (status) break;
    // Matched by id alone: the NOTE's link is what makes the object a note.
    if (get_le16(body) != OBJ_COMMON_DATA || get_le16(body + 6) != object_id) continue;
    *met = true;
    while (walk_step(&walk, &status)) {
      if (walk.id == BIFF_TXO) {
        status = read_txo_text(&walk, &note->text, &note->text_length);
        break;
      }
      if (walk.id == BIFF_OBJ || walk.id == BIFF_NOTE) break;
    }
  }
  kel_record_cursor_close(&walk.cursor);
  return status;
}

/* Calls visit with the fields of each NOTE record in order, until it
 * returns false.  A NOTE too short for its fields is passed over. */
template <typename Visit>
static uint32_t each_note(xls_sheet_t* sheet, Visit visit) {
  if (sheet->cached || !sheet->note_offset) return 0;
  sheet_walk walk;
  walk_open(&walk, sheet->workbook, sheet->note_offset);
  uint32_t status = 0;
  while (walk_step(&walk, &status)) {
    if (walk.id != BIFF_NOTE || walk.length < NOTE_FIELDS) continue;
    const unsigned char* body = nullptr;
    status = walk_body(&walk, &body);
    if (status) break;
    xls_note_t fields = {};
    fields.row = get_le16(body);
    fields.col = get_le16(body + 2);
    fields.flags = get_le16(body + 4);
    fields.object_id = get_le16(body + 6);
    if (!visit(fields)) break;
  }
  kel_record_cursor_close(&walk.cursor);
  return status;
}

uint32_t kel_xls_get_note_text(xls_sheet_t* sheet, int col, int row, xls_note_t** note) {
  *note = nullptr;
  xls_note_t fields = {};
  bool found = false;
  uint32_t status = each_note(sheet, [&](const xls_note_t& met) {
    found = met.col == col && met.row == row;
    if (found) fields = met;
    return !found;
  });
  if (status || !found) return status;
  xls_note_t* result = static_cast<xls_note_t*>(malloc(sizeof(xls_note_t)));
  if (!result) return KEL_ERR_OUT_OF_MEMORY;
  *result = fields;
  // The object is most likely behind the cell table; only if it isn't met
  // there is the rest of the sheet searched.
  uint32_t start = objects_start(sheet), first = first_record(sheet);
  bool met = false;
  status = find_object_text(sheet, start, 0xFFFFFFFFu, fields.object_id, &met, result);
  if (!status && !met && start > first)
    status = find_object_text(sheet, first, start, fields.object_id, &met, result);
  if (status) {
    xls_note_free(result);
    return status;
  }
  *note = result;
  return 0;
}

uint32_t xls_get_notes(xls_sheet_t* sheet, xls_simple_array* notes, bool* owned) {
  *notes = xls_simple_array{};
  notes->element_size = sizeof(xls_note_place_t);
  notes->grow_step = 10;
  *owned = false;
  uint32_t insert_status = 0;
  uint32_t status = each_note(sheet, [&](const xls_note_t& met) {
    xls_note_place_t place = {met.col, met.row};
    insert_status = xls_simple_array_insert(notes, notes->count, &place);
    return insert_status == 0;
  });
  if (!status) status = insert_status;
  if (status) {
    free(notes->data);
    *notes = xls_simple_array{};
    notes->element_size = sizeof(xls_note_place_t);
    notes->grow_step = 10;
    return status;
  }
  *owned = notes->data != nullptr;
  return 0;
}

void xls_note_free(xls_note_t* note) {
  if (!note) return;
  free(note->text);
  free(note);
}
