// The calculation chain: its order after a build, the walks that
// recalculate behind a change, the circles it refuses, and how it follows
// insertions, removals, moved indexes and a deleted sheet.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <set>
#include <memory>
#include <string>
#include <vector>

#include "formula/xls_calc_chain.h"
#include "formula/xls_formula_codec.h"
#include "formula_test_book.h"
#include "formula_tokens.h"
#include "kel_status.h"

namespace {

using formula_test::Bytes;
using formula_test::cat;
using formula_test::Book;
using formula_test::parse_a1;
using formula_test::tok;

// The row and column fields of a1, relative unless told, as a cell's
// formula holds them.
uint32_t row_of(const std::string& a1) {
  int column = 0, row = 0;
  parse_a1(a1, &column, &row);
  return uint32_t(row);
}
uint32_t col_of(const std::string& a1, bool relative = true) {
  int column = 0, row = 0;
  parse_a1(a1, &column, &row);
  return uint32_t(column) | (relative ? 0xC000 : 0);
}
Bytes refer(const std::string& a1) { return tok({0x24}, {row_of(a1), col_of(a1)}); }
Bytes area(const std::string& first, const std::string& last) {
  return tok({0x25}, {row_of(first), row_of(last), col_of(first), col_of(last)});
}
Bytes ref3d(uint32_t ixti, const std::string& a1, bool relative = true) {
  return tok({0x3A}, {ixti, row_of(a1), col_of(a1, relative)});
}
Bytes area3d(uint32_t ixti, const std::string& first, const std::string& last) {
  return tok({0x3B}, {ixti, row_of(first), row_of(last), col_of(first), col_of(last)});
}
Bytes int_(uint32_t n) { return formula_test::t_int(n); }
Bytes name(uint32_t index) { return tok({0x23}, {index, 0}); }
Bytes func(uint32_t number) { return tok({0x21}, {number}); }
Bytes funcvar(uint32_t count, uint32_t number) { return tok({0x22, uint8_t(count)}, {number}); }
const Bytes kAdd = {0x03}, kMul = {0x05};
enum { kSum = 4, kRow = 8, kRows = 76 };

class Chain : public ::testing::Test {
 protected:
  xls_file* file() const { return book_->file(); }
  xls_sheet_t* sheet(int s = 0) const { return book_->sheet(s); }
  dep_global_t* global() const { return xls_dep_global(file()); }

  // The three sheets, known to formulas as EXTERNSHEET entries 0 to 2, and
  // Sheet1:Sheet3 as 3.
  void add_sheet_refs() {
    file()->own_supbook = 0;
    file()->supbook_count = 1;
    xls_externsheet_t entries[] = {{0, 0, 0, sheet(0), sheet(0)},
                                   {0, 1, 1, sheet(1), sheet(1)},
                                   {0, 2, 2, sheet(2), sheet(2)},
                                   {0, 0, 2, sheet(0), sheet(2)}};
    for (const xls_externsheet_t& entry : entries)
      formula_test::push_element(&file()->externsheets_info, &file()->externsheets, entry);
  }

  // The tree of tokens as the formula at a1 of sheet s.
  xls_packed_expr_t read(const std::string& a1, const Bytes& tokens, int s = 0) {
    int column = 0, row = 0;
    parse_a1(a1, &column, &row);
    biff_formula at = {uint16_t(row), uint16_t(column)};
    dynamic_expr_t scratch;
    expr_d_init(&scratch);
    xls_packed_expr_t packed = {};
    bool unsupported = false;
    EXPECT_EQ(0u, expr_read_formula(file(), sheet(s), tokens.data(), uint32_t(tokens.size()),
                                    uint32_t(tokens.size()), &at, &scratch, &packed, &unsupported))
        << a1;
    expr_d_destroy(&scratch);
    return packed;
  }
  // A formula cell whose cached result is cached.
  void formula(const std::string& a1, const Bytes& tokens, double cached = 0, int s = 0) {
    xls_packed_expr_t packed = read(a1, tokens, s);
    xls_basic_value_t cache = {};
    cache.kind = bvt_double;
    cache.u.double_value = cached;
    xls_value_t value;
    xls_create_expr_value(&value, &packed, &cache);
    book_->put(a1, value, s);
  }
  // Gives the cell at a1 a new value (taken over), or a formula a new cache.
  void set(const std::string& a1, xls_value_t value, int s = 0) {
    xls_cell_ptr cell = at(a1, s);
    xls_free_value(&cell.cell->value);
    cell.cell->value = value;
    auto_cell_release(&cell.cell);
  }
  void set_cache(const std::string& a1, double number) {
    xls_cell_ptr cell = at(a1);
    xls_basic_value_t& cache = cell.cell->value.u.expr.cache;
    cache.kind = bvt_double;
    cache.u.double_value = number;
    auto_cell_release(&cell.cell);
  }

