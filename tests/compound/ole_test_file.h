// Compound files built in memory, and a document and memory that count
// what the reader does.
#ifndef TABULON_TEST_OLE_TEST_FILE_H
#define TABULON_TEST_OLE_TEST_FILE_H

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "compound/zuv_ole.h"
#include "tests/foundation/test_memory.h"

namespace ole_test {

typedef std::vector<uint8_t> Bytes;
const uint32_t kFree = 0xFFFFFFFF, kEnd = 0xFFFFFFFE, kFatMark = 0xFFFFFFFD,
               kDifatMark = 0xFFFFFFFC;

inline void put16(uint8_t* at, uint32_t v) { at[0] = (uint8_t)v, at[1] = (uint8_t)(v >> 8); }
inline void put32(uint8_t* at, uint32_t v) { put16(at, v), put16(at + 2, v >> 16); }
inline uint32_t get32(const uint8_t* at) {
  return at[0] | at[1] << 8 | at[2] << 16 | (uint32_t)at[3] << 24;
}

// Bytes that differ at every offset and between seeds.
inline Bytes pattern(uint32_t size, uint32_t seed) {
  Bytes bytes(size);
  for (uint32_t i = 0; i < size; i++) bytes[i] = (uint8_t)(i ^ i >> 8 ^ i >> 16 ^ seed * 37);
  return bytes;
}

struct Entry {
  std::string name;  // one UTF-16 unit per byte
  uint8_t type;
  uint32_t start, size, left = kFree, right = kFree, child = kFree;
};

// A version 3 compound file.  Streams go first, in sectors the test may
// choose; build() lays out mini stream, mini FAT, directory, FAT and DIFAT
// behind them.  fat and minifat may be changed before build() to corrupt a
// chain.  One run of sectors may be left out of the bytes built (a hole that
// the document reads as zeros), so that large files cost little.
struct Builder {
  Bytes data;  // the sectors, but those of the hole
  std::vector<uint32_t> fat, minifat;
  uint32_t hole_first = 0, hole_count = 0;
  Bytes mini;
  std::vector<Entry> entries{{"Root Entry", OLE_TYPE_ROOT, 0, 0}};

  std::vector<uint32_t> sectors(size_t count) {
    std::vector<uint32_t> list;
    for (size_t i = 0; i < count; i++, fat.push_back(kFree)) list.push_back((uint32_t)fat.size());
    data.resize((fat.size() - hole_count) * 512);
    return list;
  }
  void skip(uint32_t count) {
    hole_first = (uint32_t)fat.size(), hole_count = count;
    fat.resize(fat.size() + count, kFree);
  }
  uint8_t* at(uint32_t sector) {
    return &data[(sector >= hole_first + hole_count ? sector - hole_count : sector) * 512];
  }
  // Writes bytes into the sectors, chained in that order.
  uint32_t place(const Bytes& bytes, const std::vector<uint32_t>& list) {
    for (size_t i = 0; i < list.size(); i++) {
      size_t n = std::min<size_t>(512, bytes.size() - i * 512);
      memcpy(at(list[i]), &bytes[i * 512], n);
      fat[list[i]] = i + 1 < list.size() ? list[i + 1] : kEnd;
    }
    return list.empty() ? kEnd : list[0];
  }
  uint32_t entry(const std::string& name, uint8_t type, uint32_t start, uint32_t size) {
    entries.push_back({name, type, start, size});
    return (uint32_t)entries.size() - 1;
  }
  // A stream in sectors from 4,096 bytes on, else in the mini stream.
  uint32_t stream(const std::string& name, const Bytes& bytes) {
    uint32_t start = kEnd, pieces = (uint32_t)(bytes.size() + 63) / 64;
    if (bytes.size() >= 4096) {
      start = place(bytes, sectors((bytes.size() + 511) / 512));
    } else if (pieces) {
      start = (uint32_t)minifat.size();
      for (uint32_t i = 1; i <= pieces; i++) minifat.push_back(i < pieces ? start + i : kEnd);
      mini.insert(mini.end(), bytes.begin(), bytes.end());
      mini.resize(minifat.size() * 64);
    }
    return entry(name, OLE_TYPE_STREAM, start, (uint32_t)bytes.size());
  }
  // The root's children as a right-leaning list.
  void list(const std::vector<uint32_t>& ids) {
    entries[0].child = ids.empty() ? kFree : ids[0];
    for (size_t i = 0; i + 1 < ids.size(); i++) entries[ids[i]].right = ids[i + 1];
  }

