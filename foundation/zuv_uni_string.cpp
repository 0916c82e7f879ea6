/*
 * zuv_uni_string.cpp -- UTF-16 text, UTF-8 conversion, numbers and text, the
 * small-string holder and the string builders.
 */
#include "foundation/zuv_uni_string.h"

#include <ctype.h>
#include <locale.h>
#include <math.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <wctype.h>

namespace {

const unsigned short k_empty_text[1] = {0};

const unsigned short k_blank = 0x20;
const unsigned short k_replacement = 0xFFFD;
const unsigned k_builder_max_units = 0xFFFF;

bool is_digit(unsigned short character) {
  return character >= '0' && character <= '9';
}

/* Units before the end of text, looking at no more than count of them. */
unsigned bounded_len(const unsigned short* text, unsigned count) {
  unsigned length = 0;
  while (length < count && text[length]) ++length;
  return length;
}

}  // namespace

/* ---- Length and copy --------------------------------------------------- */

unsigned ucs2_len(const unsigned short* text) {
  const unsigned short* end = text;
  while (*end) ++end;
  return (unsigned)(end - text);
}

unsigned short* ucs2_cpy(unsigned short* destination, const unsigned short* text) {
  unsigned short* out = destination;
  while ((*out++ = *text++) != 0) {
  }
  return destination;
}

unsigned short* ucs2_cat(unsigned short* destination, const unsigned short* text) {
  ucs2_cpy(destination + ucs2_len(destination), text);
  return destination;
}

unsigned short* ucs2_ncat(unsigned short* destination, const unsigned short* text,
                          unsigned count) {
  unsigned short* out = destination + ucs2_len(destination);
  for (; count && *text; --count) *out++ = *text++;
  *out = 0;
  return destination;
}

const unsigned short* ucs2_n_chr(const unsigned short* text, unsigned count,
                                 unsigned short character) {
  for (; count && *text; --count, ++text) {
    if (*text == character) return text;
  }
  return nullptr;
}

/* ---- Comparison -------------------------------------------------------- */

int ucs2_ncmp(const unsigned short* first, const unsigned short* second,
              unsigned count) {
  if (!first) first = k_empty_text;
  if (!second) second = k_empty_text;
  for (; count; --count, ++first, ++second) {
    if (*first != *second || !*first) return (int)*first - (int)*second;
  }
  return 0;
}

int ucs2_cmp(const unsigned short* first, const unsigned short* second) {
  return ucs2_ncmp(first, second, ~0u);
}

int ucs2_ncmpi(const unsigned short* first, const unsigned short* second,
               unsigned count) {
  if (!count) return 0;
  if (!first) return second && *second ? 1 : 0;
  if (!second) return *first ? -1 : 0;
  for (; count; --count, ++first, ++second) {
    int upper_first = (int)towupper(*first);
    int upper_second = (int)towupper(*second);
    if (upper_first != upper_second || !*first) return upper_second - upper_first;
  }
  return 0;
}

int ucs2_cmpi(const unsigned short* first, const unsigned short* second) {
  return ucs2_ncmpi(first, second, ~0u);
}

/* ---- Case -------------------------------------------------------------- */

unsigned short ucs2_tolower(unsigned short character) {
  return character <= 0xFF ? (unsigned short)tolower(character) : character;
}

unsigned short ucs2_toupper(unsigned short character) {
  return character <= 0xFF ? (unsigned short)toupper(character) : character;
}

/* ---- Heap copies ------------------------------------------------------- */

unsigned short* ucs2_dupl(const unsigned short* text, unsigned length) {
  if (!text || length >= 0x7FFFFFFFu) return nullptr;
  unsigned short* copy = (unsigned short*)malloc(((size_t)length + 1) * sizeof *copy);
  if (!copy) return nullptr;
  memcpy(copy, text, (size_t)length * sizeof *copy);
  copy[length] = 0;
  return copy;
}

unsigned short* ucs2_dup(const unsigned short* text) {
  return text ? ucs2_dupl(text, ucs2_len(text)) : nullptr;
}

