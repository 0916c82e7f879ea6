/*
 * zuv_ole.cpp -- reading OLE2 compound files ([MS-CFB] version 3).
 *
 * Memory stays small whatever the file: one FAT sector and one DIFAT sector
 * are cached, the directory's chain is flattened once, and a long stream finds
 * its sectors through at most 1,022 checkpoints laid as it is read.
 */
#include "compound/zuv_ole.h"

#include <string.h>

namespace {

const uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

enum {
  kHeaderSize = 512,
  kEntriesPerSector = 128,    /* sector numbers in a FAT or mini FAT sector */
  kDifatEntries = 127,        /* FAT sector numbers in a DIFAT sector */
  kDirEntrySize = 128,
  /* The first sector whose FAT sector isn't named in the header. */
  kFirstDifatSector = OLE_HEADER_DIFAT_COUNT * kEntriesPerSector,
  /* Sectors covered by one DIFAT sector. */
  kSectorsPerDifat = kDifatEntries * kEntriesPerSector,
  /* A sector number whose offset still fits in 32 bits. */
  kMaxSectorLimit = 0xFFFFFFFFu / OLE_SECTOR_SIZE - 1,
  /* Initial and growth sizes of a storage's element table, in bytes. */
  kElementsInitialBytes = 512,
  kElementsGrowBytes = 64
};

uint32_t le32(const uint8_t* bytes) {
  return (uint32_t)bytes[0] | (uint32_t)bytes[1] << 8 |
         (uint32_t)bytes[2] << 16 | (uint32_t)bytes[3] << 24;
}

uint16_t le16(const uint8_t* bytes) {
  return (uint16_t)(bytes[0] | bytes[1] << 8);
}

void* ole_alloc(ole_file* file, uint32_t size) {
  return file->mem.mem_alloc(file->mem.ident, size);
}

void ole_free(ole_file* file, void* block) {
  if (block) file->mem.mem_free(file->mem.ident, block);
}

/* Reads size bytes at offset; a short read without a status of its own
 * counts as the end of the document. */
uint32_t ole_read_at(ole_file* file, void* buffer, uint32_t size,
                     uint32_t offset) {
  uint32_t status = 0;
  uint32_t got = file->io.read(file->io.context, buffer, size, offset, &status);
  if (got == size) return 0;
  return status ? status : KEL_ERR_END_OF_FILE;
}

bool ole_is_special(uint32_t sector) { return sector >= OLE_SECTOR_DIFAT; }

/* The status of meeting a special sector number where a chain goes on. */
uint32_t ole_special_status(uint32_t sector) {
  return sector == OLE_SECTOR_END ? KEL_ERR_OLE_CHAIN_END
                                  : KEL_ERR_OLE_BAD_CHAIN;
}

/* Reads one sector into a fresh 512-byte block.  sector is one above the
 * format's number: raw sector 0 is the header, which is read elsewhere, so 0
 * is refused here along with anything past the document. */
uint32_t ole_get_rawsect(ole_file* file, uint32_t sector, void** data) {
  *data = nullptr;
  if (sector == 0 || sector > file->sector_limit) return KEL_ERR_OLE_BAD_CHAIN;
  void* block = ole_alloc(file, OLE_SECTOR_SIZE);
  if (!block) return KEL_ERR_OUT_OF_MEMORY;
  uint32_t status = ole_read_at(file, block, OLE_SECTOR_SIZE,
                                sector * OLE_SECTOR_SIZE);
  if (status) {
    ole_free(file, block);
    return status;
  }
  *data = block;
  return 0;
}

void ole_flush_fatcache(ole_file* file) {
  ole_free(file, file->fat_cache);
  file->fat_cache = nullptr;
  file->fat_cache_ordinal = 0;
}

void ole_flush_difcache(ole_file* file) {
  ole_free(file, file->difat_cache);
  file->difat_cache = nullptr;
  file->difat_cache_sector = 0;
}

/* Brings DIFAT sector `sector` into the DIFAT cache. */
uint32_t ole_load_difsect(ole_file* file, uint32_t sector) {
  if (file->difat_cache && file->difat_cache_sector == sector) return 0;
  ole_flush_difcache(file);
  void* data;
  uint32_t status = ole_get_rawsect(file, sector + 1, &data);
  if (status) return status;
  file->difat_cache = (uint8_t*)data;
  file->difat_cache_sector = sector;
  return 0;
}

/* Replaces *sector by its successor in the FAT. */
uint32_t ole_get_nextfat(ole_file* file, uint32_t* sector) {
  uint32_t ordinal = *sector >> 7;
  if (ordinal >= file->fat_sector_count) return KEL_ERR_OLE_BAD_CHAIN;
  if (!file->fat_cache || file->fat_cache_ordinal != ordinal) {
    uint32_t fat_sector;
    if (ordinal < OLE_HEADER_DIFAT_COUNT) {
      fat_sector = file->header_difat[ordinal];
    } else {
      uint32_t rest = *sector - kFirstDifatSector;
      uint32_t difat_index = rest / kSectorsPerDifat;
      if (difat_index >= file->difat_sector_count) return KEL_ERR_OLE_BAD_CHAIN;
      uint32_t status = ole_load_difsect(file, file->difat_sectors[difat_index]);
      if (status) return status;
      fat_sector = le32(file->difat_cache +
                        4 * ((rest % kSectorsPerDifat) >> 7));
    }
    ole_flush_fatcache(file);
    void* data;
    uint32_t status = ole_get_rawsect(file, fat_sector + 1, &data);
    if (status) return status;
    file->fat_cache = (uint8_t*)data;
    file->fat_cache_ordinal = ordinal;
  }
  *sector = le32(file->fat_cache + 4 * (*sector & 127));
  return 0;
}

/* Steps count times along the chain from start.  A chain longer than the
 * document can hold has a cycle. */
uint32_t ole_walk_fat(ole_file* file, uint32_t start, uint32_t count,
                      uint32_t* sector) {
  if (count >= file->sector_limit) return KEL_ERR_OLE_BAD_CHAIN;
  uint32_t current = start;
  for (uint32_t i = 0; i < count; i++) {
    if (ole_is_special(current)) return ole_special_status(current);
    uint32_t status = ole_get_nextfat(file, &current);
    if (status) return status;
  }
  *sector = current;
  return 0;
}

/* Reads the index-th sector of the chain from start into a fresh block. */
uint32_t ole_get_logsect(ole_file* file, uint32_t start, uint32_t index,
                         void** data) {
  *data = nullptr;
  uint32_t sector;
  uint32_t status = ole_walk_fat(file, start, index, &sector);
  if (status) return status;
  if (ole_is_special(sector)) return ole_special_status(sector);
  return ole_get_rawsect(file, sector + 1, data);
}

/* Replaces the mini sector number *mini by its successor in the mini FAT. */
uint32_t ole_get_next_minifat(ole_file* file, uint32_t* mini) {
  void* data;
  uint32_t status =
      ole_get_logsect(file, file->first_minifat_sector, *mini >> 7, &data);
  if (status) return status;
  *mini = le32((const uint8_t*)data + 4 * (*mini & 127));
  ole_free(file, data);
  return 0;
}

/* Reads directory entry index.  Each read goes to the file: there is no
 * directory cache. */
uint32_t ole_read_direntry(ole_file* file, uint32_t index, ole_dir* dir) {
  if (index >> 2 >= file->dir_sector_count) return KEL_ERR_OLE_BAD_CHAIN;
  void* data;
  uint32_t status =
      ole_get_rawsect(file, file->dir_sectors[index >> 2] + 1, &data);
  if (status) return status;
  const uint8_t* entry = (const uint8_t*)data + kDirEntrySize * (index & 3);
  /* The low byte only, sign-extended: callers compare names by their ASCII
   * text. */
  for (int i = 0; i < OLE_NAME_CHARS; i++)
    dir->name[i] = (uint16_t)(int16_t)(int8_t)entry[2 * i];
  dir->name[OLE_NAME_CHARS - 1] = 0;  /* a name without its zero ends here */
  dir->type = entry[66];
  dir->colour = entry[67];
  dir->left = le32(entry + 68);
  dir->right = le32(entry + 72);
  dir->child = le32(entry + 76);
  dir->start_sector = le32(entry + 116);
  dir->size = le32(entry + 120);
  dir->index = index;
  ole_free(file, data);
  return 0;
}

uint32_t ole_add_elt(ole_storage* storage, uint32_t index) {
  ole_file* file = storage->file;
  if ((storage->element_count + 1) * 4 > storage->element_bytes) {
    uint32_t bytes = storage->element_bytes + kElementsGrowBytes;
    void* grown =
        file->mem.mem_realloc(file->mem.ident, storage->elements, bytes);
    if (!grown) return KEL_ERR_OUT_OF_MEMORY;
    storage->elements = (uint32_t*)grown;
    storage->element_bytes = bytes;
  }
  storage->elements[storage->element_count++] = index;
  return 0;
}

/* Adds the subtree under left, then the one under right, each in pre-order:
 * node, left subtree, right subtree.  The walk keeps its pending nodes in a
 * list of its own rather than on the call stack, so that a degenerate tree
 * (writers make right-leaning lists) of any depth costs no stack.  A tree of
 * more elements than the directory has entries refers back into itself. */
uint32_t ole_get_sibs(ole_storage* storage, uint32_t left, uint32_t right) {
  if (left == OLE_NO_ENTRY && right == OLE_NO_ENTRY) return 0;
  ole_file* file = storage->file;
  uint32_t entry_limit = file->dir_sector_count * 4;
  uint32_t capacity = 16;
  uint32_t* pending = (uint32_t*)ole_alloc(file, capacity * 4);
  if (!pending) return KEL_ERR_OUT_OF_MEMORY;
  uint32_t count = 0;
  if (right != OLE_NO_ENTRY) pending[count++] = right;
  if (left != OLE_NO_ENTRY) pending[count++] = left;
  uint32_t status = 0;
  while (count > 0 && !status) {
    uint32_t index = pending[--count];
    if (storage->element_count >= entry_limit) {
      status = KEL_ERR_OLE_BAD_CHAIN;
      break;
    }
    ole_dir dir;
    status = ole_add_elt(storage, index);
    if (!status) status = ole_read_direntry(file, index, &dir);
    if (status) break;
    if (count + 2 > capacity) {
      void* grown = file->mem.mem_realloc(file->mem.ident, pending,
                                          (capacity * 2) * 4);
      if (!grown) {
        status = KEL_ERR_OUT_OF_MEMORY;
        break;
      }
      pending = (uint32_t*)grown;
      capacity *= 2;
    }
    if (dir.right != OLE_NO_ENTRY) pending[count++] = dir.right;
    if (dir.left != OLE_NO_ENTRY) pending[count++] = dir.left;
  }
  ole_free(file, pending);
  return status;
}

/* Builds the storage's element list: its child, then the child's left and
 * right subtrees. */
uint32_t ole_get_elts(ole_storage* storage) {
  ole_file* file = storage->file;
  storage->elements = (uint32_t*)ole_alloc(file, kElementsInitialBytes);
  if (!storage->elements) return KEL_ERR_OUT_OF_MEMORY;
  storage->element_bytes = kElementsInitialBytes;
  storage->element_count = 0;
  ole_dir dir;
  uint32_t status = ole_read_direntry(file, storage->dir_index, &dir);
  if (!status && dir.child != OLE_NO_ENTRY) {
    uint32_t child = dir.child;
    status = ole_add_elt(storage, child);
    if (!status) status = ole_read_direntry(file, child, &dir);
    if (!status) status = ole_get_sibs(storage, dir.left, dir.right);
  }
  if (status) {
    ole_free(file, storage->elements);
    storage->elements = nullptr;
    storage->element_bytes = 0;
    storage->element_count = 0;
  }
  return status;
}

/* The sector of the stream's sector_index-th sector, by way of the
 * checkpoints, laying new ones as the walk passes into steps without one. */
uint32_t ole_stream_lookup_fat(ole_file* file, ole_stream* stream,
                               uint32_t sector_index, uint32_t* sector) {
  if (sector_index >= file->sector_limit) return KEL_ERR_OLE_BAD_CHAIN;
  uint32_t step = stream->u.chain.checkpoint_step;
  uint32_t k = sector_index / step;
  if (k > stream->u.chain.checkpoint_count) k = stream->u.chain.checkpoint_count;
  uint32_t current = k == 0 ? stream->start_sector
                            : stream->u.chain.checkpoints[k - 1];
  uint32_t index = k * step;
  while (index < sector_index) {
    if (ole_is_special(current)) return ole_special_status(current);
    uint32_t status = ole_get_nextfat(file, &current);
    if (status) return status;
    index++;
    uint32_t count = stream->u.chain.checkpoint_count;
    if (index % step == 0 && index / step == count + 1 &&
        count < OLE_CHECKPOINTS && !ole_is_special(current))
      stream->u.chain.checkpoints[stream->u.chain.checkpoint_count++] = current;
  }
  *sector = current;
  return 0;
}

/* Reads a small stream whole from the mini stream, in 64-byte pieces. */
uint32_t ole_read_mini_stream(ole_file* file, ole_stream* stream) {
  uint32_t piece = stream->start_sector;
  uint32_t mini_index = OLE_NO_ENTRY;  /* index in the mini stream's chain */
  uint32_t sector = 0;                 /* and its sector */
  for (uint32_t done = 0; done < stream->size;) {
    if (ole_is_special(piece)) return ole_special_status(piece);
    if (piece >> 3 != mini_index) {
      uint32_t status =
          ole_walk_fat(file, file->mini_stream_start, piece >> 3, &sector);
      if (status) return status;
      if (ole_is_special(sector)) return ole_special_status(sector);
      if (sector >= file->sector_limit) return KEL_ERR_OLE_BAD_CHAIN;
      mini_index = piece >> 3;
    }
    uint32_t want = stream->size - done;
    if (want > OLE_MINI_SECTOR_SIZE) want = OLE_MINI_SECTOR_SIZE;
    uint32_t status = ole_read_at(
        file, stream->u.content + done, want,
        (sector + 1) * OLE_SECTOR_SIZE + OLE_MINI_SECTOR_SIZE * (piece & 7));
    if (status) return status;
    done += want;
    if (done < stream->size) {
      status = ole_get_next_minifat(file, &piece);
      if (status) return status;
    }
  }
  return 0;
}

void ole_free_file(ole_file* file) {
  ole_flush_fatcache(file);
  ole_flush_difcache(file);
  ole_free(file, file->dir_sectors);
  file->mem.mem_free(file->mem.ident, file);
}

/* Reads the header, the DIFAT chain and the directory's chain. */
uint32_t ole_read_structure(ole_file* file) {
  uint8_t header[kHeaderSize];
  uint32_t status = ole_read_at(file, header, sizeof kSignature, 0);
  if (status) return status;
  if (memcmp(header, kSignature, sizeof kSignature) != 0)
    return KEL_ERR_OLE_BAD_CHAIN;
  status = ole_read_at(file, header, kHeaderSize, 0);
  if (status) return status;
  /* Version and byte order are not checked, nor the sector shift. */
  file->sector_shift = le16(header + 30);
  file->mini_sector_shift = le16(header + 32);
  file->fat_sector_count = le32(header + 44);
  file->first_dir_sector = le32(header + 48);
  file->mini_stream_cutoff = le32(header + 56);
  file->first_minifat_sector = le32(header + 60);
  file->minifat_sector_count = le32(header + 64);
  file->first_difat_sector = le32(header + 68);
  file->difat_sector_count = le32(header + 72);
  for (int i = 0; i < OLE_HEADER_DIFAT_COUNT; i++)
    file->header_difat[i] = le32(header + 76 + 4 * i);
  if (file->difat_sector_count > OLE_MAX_DIFAT_SECTORS)
    return KEL_ERR_OLE_BAD_HEADER;

  uint32_t sector = file->first_difat_sector;
  for (uint32_t i = 0; i < file->difat_sector_count; i++) {
    file->difat_sectors[i] = sector;
    status = ole_load_difsect(file, sector);
    if (status) return status;
    sector = le32(file->difat_cache + 4 * kDifatEntries);
  }

  /* Twice along the directory's chain: to count, then to note. */
  uint32_t count = 0;
  for (sector = file->first_dir_sector; sector != OLE_SECTOR_END; count++) {
    if (count >= file->sector_limit) return KEL_ERR_OLE_BAD_CHAIN;
    status = ole_get_nextfat(file, &sector);
    if (status) return status;
  }
  if (count == 0) return KEL_ERR_OLE_BAD_CHAIN;
  file->dir_sectors = (uint32_t*)ole_alloc(file, count * 4);
  if (!file->dir_sectors) return KEL_ERR_OUT_OF_MEMORY;
  sector = file->first_dir_sector;
  for (uint32_t i = 0; i < count; i++) {
    file->dir_sectors[i] = sector;
    status = ole_get_nextfat(file, &sector);
    if (status) return status;
  }
  file->dir_sector_count = count;

  ole_dir root;
  status = ole_read_direntry(file, 0, &root);
  if (status) return status;
  file->mini_stream_start = root.start_sector;
  file->mini_stream_size = root.size;
  return 0;
}

}  // namespace

