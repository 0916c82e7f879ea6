// Growing arrays: outside data pointer, simple, and flat or chunked in a
// workbook's memory.
#include "foundation/zuv_array.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <vector>

#include "test_memory.h"

namespace {

using tabulon_test::TestMemory;

int compare_int(const void* key, const void* element) {
  int a = *(const int*)key, b = *(const int*)element;
  return a < b ? -1 : a > b;
}

std::vector<int> contents(const xls_array& array) {
  std::vector<int> values;
  for (int i = 0; i < array.count; ++i) values.push_back(*(int*)xls_array_access(&array, i));
  return values;
}

const uint32_t kGeneral = KEL_ERR_GENERAL;
const uint32_t kNoMemory = KEL_ERR_OUT_OF_MEMORY;

TEST(ArrayInfo, PushInsertPop) {
  xls_array_info info = {sizeof(int), 0, 0};
  void* data = nullptr;
  for (int i = 0; i < 25; ++i) ASSERT_EQ(0u, xls_array_push(&info, &data, &i));
  EXPECT_EQ(30, info.capacity);  // ten at a time
  int value = 100;
  ASSERT_EQ(0u, xls_array_insert(&info, &data, 13, &value));
  EXPECT_EQ(kGeneral, xls_array_insert(&info, &data, 27, &value));
  const int* ints = (const int*)data;
  EXPECT_EQ(12, ints[12]);
  EXPECT_EQ(100, ints[13]);
  EXPECT_EQ(13, ints[14]);

  // A null element reserves the slot for the caller.
  ASSERT_EQ(0u, xls_array_push(&info, &data, nullptr));
  ((int*)data)[info.count - 1] = 77;
  ASSERT_EQ(0u, xls_array_pop(&info, data, &value));
  EXPECT_EQ(77, value);
  while (info.count) ASSERT_EQ(0u, xls_array_pop(&info, data, &value));
  EXPECT_EQ(0, value);
  EXPECT_EQ(kGeneral, xls_array_pop(&info, data, &value));
  free(data);

  xls_simple_array simple = {sizeof(int), 0, 0, 4, nullptr};
  for (int i = 0; i < 5; ++i) ASSERT_EQ(0u, xls_simple_array_insert(&simple, 0, &i));
  EXPECT_EQ(8, simple.capacity);
  EXPECT_EQ(4, ((int*)simple.data)[0]);
  EXPECT_EQ(0, ((int*)simple.data)[4]);
  free(simple.data);
  xls_simple_array stuck = {sizeof(int), 0, 0, 0, nullptr};
  EXPECT_EQ(kGeneral, xls_simple_array_insert(&stuck, 0, &value));
}

TEST(ArrayOrdered, FindsOrPlaces) {
  xls_simple_array array = {sizeof(int), 0, 0, 10, nullptr};
  bool found = true;
  int key = 5;
  EXPECT_EQ(0, xls_ordered_array_pos(&array, &key, compare_int, &found));
  EXPECT_FALSE(found);
  // Every size from 1 to 40 exercises both the halving and the walk.
  for (int size = 1; size <= 40; ++size) {
    int odd = 2 * size - 1;
    ASSERT_EQ(0u, xls_simple_array_insert(&array, array.count, &odd));  // 1, 3, 5...
    for (key = 0; key <= 2 * size; ++key) {
      int position = xls_ordered_array_pos(&array, &key, compare_int, &found);
      EXPECT_EQ(key % 2 == 1, found) << size << " " << key;
      EXPECT_EQ(key / 2, position) << size << " " << key;
    }
  }
  free(array.data);
}

TEST(ArrayFlat, InsertRemoveAccess) {
  TestMemory memory;
  xls_array array = {&memory.mem, sizeof(int), 0, 0, 0, 0, nullptr};
  std::vector<int> model;
  for (int i = 0; i < 120; ++i) {
    int index = (i * 37) % (array.count + 1);
    ASSERT_EQ(0u, xls_array_insert(&array, index, &i));
    model.insert(model.begin() + index, i);
  }
  EXPECT_EQ(150, array.capacity);  // grow step 0 stands for 50
  ASSERT_EQ(0u, xls_array_remove(&array, 60));
  model.erase(model.begin() + 60);
  EXPECT_EQ(model, contents(array));
  EXPECT_EQ(nullptr, xls_array_access(&array, array.count));
  EXPECT_EQ(kGeneral, xls_array_insert(&array, array.count + 1, nullptr));
  EXPECT_EQ(kGeneral, xls_array_remove(&array, array.count));
  xls_array_free(&array);
  EXPECT_EQ(0, memory.live);
  ASSERT_EQ(0u, xls_array_hint_size(&array, 3));  // usable again; zero-filled
  EXPECT_EQ((std::vector<int>{0, 0, 0}), contents(array));
  memory.fail_from = memory.allocations;
  EXPECT_EQ(kNoMemory, xls_array_hint_size(&array, 100));
  EXPECT_EQ(3, array.count);
  xls_array_free(&array);
  xls_array_free(nullptr);
}

TEST(ArrayChunked, MatchesAModelAcrossChunks) {
  TestMemory memory;
  // Chunks of 2 * 3 = 6 elements; the first grows from two.
  xls_array array = {&memory.mem, sizeof(int), 0, 0, 2, 3, nullptr};
  std::vector<int> model;
  unsigned seed = 12345;
  for (int step = 0; step < 600; ++step) {
    seed = seed * 1103515245u + 12345u;
    bool remove = model.size() > 40 || (model.size() > 5 && (seed >> 16) % 3 == 0);
    int index = (int)((seed >> 8) % (model.size() + (remove ? 0 : 1)));
    if (remove) {
      ASSERT_EQ(0u, xls_array_remove(&array, index));
      model.erase(model.begin() + index);
    } else {
      ASSERT_EQ(0u, xls_array_insert(&array, index, &step));
      model.insert(model.begin() + index, step);
    }
    ASSERT_EQ(model, contents(array)) << "step " << step;
  }
  xls_array_free(&array);
  EXPECT_EQ(0, memory.live);

  // However long the array, no allocation passes one chunk.
  struct Big {
    char bytes[1000];
  };
  xls_array big = {&memory.mem, sizeof(Big), 0, 0, 2, 3, nullptr};
  ASSERT_EQ(0u, xls_array_hint_size(&big, 40));
  EXPECT_EQ(6 * sizeof(Big), memory.largest);
  xls_array_free(&big);
  EXPECT_EQ(0, memory.live);
}

TEST(ArrayChunked, GrowthAndBoundaries) {
  xls_array array = {nullptr, sizeof(int), 0, 0, 2, 5, nullptr};
  // The first chunk starts at a step and doubles up to its ten elements.
  const int expected_capacity[] = {2, 2, 4, 4, 8, 8, 8, 8, 10, 10};
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(0u, xls_array_insert(&array, array.count, &i));
    EXPECT_EQ(expected_capacity[i], array.capacity);
  }
  void** chunks = (void**)array.data;
  EXPECT_EQ(nullptr, chunks[1]);
  // Inserting at the count on a chunk boundary opens the next chunk, whole.
  int value = 99;
  ASSERT_EQ(0u, xls_array_insert(&array, 10, &value));
  EXPECT_EQ(20, array.capacity);
  EXPECT_EQ(chunks[1], xls_array_access(&array, 10));
  // A span runs to the end of its chunk, or of the array in the last one.
  int contiguous = 0;
  EXPECT_EQ(xls_array_access(&array, 3), xls_array_span(&array, 3, &contiguous));
  EXPECT_EQ(7, contiguous);
  EXPECT_EQ(chunks[1], xls_array_span(&array, 10, &contiguous));
  EXPECT_EQ(1, contiguous);
  EXPECT_EQ(nullptr, xls_array_span(&array, 11, &contiguous));
  EXPECT_EQ(0, contiguous);

