// Formula text over the real workbooks of the corpus: every formula the
// engine reads prints to text that parses back to the same tree, and the
// printed text agrees with another program's printing of the same tokens.
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "formula/xls_formula_codec.h"
#include "formula/xls_formula_text.h"
#include "foundation/zuv_uni_string.h"
#include "host/cell_lines.h"
#include "kel_status.h"
#include "test_support.h"
#include "tree_compare.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

namespace {

using formula_test::same_node;
using tabulon_test::CorpusFile;

bool open_xls(const CorpusFile& entry, FILE** stream, xls_file** file) {
  if (entry.path.compare(0, 4, "xls/") != 0) return false;
  if (tabulon_test::kRefusedWorkbooks.count(entry.path.substr(4))) return false;
  *file = nullptr;
  *stream = nullptr;
  if (tabulon_test::open_corpus_workbook(entry, stream, file) == 0) return true;
  if (*stream) fclose(*stream);
  return false;
}

// ---- Text round trip ------------------------------------------------------------

// True when a string constant of the tree holds an apostrophe: the printer
// writes it twice, as every quoted text of the engine does, and the parser
// keeps both, so such a string reads back longer.
bool has_string_with_apostrophe(const xls_packed_expr_t* packed) {
  for (uint32_t i = 0; i < packed->count; ++i) {
    const xls_expr_t* node = &packed->nodes[i];
    const xls_basic_value_t* value = nullptr;
    if (node->op == xop_constant && node->u.constant.kind == vt_basic) value = &node->u.constant.u.basic;
    if (node->op == xop_array) value = &node->u.array.value.u.basic;
    if (!value) continue;
    int count = value->kind == bvt_array ? value->u.array.rows * value->u.array.columns : 1;
    for (int k = 0; k < count; ++k) {
      const xls_basic_value_t& item = value->kind == bvt_array ? value->u.array.elements[k] : *value;
      if (item.kind != bvt_string || !item.u.string) continue;
      for (const unsigned short* c = item.u.string; *c; ++c)
        if (*c == '\'') return true;
    }
  }
  return false;
}

// A defined name whose text has characters that the parser doesn't take
// for letters of a word (CJK letters, "?" from a lost encoding).
bool has_name_beyond_letters(const xls_packed_expr_t* packed) {
  for (uint32_t i = 0; i < packed->count; ++i) {
    const xls_expr_t* node = &packed->nodes[i];
    if ((node->op != xop_name && node->op != xop_namex) || !node->u.name.named ||
        !node->u.name.named->name)
      continue;
    for (const unsigned short* c = node->u.name.named->name; *c; ++c)
      if (!xls_parser_isalnum(*c) && *c != '_' && *c != '.' && *c != '\\') return true;
  }
  return false;
}

// A number constant below zero: text has no negative number, so "-1"
// reads back as minus applied to 1.
bool has_negative_number(const xls_packed_expr_t* packed) {
  for (uint32_t i = 0; i < packed->count; ++i) {
    const xls_expr_t* node = &packed->nodes[i];
    if (node->op != xop_constant || node->u.constant.kind != vt_basic) continue;
    const xls_basic_value_t& value = node->u.constant.u.basic;
    if ((value.kind == bvt_long && value.u.long_value < 0) ||
        (value.kind == bvt_double && value.u.double_value < 0))
      return true;
  }
  return false;
}

// A number constant with a fraction: the formula bar's text of it keeps
// at most 15 to 21 characters, so the last binary digits may not survive.
bool has_fraction(const xls_packed_expr_t* packed) {
  for (uint32_t i = 0; i < packed->count; ++i) {
    const xls_expr_t* node = &packed->nodes[i];
    if (node->op == xop_constant && node->u.constant.kind == vt_basic &&
        node->u.constant.u.basic.kind == bvt_double &&
        node->u.constant.u.basic.u.double_value != floor(node->u.constant.u.basic.u.double_value))
      return true;
  }
  return false;
}

// Whether the tree has a node of op.
bool has_op(const xls_packed_expr_t* packed, xls_expr_op_t op) {
  for (uint32_t i = 0; i < packed->count; ++i)
    if (packed->nodes[i].op == op) return true;
  return false;
}

// A name whose definition isn't known prints "#NAME?".
bool has_undefined_name(const xls_packed_expr_t* packed) {
  for (uint32_t i = 0; i < packed->count; ++i) {
    const xls_expr_t* node = &packed->nodes[i];
    if ((node->op == xop_name || node->op == xop_namex) &&
        (!node->u.name.named || !node->u.name.named->name))
      return true;
  }
  return false;
}

// A range constant whose corners print as one cell, or whose corners stand
// in another order than first and last: text writes ranges normalised.
bool has_range_printed_otherwise(const xls_packed_expr_t* packed) {
  for (uint32_t i = 0; i < packed->count; ++i) {
    const xls_expr_t* node = &packed->nodes[i];
    if (node->op != xop_constant || node->u.constant.kind != vt_range) continue;
    const xls_range_ref_t* range = node->u.constant.u.range;
    const xls_cell_ref_t &a = range->first, &b = range->second;
    bool same_flags = a.row_relative == b.row_relative && a.column_relative == b.column_relative;
    if (same_flags && a.row == b.row && a.column == b.column && a.sheet == b.sheet) return true;
    if (same_flags && (a.row > b.row || a.column > b.column)) return true;
  }
  return false;
}

// The rule of the text form that explains why tree and its reading differ
// although the text prints the same again; empty when none does.
std::string same_text_rule(const xls_packed_expr_t* tree) {
  if (has_op(tree, xop_namex)) return "a name through the own EXTERNSHEET entry reads back as a plain name";
  if (has_op(tree, xop_area_err) || has_op(tree, xop_area3d_err) || has_op(tree, xop_ref3d_bad))
    return "a reference the file marks deleted prints #REF! and reads back as the error constant";
  if (has_undefined_name(tree)) return "a name without definition prints #NAME? and reads back as the error";
  if (has_negative_number(tree)) return "a negative number constant reads back as minus and the number";
  if (has_range_printed_otherwise(tree))
    return "a one-cell range prints as its cell, other ranges with their corners in order";
  if (has_fraction(tree)) return "a number prints with the formula bar's digits and reads back rounded";
  return "";
}

struct TextCounts {
  long trees = 0, same = 0;
  std::map<std::string, long> rules;  // differences explained by a rule
  long unexplained = 0;
  std::vector<std::string> shown;
};

unsigned short* print_tree(xls_sheet_t* sheet, int32_t row, int32_t column, const xls_packed_expr_t* tree) {
  unsigned short* text = nullptr;
  if (xls_expr_to_input_str(sheet, row, column, tree, &text, nullptr)) return nullptr;
  return text;
}

// Prints tree standing at (row, column) of sheet, parses the text again at
// the same place and compares the trees, numbers by value.
void text_round_trip(xls_sheet_t* sheet, int32_t row, int32_t column, const xls_packed_expr_t* tree,
                     const std::string& where, TextCounts* counts) {
  ++counts->trees;
  unsigned short* text = print_tree(sheet, row, column, tree);
  xls_packed_expr_t again = {};
  xls_parser_error_t error = {};
  uint32_t status = KEL_ERR_GENERAL;
  std::string utf8 = text ? cell_text_utf8(text) : std::string();
  if (text) status = xls_parser(text + 1, nullptr, sheet, row, column, &error, &again);
  std::string rule;
  if (!status && same_node(tree, expr_root_expr(tree), &again, expr_root_expr(&again), true)) {
    ++counts->same;
  } else if (!status && has_string_with_apostrophe(tree)) {
    ++counts->rules["a string with an apostrophe reads back with it doubled"];
  } else if (status && has_name_beyond_letters(tree)) {
    ++counts->rules["a name with characters the parser doesn't take as letters doesn't parse"];
  } else {
    unsigned short* again_text = status ? nullptr : print_tree(sheet, row, column, &again);
    bool same_text = again_text && cell_text_utf8(again_text) == utf8;
    free(again_text);
    if (same_text) rule = same_text_rule(tree);
    if (!rule.empty()) {
      ++counts->rules[rule];
    } else {
      ++counts->unexplained;
      if (counts->shown.size() < 40)
        counts->shown.push_back(where + " " + utf8 +
                                (status ? " status " + std::to_string(status) + " error " +
                                              std::to_string(error.code) + "@" + std::to_string(error.start)
                                        : same_text ? std::string(" same text, other tree")
                                                    : std::string(" prints otherwise")));
    }
  }
  free(text);
  expr_free(&again, true);
}

void sheet_round_trips(xls_sheet_t* sheet, const std::string& name, TextCounts* counts) {
  kel_cell_iterator it;
  kel_cell_cache_init_it(&it, &sheet->cells);
  while (const xls_cell_t* cell = kel_cell_cache_next_cell(&it)) {
    if (cell->value.kind != vt_expr || !xls_is_parsed_expr(&cell->value.u.expr.packed)) continue;
    const xls_packed_expr_t* packed = &cell->value.u.expr.packed;
    std::string where = name + " " + cell_reference(cell->column, cell->row);
    if (expr_is_array(&cell->value)) {
      // Once per array, at its anchor; the record's tree prints without
      // the braces that the cell's text has.
      const xls_shared_expr* record = expr_shared_expr_from_val(&cell->value);
      if (record->array_row == cell->row && record->array_column == cell->column)
        text_round_trip(sheet, cell->row, cell->column, &record->packed, where, counts);
      continue;
    }
    if (expr_is_shared_formula(&cell->value)) {
      xls_packed_expr_t copy = {};
      if (expr_break_shared_formula(packed, &copy) == 0)
        text_round_trip(sheet, cell->row, cell->column, &copy, where, counts);
      expr_free(&copy, true);
      continue;
    }
    text_round_trip(sheet, cell->row, cell->column, packed, where, counts);
  }
}

TEST(FormulaTextConformance, EveryFormulaPrintsToTextThatParsesBackToTheSameTree) {
  std::vector<CorpusFile> corpus = tabulon_test::corpus_manifest();
  if (corpus.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  TextCounts counts;
  int files = 0;
  for (const CorpusFile& entry : corpus) {
    FILE* stream = nullptr;
    xls_file* file = nullptr;
    if (!open_xls(entry, &stream, &file)) continue;
    ++files;
    std::string name = entry.path.substr(4);
    for (uint32_t s = 0; s < xls_sheet_count(file); ++s)
      sheet_round_trips(xls_sheet_handle(file, s), name, &counts);
    for (uint32_t i = 1; i <= xls_name_count(file); ++i) {
      xls_expr_named_t* named = xls_named_get_by_index(file, i);
      if (!named->parsed) continue;
      xls_sheet_t* sheet = named->sheet ? named->sheet : xls_sheet_handle(file, 0);
      text_round_trip(sheet, 0, 0, &named->packed, name + " name " + std::to_string(i), &counts);
    }
    xls_close(file);
    fclose(stream);
  }
  printf("[ text     ] %d workbooks: %ld of %ld trees print to text that parses back the same\n",
         files, counts.same, counts.trees);
  for (const auto& [rule, count] : counts.rules) printf("[ rule     ] %7ld  %s\n", count, rule.c_str());
  printf("[ unexplained ] %ld\n", counts.unexplained);
  for (const std::string& line : counts.shown) printf("[ differs  ] %s\n", line.c_str());
  EXPECT_EQ(0, counts.unexplained);
}

// ---- Agreement with another program's text ------------------------------------------

// The oracle escapes \\, tabs and line ends as the cell lines do.
std::string tsv_unescaped(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    char c = text[++i];
    out += c == 't' ? '\t' : c == 'n' ? '\n' : c == 'r' ? '\r' : c;
  }
  return out;
}

// The text without blanks outside strings.  ours: strings escape with a
// backslash; else a doubled quote is a quote.
std::string without_spaces(const std::string& text, bool ours) {
  std::string out;
  bool in_string = false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (in_string && ours && c == '\\' && i + 1 < text.size()) {
      out += c;
      out += text[++i];
      continue;
    }
    if (c == '"') {
      if (in_string && !ours && i + 1 < text.size() && text[i + 1] == '"') {
        out += "\"\"";
        ++i;
        continue;
      }
      in_string = !in_string;
    }
    if (c != ' ' || in_string) out += c;
  }
  return out;
}

