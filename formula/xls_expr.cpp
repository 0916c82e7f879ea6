#include "formula/xls_expr.h"

#include <stdlib.h>
#include <string.h>

#include "formula/xls_func_table.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"

xls_expr_op_t expr_op(const xls_expr_t* node) { return static_cast<xls_expr_op_t>(node->op); }

xls_expr_t* expr_from_idx(const xls_packed_expr_t* packed, uint32_t index) {
  if ((packed->flags & XLS_EXPR_UNPARSED) || index >= packed->count) return nullptr;
  return &packed->nodes[index];
}

xls_expr_t* expr_root_expr(const xls_packed_expr_t* packed) {
  if ((packed->flags & XLS_EXPR_UNPARSED) || packed->count == 0) return nullptr;
  return &packed->nodes[packed->count - 1];
}

xls_expr_t* expr_binary_left(const xls_packed_expr_t* packed, const xls_expr_t* node) {
  return expr_from_idx(packed, node->u.binary.left);
}

xls_expr_t* expr_binary_right(const xls_packed_expr_t* packed, const xls_expr_t* node) {
  return expr_from_idx(packed, node->u.binary.right);
}

xls_expr_t* expr_unary(const xls_packed_expr_t* packed, const xls_expr_t* node) {
  return expr_from_idx(packed, node->u.unary);
}

xls_expr_t* expr_func_param(const xls_packed_expr_t* packed, const xls_expr_t* node, uint32_t i) {
  if (i >= node->u.func.count) return nullptr;
  return expr_from_idx(packed, xls_expr_params(node)[i]);
}

uint32_t expr_func_param_count(const xls_expr_t* node) { return node->u.func.count; }

const unsigned short* expr_func_name(const xls_expr_t* node) {
  const expr_func_desc_t* row = expr_func_row(node->u.func.number);
  return row ? row->name : nullptr;
}

xls_value_t* expr_constant(xls_expr_t* node) { return &node->u.constant; }
xls_cell_ref_t* expr_cellref(xls_expr_t* node) { return &node->u.cell; }
xls_packed_expr_t* expr_array(xls_expr_t* node) { return &node->u.array.packed; }
xls_shared_expr* expr_shared_expr(const xls_expr_t* node) { return node->u.shared; }

xls_packed_expr_t* expr_name_expr(const xls_expr_t* node) {
  xls_expr_named_t* named = node->u.name.named;
  return named && named->parsed ? &named->packed : nullptr;
}

xls_packed_expr_t* expr_name_x_expr(const xls_expr_t* node) { return expr_name_expr(node); }

bool expr_func_ignore_for_circular(const xls_expr_t* node) {
  const expr_func_desc_t* row = expr_func_row(node->u.func.number);
  return row && row->ignore_for_circular;
}

bool xls_is_parsed_expr(const xls_packed_expr_t* packed) {
  return !(packed->flags & XLS_EXPR_UNPARSED) && packed->count > 0;
}

xls_shared_expr* expr_shared_expr_from_val(const xls_value_t* value) {
  if (value->kind != vt_expr) return nullptr;
  const xls_packed_expr_t& packed = value->u.expr.packed;
  if ((packed.flags & XLS_EXPR_UNPARSED) || packed.count != 1 || packed.nodes[0].op != xop_shared)
    return nullptr;
  return packed.nodes[0].u.shared;
}

bool expr_is_shared_formula_or_array(const xls_value_t* value) {
  if (value->kind != vt_expr) return false;
  const xls_packed_expr_t& packed = value->u.expr.packed;
  if (packed.flags & XLS_EXPR_UNPARSED)
    return (packed.flags & (XLS_EXPR_UNPARSED_SHARED | XLS_EXPR_UNPARSED_ARRAY)) != 0;
  return expr_shared_expr_from_val(value) != nullptr;
}

bool expr_is_shared_formula(const xls_value_t* value) {
  if (value->kind != vt_expr) return false;
  if (value->u.expr.packed.flags & XLS_EXPR_UNPARSED)
    return (value->u.expr.packed.flags & XLS_EXPR_UNPARSED_SHARED) != 0;
  xls_shared_expr* shared = expr_shared_expr_from_val(value);
  return shared && !(shared->flags & XLS_SHARED_ARRAY);
}

