#include "formula/xls_datetime.h"

#include <string.h>

#include "kel_status.h"

const uint16_t days_in_year[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};

const uint8_t days_in_months[2][12] = {
    {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31},
    {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31}};

/* Day numbers of the calendars' origins: serial 0 of the 1904 calendar is
 * 1 January 1904, serial 0 of the 1900 calendar 31 December 1899. */
static const int32_t kJulian1904 = 695056;
static const int32_t kJulian1900 = 693595;

static int is_leap(int32_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

/* Integer division and remainder rounding down, so that fields below range
 * borrow as fields above it carry. */
static int32_t floor_div(int32_t a, int32_t b) {
  int32_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

uint32_t datetime_init(struct tm* tm) {
  if (!tm) return KEL_ERR_INVALID_ARGUMENT;
  memset(tm, 0, sizeof *tm);
  tm->tm_mday = 1;
  tm->tm_isdst = -1;
  return 0;
}

uint32_t datetime_validate_tm(const struct tm* tm) {
  if (!tm) return KEL_ERR_INVALID_ARGUMENT;
  if (static_cast<unsigned>(tm->tm_year) >= 8100 || tm->tm_mon < 0 || tm->tm_mon > 11 ||
      tm->tm_mday < 1 || tm->tm_mday > 31 || tm->tm_hour < 0 || tm->tm_hour > 23 ||
      tm->tm_min < 0 || tm->tm_min > 59 || tm->tm_sec < 0 || tm->tm_sec > 59)
    return KEL_ERR_DATE_FIELD_RANGE;
  return 0;
}

uint32_t datetime_update_julian(const struct tm* tm, int32_t* julian) {
  if (!tm || !julian) return KEL_ERR_INVALID_ARGUMENT;
  if (tm->tm_mon < 0 || tm->tm_mon > 11) return KEL_ERR_DATE_FIELD_RANGE;
  /* The years before this one, kept in 16 bits as the stored dates are. */
  uint16_t y = static_cast<uint16_t>(1900 + tm->tm_year - 1);
  int32_t day = static_cast<int32_t>(y) * 365 + y / 4 - y / 100 + y / 400 +
                days_in_year[is_leap(y + 1)][tm->tm_mon] + tm->tm_mday;
  if (day == 0) return KEL_ERR_DATE_NO_DAY;
  *julian = day;
  return 0;
}

int32_t datetime_serial_to_julian(int32_t serial, bool date1904) {
  if (date1904) return serial + kJulian1904;
  /* From serial 60 on one day less: 60 is the day that never was. */
  return serial < 60 ? serial + kJulian1900 : serial + kJulian1900 - 1;
}

int32_t datetime_julian_to_serial(int32_t julian, bool date1904) {
  if (date1904) return julian - kJulian1904;
  int32_t serial = julian - kJulian1900;
  return serial > 59 ? serial + 1 : serial;
}

int32_t datetime_tm_to_serial(const struct tm* tm, bool date1904) {
  int32_t julian = 0;
  datetime_update_julian(tm, &julian);
  return datetime_julian_to_serial(julian, date1904);
}

uint32_t datetime_add_days(struct tm* tm, int32_t days, int32_t* julian) {
  if (!julian) return KEL_ERR_INVALID_ARGUMENT;
  uint32_t status = datetime_update_julian(tm, julian);
  if (status) return status;
  *julian += days;
  return datetime_update_dmy_by_julian(tm, *julian);
}

uint32_t datetime_subtract_days(struct tm* tm, int32_t days, int32_t* julian) {
  return datetime_add_days(tm, -days, julian);
}

uint32_t datetime_assemble_time(const struct tm* tm, double* serial, bool date1904) {
  if (!serial) return KEL_ERR_INVALID_ARGUMENT;
  int32_t julian;
  uint32_t status = datetime_update_julian(tm, &julian);
  if (status) return status;
  *serial = datetime_julian_to_serial(julian, date1904) +
            (tm->tm_hour * 3600 + tm->tm_min * 60 + tm->tm_sec) / 86400.0;
  return 0;
}

uint32_t datetime_update_dmy_by_julian(struct tm* tm, int32_t julian) {
  if (!tm) return KEL_ERR_INVALID_ARGUMENT;
  /* Days counted from 1 March of the year -4800, day 1 being that day: the
   * leap day ends each cycle, and twelve 400-year cycles keep every date
   * from the year -4800 on positive. */
  int32_t j = julian + 1753470;
  int32_t century = (4 * j + 146096) / 146097 - 1;
  int32_t d = j - century * 146097 / 4;             /* day in the century, from 1 */
  int32_t year_in_century = (4 * d - 1) / 1461;
  d -= year_in_century * 1461 / 4;                  /* day from 1 March, from 1 */
  int32_t m = (5 * d - 3) / 153;                    /* 0 for March */
  tm->tm_mday = d - (153 * m + 2) / 5;
  int32_t year = century * 100 + year_in_century - 4800 + (m >= 10);
  tm->tm_mon = m < 10 ? m + 2 : m - 10;
  tm->tm_year = year - 1900;
  tm->tm_yday = days_in_year[is_leap(year)][tm->tm_mon] + tm->tm_mday - 1;
  int32_t weekday = (julian - 1) % 7 + 1;           /* 1 Monday to 7 Sunday */
  if (weekday <= 0) weekday += 7;
  tm->tm_wday = weekday == 7 ? 0 : weekday;
  tm->tm_isdst = 0;
  return 0;
}

uint32_t datetime_update_datetime(struct tm* tm) {
  if (!tm) return KEL_ERR_INVALID_ARGUMENT;
  int32_t carry = floor_div(tm->tm_sec, 60);
  tm->tm_sec -= carry * 60;
  tm->tm_min += carry;
  carry = floor_div(tm->tm_min, 60);
  tm->tm_min -= carry * 60;
  tm->tm_hour += carry;
  carry = floor_div(tm->tm_hour, 24);
  tm->tm_hour -= carry * 24;
  tm->tm_mday += carry;
  carry = floor_div(tm->tm_mon, 12);
  tm->tm_mon -= carry * 12;
  tm->tm_year += carry;
  int32_t julian;
  uint32_t status = datetime_update_julian(tm, &julian);
  return status ? status : datetime_update_dmy_by_julian(tm, julian);
}

uint32_t datetime_serial_to_tm(struct tm* tm, int32_t serial, bool date1904) {
  if (!tm) return KEL_ERR_INVALID_ARGUMENT;
  tm->tm_hour = tm->tm_min = tm->tm_sec = 0;
  return datetime_update_dmy_by_julian(tm, datetime_serial_to_julian(serial, date1904));
}

/* The day cut to the length of the month of tm. */
static void cut_day(struct tm* tm) {
  int32_t length = days_in_months[is_leap(1900 + tm->tm_year)][tm->tm_mon];
  if (tm->tm_mday > length) tm->tm_mday = length;
}

uint32_t datetime_add_months(struct tm* tm, int32_t months, bool) {
  if (!tm) return KEL_ERR_INVALID_ARGUMENT;
  if (tm->tm_mon < 0 || tm->tm_mon > 11) return KEL_ERR_DATE_FIELD_RANGE;
  int32_t total = tm->tm_mon + months;
  int32_t years = floor_div(total, 12);
  tm->tm_year += years;
  tm->tm_mon = total - years * 12;
  cut_day(tm);
  return 0;
}

uint32_t datetime_subtract_months(struct tm* tm, int32_t months, bool date1904) {
  if (!tm) return KEL_ERR_INVALID_ARGUMENT;
  if (months > 0 && months / 12 >= tm->tm_year) return KEL_ERR_DATE_BEFORE_START;
  return datetime_add_months(tm, -months, date1904);
}

void number_to_year(int32_t* year) {
  if (*year < 30) *year += 2000;
  if (*year >= 1900) *year -= 1900;
}
