// Opens every .xls of the corpus (and the encrypted packages among the
// .xlsx) and checks the status and the sheet list against what the manifest
// and an independent reader say.
#include <gtest/gtest.h>
#include <stdio.h>

#include <map>
#include <string>

#include "foundation/zuv_uni_string.h"
#include "module/linux_pool.h"
#include "test_support.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

namespace {

using tabulon_test::CorpusFile;

std::string status_text(uint32_t status) {
  char text[16];
  snprintf(text, sizeof text, "0x%08X", status);
  return text;
}

std::string utf8(const unsigned short* text) {
  std::string out(4 * ucs2_len(text) + 1, '\0');
  out.resize(ucs2_to_utf8(&out[0], text));
  return out;
}

// What the manifest's note expects of a file.
enum Expect { kOpens, kNotBiff8, kEncryptedPackage, kWrongPassword, kFails, kAnything, kSkip };

Expect expectation(const CorpusFile& entry) {
  const std::string& note = entry.note;
  auto starts = [&](const char* prefix) { return note.compare(0, strlen(prefix), prefix) == 0; };
  if (starts("encrypted package")) return kEncryptedPackage;
  if (entry.path.compare(0, 4, "xls/") != 0) return kSkip;
  // Minimised crash cases of other projects' fuzzers, whatever the classifier
  // made of their first bytes: they may open or not, but must not crash.
  if (entry.path.find("clusterfuzz") != std::string::npos ||
      entry.path.find("crash-") != std::string::npos)
    return kAnything;
  if (starts("biff5") || starts("biff-old")) return kNotBiff8;
  if (starts("biff8")) {
    if (note.find("password unknown") != std::string::npos) return kWrongPassword;
    return kOpens;
  }
  return kFails;  // broken, not a workbook, no workbook stream
}

TEST(CorpusOpen, EveryWorkbookOpensAsTheManifestSays) {
  std::vector<CorpusFile> corpus = tabulon_test::corpus_manifest();
  if (corpus.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  std::string root = tabulon_test::shared_dir();
  int biff8 = 0, opened = 0, sheets_compared = 0, excepted = 0;
  for (const CorpusFile& entry : corpus) {
    Expect expect = expectation(entry);
    if (expect == kSkip) continue;
    std::string name = entry.path.substr(entry.path.find('/') + 1);
    FILE* stream = nullptr;
    xls_file* file = nullptr;
    uint32_t status = tabulon_test::open_corpus_workbook(entry, &stream, &file);
    ASSERT_NE(nullptr, stream) << entry.path;
    SCOPED_TRACE(name + " (" + entry.note.substr(0, 60) + ")");

    switch (expect) {
      case kOpens: {
        ++biff8;
        auto exception = tabulon_test::kRefusedWorkbooks.find(name);
        if (exception != tabulon_test::kRefusedWorkbooks.end()) {
          ++excepted;
          EXPECT_NE(0u, status) << exception->second;
          break;
        }
        EXPECT_EQ(0u, status) << status_text(status);
        if (status) break;
        ++opened;
        std::vector<std::vector<std::string>> rows;
        if (!tabulon_test::read_tsv(root + "/oracle/sheets/" + name + ".tsv", &rows)) break;
        ++sheets_compared;
        EXPECT_EQ(rows.size(), xls_sheet_count(file));
        for (size_t i = 0; i < rows.size() && i < xls_sheet_count(file); ++i)
          EXPECT_EQ(rows[i][1], utf8(xls_sheet_name(xls_sheet_handle(file, i)))) << "sheet " << i;
        break;
      }
      case kNotBiff8: EXPECT_EQ(KEL_ERR_NOT_BIFF8, status) << status_text(status); break;
      case kEncryptedPackage: EXPECT_EQ(KEL_ERR_ENCRYPTED_PACKAGE, status) << status_text(status); break;
      case kWrongPassword: EXPECT_EQ(KEL_ERR_WRONG_PASSWORD, status) << status_text(status); break;
      case kFails: EXPECT_NE(0u, status); break;
      case kAnything: case kSkip: break;
    }
    xls_close(file);
    fclose(stream);
  }
  printf("[ corpus  ] BIFF8 workbooks opened: %d of %d (%.1f%%); %d listed exceptions; "
         "%d sheet lists compared\n",
         opened, biff8 - excepted, biff8 > excepted ? 100.0 * opened / (biff8 - excepted) : 0.0,
         excepted, sheets_compared);
}

TEST(CorpusOpen, AWrongPasswordIsReported) {
  std::string root = tabulon_test::shared_dir();
  if (root.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  FILE* stream = fopen((root + "/corpus/xls/poi_password.xls").c_str(), "rb");
  if (!stream) GTEST_SKIP() << "poi_password.xls not in the corpus";
  xls_pool pool;
  linux_pool_for_file(stream, &pool);
  std::u16string wrong = u"passw0rd";
  xls_file* file = nullptr;
  EXPECT_EQ(KEL_ERR_WRONG_PASSWORD,
            xls_open(&pool, &file, 1, nullptr, kel_format_biff8,
                     ucs2_dup(reinterpret_cast<const unsigned short*>(wrong.c_str()))));
  EXPECT_EQ(nullptr, file);
  fclose(stream);
}

}  // namespace
