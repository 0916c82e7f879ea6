// Document properties from a binary property set: the window reader, the
// five properties, broken and hostile sets (the corpus: test_ole.cpp).
#include <gtest/gtest.h>

#include "compound/doc_prop.h"
#include "compound/zuv_ole.h"
#include "ole_test_file.h"

using namespace ole_test;

namespace {

enum { kTitle = 2, kSubject = 3, kAuthor = 4, kComments = 6, kCreated = 12, kSaved = 13 };
const uint32_t kCreatedTime = 1233633906;  // 2009-02-03T04:05:06Z
const uint32_t kSavedTime = 1700000000;

struct Property {
  uint32_t id;
  Bytes value;  // type and data
};

Property typed(uint32_t id, uint32_t type, std::vector<uint32_t> words, const std::string& text = "") {
  Property p{id, Bytes(4 + 4 * words.size())};
  put32(&p.value[0], type);
  for (size_t i = 0; i < words.size(); i++) put32(&p.value[4 + 4 * i], words[i]);
  for (char c : text) p.value.push_back((uint8_t)c);
  return p;
}
// Its length counts the terminator, which is there unless said otherwise.
Property narrow(uint32_t id, const std::string& text, bool terminated = true) {
  return typed(id, 0x1E, {(uint32_t)text.size() + terminated},
               terminated ? text + std::string(1, '\0') : text);
}
Property filetime(uint32_t id, uint32_t unix_seconds) {
  uint64_t ticks = ((uint64_t)unix_seconds + 11644473600ull) * 10000000ull;
  return typed(id, 0x40, {(uint32_t)ticks, (uint32_t)(ticks >> 32)});
}

// A property set stream of sections alike.  The one section
// lies at 48: its size at 48, count at 52, (id, offset) pairs from 56.
Bytes property_set(const std::vector<Property>& properties, uint32_t sections = 1,
                   uint16_t byte_order = 0xFFFE) {
  Bytes section(8 + 8 * properties.size());
  for (size_t i = 0; i < properties.size(); i++) {
    put32(&section[8 + 8 * i], properties[i].id);
    put32(&section[12 + 8 * i], (uint32_t)section.size());
    section.insert(section.end(), properties[i].value.begin(), properties[i].value.end());
    section.resize((section.size() + 3) / 4 * 4);
  }
  put32(&section[0], (uint32_t)section.size());
  put32(&section[4], (uint32_t)properties.size());
  Bytes stream(28 + 20 * sections);
  put16(&stream[0], byte_order);
  put32(&stream[24], sections);
  for (uint32_t s = 0; s < sections; s++) {
    put32(&stream[44 + 20 * s], (uint32_t)stream.size() + s * (uint32_t)section.size());
    stream.insert(stream.end(), section.begin(), section.end());
  }
  return stream;
}

// A provider over bytes, or one that fails.
struct MemProvider {
  Bytes bytes;
  uint32_t failure = 0;
  static uint32_t read(void* context, unsigned char* buffer, uint32_t size, uint32_t offset,
                       uint32_t* bytes_read) {
    MemProvider* p = (MemProvider*)context;
    *bytes_read = offset < p->bytes.size() ? std::min<uint32_t>(size, (uint32_t)p->bytes.size() - offset) : 0;
    if (*bytes_read) memcpy(buffer, &p->bytes[offset], *bytes_read);
    return p->failure;
  }
};

uint32_t read_props(const Bytes& stream, doc_props_t* props) {
  MemProvider provider{stream};
  return doc_prop_binary(&provider, MemProvider::read, props);
}

std::string utf8(VString& text) {
  text.Convert(VString::kUtf8);
  return text.GetUtf8StringPointer() ? text.GetUtf8StringPointer() : "";
}

// Unwanted ones among them, and not in id order.
Bytes sample_set() {
  return property_set({typed(14, 3, {3}), narrow(kSubject, "not wanted"),
                       narrow(kComments, std::string(600, 'c') + " caf\xE9"),
                       narrow(kAuthor, "Ann Example"), filetime(kCreated, kCreatedTime),
                       narrow(kTitle, "Budget 2009"), filetime(kSaved, kSavedTime)});
}

}  // namespace

