/*
 * Building formula trees: the growing node array that the BIFF reader and
 * the parser fill, its packing into a block of exact size, the setters
 * that fill a node's operands, edits in place and deep copies.
 */
#include <stdlib.h>
#include <string.h>

#include "formula/xls_expr.h"
#include "kel_status.h"

/* The most nodes a packed form can count. */
enum { kMaxNodes = 0xFFFF };

/* ---- The growing array ---------------------------------------------------- */

void expr_d_init(dynamic_expr_t* dynamic) {
  dynamic->nodes = nullptr;
  dynamic->info = xls_array_info{static_cast<int>(sizeof(xls_expr_t)), 0, 0};
}

uint32_t expr_d_create(dynamic_expr_t* dynamic, xls_expr_op_t op, uint16_t* index) {
  xls_array_info& info = dynamic->info;
  if (info.count >= kMaxNodes) return KEL_ERR_GENERAL;
  if (info.count >= info.capacity) {
    /* Doubling keeps a formula of thousands of nodes from copying its
     * array thousands of times. */
    int capacity = info.capacity < 10 ? 10 : info.capacity * 2;
    if (capacity > kMaxNodes) capacity = kMaxNodes;
    xls_expr_t* nodes =
        static_cast<xls_expr_t*>(realloc(dynamic->nodes, capacity * sizeof(xls_expr_t)));
    if (!nodes) return KEL_ERR_OUT_OF_MEMORY;
    dynamic->nodes = nodes;
    info.capacity = capacity;
  }
  xls_expr_t* node = &dynamic->nodes[info.count];
  memset(node, 0, sizeof *node); /* a constant reads bvt_empty */
  node->op = op;
  *index = static_cast<uint16_t>(info.count++);
  return 0;
}

xls_expr_t* expr_d_from_idx(dynamic_expr_t* dynamic, uint32_t index) {
  if (index >= static_cast<uint32_t>(dynamic->info.count)) return nullptr;
  return &dynamic->nodes[index];
}

void expr_d_replace_to_unknown(dynamic_expr_t* dynamic, uint32_t index) {
  xls_expr_t* node = expr_d_from_idx(dynamic, index);
  if (!node) return;
  expr_free(node);
  memset(node, 0, sizeof *node);
  node->op = xop_unknown;
}

/* Calls visit on each child index of node.  Range and intersection nodes
 * have children like any operator: a hole below their operands must move
 * their indexes as well. */
template <typename Visit>
static bool for_each_child(xls_expr_t* node, Visit visit) {
  switch (node->op) {
    case xop_eq: case xop_gt: case xop_lt: case xop_ge: case xop_le: case xop_ne:
    case xop_add: case xop_sub: case xop_mul: case xop_div: case xop_pow:
    case xop_concat: case xop_range: case xop_isect:
      return visit(&node->u.binary.left) && visit(&node->u.binary.right);
    case xop_neg: case xop_plus: case xop_percent:
      return visit(&node->u.unary);
    case xop_func: {
      uint16_t* params = node->u.func.count > XLS_EXPR_INLINE_PARAMS ? node->u.func.params
                                                                     : node->u.func.inline_params;
      for (uint32_t p = 0; p < node->u.func.count; ++p)
        if (!visit(&params[p])) return false;
      return true;
    }
    default:
      return true;
  }
}

/* Lowers every child index above the hole at index hole.  A live node that
 * still names the hole fails before anything changes. */
static uint32_t close_hole(xls_expr_t* nodes, uint32_t count, uint32_t hole) {
  for (uint32_t i = 0; i < count; ++i)
    if (i != hole && !for_each_child(&nodes[i], [hole](uint16_t* child) { return *child != hole; }))
      return KEL_ERR_GENERAL;
  for (uint32_t i = 0; i < count; ++i)
    for_each_child(&nodes[i], [hole](uint16_t* child) {
      if (*child > hole) *child -= 1;
      return true;
    });
  return 0;
}

