// The compound file reader: listing, small and large streams, the DIFAT
// path, checkpointed seeks, broken or hostile files, and the corpus.
#include <gtest/gtest.h>

#include "compound/doc_prop.h"
#include "compound/zuv_ole.h"
#include "ole_test_file.h"
#include "test_support.h"

using namespace ole_test;

namespace {

std::string name_of(const ole_dir& dir) {
  std::string name;
  for (int i = 0; i < OLE_NAME_CHARS && dir.name[i]; i++) name += (char)dir.name[i];
  return name;
}

// The names of the root's elements; *status is that of the first failure.
std::vector<std::string> list_root(ole_storage* root, uint32_t* status) {
  std::vector<std::string> names;
  ole_dir dir;
  while ((*status = ole_get_dir(root, (uint32_t)names.size(), &dir)) == 0)
    names.push_back(name_of(dir));
  if (*status == KEL_ERR_OLE_NO_ENTRY) *status = 0;
  return names;
}

ole_stream* open_element(ole_storage* root, uint32_t index) {
  ole_dir dir;
  ole_stream* stream = nullptr;
  EXPECT_EQ(0u, ole_get_dir(root, index, &dir));
  EXPECT_EQ(0u, ole_open_stream(root, &dir, &stream));
  return stream;
}

// Reads the stream through in chunks; gives the bytes if keep, else only
// counts them (a hostile size may be anything).  A clean end leaves 0.
Bytes read_through(ole_stream* stream, uint32_t chunk, uint32_t* status, bool keep = true) {
  Bytes all, buffer(chunk);
  *status = 0;
  uint64_t total = 0;
  for (uint32_t got = chunk; got == chunk; total += got) {
    got = ole_read_stream(stream, &buffer[0], chunk, (uint32_t)total, status);
    if (keep) all.insert(all.end(), buffer.begin(), buffer.begin() + got);
  }
  if (*status == KEL_ERR_END_OF_FILE && total == ole_get_stream_size(stream)) *status = 0;
  return all;
}

// Lists and reads everything; whatever the bytes, this must end.
void exercise(const Bytes& bytes) {
  Opened f;
  ole_dir dir;
  uint32_t status = f.open(bytes);
  for (uint32_t i = 0; !status && ole_get_dir(f.root, i, &dir) == 0; i++) {
    ole_stream* stream = nullptr;
    if (ole_open_stream(f.root, &dir, &stream)) continue;
    read_through(stream, 1000, &status, false);
    ole_close_stream(stream);
  }
}

// Root: Workbook (regular), summary (small), a storage holding one more.
Bytes sample_file() {
  Builder b;
  uint32_t book = b.stream("Workbook", pattern(10000, 1));
  uint32_t summary = b.stream("\005Caf\xE9", pattern(300, 2));
  uint32_t storage = b.entry("_VBA_PROJECT_CUR", OLE_TYPE_STORAGE, 0, 0);
  b.entries[storage].child = b.stream("Inner", pattern(100, 3));
  b.list({book, summary, storage});
  return b.build();
}

}  // namespace

TEST(OleOpen, ListsAndReadsTheElementsOfTheRoot) {
  Opened f;
  ASSERT_EQ(0u, f.open(sample_file()));
  uint32_t status;
  // Direct children only; names by their low byte, sign-extended.
  EXPECT_EQ((std::vector<std::string>{"Workbook", "\005Caf\xE9", "_VBA_PROJECT_CUR"}),
            list_root(f.root, &status));
  ole_dir dir;
  ASSERT_EQ(0u, ole_get_dir(f.root, 1, &dir));
  EXPECT_EQ(0xFFE9, dir.name[4]);
  for (uint32_t i = 0; i < 2; i++) {
    ole_stream* stream = open_element(f.root, i);
    EXPECT_EQ(pattern(i ? 300 : 10000, i + 1), read_through(stream, 777, &status));
    EXPECT_EQ(0u, status);
    ole_close_stream(stream);
  }
  ole_stream* stream = nullptr;
  EXPECT_EQ((uint32_t)KEL_ERR_OLE_NO_ENTRY, ole_get_dir(f.root, 3, &dir));
  EXPECT_EQ((uint32_t)KEL_ERR_INVALID_ARGUMENT, ole_open_stream(f.root, &dir, nullptr));
  ASSERT_EQ(0u, ole_get_dir(f.root, 2, &dir));
  EXPECT_EQ((uint32_t)KEL_ERR_OLE_NOT_STREAM, ole_open_stream(f.root, &dir, &stream));
  EXPECT_EQ(0u, ole_get_stream_size(nullptr));
  ole_close_stream(nullptr), ole_close_storage(nullptr), ole_close(nullptr);
}

