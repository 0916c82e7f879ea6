/*
 * The BIFF8 formula writer: a packed tree becomes ptg tokens in reverse
 * Polish order, array constants behind them.  Nothing of the tokens the
 * file once had is kept, so every token is made anew here: IF, CHOOSE and
 * SUM are plain function calls, and parentheses come from precedence.
 *
 * Whatever the reader takes in, this writer gives back in a form that
 * reads as the same tree.
 */
#include <stdlib.h>
#include <string.h>

#include "formula/xls_formula_codec.h"
#include "formula/xls_func_table.h"
#include "foundation/zuv_memio.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"

/* ---- Operators ------------------------------------------------------------ */

static const xls_expr_op_desc_t kOperators[] = {
    /* xop_eq .. xop_concat, in op order */
    {"=", 0x0B, 1, 1, 0, xls_op_binary},  {">", 0x0D, 1, 1, 0, xls_op_binary},
    {"<", 0x09, 1, 1, 0, xls_op_binary},  {">=", 0x0C, 1, 1, 0, xls_op_binary},
    {"<=", 0x0A, 1, 1, 0, xls_op_binary}, {"<>", 0x0E, 1, 1, 0, xls_op_binary},
    {"+", 0x03, 3, 1, 0, xls_op_binary},  {"-", 0x04, 3, 1, 0, xls_op_binary},
    {"*", 0x05, 4, 1, 0, xls_op_binary},  {"/", 0x06, 4, 1, 0, xls_op_binary},
    {"^", 0x07, 5, 0, 1, xls_op_binary},  {"&", 0x08, 2, 1, 0, xls_op_binary},
};
static const xls_expr_op_desc_t kNeg = {"-", 0x13, 7, 0, 0, xls_op_prefix};
static const xls_expr_op_desc_t kPlus = {"+", 0x12, 7, 0, 0, xls_op_prefix};
static const xls_expr_op_desc_t kPercent = {"%", 0x14, 6, 0, 0, xls_op_postfix};
static const xls_expr_op_desc_t kRange = {":", 0x11, 9, 1, 0, xls_op_binary};
static const xls_expr_op_desc_t kIsect = {" ", 0x0F, 8, 1, 0, xls_op_binary};

const xls_expr_op_desc_t* xls_expr_op_desc(xls_expr_op_t op) {
  if (op <= xop_concat) return &kOperators[op];
  switch (op) {
    case xop_neg: return &kNeg;
    case xop_plus: return &kPlus;
    case xop_percent: return &kPercent;
    case xop_range: return &kRange;
    case xop_isect: return &kIsect;
    default: return nullptr;
  }
}

/* ---- Token classes -------------------------------------------------------- */

/* Operand types: what a token is, and what its consumer expects. */
enum { kTypeRef = 0, kTypeValue = 1, kTypeArray = 2, kTypeAny = 3 };

/* The class bits of a token, by the class context (cells 0, names and the
 * like 1, array formulas 2), the operand's own type and the expected type:
 * 0 reference, 0x20 value, 0x40 array. */
static const uint8_t xl_op_class[3][3][4] = {
    {{0x00, 0x20, 0x40, 0x20}, {0x20, 0x20, 0x20, 0x20}, {0x40, 0x20, 0x40, 0x20}},
    {{0x00, 0x20, 0x40, 0x20}, {0x40, 0x20, 0x40, 0x20}, {0x40, 0x20, 0x40, 0x40}},
    {{0x00, 0x40, 0x40, 0x00}, {0x40, 0x40, 0x40, 0x40}, {0x40, 0x40, 0x40, 0x40}},
};

static int xls_expr_map_char_to_type(char type) {
  switch (type) {
    case 'R': return kTypeRef;
    case 'A': return kTypeArray;
    case 'v': return kTypeAny;
    default: return kTypeValue;
  }
}

/* The writer's state. */
struct polish_data_t {
  unsigned char* buffer;
  uint32_t at;
  xls_file* file;
  xls_sheet_t* sheet;
  int32_t row, column;          /* the formula's cell */
  int class_context;
  xls_write_context_t context;
  xls_expr_adaptor_t adaptor;
  xls_array_info arrays_info;   /* the array constants met, in token order */
  const xls_basic_value_t** arrays;
};

static uint8_t xls_expr_xl_get_op_class(const polish_data_t* polish, int own, int expected) {
  return xl_op_class[polish->class_context][own][expected];
}

static void put8(polish_data_t* polish, uint32_t value) {
  polish->buffer[polish->at++] = static_cast<unsigned char>(value);
}

