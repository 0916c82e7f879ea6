// Formula trees: building in the growing array, packing with holes removed,
// heap parameter lists, copies of cells in shared groups, edits in place and
// the decoding of BIFF reference fields.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "formula/xls_expr.h"
#include "kel_status.h"
#include "test_support.h"

namespace {

uint16_t add(dynamic_expr_t* d, xls_expr_op_t op) {
  uint16_t index = 0xFFFF;
  EXPECT_EQ(0u, expr_d_create(d, op, &index));
  return index;
}

uint16_t add_long(dynamic_expr_t* d, int32_t number) {
  uint16_t index = add(d, xop_constant);
  expr_set_ptg_int(expr_d_from_idx(d, index), number);
  return index;
}

uint16_t add_binary(dynamic_expr_t* d, xls_expr_op_t op, uint16_t left, uint16_t right) {
  uint16_t index = add(d, op);
  expr_set_ptg_binary_family(expr_d_from_idx(d, index), left, right);
  return index;
}

uint16_t add_word(dynamic_expr_t* d, const char* ascii) {
  uint16_t index = add(d, xop_constant);
  unsigned short text[16];
  uint32_t length = 0;
  for (; ascii[length]; ++length) text[length] = static_cast<unsigned char>(ascii[length]);
  EXPECT_EQ(0u, expr_set_ptg_string(expr_d_from_idx(d, index), text, length));
  return index;
}

uint16_t add_cell(dynamic_expr_t* d, int32_t row, int32_t column) {
  uint16_t index = add(d, xop_cellref);
  xls_cell_ref_t ref = {nullptr, row, column, 0, 0};
  expr_set_ref_family(expr_d_from_idx(d, index), &ref);
  return index;
}

int32_t long_at(const xls_expr_t* node) {
  EXPECT_EQ(xop_constant, expr_op(node));
  return node->u.constant.u.basic.u.long_value;
}

}  // namespace

TEST(ExprBuild, NewNodesAreZeroedAndPackingGivesAnExactBlock) {
  dynamic_expr_t d;
  expr_d_init(&d);
  uint16_t c = add(&d, xop_constant);
  EXPECT_EQ(vt_basic, expr_d_from_idx(&d, c)->u.constant.kind);
  EXPECT_EQ(bvt_empty, expr_d_from_idx(&d, c)->u.constant.u.basic.kind);
  expr_set_ptg_num(expr_d_from_idx(&d, c), 2.5);
  uint16_t one = add_long(&d, 1);
  uint16_t sum = add_binary(&d, xop_add, c, one);
  EXPECT_EQ(nullptr, expr_d_from_idx(&d, 3));

  // The packed form takes the nodes over.
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, expr_d_to_packed_expr(&packed, &d));
  EXPECT_EQ(nullptr, d.nodes);
  ASSERT_EQ(3u, packed.count);
  const xls_expr_t* root = expr_root_expr(&packed);
  EXPECT_EQ(&packed.nodes[sum], root);
  EXPECT_EQ(2.5,
            tabulon_test::copied(expr_binary_left(&packed, root)->u.constant.u.basic.u.double_value));
  EXPECT_EQ(1, long_at(expr_binary_right(&packed, root)));
  expr_free(&packed, true);
  EXPECT_EQ(0u, packed.count);

  // Nothing built: an empty form without a root.
  expr_d_init(&d);
  ASSERT_EQ(0u, expr_d_to_packed_expr(&packed, &d));
  EXPECT_EQ(nullptr, expr_root_expr(&packed));
}

TEST(ExprBuild, HolesAreRemovedAndEveryFamilyRenumbered) {
  // SUM(A1 B1, -3, 4) as a parser builds it: the function's word first,
  // made a hole once the call is known; another word dropped in the middle.
  dynamic_expr_t d;
  expr_d_init(&d);
  uint16_t word = add_word(&d, "SUM");
  uint16_t a1 = add_cell(&d, 0, 0);
  uint16_t b1 = add_cell(&d, 0, 1);
  uint16_t isect = add_binary(&d, xop_isect, a1, b1);
  uint16_t dropped = add_word(&d, "junk");
  uint16_t three = add_long(&d, 3);
  uint16_t neg = add(&d, xop_neg);
  expr_set_ptg_unary_family(expr_d_from_idx(&d, neg), three);
  uint16_t four = add_long(&d, 4);
  uint16_t params[] = {isect, neg, four};
  uint16_t sum = add(&d, xop_func);
  ASSERT_EQ(0u, expr_set_func_family(expr_d_from_idx(&d, sum), 4, params, 3));
  expr_d_replace_to_unknown(&d, word);
  expr_d_replace_to_unknown(&d, dropped);
  EXPECT_EQ(xop_unknown, expr_op(expr_d_from_idx(&d, word)));

  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, expr_d_to_packed_expr(&packed, &d));
  ASSERT_EQ(7u, packed.count);
  const xls_expr_t* root = expr_root_expr(&packed);
  ASSERT_EQ(xop_func, expr_op(root));
  ASSERT_EQ(3u, expr_func_param_count(root));
  const xls_expr_t* first = expr_func_param(&packed, root, 0);
  ASSERT_EQ(xop_isect, expr_op(first));
  EXPECT_EQ(0, expr_binary_left(&packed, first)->u.cell.column);
  EXPECT_EQ(1, expr_binary_right(&packed, first)->u.cell.column);
  const xls_expr_t* second = expr_func_param(&packed, root, 1);
  ASSERT_EQ(xop_neg, expr_op(second));
  EXPECT_EQ(3, long_at(expr_unary(&packed, second)));
  EXPECT_EQ(4, long_at(expr_func_param(&packed, root, 2)));
  for (uint32_t i = 0; i < packed.count; ++i) EXPECT_NE(xop_unknown, expr_op(&packed.nodes[i]));
  expr_free(&packed, true);
}

