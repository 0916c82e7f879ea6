#include "formula/xls_expr.h"

#include <stdlib.h>
#include <string.h>

#include "foundation/zuv_uni_string.h"
#include "kel_status.h"

const uint16_t* xls_expr_params(const xls_expr_t* node) {
  return node->u.func.count > XLS_EXPR_INLINE_PARAMS ? node->u.func.params
                                                     : node->u.func.inline_params;
}

/* Frees what one node owns; names and shared records belong elsewhere. */
static void free_node_parts(xls_expr_t* node) {
  switch (node->op) {
    case xop_constant:
      xls_free_value(&node->u.constant);
      break;
    case xop_func:
      if (node->u.func.count > XLS_EXPR_INLINE_PARAMS) free(node->u.func.params);
      break;
    case xop_array:
      xls_free_value(&node->u.array.value);
      xls_packed_expr_free(&node->u.array.packed);
      break;
    default:
      break;
  }
}

void xls_packed_expr_free(xls_packed_expr_t* packed) {
  if (packed->flags & XLS_EXPR_UNPARSED) {
    if (!(packed->flags & XLS_EXPR_UNPARSED_ARRAY)) free(packed->text);
  } else if (packed->nodes) {
    for (uint16_t i = 0; i < packed->count; ++i) free_node_parts(&packed->nodes[i]);
    free(packed->nodes);
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
      xls_packed_expr_free(&copy);
      return status;
    }
  }
  *target = copy;
  return 0;
}
