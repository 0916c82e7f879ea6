/*
 * The BIFF8 formula reader: ptg tokens in reverse Polish order become a
 * packed tree.  Each operand token adds a node and pushes its index on the
 * workbook's operand stack; operators and functions pop their operands.
 *
 * Every byte is checked against the block before it is read: a token that
 * runs past the end, an operand missing from the stack or a token the tree
 * cannot express refuses the whole formula with KEL_ERR_UNSUPPORTED.
 */
#include <stdlib.h>
#include <string.h>

#include "formula/xls_formula_codec.h"
#include "formula/xls_func_table.h"
#include "kel_status.h"
#include "platform/zuv_platform.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

/* Nodes the scratch array starts with: most formulas fit, and the block is
 * kept from formula to formula. */
enum { kScratchNodes = 300 };

/* IF branches nest by recursion; deeper nesting than any spreadsheet
 * program writes is refused rather than run down the machine stack. */
enum { kMaxIfDepth = 255 };

/* ptgAttr flag bits. */
enum {
  kAttrVolatile = 0x01,
  kAttrIf = 0x02,
  kAttrChoose = 0x04,
  kAttrGoto = 0x08,
  kAttrSum = 0x10,
  kAttrSpace = 0x40
};

enum { kFunctionSum = 4 };

struct read_state {
  xls_file* file;
  xls_sheet_t* sheet;
  const biff_formula* formula;
  dynamic_expr_t* scratch;
  const unsigned char* bytes;
  uint32_t array_at;    /* the next array constant behind the tokens */
  uint32_t total_length;
  bool* has_unsupported;
  bool finished;        /* a token ended the formula early */
  int depth;
};

static double le_double(const unsigned char* bytes) {
  /* ARM EABI and x86 both hold a double as a little-endian 64-bit word. */
  uint64_t bits = get_le32(bytes) | (static_cast<uint64_t>(get_le32(bytes + 4)) << 32);
  double value;
  memcpy(&value, &bits, sizeof value);
  return value;
}

static uint32_t push(read_state* state, uint16_t index) {
  void* data = state->file->expr_stack;
  uint32_t status = xls_array_push(&state->file->expr_stack_info, &data, &index);
  state->file->expr_stack = static_cast<uint16_t*>(data);
  return status;
}

static uint32_t pop(read_state* state, uint16_t* index) {
  xls_array_info& info = state->file->expr_stack_info;
  if (info.count == 0) return KEL_ERR_UNSUPPORTED;
  *index = state->file->expr_stack[--info.count];
  return 0;
}

static uint32_t new_node(read_state* state, xls_expr_op_t op, uint16_t* index,
                         xls_expr_t** node) {
  uint32_t status = expr_d_create(state->scratch, op, index);
  if (status) return status;
  *node = expr_d_from_idx(state->scratch, *index);
  return 0;
}

uint32_t xls_expr_make_function(xls_array_info* stack_info, uint16_t** stack,
                                dynamic_expr_t* scratch, uint32_t number, uint32_t count,
                                uint16_t* index, bool* has_unsupported) {
  const expr_func_desc_t* row = expr_func_row(number);
  if (!row || number == EXPR_FUNC_EXTENSION_SLOT) return KEL_ERR_UNSUPPORTED;
  if (row->flags & XLS_FUNC_FIXED) count = row->fixed_count;
  if (count > static_cast<uint32_t>(stack_info->count))
    count = static_cast<uint32_t>(stack_info->count);
  uint32_t status = expr_d_create(scratch, xop_func, index);
  if (status) return status;
  /* The parameters lie on the stack in their order already. */
  stack_info->count -= static_cast<int>(count);
  status = expr_set_func_family(expr_d_from_idx(scratch, *index), number,
                                *stack + stack_info->count, count);
  if (status) return status;
  if (!row->handler) *has_unsupported = true;
  void* data = *stack;
  status = xls_array_push(stack_info, &data, index);
  *stack = static_cast<uint16_t*>(data);
  return status;
}

/* A function node from the workbook's operand stack. */
static uint32_t make_function(read_state* state, uint32_t number, uint32_t count,
                              uint16_t* index) {
  return xls_expr_make_function(&state->file->expr_stack_info, &state->file->expr_stack,
                                state->scratch, number, count, index, state->has_unsupported);
}

