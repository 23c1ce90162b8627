#include "tav/vinta/vinta_basetypes_time.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string text(tavString const & v) {
    return std::string(v.data(), v.size());
}

template <class T>
std::string printed(T const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

std::string parsed(char const * date) {
    return std::to_string(tavTime::from(date).milliseconds());
}

/// All tests of one process share a zone: east of Greenwich by eight hours, without summer time.
class TavTime : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "CST-8", 1);
        tzset();
    }
};

/// 2022-06-01 11:09:29.007 at +0800.
constexpr long long example = 1654052969007;

constexpr long long smallest = std::numeric_limits<long long>::min();
constexpr long long largest = std::numeric_limits<long long>::max();

TEST_F(TavTime, DefaultIsEmptyAndPrintsTheLocalEpoch) {
    tavTime const none;
    EXPECT_EQ(none.milliseconds(), 0);
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(!none);
    EXPECT_EQ(text(none.str()), "1970-01-01~08:00:00.000+0800");
}

TEST_F(TavTime, OneMillisecondIsNotEmpty) {
    EXPECT_FALSE(tavTime::milliseconds(1).empty());
    EXPECT_FALSE(!tavTime::milliseconds(-1));
}

TEST_F(TavTime, NowIsTheSystemClock) {
    struct timespec before = {};
    clock_gettime(CLOCK_REALTIME, &before);
    long long const number = tavTime::currentTimeMillis();
    tavTime const now = tavTime::now();
    struct timespec after = {};
    clock_gettime(CLOCK_REALTIME, &after);
    EXPECT_LE(before.tv_sec * 1000ll + before.tv_nsec / 1000000, number);
    EXPECT_LE(number, now.milliseconds());
    EXPECT_LE(now.milliseconds(), after.tv_sec * 1000ll + after.tv_nsec / 1000000);
}

TEST_F(TavTime, SecondsAndMillisecondsConvert) {
    EXPECT_EQ(tavTime::seconds(2).milliseconds(), 2000);
    EXPECT_EQ(tavTime::seconds(-2).milliseconds(), -2000);
    EXPECT_EQ(tavTime::milliseconds(2999).seconds(), 2);
    EXPECT_EQ(tavTime::milliseconds(-2999).seconds(), -2);
    EXPECT_EQ(tavTime::milliseconds(-999).seconds(), 0);
    EXPECT_EQ(static_cast<long long>(tavTime::milliseconds(example)), example);
}

TEST_F(TavTime, SumsTakeEveryIntegerType) {
    tavTime const t = tavTime::milliseconds(1000);
    EXPECT_EQ((t + 1).milliseconds(), 1001);
    EXPECT_EQ((t + 1u).milliseconds(), 1001);
    EXPECT_EQ((t + 1l).milliseconds(), 1001);
    EXPECT_EQ((t + 1ul).milliseconds(), 1001);
    EXPECT_EQ((t + 1ll).milliseconds(), 1001);
    EXPECT_EQ((t + 1ull).milliseconds(), 1001);
    EXPECT_EQ((t + static_cast<short>(-1)).milliseconds(), 999);
    EXPECT_EQ((t + std::int64_t(5000000000)).milliseconds(), 5000001000);
    static_assert(std::is_same<decltype(t + 1), tavTime>::value, "a sum is a time");
    static_assert(std::is_same<decltype(t + 1ll), tavTime>::value, "a sum is a time");
}

TEST_F(TavTime, DifferenceIsANumberOfMilliseconds) {
    tavTime const a = tavTime::milliseconds(1500);
    tavTime const b = tavTime::seconds(2);
    EXPECT_EQ(b - a, 500);
    EXPECT_EQ(a - b, -500);
    static_assert(std::is_same<decltype(a - b), long long>::value, "a difference is a number");
}

