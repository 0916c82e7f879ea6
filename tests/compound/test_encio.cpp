// The RC4 layer of encrypted workbooks: MD5 and RC4 against published
// vectors, password checks against FILEPASS records of real workbooks, and
// random-access ciphering against a key stream made independently here.

#include "compound/kel_encio.h"
#include "foundation/zuv_memio.h"

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

std::vector<uint8_t> from_hex(const char* hex) {
  std::vector<uint8_t> bytes;
  for (; hex[0] && hex[1]; hex += 2)
    bytes.push_back((uint8_t)std::stoul(std::string(hex, 2), nullptr, 16));
  return bytes;
}

// FILEPASS records, header included.  The first two are copied from the
// Workbook streams of real files: calamine's issue_385.xls (protected with
// the default password) and POI's password.xls (password "password").  The
// others were made with Python's hashlib and a few-line RC4, for a salt of
// 10..1F and a verifier of A0..AF.
const char kDefaultPasswordRecord[] =
    "2f003600010001000100f27de4db654dc88b1d24512994cbb4c5e547cad9e7d113fa2517"
    "b1f1a6d75719d752132611f572ebced0b70fba753743";
const char kPasswordRecord[] =
    "2f00360001000100010068a75dab8dff01c4fa376368e65efc5fdaa7a36e2421fba36ab4"
    "ec92fa2aa09af7896935e1c3adb71628edb7543c09fa";
const char kLongPasswordRecord[] =  // long_password() below
    "2f003600010001000100101112131415161718191a1b1c1d1e1ffeae7428fd96e7a8e913"
    "87cf89a192e968880de70f31f01c2ac08284a75e7161";
const char kEmptyPasswordRecord[] =
    "2f003600010001000100101112131415161718191a1b1c1d1e1fef70c73fea8792340205"
    "d6b4db75783e5271aa38a41fae2556c116bffe2447fd";

// 255 units, the most the scheme allows, with high bytes: Cyrillic letters
// but at every third position a Latin one.
std::u16string long_password() {
  std::u16string text;
  for (unsigned i = 0; i < 255; i++)
    text += (char16_t)(i % 3 ? 0x410 + i % 32 : 'a' + i % 26);
  return text;
}

const unsigned short* units(const char16_t* text) {
  return (const unsigned short*)text;
}

// The key of each 1,024-byte block for kDefaultPasswordRecord's salt and the
// default password: MD5(MD5(MD5(password)[0..5] + salt, 16 times)[0..5] +
// block) by Python's hashlib.
const char* const kBlockKeys[] = {
    "d128c3d9a3d12263eba117c8dff45812", "175f60b0b8d8074d77f407048cd64694",
    "398a87cbfbacb763d7194696ae280464", "8a4e44f6c96c0a0bc823d9c892152628",
    "ed2adcad23ac8afeab2bcc1caf928725", "8f7817245c4ff861cd16d787e0424c65"};

// RC4 written again, so that the layer is checked against something that
// does not share its code.
std::vector<uint8_t> reference_key_stream(const std::vector<uint8_t>& key,
                                          size_t size) {
  uint8_t s[256];
  for (int i = 0; i < 256; i++) s[i] = (uint8_t)i;
  for (int i = 0, j = 0; i < 256; i++) {
    j = (j + s[i] + key[i % key.size()]) & 255;
    std::swap(s[i], s[j]);
  }
  std::vector<uint8_t> out;
  for (int i = 0, j = 0; out.size() < size;) {
    i = (i + 1) & 255;
    j = (j + s[i]) & 255;
    std::swap(s[i], s[j]);
    out.push_back(s[(s[i] + s[j]) & 255]);
  }
  return out;
}

// The stream under the layer: memory that answers for the block cache.
void open_lower(zuv_memio* stream, const std::vector<uint8_t>& bytes = {}) {
  memio_open_copy(stream, bytes.data(), (uint32_t)bytes.size());
  stream->io.get_base = [](zuv_io* self, uint16_t level) {
    return level == ZUV_IO_LEVEL_CACHE ? self : nullptr;
  };
}

std::vector<uint8_t> bytes_of(const zuv_memio& stream) {
  return std::vector<uint8_t>(stream.bytes, stream.bytes + stream.size);
}

std::vector<uint8_t> md5(const std::string& text, size_t piece) {
  MD5_CTX context;
  wvMD5Init(&context);
  for (size_t at = 0; at < text.size(); at += piece)
    wvMD5Update(&context, text.data() + at,
                (uint32_t)std::min(piece, text.size() - at));
  wvMD5StoreDigest(&context);
  return std::vector<uint8_t>(context.digest, context.digest + 16);
}