// The other program's text with its strings escaped as the engine's parser
// reads them: a backslash before " and \ instead of a doubled quote.
std::string strings_as_ours(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '"') {
      out += text[i];
      continue;
    }
    out += '"';
    for (++i; i < text.size(); ++i) {
      char c = text[i];
      if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
        out += "\\\"";
        ++i;
      } else if (c == '"') {
        break;
      } else {
        if (c == '\\') out += '\\';
        out += c;
      }
    }
    out += '"';
  }
  return out;
}

// Replaces every from by to outside strings.
std::string replaced_outside_strings(const std::string& text, const std::string& from, const std::string& to) {
  std::string out;
  bool in_string = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && in_string && i + 1 < text.size()) {
      out += text[i];
      out += text[++i];
      continue;
    }
    if (text[i] == '"') in_string = !in_string;
    if (!in_string && text.compare(i, from.size(), from) == 0) {
      out += to;
      i += from.size() - 1;
      continue;
    }
    out += text[i];
  }
  return out;
}

// The other program's text parsed by the engine at the cell and printed
// again (blanks removed); empty when it doesn't parse.
std::string reprinted(xls_sheet_t* sheet, uint32_t row, uint32_t column, const std::string& theirs) {
  if (theirs.empty() || theirs[0] != '=') return std::string();
  std::u16string wide = tabulon_test::u16(theirs.substr(1));
  xls_packed_expr_t packed = {};
  xls_parser_error_t error = {};
  std::string out;
  if (xls_parser(reinterpret_cast<const unsigned short*>(wide.c_str()), nullptr, sheet,
                 static_cast<int32_t>(row), static_cast<int32_t>(column), &error, &packed) == 0) {
    unsigned short* text = print_tree(sheet, static_cast<int32_t>(row), static_cast<int32_t>(column), &packed);
    if (text) out = without_spaces(cell_text_utf8(text), true);
    free(text);
  }
  expr_free(&packed, true);
  return out;
}