  // The cell at a1, pinned; the caller releases it.
  xls_cell_ptr at(const std::string& a1, int s = 0) const {
    int column = 0, row = 0;
    parse_a1(a1, &column, &row);
    xls_cell_ptr cell = {sheet(s), nullptr};
    kel_cell_cache_find_cell(&cell.cell, &sheet(s)->cells, uint32_t(column), uint32_t(row));
    EXPECT_TRUE(cell.cell) << a1;
    return cell;
  }
  int32_t index_of(const std::string& a1, int s = 0) const {
    int column = 0, row = 0;
    parse_a1(a1, &column, &row);
    return kel_cell_cache_find_pos(&sheet(s)->cells, uint32_t(column), uint32_t(row), nullptr);
  }
  std::string value(const std::string& a1, int s = 0) const {
    xls_cell_ptr cell = at(a1, s);
    std::string text = formula_test::describe(cell.cell->value);
    auto_cell_release(&cell.cell);
    return text;
  }

  // "B1", or "2!B1" on another sheet than the first; "" for none.
  std::string label(xls_sheet_t* s, const xls_cell_t* cell) const {
    if (!s || !cell) return s ? "bad" : "";
    std::string text = s == sheet(0) ? "" : std::to_string(xls_sheet_index(file(), s) + 1) + "!";
    return text + char('A' + cell->column) + std::to_string(cell->row + 1);
  }
  std::string label(xls_sheet_t* s, int32_t index) const {
    auto_cell_t cell = nullptr;
    if (s) kel_cell_cache_access(&cell, &s->cells, index);
    std::string text = label(s, cell);
    auto_cell_release(&cell);
    return text;
  }
  // Calls visit(cell) along the chain.
  template <typename Visit>
  void walk(Visit visit) const {
    xls_cell_ptr cell = {global()->head_sheet, nullptr};
    for (int32_t index = global()->head_index, steps = 0; cell.sheet && steps < 1000; ++steps) {
      kel_cell_cache_access(&cell.cell, &cell.sheet->cells, index);
      ASSERT_TRUE(cell.cell);
      visit(&cell);
      index = cell.cell->link_index;
      cell.sheet = cell.cell->link_sheet;
    }
    auto_cell_release(&cell.cell);
  }
  std::vector<std::string> chain() const {
    std::vector<std::string> cells;
    walk([&](xls_cell_ptr* cell) { cells.push_back(label(cell->sheet, cell->cell)); });
    return cells;
  }
  std::string link(const std::string& a1, int s = 0) const {
    xls_cell_ptr cell = at(a1, s);
    std::string text = label(cell.cell->link_sheet, cell.cell->link_index);
    auto_cell_release(&cell.cell);
    return text;
  }
  std::vector<std::string> unsupported() const {
    uint32_t count = 0;
    const xls_apos_sheet* cells = xls_unsupported_cells(file(), &count);
    std::vector<std::string> names;
    for (uint32_t i = 0; i < count; ++i)
      names.push_back(std::string(1, char('A' + cells[i].column)) + std::to_string(cells[i].row + 1));
    return names;
  }