TEST(OleOpen, RefusesWhatIsNoCompoundFileAndLeavesNothing) {
  Builder b;
  Bytes sample = sample_file();
  const struct {
    Bytes bytes;
    uint32_t status;
  } cases[] = {
      {{0xD0, 0xCF, 0x11}, KEL_ERR_END_OF_FILE},  // the short read, not the signature
      {Bytes(600, 'x'), KEL_ERR_OLE_BAD_CHAIN},
      {Bytes(sample.begin(), sample.begin() + 520), KEL_ERR_OLE_BAD_CHAIN},  // FAT beyond
      {b.build(251), KEL_ERR_OLE_BAD_HEADER},
  };
  for (const auto& c : cases) {
    Opened f;
    EXPECT_EQ(c.status, f.open(c.bytes));
    EXPECT_EQ(0, f.mem.live);
  }
  Opened created;
  EXPECT_EQ((uint32_t)KEL_ERR_UNSUPPORTED, created.open(Bytes(), 1));
}

TEST(OleOpen, EveryAllocationFailureIsReportedAndLeavesNothing) {
  Bytes file = sample_file();
  for (int fail_from = 0;; fail_from++) {
    Opened f;
    f.mem.fail_from = fail_from;
    uint32_t status = f.open(file), read_status = 0;
    if (!status) list_root(f.root, &status);
    ole_dir dir;
    ole_stream* stream = nullptr;
    if (!status && !ole_get_dir(f.root, 0, &dir) && !ole_open_stream(f.root, &dir, &stream))
      read_through(stream, 4096, &read_status);
    EXPECT_TRUE(status == 0 || status == KEL_ERR_OUT_OF_MEMORY) << status;
    EXPECT_TRUE(read_status == 0 || read_status == KEL_ERR_OUT_OF_MEMORY);
    ole_close_stream(stream), ole_close_storage(f.root), ole_close(f.file);
    f.root = nullptr, f.file = nullptr;
    EXPECT_EQ(0, f.mem.live) << "failing from allocation " << fail_from;
    if (!status && !read_status && f.mem.allocations < fail_from) break;
  }
}

TEST(OleStream, StreamsBelow4096BytesAreHeldInMemory) {
  Builder b;
  b.list({b.stream("Small", pattern(4095, 1)), b.stream("Large", pattern(4096, 2))});
  Opened f;
  ASSERT_EQ(0u, f.open(b.build()));
  ole_stream* streams[] = {open_element(f.root, 0), open_element(f.root, 1)};
  uint32_t reads = f.doc.reads, status;
  EXPECT_EQ(pattern(4095, 1), read_through(streams[0], 1000, &status));
  EXPECT_EQ(reads, f.doc.reads) << "read at open";
  EXPECT_EQ(pattern(4096, 2), read_through(streams[1], 1000, &status));
  for (ole_stream* stream : streams) {
    uint8_t buffer[16];
    uint32_t size = ole_get_stream_size(stream);
    status = 0;
    EXPECT_EQ(0u, ole_read_stream(stream, buffer, 16, size, &status));
    EXPECT_EQ((uint32_t)KEL_ERR_END_OF_FILE, status);
    status = 0;
    EXPECT_EQ(5u, ole_read_stream(stream, buffer, 16, size - 5, &status));
    EXPECT_EQ(0u, ole_read_stream(stream, buffer, 0, 0, &status));
    EXPECT_EQ(0u, status);
    ole_close_stream(stream);
  }
}

