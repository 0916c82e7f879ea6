/*
 * xls_parser.y -- formula text to a tree.
 *
 * A LALR grammar with its lexer written by hand below.  The lexer makes the
 * nodes of the operands it reads (references, numbers, strings, errors);
 * the rules make operators, functions, names and arrays, so that every
 * node is made after its children and the root comes last.  A word's
 * meaning -- value, defined name, function or sheet -- is decided by the
 * rule that takes it, which reads the word from the text by its location.
 *
 * formula/xls_parser.cpp is made from this file, in the source root, by
 *   bison -o formula/xls_parser.cpp formula/xls_parser.y
 * and kept in the tree, so that a build needs no bison.
 */

%code top {
/* Made by bison from formula/xls_parser.y: change the grammar, not this
 * file (bison -o formula/xls_parser.cpp formula/xls_parser.y). */
}

%code requires {
#include <stdint.h>

struct xls_parser_state;

/* An array constant while its rows are read. */
struct xls_parser_shape {
  uint32_t rows, columns;
};
}

%code {
#include <stdlib.h>

#include "format/kel_locale.h"
#include "format/xls_edit_string.h"
#include "formula/xls_formula_codec.h"
#include "formula/xls_formula_text.h"
#include "formula/xls_func_table.h"
#include "foundation/zuv_uni_string.h"
#include "kel_status.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

struct xls_parser_state {
  const unsigned short* input; /* the next character to read */
  const unsigned short* start; /* the text */
  xls_sheet_t* sheet;          /* the formula's cell */
  int32_t row;
  int32_t column;
  const xls_locale* locale;
  dynamic_expr_t nodes;        /* the root is the last one made */
  xls_parser_error_t* error;
  xls_file* file;
  uint32_t length;             /* of the text */
  uint32_t status;             /* a failure that is no syntax error */
  /* Node indexes of list and array elements read so far, in order; an
   * omitted list element is kMissing. */
  xls_array_info elements_info;
  uint16_t* elements;
  uint32_t token_start;        /* of the last token read: where a syntax error is */
  bool after_operand;          /* the last token can end an operand */
};

enum { kMissing = 0xFFFF };

static int yylex(YYSTYPE* value, YYLTYPE* location, xls_parser_state* state);
static void yyerror(YYLTYPE* location, xls_parser_state* state, const char* message);

/* Rule actions: false ends the parse, with state->status or the error
 * record set. */
static bool make_binary(xls_parser_state* state, xls_expr_op_t op, uint16_t left,
                        uint16_t right, uint16_t* index);
static bool make_unary(xls_parser_state* state, xls_expr_op_t op, uint16_t operand,
                       uint16_t* index);
static bool make_quoted_string(xls_parser_state* state, const YYLTYPE* word, uint16_t* index);
static bool make_word(xls_parser_state* state, const YYLTYPE* word, uint16_t* index);
static bool make_sheet_name(xls_parser_state* state, const YYLTYPE* sheet, bool quoted,
                            const YYLTYPE* word, uint16_t* index);
static bool make_call(xls_parser_state* state, const YYLTYPE* word, uint32_t count,
                      const YYLTYPE* close, uint16_t* index);
static bool make_parenthesised(xls_parser_state* state, uint32_t count, const YYLTYPE* close,
                               uint16_t* index);
static bool push_element(xls_parser_state* state, uint16_t index);
static bool make_array(xls_parser_state* state, xls_parser_shape shape, const YYLTYPE* close,
                       uint16_t* index);
static bool add_row(xls_parser_state* state, xls_parser_shape* shape, uint32_t columns,
                    const YYLTYPE* row);
static bool make_element_word(xls_parser_state* state, const YYLTYPE* word, uint16_t* index);
static void negate_number(xls_parser_state* state, uint16_t index);

#define CHECK(call) \
  do {              \
    if (!(call)) YYABORT; \
  } while (0)
}

%define api.pure full
%define api.token.prefix {XLS_TOKEN_}
%locations
%param {xls_parser_state* state}

%union {
  uint16_t node;
  uint32_t count;
  xls_parser_shape shape;
}

/* Operands whose node the lexer has made. */
%token <node> REFERENCE NUMBER STRING ERROR_VALUE
/* Operands that a rule reads from the text by their location. */
%token WORD SQSTRING
%token COMMA SEMICOLON ISECT GE LE NE

