#include "compound/kel_io_stack.h"

#include <stdlib.h>

#include "compound/kel_encio.h"
#include "compound/zuv_ole.h"
#include "foundation/zuv_iocache.h"
#include "foundation/zuv_iodiff.h"
#include "foundation/zuv_memio.h"
#include "workbook/kel_xls_records.h"

static uint32_t ole_stream_size(void* stream) {
  return ole_get_stream_size(static_cast<const ole_stream*>(stream));
}

/* The top of a stack: the overlay's interface, in its own allocation. */
static uint32_t make_top(const xls_pool* pool, const zuv_io* base, zuv_io** result) {
  zuv_io* top = static_cast<zuv_io*>(malloc(sizeof(zuv_io)));
  if (!top) return KEL_ERR_OUT_OF_MEMORY;
  iod_open_params params = {*base, pool->scratch, pool->mem};
  io_diff* diff = nullptr;
  uint32_t status = iod_open(&params, &diff);
  if (status) {
    free(top);
    return status;
  }
  top->read = iod_read;
  top->write = iod_write;
  top->get_size = iod_get_size;
  top->change_size = iod_change_size;
  top->get_base = iod_get_base;
  top->context = diff;
  *result = top;
  return 0;
}

uint32_t kel_io_stack_create(const xls_pool* pool, zuv_io** result) {
  *result = nullptr;
  zuv_io nothing = {};
  return make_top(pool, &nothing, result);
}

uint32_t kel_io_stack_open(const xls_pool* pool, ole_stream* stream,
                           uint32_t size_hint, zuv_io* previous,
                           zuv_io** result) {
  *result = nullptr;
  kel_io_enc* previous_encryption = previous ? kel_io_stack_io_enc(previous) : nullptr;

  // A fifth of the free memory, in the device's 32-bit arithmetic (which
  // wraps above some 205 MB free: a small system never sees that), and no
  // more than the stream needs.
  uint32_t budget = pool->mem.available() * 20u / 100u;
  if (budget > size_hint + 32767u) budget = size_hint + 32767u;
  ioc_open_params cache_params;
  cache_params.lower.read = ole_read_stream;
  cache_params.lower.write = nullptr;
  cache_params.lower.get_size = ole_stream_size;
  cache_params.lower.change_size = nullptr;
  cache_params.lower.get_base = nullptr;
  cache_params.lower.context = stream;
  cache_params.mem = pool->mem;
  cache_params.block_count = budget < IOC_BLOCK_SIZE ? 1 : budget >> IOC_BLOCK_SHIFT;
  io_cache* cache = nullptr;
  uint32_t status = ioc_open(&cache_params, &cache);
  if (status) return status;

  zuv_io cache_io = {ioc_read, ioc_write, ioc_get_size, ioc_change_size,
                     ioc_get_base, cache};
  kel_io_enc* encryption = nullptr;
  status = kel_encio_open_from_encio(cache_io, previous_encryption, &encryption);
  if (status) {
    ioc_discard(&cache);
    return status;
  }
  zuv_io encryption_io;
  kel_encio_fill_io(encryption, &encryption_io);
  status = make_top(pool, &encryption_io, result);
  if (status) {
    kel_encio_discard(&encryption);
    ioc_discard(&cache);
  }
  return status;
}

void kel_io_stack_discard(zuv_io** stack) {
  if (!stack || !*stack) return;
  zuv_io* top = *stack;
  kel_io_enc* encryption = kel_io_stack_io_enc(top);
  io_cache* cache = kel_io_stack_io_cache(top);
  kel_encio_discard(&encryption);
  ioc_discard(&cache);
  io_diff* diff = static_cast<io_diff*>(top->context);
  iod_discard(&diff);
  free(top);
  *stack = nullptr;
}

static void* layer(zuv_io* stack, uint16_t level) {
  if (!stack || !stack->get_base) return nullptr;
  zuv_io* found = stack->get_base(stack, level);
  return found ? found->context : nullptr;
}

io_cache* kel_io_stack_io_cache(zuv_io* stack) {
  return static_cast<io_cache*>(layer(stack, ZUV_IO_LEVEL_CACHE));
}

kel_io_enc* kel_io_stack_io_enc(zuv_io* stack) {
  return static_cast<kel_io_enc*>(layer(stack, ZUV_IO_LEVEL_ENCRYPTION));
}

void kel_io_stop_decryption(zuv_io* stack, bool stop) {
  kel_io_enc* encryption = kel_io_stack_io_enc(stack);
  if (encryption) kel_encio_stop_read_decryption(encryption, stop);
}

uint32_t kel_read_header(zuv_io* stack, uint32_t offset, uint16_t* id,
                         uint16_t* length) {
  uint16_t record_id = 0, record_length = 0;
  kel_io_stop_decryption(stack, true);
  uint32_t status = io_read_le16x2(stack, offset, &record_id, &record_length);
  kel_io_stop_decryption(stack, false);
  if (status) return status;
  if (id) *id = record_id;
  if (length) *length = record_length;
  return 0;
}

uint32_t kel_read_record(zuv_io* stack, uint32_t offset, unsigned char* buffer,
                         uint16_t length) {
  uint16_t id = 0, own_length = 0;
  uint32_t status = kel_read_header(stack, offset, &id, &own_length);
  if (status) return status;
  if (length == 0xFFFF) length = own_length;
  if (length > XLS_MAX_RECORD_BODY) return KEL_ERR_GENERAL;
  buffer[0] = static_cast<unsigned char>(id);
  buffer[1] = static_cast<unsigned char>(id >> 8);
  buffer[2] = static_cast<unsigned char>(own_length);
  buffer[3] = static_cast<unsigned char>(own_length >> 8);
  if (length == 0) return 0;
  uint32_t got = stack->read(stack->context, buffer + 4, length, offset + 4, &status);
  if (got < length) return status ? status : KEL_ERR_END_OF_FILE;
  return 0;
}

uint32_t kel_write_record(zuv_io* encryption, uint32_t offset,
                          unsigned char* buffer) {
  kel_io_enc* layer = static_cast<kel_io_enc*>(encryption->context);
  uint16_t length = static_cast<uint16_t>(buffer[2] | buffer[3] << 8);
  uint32_t status = 0;
  kel_encio_stop_write_encryption(layer, true);
  uint32_t put = encryption->write(encryption->context, buffer, 4, offset, &status);
  kel_encio_stop_write_encryption(layer, false);
  if (put < 4) return status ? status : KEL_ERR_GENERAL;
  if (length == 0) return 0;
  put = encryption->write(encryption->context, buffer + 4, length, offset + 4, &status);
  if (put < length) return status ? status : KEL_ERR_GENERAL;
  return 0;
}