xls_expr_op_t expr_xls2expr_conv(uint8_t token) {
  switch (token) {
    case 0x03: return xop_add;
    case 0x04: return xop_sub;
    case 0x05: return xop_mul;
    case 0x06: return xop_div;
    case 0x07: return xop_pow;
    case 0x08: return xop_concat;
    case 0x09: return xop_lt;
    case 0x0A: return xop_le;
    case 0x0B: return xop_eq;
    case 0x0C: return xop_ge;
    case 0x0D: return xop_gt;
    case 0x0E: return xop_ne;
    case 0x0F: return xop_isect;
    case 0x11: return xop_range;
    case 0x12: return xop_plus;
    case 0x13: return xop_neg;
    case 0x14: return xop_percent;
    default: return xop_unknown;
  }
}

/* Pushes a new constant node; *value is filled by the caller. */
static uint32_t push_constant(read_state* state, xls_value_t** value) {
  uint16_t index = 0;
  xls_expr_t* node = nullptr;
  uint32_t status = new_node(state, xop_constant, &index, &node);
  if (status) return status;
  *value = &node->u.constant;
  return push(state, index);
}

static uint32_t push_error(read_state* state, biff_error_t code) {
  xls_value_t* value = nullptr;
  uint32_t status = push_constant(state, &value);
  if (!status) xls_value_error(value, code);
  return status;
}

/* Characters of a BIFF string body: one byte each, or two when wide. */
static unsigned short* copy_chars(const unsigned char* bytes, uint32_t count, bool wide) {
  unsigned short* text = static_cast<unsigned short*>(malloc((count + 1) * sizeof *text));
  if (!text) return nullptr;
  for (uint32_t i = 0; i < count; ++i) text[i] = wide ? get_le16(bytes + 2 * i) : bytes[i];
  text[count] = 0;
  return text;
}

/* One array constant from behind the tokens, in the order of the ptgArray
 * tokens. */
static uint32_t read_array_constant(read_state* state, xls_value_t* value) {
  const unsigned char* bytes = state->bytes;
  uint32_t at = state->array_at, end = state->total_length;
  if (end - at < 3) return KEL_ERR_UNSUPPORTED;
  uint32_t columns = bytes[at] + 1u, rows = get_le16(bytes + at + 1) + 1u;
  at += 3;
  /* The smallest element, an empty string, takes 4 bytes: a count the
   * block cannot hold is refused before anything is allocated. */
  if (rows > 0xFFFF || static_cast<uint64_t>(rows) * columns * 4 > end - at)
    return KEL_ERR_UNSUPPORTED;
  uint32_t status = xls_value_array(value, static_cast<uint16_t>(rows),
                                    static_cast<uint16_t>(columns));
  if (status) return status;
  xls_basic_value_t* element = value->u.basic.u.array.elements;
  for (uint32_t i = 0; !status && i < rows * columns; ++i, ++element) {
    if (at == end) {
      status = KEL_ERR_UNSUPPORTED;
      break;
    }
    uint8_t type = bytes[at++];
    if (type == 2) {
      if (end - at < 3) {
        status = KEL_ERR_UNSUPPORTED;
        break;
      }
      uint32_t count = get_le16(bytes + at);
      bool wide = bytes[at + 2] == 1;
      at += 3;
      uint32_t size = count * (wide ? 2u : 1u);
      if (end - at < size) {
        status = KEL_ERR_UNSUPPORTED;
        break;
      }
      element->u.string = copy_chars(bytes + at, count, wide);
      if (!element->u.string) status = KEL_ERR_OUT_OF_MEMORY;
      else element->kind = bvt_string;
      at += size;
      continue;
    }
    if (end - at < 8) {
      status = KEL_ERR_UNSUPPORTED;
      break;
    }
    switch (type) {
      case 1:
        element->kind = bvt_double;
        element->u.double_value = le_double(bytes + at);
        break;
      case 4:
        element->kind = bvt_bool;
        element->u.boolean = bytes[at] ? 1 : 0;
        break;
      case 16:
        element->kind = bvt_error;
        element->u.error = bytes[at];
        break;
      default:
        status = KEL_ERR_UNSUPPORTED;
        break;
    }
    at += 8;
  }
  if (status) {
    xls_free_value(value);
    return status;
  }
  state->array_at = at;
  return 0;
}

