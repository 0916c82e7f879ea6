// Opening BIFF8 workbooks built in memory: global records, the sheet scan,
// shared strings, and what is refused.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "biff_test_file.h"
#include "compound/kel_io_stack.h"
#include "foundation/zuv_uni_string.h"
#include "workbook/kel_xls_sheet.h"
#include "workbook/kel_xls_string.h"

using biff_test::add16;
using biff_test::add32;
using biff_test::Bytes;
using biff_test::one_sheet;
using biff_test::Pool;
using biff_test::Stream;
using biff_test::text;

namespace {

std::u16string str(const unsigned short* units) {
  return units ? std::u16string(reinterpret_cast<const char16_t*>(units)) : u"(null)";
}

// Globals with every record the open acts on, two worksheets and a chart
// sheet.
Bytes rich_workbook() {
  Stream s;
  s.bof(5);
  s.window1(1);
  s.record(0x22, {1, 0});  // DATEMODE: 1904
  s.font(u"Arial");
  s.font(u"Times New Roman", 240, 700);
  s.format(164, u"0.000");
  for (int i = 0; i < 3; ++i) s.record(0xE0, Bytes(20, (uint8_t)i));
  s.record(0x293, {0x00, 0x80, 0x00, 0xFF});  // built-in Normal
  Bytes styled = {0x10, 0x00};
  Bytes style_name = text(u"Mine");
  styled.insert(styled.end(), style_name.begin(), style_name.end());
  s.record(0x293, styled);
  uint32_t b1 = s.boundsheet(u"First");
  uint32_t b2 = s.boundsheet(u"Secret", 0, 1);
  uint32_t b3 = s.boundsheet(u"Chart1", 2);
  s.record(0x1AE, {3, 0, 1, 4});  // own SUPBOOK
  Bytes externs;
  add16(&externs, 5);
  uint16_t entries[5][3] = {{0, 0, 1}, {0, 0xFFFE, 0xFFFE}, {0, 0xFFFF, 0xFFFF}, {0, 7, 7}, {1, 2, 3}};
  for (auto& e : entries) add16(&externs, e[0]), add16(&externs, e[1]), add16(&externs, e[2]);
  s.record(0x17, externs);
  Bytes name = {0x20, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0x06};
  s.record(0x18, name);
  s.record(0x18, name);
  s.record(0x86, {});  // WRITEPROT
  s.eof();

  Bytes pane;
  add16(&pane, 0), add16(&pane, 3), add16(&pane, 3), add16(&pane, 0), pane.push_back(2);
  Bytes selection = {2, 5, 0, 1, 0, 0, 0, 2, 0, 5, 0, 6, 0, 1, 2, 9, 0, 9, 0, 0, 0};
  uint32_t first = s.bof(0x10);
  s.record(0x55, {8, 0});   // DEFCOLWIDTH
  s.colinfo(200, 256, 0x1234, 15, 1);  // hidden, to the last column and past
  s.record(0x12, {1, 0});   // PROTECT
  s.bof(0x20);              // an embedded chart, with a nested substream
  s.bof(0x20);
  s.eof();
  s.record(0x1D, {});       // ignored inside the chart
  s.eof();
  s.record(0x23E, Bytes(18, 0));
  s.record(0x41, pane);
  s.record(0x1D, selection);
  s.eof();
  uint32_t second = s.worksheet();
  uint32_t chart = s.bof(0x20);
  s.eof();
  s.patch_bof(b1, first);
  s.patch_bof(b2, second);
  s.patch_bof(b3, chart);
  return s.bytes;
}

TEST(XlsOpen, GlobalRecordsAndSheetSettingsAreKept) {
  biff_test::Book book(rich_workbook());
  ASSERT_EQ(0u, book.status);
  xls_file* file = book.file;
  EXPECT_TRUE(xls_1904_dates(file));
  EXPECT_TRUE(xls_file_is_write_protected(file));
  EXPECT_EQ(2u, xls_font_count(file));
  EXPECT_EQ(u"Times New Roman", str(file->fonts[1].name));
  EXPECT_EQ(700, file->fonts[1].weight);
  EXPECT_EQ(1u, xls_format_count(file));  // formats and XFs as read: test_sheet_cells.cpp
  ASSERT_EQ(2, file->styles_info.count);
  EXPECT_EQ(1, file->styles[0].flags & 1);
  EXPECT_EQ(u"Mine", str(file->styles[1].name));
  EXPECT_EQ(2u, xls_name_count(file));
  EXPECT_EQ(0, file->names[0].parsed);
  // No PALETTE: the 56 default colours.
  ASSERT_EQ(56, file->palette_size);
  EXPECT_EQ(0xFF, file->palette[2].red);

  ASSERT_EQ(3u, xls_sheet_count(file));
  xls_sheet_t* first = xls_sheet_handle(file, 0);
  xls_sheet_t* secret = xls_sheet_handle(file, 1);
  EXPECT_EQ(nullptr, xls_sheet_handle(file, 3));
  EXPECT_EQ(u"First", str(xls_sheet_name(first)));
  EXPECT_EQ(1, xls_sheet_visibility(secret));
  EXPECT_EQ(XLS_SHEET_CHART, xls_sheet_type(xls_sheet_handle(file, 2)));
  EXPECT_EQ(secret, xls_get_active_sheet(file));  // WINDOW1's active tab
  EXPECT_EQ(0u, xls_set_active_sheet(file, first));
  EXPECT_EQ(first, xls_get_active_sheet(file));

  EXPECT_EQ(0x800, first->default_col_width);
  EXPECT_EQ(0x1234, first->columns[255].width);
  EXPECT_EQ(1, first->columns[200].flags & XLS_COLUMN_HIDDEN);
  EXPECT_FALSE(first->columns[199].present);
  EXPECT_EQ(1u, first->sheet_protected);
  EXPECT_EQ(3, first->pane.y_split);
  EXPECT_EQ(2, first->pane.active_pane);
  ASSERT_EQ(2, first->selections[2].count);
  EXPECT_EQ(9, first->selections[2].refs[1].first_row);
  EXPECT_EQ(1, first->selections[3].count);  // the default stays
  EXPECT_EQ(1, first->charts.count);

  // EXTERNSHEET entries of the own workbook resolve to sheets.
  ASSERT_EQ(5, file->externsheets_info.count);
  EXPECT_EQ(first, file->externsheets[0].first);
  EXPECT_EQ(secret, file->externsheets[0].last);
  EXPECT_EQ(XLS_EXTERN_WORKBOOK, file->externsheets[1].first);
  EXPECT_EQ(XLS_EXTERN_DELETED, file->externsheets[2].first);
  EXPECT_EQ(XLS_EXTERN_DELETED, file->externsheets[3].last);
  EXPECT_EQ(nullptr, file->externsheets[4].first);
  EXPECT_EQ(3, file->externsheets[4].raw_last);
}

// An SST of count strings "s0", "s1", ...; every seventh is wide and runs
// over a CONTINUE boundary, where its width changes.
Bytes sst_workbook(uint32_t count, std::vector<std::u16string>* expected) {
  Stream s;
  s.bof(5);
  s.window1();
  uint32_t bound = s.boundsheet(u"S");
  Bytes sst;
  add32(&sst, count), add32(&sst, count);
  std::vector<Bytes> records;
  for (uint32_t i = 0; i < count; ++i) {
    std::u16string value = u"s" + std::u16string(1, (char16_t)(u'a' + i % 26));
    for (uint32_t k = i; k; k /= 10) value += (char16_t)(u'0' + k % 10);
    if (i % 7 == 3) value += u"\u0416\u0436 wide";  // Cyrillic: two-byte characters
    expected->push_back(value);
    Bytes item = text(value);
    if (i % 11 == 5) {  // rich runs and phonetic data to step over
      item[2] |= 0x0C;
      Bytes extra;
      add16(&extra, 1), add32(&extra, 6);
      item.insert(item.begin() + 3, extra.begin(), extra.end());
      for (int k = 0; k < 10; ++k) item.push_back((uint8_t)k);
    }
    // Close the record before it passes 8,224 bytes; a wide string is cut
    // inside its characters with the rest behind an options byte.
    if (sst.size() + item.size() > 8224) {
      if (item[2] & 1 && sst.size() + 9 < 8224 && !(item[2] & 0x0C)) {
        size_t head = 3 + ((8224 - sst.size() - 3) & ~1u);
        sst.insert(sst.end(), item.begin(), item.begin() + head);
        records.push_back(sst);
        // The rest goes on narrow when it can: the width changes there.
        Bytes rest(item.begin() + head, item.end());
        bool narrow = true;
        for (size_t k = 1; k < rest.size(); k += 2) narrow &= rest[k] == 0;
        sst.assign(1, narrow ? 0 : 1);
        for (size_t k = 0; k < rest.size(); k += narrow ? 2 : 1) sst.push_back(rest[k]);
        continue;
      }
      records.push_back(sst);
      sst.clear();
    }
    sst.insert(sst.end(), item.begin(), item.end());
  }
  records.push_back(sst);
  s.record(0xFC, records[0]);
  for (size_t i = 1; i < records.size(); ++i) s.record(0x3C, records[i]);
  s.eof();
  s.patch_bof(bound, s.worksheet());
  return s.bytes;
}

TEST(XlsOpen, SharedStringsAreFoundThroughCheckpoints) {
  std::vector<std::u16string> expected;
  const uint32_t count = 12000;  // beyond 5,001 strings the step grows to 2
  biff_test::Book book(sst_workbook(count, &expected));
  ASSERT_EQ(0u, book.status);
  xls_file* file = book.file;
  biff_string value;
  // Backwards, forwards and at random: every string comes out right.
  std::mt19937 random(7);
  std::vector<uint32_t> order = {count - 1, 0, 5000, 5001, 3, 10, 11999, 4};
  for (int i = 0; i < 400; ++i) order.push_back(random() % count);
  for (uint32_t index : order) {
    ASSERT_EQ(0u, sst_dup(file, index, &value, XLS_STRING_TEXT)) << index;
    EXPECT_EQ(expected[index], str(value.text)) << index;
    biff_string_free(&value);
  }
  EXPECT_EQ(3u, file->sst_checkpoint_step);
  EXPECT_LE(file->sst_checkpoint_count, (uint32_t)XLS_SST_CHECKPOINTS);

  // Rich runs and phonetic data come when asked for.
  ASSERT_EQ(0u, sst_dup(file, 5, &value, XLS_STRING_TEXT | XLS_STRING_RICH | XLS_STRING_PHONETIC));
  EXPECT_EQ(4u, value.rich_size);
  EXPECT_EQ(6u, value.phonetic_size);
  EXPECT_EQ(9, value.phonetic[5]);
  biff_string_free(&value);
  // Past the table: empty, and no failure.
  EXPECT_EQ(0u, sst_dup(file, count, &value, XLS_STRING_TEXT));
  EXPECT_EQ(nullptr, value.text);
}

uint32_t open_status(const Bytes& document) {
  Pool pool(document);
  xls_file* file = nullptr;
  uint32_t status = pool.open(&file);
  EXPECT_EQ(status == 0, file != nullptr);
  xls_close(file);
  return status;
}

TEST(XlsOpen, WhatIsNoBiff8WorkbookIsRefusedWithAStatus) {
  const Bytes valid = one_sheet([](Stream& s) { s.window2(); });
  EXPECT_EQ(0u, open_status(biff_test::compound(valid)));
  EXPECT_EQ(KEL_ERR_OLE_BAD_CHAIN, open_status(Bytes(600, 'x')));  // the reader's status
  // Older formats: a "Book" stream, a BIFF5 BOF, a bare BIFF stream.
  EXPECT_EQ(KEL_ERR_NOT_BIFF8, open_status(biff_test::compound(valid, "Book")));
  Stream biff5;
  biff5.bof(5, 0x500);
  biff5.eof();
  EXPECT_EQ(KEL_ERR_NOT_BIFF8, open_status(biff_test::compound(biff5.bytes)));
  Bytes bare = biff5.bytes;
  bare.resize(600);
  EXPECT_EQ(KEL_ERR_NOT_BIFF8, open_status(bare));

  // An encrypted OOXML package; one of its two streams alone is not one.
  ole_test::Builder package;
  package.list({package.stream("EncryptionInfo", Bytes(100, 1)),
                package.stream("EncryptedPackage", Bytes(100, 2))});
  EXPECT_EQ(KEL_ERR_ENCRYPTED_PACKAGE, open_status(package.build()));
  ole_test::Builder half;
  half.list({half.stream("EncryptionInfo", Bytes(100, 1))});
  EXPECT_EQ(KEL_ERR_NOT_BIFF8, open_status(half.build()));

  // Broken workbooks: no WINDOW1, a sheet without WINDOW2; XOR obfuscation.
  Stream no_window;
  no_window.bof(5);
  no_window.eof();
  EXPECT_EQ(KEL_ERR_GENERAL, open_status(biff_test::compound(no_window.bytes)));
  EXPECT_EQ(KEL_ERR_GENERAL, open_status(biff_test::compound(one_sheet([](Stream&) {}))));
  Stream xor_file;
  xor_file.bof(5);
  xor_file.record(0x2F, {0, 0, 0x34, 0x12, 0x78, 0x56});
  xor_file.window1();
  xor_file.eof();
  EXPECT_EQ(KEL_ERR_BAD_ENCRYPTION_TYPE, open_status(biff_test::compound(xor_file.bytes)));
}

TEST(XlsOpen, CorruptAndTruncatedWorkbooksGiveAStatus) {
  Bytes workbook = rich_workbook();
  // Every cut of the workbook stream before its last sheet (a chart sheet,
  // whose substream isn't read) fails cleanly.
  for (size_t size = 0; size < workbook.size() - 24; size += 7) {
    Bytes cut(workbook.begin(), workbook.begin() + size);
    EXPECT_NE(0u, open_status(biff_test::compound(cut))) << size;
  }
  // Random damage may open or not, but never crashes or leaks.
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    Bytes damaged = workbook;
    for (int k = 0; k < 4; ++k) damaged[random() % damaged.size()] = (uint8_t)random();
    open_status(biff_test::compound(damaged));
  }
}

TEST(XlsOpen, AWorkbookWithoutAFileHasThreeEmptySheets) {
  xls_pool pool = {};
  zuv_mem_system(&pool.mem);
  xls_file* file = nullptr;
  ASSERT_EQ(0u, xls_open(&pool, &file, 1, nullptr, kel_format_biff8, nullptr));
  ASSERT_EQ(3u, xls_sheet_count(file));
  EXPECT_EQ(u"Sheet1", str(xls_sheet_name(xls_sheet_handle(file, 0))));
  EXPECT_EQ(u"Sheet3", str(xls_sheet_name(xls_sheet_handle(file, 2))));
  EXPECT_EQ(4u, xls_font_count(file));
  EXPECT_EQ(16u, xls_xf_count(file));
  EXPECT_FALSE(xls_1904_dates(file));
  EXPECT_NE(0u, xls_sheet_handle(file, 1)->window2_offset);
  xls_close(file);
  EXPECT_EQ(KEL_ERR_UNSUPPORTED, xls_open(&pool, &file, 1, nullptr, kel_format_ooxml, nullptr));
}

}  // namespace
