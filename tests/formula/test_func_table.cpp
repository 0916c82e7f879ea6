#include <gtest/gtest.h>

#include <set>
#include <string>

#include "formula/xls_func_table.h"
#include "formula/xls_functions.h"

namespace {

std::string narrow(const unsigned short* name) {
  std::string text;
  for (; name != nullptr && *name != 0; ++name) text += static_cast<char>(*name);
  return text;
}

const char* or_none(const char* text) { return text != nullptr ? text : "none"; }

struct telling_row {
  uint32_t number;
  const char* name;
  int32_t min_args, max_args;
  uint32_t flags, fixed_count;
  const char* result_class;
  const char* arg_classes;
};

}  // namespace

TEST(FuncTable, TellingRows) {
  const telling_row rows[] = {
      {0, "COUNT", 1, 30, 0x4, 1, "V", "R"},
      {1, "IF", 2, 3, 0x4, 3, "V", "VRR"},
      {4, "SUM", 1, 30, 0x4, 1, "V", "R"},
      {27, "ROUND", 2, 2, 0x2, 2, "V", "VV"},
      {29, "INDEX", 2, 4, 0xC, 4, "R", "RVVV"},
      {64, "MATCH", 2, 3, 0x4, 3, "V", "VRR"},
      {78, "OFFSET", 3, 5, 0x4, 5, "R", "RVVVV"},
      {83, "TRANSPOSE", 1, 1, 0x2, 1, "A", "A"},
      {101, "HLOOKUP", 3, 4, 0x4, 4, "V", "VRRV"},
      {148, "INDIRECT", 1, 2, 0xC, 2, "R", "VV"},
      {228, "SUMPRODUCT", 1, 30, 0x4, 1, "V", "A"},
      {255, "extension slot", -1, -1, 0x1, 0, nullptr, nullptr},
      {344, "SUBTOTAL", 2, 30, 0x4, 2, "V", "VR"},
      {379, "RTD", 2, 5, 0x4, 1, "V", "V"},
  };
  for (const telling_row& want : rows) {
    const expr_func_desc_t* row = expr_func_row(want.number);
    ASSERT_NE(row, nullptr) << want.number;
    EXPECT_EQ(narrow(row->name), want.name) << want.number;
    EXPECT_EQ(row->min_args, want.min_args) << want.name;
    EXPECT_EQ(row->max_args, want.max_args) << want.name;
    EXPECT_EQ(row->flags & ~XLS_FUNC_TAKES_REFERENCES, want.flags) << want.name;
    EXPECT_EQ(row->fixed_count, want.fixed_count) << want.name;
    EXPECT_STREQ(or_none(row->result_class), or_none(want.result_class)) << want.name;
    EXPECT_STREQ(or_none(row->arg_classes), or_none(want.arg_classes)) << want.name;
  }

  EXPECT_EQ(expr_func_desc_count, 380u);
  EXPECT_EQ(expr_func_row(379), &expr_func_desc[379]);
  EXPECT_EQ(expr_func_row(380), nullptr);
  EXPECT_EQ(expr_func_row(0xFFFFFFFFu), nullptr);
}

TEST(FuncTable, HandlersWhereExpected) {
  int with_handler = 0;
  for (uint32_t i = 0; i < expr_func_desc_count; ++i)
    if (expr_func_desc[i].handler != nullptr) ++with_handler;
  EXPECT_EQ(with_handler, 112);

  EXPECT_EQ(expr_func_row(8)->handler, &xls_expr_func_row);
  EXPECT_EQ(expr_func_row(9)->handler, nullptr);  // COLUMN stays without one
  EXPECT_EQ(expr_func_row(33)->handler, &xls_expr_func_value);
  EXPECT_EQ(expr_func_row(261)->handler, &xls_expr_func_error_type);
  EXPECT_EQ(narrow(expr_func_row(261)->name), "ERROR.TYPE");
  EXPECT_EQ(expr_func_row(347)->handler, &xls_expr_func_countblank);
  EXPECT_EQ(expr_func_row(63)->handler, nullptr);  // RAND

  // Only ROW, COLUMN, ROWS and COLUMNS are left out of circle detection.
  std::set<std::string> ignored;
  for (uint32_t i = 0; i < expr_func_desc_count; ++i)
    if (expr_func_desc[i].ignore_for_circular) ignored.insert(narrow(expr_func_desc[i].name));
  EXPECT_EQ(ignored, (std::set<std::string>{"ROW", "COLUMN", "ROWS", "COLUMNS"}));

  std::set<std::string> volatile_names;
  for (uint32_t i = 0; i < expr_func_desc_count; ++i)
    if (expr_func_desc[i].flags & XLS_FUNC_VOLATILE)
      volatile_names.insert(narrow(expr_func_desc[i].name));
  EXPECT_EQ(volatile_names, (std::set<std::string>{"INDEX", "RAND", "NOW", "CELL", "INDIRECT",
                                                   "TODAY"}));
}