static bool is_own_sheet(const xls_sheet_t* sheet) {
  return sheet && sheet != XLS_EXTERN_DELETED && sheet != XLS_EXTERN_WORKBOOK;
}

/* A three-dimensional reference's sheets, or false when the entry names a
 * deleted sheet, another workbook or nothing. */
static bool resolve_sheets(const read_state* state, uint16_t sheet_ref, xls_sheet_t** first,
                           xls_sheet_t** last) {
  if (xls_externsheet_readref(state->file, sheet_ref, first, last)) return false;
  return is_own_sheet(*first) && is_own_sheet(*last);
}

/* Bytes of operand data behind each fixed-size token; -1 for tokens that
 * carry data of their own length or are refused. */
static int operand_size(uint8_t token) {
  switch (token) {
    case 0x01: return 4;  /* ptgExp */
    case 0x15: case 0x16: return 0;
    case 0x1C: case 0x1D: return 1;
    case 0x1E: return 2;
    case 0x1F: return 8;
    case 0x20: return 7;
    case 0x21: return 2;
    case 0x22: return 3;
    case 0x23: return 4;
    case 0x24: case 0x2C: return 4;
    case 0x25: case 0x2D: return 8;
    case 0x29: return 2;
    case 0x2A: return 4;
    case 0x2B: return 8;
    case 0x39: return 6;
    case 0x3A: return 6;
    case 0x3B: return 10;
    case 0x3D: return 10;
    default: return -1;
  }
}

static uint32_t expr_read_formula_part(read_state* state, uint32_t at, uint32_t end);

/* ptgAttr at bytes[at] (behind the token byte): flags and a word. */
static uint32_t read_attr(read_state* state, uint32_t* at, uint32_t end) {
  if (end - *at < 3) return KEL_ERR_UNSUPPORTED;
  uint8_t flags = state->bytes[*at];
  uint32_t word = get_le16(state->bytes + *at + 1);
  *at += 3;
  if (flags == 0 || (flags & ~(kAttrVolatile | kAttrIf | kAttrChoose | kAttrGoto | kAttrSum |
                               kAttrSpace)))
    return KEL_ERR_UNSUPPORTED;
  uint32_t status = 0;
  if (flags & kAttrIf) {
    if (word == 0) {
      xls_value_t* value = nullptr;
      status = push_constant(state, &value);
      if (!status) xls_value_string(value, nullptr);
    } else {
      /* The branch taken when true, with the goto that ends it, is read
       * onto the same stack; the condition is already there and the rest
       * of the IF follows, so the function token finds all its branches. */
      if (end - *at < word || state->depth >= kMaxIfDepth) return KEL_ERR_UNSUPPORTED;
      state->depth += 1;
      status = expr_read_formula_part(state, *at, *at + word);
      state->depth -= 1;
      *at += word;
    }
    if (status) return status;
  }
  if (flags & kAttrChoose) {
    /* The jump table: every choice is read in order, so the jumps that
     * leave each choice for the function token have nothing to do. */
    uint32_t table = (word + 1) * 2;
    if (end - *at < table) return KEL_ERR_UNSUPPORTED;
    *at += table;
  }
  /* kAttrGoto: the jump from a branch to its function token; reading in
   * order reaches the same token.  kAttrVolatile and kAttrSpace change
   * nothing in the tree. */
  if (flags & kAttrSum) {
    uint16_t index = 0;
    status = make_function(state, kFunctionSum, 1, &index);
  }
  return status;
}

static uint32_t read_binary(read_state* state, xls_expr_op_t op) {
  uint16_t left = 0, right = 0, index = 0;
  xls_expr_t* node = nullptr;
  uint32_t status = pop(state, &right);
  if (!status) status = pop(state, &left);
  if (!status) status = new_node(state, op, &index, &node);
  if (status) return status;
  expr_set_ptg_binary_family(node, left, right);
  return push(state, index);
}

static uint32_t read_unary(read_state* state, xls_expr_op_t op) {
  uint16_t operand = 0, index = 0;
  xls_expr_t* node = nullptr;
  uint32_t status = pop(state, &operand);
  if (!status) status = new_node(state, op, &index, &node);
  if (status) return status;
  expr_set_ptg_unary_family(node, operand);
  return push(state, index);
}

