// Formula text to trees: the lexer's tokens (blanks, separators, numbers,
// strings, words), the binding strength of the operators, references with
// and without sheets, functions with their argument counts, array
// constants, and where each kind of error is reported.  Trees are checked
// by their shape, by what they evaluate to and by the BIFF tokens written
// from them.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "format/kel_locale.h"
#include "format/xls_edit_string.h"
#include "formula/xls_formula_codec.h"
#include "formula/xls_formula_text.h"
#include "formula_test_book.h"
#include "kel_status.h"

namespace {

using formula_test::Book;
using formula_test::describe;
using formula_test::u16dup;

std::basic_string<unsigned short> u16(const std::string& utf8_ascii) {
  return std::basic_string<unsigned short>(utf8_ascii.begin(), utf8_ascii.end());
}

const char* op_name(uint32_t op) {
  static const char* const kNames[] = {"eq",  "gt",   "lt",  "ge",   "le",    "ne",
                                       "add", "sub",  "mul", "div",  "pow",   "cat",
                                       "func", "name", "const", "cell", "neg", "plus",
                                       "pct", "array", "empty", "range", "isect", "ref3d",
                                       "namex", "missing"};
  return op < sizeof kNames / sizeof kNames[0] ? kNames[op] : "?";
}

class Parser : public ::testing::Test {
 protected:
  void TearDown() override { expr_free(&packed_, true); }
  xls_file* file() const { return book_.file(); }

  void rename_sheet(int index, const char* name) {
    free(book_.sheet(index)->name);
    book_.sheet(index)->name = u16dup(name);
  }

  // Parses text as the formula of cell a1 on sheet; the tree stays in
  // packed_ until the next parse.
  uint32_t parse(const std::string& text, const char* a1 = "A1", const xls_locale* locale = nullptr,
                 int sheet = 0) {
    expr_free(&packed_, true);
    int column = 0, row = 0;
    formula_test::parse_a1(a1, &column, &row);
    std::basic_string<unsigned short> wide = u16(text);
    error_ = xls_parser_error_t{99, 99, 99};
    uint32_t status =
        xls_parser(wide.c_str(), locale, book_.sheet(sheet), row, column, &error_, &packed_);
    if (status) {
      EXPECT_EQ(0, packed_.count) << text;
    }
    return status;
  }

  // "code start end" of a failed parse.
  std::string error_of(const std::string& text, const xls_locale* locale = nullptr) {
    uint32_t status = parse(text, "A1", locale);
    EXPECT_EQ(KEL_ERR_GENERAL, status) << text;
    return std::to_string(error_.code) + " " + std::to_string(error_.start) + " " +
           std::to_string(error_.end);
  }

  std::string cell_text(const xls_cell_ref_t& ref) const {
    std::string out;
    if (ref.sheet == XLS_DELETED_SHEET) out = "#REF!";
    else if (ref.sheet) out = std::to_string(xls_sheet_index(file(), ref.sheet)) + "!";
    return out + (ref.row_relative ? "r" : "R") + std::to_string(ref.row) +
           (ref.column_relative ? "c" : "C") + std::to_string(ref.column);
  }

  // The tree below node: op(children), cells as R2C3 (absolute) or r-1c0
  // (an offset), constants as formula_test::describe tells them.
  std::string shape(const xls_expr_t* node) const {
    switch (node->op) {
      case xop_constant:
        if (node->u.constant.kind == vt_range)
          return cell_text(node->u.constant.u.range->first) + ":" +
                 cell_text(node->u.constant.u.range->second);
        return describe(node->u.constant);
      case xop_cellref:
        return cell_text(node->u.cell);
      case xop_name:
        return "name" + std::to_string(node->u.name.index);
      case xop_missing:
        return "missing";
      case xop_neg: case xop_plus: case xop_percent:
        return std::string(op_name(node->op)) + "(" + shape(expr_unary(&packed_, node)) + ")";
      case xop_func: {
        std::string out = "f" + std::to_string(node->u.func.number) + "(";
        for (uint32_t i = 0; i < node->u.func.count; ++i)
          out += (i ? "," : "") + shape(expr_func_param(&packed_, node, i));
        return out + ")";
      }
      default:
        return std::string(op_name(node->op)) + "(" + shape(expr_binary_left(&packed_, node)) +
               "," + shape(expr_binary_right(&packed_, node)) + ")";
    }
  }

