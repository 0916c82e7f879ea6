/*
 * vfile.cpp -- VFile (a path) and VFileStream (a window of a file opened for
 * reading).  The stream keeps its own position and seeks the FILE before
 * every read, so that two streams on one file can't disturb each other.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zuv_platform.h"

VFile::VFile() : path_(nullptr) {}

VFile::~VFile() { free(path_); }

uint32_t VFile::Init(const char* path) {
  if (!path) return KEL_ERR_INVALID_ARGUMENT;
  char* copy = strdup(path);
  if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  free(path_);
  path_ = copy;
  return 0;
}

VFileStream::VFileStream() : file_(nullptr), offset_(0), length_(0), position_(0) {}

VFileStream::~VFileStream() { Close(); }

uint32_t VFileStream::Open(VFile* file, uint32_t offset, int32_t length, int mode) {
  if (!file || !file->GetPath()) return KEL_ERR_INVALID_ARGUMENT;
  if (mode != 1) return KEL_ERR_UNSUPPORTED;  /* the engine only reads */
  Close();
  FILE* f = fopen(file->GetPath(), "rb");
  if (!f) return KEL_ERR_CANNOT_OPEN_FILE;
  long size = -1;
  if (fseek(f, 0, SEEK_END) == 0) size = ftell(f);
  if (size < 0 || (unsigned long)size < offset) {
    fclose(f);
    return size < 0 ? KEL_ERR_GENERAL : KEL_ERR_OUT_OF_RANGE;
  }
  uint32_t available = (uint32_t)size - offset;
  file_ = f;
  offset_ = offset;
  length_ = (length < 0 || (uint32_t)length > available) ? available : (uint32_t)length;
  position_ = 0;
  return 0;
}

uint32_t VFileStream::Read(void* buffer, uint32_t size, uint32_t* read) {
  if (read) *read = 0;
  if (!file_ || (!buffer && size)) return KEL_ERR_INVALID_ARGUMENT;
  uint32_t left = length_ - position_;
  if (left == 0) return KEL_ERR_END_OF_FILE;
  if (size > left) size = left;
  FILE* f = static_cast<FILE*>(file_);
  if (fseek(f, (long)(offset_ + position_), SEEK_SET) != 0) return KEL_ERR_GENERAL;
  size_t got = fread(buffer, 1, size, f);
  position_ += (uint32_t)got;
  if (read) *read = (uint32_t)got;
  return got == 0 && size ? KEL_ERR_GENERAL : 0;
}

uint32_t VFileStream::Seek(uint32_t position) {
  if (!file_) return KEL_ERR_INVALID_ARGUMENT;
  if (position > length_) return KEL_ERR_OUT_OF_RANGE;
  position_ = position;
  return 0;
}

void VFileStream::Close() {
  if (file_) fclose(static_cast<FILE*>(file_));
  file_ = nullptr;
  offset_ = length_ = position_ = 0;
}
