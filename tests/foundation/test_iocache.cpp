// The block cache, against an in-memory stream that records what reaches it.
#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <random>
#include <vector>

#include "foundation/zuv_iocache.h"
#include "foundation/zuv_memio.h"
#include "test_memory.h"

namespace {

// A memory stream that logs every call and can be made to fail.
struct Call {
  char op;  // 'r', 'w', 's' (change_size)
  uint32_t offset, size;
};

struct Spy {
  zuv_memio mem;
  std::vector<Call> calls;
  uint32_t fail = 0;  // status of failing reads and writes; 0: none fail
};

// Logs the call; false, with the status, when calls are to fail.
bool spy_log(Spy* s, char op, uint32_t offset, uint32_t size, uint32_t* status) {
  s->calls.push_back({op, offset, size});
  if (s->fail) *status = s->fail;
  return !s->fail;
}

uint32_t spy_read(void* context, void* buffer, uint32_t size, uint32_t offset,
                  uint32_t* status) {
  Spy* s = (Spy*)context;
  return spy_log(s, 'r', offset, size, status) ? s->mem.io.read(&s->mem, buffer, size, offset, status) : 0;
}

uint32_t spy_write(void* context, const void* buffer, uint32_t size,
                   uint32_t offset, uint32_t* status) {
  Spy* s = (Spy*)context;
  return spy_log(s, 'w', offset, size, status) ? s->mem.io.write(&s->mem, buffer, size, offset, status) : 0;
}

uint32_t spy_get_size(void* context) { return ((Spy*)context)->mem.size; }

uint32_t spy_change_size(void* context, uint32_t size) {
  Spy* s = (Spy*)context;
  s->calls.push_back({'s', size, 0});
  return s->mem.io.change_size(&s->mem, size);
}

zuv_io spy_io(Spy* s) {
  return {spy_read, spy_write, spy_get_size, spy_change_size, nullptr, s};
}

std::vector<uint8_t> pattern(uint32_t size, uint32_t seed) {
  std::vector<uint8_t> v(size);
  for (uint32_t i = 0; i < size; i++) v[i] = (uint8_t)(i * 7 + seed + (i >> 8));
  return v;
}

struct IoCacheTest : ::testing::Test {
  tabulon_test::TestMemory tm;
  Spy spy;
  io_cache* cache = nullptr;

  void open(const std::vector<uint8_t>& content, uint32_t blocks) {
    ASSERT_EQ(0u, memio_open_copy(&spy.mem, content.data(), content.size()));
    ioc_open_params params = {spy_io(&spy), tm.mem, blocks};
    ASSERT_EQ(0u, ioc_open(&params, &cache));
  }
  uint32_t read(void* buffer, uint32_t size, uint32_t offset, uint32_t* st) {
    return ioc_read(cache, buffer, size, offset, st);
  }
  uint32_t write(const void* buffer, uint32_t size, uint32_t offset) {
    uint32_t status = 0;
    uint32_t n = ioc_write(cache, buffer, size, offset, &status);
    EXPECT_EQ(0u, status);
    return n;
  }
  void TearDown() override {
    ioc_discard(&cache);
    memio_close(&spy.mem);
    EXPECT_EQ(0, tm.live);
  }
};

}  // namespace

TEST_F(IoCacheTest, OpenHalvesTheBlockCountUntilTheMemoryIsThere) {
  memio_open(&spy.mem);
  ioc_open_params params = {spy_io(&spy), tm.mem, 8};

  tm.limit = 2 * sizeof(ioc_block);
  ASSERT_EQ(0u, ioc_open(&params, &cache));
  EXPECT_EQ(2u, cache->block_count);
  ioc_discard(&cache);
  EXPECT_EQ(nullptr, cache);

  tm.limit = sizeof(ioc_block);  // one block can just be had
  params.block_count = 5;
  ASSERT_EQ(0u, ioc_open(&params, &cache));
  EXPECT_EQ(1u, cache->block_count);
  ioc_discard(&cache);

  tm.limit = sizeof(ioc_block) - 1;
  EXPECT_EQ((uint32_t)KEL_ERR_OUT_OF_MEMORY, ioc_open(&params, &cache));
  EXPECT_EQ(nullptr, cache);

  tm.limit = UINT32_MAX;
  params.block_count = 0;
  EXPECT_EQ((uint32_t)KEL_ERR_OUT_OF_MEMORY, ioc_open(&params, &cache));
  // A count whose bytes overflow 32 bits is halved like a refusal.
  params.block_count = 0x80000000u;
  tm.limit = 3 * sizeof(ioc_block);
  ASSERT_EQ(0u, ioc_open(&params, &cache));
  EXPECT_EQ(2u, cache->block_count);
  ioc_discard(nullptr);
}