  std::string failure(uint32_t status) const {
    char text[48];
    snprintf(text, sizeof text, "status %08X error %u", status, error_.code);
    return text;
  }

  std::string tree(const std::string& text, const char* a1 = "A1",
                   const xls_locale* locale = nullptr, int sheet = 0) {
    uint32_t status = parse(text, a1, locale, sheet);
    if (status) return failure(status);
    return shape(expr_root_expr(&packed_));
  }

  // What the formula evaluates to at a1 of sheet 0.
  std::string eval(const std::string& text, const char* a1 = "A1") {
    uint32_t status = parse(text, a1);
    if (status) return failure(status);
    xls_recalc_env env = book_.env(a1);
    xls_value_t result;
    xls_value_empty(&result);
    EXPECT_EQ(0u, expr_eval_recursive(&env, &packed_, expr_root_expr(&packed_), &result, false));
    std::string text_of = describe(result);
    xls_free_value(&result);
    return text_of;
  }

  // The BIFF tokens (and array constants) written from the parsed tree.
  std::vector<unsigned char> tokens(const std::string& text, const char* a1 = "A1") {
    EXPECT_EQ(0u, parse(text, a1)) << text;
    int column = 0, row = 0;
    formula_test::parse_a1(a1, &column, &row);
    std::vector<unsigned char> buffer(4096);
    uint32_t token_length = 0, total = 0;
    EXPECT_EQ(0u, expr_write_formula(file(), buffer.data(), &token_length, &total, book_.sheet(0),
                                     row, column, &packed_, xls_write_cell, xls_adaptor_none));
    buffer.resize(total);
    return buffer;
  }

  void add_name(const char* text, int sheet) {
    xls_expr_named_t named = {};
    named.name = u16dup(text);
    named.sheet = sheet < 0 ? nullptr : book_.sheet(sheet);
    void* data = file()->names;
    ASSERT_EQ(0u, xls_array_push(&file()->names_info, &data, &named));
    file()->names = static_cast<xls_expr_named_t*>(data);
  }