TEST_F(TavTime, ArithmeticBeyondTheRangeWraps) {
    EXPECT_EQ((tavTime::milliseconds(largest) + 1).milliseconds(), smallest);
    EXPECT_EQ(tavTime::milliseconds(smallest) - tavTime::milliseconds(1), largest);
    EXPECT_EQ(tavTime::seconds(largest).milliseconds(), -1000);
}

TEST_F(TavTime, ComparesByValue) {
    tavTime const a = tavTime::milliseconds(1);
    tavTime const b = tavTime::milliseconds(2);
    EXPECT_TRUE(a == a && !(a == b));
    EXPECT_TRUE(a != b && !(a != a));
    EXPECT_TRUE(a < b && !(b < a) && !(a < a));
    EXPECT_TRUE(a <= b && a <= a && !(b <= a));
    EXPECT_TRUE(b > a && !(a > b) && !(a > a));
    EXPECT_TRUE(b >= a && a >= a && !(a >= b));
}

TEST_F(TavTime, ComparesWithNumbers) {
    tavTime const t = tavTime::milliseconds(7);
    EXPECT_TRUE(t == 7);
    EXPECT_TRUE(7 == t);
    EXPECT_TRUE(t != 0);
    EXPECT_TRUE(t > 6ll);
}

TEST_F(TavTime, TextHasAFixedLayout) {
    EXPECT_EQ(text(tavTime::milliseconds(example).str()), "2022-06-01~11:09:29.007+0800");
    EXPECT_EQ(printed(tavTime::milliseconds(example)), "2022-06-01~11:09:29.007+0800");
}

TEST_F(TavTime, TextsOfOneSecondDifferInTheirMilliseconds) {
    EXPECT_EQ(text(tavTime::milliseconds(example - 7).str()), "2022-06-01~11:09:29.000+0800");
    EXPECT_EQ(text(tavTime::milliseconds(example + 992).str()), "2022-06-01~11:09:29.999+0800");
    EXPECT_EQ(text(tavTime::milliseconds(example + 993).str()), "2022-06-01~11:09:30.000+0800");
    EXPECT_EQ(text(tavTime::milliseconds(example + 83).str()), "2022-06-01~11:09:29.090+0800");
}

TEST_F(TavTime, NegativeTimeShowsItsMillisecondsWithoutSign) {
    EXPECT_EQ(text(tavTime::milliseconds(-7).str()), "1970-01-01~08:00:00.007+0800");
    EXPECT_EQ(text(tavTime::milliseconds(-1500).str()), "1970-01-01~07:59:59.500+0800");
}

TEST_F(TavTime, YearsAreNeverCut) {
    EXPECT_EQ(text(tavTime::seconds(253402272000).str()), "10000-01-01~00:00:00.000+0800");
    EXPECT_EQ(text(tavTime::seconds(-62135625600 - 28800 + 28800).str()).substr(0, 11), "0001-01-01~");
    EXPECT_EQ(text(tavTime::milliseconds(largest).str()), "292278994-08-17~15:12:55.807+0800");
    EXPECT_EQ(text(tavTime::seconds(-62167219200 - 28800).str()), "0000-01-01~00:00:00.000+0800");
    EXPECT_EQ(text(tavTime::seconds(-62167219201 - 28800).str()), "-001-12-31~23:59:59.000+0800");
}