static uint32_t read_string(read_state* state, uint32_t* at, uint32_t end) {
  const unsigned char* bytes = state->bytes + *at;
  if (end - *at < 2) return KEL_ERR_UNSUPPORTED;
  uint32_t count = bytes[0];
  bool wide = bytes[1] & 0x01;
  uint32_t size = 2 + count * (wide ? 2u : 1u);
  if (end - *at < size) return KEL_ERR_UNSUPPORTED;
  unsigned short* text = copy_chars(bytes + 2, count, wide);
  if (!text) return KEL_ERR_OUT_OF_MEMORY;
  *at += size;
  xls_value_t* value = nullptr;
  uint32_t status = push_constant(state, &value);
  if (status) {
    free(text);
    return status;
  }
  xls_value_string(value, text);
  return 0;
}

/* ptgExp: the cell takes part in a shared or array formula. */
static uint32_t read_exp(read_state* state, const unsigned char* bytes) {
  uint32_t row = get_le16(bytes), column = get_le16(bytes + 2);
  /* Only a formula of this one token can stand for its group. */
  if (!state->sheet || column > 0xFF || state->scratch->info.count != 0)
    return KEL_ERR_UNSUPPORTED;
  xls_apos_sheet position = {state->sheet, static_cast<uint16_t>(row),
                             static_cast<uint8_t>(column)};
  xls_shared_expr* record = xls_shared_expr_get(&position);
  if (!record) return KEL_ERR_UNSUPPORTED;
  uint16_t index = 0;
  xls_expr_t* node = nullptr;
  uint32_t status = new_node(state, xop_shared, &index, &node);
  if (status) return status;
  node->u.shared = record;
  if (record->flags & (XLS_SHARED_ARRAY | XLS_SHARED_NOT_COMPUTED)) *state->has_unsupported = true;
  state->finished = true;
  return push(state, index);
}

static uint32_t read_ref(read_state* state, uint8_t token, const unsigned char* bytes) {
  const biff_formula& cell = *state->formula;
  uint16_t index = 0;
  xls_expr_t* node = nullptr;
  uint32_t status = 0;
  switch (token) {
    case 0x24:
    case 0x2C: {
      xls_cell_ref_t ref;
      expr_get_ref(get_le16(bytes), get_le16(bytes + 2), cell.row, cell.column, token == 0x2C,
                   &ref);
      status = new_node(state, xop_cellref, &index, &node);
      if (!status) expr_set_ref_family(node, &ref);
      break;
    }
    case 0x25:
    case 0x2D: {
      xls_range_ref_t range;
      bool shared = token == 0x2D;
      expr_get_ref(get_le16(bytes), get_le16(bytes + 4), cell.row, cell.column, shared,
                   &range.first);
      expr_get_ref(get_le16(bytes + 2), get_le16(bytes + 6), cell.row, cell.column, shared,
                   &range.second);
      status = new_node(state, xop_constant, &index, &node);
      if (!status) status = expr_set_area_family(node, &range);
      break;
    }
    case 0x3A: {
      uint16_t sheet_ref = get_le16(bytes), row = get_le16(bytes + 2),
               column = get_le16(bytes + 4);
      xls_sheet_t *first = nullptr, *last = nullptr;
      if (!resolve_sheets(state, sheet_ref, &first, &last)) {
        /* Kept as read, so that writing gives the same bytes back. */
        status = new_node(state, xop_ref3d_bad, &index, &node);
        if (!status) node->u.ref3d_bad = {sheet_ref, row, column};
        break;
      }
      xls_cell_ref_t ref;
      expr_get_ref(row, column, cell.row, cell.column, false, &ref);
      ref.sheet = first;
      if (first == last) {
        status = new_node(state, xop_cellref, &index, &node);
        if (!status) expr_set_ref_family(node, &ref);
      } else {
        xls_range_ref_t range = {ref, ref};
        range.second.sheet = last;
        status = new_node(state, xop_constant, &index, &node);
        if (!status) status = expr_set_area_family(node, &range);
      }
      break;
    }
    case 0x3B: {
      xls_sheet_t *first = nullptr, *last = nullptr;
      if (!resolve_sheets(state, get_le16(bytes), &first, &last))
        return push_error(state, xls_error_ref);
      xls_range_ref_t range;
      expr_get_ref(get_le16(bytes + 2), get_le16(bytes + 6), cell.row, cell.column, false,
                   &range.first);
      expr_get_ref(get_le16(bytes + 4), get_le16(bytes + 8), cell.row, cell.column, false,
                   &range.second);
      range.first.sheet = first;
      range.second.sheet = last;
      status = new_node(state, xop_constant, &index, &node);
      if (!status) status = expr_set_area_family(node, &range);
      break;
    }
    default: {  /* 0x3D, ptgAreaErr3d */
      uint16_t sheet_ref = get_le16(bytes);
      xls_sheet_t *first = nullptr, *last = nullptr;
      if (xls_externsheet_readref(state->file, sheet_ref, &first, &last))
        first = last = nullptr;
      status = new_node(state, xop_area3d_err, &index, &node);
      if (!status) {
        node->u.area_err.first = first;
        node->u.area_err.last = last;
        node->u.area_err.sheet_ref = sheet_ref;
      }
      break;
    }
  }
  if (status) return status;
  return push(state, index);
}

