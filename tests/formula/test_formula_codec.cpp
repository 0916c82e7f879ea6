// The BIFF8 formula codec: token blocks as spreadsheet programs write them
// read into trees, trees written back into tokens that read as the same
// tree, and damaged blocks refused without reading past their end.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "formula/xls_formula_codec.h"
#include "formula_test_book.h"
#include "formula_tokens.h"
#include "kel_status.h"
#include "test_support.h"

namespace {

using formula_test::Bytes;
using formula_test::cat;
using formula_test::t_int;
using formula_test::t_num;
using formula_test::t_str;
using formula_test::tok;
using formula_test::t_funcvar;


Bytes t_attr(uint32_t flags, uint32_t word) { return tok({0x19, uint8_t(flags)}, {word}); }

const Bytes kArray = {0x60, 0, 0, 0, 0, 0, 0, 0};
const Bytes kAdd = {0x03}, kSub = {0x04}, kPow = {0x07}, kGt = {0x0D}, kIsect = {0x0F},
            kUnion = {0x10}, kRange = {0x11}, kUminus = {0x13}, kParen = {0x15}, kMiss = {0x16};
enum { kIf = 1, kSum = 4, kAbs = 24, kRound = 27, kChoose = 100, kDatedif = 351 };

class Codec : public ::testing::Test {
 protected:
  void SetUp() override { expr_d_init(&scratch_); }
  void TearDown() override { expr_d_destroy(&scratch_); }
  xls_file* file() const { return book_.file(); }

  // Reads tokens, array constants behind them, as the formula of cell on
  // sheet 0 (or sheet).  The bytes lie in a block of their exact size, so
  // that the sanitizer build sees any read past the end.
  uint32_t read(const Bytes& tokens, xls_packed_expr_t* packed, const Bytes& behind = {},
                biff_formula cell = {0, 0}, bool* unsupported = nullptr, bool no_sheet = false) {
    Bytes all = cat({tokens, behind});
    unsigned char* block = static_cast<unsigned char*>(malloc(all.size() + 1));
    if (!all.empty()) memcpy(block, all.data(), all.size());
    bool flag = false;
    uint32_t status = expr_read_formula(file(), no_sheet ? nullptr : book_.sheet(0),
                                        all.empty() ? nullptr : block, uint32_t(tokens.size()),
                                        uint32_t(all.size()), &cell, &scratch_, packed, &flag);
    free(block);
    if (unsupported) *unsupported = flag;
    if (status) {
      EXPECT_EQ(0, scratch_.info.count + packed->count);
    }
    return status;
  }

  // The tree of tokens, or the status that refused them.
  std::string tree(const Bytes& tokens, const Bytes& behind = {}, biff_formula cell = {0, 0}) {
    xls_packed_expr_t packed = {};
    uint32_t status = read(tokens, &packed, behind, cell);
    char text[32];
    snprintf(text, sizeof text, "status %08X", status);
    std::string out = status ? text : dump(packed);
    expr_free(&packed, true);
    return out;
  }

  Bytes write(const xls_packed_expr_t& packed, xls_write_context_t context = xls_write_cell,
              biff_formula cell = {0, 0}, uint32_t* token_length = nullptr,
              xls_expr_adaptor_t adaptor = xls_adaptor_none) {
    Bytes buffer(65536);
    uint32_t tokens = 0, total = 0;
    EXPECT_EQ(0u, expr_write_formula(file(), buffer.data(), &tokens, &total, book_.sheet(0),
                                     cell.row, cell.column, &packed, context, adaptor));
    if (token_length) *token_length = tokens;
    buffer.resize(total);
    return buffer;
  }

  // Reads, writes and reads again: both trees must be alike.  Returns the
  // written bytes.
  Bytes round_trip(const Bytes& tokens, const Bytes& behind = {},
                   xls_write_context_t context = xls_write_cell, biff_formula cell = {0, 0},
                   xls_expr_adaptor_t adaptor = xls_adaptor_none) {
    xls_packed_expr_t first = {}, second = {};
    EXPECT_EQ(0u, read(tokens, &first, behind, cell));
    uint32_t length = 0;
    Bytes written = write(first, context, cell, &length, adaptor);
    EXPECT_EQ(0u, read(Bytes(written.begin(), written.begin() + length), &second,
                       Bytes(written.begin() + length, written.end()), cell));
    EXPECT_EQ(dump(first), dump(second));
    expr_free(&first, true);
    expr_free(&second, true);
    return written;
  }

  std::string sheet_text(const xls_sheet_t* sheet) const {
    if (!sheet) return "";
    if (sheet == XLS_DELETED_SHEET) return "del!";
    return std::to_string(xls_sheet_index(file(), sheet)) + "!";
  }

  std::string ref_text(const xls_cell_ref_t& ref) const {
    int32_t row = ref.row, column = ref.column;
    if (resolve_at_) {
      // Where the reference points from the cell: offsets that differ by
      // whole turns around the sheet name the same cell.
      xls_apos base = {resolve_at_->row, uint8_t(resolve_at_->column)}, at;
      expr_abs_pos(&at, &ref, &base);
      row = at.row;
      column = at.column;
    }
    return sheet_text(ref.sheet) + (ref.row_relative ? "r~" : "r") + std::to_string(row) +
           (ref.column_relative ? "c~" : "c") + std::to_string(column);
  }