TEST(OleStream, FragmentedChainReadsRightInAnyOrder) {
  // Two streams whose sectors alternate in runs of 1, 2 and 3: runs of
  // consecutive sectors must break where the chain jumps.
  Builder b;
  Bytes one = pattern(20 * 512 + 77, 1);
  std::vector<uint32_t> mine, other;
  for (int run = 1; mine.size() < 21; run = run % 3 + 1) {
    for (uint32_t s : b.sectors(std::min<size_t>(run, 21 - mine.size()))) mine.push_back(s);
    for (uint32_t s : b.sectors(run)) other.push_back(s);
  }
  b.list({b.entry("One", OLE_TYPE_STREAM, b.place(one, mine), (uint32_t)one.size()),
          b.entry("Two", OLE_TYPE_STREAM, b.place(Bytes(other.size() * 512), other), 9000)});
  Opened f;
  ASSERT_EQ(0u, f.open(b.build()));
  ole_stream* stream = open_element(f.root, 0);
  uint32_t status;
  for (uint32_t chunk : {1u, 100u, 512u, 1500u, 20000u})
    EXPECT_EQ(one, read_through(stream, chunk, &status)) << chunk;
  // Seeks within a 256-byte granule keep the cursor, others find it again;
  // each read, and the one straight after it, gives the bytes of its offset.
  for (uint32_t offset : {0, 100, 150, 255, 256, 300, 511, 512, 520, 1023, 1030, 7000, 6990,
                          6000, 513, 10000, 9990, 10240, 10300, 200, 1535, 1536, 3000}) {
    uint8_t buffer[710];
    uint32_t want = std::min<uint32_t>(710, (uint32_t)one.size() - offset);
    uint32_t first = std::min<uint32_t>(want, 700);
    ASSERT_EQ(first, ole_read_stream(stream, buffer, 700, offset, &status)) << offset;
    EXPECT_EQ(want - first, ole_read_stream(stream, buffer + first, 10, offset + first, &status));
    EXPECT_EQ(0, memcmp(buffer, &one[offset], want)) << offset;
  }
  ole_close_stream(stream);
}

TEST(OleStream, LongStreamThroughTheDifatReadsBackwardsCheaply) {
  // 15,000 sectors behind a hole of 16,000: 243 FAT sectors, the first 109
  // named in the header, the next 127 (from sector 13,952 on) in the first
  // DIFAT sector, the rest (from sector 30,208 on) in the second.
  Builder b;
  Bytes big = pattern(15000 * 512, 5);
  b.skip(16000);
  b.list({b.stream("Big", big)});
  Bytes file = b.build();
  ASSERT_EQ(2u, get32(&file[72]));
  Opened f;
  f.doc.set_hole(b);
  ASSERT_EQ(0u, f.open(file));
  ole_stream* stream = open_element(f.root, 0);
  uint32_t status;
  ASSERT_TRUE(read_through(stream, 65536, &status) == big);
  // With a checkpoint every 15 sectors, a read backwards costs its data and
  // at most two FAT sectors, each with its DIFAT sector.
  uint32_t worst = 0;
  for (uint32_t sector = 15000; sector-- > 0;) {
    uint8_t buffer[512];
    uint32_t before = f.doc.reads;
    ASSERT_EQ(512u, ole_read_stream(stream, buffer, 512, sector * 512, &status));
    ASSERT_EQ(0, memcmp(buffer, &big[sector * 512], 512)) << sector;
    worst = std::max(worst, f.doc.reads - before);
  }
  EXPECT_LE(worst, 5u);
  ole_close_stream(stream);
}

TEST(OleDirectory, SiblingTreesComeOutInPreOrder) {
  // A right-leaning list, longer than the first element table.
  Builder b;
  std::vector<uint32_t> ids;
  std::vector<std::string> names;
  for (int i = 0; i < 300; i++) names.push_back("S" + std::to_string(i));
  for (const std::string& name : names) ids.push_back(b.stream(name, Bytes()));
  b.list(ids);
  Opened list;
  ASSERT_EQ(0u, list.open(b.build()));
  uint32_t status;
  EXPECT_EQ(names, list_root(list.root, &status));
  // A balanced tree: node, left subtree, right subtree -- not name order.
  Builder t;
  for (const char* name : {"D", "B", "A", "C", "F", "E", "G"}) t.stream(name, Bytes());
  t.entries[0].child = 1;
  const uint32_t links[][3] = {{1, 2, 5}, {2, 3, 4}, {5, 6, 7}};  // node, left, right
  for (const auto& l : links) t.entries[l[0]].left = l[1], t.entries[l[0]].right = l[2];
  Opened tree;
  ASSERT_EQ(0u, tree.open(t.build()));
  EXPECT_EQ((std::vector<std::string>{"D", "B", "A", "C", "F", "E", "G"}),
            list_root(tree.root, &status));
  EXPECT_EQ(0u, status);
}