  Book book_;
  xls_packed_expr_t packed_ = {};
  xls_parser_error_t error_ = {};
};

// A locale with "," for decimals and German names for SUM and TRUE.
struct CommaLocale {
  xls_locale locale = {};
  CommaLocale() {
    locale.decimal_separator = ',';
    locale.function_names[4] = u16dup("SUMME");
    locale.true_word = u16dup("WAHR");
  }
  ~CommaLocale() {
    free(locale.function_names[4]);
    free(locale.true_word);
  }
};

TEST_F(Parser, OperatorsBindAsTheirPrecedenceSays) {
  EXPECT_EQ("n:7", eval("1+2*3"));
  EXPECT_EQ("n:3", eval("10-4-3"));
  EXPECT_EQ("n:5", eval("20/2/2"));
  // "^" is right-associative, as the printer treats it.
  EXPECT_EQ("pow(n:2,pow(n:3,n:2))", tree("2^3^2"));
  // Prefix minus binds tighter than "^", percent tighter than "^" too.
  EXPECT_EQ("pow(neg(n:2),n:2)", tree("-2^2"));
  EXPECT_EQ("pow(n:2,pct(n:3))", tree("2^3%"));
  EXPECT_EQ("pct(neg(n:1))", tree("-1%"));
  EXPECT_EQ("n:-6", eval("2*-3"));
  EXPECT_EQ("plus(neg(neg(n:1)))", tree("+--1"));
  // & below + and above comparisons; comparisons chain from the left.
  EXPECT_EQ("s:33", eval("1+2&3"));
  EXPECT_EQ("eq(lt(n:1,n:2),b:TRUE)", tree("1<2=TRUE"));
  EXPECT_EQ("ne(ge(n:1,n:2),le(n:3,n:4))", tree("1>=2<>(3<=4)"));
  // Range above intersection above prefix minus.
  EXPECT_EQ("neg(isect(r0c0,r0c1:r1c1))", tree("-A1 B1:B2"));
  EXPECT_EQ("neg(range(r0c0,r0c1))", tree("-A1 : B1"));
  EXPECT_EQ("range(r0c0:r1c1,r2c2)", tree("A1:B2:C3"));
  // Numbers carry no sign: -1 is the negation of 1.
  EXPECT_EQ("neg(n:1)", tree("-1"));
}

TEST_F(Parser, BlanksSeparatorsAndTheLocale) {
  // A blank between two operands intersects them; before an operator, after
  // one and at either end it is only space.
  EXPECT_EQ("isect(r0c0,r0c1)", tree("A1 B1"));
  EXPECT_EQ("add(r0c0,r0c1)", tree(" \t A1 + \r\n B1 "));
  EXPECT_EQ("f4(r0c0)", tree("SUM( A1 )"));
  EXPECT_EQ("isect(r0c0:r1c1,r1c1)", tree("(A1:B2) (B2)"));
  // A blank before a quote is no intersection, unless a reference follows.
  EXPECT_EQ("status 073700FF error 8", tree("A1 \"x\""));
  EXPECT_EQ("isect(r0c0:r4c0,0!R0C0:0!R65535C0)", tree("A1:A5 'Sheet1'!$A:$A"));

  // ";" always separates arguments, "," where the decimal separator is ".".
  EXPECT_EQ("f4(r0c0,r0c1)", tree("SUM(A1;B1)"));
  EXPECT_EQ("f4(r0c0,r0c1)", tree("SUM(A1,B1)"));
  CommaLocale comma;
  EXPECT_EQ("f4(n:1.5,n:2)", tree("SUMME(1,5;2)", "A1", &comma.locale));
  EXPECT_EQ("8 8 9", error_of("SUMME(A1,B1)", &comma.locale));
  // The locale's name at a row hides the English one; case does not matter.
  EXPECT_EQ("f4(n:1)", tree("sum(1)"));
  EXPECT_EQ("f4(n:1)", tree("summe(1)", "A1", &comma.locale));
  EXPECT_EQ(KEL_ERR_GENERAL, parse("SUM(1)", "A1", &comma.locale));
  EXPECT_EQ(0u, error_.code);
  EXPECT_EQ("b:TRUE", tree("wahr", "A1", &comma.locale));
}

TEST_F(Parser, NumbersStringsAndErrors) {
  EXPECT_EQ("n:70000", tree("70000"));
  EXPECT_EQ(bvt_long, expr_root_expr(&packed_)->u.constant.u.basic.kind);
  // Beyond 32 bits, and with a decimal point or an exponent: doubles.
  EXPECT_EQ("n:3000000000", tree("3000000000"));
  EXPECT_EQ(bvt_double, expr_root_expr(&packed_)->u.constant.u.basic.kind);
  EXPECT_EQ("n:1500", tree("1.5e3"));
  EXPECT_EQ("n:0.5", tree(".5"));
  EXPECT_EQ("n:2", tree("2."));
  EXPECT_EQ(bvt_double, expr_root_expr(&packed_)->u.constant.u.basic.kind);
  EXPECT_EQ("2 2 7", error_of("1+1e999"));

  EXPECT_EQ("s:a\"b", tree("\"a\\\"b\""));
  EXPECT_EQ("s:", tree("\"\""));
  EXPECT_EQ("s:abc", tree("'abc'"));
  EXPECT_EQ("1 2 6", error_of("1&\"abc"));
  EXPECT_EQ("1 0 3", error_of("'ab"));

  EXPECT_EQ("e:7", tree("#DIV/0!"));
  EXPECT_EQ("e:42", tree("#n/a"));
  EXPECT_EQ("add(e:23,n:1)", tree("#REF!+1"));
  EXPECT_EQ("8 2 3", error_of("1+#FOO"));
  EXPECT_EQ("b:FALSE", tree("false"));
}

TEST_F(Parser, SyntaxErrorsArePlaced) {
  // A list in parentheses is a union, which the engine has not; () is empty.
  EXPECT_EQ("4 3 5", error_of("(1,2)"));
  EXPECT_EQ("3 0 2", error_of("()"));
  EXPECT_EQ("3 3 5", error_of("1+( )"));
  EXPECT_EQ("5 1 2", error_of("1)"));
  EXPECT_EQ("6 6 6", error_of("SUM((1"));
  EXPECT_EQ("6 8 8", error_of("(\"(\"&1  "));
  EXPECT_EQ("7 2 2", error_of("1+"));
  EXPECT_EQ("7 0 0", error_of(""));
  EXPECT_EQ("8 2 3", error_of("1+*2"));
  EXPECT_EQ("8 1 2", error_of("1(2)"));
  EXPECT_EQ("8 0 1", error_of("=1"));

  // The parser's stack holds 10000 states: deeper nesting fails for memory,
  // with no position.
  std::string deep = std::string(300, '(') + "1" + std::string(300, ')');
  EXPECT_EQ("n:1", eval(deep));
  deep = std::string(12000, '(') + "1" + std::string(12000, ')');
  EXPECT_EQ(KEL_ERR_OUT_OF_MEMORY, parse(deep));
  EXPECT_EQ(0u, error_.code);
}

TEST_F(Parser, ReferencesAreOffsetsFromTheCell) {
  EXPECT_EQ("r-1c-1", tree("B2", "C3"));
  EXPECT_EQ("R1C1", tree("$B$2", "C3"));
  EXPECT_EQ("R1c-1", tree("B$2", "C3"));
  EXPECT_EQ("r0c0:r1c1", tree("a1:b2"));
  EXPECT_EQ("R0C255", tree("$IV$1"));
  // A range keeps its corners as written.
  EXPECT_EQ("r1c1:r0c0", tree("B2:A1"));
  // Whole rows and columns: the other coordinate spans the sheet, absolute.
  EXPECT_EQ("r0C0:r0C255", tree("1:1"));
  EXPECT_EQ("R2C0:R4C255", tree("$3:$5", "B2"));
  EXPECT_EQ("R0c0:R65535c0", tree("A:A"));
  // Past IV or 65536, or run on into a word: no reference, so a name that
  // does not exist.
  for (const char* word : {"IW1", "XFD1", "A65537", "A0", "A1B", "A1_x", "A1.5"}) {
    EXPECT_EQ(KEL_ERR_GENERAL, parse(word)) << word;
    EXPECT_EQ(0u, error_.code) << word;
  }
  // "A1:B" is no reference; "A1" alone is one, and ":" the range operator.
  EXPECT_EQ(KEL_ERR_GENERAL, parse("A1:B"));
  EXPECT_EQ("range(r0c1,f29(r0c1:r2c1,n:2))", tree("B1:INDEX(B1:B3,2)"));

  book_.put("A1", 1.0);
  book_.put("B1", 2.0);
  book_.put("A2", 3.0);
  book_.put("B2", 4.0);
  EXPECT_EQ("n:20", eval("SUM(A1:B2)*2", "D4"));
  EXPECT_EQ("n:4", eval("SUM(A1:B2 B1:B2 A2:B2)", "D4"));
  EXPECT_EQ("n:6", eval("SUM(B1:INDEX(B1:B2,2))", "D4"));
}

TEST_F(Parser, SheetsInReferences) {
  rename_sheet(1, "My sheet");
  rename_sheet(2, "It's");
  book_.put("C3", 5.0, 1);
  EXPECT_EQ("1!r2c2", tree("'My sheet'!C3"));
  EXPECT_EQ("n:5", eval("'my SHEET'!C3*1"));
  EXPECT_EQ("2!R0C0", tree("'It''s'!$A$1"));
  EXPECT_EQ("0!r0c0", tree("Sheet1!A1"));
  EXPECT_EQ("0!R0c0:0!R65535c0", tree("Sheet1!A:A"));
  // Spans of sheets, whichever way they are quoted.
  EXPECT_EQ("0!r0c0:2!r0c0", tree("'Sheet1:It''s'!A1"));
  EXPECT_EQ("0!r0c0:1!r0c0", tree("'Sheet1':'My sheet'!A1"));
  EXPECT_EQ("0!r0c0:1!r1c1", tree("Sheet1:'My sheet'!A1:B2"));
  EXPECT_EQ("1!r0c0:0!r0c0", tree("'My sheet:Sheet1'!A1"));
  // Each span has its EXTERNSHEET entry.
  uint16_t entry = 99;
  EXPECT_EQ(0u, xls_externsheet_refindex(file(), book_.sheet(1), book_.sheet(0), &entry));
  int entries = file()->externsheets_info.count;
  EXPECT_EQ(entries - 1, entry);
  // A deleted sheet, and a deleted second corner.
  EXPECT_EQ("#REF!r0c0", tree("#REF!A1"));
  EXPECT_EQ("#REF!r0c0:#REF!R0C0", tree("A1:#ref!"));
  // Unknown sheets, and sheets of another workbook.
  EXPECT_EQ("status 073700FF error 0", tree("Sheet9!A1"));
  EXPECT_EQ("status 073700FF error 0", tree("'Sheet1:Sheet9'!A1"));
  EXPECT_EQ("status 07371711 error 0", tree("[1]Sheet1!A1"));
  EXPECT_EQ(entries, file()->externsheets_info.count);
}

TEST_F(Parser, WordsAreValuesNamesFunctionsOrSheets) {
  add_name("Rate", -1);
  add_name("Rate", 1);
  add_name("Local", 2);
  EXPECT_EQ("b:TRUE", tree("TRUE"));
  EXPECT_EQ("f34()", tree("true()"));
  // A name local to the formula's sheet comes before the global one.
  EXPECT_EQ("name1", tree("rate"));
  EXPECT_EQ("name2", tree("Rate", "A1", nullptr, 1));
  EXPECT_EQ("name3", tree("Sheet3!Local"));
  EXPECT_EQ("name2", tree("Sheet2!Rate"));
  EXPECT_EQ("add(name1,f4(name1))", tree("Rate+SUM(Rate)"));
  EXPECT_EQ(packed_.nodes[0].u.name.named, &file()->names[0]);
  // Before "(" the same word is the function RATE.
  EXPECT_EQ("f60(n:1,n:2,name1)", tree("RATE(1,2,Rate)"));
  // A word that is none of these fails without a position.
  for (const char* text : {"Local", "Nope", "Nope(1)", "Sheet9!Rate", "Sheet1!Nope"}) {
    EXPECT_EQ(KEL_ERR_GENERAL, parse(text)) << text;
    EXPECT_EQ(0u, error_.code) << text;
  }
}

TEST_F(Parser, FunctionArguments) {
  EXPECT_EQ("f1(missing,n:1,n:2)", tree("IF(,1,2)"));
  EXPECT_EQ("f4(n:1,missing)", tree("SUM(1,)"));
  EXPECT_EQ("f8()", tree("ROW()"));
  EXPECT_EQ("f19()", tree("PI( )"));
  EXPECT_EQ("n:2", eval("IF(,1,2)"));
  EXPECT_EQ("f4(f4(n:1,n:2),f24(neg(n:3)))", tree("SUM(SUM(1,2),ABS(-3))"));
  // Counts against the table: the position is behind the ")".
  EXPECT_EQ("10 5 5", error_of("SUM()"));
  EXPECT_EQ("11 8 8", error_of("ABS(1,2)"));
  EXPECT_EQ("11 5 5", error_of("PI(1)"));
  EXPECT_EQ("10 10 10", error_of("1+ROUND(1)"));
  // INDEX of an array constant takes no area number.
  EXPECT_EQ("f29(r0c0:r1c1,n:1,n:1,n:1)", tree("INDEX(A1:B2,1,1,1)"));
  EXPECT_EQ("11 22 22", error_of("INDEX({1,2;3,4},1,1,1)"));
  EXPECT_EQ("n:3", eval("INDEX({1,2;3,4},2,1)"));
  // More than the node holds in itself.
  std::string many = "SUM(1";
  for (int i = 2; i <= 30; ++i) many += "," + std::to_string(i);
  EXPECT_EQ("n:465", eval(many + ")"));
  EXPECT_EQ("11 88 88", error_of(many + ",31)"));
}

TEST_F(Parser, ArrayConstants) {
  EXPECT_EQ("a2x2:{n:1,n:2,n:3,n:4}", tree("{1,2;3,4}"));
  // Numbers are doubles, a "-" before one is part of it.
  EXPECT_EQ(bvt_double, expr_root_expr(&packed_)->u.constant.u.basic.u.array.elements[0].kind);
  EXPECT_EQ("a1x1:{n:-1}", tree("{-1}"));
  EXPECT_EQ("a1x3:{n:-1.5,s:a,b:TRUE}", tree("{-1.5,\"a\",true}"));
  EXPECT_EQ("a2x1:{e:42,s:x}", tree("{#N/A;'x'}"));
  // The element nodes are gone: only the array and what is around it.
  EXPECT_EQ("f4(a1x2:{n:1,n:2},n:3)", tree("SUM({1,2},3)"));
  EXPECT_EQ(3, packed_.count);
  EXPECT_EQ("n:10", eval("SUM({1,2;3,4})"));
  // Rows of different lengths, words that are no values.
  EXPECT_EQ("12 6 6", error_of("{1,2;3}"));
  EXPECT_EQ("12 4 4", error_of("{1,x}"));
  // Only constants.
  EXPECT_EQ("8 1 2", error_of("{A1}"));
  EXPECT_EQ("8 2 3", error_of("{1+2}"));
}

TEST_F(Parser, WrittenTokens) {
  using B = std::vector<unsigned char>;
  // ptgArea, ptgFuncVar SUM, ptgInt, ptgMul.
  EXPECT_EQ((B{0x25, 0, 0, 1, 0, 0x00, 0xC0, 0x01, 0xC0, 0x42, 1, 4, 0, 0x1E, 2, 0, 0x05}),
            tokens("SUM(A1:B2)*2"));
  // ptgRef3d through the EXTERNSHEET entry the parse made; relative parts
  // are written as positions again.
  B ref3d = tokens("Sheet2!C3", "B2");
  ASSERT_EQ(7u, ref3d.size());
  EXPECT_EQ((B{0x5A, ref3d[1], ref3d[2], 2, 0, 0x02, 0xC0}), ref3d);
  xls_sheet_t *first = nullptr, *last = nullptr;
  ASSERT_EQ(0u, xls_externsheet_readref(file(), uint16_t(ref3d[1] | ref3d[2] << 8), &first, &last));
  EXPECT_EQ(book_.sheet(1), first);
  EXPECT_EQ(book_.sheet(1), last);
  // An array constant behind the tokens, "-" part of its number.
  EXPECT_EQ((B{0x40, 0, 0, 0, 0, 0, 0, 0, 0x41, 24, 0,  // ptgArray, ptgFunc ABS
                0, 0, 0,                                 // one column, one row
                1, 0, 0, 0, 0, 0, 0, 0xF0, 0xBF}),       // the double -1
            tokens("ABS({-1})"));
}

TEST(ParseReference, ReadsTheStartOfText) {
  Book book;
  xls_file* file = book.file();
  free(book.sheet(1)->name);
  book.sheet(1)->name = u16dup("Q1 Data");
  struct Case {
    const char* text;
    int32_t used;
    bool is_reference;
    uint32_t kind, rows, columns;
  };
  const Case cases[] = {
      {"$B$2:A10)", 8, true, XLS_REFERENCE_NO_SHEET, 9, 2},
      {"3:1", 3, true, XLS_REFERENCE_NO_SHEET, 3, 256},
      {"C:A", 3, true, XLS_REFERENCE_NO_SHEET, 65536, 3},
      {"'Q1 Data'!A1:B2", 15, true, XLS_REFERENCE_ONE_SHEET, 2, 2},
      {"Sheet1:'Q1 Data'!A1", 19, true, XLS_REFERENCE_TWO_SHEETS, 1, 1},
      {"#REF!B5", 7, true, XLS_REFERENCE_DELETED_SHEET, 1, 1},
      {"Sheet1!Total", 7, false, 0, 0, 0},
      {"#REF!", 5, false, 0, 0, 0},
      {"A1:B", 0, false, 0, 0, 0},
      {"'Q1 Data'", 0, false, 0, 0, 0},
      {"SUM(A1)", 0, false, 0, 0, 0},
  };
  for (const Case& c : cases) {
    std::basic_string<unsigned short> text = u16(c.text);
    int32_t used = -1;
    bool is_reference = false;
    xls_reference reference;
    EXPECT_EQ(0u, xls_parse_reference(file, text.c_str(), -1, &used, &is_reference, &reference))
        << c.text;
    EXPECT_EQ(c.used, used) << c.text;
    EXPECT_EQ(c.is_reference, is_reference) << c.text;
    if (!is_reference) continue;
    EXPECT_EQ(c.kind, reference.kind) << c.text;
    EXPECT_EQ(c.rows, kel_num_reference_rows(&reference)) << c.text;
    EXPECT_EQ(c.columns, kel_num_reference_cols(&reference)) << c.text;
    xls_free_reference(&reference);
  }

  // Flags, sheet indexes and a limited length.
  std::basic_string<unsigned short> text = u16("'Q1 Data'!$C7:D$9");
  int32_t used = 0;
  bool is_reference = false;
  xls_reference reference;
  ASSERT_EQ(0u, xls_parse_reference(file, text.c_str(), 13, &used, &is_reference, &reference));
  EXPECT_TRUE(is_reference);
  EXPECT_EQ(13, used);
  EXPECT_EQ(1, reference.sheets[0].index);
  EXPECT_EQ(0, reference.has_second);
  EXPECT_EQ(XLS_CELL_REFERENCE_ROW_RELATIVE, reference.cells[0].flags);
  EXPECT_EQ(6, reference.cells[0].row);
  EXPECT_EQ(2, reference.cells[0].column);
  ASSERT_EQ(0u, xls_parse_reference(file, text.c_str(), -1, &used, &is_reference, &reference));
  EXPECT_EQ(17, used);
  EXPECT_EQ(XLS_CELL_REFERENCE_COLUMN_RELATIVE, reference.cells[1].flags);

  // Another workbook's sheet keeps its text; an unknown sheet is an error.
  text = u16("'[Book 2.xls]Sales'!A1");
  ASSERT_EQ(0u, xls_parse_reference(file, text.c_str(), -1, &used, &is_reference, &reference));
  EXPECT_TRUE(is_reference);
  EXPECT_EQ(-1, reference.sheets[0].index);
  EXPECT_EQ("[Book 2.xls]Sales", formula_test::ascii(reference.sheets[0].foreign));
  xls_free_reference(&reference);
  text = u16("Missing!A1");
  EXPECT_EQ(KEL_ERR_NOT_FOUND,
            xls_parse_reference(file, text.c_str(), -1, &used, &is_reference, &reference));
}

// What the user types into a cell: "=" and a formula becomes a formula of
// that cell, computed once stored; a formula that doesn't parse says where.
TEST(TypedFormula, BecomesAFormulaOfTheCellOrSaysWhereItFails) {
  Book book;
  book.put("A1", 21);
  xls_autoformat_result result;
  auto type = [&](const std::string& typed, xls_sheet_t* sheet, int row) {
    std::basic_string<unsigned short> text = u16(typed);
    return xls_autoformat_edit_string(sheet, row, 0, nullptr, text.c_str(),
                                      static_cast<unsigned>(text.size()), nullptr, &result, nullptr);
  };
  ASSERT_EQ(0u, type("=A1*2", book.sheet(), 1));
  ASSERT_EQ(static_cast<uint32_t>(vt_expr), result.value.kind);
  EXPECT_EQ(static_cast<uint32_t>(bvt_empty), result.value.u.expr.cache.kind);
  book.put("A2", result.value);
  xls_recalc_env env = book.env("A2");
  auto_cell_t cell = nullptr;
  ASSERT_EQ(0u, kel_cell_cache_find_cell(&cell, &book.sheet()->cells, 0, 1));
  ASSERT_EQ(0u, expr_recalc(&env, &cell));
  EXPECT_EQ("x:n:42", describe(cell->value));
  auto_cell_release(&cell);

  EXPECT_EQ(KEL_ERR_GENERAL, type("=SUM(1", book.sheet(), 0));
  EXPECT_EQ(static_cast<uint32_t>(XLS_PARSE_UNCLOSED_PAREN), result.parse_error.code);
  EXPECT_EQ(static_cast<uint32_t>(bvt_empty), result.value.u.basic.kind);
  // Without a sheet there is no cell for the formula to stand at.
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, type("=SUM(1", nullptr, 0));
}

}  // namespace