  static std::string basic_text(const xls_basic_value_t& b) {
    char text[64];
    switch (b.kind) {
      case bvt_long: snprintf(text, sizeof text, "L%d", b.u.long_value); return text;
      case bvt_double: snprintf(text, sizeof text, "D%.17g", b.u.double_value); return text;
      case bvt_string: return "S'" + formula_test::ascii(b.u.string) + "'";
      case bvt_error: return "E" + std::to_string(b.u.error);
      case bvt_bool: return b.u.boolean ? "B1" : "B0";
      case bvt_array: {
        std::string out = "A" + std::to_string(b.u.array.rows) + "x" +
                          std::to_string(b.u.array.columns) + "{";
        for (int i = 0; i < b.u.array.rows * b.u.array.columns; ++i)
          out += (i ? "," : "") + basic_text(b.u.array.elements[i]);
        return out + "}";
      }
      default: return "empty";
    }
  }

  std::string node_text(const xls_packed_expr_t& p, const xls_expr_t* n) const {
    static const char* const kOps[] = {"eq", "gt", "lt", "ge", "le", "ne", "add", "sub", "mul",
                                       "div", "pow", "cat", "", "", "", "", "neg", "plus",
                                       "pct", "", "", "to", "isect"};
    if (!n) return "null";
    const auto& u = n->u;
    switch (expr_op(n)) {
      case xop_neg: case xop_plus: case xop_percent:
        return std::string(kOps[n->op]) + "(" + node_text(p, expr_unary(&p, n)) + ")";
      case xop_func: {
        std::string out = "f" + std::to_string(u.func.number) + "(";
        for (uint32_t i = 0; i < u.func.count; ++i)
          out += (i ? "," : "") + node_text(p, expr_func_param(&p, n, i));
        return out + ")";
      }
      case xop_name: return "name" + std::to_string(u.name.index);
      case xop_namex: return "namex" + std::to_string(u.name.sheet_ref) + ":" + std::to_string(u.name.index);
      case xop_constant:
        if (u.constant.kind != vt_range) return basic_text(u.constant.u.basic);
        return "range(" + ref_text(u.constant.u.range->first) + ":" +
               ref_text(u.constant.u.range->second) + ")";
      case xop_cellref: return "cell(" + ref_text(u.cell) + ")";
      case xop_ref3d_bad:
        return "bad(" + std::to_string(u.ref3d_bad.sheet_ref) + "," + std::to_string(u.ref3d_bad.row) +
               "," + std::to_string(u.ref3d_bad.column) + ")";
      case xop_missing: return "_";
      case xop_shared: return (u.shared->flags & XLS_SHARED_ARRAY) ? "array" : "shared";
      case xop_area3d_err:
        return "aerr3(" + sheet_text(u.area_err.first) + sheet_text(u.area_err.last) +
               std::to_string(u.area_err.sheet_ref) + ")";
      default:
        if (n->op > xop_isect || !*kOps[n->op]) return "op" + std::to_string(n->op);
        return std::string(kOps[n->op]) + "(" + node_text(p, expr_binary_left(&p, n)) + "," +
               node_text(p, expr_binary_right(&p, n)) + ")";
    }
  }

  // The tree from its root, and the node count: a node that the root does
  // not reach shows in the count.
  std::string dump(const xls_packed_expr_t& packed) const {
    return node_text(packed, expr_root_expr(&packed)) + " #" + std::to_string(packed.count);
  }

  // A shared (or array) formula on sheet 0 anchored at (row, 1).
  xls_shared_expr* add_shared(uint16_t row, bool array, const Bytes& tokens) {
    xls_shared_expr record = {};
    record.flags = array ? XLS_SHARED_ARRAY : 0;
    record.first_row = record.array_row = row;
    record.first_column = record.array_column = 1;
    EXPECT_EQ(0u, read(tokens, &record.packed, {}, {row, 1}));
    xls_array& list = book_.sheet(0)->shared_exprs;
    EXPECT_EQ(0u, xls_array_insert(&list, list.count, &record));
    return static_cast<xls_shared_expr*>(xls_array_access(&list, list.count - 1));
  }

