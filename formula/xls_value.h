/*
 * xls_value.h -- the engine's values: what a cell holds, what a formula's
 * cache holds, and what evaluation passes around.
 *
 * xls_basic_value_t is a plain tagged value (never a range or a formula);
 * xls_value_t adds a formula with its cached result and a range reference.
 * Errors are values: an error result is set in a value, and a checked
 * conversion's status only tells its caller that the result is already set.
 *
 * Ownership: a bvt_string is malloc'd and owned by its value, except a
 * string of the current workbook's in-memory shared string table, which is
 * borrowed (kel_value_is_sst_str); copies always duplicate.  An array owns
 * its elements.  Constructors clear the whole target first.
 */
#ifndef XLS_VALUE_H
#define XLS_VALUE_H

#include <stdint.h>

#include "foundation/kel_geometry.h"

struct xls_locale;
struct xls_sheet_t;
struct xls_expr_t;
struct xls_recalc_env;

/* The BIFF error byte, and internal codes above 0xFF that never reach a
 * file as such. */
typedef uint32_t biff_error_t;
enum {
  xls_error_null = 0,
  xls_error_div0 = 7,
  xls_error_value = 15,
  xls_error_ref = 23,
  xls_error_name = 29,
  xls_error_num = 36,
  xls_error_na = 42,
  xls_error_no_meaning = 0x100,   /* an operator without meaning */
  xls_error_unknown_result = 0x101, /* a FORMULA whose cached kind is unknown */
  xls_error_missing_string = 0x102, /* a string result without its STRING */
  xls_error_no_handler = 0x103,
  xls_error_function_failed = 0x104,
  xls_error_out_of_memory = 0x105
};

enum xls_basic_value_kind {
  bvt_empty = 0,
  bvt_long = 1,
  bvt_double = 2,
  bvt_string = 3,
  bvt_error = 4,
  bvt_bool = 5,
  bvt_array = 6
};

struct xls_basic_value_t;

/* Values are packed to 4 bytes: every cell holds one, and the natural
 * padding behind each 32-bit kind, before the 8-byte members, would make
 * a cell a fifth larger.  Members are only ever reached through these
 * types, so the compiler reads them at the alignment it is told. */
#pragma pack(push, 4)
/* Row-major elements, rows * columns of them. */
struct xls_basic_array_t {
  uint16_t rows;
  uint16_t columns;
  xls_basic_value_t* elements;
};

struct xls_basic_value_t {
  uint32_t kind; /* xls_basic_value_kind */
  union {
    int32_t long_value;
    double double_value;
    unsigned short* string; /* null reads as the empty string */
    biff_error_t error;
    uint8_t boolean;
    xls_basic_array_t array;
  } u;
};

/* xls_packed_expr_t.flags */
enum {
  XLS_EXPR_UNPARSED = 0x0001,      /* text holds the formula */
  XLS_EXPR_UNPARSED_SHARED = 0x0002,
  XLS_EXPR_UNPARSED_ARRAY = 0x0004 /* and the text is not owned */
};

/* A formula as a flat array of nodes, the root last.  A packed form with no
 * nodes is a formula the reader kept only by its cached result. */
struct xls_packed_expr_t {
  uint16_t flags;
  uint16_t count;
  union {
    xls_expr_t* nodes;
    unsigned short* text; /* with XLS_EXPR_UNPARSED */
  };
};

/* The sheet pointer of a reference to a deleted sheet. */
#define XLS_DELETED_SHEET (reinterpret_cast<xls_sheet_t*>(1))

/* A reference to one cell.  Null sheet: the formula's own.  A relative row
 * or column is an offset from the formula's cell. */
struct xls_cell_ref_t {
  xls_sheet_t* sheet;
  int32_t row;
  int32_t column;
  uint8_t row_relative;
  uint8_t column_relative;
};

/* Two corners as written, not normalised. */
struct xls_range_ref_t {
  xls_cell_ref_t first;
  xls_cell_ref_t second;
};

