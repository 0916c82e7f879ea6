/*
 * Reading a cell and what its XF says: inheritance from the style XF, and
 * the pieces of format a caller asks for.
 */
#include <string.h>

#include "format/xls_builtin_formats.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

/* The XF that a cell without an XF of its own shows in column. */
static uint16_t get_default_col_xf(const xls_sheet_t* sheet, int column) {
  if (column >= 0 && column < XLS_MAX_COLUMNS && sheet->columns[column].present)
    return sheet->columns[column].xf;
  return 15;
}

/* The XF of row's ROW record, from the painter's one-row cache when it
 * holds that row. */
static uint32_t read_row_xf(xls_sheet_t* sheet, int row, uint16_t* xf, bool* valid) {
  xls_file* file = sheet->workbook;
  const uint8_t ready = XLS_ROW_CACHE_ENABLED | XLS_ROW_CACHE_VALID;
  biff_row_v2 record;
  if ((file->row_cache_flags & ready) == ready && file->row_cache.row == row) {
    record = file->row_cache;
  } else {
    uint32_t status =
        xls_sheet_read_ROW(sheet, static_cast<uint16_t>(row), &record, nullptr, nullptr);
    if (status) return status;
    if (file->row_cache_flags & XLS_ROW_CACHE_ENABLED) {
      file->row_cache = record;
      file->row_cache_flags |= XLS_ROW_CACHE_VALID;
    }
  }
  *valid = (record.flags & BIFF_ROW_XF_VALID) != 0;
  *xf = record.xf & 0x0FFF;
  return 0;
}

void xls_enable_drawing_cache(xls_file* file) {
  file->row_cache_flags = XLS_ROW_CACHE_ENABLED;
}

void xls_disable_drawing_cache(xls_file* file) { file->row_cache_flags = 0; }

/* XF used-attribute bits, and the groups they bring in from a style. */
enum {
  XF_USED_FORMAT = 0x04,
  XF_USED_FONT = 0x08,
  XF_USED_ALIGNMENT = 0x10,
  XF_USED_BORDER = 0x20,
  XF_USED_FILL = 0x40,
  XF_USED_PROTECTION = 0x80
};

/* The XF that own (of the table) shows once it inherits from its style
 * XF: *scratch, filled in. */
static const biff_xf* inherit_xf(const xls_file* file, const biff_xf* own, biff_xf* scratch) {
  uint16_t parent_index = static_cast<uint16_t>(own->flags >> 4);
  if (parent_index >= file->xfs_info.count) return own;
  const biff_xf& parent = file->xfs[parent_index];
  biff_xf* result = scratch;
  *result = *own;
  // A style XF's used bits mean the opposite of a cell XF's.
  uint8_t p = (parent.flags & BIFF_XF_STYLE) ? 0 : 1;
  auto inherits = [&](uint8_t bit) {
    if ((result->used & bit) || ((parent.used & bit) ? 1 : 0) != p) return false;
    result->used |= bit;
    return true;
  };
  if (inherits(XF_USED_FONT)) result->font = parent.font;
  if (inherits(XF_USED_ALIGNMENT)) result->alignment = parent.alignment;
  if (inherits(XF_USED_BORDER)) {
    result->border1 = parent.border1;
    result->border2 |= parent.border2;
  }
  if (inherits(XF_USED_FILL)) {
    result->border2 |= parent.border2;
    result->fill_colours = parent.fill_colours;
  }
  if (inherits(XF_USED_FORMAT)) result->format = parent.format;
  if (inherits(XF_USED_PROTECTION)) result->flags |= parent.flags;
  return result;
}

/* The table's record of XF index xf when a cell shows it as it stands,
 * having nothing to inherit, as most have; else null (0xFFFF, the
 * column's, among them). */
static inline const biff_xf* standalone_xf(const xls_file* file, uint16_t xf) {
  if (xf == 0xFFFF || xf >= file->xfs_info.count) return nullptr;
  const biff_xf* own = &file->xfs[xf];
  // The parent is only looked for when the low 12 bits are all clear, not
  // just the protection bits: files rely on this reading.
  return (own->flags & 0x0FFF) ? own : nullptr;
}

/* The XF that a cell of XF index xf shows in column: the table's own record
 * where it has nothing to inherit, else *scratch filled in. */
static const biff_xf* resolve_xf(xls_sheet_t* sheet, uint16_t xf, int column,
                                 biff_xf* scratch) {
  const xls_file* file = sheet->workbook;
  if (xf == 0xFFFF) xf = get_default_col_xf(sheet, column);
  if (const biff_xf* own = standalone_xf(file, xf)) return own;
  if (xf >= file->xfs_info.count) {
    *scratch = biff_xf{};
    return scratch;
  }
  return inherit_xf(file, &file->xfs[xf], scratch);
}

