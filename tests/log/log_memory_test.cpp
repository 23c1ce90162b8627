#include "foundation/report.h"

#include "support/heap_meter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using tav_test::HeapMeter;

namespace {

constexpr tav::detail::Site site = {"/src/x/y.cpp", 7, "ns::f"};

std::string last;

void keep(int, char const * text) {
    last = text;
}

void drop(int, char const *) {}

void logTwice(std::string const & half) {
    tav::detail::log("t", tavLogger::INFO, site, [&](std::ostream & out) { out << half << half; });
}

class LogMemory : public testing::Test {
protected:
    void SetUp() override { setup(&drop); }
    void TearDown() override { tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN); }

    static void setup(tavLogger::Callback callback) {
        tavLogger::setup("(clear(INFO))", callback, false, tavLogger::NONE);
    }
};

} // namespace

TEST_F(LogMemory, LineTakesItsTextTwiceAtMost) {
    std::string const half(500000, 'x');
    logTwice(half);
    HeapMeter const meter;
    logTwice(half);
    EXPECT_LE(meter.peak(), 2 * 1000000 + 20000);
    EXPECT_GE(meter.peak(), 1000000);
}

TEST_F(LogMemory, LongTagMakesNoLineDearer) {
    std::string const tag(1000, 't');
    auto const log_long = [&tag, half = std::string(500000, 'x')] {
        tav::detail::log(tav_istr(tag), tavLogger::INFO, site,
                         [&](std::ostream & out) { out << half << half; });
    };
    log_long();
    HeapMeter const meter;
    log_long();
    EXPECT_LE(meter.peak(), 2 * 1000000 + 30000);
}

TEST_F(LogMemory, LineKnowsHowLongItIs) {
    std::vector<long long> told;
    tav::detail::log("t", tavLogger::INFO, site, [&](std::ostream & out) {
        for (std::size_t const size : {0u, 3u, 509u, 16384u, 1u}) {
            out << std::string(size, 'x');
            told.push_back(static_cast<long long>(out.tellp()));
        }
    });
    EXPECT_EQ(told, (std::vector<long long>{0, 3, 512, 16896, 16897}));
}

TEST_F(LogMemory, ShortLineTakesItsRecordAlone) {
    std::string const half(100, 'x');
    logTwice(half);
    HeapMeter const meter;
    logTwice(half);
    EXPECT_LE(meter.taken(), 3) << "the record, and a time and a name that it holds";
}

TEST_F(LogMemory, LineIsWholeWhateverItsLength) {
    setup(&keep);
    for (std::size_t const size : {0u, 1u, 255u, 256u, 257u, 8000u, 8448u, 8449u, 16384u, 16640u, 100000u}) {
        std::string half(size, 'x');
        for (std::size_t i = 0; i < size; ++i) {
            half[i] = static_cast<char>('a' + i % 23);
        }
        logTwice(half);
        std::string const end = "[t]ns::f(y.cpp:7) " + half + half + '\n';
        ASSERT_GE(last.size(), end.size());
        EXPECT_EQ(last.compare(last.size() - end.size(), end.size(), end), 0) << size;
    }
}

TEST_F(LogMemory, BytesOneByOneAreTheSameLine) {
    setup(&keep);
    std::string const text(40000, 'y');
    tav::detail::log("t", tavLogger::INFO, site, [&](std::ostream & out) {
        for (char const c : text) {
            out.put(c);
        }
    });
    EXPECT_NE(last.find(") " + text + '\n'), std::string::npos);
}