uint32_t expr_d_to_packed_expr(xls_packed_expr_t* packed, dynamic_expr_t* dynamic) {
  uint32_t count = static_cast<uint32_t>(dynamic->info.count);
  xls_expr_t* nodes = dynamic->nodes;
  for (;;) {
    uint32_t hole = 0;
    while (hole < count && nodes[hole].op != xop_unknown) ++hole;
    if (hole == count) break;
    uint32_t status = close_hole(nodes, count, hole);
    if (status) {
      /* The nodes stay the array's, whole, for the caller to destroy. */
      dynamic->info.count = static_cast<int>(count);
      return status;
    }
    memmove(&nodes[hole], &nodes[hole + 1], (count - hole - 1) * sizeof *nodes);
    --count;
  }
  dynamic->info.count = static_cast<int>(count);
  if (count == 0) {
    free(nodes);
    nodes = nullptr;
  } else if (count < static_cast<uint32_t>(dynamic->info.capacity)) {
    xls_expr_t* exact = static_cast<xls_expr_t*>(realloc(nodes, count * sizeof *nodes));
    if (!exact) return KEL_ERR_OUT_OF_MEMORY;
    nodes = exact;
  }
  memset(packed, 0, sizeof *packed);
  packed->count = static_cast<uint16_t>(count);
  packed->nodes = nodes;
  expr_d_init(dynamic);
  return 0;
}

void expr_d_destroy(dynamic_expr_t* dynamic) {
  for (int i = 0; i < dynamic->info.count; ++i) expr_free(&dynamic->nodes[i]);
  free(dynamic->nodes);
  expr_d_init(dynamic);
}

/* ---- Operands ------------------------------------------------------------- */

void expr_set_ptg_binary_family(xls_expr_t* node, uint16_t left, uint16_t right) {
  node->u.binary.left = left;
  node->u.binary.right = right;
}

void expr_set_ptg_unary_family(xls_expr_t* node, uint16_t operand) { node->u.unary = operand; }

void expr_set_ref_family(xls_expr_t* node, const xls_cell_ref_t* ref) { node->u.cell = *ref; }

uint32_t expr_set_area_family(xls_expr_t* node, const xls_range_ref_t* range) {
  return xls_value_range(&node->u.constant, range);
}

uint32_t expr_set_func_family(xls_expr_t* node, uint32_t number, const uint16_t* params,
                              uint32_t count) {
  node->u.func.number = number;
  node->u.func.count = 0;
  if (count > XLS_EXPR_INLINE_PARAMS) {
    uint16_t* list = static_cast<uint16_t*>(malloc(count * sizeof *list));
    if (!list) return KEL_ERR_OUT_OF_MEMORY;
    memcpy(list, params, count * sizeof *list);
    node->u.func.params = list;
  } else if (count) {
    memcpy(node->u.func.inline_params, params, count * sizeof *params);
  }
  node->u.func.count = count;
  return 0;
}

void expr_set_name(xls_expr_t* node, uint16_t index, xls_expr_named_t* named) {
  node->u.name.index = index;
  node->u.name.named = named;
}

void expr_set_ptg_int(xls_expr_t* node, int32_t number) {
  xls_value_long(&node->u.constant, number);
}

void expr_set_ptg_num(xls_expr_t* node, double number) {
  xls_value_double(&node->u.constant, number);
}

uint32_t expr_set_ptg_string(xls_expr_t* node, const unsigned short* text, uint32_t length) {
  unsigned short* copy = static_cast<unsigned short*>(malloc((length + 1) * sizeof *copy));
  if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  if (length) memcpy(copy, text, length * sizeof *copy);
  copy[length] = 0;
  xls_value_string(&node->u.constant, copy);
  return 0;
}

void expr_set_ptg_error(xls_expr_t* node, biff_error_t code) {
  xls_value_error(&node->u.constant, code);
}

