// The bulk record walk: what it hands out must equal what the record
// helpers read one by one, across window edges and at a truncated end.
#include <gtest/gtest.h>

#include <vector>

#include "compound/kel_io_stack.h"
#include "compound/kel_record_cursor.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_records.h"

namespace {

TEST(RecordCursor, WalksAsTheRecordHelpersReadAcrossWindowsAndAtTheEnd) {
  // Records of every length up to the largest, so that many straddle the
  // window's edge; the last one is cut short by three bytes.
  std::vector<uint8_t> bytes;
  std::vector<uint32_t> offsets;
  uint32_t seed = 7;
  while (bytes.size() < 3u * KEL_RECORD_WINDOW) {
    seed = seed * 1103515245u + 12345u;
    uint16_t length = (seed >> 8) % 5 == 0 ? (uint32_t)XLS_MAX_RECORD_BODY : (seed >> 12) % 300;
    offsets.push_back((uint32_t)bytes.size());
    bytes.push_back((uint8_t)offsets.size()), bytes.push_back(0);
    bytes.push_back((uint8_t)length), bytes.push_back((uint8_t)(length >> 8));
    for (uint16_t i = 0; i < length; ++i) bytes.push_back((uint8_t)(seed + i));
  }
  bytes.resize(bytes.size() - 3);
  zuv_memio memio;
  memio_open_bytes(&memio, bytes.data(), (uint32_t)bytes.size());
  static unsigned char record[XLS_RECORD_BUFFER], expected[XLS_RECORD_BUFFER];
  kel_record_cursor cursor;
  kel_record_cursor_open(&cursor, &memio.io, record);
  ASSERT_NE(nullptr, cursor.window);
  size_t peeked = 0;
  for (size_t n = 0; n < offsets.size(); ++n) {
    // A peek, before the window moves to the record, finds it only whole.
    const unsigned char* whole = kel_record_cursor_peek(&cursor, offsets[n]);
    if (whole) {
      ++peeked;
      ASSERT_LE(offsets[n] + 4u + le16_at(whole + 2), cursor.window_start + cursor.window_length);
      ASSERT_EQ(0, memcmp(bytes.data() + offsets[n], whole, 4u + le16_at(whole + 2))) << n;
    }
    uint16_t id = 0, length = 0;
    ASSERT_EQ(0u, kel_record_cursor_header(&cursor, offsets[n], &id, &length));
    ASSERT_EQ((uint16_t)(n + 1) & 0xFF, id);
    const unsigned char* body = nullptr;
    uint32_t status = kel_record_cursor_body(&cursor, offsets[n], length, &body);
    if (n + 1 == offsets.size()) {
      EXPECT_EQ(KEL_ERR_END_OF_FILE, status);
      break;
    }
    ASSERT_EQ(0u, status) << n;
    ASSERT_EQ(0u, kel_read_record(&memio.io, offsets[n], expected, length));
    ASSERT_EQ(0, memcmp(expected + 4, body, length)) << n;
  }
  EXPECT_GT(peeked, offsets.size() / 2);
  EXPECT_LT(peeked, offsets.size());
  // Back to the start, and past the end.
  uint16_t id = 0, length = 0;
  EXPECT_EQ(0u, kel_record_cursor_header(&cursor, 0, &id, &length));
  EXPECT_EQ(1, id);
  EXPECT_EQ(KEL_ERR_END_OF_FILE,
            kel_record_cursor_header(&cursor, (uint32_t)bytes.size() - 2, &id, &length));
  const unsigned char* body = nullptr;
  EXPECT_EQ(KEL_ERR_GENERAL, kel_record_cursor_body(&cursor, 0, XLS_MAX_RECORD_BODY + 1, &body));
  kel_record_cursor_close(&cursor);
  memio_close(&memio);
}

}  // namespace
