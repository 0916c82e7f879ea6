// Whether two formula trees are the same: the same ops, functions, names,
// constants and references, node by node from the given nodes down.  The
// corpus round trips (tokens, text) compare what they read back with it.
#ifndef TREE_COMPARE_H
#define TREE_COMPARE_H

#include <math.h>

#include "formula/xls_expr.h"

namespace formula_test {

// Offsets compare as the positions they make: they wrap at the sheet's
// edges, so -1 and 65535 rows from a cell are the same place.
inline bool same_ref(const xls_cell_ref_t& a, const xls_cell_ref_t& b) {
  if (a.sheet != b.sheet || a.row_relative != b.row_relative ||
      a.column_relative != b.column_relative)
    return false;
  uint32_t rows = a.row_relative ? 0xFFFFu : 0xFFFFFFFFu;
  uint32_t columns = a.column_relative ? 0xFFu : 0xFFFFFFFFu;
  return ((static_cast<uint32_t>(a.row) ^ static_cast<uint32_t>(b.row)) & rows) == 0 &&
         ((static_cast<uint32_t>(a.column) ^ static_cast<uint32_t>(b.column)) & columns) == 0;
}

// by_value: a long and a double of the same number are the same (text
// doesn't say which kind a number was).
inline bool same_basic(const xls_basic_value_t& a, const xls_basic_value_t& b, bool by_value = false) {
  bool a_number = a.kind == bvt_long || a.kind == bvt_double;
  bool b_number = b.kind == bvt_long || b.kind == bvt_double;
  if (by_value && a_number && b_number)
    return (a.kind == bvt_long ? a.u.long_value : a.u.double_value) ==
           (b.kind == bvt_long ? b.u.long_value : b.u.double_value);
  if (a.kind != b.kind) return false;
  switch (a.kind) {
    case bvt_long: return a.u.long_value == b.u.long_value;
    case bvt_double: return a.u.double_value == b.u.double_value || (isnan(a.u.double_value) && isnan(b.u.double_value));
    case bvt_string: {
      const unsigned short *x = a.u.string, *y = b.u.string;
      static const unsigned short kNone[] = {0};
      if (!x) x = kNone;
      if (!y) y = kNone;
      while (*x && *x == *y) ++x, ++y;
      return *x == *y;
    }
    case bvt_error: return a.u.error == b.u.error;
    case bvt_bool: return a.u.boolean == b.u.boolean;
    case bvt_array: {
      if (a.u.array.rows != b.u.array.rows || a.u.array.columns != b.u.array.columns) return false;
      for (int i = 0; i < a.u.array.rows * a.u.array.columns; ++i)
        if (!same_basic(a.u.array.elements[i], b.u.array.elements[i], by_value)) return false;
      return true;
    }
    default: return true;
  }
}

inline bool same_value(const xls_value_t& a, const xls_value_t& b, bool by_value = false) {
  if (a.kind != b.kind) return false;
  if (a.kind == vt_range)
    return same_ref(a.u.range->first, b.u.range->first) && same_ref(a.u.range->second, b.u.range->second);
  if (a.kind == vt_basic) return same_basic(a.u.basic, b.u.basic, by_value);
  return false;
}

inline bool same_node(const xls_packed_expr_t* pa, const xls_expr_t* a, const xls_packed_expr_t* pb,
                      const xls_expr_t* b, bool by_value = false) {
  if (!a || !b) return a == b;
  if (a->op != b->op) return false;
  switch (a->op) {
    case xop_eq: case xop_gt: case xop_lt: case xop_ge: case xop_le: case xop_ne:
    case xop_add: case xop_sub: case xop_mul: case xop_div: case xop_pow: case xop_concat:
    case xop_range: case xop_isect:
      return same_node(pa, expr_binary_left(pa, a), pb, expr_binary_left(pb, b), by_value) &&
             same_node(pa, expr_binary_right(pa, a), pb, expr_binary_right(pb, b), by_value);
    case xop_neg: case xop_plus: case xop_percent:
      return same_node(pa, expr_unary(pa, a), pb, expr_unary(pb, b), by_value);
    case xop_func:
      if (a->u.func.number != b->u.func.number || a->u.func.count != b->u.func.count) return false;
      for (uint32_t i = 0; i < a->u.func.count; ++i)
        if (!same_node(pa, expr_func_param(pa, a, i), pb, expr_func_param(pb, b, i), by_value)) return false;
      return true;
    case xop_name: case xop_namex:
      return a->u.name.index == b->u.name.index && a->u.name.named == b->u.name.named;
    case xop_constant: return same_value(a->u.constant, b->u.constant, by_value);
    case xop_cellref: return same_ref(a->u.cell, b->u.cell);
    case xop_shared: return a->u.shared == b->u.shared;
    case xop_ref3d_bad:
      return a->u.ref3d_bad.sheet_ref == b->u.ref3d_bad.sheet_ref && a->u.ref3d_bad.row == b->u.ref3d_bad.row &&
             a->u.ref3d_bad.column == b->u.ref3d_bad.column;
    case xop_area3d_err:
      return a->u.area_err.first == b->u.area_err.first && a->u.area_err.last == b->u.area_err.last;
    default: return true;
  }
}

}  // namespace formula_test

#endif  // TREE_COMPARE_H
