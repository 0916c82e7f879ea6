/*
 * zuv_ole.h -- reading OLE2 compound files: the storages and streams of
 * Microsoft's Compound File Binary format [MS-CFB], version 3 (512-byte
 * sectors, 64-byte mini sectors).
 *
 * A workbook of the BIFF8 kind is a stream in such a file.  The reader is
 * made for devices with little memory: it never holds the allocation table
 * (FAT) in memory, only one sector of it and one sector of its index (the
 * DIFAT), plus the flattened list of directory sectors.  An open stream is one
 * block of fixed size whatever its length: a stream below 4,096 bytes is read
 * whole into it at open (its sectors lie scattered in the mini stream); a
 * larger one keeps there a thin table of checkpoints into its sector chain.
 *
 * Sector numbers are those of the format (sector 0 lies behind the 512-byte
 * header).  Version 4 files (4,096-byte sectors) are not read: the sector
 * sizes of the header are stored but the code is fixed on 512 and 64.
 *
 * Bad input gives a status and never a crash or an endless loop: every chain
 * walk is bounded by the number of sectors the document can hold, and every
 * sector number and directory index that comes from the file is checked
 * before use.
 *
 * Statuses are those of kel_status.h; 0 is success.
 *   KEL_ERR_OLE_BAD_CHAIN    bad signature, or a chain that leaves the FAT,
 *                            meets a free or special sector, or loops
 *   KEL_ERR_OLE_CHAIN_END    a chain ended before the position wanted
 *   KEL_ERR_OLE_BAD_HEADER   more DIFAT sectors than the reader can hold
 *   KEL_ERR_OLE_NOT_STREAM   the entry handed to ole_open_stream is no stream
 *   KEL_ERR_OLE_NO_ENTRY     an element index at or past the end
 *   KEL_ERR_OUT_OF_MEMORY, KEL_ERR_INVALID_ARGUMENT, KEL_ERR_END_OF_FILE, and
 *   whatever the document stream reports for its own failures.
 *
 * Objects: ole_open gives an ole_file and its root ole_storage; streams are
 * opened from a storage.  Each is freed by its own close call, which accepts
 * null.  A stream must be closed before its file; the storage too.
 *
 * Not re-entrant: the caches live in the ole_file, so calls on one file must
 * not overlap.
 */
#ifndef ZUV_OLE_H
#define ZUV_OLE_H

#include <stdint.h>

#include "foundation/zuv_io.h"

enum {
  OLE_SECTOR_SIZE = 512,
  OLE_MINI_SECTOR_SIZE = 64,
  /* FAT sector numbers held in the header; the rest is in DIFAT sectors. */
  OLE_HEADER_DIFAT_COUNT = 109,
  /* DIFAT sectors the reader can hold: 250 * 127 + 109 FAT sectors cover
   * 2 GB of sectors. */
  OLE_MAX_DIFAT_SECTORS = 250,
  /* Streams below this size are held whole in memory. */
  OLE_SMALL_STREAM_LIMIT = 4096,
  OLE_NAME_CHARS = 32
};

/* Special sector numbers of the format. */
enum {
  OLE_SECTOR_DIFAT = 0xFFFFFFFCu,  /* a sector of the DIFAT */
  OLE_SECTOR_FAT = 0xFFFFFFFDu,    /* a sector of the FAT */
  OLE_SECTOR_END = 0xFFFFFFFEu,    /* end of a chain */
  OLE_SECTOR_FREE = 0xFFFFFFFFu,   /* unused; also "no entry" in the tree */
  OLE_NO_ENTRY = 0xFFFFFFFFu
};

/* Directory entry types ([MS-CFB] 2.6.1). */
enum {
  OLE_TYPE_STORAGE = 1,
  OLE_TYPE_STREAM = 2,
  OLE_TYPE_ROOT = 5
};

struct ole_open_params {
  zuv_io io;    /* the document */
  zuv_mem mem;  /* every allocation of the reader */
  int create;   /* write a new empty file first; not supported yet */
};

