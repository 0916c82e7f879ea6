// The copy-on-write overlay: its chunk layout after each kind of edit, its
// failures, and random edits against a plain vector.
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <deque>
#include <random>
#include <string>
#include <vector>

#include "foundation/zuv_iocache.h"
#include "foundation/zuv_iodiff.h"
#include "foundation/zuv_memio.h"
#include "test_memory.h"

namespace {

using tabulon_test::g_available;

std::vector<uint8_t> pattern(uint32_t size) {
  std::vector<uint8_t> v(size);
  for (uint32_t i = 0; i < size; i++) v[i] = (uint8_t)(i * 13 + 1);
  return v;
}

// "B0+50 M50+2 B52+48": kind, offset and length of each chunk.
std::string layout(const io_diff* d) {
  std::string s;
  for (uint32_t i = 0; i < d->chunk_count; i++) {
    const iod_chunk& c = d->chunks[i];
    char entry[40];
    snprintf(entry, sizeof entry, "%s%c%u+%u", i ? " " : "",
             c.length & IOD_CHUNK_IN_MEMORY ? 'M' : 'B', c.offset,
             c.length & IOD_CHUNK_LENGTH_MASK);
    s += entry;
  }
  return s;
}

struct IoDiffTest : ::testing::Test {
  tabulon_test::TestMemory tm;
  zuv_memio base_stream;
  io_diff* diff = nullptr;
  std::vector<uint8_t> model;

  void open(uint32_t base_size) {
    model = pattern(base_size);
    ASSERT_EQ(0u, memio_open_copy(&base_stream, model.data(), base_size));
    iod_open_params params = {base_stream.io, {}, tm.mem};
    ASSERT_EQ(0u, iod_open(&params, &diff));
  }
  void write(uint32_t offset, uint32_t size, uint8_t fill) {
    std::vector<uint8_t> bytes(size, fill);
    uint32_t status = 0;
    ASSERT_EQ(size, iod_write(diff, bytes.data(), size, offset, &status));
    ASSERT_EQ(0u, status);
    if (offset + size > model.size()) model.resize(offset + size);
    memcpy(&model[offset], bytes.data(), size);
  }
  void insert(uint32_t offset, uint32_t size, uint8_t fill) {
    std::vector<uint8_t> bytes(size, fill);
    uint32_t status = 0;
    ASSERT_EQ(size, iod_insert(diff, bytes.data(), size, offset, &status));
    ASSERT_EQ(0u, status);
    if (offset > model.size()) model.resize(offset);
    model.insert(model.begin() + offset, bytes.begin(), bytes.end());
  }
  void erase(uint32_t offset, uint32_t size) {
    ASSERT_EQ(0u, iod_delete(diff, offset, size));
    if (offset < model.size())
      model.erase(model.begin() + offset,
                  model.begin() + std::min<size_t>(model.size(), offset + size));
  }
  void resize(uint32_t size) {
    ASSERT_EQ(0u, iod_change_size(diff, size));
    model.resize(size);
  }
  // The whole logical stream equals the model, and the chunks are well
  // formed.
  void check() {
    uint32_t expected = 0;
    for (uint32_t i = 0; i < diff->chunk_count; i++) {
      ASSERT_EQ(expected, diff->chunks[i].offset) << layout(diff);
      ASSERT_NE(0u, diff->chunks[i].length & IOD_CHUNK_LENGTH_MASK);
      expected += diff->chunks[i].length & IOD_CHUNK_LENGTH_MASK;
    }
    ASSERT_EQ(model.size(), iod_get_size(diff));
    std::vector<uint8_t> bytes(model.size() + 1);
    uint32_t status = 0;
    ASSERT_EQ(model.size(), iod_read(diff, bytes.data(), bytes.size(), 0, &status));
    EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);
    bytes.pop_back();
    ASSERT_EQ(model, bytes);
  }
  void TearDown() override {
    iod_discard(&diff);
    memio_close(&base_stream);
    EXPECT_EQ(0, tm.live);
  }
};

}  // namespace

