#include "format/xls_format_cell.h"

#include <stdlib.h>

#include "format/xls_number_format.h"
#include "foundation/zuv_uni_string.h"

enum { k_number_buffer = 511 };

/* A text of "#" as long as fits width in font; at least one. */
static unsigned short* hashes(int32_t width, const biff_font* font) {
  static const unsigned short hash[] = {'#', 0};
  int32_t each = format_text_width(hash, 1, font);
  int32_t count = each > 0 ? width / each : 1;
  if (count < 1) count = 1;
  if (count > k_number_buffer) count = k_number_buffer;
  unsigned short* text =
      static_cast<unsigned short*>(malloc((static_cast<size_t>(count) + 1) * sizeof *text));
  if (!text) return nullptr;
  for (int32_t i = 0; i < count; ++i) text[i] = '#';
  text[count] = 0;
  return text;
}

static unsigned short* format_number(xls_format_cell_params* params, double number) {
  unsigned short buffer[k_number_buffer + 1];
  DRGBValue colour = {};
  xls_print_formatted_number(number, (params->flags & XLS_FORMAT_CELL_1904) != 0, params->width,
                             params->font, params->locale, params->number_format, buffer,
                             &colour);
  if (colour.red || colour.green || colour.blue) {
    params->result_flags |= XLS_FORMAT_CELL_HAS_COLOUR;
    params->colour = colour;
  }
  return ucs2_dup(buffer);
}

uint32_t xls_format_cell(xls_format_cell_params* params) {
  params->result = nullptr;
  params->result_flags = 0;
  params->colour = DRGBValue{};
  const xls_value_t* value = params->value;
  if (value->kind == vt_range) {
    params->result = ucs2_dup(xls_error_str(xls_error_value, params->locale));
    return params->result ? 0 : KEL_ERR_OUT_OF_MEMORY;
  }
  xls_basic_value_t basic;
  xls_basic_value(value, &basic);
  if (basic.kind == bvt_array) {
    // The first element stands for the array, as a copy of its own.
    xls_value_t first = {};
    if (basic.u.array.rows && basic.u.array.columns &&
        xls_copy_basic_value(&first.u.basic, &basic.u.array.elements[0]))
      return KEL_ERR_OUT_OF_MEMORY;
    xls_format_cell_params element = *params;
    element.value = &first;
    uint32_t status = xls_format_cell(&element);
    xls_free_value(&first);
    *params = element;
    params->value = value;
    return status;
  }
  unsigned short* text;
  if (basic.kind == bvt_long || basic.kind == bvt_double) {
    text = format_number(params, xls_basic_value_todouble(&basic));
  } else {
    text = xls_value_tostring(value, params->locale);
  }
  if (!text) return KEL_ERR_OUT_OF_MEMORY;
  // Strings spill into empty neighbours; only other texts are cut.
  if (params->width > 0 && basic.kind != bvt_string &&
      format_text_width(text, static_cast<int>(ucs2_len(text)), params->font) > params->width) {
    free(text);
    text = hashes(params->width, params->font);
    if (!text) return KEL_ERR_OUT_OF_MEMORY;
  }
  params->result = text;
  return 0;
}