void xls_get_parent_xf(xls_sheet_t* sheet, uint16_t xf, int column, biff_xf* result) {
  const biff_xf* resolved = resolve_xf(sheet, xf, column, result);
  if (resolved != result) *result = *resolved;
}

const unsigned short* xls_get_number_format(const xls_file* file, uint16_t index,
                                            const xls_locale* locale) {
  for (int i = 0; i < file->formats_info.count; ++i)
    if (file->formats[i].index == index) return file->formats[i].text;
  return index <= 49 ? xls_default_format_by_index(index, locale) : nullptr;
}

static const unsigned short* number_format_text(const xls_file* file, uint16_t index,
                                                const xls_locale* locale) {
  const unsigned short* text = xls_get_number_format(file, index, locale);
  if (!text) text = xls_get_number_format(file, 0, nullptr);
  return text ? text : xls_bfmt_general_str;
}

/* number_format_text for a format the file's memo doesn't hold, kept in
 * the memo. */
static const unsigned short* remember_number_format(xls_file* file, uint16_t index,
                                                    const xls_locale* locale) {
  xls_format_memo* memo = &file->format_memo;
  if (memo->locale != locale || memo->formats_count != file->formats_info.count) {
    memset(memo, 0, sizeof *memo);
    memo->locale = locale;
    memo->formats_count = file->formats_info.count;
  }
  const unsigned short* text = number_format_text(file, index, locale);
  // The built-in dates follow the locale, whose fields may change under
  // the same pointer: those aren't kept.
  if (!locale || (index != 14 && index != 22)) {
    memo->index[index % XLS_FORMAT_MEMO_SLOTS] = index;
    memo->text[index % XLS_FORMAT_MEMO_SLOTS] = text;
  }
  return text;
}

/* number_format_text through the file's memo; inline, as every cell read
 * that asks the format comes here. */
static inline const unsigned short* memo_number_format(xls_file* file, uint16_t index,
                                                       const xls_locale* locale) {
  const xls_format_memo* memo = &file->format_memo;
  int slot = index % XLS_FORMAT_MEMO_SLOTS;
  if (memo->text[slot] && memo->index[slot] == index && memo->locale == locale &&
      memo->formats_count == file->formats_info.count)
    return memo->text[slot];
  return remember_number_format(file, index, locale);
}

uint32_t xls_get_xf_info(const xls_file* file, uint16_t xf, xls_xf_info* info,
                         const xls_locale* locale) {
  if (xf >= file->xfs_info.count) return KEL_ERR_GENERAL;
  const biff_xf& record = file->xfs[xf];
  info->number_format = number_format_text(file, record.format, locale);
  info->alignment = record.alignment;
  info->flags = record.flags;
  return 0;
}

DRGBValue xls_palette_colour(const xls_file* file, uint16_t index) {
  static const DRGBValue fixed[8] = {
      {0xFF, 0x00, 0x00, 0x00}, {0xFF, 0xFF, 0xFF, 0xFF}, {0xFF, 0xFF, 0x00, 0x00},
      {0xFF, 0x00, 0xFF, 0x00}, {0xFF, 0x00, 0x00, 0xFF}, {0xFF, 0xFF, 0xFF, 0x00},
      {0xFF, 0xFF, 0x00, 0xFF}, {0xFF, 0x00, 0xFF, 0xFF}};
  if (index < 8) return fixed[index];
  if (index - 8 < file->palette_size) return file->palette[index - 8];
  if (index == 0x41) return fixed[1];
  return fixed[0];
}

/* The font, alignment and fill parts of fill_info_xf. */
static uint32_t fill_info_xf_looks(const xls_file* file, xls_read_cell_info* info,
                                   uint8_t flags, const biff_xf* xf, uint16_t xf_index) {
  if (flags & XLS_READ_FONT) {
    uint32_t font = 0;
    uint16_t colour = 0x7FFF;
    if (xf->used & XF_USED_FONT) {
      font = xf->font > 3 ? xf->font - 1u : xf->font;  // there is no font 4
      if (font >= static_cast<uint32_t>(file->fonts_info.count)) return KEL_ERR_GENERAL;
      colour = file->fonts[font].colour;
    } else if (!file->fonts_info.count) {
      return KEL_ERR_GENERAL;
    }
    info->font = &file->fonts[font];
    info->font_colour = xls_palette_colour(file, colour);
  }
  if (flags & XLS_READ_ALIGNMENT) {
    info->xf = xf_index;
    info->alignment = xf->alignment;
    info->protection = xf->flags;
    info->border_lines = (xf->used & XF_USED_BORDER)
                             ? static_cast<uint8_t>((xf->border1 >> 12) & 0x0F) : 0;
    info->fill_pattern = (xf->used & XF_USED_FILL)
                             ? static_cast<uint8_t>((xf->border2 >> 26) & 0x0F) : 0;
  }
  if (flags & XLS_READ_FILL) {
    uint16_t foreground = 0x41, background = 0x40;
    if (xf->used & XF_USED_FILL) {
      uint16_t first = (xf->fill_colours >> 7) & 0x7F, second = xf->fill_colours & 0x7F;
      // The painter fills a solid cell with the background: for pattern 1
      // that is the pattern colour, for the others the two change places.
      bool solid = ((xf->border2 >> 26) & 0x3F) == 1;
      foreground = solid ? first : second;
      background = solid ? second : first;
    }
    info->fill_foreground = xls_palette_colour(file, foreground);
    info->fill_background = xls_palette_colour(file, background);
  }
  return 0;
}

