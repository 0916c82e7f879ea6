/*
 * xls_edit_string.cpp -- typed text to a value and the number format it
 * implies.  The steps run in a fixed order, and the first that understands
 * the text wins; see the header for the order.
 */
#include "format/xls_edit_string.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "format/kel_locale.h"
#include "format/xls_builtin_formats.h"
#include "format/xls_number_format.h"
#include "formula/xls_datetime.h"
#include "formula/xls_formula_text.h"
#include "foundation/zuv_uni_string.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

/* Built-in format numbers of what typed text can imply. */
enum {
  BUILTIN_GROUPED = 3,          /* #,##0 */
  BUILTIN_GROUPED_DECIMALS = 4, /* #,##0.00 */
  BUILTIN_PERCENT = 9,          /* 0% */
  BUILTIN_PERCENT_DECIMALS = 10, /* 0.00% */
  BUILTIN_SCIENTIFIC = 11,      /* 0.00E+00 */
  BUILTIN_DATE = 14,            /* in the locale's order */
  BUILTIN_TIME_AM_PM = 18,
  BUILTIN_TIME_SECONDS_AM_PM = 19,
  BUILTIN_TIME = 20,
  BUILTIN_TIME_SECONDS = 21,
  BUILTIN_DATE_TIME = 22
};

/* Entries of currency_formats that typed amounts choose. */
enum {
  CURRENCY_DOLLAR_BEFORE = 0,
  CURRENCY_DOLLAR_AFTER = 7,
  CURRENCY_POUND = 16,
  CURRENCY_EURO_BEFORE = 24,
  CURRENCY_EURO_AFTER = 25
};

static const unsigned short POUND_SIGN = 0xA3;
static const unsigned short EURO_SIGN = 0x20AC;

/* A grouped number longer than this is no number we take. */
enum { MAX_NUMBER_LENGTH = 128 };

static bool is_digit(unsigned short c) { return c >= '0' && c <= '9'; }

/* Blanks are spaces only, as the number readers see them. */
static const unsigned short* skip_blanks(const unsigned short* text) {
  while (*text == ' ') ++text;
  return text;
}

static bool only_blanks(const unsigned short* text) { return *skip_blanks(text) == 0; }

static unsigned short decimal_separator(const xls_locale* locale) {
  return locale && locale->decimal_separator ? locale->decimal_separator : '.';
}

static bool has_char(const unsigned short* text, unsigned short c) {
  for (; *text; ++text)
    if (*text == c) return true;
  return false;
}

unsigned short* dup_with_builder(const auto_format_help_t* help, const unsigned short* text) {
  if (!help || !help->builder) return ucs2_dup(text);
  ucs2_str_builder* builder = help->builder;
  builder->length = 0;
  if (builder->buffer) builder->buffer[0] = 0;
  if (ucs2_str_builder_append(builder, text) != 0 || !builder->buffer) return nullptr;
  return builder->buffer;
}

/* ---- Simple values ------------------------------------------------------ */

int xls_format_match_simple(const unsigned short* text, const xls_locale* locale,
                            xls_value_t* value) {
  if (ucs2_cmpi(text, xls_bool_str(0, locale)) == 0) {
    xls_value_bool(value, true);
    return 1;
  }
  if (ucs2_cmpi(text, xls_bool_str(1, locale)) == 0) {
    xls_value_bool(value, false);
    return 1;
  }
  if (text[0] == '#') {
    unsigned length = ucs2_len(text);
    biff_error_t code;
    if (xls_match_error_str(text, length, locale, &code) == length) {
      xls_value_error(value, code);
      return 1;
    }
    return 0;
  }

  /* ucs2_tol reads a lone sign, or nothing at all, as 0: a digit must be
   * there. */
  const unsigned short* start = skip_blanks(text);
  if (*start == '+' || *start == '-') ++start;
  if (!is_digit(*start) && *start != decimal_separator(locale)) return 0;

  const unsigned short* end = nullptr;
  long whole;
  if (ucs2_tol(text, &end, &whole) == 0 && only_blanks(end)) {
    xls_value_long(value, static_cast<int32_t>(whole));
    return 1;
  }
  double number;
  if (ucs2_tog(text, &end, &number, decimal_separator(locale) == ',') == 0 &&
      only_blanks(end)) {
    xls_value_double(value, number);
    return 1;
  }
  return 0;
}

