#include "workbook/kel_xls_file.h"

#include <stdlib.h>
#include <string.h>

#include "compound/doc_prop.h"
#include "compound/kel_encio.h"
#include "compound/kel_io_stack.h"
#include "compound/zuv_ole.h"
#include "format/kel_locale.h"
#include "foundation/zuv_iodiff.h"
#include "foundation/zuv_memio.h"
#include "foundation/zuv_uni_string.h"
#include "view/zuv_font_emulation.h"
#include "workbook/kel_xls_names.h"
#include "workbook/kel_xls_sheet.h"
#include "workbook/kel_xls_sst_texts.h"
#include "workbook/kel_xls_string.h"

xls_file* g_current_wb = nullptr;

/* The colours of palette indexes 8 to 63 of a workbook without PALETTE. */
const DRGBValue xls_default_palette[XLS_DEFAULT_PALETTE_SIZE] = {
    {0xFF, 0x00, 0x00, 0x00}, {0xFF, 0xFF, 0xFF, 0xFF}, {0xFF, 0xFF, 0x00, 0x00},
    {0xFF, 0x00, 0xFF, 0x00}, {0xFF, 0x00, 0x00, 0xFF}, {0xFF, 0xFF, 0xFF, 0x00},
    {0xFF, 0xFF, 0x00, 0xFF}, {0xFF, 0x00, 0xFF, 0xFF}, {0xFF, 0x80, 0x00, 0x00},
    {0xFF, 0x00, 0x80, 0x00}, {0xFF, 0x00, 0x00, 0x80}, {0xFF, 0x80, 0x80, 0x00},
    {0xFF, 0x80, 0x00, 0x80}, {0xFF, 0x00, 0x80, 0x80}, {0xFF, 0xC0, 0xC0, 0xC0},
    {0xFF, 0x80, 0x80, 0x80}, {0xFF, 0x99, 0x99, 0xFF}, {0xFF, 0x99, 0x33, 0x66},
    {0xFF, 0xFF, 0xFF, 0xCC}, {0xFF, 0xCC, 0xFF, 0xFF}, {0xFF, 0x66, 0x00, 0x66},
    {0xFF, 0xFF, 0x80, 0x80}, {0xFF, 0x00, 0x66, 0xCC}, {0xFF, 0xCC, 0xCC, 0xFF},
    {0xFF, 0x00, 0x00, 0x80}, {0xFF, 0xFF, 0x00, 0xFF}, {0xFF, 0xFF, 0xFF, 0x00},
    {0xFF, 0x00, 0xFF, 0xFF}, {0xFF, 0x80, 0x00, 0x80}, {0xFF, 0x80, 0x00, 0x00},
    {0xFF, 0x00, 0x80, 0x80}, {0xFF, 0x00, 0x00, 0xFF}, {0xFF, 0x00, 0xCC, 0xFF},
    {0xFF, 0xCC, 0xFF, 0xFF}, {0xFF, 0xCC, 0xFF, 0xCC}, {0xFF, 0xFF, 0xFF, 0x99},
    {0xFF, 0x99, 0xCC, 0xFF}, {0xFF, 0xFF, 0x99, 0xCC}, {0xFF, 0xCC, 0x99, 0xFF},
    {0xFF, 0xFF, 0xCC, 0x99}, {0xFF, 0x33, 0x66, 0xFF}, {0xFF, 0x33, 0xCC, 0xCC},
    {0xFF, 0x99, 0xCC, 0x00}, {0xFF, 0xFF, 0xCC, 0x00}, {0xFF, 0xFF, 0x99, 0x00},
    {0xFF, 0xFF, 0x66, 0x00}, {0xFF, 0x66, 0x66, 0x99}, {0xFF, 0x96, 0x96, 0x96},
    {0xFF, 0x00, 0x33, 0x66}, {0xFF, 0x33, 0x99, 0x66}, {0xFF, 0x00, 0x33, 0x00},
    {0xFF, 0x33, 0x33, 0x00}, {0xFF, 0x99, 0x33, 0x00}, {0xFF, 0x99, 0x33, 0x66},
    {0xFF, 0x33, 0x33, 0x99}, {0xFF, 0x33, 0x33, 0x33}};

/* First bytes of a ZIP archive (an OOXML package). */
static const uint32_t kZipSignature = 0x04034B50;

