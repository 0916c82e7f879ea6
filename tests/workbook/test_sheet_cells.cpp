// The cell side of a sheet: the sorted cell table, the cells and settings a
// scan reads, what a cell's XF says, selection, panes and extent.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "biff_test_file.h"
#include "format/kel_locale.h"
#include "formula/xls_formula_text.h"
#include "workbook/kel_xls_sheet.h"
#include "test_support.h"

using biff_test::add16;
using biff_test::add32;
using biff_test::Book;
using biff_test::Bytes;
using biff_test::one_sheet;
using biff_test::Stream;
using biff_test::text;

namespace {

std::u16string str(const unsigned short* units) {
  return units ? std::u16string(reinterpret_cast<const char16_t*>(units)) : u"(null)";
}

// The cell at (column, row), or null; its use count is left as it was.
xls_cell_t* cell_at(xls_sheet_t* sheet, int column, int row) {
  auto_value_t value = nullptr;
  EXPECT_EQ(0u, xls_get_cell_value(sheet, column, row, &value));
  xls_cell_t* cell = value;
  auto_cell_release(&value);
  return cell;
}

// A plain cell's value, or a formula's cached result.
const xls_basic_value_t& basic(const xls_cell_t* cell) {
  return cell->value.kind == vt_expr ? cell->value.u.expr.cache : cell->value.u.basic;
}

TEST(CellCache, ChunkedTableKeepsOrderFindsAndRefusesDuplicates) {
  zuv_mem mem;
  zuv_mem_system(&mem);
  // The chunk factor: available * 15 / 3,600,000 in 32 bits, 1 to 20.
  for (auto f : {std::make_pair(0u, 1), {2640000u, 11}, {64u << 20, 20}, {286331154u, 1}}) {
    kel_cell_cache_t cache;  // the last product wraps to 14
    kel_cell_cache_init(&cache, &mem, f.first);
    EXPECT_EQ(f.second, cache.chunk_factor) << f.first;
  }
  // Chunks of 1,000 cells, then of 6, filled in random order.
  for (int grow_step : {500, 3}) {
    kel_cell_cache_t cache;
    kel_cell_cache_init(&cache, &mem, 480000);  // factor 2
    cache.grow_step = grow_step;
    const int count = grow_step == 500 ? 2600 : 700;
    std::vector<std::pair<uint32_t, uint32_t>> sorted;  // (row, column)
    for (int i = 0; i < count; ++i) sorted.push_back({(uint32_t)i / 5 * 2, (uint32_t)i % 5 * 3 + 1});
    std::vector<std::pair<uint32_t, uint32_t>> order = sorted;
    std::shuffle(order.begin(), order.end(), std::mt19937(5));
    for (const auto& p : order) {
      xls_cell_t cell = {};
      cell.row = p.first, cell.column = p.second;
      xls_value_double(&cell.value, p.first * 1000.0 + p.second);
      ASSERT_EQ(0u, kel_cell_cache_insert(&cache, &cell, nullptr));
    }
    // A second cell at a taken place is refused, and its value stays ours.
    xls_cell_t twice = {};
    twice.row = sorted[count / 2].first, twice.column = sorted[count / 2].second;
    xls_value_string(&twice.value, static_cast<unsigned short*>(calloc(4, 2)));
    EXPECT_EQ(KEL_ERR_GENERAL, kel_cell_cache_insert(&cache, &twice, nullptr));
    xls_free_value(&twice.value);
    ASSERT_EQ(count, kel_cell_cache_count(&cache));

    kel_cell_iterator it;
    kel_cell_cache_init_it(&it, &cache);
    int n = 0;
    for (xls_cell_t* cell; (cell = kel_cell_cache_next_cell(&it)); ++n)
      ASSERT_EQ(sorted.at(n), std::make_pair(cell->row, cell->column));
    EXPECT_EQ(count, n);
    // Every place, taken or not, across all chunk boundaries: the index of
    // the cell or of the first one after it.  A lookup near a hint finds
    // the same, whether the hint is the walk's own, far off or past the end.
    kel_cell_hint walk_hint = {};
    for (uint32_t row = 0; row <= sorted.back().first + 1; ++row) {
      for (uint32_t column = 0; column <= 16; ++column) {
        auto expected = std::lower_bound(sorted.begin(), sorted.end(), std::make_pair(row, column));
        const int index = (int)(expected - sorted.begin());
        const bool taken = expected != sorted.end() && *expected == std::make_pair(row, column);
        bool found = false;
        ASSERT_EQ(index, kel_cell_cache_find_pos(&cache, column, row, &found)) << row << "," << column;
        ASSERT_EQ(taken, found);
        kel_cell_hint far = {}, past = {};
        far.index = count / 3;
        past.index = count + 7;
        for (kel_cell_hint* hint : {&walk_hint, &far, &past}) {
          auto_cell_t cell = nullptr;
          kel_cell_cache_find_cell_near(&cell, &cache, column, row, hint);
          ASSERT_EQ(index, hint->index) << row << "," << column;
          ASSERT_EQ(taken ? xls_array_access(&cache, index) : nullptr, (void*)cell);
          auto_cell_release(&cell);
        }
      }
    }
    // Appending takes only places behind the last cell, and goes on behind
    // a cell inserted meanwhile; what it appends reads as inserted cells do.
    kel_cell_appender appender;
    kel_cell_appender_init(&appender, &cache);
    const uint32_t last_row = sorted.back().first;
    xls_cell_t* appended = nullptr;
    xls_value_t value;
    xls_value_long(&value, 7);
    for (uint32_t column : {0u, 13u}) {
      EXPECT_EQ(0u, kel_cell_cache_append(&appender, column, last_row, 3, 1, &value, 9, &appended));
      EXPECT_EQ(nullptr, appended) << column;  // not behind the last cell
    }
    xls_cell_t between = {};
    between.row = last_row + 1;
    between.column = 5;
    ASSERT_EQ(0u, kel_cell_cache_insert(&cache, &between, nullptr));
    for (uint32_t column = 6; column < 6 + 2u * grow_step; ++column) {
      ASSERT_EQ(0u, kel_cell_cache_append(&appender, column, last_row + 1, 3, 1, &value, 9, &appended));
      ASSERT_TRUE(appended && appended->column == column && appended->sst_index == 9 &&
                  appended->use_count == 0 && appended->value.u.basic.u.long_value == 7);
      ASSERT_EQ(appended, xls_array_access(&cache, kel_cell_cache_count(&cache) - 1));
    }
    EXPECT_EQ(0u, kel_cell_cache_append(&appender, 6, last_row + 1, 3, 1, &value, 9, &appended));
    EXPECT_EQ(nullptr, appended);
    EXPECT_EQ(count + 1 + 2 * grow_step, kel_cell_cache_count(&cache));
    EXPECT_EQ(5u, ((xls_cell_t*)xls_array_access(&cache, count))->column);

    // Counted pointers: a lookup that finds nothing lets go of the old cell.
    auto_cell_t a = nullptr, b = nullptr;
    kel_cell_cache_find_cell(&a, &cache, 4, 200);
    kel_cell_cache_find_cell(&b, &cache, 4, 200);
    ASSERT_TRUE(a && a == b && a->row * 1000.0 + 4 == a->value.u.basic.u.double_value);
    EXPECT_EQ(2, b->use_count);
    kel_cell_cache_find_cell(&a, &cache, 5, 200);
    EXPECT_TRUE(a == nullptr && b->use_count == 1);
    kel_cell_cache_free(&cache);
  }
}

// 16 plain XFs and an SST of "plain" and "rich", the second with a run.
void sst_globals(Stream& s) {
  for (int i = 0; i < 16; ++i) s.xf(0, 0, 0);
  Bytes sst, plain = text(u"plain"), rich = text(u"rich");
  add32(&sst, 3), add32(&sst, 2);
  rich[2] |= 0x08;
  rich.insert(rich.begin() + 3, {1, 0});
  rich.insert(rich.end(), {1, 0, 2, 0});
  sst.insert(sst.end(), plain.begin(), plain.end());
  sst.insert(sst.end(), rich.begin(), rich.end());
  s.record(0xFC, sst);
}

TEST(SheetScan, CellRecordsGiveCellsAndTheirValues) {
  Book book(one_sheet(
      [](Stream& s) {
        s.number(5, 1, 3, -2.5);
        s.number(0, 0, 1, 7);  // before the others: inserted in order
        s.rk(1, 0, 2, 0x3FF80000);               // 1.5
        s.rk(1, 1, 2, 0x40934800 | 1);           // 1234 / 100
        s.rk(1, 2, 2, ((uint32_t)-7 << 2) | 2);  // -7
        s.rk(1, 3, 2, (12345u << 2) | 3);        // 123.45
        s.rk(1, 4, 2, (500u << 2) | 3);          // 5
        s.mulrk(2, 3, {{4, (9u << 2) | 2}, {5, 0x40000000}, {6, (250u << 2) | 3}});
        s.blank(3, 0, 7);
        s.mulblank(3, 2, {8, 9, 10});
        s.record(0xBE, {4, 0, 0, 0, 1, 0, 1});  // MULBLANK of 7 bytes: no cells
        s.label(4, 0, 11, u"inline");
        s.label(4, 1, 11, u"\u0416ide");
        s.labelsst(4, 2, 12, 0);
        s.labelsst(4, 3, 12, 1);
        s.boolerr(4, 4, 13, 1, false);
        s.boolerr(4, 5, 13, 42, true);
        s.number(5, 1, 3, 99);  // written again: the later record counts
        s.bof(0x20);            // an embedded chart: its numbers are no cells
        s.number(9, 9, 0, 1);
        s.eof();
        s.window2();
      },
      sst_globals));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  EXPECT_EQ(20, kel_cell_cache_count(&sheet->cells));
  EXPECT_EQ(1, sheet->charts.count);
  EXPECT_EQ(std::vector<uint32_t>({0, 6, 0, 6}),
            std::vector<uint32_t>(
                {sheet->first_row, sheet->last_row, sheet->first_col, sheet->last_col}));
  struct Expect {
    int column, row;
    uint32_t kind;
    double number;
    uint16_t xf;
  };
  for (const Expect& e : {Expect{0, 0, bvt_double, 7, 1}, {1, 5, bvt_double, 99, 3},
                          {0, 1, bvt_double, 1.5, 2}, {1, 1, bvt_double, 12.34, 2},
                          {2, 1, bvt_long, -7, 2}, {3, 1, bvt_double, 123.45, 2},
                          {4, 1, bvt_long, 5, 2}, {3, 2, bvt_long, 9, 4},
                          {4, 2, bvt_double, 2, 5}, {5, 2, bvt_double, 2.5, 6},
                          {0, 3, bvt_empty, 0, 7}, {2, 3, bvt_empty, 0, 8},
                          {4, 3, bvt_empty, 0, 10}, {4, 4, bvt_bool, 1, 13},
                          {5, 4, bvt_error, 42, 13}}) {
    const xls_cell_t* cell = cell_at(sheet, e.column, e.row);
    ASSERT_NE(nullptr, cell) << e.column << "," << e.row;
    EXPECT_EQ((uint32_t)vt_basic, cell->value.kind);
    ASSERT_EQ(e.kind, basic(cell).kind) << e.column << "," << e.row;
    const auto& u = basic(cell).u;
    double got = e.kind == bvt_long ? u.long_value : e.kind == bvt_double ? u.double_value
               : e.kind == bvt_bool ? u.boolean : e.kind == bvt_error ? u.error : 0;
    EXPECT_DOUBLE_EQ(e.number, got) << e.column << "," << e.row;
    EXPECT_EQ(e.xf, cell->xf);
  }
  EXPECT_EQ(nullptr, cell_at(sheet, 1, 3));
  EXPECT_EQ(nullptr, cell_at(sheet, 9, 9));
  // Strings: LABEL's inline, LABELSST's with their index and rich flag.
  const std::u16string texts[] = {u"inline", u"\u0416ide", u"plain", u"rich"};
  const uint32_t sst_indexes[] = {XLS_NO_SST_INDEX, XLS_NO_SST_INDEX, 0, 1};
  const uint8_t flags[] = {XLS_CELL_INLINE_STRING, XLS_CELL_INLINE_STRING, 0, XLS_CELL_RICH_STRING};
  for (int column = 0; column < 4; ++column) {
    const xls_cell_t* cell = cell_at(sheet, column, 4);
    ASSERT_NE(nullptr, cell);
    EXPECT_EQ(texts[column], str(basic(cell).u.string));
    EXPECT_EQ(sst_indexes[column], cell->sst_index);
    EXPECT_EQ(flags[column], cell->flags);
    EXPECT_EQ(0, cell->use_count);
  }
}

// Shared strings reach their cells alike whether the open holds the
// table's texts (memory allows) or fetches each from the file: a string
// split over a CONTINUE that switches to two-byte characters, one that
// starts a CONTINUE, and an index past the table.
TEST(SheetScan, SharedStringsAlikeFromTheTextTableAndTheFile) {
  auto globals = [](Stream& s) {
    for (int i = 0; i < 16; ++i) s.xf(0, 0, 0);
    Bytes sst, first = text(u"alpha"), split = text(u"abcd");
    add32(&sst, 9), add32(&sst, 3);
    sst.insert(sst.end(), first.begin(), first.end());
    split[0] = 8;  // eight characters, four of them here
    sst.insert(sst.end(), split.begin(), split.end());
    s.record(0xFC, sst);
    Bytes rest = {1};
    for (char16_t c : std::u16string(u"\u0436fgh")) add16(&rest, c);
    Bytes last = text(u"omega");
    rest.insert(rest.end(), last.begin(), last.end());
    s.record(0x3C, rest);
  };
  auto sheet = [](Stream& s) {
    for (uint16_t row = 0; row < 3; ++row)
      for (uint16_t column = 0; column < 3; ++column) s.labelsst(row, column, 0, (row + column) % 3);
    s.labelsst(3, 0, 0, 7);
    s.window2();
  };
  const std::u16string expected[] = {u"alpha", u"abcd\u0436fgh", u"omega"};
  for (bool table : {true, false}) {
    biff_test::Pool pool(biff_test::compound(one_sheet(sheet, globals)));
    if (!table) pool.pool.mem.available = [] { return 0u; };
    xls_file* file = nullptr;
    ASSERT_EQ(0u, pool.open(&file)) << table;
    xls_sheet_t* s = xls_sheet_handle(file, 0);
    for (int row = 0; row < 3; ++row)
      for (int column = 0; column < 3; ++column) {
        const xls_cell_t* cell = cell_at(s, column, row);
        ASSERT_NE(nullptr, cell);
        EXPECT_EQ(expected[(row + column) % 3], str(basic(cell).u.string)) << table;
        EXPECT_EQ((uint32_t)(row + column) % 3, cell->sst_index);
      }
    const xls_cell_t* past = cell_at(s, 0, 3);
    ASSERT_NE(nullptr, past);
    EXPECT_EQ((uint32_t)bvt_string, basic(past).kind);
    EXPECT_EQ(nullptr, tabulon_test::copied(basic(past).u.string));
    xls_close(file);
  }
}

TEST(SheetScan, FormulaCellsKeepTheirCachedResult) {
  Book book(one_sheet([](Stream& s) {
    s.formula(0, 0, 1, Stream::f64(6.25));
    s.formula(0, 1, 1, Stream::result(1, 1), 0, 0x206);  // id 0x206 read alike
    s.formula(0, 2, 1, Stream::result(2, 7));
    s.formula(0, 3, 1, Stream::result(3));
    s.formula(1, 0, 1, Stream::result(0));
    s.string(u"text \u0436");
    s.formula(1, 1, 1, Stream::result(0));
    s.record(0x4BC, Bytes(16, 0));  // SHRFMLA before the STRING
    s.string(u"shared");
    s.formula(1, 2, 1, Stream::result(0));
    s.record(0x221, Bytes(20, 0));  // ARRAY before the STRING
    s.string(u"array");
    s.formula(2, 0, 1, Stream::result(0));  // no STRING
    s.number(2, 1, 0, 3);
    s.formula(2, 2, 1, Stream::result(9));  // an unknown kind
    // =TEXT(1,1): a function the engine can't compute keeps the workbook
    // from recalculating, so the results read here stay as cached.
    Bytes text_call = Stream::cell(3, 0, 1, Stream::f64(0));
    add16(&text_call, 0), add32(&text_call, 0), add16(&text_call, 9);
    for (uint8_t byte : {0x1E, 0x01, 0x00, 0x1E, 0x01, 0x00, 0x21, 0x30, 0x00}) text_call.push_back(byte);
    s.record(0x06, text_call);
    s.window2();
  }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  const uint32_t kinds[2][4] = {{bvt_double, bvt_bool, bvt_error, bvt_empty},
                                {bvt_string, bvt_string, bvt_string}};
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < (row ? 3 : 4); ++column) {
      const xls_cell_t* cell = cell_at(sheet, column, row);
      ASSERT_NE(nullptr, cell) << column << "," << row;
      ASSERT_EQ((uint32_t)vt_expr, cell->value.kind) << column << "," << row;
      ASSERT_EQ(kinds[row][column], cell->value.u.expr.cache.kind) << column << "," << row;
    }
  }
  EXPECT_EQ(6.25, tabulon_test::copied(basic(cell_at(sheet, 0, 0)).u.double_value));
  EXPECT_EQ(1, basic(cell_at(sheet, 1, 0)).u.boolean);
  EXPECT_EQ(7u, basic(cell_at(sheet, 2, 0)).u.error);
  EXPECT_EQ(u"text \u0436", str(basic(cell_at(sheet, 0, 1)).u.string));
  EXPECT_EQ(u"shared", str(basic(cell_at(sheet, 1, 1)).u.string));
  EXPECT_EQ(u"array", str(basic(cell_at(sheet, 2, 1)).u.string));
  // Internal errors stand in for the value itself.
  const xls_cell_t* missing = cell_at(sheet, 0, 2);
  const xls_cell_t* unknown = cell_at(sheet, 2, 2);
  ASSERT_TRUE(missing && unknown);
  EXPECT_TRUE(missing->value.kind == vt_basic && unknown->value.kind == vt_basic);
  EXPECT_EQ((uint32_t)bvt_error, basic(missing).kind);
  EXPECT_EQ((uint32_t)xls_error_missing_string, basic(missing).u.error);
  EXPECT_EQ((uint32_t)xls_error_unknown_result, basic(unknown).u.error);
  EXPECT_EQ(3.0, basic(cell_at(sheet, 1, 2)).u.double_value);

  // Formulas too short for their fields or their tokens stop the open.
  Bytes short_body = Stream::cell(0, 0, 0, Bytes(15, 0));
  Bytes long_tokens = Stream::cell(0, 0, 0, Bytes(14, 0));
  add16(&long_tokens, 5), long_tokens.push_back(0x1E), long_tokens.push_back(1);
  for (const Bytes& body : {short_body, long_tokens}) {
    Book bad(one_sheet([&](Stream& s) { s.record(0x06, body), s.window2(); }));
    EXPECT_EQ(KEL_ERR_GENERAL, bad.status);
  }
}

uint32_t rgb(DRGBValue colour) { return colour.red << 16 | colour.green << 8 | colour.blue; }
const uint32_t kBlack = 0, kWhite = 0xFFFFFF, kRed = 0xFF0000, kGreen = 0x00FF00, kBlue = 0x0000FF;

// XF 0 a style; 1 to 14 cell XFs using all; 15 plain; 16 to 20 and 257 cell XFs
// with their own and inherited attributes; 256 a cell XF that 257 names as
// its parent.
void xf_globals(Stream& s) {
  s.xf(2, 164, 0xFFF5, 0x21, 0x20, 0x5000, 1u << 26 | 0x1234, 2 << 7 | 4);
  for (int i = 1; i < 15; ++i) s.xf(1, 10, 1, 0, 0xFC);
  s.xf(0, 3, 1);
  s.xf(0, 0, 0, 0x03, 0x10);  // 16: inherits from XF 0 what it doesn't set
  s.xf(3, 2, 0x0010);         // 17: the low 12 bits aren't clear: no parent
  s.xf(5, 30, 1, 0, 0x08 | 0x20 | 0x40, 0x3000, 2u << 26, 2 << 7 | 4);  // 18
  s.xf(7, 0, 1, 0, 0x08);     // 19: font 7 stands for the file's 6: none
  s.xf(3, 200, 1, 0, 0x08);   // 20
  for (int i = 21; i < 256; ++i) s.xf(0, 0, 1);
  s.xf(1, 10, 0x0001, 0x07, 0x08 | 0x04 | 0x20, 0x7000);  // 256
  s.xf(0, 0, 0x1000, 0x05);                // 257: parent 256
}

TEST(SheetScan, ASharedFormulaCallingWhatIsNotComputedKeepsItsTree) {
  // =TEXT(1,1) shared by A5 and A6, and A7's group whose record can't be
  // read (an add-in call): the cells of the first keep their formula, all
  // three are listed as unsupported.
  auto exp_cell = [](Stream& s, uint16_t row, uint16_t anchor) {
    Bytes body = Stream::cell(row, 0, 1, Stream::f64(0));
    add16(&body, 0x08), add32(&body, 0), add16(&body, 5);
    body.push_back(0x01), add16(&body, anchor), add16(&body, 0);
    s.record(0x06, body);
  };
  auto shared_record = [](Stream& s, uint16_t first, uint16_t last, const Bytes& tokens) {
    Bytes body;
    add16(&body, first), add16(&body, last), body.push_back(0), body.push_back(0);
    body.push_back(0), body.push_back(2), add16(&body, (uint16_t)tokens.size());
    body.insert(body.end(), tokens.begin(), tokens.end());
    s.record(0x4BC, body);
  };
  Book book(one_sheet([&](Stream& s) {
    exp_cell(s, 4, 4);
    shared_record(s, 4, 5, {0x1E, 0x01, 0x00, 0x1E, 0x01, 0x00, 0x21, 0x30, 0x00});
    exp_cell(s, 5, 4);
    exp_cell(s, 6, 6);
    shared_record(s, 6, 6, {0x22, 0x00, 0xFF, 0x00});
    s.window2();
  }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  for (int row : {4, 5}) {
    const xls_cell_t* cell = cell_at(sheet, 0, row);
    ASSERT_TRUE(cell && cell->value.kind == vt_expr && xls_is_parsed_expr(&cell->value.u.expr.packed));
    unsigned short* text = nullptr;
    ASSERT_EQ(0u, xls_expr_to_input_str(sheet, row, 0, &cell->value.u.expr.packed, &text, nullptr));
    EXPECT_EQ(u"=TEXT(1,1)", str(text)) << row;
    free(text);
  }
  const xls_cell_t* unread = cell_at(sheet, 0, 6);
  ASSERT_TRUE(unread && unread->value.kind == vt_expr);
  EXPECT_FALSE(xls_is_parsed_expr(&unread->value.u.expr.packed));
  uint32_t count = 0;
  const xls_apos_sheet* unsupported = xls_unsupported_cells(book.file, &count);
  std::vector<int> rows;
  for (uint32_t i = 0; i < count; ++i) rows.push_back(unsupported[i].row);
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
  EXPECT_EQ((std::vector<int>{4, 5, 6}), rows);
}

TEST(CellRead, FormatsComeFromTheXfAndItsStyle) {
  Book book(one_sheet(
      [](Stream& s) {
        s.row_blocks(3, 6, {{3, 0x8000, 0x80, 0x3012}, {4, 0x8000, 0, 20}, {5, 0x8000, 0x80, 300}});
        s.colinfo(1, 1, 0x900, 17);
        const uint16_t xfs[] = {16, 17, 18, 19, 20, 257};
        for (int column = 0; column < 6; ++column) s.number(0, column, xfs[column], column);
        s.number(1, 1, 0xFFFF, 1);
        s.window2();
      },
      xf_globals));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  xls_file* file = book.file;
  const uint8_t all = XLS_READ_CELL | XLS_READ_NUMBER_FORMAT | XLS_READ_FONT |
                      XLS_READ_ALIGNMENT | XLS_READ_FILL;
  struct Expect {
    int column, font;
    uint32_t font_colour;
    std::u16string format;
    uint32_t alignment, protection, border, pattern, foreground, background;
  };
  // 16: font, format, fill and protection from the style, not its border.
  // 17: nothing used: font 0, automatic colour, no fill.  18: font 5 is the
  // file's fifth (BIFF has no font 4); pattern 2 swaps the colours.
  // 257: what its parent, a cell XF, marks used.
  xls_read_cell_info info = {};
  for (const Expect& e : {Expect{0, 2, kRed, u"0.000", 0x03, 0xFFF5, 0, 1, kRed, kBlue},
                          Expect{1, 0, kBlack, u"0.0#", 0, 0x0010, 0, 0, kWhite, kBlack},
                          Expect{2, 4, kBlue, u"General", 0, 1, 3, 2, kBlue, kRed},
                          Expect{4, 3, kGreen, u"General", 0, 1, 0, 0, kWhite, kBlack},
                          Expect{5, 1, kWhite, u"0.00%", 0x05, 0x1000, 7, 0, kWhite, kBlack}}) {
    info.flags = all;
    ASSERT_EQ(0u, xls_read_cell(sheet, e.column, 0, &info, nullptr)) << e.column;
    EXPECT_TRUE(info.flags & XLS_CELL_EXISTS);
    EXPECT_EQ(cell_at(sheet, e.column, 0), info.cell);
    EXPECT_EQ(1, info.cell->use_count);
    EXPECT_EQ(&file->fonts[e.font], info.font) << e.column;
    EXPECT_EQ(e.format, str(info.number_format)) << e.column;
    EXPECT_EQ(std::vector<uint32_t>({e.font_colour, e.alignment, e.protection, e.border,
                                     e.pattern, e.foreground, e.background}),
              std::vector<uint32_t>({rgb(info.font_colour), info.alignment, info.protection,
                                     info.border_lines, info.fill_pattern,
                                     rgb(info.fill_foreground), rgb(info.fill_background)}))
        << e.column;
  }
  EXPECT_EQ(0, cell_at(sheet, 0, 0)->use_count);  // let go by the next read
  info.flags = XLS_READ_FONT;
  EXPECT_EQ(KEL_ERR_GENERAL, xls_read_cell(sheet, 3, 0, &info, nullptr));
  info.flags = XLS_READ_NUMBER_FORMAT | XLS_READ_ALIGNMENT;  // XF 0xFFFF: the column's
  ASSERT_EQ(0u, xls_read_cell(sheet, 1, 1, &info, nullptr));
  EXPECT_EQ(u"0.0#", str(info.number_format));
  EXPECT_EQ(2, info.number_format_index);
  EXPECT_EQ(cell_at(sheet, 5, 0), info.cell);  // not asked for: kept
  auto_cell_release(&info.cell);

  // Empty cells: the row's XF if valid, else the column's, else 15.
  struct Empty {
    int column, row;
    uint16_t xf;
  };
  for (const Empty& e : {Empty{0, 3, 18}, Empty{1, 4, 17}, Empty{1, 6, 17}, Empty{2, 4, 15}}) {
    info.flags = XLS_READ_ALIGNMENT | XLS_CELL_EXISTS | XLS_READ_NUMBER_FORMAT;
    ASSERT_EQ(0u, xls_read_cell(sheet, e.column, e.row, &info, nullptr)) << e.column;
    EXPECT_FALSE(info.flags & XLS_CELL_EXISTS);
    EXPECT_EQ(e.xf, info.xf) << e.column << "," << e.row;
  }
  EXPECT_EQ(u"#,##0", str(info.number_format));
  EXPECT_EQ(KEL_ERR_GENERAL, xls_read_cell(sheet, 0, 5, &info, nullptr));
  // Built-in formats stop at 49, and some below have no text.
  EXPECT_EQ(u"@", str(xls_get_number_format(file, 49, nullptr)));
  EXPECT_EQ(nullptr, xls_get_number_format(file, 30, nullptr));
  EXPECT_EQ(nullptr, xls_get_number_format(file, 50, nullptr));
}

TEST(CellRead, NumberFormatsStayRightWhenRemembered) {
  // A2 General and B2 D-MMM share a slot of the file's memo of format
  // texts; C2's short date follows the locale, even one changed in place.
  Book book(one_sheet(
      [](Stream& s) {
        s.number(1, 0, 21, 1);
        s.number(1, 1, 259, 2);
        s.number(1, 2, 258, 3);
        s.window2();
      },
      [](Stream& s) {
        xf_globals(s);
        s.xf(0, 14, 1);  // 258
        s.xf(0, 16, 1);  // 259
      }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  xls_read_cell_info info = {};
  auto format = [&](int column, const xls_locale* locale) {
    info.flags = XLS_READ_NUMBER_FORMAT;
    EXPECT_EQ(0u, xls_read_cell(sheet, column, 1, &info, locale));
    return str(info.number_format);
  };
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(u"General", format(0, nullptr));
    EXPECT_EQ(u"D-MMM", format(1, nullptr));
  }
  xls_locale locale = {};
  locale.date_order = XLS_DATE_DMY;
  EXPECT_EQ(u"D/M/YYYY", format(2, &locale));
  locale.date_order = XLS_DATE_YMD;
  EXPECT_EQ(u"YYYY/M/D", format(2, &locale));
  EXPECT_EQ(u"M/D/YYYY", format(2, nullptr));
  EXPECT_EQ(u"D-MMM", format(1, &locale));
}

TEST(SheetWindow, SelectionAndPanes) {
  Book book(one_sheet([](Stream& s) { s.window2(); }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  auto selection = [&]() {
    std::vector<uint32_t> v(4, 9);
    EXPECT_EQ(0u, xls_sheet_get_sel(sheet, &v[0], &v[1], &v[2], &v[3]));
    return v;
  };
  const std::vector<uint32_t> zeros(4, 0), picked = {2, 5, 4, 9};
  EXPECT_EQ(zeros, selection());
  ASSERT_EQ(0u, xls_sheet_set_sel(sheet, 2, 5, 4, 9));
  EXPECT_EQ(picked, selection());
  EXPECT_EQ(5, sheet->selections[3].active_row);
  EXPECT_EQ(2, sheet->selections[3].active_col);

  // The same splits are only stored; new ones move the selection to the
  // pane they make active and drop the others.
  biff_pane pane = {0, 0, 7, 1, 1};
  ASSERT_EQ(0u, xls_sheet_set_pane(sheet, &pane));
  EXPECT_EQ(7, sheet->pane.top_row);
  EXPECT_EQ(1, sheet->pane.active_pane);
  EXPECT_EQ(1, sheet->selections[3].count);
  sheet->pane.active_pane = 3;
  struct Move {
    bool frozen;
    uint16_t x, y, active;
  };
  for (const Move& m : {Move{false, 3, 0, 1}, Move{false, 3, 4, 1}, Move{true, 0, 4, 2},
                        Move{true, 3, 4, 0}, Move{true, 0, 0, 3}, Move{false, 0, 2, 3}}) {
    sheet->window2.options = m.frozen ? 0x6BE : 0x6B6;
    pane = {m.x, m.y, 0, 0, 3};
    ASSERT_EQ(0u, xls_sheet_set_pane(sheet, &pane));
    EXPECT_EQ(m.active, pane.active_pane) << m.x << "," << m.y;
    EXPECT_EQ(m.active, sheet->pane.active_pane);
    for (int p = 0; p < XLS_PANES; ++p) EXPECT_EQ(p == m.active, sheet->selections[p].count == 1);
    EXPECT_EQ(m.active, sheet->selections[m.active].pane);
    EXPECT_EQ(picked, selection());
  }
  sheet->pane.active_pane = 1;  // a pane without references: four zeros
  EXPECT_EQ(zeros, selection());
  ASSERT_EQ(0u, xls_sheet_set_sel(sheet, 3, 5, 3, 5));

  // Freezing at the selection's corner, counted from WINDOW2's first cell.
  sheet->window2.first_row = 2;
  ASSERT_EQ(0u, xls_sheet_freeze_panes(sheet));
  EXPECT_TRUE(xls_is_sheet_frozen(sheet));
  EXPECT_EQ(std::vector<uint32_t>({3, 3, 0, 0, 0}),
            std::vector<uint32_t>({sheet->pane.x_split, sheet->pane.y_split, sheet->pane.top_row,
                                   sheet->pane.left_col, sheet->pane.active_pane}));
  EXPECT_EQ(std::vector<uint32_t>({3, 5, 3, 5}), selection());
  EXPECT_TRUE(xls_is_col_frozen(sheet, 3) && xls_is_row_frozen(sheet, 3));
  EXPECT_FALSE(xls_is_col_frozen(sheet, 2) || xls_is_row_frozen(sheet, 2));  // only at the split
  xls_sheet_unfreeze_panes(sheet);
  EXPECT_FALSE(xls_is_sheet_frozen(sheet) || xls_is_col_frozen(sheet, 3));
  EXPECT_EQ(0, sheet->pane.x_split | sheet->pane.y_split);
  // A corner above or left of WINDOW2's first cell splits at that row or
  // column; a corner at the first cell doesn't freeze.
  sheet->pane.active_pane = 3;
  sheet->window2.first_col = 6;
  xls_sheet_set_sel(sheet, 4, 1, 4, 1);
  ASSERT_EQ(0u, xls_sheet_freeze_panes(sheet));
  EXPECT_EQ(6, sheet->pane.x_split);
  EXPECT_EQ(2, sheet->pane.y_split);
  xls_sheet_unfreeze_panes(sheet);
  sheet->pane.active_pane = 3;
  xls_sheet_set_sel(sheet, 6, 2, 6, 2);
  ASSERT_EQ(0u, xls_sheet_freeze_panes(sheet));
  EXPECT_FALSE(xls_is_sheet_frozen(sheet));
}

TEST(SheetWindow, DimensionsAndMergedCells) {
  auto merged = [](uint16_t count, std::vector<uint16_t> refs) {
    Bytes b;
    add16(&b, count);
    for (uint16_t v : refs) add16(&b, v);
    return b;
  };
  Book book(one_sheet([&](Stream& s) {
    s.number(9, 5, 0, 1);
    s.record(0xE5, merged(2, {1, 2, 0, 3, 4, 4, 2, 2}));
    s.bof(0x20);
    s.record(0xE5, merged(1, {7, 8, 7, 8}));  // inside an embedded chart
    s.eof();
    s.record(0xE5, merged(5, {6, 9, 1, 1}));  // the count claims more
    s.window2();
  }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  xls_orange range;
  ASSERT_EQ(0u, xls_sheet_dimensions(sheet, &range));
  EXPECT_EQ(std::vector<uint32_t>({0, 0, 9, 5}),
            std::vector<uint32_t>({range.first_row, range.first_col, range.last_row, range.last_col}));
  // The selection's far corner counts, but a whole row doesn't widen and
  // a whole column doesn't lengthen.
  const uint32_t selections[][6] = {{2, 3, 8, 20, 21, 9}, {0, 30, 255, 30, 31, 6},
                                    {12, 0, 12, 65535, 10, 13}};
  for (const auto& s : selections) {
    xls_sheet_set_sel(sheet, s[0], s[1], s[2], s[3]);
    EXPECT_EQ(s[4], xls_sheet_row_count(sheet)) << s[0];
    EXPECT_EQ(s[5], xls_sheet_col_count(sheet)) << s[0];
  }

  xls_simple_array list;
  ASSERT_EQ(0u, xls_get_merged_cells(sheet, &list));
  ASSERT_EQ(3, list.count);
  const xls_orange* areas = static_cast<const xls_orange*>(list.data);
  std::vector<uint32_t> corners;
  for (int i = 0; i < 3; ++i)
    corners.insert(corners.end(),
                   {areas[i].first_row, areas[i].first_col, areas[i].last_row, areas[i].last_col});
  EXPECT_EQ(std::vector<uint32_t>({1, 0, 2, 3, 4, 2, 4, 2, 6, 1, 9, 1}), corners);
  free(list.data);
  // A last row or column before its first.
  for (uint16_t bad : {0, 1}) {
    Book reversed(one_sheet([&](Stream& s) {
      s.record(0xE5, merged(2, {1, 2, 0, 3, (uint16_t)(5 - bad), 4, (uint16_t)(2 * bad), 0}));
      s.window2();
    }));
    ASSERT_EQ(0u, reversed.status);
    EXPECT_EQ(KEL_ERR_GENERAL, xls_get_merged_cells(reversed.sheet(), &list)) << bad;
    EXPECT_TRUE(list.count == 0 && list.data == nullptr);
  }
}

}  // namespace
