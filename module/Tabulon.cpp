/*
 * Tabulon.cpp -- the flat calls that open, shape and close a session.
 *
 * A session is one kel_file: one open file, one workbook, one view, one
 * canvas, one font manager.  The first open of the process makes the locale
 * object that all sessions share; the last close deletes it.
 */
#include <new>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "foundation/zuv_uni_string.h"
#include "format/linux_locale.h"
#include "module/kel_session.h"
#include "module/linux_pool.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

int g_dbg_ref = 0;
xls_locale* g_os_locale = nullptr;
kel_draw_label_info_t g_draw_label_info;

static const char kGradientPath[] = TABULON_GRADIENT_PATH;

/* UTF-8 copy of a UTF-16 text, 4 bytes a character and a terminator; null
 * without memory. */
static char* utf8_copy(const unsigned short* text) {
  uint32_t length = ucs2_len(text);
  char* utf8 = static_cast<char*>(malloc(4 * length + 1));
  if (utf8) ucs2_to_utf8(utf8, text);
  return utf8;
}

static void release_canvas(kel_file* file) {
  if (file->draw.canvas) file->draw.canvas->Release();
  file->draw.canvas = nullptr;
  file->draw.bitmap.pixels = nullptr;
}

extern "C" KEL_API unsigned kel_open_file(const unsigned short* path,
                                          const unsigned short* password,
                                          const unsigned short* font_path,
                                          void* /* reserved */,
                                          kel_file** handle) {
  if (!path || !font_path || !handle) return KEL_ERR_INVALID_ARGUMENT;
  *handle = nullptr;

  // The process's locale is read once in its life; the locale object lives
  // while any session does.
  if (g_dbg_ref == 0) {
    locale_os_init();
    g_dbg_ref = 1;
  }
  uint32_t status = 0;
  char* utf8_path = nullptr;
  if (g_dbg_ref == 1) {
    CLinuxKELLocale* locale = new (std::nothrow) CLinuxKELLocale();
    if (!locale) return KEL_ERR_OUT_OF_MEMORY;
    g_os_locale = locale;
    locale->setup_locale();
  }
  kel_file* file = static_cast<kel_file*>(calloc(1, sizeof(kel_file)));
  if (!file) {
    kel_close_file(handle);
    return KEL_ERR_OUT_OF_MEMORY;
  }
  g_dbg_ref += 1;
  *handle = file;
  file->locale = g_os_locale;
  file->dpi = 72;

  unsigned short* password_copy = nullptr;
  file->font_path = utf8_copy(font_path);
  if (password) password_copy = ucs2_dup(password);
  utf8_path = utf8_copy(path);
  if (!file->font_path || (password && !password_copy) || !utf8_path) {
    free(password_copy);
    status = KEL_ERR_OUT_OF_MEMORY;
    goto failed;
  }

  // Opened for update when allowed; a read-only file opens all the same.
  file->stream = fopen(utf8_path, "r+b");
  if (!file->stream) file->stream = fopen(utf8_path, "rb");
  if (!file->stream) {
    free(password_copy);
    status = KEL_ERR_CANNOT_OPEN_FILE;
    goto failed;
  }

  {
    xls_pool pool;
    linux_pool_for_file(file->stream, &pool);
    status = xls_open(&pool, &file->workbook, 1, file->locale,
                      kel_format_biff8, password_copy);
    if (status) goto failed;
  }

  g_current_wb = file->workbook;
  file->summary = new (std::nothrow) doc_props_t();
  if (!file->summary) {
    status = KEL_ERR_OUT_OF_MEMORY;
    goto failed;
  }
  // Properties are a courtesy: a document whose summary can't be read
  // opens all the same, with empty ones.
  xls_get_summary_information(file->workbook, file->summary);
  status = init_on_demand(file);
  if (status) goto failed;

  {
    // Without the heading picture no document opens: a device that lacks it
    // is not installed right, and would paint broken headings.
    struct stat info;
    if (stat(kGradientPath, &info) != 0) {
      status = KEL_ERR_MISSING_RESOURCE;
      goto failed;
    }
    if (!g_draw_label_info.gradient_file) {
      VFile* gradient = new (std::nothrow) VFile();
      if (!gradient || gradient->Init(kGradientPath) != 0) {
        delete gradient;
        status = KEL_ERR_OUT_OF_MEMORY;
        goto failed;
      }
      g_draw_label_info.gradient_file = gradient;
    }
    if (!g_draw_label_info.gradient_stream) {
      VFileStream* stream = new (std::nothrow) VFileStream();
      if (!stream) {
        status = KEL_ERR_OUT_OF_MEMORY;
        goto failed;
      }
      status = stream->Open(g_draw_label_info.gradient_file, 0, -1, 1);
      if (status) {
        delete stream;
        goto failed;
      }
      g_draw_label_info.gradient_stream = stream;
    }
  }

  g_current_wb = nullptr;
  free(utf8_path);
  return 0;

failed:
  kel_close_file(handle);
  g_current_wb = nullptr;
  free(utf8_path);
  return status;
}