static void put16(polish_data_t* polish, uint32_t value) {
  put_le16(polish->buffer + polish->at, value);
  polish->at += 2;
}

static void put_zeros(polish_data_t* polish, uint32_t count) {
  memset(polish->buffer + polish->at, 0, count);
  polish->at += count;
}

static void put_double(polish_data_t* polish, double value) {
  uint64_t bits;
  memcpy(&bits, &value, sizeof bits);
  put_le32(polish->buffer + polish->at, static_cast<uint32_t>(bits));
  put_le32(polish->buffer + polish->at + 4, static_cast<uint32_t>(bits >> 32));
  polish->at += 8;
}

/* ---- References ----------------------------------------------------------- */

/* The row and column fields of ref.  A relative part is the position at
 * the formula's cell, or the offset itself where the tokens are a shared
 * formula's ptgRefN and ptgAreaN (offsets). */
static void xls_expr_write_cellref_data(const polish_data_t* polish, const xls_cell_ref_t* ref,
                                        bool offsets, uint16_t* column_field,
                                        uint16_t* row_field) {
  int32_t row = ref->row, column = ref->column;
  if (ref->row_relative && !offsets) row += polish->row;
  if (ref->column_relative && !offsets) column += polish->column;
  *row_field = static_cast<uint16_t>(row);
  *column_field = static_cast<uint16_t>(column & 0xFF);
  if (ref->row_relative) *column_field |= 0x8000;
  if (ref->column_relative) *column_field |= 0x4000;
}

/* The EXTERNSHEET index of first to last. */
static uint32_t sheet_index(polish_data_t* polish, xls_sheet_t* first, xls_sheet_t* last,
                            uint16_t* index) {
  if (!polish->file) return KEL_ERR_INVALID_ARGUMENT;
  return xls_externsheet_refindex(polish->file, first, last ? last : first, index);
}

/* One cell, on the sheets ref->sheet to last when it has a sheet. */
static uint32_t xls_expr_write_cellref(polish_data_t* polish, const xls_cell_ref_t* ref,
                                       xls_sheet_t* last, int expected) {
  uint8_t klass = xls_expr_xl_get_op_class(polish, kTypeRef, expected);
  bool three_d = ref->sheet != nullptr;
  uint16_t index = 0;
  if (three_d) {
    uint32_t status = sheet_index(polish, ref->sheet, last, &index);
    if (status) return status;
    put8(polish, 0x3A + klass);
    put16(polish, index);
  } else {
    put8(polish, (polish->context == xls_write_shared ? 0x2C : 0x24) + klass);
  }
  uint16_t column_field = 0, row_field = 0;
  /* Three-dimensional references are read as positions in every context. */
  bool offsets = !three_d && polish->context == xls_write_shared;
  xls_expr_write_cellref_data(polish, ref, offsets, &column_field, &row_field);
  put16(polish, row_field);
  put16(polish, column_field);
  return 0;
}

static bool same_cell(const xls_cell_ref_t& a, const xls_cell_ref_t& b) {
  return a.row == b.row && a.column == b.column && a.row_relative == b.row_relative &&
         a.column_relative == b.column_relative;
}

static uint32_t write_range(polish_data_t* polish, const xls_range_ref_t* range, int expected) {
  uint8_t klass = xls_expr_xl_get_op_class(polish, kTypeRef, expected);
  xls_sheet_t* first = range->first.sheet;
  xls_sheet_t* last = range->second.sheet ? range->second.sheet : first;
  bool offsets = false;
  if (!first) {
    offsets = polish->context == xls_write_shared;
    put8(polish, (offsets ? 0x2D : 0x25) + klass);
  } else if (polish->adaptor != xls_adaptor_keep_ranges &&
             same_cell(range->first, range->second)) {
    return xls_expr_write_cellref(polish, &range->first, last, expected);
  } else {
    uint16_t index = 0;
    uint32_t status = sheet_index(polish, first, last, &index);
    if (status) return status;
    put8(polish, 0x3B + klass);
    put16(polish, index);
  }
  uint16_t first_column = 0, first_row = 0, last_column = 0, last_row = 0;
  xls_expr_write_cellref_data(polish, &range->first, offsets, &first_column, &first_row);
  xls_expr_write_cellref_data(polish, &range->second, offsets, &last_column, &last_row);
  put16(polish, first_row);
  put16(polish, last_row);
  put16(polish, first_column);
  put16(polish, last_column);
  return 0;
}

/* ---- Constants ------------------------------------------------------------ */