TEST(Md5, PublishedDigestsFedWholeAndInPieces) {
  const struct {
    std::string text;
    const char* digest;
  } cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"1234567890123456789012345678901234567890123456789012345678901234567890"
       "1234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      // the last lengths whose padding fits in one block, and the first
      // that needs another (Python's hashlib)
      {std::string(55, 'a'), "ef1772b6dff9a122358552954ad0df65"},
      {std::string(56, 'a'), "3b0c8ac703f828b04c6c197006d17218"},
  };
  for (const auto& c : cases)
    for (size_t piece : {(size_t)1, (size_t)7, (size_t)64, (size_t)1000})
      EXPECT_EQ(md5(c.text, piece), from_hex(c.digest))
          << c.text.size() << " bytes in pieces of " << piece;
}

TEST(Filepass, PasswordsAreCheckedAgainstTheVerifier) {
  std::vector<uint8_t> record = from_hex(kDefaultPasswordRecord);
  filepass_t filepass;
  EXPECT_EQ(kel_xls_read_FILEPASS(record.data(), &filepass), 0u);
  EXPECT_EQ(filepass.version, 1);

  // An XOR-obfuscation record has 6 bytes of body; exactly that much memory
  // lets the sanitizer catch a read past it.
  std::vector<uint8_t> xor_record = from_hex("2f0006000000a1b20100");
  kel_xls_read_FILEPASS(xor_record.data(), &filepass);
  EXPECT_EQ(filepass.version, 0);

  const std::u16string long_text = long_password();
  const std::u16string too_long = long_text + u"x";
  const struct {
    const char* record;
    const unsigned short* right;
    const unsigned short* wrong;
  } cases[] = {
      {kDefaultPasswordRecord, kel_encio_default_password,
       units(u"velvetsweatshop")},
      {kPasswordRecord, units(u"password"), kel_encio_default_password},
      {kLongPasswordRecord, units(long_text.c_str()), units(too_long.c_str())},
      {kEmptyPasswordRecord, units(u""), units(u" ")},
  };
  zuv_io none = {};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.record);
    record = from_hex(c.record);
    kel_xls_read_FILEPASS(record.data(), &filepass);
    kel_io_enc* layer = nullptr;
    ASSERT_EQ(kel_encio_open_from_encio(none, nullptr, &layer), 0u);
    EXPECT_EQ(kel_encio_set_passwd(layer, c.wrong, &filepass, 20, 54),
              (uint32_t)KEL_ERR_WRONG_PASSWORD);
    EXPECT_EQ(layer->enabled, 0);
    EXPECT_EQ(kel_encio_set_passwd(layer, c.right, &filepass, 20, 54), 0u);
    EXPECT_EQ(layer->enabled, 1);
    EXPECT_EQ(layer->start, 20u + 4 + 54);
    // a wrong password later leaves the good key in place
    MD5_CTX good = layer->digest;
    EXPECT_EQ(kel_encio_set_passwd(layer, c.wrong, &filepass, 100, 54),
              (uint32_t)KEL_ERR_WRONG_PASSWORD);
    EXPECT_EQ(layer->enabled, 1);
    EXPECT_EQ(layer->start, 20u + 4 + 54);
    EXPECT_EQ(memcmp(layer->digest.digest, good.digest, 16), 0);
    kel_encio_discard(&layer);
  }
}

// A stream of six blocks and a bit, enciphered from offset 78 on (behind a
// FILEPASS at 20) with the block keys above.
class EncLayer : public ::testing::Test {
 protected:
  static constexpr uint32_t kStart = 78;
  static constexpr uint32_t kSize = 5 * 1024 + 300;

  void SetUp() override {
    for (uint32_t i = 0; i < kSize; i++)
      plain_.push_back((uint8_t)(i * 31 + 7));
    cipher_ = plain_;
    for (uint32_t block = 0; block * 1024 < kSize; block++) {
      std::vector<uint8_t> stream =
          reference_key_stream(from_hex(kBlockKeys[block]), 1024);
      for (uint32_t i = block * 1024; i < kSize && i < (block + 1) * 1024; i++)
        if (i >= kStart) cipher_[i] ^= stream[i % 1024];
    }
    open_lower(&lower_, cipher_);
    ASSERT_EQ(kel_encio_open_from_encio(lower_.io, nullptr, &layer_), 0u);
    kel_encio_fill_io(layer_, &io_);
    std::vector<uint8_t> record = from_hex(kDefaultPasswordRecord);
    filepass_t filepass;
    kel_xls_read_FILEPASS(record.data(), &filepass);
    ASSERT_EQ(kel_encio_set_passwd(layer_, kel_encio_default_password,
                                   &filepass, 20, 54),
              0u);
  }

  void TearDown() override {
    kel_encio_discard(&layer_);
    memio_close(&lower_);
  }

  std::vector<uint8_t> read(uint32_t offset, uint32_t size) {
    std::vector<uint8_t> bytes(size);
    uint32_t status = 0;
    EXPECT_EQ(io_.read(io_.context, bytes.data(), size, offset, &status), size);
    EXPECT_EQ(status, 0u);
    return bytes;
  }