TEST(OleDirectory, BrokenTreesGiveAStatus) {
  const struct {
    uint32_t child, a_left, a_right, b_right;
    size_t listed;
  } cases[] = {
      {1000, kFree, kFree, kFree, 0},  // child out of range
      {1, 50, kFree, kFree, 0},        // sibling out of range
      {1, kFree, 1, kFree, 0},         // a sibling loop
      {1, kFree, 2, 1, 0},             // a cycle of two
      {1, 2, 2, kFree, 3},             // a shared subtree: no cycle, and bounded
  };
  for (const auto& c : cases) {
    Builder b;
    b.stream("A", Bytes()), b.stream("B", Bytes());
    b.entries[0].child = c.child;
    b.entries[1].left = c.a_left, b.entries[1].right = c.a_right, b.entries[2].right = c.b_right;
    Opened f;
    ASSERT_EQ(0u, f.open(b.build()));
    uint32_t status;
    size_t listed = list_root(f.root, &status).size();
    EXPECT_EQ(c.listed, listed);
    EXPECT_EQ(listed ? 0u : (uint32_t)KEL_ERR_OLE_BAD_CHAIN, status);
  }
}

TEST(OleChains, CorruptChainsGiveAStatusAndNeverHang) {
  const struct {
    uint32_t sector, value, size, delivered, status;  // delivered of 20,000
  } cases[] = {
      {5, kFree, 6144, 3072, KEL_ERR_OLE_BAD_CHAIN},   // as the FAT and DIFAT marks
      {5, 100000, 6144, 3072, KEL_ERR_OLE_BAD_CHAIN},  // out of range
      {5, kEnd, 6144, 3072, KEL_ERR_OLE_CHAIN_END},
      // A cycle runs on only until there are more sectors than the document
      // holds (16), give or take one run.
      {11, 3, 0xFFFFFF00u, 0, KEL_ERR_OLE_BAD_CHAIN},
  };
  for (const auto& c : cases) {
    Builder b;
    b.list({b.entry("S", OLE_TYPE_STREAM, b.place(pattern(6144, 1), b.sectors(12)), c.size)});
    b.fat[c.sector] = c.value;
    Opened f;
    ASSERT_EQ(0u, f.open(b.build()));
    ole_stream* stream = open_element(f.root, 0);
    Bytes bytes(20000);
    uint32_t status = 0;
    uint32_t got = ole_read_stream(stream, &bytes[0], 20000, 0, &status);
    EXPECT_EQ(c.status, status) << c.value;
    if (c.delivered) {
      EXPECT_EQ(c.delivered, got);
      EXPECT_EQ(0, memcmp(&bytes[0], &pattern(got, 1)[0], got));
    } else {
      EXPECT_LE(got, 2u * 16 * 512);
    }
    status = 0;  // and by a seek past the break
    EXPECT_EQ(0u, ole_read_stream(stream, &bytes[0], 4, c.size - 4, &status));
    EXPECT_EQ(c.status, status) << c.value;
    ole_close_stream(stream);
  }
  // A mini FAT that loops (bounded by the size: wrong bytes, but they come),
  // leaves the mini stream, or meets a free sector.
  for (uint32_t value : {0u, 1000000u, kFree}) {
    Builder b;
    b.list({b.stream("S", pattern(1000, 4))});
    b.minifat[3] = value;
    Opened f;
    ASSERT_EQ(0u, f.open(b.build()));
    ole_dir dir;
    ole_stream* stream = nullptr;
    ASSERT_EQ(0u, ole_get_dir(f.root, 0, &dir));
    EXPECT_EQ(value ? (uint32_t)KEL_ERR_OLE_BAD_CHAIN : 0u, ole_open_stream(f.root, &dir, &stream));
    ole_close_stream(stream);
  }
  // A directory chain that loops, and a FAT sector beyond the document.
  Builder b;
  b.list({b.stream("S", pattern(10, 0))});
  Bytes file = b.build();
  Bytes looping = file, beyond = file;
  uint32_t dir = get32(&file[48]);
  put32(&looping[(get32(&file[76]) + 1) * 512 + 4 * dir], dir);
  put32(&beyond[76], 0x00FFFFFF);
  for (const Bytes& bad : {looping, beyond}) {
    Opened f;
    EXPECT_EQ((uint32_t)KEL_ERR_OLE_BAD_CHAIN, f.open(bad));
    EXPECT_EQ(0, f.mem.live);
  }
}

