// The function table: rows the reader, writer and evaluator can rely on,
// and lookups that stop at its end.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "formula/xls_func_table.h"

namespace {

std::string narrow(const unsigned short* name) {
  std::string text;
  for (; name != nullptr && *name != 0; ++name) text += static_cast<char>(*name);
  return text;
}

}  // namespace

TEST(FuncTable, RowsAreConsistent) {
  std::set<std::string> names, ignored;
  for (uint32_t i = 0; i < expr_func_desc_count; ++i) {
    const expr_func_desc_t& row = expr_func_desc[i];
    ASSERT_NE(row.name, nullptr) << i;
    std::string name = narrow(row.name);
    EXPECT_TRUE(names.insert(name).second) << "duplicate " << name;
    if (row.ignore_for_circular) ignored.insert(name);
    if (row.flags & XLS_FUNC_RESERVED) {
      EXPECT_EQ(name, "EXCELFUNC" + std::to_string(i));
    }

    if (row.min_args < 0) {  // not callable from a cell
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
  // Only these read positions rather than cells, for circle detection.
  EXPECT_EQ(ignored, (std::set<std::string>{"ROW", "COLUMN", "ROWS", "COLUMNS"}));

  EXPECT_EQ(expr_func_row(379), &expr_func_desc[379]);
  EXPECT_EQ(expr_func_row(380), nullptr);
  EXPECT_EQ(expr_func_row(0xFFFFFFFFu), nullptr);
}