%type <node> expr element
%type <count> list row
%type <shape> rows

/* Binding strength, low to high.  "^" is right-associative as the printer
 * reads it: 2^3^4 is 2^(3^4), and (2^3)^4 keeps its parentheses. */
%left '=' '<' '>' GE LE NE
%left '&'
%left '+' '-'
%left '*' '/'
%right '^'
%precedence '%'
%precedence PREFIX
%left ISECT
%left ':'

%%

formula:
  expr
;

expr:
  REFERENCE
| NUMBER
| STRING
| ERROR_VALUE
| SQSTRING { CHECK(make_quoted_string(state, &@1, &$$)); }
| WORD { CHECK(make_word(state, &@1, &$$)); }
| WORD '!' WORD { CHECK(make_sheet_name(state, &@1, false, &@3, &$$)); }
| SQSTRING '!' WORD { CHECK(make_sheet_name(state, &@1, true, &@3, &$$)); }
| WORD '(' list ')' { CHECK(make_call(state, &@1, $3, &@4, &$$)); }
| '(' list ')' { CHECK(make_parenthesised(state, $2, &@3, &$$)); }
| '{' rows '}' { CHECK(make_array(state, $2, &@3, &$$)); }
| expr '=' expr { CHECK(make_binary(state, xop_eq, $1, $3, &$$)); }
| expr '<' expr { CHECK(make_binary(state, xop_lt, $1, $3, &$$)); }
| expr '>' expr { CHECK(make_binary(state, xop_gt, $1, $3, &$$)); }
| expr GE expr { CHECK(make_binary(state, xop_ge, $1, $3, &$$)); }
| expr LE expr { CHECK(make_binary(state, xop_le, $1, $3, &$$)); }
| expr NE expr { CHECK(make_binary(state, xop_ne, $1, $3, &$$)); }
| expr '&' expr { CHECK(make_binary(state, xop_concat, $1, $3, &$$)); }
| expr '+' expr { CHECK(make_binary(state, xop_add, $1, $3, &$$)); }
| expr '-' expr { CHECK(make_binary(state, xop_sub, $1, $3, &$$)); }
| expr '*' expr { CHECK(make_binary(state, xop_mul, $1, $3, &$$)); }
| expr '/' expr { CHECK(make_binary(state, xop_div, $1, $3, &$$)); }
| expr '^' expr { CHECK(make_binary(state, xop_pow, $1, $3, &$$)); }
| expr ISECT expr { CHECK(make_binary(state, xop_isect, $1, $3, &$$)); }
| expr ':' expr { CHECK(make_binary(state, xop_range, $1, $3, &$$)); }
| expr '%' { CHECK(make_unary(state, xop_percent, $1, &$$)); }
| '-' expr %prec PREFIX { CHECK(make_unary(state, xop_neg, $2, &$$)); }
| '+' expr %prec PREFIX { CHECK(make_unary(state, xop_plus, $2, &$$)); }
;

/* Elements go onto state->elements; the value is their count. */
list:
  item { $$ = 1; }
| list separator item { $$ = $1 + 1; }
;

item:
  %empty { CHECK(push_element(state, kMissing)); }
| expr { CHECK(push_element(state, $1)); }
;

separator:
  COMMA
| SEMICOLON
;

rows:
  row { $$.rows = 1; $$.columns = $1; }
| rows SEMICOLON row { $$ = $1; CHECK(add_row(state, &$$, $3, &@3)); }
;

row:
  element { CHECK(push_element(state, $1)); $$ = 1; }
| row COMMA element { CHECK(push_element(state, $3)); $$ = $1 + 1; }
;

element:
  NUMBER
| '-' NUMBER { negate_number(state, $2); $$ = $2; }
| STRING
| ERROR_VALUE
| SQSTRING { CHECK(make_quoted_string(state, &@1, &$$)); }
| WORD { CHECK(make_element_word(state, &@1, &$$)); }
;

%%

/* ---- Failures ---------------------------------------------------------------- */

static bool fail(xls_parser_state* state, uint32_t status) {
  state->status = status;
  return false;
}