/* What the request bits flags ask of xf, the XF of index xf_index, into
 * info.  The number format is inline: a viewer asks it of every cell it
 * shows. */
static inline uint32_t fill_info_xf(xls_file* file, xls_read_cell_info* info,
                                    uint8_t flags, const biff_xf* xf, uint16_t xf_index,
                                    const xls_locale* locale) {
  if (flags & XLS_READ_NUMBER_FORMAT) {
    info->number_format = memo_number_format(file, xf->format, locale);
    info->number_format_index = xf->format;
  }
  if (flags & (XLS_READ_FONT | XLS_READ_ALIGNMENT | XLS_READ_FILL))
    return fill_info_xf_looks(file, info, flags, xf, xf_index);
  return 0;
}

/* xls_read_cell where no cell is: the row's or the column's XF. */
static uint32_t read_absent_cell(xls_sheet_t* sheet, int column, int row,
                                 xls_read_cell_info* info, const xls_locale* locale) {
  xls_file* file = sheet->workbook;
  uint8_t flags = info->flags & ~XLS_CELL_EXISTS;
  info->flags = flags;
  uint16_t xf_index;
  bool valid = false;
  uint32_t status = read_row_xf(sheet, row, &xf_index, &valid);
  if (status) return status;
  if (!valid) xf_index = get_default_col_xf(sheet, column);
  if (xf_index >= file->xfs_info.count) return KEL_ERR_GENERAL;
  return fill_info_xf(file, info, flags, &file->xfs[xf_index], xf_index, locale);
}

/* xls_read_cell for a cell found and pinned, which shows xf. */
static inline uint32_t read_found_cell(xls_file* file, auto_cell_t cell, const biff_xf* xf,
                                       xls_read_cell_info* info, const xls_locale* locale) {
  // The request bits are read once and the answer bit written once: the
  // caller has only just stored them.
  uint8_t flags = info->flags | XLS_CELL_EXISTS;
  info->flags = flags;
  uint16_t xf_index = cell->xf;
  if (flags & XLS_READ_CELL) {
    // The lookup's pin passes to the caller.
    auto_cell_release(&info->cell);
    info->cell = cell;
  } else {
    auto_cell_release(&cell);
  }
  return fill_info_xf(file, info, flags, xf, xf_index, locale);
}

/* xls_read_cell past its first look, which was kel_cell_cache_find_cell_near's:
 * the rest of that lookup, and an XF that may inherit. */
static uint32_t read_cell_searched(xls_sheet_t* sheet, int column, int row,
                                   xls_read_cell_info* info, const xls_locale* locale) {
  auto_cell_t cell = nullptr;
  uint32_t status = kel_cell_cache_find_cell_search(&cell, &sheet->cells, column, row,
                                                    &sheet->cell_hint);
  if (status) return status;
  if (!cell) return read_absent_cell(sheet, column, row, info, locale);
  biff_xf inherited;
  const biff_xf* xf = resolve_xf(sheet, cell->xf, column, &inherited);
  return read_found_cell(sheet->workbook, cell, xf, info, locale);
}

/* Its commonest case, a walk in order over cells whose XFs stand alone,
 * is kept short: every other case goes on in a call. */
uint32_t xls_read_cell(xls_sheet_t* sheet, int column, int row, xls_read_cell_info* info,
                       const xls_locale* locale) {
  xls_cell_t* cell = kel_cell_cache_next_in_block(&sheet->cells, column, row, &sheet->cell_hint);
  const biff_xf* xf = cell ? standalone_xf(sheet->workbook, cell->xf) : nullptr;
  if (!xf) return read_cell_searched(sheet, column, row, info, locale);
  auto_cell_t pinned = nullptr;
  auto_cell_set(&pinned, cell);
  return read_found_cell(sheet->workbook, pinned, xf, info, locale);
}

uint32_t xls_get_cell_value(xls_sheet_t* sheet, int column, int row, auto_value_t* value) {
  return kel_cell_cache_find_cell_near(value, &sheet->cells, column, row, &sheet->cell_hint);
}