/* ---- Grouped digits ----------------------------------------------------- */

const unsigned short* check_thousand_separator(const unsigned short* text,
                                               unsigned short end, double* number,
                                               const xls_locale* locale, int* failed) {
  *failed = 1;
  const unsigned short separator = xls_thousand_separator(locale);
  const unsigned short decimal = decimal_separator(locale);
  unsigned short digits[MAX_NUMBER_LENGTH];
  unsigned count = 0;

  const unsigned short* p = skip_blanks(text);
  if (*p == '+' || *p == '-') digits[count++] = *p++;
  if (!is_digit(*p)) return text;
  while (is_digit(*p)) {
    if (count + 1 >= MAX_NUMBER_LENGTH) return text;
    digits[count++] = *p++;
  }
  if (*p != separator) return text;

  while (*p == separator) {
    ++p;
    int group = 0;
    while (is_digit(*p)) {
      if (count + 1 >= MAX_NUMBER_LENGTH) return text;
      digits[count++] = *p++;
      ++group;
    }
    if (group != 3) return text;
    unsigned short next = *p;
    if (next != separator && next != decimal && next != 0 && next != ' ' &&
        !(end && next == end))
      return text;
  }
  if (*p == decimal) {
    digits[count++] = *p++;
    while (is_digit(*p)) {
      if (count + 1 >= MAX_NUMBER_LENGTH) return text;
      digits[count++] = *p++;
    }
  }
  digits[count] = 0;

  double value;
  if (ucs2_tog(digits, nullptr, &value, decimal == ',') != 0) return text;
  *number = value;
  *failed = 0;
  return p;
}

/* A number as percents and amounts have it, their sign already taken out:
 * plain or grouped, with only blanks behind. */
static bool parse_amount(const unsigned short* text, const xls_locale* locale,
                         double* number) {
  const unsigned short* end = nullptr;
  double value;
  if (ucs2_tog(text, &end, &value, decimal_separator(locale) == ',') != 0) return false;
  if (*end == xls_thousand_separator(locale)) {
    int failed;
    end = check_thousand_separator(text, 0, &value, locale, &failed);
    if (failed) return false;
  }
  if (!only_blanks(end)) return false;
  *number = value;
  return true;
}

/* A heap copy of text without the unit at position. */
static unsigned short* copy_without(const unsigned short* text, const unsigned short* position) {
  unsigned length = ucs2_len(text);
  unsigned short* copy = static_cast<unsigned short*>(malloc(length * sizeof(unsigned short)));
  if (!copy) return nullptr;
  unsigned before = static_cast<unsigned>(position - text);
  memcpy(copy, text, before * sizeof(unsigned short));
  memcpy(copy + before, position + 1, (length - before) * sizeof(unsigned short));
  return copy;
}

/* ---- Dates and times ---------------------------------------------------- */

static bool is_date_separator(unsigned short c, const xls_locale* locale) {
  return c == '/' || (locale && locale->date_separator && c == locale->date_separator);
}

static bool is_time_separator(unsigned short c, const xls_locale* locale) {
  return c == ':' || (locale && locale->time_separator && c == locale->time_separator);
}

/* Digits only; more than nine make no date field. */
static bool read_field(const unsigned short** text, int32_t* field) {
  const unsigned short* p = *text;
  int32_t value = 0;
  int count = 0;
  while (is_digit(*p)) {
    if (++count > 9) return false;
    value = value * 10 + (*p++ - '0');
  }
  if (count == 0) return false;
  *field = value;
  *text = p;
  return true;
}

/* "AM", "PM", "A" or "P" in any case: 0 for none, 1 morning, 2 afternoon. */
static int read_am_pm(const unsigned short** text) {
  const unsigned short* p = *text;
  unsigned short c = ucs2_toupper(*p);
  if (c != 'A' && c != 'P') return 0;
  int half = c == 'A' ? 1 : 2;
  ++p;
  if (ucs2_toupper(*p) == 'M') ++p;
  *text = p;
  return half;
}