extern "C" KEL_API void kel_close_file(kel_file** handle) {
  kel_file* file = handle ? *handle : nullptr;
  if (file) {
    delete file->summary;
    free(file->find_text);
    free(file->found_regions);
    delete file->draw.table;
    release_canvas(file);
    // The gradient and its scaled copies are shared by all sessions; any
    // close empties them, and the next paint makes them again.
    delete g_draw_label_info.gradient_stream;
    delete g_draw_label_info.gradient_file;
    g_draw_label_info.gradient_stream = nullptr;
    g_draw_label_info.gradient_file = nullptr;
    for (int i = 0; i < g_draw_label_info.count; ++i) {
      if (g_draw_label_info.slots[i].canvas) g_draw_label_info.slots[i].canvas->Release();
      g_draw_label_info.slots[i] = kel_label_canvas_t();
    }
    g_draw_label_info.count = 0;
    g_current_wb = file->workbook;
    xls_close(file->workbook);
    g_current_wb = nullptr;
    if (file->stream) fclose(file->stream);
    free(file->font_path);
    if (file->draw.font_manager) file->draw.font_manager->Release();
    free(file);
    *handle = nullptr;
    g_dbg_ref -= 1;
  }
  if (g_dbg_ref == 1) {
    delete static_cast<CLinuxKELLocale*>(g_os_locale);
    g_os_locale = nullptr;
  }
}

uint32_t init_on_demand(kel_file* file) {
  IZuvClassFactory* factory = ZuvLinuxClassFactory();
  if (!factory) return KEL_ERR_OUT_OF_MEMORY;
  uint32_t status = 0;
  rect_t headings;

  if (!file->draw.table) {
    file->draw.table = new (std::nothrow) KELTable(file->locale);
    if (!file->draw.table) {
      status = KEL_ERR_OUT_OF_MEMORY;
      goto done;
    }
    file->draw.table->set_workbook(file->workbook);
  }

  if (!file->draw.font_manager) {
    void* object = nullptr;
    status = factory->CreateObject(ZUV_CLASS_FONT_MANAGER, &object);
    if (status) goto done;
    file->draw.font_manager = static_cast<IZuvFontManager*>(object);
    status = file->draw.font_manager->LoadFonts(file->font_path);
    if (status) goto done;
  }

  // The view always works at 72 dpi; the viewer's resolution reaches it as
  // a zoom.
  file->draw.zoom = static_cast<uint32_t>(file->dpi / 72.0 * 100.0);
  file->draw.table->set_zoom_percentage(file->draw.zoom);
  file->draw.horizontal_dpi = 72;
  file->draw.vertical_dpi = 72;
  file->draw.table->set_dpi(72, 72);
  headings = file->draw.table->cell_to_coord(-1, -1);

  if (!file->draw.canvas) {
    // The canvas holds the headings and the body beside them, with one pixel
    // of separator in between.
    DRect bounds = {0, 0, headings.right + file->main_buffer.width + 1,
                    headings.bottom + file->main_buffer.height + 1};
    int bits = file->main_buffer.format == 0 ? 32 : 16;
    status = factory->CreateCanvas(&file->draw.canvas, 1, bounds, bits, 0, 0);
    if (status) {
      file->draw.canvas = nullptr;
      goto done;
    }
    file->draw.bitmap.format = bits == 32 ? ZUVBIT_ARGB32 : ZUVBIT_RGB565;
    file->draw.bitmap.width = bounds.width;
    file->draw.bitmap.height = bounds.height;
    unsigned char* pixels = nullptr;
    status = static_cast<DCanvasMVCairo*>(file->draw.canvas)
                 ->GetImageData(&pixels, &file->draw.bitmap.bytes_per_row);
    if (status) {
      release_canvas(file);
      goto done;
    }
    file->draw.bitmap.pixels = pixels;
  }

  file->draw.table->state.label_context = &g_draw_label_info;
  file->draw.table->state.label_painter = draw_label;
  file->draw.table->set_rect(0, 0, file->draw.bitmap.width, file->draw.bitmap.height);
  file->draw.table->update_cache_on_sheet_change();

done:
  factory->Release();
  return status;
}