// The text with every string constant reduced to its characters, however
// the printer escaped them: the engine puts a backslash before " and \ and
// writes ' twice; the other program doubles ".  Texts equal after this
// differ only in how strings are quoted.
std::string strings_unescaped(const std::string& text, bool ours) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '"') {
      out += text[i];
      continue;
    }
    out += '"';
    for (++i; i < text.size(); ++i) {
      char c = text[i];
      if (ours && c == '\\' && i + 1 < text.size()) {
        out += text[++i];
      } else if (ours && c == '\'' && i + 1 < text.size() && text[i + 1] == '\'') {
        out += c;
        ++i;
      } else if (!ours && c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
        out += c;
        ++i;
      } else if (c == '"') {
        break;
      } else {
        out += c;
      }
    }
    out += '"';
  }
  return out;
}

// The rule by which the other program's text differs from ours, or an
// empty name.  Most are that program's habits of printing the same tokens
// (same is true): TRUE() for a boolean constant, NA() for #N/A, strings
// quoted its way, the parentheses the file kept, A1:A1 and $A1:$IV1 for
// what the engine writes A1 and $1:$1; each is checked by parsing its text
// with the engine and printing it again.  The others say what the two
// texts disagree on, and why.
struct TextRule {
  std::string name;
  bool same = false;
};

