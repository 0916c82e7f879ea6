#include "format/linux_locale.h"

#include <langinfo.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>

#include "foundation/zuv_uni_string.h"

void locale_os_init(void) { setlocale(LC_ALL, ""); }

CLinuxKELLocale::CLinuxKELLocale() : xls_locale() {}

CLinuxKELLocale::~CLinuxKELLocale() { free_strings(); }

void CLinuxKELLocale::free_strings() {
  for (auto& day : day_names)
    for (unsigned short* name : day) free(name);
  for (auto& month : month_names)
    for (unsigned short* name : month) free(name);
  for (unsigned short* name : sheet_names) free(name);
  for (unsigned short* name : function_names) free(name);
  for (unsigned short* text : error_texts) free(text);
  free(true_word);
  free(false_word);
  *static_cast<xls_locale*>(this) = xls_locale();
}

uint32_t CLinuxKELLocale::setup_locale() {
  free_strings();
  uint32_t status = init_format_number();
  if (!status) status = init_time_and_date_separator();
  if (!status) status = init_day_and_month();
  if (!status) status = init_error_strings();
  if (!status) status = init_misc_strings();
  return status;
}

uint32_t CLinuxKELLocale::set_locale_string(const char* text,
                                            unsigned short** slot) {
  if (!text) text = "";
  unsigned bytes = static_cast<unsigned>(strlen(text));
  unsigned short* wide =
      static_cast<unsigned short*>(malloc((bytes + 1) * sizeof(unsigned short)));
  if (!wide) return KEL_ERR_OUT_OF_MEMORY;
  utf8n_to_ucs2(wide, text, bytes);
  free(*slot);
  *slot = wide;
  return 0;
}

uint32_t CLinuxKELLocale::init_format_number() {
  // Only one byte is taken: a separator of several bytes becomes its first.
  const char* radix = nl_langinfo(RADIXCHAR);
  decimal_separator = radix && radix[0] ? static_cast<unsigned char>(radix[0]) : '.';
  const char* thousands = nl_langinfo(THOUSEP);
  thousand_separator =
      thousands && thousands[0] ? static_cast<unsigned char>(thousands[0]) : ',';
  return 0;
}

uint32_t CLinuxKELLocale::init_time_and_date_separator() {
  // Fixed, whatever the system says: nothing reads date order from Linux.
  time_separator = ':';
  date_separator = '/';
  date_order = XLS_DATE_MDY;
  hour24 = 0;
  return 0;
}

uint32_t CLinuxKELLocale::init_day_and_month() {
  static const nl_item kDays[7][2] = {
      {DAY_1, ABDAY_1}, {DAY_2, ABDAY_2}, {DAY_3, ABDAY_3}, {DAY_4, ABDAY_4},
      {DAY_5, ABDAY_5}, {DAY_6, ABDAY_6}, {DAY_7, ABDAY_7}};
  static const nl_item kMonths[12][2] = {
      {MON_1, ABMON_1},   {MON_2, ABMON_2},   {MON_3, ABMON_3},
      {MON_4, ABMON_4},   {MON_5, ABMON_5},   {MON_6, ABMON_6},
      {MON_7, ABMON_7},   {MON_8, ABMON_8},   {MON_9, ABMON_9},
      {MON_10, ABMON_10}, {MON_11, ABMON_11}, {MON_12, ABMON_12}};
  for (int day = 0; day < 7; ++day)
    for (int form = 0; form < 2; ++form) {
      uint32_t status = set_locale_string(nl_langinfo(kDays[day][form]), &day_names[day][form]);
      if (status) return status;
    }
  // The one-letter month names stay null: the built-in table serves them.
  for (int month = 0; month < 12; ++month)
    for (int form = 0; form < 2; ++form) {
      uint32_t status =
          set_locale_string(nl_langinfo(kMonths[month][form]), &month_names[month][form]);
      if (status) return status;
    }
  return 0;
}

uint32_t CLinuxKELLocale::init_error_strings() {
  static const char* const kErrors[7] = {"#NULL!", "#DIV/0!", "#VALUE!", "#REF!",
                                         "#NAME?", "#NUM!",   "#N/A"};
  for (int i = 0; i < 7; ++i) {
    uint32_t status = set_locale_string(kErrors[i], &error_texts[i]);
    if (status) return status;
  }
  return 0;
}

uint32_t CLinuxKELLocale::init_misc_strings() {
  static const char* const kSheetNames[XLS_LOCALE_SHEET_NAMES] = {
      "Sheet1", "Sheet2", "Sheet3", "Sheet", "Chart"};
  for (int i = 0; i < XLS_LOCALE_SHEET_NAMES; ++i) {
    uint32_t status = set_locale_string(kSheetNames[i], &sheet_names[i]);
    if (status) return status;
  }
  uint32_t status = set_locale_string("TRUE", &true_word);
  if (!status) status = set_locale_string("FALSE", &false_word);
  return status;
}
