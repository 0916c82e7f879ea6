/*
 * linux_locale.h -- the locale object built from the process's locale.
 *
 * CLinuxKELLocale is an xls_locale (a pointer to it serves as one) whose
 * separators and day and month names come from nl_langinfo; the rest is
 * English.  One is made when the first session opens and lives while any
 * session does.
 */
#ifndef LINUX_LOCALE_H
#define LINUX_LOCALE_H

#include <stdint.h>

#include "format/kel_locale.h"

/* setlocale(LC_ALL, ""): once in the life of the process, before any locale
 * object is built. */
void locale_os_init(void);

class CLinuxKELLocale : public xls_locale {
 public:
  /* All fields zero: the neutral form until setup_locale. */
  CLinuxKELLocale();
  ~CLinuxKELLocale();
  CLinuxKELLocale(const CLinuxKELLocale&) = delete;
  CLinuxKELLocale& operator=(const CLinuxKELLocale&) = delete;

  /* Clears the structure and fills it, ending at the first failure
   * (KEL_ERR_OUT_OF_MEMORY). */
  uint32_t setup_locale();

 private:
  void free_strings();
  uint32_t init_format_number();
  uint32_t init_time_and_date_separator();
  uint32_t init_day_and_month();
  uint32_t init_error_strings();
  uint32_t init_misc_strings();
  /* A new UTF-16 copy of the UTF-8 text in *slot; an empty string for a null
   * text. */
  static uint32_t set_locale_string(const char* text, unsigned short** slot);
};

#endif /* LINUX_LOCALE_H */
