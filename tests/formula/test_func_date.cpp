// Date and time handlers, called directly with evaluated arguments, in a
// workbook of either calendar built in memory.
#include <time.h>

#include "format/xls_builtin_formats.h"
#include "formula/xls_functions.h"
#include "formula_test_book.h"
#include "test_support.h"

using namespace formula_test;

namespace {

TEST(FuncDate, DateNormalisesMonthsAndDays) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:36526", call(xls_expr_func_date, env, {lng(2000), lng(1), lng(1)}));
  EXPECT_EQ("n:36892", call(xls_expr_func_date, env, {lng(2000), lng(13), lng(1)}));
  EXPECT_EQ("n:36495", call(xls_expr_func_date, env, {lng(2000), lng(0), lng(1)}));
  EXPECT_EQ("n:36525", call(xls_expr_func_date, env, {lng(2000), lng(1), lng(0)}));
  EXPECT_EQ("n:36161", call(xls_expr_func_date, env, {lng(99), lng(1), lng(1)}));
  EXPECT_EQ("n:2958465", call(xls_expr_func_date, env, {lng(9999), lng(12), lng(31)}));
  // Positive parts are cut, parts at 0 and below rounded away from zero.
  EXPECT_EQ("n:36526", call(xls_expr_func_date, env, {num(2000.9), num(1.9), num(1.9)}));
  EXPECT_EQ("n:36465", call(xls_expr_func_date, env, {lng(2000), num(-0.5), lng(1)}));

  // The false leap day of 1900.
  EXPECT_EQ("n:1", call(xls_expr_func_date, env, {lng(1900), lng(1), lng(1)}));
  EXPECT_EQ("n:60", call(xls_expr_func_date, env, {lng(1900), lng(2), lng(29)}));
  EXPECT_EQ("n:61", call(xls_expr_func_date, env, {lng(1900), lng(2), lng(30)}));
  EXPECT_EQ("n:60", call(xls_expr_func_date, env, {lng(1901), lng(-10), lng(29)}));

  EXPECT_EQ("e:36", call(xls_expr_func_date, env, {lng(10000), lng(1), lng(1)}));
  EXPECT_EQ("e:36", call(xls_expr_func_date, env, {lng(-1), lng(1), lng(1)}));
  EXPECT_EQ("e:36", call(xls_expr_func_date, env, {lng(9999), lng(13), lng(1)}));
  EXPECT_EQ("e:36", call(xls_expr_func_date, env, {lng(1900), lng(0), lng(1)}));
  EXPECT_EQ("e:36", call(xls_expr_func_date, env, {lng(1900), lng(1), lng(-1)}));
  EXPECT_EQ("e:36", call(xls_expr_func_date, env, {lng(2000), num(1e300), lng(1)}));
  EXPECT_EQ("e:7", call(xls_expr_func_date, env, {lng(2000), err(xls_error_div0), lng(1)}));
  EXPECT_EQ("e:15", call(xls_expr_func_date, env, {lng(2000), str("x"), lng(1)}));
  EXPECT_EQ("n:36526", call(xls_expr_func_date, env, {str("2000"), boolean(true), lng(1)}));

  book.file()->dates_1904 = true;
  EXPECT_EQ("e:36", call(xls_expr_func_date, env, {lng(2000), lng(1), lng(1)}));
}

TEST(FuncDate, TimeWrapsOnlyTheHours) {
  Book book;
  xls_recalc_env env = book.env();
  std::string one_hour = call(xls_expr_func_time, env, {lng(1), lng(0), lng(0)});
  EXPECT_EQ("n:0.0416666666666667", one_hour);
  EXPECT_EQ(one_hour, call(xls_expr_func_time, env, {lng(25), lng(0), lng(0)}));
  EXPECT_EQ("n:1.04166666666667", call(xls_expr_func_time, env, {lng(0), lng(1500), lng(0)}));
  EXPECT_EQ("n:0.5", call(xls_expr_func_time, env, {num(12.9), lng(0), lng(0)}));
  EXPECT_EQ("e:36", call(xls_expr_func_time, env, {lng(-1), lng(0), lng(0)}));
  EXPECT_EQ("e:36", call(xls_expr_func_time, env, {lng(0), lng(32768), lng(0)}));
  EXPECT_EQ("e:42", call(xls_expr_func_time, env, {lng(0), lng(0), err(xls_error_na)}));
}