unsigned short* ucs2_ndup(const unsigned short* text, unsigned count) {
  return text ? ucs2_dupl(text, bounded_len(text, count)) : nullptr;
}

uint32_t ucs2_rdup(unsigned short** slot, const unsigned short* text) {
  unsigned short* copy = nullptr;
  if (text) {
    copy = ucs2_dup(text);
    if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  }
  free(*slot);
  *slot = copy;
  return 0;
}

char* ndup(const char* text, unsigned count) {
  if (!text) return nullptr;
  size_t length = strnlen(text, count);
  char* copy = (char*)malloc(length + 1);
  if (!copy) return nullptr;
  memcpy(copy, text, length);
  copy[length] = 0;
  return copy;
}

char* dup(const char* text) {
  return ndup(text, ~0u);
}

zuv_str8_t* str8_new(unsigned length) {
  if (length > 0xFFFFFFF0u - offsetof(zuv_str8_t, text)) return nullptr;
  zuv_str8_t* string = (zuv_str8_t*)malloc(offsetof(zuv_str8_t, text) + length + 1);
  if (!string) return nullptr;
  string->use_count = 1;
  /* Through a pointer: the characters run past the declared array. */
  char* characters = string->text;
  characters[0] = 0;
  characters[length] = 0;
  return string;
}

zuv_str8_t* str8_ndup(const char* text, unsigned count) {
  if (!text) return nullptr;
  size_t length = strnlen(text, count);
  zuv_str8_t* string = str8_new((unsigned)length);
  if (string) memcpy(string->text, text, length);
  return string;
}

zuv_str8_t* str8_dup(const char* text) {
  return str8_ndup(text, ~0u);
}

void str8_unuse(zuv_str8_t** string) {
  if (!*string) return;
  if (--(*string)->use_count == 0) {
    free(*string);
    *string = nullptr;
  }
}

/* ---- UTF-8 <-> UTF-16 -------------------------------------------------- */

namespace {

/* Decodes one character from at most available (>= 1) bytes; returns the
 * bytes used.  The allowed range of the second byte excludes overlong forms
 * and encoded surrogates; a zero byte is never a continuation, so a
 * terminated text is never read past its end. */
unsigned decode_utf8_bounded(const unsigned char* in, unsigned available,
                             unsigned short* character) {
  unsigned lead = in[0];
  if (lead < 0x80) {
    *character = (unsigned short)lead;
    return 1;
  }
  unsigned continuations;
  unsigned low = 0x80, high = 0xBF;
  uint32_t code;
  if (lead >= 0xC2 && lead <= 0xDF) {
    continuations = 1;
    code = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    continuations = 2;
    code = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    continuations = 3;
    code = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    *character = k_replacement;
    return 1;
  }
  unsigned used = 1;
  for (; used <= continuations && used < available; ++used) {
    unsigned byte = in[used];
    if (byte < low || byte > high) break;
    code = (code << 6) | (byte & 0x3F);
    low = 0x80;
    high = 0xBF;
  }
  bool complete = used == continuations + 1;
  *character = complete && code <= 0xFFFF ? (unsigned short)code : k_replacement;
  return used;
}

/* Bytes of the UTF-8 form of at most count units of text. */
size_t utf8_size(const unsigned short* text, unsigned count) {
  size_t size = 0;
  for (; count && *text; --count, ++text) {
    size += *text < 0x80 ? 1 : *text < 0x800 ? 2 : 3;
  }
  return size;
}

/* Characters in a terminated UTF-8 text. */
unsigned utf8_char_count(const char* utf8) {
  return utf8_byte_to_char(utf8, ~0u);
}

}  // namespace

unsigned encode_utf8_char(char* out, unsigned short character) {
  if (character < 0x80) {
    out[0] = (char)character;
    return 1;
  }
  if (character < 0x800) {
    out[0] = (char)(0xC0 | (character >> 6));
    out[1] = (char)(0x80 | (character & 0x3F));
    return 2;
  }
  if (character >= 0xD800 && character <= 0xDFFF) character = k_replacement;
  out[0] = (char)(0xE0 | (character >> 12));
  out[1] = (char)(0x80 | ((character >> 6) & 0x3F));
  out[2] = (char)(0x80 | (character & 0x3F));
  return 3;
}

