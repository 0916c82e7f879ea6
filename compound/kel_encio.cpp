/*
 * kel_encio.cpp -- MD5, RC4 and the workbook's RC4 stream layer.
 *
 * Byte order: MD5 words and the block number of the key are assembled and
 * taken apart byte by byte, so the results are the same on any host.
 */
#include "compound/kel_encio.h"

#include <stdlib.h>
#include <string.h>

#include "foundation/zuv_memio.h"

/* ---- MD5 ---------------------------------------------------------------- */

/* floor(abs(sin(i + 1)) * 2^32), RFC 1321 3.4 */
static const uint32_t md5_sines[64] = {
    0xd76aa478u, 0xe8c7b756u, 0x242070dbu, 0xc1bdceeeu,
    0xf57c0fafu, 0x4787c62au, 0xa8304613u, 0xfd469501u,
    0x698098d8u, 0x8b44f7afu, 0xffff5bb1u, 0x895cd7beu,
    0x6b901122u, 0xfd987193u, 0xa679438eu, 0x49b40821u,
    0xf61e2562u, 0xc040b340u, 0x265e5a51u, 0xe9b6c7aau,
    0xd62f105du, 0x02441453u, 0xd8a1e681u, 0xe7d3fbc8u,
    0x21e1cde6u, 0xc33707d6u, 0xf4d50d87u, 0x455a14edu,
    0xa9e3e905u, 0xfcefa3f8u, 0x676f02d9u, 0x8d2a4c8au,
    0xfffa3942u, 0x8771f681u, 0x6d9d6122u, 0xfde5380cu,
    0xa4beea44u, 0x4bdecfa9u, 0xf6bb4b60u, 0xbebfbc70u,
    0x289b7ec6u, 0xeaa127fau, 0xd4ef3085u, 0x04881d05u,
    0xd9d4d039u, 0xe6db99e5u, 0x1fa27cf8u, 0xc4ac5665u,
    0xf4292244u, 0x432aff97u, 0xab9423a7u, 0xfc93a039u,
    0x655b59c3u, 0x8f0ccc92u, 0xffeff47du, 0x85845dd1u,
    0x6fa87e4fu, 0xfe2ce6e0u, 0xa3014314u, 0x4e0811a1u,
    0xf7537e82u, 0xbd3af235u, 0x2ad7d2bbu, 0xeb86d391u};