enum xls_value_kind { vt_basic = 0, vt_expr = 1, vt_range = 2 };

struct xls_value_t {
  uint32_t kind; /* xls_value_kind */
  union {
    xls_basic_value_t basic;
    struct {
      xls_packed_expr_t packed;
      xls_basic_value_t cache;
    } expr;
    xls_range_ref_t* range; /* private copy */
  } u;
};
#pragma pack(pop)

/* The conversion flag word: one mask steers collection and conversion. */
enum {
  xls_conv_skip_string = 0x0001,
  xls_conv_string_zero = 0x0002,
  xls_conv_string_invalid = 0x0004,
  xls_conv_skip_bool = 0x0008,
  xls_conv_bool_invalid = 0x0010,
  xls_conv_bool_blank = 0x0020,
  xls_conv_skip_error = 0x0040,
  xls_conv_error_zero = 0x0080,
  xls_conv_error_propagate = 0x0100,
  xls_conv_skip_empty = 0x0200,
  xls_conv_empty_invalid = 0x0400,
  xls_conv_skip_array = 0x0800,
  xls_conv_array_invalid = 0x1000,
  xls_conv_range_invalid = 0x4000,
  xls_conv_number_blank = 0x8000
};

enum arith_symbol_t {
  arith_add = 0,
  arith_subtract = 1,
  arith_multiply = 2,
  arith_divide = 3,
  arith_power = 4
};

/* Default texts. */
extern const unsigned short xls_NULL_str[];
extern const unsigned short xls_DIV0_str[];
extern const unsigned short xls_VALUE_str[];
extern const unsigned short xls_REF_str[];
extern const unsigned short xls_NAME_str[];
extern const unsigned short xls_NUM_str[];
extern const unsigned short xls_NA_str[];
extern const unsigned short xls_ERR_str[];
extern const unsigned short xls_TRUE_str[];
extern const unsigned short xls_FALSE_str[];
extern const unsigned short xls_empty_str[];

/* ---- Construction and lifetime ------------------------------------------ */

void xls_value_empty(xls_value_t* value);
void xls_value_long(xls_value_t* value, int32_t number);
void xls_value_double(xls_value_t* value, double number);
void xls_value_bool(xls_value_t* value, bool truth);
/* Takes over text (malloc'd, or a borrowed shared string). */
void xls_value_string(xls_value_t* value, unsigned short* text);
void xls_value_error(xls_value_t* value, biff_error_t code);
/* A bvt_array of empties; KEL_ERR_OUT_OF_MEMORY leaves value empty. */
uint32_t xls_value_array(xls_value_t* value, uint16_t rows, uint16_t columns);
/* A vt_range holding a private copy of range. */
uint32_t xls_value_range(xls_value_t* value, const xls_range_ref_t* range);
/* A vt_expr: the packed form's three fields and the cache are taken bit for
 * bit (the value owns them afterwards); a null cache is bvt_empty. */
void xls_create_expr_value(xls_value_t* value, const xls_packed_expr_t* packed,
                           const xls_basic_value_t* cache);
/* A vt_expr still held as text: flags go to the packed form, the text is
 * duplicated -- except with XLS_EXPR_UNPARSED_ARRAY, where it stays the
 * array record's and is only pointed to. */
uint32_t xls_create_unparsed_expr_value(xls_value_t* value,
                                        const xls_basic_value_t* cache,
                                        const unsigned short* text,
                                        uint16_t flags);

void xls_free_basic_value(xls_basic_value_t* value);
void xls_free_value(xls_value_t* value);
void xls_free_value_array(xls_value_t* values, int count);
uint32_t xls_copy_basic_value(xls_basic_value_t* target,
                              const xls_basic_value_t* source);
uint32_t xls_value_copy(xls_value_t* target, const xls_value_t* source);

/* True when text is a string of the current workbook's in-memory shared
 * string table, which values borrow rather than own. */
bool kel_value_is_sst_str(const unsigned short* text);

/* ---- Access ------------------------------------------------------------- */