static uint32_t read_name(read_state* state, uint8_t token, const unsigned char* bytes) {
  uint16_t sheet_ref = 0, number = 0;
  if (token == 0x39) {
    sheet_ref = get_le16(bytes);
    number = get_le16(bytes + 2);
    /* Only a name of the workbook itself: an entry of the own SUPBOOK that
     * names the workbook, not a sheet.  The same index in another
     * workbook's entry is one of that workbook's names. */
    xls_sheet_t *first = nullptr, *last = nullptr;
    if (xls_externsheet_readref(state->file, sheet_ref, &first, &last) ||
        first != XLS_EXTERN_WORKBOOK || last != XLS_EXTERN_WORKBOOK ||
        state->file->externsheets[sheet_ref].supbook != state->file->own_supbook)
      return KEL_ERR_UNSUPPORTED;
  } else {
    number = get_le16(bytes);
  }
  xls_expr_named_t* named = xls_named_get_by_index(state->file, number);
  if (!named) return KEL_ERR_UNSUPPORTED;
  uint16_t index = 0;
  xls_expr_t* node = nullptr;
  uint32_t status = new_node(state, token == 0x39 ? xop_namex : xop_name, &index, &node);
  if (status) return status;
  expr_set_name(node, number, named);
  node->u.name.sheet_ref = sheet_ref;
  return push(state, index);
}

/* The operand of a fixed-size token, at bytes (its data). */
static uint32_t read_operand(read_state* state, uint8_t token, const unsigned char* bytes) {
  xls_value_t* value = nullptr;
  uint32_t status = 0;
  switch (token) {
    case 0x01:
      return read_exp(state, bytes);
    case 0x15: /* parentheses come back from precedence when writing */
    case 0x29: /* ptgMemFunc: its contents follow as plain tokens */
      return 0;
    case 0x16: {
      uint16_t index = 0;
      xls_expr_t* node = nullptr;
      status = new_node(state, xop_missing, &index, &node);
      return status ? status : push(state, index);
    }
    case 0x1C:
      return push_error(state, bytes[0]);
    case 0x1D:
      status = push_constant(state, &value);
      if (!status) xls_value_bool(value, bytes[0] != 0);
      return status;
    case 0x1E:
      status = push_constant(state, &value);
      if (!status) xls_value_long(value, get_le16(bytes));
      return status;
    case 0x1F:
      status = push_constant(state, &value);
      if (!status) xls_value_double(value, le_double(bytes));
      return status;
    case 0x20:
      status = push_constant(state, &value);
      if (!status) status = read_array_constant(state, value);
      return status;
    case 0x21:
    case 0x22: {
      uint16_t index = 0;
      if (token == 0x21) {
        const expr_func_desc_t* row = expr_func_row(get_le16(bytes));
        return make_function(state, get_le16(bytes), row ? row->fixed_count : 0, &index);
      }
      return make_function(state, get_le16(bytes + 1), bytes[0] & 0x7F, &index);
    }
    case 0x23:
    case 0x39:
      return read_name(state, token, bytes);
    case 0x2A:
    case 0x2B:
      return push_error(state, xls_error_ref);
    default:
      return read_ref(state, token, bytes);
  }
}

