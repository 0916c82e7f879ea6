#include "format/xls_builtin_formats.h"

#include "format/kel_locale.h"

const unsigned short xls_bfmt_general_str[] = {'G', 'e', 'n', 'e', 'r', 'a', 'l', 0};

static const char* const builtin_formats[XLS_BUILTIN_FORMAT_COUNT] = {
    "General",
    "0",
    "0.00",
    "#,##0",
    "#,##0.00",
    "\"$\"#,##0_);(\"$\"#,##0)",
    "\"$\"#,##0_);[Red](\"$\"#,##0)",
    // 7 and 8 lack their closing parenthesis, and the formatter copes.
    "\"$\"#,##0.00_);(\"$\"#,##0.00",
    "\"$\"#,##0.00_);[Red](\"$\"#,##0.00",
    "0%",
    "0.00%",
    "0.00E+00",
    "# ?/?",
    "# ?",  // short on purpose: a fraction without its denominator
    "M/D/YYYY",
    "D-MMM-YY",
    "D-MMM",
    "MMM-YY",
    "h:mm AM/PM",
    "h:mm:ss AM/PM",
    "h:mm",
    "h:mm:ss",
    "M/D/YYYY h:mm",
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
    "#,##0_);(#,##0)",
    "#,##0_);[Red](#,##0)",
    "#,##0.00_);(#,##0.00)",
    "#,##0.00_);[Red](#,##0.00)",
    "_(\"$\"* #,##0_);_(\"$\"* (#,##0);_(\"$\"* \"-\"_);_(@_)",
    "_(* #,##0_);_(* (#,##0);_(* \"-\"_);_(@_)",
    "_(\"$\"* #,##0.00_);_(\"$\"* (#,##0.00);_(\"$\"* \"-\"??_);_(@_)",
    "_(* #,##0.00_);_(* (#,##0.00);_(* \"-\"??_);_(@_)",
    "mm:ss",
    "[h]:mm:ss",
    "mm:ss.0",
    "##0.0E+0",
    "@",
};

static const char xls_fmt_D_M_YYYY_str[] = "D/M/YYYY";
static const char xls_fmt_D_M_YYYY_H_MM_str[] = "D/M/YYYY h:mm";
static const char xls_fmt_YYYY_M_D_str[] = "YYYY/M/D";
static const char xls_fmt_YYYY_M_D_H_MM_str[] = "YYYY/M/D h:mm";
static const char xls_fmt_M_D_YYYY_H_MM_str[] = "M/D/YYYY h:mm";

/* The texts in UTF-16, widened once: the engine serves one call at a time. */
static unsigned short widened[XLS_BUILTIN_FORMAT_COUNT + 5][64];

static const unsigned short* widen(int slot, const char* text) {
  unsigned short* out = widened[slot];
  if (!out[0]) {
    for (int i = 0; text[i]; ++i) out[i] = static_cast<unsigned char>(text[i]);
  }
  return out;
}

const unsigned short* xls_default_format_by_index(uint16_t index, const xls_locale* locale) {
  if (index >= XLS_BUILTIN_FORMAT_COUNT) return nullptr;
  if (locale && (index == 14 || index == 22)) {
    bool date_time = index == 22;
    switch (locale->date_order) {
      case XLS_DATE_DMY:
        return date_time ? widen(50, xls_fmt_D_M_YYYY_H_MM_str) : widen(51, xls_fmt_D_M_YYYY_str);
      case XLS_DATE_YMD:
        return date_time ? widen(52, xls_fmt_YYYY_M_D_H_MM_str) : widen(53, xls_fmt_YYYY_M_D_str);
      default:
        if (date_time) return widen(54, xls_fmt_M_D_YYYY_H_MM_str);
        break;
    }
  }
  return builtin_formats[index] ? widen(index, builtin_formats[index]) : nullptr;
}

/* UTF-16 literals viewed as the engine's text units, of the same size. */
#define EDIT(text) reinterpret_cast<const unsigned short*>(u##text)

/* By date order (XLS_DATE_), then parts less one, then 24-hour clock. */
static const unsigned short* const edit_formats[3][3][2] = {
    {{EDIT("M/D/YYYY"), EDIT("M/D/YYYY")},
     {EDIT("h:mm:ss AM/PM"), EDIT("h:mm:ss")},
     {EDIT("M/D/YYYY h:mm:ss AM/PM"), EDIT("M/D/YYYY h:mm:ss")}},
    {{EDIT("D/M/YYYY"), EDIT("D/M/YYYY")},
     {EDIT("h:mm:ss AM/PM"), EDIT("h:mm:ss")},
     {EDIT("D/M/YYYY h:mm:ss AM/PM"), EDIT("D/M/YYYY h:mm:ss")}},
    {{EDIT("YYYY/M/D"), EDIT("YYYY/M/D")},
     {EDIT("h:mm:ss AM/PM"), EDIT("h:mm:ss")},
     {EDIT("YYYY/M/D h:mm:ss AM/PM"), EDIT("YYYY/M/D h:mm:ss")}},
};

const unsigned short* xls_edit_format(uint32_t parts, const xls_locale* locale) {
  int order = XLS_DATE_MDY, hour24 = 0;
  if (locale) {
    if (locale->date_order == XLS_DATE_DMY || locale->date_order == XLS_DATE_YMD)
      order = locale->date_order;
    hour24 = locale->hour24 ? 1 : 0;
  }
  uint32_t kind = (parts & (XLS_EDIT_DATE | XLS_EDIT_TIME)) - 1;
  return edit_formats[order][kind < 3 ? kind : 0][hour24];
}