template <class T>
static uint32_t table_push(xls_array_info* info, T** data, const T& element) {
  void* raw = *data;
  uint32_t status = xls_array_push(info, &raw, &element);
  *data = static_cast<T*>(raw);
  return status;
}

static void wipe_password(unsigned short* password) {
  if (!password) return;
  memset(password, 0, ucs2_len(password) * sizeof(unsigned short));
  free(password);
}

static bool name_is(const ole_dir& dir, const char* name) {
  for (int i = 0; i < OLE_NAME_CHARS; ++i) {
    if (dir.name[i] != static_cast<uint16_t>(static_cast<unsigned char>(name[i]))) return false;
    if (!name[i]) return true;
  }
  return false;
}

/* Finds a root element by one of names; KEL_ERR_OLE_NO_ENTRY if none. */
static uint32_t find_element(ole_storage* root, const char* const* names, ole_dir* dir) {
  for (uint32_t index = 0;; ++index) {
    uint32_t status = ole_get_dir(root, index, dir);
    if (status) return status;
    for (const char* const* name = names; *name; ++name)
      if (name_is(*dir, *name)) return 0;
  }
}

/* An OOXML package enciphered into a compound file holds these two streams:
 * it is no workbook, and it needs a password scheme this engine hasn't. */
static uint32_t check_encrypted_package(const xls_pool* pool) {
  ole_open_params params = {pool->document, pool->mem, 0};
  ole_file* ole = nullptr;
  ole_storage* root = nullptr;
  if (ole_open(&params, &ole, &root) != 0) return 0;  // told again when opened for real
  int count = 0;
  ole_dir dir;
  for (uint32_t index = 0; ole_get_dir(root, index, &dir) == 0; ++index)
    if (name_is(dir, "EncryptionInfo") || name_is(dir, "EncryptedPackage")) count += 1;
  ole_close_storage(root);
  ole_close(ole);
  return count == 2 ? KEL_ERR_ENCRYPTED_PACKAGE : 0;
}

/* A bare BIFF2 to BIFF5 stream, without a compound file around it, starts
 * with a BOF record of its version. */
static bool is_old_biff_stream(const unsigned char* first) {
  uint16_t id = get_le16(first);
  return id == 0x0009 || id == 0x0209 || id == 0x0409 || id == 0x0809;
}

static uint32_t read_font(xls_file* file, uint32_t offset, const unsigned char* body,
                          uint16_t length) {
  if (length < 14) return KEL_ERR_GENERAL;
  biff_font font = {};
  font.height = get_le16(body);
  font.flags = get_le16(body + 2);
  font.colour = get_le16(body + 4);
  font.weight = get_le16(body + 6);
  font.escapement = get_le16(body + 8);
  font.underline = body[10];
  font.family = body[11];
  font.charset = body[12];
  font.name_offset = offset + 4 + 14;
  uint32_t size = 0;
  if (length > 14 && xls_STRING_len(body + 14, length - 14u, true, &size) == 0) {
    font.name_length = static_cast<uint16_t>(size);
    uint32_t status = xls_STRING_dup(body + 14, length - 14u, true, &font.name);
    if (status) return status;
  } else {
    font.name = static_cast<unsigned short*>(calloc(1, sizeof(unsigned short)));
    if (!font.name) return KEL_ERR_OUT_OF_MEMORY;
  }
  uint32_t status = table_push(&file->fonts_info, &file->fonts, font);
  if (status) free(font.name);
  return status;
}

static uint32_t read_xf(xls_file* file, const unsigned char* body, uint16_t length) {
  unsigned char bytes[20] = {};
  memcpy(bytes, body, length < sizeof bytes ? length : sizeof bytes);
  biff_xf xf;
  xf.font = get_le16(bytes);
  xf.format = get_le16(bytes + 2);
  xf.flags = get_le16(bytes + 4);
  xf.alignment = bytes[6];
  xf.rotation = bytes[7];
  xf.indent = bytes[8];
  xf.used = bytes[9];
  xf.border1 = get_le32(bytes + 10);
  xf.border2 = get_le32(bytes + 14);
  xf.fill_colours = get_le16(bytes + 18);
  return table_push(&file->xfs_info, &file->xfs, xf);
}