  static std::vector<uint8_t> slice(const std::vector<uint8_t>& bytes,
                                    uint32_t offset, uint32_t size) {
    return std::vector<uint8_t>(bytes.begin() + offset,
                                bytes.begin() + offset + size);
  }

  std::vector<uint8_t> plain_, cipher_;
  zuv_memio lower_;
  kel_io_enc* layer_ = nullptr;
  zuv_io io_;
};

TEST_F(EncLayer, DeciphersAnyRangeInAnyOrder) {
  EXPECT_EQ(read(0, kSize), plain_);
  // pieces out of order, crossing block boundaries or ending on them, and a
  // piece that begins in the plain part before start
  const uint32_t pieces[][2] = {{3000, 50},  {1000, 100}, {1020, 8},
                                {1024, 1024}, {60, 40},   {2047, 2},
                                {4000, 1300}, {2040, 1}};
  for (const auto& p : pieces)
    EXPECT_EQ(read(p[0], p[1]), slice(plain_, p[0], p[1])) << p[0];
  for (uint32_t at = 2050; at > 2030; at--)
    EXPECT_EQ(read(at, 1), slice(plain_, at, 1)) << at;
}

TEST_F(EncLayer, LeavesBytesAloneWhenStoppedShortOrWithoutPassword) {
  kel_encio_stop_read_decryption(layer_, true);
  EXPECT_EQ(read(100, 1500), slice(cipher_, 100, 1500));
  kel_encio_stop_read_decryption(layer_, false);
  EXPECT_EQ(read(100, 1500), slice(plain_, 100, 1500));

  // a short read keeps the lower layer's status and deciphers nothing
  std::vector<uint8_t> bytes(20);
  uint32_t status = 0;
  EXPECT_EQ(io_.read(io_.context, bytes.data(), 20, kSize - 10, &status), 10u);
  EXPECT_EQ(status, (uint32_t)KEL_ERR_END_OF_FILE);
  EXPECT_EQ(slice(bytes, 0, 10), slice(cipher_, kSize - 10, 10));

  kel_io_enc* fresh = nullptr;
  ASSERT_EQ(kel_encio_open_from_encio(lower_.io, nullptr, &fresh), 0u);
  EXPECT_EQ(kel_encio_read(fresh, bytes.data(), 20, 100, &status), 20u);
  EXPECT_EQ(bytes, slice(cipher_, 100, 20));
  kel_encio_discard(&fresh);
  EXPECT_EQ(fresh, nullptr);
}

TEST_F(EncLayer, WritesEncipherInPlaceAsDoesALayerOpenedFromThisOne) {
  uint32_t status = 0;
  std::vector<uint8_t> bytes = slice(plain_, 60, 1000);  // from below start
  memset(lower_.buffer, 0, kSize);
  EXPECT_EQ(io_.write(io_.context, bytes.data(), 1000, 60, &status), 1000u);
  EXPECT_EQ(slice(bytes_of(lower_), 60, 1000), slice(cipher_, 60, 1000));
  EXPECT_EQ(bytes, slice(cipher_, 60, 1000));
  kel_encio_stop_write_encryption(layer_, true);
  bytes = slice(plain_, 300, 10);
  io_.write(io_.context, bytes.data(), 10, 300, &status);
  EXPECT_EQ(slice(bytes_of(lower_), 300, 10), slice(plain_, 300, 10));

  // The new stream of a saved workbook: same key, its own stop switches,
  // wherever the old layer's key stood.
  read(2500, 10);
  zuv_memio copy;
  open_lower(&copy);
  kel_io_enc* next = nullptr;
  ASSERT_EQ(kel_encio_open_from_encio(copy.io, layer_, &next), 0u);
  bytes = plain_;
  EXPECT_EQ(kel_encio_write(next, bytes.data(), kSize, 0, &status), kSize);
  EXPECT_EQ(bytes_of(copy), cipher_);
  EXPECT_EQ(kel_encio_read(next, bytes.data(), kSize, 0, &status), kSize);
  EXPECT_EQ(bytes, plain_);
  EXPECT_EQ(status, 0u);
  kel_encio_discard(&next);
  memio_close(&copy);
}

TEST_F(EncLayer, GetBaseAnswersLevel3AndAsksTheLayerBelow) {
  EXPECT_EQ(kel_encio_get_base(&io_, ZUV_IO_LEVEL_ENCRYPTION), &io_);
  EXPECT_EQ(kel_encio_get_base(&io_, ZUV_IO_LEVEL_CACHE), &layer_->lower);
  EXPECT_EQ(kel_encio_get_base(&io_, ZUV_IO_LEVEL_DIFF), nullptr);
}

}  // namespace
