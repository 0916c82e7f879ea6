#include "host/cell_lines.h"

#include <stdlib.h>

#include "format/xls_format_cell.h"
#include "formula/xls_formula_text.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

std::string cell_text_utf8(const unsigned short* text) {
  std::string out;
  for (; text && *text; ++text) {
    uint32_t c = *text;
    if (c >= 0xD800 && c <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[1] - 0xDC00);
      ++text;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | c >> 6);
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | c >> 12);
      out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | c >> 18);
      out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
      out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

static std::string escaped(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '\\': out += "\\\\"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      case '\n': out += "\\n"; break;
      default: out += c;
    }
  }
  return out;
}

static std::string number_text(double number) {
  char buffer[32];
  snprintf(buffer, sizeof buffer, "%.17g", number);
  return buffer;
}

bool cell_line_describe(const xls_cell_t* cell, cell_line_t* line) {
  xls_basic_value_t value;
  if (xls_basic_value(&cell->value, &value)) return false;
  if (value.kind == bvt_array) {
    if (!value.u.array.rows || !value.u.array.columns) return false;
    value = value.u.array.elements[0];
  }
  line->formula = cell->value.kind == vt_expr;
  switch (value.kind) {
    case bvt_long:
      line->kind = 'n';
      line->value = number_text(value.u.long_value);
      return true;
    case bvt_double:
      line->kind = 'n';
      line->value = number_text(value.u.double_value);
      return true;
    case bvt_string:
      line->kind = 's';
      line->value = escaped(cell_text_utf8(value.u.string));
      return true;
    case bvt_bool:
      line->kind = 'b';
      line->value = value.u.boolean ? "TRUE" : "FALSE";
      return true;
    case bvt_error:
      line->kind = 'e';
      line->value = cell_text_utf8(xls_error_str(value.u.error, nullptr));
      return true;
    default:
      return false;
  }
}

std::string cell_shown_text(xls_sheet_t* sheet, const xls_cell_t* cell) {
  xls_read_cell_info info = {};
  info.flags = XLS_READ_NUMBER_FORMAT;
  if (xls_read_cell(sheet, static_cast<int>(cell->column), static_cast<int>(cell->row), &info,
                    nullptr))
    return std::string();
  auto_cell_release(&info.cell);
  xls_format_cell_params params = {};
  params.value = &cell->value;
  params.number_format = info.number_format;
  params.flags = xls_1904_dates(sheet->workbook) ? XLS_FORMAT_CELL_1904 : 0;
  if (xls_format_cell(&params)) return std::string();
  std::string shown = escaped(cell_text_utf8(params.result));
  free(params.result);
  return shown;
}

std::string cell_formula_text(xls_sheet_t* sheet, const xls_cell_t* cell) {
  if (cell->value.kind != vt_expr) return std::string();
  const xls_packed_expr_t* packed = &cell->value.u.expr.packed;
  if (!xls_is_parsed_expr(packed)) return "=";
  unsigned short* text = nullptr;
  if (xls_expr_to_input_str(sheet, static_cast<int32_t>(cell->row),
                            static_cast<int32_t>(cell->column), packed, &text, nullptr))
    return std::string();
  std::string utf8 = cell_text_utf8(text);
  free(text);
  return utf8;
}

std::string cell_reference(uint32_t column, uint32_t row) {
  std::string letters;
  for (uint32_t n = column + 1; n; n = (n - 1) / 26)
    letters.insert(letters.begin(), static_cast<char>('A' + (n - 1) % 26));
  return letters + std::to_string(row + 1);
}

uint32_t cell_lines_write(xls_file* file, int sheet, int flags, FILE* out) {
  uint32_t count = xls_sheet_count(file);
  for (uint32_t index = 0; index < count; ++index) {
    if (sheet >= 0 && index != static_cast<uint32_t>(sheet)) continue;
    xls_sheet_t* handle = xls_sheet_handle(file, index);
    kel_cell_iterator it;
    kel_cell_cache_init_it(&it, &handle->cells);
    cell_line_t line;
    while (const xls_cell_t* cell = kel_cell_cache_next_cell(&it)) {
      if (!cell_line_describe(cell, &line)) continue;
      fprintf(out, "%u\t%s\t%c\t%s", index, cell_reference(cell->column, cell->row).c_str(),
              line.kind, line.value.c_str());
      if (flags & CELL_LINES_FORMATTED) fprintf(out, "\t%s", cell_shown_text(handle, cell).c_str());
      if ((flags & CELL_LINES_FORMULAS) && line.formula)
        fprintf(out, "\t%s", escaped(cell_formula_text(handle, cell)).c_str());
      fputc('\n', out);
    }
  }
  return ferror(out) ? KEL_ERR_GENERAL : 0;
}