  formula_test::Book book_;
  dynamic_expr_t scratch_;
  const biff_formula* resolve_at_ = nullptr;  // dumps show positions at this cell
};

TEST_F(Codec, SumShortcutReadsAsFunctionFourAndWritesAsFuncVar) {
  Bytes area = tok({0x25}, {0, 2, 0, 0});
  EXPECT_EQ("f4(range(r0c0:r2c0)) #2", tree(cat({area, t_attr(0x10, 0)})));
  // SUM's argument keeps the reference class; the call is a value.
  EXPECT_EQ(cat({area, t_funcvar(1, kSum)}), round_trip(cat({area, t_attr(0x10, 0)})));
}

TEST_F(Codec, IfAndChooseWithTheirJumpTokensReadAsOneCallWithAllBranches) {
  // =IF(3>2,"a","b") as a spreadsheet program wrote it.
  Bytes excel = {0x1E, 0x03, 0x00, 0x1E, 0x02, 0x00, 0x0D, 0x19, 0x02, 0x08, 0x00,
                 0x17, 0x01, 0x00, 0x61, 0x19, 0x08, 0x0B, 0x00, 0x17, 0x01, 0x00,
                 0x62, 0x19, 0x08, 0x03, 0x00, 0x42, 0x03, 0x01, 0x00};
  EXPECT_EQ("f1(gt(L3,L2),S'a',S'b') #6", tree(excel));
  // No jumps go out; strings go out wide.
  EXPECT_EQ(cat({t_int(3), t_int(2), kGt, {0x17, 1, 1, 'a', 0}, {0x17, 1, 1, 'b', 0},
                 t_funcvar(3, kIf)}),
            round_trip(excel));

  // CHOOSE(1, IF(TRUE,2,3), 4): an IF inside a choice, jump table and all.
  Bytes inner_if = cat({{0x1D, 0x01}, t_attr(0x02, 7), t_int(2), t_attr(0x08, 10), t_int(3),
                        t_attr(0x08, 3), t_funcvar(3, kIf)});
  Bytes choose = cat({t_int(1), t_attr(0x04, 2), {8, 0, 29, 0, 36, 0}, inner_if,
                      t_attr(0x08, 10), t_int(4), t_attr(0x08, 3), t_funcvar(3, kChoose)});
  EXPECT_EQ("f100(L1,f1(B1,L2,L3),L4) #7", tree(choose));
  round_trip(choose);

  // IF(A1,) behind a volatile mark, with blanks inside.
  EXPECT_EQ("f1(cell(r0c0),_) #3",
            tree(cat({t_attr(0x01, 0), tok({0x24}, {0, 0}), t_attr(0x02, 5), kMiss,
                      t_attr(0x40, 0x0100), t_attr(0x08, 3), t_funcvar(2, kIf)})));
  // A true branch longer than the block.
  EXPECT_EQ("status 07371715", tree(cat({t_int(0), t_attr(0x02, 40), t_int(1)})));
}

TEST_F(Codec, UnionsAndOtherUnreadableTokensRefuseTheWholeFormula) {
  Bytes a1 = tok({0x24}, {0, 0}), b1 = tok({0x24}, {0, 1});
  const Bytes refused[] = {
      cat({a1, b1, kUnion, kParen}),                     // (A1,B1)
      cat({a1, b1, kUnion, kParen, t_funcvar(1, kSum)}),  // SUM((A1,B1))
      tok({0x02}, {0, 0}),                               // a data table
      {0x18, 0x01}, {0x1A, 0x00}, {0x00}, {0x3E},
      tok({0x26}, {0, 0, 0}),                            // ptgMemArea
      tok({0x3C}, {0, 0, 0}),                            // ptgRefErr3d
      cat({t_int(1), t_attr(0x00, 0)}),                  // an attribute of no kind
      cat({t_int(1), t_attr(0x20, 0)}),                  // a macro sheet's attribute
      cat({t_int(1), t_funcvar(1, 255)}),                // an add-in call
      cat({t_int(1), t_funcvar(1, 380)}),                // beyond the table
      tok({0x23}, {1, 0}),                               // no names defined
      cat({t_int(1), kAdd}), cat({t_int(1), t_int(2)}), kUminus,  // operands short or left over
  };
  for (const Bytes& tokens : refused) {
    bool unsupported = true;
    xls_packed_expr_t packed = {};
    EXPECT_EQ(KEL_ERR_UNSUPPORTED, read(tokens, &packed, {}, {0, 0}, &unsupported)) << tokens.size();
    EXPECT_FALSE(unsupported);
  }
  // Nothing is left behind for the next formula.
  EXPECT_EQ("add(L1,L2) #3", tree(cat({t_int(1), t_int(2), kAdd})));
  // A token with bit 7 set ends a formula, whatever follows.
  EXPECT_EQ("L5 #1", tree({0x1E, 0x05, 0x00, 0x80, 0xFF, 0x13}));
  EXPECT_EQ("null #0", tree({0x80, 0x01}));
  EXPECT_EQ("null #0", tree({}));
}

TEST_F(Codec, SharedAndArrayFormulaCellsReadAsOneSharedNode) {
  // The group's expression: the cell above times 2, in the shared form.
  xls_shared_expr* shared = add_shared(4, false, cat({tok({0x2C}, {0xFFFF, 0xC000}), t_int(2), {0x05}}));
  add_shared(7, true, t_int(5));
  add_shared(10, false, cat({t_int(1), t_int(2), t_str("d"), tok({0x41}, {kDatedif})}));

  xls_packed_expr_t packed = {};
  bool unsupported = true;
  ASSERT_EQ(0u, read(tok({0x01}, {4, 1}), &packed, {}, {5, 1}, &unsupported));
  EXPECT_FALSE(unsupported);
  EXPECT_EQ(shared, expr_shared_expr(expr_root_expr(&packed)));
  EXPECT_EQ(tok({0x01}, {4, 1}), write(packed));
  EXPECT_FALSE(xls_expr_contains_unsupported_function(&packed, nullptr));
  expr_free(&packed, true);
  // An array formula reads, but marks its cell.
  ASSERT_EQ(0u, read(tok({0x01}, {7, 1}), &packed, {}, {8, 2}, &unsupported));
  EXPECT_TRUE(unsupported);
  EXPECT_EQ("array #1", dump(packed));
  expr_free(&packed, true);
  // What a group calls counts for its cells.
  ASSERT_EQ(0u, read(tok({0x01}, {10, 1}), &packed));
  EXPECT_TRUE(xls_expr_contains_unsupported_function(&packed, nullptr));
  expr_free(&packed, true);

  // No record there; a name has no sheet to look in; only a formula of this
  // one token stands for its group.
  EXPECT_EQ(KEL_ERR_UNSUPPORTED, read(tok({0x01}, {9, 1}), &packed));
  EXPECT_EQ(KEL_ERR_UNSUPPORTED, read(tok({0x01}, {4, 1}), &packed, {}, {0, 0}, nullptr, true));
  EXPECT_EQ(KEL_ERR_UNSUPPORTED, read(cat({t_int(1), tok({0x01}, {4, 1})}), &packed));
}

TEST_F(Codec, FunctionsTheEngineCannotComputeAreFlagged) {
  formula_test::add_references(book_);
  bool unsupported = false;
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, read(cat({t_int(1), t_int(2), t_str("d"), tok({0x41}, {kDatedif})}), &packed, {},
                     {0, 0}, &unsupported));
  EXPECT_TRUE(unsupported);
  EXPECT_TRUE(xls_expr_contains_unsupported_function(&packed, nullptr));
  // Asked of one argument, the answer is that argument's.
  EXPECT_FALSE(xls_expr_contains_unsupported_function(&packed, &packed.nodes[0]));
  expr_free(&packed, true);
  ASSERT_EQ(0u, read(cat({t_int(1), t_funcvar(1, kSum)}), &packed, {}, {0, 0}, &unsupported));
  EXPECT_FALSE(unsupported);
  expr_free(&packed, true);

