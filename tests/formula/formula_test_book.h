// A workbook made without a file (three empty sheets) into which tests put
// cells, and short ways to make and describe values: the ground on which
// formula tests evaluate references, ranges and functions.
#ifndef FORMULA_TEST_BOOK_H
#define FORMULA_TEST_BOOK_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "formula/xls_func_table.h"
#include "formula/xls_recalc_env.h"
#include "foundation/zuv_memio.h"
#include "foundation/zuv_uni_string.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

namespace formula_test {

inline unsigned short* u16dup(const std::string& ascii) {
  unsigned short* text = static_cast<unsigned short*>(malloc((ascii.size() + 1) * 2));
  for (size_t i = 0; i <= ascii.size(); ++i) text[i] = static_cast<unsigned char>(ascii[i]);
  return text;
}

// "B3" -> column 1, row 2.
inline void parse_a1(const std::string& a1, int* column, int* row) {
  size_t i = 0;
  *column = 0;
  while (i < a1.size() && a1[i] >= 'A' && a1[i] <= 'Z') *column = *column * 26 + (a1[i++] - 'A' + 1);
  *column -= 1;
  *row = atoi(a1.c_str() + i) - 1;
}

inline xls_value_t num(double number) {
  xls_value_t v;
  xls_value_double(&v, number);
  return v;
}
inline xls_value_t lng(int32_t number) {
  xls_value_t v;
  xls_value_long(&v, number);
  return v;
}
inline xls_value_t str(const std::string& ascii) {
  xls_value_t v;
  xls_value_string(&v, u16dup(ascii));
  return v;
}
inline xls_value_t boolean(bool truth) {
  xls_value_t v;
  xls_value_bool(&v, truth);
  return v;
}
inline xls_value_t err(biff_error_t code) {
  xls_value_t v;
  xls_value_error(&v, code);
  return v;
}
inline xls_value_t empty() {
  xls_value_t v;
  xls_value_empty(&v);
  return v;
}
// An absolute range such as "A1:B3" (or one cell "C2"), on sheet (null: the
// formula's own).
inline xls_value_t range(const std::string& a1, xls_sheet_t* sheet = nullptr) {
  size_t colon = a1.find(':');
  std::string first = a1.substr(0, colon), second = colon == std::string::npos ? first : a1.substr(colon + 1);
  xls_range_ref_t ref = {};
  int column = 0, row = 0;
  parse_a1(first, &column, &row);
  ref.first = {sheet, row, column, 0, 0};
  parse_a1(second, &column, &row);
  ref.second = {sheet, row, column, 0, 0};
  xls_value_t v;
  xls_value_range(&v, &ref);
  return v;
}
// A rows by columns array of doubles, row-major.
inline xls_value_t array(int rows, int columns, std::initializer_list<double> numbers) {
  xls_value_t v;
  xls_value_array(&v, static_cast<uint16_t>(rows), static_cast<uint16_t>(columns));
  int i = 0;
  for (double n : numbers) {
    v.u.basic.u.array.elements[i].kind = bvt_double;
    v.u.basic.u.array.elements[i++].u.double_value = n;
  }
  return v;
}

inline std::string ascii(const unsigned short* text) {
  std::string out;
  for (; text && *text; ++text) out += *text < 128 ? static_cast<char>(*text) : '?';
  return out;
}

// "n:2.5", "s:abc", "b:TRUE", "e:7" (the error code), "empty", "r:..." for a
// range (rows and columns of both corners), "a2x1:{n:1,n:2}" for an array,
// "x:" + cache for a formula.
inline std::string describe_basic(const xls_basic_value_t& b) {
  char buffer[64];
  switch (b.kind) {
    case bvt_empty: return "empty";
    case bvt_long: snprintf(buffer, sizeof buffer, "n:%d", b.u.long_value); return buffer;
    case bvt_double: snprintf(buffer, sizeof buffer, "n:%.15g", b.u.double_value); return buffer;
    case bvt_string: return "s:" + ascii(b.u.string);
    case bvt_bool: return b.u.boolean ? "b:TRUE" : "b:FALSE";
    case bvt_error: snprintf(buffer, sizeof buffer, "e:%u", b.u.error); return buffer;
    case bvt_array: {
      snprintf(buffer, sizeof buffer, "a%dx%d:{", b.u.array.rows, b.u.array.columns);
      std::string out = buffer;
      for (int i = 0; i < b.u.array.rows * b.u.array.columns; ++i)
        out += (i ? "," : "") + describe_basic(b.u.array.elements[i]);
      return out + "}";
    }
  }
  return "?";
}
inline std::string describe(const xls_value_t& v) {
  if (v.kind == vt_expr) return "x:" + describe_basic(v.u.expr.cache);
  if (v.kind == vt_range) {
    char buffer[96];
    const xls_range_ref_t& r = *v.u.range;
    snprintf(buffer, sizeof buffer, "r:R%dC%d:R%dC%d", r.first.row, r.first.column, r.second.row,
             r.second.column);
    return buffer;
  }
  return describe_basic(v.u.basic);
}

// Three empty sheets; cells put in by A1 reference.
class Book {
 public:
  Book() {
    xls_pool pool = {};
    zuv_mem_system(&pool.mem);
    EXPECT_EQ(0u, xls_open(&pool, &file_, 1, nullptr, kel_format_biff8, nullptr));
  }
  ~Book() { xls_close(file_); }
  Book(const Book&) = delete;
  Book& operator=(const Book&) = delete;

  xls_file* file() const { return file_; }
  xls_sheet_t* sheet(int index = 0) const { return xls_sheet_handle(file_, index); }

  // Takes over value.
  void put(const std::string& a1, xls_value_t value, int sheet_index = 0) {
    xls_cell_t cell = {};
    int column = 0, row = 0;
    parse_a1(a1, &column, &row);
    cell.column = static_cast<uint32_t>(column);
    cell.row = static_cast<uint32_t>(row);
    cell.xf = 15;
    cell.sst_index = cell.new_sst_index = XLS_NO_SST_INDEX;
    cell.value = value;
    ASSERT_EQ(0u, insert_cell(sheet(sheet_index), &cell, nullptr, nullptr)) << a1;
  }
  void put(const std::string& a1, double number, int sheet_index = 0) { put(a1, num(number), sheet_index); }
  void put(const std::string& a1, const char* text, int sheet_index = 0) { put(a1, str(text), sheet_index); }

  // The environment of a formula standing at a1.
  xls_recalc_env env(const std::string& a1 = "A1", int sheet_index = 0) const {
    xls_recalc_env e = {};
    e.sheet = sheet(sheet_index);
    int column = 0, row = 0;
    parse_a1(a1, &column, &row);
    e.row = row;
    e.column = column;
    return e;
  }

 private:
  xls_file* file_ = nullptr;
};

// Calls handler on args (which it frees) at env and describes the result.
inline std::string call(xls_expr_handler_t handler, xls_recalc_env env, std::initializer_list<xls_value_t> args) {
  xls_value_t list[32];
  int count = 0;
  for (const xls_value_t& a : args) list[count++] = a;
  xls_value_t result;
  xls_value_empty(&result);
  handler(&result, &env, list, count);
  std::string text = describe(result);
  xls_free_value(&result);
  for (int i = 0; i < count; ++i) xls_free_value(&list[i]);
  return text;
}

}  // namespace formula_test

#endif