static bool fail_at(xls_parser_state* state, uint32_t code, uint32_t start, uint32_t end) {
  state->error->code = code;
  state->error->start = start;
  state->error->end = end;
  return false;
}

/* Syntax errors are told by where the parse stopped (state->token_start),
 * not by bison's message. */
static void yyerror(YYLTYPE* location, xls_parser_state* state, const char* message) {
  (void)location;
  (void)state;
  (void)message;
}

/* After a syntax error at the last token: a ")" without its "(" (error 5),
 * or at the end of the text a "(" without its ")" (6) or an early end (7);
 * anything else is an unexpected character (8).  Parentheses inside
 * quotes don't count. */
static void find_matching_close(xls_parser_state* state) {
  uint32_t at = state->token_start;
  bool at_end = at >= state->length;
  if (!at_end && state->start[at] != ')') {
    fail_at(state, XLS_PARSE_UNEXPECTED, at, at + 1);
    return;
  }
  const unsigned short* p = state->start;
  const unsigned short* stop = p + (at_end ? state->length : at + 1);
  uint32_t depth = 0;
  while (p < stop) {
    if (*p == '"' || *p == '\'') {
      p = ucs2_cpy_unescape(nullptr, p);
      if (!p) break;
      continue;
    }
    if (*p == '(') {
      ++depth;
    } else if (*p == ')') {
      if (depth == 0) {
        uint32_t position = static_cast<uint32_t>(p - state->start);
        fail_at(state, XLS_PARSE_UNOPENED_PAREN, position, position + 1);
        return;
      }
      --depth;
    }
    ++p;
  }
  if (!at_end)
    fail_at(state, XLS_PARSE_UNEXPECTED, at, at + 1);
  else
    fail_at(state, depth ? XLS_PARSE_UNCLOSED_PAREN : XLS_PARSE_EARLY_END, state->length,
            state->length);
}

/* ---- Nodes ------------------------------------------------------------------- */

static bool new_node(xls_parser_state* state, xls_expr_op_t op, uint16_t* index,
                     xls_expr_t** node) {
  uint32_t status = expr_d_create(&state->nodes, op, index);
  if (status) return fail(state, status);
  *node = expr_d_from_idx(&state->nodes, *index);
  return true;
}

/* A constant node taking over value. */
static bool new_constant(xls_parser_state* state, xls_value_t* value, uint16_t* index) {
  xls_expr_t* node = nullptr;
  if (!new_node(state, xop_constant, index, &node)) {
    xls_free_value(value);
    return false;
  }
  node->u.constant = *value;
  return true;
}

static bool make_binary(xls_parser_state* state, xls_expr_op_t op, uint16_t left,
                        uint16_t right, uint16_t* index) {
  xls_expr_t* node = nullptr;
  if (!new_node(state, op, index, &node)) return false;
  expr_set_ptg_binary_family(node, left, right);
  return true;
}

static bool make_unary(xls_parser_state* state, xls_expr_op_t op, uint16_t operand,
                       uint16_t* index) {
  xls_expr_t* node = nullptr;
  if (!new_node(state, op, index, &node)) return false;
  expr_set_ptg_unary_family(node, operand);
  return true;
}

static const unsigned short* text_at(const xls_parser_state* state, const YYLTYPE* location) {
  return state->start + location->first_column;
}

static uint32_t text_length(const YYLTYPE* location) {
  return static_cast<uint32_t>(location->last_column - location->first_column);
}

/* A string in single quotes that names no sheet. */
static bool make_quoted_string(xls_parser_state* state, const YYLTYPE* word, uint16_t* index) {
  unsigned short* text = nullptr;
  if (!ucs2_cpy_unescape(&text, text_at(state, word))) return fail(state, KEL_ERR_OUT_OF_MEMORY);
  xls_value_t value;
  xls_value_string(&value, text);
  return new_constant(state, &value, index);
}

/* Whether the word spells a value -- the locale's true or false -- and
 * then the value; false only when memory runs out. */
static bool match_value(xls_parser_state* state, const YYLTYPE* word, xls_value_t* value,
                        bool* matched) {
  unsigned short* text = ucs2_dupl(text_at(state, word), text_length(word));
  if (!text) return fail(state, KEL_ERR_OUT_OF_MEMORY);
  *matched = xls_format_match_simple(text, state->locale, value) != 0;
  free(text);
  return true;
}

