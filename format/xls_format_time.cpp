/*
 * xls_format_time.cpp -- date and time fields of a format: days, months,
 * years, hours, minutes, seconds, the AM/PM marker and elapsed time.
 */
#include <math.h>
#include <string.h>
#include <time.h>

#include "format/kel_locale.h"
#include "format/xls_format_internal.h"
#include "formula/xls_datetime.h"

const char* const format_month_short[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char* const format_month_one_letter[12] = {"J", "F", "M", "A", "M", "J",
                                                 "J", "A", "S", "O", "N", "D"};
const char* const format_month_long[12] = {"January", "February", "March",     "April",
                                           "May",     "June",     "July",      "August",
                                           "September", "October", "November", "December"};
const char* const format_day_short[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const format_day_long[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                        "Thursday", "Friday", "Saturday"};

/* The first serial that is no date: the day after 31 December 9999. */
static const double kFirstSerialPastDates = 2958466;

void format_split_time(struct tm* tm, double value, bool date1904) {
  memset(tm, 0, sizeof *tm);
  /* Half a second up, so that a time a hair below a whole second shows it. */
  double shifted = value + 1.0 / 172800;
  double day = floor(shifted);
  int32_t serial = static_cast<int32_t>(day);
  datetime_serial_to_tm(tm, serial, date1904);
  if (!date1904 && serial == 0) {
    /* "0 January 1900", the day before the first. */
    tm->tm_mday = 0;
    tm->tm_mon = 0;
    tm->tm_year = 0;
  } else if (!date1904 && serial == 60) {
    /* The 1900 calendar's 29 February, which has no day number of its own. */
    tm->tm_mday = 29;
    tm->tm_mon = 1;
  }
  int32_t seconds = static_cast<int32_t>((shifted - day) * 86400);
  tm->tm_hour = seconds / 3600;
  tm->tm_min = seconds / 60 % 60;
  tm->tm_sec = seconds % 60;
}

void format_append_hour_elapsed(unsigned short* out, int* position, struct tm* tm,
                                double value) {
  double whole;
  double fraction = modf(value, &whole);
  /* Hundredths of a second, rounded half up. */
  int64_t hundredths = static_cast<int64_t>(fabs(fraction) * 86400 * 100 + 0.5);
  int64_t hours = hundredths / 360000;
  if (value < 0) hours = -hours;
  hours += static_cast<int64_t>(whole) * 24;
  tm->tm_hour = static_cast<int>(hours);
  char text[24];
  fmt_printf(text, sizeof text, "%lld", static_cast<long long>(hours));
  fmt_put_ascii(out, position, text);
}

/* A name from the locale's table, or the built-in English one. */
static void put_name(fmt_walk_t* walk, const unsigned short* localised, const char* english) {
  if (localised) {
    for (; *localised; ++localised) fmt_put(walk->out, &walk->position, *localised);
  } else {
    fmt_put_ascii(walk->out, &walk->position, english);
  }
}

static void put_number(fmt_walk_t* walk, int width, int number) {
  char text[XLS_FORMAT_BUFFER_SIZE];
  fmt_printf(text, sizeof text, "%0*d", width, number);
  fmt_put_ascii(walk->out, &walk->position, text);
}

static int run_length(const unsigned short* p) {
  unsigned short letter = *p | 0x20;
  int n = 1;
  while ((p[n] | 0x20) == letter) ++n;
  return n;
}

/* The AM/PM marker at walk->p: "A" (and an "M" behind it) shows before
 * noon, "P" from noon on; the other is skipped, and so is a "/" behind
 * either. */
static void marker(fmt_walk_t* walk, int hour) {
  const unsigned short* p = walk->p;
  bool morning = (*p | 0x20) == 'a';
  bool show = morning ? hour < 12 : hour >= 12;
  int length = (p[1] == 'M' || p[1] == 'm') ? 2 : 1;
  for (int i = 0; i < length; ++i)
    if (show) fmt_put(walk->out, &walk->position, p[i]);
  p += length;
  if (*p == '/') ++p;
  walk->p = p;
}

bool fmt_date_field(fmt_walk_t* walk) {
  if (!(walk->value >= 0 && walk->value < kFirstSerialPastDates)) {  /* NaN too */
    fmt_overflow(walk->out, &walk->position);
    return false;
  }
  if (!fmt_render_pending(walk)) return false;
  struct tm tm;
  format_split_time(&tm, walk->value, walk->date1904);
  const xls_locale* locale = walk->section->locale;
  const unsigned short* p = walk->p;
  unsigned short letter = *p | 0x20;
  if (letter == 'a' || letter == 'p') {
    marker(walk, tm.tm_hour);
    return true;
  }
  int n = run_length(p);
  bool date_field = false, time_field = false;
  if (walk->elapsed_mode && (letter == 'h' || letter == 'm' || letter == 's')) {
    format_append_hour_elapsed(walk->out, &walk->position, &tm, walk->value);
    walk->elapsed_mode = false;
    walk->elapsed_printed = true;
    walk->hour_printed = true;
    time_field = true;
  } else if (letter == 'd') {
    date_field = true;
    if (n <= 2) put_number(walk, n, tm.tm_mday);
    else if (n == 3) put_name(walk, locale ? locale->day_names[tm.tm_wday][1] : nullptr,
                              format_day_short[tm.tm_wday]);
    else put_name(walk, locale ? locale->day_names[tm.tm_wday][0] : nullptr,
                  format_day_long[tm.tm_wday]);
  } else if (letter == 'm') {
    bool minute = n <= 2 && (walk->hour_printed || (p[n] == ':' && (p[n + 1] | 0x20) == 's'));
    if (minute) {
      time_field = true;
      put_number(walk, n, tm.tm_min);
    } else {
      date_field = true;
      int month = tm.tm_mon;
      if (n <= 2) put_number(walk, n, month + 1);
      else if (n == 3) put_name(walk, locale ? locale->month_names[month][1] : nullptr,
                                format_month_short[month]);
      else if (n == 5) put_name(walk, locale ? locale->month_names[month][2] : nullptr,
                                format_month_one_letter[month]);
      else put_name(walk, locale ? locale->month_names[month][0] : nullptr,
                    format_month_long[month]);
    }
  } else if (letter == 'h') {
    int hour = tm.tm_hour;
    if (walk->section->has_am_pm || n >= 3) {
      hour %= 12;
      if (!hour) hour = 12;
    }
    put_number(walk, n > 2 ? 2 : n, hour);
    walk->hour_printed = true;
    time_field = true;
  } else if (letter == 's') {
    put_number(walk, n, tm.tm_sec);
  } else {  /* y */
    date_field = true;
    if (n == 1) {
      fmt_put(walk->out, &walk->position, 'y');
    } else if (n == 2) {
      put_number(walk, 2, (1900 + tm.tm_year) % 100);
    } else {
      put_number(walk, 4, 1900 + tm.tm_year);
      if (n > 4) n = 4;
    }
  }
  p += n;
  if (letter == 'h' || letter == 'm' || letter == 's') {
    if (*p == ']') ++p;
    if (letter == 's' && *p == '.') {
      /* Fractions of a second are not computed: the point and its zeros
       * show as they are written. */
      do fmt_put(walk->out, &walk->position, *p++);
      while (*p == '0');
    }
  }
  if (date_field && *p == '/') {
    fmt_put(walk->out, &walk->position,
            locale && locale->date_separator ? locale->date_separator : '/');
    ++p;
  } else if (time_field && *p == ':') {
    fmt_put(walk->out, &walk->position,
            locale && locale->time_separator ? locale->time_separator : ':');
    ++p;
  }
  walk->p = p;
  return true;
}