  // Access near a block: moving between chunks, and from one array to
  // another of a different chunk size, finds what plain access finds.
  xls_array other = {nullptr, sizeof(int), 0, 0, 3, 1, nullptr};
  for (int i = 0; i < 7; ++i) ASSERT_EQ(0u, xls_array_insert(&other, i, &i));
  xls_array_block block = {};
  for (int index : {0, 9, 10, 3, -1, 11, 10}) {
    EXPECT_EQ(xls_array_access(&array, index), xls_array_access_near(&array, &block, index));
    EXPECT_EQ(xls_array_access(&other, index), xls_array_access_near(&other, &block, index));
  }
  xls_array_free(&other);
  // The free tail runs to the end of the last chunk; filling it appends.
  void* tail = nullptr;
  int room = 0;
  ASSERT_EQ(0u, xls_array_free_tail(&array, &tail, &room));
  EXPECT_EQ(9, room);
  EXPECT_EQ((char*)chunks[1] + sizeof(int), tail);
  *(int*)tail = 100;
  array.count += 1;
  EXPECT_EQ(100, *(int*)xls_array_access(&array, 11));
  array.count = 20;  // a full array grows before it answers
  ASSERT_EQ(0u, xls_array_free_tail(&array, &tail, &room));
  EXPECT_EQ(10, room);
  EXPECT_EQ(chunks[2], tail);
  array.count = 12;