static uint32_t read_format(xls_file* file, const unsigned char* body, uint16_t length) {
  if (length < 2) return KEL_ERR_GENERAL;
  biff_format_v4 format = {get_le16(body), nullptr};
  uint32_t status = xls_STRING_dup(body + 2, length - 2u, false, &format.text);
  if (status) return status;
  status = table_push(&file->formats_info, &file->formats, format);
  if (status) free(format.text);
  return status;
}

static uint32_t read_style(xls_file* file, const unsigned char* body, uint16_t length) {
  if (length < 2) return KEL_ERR_GENERAL;
  biff_style style = {};
  uint16_t word = get_le16(body);
  // The top bit marks a built-in style; the flags keep it as bit 0, beside
  // the XF index.
  style.flags = static_cast<uint16_t>((word & 0x0FFF) << 4 | (word >> 15));
  if (word & 0x8000) {
    if (length >= 4) {
      style.builtin = body[2];
      style.level = body[3];
    }
  } else if (xls_STRING_dup(body + 2, length - 2u, false, &style.name) != 0) {
    // Some writers leave the name out of a style of their own: it stays
    // nameless rather than losing the workbook.
    style.name = static_cast<unsigned short*>(calloc(1, sizeof(unsigned short)));
    if (!style.name) return KEL_ERR_OUT_OF_MEMORY;
  }
  uint32_t status = table_push(&file->styles_info, &file->styles, style);
  if (status) free(style.name);
  return status;
}

static uint32_t read_palette(xls_file* file, const unsigned char* body, uint16_t length) {
  if (length < 2) return KEL_ERR_GENERAL;
  uint32_t count = get_le16(body);
  if (count > (length - 2u) / 4) count = (length - 2u) / 4;
  DRGBValue* palette = static_cast<DRGBValue*>(malloc(count * 4 + 1));
  if (!palette) return KEL_ERR_OUT_OF_MEMORY;
  for (uint32_t i = 0; i < count; ++i) {
    palette[i].flags = 0xFF;
    palette[i].red = body[2 + 4 * i];
    palette[i].green = body[3 + 4 * i];
    palette[i].blue = body[4 + 4 * i];
  }
  free(file->palette);
  file->palette = palette;
  file->palette_size = static_cast<int32_t>(count);
  return 0;
}

/* The sheet of index, made if the list is shorter. */
static uint32_t sheet_at(xls_file* file, uint32_t index, xls_sheet_t** result) {
  while (static_cast<uint32_t>(file->sheets_info.count) <= index) {
    xls_sheet_t* sheet = sheet_constructor(file);
    if (!sheet) return KEL_ERR_OUT_OF_MEMORY;
    uint32_t status = table_push(&file->sheets_info, &file->sheets, sheet);
    if (status) {
      sheet_destructor(sheet);
      return status;
    }
  }
  *result = file->sheets[index];
  return 0;
}

static uint32_t read_boundsheet(xls_file* file, uint32_t offset, const unsigned char* body,
                                uint16_t length, uint32_t index) {
  if (length < 8) return KEL_ERR_GENERAL;
  xls_sheet_t* sheet = nullptr;
  uint32_t status = sheet_at(file, index, &sheet);
  if (status) return status;
  sheet->boundsheet_offset = offset;
  // The position of the sheet's BOF is never enciphered.
  kel_io_stop_decryption(file->stream, true);
  status = io_read_le32(file->stream, offset + 4, &sheet->bof_offset);
  kel_io_stop_decryption(file->stream, false);
  if (status) return status;
  sheet->visibility = body[4];
  sheet->type = body[5];
  sheet->name_offset = offset + 10;
  status = xls_STRING_len(body + 6, length - 6u, true, &sheet->name_length);
  if (status) return status;
  free(sheet->name);
  sheet->name = nullptr;
  return xls_STRING_dup(body + 6, length - 6u, true, &sheet->name);
}

static uint32_t read_supbook(xls_file* file, const unsigned char* body, uint16_t length) {
  if (length == 4 && get_le16(body + 2) == 0x0401) {
    // The workbook's own: sheets that EXTERNSHEET names must exist.
    file->own_supbook = file->supbook_count;
    uint16_t count = get_le16(body);
    if (count > 0) {
      xls_sheet_t* sheet = nullptr;
      uint32_t status = sheet_at(file, count - 1u, &sheet);
      if (status) return status;
    }
  }
  file->supbook_count += 1;
  return 0;
}

