/*
 * charset.cpp -- DCharSet by Unicode block.  Punctuation, currency and
 * letterlike blocks count as Latin: they come with Latin text (quotes, the
 * euro sign, the trade mark) and want the same face.
 */
#include "charset.h"

#include "zuv_platform.h"

namespace {

struct block {
  uint16_t first, last;
  uint8_t charset;
};

/* Ascending and disjoint; anything in no block is kCharSetOther. */
const block kBlocks[] = {
    {0x0000, 0x001F, kCharSetNone},     {0x0020, 0x007E, kCharSetLatin},
    {0x007F, 0x009F, kCharSetNone},     {0x00A0, 0x036F, kCharSetLatin},
    {0x0370, 0x03FF, kCharSetGreek},    {0x0400, 0x052F, kCharSetCyrillic},
    {0x1100, 0x11FF, kCharSetCJK},      {0x1C80, 0x1C8F, kCharSetCyrillic},
    {0x1D00, 0x1EFF, kCharSetLatin},    {0x1F00, 0x1FFF, kCharSetGreek},
    {0x2000, 0x218F, kCharSetLatin},    {0x2190, 0x2BFF, kCharSetSymbol},
    {0x2C60, 0x2C7F, kCharSetLatin},    {0x2DE0, 0x2DFF, kCharSetCyrillic},
    {0x2E80, 0x33FF, kCharSetCJK},      {0x3400, 0x4DBF, kCharSetCJK},
    {0x4DC0, 0x4DFF, kCharSetSymbol},   {0x4E00, 0x9FFF, kCharSetCJK},
    {0xA640, 0xA69F, kCharSetCyrillic}, {0xA720, 0xA7FF, kCharSetLatin},
    {0xA960, 0xA97F, kCharSetCJK},      {0xAB30, 0xAB6F, kCharSetLatin},
    {0xAC00, 0xD7FF, kCharSetCJK},      {0xD800, 0xDFFF, kCharSetNone},
    {0xE000, 0xF8FF, kCharSetSymbol},   {0xF900, 0xFAFF, kCharSetCJK},
    {0xFB00, 0xFB06, kCharSetLatin},    {0xFDD0, 0xFDEF, kCharSetNone},
    {0xFE30, 0xFE4F, kCharSetCJK},      {0xFF00, 0xFFEF, kCharSetCJK},
    {0xFFFE, 0xFFFF, kCharSetNone},
};

}  // namespace

int unicode_charset(uint16_t unit) {
  int low = 0, high = (int)(sizeof kBlocks / sizeof kBlocks[0]) - 1;
  while (low <= high) {
    int mid = (low + high) / 2;
    if (unit < kBlocks[mid].first) {
      high = mid - 1;
    } else if (unit > kBlocks[mid].last) {
      low = mid + 1;
    } else {
      return kBlocks[mid].charset;
    }
  }
  return kCharSetOther;
}
