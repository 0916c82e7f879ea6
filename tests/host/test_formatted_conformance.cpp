// Compares the text that number and date cells show, as `tabulon cells
// --formatted` prints it, with what another spreadsheet program displays
// for the corpus's .xls files.  Every difference must have a named reason;
// FORMATTED_DUMP=FILE writes them all with their reasons.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <math.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/cell_lines.h"
#include "test_support.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

namespace {

using tabulon_test::CorpusFile;
using CellKey = std::pair<int, std::string>;  // sheet, A1

// What a format says once quoted text, escaped characters and brackets are
// taken out, section by section.
std::vector<std::string> bare_sections(const std::string& format) {
  std::vector<std::string> sections(1);
  for (size_t i = 0; i < format.size(); ++i) {
    char c = format[i];
    if (c == '"') {
      size_t end = format.find('"', i + 1);
      i = end == std::string::npos ? format.size() : end;
    } else if (c == '\\') {
      ++i;
    } else if (c == '[') {
      size_t end = format.find(']', i);
      i = end == std::string::npos ? format.size() : end;
    } else if (c == ';') {
      sections.emplace_back();
    } else {
      sections.back() += c;
    }
  }
  return sections;
}

bool has_any(const std::string& text, const char* characters) {
  return text.find_first_of(characters) != std::string::npos;
}

std::string lower(std::string text) {
  for (char& c : text) c = (char)tolower((unsigned char)c);
  return text;
}

// The bracket contents of a format, such as "Red", "h", "$-409", "<=5".
std::vector<std::string> brackets(const std::string& format) {
  std::vector<std::string> found;
  for (size_t i = 0; (i = format.find('[', i)) != std::string::npos; ++i) {
    size_t end = format.find(']', i);
    if (end == std::string::npos) break;
    found.push_back(format.substr(i + 1, end - i - 1));
  }
  return found;
}

bool is_elapsed(const std::string& bracket) {
  std::string b = lower(bracket);
  return !b.empty() && b.find_first_not_of(b[0]) == std::string::npos && has_any(b.substr(0, 1), "hms");
}

// Date and time fields in the first section, elapsed ones included.
bool is_date_format(const std::string& format) {
  std::string first = bare_sections(format)[0];
  size_t general = first.find("General");
  if (general != std::string::npos) first.erase(general, 7);
  if (has_any(first, "dDmMyYhHsS")) return true;
  for (const std::string& b : brackets(format))
    if (is_elapsed(b)) return true;
  return false;
}

// The number a shown text stands for, with grouping, currency, spaces and
// parentheses taken out; false when it has none.
bool shown_number(const std::string& text, double* number) {
  std::string kept;
  for (char c : text)
    if (isdigit((unsigned char)c) || c == '.' || c == '-' || c == 'E' || c == '+') kept += c;
  if (kept.empty() || !has_any(kept, "0123456789")) return false;
  char* end = nullptr;
  *number = strtod(kept.c_str(), &end);
  return end && *end == 0;
}

struct Shown {
  std::string format, kind, value, theirs, ours;
  double number;
  bool recomputed;  // a formula whose computed result isn't the cached one
};

// Why the engine's text differs on purpose: the rules of its formatter, and
// what the other program does that the engine doesn't.  Each test is narrow
// enough that a wrong text of another kind is not explained away.
struct Rule {
  const char* name;
  bool (*applies)(const Shown&);
};

const Rule kRules[] = {
    {"serials before 1 March 1900: the engine's day 1 is 1 January 1900, the other program's "
     "31 December 1899",
     [](const Shown& s) { return is_date_format(s.format) && s.number >= 0 && s.number < 61; }},
    {"dates and times below 0 show the overflow form",
     [](const Shown& s) {
       return s.number < 0 && s.ours.find_first_not_of('#') == std::string::npos &&
              (is_date_format(s.format) || has_any(bare_sections(s.format)[0], "aApP"));
     }},
    {"only two sections count: a zero section is dropped",
     [](const Shown& s) { return bare_sections(s.format).size() >= 3 && fabs(s.number) < 1e-6; }},
    {"conditions are ignored: the sign chooses the section",
     [](const Shown& s) {
       for (const std::string& b : brackets(s.format))
         if (!b.empty() && has_any(b.substr(0, 1), "<>=")) return true;
       return false;
     }},
    {"General without a width keeps nine decimals, or six digits in scientific form",
     [](const Shown& s) {
       double ours = 0, v = s.number;
       if (lower(s.format) != "general" || !shown_number(s.ours, &ours)) return false;
       if (v == 0 || (fabs(v) >= 1e-9 && fabs(v) < 1e11)) return fabs(ours - v) <= 5.0001e-10;
       return fabs(ours - v) <= 5e-6 * fabs(v);
     }},
    {"numbers are rounded by adding half a unit and cutting, and show at most sixteen "
     "significant digits",
     [](const Shown& s) {
       double ours = 0, theirs = 0;
       if (is_date_format(s.format) || !shown_number(s.ours, &ours) ||
           !shown_number(s.theirs, &theirs))
         return false;
       if (fabs(ours - theirs) <= 1e-14 * std::max(1.0, fabs(ours))) return true;
       // A value on the half of its last shown digit, which the addition
       // of the half may leave a hair below.
       size_t point = s.ours.find('.');
       int decimals = 0;
       while (point != std::string::npos && point + 1 + decimals < s.ours.size() &&
              isdigit((unsigned char)s.ours[point + 1 + decimals]))
         ++decimals;
       double scaled = fabs(s.number) * pow(10, decimals);
       return fabs(scaled - floor(scaled) - 0.5) < 1e-6 &&
              fabs(fabs(ours - theirs) - pow(10, -decimals)) < 1e-9 * std::max(1.0, fabs(ours));
     }},
    {"times round to the nearest second; fractions of a second are never computed",
     [](const Shown& s) {
       double seconds = s.number * 86400;
       return is_date_format(s.format) && has_any(bare_sections(s.format)[0], "sS") &&
              (seconds - floor(seconds) >= 0.5 - 1e-6 || bare_sections(s.format)[0].find(".0") != std::string::npos);
     }},
    {"elapsed minutes and seconds show the total hours",
     [](const Shown& s) {
       for (const std::string& b : brackets(s.format))
         if (is_elapsed(b) && tolower((unsigned char)b[0]) != 'h') return true;
       return false;
     }},
    {"AM/PM markers keep the case the format writes them in",
     [](const Shown& s) {
       return has_any(bare_sections(s.format)[0], "aA") && lower(s.theirs) == lower(s.ours);
     }},
    {"fractions: the last convergent whose denominator has room, a blank field otherwise; "
     "built-in 13 \"# ?\" has no denominator",
     [](const Shown& s) {
       std::string first = bare_sections(s.format)[0];
       auto whole = [](const std::string& t) { return t.substr(0, t.find(' ', t.find_first_not_of(' '))); };
       return s.format == "# ?" || (first.find('/') != std::string::npos &&
                                    !is_date_format(s.format) && whole(s.ours) == whole(s.theirs));
     }},
    {"engineering formats (##0.0E+0) print in plain scientific form",
     [](const Shown& s) {
       std::string first = bare_sections(s.format)[0];
       size_t e = first.find_first_of("Ee");
       return e != std::string::npos && e >= 2 && first.find_first_of("0#?") < e &&
              first.substr(0, e).find_first_of("0#?") != first.substr(0, e).find_last_of("0#?");
     }},
    {"digit patterns truncate, and a negative number gives one character",
     [](const Shown& s) {
       std::string first = s.format.substr(0, s.format.find(';'));
       bool other = false;
       for (size_t i = 0; i < first.size(); ++i) {
         if (first[i] == '\\') ++i;
         else if (!strchr("0#$-+/(): ", first[i])) return false;
         if (first[i] != '0' && first[i] != '#') other = true;
       }
       return other;
     }},
    {"\"_\" leaves one space, whatever character it stands for",
     [](const Shown& s) {
       auto squeeze = [](std::string t) { t.erase(std::remove(t.begin(), t.end(), ' '), t.end()); return t; };
       return s.format.find('_') != std::string::npos && squeeze(s.ours) == squeeze(s.theirs);
     }},
    {"colour names match in their own case only; other letters keep their roles, and a "
     "format without placeholders shows only its literals",
     [](const Shown& s) {
       std::string first = bare_sections(s.format)[0];
       for (const std::string& b : brackets(s.format))
         for (const char* colour : {"black", "blue", "cyan", "green", "magenta", "red", "white", "yellow"})
           if (lower(b) == colour) return true;
       return !has_any(first, "0#?") && first.find("General") == std::string::npos &&
              !is_date_format(s.format);
     }},
    {"system date and time formats ([$-F800], [$-F400]) show as they are written",
     [](const Shown& s) {
       return s.format.find("[$-F800]") != std::string::npos ||
              s.format.find("[$-F400]") != std::string::npos;
     }},
    {"the engine computed another result than the one cached (the recalculation test "
     "accounts for each)",
     [](const Shown& s) { return s.recomputed; }},
    {"the other program recalculated or re-formatted the formula; the engine shows the "
     "cached result",
     [](const Shown& s) {
       double theirs = 0;
       return s.kind == "fn" && (!shown_number(s.theirs, &theirs) ||
                                 fabs(theirs - s.number) > 1e-12 * std::max(1.0, fabs(s.number)));
     }},
};

TEST(FormattedConformance, NumberCellsShowAsAnotherProgramShowsThem) {
  std::vector<CorpusFile> corpus = tabulon_test::corpus_manifest();
  if (corpus.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  std::string root = tabulon_test::shared_dir();
  long agreed = 0, compared = 0;
  std::map<std::string, long> by_rule;
  std::vector<Shown> unexplained;
  FILE* dump = getenv("FORMATTED_DUMP") ? fopen(getenv("FORMATTED_DUMP"), "w") : nullptr;
  for (const CorpusFile& entry : corpus) {
    if (entry.path.compare(0, 4, "xls/") != 0) continue;
    std::string name = entry.path.substr(4);
    std::vector<std::vector<std::string>> rows;
    if (!tabulon_test::read_tsv(root + "/oracle/formatted/" + name + ".tsv", &rows)) continue;
    if (tabulon_test::kRefusedWorkbooks.count(name)) continue;
    FILE* stream = nullptr;
    xls_file* file = nullptr;
    uint32_t status = tabulon_test::open_corpus_workbook(entry, &stream, &file);
    ASSERT_NE(nullptr, stream) << entry.path;
    if (status) {
      fclose(stream);
      continue;
    }
    for (const auto& row : rows) {
      if (row.size() < 5 || (row[2] != "n" && row[2] != "fn")) continue;
      int sheet_index = atoi(row[0].c_str());
      if (sheet_index >= (int)xls_sheet_count(file)) continue;
      xls_sheet_t* sheet = xls_sheet_handle(file, sheet_index);
      // The cell at the reference.
      std::string ref = row[1];
      uint32_t column = 0;
      size_t i = 0;
      for (; i < ref.size() && ref[i] >= 'A'; ++i) column = column * 26 + (ref[i] - 'A' + 1);
      uint32_t r = (uint32_t)atoi(ref.c_str() + i) - 1;
      xls_read_cell_info info = {};
      info.flags = XLS_READ_CELL | XLS_READ_NUMBER_FORMAT;
      if (xls_read_cell(sheet, (int)column - 1, (int)r, &info, nullptr) || !info.cell) continue;
      std::string shown = cell_shown_text(sheet, info.cell);
      std::string format = cell_text_utf8(info.number_format);
      cell_line_t line = {};
      char cached[40] = "", computed[40] = "";
      if (cell_line_describe(info.cell, &line) && line.kind == 'n') {
        snprintf(cached, sizeof cached, "%.15g", strtod(row[3].c_str(), nullptr));
        snprintf(computed, sizeof computed, "%.15g", strtod(line.value.c_str(), nullptr));
      }
      bool recomputed = row[2] == "fn" && (line.kind != 'n' || strcmp(cached, computed) != 0);
      auto_cell_release(&info.cell);
      ++compared;
      if (shown == row[4]) {
        ++agreed;
        continue;
      }
      Shown difference = {format, row[2], row[3], row[4], shown, strtod(row[3].c_str(), nullptr),
                          recomputed};
      const Rule* rule = nullptr;
      for (const Rule& r : kRules)
        if (!rule && r.applies(difference)) rule = &r;
      if (rule) {
        ++by_rule[rule->name];
      } else {
        difference.value = name + " " + std::to_string(sheet_index) + " " + ref;
        unexplained.push_back(difference);
      }
      if (dump)
        fprintf(dump, "%s\t%s\t%s\t%s\t%s\t%s\t%s\n", name.c_str(), ref.c_str(), format.c_str(),
                row[3].c_str(), row[4].c_str(), shown.c_str(), rule ? rule->name : "-");
    }
    xls_close(file);
    fclose(stream);
  }
  if (dump) fclose(dump);
  if (!compared) GTEST_SKIP() << "no formatted oracle in ../shared: skipped";
  printf("[ formatted ] %ld of %ld number and date cells agree (%.3f%%)\n", agreed, compared,
         100.0 * agreed / compared);
  for (const auto& [rule, count] : by_rule) printf("[ rule      ] %6ld  %s\n", count, rule.c_str());
  for (const Shown& d : unexplained)
    printf("[ differs   ] %s: %s of %s: expected \"%s\", got \"%s\"\n", d.value.c_str(),
           d.format.c_str(), d.kind.c_str(), d.theirs.c_str(), d.ours.c_str());
  EXPECT_TRUE(unexplained.empty()) << unexplained.size() << " differences explained by no rule";
}

}  // namespace