// Runs of edits, each from a base of 100 bytes or from none: the chunks
// after each edit.
TEST_F(IoDiffTest, EditsSplitAbsorbAndMoveChunks) {
  struct Edit {
    char op;  // write, insert, delete, size
    uint32_t offset, size;
    const char* layout;
  };
  const std::vector<std::vector<Edit>> runs = {
      // Without a base a first write fills with zeros; appends grow the
      // last memory chunk.
      {{'w', 100, 2, "M0+102"}, {'w', 110, 3, "M0+113"}},
      {{'w', 50, 2, "B0+50 M50+2 B52+48"},
       // From inside a base chunk, over a memory chunk, into another base chunk.
       {'w', 40, 15, "B0+40 M40+15 B55+45"},
       {'w', 30, 20, "B0+30 M30+25 B55+45"},  // ending inside memory takes its tail
       {'w', 0, 30, "M0+30 M30+25 B55+45"},   // exactly a base chunk: replaced
       {'w', 32, 3, "M0+30 M30+25 B55+45"},   // inside memory: in place
       {'w', 20, 15, "M0+55 B55+45"},         // from memory into memory: one chunk
       {'w', 90, 30, "M0+55 B55+35 M90+30"},  // over the end
       {'w', 0, 200, "M0+200"}},
      {{'i', 0, 5, "M0+5 B5+100"},
       {'i', 0, 3, "M0+8 B8+100"},
       {'i', 8, 2, "M0+10 B10+100"},  // at the boundary behind a memory chunk
       {'i', 50, 4, "M0+10 B10+40 M50+4 B54+60"},
       {'i', 10, 1, "M0+11 B11+40 M51+4 B55+60"},
       {'i', 200, 5, "M0+11 B11+40 M51+4 B55+60 M115+90"}},  // past the end: a write
      {{'w', 50, 4, "B0+50 M50+4 B54+46"},
       {'d', 0, 0, "B0+50 M50+4 B54+46"},
       {'d', 50, 4, "B0+50 B50+46"},  // exactly a chunk: its entry goes
       {'d', 20, 10, "B0+20 B20+20 B40+46"},  // inside a base chunk: two over the same base
       {'w', 10, 5, "B0+10 M10+5 B15+5 B20+20 B40+46"},
       {'d', 12, 20, "B0+10 M10+2 B12+8 B20+46"},  // memory tail, base head, base middle
       {'d', 70, 10, "B0+10 M10+2 B12+8 B20+46"},  // past the end: nothing
       {'d', 60, 1000, "B0+10 M10+2 B12+8 B20+40"},
       {'d', 0, 60, ""}},
      {{'w', 40, 10, "B0+40 M40+10 B50+50"},
       {'s', 100, 0, "B0+40 M40+10 B50+50"},
       {'s', 120, 0, "B0+40 M40+10 B50+50 M100+20"},
       {'s', 130, 0, "B0+40 M40+10 B50+50 M100+30"},  // growing with zeros
       {'s', 45, 0, "B0+40 M40+5"},
       {'s', 40, 0, "B0+40"},
       {'s', 0, 0, ""},
       {'s', 0, 0, ""},
       {'s', 3, 0, "M0+3"}},
  };
  open(100);
  for (const std::vector<Edit>& run : runs) {
    bool no_base = &run == &runs[0];
    ASSERT_EQ(0u, iod_reset_to_new_base(diff, no_base ? nullptr : &base_stream.io));
    model = pattern(no_base ? 0 : 100);
    check();
    uint8_t fill = 'a';
    for (const Edit& e : run) {
      if (e.op == 'w') write(e.offset, e.size, fill++);
      if (e.op == 'i') insert(e.offset, e.size, fill++);
      if (e.op == 'd') erase(e.offset, e.size);
      if (e.op == 's') resize(e.offset);
      EXPECT_EQ(e.layout, layout(diff)) << e.op << e.offset << "+" << e.size;
      check();
      if (HasFatalFailure()) return;
    }
  }
}

