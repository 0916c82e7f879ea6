/*
 * font_files.cpp -- walking a folder for font files.
 */
#include "font_files.h"

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>

#include "kel_status.h"

namespace {

const int kMaxDepth = 3;

bool is_font_name(const char* name) {
  size_t n = strlen(name);
  if (n < 5) return false;
  const char* ext = name + n - 4;
  return strcasecmp(ext, ".ttf") == 0 || strcasecmp(ext, ".otf") == 0 ||
         strcasecmp(ext, ".ttc") == 0;
}

/* path is a buffer of PATH_MAX bytes holding the folder; names are appended
 * to it in place and cut off again. */
uint32_t walk(char* path, int depth, font_file_fn found, void* context) {
  struct dirent** names;
  int count = scandir(path, &names, nullptr, alphasort);
  if (count < 0) return KEL_ERR_CANNOT_OPEN_FILE;
  size_t base = strlen(path);
  uint32_t status = 0;
  for (int i = 0; i < count; ++i) {
    const char* name = names[i]->d_name;
    struct stat info;
    /* Hidden entries (and "." and "..") are skipped. */
    if (status == 0 && name[0] != '.' && base + 1 + strlen(name) < PATH_MAX) {
      path[base] = '/';
      strcpy(path + base + 1, name);
      if (stat(path, &info) == 0) {
        if (S_ISDIR(info.st_mode) && depth < kMaxDepth) {
          /* An unreadable subfolder is no reason to fail the whole walk. */
          uint32_t sub = walk(path, depth + 1, found, context);
          if (sub != KEL_ERR_CANNOT_OPEN_FILE) status = sub;
        } else if (S_ISREG(info.st_mode) && is_font_name(name)) {
          status = found(context, path);
        }
      }
      path[base] = '\0';
    }
    free(names[i]);
  }
  free(names);
  return status;
}

}  // namespace

uint32_t font_files_walk(const char* folder, font_file_fn found, void* context) {
  if (!folder || strlen(folder) >= PATH_MAX) return KEL_ERR_CANNOT_OPEN_FILE;
  char* path = static_cast<char*>(malloc(PATH_MAX));
  if (!path) return KEL_ERR_OUT_OF_MEMORY;
  strcpy(path, folder);
  size_t n = strlen(path);
  while (n > 1 && path[n - 1] == '/') path[--n] = '\0';
  uint32_t status = walk(path, 0, found, context);
  free(path);
  return status;
}
