/* The operators on values: comparison, concatenation and arithmetic. */
#include "formula/xls_value.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "foundation/zuv_uni_string.h"

/* ---- Comparison --------------------------------------------------------- */

/* The truncated decimal exponent of x, 0 for 0. */
static int decimal_exponent(double x) {
  return x == 0 ? 0 : static_cast<int>(log10(fabs(x)));
}

bool excel_is_equal(double a, double b) {
  if (a == b) return true;
  if (!isfinite(a) || !isfinite(b)) return false;
  int exponent = decimal_exponent(a);
  if (exponent != decimal_exponent(b)) return false;
  /* Equal in the first 15 significant digits. */
  int digits = exponent + 1;
  double tolerance = digits == 15  ? 1.0
                     : digits < 16 ? 1.0 / pow(10.0, 15 - digits)
                                   : pow(10.0, exponent - 14);
  return fabs(a - b) < tolerance;
}

/* What a comparison looks at: a formula's cache, an array's first element;
 * null for a range. */
static const xls_basic_value_t* comparand(const xls_value_t* value) {
  const xls_basic_value_t* basic;
  if (value->kind == vt_basic) basic = &value->u.basic;
  else if (value->kind == vt_expr) basic = &value->u.expr.cache;
  else return nullptr;
  if (basic->kind != bvt_array) return basic;
  const xls_basic_array_t& array = basic->u.array;
  return array.rows && array.columns ? array.elements : nullptr;
}

static bool is_numeric(const xls_basic_value_t* value) {
  return value->kind == bvt_long || value->kind == bvt_double;
}

static double numeric_value(const xls_basic_value_t* value) {
  if (value->kind == bvt_long) return value->u.long_value;
  if (value->kind == bvt_double) return value->u.double_value;
  return 0;
}

static bool compares_as_text(const xls_basic_value_t* value) {
  return value->kind == bvt_empty || value->kind == bvt_string ||
         value->kind == bvt_error || value->kind == bvt_bool;
}

/* The text a value compares by, as the plain conversion without locale
 * would give it; null reads as empty. */
static const unsigned short* comparison_text(const xls_basic_value_t* value) {
  switch (value->kind) {
    case bvt_string:
      return value->u.string;
    case bvt_error:
      return xls_error_str(value->u.error, nullptr);
    case bvt_bool:
      return xls_bool_str(value->u.boolean ? 0 : 1, nullptr);
    default:
      return xls_empty_str;
  }
}

int xls_value_compare(const xls_value_t* a, const xls_value_t* b) {
  const xls_basic_value_t* left = comparand(a);
  const xls_basic_value_t* right = comparand(b);
  if (!left || !right) return -1;
  bool left_numeric = is_numeric(left), right_numeric = is_numeric(right);
  if ((left_numeric || left->kind == bvt_empty) &&
      (right_numeric || right->kind == bvt_empty) &&
      (left_numeric || right_numeric)) {
    double x = numeric_value(left), y = numeric_value(right);
    if (excel_is_equal(x, y)) return 0;
    return x > y ? 1 : -1;
  }
  /* A number against a string, a boolean or an error is -1 in either order:
   * this asymmetry is relied on and stays. */
  if (!compares_as_text(left) || !compares_as_text(right)) return -1;
  return ucs2_cmp(comparison_text(left), comparison_text(right));
}

/* ---- Concatenation ------------------------------------------------------ */

void xls_value_strcat(xls_value_t* result, const xls_value_t* a,
                      const xls_value_t* b, const xls_locale* locale) {
  unsigned short* left = xls_value_tostring(a, locale);
  unsigned short* right = xls_value_tostring(b, locale);
  unsigned short* joined = nullptr;
  if (left && right) {
    unsigned left_length = ucs2_len(left), right_length = ucs2_len(right);
    joined = static_cast<unsigned short*>(
        malloc((left_length + right_length + 1) * sizeof *joined));
    if (joined) {
      memcpy(joined, left, left_length * sizeof *joined);
      memcpy(joined + left_length, right, (right_length + 1) * sizeof *joined);
    }
  }
  free(left);
  free(right);
  if (joined) xls_value_string(result, joined);
  else xls_value_empty(result);
}

/* ---- Arithmetic --------------------------------------------------------- */

/* An operand as numbers: one, or an array's in row-major order. */
struct number_matrix {
  uint16_t rows;
  uint16_t columns;
  double single;   /* a scalar operand */
  double* numbers; /* an array operand's; null for a scalar */
};