  // A name of the workbook's own entry: its definition counts.
  xls_expr_named_t* other = &file()->names[1];
  ASSERT_EQ(0u, read(tok({0x41}, {kDatedif}), &other->packed));
  other->parsed = 1;
  ASSERT_EQ(0u, read(tok({0x39}, {4, 2, 0}), &packed));
  EXPECT_TRUE(xls_expr_contains_unsupported_function(&packed, nullptr));
  expr_free(&packed, true);
}

TEST_F(Codec, IntegersComeBackAsPtgIntOnlyWhenTheyFit) {
  EXPECT_EQ("L65535 #1", tree(t_int(0xFFFF)));
  EXPECT_EQ(t_int(0x1234), round_trip(t_int(0x1234)));
  EXPECT_EQ("D70000 #1", tree(t_num(70000)));
  // A parser's long that a ptgInt cannot hold becomes a ptgNum.
  for (int32_t number : {70000, -1}) {
    dynamic_expr_t d;
    expr_d_init(&d);
    uint16_t index = 0;
    ASSERT_EQ(0u, expr_d_create(&d, xop_constant, &index));
    expr_set_ptg_int(expr_d_from_idx(&d, index), number);
    xls_packed_expr_t packed = {};
    ASSERT_EQ(0u, expr_d_to_packed_expr(&packed, &d));
    EXPECT_EQ(t_num(number), write(packed));
    expr_free(&packed, true);
  }
}

TEST_F(Codec, LargeFormulasTakeTheScratchBlockAndLongListsGoToTheHeap) {
  xls_packed_expr_t packed = {};
  Bytes tokens = t_int(1);
  for (int i = 0; i < 149; ++i) tokens = cat({tokens, t_int(1), kAdd});
  ASSERT_EQ(0u, read(tokens, &packed));  // 299 nodes: copied out
  xls_expr_t* block = scratch_.nodes;
  EXPECT_EQ(299u, packed.count);
  EXPECT_NE(block, tabulon_test::copied(packed.nodes));
  expr_free(&packed, true);
  ASSERT_EQ(0u, read(t_int(3), &packed));
  EXPECT_EQ(block, scratch_.nodes);
  expr_free(&packed, true);

  // 400 nodes take the block itself; the next formula starts a new one.
  for (int i = 0; i < 50; ++i) tokens = cat({tokens, t_int(1), kAdd});
  ASSERT_EQ(0u, read(cat({tokens, kUminus}), &packed));
  EXPECT_EQ(400u, packed.count);
  EXPECT_EQ(nullptr, scratch_.nodes);
  expr_free(&packed, true);
  ASSERT_EQ(0u, read(t_int(3), &packed));
  EXPECT_NE(nullptr, scratch_.nodes);
  EXPECT_NE(scratch_.nodes, tabulon_test::copied(packed.nodes));
  expr_free(&packed, true);

  // Thirteen arguments: a heap list, read and written in order.
  tokens.clear();
  for (int i = 0; i < 13; ++i) tokens = cat({tokens, t_int(10 + i)});
  tokens = cat({tokens, t_funcvar(13, kSum)});
  ASSERT_EQ(0u, read(tokens, &packed));
  const xls_expr_t* root = expr_root_expr(&packed);
  EXPECT_EQ(root->u.func.params, xls_expr_params(root));
  EXPECT_EQ("f4(L10,L11,L12,L13,L14,L15,L16,L17,L18,L19,L20,L21,L22) #14", dump(packed));
  EXPECT_EQ(tokens, write(packed));
  expr_free(&packed, true);

  // Operands pile up past the stack's first capacity.
  tokens.clear();
  for (int i = 0; i < 1500; ++i) tokens = cat({tokens, t_int(i)});
  for (int i = 0; i < 1499; ++i) tokens = cat({tokens, kAdd});
  ASSERT_EQ(0u, read(tokens, &packed));
  EXPECT_EQ(2999u, packed.count);
  expr_free(&packed, true);
}