static void write_string(polish_data_t* polish, const unsigned short* text) {
  uint32_t length = text ? ucs2_len(text) : 0;
  if (length > 0xFF) length = 0xFF; /* the token's count is one byte */
  put8(polish, 0x17);
  put8(polish, length);
  put8(polish, 0x01);
  for (uint32_t i = 0; i < length; ++i) put16(polish, text[i]);
}

static uint32_t write_array(polish_data_t* polish, const xls_basic_value_t* value, int expected) {
  const xls_basic_array_t& array = value->u.array;
  if (array.rows == 0 || array.columns == 0 || array.columns > 0x100 || !array.elements)
    return KEL_ERR_GENERAL;
  void* data = polish->arrays;
  uint32_t status = xls_array_push(&polish->arrays_info, &data, &value);
  polish->arrays = static_cast<const xls_basic_value_t**>(data);
  if (status) return status;
  put8(polish, 0x20 + xls_expr_xl_get_op_class(polish, kTypeArray, expected));
  put8(polish, array.columns - 1u);
  put16(polish, array.rows - 1u);
  put_zeros(polish, 4);
  return 0;
}

static uint32_t write_constant(polish_data_t* polish, const xls_value_t* value, int expected) {
  if (value->kind == vt_range) return write_range(polish, value->u.range, expected);
  if (value->kind != vt_basic) return KEL_ERR_GENERAL;
  const xls_basic_value_t& basic = value->u.basic;
  switch (basic.kind) {
    case bvt_long:
      if (basic.u.long_value >= 0 && basic.u.long_value <= 0xFFFF) {
        put8(polish, 0x1E);
        put16(polish, static_cast<uint32_t>(basic.u.long_value));
      } else {
        put8(polish, 0x1F);
        put_double(polish, basic.u.long_value);
      }
      return 0;
    case bvt_double:
      put8(polish, 0x1F);
      put_double(polish, basic.u.double_value);
      return 0;
    case bvt_string:
      write_string(polish, basic.u.string);
      return 0;
    case bvt_error:
      put8(polish, 0x1C);
      put8(polish, basic.u.error);
      return 0;
    case bvt_bool:
      put8(polish, 0x1D);
      put8(polish, basic.u.boolean ? 1 : 0);
      return 0;
    case bvt_array:
      return write_array(polish, &basic, expected);
    default:
      /* An empty constant stands for nothing: an omitted argument. */
      put8(polish, 0x16);
      return 0;
  }
}

/* The array constants behind the tokens, in the order of their tokens, as
 * the reader takes them. */
static void write_array_data(polish_data_t* polish) {
  for (int i = 0; i < polish->arrays_info.count; ++i) {
    const xls_basic_array_t& array = polish->arrays[i]->u.array;
    put8(polish, array.columns - 1u);
    put16(polish, array.rows - 1u);
    uint32_t count = static_cast<uint32_t>(array.rows) * array.columns;
    for (uint32_t e = 0; e < count; ++e) {
      const xls_basic_value_t& element = array.elements[e];
      switch (element.kind) {
        case bvt_double:
        case bvt_long:
          put8(polish, 1);
          put_double(polish, element.kind == bvt_long ? element.u.long_value
                                                      : element.u.double_value);
          break;
        case bvt_string: {
          uint32_t length = element.u.string ? ucs2_len(element.u.string) : 0;
          if (length > 0xFFFF) length = 0xFFFF;
          put8(polish, 2);
          put16(polish, length);
          put8(polish, 1);
          for (uint32_t c = 0; c < length; ++c) put16(polish, element.u.string[c]);
          break;
        }
        case bvt_bool:
        case bvt_error:
          put8(polish, element.kind == bvt_bool ? 4 : 16);
          put8(polish, element.kind == bvt_bool ? element.u.boolean : element.u.error);
          put_zeros(polish, 7);
          break;
        default:
          /* The format's empty element keeps the elements behind in place. */
          put8(polish, 0);
          put_zeros(polish, 8);
          break;
      }
    }
  }
}

/* ---- Nodes ---------------------------------------------------------------- */

static uint32_t expr_write_node(polish_data_t* polish, const xls_packed_expr_t* packed,
                                const xls_expr_t* node, int parent_precedence, int expected);

