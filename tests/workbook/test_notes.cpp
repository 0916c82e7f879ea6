// Notes of a sheet: NOTE records matched to the text of their OBJ and TXO,
// the text in 8-bit and 16-bit form and over several CONTINUE records.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <utility>
#include <vector>

#include "biff_test_file.h"
#include "test_support.h"
#include "workbook/kel_xls_notes.h"
#include "workbook/kel_xls_sheet.h"

using biff_test::add16;
using biff_test::Book;
using biff_test::Bytes;
using biff_test::one_sheet;
using biff_test::Stream;

namespace {

// OBJ of a note: the common data (ft 0x15, 18 bytes) and the end.
void obj(Stream& s, uint16_t id, uint16_t type = 0x19) {
  Bytes b;
  add16(&b, 0x15), add16(&b, 0x12), add16(&b, type), add16(&b, id), add16(&b, 0x4011);
  b.resize(b.size() + 12, 0);
  add16(&b, 0), add16(&b, 0);
  s.record(0x5D, b);
}
void drawing(Stream& s) { s.record(0xEC, Bytes(24, 0xF0)); }
void txo(Stream& s, uint16_t characters) {
  Bytes b;
  add16(&b, 0x212), add16(&b, 0);
  b.resize(b.size() + 6, 0);
  add16(&b, characters), add16(&b, characters ? 16 : 0), add16(&b, 0), add16(&b, 0);
  s.record(0x1B6, b);
}
// One CONTINUE of text: 16-bit characters if any needs it, else 8-bit.
void text_continue(Stream& s, const std::u16string& text) {
  bool wide = false;
  for (char16_t c : text) wide |= c > 0xFF;
  Bytes b(1, wide ? 1 : 0);
  for (char16_t c : text) wide ? add16(&b, c) : b.push_back((uint8_t)c);
  s.record(0x3C, b);
}
void runs(Stream& s) { s.record(0x3C, Bytes(16, 0)); }
void note_text(Stream& s, uint16_t id, const std::u16string& text) {
  obj(s, id);
  drawing(s);
  txo(s, (uint16_t)text.size());
  text_continue(s, text);
  runs(s);
}
void note(Stream& s, uint16_t row, uint16_t col, uint16_t id, uint16_t flags = 0) {
  Bytes b;
  add16(&b, row), add16(&b, col), add16(&b, flags), add16(&b, id);
  Bytes author = biff_test::text(u"Ann");
  b.insert(b.end(), author.begin(), author.end());
  b.push_back(0);
  s.record(0x1C, b);
}

struct Note {
  uint32_t status;
  bool found;
  bool has_text;
  std::u16string text;
  uint16_t flags;
};

Note get(xls_sheet_t* sheet, int col, int row) {
  xls_note_t* n = reinterpret_cast<xls_note_t*>(1);
  Note result = {kel_xls_get_note_text(sheet, col, row, &n), n != nullptr, false, u"", 0};
  if (n) {
    result.has_text = n->text != nullptr;
    if (n->text) {
      result.text.assign(n->text, n->text + n->text_length);
      EXPECT_EQ(0, n->text[n->text_length]);
    }
    result.flags = n->flags;
  }
  xls_note_free(n);
  return result;
}

std::vector<std::pair<int, int>> places(xls_sheet_t* sheet) {
  xls_simple_array array;
  bool owned = true;
  EXPECT_EQ(0u, xls_get_notes(sheet, &array, &owned));
  EXPECT_EQ(owned, array.count > 0);
  std::vector<std::pair<int, int>> result;
  for (int i = 0; i < array.count; ++i) {
    const xls_note_place_t& p = static_cast<const xls_note_place_t*>(array.data)[i];
    result.push_back({p.col, p.row});
  }
  if (owned) free(array.data);
  return result;
}

TEST(Notes, TextsOfEveryFormMatchedByObjectId) {
  const std::u16string wide = u"Summe \u2211 = 4\nGr\u00f6\u00dfe";
  Book book(one_sheet([&](Stream& s) {
    // Before the cell table, where objects seldom stand: found all the same.
    note_text(s, 9, u"early");
    s.row_blocks(0, 3, {{0, 300, 0, 15}, {2, 300, 0, 15}});
    s.number(0, 0, 15, 1);
    // An embedded chart with an object of the same id as a note.
    obj(s, 5, 5);
    s.bof(0x20);
    obj(s, 2);
    txo(s, 5);
    text_continue(s, u"chart");
    runs(s);
    s.eof();
    note_text(s, 1, u"caf\u00e9 cr\u00e8me");  // Latin-1 in 8-bit form
    note_text(s, 2, wide);
    // Over two CONTINUE records, 8-bit and then 16-bit characters.
    obj(s, 3);
    txo(s, 11);
    text_continue(s, u"Hello, ");
    text_continue(s, u"w\u00f6r\u2603");
    runs(s);
    obj(s, 4);  // no TXO: the next object comes first
    obj(s, 6);
    txo(s, 0);  // an empty text
    note(s, 4, 1, 1);
    note(s, 0, 0, 2, 0x0002);
    note(s, 7, 3, 3);
    note(s, 2, 2, 4);
    note(s, 9, 9, 6);
    note(s, 300, 200, 9);
    s.window2();
  }));
  ASSERT_EQ(0u, book.status);
  xls_sheet_t* sheet = book.sheet();
  ASSERT_NE(0u, sheet->note_offset);

  Note n = get(sheet, 1, 4);
  EXPECT_EQ(0u, n.status);
  EXPECT_EQ(u"caf\u00e9 cr\u00e8me", n.text);
  n = get(sheet, 0, 0);
  EXPECT_EQ(wide, n.text);
  EXPECT_EQ(0x0002, n.flags);
  EXPECT_EQ(u"Hello, w\u00f6r\u2603", get(sheet, 3, 7).text);
  EXPECT_EQ(u"early", get(sheet, 200, 300).text);
  for (std::pair<int, int> textless : {std::make_pair(2, 2), std::make_pair(9, 9)}) {
    n = get(sheet, textless.first, textless.second);
    EXPECT_TRUE(n.status == 0 && n.found && !n.has_text) << textless.first;
  }
  // A cell without a note, and the cell of a note with row and column swapped.
  n = get(sheet, 5, 5);
  EXPECT_TRUE(n.status == 0 && !n.found);
  n = get(sheet, 4, 1);
  EXPECT_TRUE(n.status == 0 && !n.found);

  EXPECT_EQ((std::vector<std::pair<int, int>>{{1, 4}, {0, 0}, {3, 7}, {2, 2}, {9, 9}, {200, 300}}),
            places(sheet));

  // A sheet without notes.
  Book plain(one_sheet([](Stream& s) { s.window2(); }));
  ASSERT_EQ(0u, plain.status);
  EXPECT_TRUE(places(plain.sheet()).empty());
  n = get(plain.sheet(), 0, 0);
  EXPECT_TRUE(n.status == 0 && !n.found);
}

TEST(Notes, BrokenTextObjectsGiveAStatus) {
  // TXO too short for its count, text cut off by another record, a CONTINUE
  // without even its flag byte.
  Book book(one_sheet([](Stream& s) {
    obj(s, 1);
    s.record(0x1B6, Bytes(8, 0));
    obj(s, 2);
    txo(s, 10);
    text_continue(s, u"abc");
    obj(s, 3);
    txo(s, 4);
    s.record(0x3C, {});
    note(s, 0, 0, 1);
    note(s, 1, 0, 2);
    note(s, 2, 0, 3);
    s.record(0x1C, {1, 0});  // a NOTE too short is passed over
    s.window2();
  }));
  ASSERT_EQ(0u, book.status);
  for (int row = 0; row < 3; ++row) {
    Note n = get(book.sheet(), 0, row);
    EXPECT_EQ(KEL_ERR_GENERAL, n.status) << row;
    EXPECT_FALSE(n.found) << row;
  }
  EXPECT_EQ(3u, places(book.sheet()).size());

  // The text's record runs past the end of the stream.
  Bytes workbook = one_sheet([](Stream& sheet) {
    sheet.window2();
    note(sheet, 0, 0, 1);
    obj(sheet, 1);
    txo(sheet, 40);
  });
  workbook.resize(workbook.size() - 4);  // the EOF
  add16(&workbook, 0x3C), add16(&workbook, 200), workbook.push_back(0);
  workbook.resize(workbook.size() + 20, 'x');
  Book cut(workbook);
  ASSERT_EQ(0u, cut.status);
  Note n = get(cut.sheet(), 0, 0);
  EXPECT_NE(0u, n.status);
  EXPECT_FALSE(n.found);
}

// Every note of the corpus's BIFF8 workbooks with comments reads; one file's
// texts are known.
TEST(Notes, CorpusWorkbooksWithComments) {
  std::vector<tabulon_test::CorpusFile> corpus = tabulon_test::corpus_manifest();
  if (corpus.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  int notes = 0;
  for (const tabulon_test::CorpusFile& entry : corpus) {
    if (entry.note.compare(0, 5, "biff8") || entry.note.find("comments") == std::string::npos)
      continue;
    FILE* stream = nullptr;
    xls_file* file = nullptr;
    if (tabulon_test::open_corpus_workbook(entry, &stream, &file)) continue;
    for (uint32_t i = 0; i < xls_sheet_count(file); ++i) {
      xls_sheet_t* sheet = xls_sheet_handle(file, i);
      std::vector<std::pair<int, int>> found = places(sheet);
      for (const std::pair<int, int>& place : found) {
        Note n = get(sheet, place.first, place.second);
        EXPECT_EQ(0u, n.status) << entry.path;
        notes += n.has_text;
      }
      if (entry.path == "xls/poi_SimpleWithComments.xls" && i == 0) {
        EXPECT_EQ((std::vector<std::pair<int, int>>{{1, 0}, {1, 1}, {1, 2}}), found);
        EXPECT_EQ(u"Yegor Kozlov:\nsecond cell", get(sheet, 1, 1).text);
      }
    }
    xls_close(file);
    fclose(stream);
  }
  EXPECT_GT(notes, 10);
}

}  // namespace
