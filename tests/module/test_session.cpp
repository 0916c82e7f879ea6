// The session's life cycle and the helpers of the flat calls.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "foundation/zuv_uni_string.h"
#include "module/kel_session.h"
#include "module/linux_pool.h"
#include "test_support.h"

using tabulon_test::TempDir;
using tabulon_test::u16;

namespace {

const unsigned short* w(const std::u16string& text) {
  return reinterpret_cast<const unsigned short*>(text.c_str());
}

unsigned open(const std::string& path, kel_file** session) {
  std::u16string wide_path = u16(path), fonts = u16(tabulon_test::font_dir());
  return kel_open_file(w(wide_path), nullptr, w(fonts), nullptr, session);
}

TEST(Session, ArgumentsAreChecked) {
  kel_file* session = reinterpret_cast<kel_file*>(1);
  std::u16string text = u"x";
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_open_file(nullptr, nullptr, w(text), nullptr, &session));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_open_file(w(text), nullptr, nullptr, nullptr, &session));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_open_file(w(text), nullptr, w(text), nullptr, nullptr));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_get_sheet_count(nullptr, nullptr));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_set_offscreen_buffer(nullptr, 0, &text, 1, 1));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_set_highlight_color(nullptr, nullptr));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_get_document_creation_date(nullptr, nullptr));
  kel_close_file(nullptr);
}

TEST(Session, FailedOpensLeaveTheModuleReadyAndMakeTheLocaleAgain) {
  TempDir dir;
  kel_file* session = reinterpret_cast<kel_file*>(1);
  EXPECT_EQ(KEL_ERR_CANNOT_OPEN_FILE, open(dir.file("missing.xls"), &session));
  EXPECT_EQ(nullptr, session);

  // A file that is no workbook reaches the workbook layer, which refuses it;
  // a read-only one is opened all the same.
  std::string text = dir.file("notes.txt");
  std::string words = "hello, this is no workbook\n";
  ASSERT_TRUE(tabulon_test::write_file(text, std::vector<unsigned char>(words.begin(), words.end())));
  chmod(text.c_str(), 0444);
  EXPECT_EQ(KEL_ERR_OLE_BAD_CHAIN, open(text, &session));
  EXPECT_EQ(nullptr, session);
  std::string tiny = dir.file("tiny.xls");
  ASSERT_TRUE(tabulon_test::write_file(tiny, {0xD0, 0xCF}));
  EXPECT_EQ(KEL_ERR_END_OF_FILE, open(tiny, &session));
  EXPECT_EQ(1, g_dbg_ref);
  EXPECT_EQ(nullptr, g_os_locale);

  // Closing nothing while no session is open deletes nothing.
  session = nullptr;
  kel_close_file(&session);
  EXPECT_EQ(1, g_dbg_ref);
}

TEST(Session, VersionIsCutToTheBuffers) {
  unsigned short version[8], build[8];
  int version_needed = 0, build_needed = 0;
  EXPECT_EQ(0u, kel_get_version(version, 8, &version_needed, build, 8, &build_needed));
  EXPECT_EQ(u"1.000", std::u16string(reinterpret_cast<char16_t*>(version)));
  EXPECT_EQ(u"039", std::u16string(reinterpret_cast<char16_t*>(build)));
  EXPECT_EQ(6, version_needed);
  EXPECT_EQ(4, build_needed);

  memset(version, 0xFF, sizeof version);
  EXPECT_EQ(0u, kel_get_version(version, 3, nullptr, build, 1, nullptr));
  EXPECT_EQ(u"1.", std::u16string(reinterpret_cast<char16_t*>(version)));
  EXPECT_EQ(0, version[2]);
  EXPECT_EQ(0, build[0]);
  EXPECT_EQ(0u, kel_get_version(nullptr, 0, nullptr, nullptr, 0, nullptr));
}