static uint32_t write_operator(polish_data_t* polish, const xls_packed_expr_t* packed,
                               const xls_expr_t* node, int parent_precedence) {
  const xls_expr_op_desc_t* desc = xls_expr_op_desc(expr_op(node));
  uint32_t status = 0;
  if (desc->family == xls_op_binary) {
    /* The operands of : and the blank are references, of others values. */
    int operand = expr_op(node) == xop_range || expr_op(node) == xop_isect ? kTypeRef
                                                                           : kTypeValue;
    status = expr_write_node(polish, packed, expr_binary_left(packed, node),
                             desc->precedence - desc->left_adjust, operand);
    if (!status)
      status = expr_write_node(polish, packed, expr_binary_right(packed, node),
                               desc->precedence - desc->right_adjust, operand);
  } else {
    status = expr_write_node(polish, packed, expr_unary(packed, node), desc->precedence,
                             kTypeValue);
  }
  if (status) return status;
  put8(polish, desc->token);
  if (desc->precedence <= parent_precedence) put8(polish, 0x15);
  return 0;
}

static uint32_t write_function(polish_data_t* polish, const xls_packed_expr_t* packed,
                               const xls_expr_t* node, int expected) {
  uint32_t number = node->u.func.number;
  const expr_func_desc_t* row = expr_func_row(number);
  if (!row) return KEL_ERR_UNSUPPORTED;
  bool fixed = (row->flags & XLS_FUNC_FIXED) != 0;
  uint32_t count = expr_func_param_count(node);
  uint32_t limit = fixed ? row->fixed_count : 126;
  uint32_t written = count < limit ? count : limit;
  const char* classes = row->arg_classes;
  size_t class_count = classes ? strlen(classes) : 0;
  for (uint32_t i = 0; i < written; ++i) {
    /* The last argument class stands for all that follow. */
    char type = class_count ? classes[i < class_count ? i : class_count - 1] : 'V';
    uint32_t status = expr_write_node(polish, packed, expr_func_param(packed, node, i), 0,
                                      xls_expr_map_char_to_type(type));
    if (status) return status;
  }
  int own = xls_expr_map_char_to_type(row->result_class ? row->result_class[0] : 'V');
  if (own == kTypeAny) own = kTypeValue;
  uint8_t klass = xls_expr_xl_get_op_class(polish, own, expected);
  if (fixed) {
    put8(polish, 0x21 + klass);
  } else {
    put8(polish, 0x22 + klass);
    put8(polish, written);
  }
  put16(polish, number);
  return 0;
}

static uint32_t write_area_3d_err(polish_data_t* polish, const xls_expr_t* node, int expected) {
  uint8_t klass = xls_expr_xl_get_op_class(polish, kTypeRef, expected);
  uint16_t index = node->u.area_err.sheet_ref;
  uint32_t status = 0;
  if (index == 0xFFFF) {
    /* Made by an edit, not read: the sheets name the entry. */
    status = node->u.area_err.first && node->u.area_err.last
                 ? sheet_index(polish, node->u.area_err.first, node->u.area_err.last, &index)
                 : KEL_ERR_NOT_FOUND;
  }
  if (status) {
    /* Sheets that no entry names: still #REF!, without them. */
    put8(polish, 0x2B + klass);
  } else {
    put8(polish, 0x3D + klass);
    put16(polish, index);
  }
  put_zeros(polish, 8);
  return 0;
}

static uint32_t expr_write_node(polish_data_t* polish, const xls_packed_expr_t* packed,
                                const xls_expr_t* node, int parent_precedence, int expected) {
  if (!node) return KEL_ERR_INVALID_ARGUMENT;
  uint8_t reference = xls_expr_xl_get_op_class(polish, kTypeRef, expected);
  switch (expr_op(node)) {
    case xop_eq: case xop_gt: case xop_lt: case xop_ge: case xop_le: case xop_ne:
    case xop_add: case xop_sub: case xop_mul: case xop_div: case xop_pow: case xop_concat:
    case xop_range: case xop_isect: case xop_neg: case xop_plus: case xop_percent:
      return write_operator(polish, packed, node, parent_precedence);
    case xop_func:
      return write_function(polish, packed, node, expected);
    case xop_name:
      put8(polish, 0x23 + reference);
      put16(polish, node->u.name.index);
      put_zeros(polish, 2);
      return 0;
    case xop_namex:
      put8(polish, 0x39 + reference);
      put16(polish, node->u.name.sheet_ref);
      put16(polish, node->u.name.index);
      put_zeros(polish, 2);
      return 0;
    case xop_constant:
      return write_constant(polish, &node->u.constant, expected);
    case xop_cellref:
      return xls_expr_write_cellref(polish, &node->u.cell, node->u.cell.sheet, expected);
    case xop_ref3d_bad:
      put8(polish, 0x3A + reference);
      put16(polish, node->u.ref3d_bad.sheet_ref);
      put16(polish, node->u.ref3d_bad.row);
      put16(polish, node->u.ref3d_bad.column);
      return 0;
    case xop_missing:
      put8(polish, 0x16);
      return 0;
    case xop_shared: {
      const xls_shared_expr* record = node->u.shared;
      if (!record) return KEL_ERR_INVALID_ARGUMENT;
      bool array = record->flags & XLS_SHARED_ARRAY;
      put8(polish, 0x01);
      put16(polish, array ? record->array_row : record->first_row);
      put16(polish, array ? record->array_column : record->first_column);
      return 0;
    }
    case xop_area3d_err:
      return write_area_3d_err(polish, node, expected);
    case xop_area_err:
      put8(polish, 0x2B + reference);
      put_zeros(polish, 8);
      return 0;
    case xop_array:
    case xop_empty:
      return 0;
    default:
      return KEL_ERR_GENERAL;
  }
}