  // Inserting at the front carries each chunk's last element into the next.
  value = -5;
  ASSERT_EQ(0u, xls_array_insert(&array, 0, &value));
  EXPECT_EQ((std::vector<int>{-5, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 99, 100}), contents(array));
  EXPECT_EQ(9, *(int*)chunks[1]);
  ASSERT_EQ(0u, xls_array_remove(&array, 0));
  EXPECT_EQ(99, *(int*)chunks[1]);
  // Removing doesn't give chunks back.
  while (array.count) ASSERT_EQ(0u, xls_array_remove(&array, array.count - 1));
  EXPECT_NE(nullptr, chunks[2]);
  EXPECT_EQ(30, array.capacity);
  xls_array_free(&array);
}

TEST(ArrayChunked, LimitsAndFailures) {
  xls_array array = {nullptr, sizeof(int), 0, 0, 1, 1, nullptr};  // one per chunk
  for (int i = 0; i < 255; ++i) ASSERT_EQ(0u, xls_array_insert(&array, 0, &i));
  int value = 255;
  EXPECT_EQ(kGeneral, xls_array_insert(&array, 0, &value));
  EXPECT_EQ(255, array.count);
  EXPECT_EQ(254, *(int*)xls_array_access(&array, 0));
  xls_array_free(&array);

  TestMemory memory;
  xls_array chunked = {&memory.mem, sizeof(int), 0, 0, 2, 2, nullptr};
  memory.fail_from = memory.allocations + 1;  // the table, but no chunk
  EXPECT_EQ(kNoMemory, xls_array_insert(&chunked, 0, &value));
  EXPECT_EQ(0, chunked.count);
  memory.fail_from = -1;
  for (int i = 0; i < 4; ++i) ASSERT_EQ(0u, xls_array_insert(&chunked, i, &i));
  memory.fail_from = memory.allocations;  // the next chunk can't be had
  EXPECT_EQ(kNoMemory, xls_array_insert(&chunked, 0, &value));
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3}), contents(chunked));
  memory.fail_from = memory.allocations + 1;  // hint_size adds all or none
  EXPECT_EQ(kNoMemory, xls_array_hint_size(&chunked, 5));
  EXPECT_EQ(4, chunked.count);
  xls_array_free(&chunked);
  EXPECT_EQ(0, memory.live);
}

}  // namespace
