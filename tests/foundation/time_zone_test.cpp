#include "tav/vinta/vinta_basetypes_time.h"

#include "support/in_zone.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

// The zone of a process is found once, so every test that asks for it does so in a child of its own.
namespace {

std::string shown(tavTimeZone const & zone) {
    return std::string(zone.str()) + " " + std::to_string(zone.offset());
}

std::string text(tavString const & v) {
    return std::string(v.data(), v.size());
}

std::string localZoneAt(char const * zone) {
    return tav_test::inZone(zone, [] { return shown(tavLocalZone::get()); });
}

TEST(TimeZone, DefaultIsGreenwich) {
    EXPECT_EQ(shown(tavTimeZone()), "GMT 0");
    EXPECT_EQ(shown(tavTimeZone::gmt()), "GMT 0");
}

TEST(TimeZone, EastIsNegative) {
    EXPECT_EQ(shown(tavTimeZone::east(8)), "+0800 -28800");
    EXPECT_EQ(shown(tavTimeZone::east(-5)), "-0500 18000");
    EXPECT_EQ(shown(tavTimeZone::east(0)), "+0000 0");
}

TEST(TimeZone, WestIsPositive) {
    EXPECT_EQ(shown(tavTimeZone::west(5)), "-0500 18000");
    EXPECT_EQ(shown(tavTimeZone::west(-8)), "+0800 -28800");
    EXPECT_EQ(shown(tavTimeZone::west(0)), "+0000 0");
}

TEST(TimeZone, HoursAndMinutesCountWestward) {
    EXPECT_EQ(shown(tavTimeZone::hours(5)), "-0500 18000");
    EXPECT_EQ(shown(tavTimeZone::hours(-8)), "+0800 -28800");
    EXPECT_EQ(shown(tavTimeZone::minutes(210)), "-0330 12600");
    EXPECT_EQ(shown(tavTimeZone::minutes(-330)), "+0530 -19800");
}

TEST(TimeZone, FromSecondsSplitsIntoHoursAndMinutes) {
    EXPECT_EQ(shown(tavTimeZone(-20700)), "+0545 -20700");
    EXPECT_EQ(shown(tavTimeZone(12600)), "-0330 12600");
    EXPECT_EQ(shown(tavTimeZone(0)), "+0000 0");
}

TEST(TimeZone, FromSecondsDropsOddSeconds) {
    EXPECT_EQ(shown(tavTimeZone(3659)), "-0100 3600");
    EXPECT_EQ(shown(tavTimeZone(-3659)), "+0100 -3600");
    EXPECT_EQ(shown(tavTimeZone(1)), "-0000 0");
    EXPECT_EQ(shown(tavTimeZone(-1)), "+0000 0");
}

TEST(TimeZone, FromTheLargestCountsDoesNotOverflow) {
    EXPECT_EQ(shown(tavTimeZone(std::numeric_limits<int>::max())), "-2314 2147483640");
    EXPECT_EQ(shown(tavTimeZone(std::numeric_limits<int>::min())), "+2314 -2147483640");
}

TEST(TimeZone, PartsMakeTextAndOffset) {
    EXPECT_EQ(shown(tavTimeZone('+', 8, 0)), "+0800 -28800");
    EXPECT_EQ(shown(tavTimeZone('-', 3, 30)), "-0330 12600");
    EXPECT_EQ(shown(tavTimeZone('+', 5, 45)), "+0545 -20700");
}

TEST(TimeZone, AnySignButPlusIsWest) {
    EXPECT_EQ(shown(tavTimeZone('x', 1, 0)), "x0100 3600");
    EXPECT_EQ(shown(tavTimeZone(' ', 1, 0)), " 0100 3600");
}

TEST(TimeZone, TextKeepsTwoDigitsAndTheOffsetAll) {
    EXPECT_EQ(shown(tavTimeZone('-', 123, 4)), "-2304 443040");
    EXPECT_EQ(shown(tavTimeZone('-', 0, 456)), "-0056 27360");
}

TEST(TimeZone, TextDropsTheSignsOfParts) {
    EXPECT_EQ(shown(tavTimeZone('-', -12, -34)), "-1234 -45240");
}

TEST(TimeZone, AssignReplaces) {
    tavTimeZone zone = tavTimeZone::east(8);
    zone.assign('-', 5, 0);
    EXPECT_EQ(shown(zone), "-0500 18000");
    zone.assign(tavTimeZone::gmt());
    EXPECT_EQ(shown(zone), "GMT 0");
    zone = tavTimeZone::east(1);
    EXPECT_EQ(shown(zone), "+0100 -3600");
    tavTimeZone const copy(zone);
    EXPECT_EQ(shown(copy), "+0100 -3600");
}

TEST(TimeZone, MinusIsTheOppositeZone) {
    EXPECT_EQ(shown(-tavTimeZone::east(8)), "-0800 28800");
    EXPECT_EQ(shown(-tavTimeZone::west(5)), "+0500 -18000");
    EXPECT_EQ(shown(-tavTimeZone::gmt()), "+0000 0");
}

TEST(TimeZone, IntToCharIsTheLastDigit) {
    EXPECT_EQ(tavTimeZone::intToChar(0), '0');
    EXPECT_EQ(tavTimeZone::intToChar(7), '7');
    EXPECT_EQ(tavTimeZone::intToChar(123), '3');
    EXPECT_EQ(tavTimeZone::intToChar(-19), '9');
    EXPECT_EQ(tavTimeZone::intToChar(std::numeric_limits<int>::min()), '8');
}

TEST(TimeZoneLocalZone, EastReadsTheClockOfMidnight) {
    EXPECT_EQ(localZoneAt("CST-8"), "+0800 -28800");
    EXPECT_EQ(localZoneAt("IST-5:30"), "+0530 -19800");
}

TEST(TimeZoneLocalZone, GreenwichReadsPlusZero) {
    EXPECT_EQ(localZoneAt("UTC0"), "+0000 0");
}

TEST(TimeZoneLocalZone, WestReadsTheEveningBefore) {
    EXPECT_EQ(localZoneAt("EST5"), "+1900 -68400");
    EXPECT_EQ(localZoneAt("NST3:30"), "+2030 -73800");
}

TEST(TimeZoneLocalZone, NorthernSummerTimeIsNotSeen) {
    EXPECT_EQ(localZoneAt("CET-1CEST,M3.5.0,M10.5.0/3"), "+0100 -3600");
}

TEST(TimeZoneLocalZone, SouthernJanuaryReadsItsSummerTime) {
    EXPECT_EQ(localZoneAt("NZST-12NZDT,M9.5.0,M4.1.0/3"), "+1300 -46800");
}

TEST(TimeZoneLocalZone, StaysFixedForTheProcess) {
    EXPECT_EQ(tav_test::inZone("CST-8",
                               [] {
                                   std::string const first = shown(tavLocalZone::get());
                                   setenv("TZ", "EST5", 1);
                                   tzset();
                                   return first + ", " + shown(tavLocalZone::get()) + ", " +
                                          shown(tavTimeZone::local());
                               }),
              "+0800 -28800, +0800 -28800, +0800 -28800");
}

TEST(TimeZoneLocalZone, FirstUseByManyThreadsAgrees) {
    EXPECT_EQ(tav_test::inZone("CST-8",
                               [] {
                                   std::vector<std::string> zones(4);
                                   std::vector<std::thread> threads;
                                   for (std::string & zone : zones) {
                                       threads.emplace_back([&zone] { zone = shown(tavLocalZone::get()); });
                                   }
                                   for (std::thread & thread : threads) {
                                       thread.join();
                                   }
                                   return zones[0] + ", " + zones[1] + ", " + zones[2] + ", " + zones[3];
                               }),
              "+0800 -28800, +0800 -28800, +0800 -28800, +0800 -28800");
}

/// 2022-06-01 11:09:29.007 at +0800.
constexpr long long example = 1654052969007;

constexpr char const * summerZone = "EST5EDT,M3.2.0,M11.1.0";

TEST(TimeZoneInSummer, ClockFollowsSummerTimeAndTheZoneTextDoesNot) {
    EXPECT_EQ(tav_test::inZone(summerZone, [] { return text(tavTime::milliseconds(example).str()); }),
              "2022-05-31~23:09:29.007+1900");
}

TEST(TimeZoneInSummer, TextComesBackAnHourLater) {
    EXPECT_EQ(tav_test::inZone(summerZone,
                               [] {
                                   tavTime const t = tavTime::milliseconds(example);
                                   return std::to_string(tavTime::from(t.str()) - t);
                               }),
              "3600000");
}

TEST(TimeZoneInSummer, WinterTextComesBackTheSame) {
    EXPECT_EQ(tav_test::inZone(summerZone,
                               [] {
                                   tavTime const t = tavTime::seconds(1640995200);
                                   return std::to_string(tavTime::from(t.str()) - t);
                               }),
              "0");
}

TEST(TimeZoneInGreenwich, TextEndsInPlusZero) {
    EXPECT_EQ(tav_test::inZone("UTC0", [] { return text(tavTime().str()); }), "1970-01-01~00:00:00.000+0000");
}

} // namespace