/* Numbers count as they convert; a string only if it reads whole as one. */
static bool element_number(const xls_basic_value_t* value, double* number) {
  if (is_number(value)) {
    *number = xls_basic_value_todouble(value);
    return true;
  }
  return value->kind == bvt_string && xls_is_string_number(number, value->u.string);
}

/* 0, or the error that is the whole result. */
static biff_error_t to_matrix(const xls_value_t* value, number_matrix* matrix) {
  memset(matrix, 0, sizeof *matrix);
  matrix->rows = matrix->columns = 1;
  xls_basic_value_t basic;
  if (xls_basic_value(value, &basic)) return xls_error_value;
  if (basic.kind != bvt_array)
    return element_number(&basic, &matrix->single) ? 0 : xls_error_value;
  const xls_basic_array_t& array = basic.u.array;
  size_t count = static_cast<size_t>(array.rows) * array.columns;
  if (!count || !array.elements) return xls_error_value;
  double* numbers = static_cast<double*>(malloc(count * sizeof *numbers));
  if (!numbers) return xls_error_out_of_memory;
  for (size_t i = 0; i < count; ++i) {
    if (!element_number(&array.elements[i], &numbers[i])) {
      free(numbers);
      return xls_error_value;
    }
  }
  matrix->rows = array.rows;
  matrix->columns = array.columns;
  matrix->numbers = numbers;
  return 0;
}

/* The operand's number at a position of the result.  A dimension of length 1
 * is repeated along the result, so that a row against a column makes a
 * table; a position beyond a longer dimension has no number. */
static bool number_at(const number_matrix& matrix, int row, int column,
                      double* number) {
  if (matrix.rows == 1) row = 0;
  if (matrix.columns == 1) column = 0;
  if (row >= matrix.rows || column >= matrix.columns) return false;
  *number = matrix.numbers
                ? matrix.numbers[static_cast<size_t>(row) * matrix.columns + column]
                : matrix.single;
  return true;
}

/* 0, or the error that ends the operation. */
static biff_error_t apply(arith_symbol_t symbol, double x, double y, double* out) {
  switch (symbol) {
    case arith_add:
      *out = x + y;
      return 0;
    case arith_subtract:
      *out = x - y;
      return 0;
    case arith_multiply:
      *out = x * y;
      return 0;
    case arith_divide:
      if (y == 0) return xls_error_div0;
      *out = x / y;
      return 0;
    case arith_power:
      if (x == 0 && !(y > 0)) return xls_error_num;
      *out = pow(x, y);
      return isfinite(*out) ? 0 : xls_error_num;
    default:
      return xls_error_num;
  }
}

static biff_error_t compute(xls_value_t* result, const number_matrix& left,
                            const number_matrix& right, arith_symbol_t symbol) {
  bool left_table = left.rows > 1 && left.columns > 1;
  bool right_table = right.rows > 1 && right.columns > 1;
  if (left_table && right_table &&
      (left.rows != right.rows || left.columns != right.columns))
    return xls_error_na;
  uint16_t rows = left.rows > right.rows ? left.rows : right.rows;
  uint16_t columns = left.columns > right.columns ? left.columns : right.columns;
  double x = 0, y = 0, out = 0;
  if (rows == 1 && columns == 1) {
    number_at(left, 0, 0, &x);
    number_at(right, 0, 0, &y);
    biff_error_t error = apply(symbol, x, y, &out);
    if (!error) xls_value_double(result, out);
    return error;
  }
  xls_value_t array;
  if (xls_value_array(&array, rows, columns)) return xls_error_out_of_memory;
  xls_basic_value_t* element = array.u.basic.u.array.elements;
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column, ++element) {
      if (!number_at(left, row, column, &x) || !number_at(right, row, column, &y)) {
        element->kind = bvt_error;
        element->u.error = xls_error_na;
        continue;
      }
      biff_error_t error = apply(symbol, x, y, &out);
      if (error) {
        xls_free_value(&array);
        return error;
      }
      element->kind = bvt_double;
      element->u.double_value = out;
    }
  }
  *result = array;
  return 0;
}

void xls_value_arith(xls_value_t* result, const xls_value_t* a,
                     const xls_value_t* b, arith_symbol_t symbol) {
  number_matrix left = {}, right = {};
  biff_error_t error = to_matrix(a, &left);
  if (!error) error = to_matrix(b, &right);
  if (!error) error = compute(result, left, right, symbol);
  free(left.numbers);
  free(right.numbers);
  if (error) xls_value_error(result, error);
}
