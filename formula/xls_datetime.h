/*
 * xls_datetime.h -- serial dates: days since a calendar's origin, with the
 * time of day as the fraction.
 *
 * A workbook uses one of two calendars.  The 1900 calendar counts
 * 1 January 1900 as serial 1 and holds the day 29 February 1900, which never
 * was, as serial 60: serials 59 and 60 fall on the same real day.  The 1904
 * calendar counts 1 January 1904 as serial 0.  Between the two and the
 * fields of a struct tm, every conversion goes through a running day number
 * of the proleptic Gregorian calendar, 1 January of the year 1 being day 1;
 * the functions call it julian.
 *
 * Fields of a struct tm mean what the C library says: tm_year is the year
 * less 1900, tm_mon 0 to 11, tm_mday 1 to 31.  Functions returning a status
 * give KEL_ERR_INVALID_ARGUMENT for a null tm, and the KEL_ERR_DATE_ codes
 * below, which a worksheet function reports as #NUM!.
 */
#ifndef XLS_DATETIME_H
#define XLS_DATETIME_H

#include <stdint.h>
#include <time.h>

/* Days before each month, and the days of the year at the end: row 0 for a
 * common year, row 1 for a leap year. */
extern const uint16_t days_in_year[2][13];
/* The length of each month, rows as above. */
extern const uint8_t days_in_months[2][12];

/* Day 1 of the month, every other field 0, tm_isdst -1. */
uint32_t datetime_init(struct tm* tm);

/* KEL_ERR_DATE_FIELD_RANGE unless tm_year is 0 to 8099, tm_mon 0 to 11,
 * tm_mday 1 to 31, tm_hour 0 to 23 and tm_min and tm_sec 0 to 59.  The
 * length of the month is not looked at, so 31 February passes. */
uint32_t datetime_validate_tm(const struct tm* tm);

/* The day number of the date in tm; a day beyond the month's end runs on
 * into the following months.  KEL_ERR_DATE_NO_DAY when it comes to 0,
 * KEL_ERR_DATE_FIELD_RANGE for a month outside 0 to 11. */
uint32_t datetime_update_julian(const struct tm* tm, int32_t* julian);

/* Serial and day number of a calendar.  In the 1900 calendar serials 59 and
 * 60 give the same day number, 28 February, which gives back 59: no day
 * number leads to serial 60. */
int32_t datetime_serial_to_julian(int32_t serial, bool date1904);
int32_t datetime_julian_to_serial(int32_t julian, bool date1904);

/* The serial of the date in tm; the time fields are not looked at.  A tm
 * without a day number gives the serial of day number 0. */
int32_t datetime_tm_to_serial(const struct tm* tm, bool date1904);

/* Moves the date of tm by days and stores its new day number. */
uint32_t datetime_add_days(struct tm* tm, int32_t days, int32_t* julian);
uint32_t datetime_subtract_days(struct tm* tm, int32_t days, int32_t* julian);

/* The serial of date and time: the date's serial plus (hours * 3600 +
 * minutes * 60 + seconds) / 86400. */
uint32_t datetime_assemble_time(const struct tm* tm, double* serial, bool date1904);

/* Day, month, year, weekday (0 Sunday) and day of the year of a day number;
 * tm_isdst becomes 0 and the time fields stay as they are. */
uint32_t datetime_update_dmy_by_julian(struct tm* tm, int32_t julian);

/* Brings fields that ran over back into range: seconds into minutes,
 * minutes into hours, hours into days, months into years, and days into
 * months and years through the day number.  Fields below range borrow from
 * the next larger unit in the same way. */
uint32_t datetime_update_datetime(struct tm* tm);

/* The date of a serial day in tm, time fields 0.  The 1900 calendar's
 * serial 0 and 60 come out as the real days 31 December 1899 and
 * 28 February 1900; a number format shows them otherwise. */
uint32_t datetime_serial_to_tm(struct tm* tm, int32_t serial, bool date1904);

/* Month arithmetic: the day is cut to the length of the month reached, so
 * 31 January plus one month is the last day of February.  Subtracting
 * gives KEL_ERR_DATE_BEFORE_START, leaving tm as it was, when its whole
 * years (months / 12) reach tm_year: no subtraction starts from 1900, and
 * none ends before it.  The calendar changes nothing here: both count
 * months alike. */
uint32_t datetime_add_months(struct tm* tm, int32_t months, bool date1904);
uint32_t datetime_subtract_months(struct tm* tm, int32_t months, bool date1904);

/* A year typed in a date becomes a year offset as tm_year holds it: below
 * 30 it is in this century, so "29" is 2029 and "30" is 1930; from 1900 on
 * 1900 is taken off. */
void number_to_year(int32_t* year);

#endif /* XLS_DATETIME_H */