uint32_t xls_format_date_if_avail(const xls_file* file, const xls_locale* locale,
                                  const auto_format_help_t* help,
                                  const unsigned short* text, xls_value_t* value,
                                  unsigned short** format, int* not_date) {
  *not_date = 1;
  int date_separators = 0, time_separators = 0;
  for (const unsigned short* p = text; *p; ++p) {
    if (is_date_separator(*p, locale)) ++date_separators;
    else if (is_time_separator(*p, locale)) ++time_separators;
  }
  if (date_separators > 2 || time_separators > 2) return 0;
  if (date_separators == 0 && time_separators == 0) return 0;

  struct tm tm;
  datetime_init(&tm);
  const unsigned short* p = skip_blanks(text);

  if (date_separators) {
    int32_t fields[3];
    int count = date_separators + 1;
    for (int i = 0; i < count; ++i) {
      if (i > 0) {
        if (!is_date_separator(*p, locale)) return 0;
        ++p;
      }
      if (!read_field(&p, &fields[i])) return 0;
    }
    int order = locale ? locale->date_order : XLS_DATE_MDY;
    int32_t day, month, year;
    if (count == 2) {
      /* Day and month of the present year. */
      time_t now = time(nullptr);
      struct tm local;
      localtime_r(&now, &local);
      year = local.tm_year + 1900;
      if (order == XLS_DATE_DMY) {
        day = fields[0];
        month = fields[1];
      } else {
        month = fields[0];
        day = fields[1];
      }
    } else if (order == XLS_DATE_DMY) {
      day = fields[0];
      month = fields[1];
      year = fields[2];
    } else if (order == XLS_DATE_YMD) {
      year = fields[0];
      month = fields[1];
      day = fields[2];
    } else {
      month = fields[0];
      day = fields[1];
      year = fields[2];
    }
    number_to_year(&year);
    tm.tm_year = year;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    /* A time follows a date after a blank. */
    if (time_separators) {
      if (*p != ' ') return 0;
      p = skip_blanks(p);
    }
  }

  bool seconds = false;
  int half = 0;
  if (time_separators) {
    int32_t fields[3] = {0, 0, 0};
    int count = time_separators + 1;
    for (int i = 0; i < count; ++i) {
      if (i > 0) {
        if (!is_time_separator(*p, locale)) return 0;
        ++p;
      }
      if (!read_field(&p, &fields[i])) return 0;
    }
    seconds = count == 3;
    p = skip_blanks(p);
    half = read_am_pm(&p);
    if (half) {
      if (fields[0] < 1 || fields[0] > 12) return 0;
      fields[0] = fields[0] % 12 + (half == 2 ? 12 : 0);
    }
    tm.tm_hour = fields[0];
    tm.tm_min = fields[1];
    tm.tm_sec = fields[2];
  }
  if (!only_blanks(p)) return 0;
  if (datetime_validate_tm(&tm) != 0) return 0;

  double day_fraction = (tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec) / 86400.0;
  double serial = day_fraction;
  if (date_separators) {
    bool date1904 = file && xls_1904_dates(file);
    serial += datetime_tm_to_serial(&tm, date1904);
  }

  int builtin;
  if (date_separators && time_separators) builtin = BUILTIN_DATE_TIME;
  else if (date_separators) builtin = BUILTIN_DATE;
  else if (half) builtin = seconds ? BUILTIN_TIME_SECONDS_AM_PM : BUILTIN_TIME_AM_PM;
  else builtin = seconds ? BUILTIN_TIME_SECONDS : BUILTIN_TIME;
  unsigned short* chosen = dup_with_builder(help, xls_default_format_by_index(builtin, locale));
  if (!chosen) return KEL_ERR_OUT_OF_MEMORY;

  xls_value_double(value, serial);
  *format = chosen;
  *not_date = 0;
  return 0;
}

/* ---- Percents and amounts ----------------------------------------------- */

/* Whether format shows percents: a "%" outside quotes and escapes. */
static bool format_has_percent(const unsigned short* format) {
  if (!format) return false;
  for (const unsigned short* p = format; *p; ++p) {
    if (*p == '\\' && p[1]) {
      ++p;
    } else if (*p == '"') {
      while (p[1] && p[1] != '"') ++p;
      if (p[1]) ++p;
    } else if (*p == '%') {
      return true;
    }
  }
  return false;
}

