/*
 * xls_edit_string.h -- typed text to a cell value.  What the user types
 * becomes a number, a percent, an amount, a date or time, a boolean, an
 * error or a string, together with the number format that the text implies
 * ("50%" is 0.5 shown as "0%", "$5" is 5 shown as an amount, "3/4" is a
 * date), so that the cell shows what was typed.
 *
 * Texts are UTF-16.  A null locale means the neutral one: "." for decimals,
 * "," for groups, "/" and ":" in dates and times, month before day, the
 * English words for true and false and the English error texts.  The "/"
 * and ":" separators are accepted in every locale beside its own.
 *
 * Statuses: KEL_ERR_OUT_OF_MEMORY, and the parser's for a formula that
 * doesn't parse (with the place of the fault in the result); nothing else
 * fails: a text that is nothing else is a string.
 */
#ifndef XLS_EDIT_STRING_H
#define XLS_EDIT_STRING_H

#include <stdint.h>

#include "formula/xls_formula_text.h"
#include "formula/xls_value.h"

struct ucs2_str_builder;
struct xls_file;
struct xls_locale;
struct xls_sheet_t;

/* xls_autoformat_result.flags */
enum {
  XLS_AUTOFORMAT_DATE_ENTRY = 0x01 /* the value is a typed date or time */
};
/* xls_autoformat_result.literal */
enum {
  XLS_AUTOFORMAT_LITERAL = 0x01 /* the text began with an apostrophe */
};

struct xls_autoformat_result {
  uint32_t flags;         /* XLS_AUTOFORMAT_ */
  unsigned short* format; /* the format the text implies; null: keep the cell's.
                             Heap (the caller frees it), or in the help's builder */
  xls_value_t value;      /* the caller's, freed with xls_free_value */
  uint8_t literal;        /* XLS_AUTOFORMAT_LITERAL */
  xls_parser_error_t parse_error; /* where a typed formula failed to parse */
};

/* Given when a command runs again from the journal, null otherwise. */
struct auto_format_help_t {
  uint8_t no_formula;                 /* a text beginning with "=" is not a formula */
  const unsigned short* literal_text; /* a string result takes this text instead */
  ucs2_str_builder* builder;          /* formats go here instead of the heap */
};

/* A copy of text for a result format: with a builder in help, the builder's
 * text is replaced by it and the builder's buffer returned (valid until the
 * builder changes); otherwise a heap copy.  Null when memory runs out. */
unsigned short* dup_with_builder(const auto_format_help_t* help, const unsigned short* text);

/* Non-zero when the whole text is a simple value, then set in *value: the
 * locale's true or false word in any case, an error text, or a number
 * (a long where it fits 32 bits, else a double) with only blanks behind.
 * A lone "-" or "+" is no number. */
int xls_format_match_simple(const unsigned short* text, const xls_locale* locale,
                            xls_value_t* value);

/* Reads a number with group separators ("1,234.5"): leading blanks, a sign,
 * digits up to the first separator, then groups of exactly three digits,
 * each followed by another separator, the decimal separator (and its
 * digits), the end of text, a blank or the character end.  On success
 * *failed is 0, *number set, and the position behind the number returned;
 * otherwise *failed stays 1 (for instance for "1,23") and text is returned. */
const unsigned short* check_thousand_separator(const unsigned short* text,
                                               unsigned short end, double* number,
                                               const xls_locale* locale, int* failed);

/* A typed date, time, or date and time: "3/4", "1/31/2024", "12:30",
 * "1:30 PM", "3/4/2024 13:45:10".  The numbers of a date follow the
 * locale's order; a date of two numbers is in the present year; years below
 * 30 are 20xx, up to 99 19xx.  On success *not_date is 0, *value holds the
 * serial in file's calendar (1900 for a null file; a time alone is the
 * fraction of a day), and *format the built-in format of its kind (as
 * dup_with_builder gives it).  Otherwise *not_date is 1 and neither is
 * touched. */
uint32_t xls_format_date_if_avail(const xls_file* file, const xls_locale* locale,
                                  const auto_format_help_t* help,
                                  const unsigned short* text, xls_value_t* value,
                                  unsigned short** format, int* not_date);

/* The value and format of length units of typed text (not necessarily
 * terminated) for the cell at row and column of sheet (sheet may be null:
 * then the 1900 calendar), whose number format is format (null: General).
 * In this order: a leading apostrophe makes the rest a literal string; a
 * cell formatted "@" takes text; a formula ("=" and more, not "==") is
 * parsed at the cell (sheet must not be null then); then simple values (scientific notation gets "0.00E+00"),
 * percents, dates and times, amounts with "$", "£" or "€", grouped numbers
 * (format "#,##0" or "#,##0.00"), and at last a string.  *result is set
 * afresh; on a failure it is left empty. */
uint32_t xls_autoformat_edit_string(xls_sheet_t* sheet, int32_t row, int32_t column,
                                    const unsigned short* format,
                                    const unsigned short* text, unsigned length,
                                    const xls_locale* locale, xls_autoformat_result* result,
                                    const auto_format_help_t* help);

#endif /* XLS_EDIT_STRING_H */
