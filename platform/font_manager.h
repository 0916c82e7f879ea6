/*
 * font_manager.h -- making the font manager of this platform, which loads
 * fonts into the process's font registry.
 */
#ifndef FONT_MANAGER_H
#define FONT_MANAGER_H

#include "zuv_platform.h"

/* A font manager with no fonts yet; null if memory fails. */
IZuvFontManager* font_manager_create();

#endif /* FONT_MANAGER_H */
