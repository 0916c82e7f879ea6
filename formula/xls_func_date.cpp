/*
 * Worksheet functions: dates and times.
 *
 * Dates are serials of the workbook's calendar; a function that makes a
 * date or a time suggests a number format for its cell (env->result_format):
 * the cell's own when it already shows a date or time, so that a chosen
 * date format survives recalculation, else a built-in one.
 */
#include <math.h>
#include <time.h>

#include "format/xls_builtin_formats.h"
#include "format/xls_number_format.h"
#include "formula/xls_datetime.h"
#include "formula/xls_functions.h"
#include "formula/xls_recalc_env.h"
#include "workbook/kel_xls_file.h"
#include "workbook/kel_xls_sheet.h"

/* Built-in formats: short date, time, date with time. */
enum { kFormatDate = 14, kFormatTime = 18, kFormatDateTime = 22 };

/* The serials of 1 January 10000, where the calendars end. */
static const int32_t kEndSerial1900 = 2958466;
static const int32_t kEndSerial1904 = 2957004;
/* The day number of serial 0 of the 1900 calendar, shown as 0 January
 * 1900; days before it are no dates. */
static const int32_t kJulianDayZero = 693595;
/* Months and days beyond these lead out of the years 1900 to 9999 whatever
 * the rest, and would overflow the arithmetic. */
static const double kMonthLimit = 120000;
static const double kDayLimit = 4000000;

static bool uses_1904(const xls_recalc_env* env) {
  return xls_1904_dates(env->sheet->workbook);
}

static int32_t end_serial(const xls_recalc_env* env) {
  return uses_1904(env) ? kEndSerial1904 : kEndSerial1900;
}

/* Suggests the cell's own number format when it is one of dates or times,
 * else built-in format builtin. */
static void suggest_format(xls_recalc_env* env, uint16_t builtin) {
  xls_read_cell_info info = {};
  info.flags = XLS_READ_NUMBER_FORMAT;
  bool own_is_date = false;
  if (xls_read_cell(env->sheet, env->column, env->row, &info, env->locale) == 0 &&
      info.number_format) {
    format_info_t parsed;
    if (parse_format(info.number_format, &parsed) == 0) {
      own_is_date = parsed.section[0].is_date != 0;
      format_info_free(&parsed);
    }
  }
  env->result_format =
      own_is_date ? info.number_format : xls_default_format_by_index(builtin, env->locale);
}

/* The number of arg, errors handed on; false with result set. */
static bool number_argument(xls_value_t* result, xls_recalc_env* env, const xls_value_t* arg,
                            double* number) {
  return xls_value_todouble(arg, result, number, env, xls_conv_error_propagate) == 0;
}

static bool long_argument(xls_value_t* result, xls_recalc_env* env, const xls_value_t* arg,
                          int32_t* number) {
  return xls_value_tolong(arg, result, number, env, xls_conv_error_propagate) == 0;
}

/* Months and days count from 1 upwards and are cut; at 0 and below they are
 * rounded, so that -0.5 months goes a month further back than 0. */
static double date_count(double x) {
  return x > 0 ? trunc(x) : round(x);
}

void xls_expr_func_date(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  double year, month, day;
  if (!number_argument(result, env, &args[0], &year) ||
      !number_argument(result, env, &args[1], &month) ||
      !number_argument(result, env, &args[2], &day))
    return;
  year = trunc(year);
  month = date_count(month);
  day = date_count(day);
  /* The 1900 calendar's false leap day has no place in the other. */
  if (!(year >= 0 && year <= 9999) || fabs(month) > kMonthLimit || fabs(day) > kDayLimit ||
      uses_1904(env)) {
    xls_value_error(result, xls_error_num);
    return;
  }
  struct tm tm;
  datetime_init(&tm);
  /* A year below 1900 counts from 1900: 99 is 1999. */
  tm.tm_year = static_cast<int>(year >= 1900 ? year - 1900 : year);
  int32_t months = static_cast<int32_t>(month) - 1;
  uint32_t status = months >= 0 ? datetime_add_months(&tm, months, false)
                                : datetime_subtract_months(&tm, -months, false);
  double serial = -1;
  if (!status && tm.tm_year + 1900 <= 9999) {
    if (tm.tm_year == 0 && tm.tm_mon == 1 && day > 28) {
      /* Days beyond 28 February 1900 count from the false 29th, serial 60. */
      serial = day + 31;
    } else {
      int32_t julian;
      status = datetime_update_julian(&tm, &julian);
      if (!status) serial = datetime_julian_to_serial(julian + static_cast<int32_t>(day) - 1, false);
    }
  }
  if (status || serial < 0 || serial >= kEndSerial1900) {
    xls_value_error(result, xls_error_num);
    return;
  }
  xls_value_double(result, serial);
  suggest_format(env, kFormatDate);
}

