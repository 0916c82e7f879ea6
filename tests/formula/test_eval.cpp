// The evaluator over hand-built trees, and the reading of ranges that the
// worksheet functions rest on.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "formula/xls_func_table.h"
#include "formula/xls_recalc_env.h"
#include "formula_test_book.h"
#include "kel_status.h"
#include "test_support.h"

using namespace formula_test;

namespace {

enum { FUNC_IF = 1, FUNC_SUM = 4, FUNC_COLUMN = 9, FUNC_ROUND = 27 };

// A formula built node by node, children before parents, the root last.
class Tree {
 public:
  ~Tree() {
    for (xls_expr_t& node : nodes_) expr_free(&node);
  }
  uint16_t constant(xls_value_t value) {
    xls_expr_t node = blank(xop_constant);
    node.u.constant = value;
    return add(node);
  }
  uint16_t number(double n) { return constant(num(n)); }
  uint16_t text(const char* t) { return constant(str(t)); }
  uint16_t area(const std::string& a1, xls_sheet_t* sheet = nullptr) {
    return constant(range(a1, sheet));
  }
  uint16_t cell(const std::string& a1, xls_sheet_t* sheet = nullptr) {
    xls_expr_t node = blank(xop_cellref);
    int column = 0, row = 0;
    parse_a1(a1, &column, &row);
    node.u.cell = {sheet, row, column, 0, 0};
    return add(node);
  }
  uint16_t relative(int row_offset, int column_offset) {
    xls_expr_t node = blank(xop_cellref);
    node.u.cell = {nullptr, row_offset, column_offset, 1, 1};
    return add(node);
  }
  uint16_t binary(xls_expr_op_t op, uint16_t left, uint16_t right) {
    xls_expr_t node = blank(op);
    node.u.binary.left = left;
    node.u.binary.right = right;
    return add(node);
  }
  uint16_t unary(xls_expr_op_t op, uint16_t operand) {
    xls_expr_t node = blank(op);
    node.u.unary = operand;
    return add(node);
  }
  uint16_t func(uint32_t number, std::initializer_list<uint16_t> params) {
    xls_expr_t node = blank(xop_func);
    node.u.func.number = number;
    for (uint16_t p : params) node.u.func.inline_params[node.u.func.count++] = p;
    return add(node);
  }
  uint16_t name(xls_expr_op_t op, xls_expr_named_t* named) {
    xls_expr_t node = blank(op);
    node.u.name.named = named;
    return add(node);
  }
  uint16_t shared(xls_shared_expr* record) {
    xls_expr_t node = blank(xop_shared);
    node.u.shared = record;
    return add(node);
  }
  uint16_t leaf(xls_expr_op_t op) { return add(blank(op)); }

  // Hands the nodes over as a packed form on the heap.
  xls_packed_expr_t pack() {
    xls_packed_expr_t packed = {};
    packed.count = static_cast<uint16_t>(nodes_.size());
    packed.nodes = static_cast<xls_expr_t*>(malloc(nodes_.size() * sizeof(xls_expr_t)));
    memcpy(packed.nodes, nodes_.data(), nodes_.size() * sizeof(xls_expr_t));
    nodes_.clear();
    return packed;
  }

