// BIFF8 token bytes for formula tests, written the way the file holds them,
// and a workbook fixture of EXTERNSHEET entries and names for the tokens
// that refer through them.
#ifndef FORMULA_TOKENS_H
#define FORMULA_TOKENS_H

#include <stdint.h>
#include <string.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "formula_test_book.h"

namespace formula_test {

using Bytes = std::vector<unsigned char>;

inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}
// Token bytes followed by 16-bit fields.
inline Bytes tok(Bytes head, std::initializer_list<uint32_t> words = {}) {
  for (uint32_t w : words) {
    head.push_back(uint8_t(w));
    head.push_back(uint8_t(w >> 8));
  }
  return head;
}
inline Bytes t_int(uint32_t n) { return tok({0x1E}, {n}); }
inline Bytes t_num(double value) {
  uint64_t b;
  memcpy(&b, &value, sizeof b);
  return tok({0x1F}, {uint32_t(b), uint32_t(b >> 16), uint32_t(b >> 32), uint32_t(b >> 48)});
}
inline Bytes t_str(const std::string& latin1) {
  Bytes b = {0x17, uint8_t(latin1.size()), 0x00};
  for (char c : latin1) b.push_back(uint8_t(c));
  return b;
}
inline Bytes t_funcvar(uint32_t count, uint32_t number) { return tok({0x42, uint8_t(count)}, {number}); }

template <typename T>
void push_element(xls_array_info* info, T** data, const T& element) {
  void* block = *data;
  EXPECT_EQ(0u, xls_array_push(info, &block, &element));
  *data = static_cast<T*>(block);
}

// EXTERNSHEET 0: sheet 1; 1: sheets 0 to 2; 2: another workbook; 3: a
// deleted sheet; 4: the workbook itself.  Names 1 "Rate" and 2 "Other".
inline void add_references(const Book& book) {
  xls_file* file = book.file();
  file->own_supbook = 0;
  file->supbook_count = 2;
  xls_externsheet_t entries[] = {{0, 1, 1, book.sheet(1), book.sheet(1)},
                                 {0, 0, 2, book.sheet(0), book.sheet(2)},
                                 {1, 0, 0, nullptr, nullptr},
                                 {0, 5, 5, XLS_EXTERN_DELETED, XLS_EXTERN_DELETED},
                                 {0, 0xFFFE, 0xFFFE, XLS_EXTERN_WORKBOOK, XLS_EXTERN_WORKBOOK}};
  for (const xls_externsheet_t& entry : entries)
    push_element(&file->externsheets_info, &file->externsheets, entry);
  for (const char* text : {"Rate", "Other"}) {
    xls_expr_named_t named = {};
    named.name = u16dup(text);
    push_element(&file->names_info, &file->names, named);
  }
}

}  // namespace formula_test

#endif  // FORMULA_TOKENS_H
