#include "test_support.h"

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/zuv_uni_string.h"
#include "module/linux_pool.h"
#include "workbook/kel_xls_file.h"

namespace tabulon_test {

namespace {

void remove_tree(const std::string& path) {
  DIR* dir = opendir(path.c_str());
  if (dir) {
    while (struct dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      std::string child = path + "/" + name;
      struct stat info;
      if (lstat(child.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        remove_tree(child);
      else
        unlink(child.c_str());
    }
    closedir(dir);
  }
  rmdir(path.c_str());
}

bool is_dir(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

TempDir::TempDir() {
  const char* base = getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/tabulon-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (mkdtemp(name.data())) path_ = name.data();
}

TempDir::~TempDir() {
  if (!path_.empty()) remove_tree(path_);
}

std::string TempDir::file(const std::string& name) const { return path_ + "/" + name; }

std::string shared_dir() {
  std::string dir = TABULON_TEST_SHARED_DIR;
  return is_dir(dir) ? dir : std::string();
}

std::string font_dir() { return TABULON_TEST_FONT_DIR; }

std::string gradient_path() { return TABULON_TEST_GRADIENT; }

bool write_file(const std::string& path, const std::vector<unsigned char>& bytes) {
  FILE* f = fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = bytes.empty() || fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return fclose(f) == 0 && ok;
}

bool read_file(const std::string& path, std::vector<unsigned char>* bytes) {
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return false;
  bytes->clear();
  unsigned char buffer[65536];
  size_t got;
  while ((got = fread(buffer, 1, sizeof buffer, f)) > 0) bytes->insert(bytes->end(), buffer, buffer + got);
  fclose(f);
  return true;
}

std::string CorpusFile::password() const {
  size_t at = note.find("password=");
  if (at == std::string::npos) return std::string();
  size_t end = note.find_first_of(" ;\t", at);
  std::string value = note.substr(at + 9, end == std::string::npos ? std::string::npos : end - at - 9);
  return value == "unknown" ? std::string() : value;
}

bool read_tsv(const std::string& path, std::vector<std::vector<std::string>>* rows) {
  std::vector<unsigned char> bytes;
  if (!read_file(path, &bytes)) return false;
  rows->clear();
  std::vector<std::string> fields(1);
  for (unsigned char c : bytes) {
    if (c == '\t') {
      fields.emplace_back();
    } else if (c == '\n') {
      rows->push_back(fields);
      fields.assign(1, std::string());
    } else {
      fields.back().push_back(static_cast<char>(c));
    }
  }
  if (fields.size() > 1 || !fields[0].empty()) rows->push_back(fields);
  return true;
}

const std::map<std::string, std::string> kRefusedWorkbooks = {
    // Encryption schemes other than RC4: the engine refuses them by design.
    {"poi_35897-type4.xls", "CryptoAPI RC4 encryption"},
    {"sheetjs_password_2002_40_basecrypto.xls", "CryptoAPI RC4 encryption"},
    {"sheetjs_password_2002_128_strong.xls", "CryptoAPI RC4 encryption"},
    {"sheetjs_password_2002_128_enhanced.xls", "CryptoAPI RC4 encryption"},
    {"phpss_pwtest3.xls", "CryptoAPI RC4 encryption"},
    {"poi_xor-encryption-abc.xls", "XOR obfuscation"},
    {"sheetjs_password_2002_40_xor.xls", "XOR obfuscation"},
    // Broken files the manifest doesn't mark as such.
    {"calamine_OOM_alloc3.xls", "compound file: the directory chain leaves the allocation table"},
    {"poi_61300.xls", "an XF record claims 38,932 bytes, past the records behind it"},
    // Global and sheet BOF records of 8 bytes, as in BIFF5: a BIFF8 BOF has 16.
    {"poi_bug_42794.xls", "BOF records of 8 bytes"},
    {"poi_ex42564-21435.xls", "BOF records of 8 bytes"},
};

uint32_t open_corpus_workbook(const CorpusFile& entry, FILE** stream, xls_file** file) {
  *file = nullptr;
  *stream = fopen((shared_dir() + "/corpus/" + entry.path).c_str(), "rb");
  if (!*stream) return KEL_ERR_NOT_FOUND;
  xls_pool pool;
  linux_pool_for_file(*stream, &pool);
  unsigned short* password = nullptr;
  if (!entry.password().empty()) {
    std::u16string wide = u16(entry.password());
    password = ucs2_dup(reinterpret_cast<const unsigned short*>(wide.c_str()));
  }
  return xls_open(&pool, file, 1, nullptr, kel_format_biff8, password);
}

std::vector<CorpusFile> corpus_manifest() {
  std::vector<CorpusFile> files;
  std::string dir = shared_dir();
  std::vector<std::vector<std::string>> rows;
  if (dir.empty() || !read_tsv(dir + "/corpus/MANIFEST.tsv", &rows)) return files;
  for (size_t i = 1; i < rows.size(); ++i)
    if (rows[i].size() >= 7) files.push_back({rows[i][0], rows[i][6]});
  return files;
}

std::u16string u16(const std::string& utf8) {
  std::u16string out;
  for (size_t i = 0; i < utf8.size();) {
    unsigned char c = utf8[i];
    unsigned code = c;
    int extra = 0;
    if (c >= 0xF0) { code = c & 0x07; extra = 3; }
    else if (c >= 0xE0) { code = c & 0x0F; extra = 2; }
    else if (c >= 0xC0) { code = c & 0x1F; extra = 1; }
    ++i;
    for (int k = 0; k < extra && i < utf8.size(); ++k, ++i) code = (code << 6) | (utf8[i] & 0x3F);
    out.push_back(static_cast<char16_t>(code));
  }
  return out;
}

}  // namespace tabulon_test