xls_sheet_t* set_current_sheet(kel_file* file, int sheet) {
  if (!file || sheet < 0) return nullptr;
  xls_sheet_t* handle = xls_sheet_handle(file->workbook, static_cast<uint32_t>(sheet));
  if (handle && handle != xls_get_active_sheet(file->workbook)) {
    xls_set_active_sheet(file->workbook, handle);
    if (file->draw.table) file->draw.table->update_cache_on_sheet_change();
  }
  return handle;
}

void kel_copy_text_out(const unsigned short* text, uint32_t length,
                       unsigned short* buffer, int capacity, int* needed) {
  if (needed) *needed = static_cast<int>(length + 1);
  if (!buffer || capacity < 1) return;
  uint32_t count = static_cast<uint32_t>(capacity - 1);
  if (count > length) count = length;
  memcpy(buffer, text, count * sizeof(unsigned short));
  buffer[count] = 0;
}

uint32_t vstr_to_buffer(VString& text, unsigned short* buffer, int capacity,
                        int* needed) {
  uint32_t status = text.Convert(VString::kWide);
  if (status) return status;
  const uint16_t* wide = text.GetWideStringPointer();
  kel_copy_text_out(reinterpret_cast<const unsigned short*>(wide),
                    text.GetNumChars(), buffer, capacity, needed);
  return 0;
}

void copy_rect(kel_file* file, int x, int y, int width, int height,
               int dest_width, int dest_height, void* destination) {
  const zuvbit_t& canvas = file->draw.bitmap;
  if (!canvas.pixels || !destination || x < 0 || y < 0) return;
  int bytes_per_pixel = canvas.format == ZUVBIT_ARGB32 ? 4 : 2;
  if (height > dest_height) height = dest_height;
  // Never read past the canvas, whatever the host's buffer sizes.
  if (height > canvas.height - y) height = canvas.height - y;
  int row_pixels = width < canvas.width - x ? width : canvas.width - x;
  if (row_pixels <= 0 || height <= 0) return;
  (void)dest_width;
  const unsigned char* source = static_cast<const unsigned char*>(canvas.pixels);
  unsigned char* target = static_cast<unsigned char*>(destination);
  for (int i = 0; i < height; ++i) {
    memcpy(target + static_cast<size_t>(i) * width * bytes_per_pixel,
           source + static_cast<size_t>(y + i) * canvas.bytes_per_row + x * bytes_per_pixel,
           static_cast<size_t>(row_pixels) * bytes_per_pixel);
  }
}

uint32_t SplitPath(const char* path, char* directory, char* name,
                   char* extension) {
  if (directory) directory[0] = 0;
  if (name) name[0] = 0;
  if (extension) extension[0] = 0;
  char* copy = strdup(path);
  if (!copy) return KEL_ERR_OUT_OF_MEMORY;
  bool slash_found = false;
  for (size_t i = strlen(copy); i-- > 0;) {
    if (copy[i] == '.' && extension && extension[0] == 0 && !slash_found) {
      strcpy(extension, copy + i + 1);
      copy[i] = 0;
    } else if (copy[i] == '/') {
      if (name) strcpy(name, copy + i + 1);
      copy[i + 1] = 0;
      if (directory) strcpy(directory, copy);
      slash_found = true;
      break;
    }
  }
  if (!slash_found) {
    if (name)
      strcpy(name, copy);
    else if (directory)
      strcpy(directory, copy);
  }
  free(copy);
  return 0;
}

/* The buffers of a host: each change replaces the canvas. */
static unsigned set_buffer(kel_file* file, kel_buffer_t* buffer, int format,
                           void* pixels, int width, int height) {
  if (!file || !pixels || width < 0 || height < 0) return KEL_ERR_INVALID_ARGUMENT;
  buffer->format = format;
  buffer->pixels = pixels;
  buffer->width = width;
  buffer->height = height;
  release_canvas(file);
  return init_on_demand(file);
}