/* The basic part of a vt_basic, or the cache of a vt_expr, where it
 * stands; null for a vt_range. */
const xls_basic_value_t* xls_value_basic_part(const xls_value_t* value);
/* The same as a shallow copy; 0x073700FF for a vt_range. */
uint32_t xls_basic_value(const xls_value_t* value, xls_basic_value_t* basic);
void xls_value_array_set(xls_value_t* array, int row, int column,
                         const xls_value_t* source);
int xls_value_area_getwidth(const xls_value_t* value, const cell_t* cell);
int xls_value_area_getheight(const xls_value_t* value, const cell_t* cell);
bool is_number(const xls_basic_value_t* value);

/* ---- Texts -------------------------------------------------------------- */

const unsigned short* xls_error_str(biff_error_t code, const xls_locale* locale);
/* Note the inversion: 0 asks for the word for true. */
const unsigned short* xls_bool_str(int biff_bool, const xls_locale* locale);
/* The length of the error text at the start of text, or 0. */
unsigned xls_match_error_str(const unsigned short* text, unsigned length,
                             const xls_locale* locale, biff_error_t* code);
bool xls_value_is_std_error(biff_error_t code);
int xls_get_error_type_by_error_code(biff_error_t code);
void xls_get_error_type(xls_value_t* result, const xls_basic_value_t* value);

/* ---- Plain conversions -------------------------------------------------- */

double xls_basic_value_todouble(const xls_basic_value_t* value);
double xls_value_todouble(const xls_value_t* value);
int32_t xls_basic_value_tolong(const xls_basic_value_t* value);
int32_t xls_value_tolong(const xls_value_t* value);
/* New heap strings; null without memory. */
unsigned short* xls_basic_value_tostring(const xls_basic_value_t* value,
                                         const xls_locale* locale);
unsigned short* xls_value_tostring(const xls_value_t* value,
                                   const xls_locale* locale);

/* ---- Checked conversions -------------------------------------------------
 * A non-zero status means that result holds an error value, or that memory
 * ran out: KEL_ERR_VALUE, KEL_ERR_REF, KEL_ERR_PROPAGATED (the error passed
 * on is in result), KEL_ERR_GENERAL (result already set), or
 * KEL_ERR_OUT_OF_MEMORY. */

uint32_t xls_basic_value_todouble(const xls_basic_value_t* value,
                                  xls_value_t* result, double* number,
                                  uint16_t flags);
uint32_t xls_basic_value_tolong(const xls_basic_value_t* value,
                                xls_value_t* result, int32_t* number,
                                uint16_t flags);
uint32_t xls_basic_value_tostring(const xls_basic_value_t* value,
                                  xls_value_t* result, unsigned short** text,
                                  uint16_t flags, const xls_locale* locale);
uint32_t xls_value_todouble(const xls_value_t* value, xls_value_t* result,
                            double* number, const xls_recalc_env* env,
                            uint16_t flags);
uint32_t xls_value_tolong(const xls_value_t* value, xls_value_t* result,
                          int32_t* number, const xls_recalc_env* env,
                          uint16_t flags);
uint32_t xls_value_tostring(const xls_value_t* value, xls_value_t* result,
                            unsigned short** text, const xls_recalc_env* env,
                            uint16_t flags);

/* ---- Other -------------------------------------------------------------- */

bool xls_value_as_bool(const xls_value_t* value, bool* not_boolean);
bool xls_is_string_number(double* number, const unsigned short* text);
bool excel_is_equal(double a, double b);
int xls_value_compare(const xls_value_t* a, const xls_value_t* b);
void xls_value_strcat(xls_value_t* result, const xls_value_t* a,
                      const xls_value_t* b, const xls_locale* locale);
void xls_value_arith(xls_value_t* result, const xls_value_t* a,
                     const xls_value_t* b, arith_symbol_t symbol);
void kel_xls_value_from_rk(uint32_t rk, xls_value_t* value);
double xls_math_add_epsilon(double x);

#endif /* XLS_VALUE_H */