uint32_t ole_open(const ole_open_params* params, ole_file** file_out,
                  ole_storage** root_out) {
  if (!params || !file_out || !root_out || !params->io.read ||
      !params->mem.mem_alloc || !params->mem.mem_free ||
      !params->mem.mem_realloc)
    return KEL_ERR_INVALID_ARGUMENT;
  *file_out = nullptr;
  *root_out = nullptr;
  if (params->create) return KEL_ERR_UNSUPPORTED;

  ole_file* file = (ole_file*)params->mem.mem_alloc(params->mem.ident,
                                                    sizeof(ole_file));
  if (!file) return KEL_ERR_OUT_OF_MEMORY;
  memset(file, 0, sizeof *file);
  file->io = params->io;
  file->mem = params->mem;
  file->create = params->create;
  file->sector_limit = kMaxSectorLimit;
  if (file->io.get_size) {
    uint32_t limit = file->io.get_size(file->io.context) / OLE_SECTOR_SIZE + 1;
    if (limit < file->sector_limit) file->sector_limit = limit;
  }

  ole_storage* root = (ole_storage*)ole_alloc(file, sizeof(ole_storage));
  uint32_t status = root ? ole_read_structure(file) : KEL_ERR_OUT_OF_MEMORY;
  if (status) {
    ole_free(file, root);
    ole_free_file(file);
    return status;
  }
  memset(root, 0, sizeof *root);
  root->file = file;
  *file_out = file;
  *root_out = root;
  return 0;
}