extern "C" KEL_API unsigned kel_set_offscreen_buffer(kel_file* file, int format,
                                                     void* pixels, int width,
                                                     int height) {
  if (!file) return KEL_ERR_INVALID_ARGUMENT;
  return set_buffer(file, &file->main_buffer, format, pixels, width, height);
}

extern "C" KEL_API unsigned kel_set_column_offscreen_buffer(kel_file* file,
                                                            int format,
                                                            void* pixels,
                                                            int width,
                                                            int height) {
  if (!file) return KEL_ERR_INVALID_ARGUMENT;
  return set_buffer(file, &file->column_buffer, format, pixels, width, height);
}

extern "C" KEL_API unsigned kel_set_row_offscreen_buffer(kel_file* file,
                                                         int format,
                                                         void* pixels,
                                                         int width,
                                                         int height) {
  if (!file) return KEL_ERR_INVALID_ARGUMENT;
  return set_buffer(file, &file->row_buffer, format, pixels, width, height);
}

/* Found regions are kept in pixels; across a change of scale they pass
 * through twips, each extent as the difference of its converted edges. */
static void regions_to_twips(kel_file* file, bool to_twips) {
  const KELState& state = file->draw.table->state;
  for (int32_t i = 0; i < file->found_count; ++i) {
    region& r = file->found_regions[i];
    uint32_t x = static_cast<uint32_t>(r.x), y = static_cast<uint32_t>(r.y);
    uint32_t right = x + static_cast<uint32_t>(r.width);
    uint32_t bottom = y + static_cast<uint32_t>(r.height);
    if (to_twips) {
      x = state.horizontal_pixels_to_twips(x);
      right = state.horizontal_pixels_to_twips(right);
      y = state.vertical_pixels_to_twips(y);
      bottom = state.vertical_pixels_to_twips(bottom);
    } else {
      x = state.horizontal_twips_to_pixels(x);
      right = state.horizontal_twips_to_pixels(right);
      y = state.vertical_twips_to_pixels(y);
      bottom = state.vertical_twips_to_pixels(bottom);
    }
    r.x = static_cast<int>(x);
    r.y = static_cast<int>(y);
    r.width = static_cast<int>(right - x);
    r.height = static_cast<int>(bottom - y);
  }
}

extern "C" KEL_API unsigned kel_set_dpi(kel_file* file, int dpi) {
  if (!file || dpi <= 0) return KEL_ERR_INVALID_ARGUMENT;
  bool regions = file->draw.table && file->found_count > 0;
  if (regions) regions_to_twips(file, true);
  file->dpi = dpi;
  release_canvas(file);
  uint32_t status = init_on_demand(file);
  if (regions && !status) regions_to_twips(file, false);
  return status;
}

extern "C" KEL_API unsigned kel_get_sheet_count(kel_file* file, int* count) {
  if (!file || !count) return KEL_ERR_INVALID_ARGUMENT;
  *count = static_cast<int>(xls_sheet_count(file->workbook));
  return 0;
}

extern "C" KEL_API unsigned kel_get_sheet_title(kel_file* file, int sheet,
                                                unsigned short* buffer,
                                                int capacity, int* needed) {
  if (!file) return KEL_ERR_INVALID_ARGUMENT;
  if (sheet < 0) return KEL_ERR_OUT_OF_RANGE;
  xls_sheet_t* handle = xls_sheet_handle(file->workbook, static_cast<uint32_t>(sheet));
  if (!handle) return KEL_ERR_OUT_OF_RANGE;
  const unsigned short* title = xls_sheet_name(handle);
  kel_copy_text_out(title, ucs2_len(title), buffer, capacity, needed);
  return 0;
}

extern "C" KEL_API unsigned kel_get_sheet_dimensions(kel_file* file, int sheet,
                                                     int* width, int* height) {
  if (!file) return KEL_ERR_INVALID_ARGUMENT;
  uint32_t status = init_on_demand(file);
  if (status) return status;
  if (!file->draw.table) return KEL_ERR_GENERAL;
  g_current_wb = file->workbook;
  if (!set_current_sheet(file, sheet)) {
    g_current_wb = nullptr;
    return KEL_ERR_OUT_OF_RANGE;
  }
  uint32_t sheet_width = 0, sheet_height = 0;
  file->draw.table->dimension_sheet_size(&sheet_width, &sheet_height);
  if (width) *width = static_cast<int>(sheet_width);
  if (height) *height = static_cast<int>(sheet_height);
  g_current_wb = nullptr;
  return 0;
}