void xls_expr_func_time(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  int32_t hours, minutes, seconds;
  if (!long_argument(result, env, &args[0], &hours) ||
      !long_argument(result, env, &args[1], &minutes) ||
      !long_argument(result, env, &args[2], &seconds))
    return;
  if (static_cast<uint32_t>(hours) >= 32768 || static_cast<uint32_t>(minutes) >= 32768 ||
      static_cast<uint32_t>(seconds) >= 32768) {
    xls_value_error(result, xls_error_num);
    return;
  }
  /* Only the hours wrap: 1500 minutes make more than a day. */
  hours %= 24;
  xls_value_double(result, (hours * 3600.0 + minutes * 60.0 + seconds) / 86400.0);
  suggest_format(env, kFormatTime);
}

/* The local time now; false with result set. */
static bool local_now(xls_value_t* result, struct tm* now) {
  time_t seconds = time(nullptr);
  if (seconds != static_cast<time_t>(-1) && localtime_r(&seconds, now)) return true;
  xls_value_error(result, xls_error_function_failed);
  return false;
}

/* NOW and TODAY count in the 1900 calendar whatever the workbook's. */
void xls_expr_func_now(xls_value_t* result, xls_recalc_env* env, xls_value_t*, int) {
  struct tm now;
  double serial;
  if (!local_now(result, &now)) return;
  if (datetime_assemble_time(&now, &serial, false)) {
    xls_value_error(result, xls_error_num);
    return;
  }
  xls_value_double(result, serial);
  suggest_format(env, kFormatDateTime);
}

void xls_expr_func_today(xls_value_t* result, xls_recalc_env* env, xls_value_t*, int) {
  struct tm now;
  if (!local_now(result, &now)) return;
  xls_value_long(result, datetime_tm_to_serial(&now, false));
  suggest_format(env, kFormatDate);
}

/* ---- Parts of a serial ---------------------------------------------------- */

enum time_part_t { part_hour, part_minute, part_second };

static void time_part(xls_value_t* result, xls_recalc_env* env, const xls_value_t* arg,
                      time_part_t part) {
  double value;
  if (!number_argument(result, env, arg, &value)) return;
  if (!isfinite(value) || value >= end_serial(env)) {
    xls_value_error(result, xls_error_num);
    return;
  }
  /* Half a second up, then cut to the second: 23:59:59.9 is 0 hours. */
  value += 1.0 / 172800;
  int32_t second_of_day = static_cast<int32_t>(floor((value - floor(value)) * 86400));
  int32_t answer = part == part_hour     ? second_of_day / 3600
                   : part == part_minute ? second_of_day / 60 % 60
                                         : second_of_day % 60;
  xls_value_long(result, answer);
}

void xls_expr_func_hour(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  time_part(result, env, &args[0], part_hour);
}

void xls_expr_func_minute(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  time_part(result, env, &args[0], part_minute);
}

void xls_expr_func_second(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  time_part(result, env, &args[0], part_second);
}

/* The day number of serial in the workbook's calendar; false with #NUM!
 * in result for what is no date. */
static bool day_number(xls_value_t* result, const xls_recalc_env* env, int32_t serial,
                       int32_t* julian) {
  if (serial < end_serial(env)) {
    *julian = datetime_serial_to_julian(serial, uses_1904(env));
    if (*julian >= kJulianDayZero) return true;
  }
  xls_value_error(result, xls_error_num);
  return false;
}

enum date_part_t { part_year, part_month, part_day };

static void date_part(xls_value_t* result, xls_recalc_env* env, const xls_value_t* arg,
                      date_part_t part) {
  int32_t serial, julian;
  if (!long_argument(result, env, arg, &serial) || !day_number(result, env, serial, &julian))
    return;
  struct tm tm;
  datetime_init(&tm);
  if (julian == kJulianDayZero) {
    /* The day before 1 January 1900 is shown as its day 0. */
    tm.tm_mday = 0;
  } else {
    datetime_update_dmy_by_julian(&tm, julian);
  }
  int32_t answer = part == part_year    ? tm.tm_year + 1900
                   : part == part_month ? tm.tm_mon + 1
                                        : tm.tm_mday;
  xls_value_long(result, answer);
}

void xls_expr_func_year(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  date_part(result, env, &args[0], part_year);
}

void xls_expr_func_month(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  date_part(result, env, &args[0], part_month);
}

void xls_expr_func_day(xls_value_t* result, xls_recalc_env* env, xls_value_t* args, int) {
  date_part(result, env, &args[0], part_day);
}

void xls_expr_func_weekday(xls_value_t* result, xls_recalc_env* env, xls_value_t* args,
                           int count) {
  int32_t serial, julian, type = 1;
  if (!long_argument(result, env, &args[0], &serial)) return;
  if (count > 1 && !long_argument(result, env, &args[1], &type)) return;
  if (type < 1 || type > 3) {
    xls_value_error(result, xls_error_num);
    return;
  }
  if (!day_number(result, env, serial, &julian)) return;
  /* Before the false leap day the 1900 calendar is a day ahead of the
   * real one, so that 1 January 1900 falls on a Sunday. */
  if (!uses_1904(env) && serial < 60) --julian;
  int32_t monday_based = (julian - 1) % 7; /* 0 Monday to 6 Sunday */
  int32_t answer = type == 1   ? (monday_based + 1) % 7 + 1
                   : type == 2 ? monday_based + 1
                               : monday_based;
  xls_value_long(result, answer);
}
