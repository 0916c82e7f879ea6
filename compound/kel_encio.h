/*
 * kel_encio.h -- the encryption layer of a workbook stream: a zuv_io that
 * deciphers what it reads and enciphers what it writes, by the Office Binary
 * Document RC4 Encryption of [MS-OFFCRYPTO] 2.3.6 that a BIFF8 workbook with
 * a FILEPASS record uses, and the MD5 (RFC 1321) and RC4 it is made of.
 *
 * The scheme keys every 1,024-byte block of the stream on its own, counting
 * from offset 0 of the stream, so any byte can be reached without reading
 * what comes before it: a read costs one MD5, one RC4 set-up and at most
 * 1,023 bytes of key stream.  Offsets below the end of FILEPASS are plain.
 * Behind it some bytes are plain as well ([MS-XLS] 2.2.10): every record
 * header, the stream position in BOUNDSHEET, and the bodies of a few records
 * such as BOF and INTERFACEHDR.  The readers and writers of those stop the
 * layer around them; the key stream is counted by absolute offset all the
 * same.
 *
 * In a stream stack the layer sits under the overlay and over the block
 * cache.  Its object begins with a copy of the cache's zuv_io, so the object
 * may stand for that interface.  Layer objects come from malloc and go back
 * with kel_encio_discard, which wipes the key material first.
 *
 * Statuses are those of kel_status.h, 0 for success.  A stream operation
 * stores a status only on failure.  Nothing here is re-entrant: one call at
 * a time per layer.
 */
#ifndef KEL_ENCIO_H
#define KEL_ENCIO_H

#include <stdint.h>

#include "foundation/zuv_io.h"

/* ---- MD5, RFC 1321 ------------------------------------------------------ */

struct MD5_CTX {
  uint32_t state[4];  /* the chaining value A, B, C, D */
  uint32_t count[2];  /* message length in bits, low word first */
  uint8_t buffer[64]; /* the block being filled */
  uint8_t digest[16]; /* written by wvMD5StoreDigest */
};

void wvMD5Init(MD5_CTX* context);
void wvMD5Update(MD5_CTX* context, const void* bytes, uint32_t size);
/* Ends the message with the RFC 1321 padding (0x80, zeros, the length in
 * bits at byte 56 of the last block) and stores the digest in
 * context->digest.  The context then holds a spent message: start again
 * with wvMD5Init. */
void wvMD5StoreDigest(MD5_CTX* context);

/* ---- RC4 ---------------------------------------------------------------- */

/* An RC4 state: the permutation and the two indexes. */
struct encoded_key {
  uint8_t state[256];
  uint8_t x;
  uint8_t y;
};

/* Sets key up from size bytes of key_data; size must not be 0. */
void prepare_key(const uint8_t* key_data, uint32_t size, encoded_key* key);
/* XORs size bytes with the key stream, in place.  RC4 being symmetric, this
 * enciphers as well as it deciphers. */
void zuvdecode(uint8_t* bytes, uint32_t size, encoded_key* key);

/* ---- FILEPASS ----------------------------------------------------------- */

/* What the RC4 header of FILEPASS holds. */
struct filepass_t {
  uint16_t version; /* 1 for this scheme, 2 for the CryptoAPI one; 0 if the
                       record is too short to be either */
  uint8_t salt[16];
  uint8_t encrypted_verifier[16];
  uint8_t encrypted_verifier_hash[16];
};

/* Reads FILEPASS from a record buffer as the workbook reader holds records:
 * id and length (16 bits each, little-endian) at 0, the body from 4.
 * version is the 16 bits at body offset 4 (the RC4 header's minor version),
 * the salt and the two verifier fields follow it.  Only the bytes that the
 * record's length covers are read; a record shorter than the 54 bytes of the
 * RC4 form (XOR obfuscation has 6) leaves every field 0, which callers treat
 * as an encryption they don't know.  Status always 0. */
uint32_t kel_xls_read_FILEPASS(const unsigned char* record,
                               filepass_t* filepass);

/* ---- The layer ---------------------------------------------------------- */

#define KEL_ENCIO_BLOCK_SIZE 1024u
/* current_block while no key is made */
#define KEL_ENCIO_NO_BLOCK 0xFFFFFFFFu
/* The longest password of the scheme, in UTF-16 units ([MS-OFFCRYPTO]
 * 2.3.6.2: 255 unless the format says otherwise). */
#define KEL_ENCIO_MAX_PASSWORD 255u

/* The password that the format gives to workbooks protected without one the
 * user must type; the workbook reader tries it when it was given none, so
 * such files open without asking.  UTF-16, terminated. */