extern "C" KEL_API unsigned kel_get_column_count(kel_file* file, int sheet, int* count) {
  if (!file || !count) return KEL_ERR_INVALID_ARGUMENT;
  g_current_wb = file->workbook;
  xls_sheet_t* handle = set_current_sheet(file, sheet);
  uint32_t status = KEL_ERR_OUT_OF_RANGE;
  if (handle) {
    xls_orange used;
    status = xls_sheet_dimensions(handle, &used);
    if (!status) *count = static_cast<int>(used.last_col + 1);
  }
  g_current_wb = nullptr;
  return status;
}

extern "C" KEL_API unsigned kel_get_document_name(kel_file* file,
                                                  unsigned short* buffer,
                                                  int capacity, int* needed) {
  if (!file || !file->summary) return KEL_ERR_INVALID_ARGUMENT;
  return vstr_to_buffer(file->summary->title, buffer, capacity, needed);
}

extern "C" KEL_API unsigned kel_get_document_author(kel_file* file,
                                                    unsigned short* buffer,
                                                    int capacity, int* needed) {
  if (!file || !file->summary) return KEL_ERR_INVALID_ARGUMENT;
  return vstr_to_buffer(file->summary->author, buffer, capacity, needed);
}

extern "C" KEL_API unsigned kel_get_document_description(kel_file* file,
                                                         unsigned short* buffer,
                                                         int capacity,
                                                         int* needed) {
  if (!file || !file->summary) return KEL_ERR_INVALID_ARGUMENT;
  return vstr_to_buffer(file->summary->description, buffer, capacity, needed);
}

extern "C" KEL_API unsigned kel_get_document_creation_date(kel_file* file,
                                                           int* date) {
  if (!file || !file->summary || !date) return KEL_ERR_INVALID_ARGUMENT;
  *date = static_cast<int>(file->summary->created);
  return 0;
}

extern "C" KEL_API unsigned kel_get_document_last_saved_date(kel_file* file,
                                                             int* date) {
  if (!file || !file->summary || !date) return KEL_ERR_INVALID_ARGUMENT;
  *date = static_cast<int>(file->summary->last_saved);
  return 0;
}

/* Clears the buffer and copies as much of text as fits with a terminator. */
static void version_text(const char* text, unsigned short* buffer, int capacity,
                         int* needed) {
  int length = static_cast<int>(strlen(text));
  if (needed) *needed = length + 1;
  if (!buffer || capacity < 1) return;
  memset(buffer, 0, static_cast<size_t>(capacity) * sizeof(unsigned short));
  for (int i = 0; i < length && i < capacity - 1; ++i)
    buffer[i] = static_cast<unsigned char>(text[i]);
}

static unsigned GetVersionString(unsigned short* version, int version_capacity,
                                 int* version_needed, unsigned short* build,
                                 int build_capacity, int* build_needed) {
  version_text("1.000", version, version_capacity, version_needed);
  version_text("039", build, build_capacity, build_needed);
  return 0;
}

extern "C" KEL_API unsigned kel_get_version(unsigned short* version,
                                            int version_capacity,
                                            int* version_needed,
                                            unsigned short* build,
                                            int build_capacity,
                                            int* build_needed) {
  return GetVersionString(version, version_capacity, version_needed, build,
                          build_capacity, build_needed);
}

extern "C" KEL_API void kel_release_memory(kel_file*) { g_current_wb = nullptr; }

extern "C" KEL_API unsigned kel_set_highlight_color(kel_file* file,
                                                    const unsigned char* rgb) {
  if (!file || !rgb) return KEL_ERR_INVALID_ARGUMENT;
  file->find_highlight.red = file->selection.colour.red = rgb[0];
  file->find_highlight.green = file->selection.colour.green = rgb[1];
  file->find_highlight.blue = file->selection.colour.blue = rgb[2];
  return 0;
}

extern "C" KEL_API unsigned kel_get_found_regions(kel_file* file, int* count,
                                                  region** regions) {
  if (!file || !count || !regions) return KEL_ERR_INVALID_ARGUMENT;
  *count = file->found_count;
  *regions = file->found_regions;
  return 0;
}