TEST(BinaryReader, ReadsLittleEndianValuesThroughTheWindow) {
  MemProvider provider{pattern(1000, 0)};
  binary_read_buffer_t buffer;
  binary_init(&buffer, &provider, MemProvider::read);
  uint32_t status = 0;
  binary_seek_offset(&buffer, 253, &status);  // across the first 255-byte window
  EXPECT_EQ(get32(&provider.bytes[253]), binary_get_dword(&buffer, &status));
  EXPECT_EQ(provider.bytes[257], binary_get_byte(&buffer, &status));
  binary_seek_offset(&buffer, 256, &status);  // back inside the window held
  EXPECT_EQ(provider.bytes[256] | provider.bytes[257] << 8, binary_get_word(&buffer, &status));
  binary_seek_offset(&buffer, 10, &status);
  binary_skip_bytes(&buffer, 900, &status);
  EXPECT_EQ(get32(&provider.bytes[910]), binary_get_dword(&buffer, &status));
  EXPECT_EQ(0u, status);
  binary_seek_offset(&buffer, 998, &status);
  EXPECT_EQ(0u, binary_get_dword(&buffer, &status));
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);
  status = 0;
  binary_skip_bytes(&buffer, 0xFFFFFFF0u, &status);  // would wrap
  EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);
  provider.failure = KEL_ERR_GENERAL, status = 0;
  binary_seek_offset(&buffer, 0, &status);
  binary_get_byte(&buffer, &status);
  EXPECT_EQ((uint32_t)KEL_ERR_GENERAL, status);
}

TEST(DocPropBinary, ReadsTheFivePropertiesAndPassesOverOthers) {
  doc_props_t props{};
  ASSERT_EQ(0u, read_props(sample_set(), &props));
  EXPECT_EQ("Budget 2009", utf8(props.title));
  EXPECT_EQ("Ann Example", utf8(props.author));
  EXPECT_EQ(std::string(600, 'c') + " caf\xC3\xA9", utf8(props.description));  // code page
  EXPECT_EQ(kCreatedTime, props.created);
  EXPECT_EQ(kSavedTime, props.last_saved);

  // An empty title, an author of another type, a comment without its
  // terminator, no dates.
  doc_props_t odd{};
  odd.author.SetString("kept", VString::kUtf8, -1);
  ASSERT_EQ(0u, read_props(property_set({narrow(kTitle, "", false), typed(kAuthor, 3, {7}),
                                         narrow(kComments, "abc", false)}), &odd));
  EXPECT_EQ("", utf8(odd.title));
  EXPECT_EQ("kept", utf8(odd.author));
  EXPECT_EQ("abc", utf8(odd.description));
  EXPECT_EQ(0u, odd.created);
}

TEST(DocPropBinary, BrokenAndHostileSetsGiveAStatus) {
  doc_props_t props{};
  EXPECT_EQ((uint32_t)KEL_ERR_OLE_BAD_CHAIN, read_props(property_set({}, 2), &props));
  EXPECT_EQ((uint32_t)KEL_ERR_OLE_BAD_CHAIN, read_props(property_set({}, 1, 0xFEFF), &props));
  // Cut anywhere: the end; cut inside the last saved time, what came before
  // it stands.
  Bytes full = sample_set();
  for (size_t cut = 0; cut < full.size(); cut++) {
    doc_props_t partial{};
    ASSERT_EQ((uint32_t)KEL_ERR_END_OF_FILE,
              read_props(Bytes(full.begin(), full.begin() + cut), &partial)) << cut;
    if (cut == full.size() - 2) {
      EXPECT_EQ("Budget 2009", utf8(partial.title));
      EXPECT_EQ(kCreatedTime, partial.created);
      EXPECT_EQ(0u, partial.last_saved);
    }
  }
  // A string of 4 GB that isn't there: no memory is asked for it.  An
  // offset out of the stream, and a count far beyond the pairs present.
  Bytes huge = property_set({typed(kTitle, 0x1E, {0xFFFFFFFF}, "short")});
  Bytes wild = full, counted = full;
  put32(&wild[76], 0x7FFFFFF0);     // the comments' offset
  put32(&counted[52], 0xFFFFFFFF);  // the property count
  for (const Bytes& bad : {huge, wild, counted})
    EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, read_props(bad, &props));
}

TEST(DocPropSummary, ReadsTheStreamOfTheRoot) {
  Bytes set = sample_set();
  const struct {
    const char* name;
    Bytes bytes;
    uint8_t type;
    uint32_t status, created;
  } cases[] = {
      {"\005SummaryInformation", set, OLE_TYPE_STREAM, 0, kCreatedTime},
      {"SummaryInformation", set, OLE_TYPE_STREAM, 0, 0},  // not it: nothing, no failure
      {"\005SummaryInformation", Bytes(), OLE_TYPE_STORAGE, KEL_ERR_OLE_NOT_STREAM, 0},
  };
  for (const auto& c : cases) {
    Builder b;
    uint32_t id = b.stream(c.name, c.bytes);
    b.entries[id].type = c.type;
    b.list({b.stream("Workbook", pattern(5000, 1)), id});
    Opened f;
    ASSERT_EQ(0u, f.open(b.build()));
    doc_props_t props{};
    EXPECT_EQ(c.status, doc_prop_read_summary(f.root, &props));
    EXPECT_EQ(c.created, props.created);
    EXPECT_EQ(c.created ? "Ann Example" : "", utf8(props.author));
  }
}