/* Rotation of each round's four steps, round by round. */
static const uint8_t md5_shifts[4][4] = {
    {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

static uint32_t rotate_left(uint32_t value, unsigned bits) {
  return (value << bits) | (value >> (32 - bits));
}

static uint32_t get_le32(const uint8_t* bytes) {
  return (uint32_t)bytes[0] | ((uint32_t)bytes[1] << 8) |
         ((uint32_t)bytes[2] << 16) | ((uint32_t)bytes[3] << 24);
}

/* The compression function of RFC 1321 3.4 in its compact form: the four
 * rounds differ only in the mixing function and the word they take. */
static void md5_transform(uint32_t state[4], const uint8_t block[64]) {
  uint32_t words[16];
  for (unsigned i = 0; i < 16; i++) words[i] = get_le32(block + 4 * i);
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (unsigned i = 0; i < 64; i++) {
    uint32_t mixed;
    unsigned word;
    switch (i >> 4) {
      case 0:
        mixed = (b & c) | (~b & d);
        word = i;
        break;
      case 1:
        mixed = (b & d) | (c & ~d);
        word = (5 * i + 1) & 15;
        break;
      case 2:
        mixed = b ^ c ^ d;
        word = (3 * i + 5) & 15;
        break;
      default:
        mixed = c ^ (b | ~d);
        word = (7 * i) & 15;
        break;
    }
    uint32_t next = d;
    d = c;
    c = b;
    b += rotate_left(a + mixed + md5_sines[i] + words[word],
                     md5_shifts[i >> 4][i & 3]);
    a = next;
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

void wvMD5Init(MD5_CTX* context) {
  memset(context, 0, sizeof *context);
  context->state[0] = 0x67452301u;
  context->state[1] = 0xefcdab89u;
  context->state[2] = 0x98badcfeu;
  context->state[3] = 0x10325476u;
}

void wvMD5Update(MD5_CTX* context, const void* bytes, uint32_t size) {
  const uint8_t* in = (const uint8_t*)bytes;
  uint32_t used = (context->count[0] >> 3) & 63;
  uint32_t low = context->count[0] + (size << 3);
  context->count[1] += (size >> 29) + (low < context->count[0] ? 1 : 0);
  context->count[0] = low;
  while (size > 0) {
    uint32_t part = 64 - used < size ? 64 - used : size;
    memcpy(context->buffer + used, in, part);
    used += part;
    in += part;
    size -= part;
    if (used == 64) {
      md5_transform(context->state, context->buffer);
      used = 0;
    }
  }
}

void wvMD5StoreDigest(MD5_CTX* context) {
  static const uint8_t padding[64] = {0x80};
  uint8_t length[8];
  put_le32(length, context->count[0]);
  put_le32(length + 4, context->count[1]);
  uint32_t used = (context->count[0] >> 3) & 63;
  wvMD5Update(context, padding, used < 56 ? 56 - used : 120 - used);
  wvMD5Update(context, length, sizeof length);
  for (unsigned i = 0; i < 4; i++)
    put_le32(context->digest + 4 * i, context->state[i]);
}

/* ---- RC4 ---------------------------------------------------------------- */

void prepare_key(const uint8_t* key_data, uint32_t size, encoded_key* key) {
  for (unsigned i = 0; i < 256; i++) key->state[i] = (uint8_t)i;
  key->x = 0;
  key->y = 0;
  uint8_t j = 0;
  for (unsigned i = 0; i < 256; i++) {
    j = (uint8_t)(j + key->state[i] + key_data[i % size]);
    uint8_t swap = key->state[i];
    key->state[i] = key->state[j];
    key->state[j] = swap;
  }
}

void zuvdecode(uint8_t* bytes, uint32_t size, encoded_key* key) {
  uint8_t* state = key->state;
  uint8_t x = key->x, y = key->y;
  for (uint32_t i = 0; i < size; i++) {
    x = (uint8_t)(x + 1);
    y = (uint8_t)(y + state[x]);
    uint8_t swap = state[x];
    state[x] = state[y];
    state[y] = swap;
    bytes[i] ^= state[(uint8_t)(state[x] + state[y])];
  }
  key->x = x;
  key->y = y;
}

/* ---- FILEPASS ----------------------------------------------------------- */

const unsigned short kel_encio_default_password[] = {
    'V', 'e', 'l', 'v', 'e', 't', 'S', 'w',
    'e', 'a', 't', 's', 'h', 'o', 'p', 0};

/* Body offsets of the RC4 header: wEncryptionType, major and minor version,
 * then the three 16-byte fields. */
enum {
  FILEPASS_VERSION = 4,
  FILEPASS_SALT = 6,
  FILEPASS_VERIFIER = 22,
  FILEPASS_VERIFIER_HASH = 38,
  FILEPASS_RC4_LENGTH = 54
};

uint32_t kel_xls_read_FILEPASS(const unsigned char* record,
                               filepass_t* filepass) {
  memset(filepass, 0, sizeof *filepass);
  uint16_t length = (uint16_t)(record[2] | (record[3] << 8));
  if (length < FILEPASS_RC4_LENGTH) return 0;
  const unsigned char* body = record + 4;
  filepass->version = (uint16_t)(body[FILEPASS_VERSION] |
                                 (body[FILEPASS_VERSION + 1] << 8));
  memcpy(filepass->salt, body + FILEPASS_SALT, 16);
  memcpy(filepass->encrypted_verifier, body + FILEPASS_VERIFIER, 16);
  memcpy(filepass->encrypted_verifier_hash, body + FILEPASS_VERIFIER_HASH, 16);
  return 0;
}

/* ---- Key stream --------------------------------------------------------- */

void enc_destroy_sensitive(void* buffer, uint32_t size) {
  if (size == 0) return;
  /* volatile, so that wiping a buffer about to go out of scope is not
   * optimised away as a dead store */
  volatile uint8_t* bytes = (volatile uint8_t*)buffer;
  for (uint32_t i = 0; i < size; i++) bytes[i] = 0;
  for (uint32_t i = 0; i + 1 < size; i++) bytes[i] = 0xAA;
}

void enc_makekey(uint32_t block, encoded_key* key, const MD5_CTX* digest) {
  uint8_t block_key[9];
  memcpy(block_key, digest->digest, 5);
  put_le32(block_key + 5, block);
  MD5_CTX hash;
  wvMD5Init(&hash);
  wvMD5Update(&hash, block_key, sizeof block_key);
  wvMD5StoreDigest(&hash);
  prepare_key(hash.digest, 16, key);
  enc_destroy_sensitive(block_key, sizeof block_key);
  enc_destroy_sensitive(&hash, sizeof hash);
}

void enc_skip_bytes(kel_io_enc* layer, int offset, int count) {
  /* unsigned sum: stream offsets reach beyond what an int holds */
  uint32_t position = (uint32_t)offset + (uint32_t)count;
  layer->current_block = position / KEL_ENCIO_BLOCK_SIZE;
  enc_makekey(layer->current_block, &layer->key, &layer->digest);
  zuvdecode(layer->scratch, position % KEL_ENCIO_BLOCK_SIZE, &layer->key);
}

/* Ciphers size bytes that belong at offset, in place.  Bytes below start
 * stay as they are, though the key stream is still counted from offset 0. */
static void enc_cipher(kel_io_enc* layer, uint8_t* bytes, uint32_t size,
                       uint32_t offset) {
  uint32_t plain = 0;
  if (offset < layer->start)
    plain = layer->start - offset < size ? layer->start - offset : size;
  if (plain == size) return;
  enc_skip_bytes(layer, (int)offset, (int)plain);
  bytes += plain;
  size -= plain;
  offset += plain;
  for (;;) {
    uint32_t room = KEL_ENCIO_BLOCK_SIZE - offset % KEL_ENCIO_BLOCK_SIZE;
    uint32_t part = room < size ? room : size;
    zuvdecode(bytes, part, &layer->key);
    bytes += part;
    size -= part;
    offset += part;
    if (size == 0) return;
    layer->current_block++;
    enc_makekey(layer->current_block, &layer->key, &layer->digest);
  }
}

/* ---- The layer ---------------------------------------------------------- */

uint32_t kel_encio_open_from_encio(zuv_io lower, kel_io_enc* previous,
                                   kel_io_enc** result) {
  kel_io_enc* layer = (kel_io_enc*)malloc(sizeof *layer);
  *result = layer;
  if (!layer) return KEL_ERR_OUT_OF_MEMORY;
  if (previous) {
    *layer = *previous;
  } else {
    memset(layer, 0, sizeof *layer);
    layer->current_block = KEL_ENCIO_NO_BLOCK;
  }
  layer->lower = lower;
  layer->read_stopped = 0;
  layer->write_stopped = 0;
  return 0;
}

void kel_encio_discard(kel_io_enc** layer) {
  if (!layer || !*layer) return;
  enc_destroy_sensitive(*layer, sizeof **layer);
  free(*layer);
  *layer = NULL;
}

void kel_encio_fill_io(kel_io_enc* layer, zuv_io* io) {
  io->read = kel_encio_read;
  io->write = kel_encio_write;
  io->get_size = kel_encio_get_size;
  io->change_size = kel_encio_change_size;
  io->get_base = kel_encio_get_base;
  io->context = layer;
}

uint32_t kel_encio_read(void* context, void* buffer, uint32_t size,
                        uint32_t offset, uint32_t* status) {
  kel_io_enc* layer = (kel_io_enc*)context;
  if (!layer->lower.read) {
    *status = KEL_ERR_GENERAL;
    return 0;
  }
  uint32_t done =
      layer->lower.read(layer->lower.context, buffer, size, offset, status);
  if (done == size && layer->enabled && !layer->read_stopped)
    enc_cipher(layer, (uint8_t*)buffer, size, offset);
  return done;
}

uint32_t kel_encio_write(void* context, const void* buffer, uint32_t size,
                         uint32_t offset, uint32_t* status) {
  kel_io_enc* layer = (kel_io_enc*)context;
  if (!layer->lower.write) {
    *status = KEL_ERR_GENERAL;
    return 0;
  }
  /* zuv_io declares the buffer const for the layers that only pass it on;
   * this one ciphers it where it is, which its callers allow (header). */
  if (layer->enabled && !layer->write_stopped)
    enc_cipher(layer, (uint8_t*)const_cast<void*>(buffer), size, offset);
  return layer->lower.write(layer->lower.context, buffer, size, offset, status);
}

uint32_t kel_encio_get_size(void* context) {
  kel_io_enc* layer = (kel_io_enc*)context;
  return layer->lower.get_size ? layer->lower.get_size(layer->lower.context)
                               : 0;
}

uint32_t kel_encio_change_size(void* context, uint32_t size) {
  kel_io_enc* layer = (kel_io_enc*)context;
  if (!layer->lower.change_size) return KEL_ERR_GENERAL;
  return layer->lower.change_size(layer->lower.context, size);
}

zuv_io* kel_encio_get_base(zuv_io* self, uint16_t level) {
  if (level == ZUV_IO_LEVEL_ENCRYPTION) return self;
  kel_io_enc* layer = (kel_io_enc*)self->context;
  if (!layer || !layer->lower.get_base) return NULL;
  return layer->lower.get_base(&layer->lower, level);
}

void kel_encio_stop_read_decryption(kel_io_enc* layer, bool stop) {
  layer->read_stopped = stop ? 1 : 0;
}

void kel_encio_stop_write_encryption(kel_io_enc* layer, bool stop) {
  layer->write_stopped = stop ? 1 : 0;
}

uint32_t kel_encio_set_passwd(kel_io_enc* layer, const unsigned short* password,
                              const filepass_t* filepass,
                              uint32_t filepass_offset,
                              uint16_t filepass_length) {
  uint32_t length = 0;
  while (password[length] != 0) {
    if (length == KEL_ENCIO_MAX_PASSWORD) return KEL_ERR_WRONG_PASSWORD;
    length++;
  }
  uint8_t units[2 * KEL_ENCIO_MAX_PASSWORD];
  for (uint32_t i = 0; i < length; i++) {
    units[2 * i] = (uint8_t)password[i];
    units[2 * i + 1] = (uint8_t)(password[i] >> 8);
  }

  /* [MS-OFFCRYPTO] 2.3.6.2: H0 = MD5(password), H1 = MD5(16 times the first
   * 5 bytes of H0 and the salt); H1 is the base of every block's key. */
  MD5_CTX password_digest;
  wvMD5Init(&password_digest);
  wvMD5Update(&password_digest, units, 2 * length);
  wvMD5StoreDigest(&password_digest);
  MD5_CTX base;
  wvMD5Init(&base);
  for (unsigned i = 0; i < 16; i++) {
    wvMD5Update(&base, password_digest.digest, 5);
    wvMD5Update(&base, filepass->salt, 16);
  }
  wvMD5StoreDigest(&base);

  /* 2.3.6.4: the verifier and its MD5 are enciphered one after the other
   * with the key of block 0. */
  encoded_key key;
  enc_makekey(0, &key, &base);
  uint8_t verifier[16], verifier_hash[16];
  memcpy(verifier, filepass->encrypted_verifier, 16);
  memcpy(verifier_hash, filepass->encrypted_verifier_hash, 16);
  zuvdecode(verifier, 16, &key);
  zuvdecode(verifier_hash, 16, &key);
  MD5_CTX check;
  wvMD5Init(&check);
  wvMD5Update(&check, verifier, 16);
  wvMD5StoreDigest(&check);
  bool good = memcmp(check.digest, verifier_hash, 16) == 0;

  if (good) {
    layer->digest = base;
    layer->enabled = 1;
    layer->current_block = KEL_ENCIO_NO_BLOCK;
    layer->start = filepass_offset + 4 + filepass_length;
  }
  enc_destroy_sensitive(units, sizeof units);
  enc_destroy_sensitive(&password_digest, sizeof password_digest);
  enc_destroy_sensitive(&base, sizeof base);
  enc_destroy_sensitive(&key, sizeof key);
  enc_destroy_sensitive(verifier, sizeof verifier);
  enc_destroy_sensitive(verifier_hash, sizeof verifier_hash);
  enc_destroy_sensitive(&check, sizeof check);
  return good ? 0 : KEL_ERR_WRONG_PASSWORD;
}