TEST(FuncTable, RowsAreConsistent) {
  std::set<std::string> names;
  int macro_rows = 0, reserved_rows = 0;
  for (uint32_t i = 0; i < expr_func_desc_count; ++i) {
    const expr_func_desc_t& row = expr_func_desc[i];
    ASSERT_NE(row.name, nullptr) << i;
    std::string name = narrow(row.name);
    EXPECT_TRUE(names.insert(name).second) << "duplicate " << name;
    if (row.flags & XLS_FUNC_MACRO) ++macro_rows;
    if (row.flags & XLS_FUNC_RESERVED) {
      ++reserved_rows;
      EXPECT_EQ(name, "EXCELFUNC" + std::to_string(i));
    }

    bool callable = row.min_args >= 0;
    if (!callable) {
      EXPECT_EQ(row.max_args, -1) << name;
      EXPECT_EQ(row.handler, nullptr) << name;
      EXPECT_EQ(row.flags & (XLS_FUNC_FIXED | XLS_FUNC_VARIABLE), 0u) << name;
      continue;
    }
    EXPECT_LE(row.min_args, row.max_args) << name;
    EXPECT_LE(row.max_args, 30) << name;
    for (const unsigned short* c = row.name; *c; ++c)
      EXPECT_FALSE(*c >= 'a' && *c <= 'z') << name;
    // Exactly one of the two token forms.
    EXPECT_EQ(!(row.flags & XLS_FUNC_FIXED), !!(row.flags & XLS_FUNC_VARIABLE)) << name;
    if (row.flags & XLS_FUNC_FIXED) {
      EXPECT_EQ(row.min_args, row.max_args) << name;
      EXPECT_EQ(row.fixed_count, static_cast<uint32_t>(row.max_args)) << name;
    }
    ASSERT_NE(row.result_class, nullptr) << name;
    EXPECT_TRUE(std::string("VRA").find(row.result_class[0]) != std::string::npos &&
                row.result_class[1] == 0)
        << name;
    if (row.max_args == 0) {
      EXPECT_EQ(row.arg_classes, nullptr) << name;
      continue;
    }
    ASSERT_NE(row.arg_classes, nullptr) << name;
    std::string classes = row.arg_classes;
    EXPECT_FALSE(classes.empty()) << name;
    EXPECT_EQ(classes.find_first_not_of("RVAv"), std::string::npos) << name;
    EXPECT_EQ(row.fixed_count, classes.size()) << name;
    EXPECT_LE(classes.size(), static_cast<size_t>(row.max_args)) << name;
  }
  EXPECT_EQ(macro_rows, 112);
  EXPECT_EQ(reserved_rows, 7);
  EXPECT_EQ(names.size(), 380u);
}

TEST(FuncTable, MissingHandlerGivesErr) {
  xls_value_t result;
  xls_value_error(&result, xls_error_value);
  xls_expr_func_error(&result, nullptr, nullptr, 0);
  EXPECT_EQ(result.kind, static_cast<uint32_t>(vt_basic));
  EXPECT_EQ(result.u.basic.kind, static_cast<uint32_t>(bvt_error));
  EXPECT_EQ(result.u.basic.u.error, static_cast<biff_error_t>(xls_error_no_handler));
}