  // What the open does.
  void build_and_recalc() {
    ASSERT_EQ(0u, dep_init_master(file()));
    ASSERT_EQ(0u, dep_recalc_all_expressions(file(), nullptr));
  }
  uint32_t recalc(const std::string& a1, double number, int s = 0) {
    set(a1, formula_test::num(number), s);
    xls_cell_ptr cell = at(a1, s);
    uint32_t status = dep_recalc(&cell, nullptr, nullptr);
    auto_cell_release(&cell.cell);
    return status;
  }
  // Every formula of the chain stands behind each formula it reads.
  void expect_ordered() {
    std::set<const xls_cell_t*> placed;
    xls_simple_array set = {int(sizeof(xls_cell_ptr)), 0, 0, 16, nullptr};
    walk([&](xls_cell_ptr* cell) {
      ASSERT_EQ(0u, enum_children(cell, &set, nullptr));
      for (int k = 0; k < set.count; ++k) {
        const xls_cell_ptr& child = static_cast<xls_cell_ptr*>(set.data)[k];
        if (child.cell->value.kind == vt_expr) {
          EXPECT_TRUE(placed.count(child.cell))
              << label(child.sheet, child.cell) << " behind " << label(cell->sheet, cell->cell);
        }
      }
      clear_cell_ptr(&set);
      placed.insert(cell->cell);
    });
    free(set.data);
  }

  // Starts again with a new workbook.
  void fresh() { book_.reset(new Book); }