void ole_close(ole_file* file) {
  if (file) ole_free_file(file);
}

void ole_close_storage(ole_storage* storage) {
  if (!storage) return;
  ole_file* file = storage->file;
  ole_free(file, storage->elements);
  ole_free(file, storage);
}

void ole_close_stream(ole_stream* stream) {
  if (stream) ole_free(stream->file, stream);
}

uint32_t ole_get_dir(ole_storage* storage, uint32_t index, ole_dir* dir) {
  if (!storage || !dir) return KEL_ERR_INVALID_ARGUMENT;
  if (!storage->elements) {
    uint32_t status = ole_get_elts(storage);
    if (status) return status;
  }
  if (index >= storage->element_count) return KEL_ERR_OLE_NO_ENTRY;
  return ole_read_direntry(storage->file, storage->elements[index], dir);
}

uint32_t ole_open_stream(ole_storage* storage, const ole_dir* dir,
                         ole_stream** stream_out) {
  if (!storage || !dir) return KEL_ERR_INVALID_ARGUMENT;
  if (dir->type != OLE_TYPE_STREAM) return KEL_ERR_OLE_NOT_STREAM;
  if (!stream_out) return KEL_ERR_INVALID_ARGUMENT;
  *stream_out = nullptr;
  ole_file* file = storage->file;
  ole_stream* stream = (ole_stream*)ole_alloc(file, sizeof(ole_stream));
  if (!stream) return KEL_ERR_OUT_OF_MEMORY;
  memset(stream, 0, sizeof *stream);
  stream->file = file;
  stream->size = dir->size;
  stream->start_sector = dir->start_sector;
  stream->dir_index = dir->index;
  if (stream->size < OLE_SMALL_STREAM_LIMIT) {
    uint32_t status = ole_read_mini_stream(file, stream);
    if (status) {
      ole_free(file, stream);
      return status;
    }
  } else {
    stream->u.chain.cursor_sector = stream->start_sector;
    stream->u.chain.checkpoint_step =
        ((stream->size >> 9) + (OLE_CHECKPOINTS - 1)) / OLE_CHECKPOINTS;
  }
  *stream_out = stream;
  return 0;
}

