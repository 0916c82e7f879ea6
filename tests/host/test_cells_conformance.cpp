// Compares the cells of every .xls of the corpus, as `tabulon cells` prints
// them, with what an independent reader read from the same files.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <set>
#include <string>
#include <utility>

#include "foundation/zuv_uni_string.h"
#include "host/cell_lines.h"
#include "module/linux_pool.h"
#include "test_support.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

namespace {

using tabulon_test::CorpusFile;
using CellKey = std::pair<int, std::string>;  // sheet, A1
struct Expected {
  std::string kind;  // with the f of a formula
  std::string value;
};

// The oracle's cells; lines that aren't cells (the reader's warnings) are
// left out.
std::map<CellKey, Expected> oracle_cells(const std::string& path) {
  std::map<CellKey, Expected> cells;
  std::vector<std::vector<std::string>> rows;
  tabulon_test::read_tsv(path, &rows);
  for (const auto& row : rows) {
    if (row.size() < 3 || row[0].empty() || row[0].find_first_not_of("0123456789") != std::string::npos)
      continue;
    cells[{atoi(row[0].c_str()), row[1]}] = {row[2], row.size() > 3 ? row[3] : ""};
  }
  return cells;
}

TEST(CellsConformance, EveryXlsAgreesWithAnIndependentReader) {
  std::vector<CorpusFile> corpus = tabulon_test::corpus_manifest();
  if (corpus.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  std::string root = tabulon_test::shared_dir();
  long agreed = 0, compared = 0, formulas_agreed = 0, formulas = 0;
  // The open recalculates every workbook it can: a formula's value is then
  // the engine's, where the other reader has the result the file cached.
  // FormulaConformance names the rules behind each such difference.
  long recalculated = 0, unexplained = 0;
  int files = 0, files_equal = 0;
  for (const CorpusFile& entry : corpus) {
    if (entry.path.compare(0, 4, "xls/") != 0) continue;
    std::string name = entry.path.substr(4);
    std::string oracle_path = root + "/oracle/cells/" + name + ".tsv";
    FILE* probe = fopen(oracle_path.c_str(), "rb");
    if (!probe) continue;
    fclose(probe);
    std::map<CellKey, Expected> expected = oracle_cells(oracle_path);
    // The reader gave up on the file, or the engine refuses it by design
    // (the open test checks those).
    if (expected.empty() || tabulon_test::kRefusedWorkbooks.count(name) ||
        name.find("clusterfuzz") != std::string::npos)
      continue;
    ++files;

    FILE* stream = nullptr;
    xls_file* file = nullptr;
    uint32_t status = tabulon_test::open_corpus_workbook(entry, &stream, &file);
    ASSERT_NE(nullptr, stream) << entry.path;

    std::map<CellKey, cell_line_t> ours;
    std::set<CellKey> empty_results;  // formulas whose cached result is empty
    for (uint32_t s = 0; !status && s < xls_sheet_count(file); ++s) {
      kel_cell_iterator it;
      kel_cell_cache_init_it(&it, &xls_sheet_handle(file, s)->cells);
      cell_line_t line;
      while (const xls_cell_t* cell = kel_cell_cache_next_cell(&it)) {
        CellKey key = {static_cast<int>(s), cell_reference(cell->column, cell->row)};
        if (cell_line_describe(cell, &line)) ours[key] = line;
        else if (cell->value.kind == vt_expr && cell->value.u.expr.cache.kind == bvt_empty)
          empty_results.insert(key);
      }
    }
    xls_close(file);
    fclose(stream);

    int differences = 0;
    auto report = [&](const CellKey& key, const std::string& theirs, const std::string& mine,
                      bool formula = false) {
      if (formula) ++recalculated;
      else ++unexplained;
      if (++differences <= 3)
        printf("[ differs ] %s sheet %d %s: expected %s, got %s%s\n", name.c_str(), key.first,
               key.second.c_str(), theirs.c_str(), mine.c_str(), formula ? " (recalculated)" : "");
    };
    if (status) printf("[ differs ] %s: open failed with 0x%08X\n", name.c_str(), status);
    for (const auto& [key, cell] : expected) {
      ++compared;
      bool formula = cell.kind.size() == 2 && cell.kind[0] == 'f';
      std::string kind = formula ? cell.kind.substr(1) : cell.kind;
      auto found = ours.find(key);
      // The cached result kind 3 is an empty value here, where the other
      // reader makes it an empty text: both show nothing.
      if (cell.kind == "fs" && cell.value.empty() && empty_results.count(key)) {
        ++agreed;
        continue;
      }
      if (found == ours.end()) {
        report(key, kind + " " + cell.value, "nothing");
        continue;
      }
      formulas += formula;
      formulas_agreed += formula && found->second.formula;
      if (kind == std::string(1, found->second.kind) && cell.value == found->second.value)
        ++agreed;
      else
        report(key, kind + " " + cell.value,
               std::string(1, found->second.kind) + " " + found->second.value,
               formula && found->second.formula);
    }
    for (const auto& [key, line] : ours) {
      if (expected.count(key)) continue;
      ++compared;
      report(key, "nothing", std::string(1, line.kind) + " " + line.value);
    }
    files_equal += differences == 0;
  }
  if (!files) GTEST_SKIP() << "no cell oracle in ../shared: skipped";
  double rate = compared ? 100.0 * agreed / compared : 100.0;
  printf("[ cells   ] %ld of %ld cells agree (%.3f%%); %d of %d workbooks agree whole; "
         "%ld of %ld formula cells read as formulas\n",
         agreed, compared, rate, files_equal, files, formulas_agreed, formulas);
  printf("[ rule    ] %7ld  a formula recalculated at open differs from the result the file cached\n",
         recalculated);
  printf("[ unexplained ] %ld\n", unexplained);
  EXPECT_EQ(0, unexplained);
  EXPECT_GE(rate, 99.9);
}

}  // namespace
