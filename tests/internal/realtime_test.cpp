// The 2004-epoch formula of ktRealtime: the known dates, and agreement
// with the C library's calendar from the epoch to 2099. Before the epoch
// the formula's truncating divisions leave some dates a day off, and from
// 2100 on its leap rule does: both are how the formula is defined.
#include <ctime>
#include <random>

#include <gtest/gtest.h>

#include "timing/clocks.h"

namespace {

using kt::internal::RealtimeFromLocal;

double Formula(int year, int month, int day, int hour = 0, int minute = 0, double second = 0) {
  const double fields[6] = {double(year), double(month), double(day), double(hour),
                            double(minute), second};
  return RealtimeFromLocal(fields);
}

// Seconds from 2004-03-01 by the Gregorian calendar (timegm: no time zone).
double Calendar(int year, int month, int day, int hour, int minute, int second) {
  tm date = {};
  date.tm_year = year - 1900;
  date.tm_mon = month - 1;
  date.tm_mday = day;
  date.tm_hour = hour;
  date.tm_min = minute;
  date.tm_sec = second;
  tm epoch = {};
  epoch.tm_year = 104;
  epoch.tm_mon = 2;
  epoch.tm_mday = 1;
  return static_cast<double>(timegm(&date) - timegm(&epoch));
}

}  // namespace

TEST(Realtime, KnownDates) {
  EXPECT_EQ(Formula(2004, 3, 1), 0);
  EXPECT_EQ(Formula(2004, 3, 2), 86400);
  EXPECT_EQ(Formula(2005, 3, 1), 365 * 86400.0);
  EXPECT_EQ(Formula(2008, 3, 1), (4 * 365 + 1) * 86400.0);
  EXPECT_EQ(Formula(2004, 3, 1, 1, 2, 3.25), 3723.25);
}

TEST(Realtime, MatchesTheCalendarFromTheEpochTo2099) {
  std::mt19937 rng(2004);
  for (int i = 0; i < 20000; ++i) {
    int year = 1901 + static_cast<int>(rng() % 199);
    int month = 1 + static_cast<int>(rng() % 12);
    int day = 1 + static_cast<int>(rng() % 28);
    int hour = static_cast<int>(rng() % 24), minute = static_cast<int>(rng() % 60);
    int second = static_cast<int>(rng() % 60);
    double difference = Formula(year, month, day, hour, minute, second) -
                        Calendar(year, month, day, hour, minute, second);
    bool afterEpoch = year > 2004 || (year == 2004 && month >= 3);
    if (afterEpoch)
      ASSERT_EQ(difference, 0) << year << "-" << month << "-" << day;
    else
      ASSERT_TRUE(difference == 0 || difference == 86400 || difference == -86400)
          << year << "-" << month << "-" << day << ": " << difference;
  }
  EXPECT_EQ(Formula(1939, 3, 9) - Calendar(1939, 3, 9, 0, 0, 0), 86400) << "truncated l";
  EXPECT_EQ(Formula(2100, 3, 1) - Calendar(2100, 3, 1, 0, 0, 0), 86400) << "2100 counted as leap";
}