static xls_sheet_t* extern_sheet(xls_file* file, uint16_t number) {
  if (number == 0xFFFE) return XLS_EXTERN_WORKBOOK;
  if (number >= static_cast<uint32_t>(file->sheets_info.count)) return XLS_EXTERN_DELETED;
  return file->sheets[number];
}

static uint32_t read_externsheet(xls_file* file, const unsigned char* body, uint16_t length) {
  if (length < 2) return KEL_ERR_GENERAL;
  uint32_t count = get_le16(body);
  if (count > (length - 2u) / 6) count = (length - 2u) / 6;
  for (uint32_t i = 0; i < count; ++i) {
    const unsigned char* entry = body + 2 + 6 * i;
    xls_externsheet_t item = {};
    item.supbook = get_le16(entry);
    item.raw_first = get_le16(entry + 2);
    item.raw_last = get_le16(entry + 4);
    if (item.supbook == file->own_supbook) {
      item.first = extern_sheet(file, item.raw_first);
      item.last = extern_sheet(file, item.raw_last);
      if (item.first == XLS_EXTERN_DELETED || item.last == XLS_EXTERN_DELETED)
        item.first = item.last = XLS_EXTERN_DELETED;
    }
    uint32_t status = table_push(&file->externsheets_info, &file->externsheets, item);
    if (status) return status;
  }
  return 0;
}

/* A NAME record is kept by its offset until the formula reader parses it. */
static uint32_t read_name(xls_file* file, uint32_t offset, const unsigned char* body,
                          uint16_t length) {
  if (length < 14) return KEL_ERR_GENERAL;
  xls_expr_named_t name = {};
  name.offset = offset;
  name.flags = get_le16(body);
  return table_push(&file->names_info, &file->names, name);
}

static uint32_t read_filepass(xls_file* file, uint32_t offset, uint16_t length) {
  filepass_t filepass;
  kel_xls_read_FILEPASS(file->record, &filepass);
  uint16_t type = length >= 2 ? get_le16(file->record + 4) : 0;
  if (type != 1 || filepass.version != 1) return KEL_ERR_BAD_ENCRYPTION_TYPE;
  kel_io_enc* layer = kel_io_stack_io_enc(file->stream);
  if (!layer) return KEL_ERR_BAD_ENCRYPTION_TYPE;
  const unsigned short* password =
      file->password ? file->password : kel_encio_default_password;
  uint32_t status = kel_encio_set_passwd(layer, password, &filepass, offset, length);
  if (status) return status;
  file->encrypted = 1;
  return 0;
}

/* A SUPBOOK may count more sheets than BOUNDSHEET names (some writers count
 * what they never wrote).  Those sheets don't exist: they are dropped, and
 * references to them count as references to deleted sheets. */
static void drop_unnamed_sheets(xls_file* file, uint32_t named) {
  if (static_cast<uint32_t>(file->sheets_info.count) <= named) return;
  for (int i = 0; i < file->externsheets_info.count; ++i) {
    xls_externsheet_t& entry = file->externsheets[i];
    if (entry.supbook != file->own_supbook || entry.first == XLS_EXTERN_DELETED ||
        entry.first == XLS_EXTERN_WORKBOOK)
      continue;
    if (xls_sheet_index(file, entry.first) >= static_cast<int32_t>(named) ||
        xls_sheet_index(file, entry.last) >= static_cast<int32_t>(named))
      entry.first = entry.last = XLS_EXTERN_DELETED;
  }
  while (static_cast<uint32_t>(file->sheets_info.count) > named) {
    file->sheets_info.count -= 1;
    sheet_destructor(file->sheets[file->sheets_info.count]);
  }
}

