// Serial dates: the two calendars, day numbers, and date arithmetic on the
// fields of a struct tm.
#include <gtest/gtest.h>
#include <string.h>
#include <time.h>

#include "formula/xls_datetime.h"
#include "kel_status.h"

namespace {

struct tm date(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  struct tm t;
  datetime_init(&t);
  t.tm_year = year - 1900;
  t.tm_mon = month - 1;
  t.tm_mday = day;
  t.tm_hour = hour;
  t.tm_min = minute;
  t.tm_sec = second;
  return t;
}

// "YYYY-MM-DD" of the date fields.
std::string text(const struct tm& t) {
  char buffer[32];
  snprintf(buffer, sizeof buffer, "%04d-%02d-%02d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday);
  return buffer;
}

std::string serial_date(int32_t serial, bool date1904) {
  struct tm t;
  EXPECT_EQ(0u, datetime_serial_to_tm(&t, serial, date1904));
  return text(t);
}

TEST(Datetime, TheTwoCalendars) {
  EXPECT_EQ("1900-01-01", serial_date(1, false));
  EXPECT_EQ("1899-12-31", serial_date(0, false));
  // 59 and 60 are both 28 February: the 1900 calendar's 29 February is no
  // real day, and no day number leads back to 60.
  EXPECT_EQ("1900-02-28", serial_date(59, false));
  EXPECT_EQ(datetime_serial_to_julian(59, false), datetime_serial_to_julian(60, false));
  EXPECT_EQ(59, datetime_julian_to_serial(datetime_serial_to_julian(60, false), false));
  EXPECT_EQ("1900-03-01", serial_date(61, false));
  EXPECT_EQ("1904-01-01", serial_date(0, true));
  EXPECT_EQ(datetime_serial_to_julian(1462, true), datetime_serial_to_julian(2924, false));

  // Weekdays count from the real calendar: 1 January 1900 was a Monday.
  struct tm t;
  datetime_serial_to_tm(&t, 1, false);
  EXPECT_EQ(1, t.tm_wday);
  datetime_serial_to_tm(&t, 36891, false);  // 31 December 2000, a Sunday
  EXPECT_EQ(0, t.tm_wday);
  EXPECT_EQ(365, t.tm_yday);
  EXPECT_EQ(0, t.tm_isdst);
}

TEST(Datetime, EveryDayRoundTrips) {
  // Serial to fields and back, through leap years and centuries, in both
  // calendars; 60 is the one serial that has no fields of its own.
  for (bool date1904 : {false, true}) {
    int32_t last = date1904 ? 2957003 : 2958465;  // 31 December 9999
    EXPECT_EQ("9999-12-31", serial_date(last, date1904));
    for (int32_t serial = 1; serial <= last; serial += 7) {
      struct tm t;
      ASSERT_EQ(0u, datetime_serial_to_tm(&t, serial, date1904));
      ASSERT_EQ(0u, datetime_validate_tm(&t)) << serial;
      int32_t expected = !date1904 && serial == 60 ? 59 : serial;
      ASSERT_EQ(expected, datetime_tm_to_serial(&t, date1904)) << serial << " " << text(t);
    }
  }
  struct tm t = date(2000, 2, 29);
  int32_t julian;
  ASSERT_EQ(0u, datetime_update_julian(&t, &julian));
  struct tm back;
  datetime_init(&back);
  datetime_update_dmy_by_julian(&back, julian);
  EXPECT_EQ("2000-02-29", text(back));
}

TEST(Datetime, Validation) {
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, datetime_init(nullptr));
  struct tm t;
  EXPECT_EQ(0u, datetime_validate_tm(&(t = date(2001, 2, 31, 23, 59, 59))));  // no month length
  EXPECT_EQ(0u, datetime_validate_tm(&(t = date(9999, 12, 31))));
  for (struct tm bad : {date(10000, 1, 1), date(1899, 12, 31), date(2000, 13, 1), date(2000, 1, 0),
                        date(2000, 1, 1, 24), date(2000, 1, 1, 0, 60), date(2000, 1, 1, 0, 0, 60)})
    EXPECT_EQ(KEL_ERR_DATE_FIELD_RANGE, datetime_validate_tm(&bad)) << text(bad);
}

TEST(Datetime, DayNumbers) {
  struct tm t = date(1, 1, 1);
  int32_t julian = -1;
  ASSERT_EQ(0u, datetime_update_julian(&t, &julian));
  EXPECT_EQ(1, julian);
  t.tm_mday = 0;  // the day before the first has no number
  EXPECT_EQ(KEL_ERR_DATE_NO_DAY, datetime_update_julian(&t, &julian));
  EXPECT_EQ(1, julian);
  t = date(2000, 1, 1);
  t.tm_mon = 12;
  EXPECT_EQ(KEL_ERR_DATE_FIELD_RANGE, datetime_update_julian(&t, &julian));
  EXPECT_EQ(45000, datetime_tm_to_serial(&(t = date(2023, 3, 15)), false));
  // A day past the month's end runs on into the next month.
  int32_t first_of_february;
  datetime_update_julian(&(t = date(2023, 1, 32)), &julian);
  datetime_update_julian(&(t = date(2023, 2, 1)), &first_of_february);
  EXPECT_EQ(first_of_february, julian);
}

TEST(Datetime, AddingDaysAndTimes) {
  struct tm t = date(1999, 12, 31);
  int32_t julian;
  ASSERT_EQ(0u, datetime_add_days(&t, 1, &julian));
  EXPECT_EQ("2000-01-01", text(t));
  ASSERT_EQ(0u, datetime_subtract_days(&t, 366, &julian));
  EXPECT_EQ("1998-12-31", text(t));
  EXPECT_EQ(KEL_ERR_INVALID_ARGUMENT, datetime_add_days(&t, 1, nullptr));

  double serial = 0;
  ASSERT_EQ(0u, datetime_assemble_time(&(t = date(1900, 1, 1, 12)), &serial, false));
  EXPECT_DOUBLE_EQ(1.5, serial);
  ASSERT_EQ(0u, datetime_assemble_time(&(t = date(1904, 1, 1, 6)), &serial, true));
  EXPECT_DOUBLE_EQ(0.25, serial);
  ASSERT_EQ(0u, datetime_assemble_time(&(t = date(2023, 3, 15, 23, 59, 59)), &serial, false));
  EXPECT_DOUBLE_EQ(45000 + 86399.0 / 86400, serial);

  // Fields that ran over carry, up to months and years.
  t = date(1999, 12, 31, 23, 59, 60);
  ASSERT_EQ(0u, datetime_update_datetime(&t));
  EXPECT_EQ("2000-01-01", text(t));
  EXPECT_EQ(0, t.tm_hour + t.tm_min + t.tm_sec);
  t = date(2000, 2, 28, 48, 0, 0);
  datetime_update_datetime(&t);
  EXPECT_EQ("2000-03-01", text(t));
  t = date(2000, 1, 1, 0, 0, -1);
  datetime_update_datetime(&t);
  EXPECT_EQ("1999-12-31", text(t));
  EXPECT_EQ(23, t.tm_hour);
  EXPECT_EQ(59, t.tm_sec);
}

TEST(Datetime, MonthArithmeticCutsTheDay) {
  struct tm t = date(2023, 1, 31);
  ASSERT_EQ(0u, datetime_add_months(&t, 1, false));
  EXPECT_EQ("2023-02-28", text(t));
  t = date(2024, 1, 31);
  datetime_add_months(&t, 1, false);
  EXPECT_EQ("2024-02-29", text(t));
  t = date(2023, 11, 30);
  datetime_add_months(&t, 14, true);
  EXPECT_EQ("2025-01-30", text(t));
  t = date(2023, 3, 31);
  ASSERT_EQ(0u, datetime_subtract_months(&t, 13, false));
  EXPECT_EQ("2022-02-28", text(t));
  // No subtraction reaches back to the first year: whole years up to the
  // year offset are refused and the date stays.
  t = date(1901, 6, 15);
  EXPECT_EQ(0u, datetime_subtract_months(&t, 11, false));
  EXPECT_EQ("1900-07-15", text(t));
  t = date(1901, 6, 15);
  EXPECT_EQ(KEL_ERR_DATE_BEFORE_START, datetime_subtract_months(&t, 12, false));
  EXPECT_EQ("1901-06-15", text(t));
  t = date(1900, 6, 15);
  EXPECT_EQ(KEL_ERR_DATE_BEFORE_START, datetime_subtract_months(&t, 1, false));
}

TEST(Datetime, TypedYears) {
  // Two digits: below 30 the 2000s; four digits: the offset from 1900.
  struct Case { int32_t typed, offset; };
  for (const Case& c : {Case{29, 129}, Case{30, 30}, Case{0, 100}, Case{1999, 99}, Case{1900, 0}}) {
    int32_t year = c.typed;
    number_to_year(&year);
    EXPECT_EQ(c.offset, year) << c.typed;
  }
}

}  // namespace