/* An open compound file.  The fields are the reader's own. */
struct ole_file {
  zuv_io io;
  zuv_mem mem;
  int create;
  /* From the header. */
  uint32_t fat_sector_count;
  uint32_t first_dir_sector;
  uint32_t first_minifat_sector;
  uint32_t mini_stream_cutoff;
  uint32_t minifat_sector_count;
  uint32_t first_difat_sector;
  uint32_t difat_sector_count;
  uint32_t header_difat[OLE_HEADER_DIFAT_COUNT];
  uint32_t sector_shift;
  uint32_t mini_sector_shift;
  /* The directory's chain, flattened at open. */
  uint32_t dir_sector_count;
  uint32_t* dir_sectors;
  /* The mini stream: the root entry's chain. */
  uint32_t mini_stream_start;
  uint32_t mini_stream_size;
  uint32_t difat_sectors[OLE_MAX_DIFAT_SECTORS];
  /* One FAT sector, keyed by its ordinal in the FAT; null when empty. */
  uint8_t* fat_cache;
  uint32_t fat_cache_ordinal;
  /* One DIFAT sector, keyed by its sector number; null when empty. */
  uint32_t difat_cache_sector;
  uint8_t* difat_cache;
  /* Sector numbers at or above this lie beyond the document, and no chain
   * is longer: document size / 512 + 1. */
  uint32_t sector_limit;
};

/* A storage and the list of its direct children. */
struct ole_storage {
  ole_file* file;
  uint32_t dir_index;       /* 0 for the root */
  uint32_t element_count;
  uint32_t* elements;       /* directory indexes; null until first listed */
  uint32_t element_bytes;   /* capacity of elements in bytes */
};

/* A directory entry.  The name holds the low byte of each character,
 * sign-extended, and ends at its first zero: callers compare names by their
 * ASCII text, and a name with characters above 0x7F never equals its full
 * form. */
struct ole_dir {
  uint16_t name[OLE_NAME_CHARS];
  uint8_t type;     /* OLE_TYPE_... */
  uint8_t colour;
  uint32_t left;    /* siblings and child: directory indexes or OLE_NO_ENTRY */
  uint32_t right;
  uint32_t child;
  uint32_t start_sector;
  uint32_t size;
  uint32_t index;   /* this entry's own directory index */
};

/* Checkpoints of a long stream: sector number of sector index k * step is
 * checkpoints[k - 1].  Enough of them that any stream needs at most 1,022. */
enum { OLE_CHECKPOINTS = (OLE_SMALL_STREAM_LIMIT + 4) / 4 - 3 };

/* An open stream.  One fixed block, whatever the stream's length. */
struct ole_stream {
  ole_file* file;
  uint32_t size;
  uint32_t start_sector;
  uint32_t position;   /* where the next sequential read goes on */
  uint32_t dir_index;
  union {
    /* A stream below OLE_SMALL_STREAM_LIMIT bytes: its content. */
    uint8_t content[OLE_SMALL_STREAM_LIMIT];
    /* A larger one. */
    struct {
      uint32_t cursor_sector;     /* sector holding position; 0 if unknown */
      uint32_t checkpoint_count;
      uint32_t checkpoint_step;   /* in sectors */
      uint32_t checkpoints[OLE_CHECKPOINTS];
    } chain;
  } u;
};

/* Opens a compound file on params->io.  On success *file and *root are set
 * (the root storage is directory entry 0); on failure nothing is left
 * allocated.  A document whose first 8 bytes don't come gives the stream's
 * status (KEL_ERR_END_OF_FILE if it stored none); a wrong signature gives
 * KEL_ERR_OLE_BAD_CHAIN.  The create flag gives KEL_ERR_UNSUPPORTED: writing
 * belongs to a later writer. */
uint32_t ole_open(const ole_open_params* params, ole_file** file,
                  ole_storage** root);

void ole_close(ole_file* file);
void ole_close_storage(ole_storage* storage);
void ole_close_stream(ole_stream* stream);

/* The index-th direct child of the storage, in the order of a pre-order walk
 * of its sibling tree (node, left subtree, right subtree; not name order).
 * Enumerate by counting up from 0 until KEL_ERR_OLE_NO_ENTRY.  The list is
 * built on first use; a tree that refers out of the directory or loops gives
 * KEL_ERR_OLE_BAD_CHAIN. */
uint32_t ole_get_dir(ole_storage* storage, uint32_t index, ole_dir* dir);

/* Opens the stream of a directory entry got from ole_get_dir.  A stream
 * below 4,096 bytes is read whole now, so its failures show here. */
uint32_t ole_open_stream(ole_storage* storage, const ole_dir* dir,
                         ole_stream** stream);

/* The zuv_io read of a stream (context: the ole_stream).  Returns the bytes
 * delivered; on a short read *status holds the reason: KEL_ERR_END_OF_FILE
 * for a read at or past the size, a chain status, or the document's own.
 * Sequential reads are cheapest; a seek costs at most a few FAT steps once
 * the stream has been read through. */
uint32_t ole_read_stream(void* stream, void* buffer, uint32_t size,
                         uint32_t offset, uint32_t* status);

/* The stream's size in bytes; 0 for null. */
uint32_t ole_get_stream_size(const ole_stream* stream);

#endif /* ZUV_OLE_H */