static bool make_name(xls_parser_state* state, xls_sheet_t* sheet, const YYLTYPE* word,
                      uint16_t* index) {
  uint32_t number = 0;
  xls_expr_named_t* named = xls_named_get_by_name(state->file, sheet, text_at(state, word),
                                                  text_length(word), &number);
  if (!named) return fail(state, KEL_ERR_GENERAL);
  xls_expr_t* node = nullptr;
  if (!new_node(state, xop_name, index, &node)) return false;
  expr_set_name(node, static_cast<uint16_t>(number), named);
  return true;
}

/* A word alone: a value such as TRUE, else a defined name. */
static bool make_word(xls_parser_state* state, const YYLTYPE* word, uint16_t* index) {
  xls_value_t value;
  bool matched = false;
  if (!match_value(state, word, &value, &matched)) return false;
  if (matched) return new_constant(state, &value, index);
  return make_name(state, state->sheet, word, index);
}

/* A defined name after a sheet name and "!": the sheet's own name first. */
static bool make_sheet_name(xls_parser_state* state, const YYLTYPE* sheet, bool quoted,
                            const YYLTYPE* word, uint16_t* index) {
  /* A quoted sheet name without its quotes. */
  uint32_t skip = quoted ? 1 : 0;
  xls_sheet_t* found = xls_find_sheet_by_name(state->file, text_at(state, sheet) + skip,
                                              text_length(sheet) - 2 * skip);
  if (!found) return fail(state, KEL_ERR_GENERAL);
  return make_name(state, found, word, index);
}

static bool push_element(xls_parser_state* state, uint16_t index) {
  void* data = state->elements;
  uint32_t status = xls_array_push(&state->elements_info, &data, &index);
  state->elements = static_cast<uint16_t*>(data);
  return status ? fail(state, status) : true;
}

/* The count of a list whose elements are on top of state->elements: a list
 * of one omitted element is the empty list. */
static uint32_t list_count(xls_parser_state* state, uint32_t count) {
  if (count == 1 && state->elements[state->elements_info.count - 1] == kMissing) {
    state->elements_info.count -= 1;
    return 0;
  }
  return count;
}

/* The function row whose name the word is, compared without case: the
 * locale's name where it has one, else the English one.  Null for a word
 * that names no function a cell can call. */
static const expr_func_desc_t* find_function(const xls_parser_state* state, const YYLTYPE* word,
                                             uint32_t* number) {
  const unsigned short* text = text_at(state, word);
  uint32_t length = text_length(word);
  for (uint32_t i = 0; i < expr_func_desc_count; ++i) {
    const expr_func_desc_t* row = &expr_func_desc[i];
    const unsigned short* name =
        state->locale && state->locale->function_names[i] ? state->locale->function_names[i]
                                                           : row->name;
    if (row->min_args < 0 || !name || ucs2_ncmpi(name, text, length) != 0 ||
        ucs2_len(name) != length)
      continue;
    *number = i;
    return row;
  }
  return nullptr;
}

enum { kFunctionIndex = 29 };

static bool is_array_constant(const xls_parser_state* state, uint16_t index) {
  const xls_expr_t* node = &state->nodes.nodes[index];
  return node->op == xop_constant && node->u.constant.kind == vt_basic &&
         node->u.constant.u.basic.kind == bvt_array;
}

static bool make_call(xls_parser_state* state, const YYLTYPE* word, uint32_t count,
                      const YYLTYPE* close, uint16_t* index) {
  count = list_count(state, count);
  uint32_t number = 0;
  const expr_func_desc_t* row = find_function(state, word, &number);
  if (!row) return fail(state, KEL_ERR_GENERAL);
  uint16_t* params = state->elements + state->elements_info.count - count;
  int32_t most = row->max_args;
  /* INDEX of an array has no area number. */
  if (number == kFunctionIndex && count && params[0] != kMissing &&
      is_array_constant(state, params[0]))
    most = 3;
  uint32_t position = static_cast<uint32_t>(close->last_column);
  if (count < static_cast<uint32_t>(row->min_args))
    return fail_at(state, XLS_PARSE_TOO_FEW_ARGS, position, position);
  if (count > static_cast<uint32_t>(most))
    return fail_at(state, XLS_PARSE_TOO_MANY_ARGS, position, position);
  for (uint32_t i = 0; i < count; ++i) {
    xls_expr_t* node = nullptr;
    if (params[i] == kMissing && !new_node(state, xop_missing, &params[i], &node)) return false;
  }
  bool unsupported = false;
  uint32_t status = xls_expr_make_function(&state->elements_info, &state->elements,
                                           &state->nodes, number, count, index, &unsupported);
  if (status) return fail(state, status);
  state->elements_info.count -= 1; /* the function's own index */
  return true;
}