unsigned decode_utf8_char(const char* utf8, unsigned short* character) {
  if (!*utf8) {
    *character = 0;
    return 0;
  }
  return decode_utf8_bounded((const unsigned char*)utf8, 4, character);
}

unsigned get_utf8_char_size(const char* utf8) {
  unsigned short ignored;
  return decode_utf8_char(utf8, &ignored);
}

unsigned utf8n_to_ucs2(unsigned short* out, const char* utf8,
                       unsigned byte_count) {
  const unsigned char* in = (const unsigned char*)utf8;
  unsigned position = 0, units = 0;
  while (position < byte_count && in[position]) {
    position += decode_utf8_bounded(in + position, byte_count - position, out + units);
    ++units;
  }
  out[units] = 0;
  return units;
}

unsigned utf8_to_ucs2(unsigned short* out, const char* utf8) {
  return utf8n_to_ucs2(out, utf8, ~0u);
}

unsigned ucs2n_to_utf8(char* out, const unsigned short* text, unsigned count) {
  unsigned size = 0;
  for (; count && *text; --count, ++text) size += encode_utf8_char(out + size, *text);
  out[size] = 0;
  return size;
}

unsigned ucs2_to_utf8(char* out, const unsigned short* text) {
  return ucs2n_to_utf8(out, text, ~0u);
}

unsigned utf8_byte_to_char(const char* utf8, unsigned byte_offset) {
  const unsigned char* in = (const unsigned char*)utf8;
  unsigned short ignored;
  unsigned position = 0, characters = 0;
  while (position < byte_offset && in[position]) {
    position += decode_utf8_bounded(in + position, 4, &ignored);
    ++characters;
  }
  return characters;
}

unsigned utf8_char_to_byte(const char* utf8, unsigned char_index) {
  const unsigned char* in = (const unsigned char*)utf8;
  unsigned short ignored;
  unsigned position = 0;
  for (; char_index && in[position]; --char_index) {
    position += decode_utf8_bounded(in + position, 4, &ignored);
  }
  return position;
}

unsigned short* dup2ucs2(const char* utf8) {
  if (!utf8) return nullptr;
  unsigned units = utf8_char_count(utf8);
  unsigned short* text = (unsigned short*)malloc(((size_t)units + 1) * sizeof *text);
  if (text) utf8_to_ucs2(text, utf8);
  return text;
}

char* dup2utf8(const unsigned short* text) {
  if (!text) return nullptr;
  char* utf8 = (char*)malloc(utf8_size(text, ~0u) + 1);
  if (utf8) ucs2_to_utf8(utf8, text);
  return utf8;
}

/* ---- Numbers from text ------------------------------------------------- */

uint32_t ucs2_tol(const unsigned short* text, const unsigned short** end,
                  long* value) {
  if (!text) return KEL_ERR_GENERAL;
  const unsigned short* p = text;
  while (*p == k_blank) ++p;
  bool negative = *p == '-';
  if (*p == '+' || *p == '-') ++p;
  /* The magnitude is tested before each digit is added, so it never leaves
   * 32 bits: 214748364 takes a last digit up to 7, or 8 when negative. */
  const uint32_t limit = 214748364u;
  const unsigned last_digit = negative ? 8 : 7;
  uint32_t magnitude = 0;
  for (; is_digit(*p); ++p) {
    unsigned digit = *p - '0';
    if (magnitude > limit || (magnitude == limit && digit > last_digit)) {
      if (end) *end = p;
      return KEL_ERR_GENERAL;
    }
    magnitude = magnitude * 10 + digit;
  }
  if (end) *end = p;
  /* -2147483648 can't be negated as a long of 32 bits: go through - 1. */
  *value = negative && magnitude ? -(long)(magnitude - 1) - 1 : (long)magnitude;
  return 0;
}

