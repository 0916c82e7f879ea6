// VFile and VFileStream, and the small helpers.
#include <gtest/gtest.h>

#include <string.h>

#include "test_support.h"
#include "zuv_platform.h"

namespace {

using tabulon_test::TempDir;

TEST(VFileStream, ReadsAWindowOfTheFile) {
  TempDir dir;
  std::string path = dir.file("data.bin");
  ASSERT_TRUE(tabulon_test::write_file(path, {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'}));
  VFile file;
  ASSERT_EQ(0u, file.Init(path.c_str()));
  VFileStream stream;
  ASSERT_EQ(0u, stream.Open(&file, 2, 5, 1));
  EXPECT_EQ(5u, stream.GetSize());
  char buffer[16] = {};
  uint32_t got = 0;
  ASSERT_EQ(0u, stream.Read(buffer, 3, &got));
  EXPECT_EQ(3u, got);
  EXPECT_EQ(0, memcmp(buffer, "234", 3));
  ASSERT_EQ(0u, stream.Read(buffer, sizeof buffer, &got));  // only 2 left
  EXPECT_EQ(2u, got);
  EXPECT_EQ(0, memcmp(buffer, "56", 2));
  EXPECT_EQ(KEL_ERR_END_OF_FILE, stream.Read(buffer, 1, &got));
  EXPECT_EQ(0u, got);
  ASSERT_EQ(0u, stream.Seek(4));
  ASSERT_EQ(0u, stream.Read(buffer, 1, &got));
  EXPECT_EQ('6', buffer[0]);
  EXPECT_EQ(KEL_ERR_OUT_OF_RANGE, stream.Seek(6));
  // -1: to the end of the file.
  ASSERT_EQ(0u, stream.Open(&file, 3, -1, 1));
  EXPECT_EQ(7u, stream.GetSize());

  VFile missing;
  ASSERT_EQ(0u, missing.Init(dir.file("none").c_str()));
  EXPECT_EQ(KEL_ERR_CANNOT_OPEN_FILE, stream.Open(&missing, 0, -1, 1));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, stream.Read(buffer, 1, &got));  // closed
}

TEST(Helpers, PointsBytesAndNumbers) {
  DRect r = {2, 3, 4, 5};
  DPoint inside = {5, 7}, right = {6, 3}, below = {2, 8};
  EXPECT_TRUE(DRectPointInRectangle(&r, &inside));
  EXPECT_FALSE(DRectPointInRectangle(&r, &right));  // right and bottom exclusive
  EXPECT_FALSE(DRectPointInRectangle(&r, &below));

  const unsigned char bytes[] = {0xAA, 0x34, 0x12, 0x78, 0x56, 0xFF};
  EXPECT_EQ(0x1234u, get_le16(bytes + 1));  // unaligned
  EXPECT_EQ(0x56781234u, get_le32(bytes + 1));
  EXPECT_EQ(0xFF56u, get_le16(bytes + 4));

  char buffer[34];
  EXPECT_STREQ("-2147483648", ZuvImplIToA(INT32_MIN, buffer, 10));
  EXPECT_STREQ("ffffffff", ZuvImplIToA(-1, buffer, 16));  // sign only in decimal
  EXPECT_STREQ("z", ZuvImplIToA(35, buffer, 36));
  EXPECT_STREQ("", ZuvImplIToA(5, buffer, 1));
}

}  // namespace
