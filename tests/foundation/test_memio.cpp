// Little-endian helpers, the in-memory stream and the C library's memory.
#include <gtest/gtest.h>

#include <string.h>

#include "foundation/zuv_memio.h"

namespace {

// A stream that delivers at most `limit` bytes per call and stores `status`
// when it delivers fewer than asked.
struct ShortStream {
  uint32_t limit;
  uint32_t status;
};

uint32_t short_read(void* context, void* buffer, uint32_t size, uint32_t,
                    uint32_t* status) {
  ShortStream* s = (ShortStream*)context;
  uint32_t n = size < s->limit ? size : s->limit;
  memset(buffer, 0xAB, n);
  if (n < size && s->status) *status = s->status;
  return n;
}

uint32_t short_write(void* context, const void*, uint32_t size, uint32_t,
                     uint32_t* status) {
  ShortStream* s = (ShortStream*)context;
  uint32_t n = size < s->limit ? size : s->limit;
  if (n < size && s->status) *status = s->status;
  return n;
}

}  // namespace

TEST(MemIo, LittleEndianValuesKeepTheirByteOrder) {
  const uint8_t bytes[] = {0x34, 0x12, 0x78, 0x56, 0x00, 0x00,
                           0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F};
  zuv_memio m;
  memio_open_bytes(&m, bytes, sizeof bytes);
  uint16_t a = 0, b = 0;
  uint32_t v32 = 0;
  double d = 0;
  EXPECT_EQ(0u, io_read_le16(&m.io, 0, &a));
  EXPECT_EQ(0x1234, a);
  EXPECT_EQ(0u, io_read_le16x2(&m.io, 0, &a, &b));
  EXPECT_EQ(0x1234, a);
  EXPECT_EQ(0x5678, b);
  EXPECT_EQ(0u, io_read_le32(&m.io, 0, &v32));
  EXPECT_EQ(0x56781234u, v32);
  EXPECT_EQ(0u, io_read_le64(&m.io, 4, &d));
  EXPECT_EQ(1.0, d);
  // An odd offset is no problem.
  EXPECT_EQ(0u, io_read_le16(&m.io, 1, &a));
  EXPECT_EQ(0x7812, a);

  // Past the end: end of file, value untouched.
  v32 = 7;
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, io_read_le32(&m.io, 10, &v32));
  EXPECT_EQ(7u, v32);
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, io_read_le64(&m.io, 12, &d));

  zuv_memio w;
  memio_open(&w);
  EXPECT_EQ(0u, io_write_le32(&w.io, 2, 0xCAFEBABEu));
  EXPECT_EQ(0u, io_write_le16(&w.io, 0, 0xBEEF));
  const uint8_t expected[] = {0xEF, 0xBE, 0xBE, 0xBA, 0xFE, 0xCA};
  ASSERT_EQ(sizeof expected, w.size);
  EXPECT_EQ(0, memcmp(expected, w.bytes, sizeof expected));
  memio_close(&w);
}

TEST(MemIo, ShortTransfersGiveTheStreamsStatusOrADefault) {
  ShortStream s = {2, KEL_ERR_CANNOT_OPEN_FILE};
  zuv_io io = {short_read, short_write, nullptr, nullptr, nullptr, &s};
  uint32_t v = 0;
  EXPECT_EQ((uint32_t)KEL_ERR_CANNOT_OPEN_FILE, io_read_le32(&io, 0, &v));
  EXPECT_EQ(0u, v);
  s.status = 0;  // A short read that says nothing ran out of bytes.
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, io_read_le32(&io, 0, &v));
  EXPECT_EQ((uint32_t)KEL_ERR_GENERAL, io_write_le32(&io, 0, 1));
  uint16_t h = 0;
  EXPECT_EQ(0u, io_read_le16(&io, 0, &h));
  EXPECT_EQ(0xABAB, h);
}

TEST(MemIo, StreamGrowsWithZerosAndReportsTheEnd) {
  zuv_memio m;
  memio_open(&m);
  uint32_t status = 0;
  uint8_t buffer[16];
  EXPECT_EQ(0u, m.io.read(m.io.context, buffer, 4, 0, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);

  status = 0;
  EXPECT_EQ(3u, m.io.write(m.io.context, "abc", 3, 1000, &status));
  EXPECT_EQ(0u, status);
  EXPECT_EQ(1003u, m.io.get_size(m.io.context));
  for (uint32_t i = 0; i < 1000; i++) ASSERT_EQ(0, m.bytes[i]) << i;

  // A read over the end delivers what there is.
  memset(buffer, 0xFF, sizeof buffer);
  EXPECT_EQ(4u, m.io.read(m.io.context, buffer, 16, 999, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);
  EXPECT_EQ(0, memcmp("\0abc", buffer, 4));

  // Shrinking and growing again doesn't bring old bytes back.
  EXPECT_EQ(0u, m.io.change_size(m.io.context, 1001));
  EXPECT_EQ(0u, m.io.change_size(m.io.context, 1003));
  EXPECT_EQ(0, memcmp("a\0\0", m.bytes + 1000, 3));

  memio_close(&m);
  EXPECT_EQ(0u, m.size);
  memio_close(&m);  // twice is harmless

  // A copy owns its bytes; a view sees the caller's.
  uint8_t original[] = {1, 2, 3};
  zuv_memio copy, view;
  ASSERT_EQ(0u, memio_open_copy(&copy, original, sizeof original));
  memio_open_bytes(&view, original, sizeof original);
  original[0] = 9;
  EXPECT_EQ(1, copy.bytes[0]);
  EXPECT_EQ(9, view.bytes[0]);
  memio_close(&view);
  memio_close(&copy);
}