uint32_t ucs2_tog(const unsigned short* text, const unsigned short** end,
                  double* value, bool comma_decimal) {
  if (!text) return KEL_ERR_GENERAL;
  *value = 0;
  if (end) *end = text;
  const unsigned short decimal_mark = comma_decimal ? ',' : '.';
  const unsigned short* start = text;
  while (*start == k_blank) ++start;

  const unsigned short* p = start;
  if (*p == '+' || *p == '-') ++p;
  bool any_digit = false;
  for (; is_digit(*p); ++p) any_digit = true;
  if (*p == decimal_mark) {
    for (++p; is_digit(*p); ++p) any_digit = true;
  }
  if (!any_digit) return KEL_ERR_GENERAL;
  if (*p == 'e' || *p == 'E') {
    const unsigned short* exponent = p + 1;
    if (*exponent == '+' || *exponent == '-') ++exponent;
    if (is_digit(*exponent)) {
      while (is_digit(*exponent)) ++exponent;
      p = exponent;
    }
  }

  /* strtod reads the decimal point of the process locale, which the engine
   * sets from the environment; the number is handed over in that form. */
  const char* locale_point = localeconv()->decimal_point;
  if (!locale_point || !*locale_point) locale_point = ".";
  size_t point_size = strlen(locale_point);
  zuv_stack_str_t scratch;
  if (zuv_stack_create(&scratch, (unsigned)((size_t)(p - start) + point_size), true)) {
    return KEL_ERR_OUT_OF_MEMORY;
  }
  char* narrow = zuv_stack_utf8(&scratch);
  size_t size = 0;
  for (const unsigned short* q = start; q < p; ++q) {
    if (*q == decimal_mark) {
      memcpy(narrow + size, locale_point, point_size);
      size += point_size;
    } else {
      narrow[size++] = (char)*q;
    }
  }
  narrow[size] = 0;
  char* stop = nullptr;
  double result = strtod(narrow, &stop);
  bool whole = stop == narrow + size;
  zuv_stack_free(&scratch);
  if (!whole || isinf(result)) return KEL_ERR_GENERAL;
  *value = result;
  if (end) *end = p;
  return 0;
}

bool ucs2_is_number(const unsigned short* text, bool comma_decimal) {
  if (!text) return false;
  const unsigned short decimal_mark = comma_decimal ? ',' : '.';
  const unsigned short* p = text;
  while (*p == k_blank) ++p;
  if (*p != '+' && *p != '-' && !is_digit(*p)) return false;
  for (++p; is_digit(*p) || *p == decimal_mark || *p == 'e' || *p == 'E'; ++p) {
  }
  while (*p == k_blank) ++p;
  return *p == 0;
}

uint32_t zuv_strtoul(const char* text, const char** end, int base) {
  if (end) *end = text;
  if (base < 2 || base > 36) return 0;
  const char* p = text;
  while (*p == ' ' || *p == '\t') ++p;
  if (*p == '+') ++p;
  if (base == 16 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && isxdigit((unsigned char)p[2])) {
    p += 2;
  }
  const uint32_t maximum = 0xFFFFFFFFu;
  uint32_t value = 0;
  bool any_digit = false;
  for (;; ++p) {
    unsigned digit;
    if (*p >= '0' && *p <= '9') digit = (unsigned)(*p - '0');
    else if (*p >= 'a' && *p <= 'z') digit = (unsigned)(*p - 'a') + 10;
    else if (*p >= 'A' && *p <= 'Z') digit = (unsigned)(*p - 'A') + 10;
    else break;
    if (digit >= (unsigned)base) break;
    any_digit = true;
    value = value > (maximum - digit) / (unsigned)base ? maximum : value * (unsigned)base + digit;
  }
  if (!any_digit) return 0;
  if (end) *end = p;
  return value;
}

/* ---- Numbers to text --------------------------------------------------- */