extern const unsigned short kel_encio_default_password[];

struct kel_io_enc {
  zuv_io lower;           /* the layer below (the block cache); first */
  int enabled;            /* 1 once a good password was given */
  uint8_t read_stopped;   /* reads and writes pass as they are while set */
  uint8_t write_stopped;
  uint32_t current_block; /* the 1,024-byte block key is made for */
  encoded_key key;        /* RC4 state within current_block */
  MD5_CTX digest;         /* digest.digest: the password and salt digest */
  uint8_t scratch[KEL_ENCIO_BLOCK_SIZE]; /* absorbs key stream when skipping */
  uint32_t start;         /* first enciphered offset: behind FILEPASS */
};

/* Makes a layer over lower.  Without previous it starts disabled and passes
 * every byte as it is until kel_encio_set_passwd.  With previous (the layer
 * of a workbook's old stream) it takes over its key, current block, digest,
 * scratch and start, so that a new stream of the same workbook ciphers as
 * the old one; the stop flags start cleared.  *result is null on failure
 * (KEL_ERR_OUT_OF_MEMORY). */
uint32_t kel_encio_open_from_encio(zuv_io lower, kel_io_enc* previous,
                                   kel_io_enc** result);
/* Wipes and frees the layer, and nulls the pointer.  Safe on a null. */
void kel_encio_discard(kel_io_enc** layer);

/* Fills io with the kel_encio_ stream functions and the layer as context:
 * the interface through which the stack above reaches the layer. */
void kel_encio_fill_io(kel_io_enc* layer, zuv_io* io);

/* The zuv_io operations; context is the kel_io_enc.
 *
 * A read goes to the layer below and then deciphers, in the caller's buffer,
 * the bytes at offsets from start on, unless the layer is disabled or reads
 * are stopped.  A short read returns its count and status with nothing
 * deciphered.
 *
 * A write enciphers the caller's buffer IN PLACE by the same rule and then
 * writes it: afterwards the buffer holds the enciphered bytes, so it must be
 * writable and callers don't reuse its contents.
 *
 * Read and write without a slot below give KEL_ERR_GENERAL; get_size without
 * one answers 0, change_size gives KEL_ERR_GENERAL. */
uint32_t kel_encio_read(void* context, void* buffer, uint32_t size,
                        uint32_t offset, uint32_t* status);
uint32_t kel_encio_write(void* context, const void* buffer, uint32_t size,
                         uint32_t offset, uint32_t* status);
uint32_t kel_encio_get_size(void* context);
uint32_t kel_encio_change_size(void* context, uint32_t size);
/* self is the interface through which the layer was reached.  Answers self
 * for ZUV_IO_LEVEL_ENCRYPTION, otherwise asks the layer below through the
 * copy of its interface that the layer holds; null if that has no get_base
 * or self has no context. */
zuv_io* kel_encio_get_base(zuv_io* self, uint16_t level);

/* Separate switches, since a save reads and writes at once.  Every stop is
 * followed by a restart around the bytes that must pass as they are. */
void kel_encio_stop_read_decryption(kel_io_enc* layer, bool stop);
void kel_encio_stop_write_encryption(kel_io_enc* layer, bool stop);

/* Derives the key from password (UTF-16, terminated) and the FILEPASS salt,
 * and checks it against the FILEPASS verifier.  A good password enables the
 * layer, with start = filepass_offset + 4 + filepass_length (the first byte
 * behind the record).  A wrong one, or one longer than
 * KEL_ENCIO_MAX_PASSWORD units, gives KEL_ERR_WRONG_PASSWORD and leaves the
 * layer as it was.  Whether version is 1 is the caller's to check first. */
uint32_t kel_encio_set_passwd(kel_io_enc* layer, const unsigned short* password,
                              const filepass_t* filepass,
                              uint32_t filepass_offset,
                              uint16_t filepass_length);

/* ---- Key stream --------------------------------------------------------- */

/* Sets key up for a 1,024-byte block: the first 16 bytes of
 * MD5(5 bytes of digest->digest, block as 4 bytes little-endian). */
void enc_makekey(uint32_t block, encoded_key* key, const MD5_CTX* digest);
/* Makes the key stand at absolute position offset + count: the key of that
 * position's block, then the bytes of that block before it run into
 * scratch. */
void enc_skip_bytes(kel_io_enc* layer, int offset, int count);
/* Overwrites size bytes of key material so that no copy of it stays in
 * memory: zeros, then 0xAA over all but the last byte.  Size 0 does
 * nothing. */
void enc_destroy_sensitive(void* buffer, uint32_t size);

#endif /* KEL_ENCIO_H */
