// BIFF8 workbooks built in memory: records appended to a stream, the stream
// wrapped in a compound file, and a pool that reads it.
#ifndef TABULON_TEST_BIFF_TEST_FILE_H
#define TABULON_TEST_BIFF_TEST_FILE_H

#include <stdint.h>
#include <string.h>

#include <functional>
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
  uint32_t font(const std::u16string& name, uint16_t height = 200, uint16_t weight = 400,
                uint16_t colour = 0x7FFF) {
    Bytes b;
    add16(&b, height), add16(&b, 0), add16(&b, colour), add16(&b, weight), add16(&b, 0);
    b.push_back(0), b.push_back(2), b.push_back(0), b.push_back(0);
    Bytes n = text(name, true);
    b.insert(b.end(), n.begin(), n.end());
    return record(0x31, b);
  }
  uint32_t format(uint16_t index, const std::u16string& code) {
    Bytes b, t = text(code);
    add16(&b, index);
    b.insert(b.end(), t.begin(), t.end());
    return record(0x41E, b);
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
  // XF: font, format, flags (protection, style bit, parent), alignment,
  // used attributes, the two border words and the fill colours.
  uint32_t xf(uint16_t font, uint16_t format, uint16_t flags, uint8_t alignment = 0,
              uint8_t used = 0, uint32_t border1 = 0, uint32_t border2 = 0, uint16_t fill = 0) {
    Bytes b;
    add16(&b, font), add16(&b, format), add16(&b, flags);
    b.push_back(alignment), b.push_back(0), b.push_back(0), b.push_back(used);
    add32(&b, border1), add32(&b, border2), add16(&b, fill);
    return record(0xE0, b);
  }

  // ---- Worksheet records ----
  static Bytes cell(uint16_t row, uint16_t column, uint16_t xf, const Bytes& tail = {}) {
    Bytes b;
    add16(&b, row), add16(&b, column), add16(&b, xf);
    b.insert(b.end(), tail.begin(), tail.end());
    return b;
  }
  static Bytes f64(double value) {
    Bytes b(8);
    memcpy(b.data(), &value, 8);
    return b;
  }
  uint32_t number(uint16_t row, uint16_t column, uint16_t xf, double value) {
    return record(0x203, cell(row, column, xf, f64(value)));
  }
  uint32_t rk(uint16_t row, uint16_t column, uint16_t xf, uint32_t rk) {
    Bytes b = cell(row, column, xf);
    add32(&b, rk);
    return record(0x27E, b);
  }
  // MULRK from column first on: an XF and an RK word for each cell.
  uint32_t mulrk(uint16_t row, uint16_t first,
                 const std::vector<std::pair<uint16_t, uint32_t>>& cells) {
    Bytes b;
    add16(&b, row), add16(&b, first);
    for (const auto& c : cells) add16(&b, c.first), add32(&b, c.second);
    add16(&b, first + (uint32_t)cells.size() - 1);
    return record(0xBD, b);
  }
  uint32_t blank(uint16_t row, uint16_t column, uint16_t xf) {
    return record(0x201, cell(row, column, xf));
  }
  uint32_t mulblank(uint16_t row, uint16_t first, const std::vector<uint16_t>& xfs) {
    Bytes b;
    add16(&b, row), add16(&b, first);
    for (uint16_t xf : xfs) add16(&b, xf);
    add16(&b, first + (uint32_t)xfs.size() - 1);
    return record(0xBE, b);
  }
  uint32_t label(uint16_t row, uint16_t column, uint16_t xf, const std::u16string& s) {
    return record(0x204, cell(row, column, xf, text(s)));
  }
  uint32_t labelsst(uint16_t row, uint16_t column, uint16_t xf, uint32_t index) {
    Bytes b = cell(row, column, xf);
    add32(&b, index);
    return record(0xFD, b);
  }
  uint32_t boolerr(uint16_t row, uint16_t column, uint16_t xf, uint8_t value, bool error) {
    return record(0x205, cell(row, column, xf, {value, (uint8_t)error}));
  }
  // FORMULA with the 8 bytes of its cached result and the tokens of "=1".
  uint32_t formula(uint16_t row, uint16_t column, uint16_t xf, const Bytes& result,
                   uint16_t flags = 0, uint16_t id = 0x06) {
    Bytes b = cell(row, column, xf, result);
    add16(&b, flags), add32(&b, 0), add16(&b, 3);
    b.push_back(0x1E), add16(&b, 1);
    return record(id, b);
  }
  // The cached result of a formula that isn't a number: kind and value byte.
  static Bytes result(uint8_t kind, uint8_t value = 0) {
    return {kind, 0, value, 0, 0, 0, 0xFF, 0xFF};
  }
  uint32_t string(const std::u16string& s) { return record(0x207, text(s)); }
  uint32_t colinfo(uint16_t first, uint16_t last, uint16_t width, uint16_t xf, uint16_t flags = 0) {
    Bytes b;
    add16(&b, first), add16(&b, last), add16(&b, width), add16(&b, xf), add16(&b, flags), add16(&b, 0);
    return record(0x7D, b);
  }
  uint32_t window2(uint16_t options = 0x6B6, uint16_t first_row = 0, uint16_t first_col = 0) {
    Bytes b;
    add16(&b, options), add16(&b, first_row), add16(&b, first_col), add16(&b, 0x40);
    add16(&b, 0), add16(&b, 60), add16(&b, 100), add32(&b, 0);
    return record(0x23E, b);
  }
  struct Row {
    uint16_t row, height, flags, xf;
  };
  // A ROW record of columns 0 to 10.
  uint32_t row(const Row& r) {
    Bytes b;
    add16(&b, r.row), add16(&b, 0), add16(&b, 10), add16(&b, r.height);
    add32(&b, 0), add16(&b, r.flags | 0x100), add16(&b, r.xf);
    return record(0x208, b);
  }
  // An INDEX for rows first to last - 1, then blocks of 32 rows from first,
  // each its ROW records and a DBCELL; returns the INDEX's offset.
  uint32_t row_blocks(uint32_t first, uint32_t last, const std::vector<Row>& rows) {
    uint32_t blocks = last > first ? (last - first + 31) / 32 : 0;
    Bytes body;
    add32(&body, 0), add32(&body, first), add32(&body, last), add32(&body, 0);
    for (uint32_t k = 0; k < blocks; ++k) add32(&body, 0);
    uint32_t index = record(0x20B, body);
    for (uint32_t k = 0; k < blocks; ++k) {
      uint32_t start = (uint32_t)bytes.size(), count = 0;
      for (const Row& r : rows)
        if ((r.row - first) >> 5 == k && r.row >= first) row(r), ++count;
      Bytes dbcell;
      add32(&dbcell, count ? (uint32_t)bytes.size() - start : 0);
      for (uint32_t i = 0; i < count; ++i) add16(&dbcell, 0);
      uint32_t at = record(0xD7, dbcell);
      ole_test::put32(&bytes[index + 20 + 4 * k], at);
    }
    return index;
  }
  // An empty worksheet substream.
  uint32_t worksheet() {
    uint32_t at = bof(0x10);
    record(0x23E, Bytes(18, 0));
    eof();
    return at;
  }
};