TEST(ExprBuild, AHoleStillUsedFailsPackingAndTheNodesStayFreeable) {
  dynamic_expr_t d;
  expr_d_init(&d);
  uint16_t text = add_word(&d, "abc");
  uint16_t two = add_long(&d, 2);
  add_binary(&d, xop_concat, text, two);
  expr_d_replace_to_unknown(&d, text);
  xls_packed_expr_t packed = {};
  EXPECT_EQ(KEL_ERR_GENERAL, expr_d_to_packed_expr(&packed, &d));
  EXPECT_EQ(0u, packed.count);
  EXPECT_EQ(3, d.info.count);
  // Nothing was renumbered: the concatenation still names its operands.
  EXPECT_EQ(two, expr_d_from_idx(&d, 2)->u.binary.right);
  expr_d_destroy(&d);
}

TEST(ExprBuild, ThirteenParametersLiveOnTheHeapAndCopiesOwnTheirList) {
  dynamic_expr_t d;
  expr_d_init(&d);
  uint16_t params[13];
  for (int i = 0; i < 13; ++i) params[i] = add_long(&d, 100 + i);
  uint16_t f = add(&d, xop_func);
  ASSERT_EQ(0u, expr_set_func_family(expr_d_from_idx(&d, f), 4, params, 13));
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, expr_d_to_packed_expr(&packed, &d));
  const xls_expr_t* root = expr_root_expr(&packed);
  EXPECT_EQ(root->u.func.params, xls_expr_params(root));
  EXPECT_EQ(112, long_at(expr_func_param(&packed, root, 12)));
  EXPECT_EQ(nullptr, expr_func_param(&packed, root, 13));

  xls_packed_expr_t copy = {};
  ASSERT_EQ(0u, expr_copy(&copy, &packed));
  const xls_expr_t* copied = expr_root_expr(&copy);
  ASSERT_EQ(13u, expr_func_param_count(copied));
  EXPECT_NE(root->u.func.params, copied->u.func.params);
  EXPECT_EQ(0, memcmp(root->u.func.params, copied->u.func.params, 13 * sizeof(uint16_t)));
  expr_free(&packed, true);
  // The copy stands on its own once the original is gone.
  EXPECT_EQ(107, long_at(expr_func_param(&copy, copied, 7)));
  expr_free(&copy, true);

  // Twelve stay in the node.
  xls_expr_t node = {};
  node.op = xop_func;
  ASSERT_EQ(0u, expr_set_func_family(&node, 4, params, 12));
  EXPECT_EQ(node.u.func.inline_params, xls_expr_params(&node));
  expr_free(&node);
}

TEST(ExprBuild, DynamicArrayStopsAtTheLargestCount) {
  dynamic_expr_t d;
  expr_d_init(&d);
  uint16_t index = 0;
  for (int i = 0; i < 0xFFFF; ++i) ASSERT_EQ(0u, expr_d_create(&d, xop_missing, &index));
  EXPECT_EQ(0xFFFEu, index);
  EXPECT_EQ(KEL_ERR_GENERAL, expr_d_create(&d, xop_missing, &index));
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, expr_d_to_packed_expr(&packed, &d));
  EXPECT_EQ(0xFFFFu, packed.count);
  expr_free(&packed, true);
}

TEST(ExprBuild, ReferenceFieldsDecodeInBothForms) {
  // Absolute parts are positions in either form; relative parts of a cell's
  // formula are the field less the cell (at row 10, column 5); bits above
  // the column's 8 are flags; the shared form holds signed offsets, 16 bits
  // of row and 8 of column, where its parts are relative.
  struct Case {
    uint32_t row, column;
    bool shared;
    int32_t want_row, want_column;
    bool row_relative, column_relative;
  };
  const Case cases[] = {
      {7, 3, false, 7, 3, false, false},          {7, 0xC003, false, -3, -2, true, true},
      {0, 0x4F05, false, 0, 0, false, true},     {0xFFFF, 0xC0FF, true, -1, -1, true, true},
      {0x7FFF, 0xC07F, true, 0x7FFF, 127, true, true}, {0xFFFF, 0x00FF, true, 65535, 255, false, false},
  };
  xls_cell_ref_t ref;
  for (const Case& c : cases) {
    expr_get_ref(c.row, c.column, 10, 5, c.shared, &ref);
    std::string at = std::to_string(c.row) + " " + std::to_string(c.column);
    EXPECT_EQ(c.want_row, ref.row) << at;
    EXPECT_EQ(c.want_column, ref.column) << at;
    EXPECT_EQ(c.row_relative, bool(ref.row_relative)) << at;
    EXPECT_EQ(c.column_relative, bool(ref.column_relative)) << at;
    EXPECT_EQ(nullptr, ref.sheet);
  }

  // The offset -1 at the sheet's first row and column wraps to the last.
  expr_get_ref(0xFFFF, 0xC0FF, 0, 0, true, &ref);
  cell_t base = {0, 0}, at;
  expr_abs_pos(&at, &ref, &base);
  EXPECT_EQ(65535, at.row);
  EXPECT_EQ(255, at.col);
}