  std::unique_ptr<Book> book_{new Book};
};

// A1 = 1, B1 = A1 + 1, C1 = B1 + 1, whatever the order of the cells and of
// their entry: B1 stands before C1, and a change of A1 recalculates B1 and
// C1 and nothing else, from the shortcut of A1.
TEST_F(Chain, ChangeRecalculatesWhatStandsBehindFromTheShortcut) {
  book_->put("A1", 1.0);
  formula("B1", cat({refer("A1"), int_(1), kAdd}));
  formula("C1", cat({refer("B1"), int_(1), kAdd}));
  formula("D1", int_(100));  // reads nothing: no change reaches it
  build_and_recalc();
  EXPECT_EQ((std::vector<std::string>{"B1", "D1", "C1"}), chain());
  EXPECT_EQ("B1", link("A1"));
  EXPECT_EQ("x:n:3", value("C1"));
  set_cache("D1", 0);
  ASSERT_EQ(0u, recalc("A1", 10));
  EXPECT_EQ("x:n:11", value("B1"));
  EXPECT_EQ("x:n:12", value("C1"));
  EXPECT_EQ("x:n:0", value("D1"));

  // A shortcut that skips B1 shows where the walk starts: B1 stays, and C1,
  // which reads B1 and not A1, too.
  xls_cell_ptr a1 = at("A1");
  a1.cell->link_index = index_of("C1");
  auto_cell_release(&a1.cell);
  ASSERT_EQ(0u, recalc("A1", 20));
  EXPECT_EQ("x:n:11", value("B1"));
  EXPECT_EQ("x:n:12", value("C1"));

  // Laid out the other way round: A2 reads B2 reads C2.
  fresh();
  book_->put("C2", 1.0);
  formula("A2", cat({refer("B2"), int_(1), kAdd}));
  formula("B2", cat({refer("C2"), int_(1), kAdd}));
  build_and_recalc();
  EXPECT_EQ((std::vector<std::string>{"B2", "A2"}), chain());
  EXPECT_EQ("x:n:3", value("A2"));

  // Entered one by one into a built chain, in either order.
  for (bool c_first : {false, true}) {
    fresh();
    book_->put("A1", 1.0);
    ASSERT_EQ(0u, dep_init_master(file()));
    for (std::string a1 : c_first ? std::vector<std::string>{"C1", "B1"}
                                  : std::vector<std::string>{"B1", "C1"}) {
      formula(a1, cat({refer(a1 == "B1" ? "A1" : "B1"), int_(1), kAdd}));
      int32_t index = index_of(a1);
      dep_shift_indices(file(), sheet(), index, 1);  // the table moved the cells behind it
      xls_cell_ptr cell = at(a1);
      ASSERT_EQ(0u, dep_insert_expression_into_list(file(), &cell, index));
      auto_cell_release(&cell.cell);
    }
    EXPECT_EQ((std::vector<std::string>{"B1", "C1"}), chain()) << c_first;
    EXPECT_EQ("B1", link("A1"));
    ASSERT_EQ(0u, recalc("A1", 5));
    EXPECT_EQ("x:n:7", value("C1"));
  }
}

// Cells that read each other keep what the file cached and are listed; a
// formula that reads itself too.  What reads them is computed from their
// cached values.
TEST_F(Chain, CirclesAreListedAndKeepTheirValues) {
  formula("A1", cat({refer("B1"), refer("B2"), kAdd}), 7);
  formula("B1", refer("A1"), 8);
  formula("C1", cat({refer("A1"), int_(1), kAdd}), 0);
  formula("A2", cat({refer("A2"), int_(1), kAdd}), 4);
  formula("B2", int_(5), 9);  // read by a circle only: left out with it
  build_and_recalc();
  EXPECT_EQ((std::vector<std::string>{"A2", "A1", "B1", "B2"}), unsupported());
  EXPECT_EQ((std::vector<std::string>{"C1"}), chain());
  EXPECT_EQ("x:n:7", value("A1"));
  EXPECT_EQ("x:n:8", value("B1"));
  EXPECT_EQ("x:n:4", value("A2"));
  EXPECT_EQ("x:n:9", value("B2"));
  EXPECT_EQ("x:n:8", value("C1"));
  // Taking out a cell the chain never held: a circle kept it out.
  xls_cell_ptr a1 = at("A1");
  EXPECT_EQ(KEL_ERR_CIRCULAR_REFERENCE, dep_remove_expression_from_list(file(), &a1));
  auto_cell_release(&a1.cell);

  // Without any unsupported cell, a formula missing from the chain means a
  // broken chain.
  fresh();
  formula("A1", int_(1));
  formula("B1", int_(2));
  ASSERT_EQ(0u, dep_init_master(file()));
  xls_cell_ptr b1 = at("B1");
  b1.cell->link_sheet = nullptr;  // unhook A1, which stood behind B1
  global()->head_index = index_of("B1");
  global()->head_sheet = sheet();
  xls_cell_ptr cut = at("A1");
  EXPECT_EQ(KEL_ERR_GENERAL, dep_remove_expression_from_list(file(), &cut));
  auto_cell_release(&cut.cell);
  auto_cell_release(&b1.cell);
}

// ROW, COLUMN, ROWS and COLUMNS read where a reference is, not its cells;
// and the first read of a cell decides.
TEST_F(Chain, ReferencesThatOnlyGivePositionsAreNoDependency) {
  formula("A1", cat({refer("A1"), funcvar(1, kRow)}));
  formula("B1", cat({area("B1", "B2"), func(kRows)}));
  book_->put("A5", 1.0);
  formula("C1", cat({area("A5", "A7"), func(kRows), refer("A5"), kAdd}));
  formula("D1", cat({refer("A5"), area("A5", "A7"), func(kRows), kAdd}));
  build_and_recalc();
  EXPECT_TRUE(unsupported().empty());
  EXPECT_EQ("x:n:1", value("A1"));
  EXPECT_EQ("x:n:2", value("B1"));
  EXPECT_EQ("x:n:4", value("C1"));
  EXPECT_EQ("D1", link("A5"));  // C1 reads A5 behind ROWS: not counted
  ASSERT_EQ(0u, recalc("A5", 10));
  EXPECT_EQ("x:n:4", value("C1"));
  EXPECT_EQ("x:n:13", value("D1"));

  xls_apos_sheet position = {sheet(), 0, 0};
  xls_cell_ptr a1 = at("A1");
  bool has_circle = true, in_chain = false;
  ASSERT_EQ(0u, dep_check_for_circle(file(), &position, &a1, &has_circle, &in_chain));
  EXPECT_FALSE(has_circle);
  EXPECT_TRUE(in_chain);
  auto_cell_release(&a1.cell);
}

// A cell no formula reads has no link, and its change walks nothing: a
// broken head would fail any walk.
TEST_F(Chain, ChangeOfACellNobodyReadsWalksNothing) {
  book_->put("A1", 1.0);
  book_->put("A2", 1.0);
  formula("B1", cat({refer("A1"), int_(1), kAdd}));
  build_and_recalc();
  EXPECT_EQ("", link("A2"));
  global()->head_index = 1000;
  EXPECT_EQ(0u, recalc("A2", 3));
  EXPECT_EQ(KEL_ERR_GENERAL, dep_recalc_all_expressions(file(), nullptr));
}

// Columns of formulas running down and up, and one zigzagging between two
// columns: one pass over the chain computes all from stale caches.
TEST_F(Chain, ChainsRunningEitherWayAreOrdered) {
  book_->put("A1", 1.0);
  book_->put("C60", 1.0);
  for (int row = 2; row <= 60; ++row) {
    std::string above = "A" + std::to_string(row - 1), below = "C" + std::to_string(row);
    formula("A" + std::to_string(row), cat({refer(above), int_(1), kAdd}));
    formula("C" + std::to_string(row - 1), cat({refer(below), int_(1), kAdd}));
  }
  // E1 <- F2 <- E3 <- F4 ... down, and G60 -> ... up through H.
  book_->put("E1", 1.0);
  for (int row = 2; row <= 20; ++row) {
    std::string here = std::string(row % 2 ? "E" : "F") + std::to_string(row);
    std::string from = std::string(row % 2 ? "F" : "E") + std::to_string(row - 1);
    formula(here, cat({refer(from), int_(2), kMul}));
  }
  build_and_recalc();
  expect_ordered();
  EXPECT_EQ("x:n:60", value("A60"));
  EXPECT_EQ("x:n:60", value("C1"));
  EXPECT_EQ("x:n:524288", value("F20"));
  EXPECT_EQ(59u + 59u + 19u, chain().size());
  ASSERT_EQ(0u, recalc("C60", 0));
  EXPECT_EQ("x:n:59", value("C1"));
  EXPECT_EQ("x:n:60", value("A60"));
}

// References to other sheets and across a run of sheets.
TEST_F(Chain, ReferencesAcrossSheets) {
  add_sheet_refs();
  book_->put("A1", 2.0, 0);
  book_->put("A1", 3.0, 2);
  formula("A1", cat({ref3d(0, "A1"), int_(10), kMul}), 0, 1);  // Sheet2!A1 = Sheet1!A1 * 10
  formula("B1", cat({ref3d(1, "A1"), int_(1), kAdd}));          // Sheet1!B1 = Sheet2!A1 + 1
  formula("C1", cat({area3d(3, "A1", "A1"), funcvar(1, kSum)}));  // SUM(Sheet1:Sheet3!A1)
  build_and_recalc();
  expect_ordered();
  EXPECT_EQ("x:n:21", value("B1"));
  EXPECT_EQ("x:n:25", value("C1"));
  EXPECT_EQ("2!A1", link("A1"));
  EXPECT_EQ("C1", link("A1", 2));
  ASSERT_EQ(0u, recalc("A1", 4, 2));
  EXPECT_EQ("x:n:26", value("C1"));
  ASSERT_EQ(0u, recalc("A1", 1, 0));
  EXPECT_EQ("x:n:10", value("A1", 1));
  EXPECT_EQ("x:n:11", value("B1"));
  EXPECT_EQ("x:n:15", value("C1"));

  // A name that stands for a cell counts as that cell; one whose definition
  // is lost cannot be followed.
  xls_expr_named_t named = {};
  named.parsed = 1;
  named.packed = read("A1", ref3d(2, "A1", false));
  formula_test::push_element(&file()->names_info, &file()->names, named);
  formula("D1", cat({name(1), int_(1), kAdd}));
  xls_cell_ptr d1 = at("D1");
  xls_cell_ptr a1 = at("A1", 2);
  xls_simple_array one = {int(sizeof(xls_cell_ptr)), 1, 1, 0, &a1};
  bool found = false;
  xls_apos_sheet position = {sheet(), 0, 3};
  EXPECT_EQ(0u, match_children(&position, &d1, &one, &found, nullptr));
  EXPECT_TRUE(found);
  file()->names[0].parsed = 0;
  EXPECT_EQ(KEL_ERR_GENERAL, match_children(&position, &d1, &one, &found, nullptr));
  file()->names[0].parsed = 1;
  auto_cell_release(&a1.cell);
  auto_cell_release(&d1.cell);
}

// What a formula reads: each existing cell once, never its own cell, over
// ranges whose positions mostly have no cell.
TEST_F(Chain, ChildrenAreTheExistingCellsRead) {
  for (const char* a1 : {"A1", "C3", "B7", "D2", "B200"}) book_->put(a1, 1.0);
  formula("B3", cat({area("A1", "C200"), refer("C3"), kAdd, refer("B3"), kAdd}));
  xls_cell_ptr b3 = at("B3");
  xls_simple_array set = {int(sizeof(xls_cell_ptr)), 0, 0, 16, nullptr};
  ASSERT_EQ(0u, enum_children(&b3, &set, nullptr));
  std::vector<std::string> names;
  for (int i = 0; i < set.count; ++i) {
    const xls_cell_ptr& child = static_cast<xls_cell_ptr*>(set.data)[i];
    names.push_back(std::string(1, char('A' + child.cell->column)) + std::to_string(child.cell->row + 1));
    EXPECT_EQ(1, child.cell->use_count);
  }
  EXPECT_EQ((std::vector<std::string>{"A1", "B7", "B200", "C3"}), names);
  clear_cell_ptr(&set);
  xls_cell_ptr c3 = at("C3");
  EXPECT_EQ(1, c3.cell->use_count);  // the set gave its pins back
  auto_cell_release(&c3.cell);
  free(set.data);
  auto_cell_release(&b3.cell);
}

// Whether a new formula at D1 would close a circle: directly, through the
// last formula it reads, or through one that stands before that last.
TEST_F(Chain, CheckForCircle) {
  formula("A1", int_(7));                            // last in the chain
  formula("B2", cat({refer("D1"), int_(1), kAdd}));     // reads D1
  formula("B3", cat({refer("B2"), int_(1), kAdd}));     // reads D1 through B2
  formula("B4", cat({refer("E9"), int_(1), kAdd}));     // reads what is not there
  book_->put("D1", 1.0);
  ASSERT_EQ(0u, dep_init_master(file()));
  ASSERT_EQ("A1", chain().back());
  xls_apos_sheet position = {sheet(), 0, 3};
  struct Case {
    Bytes tokens;
    bool circle;
  } cases[] = {
      {cat({refer("D1"), int_(1), kAdd}), true},
      {cat({refer("D1"), funcvar(1, kRow)}), false},
      {refer("A1"), false},
      {cat({refer("B2"), refer("A1"), kAdd}), true},
      {cat({refer("A1"), refer("B3"), kAdd}), true},
      {cat({refer("B4"), refer("A1"), kAdd}), false},
      {cat({area("B3", "B4"), func(kRows)}), false},
      {area("B3", "B4"), true},
  };
  for (const Case& c : cases) {
    xls_packed_expr_t packed = read("D1", c.tokens);
    xls_basic_value_t cache = {};
    xls_value_t value;
    xls_create_expr_value(&value, &packed, &cache);
    set("D1", value);
    xls_cell_ptr d1 = at("D1");
    bool has_circle = !c.circle, in_chain = true;
    ASSERT_EQ(0u, dep_check_for_circle(file(), &position, &d1, &has_circle, &in_chain));
    EXPECT_EQ(c.circle, has_circle) << &c - cases;
    EXPECT_FALSE(in_chain);
    EXPECT_EQ(0, global()->working_set.count);
    auto_cell_release(&d1.cell);
  }
}

// Formulas in and out of the chain, and the links of the plain cells they
// read following.
TEST_F(Chain, InsertAndRemove) {
  book_->put("A1", 1.0);
  formula("B1", cat({refer("A1"), int_(1), kAdd}));
  formula("C1", cat({refer("B1"), int_(1), kAdd}));
  formula("E1", cat({refer("A1"), int_(10), kAdd}));
  build_and_recalc();
  EXPECT_EQ((std::vector<std::string>{"B1", "E1", "C1"}), chain());
  EXPECT_EQ("B1", link("A1"));

  // Out: the plain cell it led to turns to the next reader.
  xls_cell_ptr b1 = at("B1");
  ASSERT_EQ(0u, dep_remove_expression_from_list(file(), &b1));
  EXPECT_EQ((std::vector<std::string>{"E1", "C1"}), chain());
  EXPECT_EQ("E1", link("A1"));
  EXPECT_EQ("", link("B1"));
  // In again: behind the last formula it reads, or at the front.
  ASSERT_EQ(0u, dep_insert_expression_into_list(file(), &b1, index_of("B1")));
  EXPECT_EQ((std::vector<std::string>{"B1", "E1", "C1"}), chain());
  EXPECT_EQ("B1", link("A1"));
  auto_cell_release(&b1.cell);
  formula("D1", cat({refer("B1"), refer("A1"), kAdd}));
  xls_cell_ptr d1 = at("D1");
  dep_shift_indices(file(), sheet(), index_of("D1"), 1);
  ASSERT_EQ(0u, dep_insert_expression_into_list(file(), &d1, index_of("D1")));
  auto_cell_release(&d1.cell);
  EXPECT_EQ((std::vector<std::string>{"B1", "D1", "E1", "C1"}), chain());
  expect_ordered();
  ASSERT_EQ(0u, recalc("A1", 2));
  EXPECT_EQ("x:n:5", value("D1"));
  EXPECT_EQ("x:n:12", value("E1"));

  // The head out, then the rest: an empty chain, no links left.
  for (const char* a1 : {"E1", "B1", "D1", "C1"}) {
    xls_cell_ptr cell = at(a1);
    ASSERT_EQ(0u, dep_remove_expression_from_list(file(), &cell)) << a1;
    auto_cell_release(&cell.cell);
  }
  EXPECT_TRUE(chain().empty());
  EXPECT_EQ("", link("A1"));
}

// Cells that move in a table take the links into them along, on this sheet
// and from others.
TEST_F(Chain, ShiftedIndexes) {
  add_sheet_refs();
  book_->put("A7", 1.0);
  formula("B5", cat({refer("A7"), int_(1), kAdd}));  // index 0, where the new cell goes
  formula("C5", cat({refer("B5"), int_(1), kAdd}));
  formula("A1", cat({ref3d(0, "C5"), int_(1), kAdd}), 0, 1);
  build_and_recalc();
  std::vector<std::string> before = chain();
  EXPECT_EQ((std::vector<std::string>{"B5", "C5", "2!A1"}), before);
  book_->put("A2", 9.0);
  dep_shift_indices(file(), sheet(), index_of("A2"), 1);
  EXPECT_EQ(before, chain());
  EXPECT_EQ("B5", link("A7"));
  ASSERT_EQ(0u, recalc("A7", 5));
  EXPECT_EQ("x:n:8", value("A1", 1));
  // Back down, after the cell at index 0 left the table.
  set("A2", formula_test::empty());
  ASSERT_EQ(0u, xls_array_remove(&sheet()->cells, 0));
  dep_shift_indices(file(), sheet(), 1, -1);
  EXPECT_EQ(before, chain());
  EXPECT_EQ("B5", link("A7"));
}

// A sheet going away leaves nothing of it in the chain, and the plain cells
// of other sheets that led into it lead elsewhere.
TEST_F(Chain, DeletedSheetLeavesTheChain) {
  add_sheet_refs();
  book_->put("A1", 1.0);
  formula("A1", cat({ref3d(0, "A1"), int_(1), kAdd}), 0, 1);   // Sheet2!A1
  formula("B1", cat({ref3d(1, "A1"), int_(1), kAdd}), 0, 1);   // Sheet2!B1
  formula("B1", cat({refer("A1"), int_(2), kAdd}));               // Sheet1!B1
  formula("C1", cat({ref3d(1, "B1"), int_(3), kAdd}));          // Sheet1!C1
  book_->put("A1", 4.0, 2);
  formula("A2", cat({ref3d(0, "A1"), int_(5), kAdd}), 0, 2);   // Sheet3!A2
  build_and_recalc();
  expect_ordered();
  EXPECT_EQ("2!A1", link("A1"));
  ASSERT_EQ(0u, dep_delete_sheet(file(), sheet(1)));
  for (const std::string& cell : chain()) EXPECT_NE("2!", cell.substr(0, 2)) << cell;
  std::vector<std::string> left = chain();
  ASSERT_EQ(3u, left.size());
  // The first of Sheet1!B1 and Sheet3!A2, which read A1.
  EXPECT_EQ(*std::find_if(left.begin(), left.end(),
                          [](const std::string& cell) { return cell == "B1" || cell == "3!A2"; }),
            link("A1"));
  for (const char* a1 : {"A1", "B1"}) EXPECT_EQ("", link(a1, 1));
}

}  // namespace