unsigned uni_printf_uint32(unsigned short* buffer, uint32_t value) {
  unsigned short reversed[10];
  unsigned count = 0;
  do {
    reversed[count++] = (unsigned short)('0' + value % 10);
    value /= 10;
  } while (value);
  for (unsigned i = 0; i < count; ++i) buffer[i] = reversed[count - 1 - i];
  buffer[count] = 0;
  return count;
}

unsigned zuv_printf_int32(unsigned short* buffer, int32_t value) {
  if (value >= 0) return uni_printf_uint32(buffer, (uint32_t)value);
  buffer[0] = '-';
  return 1 + uni_printf_uint32(buffer + 1, 0u - (uint32_t)value);
}

unsigned zuv_printf_int64(unsigned short* buffer, int64_t value) {
  unsigned short reversed[19];
  unsigned count = 0;
  /* The loop of digits runs while the value is positive: a negative one
   * gives its first remainder alone, as '0' plus a negative digit. */
  do {
    reversed[count++] = (unsigned short)('0' + (int)(value % 10));
    value /= 10;
  } while (value > 0);
  for (unsigned i = 0; i < count; ++i) buffer[i] = reversed[count - 1 - i];
  buffer[count] = 0;
  return count;
}

unsigned uni_printf_tm(unsigned short* buffer, unsigned size, const char* format,
                       const struct tm* time) {
  if (!size) return 0;
  buffer[0] = 0;
  zuv_stack_str_t scratch;
  if (zuv_stack_create(&scratch, size - 1, true)) return 0;
  char* narrow = zuv_stack_utf8(&scratch);
  size_t bytes = strftime(narrow, size, format, time);
  /* Names of days and months come in the locale's encoding, UTF-8 on the
   * device; the text has no more units than bytes. */
  unsigned units = bytes ? utf8n_to_ucs2(buffer, narrow, (unsigned)bytes) : 0;
  zuv_stack_free(&scratch);
  return units;
}

int ucs2_sprintf(unsigned short* buffer, int size, const char* format, ...) {
  if (size < 1) return -1;
  zuv_stack_str_t scratch;
  if (zuv_stack_create(&scratch, (unsigned)size - 1, true)) return -1;
  char* narrow = zuv_stack_utf8(&scratch);
  va_list arguments;
  va_start(arguments, format);
  int result = vsnprintf(narrow, (size_t)size, format, arguments);
  va_end(arguments);
  int i = 0;
  if (result >= 0) {
    for (; narrow[i]; ++i) buffer[i] = (unsigned char)narrow[i];
  }
  buffer[i] = 0;
  zuv_stack_free(&scratch);
  return result;
}

/* ---- Hash -------------------------------------------------------------- */

uint32_t ucs2_hash(const unsigned short* text, unsigned length) {
  uint32_t hash = 5381;
  for (unsigned i = 0; i < length; ++i) hash = (hash * 33) ^ text[i];
  return hash;
}

/* ---- Quoted text ------------------------------------------------------- */

const unsigned short* ucs2_cpy_unescape(unsigned short** result,
                                        const unsigned short* text) {
  if (result) *result = nullptr;
  if (!text || !text[0]) return nullptr;
  const unsigned short delimiter = text[0];
  /* One pass finds the delimiter and the length, the second copies. */
  const unsigned short* p = text + 1;
  unsigned length = 0;
  for (; *p != delimiter; ++p, ++length) {
    if (*p == '\\') ++p;
    if (!*p) return nullptr;
  }
  const unsigned short* behind = p + 1;
  if (!result) return behind;
  unsigned short* copy = (unsigned short*)malloc(((size_t)length + 1) * sizeof *copy);
  if (!copy) return nullptr;
  unsigned short* out = copy;
  for (p = text + 1; *p != delimiter; ++p) {
    if (*p == '\\') ++p;
    *out++ = *p;
  }
  *out = 0;
  *result = copy;
  return behind;
}

/* ---- Small-string holder ----------------------------------------------- */

