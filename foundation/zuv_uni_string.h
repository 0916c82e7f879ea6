/*
 * zuv_uni_string.h -- the engine's text: zero-terminated UTF-16 strings, their
 * conversion to and from UTF-8, numbers to and from text, the small-string
 * holder, a shared narrow string and two string builders.
 *
 * Text is UTF-16 in the basic plane only: one 16-bit unit is one character,
 * and surrogates are not paired.  UTF-8 is met at the file system, in the
 * fonts and in XML.  Units are unsigned short, 16 bits on every target.
 *
 * Pointers must not be null unless a function says so.  Heap results come
 * from malloc and are released with free; statuses are those of kel_status.h
 * (0 is success).
 */
#ifndef ZUV_UNI_STRING_H
#define ZUV_UNI_STRING_H

#include <stdint.h>

#include "kel_status.h"

struct tm;

/* ---- Length and copy --------------------------------------------------- */

unsigned ucs2_len(const unsigned short* text);
/* These return destination. */
unsigned short* ucs2_cpy(unsigned short* destination, const unsigned short* text);
unsigned short* ucs2_cat(unsigned short* destination, const unsigned short* text);
/* Appends at most count units of text, stopping at its end, and terminates. */
unsigned short* ucs2_ncat(unsigned short* destination, const unsigned short* text,
                          unsigned count);
/* The first unit equal to character among the first count units of text,
 * stopping at its end; null if there is none. */
const unsigned short* ucs2_n_chr(const unsigned short* text, unsigned count,
                                 unsigned short character);

/* ---- Comparison -------------------------------------------------------- */

/* Code-unit order: the difference of the first differing units, first minus
 * second.  A null text counts as an empty one. */
int ucs2_cmp(const unsigned short* first, const unsigned short* second);
int ucs2_ncmp(const unsigned short* first, const unsigned short* second,
              unsigned count);

/* Without case: both sides go through the C library's towupper, and the
 * result is the difference of the upper-cased units SECOND MINUS FIRST -- the
 * opposite sign of ucs2_cmp; callers that order by it rely on this.  A null
 * text equals an empty one: a null first side gives 1 against a non-empty
 * second, a null second side -1 against a non-empty first. */
int ucs2_cmpi(const unsigned short* first, const unsigned short* second);
int ucs2_ncmpi(const unsigned short* first, const unsigned short* second,
               unsigned count);

/* ---- Case of one unit -------------------------------------------------- */

/* The C library's narrow tolower and toupper in the current locale; units
 * above 0xFF come back unchanged. */
unsigned short ucs2_tolower(unsigned short character);
unsigned short ucs2_toupper(unsigned short character);

/* ---- Heap copies: null on failure of the allocation, and for a null text --- */

unsigned short* ucs2_dup(const unsigned short* text);
/* Exactly length units of text, which need not be terminated, plus a zero. */
unsigned short* ucs2_dupl(const unsigned short* text, unsigned length);
/* At most count units of text, stopping at its end. */
unsigned short* ucs2_ndup(const unsigned short* text, unsigned count);
/* Replaces the string in *slot by a copy of text (null when text is null) and
 * frees the old one.  On KEL_ERR_OUT_OF_MEMORY *slot is left as it was. */
uint32_t ucs2_rdup(unsigned short** slot, const unsigned short* text);
/* Narrow copies; ndup takes at most count bytes. */
char* dup(const char* text);
char* ndup(const char* text, unsigned count);
/* A UTF-16 copy of UTF-8 text, and a UTF-8 copy of UTF-16 text, each
 * allocated to its exact size. */
unsigned short* dup2ucs2(const char* utf8);
char* dup2utf8(const unsigned short* text);

/* A narrow string shared by counting: parts of a package name each other by
 * such strings.  Whoever keeps another reference raises use_count; everyone
 * lets go with str8_unuse. */
struct zuv_str8_t {
  uint32_t use_count;
  char text[1]; /* the characters, zero-terminated; allocated to length */
};
/* Room for length characters, use count 1, an empty text. */
zuv_str8_t* str8_new(unsigned length);
zuv_str8_t* str8_dup(const char* text);
zuv_str8_t* str8_ndup(const char* text, unsigned count);
/* Lowers the use count; at 0 frees the string and sets *string to null.
 * A null *string is accepted. */
void str8_unuse(zuv_str8_t** string);

/* ---- UTF-8 <-> UTF-16 --------------------------------------------------
 *
 * UTF-8 is read strictly.  A sequence that isn't well formed gives U+FFFD for
 * its longest valid beginning (at least one byte), so the next character
 * starts at the first byte that did not fit; a four-byte sequence, beyond
 * the basic plane, gives one U+FFFD.  Decoding never passes a zero byte or
 * the given byte count.  Writing UTF-8, a surrogate unit becomes U+FFFD, so
 * the output is always well formed.
 *
 * Buffers are sized by the caller: UTF-16 output needs one unit per input
 * byte plus one; UTF-8 output three bytes per unit plus one (callers
 * usually allocate four per unit plus one).  The results are terminated, and
 * the returned counts leave the terminator out. */