  Bytes build(uint32_t difat_count_field = kFree) {
    entries[0].start = place(mini, sectors((mini.size() + 511) / 512));
    entries[0].size = (uint32_t)mini.size();
    Bytes table((minifat.size() + 127) / 128 * 512, 0xFF);
    for (size_t i = 0; i < minifat.size(); i++) put32(&table[4 * i], minifat[i]);
    std::vector<uint32_t> minifat_sectors = sectors(table.size() / 512);
    place(table, minifat_sectors);
    Bytes dir((entries.size() + 3) / 4 * 512);
    for (size_t i = 0; i < dir.size() / 128; i++) {
      Entry e = i < entries.size() ? entries[i] : Entry{"", 0, 0, 0};
      uint8_t* at = &dir[i * 128];
      for (size_t c = 0; c < e.name.size(); c++) put16(at + 2 * c, (uint8_t)e.name[c]);
      put16(at + 64, (uint32_t)(e.name.size() + 1) * 2);
      at[66] = e.type;
      uint32_t fields[] = {e.left, e.right, e.child};
      for (int f = 0; f < 3; f++) put32(at + 68 + 4 * f, fields[f]);
      put32(at + 116, e.start);
      put32(at + 120, e.size);
    }
    uint32_t first_dir = place(dir, sectors(dir.size() / 512));
    // Enough FAT and DIFAT sectors to cover everything, themselves too.
    size_t nfat = 0, ndifat = 0;
    for (size_t total = fat.size();; total = fat.size() + nfat + ndifat) {
      size_t need = (total + 127) / 128, need_difat = need > 109 ? (need - 109 + 126) / 127 : 0;
      if (need == nfat && need_difat == ndifat) break;
      nfat = need, ndifat = need_difat;
    }
    std::vector<uint32_t> fats = sectors(nfat), difats = sectors(ndifat);
    for (uint32_t s : fats) fat[s] = kFatMark;
    for (uint32_t s : difats) fat[s] = kDifatMark;
    fat.resize(nfat * 128, kFree);
    for (size_t i = 0; i < fat.size(); i++) put32(at(fats[i / 128]) + 4 * (i % 128), fat[i]);
    for (size_t d = 0; d < ndifat; d++) {
      for (size_t i = 0; i < 127; i++) {
        size_t n = 109 + d * 127 + i;
        put32(at(difats[d]) + 4 * i, n < nfat ? fats[n] : kFree);
      }
      put32(at(difats[d]) + 508, d + 1 < ndifat ? difats[d + 1] : kEnd);
    }
    Bytes file(512);
    const uint8_t signature[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    memcpy(&file[0], signature, 8);
    const uint32_t words[][2] = {{24, 0x3003E}, {28, 0x9FFFE}, {32, 6}, {44, (uint32_t)nfat},
        {48, first_dir}, {56, 4096}, {60, minifat_sectors.empty() ? kEnd : minifat_sectors[0]},
        {64, (uint32_t)minifat_sectors.size()}, {68, ndifat ? difats[0] : kEnd},
        {72, difat_count_field != kFree ? difat_count_field : (uint32_t)ndifat}};
    for (const auto& w : words) put32(&file[w[0]], w[1]);
    for (size_t i = 0; i < 109; i++) put32(&file[76 + 4 * i], i < nfat ? fats[i] : kFree);
    file.insert(file.end(), data.begin(), data.end());
    return file;
  }
};

// The document: bytes in memory with a hole of zeros, counting reads.
struct MemDoc {
  Bytes bytes;
  uint32_t hole_at = 0, hole_size = 0, reads = 0;
  void set_hole(const Builder& b) { hole_at = 512 + b.hole_first * 512, hole_size = b.hole_count * 512; }
  static uint32_t read(void* context, void* buffer, uint32_t size, uint32_t offset,
                       uint32_t* status) {
    MemDoc* doc = (MemDoc*)context;
    doc->reads++;
    uint32_t done = 0, hole_end = doc->hole_at + doc->hole_size;
    for (uint32_t at = offset; done < size && at < MemDoc::size(doc); at = offset + ++done)
      ((uint8_t*)buffer)[done] = at < doc->hole_at ? doc->bytes[at] : at < hole_end ? 0 : doc->bytes[at - doc->hole_size];
    if (done < size) *status = KEL_ERR_END_OF_FILE;
    return done;
  }
  static uint32_t size(void* context) {
    MemDoc* doc = (MemDoc*)context;
    return (uint32_t)doc->bytes.size() + doc->hole_size;
  }
};

// An open file with its document and memory; closed at the end.
struct Opened {
  MemDoc doc;
  tabulon_test::TestMemory mem;
  ole_file* file = nullptr;
  ole_storage* root = nullptr;
  uint32_t open(const Bytes& bytes, int create = 0) {
    doc.bytes = bytes;
    ole_open_params params = {{MemDoc::read, nullptr, MemDoc::size, nullptr, nullptr, &doc}, mem.mem, create};
    return ole_open(&params, &file, &root);
  }
  ~Opened() { ole_close_storage(root), ole_close(file); }
};

}  // namespace ole_test

#endif
