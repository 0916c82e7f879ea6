// Tables of cases whose expected values LibreOffice Calc computed
// (tools/calc_cases.py writes them): the block of cells they read, the
// cases, and the loop that calls each handler and compares.
#ifndef CALC_CASES_H
#define CALC_CASES_H

#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "formula_test_book.h"

namespace formula_test {

struct CalcCell {
  const char* a1;
  const char* token;
};
struct CalcCase {
  const char* function;
  std::vector<const char*> args;
  const char* calc;  // Calc's result
  const char* ours;  // null: the same as Calc's
  const char* rule;  // why ours differs
};

// Descriptions agree when they are the same, or both numbers within 1e-9
// relative; "n:x~d" wants a number within d of x.
inline bool calc_agree(const std::string& got, const std::string& want) {
  if (got == want) return true;
  if (got.compare(0, 2, "n:") || want.compare(0, 2, "n:")) return false;
  char* end;
  double a = strtod(got.c_str() + 2, nullptr), b = strtod(want.c_str() + 2, &end);
  if (*end == '~') return fabs(a - b) <= strtod(end + 1, nullptr);
  return fabs(a - b) <= 1e-9 * fmax(fabs(a), fabs(b));
}

// Puts the cells into book, calls each case's handler with its tokens made
// values at Z1, and expects Calc's result or the one the case's rule names.
inline void run_calc_cases(const char* label, const Book& book, const CalcCase* cases, size_t count,
                           const std::map<std::string, xls_expr_handler_t>& handlers,
                           const std::function<xls_value_t(const std::string&)>& token_value) {
  int same = 0, ruled = 0;
  for (size_t k = 0; k < count; ++k) {
    const CalcCase& c = cases[k];
    std::string args;
    for (const char* token : c.args) args += std::string(args.empty() ? "" : ", ") + token;
    SCOPED_TRACE(std::string(c.function) + "(" + args + ")" + (c.rule ? "  rule: " : "") +
                 (c.rule ? c.rule : ""));
    xls_value_t list[32];
    int n = 0;
    for (const char* token : c.args) list[n++] = token_value(token);
    xls_value_t result;
    xls_value_empty(&result);
    xls_recalc_env env = book.env("Z1");
    handlers.at(c.function)(&result, &env, list, n);
    std::string got = describe(result);
    xls_free_value(&result);
    for (int i = 0; i < n; ++i) xls_free_value(&list[i]);
    EXPECT_TRUE(calc_agree(got, c.ours ? c.ours : c.calc))
        << "got " << got << ", Calc " << c.calc << (c.ours ? ", expected " : "")
        << (c.ours ? c.ours : "");
    if (calc_agree(got, c.calc)) ++same;
    else if (c.ours && calc_agree(got, c.ours)) ++ruled;
  }
  printf("[ %s ] %d of %zu cases as Calc computes them, %d by a rule of the engine\n", label, same,
         count, ruled);
}

}  // namespace formula_test

#endif