uint32_t expr_set_array(xls_expr_t* node, uint16_t rows, uint16_t columns) {
  return xls_value_array(&node->u.constant, rows, columns);
}

void expr_get_ref(uint16_t row_field, uint16_t column_field, int32_t base_row,
                  int32_t base_column, bool shared, xls_cell_ref_t* ref) {
  memset(ref, 0, sizeof *ref);
  ref->row_relative = (column_field & 0x8000) ? 1 : 0;
  ref->column_relative = (column_field & 0x4000) ? 1 : 0;
  uint8_t column = static_cast<uint8_t>(column_field & 0xFF);
  if (!ref->row_relative)
    ref->row = row_field;
  else
    ref->row = shared ? static_cast<int16_t>(row_field) : row_field - base_row;
  if (!ref->column_relative)
    ref->column = column;
  else
    ref->column = shared ? static_cast<int8_t>(column) : column - base_column;
}

/* ---- Editing in place ----------------------------------------------------- */

void expr_replace_with_constant(xls_expr_t* node, xls_value_t* value) {
  expr_free(node);
  memset(node, 0, sizeof *node);
  node->op = xop_constant;
  node->u.constant = *value;
  xls_value_empty(value); /* the node owns it now */
}

void expr_replace_with_area_err(xls_expr_t* node) {
  expr_free(node);
  memset(node, 0, sizeof *node);
  node->op = xop_area_err;
}

void expr_replace_with_area_3d_err(xls_expr_t* node, xls_sheet_t* first, xls_sheet_t* last) {
  expr_free(node);
  memset(node, 0, sizeof *node);
  node->op = xop_area3d_err;
  node->u.area_err.first = first;
  node->u.area_err.last = last;
  /* Not read from a file: the writer looks the sheets up. */
  node->u.area_err.sheet_ref = 0xFFFF;
}

/* ---- Lifetime ------------------------------------------------------------- */

xls_packed_expr_t* expr_create() {
  return static_cast<xls_packed_expr_t*>(calloc(1, sizeof(xls_packed_expr_t)));
}

uint32_t expr_create_shared_expr(xls_packed_expr_t* packed, xls_shared_expr* record) {
  xls_expr_t* node = static_cast<xls_expr_t*>(calloc(1, sizeof *node));
  if (!node) return KEL_ERR_OUT_OF_MEMORY;
  node->op = xop_shared;
  node->u.shared = record;
  memset(packed, 0, sizeof *packed);
  packed->count = 1;
  packed->nodes = node;
  return 0;
}

static bool is_one_shared_node(const xls_packed_expr_t* packed) {
  return !(packed->flags & XLS_EXPR_UNPARSED) && packed->count == 1 &&
         packed->nodes[0].op == xop_shared;
}

uint32_t expr_break_shared_formula(const xls_packed_expr_t* source,
                                   xls_packed_expr_t* target) {
  memset(target, 0, sizeof *target);
  if (!is_one_shared_node(source)) return KEL_ERR_GENERAL;
  const xls_shared_expr* record = source->nodes[0].u.shared;
  if (!record || (record->flags & XLS_SHARED_ARRAY)) return KEL_ERR_GENERAL;
  /* Relative parts are offsets, the same for every cell of the group, so
   * the group's nodes serve the cell as they are. */
  return xls_packed_expr_copy(target, &record->packed);
}

uint32_t expr_copy(xls_packed_expr_t* target, const xls_packed_expr_t* source) {
  memset(target, 0, sizeof *target);
  if (source->flags & XLS_EXPR_UNPARSED) return xls_packed_expr_copy(target, source);
  if (is_one_shared_node(source)) return expr_break_shared_formula(source, target);
  for (uint32_t i = 0; i < source->count; ++i)
    if (source->nodes[i].op == xop_shared) return KEL_ERR_GENERAL;
  return xls_packed_expr_copy(target, source);
}