TEST(ExprLifetime, CopyingACellOfASharedGroupCopiesTheGroupsExpression) {
  dynamic_expr_t d;
  expr_d_init(&d);
  uint16_t a1 = add_cell(&d, -1, 0);
  expr_d_from_idx(&d, a1)->u.cell.row_relative = 1;
  add_binary(&d, xop_mul, a1, add_long(&d, 2));
  xls_shared_expr record = {};
  ASSERT_EQ(0u, expr_d_to_packed_expr(&record.packed, &d));

  xls_packed_expr_t cell = {};
  ASSERT_EQ(0u, expr_create_shared_expr(&cell, &record));
  ASSERT_EQ(1u, cell.count);
  EXPECT_EQ(xop_shared, expr_op(expr_root_expr(&cell)));
  EXPECT_EQ(&record, expr_shared_expr(expr_root_expr(&cell)));

  xls_packed_expr_t copy = {};
  ASSERT_EQ(0u, expr_copy(&copy, &cell));
  ASSERT_EQ(3u, copy.count);
  for (uint32_t i = 0; i < copy.count; ++i) EXPECT_NE(xop_shared, expr_op(&copy.nodes[i]));
  EXPECT_NE(tabulon_test::copied(record.packed.nodes), tabulon_test::copied(copy.nodes));
  EXPECT_EQ(-1, expr_binary_left(&copy, expr_root_expr(&copy))->u.cell.row);
  expr_free(&copy, true);

  xls_packed_expr_t broken = {};
  ASSERT_EQ(0u, expr_break_shared_formula(&cell, &broken));
  EXPECT_EQ(3u, broken.count);
  expr_free(&broken, true);
  // Only a one-node shared form can be broken apart.
  EXPECT_EQ(KEL_ERR_GENERAL, expr_break_shared_formula(&record.packed, &broken));
  EXPECT_EQ(0u, broken.count);

  // An array formula's cell can be neither copied alone nor broken.
  record.flags = XLS_SHARED_ARRAY;
  EXPECT_EQ(KEL_ERR_GENERAL, expr_copy(&copy, &cell));
  EXPECT_EQ(KEL_ERR_GENERAL, expr_break_shared_formula(&cell, &broken));
  EXPECT_EQ(0u, copy.count);
  record.flags = 0;

  // A shared node among other nodes is a broken form.
  xls_expr_t nodes[2] = {};
  nodes[0].op = xop_shared;
  nodes[0].u.shared = &record;
  nodes[1].op = xop_neg;
  xls_packed_expr_t mixed = {0, 2, {nodes}};
  EXPECT_EQ(KEL_ERR_GENERAL, expr_copy(&copy, &mixed));

  expr_free(&cell, true);
  expr_free(&record.packed, true);
}

TEST(ExprEdit, NodesAreReplacedInPlaceAndWhatTheyOwnedIsFreed) {
  dynamic_expr_t d;
  expr_d_init(&d);
  uint16_t params[13];
  for (int i = 0; i < 13; ++i) params[i] = add_word(&d, "x");
  uint16_t f = add(&d, xop_func);
  ASSERT_EQ(0u, expr_set_func_family(expr_d_from_idx(&d, f), 4, params, 13));
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, expr_d_to_packed_expr(&packed, &d));

  // Each edit frees the heap list or the string it replaces (the
  // sanitizer build sees a leak otherwise).
  xls_value_t value;
  xls_value_error(&value, xls_error_ref);
  expr_replace_with_constant(&packed.nodes[13], &value);
  EXPECT_EQ(xop_constant, expr_op(&packed.nodes[13]));
  EXPECT_EQ(xls_error_ref, packed.nodes[13].u.constant.u.basic.u.error);
  EXPECT_EQ(vt_basic, value.kind);
  EXPECT_EQ(bvt_empty, value.u.basic.kind);

  expr_replace_with_area_err(&packed.nodes[0]);
  EXPECT_EQ(xop_area_err, expr_op(&packed.nodes[0]));
  xls_sheet_t* sheet = reinterpret_cast<xls_sheet_t*>(&value);
  expr_replace_with_area_3d_err(&packed.nodes[1], sheet, sheet);
  EXPECT_EQ(xop_area3d_err, expr_op(&packed.nodes[1]));
  EXPECT_EQ(sheet, packed.nodes[1].u.area_err.first);
  EXPECT_EQ(sheet, packed.nodes[1].u.area_err.last);
  expr_free(&packed, true);
}