namespace {

bool holder_on_heap(const zuv_stack_str_t* holder) {
  return holder->is_utf8 ? holder->length >= ZUV_STACK_STR_BYTES
                         : holder->length >= ZUV_STACK_STR_BYTES / 2;
}

}  // namespace

void zuv_stack_init(zuv_stack_str_t* holder) {
  holder->is_utf8 = 1;
  holder->length = 0;
  holder->storage.utf8[0] = 0;
}

uint32_t zuv_stack_create(zuv_stack_str_t* holder, unsigned length, bool utf8) {
  holder->is_utf8 = utf8 ? 1 : 0;
  holder->length = length;
  if (holder_on_heap(holder)) {
    size_t unit = utf8 ? 1 : sizeof(unsigned short);
    void* block = length < 0x7FFFFFFFu ? malloc(((size_t)length + 1) * unit) : nullptr;
    if (!block) {
      zuv_stack_init(holder);
      return KEL_ERR_OUT_OF_MEMORY;
    }
    holder->storage.heap = block;
  }
  if (utf8) {
    char* text = zuv_stack_utf8(holder);
    text[0] = 0;
    text[length] = 0;
  } else {
    unsigned short* text = zuv_stack_ucs2(holder);
    text[0] = 0;
    text[length] = 0;
  }
  return 0;
}

uint32_t zuv_stack_create_from_utf8(zuv_stack_str_t* holder, const char* text,
                                    bool utf8) {
  if (!text) return zuv_stack_create(holder, 0, utf8);
  unsigned length = utf8 ? (unsigned)strlen(text) : utf8_char_count(text);
  uint32_t status = zuv_stack_create(holder, length, utf8);
  if (status) return status;
  if (utf8) memcpy(zuv_stack_utf8(holder), text, (size_t)length + 1);
  else utf8_to_ucs2(zuv_stack_ucs2(holder), text);
  return 0;
}

uint32_t zuv_stack_create_from_ucs2(zuv_stack_str_t* holder,
                                    const unsigned short* text, bool utf8) {
  if (!text) return zuv_stack_create(holder, 0, utf8);
  unsigned length = utf8 ? (unsigned)utf8_size(text, ~0u) : ucs2_len(text);
  uint32_t status = zuv_stack_create(holder, length, utf8);
  if (status) return status;
  if (utf8) ucs2_to_utf8(zuv_stack_utf8(holder), text);
  else memcpy(zuv_stack_ucs2(holder), text, ((size_t)length + 1) * sizeof *text);
  return 0;
}

void zuv_stack_free(zuv_stack_str_t* holder) {
  if (holder_on_heap(holder)) free(holder->storage.heap);
  zuv_stack_init(holder);
}

char* zuv_stack_utf8(zuv_stack_str_t* holder) {
  return holder_on_heap(holder) ? (char*)holder->storage.heap : holder->storage.utf8;
}

unsigned short* zuv_stack_ucs2(zuv_stack_str_t* holder) {
  return holder_on_heap(holder) ? (unsigned short*)holder->storage.heap
                                : holder->storage.ucs2;
}

/* ---- Byte builder ------------------------------------------------------ */

uint32_t sb_reserve_min(string_builder_t* builder, uint32_t count) {
  if (count <= builder->capacity - builder->length) return 0;
  uint32_t growth = count > 1024 ? count : 1024;
  if (growth > 0xFFFFFFFFu - builder->capacity) return KEL_ERR_OUT_OF_MEMORY;
  char* grown = (char*)realloc(builder->buffer, builder->capacity + growth);
  if (!grown) return KEL_ERR_OUT_OF_MEMORY;
  builder->buffer = grown;
  builder->capacity += growth;
  return 0;
}

uint32_t sb_add(string_builder_t* builder, const char* bytes, uint32_t count) {
  if (!count) return 0;
  uint32_t status = sb_reserve_min(builder, count);
  if (status) return status;
  memcpy(builder->buffer + builder->length, bytes, count);
  builder->length += count;
  return 0;
}

uint32_t sb_add(string_builder_t* builder, const char* text) {
  return text ? sb_add(builder, text, (uint32_t)strlen(text)) : 0;
}