TEST(OleChains, TruncatedAndMangledFilesNeverCrash) {
  Bytes file = sample_file();
  for (size_t cut = 0; cut < file.size(); cut += 61) exercise(Bytes(file.begin(), file.begin() + cut));
  // Words of the header and of the last five sectors (mini stream, mini
  // FAT, directory, FAT) set to telling values.
  const uint32_t values[] = {0, 1, 2, 3, 5, 127, 128, 4095, 4096, 109, 250, 251,
                             0x7FFFFFFF, kDifatMark, kFatMark, kEnd, kFree};
  const uint32_t structure = (uint32_t)file.size() - 5 * 512;
  uint32_t seed = 12345, opened = 0;
  auto next = [&seed]() { return (seed = seed * 1103515245u + 12345u) >> 8; };
  for (int round = 0; round < 5000; round++) {
    Bytes mangled = file;
    for (uint32_t i = 0, changes = 1 + next() % 4; i < changes; i++) {
      uint32_t at = next() % 2 ? 8 + 4 * (next() % 126) : structure + 4 * (next() % 640);
      put32(&mangled[at], next() % 4 ? values[next() % (sizeof values / 4)] : next());
    }
    Opened probe;
    opened += probe.open(mangled) == 0;
    exercise(mangled);
  }
  EXPECT_GT(opened, 2500u);  // most changes leave a file to walk
}

namespace {

// Corpus files that needn't read: the manifest says they aren't compound
// files or workbooks or are broken, or they are other fuzzers' crash cases.
bool may_fail(const tabulon_test::CorpusFile& entry) {
  // The directory chain leaves the FAT after two sectors; the Workbook
  // chain holds 128 of its 262 sectors.  And a summary information that
  // claims 4 GB on a chain of two sectors.
  if (entry.path == "xls/calamine_OOM_alloc3.xls" || entry.path == "xls/poi_61300.xls") return true;
  for (const char* mark : {"not a compound file", "not a workbook", "corrupt", "broken",
                           "clusterfuzz", "/crash-"})
    if ((entry.path + "\t" + entry.note).find(mark) != std::string::npos) return true;
  return false;
}

}  // namespace

// Every stream of the root of every corpus workbook reads fully, and the
// summary information of many gives an author.
TEST(OleCorpus, EveryWorkbookListsAndReadsFully) {
  std::vector<tabulon_test::CorpusFile> corpus = tabulon_test::corpus_manifest();
  if (corpus.empty()) GTEST_SKIP() << "no corpus in ../shared: skipped";
  int files = 0, read_fully = 0, with_author = 0;
  for (const tabulon_test::CorpusFile& entry : corpus) {
    if (entry.path.compare(0, 4, "xls/") != 0) continue;
    Bytes bytes;
    ASSERT_TRUE(tabulon_test::read_file(tabulon_test::shared_dir() + "/corpus/" + entry.path, &bytes));
    Opened f;
    uint32_t status = f.open(bytes);
    if (!status) list_root(f.root, &status);
    ole_dir dir;
    for (uint32_t i = 0; !status && ole_get_dir(f.root, i, &dir) == 0; i++) {
      ole_stream* stream = nullptr;
      if (dir.type == OLE_TYPE_STREAM && !(status = ole_open_stream(f.root, &dir, &stream)))
        read_through(stream, 8192, &status, false);
      ole_close_stream(stream);
    }
    EXPECT_TRUE(!status || may_fail(entry)) << entry.path << ": " << std::hex << status;
    files++, read_fully += !status;
    doc_props_t props{};
    if (f.root) doc_prop_read_summary(f.root, &props);
    with_author += props.author.GetNumChars() > 0;
  }
  printf("[          ] %d of %d corpus files listed and read fully, %d with an author\n", read_fully,
         files, with_author);
  EXPECT_GT(with_author, 100);
}