uint32_t expr_write_formula(xls_file* file, unsigned char* buffer, uint32_t* token_length,
                            uint32_t* total_length, xls_sheet_t* sheet, int32_t row,
                            int32_t column, const xls_packed_expr_t* packed,
                            xls_write_context_t context, xls_expr_adaptor_t adaptor) {
  *token_length = *total_length = 0;
  const xls_expr_t* root = packed ? expr_root_expr(packed) : nullptr;
  if (!root || !buffer) return KEL_ERR_INVALID_ARGUMENT;
  polish_data_t polish = {};
  polish.buffer = buffer;
  polish.file = file;
  polish.sheet = sheet;
  polish.row = row;
  polish.column = column;
  polish.class_context = context == xls_write_cell || context == xls_write_shared ? 0
                         : context == xls_write_array                            ? 2
                                                                                 : 1;
  polish.context = context;
  polish.adaptor = adaptor;
  polish.arrays_info.element_size = sizeof(const xls_basic_value_t*);
  uint32_t status = expr_write_node(&polish, packed, root, 0, kTypeAny);
  if (!status) {
    *token_length = polish.at;
    write_array_data(&polish);
    *total_length = polish.at;
  }
  free(polish.arrays);
  return status;
}

/* ---- Functions the engine cannot compute ---------------------------------- */

/* Definitions may name each other in a circle: past this many steps into
 * other expressions the answer is "unsupported". */
enum { kMaxExpressionHops = 64 };

static bool contains_unsupported(const xls_packed_expr_t* packed, const xls_expr_t* node,
                                 int hops) {
  if (!packed) return false;
  if (!node) node = expr_root_expr(packed);
  if (!node) return false;
  switch (expr_op(node)) {
    case xop_eq: case xop_gt: case xop_lt: case xop_ge: case xop_le: case xop_ne:
    case xop_add: case xop_sub: case xop_mul: case xop_div: case xop_pow: case xop_concat:
    case xop_range: case xop_isect: {
      const xls_expr_t* left = expr_binary_left(packed, node);
      const xls_expr_t* right = expr_binary_right(packed, node);
      return (left && contains_unsupported(packed, left, hops)) ||
             (right && contains_unsupported(packed, right, hops));
    }
    case xop_neg: case xop_plus: case xop_percent: {
      const xls_expr_t* operand = expr_unary(packed, node);
      return operand && contains_unsupported(packed, operand, hops);
    }
    case xop_func: {
      const expr_func_desc_t* row = expr_func_row(node->u.func.number);
      if (!row || !row->handler) return true;
      for (uint32_t i = 0; i < expr_func_param_count(node); ++i) {
        const xls_expr_t* param = expr_func_param(packed, node, i);
        if (param && contains_unsupported(packed, param, hops)) return true;
      }
      return false;
    }
    case xop_shared:
      return hops >= kMaxExpressionHops ||
             (node->u.shared && contains_unsupported(&node->u.shared->packed, nullptr, hops + 1));
    case xop_namex:
      return hops >= kMaxExpressionHops ||
             contains_unsupported(expr_name_x_expr(node), nullptr, hops + 1);
    case xop_array:
      return hops >= kMaxExpressionHops ||
             contains_unsupported(&node->u.array.packed, nullptr, hops + 1);
    default:
      return false;
  }
}

bool xls_expr_contains_unsupported_function(const xls_packed_expr_t* packed,
                                            const xls_expr_t* node) {
  return contains_unsupported(packed, node, 0);
}