/* The global records, from the BOF to the EOF. */
static uint32_t read_workbook(xls_file* file) {
  zuv_io* stream = file->stream;
  uint16_t id = 0, length = 0;
  uint32_t status = kel_read_header(stream, 0, &id, &length);
  if (status) return status;
  uint16_t version = 0, type = 0;
  if (id == BIFF_BOF && length >= 4) status = io_read_le16x2(stream, 4, &version, &type);
  if (status) return status;
  // A workbook stream of an older BIFF version is no BIFF8 workbook.
  if (id == BIFF_BOF && version != BIFF_VERSION_8) return KEL_ERR_NOT_BIFF8;
  if (id != BIFF_BOF || length != BIFF_BOF_BODY || version != BIFF_VERSION_8 ||
      type != BIFF_BOF_GLOBALS)
    return KEL_ERR_GENERAL;
  file->bof.version = version;
  file->bof.type = type;

  unsigned char* record = file->record;
  const unsigned char* body = record + 4;
  uint32_t sheet_index = 0;
  for (uint32_t offset = 4 + BIFF_BOF_BODY;; offset += 4u + length) {
    status = kel_read_header(stream, offset, &id, &length);
    if (status) return status;
    if (id == BIFF_EOF) {
      drop_unnamed_sheets(file, sheet_index);
      return 0;
    }
    switch (id) {
      case BIFF_BOUNDSHEET: case BIFF_SST: case BIFF_PALETTE: case BIFF_XF:
      case BIFF_STYLE: case BIFF_FORMAT: case BIFF_SUPBOOK: case BIFF_DATEMODE:
      case BIFF_FONT: case BIFF_FILEPASS: case BIFF_EXTERNSHEET: case BIFF_NAME:
      case BIFF_WINDOW1:
        break;
      case BIFF_WRITEPROT:
        file->write_protected = 1;
        continue;
      default:
        continue;  // left in the file, untouched
    }
    status = kel_read_record(stream, offset, record, 0xFFFF);
    if (status) return status;
    switch (id) {
      case BIFF_BOUNDSHEET:
        status = read_boundsheet(file, offset, body, length, sheet_index++);
        break;
      case BIFF_SST:
        if (length < 8) return KEL_ERR_GENERAL;
        file->sst_offset = offset;
        file->sst_unique_count = get_le32(body + 4);
        file->sst_checkpoint_step = 0;
        break;
      case BIFF_PALETTE: status = read_palette(file, body, length); break;
      case BIFF_XF: status = read_xf(file, body, length); break;
      case BIFF_STYLE: status = read_style(file, body, length); break;
      case BIFF_FORMAT: status = read_format(file, body, length); break;
      case BIFF_SUPBOOK: status = read_supbook(file, body, length); break;
      case BIFF_DATEMODE: file->dates_1904 = length >= 2 && get_le16(body) != 0; break;
      case BIFF_FONT: status = read_font(file, offset, body, length); break;
      case BIFF_WINDOW1:
        file->window1_offset = offset;
        // The tab that was active when the workbook was saved.
        file->active_tab = length >= 12 ? get_le16(body + 10) : 0;
        break;
      case BIFF_FILEPASS: status = read_filepass(file, offset, length); break;
      case BIFF_EXTERNSHEET: status = read_externsheet(file, body, length); break;
      case BIFF_NAME: status = read_name(file, offset, body, length); break;
    }
    if (status) return status;
  }
}

/* The width of "0" in the default font, in twips: what column widths count
 * in. */
static void compute_default_zero_char_twips(xls_file* file) {
  static const unsigned short kZero[] = {'0'};
  unsigned face = 4;
  uint32_t height = 200;
  if (file->fonts_info.count > 0) {
    fe_match(&file->fonts[0], &face, 4);
    height = file->fonts[0].height;
  }
  fe_info info;
  fe_font_info(face, &info);
  file->default_zero_char_twips =
      height * static_cast<uint32_t>(fe_string_width(face, kZero, 1)) / static_cast<uint32_t>(info.em);
}

static void free_tables(xls_file* file) {
  for (int i = 0; i < file->fonts_info.count; ++i) free(file->fonts[i].name);
  free(file->fonts);
  for (int i = 0; i < file->formats_info.count; ++i) free(file->formats[i].text);
  free(file->formats);
  free(file->xfs);
  for (int i = 0; i < file->styles_info.count; ++i) free(file->styles[i].name);
  free(file->styles);
  for (int i = 0; i < file->sheets_info.count; ++i) sheet_destructor(file->sheets[i]);
  free(file->sheets);
  free(file->externsheets);
  xls_free_names(file);
  free(file->unsupported);
  free(file->expr_stack);
  free(file->palette);
}

void xls_close(xls_file* file) {
  if (!file) return;
  dep_destroy_globals(&file->dep);
  wipe_password(file->password);
  free_tables(file);
  kel_io_stack_discard(&file->stream);
  ole_close_stream(file->workbook_stream);
  ole_close_storage(file->root);
  ole_close(file->ole);
  zuv_mem mem = file->mem;
  mem.mem_free(mem.ident, file);
}

