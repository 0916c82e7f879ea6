// BIFF8 workbooks built in memory: records appended to a stream, the stream
// wrapped in a compound file, and a pool that reads it.
#ifndef TABULON_TEST_BIFF_TEST_FILE_H
#define TABULON_TEST_BIFF_TEST_FILE_H

#include <stdint.h>

#include <string>
#include <vector>

#include "foundation/zuv_memio.h"
#include "tests/compound/ole_test_file.h"
#include "workbook/kel_xls_file.h"

namespace biff_test {

typedef std::vector<uint8_t> Bytes;

inline void add16(Bytes* b, uint32_t v) { b->push_back((uint8_t)v), b->push_back((uint8_t)(v >> 8)); }
inline void add32(Bytes* b, uint32_t v) { add16(b, v & 0xFFFF), add16(b, v >> 16); }

// A string as records hold it: count (one or two bytes), options, characters.
inline Bytes text(const std::u16string& s, bool byte_length = false) {
  Bytes b;
  bool wide = false;
  for (char16_t c : s) wide |= c > 0xFF;
  if (byte_length) b.push_back((uint8_t)s.size()); else add16(&b, (uint32_t)s.size());
  b.push_back(wide ? 1 : 0);
  for (char16_t c : s) wide ? add16(&b, c) : b.push_back((uint8_t)c);
  return b;
}

struct Stream {
  Bytes bytes;
  uint32_t record(uint16_t id, const Bytes& body) {
    uint32_t at = (uint32_t)bytes.size();
    add16(&bytes, id), add16(&bytes, (uint32_t)body.size());
    bytes.insert(bytes.end(), body.begin(), body.end());
    return at;
  }
  uint32_t bof(uint16_t type, uint16_t version = 0x600) {
    Bytes b;
    add16(&b, version), add16(&b, type), add16(&b, 0x2775), add16(&b, 0x7CD);
    add32(&b, 0x80C1), add32(&b, 0x206);
    return record(0x809, b);
  }
  uint32_t eof() { return record(0x0A, {}); }
  uint32_t window1(uint16_t active = 0) {
    Bytes b(18, 0);
    b[10] = (uint8_t)active;
    return record(0x3D, b);
  }
  uint32_t font(const std::u16string& name, uint16_t height = 200, uint16_t weight = 400) {
    Bytes b;
    add16(&b, height), add16(&b, 0), add16(&b, 0x7FFF), add16(&b, weight), add16(&b, 0);
    b.push_back(0), b.push_back(2), b.push_back(0), b.push_back(0);
    Bytes n = text(name, true);
    b.insert(b.end(), n.begin(), n.end());
    return record(0x31, b);
  }
  // A BOUNDSHEET whose BOF position is patched by patch_bof.
  uint32_t boundsheet(const std::u16string& name, uint8_t type = 0, uint8_t hidden = 0) {
    Bytes b;
    add32(&b, 0), b.push_back(hidden), b.push_back(type);
    Bytes n = text(name, true);
    b.insert(b.end(), n.begin(), n.end());
    return record(0x85, b);
  }
  void patch_bof(uint32_t boundsheet, uint32_t bof) { ole_test::put32(&bytes[boundsheet + 4], bof); }
  // A worksheet substream with the records a scan needs.
  uint32_t worksheet(const std::vector<std::pair<uint16_t, Bytes>>& records = {}) {
    uint32_t at = bof(0x10);
    for (const auto& r : records) record(r.first, r.second);
    record(0x23E, Bytes(18, 0));
    eof();
    return at;
  }
};

// The workbook stream in a compound file under the given stream name.
inline Bytes compound(const Bytes& workbook, const std::string& name = "Workbook") {
  ole_test::Builder builder;
  Bytes padded = workbook;
  uint32_t id = builder.stream(name, padded);
  builder.list({id});
  return builder.build();
}

// A pool that reads bytes from memory with the C library's allocator.
struct Pool {
  Bytes bytes;
  zuv_memio memio;
  xls_pool pool = {};
  explicit Pool(Bytes document) : bytes(std::move(document)) {
    memio_open_bytes(&memio, bytes.data(), (uint32_t)bytes.size());
    pool.document = memio.io;
    zuv_mem_system(&pool.mem);
  }
  ~Pool() { memio_close(&memio); }
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  uint32_t open(xls_file** file, const char16_t* password = nullptr) {
    unsigned short* copy = nullptr;
    if (password) {
      size_t n = std::char_traits<char16_t>::length(password);
      copy = (unsigned short*)malloc((n + 1) * 2);
      memcpy(copy, password, (n + 1) * 2);
    }
    return xls_open(&pool, file, 1, nullptr, kel_format_biff8, copy);
  }
};

}  // namespace biff_test

#endif
