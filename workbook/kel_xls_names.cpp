/*
 * Defined names, the EXTERNSHEET table as the formula reader sees it, and
 * the list of formula cells the engine cannot compute.
 *
 * NAME records are kept by offset while the global records are walked;
 * their definitions are read once the walk is over, when every sheet,
 * EXTERNSHEET entry and name exists, so that a name may refer to a name
 * defined after it.  The table never grows after that: formula nodes point
 * into it.
 */
#include <stdlib.h>
#include <string.h>

#include "compound/kel_io_stack.h"
#include "formula/xls_formula_codec.h"
#include "foundation/zuv_memio.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_names.h"
#include "workbook/kel_xls_sheet.h"
#include "workbook/kel_xls_string.h"

/* The names a built-in name's one-character code stands for. */
static const char* const kBuiltInNames[] = {
    "Consolidate_Area", "Auto_Open",     "Auto_Close",      "Extract",
    "Database",         "Criteria",      "Print_Area",      "Print_Titles",
    "Recorder",         "Data_Form",     "Auto_Activate",   "Auto_Deactivate",
    "Sheet_Title",      "_FilterDatabase"};
enum { kBuiltInNameCount = sizeof kBuiltInNames / sizeof kBuiltInNames[0] };

/* The name's text, and in *name_size the bytes it takes in the record. */
static uint32_t read_name_text(xls_expr_named_t* named, const unsigned char* body,
                               uint16_t length, uint32_t characters, uint32_t* name_size) {
  if (length < 15) return KEL_ERR_GENERAL;
  bool wide = body[14] & 0x01;
  *name_size = 1 + characters * (wide ? 2u : 1u);
  if (named->flags & BIFF_NAME_BUILTIN) {
    if (characters != 1) return KEL_ERR_GENERAL;
    uint32_t code = body[15];
    if (code >= kBuiltInNameCount) return 0;
    named->name = dup2ucs2(kBuiltInNames[code]);
    return named->name ? 0 : KEL_ERR_OUT_OF_MEMORY;
  }
  return xls_read_string_without_len(body + 14, length - 14u, characters, &named->name);
}

/* One NAME record's definition; a definition the reader cannot take leaves
 * the name unparsed, as #NAME? to whoever uses it. */
static uint32_t read_definition(xls_file* file, xls_expr_named_t* named,
                                dynamic_expr_t* scratch) {
  uint16_t id = 0, length = 0;
  uint32_t status = kel_read_header(file->stream, named->offset, &id, &length);
  if (!status) status = kel_read_record(file->stream, named->offset, file->second_record, 0xFFFF);
  if (status) return status;
  const unsigned char* body = file->second_record + 4;
  uint32_t characters = body[3];
  uint32_t token_length = get_le16(body + 4);
  if (characters == 0 || token_length == 0) return 0;
  uint32_t sheet_number = get_le16(body + 8);
  uint32_t name_size = 0;
  status = read_name_text(named, body, length, characters, &name_size);
  if (status) return status;
  uint32_t start = 14 + name_size;
  if (start + token_length > length) return 0; /* cut short: kept unparsed */
  named->sheet = sheet_number ? xls_sheet_handle(file, sheet_number - 1) : nullptr;
  bool unsupported = false;
  biff_formula origin = {0, 0};
  status = expr_read_formula(file, named->sheet, body + start, token_length, length - start,
                             &origin, scratch, &named->packed, &unsupported);
  if (status == KEL_ERR_UNSUPPORTED || (!status && unsupported)) {
    expr_free(&named->packed, true);
    return 0;
  }
  if (status) return status;
  named->parsed = 1;
  return 0;
}

uint32_t xls_read_names(xls_file* file) {
  dynamic_expr_t scratch;
  expr_d_init(&scratch);
  uint32_t status = 0;
  for (int i = 0; !status && i < file->names_info.count; ++i)
    status = read_definition(file, &file->names[i], &scratch);
  expr_d_destroy(&scratch);
  return status;
}

void xls_free_names(xls_file* file) {
  for (int i = 0; i < file->names_info.count; ++i) {
    free(file->names[i].name);
    expr_free(&file->names[i].packed, true);
  }
  free(file->names);
  file->names = nullptr;
  file->names_info.count = file->names_info.capacity = 0;
}

xls_expr_named_t* xls_named_get_by_index(const xls_file* file, uint32_t index) {
  if (index == 0 || index > static_cast<uint32_t>(file->names_info.count)) return nullptr;
  return &file->names[index - 1];
}

xls_expr_named_t* xls_named_get_by_name(const xls_file* file, const xls_sheet_t* sheet,
                                        const unsigned short* text, uint32_t length,
                                        uint32_t* index) {
  int global = -1;
  for (int i = 0; i < file->names_info.count; ++i) {
    const xls_expr_named_t& named = file->names[i];
    if (!named.name || ucs2_ncmpi(named.name, text, length) != 0 ||
        ucs2_len(named.name) != length)
      continue;
    if (named.sheet && named.sheet == sheet) {
      *index = static_cast<uint32_t>(i) + 1;
      return &file->names[i];
    }
    if (!named.sheet && global < 0) global = i;
  }
  if (global < 0) return nullptr;
  *index = static_cast<uint32_t>(global) + 1;
  return &file->names[global];
}

uint32_t xls_externsheet_readref(const xls_file* file, uint16_t index, xls_sheet_t** first,
                                 xls_sheet_t** last) {
  if (index >= file->externsheets_info.count) return KEL_ERR_EXTERNAL_REFERENCE;
  const xls_externsheet_t& entry = file->externsheets[index];
  if (entry.supbook != file->own_supbook) {
    *first = *last = XLS_EXTERN_WORKBOOK;
  } else {
    *first = entry.first;
    *last = entry.last;
  }
  return 0;
}

uint32_t xls_externsheet_refindex(xls_file* file, xls_sheet_t* first, xls_sheet_t* last,
                                  uint16_t* index) {
  if (xls_sheet_index(file, first) < 0 || xls_sheet_index(file, last) < 0)
    return KEL_ERR_NOT_FOUND;
  for (int i = 0; i < file->externsheets_info.count; ++i) {
    const xls_externsheet_t& entry = file->externsheets[i];
    if (entry.supbook == file->own_supbook && entry.first == first && entry.last == last) {
      *index = static_cast<uint16_t>(i);
      return 0;
    }
  }
  if (file->externsheets_info.count >= 0xFFFF) return KEL_ERR_GENERAL;
  if (file->own_supbook == 0xFFFF) file->own_supbook = file->supbook_count++;
  xls_externsheet_t entry = {};
  entry.supbook = file->own_supbook;
  entry.raw_first = static_cast<uint16_t>(xls_sheet_index(file, first));
  entry.raw_last = static_cast<uint16_t>(xls_sheet_index(file, last));
  entry.first = first;
  entry.last = last;
  void* data = file->externsheets;
  uint32_t status = xls_array_push(&file->externsheets_info, &data, &entry);
  file->externsheets = static_cast<xls_externsheet_t*>(data);
  if (status) return status;
  *index = static_cast<uint16_t>(file->externsheets_info.count - 1);
  return 0;
}

const xls_apos_sheet* xls_unsupported_cells(const xls_file* file, uint32_t* count) {
  *count = static_cast<uint32_t>(file->unsupported_info.count);
  return file->unsupported;
}

uint32_t xls_add_unsupported_cell(xls_file* file, const xls_apos_sheet& position) {
  void* data = file->unsupported;
  uint32_t status = xls_array_push(&file->unsupported_info, &data, &position);
  file->unsupported = static_cast<xls_apos_sheet*>(data);
  return status;
}