unsigned utf8_to_ucs2(unsigned short* out, const char* utf8);
/* At most byte_count bytes of utf8, stopping at a zero byte. */
unsigned utf8n_to_ucs2(unsigned short* out, const char* utf8,
                       unsigned byte_count);
unsigned ucs2_to_utf8(char* out, const unsigned short* text);
/* At most count units of text, stopping at its end. */
unsigned ucs2n_to_utf8(char* out, const unsigned short* text, unsigned count);
/* Writes the 1 to 3 bytes of one character, not terminated; returns their
 * number. */
unsigned encode_utf8_char(char* out, unsigned short character);
/* Reads the character at utf8; returns the bytes it takes (1 to 4), or 0 at
 * the terminating zero, which gives character 0. */
unsigned decode_utf8_char(const char* utf8, unsigned short* character);
/* The count that decode_utf8_char would return. */
unsigned get_utf8_char_size(const char* utf8);
/* The number of characters that begin before byte_offset, and the byte
 * offset at which character char_index begins; both stop at the end of the
 * text. */
unsigned utf8_byte_to_char(const char* utf8, unsigned byte_offset);
unsigned utf8_char_to_byte(const char* utf8, unsigned char_index);

/* ---- Numbers from text ------------------------------------------------- */

/* A 32-bit integer: skips blanks (0x20 only), takes one sign, then digits.
 * No digit at all gives 0 and status 0, so a lone sign is read as 0.
 * KEL_ERR_GENERAL for a null text or a value outside the 32-bit range, and
 * then *value isn't written.  *end, if end isn't null, is where reading
 * stopped. */
uint32_t ucs2_tol(const unsigned short* text, const unsigned short** end,
                  long* value);
/* A double: skips blanks (0x20 only), then an optional sign, digits with at
 * most one decimal mark (',' with comma_decimal, else '.'), and an exponent
 * of 'e' or 'E', an optional sign and digits (taken only if digits follow).
 * Independent of the process locale; no "inf", "nan" or hexadecimal.
 * KEL_ERR_GENERAL for a null text, no digit, or a value too large for a
 * double; then *value is 0 and *end is text.  *end, if end isn't null, is
 * where reading stopped. */
uint32_t ucs2_tog(const unsigned short* text, const unsigned short** end,
                  double* value, bool comma_decimal);
/* A quick test, not a parser: after blanks, the first character must be
 * '+', '-' or a digit; then digits, the decimal mark (',' with
 * comma_decimal, else '.'), 'e' and 'E' in any order; after them only
 * blanks.  So "1e2e3", "1.2.3", "+" and "-" all pass.  False for null. */
bool ucs2_is_number(const unsigned short* text, bool comma_decimal);
/* A narrow unsigned number in base 2 to 36 (base 16 allows a leading "0x"),
 * after blanks and tabs and an optional '+'.  Saturates at 0xFFFFFFFF.  No
 * digit gives 0 with *end at text.  end may be null. */
uint32_t zuv_strtoul(const char* text, const char** end, int base);

/* ---- Numbers to text: each writes a terminated text and returns its length */

/* Decimal digits; the buffer holds 11 units. */
unsigned uni_printf_uint32(unsigned short* buffer, uint32_t value);
/* With '-' for negatives; the buffer holds 12 units. */
unsigned zuv_printf_int32(unsigned short* buffer, int32_t value);
/* For a non-negative value; the buffer holds 20 units.  A negative value
 * isn't expected: it gives one single character, '0' plus the (negative)
 * remainder of the value by 10 -- number formatting depends on exactly
 * this. */
unsigned zuv_printf_int64(unsigned short* buffer, int64_t value);
/* strftime of time into a buffer of size units, its bytes read as UTF-8
 * (names of days and months come in the locale's encoding); 0 and an empty
 * text when the result doesn't fit in size - 1 bytes or scratch memory runs
 * out. */
unsigned uni_printf_tm(unsigned short* buffer, unsigned size, const char* format,
                       const struct tm* time);
/* vsnprintf into a narrow scratch buffer of size bytes, widened byte by
 * byte into buffer (size units).  Returns what vsnprintf returns, so a result
 * of size or more means the text was cut; -1 when size is below 1 or the
 * scratch allocation fails. */