/* A percent: the text read as a number once its first "%" is taken out,
 * wherever it stands.  The cell keeps a format that shows percents. */
static uint32_t match_percent(const unsigned short* text, const unsigned short* cell_format,
                              const xls_locale* locale, const auto_format_help_t* help,
                              xls_autoformat_result* result, bool* matched) {
  *matched = false;
  const unsigned short* sign = text;
  while (*sign && *sign != '%') ++sign;
  if (!*sign) return 0;

  unsigned short* number_text = copy_without(text, sign);
  if (!number_text) return KEL_ERR_OUT_OF_MEMORY;
  double number;
  bool ok = parse_amount(number_text, locale, &number);
  bool decimals = has_char(number_text, decimal_separator(locale));
  free(number_text);
  if (!ok) return 0;

  if (!format_has_percent(cell_format)) {
    int builtin = decimals ? BUILTIN_PERCENT_DECIMALS : BUILTIN_PERCENT;
    result->format = dup_with_builder(help, xls_default_format_by_index(builtin, locale));
    if (!result->format) return KEL_ERR_OUT_OF_MEMORY;
  }
  xls_value_double(&result->value, number / 100);
  *matched = true;
  return 0;
}

/* The entry of currency_formats for symbol, before or after the number. */
static int32_t currency_entry(unsigned short symbol, bool before) {
  if (symbol == EURO_SIGN) return before ? CURRENCY_EURO_BEFORE : CURRENCY_EURO_AFTER;
  if (symbol == POUND_SIGN) return CURRENCY_POUND;
  return before ? CURRENCY_DOLLAR_BEFORE : CURRENCY_DOLLAR_AFTER;
}

/* The currency of entry with the grouped number where the entry puts it. */
static unsigned short* build_currency_format(int32_t entry, bool decimals,
                                             const auto_format_help_t* help) {
  static const unsigned short grouped[] = {'#', ',', '#', '#', '0', 0};
  static const unsigned short grouped_decimals[] = {'#', ',', '#', '#', '0', '.', '0', '0', 0};
  static const unsigned short space[] = {' ', 0};
  const unsigned short* number = decimals ? grouped_decimals : grouped;
  int32_t placement;
  const unsigned short* currency = xls_currency_format(entry, &placement);

  ucs2_str_builder text;
  ucs2_str_builder_init(&text);
  uint32_t status;
  if (placement == 3) {
    status = ucs2_str_builder_append(&text, number);
    if (!status) status = ucs2_str_builder_append(&text, space);
    if (!status) status = ucs2_str_builder_append(&text, currency);
  } else {
    status = ucs2_str_builder_append(&text, currency);
    if (!status && placement == 2) status = ucs2_str_builder_append(&text, space);
    if (!status) status = ucs2_str_builder_append(&text, number);
  }
  unsigned short* format = status ? nullptr : dup_with_builder(help, ucs2_str_builder_str(&text));
  ucs2_str_builder_destroy(&text);
  return format;
}

/* An amount: the text read as a number once its first "$", "£" or "€" is
 * taken out; the symbol is before the number when no digit precedes it. */
static uint32_t match_currency(const unsigned short* text, const xls_locale* locale,
                               const auto_format_help_t* help,
                               xls_autoformat_result* result, bool* matched) {
  *matched = false;
  const unsigned short* symbol = text;
  bool before = true;
  for (; *symbol; ++symbol) {
    if (*symbol == '$' || *symbol == POUND_SIGN || *symbol == EURO_SIGN) break;
    if (is_digit(*symbol)) before = false;
  }
  if (!*symbol) return 0;

  unsigned short* number_text = copy_without(text, symbol);
  if (!number_text) return KEL_ERR_OUT_OF_MEMORY;
  double number;
  bool ok = parse_amount(number_text, locale, &number);
  bool decimals = has_char(number_text, decimal_separator(locale));
  free(number_text);
  if (!ok) return 0;

  result->format = build_currency_format(currency_entry(*symbol, before), decimals, help);
  if (!result->format) return KEL_ERR_OUT_OF_MEMORY;
  xls_value_double(&result->value, number);
  *matched = true;
  return 0;
}

