/*
 * charset.h -- the character set (DCharSet) of a UTF-16 unit by its Unicode
 * block.  Internal to the platform layer and its test double; the engine
 * asks IZuvFontManager::GetGlyphCharSet.
 */
#ifndef CHARSET_H
#define CHARSET_H

#include <stdint.h>

int unicode_charset(uint16_t unit);

#endif /* CHARSET_H */