// The workbook stream in a compound file under the given stream name.
inline Bytes compound(const Bytes& workbook, const std::string& name = "Workbook") {
  ole_test::Builder builder;
  builder.list({builder.stream(name, workbook)});
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
  uint32_t open(xls_file** file) { return xls_open(&pool, file, 1, nullptr, kel_format_biff8, nullptr); }
};

// A workbook of one worksheet: globals with six fonts (the first Arial 10,
// font n of height 200 + 20 * n and colour n), the formats 164 "0.000" and
// 2 "0.0#", then what globals writes (16 plain XFs if nothing is given);
// sheet writes the worksheet's records between its BOF and EOF.
inline Bytes one_sheet(const std::function<void(Stream&)>& sheet,
                       const std::function<void(Stream&)>& globals = nullptr) {
  Stream s;
  s.bof(5);
  s.window1();
  for (uint16_t n = 0; n < 6; ++n) s.font(n ? u"Times" : u"Arial", 200 + 20 * n, 400, n ? n : 0x7FFF);
  s.format(164, u"0.000"), s.format(2, u"0.0#");
  if (globals) globals(s);
  else for (int i = 0; i < 16; ++i) s.xf(0, 0, 0);
  uint32_t bound = s.boundsheet(u"S");
  s.eof();
  s.patch_bof(bound, s.bof(0x10));
  sheet(s);
  s.eof();
  return s.bytes;
}

// A workbook opened from its stream, closed at the end.
struct Book {
  Pool pool;
  xls_file* file = nullptr;
  uint32_t status;
  explicit Book(const Bytes& workbook) : pool(compound(workbook)), status(pool.open(&file)) {}
  ~Book() { xls_close(file); }
  xls_sheet_t* sheet() const { return xls_sheet_handle(file, 0); }
};

}  // namespace biff_test

#endif