bool expr_is_array(const xls_value_t* value) {
  if (value->kind != vt_expr) return false;
  if (value->u.expr.packed.flags & XLS_EXPR_UNPARSED)
    return (value->u.expr.packed.flags & XLS_EXPR_UNPARSED_ARRAY) != 0;
  xls_shared_expr* shared = expr_shared_expr_from_val(value);
  return shared && (shared->flags & XLS_SHARED_ARRAY);
}

const uint16_t* xls_expr_params(const xls_expr_t* node) {
  return node->u.func.count > XLS_EXPR_INLINE_PARAMS ? node->u.func.params
                                                     : node->u.func.inline_params;
}

/* Frees what one node owns; names and shared records belong elsewhere. */
void expr_free(xls_expr_t* node) {
  switch (node->op) {
    case xop_constant:
      xls_free_value(&node->u.constant);
      break;
    case xop_func:
      if (node->u.func.count > XLS_EXPR_INLINE_PARAMS) free(node->u.func.params);
      break;
    case xop_array:
      xls_free_value(&node->u.array.value);
      expr_free(&node->u.array.packed, true);
      break;
    default:
      break;
  }
}

void expr_free(xls_packed_expr_t* packed, bool free_block) {
  if (packed->flags & XLS_EXPR_UNPARSED) {
    if (!(packed->flags & XLS_EXPR_UNPARSED_ARRAY)) free(packed->text);
  } else if (packed->nodes) {
    for (uint16_t i = 0; i < packed->count; ++i) expr_free(&packed->nodes[i]);
    if (free_block) free(packed->nodes);
  }
  memset(packed, 0, sizeof *packed);
}

/* Makes the owned parts of node, a bit copy of source, its own.  On failure
 * node owns nothing. */
static uint32_t copy_node_parts(xls_expr_t* node, const xls_expr_t* source) {
  switch (source->op) {
    case xop_constant:
      return xls_value_copy(&node->u.constant, &source->u.constant);
    case xop_func: {
      uint32_t count = source->u.func.count;
      if (count <= XLS_EXPR_INLINE_PARAMS) return 0;
      uint16_t* params = static_cast<uint16_t*>(malloc(count * sizeof *params));
      if (!params) return KEL_ERR_OUT_OF_MEMORY;
      memcpy(params, source->u.func.params, count * sizeof *params);
      node->u.func.params = params;
      return 0;
    }
    case xop_array: {
      uint32_t status = xls_value_copy(&node->u.array.value, &source->u.array.value);
      if (status) return status;
      status = xls_packed_expr_copy(&node->u.array.packed, &source->u.array.packed);
      if (status) xls_free_value(&node->u.array.value);
      return status;
    }
    default:
      return 0;
  }
}

uint32_t xls_packed_expr_copy(xls_packed_expr_t* target,
                              const xls_packed_expr_t* source) {
  memset(target, 0, sizeof *target);
  if (source->flags & XLS_EXPR_UNPARSED) {
    unsigned short* text = source->text;
    /* Text that the form doesn't own is shared, not copied: no copy would
     * ever be freed. */
    if (text && !(source->flags & XLS_EXPR_UNPARSED_ARRAY)) {
      text = ucs2_dup(text);
      if (!text) return KEL_ERR_OUT_OF_MEMORY;
    }
    target->flags = source->flags;
    target->text = text;
    return 0;
  }
  if (!source->count || !source->nodes) {
    target->flags = source->flags;
    return 0;
  }
  xls_expr_t* nodes =
      static_cast<xls_expr_t*>(malloc(source->count * sizeof *nodes));
  if (!nodes) return KEL_ERR_OUT_OF_MEMORY;
  memcpy(nodes, source->nodes, source->count * sizeof *nodes);
  /* count grows with the nodes made good, so that a failure frees exactly
   * those. */
  xls_packed_expr_t copy = {};
  copy.flags = source->flags;
  copy.nodes = nodes;
  for (; copy.count < source->count; ++copy.count) {
    uint32_t status = copy_node_parts(&nodes[copy.count], &source->nodes[copy.count]);
    if (status) {
      expr_free(&copy, true);
      return status;
    }
  }
  *target = copy;
  return 0;
}