uint32_t sb_add(string_builder_t* builder, char byte) {
  return sb_add(builder, &byte, 1);
}

/* ---- UTF-16 builder ---------------------------------------------------- */

void ucs2_str_builder_init(ucs2_str_builder* builder) {
  builder->buffer = nullptr;
  builder->length = 0;
  builder->capacity = 0;
}

void ucs2_str_builder_destroy(ucs2_str_builder* builder) {
  free(builder->buffer);
  ucs2_str_builder_init(builder);
}

const unsigned short* ucs2_str_builder_str(const ucs2_str_builder* builder) {
  return builder->buffer ? builder->buffer : k_empty_text;
}

uint32_t ucs2_str_builder_reserve_min(ucs2_str_builder* builder, unsigned count) {
  /* capacity never falls below length; subtracting can't wrap. */
  if (count < (unsigned)(builder->capacity - builder->length)) return 0;
  if (count > k_builder_max_units - builder->length) return KEL_ERR_GENERAL;
  uint32_t capacity = (uint32_t)builder->length + (count < 512 ? 512 : count);
  if (capacity > k_builder_max_units) capacity = k_builder_max_units;
  unsigned short* grown =
      (unsigned short*)realloc(builder->buffer, capacity * sizeof *grown);
  if (!grown) return KEL_ERR_OUT_OF_MEMORY;
  grown[builder->length] = 0;
  builder->buffer = grown;
  builder->capacity = (uint16_t)capacity;
  return 0;
}

uint32_t ucs2_str_builder_append_n(ucs2_str_builder* builder,
                                   const unsigned short* text, unsigned count) {
  unsigned length = bounded_len(text, count);
  if (length >= k_builder_max_units) return KEL_ERR_GENERAL;
  uint32_t status = ucs2_str_builder_reserve_min(builder, length + 1);
  if (status) return status;
  memcpy(builder->buffer + builder->length, text, (size_t)length * sizeof *text);
  builder->length = (uint16_t)(builder->length + length);
  builder->buffer[builder->length] = 0;
  return 0;
}

uint32_t ucs2_str_builder_append(ucs2_str_builder* builder,
                                 const unsigned short* text) {
  return ucs2_str_builder_append_n(builder, text, ~0u);
}

uint32_t ucs2_str_builder_append_int(ucs2_str_builder* builder, int32_t value) {
  unsigned short digits[12];
  unsigned length = zuv_printf_int32(digits, value);
  return ucs2_str_builder_append_n(builder, digits, length);
}

namespace {

/* One unit, keeping room for the terminator. */
uint32_t builder_put(ucs2_str_builder* builder, unsigned short unit) {
  uint32_t status = ucs2_str_builder_reserve_min(builder, 2);
  if (status) return status;
  builder->buffer[builder->length++] = unit;
  return 0;
}

}  // namespace

uint32_t ucs2_str_builder_append_escaped(ucs2_str_builder* builder,
                                         const unsigned short* text,
                                         unsigned short quote) {
  unsigned length = 0, apostrophes = 0;
  for (const unsigned short* p = text; *p; ++p, ++length) {
    if (*p == '\'') ++apostrophes;
  }
  if (length >= k_builder_max_units) return KEL_ERR_GENERAL;
  uint32_t status = ucs2_str_builder_reserve_min(builder, length + 1 + apostrophes);
  if (status) return status;
  /* The reservation doesn't count the quotes and the backslashes; each unit
   * makes its own room, so they can't overrun the buffer. */
  const uint16_t original_length = builder->length;
  status = builder_put(builder, quote);
  for (const unsigned short* p = text; *p && !status; ++p) {
    if (*p == '\\' || *p == '"') status = builder_put(builder, '\\');
    else if (*p == '\'') status = builder_put(builder, '\'');
    if (!status) status = builder_put(builder, *p);
  }
  if (!status) status = builder_put(builder, quote);
  if (status) builder->length = original_length;
  builder->buffer[builder->length] = 0;
  return status;
}