TEST_F(IoCacheTest, ReadsUpToAnExactMultipleOfTheBlockSize) {
  std::vector<uint8_t> content = pattern(2 * IOC_BLOCK_SIZE, 1);
  open(content, 1);
  uint8_t buffer[200];
  uint32_t status = 0;
  EXPECT_EQ(0u, read(buffer, 0, 0, &status));
  EXPECT_EQ(100u, read(buffer, 100, 65436, &status));
  EXPECT_EQ(0, memcmp(&content[65436], buffer, 100));
  EXPECT_EQ(200u, read(buffer, 200, 32700, &status));  // across two blocks
  EXPECT_EQ(0, memcmp(&content[32700], buffer, 200));
  EXPECT_EQ(0u, status);

  EXPECT_EQ(0u, read(buffer, 1, 65536, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);
  status = 0;
  EXPECT_EQ(36u, read(buffer, 200, 65500, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);
  EXPECT_EQ(0, memcmp(&content[65500], buffer, 36));
}

TEST_F(IoCacheTest, ShrinkingForgetsWhatLiesBehindAndFlushSizesFirst) {
  open({}, 4);
  std::vector<uint8_t> data = pattern(80000, 2);
  EXPECT_EQ(80000u, write(data.data(), 80000, 0));
  EXPECT_TRUE(spy.calls.empty());  // nothing reaches the lower stream yet
  EXPECT_EQ(80000u, ioc_get_size(cache));

  EXPECT_EQ(0u, ioc_change_size(cache, 35000));
  uint8_t byte;
  uint32_t status = 0;
  EXPECT_EQ(0u, read(&byte, 1, 35000, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);

  ASSERT_EQ(0u, ioc_flush(cache));
  ASSERT_FALSE(spy.calls.empty());
  EXPECT_EQ('s', spy.calls[0].op);
  EXPECT_EQ(35000u, spy.calls[0].offset);
  for (const Call& c : spy.calls) {
    if (c.op == 'w') {
      EXPECT_LE(c.offset + c.size, 35000u);
    }
  }
  ASSERT_EQ(35000u, spy.mem.size);
  EXPECT_EQ(0, memcmp(data.data(), spy.mem.bytes, 35000));

  // Flushed blocks are clean: a second flush only sets the size.
  spy.calls.clear();
  ASSERT_EQ(0u, ioc_flush(cache));
  ASSERT_EQ(1u, spy.calls.size());
}

TEST_F(IoCacheTest, LoadsOnlyWhatAWriteDoesNotCover) {
  open(pattern(100000, 3), 2);
  std::vector<uint8_t> block(IOC_BLOCK_SIZE, 0x5A);
  write(block.data(), IOC_BLOCK_SIZE, IOC_BLOCK_SIZE);
  EXPECT_TRUE(spy.calls.empty());

  write("ab", 2, 10);  // partly: block 0 is read first
  ASSERT_EQ(1u, spy.calls.size());
  EXPECT_EQ('r', spy.calls[0].op);
  EXPECT_EQ(0u, spy.calls[0].offset);
  EXPECT_EQ(IOC_BLOCK_SIZE, spy.calls[0].size);

  // The last block is read only up to the end of the stream.
  spy.calls.clear();
  write("cd", 2, 99000);
  ASSERT_LE(1u, spy.calls.size());
  EXPECT_EQ('r', spy.calls.back().op);
  EXPECT_EQ(3 * IOC_BLOCK_SIZE, spy.calls.back().offset);
  EXPECT_EQ(100000u - 3 * IOC_BLOCK_SIZE, spy.calls.back().size);

  // A new block behind the end is zeroed, even over an evicted block's bytes.
  spy.calls.clear();
  write("x", 1, 4 * IOC_BLOCK_SIZE + 100);
  for (const Call& c : spy.calls) EXPECT_NE('r', c.op);
  std::vector<uint8_t> gap(100, 0xFF);
  uint32_t status = 0;
  EXPECT_EQ(100u, read(gap.data(), 100, 4 * IOC_BLOCK_SIZE, &status));
  EXPECT_EQ(std::vector<uint8_t>(100, 0), gap);
}

TEST_F(IoCacheTest, FailuresOfTheLowerStreamPassThrough) {
  open(pattern(100000, 4), 1);
  write("dirty", 5, 0);
  spy.fail = KEL_ERR_DISK_FULL;
  uint8_t buffer[8];
  uint32_t status = 0;
  // Block 1 needs the only block, whose write-back fails.
  EXPECT_EQ(0u, read(buffer, 8, 40000, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_DISK_FULL, status);
  EXPECT_EQ((uint32_t)KEL_ERR_DISK_FULL, ioc_flush(cache));

  spy.fail = 0;
  ASSERT_EQ(0u, ioc_flush(cache));
  EXPECT_EQ(0, memcmp("dirty", spy.mem.bytes, 5));

  // A failed load leaves no half-loaded block behind.
  spy.fail = KEL_ERR_GENERAL;
  status = 0;
  EXPECT_EQ(0u, read(buffer, 8, 40000, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_GENERAL, status);
  spy.fail = 0;
  status = 0;
  EXPECT_EQ(8u, read(buffer, 8, 40000, &status));
  EXPECT_EQ(0u, status);
  EXPECT_EQ(0, memcmp(spy.mem.bytes + 40000, buffer, 8));
}

// Random reads, writes (anywhere up to the end), shrinks and flushes through
// two blocks, checked against a plain vector.
TEST_F(IoCacheTest, RandomOperationsMatchAPlainVector) {
  std::vector<uint8_t> model = pattern(150000, 5);
  open(model, 2);
  std::mt19937 random(20240611);
  std::vector<uint8_t> buffer(100000);
  for (int step = 0; step < 3000; step++) {
    uint32_t size = (uint32_t)model.size();
    uint32_t longest = random() % 4 ? 300 : 70000;
    uint32_t length = random() % longest + 1;
    uint32_t offset = size ? random() % (size + 1) : 0;
    switch (random() % 10) {
      case 0:
      case 1:
      case 2:
      case 3: {
        for (uint32_t i = 0; i < length; i++) buffer[i] = (uint8_t)random();
        ASSERT_EQ(length, write(buffer.data(), length, offset)) << step;
        if (offset + length > model.size()) model.resize(offset + length);
        memcpy(&model[offset], buffer.data(), length);
        break;
      }
      case 4:
        if (size > 1000) {
          uint32_t new_size = size - random() % 1000;
          ASSERT_EQ(0u, ioc_change_size(cache, new_size));
          model.resize(new_size);
        }
        break;
      case 5:
        ASSERT_EQ(0u, ioc_flush(cache)) << step;
        ASSERT_EQ(model.size(), spy.mem.size);
        ASSERT_EQ(0, memcmp(model.data(), spy.mem.bytes, model.size()));
        break;
      default: {
        uint32_t status = 0;
        uint32_t expected = offset >= size ? 0 : std::min(length, size - offset);
        ASSERT_EQ(expected, read(buffer.data(), length, offset, &status));
        ASSERT_EQ(expected < length, status == (uint32_t)KEL_ERR_END_OF_FILE);
        ASSERT_EQ(0, memcmp(buffer.data(), model.data() + offset, expected));
      }
    }
    ASSERT_EQ(model.size(), ioc_get_size(cache));
  }
}