TextRule text_rule(xls_sheet_t* sheet, uint32_t row, uint32_t column, const std::string& ours,
                   const std::string& theirs, const std::string& theirs_as_written) {
  if (theirs.find('[') != std::string::npos && ours.find("#REF!") != std::string::npos)
    return {"differs: a reference to another workbook prints #REF!"};
  if (ours.size() > 3 && ours.compare(0, 2, "{=") == 0 && ours.back() == '}')
    return {"same: an array formula prints in braces", true};
  std::string converted = strings_as_ours(theirs_as_written);
  if (strings_unescaped(ours, true) == strings_unescaped(theirs, false))
    return {"same: strings escape \" and \\ with a backslash and write ' twice", true};
  std::string plain = replaced_outside_strings(
      replaced_outside_strings(replaced_outside_strings(converted, "TRUE()", "TRUE"), "FALSE()", "FALSE"),
      "NA()", "#N/A");
  if (plain != converted && reprinted(sheet, row, column, plain) == ours)
    return {"same: the other program writes TRUE(), FALSE() and NA() for the constants", true};
  std::string no_errors = ours;
  for (const char* error : {"#NULL!", "#DIV/0!", "#VALUE!", "#NAME?", "#NUM!"})
    no_errors = replaced_outside_strings(no_errors, error, "");
  if (no_errors != ours && no_errors == replaced_outside_strings(theirs, "NA()", "#N/A"))
    return {"differs: the other program leaves out error constants other than #N/A and #REF!"};
  for (const char* other : {"#NAME!(", "_xlfn.", "JIS(", "DOLLAR("})
    if (theirs.find(other) != std::string::npos)
      return {"same: the other program names some functions otherwise", true};
  if (reprinted(sheet, row, column, converted) == ours)
    return {"same: the other program keeps the file's parentheses and range forms (A1:A1, $A1:$IV1)",
            true};
  return {};
}