TEST_F(TavTime, TextFormIsTheSameOnEveryThread) {
    std::vector<std::thread> threads;
    std::vector<std::string> texts(4);
    for (std::string & out : texts) {
        threads.emplace_back([&out] {
            for (int i = 0; i < 1000; ++i) {
                out = text(tavTime::milliseconds(example + i - 999).str());
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(texts, std::vector<std::string>(4, "2022-06-01~11:09:29.007+0800"));
}

TEST_F(TavTime, ReadsWithSeparatorsAndWithout) {
    EXPECT_EQ(parsed("2022-06-01~11:09:29.007+0800"), std::to_string(example));
    EXPECT_EQ(parsed("20220601110929"), std::to_string(example - 7));
    EXPECT_EQ(parsed("2022-06-01 11:09:29"), std::to_string(example - 7));
    EXPECT_EQ(parsed("on 2022/06/01 at 11h09m29s"), std::to_string(example - 7));
}

TEST_F(TavTime, EachFieldTakesItsDigitsAndNoMore) {
    EXPECT_EQ(parsed("20220601110929123"), std::to_string(example - 7));
    EXPECT_EQ(parsed("2022-006-01"), parsed("2022-00-6 01:00:00"));
    EXPECT_EQ(parsed("2022-06-01 11:09:029"), parsed("2022-06-01 11:09:02"));
}

TEST_F(TavTime, ReadsThroughTheMarkedConstructor) {
    std::string const date = "20220601110929";
    tav_time const marked{tav_istr(date)};
    EXPECT_EQ(marked.data(), date.data());
    EXPECT_EQ(marked.size(), 14u);
    EXPECT_EQ(tavTime(marked).milliseconds(), example - 7);
    tavTime const implicit = tav_time("20220601110929");
    EXPECT_EQ(implicit.milliseconds(), example - 7);
}

TEST_F(TavTime, ZoneInTheTextIsIgnored) {
    EXPECT_EQ(parsed("2022-06-01~11:09:29.007-0500"), std::to_string(example));
    EXPECT_EQ(parsed("2022-06-01~11:09:29.007Z"), std::to_string(example));
}

TEST_F(TavTime, MillisecondsAreAPlainNumber) {
    EXPECT_EQ(parsed("20220601110929.5"), std::to_string(example - 2));
    EXPECT_EQ(parsed("20220601110929.123456"), std::to_string(example + 116));
    EXPECT_EQ(parsed("20220601110929."), std::to_string(example - 7));
}

TEST_F(TavTime, MillisecondsNeedThePointRightBehind) {
    EXPECT_EQ(parsed("20220601110929 .5"), std::to_string(example - 7));
    EXPECT_EQ(parsed("20220601110929,5"), std::to_string(example - 7));
}

TEST_F(TavTime, SignBehindThePointIsSkipped) {
    EXPECT_EQ(parsed("2022-06-01~11:09:29.+0800"), std::to_string(example - 7 + 80));
}

TEST_F(TavTime, ShortTextLeavesTheRestZero) {
    EXPECT_EQ(text(tavTime::from("2022-06-01").str()), "2022-06-01~00:00:00.000+0800");
    EXPECT_EQ(text(tavTime::from("2022-06-01~11").str()), "2022-06-01~11:00:00.000+0800");
}

TEST_F(TavTime, MonthAndDayZeroAreThoseBefore) {
    EXPECT_EQ(text(tavTime::from("2022").str()), "2021-11-30~00:00:00.000+0800");
}

TEST_F(TavTime, TextWithoutDigitsIsMinusOneSecond) {
    EXPECT_EQ(parsed(""), "-1000");
    EXPECT_EQ(tavTime::from(tav_istr()).milliseconds(), -1000);
    EXPECT_EQ(parsed("no date"), "-1000");
    EXPECT_EQ(tavTime::from(tav_istr(static_cast<char const *>(nullptr), 9u)).milliseconds(), -1000);
}

TEST_F(TavTime, DateOfZerosIsMinusOneSecondPlusMilliseconds) {
    EXPECT_EQ(parsed("0000-00-00~00:00:00.007"), "-993");
    EXPECT_EQ(parsed("0000-00-00~11:09:29.500"), "-500");
}

TEST_F(TavTime, DatesBefore1970AreRead) {
    EXPECT_EQ(parsed("1969-12-31~23:59:59.250"), std::to_string(-28801 * 1000ll + 250));
    EXPECT_EQ(parsed("0001-01-01"), std::to_string((-62135596800ll - 28800) * 1000));
}

TEST_F(TavTime, TextReadsBackAsTheSameTime) {
    for (long long const v : {0ll, 1ll, 999ll, example, example + 993, 951782399999ll, 4102444799001ll}) {
        tavTime const t = tavTime::milliseconds(v);
        EXPECT_EQ(tavTime::from(t.str()).milliseconds(), v);
    }
}

TEST_F(TavTime, LocalTimeOfMillisecondsAndSeconds) {
    struct tm const a = tavTime::millisToLocal(example);
    EXPECT_EQ(a.tm_year, 122);
    EXPECT_EQ(a.tm_mon, 5);
    EXPECT_EQ(a.tm_mday, 1);
    EXPECT_EQ(a.tm_hour, 11);
    EXPECT_EQ(a.tm_min, 9);
    EXPECT_EQ(a.tm_sec, 29);
    EXPECT_EQ(a.tm_wday, 3);
    EXPECT_EQ(tavTime::millisToLocal(-999).tm_hour, 8);
    EXPECT_EQ(tavTime::secondsToLocal(86400).tm_mday, 2);
}

TEST_F(TavTime, SecondWithoutAYearGivesZeros) {
    struct tm const a = tavTime::secondsToLocal(largest);
    EXPECT_EQ(a.tm_year, 0);
    EXPECT_EQ(a.tm_mday, 0);
}

TEST_F(TavTime, LocalToMillisTakesWholeSeconds) {
    struct tm local = tavTime::millisToLocal(example);
    EXPECT_EQ(tavTime::localToMillis(local), example - 7);
    local.tm_mday += 30;
    EXPECT_EQ(tavTime::localToMillis(local), example - 7 + 30 * 86400000ll);
    EXPECT_EQ(local.tm_mday, 31);
}

TEST_F(TavTime, LocalToMillisOfNoTimeIsMinusOneSecond) {
    struct tm local = {};
    local.tm_year = std::numeric_limits<int>::max();
    local.tm_mon = std::numeric_limits<int>::max();
    EXPECT_EQ(tavTime::localToMillis(local), -1000);
}

TEST(CheckTime, FirstQuestionIsExpiredAndTheSecondIsNot) {
    tavCheckTime check;
    tavTime const now = tavTime::now();
    EXPECT_TRUE(check.expired(now, 1000));
    EXPECT_FALSE(check.expired(now, 1000));
}

TEST(CheckTime, ExpiresAtTheIntervalExactly) {
    tavCheckTime check;
    check.update(tavTime::milliseconds(5000));
    EXPECT_FALSE(check.expired(tavTime::milliseconds(5999), 1000));
    EXPECT_TRUE(check.expired(tavTime::milliseconds(6000), 1000));
    EXPECT_FALSE(check.expired(tavTime::milliseconds(6999), 1000));
    EXPECT_TRUE(check.expired(tavTime::milliseconds(7500), 1000));
    EXPECT_FALSE(check.expired(tavTime::milliseconds(8499), 1000));
}

TEST(CheckTime, StartsAtZero) {
    tavCheckTime check;
    EXPECT_FALSE(check.expired(tavTime::milliseconds(999), 1000));
    EXPECT_TRUE(check.expired(tavTime::milliseconds(1000), 1000));
}

TEST(CheckTime, IntervalOfZeroIsAlwaysExpired) {
    tavCheckTime check;
    tavTime const now = tavTime::now();
    EXPECT_TRUE(check.expired(now, 0));
    EXPECT_TRUE(check.expired(now, 0));
}

TEST(CheckTime, GivesOneThreadTheTurn) {
    tavCheckTime check;
    std::vector<int> turns(4);
    std::vector<std::thread> threads;
    for (int & mine : turns) {
        threads.emplace_back([&check, &mine] {
            for (int i = 1; i <= 1000; ++i) {
                mine += check.expired(tavTime::milliseconds(1000000), 1000) ? 1 : 0;
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(turns[0] + turns[1] + turns[2] + turns[3], 1);
}

} // namespace