TEST(FuncDate, HourMinuteSecondRoundByHalfASecond) {
  Book book;
  xls_recalc_env env = book.env();
  EXPECT_EQ("n:0", call(xls_expr_func_hour, env, {num(0.99999999)}));
  EXPECT_EQ("n:30", call(xls_expr_func_minute, env, {num(0.0625)}));
  EXPECT_EQ("n:2", call(xls_expr_func_second, env, {num(1.6 / 86400)}));
  EXPECT_EQ("n:1", call(xls_expr_func_second, env, {num(1.4 / 86400)}));
  EXPECT_EQ("n:18", call(xls_expr_func_hour, env, {num(-0.25)}));
  EXPECT_EQ("n:12", call(xls_expr_func_hour, env, {num(2958465.5)}));
  EXPECT_EQ("e:36", call(xls_expr_func_hour, env, {num(2958466)}));
  EXPECT_EQ("e:15", call(xls_expr_func_hour, env, {str("noon")}));

  book.file()->dates_1904 = true;
  EXPECT_EQ("e:36", call(xls_expr_func_second, env, {num(2957004)}));
  EXPECT_EQ("n:6", call(xls_expr_func_hour, env, {num(2957003.25)}));
}

TEST(FuncDate, YearMonthDayOfBothCalendars) {
  Book book;
  xls_recalc_env env = book.env();
  auto ymd = [&](xls_value_t (*make)()) {
    return call(xls_expr_func_year, env, {make()}) + " " +
           call(xls_expr_func_month, env, {make()}) + " " + call(xls_expr_func_day, env, {make()});
  };
  EXPECT_EQ("n:1900 n:1 n:0", ymd([] { return lng(0); }));  // the day before the first
  EXPECT_EQ("n:1900 n:1 n:1", ymd([] { return lng(1); }));
  // Serial 60 is the false 29 February: its day number is the 28th's.
  EXPECT_EQ("n:1900 n:2 n:28", ymd([] { return lng(60); }));
  EXPECT_EQ("n:1900 n:3 n:1", ymd([] { return lng(61); }));
  EXPECT_EQ("n:2000 n:1 n:1", ymd([] { return num(36526.75); }));
  EXPECT_EQ("n:9999 n:12 n:31", ymd([] { return lng(2958465); }));
  EXPECT_EQ("e:36 e:36 e:36", ymd([] { return lng(2958466); }));
  EXPECT_EQ("e:36 e:36 e:36", ymd([] { return lng(-1); }));
  EXPECT_EQ("e:42", call(xls_expr_func_day, env, {err(xls_error_na)}));

  book.file()->dates_1904 = true;
  EXPECT_EQ("n:1904 n:1 n:1", ymd([] { return lng(0); }));
  EXPECT_EQ("n:1904 n:2 n:29", ymd([] { return lng(59); }));
  EXPECT_EQ("e:36 e:36 e:36", ymd([] { return lng(2957004); }));
}

TEST(FuncDate, WeekdayTypes) {
  Book book;
  xls_recalc_env env = book.env();
  // Before the false leap day the weekdays are shifted: 1 January 1900 is
  // a Sunday here.
  EXPECT_EQ("n:1", call(xls_expr_func_weekday, env, {lng(1)}));
  EXPECT_EQ("n:7", call(xls_expr_func_weekday, env, {lng(1), lng(2)}));
  EXPECT_EQ("n:6", call(xls_expr_func_weekday, env, {lng(1), lng(3)}));
  EXPECT_EQ("n:4", call(xls_expr_func_weekday, env, {lng(60)}));
  EXPECT_EQ("n:5", call(xls_expr_func_weekday, env, {lng(61)}));  // a Thursday
  EXPECT_EQ("n:7", call(xls_expr_func_weekday, env, {num(36526.9)}));  // a Saturday
  EXPECT_EQ("e:36", call(xls_expr_func_weekday, env, {lng(1), lng(4)}));
  EXPECT_EQ("e:36", call(xls_expr_func_weekday, env, {lng(-1)}));
  EXPECT_EQ("e:42", call(xls_expr_func_weekday, env, {lng(1), err(xls_error_na)}));

  // The 1904 calendar has no shift: 1 January 1904 was a Friday.
  book.file()->dates_1904 = true;
  EXPECT_EQ("n:6", call(xls_expr_func_weekday, env, {lng(0)}));
}