/* "(" list ")": one element stands for itself; parentheses come back from
 * precedence when the tree is printed or written. */
static bool make_parenthesised(xls_parser_state* state, uint32_t count, const YYLTYPE* close,
                               uint16_t* index) {
  count = list_count(state, count);
  uint32_t position = static_cast<uint32_t>(close->last_column);
  if (count == 0) return fail_at(state, XLS_PARSE_EMPTY_PARENS, position - 2, position);
  if (count > 1) return fail_at(state, XLS_PARSE_UNION, position - 2, position);
  *index = state->elements[--state->elements_info.count];
  return true;
}

/* ---- Array constants --------------------------------------------------------- */

/* Columns of an array constant: the count byte of the file's tokens. */
enum { kMaxArrayColumns = 256 };

static bool add_row(xls_parser_state* state, xls_parser_shape* shape, uint32_t columns,
                    const YYLTYPE* row) {
  if (columns != shape->columns) {
    uint32_t position = static_cast<uint32_t>(row->last_column);
    return fail_at(state, XLS_PARSE_BAD_ARRAY, position, position);
  }
  shape->rows += 1;
  return true;
}

/* A word in an array: TRUE, FALSE or nothing. */
static bool make_element_word(xls_parser_state* state, const YYLTYPE* word, uint16_t* index) {
  xls_value_t value;
  bool matched = false;
  if (!match_value(state, word, &value, &matched)) return false;
  if (matched) return new_constant(state, &value, index);
  uint32_t position = static_cast<uint32_t>(word->last_column);
  return fail_at(state, XLS_PARSE_BAD_ARRAY, position, position);
}

/* "-" before a number of an array is part of the constant. */
static void negate_number(xls_parser_state* state, uint16_t index) {
  xls_basic_value_t* number = &state->nodes.nodes[index].u.constant.u.basic;
  if (number->kind == bvt_long)
    number->u.long_value = -number->u.long_value;
  else
    number->u.double_value = -number->u.double_value;
}

static bool make_array(xls_parser_state* state, xls_parser_shape shape, const YYLTYPE* close,
                       uint16_t* index) {
  if (shape.columns > kMaxArrayColumns) {
    uint32_t position = static_cast<uint32_t>(close->last_column);
    return fail_at(state, XLS_PARSE_BAD_ARRAY, position, position);
  }
  xls_value_t value;
  uint32_t status = xls_value_array(&value, static_cast<uint16_t>(shape.rows),
                                    static_cast<uint16_t>(shape.columns));
  if (status) return fail(state, status);
  uint32_t count = shape.rows * shape.columns;
  const uint16_t* elements = state->elements + state->elements_info.count - count;
  xls_basic_value_t* target = value.u.basic.u.array.elements;
  for (uint32_t i = 0; i < count; ++i) {
    xls_value_t* element = &state->nodes.nodes[elements[i]].u.constant;
    target[i] = element->u.basic;
    /* The file keeps an array's numbers as doubles only. */
    if (target[i].kind == bvt_long) {
      target[i].kind = bvt_double;
      target[i].u.double_value = element->u.basic.u.long_value;
    }
    xls_value_empty(element);
  }
  /* Nothing but elements is read between the braces, and the "}" is
   * reduced without a look ahead: the element nodes are the last ones made,
   * and go. */
  state->nodes.info.count = elements[0];
  state->elements_info.count -= static_cast<int>(count);
  return new_constant(state, &value, index);
}

/* ---- The lexer --------------------------------------------------------------- */