TEST_F(Codec, RelativeReferencesRoundTripInCellAndSharedForms) {
  biff_formula f11 = {10, 5};
  Bytes up_left = tok({0x24}, {9, 0xC004});
  EXPECT_EQ("cell(r~-1c~-1) #1", tree(up_left, {}, f11));
  EXPECT_EQ(tok({0x44}, {9, 0xC004}), round_trip(up_left, {}, xls_write_cell, f11));
  EXPECT_EQ("cell(r~-10c~-5) #1", tree(tok({0x24}, {0, 0xC000}), {}, f11));
  // $A1:B$3 -- each part keeps its own flag.
  Bytes mixed = cat({tok({0x25}, {0, 2, 0x4000, 0x8001}), t_funcvar(1, kSum)});
  EXPECT_EQ("f4(range(r0c~-5:r~-8c1)) #2", tree(mixed, {}, f11));
  EXPECT_EQ(mixed, round_trip(mixed, {}, xls_write_cell, f11));
  // The tree moves with the cell it is written for.
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, read(up_left, &packed, {}, f11));
  EXPECT_EQ(tok({0x44}, {19, 0xC004}), write(packed, xls_write_cell, {20, 5}));
  expr_free(&packed, true);

  // A shared formula's offsets stand as they are, in ptgRefN and ptgAreaN.
  Bytes shared = cat({tok({0x2C}, {0xFFFF, 0xC0FF}), tok({0x2D}, {0, 0x7FFF, 0xC080, 0x407F}),
                      t_funcvar(2, kSum)});
  EXPECT_EQ("f4(cell(r~-1c~-1),range(r~0c~-128:r32767c~127)) #3", tree(shared, {}, f11));
  EXPECT_EQ(shared, round_trip(shared, {}, xls_write_shared, f11));
}