// The handler's result, and the format it suggests at env.
std::string call_format(xls_expr_handler_t handler, xls_recalc_env* env,
                        std::initializer_list<double> numbers) {
  xls_value_t args[3];
  int count = 0;
  for (double n : numbers) args[count++] = num(n);
  xls_value_t result;
  xls_value_empty(&result);
  env->result_format = nullptr;
  handler(&result, env, args, count);
  xls_free_value(&result);
  return ascii(env->result_format);
}

TEST(FuncDate, ResultFormats) {
  Book book;
  xls_recalc_env env = book.env("B2");
  std::string date = ascii(xls_default_format_by_index(14, nullptr));
  std::string time = ascii(xls_default_format_by_index(18, nullptr));
  std::string date_time = ascii(xls_default_format_by_index(22, nullptr));
  EXPECT_EQ(date, call_format(xls_expr_func_date, &env, {2000, 1, 1}));
  EXPECT_EQ(time, call_format(xls_expr_func_time, &env, {1, 2, 3}));
  EXPECT_EQ(date_time, call_format(xls_expr_func_now, &env, {}));
  EXPECT_EQ(date, call_format(xls_expr_func_today, &env, {}));
  EXPECT_EQ("", call_format(xls_expr_func_hour, &env, {0.5}));
  EXPECT_EQ("", call_format(xls_expr_func_date, &env, {10000, 1, 1}));

  // A cell that shows a date or time keeps its own format.
  xls_file* file = book.file();
  auto put_formatted = [&](const char* a1, int row, uint16_t format) {
    biff_xf xf = file->xfs[15];
    xf.format = format;
    ASSERT_EQ(0u, xls_array_push(&file->xfs_info, reinterpret_cast<void**>(&file->xfs), &xf));
    book.put(a1, 0.0);
    auto_value_t cell = nullptr;
    ASSERT_EQ(0u, xls_get_cell_value(book.sheet(), 1, row, &cell));
    cell->xf = static_cast<uint16_t>(file->xfs_info.count - 1);
    auto_cell_release(&cell);
  };
  put_formatted("B2", 1, 20);  // h:mm
  put_formatted("B3", 2, 2);   // 0.00
  std::string own = ascii(xls_default_format_by_index(20, nullptr));
  EXPECT_EQ(own, call_format(xls_expr_func_date, &env, {2000, 1, 1}));
  xls_recalc_env numbers = book.env("B3");
  EXPECT_EQ(date, call_format(xls_expr_func_date, &numbers, {2000, 1, 1}));
}

TEST(FuncDate, NowAndTodayReadTheClock) {
  Book book;
  xls_recalc_env env = book.env();
  time_t before = time(nullptr);
  xls_value_t now, today;
  xls_value_empty(&now);
  xls_value_empty(&today);
  xls_expr_func_now(&now, &env, nullptr, 0);
  xls_expr_func_today(&today, &env, nullptr, 0);
  ASSERT_EQ(static_cast<uint32_t>(bvt_double), now.u.basic.kind);
  ASSERT_EQ(static_cast<uint32_t>(bvt_long), today.u.basic.kind);
  // Midnight may pass between the two calls.
  double since_midnight = now.u.basic.u.double_value - today.u.basic.u.long_value;
  EXPECT_TRUE(since_midnight >= -1 && since_midnight < 1) << since_midnight;
  // Days since 1 January 1970, serial 25569, give today's serial within a
  // day of the time zone.
  double expected = 25569 + before / 86400.0;
  EXPECT_NEAR(expected, tabulon_test::copied(now.u.basic.u.double_value), 1.0);

  // The workbook's calendar doesn't count.
  book.file()->dates_1904 = true;
  xls_value_t today_1904;
  xls_value_empty(&today_1904);
  xls_expr_func_today(&today_1904, &env, nullptr, 0);
  EXPECT_NEAR(today.u.basic.u.long_value, today_1904.u.basic.u.long_value, 1);
}

}  // namespace