TEST(Session, TextIsCopiedOutByTheCopyingRule) {
  VString text;
  ASSERT_EQ(0u, text.SetString("Budget", VString::kUtf8, -1));
  unsigned short buffer[8];
  int needed = 0;
  EXPECT_EQ(0u, vstr_to_buffer(text, nullptr, 0, &needed));
  EXPECT_EQ(7, needed);
  memset(buffer, 0xFF, sizeof buffer);
  EXPECT_EQ(0u, vstr_to_buffer(text, buffer, 4, &needed));
  EXPECT_EQ(u"Bud", std::u16string(reinterpret_cast<char16_t*>(buffer)));
  EXPECT_EQ(0xFFFF, buffer[4]);  // nothing written past the capacity
  EXPECT_EQ(0u, vstr_to_buffer(text, buffer, 8, nullptr));
  EXPECT_EQ(u"Budget", std::u16string(reinterpret_cast<char16_t*>(buffer)));
  buffer[0] = 'x';
  EXPECT_EQ(0u, vstr_to_buffer(text, buffer, 1, &needed));
  EXPECT_EQ(0, buffer[0]);
}

TEST(Session, SplitPathKeepsTheFolderSlashAndTheLastExtension) {
  const struct {
    const char *path, *directory, *name, *extension;
  } cases[] = {{"/home/user/book.v2.xls", "/home/user/", "book.v2", "xls"},
               {"dir.d/file", "dir.d/", "file", ""},
               {"report.csv", "", "report", "csv"}};
  char directory[64], name[64], extension[64];
  for (const auto& c : cases) {
    EXPECT_EQ(0u, SplitPath(c.path, directory, name, extension));
    EXPECT_STREQ(c.directory, directory);
    EXPECT_STREQ(c.name, name);
    EXPECT_STREQ(c.extension, extension);
  }
  // Without a name to fill, a path without a slash is the folder.
  EXPECT_EQ(0u, SplitPath("report.csv", directory, nullptr, nullptr));
  EXPECT_STREQ("report.csv", directory);
}

TEST(Session, PoolCallbacksReadWriteAndResizeFiles) {
  TempDir dir;
  std::string path = dir.file("data.bin");
  ASSERT_TRUE(tabulon_test::write_file(path, {1, 2, 3, 4, 5, 6}));
  FILE* file = fopen(path.c_str(), "r+b");
  ASSERT_NE(nullptr, file);

  unsigned char buffer[8] = {};
  uint32_t status = 0;
  EXPECT_EQ(0u, linux_fread(file, buffer, 0, 0, &status));
  EXPECT_EQ(4u, linux_fread(file, buffer, 4, 2, &status));
  EXPECT_EQ(0u, status);
  EXPECT_EQ(3, buffer[0]);
  EXPECT_EQ(2u, linux_fread(file, buffer, 8, 4, &status));
  EXPECT_EQ(KEL_ERR_END_OF_FILE, status);

  status = 0;
  const unsigned char more[3] = {7, 8, 9};
  EXPECT_EQ(3u, linux_fwrite(file, more, 3, 6, &status));
  EXPECT_EQ(0u, status);
  EXPECT_EQ(9u, linux_fget_size(file));
  EXPECT_EQ(0u, linux_fchange_size(file, 2));
  EXPECT_EQ(2u, linux_fget_size(file));

  xls_pool pool;
  linux_pool_for_file(file, &pool);
  fclose(file);
  EXPECT_EQ(nullptr, pool.document.write);  // sessions only view
  EXPECT_EQ(nullptr, pool.scratch.read);
  void* block = pool.mem.mem_alloc(pool.mem.ident, 16);
  ASSERT_NE(nullptr, block);
  block = pool.mem.mem_realloc(pool.mem.ident, block, 64);
  ASSERT_NE(nullptr, block);
  pool.mem.mem_free(pool.mem.ident, block);
  EXPECT_EQ(0u, linux_available_storage());
}