TEST_F(Codec, ArrayConstantsRoundTripInTheirOrder) {
  Bytes first = {1, 1, 0,                             // 2 columns, 2 rows
                 1, 0, 0, 0, 0, 0, 0, 0xF8, 0x3F,     // 1.5
                 2, 2, 0, 0, 'a', 'b',                // "ab", 8-bit
                 4, 1, 0, 0, 0, 0, 0, 0, 0,           // TRUE
                 16, 42, 0, 0, 0, 0, 0, 0, 0};        // #N/A
  Bytes second = {0, 0, 0, 2, 1, 0, 1, 'x', 0};       // {"x"}, 16-bit
  Bytes tokens = cat({kArray, kArray, t_funcvar(2, kSum)});
  EXPECT_EQ("f4(A2x2{D1.5,S'ab',B1,E42},A1x1{S'x'}) #3", tree(tokens, cat({first, second})));
  // The sizes go into the tokens as well, the strings wide, and the
  // constants in the order of their tokens, so that they read back there.
  Bytes wide_first = first;
  wide_first.erase(wide_first.begin() + 12, wide_first.begin() + 18);
  wide_first.insert(wide_first.begin() + 12, {2, 2, 0, 1, 'a', 0, 'b', 0});
  EXPECT_EQ(cat({{0x60, 1, 1, 0, 0, 0, 0, 0}, kArray, t_funcvar(2, kSum), wide_first, second}),
            round_trip(tokens, cat({first, second})));

  // Cut short; an element of no known type; more elements than bytes.
  EXPECT_EQ("status 07371715", tree(tokens, cat({first, Bytes(second.begin(), second.end() - 1)})));
  EXPECT_EQ("status 07371715", tree(kArray, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ("status 07371715", tree(kArray, {0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ("status 07371715", tree(kArray));
}

TEST_F(Codec, ThreeDimensionalReferencesAndNamesRoundTrip) {
  formula_test::add_references(book_);
  EXPECT_EQ("cell(1!r3c2) #1", tree(tok({0x3A}, {0, 3, 2})));
  EXPECT_EQ(tok({0x5A}, {0, 3, 2}), round_trip(tok({0x3A}, {0, 3, 2})));
  EXPECT_EQ("cell(1!r~-1c2) #1", tree(tok({0x3A}, {0, 3, 0x8002}), {}, {4, 0}));
  round_trip(tok({0x3A}, {0, 3, 0x8002}), {}, xls_write_cell, {4, 0});
  EXPECT_EQ("range(0!r3c2:2!r3c2) #1", tree(tok({0x3A}, {1, 3, 2})));
  round_trip(tok({0x3A}, {1, 3, 2}));
  Bytes area = cat({tok({0x3B}, {1, 0, 9, 0, 1}), t_funcvar(1, kSum)});
  EXPECT_EQ("f4(range(0!r0c0:2!r9c1)) #2", tree(area));
  EXPECT_EQ(area, round_trip(area));

  // Another workbook, a deleted sheet, an entry beyond the table: kept as
  // read and written back as they were.
  for (uint32_t sheet_ref : {2u, 3u, 9u}) {
    EXPECT_EQ("bad(" + std::to_string(sheet_ref) + ",7,49153) #1", tree(tok({0x3A}, {sheet_ref, 7, 0xC001})));
    EXPECT_EQ(tok({0x5A}, {sheet_ref, 7, 0xC001}), round_trip(tok({0x3A}, {sheet_ref, 7, 0xC001})));
  }
  EXPECT_EQ("E23 #1", tree(tok({0x3B}, {2, 0, 1, 0, 1})));
  round_trip(tok({0x3B}, {3, 0, 1, 0, 1}));
  EXPECT_EQ("aerr3(0!2!1) #1", tree(tok({0x3D}, {1, 0, 0, 0, 0})));
  EXPECT_EQ("aerr3(9) #1", tree(tok({0x3D}, {9, 0, 0, 0, 0})));
  round_trip(tok({0x3D}, {1, 0, 0, 0, 0}));
  round_trip(tok({0x3D}, {9, 0, 0, 0, 0}));
  EXPECT_EQ("E23 #1", tree(tok({0x2A}, {0, 0})));
  EXPECT_EQ("E23 #1", tree(tok({0x4B}, {0, 0, 0, 0})));

  // Names, of the workbook and through the workbook's own entry.
  EXPECT_EQ("add(name2,L1) #3", tree(cat({tok({0x23}, {2, 0}), t_int(1), kAdd})));
  round_trip(cat({tok({0x23}, {2, 0}), t_int(1), kAdd}));
  EXPECT_EQ("status 07371715", tree(tok({0x23}, {3, 0})));
  EXPECT_EQ("namex4:1 #1", tree(tok({0x39}, {4, 1, 0})));
  EXPECT_EQ(tok({0x59}, {4, 1, 0}), round_trip(tok({0x39}, {4, 1, 0})));
  EXPECT_EQ("status 07371715", tree(tok({0x39}, {2, 1, 0})));  // another workbook's name
  EXPECT_EQ("status 07371715", tree(tok({0x39}, {0, 1, 0})));  // a sheet's entry
  EXPECT_EQ("status 07371715", tree(tok({0x39}, {9, 1, 0})));  // beyond the table
  EXPECT_EQ("status 07371715", tree(tok({0x39}, {4, 5, 0})));  // no such name

  // One cell on one sheet as an area: a cell reference unless the caller
  // keeps ranges.
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, read(tok({0x3B}, {0, 4, 4, 1, 1}), &packed));
  EXPECT_EQ(0x5A, write(packed)[0]);
  EXPECT_EQ(0x5B, write(packed, xls_write_cell, {0, 0}, nullptr, xls_adaptor_keep_ranges)[0]);
  expr_free(&packed, true);

  // A sheet that no entry names yet gets one.
  int entries = file()->externsheets_info.count;
  xls_expr_t node = {};
  node.op = xop_cellref;
  node.u.cell = {book_.sheet(2), 1, 1, 0, 0};
  xls_packed_expr_t one = {0, 1, {&node}};
  EXPECT_EQ("cell(2!r1c1) #1", tree(write(one)));
  EXPECT_EQ(entries + 1, file()->externsheets_info.count);
}

TEST_F(Codec, OperatorsMissingArgumentsAndErrorsRoundTrip) {
  Bytes if_missing = cat({kMiss, t_int(1), {0x1C, 0x07}, t_funcvar(3, kIf)});
  EXPECT_EQ("f1(_,L1,E7) #4", tree(if_missing));
  EXPECT_EQ(if_missing, round_trip(if_missing));
  // Parentheses follow from precedence: a-b-c needs none, a-(b-c) does,
  // and ptgParen itself reads as nothing.
  Bytes left = cat({t_int(1), t_int(2), kSub, t_int(3), kSub});
  EXPECT_EQ(left, round_trip(left));
  EXPECT_EQ("sub(L1,sub(L2,L3)) #5", tree(cat({t_int(1), t_int(2), t_int(3), kSub, kParen, kSub})));
  EXPECT_EQ(cat({t_int(1), t_int(2), t_int(3), kSub, kParen, kSub}),
            round_trip(cat({t_int(1), t_int(2), t_int(3), kSub, kSub})));
  // (2^3)^4 keeps them, 2^(3^4) needs none, -(2^2) and (1+2)*3 keep them.
  for (const Bytes& tokens : {cat({t_int(2), t_int(3), kPow, kParen, t_int(4), kPow}),
                              cat({t_int(2), t_int(3), t_int(4), kPow, kPow}),
                              cat({t_int(2), t_int(2), kPow, kParen, kUminus}),
                              cat({t_int(1), t_int(2), kAdd, kParen, t_int(3), {0x05}})})
    EXPECT_EQ(tokens, round_trip(tokens));
  EXPECT_EQ("neg(pct(cell(r0c0))) #3", tree(tok({0x24, 0, 0, 0, 0, 0x14, 0x13})));
  round_trip(cat({t_str("a"), t_str("b"), {0x08}}));
  // SUM(A1:B2 C1) from operators: their operands stay references.
  Bytes isect = cat({tok({0x24}, {0, 0}), tok({0x24}, {1, 1}), kRange, tok({0x24}, {0, 2}), kIsect,
                     t_funcvar(1, kSum)});
  EXPECT_EQ("f4(isect(to(cell(r0c0),cell(r1c1)),cell(r0c2))) #6", tree(isect));
  EXPECT_EQ(isect, round_trip(isect));
}

TEST_F(Codec, TokenClassesFollowWhatTheConsumerExpects) {
  xls_packed_expr_t packed = {};
  ASSERT_EQ(0u, read(cat({tok({0x24}, {0, 0}), t_int(1), kAdd}), &packed));
  EXPECT_EQ(0x44, write(packed, xls_write_cell)[0]);
  EXPECT_EQ(0x44, write(packed, xls_write_name)[0]);
  EXPECT_EQ(0x4C, write(packed, xls_write_shared)[0]);
  EXPECT_EQ(0x64, write(packed, xls_write_array)[0]);
  expr_free(&packed, true);
  ASSERT_EQ(0u, read(cat({tok({0x25}, {0, 1, 0, 1}), t_funcvar(1, kSum)}), &packed));
  Bytes in_array = write(packed, xls_write_array);
  EXPECT_EQ(0x25, in_array[0]);
  EXPECT_EQ(0x62, in_array[9]);
  expr_free(&packed, true);
  // A fixed-count function is a ptgFunc whatever token it came from, and
  // takes the table's count.
  EXPECT_EQ(cat({t_int(3), kUminus, tok({0x41}, {kAbs})}),
            round_trip(cat({t_int(3), kUminus, t_funcvar(1, kAbs)})));
  EXPECT_EQ("f27(L1,L2) #3", tree(cat({t_int(1), t_int(2), t_funcvar(5, kRound)})));
  // Strings of either width go out wide.
  EXPECT_EQ("S'h?llo' #1", tree(t_str("h\xE9llo")));
  EXPECT_EQ(Bytes({0x17, 2, 1, 0xE9, 0, 'o', 0}), round_trip(t_str("\xE9o")));
  EXPECT_EQ("S'' #1", tree(t_str("")));
}

TEST_F(Codec, TruncatedTokenBlocksAreRefusedWithoutReadingPastTheirEnd) {
  formula_test::add_references(book_);
  const Bytes formulas[] = {
      cat({t_int(3), t_int(2), kGt, t_attr(0x02, 8), t_str("a"), t_attr(0x08, 10), t_str("b"),
           t_attr(0x08, 3), t_funcvar(3, kIf)}),
      cat({t_int(1), t_attr(0x04, 2), {8, 0, 29, 0, 36, 0}, t_int(2), t_attr(0x08, 10), t_int(4),
           t_attr(0x08, 3), t_funcvar(3, kChoose)}),
      cat({t_str("text"), {0x17, 3, 1, 'a', 0, 'b', 0, 'c', 0}, {0x08}}),
      cat({tok({0x3A}, {0, 1, 2}), tok({0x3B}, {1, 0, 1, 2, 3}), tok({0x39}, {4, 1, 0}),
           tok({0x23}, {1, 0}), t_num(2.5), t_funcvar(5, kSum)}),
      cat({tok({0x25}, {0, 1, 0, 1}), tok({0x2D}, {0, 1, 0xC000, 0xC001}), kIsect, {0x29, 0, 0},
           t_funcvar(1, kSum)}),
  };
  for (const Bytes& tokens : formulas) {
    EXPECT_NE("status 07371715", tree(tokens));
    for (size_t cut = 1; cut < tokens.size(); ++cut) {
      xls_packed_expr_t packed = {};
      uint32_t status = read(Bytes(tokens.begin(), tokens.begin() + cut), &packed);
      EXPECT_TRUE(status == 0 || status == KEL_ERR_UNSUPPORTED) << cut;
      expr_free(&packed, true);
    }
  }
  // A token block that claims more than the record holds.
  xls_packed_expr_t packed = {};
  bool unsupported = false;
  unsigned char bytes[] = {0x1E, 0x01, 0x00};
  biff_formula cell = {0, 0};
  EXPECT_EQ(KEL_ERR_UNSUPPORTED,
            expr_read_formula(file(), book_.sheet(0), bytes, 3, 2, &cell, &scratch_, &packed, &unsupported));
}

// Token streams made at random from every kind of token, damaged now and
// then.  Whatever reads must write and read back to the same tree -- up to
// offsets that name the same cell, as a ptgRef read into a shared formula
// comes back as a ptgRefN -- and nothing may read outside the block.
TEST_F(Codec, RandomTokenStreamsReadSafelyAndWhatReadsRoundTrips) {
  formula_test::add_references(book_);
  std::mt19937 random(20240601);
  auto pick = [&random](uint32_t n) { return uint32_t(random() % n); };
  int read_count = 0;
  for (int iteration = 0; iteration < 20000; ++iteration) {
    bool shared = iteration % 2;
    Bytes tokens, behind;
    for (int i = 0, count = 1 + int(pick(12)); i < count; ++i) {
      uint8_t klass = uint8_t(pick(3) * 0x20);
      switch (pick(21)) {
        case 0: tokens = cat({tokens, t_int(pick(70000))}); break;
        case 1: tokens = cat({tokens, t_num(pick(1000) / 8.0 - 50)}); break;
        case 2: tokens = cat({tokens, t_str(std::string(pick(4), 'x'))}); break;
        case 3: tokens = cat({tokens, {0x1D, uint8_t(pick(3))}, {0x1C, uint8_t(pick(50))}, {0x0F}}); break;
        case 4: tokens = cat({tokens, tok({uint8_t((shared ? 0x2C : 0x24) + klass)}, {pick(0x10000), pick(0x10000)})}); break;
        case 5:
          tokens = cat({tokens, tok({uint8_t((shared ? 0x2D : 0x25) + klass)},
                                    {pick(0x10000), pick(0x10000), pick(0x10000), pick(0x10000)})});
          break;
        case 6: tokens = cat({tokens, tok({0x3A}, {pick(5), pick(0x10000), pick(0x10000)})}); break;
        case 7: tokens = cat({tokens, tok({uint8_t(pick(4) ? 0x3B : 0x3D)}, {pick(5), pick(9), pick(9), pick(0x10000), pick(0x10000)})}); break;
        case 8: tokens = cat({tokens, pick(2) ? tok({0x23}, {pick(3), 0}) : tok({0x39}, {pick(4), pick(3), 0})}); break;
        case 9: tokens = cat({tokens, kMiss}); break;
        case 10: case 11: tokens.push_back(uint8_t(0x03 + pick(15))); break;
        case 12: tokens.push_back(uint8_t(0x12 + pick(4))); break;
        case 13: tokens = cat({tokens, tok({uint8_t(0x22 + klass), uint8_t(pick(6))}, {pick(390)})}); break;
        case 14: tokens = cat({tokens, tok({0x41}, {pick(390)})}); break;
        case 15: {
          static const uint8_t kFlags[] = {0x01, 0x02, 0x04, 0x08, 0x10, 0x40, 0x41, 0x00};
          uint8_t flags = kFlags[pick(8)];
          uint32_t word = pick(12);
          tokens = cat({tokens, t_attr(flags, word)});
          if (flags == 0x04) tokens.insert(tokens.end(), (word + 1) * 2, 0);
          break;
        }
        case 16: {
          tokens = cat({tokens, kArray});
          uint32_t columns = 1 + pick(3), rows = 1 + pick(2);
          behind = cat({behind, {uint8_t(columns - 1), uint8_t(rows - 1), 0}});
          for (uint32_t e = 0; e < rows * columns; ++e) {
            Bytes element = t_num(e);
            element[0] = 1;
            switch (pick(4)) {
              case 1: element = pick(2) ? Bytes{2, 1, 0, 1, 'q', 0} : Bytes{2, 1, 0, 0, 'q'}; break;
              case 2: element = {4, 1, 0, 0, 0, 0, 0, 0, 0}; break;
              case 3: element = {16, 7, 0, 0, 0, 0, 0, 0, 0}; break;
            }
            behind = cat({behind, element});
          }
          break;
        }
        case 17: tokens = cat({tokens, kParen}); break;
        case 18: tokens = cat({tokens, {0x29, 3, 0}}); break;
        case 19: tokens.push_back(uint8_t(random())); break;
        default: tokens.push_back(0x80); break;
      }
    }
    // Now and then a byte is damaged or the block cut short.
    if (pick(4) == 0 && !tokens.empty()) tokens[pick(uint32_t(tokens.size()))] ^= uint8_t(1u << pick(8));
    if (pick(4) == 0 && !behind.empty()) behind.resize(pick(uint32_t(behind.size())));
    if (pick(8) == 0) tokens.resize(pick(uint32_t(tokens.size()) + 1));

    biff_formula cell = {uint16_t(pick(3) * 30000), uint16_t(pick(256))};
    resolve_at_ = &cell;
    xls_packed_expr_t packed = {};
    uint32_t status = read(tokens, &packed, behind, cell);
    ASSERT_TRUE(status == 0 || status == KEL_ERR_UNSUPPORTED) << iteration;
    if (status || packed.count == 0) continue;
    ++read_count;
    std::string before = dump(packed);
    uint32_t length = 0;
    Bytes written = write(packed, shared ? xls_write_shared : xls_write_cell, cell, &length,
                          xls_adaptor_keep_ranges);
    expr_free(&packed, true);
    ASSERT_EQ(0u, read(Bytes(written.begin(), written.begin() + length), &packed,
                       Bytes(written.begin() + length, written.end()), cell))
        << iteration << " " << before;
    ASSERT_EQ(before, dump(packed)) << iteration;
    expr_free(&packed, true);
  }
  resolve_at_ = nullptr;
  // Made to read often enough for the round trip to count.
  EXPECT_GT(read_count, 1000);
}

}  // namespace
