/*
 * font_files.h -- finding the font files of a folder.  Internal to the
 * platform layer and its test double.
 */
#ifndef FONT_FILES_H
#define FONT_FILES_H

#include <stdint.h>

/* Called with the path of each file; a non-zero status stops the walk and
 * becomes its result. */
typedef uint32_t (*font_file_fn)(void* context, const char* path);

/* Calls found for every TrueType or OpenType file (.ttf, .otf, .ttc, any
 * case) in the folder and in its subfolders down to three levels, so that
 * a system's font root serves as well as one family's folder.  Names are
 * visited in sorted order, which makes the choice among equal faces the same
 * on every run.  KEL_ERR_CANNOT_OPEN_FILE if the folder can't be read. */
uint32_t font_files_walk(const char* folder, font_file_fn found, void* context);

#endif /* FONT_FILES_H */
