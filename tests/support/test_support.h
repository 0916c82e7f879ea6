// Helpers for the test programs: where the test data lies, and temporary
// folders that clean up after themselves.
#ifndef TABULON_TEST_SUPPORT_H
#define TABULON_TEST_SUPPORT_H

#include <stdint.h>
#include <stdio.h>

#include <map>
#include <string>
#include <vector>

struct xls_file;

namespace tabulon_test {

// A fresh folder under $TMPDIR (or /tmp), removed with its files when the
// object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  // path()/name
  std::string file(const std::string& name) const;

 private:
  std::string path_;
};

// A copy of a member of a value record.  The records are packed to 4
// bytes, and the test macros take their operands by reference, which must
// not be bound to a double or a pointer that stands at 4 bytes.
template <class T>
T copied(T member) {
  return member;
}

// ../shared of the checkout (corpus, oracle, bench); empty if absent.
std::string shared_dir();
// The folder of fonts handed to the engine in tests.
std::string font_dir();
// The copy of the heading picture in the build tree.
std::string gradient_path();

bool write_file(const std::string& path, const std::vector<unsigned char>& bytes);
bool read_file(const std::string& path, std::vector<unsigned char>* bytes);

// One line of the corpus's MANIFEST.tsv: the file's path under corpus/
// (such as "xls/poi_Simple.xls") and the note that classifies it.
struct CorpusFile {
  std::string path;
  std::string note;
  // The password the note gives ("password=..."), empty if none.
  std::string password() const;
};
// Workbooks of the corpus that the manifest calls BIFF8 and that the engine
// refuses, by name, with the reason.
extern const std::map<std::string, std::string> kRefusedWorkbooks;
// The corpus's files, empty when ../shared is absent.
std::vector<CorpusFile> corpus_manifest();
// Opens a corpus workbook with the manifest's password: *stream (closed by
// the caller, after xls_close) and *file, or a status.
uint32_t open_corpus_workbook(const CorpusFile& entry, FILE** stream, xls_file** file);
// The lines of a tab-separated oracle file, each split into its fields;
// false if the file doesn't exist.
bool read_tsv(const std::string& path, std::vector<std::vector<std::string>>* rows);

// UTF-16 text of an ASCII or UTF-8 string, terminated.
std::u16string u16(const std::string& utf8);

}  // namespace tabulon_test

#endif