static bool is_blank(unsigned short c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

static bool is_digit(unsigned short c) { return c >= '0' && c <= '9'; }

static bool is_word_char(unsigned short c) {
  return xls_parser_isalnum(c) || c == '_' || c == '$' || c == '.';
}

static bool is_cell_char(unsigned short c) {
  return c == '$' || is_digit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

static unsigned short decimal_separator(const xls_parser_state* state) {
  return state->locale && state->locale->decimal_separator ? state->locale->decimal_separator
                                                           : '.';
}

/* "," separates arguments where it is no decimal separator. */
static bool comma_separates(const xls_parser_state* state) {
  return decimal_separator(state) == '.';
}

static int32_t remaining(const xls_parser_state* state, const unsigned short* p) {
  return static_cast<int32_t>(state->length - static_cast<uint32_t>(p - state->start));
}

/* A reference at p, or none: *is_reference false.  "A1:INDEX(...)" is no
 * reference as a whole, yet its first cell is one, and the ":" the range
 * operator. */
static uint32_t read_reference(xls_parser_state* state, const unsigned short* p, int32_t* used,
                               bool* is_reference, xls_reference* reference) {
  int32_t length = remaining(state, p);
  uint32_t status = xls_parse_reference(state->file, p, length, used, is_reference, reference);
  if (status || *is_reference) return status;
  int32_t end = *used;
  while (end < length && is_cell_char(p[end])) ++end;
  if (end == *used || end == length || p[end] != ':') return 0;
  return xls_parse_reference(state->file, p, end, used, is_reference, reference);
}

/* The blank before a single quote is the intersection when a reference
 * follows ('My sheet'!A1), and nothing before a quoted string. */
static bool reference_follows(xls_parser_state* state, const unsigned short* p) {
  int32_t used = 0;
  bool is_reference = false;
  xls_reference reference;
  if (xls_parse_reference(state->file, p, remaining(state, p), &used, &is_reference,
                          &reference) ||
      !is_reference)
    return false;
  xls_free_reference(&reference);
  return true;
}

/* Characters that can follow an operand: a blank before them is no
 * intersection. */
static bool stops_intersection(xls_parser_state* state, const unsigned short* p) {
  switch (*p) {
    case ')': case '+': case '-': case '*': case '/': case '&': case '^': case '<':
    case '=': case '>': case ':': case ',': case ';': case '%': case '"':
      return true;
    case '\'':
      return !reference_follows(state, p);
    default:
      return false;
  }
}

static xls_cell_ref_t cell_ref(const xls_parser_state* state, const xls_cell_reference* cell,
                               xls_sheet_t* sheet) {
  xls_cell_ref_t ref = {};
  ref.sheet = sheet;
  ref.row_relative = (cell->flags & XLS_CELL_REFERENCE_ROW_RELATIVE) ? 1 : 0;
  ref.column_relative = (cell->flags & XLS_CELL_REFERENCE_COLUMN_RELATIVE) ? 1 : 0;
  ref.row = ref.row_relative ? cell->row - state->row : cell->row;
  ref.column = ref.column_relative ? cell->column - state->column : cell->column;
  return ref;
}

/* One cell as xop_cellref, anything larger (or over several sheets) as a
 * range constant; "#REF!" anywhere puts it on the deleted sheet. */
static uint32_t make_reference(xls_parser_state* state, const xls_reference* reference,
                               uint16_t* index) {
  xls_sheet_t *first = nullptr, *last = nullptr;
  uint32_t flags = reference->cells[0].flags | (reference->has_second ? reference->cells[1].flags : 0u);
  if (reference->kind == XLS_REFERENCE_DELETED_SHEET || (flags & XLS_CELL_REFERENCE_ERROR)) {
    first = last = XLS_DELETED_SHEET;
  } else if (reference->kind != XLS_REFERENCE_NO_SHEET) {
    if (reference->sheets[0].foreign || reference->sheets[1].foreign)
      return KEL_ERR_EXTERNAL_REFERENCE;
    first = last = xls_sheet_handle(state->file, static_cast<uint32_t>(reference->sheets[0].index));
    if (reference->kind == XLS_REFERENCE_TWO_SHEETS)
      last = xls_sheet_handle(state->file, static_cast<uint32_t>(reference->sheets[1].index));
    uint16_t entry = 0;
    uint32_t status = xls_externsheet_refindex(state->file, first, last, &entry);
    if (status) return status;
  }
  xls_range_ref_t range;
  range.first = cell_ref(state, &reference->cells[0], first);
  range.second = cell_ref(state, &reference->cells[reference->has_second ? 1 : 0], last);
  uint32_t status = 0;
  if (!reference->has_second && first == last) {
    status = expr_d_create(&state->nodes, xop_cellref, index);
    if (!status) expr_set_ref_family(expr_d_from_idx(&state->nodes, *index), &range.first);
  } else {
    status = expr_d_create(&state->nodes, xop_constant, index);
    if (!status) status = expr_set_area_family(expr_d_from_idx(&state->nodes, *index), &range);
  }
  return status;
}

/* A number without sign: a long where it is digits only and fits 32 bits,
 * else a double. */
static bool read_number(xls_parser_state* state, const unsigned short* p,
                        const unsigned short** end, uint16_t* index) {
  unsigned short decimal = decimal_separator(state);
  const unsigned short* q = p;
  while (is_digit(*q)) ++q;
  bool real = false;
  if (*q == decimal) {
    real = true;
    for (++q; is_digit(*q);) ++q;
  }
  if (*q == 'e' || *q == 'E') {
    const unsigned short* exponent = q + 1;
    if (*exponent == '+' || *exponent == '-') ++exponent;
    if (is_digit(*exponent)) {
      real = true;
      for (q = exponent; is_digit(*q);) ++q;
    }
  }
  *end = q;
  xls_value_t value;
  long whole = 0;
  const unsigned short* stop = nullptr;
  if (!real && ucs2_tol(p, &stop, &whole) == 0) {
    xls_value_long(&value, static_cast<int32_t>(whole));
  } else {
    double number = 0;
    if (ucs2_tog(p, &stop, &number, decimal == ',') || stop != q) {
      uint32_t start = static_cast<uint32_t>(p - state->start);
      return fail_at(state, XLS_PARSE_BAD_NUMBER, start, static_cast<uint32_t>(q - state->start));
    }
    xls_value_double(&value, number);
  }
  return new_constant(state, &value, index);
}

/* A string in double quotes. */
static bool read_string(xls_parser_state* state, const unsigned short* p,
                        const unsigned short** end, uint16_t* index) {
  unsigned short* text = nullptr;
  *end = ucs2_cpy_unescape(&text, p);
  if (!*end) return fail(state, KEL_ERR_OUT_OF_MEMORY);
  xls_value_t value;
  xls_value_string(&value, text);
  return new_constant(state, &value, index);
}

/* Sets the token's location and where the next one starts. */
static int token(xls_parser_state* state, YYLTYPE* location, const unsigned short* start,
                 const unsigned short* end, int kind, bool ends_operand) {
  location->first_line = location->last_line = 1;
  location->first_column = static_cast<int>(start - state->start);
  location->last_column = static_cast<int>(end - state->start);
  state->input = end;
  state->after_operand = ends_operand;
  return kind;
}

/* An operator or punctuation of one or two characters; 0 for none. */
static int punctuation(const xls_parser_state* state, const unsigned short* p, int* size) {
  *size = 1;
  switch (*p) {
    case '+': case '-': case '*': case '/': case '^': case '&': case '=': case '%':
    case '(': case ')': case '{': case '}': case ':': case '!':
      return *p;
    case ';':
      return XLS_TOKEN_SEMICOLON;
    case ',':
      return comma_separates(state) ? XLS_TOKEN_COMMA : 0;
    case '<':
      if (p[1] == '=' || p[1] == '>') {
        *size = 2;
        return p[1] == '=' ? XLS_TOKEN_LE : XLS_TOKEN_NE;
      }
      return '<';
    case '>':
      if (p[1] == '=') {
        *size = 2;
        return XLS_TOKEN_GE;
      }
      return '>';
    default:
      return 0;
  }
}

static int yylex(YYSTYPE* value, YYLTYPE* location, xls_parser_state* state) {
  const unsigned short* blanks = state->input;
  const unsigned short* p = blanks;
  while (is_blank(*p)) ++p;
  state->token_start = static_cast<uint32_t>(p - state->start);
  if (!*p) return token(state, location, p, p, XLS_TOKEN_YYEOF, false);
  /* Blanks between two operands intersect them; anywhere else they are
   * only space. */
  if (p != blanks && state->after_operand && !stops_intersection(state, p))
    return token(state, location, blanks, p, XLS_TOKEN_ISECT, false);

  int size = 0;
  int kind = punctuation(state, p, &size);
  if (kind)
    return token(state, location, p, p + size, kind, kind == ')' || kind == '}' || kind == '%');

  int32_t used = 0;
  bool is_reference = false;
  xls_reference reference;
  uint32_t status = read_reference(state, p, &used, &is_reference, &reference);
  if (!status && is_reference) {
    status = make_reference(state, &reference, &value->node);
    xls_free_reference(&reference);
    if (!status) return token(state, location, p, p + used, XLS_TOKEN_REFERENCE, true);
  }
  /* A sheet that the workbook does not have fails as an unknown name does. */
  if (status) {
    fail(state, status == KEL_ERR_NOT_FOUND ? KEL_ERR_GENERAL : status);
    return token(state, location, p, p + 1, XLS_TOKEN_YYerror, false);
  }

  const unsigned short* end = p + 1;
  unsigned short decimal = decimal_separator(state);
  if (is_digit(*p) || (*p == decimal && is_digit(p[1]))) {
    if (!read_number(state, p, &end, &value->node))
      return token(state, location, p, end, XLS_TOKEN_YYerror, false);
    return token(state, location, p, end, XLS_TOKEN_NUMBER, true);
  }
  if (*p == '#') {
    biff_error_t code = 0;
    unsigned length = xls_match_error_str(p, static_cast<unsigned>(remaining(state, p)),
                                          state->locale, &code);
    if (!length) return token(state, location, p, end, XLS_TOKEN_YYerror, false);
    xls_value_t error;
    xls_value_error(&error, code);
    if (!new_constant(state, &error, &value->node))
      return token(state, location, p, end, XLS_TOKEN_YYerror, false);
    return token(state, location, p, p + length, XLS_TOKEN_ERROR_VALUE, true);
  }
  if (*p == '"' || *p == '\'') {
    end = ucs2_cpy_unescape(nullptr, p);
    if (!end) {
      fail_at(state, XLS_PARSE_STRING_NOT_CLOSED, state->token_start, state->length);
      return token(state, location, p, p + 1, XLS_TOKEN_YYerror, false);
    }
    if (*p == '\'') return token(state, location, p, end, XLS_TOKEN_SQSTRING, true);
    if (!read_string(state, p, &end, &value->node))
      return token(state, location, p, p + 1, XLS_TOKEN_YYerror, false);
    return token(state, location, p, end, XLS_TOKEN_STRING, true);
  }
  if (is_word_char(*p) && *p != '.') {
    while (is_word_char(*end)) ++end;
    return token(state, location, p, end, XLS_TOKEN_WORD, true);
  }
  return token(state, location, p, end, XLS_TOKEN_YYerror, false);
}

/* ---- The entry --------------------------------------------------------------- */

uint32_t xls_parser(const unsigned short* text, const xls_locale* locale, xls_sheet_t* sheet,
                    int32_t row, int32_t column, xls_parser_error_t* error,
                    xls_packed_expr_t* packed) {
  if (!text || !sheet || !error || !packed) return KEL_ERR_INVALID_ARGUMENT;
  *error = xls_parser_error_t{};
  xls_parser_state state = {};
  state.input = state.start = text;
  state.sheet = sheet;
  state.row = row;
  state.column = column;
  state.locale = locale;
  expr_d_init(&state.nodes);
  state.error = error;
  state.file = sheet->workbook;
  state.length = ucs2_len(text);
  state.elements_info = xls_array_info{static_cast<int>(sizeof(uint16_t)), 0, 0};

  int result = yyparse(&state);
  uint32_t status = 0;
  if (result == 2) {
    /* Nesting beyond the parser's stack, or no memory to grow it. */
    *error = xls_parser_error_t{};
    status = KEL_ERR_OUT_OF_MEMORY;
  } else if (result) {
    if (!state.status && !error->code) find_matching_close(&state);
    status = state.status ? state.status : KEL_ERR_GENERAL;
  } else {
    status = expr_d_to_packed_expr(packed, &state.nodes);
  }
  expr_d_destroy(&state.nodes);
  free(state.elements);
  return status;
}