/* Reads the tokens from at up to end onto the stack. */
static uint32_t expr_read_formula_part(read_state* state, uint32_t at, uint32_t end) {
  const unsigned char* bytes = state->bytes;
  while (at < end && !state->finished) {
    uint8_t raw = bytes[at++];
    if (raw & 0x80) {
      state->finished = true;
      break;
    }
    /* The class bits (reference, value, array) don't change the tree. */
    uint8_t token = (raw & 0x40) ? static_cast<uint8_t>((raw & 0x1F) | 0x20)
                                 : static_cast<uint8_t>(raw & 0x3F);
    uint32_t status = 0;
    xls_expr_op_t op = expr_xls2expr_conv(token);
    if (token >= 0x03 && token <= 0x11 && op != xop_unknown) {
      status = read_binary(state, op);
    } else if (token >= 0x12 && token <= 0x14) {
      status = read_unary(state, op);
    } else if (token == 0x17) {
      status = read_string(state, &at, end);
    } else if (token == 0x19) {
      status = read_attr(state, &at, end);
    } else {
      int size = operand_size(token);
      if (size < 0 || end - at < static_cast<uint32_t>(size)) return KEL_ERR_UNSUPPORTED;
      status = read_operand(state, token, bytes + at);
      at += static_cast<uint32_t>(size);
    }
    if (status) return status;
  }
  return 0;
}

/* Leaves the scratch block empty for the next formula, its nodes freed. */
static void reset_scratch(dynamic_expr_t* scratch) {
  for (int i = 0; i < scratch->info.count; ++i) expr_free(&scratch->nodes[i]);
  scratch->info.count = 0;
}

uint32_t expr_read_formula(xls_file* file, xls_sheet_t* sheet, const unsigned char* bytes,
                           uint32_t length, uint32_t total_length,
                           const biff_formula* formula, dynamic_expr_t* scratch,
                           xls_packed_expr_t* packed, bool* has_unsupported) {
  *has_unsupported = false;
  memset(packed, 0, sizeof *packed);
  if (!file || !formula || !scratch || (length && !bytes)) return KEL_ERR_INVALID_ARGUMENT;
  if (length > total_length) return KEL_ERR_UNSUPPORTED;
  if (length == 0) return 0;
  if (!scratch->nodes) {
    scratch->nodes = static_cast<xls_expr_t*>(malloc(kScratchNodes * sizeof(xls_expr_t)));
    if (!scratch->nodes) return KEL_ERR_OUT_OF_MEMORY;
    scratch->info = xls_array_info{static_cast<int>(sizeof(xls_expr_t)), kScratchNodes, 0};
  }
  scratch->info.count = 0;
  file->expr_stack_info.count = 0;

  read_state state = {};
  state.file = file;
  state.sheet = sheet;
  state.formula = formula;
  state.scratch = scratch;
  state.bytes = bytes;
  state.array_at = length;
  state.total_length = total_length;
  state.has_unsupported = has_unsupported;
  uint32_t status = expr_read_formula_part(&state, 0, length);
  uint32_t count = static_cast<uint32_t>(scratch->info.count);
  /* A whole formula leaves exactly its root, the last node, on the stack. */
  if (!status && count && file->expr_stack_info.count != 1) status = KEL_ERR_UNSUPPORTED;
  if (!status && count) {
    if (count < kScratchNodes) {
      xls_expr_t* nodes = static_cast<xls_expr_t*>(malloc(count * sizeof *nodes));
      if (!nodes) {
        status = KEL_ERR_OUT_OF_MEMORY;
      } else {
        memcpy(nodes, scratch->nodes, count * sizeof *nodes);
        scratch->info.count = 0;
        packed->nodes = nodes;
      }
    } else {
      /* A large formula takes the block, trimmed to its nodes (or as it is
       * if the heap cannot trim it); the next formula starts a new one. */
      xls_expr_t* nodes =
          static_cast<xls_expr_t*>(realloc(scratch->nodes, count * sizeof *nodes));
      packed->nodes = nodes ? nodes : scratch->nodes;
      expr_d_init(scratch);
    }
    if (!status) packed->count = static_cast<uint16_t>(count);
  }
  file->expr_stack_info.count = 0;
  if (status) {
    reset_scratch(scratch);
    *has_unsupported = false;
    if (status != KEL_ERR_OUT_OF_MEMORY) status = KEL_ERR_UNSUPPORTED;
  }
  return status;
}