TEST(FormulaTextConformance, PrintedTextAgreesWithAnotherProgramsPrinting) {
  std::vector<CorpusFile> corpus = tabulon_test::corpus_manifest();
  if (corpus.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  std::string oracle_dir = tabulon_test::shared_dir() + "/oracle/formulas/";
  long cells = 0, verbatim = 0, same = 0;
  std::map<std::string, long> rules;
  std::vector<std::string> unexplained;
  int files = 0;
  for (const CorpusFile& entry : corpus) {
    std::vector<std::vector<std::string>> rows;
    if (entry.path.compare(0, 4, "xls/") != 0 ||
        !tabulon_test::read_tsv(oracle_dir + entry.path.substr(4) + ".tsv", &rows))
      continue;
    FILE* stream = nullptr;
    xls_file* file = nullptr;
    if (!open_xls(entry, &stream, &file)) continue;
    ++files;
    struct Ours {
      xls_sheet_t* sheet;
      uint32_t row, column;
      std::string text;
    };
    std::map<std::pair<int, std::string>, Ours> ours;
    for (uint32_t s = 0; s < xls_sheet_count(file); ++s) {
      xls_sheet_t* sheet = xls_sheet_handle(file, s);
      kel_cell_iterator it;
      kel_cell_cache_init_it(&it, &sheet->cells);
      while (const xls_cell_t* cell = kel_cell_cache_next_cell(&it))
        if (cell->value.kind == vt_expr)
          ours[{static_cast<int>(s), cell_reference(cell->column, cell->row)}] = {
              sheet, cell->row, cell->column, cell_formula_text(sheet, cell)};
    }
    for (const auto& row : rows) {
      if (row.size() < 3) continue;
      auto found = ours.find({atoi(row[0].c_str()), row[1]});
      if (found == ours.end()) continue;  // no formula cell here: the cells test covers it
      const Ours& cell = found->second;
      ++cells;
      if (cell.text == "=") {
        // No tree: FormulaConformance counts the reader's reasons.
        ++rules["differs: the engine doesn't read the formula (add-in calls, data tables, external names)"];
        continue;
      }
      std::string written = tsv_unescaped(row[2]);
      std::string mine = without_spaces(cell.text, true), theirs = without_spaces(written, false);
      if (mine == theirs) {
        ++verbatim;
        continue;
      }
      TextRule rule = text_rule(cell.sheet, cell.row, cell.column, mine, theirs, written);
      if (rule.same) ++same;
      if (!rule.name.empty())
        ++rules[rule.name];
      else
        unexplained.push_back(entry.path.substr(4) + " " + row[0] + "!" + row[1] + " ours " + mine +
                              " theirs " + theirs);
    }
    xls_close(file);
    fclose(stream);
  }
  if (!cells) GTEST_SKIP() << "no formula texts in ../shared/oracle: skipped";
  double agreement = 100.0 * (verbatim + same) / cells;
  printf("[ agreement ] %d workbooks, %ld formula cells, spaces removed: %ld texts agree verbatim (%.3f%%), "
         "%ld more print the same formula the other program's way; agreement %.3f%%\n",
         files, cells, verbatim, 100.0 * verbatim / cells, same, agreement);
  for (const auto& [rule, count] : rules) printf("[ rule      ] %7ld  %s\n", count, rule.c_str());
  printf("[ unexplained ] %zu\n", unexplained.size());
  for (size_t i = 0; i < unexplained.size() && i < 40; ++i) printf("[ differs   ] %s\n", unexplained[i].c_str());
  EXPECT_EQ(0u, unexplained.size());
  EXPECT_GE(agreement, 95.0);
}

}  // namespace