 private:
  static xls_expr_t blank(xls_expr_op_t op) {
    xls_expr_t node;
    memset(&node, 0, sizeof node);
    node.op = op;
    return node;
  }
  uint16_t add(const xls_expr_t& node) {
    nodes_.push_back(node);
    return static_cast<uint16_t>(nodes_.size() - 1);
  }
  std::vector<xls_expr_t> nodes_;
};

using Build = std::function<void(Tree&)>;

// Builds a tree, evaluates it at a1 and describes the result; *status gets
// the status.
std::string eval(const Book& book, const Build& build, const char* a1 = "A1",
                 bool keep_empty = false, uint32_t* status = nullptr) {
  Tree tree;
  build(tree);
  xls_packed_expr_t packed = tree.pack();
  xls_recalc_env env = book.env(a1);
  xls_value_t result;
  xls_value_empty(&result);
  uint32_t s = expr_eval_recursive(&env, &packed, expr_root_expr(&packed), &result, keep_empty);
  if (status) *status = s;
  else EXPECT_EQ(0u, s);
  std::string text = describe(result);
  xls_free_value(&result);
  expr_free(&packed, true);
  return text;
}

// Puts the tree into a1 as a formula with cache, recalculates it and
// describes the new cache.
std::string recalc(Book& book, const Build& build, const char* a1, xls_value_t cache = empty(),
                   uint32_t* status = nullptr) {
  Tree tree;
  build(tree);
  xls_packed_expr_t packed = tree.pack();
  xls_value_t formula;
  xls_create_expr_value(&formula, &packed, &cache.u.basic);
  book.put(a1, formula);
  int column = 0, row = 0;
  parse_a1(a1, &column, &row);
  auto_cell_t cell = nullptr;
  xls_get_cell_value(book.sheet(), column, row, &cell);
  xls_recalc_env env = book.env(a1);
  static const unsigned short format[] = {'0', 0};
  env.result_format = format;
  uint32_t s = expr_recalc(&env, &cell);
  EXPECT_EQ(nullptr, env.result_format);
  if (status) *status = s;
  else EXPECT_EQ(0u, s);
  std::string text = describe(cell->value);
  auto_cell_release(&cell);
  return text;
}

xls_value_t formula_cache(xls_value_t cache) {
  xls_packed_expr_t none = {};
  xls_value_t formula;
  xls_create_expr_value(&formula, &none, &cache.u.basic);
  return formula;
}

// A node index that names no node: evaluating it fails.
const uint16_t kNoNode = 77;

TEST(Eval, EmptyCellsAndErrorOrder) {
  Book book;
  // A1 is empty: 0 in arithmetic and comparison, "" in concatenation; alone
  // it is 0 where the caller wants no empty value.
  EXPECT_EQ("n:1", eval(book, [](Tree& t) { t.binary(xop_add, t.cell("A1"), t.number(1)); }, "C1"));
  EXPECT_EQ("s:x", eval(book, [](Tree& t) { t.binary(xop_concat, t.cell("A1"), t.text("x")); }, "C1"));
  EXPECT_EQ("b:TRUE", eval(book, [](Tree& t) { t.binary(xop_eq, t.cell("A1"), t.number(0)); }, "C1"));
  EXPECT_EQ("n:0", eval(book, [](Tree& t) { t.cell("A1"); }, "C1"));
  EXPECT_EQ("empty", eval(book, [](Tree& t) { t.cell("A1"); }, "C1", true));
  // =1/0+"x" and ="x"+1/0 are both #DIV/0!; "x"+1 is #VALUE!
  EXPECT_EQ("e:7", eval(book, [](Tree& t) {
              t.binary(xop_add, t.binary(xop_div, t.number(1), t.number(0)), t.text("x"));
            }));
  EXPECT_EQ("e:7", eval(book, [](Tree& t) {
              uint16_t x = t.text("x");
              t.binary(xop_add, x, t.binary(xop_div, t.number(1), t.number(0)));
            }));
  EXPECT_EQ("e:15", eval(book, [](Tree& t) { t.binary(xop_add, t.text("x"), t.number(1)); }));
  // A left error ends comparison and concatenation before the right operand
  // is looked at.
  EXPECT_EQ("e:42", eval(book, [](Tree& t) { t.binary(xop_lt, t.constant(err(xls_error_na)), kNoNode); }));
  EXPECT_EQ("e:36",
            eval(book, [](Tree& t) { t.binary(xop_concat, t.constant(err(xls_error_num)), kNoNode); }));
  uint32_t status = 0;
  eval(book, [](Tree& t) { t.binary(xop_concat, t.text("a"), kNoNode); }, "A1", false, &status);
  EXPECT_EQ(KEL_ERR_GENERAL, status);
  // Comparison kinds; "a" and "A" are not the same text.
  EXPECT_EQ("b:TRUE", eval(book, [](Tree& t) { t.binary(xop_ge, t.number(2), t.number(2)); }));
  EXPECT_EQ("b:TRUE", eval(book, [](Tree& t) { t.binary(xop_ne, t.text("a"), t.text("A")); }));
}

TEST(Eval, RangesInArithmetic) {
  Book book;
  book.put("A1", 1.0);
  book.put("A2", 2.0);
  book.put("B1", "3");
  book.put("C1", 4.0);
  // =A1:C1+1: a 1 by 3 array, the string cell read as a number; an empty
  // cell of the range counts 0.
  EXPECT_EQ("a1x3:{n:2,n:4,n:5}",
            eval(book, [](Tree& t) { t.binary(xop_add, t.area("A1:C1"), t.number(1)); }, "E5"));
  EXPECT_EQ("a3x1:{n:2,n:4,n:0}",
            eval(book, [](Tree& t) { t.binary(xop_mul, t.area("A1:A3"), t.number(2)); }, "E5"));
  // A range on another sheet, or a deleted one, is #REF!; the formula's own
  // sheet named explicitly is no other sheet.
  xls_sheet_t* other = book.sheet(1);
  xls_sheet_t* own = book.sheet(0);
  EXPECT_EQ("e:23", eval(book, [&](Tree& t) { t.binary(xop_add, t.number(3), t.area("A1:A2", other)); }));
  EXPECT_EQ("e:23", eval(book, [](Tree& t) {
              t.binary(xop_add, t.area("A1:A2", XLS_DELETED_SHEET), t.number(3));
            }));
  EXPECT_EQ("n:5", eval(book, [&](Tree& t) { t.binary(xop_add, t.area("A2", own), t.number(3)); }));
  // =-A1:A3 is #VALUE!; a range is the empty text in concatenation.
  EXPECT_EQ("e:15", eval(book, [](Tree& t) { t.unary(xop_neg, t.area("A1:A3")); }, "E5"));
  EXPECT_EQ("s:y", eval(book, [](Tree& t) { t.binary(xop_concat, t.area("A1:A3"), t.text("y")); }, "E2"));
}

TEST(Eval, UnaryOperators) {
  Book book;
  {  // a long stays a long
    Tree t;
    t.unary(xop_neg, t.constant(lng(5)));
    xls_packed_expr_t packed = t.pack();
    xls_recalc_env env = book.env();
    xls_value_t result;
    xls_value_empty(&result);
    ASSERT_EQ(0u, expr_eval_recursive(&env, &packed, expr_root_expr(&packed), &result, false));
    EXPECT_EQ(static_cast<uint32_t>(bvt_long), result.u.basic.kind);
    EXPECT_EQ(-5, result.u.basic.u.long_value);
    expr_free(&packed, true);
  }
  EXPECT_EQ("n:0.5", eval(book, [](Tree& t) { t.unary(xop_percent, t.constant(lng(50))); }));
  EXPECT_EQ("n:-2.5", eval(book, [](Tree& t) { t.unary(xop_neg, t.text("2.5")); }));
  EXPECT_EQ("e:15", eval(book, [](Tree& t) { t.unary(xop_neg, t.text("x")); }));
  EXPECT_EQ("n:-1", eval(book, [](Tree& t) { t.unary(xop_neg, t.constant(boolean(true))); }));
  // Unary plus leaves anything as it is.
  EXPECT_EQ("s:x", eval(book, [](Tree& t) { t.unary(xop_plus, t.text("x")); }));
  EXPECT_EQ("e:7", eval(book, [](Tree& t) { t.unary(xop_percent, t.constant(err(xls_error_div0))); }));
  // An element without a number repeats the one before it.
  EXPECT_EQ("a1x3:{n:-4,n:-4,n:-5}", eval(book, [](Tree& t) {
              xls_value_t values = array(1, 3, {4, 0, 5});
              values.u.basic.u.array.elements[1].kind = bvt_string;
              values.u.basic.u.array.elements[1].u.string = u16dup("x");
              t.unary(xop_neg, t.constant(values));
            }));
}

TEST(Eval, Functions) {
  Book book;
  // A number beyond the table, or a row without a handler (COLUMN): error
  // 0x103.
  EXPECT_EQ("e:259", eval(book, [](Tree& t) { t.func(400, {t.number(1)}); }));
  EXPECT_EQ("e:259", eval(book, [](Tree& t) { t.func(FUNC_COLUMN, {}); }));
  // A wrong count is #VALUE! without evaluating the arguments.
  EXPECT_EQ("e:15", eval(book, [](Tree& t) { t.func(FUNC_ROUND, {kNoNode}); }));
  // =IF(1,2,1/0): no function is lazy, and errors pass to the handler.
  EXPECT_EQ("n:2", eval(book, [](Tree& t) {
              uint16_t one = t.number(1), two = t.number(2);
              t.func(FUNC_IF, {one, two, t.binary(xop_div, t.number(1), t.number(0))});
            }));
  // =SUM(1,2)+Sheet2!A1:A2, and SUM over a range.
  xls_sheet_t* other = book.sheet(1);
  EXPECT_EQ("e:23", eval(book, [&](Tree& t) {
              uint16_t sum = t.func(FUNC_SUM, {t.number(1), t.number(2)});
              t.binary(xop_add, sum, t.area("A1:A2", other));
            }));
  book.put("A1", 3.0);
  EXPECT_EQ("n:7", eval(book, [](Tree& t) { t.func(FUNC_SUM, {t.area("A1:A3"), t.number(4)}); }, "C1"));
}

TEST(Eval, NamesConstantsAndErrorNodes) {
  Book book;
  xls_expr_named_t undefined = {};
  EXPECT_EQ("e:29", eval(book, [&](Tree& t) { t.name(xop_name, &undefined); }));

  xls_expr_named_t defined = {};
  defined.parsed = 1;
  Tree definition;
  definition.cell("B1");
  defined.packed = definition.pack();
  // An empty cell through a name is 0.
  EXPECT_EQ("n:0", eval(book, [&](Tree& t) { t.name(xop_name, &defined); }));
  book.put("B1", "b");
  EXPECT_EQ("s:bc", eval(book, [&](Tree& t) {
              t.binary(xop_concat, t.name(xop_name, &defined), t.text("c"));
            }));
  expr_free(&defined.packed, true);

  // A definition that delivers an empty value: the empty rule applies to a
  // name, but not to a name of another sheet or workbook.
  xls_expr_named_t gap = {};
  gap.parsed = 1;
  Tree nothing;
  nothing.leaf(xop_missing);
  gap.packed = nothing.pack();
  EXPECT_EQ("n:0", eval(book, [&](Tree& t) { t.name(xop_name, &gap); }));
  EXPECT_EQ("empty", eval(book, [&](Tree& t) { t.name(xop_namex, &gap); }));
  expr_free(&gap.packed, true);

  EXPECT_EQ("empty", eval(book, [](Tree& t) { t.leaf(xop_missing); }));
  for (xls_expr_op_t op : {xop_ref3d_bad, xop_area3d_err, xop_area_err})
    EXPECT_EQ("e:23", eval(book, [op](Tree& t) { t.leaf(op); }));
  EXPECT_EQ("e:256", eval(book, [](Tree& t) { t.leaf(xop_unknown); }));
  EXPECT_EQ("e:23", eval(book, [](Tree& t) { t.cell("A1", XLS_DELETED_SHEET); }));
  book.put("C3", 9.0, 2);
  xls_sheet_t* third = book.sheet(2);
  EXPECT_EQ("n:9", eval(book, [&](Tree& t) { t.cell("C3", third); }));
}

TEST(Eval, RangeAndIntersectionOperators) {
  Book book;
  EXPECT_EQ("e:0", eval(book, [](Tree& t) { t.binary(xop_isect, t.area("A1:B2"), t.area("C3:D4")); }));
  EXPECT_EQ("r:R1C1:R1C2",
            eval(book, [](Tree& t) { t.binary(xop_isect, t.area("A1:C3"), t.area("D2:B2")); }));
  EXPECT_EQ("r:R0C0:R3C2", eval(book, [](Tree& t) { t.binary(xop_range, t.area("B2:A1"), t.area("C4")); }));
  EXPECT_EQ("e:23", eval(book, [](Tree& t) { t.binary(xop_range, t.area("A1"), t.number(1)); }));
  EXPECT_EQ("e:42", eval(book, [](Tree& t) {
              t.binary(xop_range, t.constant(err(xls_error_na)), t.area("A1"));
            }));
  EXPECT_EQ("e:23", eval(book, [](Tree& t) {
              t.binary(xop_isect, t.area("A1:B2"), t.area("A1", XLS_DELETED_SHEET));
            }));
}

TEST(Eval, SharedAndArrayFormulas) {
  Book book;
  book.put("A1", 1.0);
  book.put("A2", "two");
  book.put("B2", formula_cache(num(4)));
  // =<row above>*10, relative, shared.
  xls_shared_expr shared = {};
  Tree expression;
  expression.binary(xop_mul, expression.relative(-1, 0), expression.number(10));
  shared.packed = expression.pack();
  EXPECT_EQ("n:40", eval(book, [&](Tree& t) { t.shared(&shared); }, "B3"));
  expr_free(&shared.packed, true);

  // {=A1:B2} anchored at D1: the range's cells, 0 for one without value.
  xls_shared_expr array_formula = {};
  array_formula.flags = XLS_SHARED_ARRAY;
  array_formula.array_row = 0;
  array_formula.array_column = 3;
  Tree area;
  xls_value_t relative = range("A1:B2");
  relative.u.range->first = {nullptr, 0, -3, 1, 1};  // A1 from D1, relative
  area.constant(relative);
  array_formula.packed = area.pack();
  EXPECT_EQ("a2x2:{n:1,n:0,s:two,n:4}", eval(book, [&](Tree& t) { t.shared(&array_formula); }, "D2"));
  expr_free(&array_formula.packed, true);

  // Over several sheets: #REF! in every element.
  Tree spanning;
  xls_value_t three_d = range("A1:B1", book.sheet(0));
  three_d.u.range->second.sheet = book.sheet(1);
  spanning.constant(three_d);
  array_formula.packed = spanning.pack();
  EXPECT_EQ("a1x2:{e:23,e:23}", eval(book, [&](Tree& t) { t.shared(&array_formula); }, "D1"));
  expr_free(&array_formula.packed, true);
}

TEST(Eval, Recalc) {
  Book book;
  book.put("A1", 7.0);
  book.put("A2", 8.0);
  // =A1:A3 shows A1, from any row; an empty first cell is #VALUE!.
  EXPECT_EQ("x:n:7", recalc(book, [](Tree& t) { t.area("A1:A3"); }, "C9"));
  EXPECT_EQ("x:e:15", recalc(book, [](Tree& t) { t.area("B1:B3"); }, "C10"));
  EXPECT_EQ("x:e:23", recalc(book, [](Tree& t) { t.area("A1", XLS_DELETED_SHEET); }, "C11"));
  // =A1:A3+0 keeps the array.
  EXPECT_EQ("x:a3x1:{n:7,n:8,n:0}",
            recalc(book, [](Tree& t) { t.binary(xop_add, t.area("A1:A3"), t.number(0)); }, "C2"));
  // A reference to a formula cell reads its cache; the copy carries no tree.
  book.put("B1", formula_cache(num(5)));
  EXPECT_EQ("x:n:10", recalc(book, [](Tree& t) { t.binary(xop_mul, t.cell("B1"), t.number(2)); }, "C3"));
  {
    Tree ref;
    ref.cell("B1");
    xls_packed_expr_t packed = ref.pack();
    xls_recalc_env env = book.env("C4");
    xls_value_t result;
    xls_value_empty(&result);
    ASSERT_EQ(0u, expr_eval_recursive(&env, &packed, expr_root_expr(&packed), &result, true));
    EXPECT_EQ(static_cast<uint32_t>(vt_expr), result.kind);
    EXPECT_EQ(0u, result.u.expr.packed.count);
    EXPECT_EQ("x:n:5", describe(result));
    xls_free_value(&result);
    expr_free(&packed, true);
  }
  // A formula that reads its own old cache; one whose cache is empty counts 0.
  EXPECT_EQ("x:n:4",
            recalc(book, [](Tree& t) { t.binary(xop_add, t.cell("C5"), t.number(1)); }, "C5", num(3)));
  book.put("B2", formula_cache(empty()));
  EXPECT_EQ("x:n:0", recalc(book, [](Tree& t) { t.cell("B2"); }, "C6"));
  // A failing evaluation keeps the old cache.
  uint32_t status = 0;
  EXPECT_EQ("x:n:42", recalc(book, [](Tree& t) { t.binary(xop_add, t.number(1), kNoNode); }, "C7", num(42),
                             &status));
  EXPECT_EQ(KEL_ERR_GENERAL, status);
  // Anything but a parsed formula is left alone.
  book.put("C8", 1.0);
  auto_cell_t cell = nullptr;
  xls_get_cell_value(book.sheet(), 2, 7, &cell);
  xls_recalc_env env = book.env("C8");
  EXPECT_EQ(0u, expr_recalc(&env, &cell));
  EXPECT_EQ("n:1", describe(cell->value));
  auto_cell_release(&cell);
}

// ---- Reading ranges ---------------------------------------------------------

std::string numbers_text(const double* numbers, int count) {
  std::string out;
  char buffer[32];
  for (int i = 0; i < count; ++i) {
    snprintf(buffer, sizeof buffer, "%s%g", i ? "," : "", numbers[i]);
    out += buffer;
  }
  return out;
}

// Collects the range at env with flags: "status numbers" or "status error".
std::string collect(const Book& book, const xls_value_t& area, uint16_t flags) {
  xls_recalc_env env = book.env("H1");
  xls_array_info info = {};
  double* numbers = nullptr;
  xls_value_t result;
  xls_value_empty(&result);
  uint32_t status = xls_range_collect_num(&result, area.u.range, &numbers, &info, &env, flags);
  std::string text = status ? describe(result) : numbers_text(numbers, info.count);
  free(numbers);
  xls_free_value(&result);
  return text;
}

TEST(RangeCollect, Numbers) {
  Book book;
  book.put("A1", 1.0);
  book.put("A2", "2");
  book.put("A3", boolean(true));
  // A4 absent
  book.put("A5", formula_cache(empty()));
  book.put("A6", err(xls_error_div0));
  xls_value_t head = range("A1:A5"), all = range("A1:A6");
  const uint16_t skip_all = xls_conv_skip_string | xls_conv_skip_bool | xls_conv_skip_empty;
  // A formula without a result counts 0 even where empties are skipped.
  EXPECT_EQ("1,0", collect(book, head, skip_all));
  EXPECT_EQ("1,2,1,0,0", collect(book, head, 0));
  EXPECT_EQ("e:15", collect(book, head, xls_conv_bool_invalid));
  EXPECT_EQ("e:7", collect(book, all, skip_all | xls_conv_error_propagate));
  EXPECT_EQ("1,0", collect(book, all, skip_all | xls_conv_skip_error));
  EXPECT_EQ("1,0,2", collect(book, all, skip_all));  // #DIV/0! is error type 2
  xls_value_t deleted = range("A1:A2", XLS_DELETED_SHEET);
  EXPECT_EQ("e:23", collect(book, deleted, 0));
  xls_free_value(&head);
  xls_free_value(&all);
  xls_free_value(&deleted);

  // An array in a cell counts by its first element, unless skipped.
  book.put("B1", array(1, 2, {6, 7}));
  xls_value_t b = range("B1");
  EXPECT_EQ("6", collect(book, b, 0));
  EXPECT_EQ("", collect(book, b, xls_conv_skip_array));
  xls_free_value(&b);

  xls_value_t values = array(1, 4, {1, 2, 3, 0});
  values.u.basic.u.array.elements[2].kind = bvt_empty;
  values.u.basic.u.array.elements[3].kind = bvt_bool;
  values.u.basic.u.array.elements[3].u.boolean = 1;
  xls_array_info info = {};
  double* numbers = nullptr;
  xls_value_t result;
  xls_value_empty(&result);
  EXPECT_EQ(0u, xls_array_collect_num(&values.u.basic, &result, &numbers, &info,
                                      xls_conv_skip_empty | xls_conv_skip_bool));
  EXPECT_EQ("1,2", numbers_text(numbers, info.count));
  free(numbers);
  xls_free_value(&values);
}

TEST(RangeCollect, ThreeDimensionalRanges) {
  Book book;
  for (int s = 0; s < 3; ++s) {
    book.put("A1", 10.0 * (s + 1), s);
    book.put("B2", 10.0 * (s + 1) + 1, s);
  }
  xls_value_t three_d = range("A1:B2", book.sheet(0));
  three_d.u.range->second.sheet = book.sheet(2);
  EXPECT_EQ("10,11,20,21,30,31", collect(book, three_d, xls_conv_skip_empty));
  // The sheets are walked in workbook order whichever corner names which.
  xls_sheet_t* first_sheet = three_d.u.range->first.sheet;
  three_d.u.range->first.sheet = three_d.u.range->second.sheet;
  three_d.u.range->second.sheet = first_sheet;
  EXPECT_EQ("10,11,20,21,30,31", collect(book, three_d, xls_conv_skip_empty));

  // Offsets run through the columns of each sheet in turn.
  xls_recalc_env env = book.env();
  auto_cell_t cell = nullptr;
  EXPECT_EQ(0u, xls_get_value_from_range_by_row_col(&cell, three_d.u.range, 5, 1, &env));
  ASSERT_NE(nullptr, cell);
  EXPECT_EQ("n:31", describe(cell->value));
  auto_cell_release(&cell);
  EXPECT_EQ(0u, xls_get_value_from_range_by_row_col(&cell, three_d.u.range, 1, 0, &env));
  EXPECT_EQ(nullptr, cell);
  EXPECT_EQ(KEL_ERR_VALUE, xls_get_value_from_range_by_row_col(&cell, three_d.u.range, 6, 0, &env));
  EXPECT_EQ(KEL_ERR_VALUE, xls_get_value_from_range_by_row_col(&cell, three_d.u.range, 0, 2, &env));
  three_d.u.range->second.sheet = XLS_DELETED_SHEET;
  EXPECT_EQ(KEL_ERR_REF, xls_get_value_from_range_by_row_col(&cell, three_d.u.range, 0, 0, &env));
  xls_free_value(&three_d);
}

TEST(RangeCollect, CopiesAndArguments) {
  Book book;
  book.put("A1", 1.0);
  book.put("B1", "s");
  book.put("A2", formula_cache(num(3)));
  xls_recalc_env env = book.env();

  xls_value_t area = range("A1:B2");
  xls_basic_value_t* values = nullptr;
  xls_array_info info = {};
  xls_value_t result;
  xls_value_empty(&result);
  ASSERT_EQ(0u, xls_range_collect_basic_value(&result, area.u.range, &values, &info, &env));
  ASSERT_EQ(4, info.count);
  EXPECT_EQ("n:1 s:s n:3 empty", describe_basic(values[0]) + " " + describe_basic(values[1]) +
                                     " " + describe_basic(values[2]) + " " +
                                     describe_basic(values[3]));
  for (int i = 0; i < info.count; ++i) xls_free_basic_value(&values[i]);
  free(values);

  // Arguments flattened: a range's cells, other values as they are, one
  // #REF! for a deleted range.
  xls_value_t args[3] = {range("A1:A2"), num(5), range("A1:B9", XLS_DELETED_SHEET)};
  xls_value_t* flat = nullptr;
  int count = 0;
  ASSERT_EQ(0u, xls_expr_range_resolv(&env, args, 3, &flat, &count));
  ASSERT_EQ(4, count);
  EXPECT_EQ("n:1 x:n:3 n:5 e:23", describe(flat[0]) + " " + describe(flat[1]) + " " +
                                      describe(flat[2]) + " " + describe(flat[3]));
  xls_free_value_array(flat, count);
  for (xls_value_t& a : args) xls_free_value(&a);

  // The statistical gathering: direct strings, booleans and empties left
  // out, errors passed on with their own status.
  xls_value_t stat[5] = {str("3"), boolean(true), formula_cache(num(2)), area, array(1, 2, {4, 5})};
  double* numbers = nullptr;
  info = {};
  EXPECT_EQ(0u, get_number_array(&env, stat, 5, &info, &numbers, &result));
  EXPECT_EQ("2,1,3,4,5", numbers_text(numbers, info.count));
  xls_value_t with_error[2] = {num(1), err(xls_error_na)};
  EXPECT_EQ(KEL_ERR_PROPAGATED, get_number_array(&env, with_error, 2, &info, &numbers, &result));
  EXPECT_EQ("e:42", describe(result));
  xls_value_t deleted = range("A1", XLS_DELETED_SHEET);
  EXPECT_EQ(KEL_ERR_GENERAL, get_number_array(&env, &deleted, 1, &info, &numbers, &result));
  EXPECT_EQ("e:23", describe(result));
  free(numbers);
  xls_free_value(&deleted);
  for (xls_value_t& a : stat) xls_free_value(&a);
}

TEST(RangeCollect, ImplicitIntersection) {
  Book book;
  book.put("B3", 5.0);
  xls_value_t column = range("B1:B4"), row = range("A3:C3");
  xls_recalc_env env = book.env("E3");
  xls_cell_t* pin = nullptr;
  xls_value_t result;
  xls_value_empty(&result);
  ASSERT_EQ(0u, xls_get_value_in_range(&result, &pin, column.u.range, &env));
  ASSERT_NE(nullptr, pin);
  EXPECT_EQ("n:5", describe(pin->value));
  auto_cell_release(&pin);
  env.row = 5;  // outside the column's rows
  EXPECT_EQ(KEL_ERR_VALUE, xls_get_value_in_range(&result, &pin, column.u.range, &env));
  env.row = 2;  // a row of cells is not intersected with the column
  env.column = 1;
  EXPECT_EQ(KEL_ERR_VALUE, xls_get_value_in_range(&result, &pin, row.u.range, &env));
  EXPECT_EQ("e:15", describe(result));
  // Relative corners wrap at the sheet's edge: one row above row 0 is the
  // last row, so the range from there to row 1 no longer holds row 0.
  column.u.range->first = {nullptr, -1, 1, 1, 0};
  column.u.range->second = {nullptr, 1, 1, 1, 0};
  env = book.env("B1");
  EXPECT_EQ(KEL_ERR_VALUE, xls_get_value_in_range(&result, &pin, column.u.range, &env));
  env = book.env("B2");
  EXPECT_EQ(0u, xls_get_value_in_range(&result, &pin, column.u.range, &env));
  EXPECT_EQ(nullptr, pin);
  xls_free_value(&column);
  xls_free_value(&row);
}

}  // namespace