uint32_t ole_read_stream(void* context, void* buffer, uint32_t size,
                         uint32_t offset, uint32_t* status_out) {
  ole_stream* stream = (ole_stream*)context;
  if (size == 0) return 0;
  bool in_memory = stream->size < OLE_SMALL_STREAM_LIMIT;
  if (offset != stream->position) {
    /* The cursor stays valid within a 256-byte granule. */
    if (!in_memory && ((offset ^ stream->position) & ~0xFFu))
      stream->u.chain.cursor_sector = 0;
    stream->position = offset;
  }
  if (offset >= stream->size) {
    *status_out = KEL_ERR_END_OF_FILE;
    return 0;
  }
  if (size > stream->size - offset) size = stream->size - offset;

  /* The file's mini stream cutoff (4,096 in every valid file) isn't trusted
   * here: what decides is whether open read the stream into memory. */
  if (in_memory) {
    memcpy(buffer, stream->u.content + offset, size);
    stream->position += size;
    return size;
  }

  ole_file* file = stream->file;
  uint32_t status = 0;
  uint32_t done = 0;
  uint32_t sector = stream->u.chain.cursor_sector;
  if (sector == 0)
    status = ole_stream_lookup_fat(file, stream, offset >> 9, &sector);
  stream->u.chain.cursor_sector = 0;
  uint8_t* out = (uint8_t*)buffer;
  while (!status && done < size) {
    if (ole_is_special(sector)) {
      status = ole_special_status(sector);
      break;
    }
    /* Neither a sector number nor a stream's sector count can pass what the
     * document holds; a chain that seems to has a cycle. */
    if (sector >= file->sector_limit ||
        stream->position >> 9 >= file->sector_limit) {
      status = KEL_ERR_OLE_BAD_CHAIN;
      break;
    }
    /* One run of consecutive sectors, read in one call. */
    uint32_t in_sector = stream->position & (OLE_SECTOR_SIZE - 1);
    uint32_t first = sector;
    uint32_t last = sector;
    uint32_t run = OLE_SECTOR_SIZE - in_sector;
    if (run > size - done) run = size - done;
    uint32_t next = last;
    while (run < size - done) {
      status = ole_get_nextfat(file, &next);
      if (status || next != last + 1 || next >= file->sector_limit) break;
      last = next;
      uint32_t left = size - done - run;
      run += left < OLE_SECTOR_SIZE ? left : (uint32_t)OLE_SECTOR_SIZE;
    }
    uint32_t read_status = 0;
    uint32_t got = file->io.read(file->io.context, out + done, run,
                                 (first + 1) * OLE_SECTOR_SIZE + in_sector,
                                 &read_status);
    if (got > run) got = run;
    done += got;
    stream->position += got;
    if (got < run) {
      status = read_status ? read_status : KEL_ERR_END_OF_FILE;
      break;
    }
    if (status) break;
    if (stream->position & (OLE_SECTOR_SIZE - 1)) {
      /* Done, inside a sector: the next sequential read goes on from it. */
      stream->u.chain.cursor_sector = last;
      break;
    }
    /* The run ended on a sector boundary for want of a consecutive sector:
     * the next run begins at the one the FAT named. */
    sector = next;
  }
  if (done < size) *status_out = status ? status : KEL_ERR_END_OF_FILE;
  return done;
}

uint32_t ole_get_stream_size(const ole_stream* stream) {
  return stream ? stream->size : 0;
}
