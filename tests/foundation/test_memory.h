// Memory over the C library for the streams, arrays and files under test:
// counts live blocks and refuses what the test says.
#ifndef TABULON_TEST_TEST_MEMORY_H
#define TABULON_TEST_TEST_MEMORY_H

#include <stdint.h>
#include <stdlib.h>

#include "foundation/zuv_io.h"

namespace tabulon_test {

// What available() reports to every TestMemory.
inline uint32_t g_available = 1u << 20;

struct TestMemory {
  int live = 0, allocations = 0;
  int fail_from = -1;           // refuses from this allocation on; -1: never
  uint32_t limit = UINT32_MAX;  // refuses any larger block
  uint32_t largest = 0;         // the largest block asked for
  zuv_mem mem = {alloc, release, grow, [] { return g_available; }, this};

  TestMemory() = default;
  TestMemory(const TestMemory&) = delete;
  TestMemory& operator=(const TestMemory&) = delete;

  static void* alloc(mem_ident* ident, uint32_t size) { return grow(ident, nullptr, size); }
  static void release(mem_ident* ident, void* block) {
    if (block) ((TestMemory*)ident)->live--;
    free(block);
  }
  static void* grow(mem_ident* ident, void* block, uint32_t size) {
    TestMemory* m = (TestMemory*)ident;
    if (size > m->largest) m->largest = size;
    if (size > m->limit || (m->fail_from >= 0 && m->allocations >= m->fail_from)) return nullptr;
    m->allocations++;
    void* result = realloc(block, size ? size : 1);
    if (result && !block) m->live++;
    return result;
  }
};

}  // namespace tabulon_test

#endif