int ucs2_sprintf(unsigned short* buffer, int size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/* ---- Hash -------------------------------------------------------------- */

/* From 5381, hash = hash * 33 XOR unit over exactly length units (a zero
 * doesn't stop it); unsigned 32-bit arithmetic. */
uint32_t ucs2_hash(const unsigned short* text, unsigned length);

/* ---- Quoted text -------------------------------------------------------- */

/* text[0] is the closing delimiter.  Copies what follows up to that
 * delimiter into a new heap string in *result, a backslash making the next
 * character literal, and returns the position behind the delimiter.  With
 * result null the text is only stepped over.  Null, with *result null, when
 * the text ends before the delimiter or the allocation fails. */
const unsigned short* ucs2_cpy_unescape(unsigned short** result,
                                        const unsigned short* text);

/* ---- Small-string holder -----------------------------------------------
 *
 * A local of this type is scratch text that usually costs no allocation:
 * the 256 bytes of storage hold UTF-16 strings shorter than 128 units and
 * UTF-8 strings shorter than 256 bytes; a longer one is allocated and its
 * pointer kept in the first word of storage.  Whether it is allocated
 * follows from kind and length, so neither changes until the holder is
 * freed.  Both accessors view the same storage. */

#define ZUV_STACK_STR_BYTES 256

struct zuv_stack_str_t {
  uint8_t is_utf8; /* 1: UTF-8 bytes, 0: UTF-16 units */
  unsigned length; /* in units of its kind, without the terminator */
  union {
    char utf8[ZUV_STACK_STR_BYTES];
    unsigned short ucs2[ZUV_STACK_STR_BYTES / 2];
    void* heap;
  } storage;
};

/* An empty UTF-8 holder; zuv_stack_free on it does nothing. */
void zuv_stack_init(zuv_stack_str_t* holder);
/* Room for length units of the kind plus a terminator; the text is empty.
 * The holder's earlier contents aren't looked at: free an allocated holder
 * first.  On KEL_ERR_OUT_OF_MEMORY the holder is left empty, as by init. */
uint32_t zuv_stack_create(zuv_stack_str_t* holder, unsigned length, bool utf8);
/* A holder of the kind utf8 asks for, with text copied or converted;
 * length is that of the result.  A null text gives an empty holder. */
uint32_t zuv_stack_create_from_utf8(zuv_stack_str_t* holder, const char* text,
                                    bool utf8);
uint32_t zuv_stack_create_from_ucs2(zuv_stack_str_t* holder,
                                    const unsigned short* text, bool utf8);
/* Frees an allocated string and leaves an empty UTF-8 holder. */
void zuv_stack_free(zuv_stack_str_t* holder);
char* zuv_stack_utf8(zuv_stack_str_t* holder);
unsigned short* zuv_stack_ucs2(zuv_stack_str_t* holder);

/* ---- Byte builder --------------------------------------------------------
 *
 * Collects output such as XML.  Starts zero-filled; the owner frees buffer.
 * The bytes are not terminated. */
struct string_builder_t {
  char* buffer;
  uint32_t capacity;
  uint32_t length;
};

/* Makes room for count more bytes; when it must grow, capacity grows by
 * count or 1,024, whichever is greater.  On failure nothing changes. */
uint32_t sb_reserve_min(string_builder_t* builder, uint32_t count);
/* Appends a zero-terminated text (null appends nothing), one byte, or count
 * bytes. */
uint32_t sb_add(string_builder_t* builder, const char* text);
uint32_t sb_add(string_builder_t* builder, char byte);
uint32_t sb_add(string_builder_t* builder, const char* bytes, uint32_t count);

/* ---- UTF-16 builder ------------------------------------------------------
 *
 * Text kept terminated.  Length and capacity are 16 bits: the text can't pass
 * 65,534 units, and a request beyond that fails with KEL_ERR_GENERAL rather
 * than letting the fields wrap.  On any failure the text stays as it was. */
struct ucs2_str_builder {
  unsigned short* buffer;
  uint16_t length;
  uint16_t capacity;
};

void ucs2_str_builder_init(ucs2_str_builder* builder);
void ucs2_str_builder_destroy(ucs2_str_builder* builder);
/* The text; an empty one for a builder that has never grown. */
const unsigned short* ucs2_str_builder_str(const ucs2_str_builder* builder);
/* Nothing if length + count is below capacity; else capacity becomes length
 * + count, or length + 512 if count is below 512.  Callers count the
 * terminator in count. */
uint32_t ucs2_str_builder_reserve_min(ucs2_str_builder* builder, unsigned count);
uint32_t ucs2_str_builder_append(ucs2_str_builder* builder,
                                 const unsigned short* text);
/* At most count units of text, stopping at its end. */
uint32_t ucs2_str_builder_append_n(ucs2_str_builder* builder,
                                   const unsigned short* text, unsigned count);
/* Decimal, with '-' for negatives. */
uint32_t ucs2_str_builder_append_int(ucs2_str_builder* builder, int32_t value);
/* Writes quote, text, quote.  Inside, a backslash or a double quote gets a
 * backslash in front and an apostrophe is written twice.  Room is reserved
 * for the text, a terminator and one more unit per apostrophe; the quotes
 * and backslashes beyond that grow the builder as they are written. */
uint32_t ucs2_str_builder_append_escaped(ucs2_str_builder* builder,
                                         const unsigned short* text,
                                         unsigned short quote);

#endif /* ZUV_UNI_STRING_H */