/* Opens the compound file and the stack over its workbook stream. */
static uint32_t open_stream(xls_file* file, const unsigned char* first) {
  ole_open_params params = {file->pool.document, file->mem, 0};
  uint32_t status = ole_open(&params, &file->ole, &file->root);
  if (status == KEL_ERR_OLE_BAD_CHAIN && is_old_biff_stream(first)) return KEL_ERR_NOT_BIFF8;
  if (status) return status;
  static const char* const kNames[] = {"Workbook", "WORKBOOK", "workbook", nullptr};
  ole_dir dir;
  status = find_element(file->root, kNames, &dir);
  if (status == KEL_ERR_OLE_NO_ENTRY) return KEL_ERR_NOT_BIFF8;
  if (status) return status;
  status = ole_open_stream(file->root, &dir, &file->workbook_stream);
  if (status) return status;
  return kel_io_stack_open(&file->pool, file->workbook_stream,
                           ole_get_stream_size(file->workbook_stream), nullptr, &file->stream);
}

/* Reads the cells and settings of every sheet, with the shared strings'
 * texts at hand for the while. */
static uint32_t scan_sheets(xls_file* file) {
  xls_sst_texts texts;
  uint32_t status = sst_texts_load(file, &texts);
  file->open_sst_texts = &texts;
  for (int i = 0; !status && i < file->sheets_info.count; ++i) {
    xls_sheet_t* sheet = file->sheets[i];
    if (sheet->type == XLS_SHEET_WORKSHEET || sheet->type == XLS_SHEET_CHART)
      status = xls_scan_sheet(file, sheet);
    if (!status && sheet->bof.type == BIFF_BOF_WORKSHEET) {
      if (sheet->index_offset && !xls_index_is_sound(file->stream, sheet->index_offset))
        sheet->index_offset = 0;
      status = cache_sheet_heights(sheet);
    }
  }
  file->open_sst_texts = nullptr;
  sst_texts_free(&texts);
  return status;
}

uint32_t xls_open(const xls_pool* pool, xls_file** result, int read_cells,
                  const xls_locale* locale, kel_format_t format,
                  unsigned short* password) {
  *result = nullptr;
  unsigned char first[4] = {};
  if (pool->document.read) {
    uint32_t status = 0;
    uint32_t got = pool->document.read(pool->document.context, first, 4, 0, &status);
    if (got < 4) {
      wipe_password(password);
      return status ? status : KEL_ERR_END_OF_FILE;
    }
    if (get_le32(first) == kZipSignature) {
      // OOXML packages are not read yet.
      wipe_password(password);
      return KEL_ERR_UNSUPPORTED;
    }
    status = check_encrypted_package(pool);
    if (status) {
      wipe_password(password);
      return status;
    }
  } else if (format == kel_format_ooxml) {
    wipe_password(password);
    return KEL_ERR_UNSUPPORTED;
  }

  xls_file* file = static_cast<xls_file*>(pool->mem.mem_alloc(pool->mem.ident, sizeof(xls_file)));
  if (!file) {
    wipe_password(password);
    return KEL_ERR_OUT_OF_MEMORY;
  }
  memset(file, 0, sizeof *file);
  file->pool = *pool;
  file->mem = pool->mem;
  file->password = password;
  file->fonts_info.element_size = sizeof(biff_font);
  file->formats_info.element_size = sizeof(biff_format_v4);
  file->xfs_info.element_size = sizeof(biff_xf);
  file->styles_info.element_size = sizeof(biff_style);
  file->sheets_info.element_size = sizeof(xls_sheet_t*);
  file->externsheets_info.element_size = sizeof(xls_externsheet_t);
  file->names_info.element_size = sizeof(xls_expr_named_t);
  file->unsupported_info.element_size = sizeof(xls_apos_sheet);
  file->expr_stack_info.element_size = sizeof(uint16_t);
  dep_init_globals(pool, &file->dep);
  // Room for the operands of all but freak formulas, kept for the session.
  file->expr_stack = static_cast<uint16_t*>(malloc(1000 * sizeof(uint16_t)));
  if (file->expr_stack) file->expr_stack_info.capacity = 1000;
  file->bof = {BIFF_VERSION_8, BIFF_BOF_GLOBALS, 0x2775, 0x7CD, 0x80C1, 0x206};
  file->own_supbook = 0xFFFF;

  uint32_t status;
  if (!pool->document.read) {
    status = kel_io_stack_create(pool, &file->stream);
    if (!status) status = xls_create_empty_workbook(pool, locale, file->record, file->stream);
  } else {
    status = open_stream(file, first);
  }
  if (!status) status = read_workbook(file);
  if (!status) status = xls_read_names(file);
  if (!status && read_cells) status = scan_sheets(file);
  if (!status && file->window1_offset == 0) status = KEL_ERR_GENERAL;
  if (status) {
    xls_close(file);
    return status;
  }
  if (!file->palette) {
    file->palette = static_cast<DRGBValue*>(malloc(sizeof xls_default_palette));
    if (file->palette) {
      memcpy(file->palette, xls_default_palette, sizeof xls_default_palette);
      file->palette_size = XLS_DEFAULT_PALETTE_SIZE;
    }
  }
  compute_default_zero_char_twips(file);
  if (read_cells) {
    uint32_t count = 0;
    xls_unsupported_cells(file, &count);
    // Cells fresh from the scan have no links: without formulas the chain
    // stays empty, and its passes over every cell are saved.
    if (count == 0 && file->formula_records > 0) {
      status = dep_init_master(file);
      if (!status) status = dep_recalc_all_expressions(file, locale);
    }
    // A user's file must open: a chain that can't be built, or a
    // recalculation that stops short, leaves formulas with the results the
    // file cached.  Only a lack of memory ends the open.
    if (status == KEL_ERR_OUT_OF_MEMORY) {
      xls_close(file);
      return status;
    }
  }
  if (file->active_tab < static_cast<uint32_t>(file->sheets_info.count))
    file->active_sheet = file->sheets[file->active_tab];
  else if (file->sheets_info.count > 0)
    file->active_sheet = file->sheets[0];
  *result = file;
  return 0;
}