TEST_F(IoDiffTest, TheArrayGrowsByHalfAndFailuresChangeNothing) {
  open(6000);
  EXPECT_EQ(5000u, diff->chunk_capacity);
  uint8_t byte = 0;
  uint32_t status = 0;
  for (uint32_t offset = 1; diff->chunk_count < 4991; offset += 2)
    ASSERT_EQ(1u, iod_write(diff, &byte, 1, offset, &status));

  tm.fail_from = 0;  // the growth fails first
  EXPECT_EQ(0u, iod_write(diff, &byte, 1, 5999, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_OUT_OF_MEMORY, status);
  EXPECT_EQ((uint32_t)KEL_ERR_OUT_OF_MEMORY, iod_delete(diff, 0, 1));
  EXPECT_EQ(4991u, diff->chunk_count);
  EXPECT_EQ(5000u, diff->chunk_capacity);

  tm.fail_from = -1;
  EXPECT_EQ(0u, iod_delete(diff, 0, 0));  // size 0: no capacity check
  EXPECT_EQ(5000u, diff->chunk_capacity);
  EXPECT_EQ(0u, iod_delete(diff, 5990, 1));
  EXPECT_EQ(7500u, diff->chunk_capacity);

  // Failed allocations of data leave every chunk as it was.
  iod_reset_to_new_base(diff, &base_stream.io);
  write(10, 5, 'a');
  std::string before = layout(diff);
  tm.fail_from = 0;
  for (uint32_t offset : {0u, 13u, 14u, 50u, 100u, 7000u}) {
    status = 0;
    EXPECT_EQ(0u, iod_write(diff, "xyz", 3, offset, &status));
    EXPECT_EQ((uint32_t)KEL_ERR_OUT_OF_MEMORY, status);
    EXPECT_EQ(0u, iod_insert(diff, "xyz", 3, offset, &status));
  }
  EXPECT_EQ((uint32_t)KEL_ERR_OUT_OF_MEMORY, iod_change_size(diff, 7000));
  EXPECT_EQ(before, layout(diff));
  // Beyond 31 bits nothing is tried.
  EXPECT_EQ(0u, iod_write(diff, "x", 1, 0x7FFFFFFFu, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_OUT_OF_RANGE, status);
  tm.fail_from = -1;
  check();
}

TEST_F(IoDiffTest, ResetFreesTheEditsAndBasesChainUp) {
  zuv_memio scratch;
  memio_open(&scratch);
  model = pattern(300);
  ASSERT_EQ(0u, memio_open_copy(&base_stream, model.data(), 300));
  // Base: a cache over the memory stream, as in a real stack.
  ioc_open_params cache_params = {base_stream.io, tm.mem, 1};
  io_cache* cache = nullptr;
  ASSERT_EQ(0u, ioc_open(&cache_params, &cache));
  iod_open_params params = {{ioc_read, ioc_write, ioc_get_size, ioc_change_size,
                             ioc_get_base, cache},
                            scratch.io, tm.mem};
  ASSERT_EQ(0u, iod_open(&params, &diff));
  ASSERT_NE(nullptr, diff->scratch_cache);
  EXPECT_EQ(1u, diff->scratch_cache->block_count);
  int live_at_open = tm.live;

  write(10, 20, 'a');
  insert(100, 5, 'b');
  check();
  EXPECT_EQ(live_at_open + 2, tm.live);

  zuv_io top = {iod_read, iod_write, iod_get_size, iod_change_size,
                iod_get_base, diff};
  EXPECT_EQ(&top, top.get_base(&top, ZUV_IO_LEVEL_DIFF));
  zuv_io* level2 = top.get_base(&top, ZUV_IO_LEVEL_CACHE);
  EXPECT_EQ(&diff->base, level2);
  EXPECT_EQ(cache, level2->context);
  EXPECT_EQ(nullptr, top.get_base(&top, ZUV_IO_LEVEL_ENCRYPTION));

  // A save wrote the stream anew; the overlay now stands on it.
  zuv_memio saved;
  memio_open(&saved);
  ASSERT_EQ(0u, copy_data(&saved.io, &top, &params.mem));
  ASSERT_EQ(0u, iod_reset_to_new_base(diff, &saved.io));
  EXPECT_EQ(live_at_open, tm.live);
  EXPECT_EQ("B0+305", layout(diff));
  check();
  EXPECT_EQ(nullptr, top.get_base(&top, ZUV_IO_LEVEL_CACHE));

  ASSERT_EQ(0u, iod_reset_to_new_base(diff, nullptr));
  EXPECT_EQ(0u, iod_get_size(diff));
  iod_discard(&diff);
  EXPECT_EQ(nullptr, diff);
  iod_discard(nullptr);
  ioc_discard(&cache);
  memio_close(&saved);
  memio_close(&scratch);
}

TEST_F(IoDiffTest, CopiesGoInPiecesAndStopAtTheFirstFailure) {
  open(1000);
  zuv_memio target;
  memio_open(&target);
  uint8_t buffer[7];
  EXPECT_EQ(0u, copy_distinct(&base_stream.io, 100, 500, &target.io, 3,
                              buffer, sizeof buffer));
  ASSERT_EQ(503u, target.size);
  EXPECT_EQ(0, memcmp(model.data() + 100, target.bytes + 3, 500));
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE,
            copy_distinct(&base_stream.io, 990, 20, &target.io, 0, buffer,
                          sizeof buffer));
  EXPECT_EQ((uint32_t)KEL_ERR_INVALID_ARGUMENT,
            copy_distinct(&base_stream.io, 0, 20, &target.io, 0, buffer, 0));
  memio_close(&target);

  // With too little memory for a buffer the copy goes through the stack.
  zuv_memio empty;
  memio_open(&empty);
  for (uint32_t available : {0u, 150u, 1u << 20}) {
    g_available = available;
    memio_open(&target);
    tm.fail_from = available == 150 ? 0 : -1;  // a buffer of 50 bytes is refused
    EXPECT_EQ(0u, copy_data(&target.io, &base_stream.io, &tm.mem));
    tm.fail_from = -1;
    ASSERT_EQ(1000u, target.size);
    EXPECT_EQ(0, memcmp(model.data(), target.bytes, 1000));
    EXPECT_EQ(0u, copy_data(&target.io, &empty.io, &tm.mem));  // nothing to do
    memio_close(&target);
  }
  memio_close(&empty);
  g_available = 1u << 20;
}

// Random edits of every kind against a vector; now and then the overlay is
// re-based on a copy of its own contents, as after a save.
TEST_F(IoDiffTest, RandomEditsMatchAPlainVector) {
  open(20000);
  std::deque<zuv_memio> saves;
  std::mt19937 random(1234567);
  for (int step = 0; step < 5000; step++) {
    uint32_t size = (uint32_t)model.size();
    uint32_t longest = random() % 32 ? 24 : 600;
    uint32_t length = random() % longest + 1;
    uint32_t offset = random() % (size + 50);
    uint8_t fill = (uint8_t)random();
    switch (random() % 12) {
      case 0: case 1: case 2:
        write(offset, length, fill);
        break;
      case 3: case 4: case 5:
        insert(offset, length, fill);
        break;
      case 6: case 7: case 8:
        erase(offset, length);
        break;
      case 9: {
        resize(random() % 2 ? size + length : size - std::min(size, length));
        break;
      }
      case 10:
      case 11: {
        std::vector<uint8_t> bytes(length);
        uint32_t status = 0;
        uint32_t expected = offset >= size ? 0 : std::min(length, size - offset);
        ASSERT_EQ(expected, iod_read(diff, bytes.data(), length, offset, &status));
        ASSERT_EQ(expected < length, status == (uint32_t)KEL_ERR_END_OF_FILE);
        if (expected) {
          ASSERT_EQ(0, memcmp(bytes.data(), model.data() + offset, expected));
        }
        break;
      }
    }
    if (step % 1000 == 999) {
      saves.emplace_back();
      ASSERT_EQ(0u, memio_open_copy(&saves.back(), model.data(), model.size()));
      ASSERT_EQ(0u, iod_reset_to_new_base(diff, &saves.back().io));
    }
    if (HasFatalFailure()) FAIL() << "step " << step;
    if (step % 50 == 0) check();
  }
  check();
  iod_discard(&diff);
  for (zuv_memio& m : saves) memio_close(&m);
}