// A session record as the open makes it, without a workbook: enough for the
// geometry and the canvas.
struct BareSession {
  kel_file* file = static_cast<kel_file*>(calloc(1, sizeof(kel_file)));
  std::vector<uint32_t> body = std::vector<uint32_t>(100 * 50);
  explicit BareSession(const std::string& fonts) {
    file->dpi = 72;
    file->font_path = strdup(fonts.c_str());
    file->main_buffer.pixels = body.data();
    file->main_buffer.width = 100;
    file->main_buffer.height = 50;
  }
  ~BareSession() {
    delete file->draw.table;
    if (file->draw.canvas) file->draw.canvas->Release();
    if (file->draw.font_manager) file->draw.font_manager->Release();
    free(file->font_path);
    free(file);
  }
};

TEST(Session, InitOnDemandMakesAViewFontsAndACanvasForHeadingsAndBody) {
  BareSession session(tabulon_test::font_dir());
  ASSERT_EQ(0u, init_on_demand(session.file));
  EXPECT_NE(nullptr, session.file->draw.font_manager);
  ASSERT_NE(nullptr, session.file->draw.canvas);
  ASSERT_NE(nullptr, session.file->draw.table);
  EXPECT_EQ(ZUVBIT_ARGB32, session.file->draw.bitmap.format);
  // Row headings 24 pixels wide, a separator, the body; without a workbook
  // there is no row to give the column headings a height.
  EXPECT_EQ(24 + 1 + 100, session.file->draw.bitmap.width);
  EXPECT_EQ(51, session.file->draw.bitmap.height);
  EXPECT_GE(session.file->draw.bitmap.bytes_per_row, 101u * 4);

  // A new resolution keeps the font manager and makes a new canvas; 16-bit
  // buffers make a 16-bit canvas, even of no size.
  IZuvFontManager* fonts = session.file->draw.font_manager;
  uint16_t none = 0;
  EXPECT_EQ(0u, kel_set_offscreen_buffer(session.file, 1, &none, 0, 0));
  EXPECT_EQ(ZUVBIT_RGB565, session.file->draw.bitmap.format);
  EXPECT_EQ(25, session.file->draw.bitmap.width);
  EXPECT_EQ(0u, kel_set_dpi(session.file, 96));
  EXPECT_EQ(133u, session.file->draw.zoom);
  EXPECT_EQ(fonts, session.file->draw.font_manager);
  EXPECT_EQ(72, session.file->draw.vertical_dpi);
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, kel_set_dpi(session.file, 0));
}

TEST(Session, InitOnDemandReportsAMissingFontFolder) {
  TempDir dir;
  BareSession session(dir.file("no-such-folder"));
  EXPECT_EQ(KEL_ERR_CANNOT_OPEN_FILE, init_on_demand(session.file));
  EXPECT_EQ(nullptr, session.file->draw.canvas);
}

TEST(Session, CopyRectStaysInsideCanvasAndDestination) {
  BareSession session(tabulon_test::font_dir());
  ASSERT_EQ(0u, init_on_demand(session.file));
  zuvbit_t& canvas = session.file->draw.bitmap;
  // Number each canvas pixel by its position.
  for (int y = 0; y < canvas.height; ++y)
    for (int x = 0; x < canvas.width; ++x)
      reinterpret_cast<uint32_t*>(static_cast<unsigned char*>(canvas.pixels) +
                                  y * canvas.bytes_per_row)[x] = static_cast<uint32_t>(y * 1000 + x);

  std::vector<uint32_t> target(4 * 3, 0xDEADBEEF);
  copy_rect(session.file, 10, 20, 4, 5, 4, 3, target.data());
  EXPECT_EQ(20010u, target[0]);
  EXPECT_EQ(20013u, target[3]);
  EXPECT_EQ(22010u, target[8]);  // only the three rows the destination holds
  EXPECT_EQ(22013u, target[11]);

  // A wider request than the canvas has copies what there is, with the
  // destination's rows as wide as asked.
  std::vector<uint32_t> wide(8 * 2, 0xDEADBEEF);
  copy_rect(session.file, 122, 49, 8, 5, 8, 5, wide.data());
  EXPECT_EQ(49122u, wide[0]);
  EXPECT_EQ(49124u, wide[2]);
  EXPECT_EQ(0xDEADBEEFu, wide[3]);
  EXPECT_EQ(50122u, wide[8]);
}

}  // namespace