/* ---- The whole conversion ----------------------------------------------- */

static uint32_t set_string(xls_autoformat_result* result, const unsigned short* text,
                           const auto_format_help_t* help) {
  unsigned short* copy = ucs2_dup(help && help->literal_text ? help->literal_text : text);
  if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  xls_value_string(&result->value, copy);
  return 0;
}

static bool is_exact_text_format(const unsigned short* format) {
  return format && format[0] == '@' && format[1] == 0;
}

/* A typed formula ("=" and the rest) standing at the cell: a vt_expr with
 * an empty cache, which the chain computes once the cell is stored. */
static uint32_t parse_formula(xls_sheet_t* sheet, int32_t row, int32_t column,
                              const unsigned short* text, const xls_locale* locale,
                              xls_autoformat_result* result) {
  if (!sheet) return KEL_ERR_INVALID_ARGUMENT;
  xls_packed_expr_t packed = {};
  uint32_t status = xls_parser(text + 1, locale, sheet, row, column, &result->parse_error, &packed);
  if (status) return status;
  xls_create_expr_value(&result->value, &packed, nullptr);
  return 0;
}

static uint32_t autoformat(xls_sheet_t* sheet, int32_t row, int32_t column,
                           const unsigned short* cell_format, const unsigned short* text,
                           const xls_locale* locale, xls_autoformat_result* result,
                           const auto_format_help_t* help) {
  const xls_file* file = sheet ? sheet->workbook : nullptr;
  if (text[0] == '\'') {
    result->literal |= XLS_AUTOFORMAT_LITERAL;
    return set_string(result, text + 1, help);
  }
  if (is_exact_text_format(cell_format)) return set_string(result, text, help);

  if (text[0] == '=' && text[1] != 0 && text[1] != '=' && !(help && help->no_formula))
    return parse_formula(sheet, row, column, text, locale, result);

  if (xls_format_match_simple(text, locale, &result->value)) {
    bool number = result->value.u.basic.kind == bvt_long ||
                  result->value.u.basic.kind == bvt_double;
    if (number && (has_char(text, 'E') || has_char(text, 'e'))) {
      result->format =
          dup_with_builder(help, xls_default_format_by_index(BUILTIN_SCIENTIFIC, locale));
      if (!result->format) return KEL_ERR_OUT_OF_MEMORY;
    }
    return 0;
  }

  bool matched;
  uint32_t status = match_percent(text, cell_format, locale, help, result, &matched);
  if (status || matched) return status;

  int not_date;
  status = xls_format_date_if_avail(file, locale, help, text, &result->value, &result->format,
                                    &not_date);
  if (status) return status;
  if (!not_date) {
    result->flags |= XLS_AUTOFORMAT_DATE_ENTRY;
    return 0;
  }

  status = match_currency(text, locale, help, result, &matched);
  if (status || matched) return status;

  int failed;
  double number;
  const unsigned short* end = check_thousand_separator(text, 0, &number, locale, &failed);
  if (!failed && only_blanks(end)) {
    bool decimals = has_char(text, decimal_separator(locale));
    int builtin = decimals ? BUILTIN_GROUPED_DECIMALS : BUILTIN_GROUPED;
    result->format = dup_with_builder(help, xls_default_format_by_index(builtin, locale));
    if (!result->format) return KEL_ERR_OUT_OF_MEMORY;
    xls_value_double(&result->value, number);
    return 0;
  }

  return set_string(result, text, help);
}

uint32_t xls_autoformat_edit_string(xls_sheet_t* sheet, int32_t row, int32_t column,
                                    const unsigned short* format,
                                    const unsigned short* text, unsigned length,
                                    const xls_locale* locale, xls_autoformat_result* result,
                                    const auto_format_help_t* help) {
  memset(result, 0, sizeof *result);
  xls_value_empty(&result->value);

  unsigned short* copy = ucs2_dupl(text, length);
  if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  uint32_t status = autoformat(sheet, row, column, format, copy, locale, result, help);
  free(copy);

  if (status) {
    xls_free_value(&result->value);
    xls_value_empty(&result->value);
    if (!(help && help->builder)) free(result->format);
    result->format = nullptr;
    result->flags = 0;
  }
  return status;
}