uint32_t xls_get_summary_information(xls_file* file, doc_props_t* props) {
  if (!file->root) return 0;  // a workbook without a file has no properties
  return doc_prop_read_summary(file->root, props);
}

kel_format_t kel_file_format(const xls_file* file) {
  return file && file->cached ? kel_format_ooxml : kel_format_biff8;
}

bool xls_1904_dates(const xls_file* file) { return file->dates_1904; }

bool xls_file_is_write_protected(const xls_file* file) { return file->write_protected; }

int xls_is_file_password_protected(const xls_file*) { return 0; }

uint32_t xls_sheet_count(const xls_file* file) {
  return static_cast<uint32_t>(file->sheets_info.count);
}

xls_sheet_t* xls_sheet_handle(const xls_file* file, uint32_t index) {
  if (!file || index >= static_cast<uint32_t>(file->sheets_info.count)) return nullptr;
  return file->sheets[index];
}

int32_t xls_sheet_index(const xls_file* file, const xls_sheet_t* sheet) {
  for (int i = 0; i < file->sheets_info.count; ++i)
    if (file->sheets[i] == sheet) return i;
  return -1;
}

xls_sheet_t* xls_get_active_sheet(const xls_file* file) { return file->active_sheet; }

uint32_t xls_set_active_sheet(xls_file* file, xls_sheet_t* sheet) {
  if (xls_sheet_index(file, sheet) < 0) return KEL_ERR_OUT_OF_RANGE;
  file->active_sheet = sheet;
  return 0;
}

const xls_pool* xls_pool_from_wb(const xls_file* file) { return &file->pool; }

dep_global_t* xls_dep_global(xls_file* file) { return &file->dep; }

uint32_t xls_font_count(const xls_file* file) { return static_cast<uint32_t>(file->fonts_info.count); }

uint32_t xls_format_count(const xls_file* file) {
  return static_cast<uint32_t>(file->formats_info.count);
}

uint32_t xls_xf_count(const xls_file* file) { return static_cast<uint32_t>(file->xfs_info.count); }

uint32_t xls_name_count(const xls_file* file) { return static_cast<uint32_t>(file->names_info.count); }

/* A BIFF workbook copies every shared string into its cells: none is borrowed. */
bool xls_is_sst_str(const xls_file*, const unsigned short*) { return false; }
