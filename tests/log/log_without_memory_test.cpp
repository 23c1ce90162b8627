#include "foundation/report.h"

#include "support/failing_allocations.h"
#include "tav/vinta/vinta_log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using tav_test::SparedAllocations;

namespace {

std::vector<std::string> got;

void take(int, char const * text) {
    SparedAllocations const spared;
    got.emplace_back(text);
}

std::string const longWord(3000, 'x');

void tellLong() {
    tav::detail::log("t", tavLogger::INFO, tav::detail::here("g"),
                     [](std::ostream & out) { out << "begin " << longWord << " end"; });
}

bool endsWith(std::string const & text, std::string const & end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

class LogWithoutMemory : public testing::Test {
protected:
    void SetUp() override {
        tavLogger::finalize();
        tavLogger::setup("(clear(INFO))", &take, false, tavLogger::NONE);
        tellLong();
        got.clear();
    }
    void TearDown() override { tavLogger::finalize(); }
};

} // namespace

TEST_F(LogWithoutMemory, ALineIsWholeOrSaysThatItIsCutOrIsToldAsLost) {
    unsigned cut = 0;
    unsigned lost = 0;
    long const failed = tav_test::eachAllocationFails([&] {
        got.clear();
        tellLong();
        bool const happened = tav_test::FailingAllocation::happened();
        SparedAllocations const spared;
        ASSERT_GE(1u, got.size());
        if (got.empty()) {
            ASSERT_TRUE(happened);
            tellLong();
            ASSERT_EQ(got.size(), 2u);
            EXPECT_TRUE(endsWith(got[0], ") 1 log lines lost, as memory was short\n")) << got[0];
            EXPECT_NE(got[0].find("[WARN]{main}[TAV]"), std::string::npos);
            ++lost;
        } else if (!endsWith(got[0], " begin " + longWord + " end\n")) {
            EXPECT_TRUE(endsWith(got[0], "... (cut short)\n")) << got[0];
            EXPECT_TRUE(happened);
            ++cut;
        }
    });
    EXPECT_LT(2, failed);
    EXPECT_LT(0u, cut);
    EXPECT_LT(0u, lost);
}

TEST_F(LogWithoutMemory, LostLinesAreCountedUpToTheNextOne) {
    for (int i = 0; i < 3; ++i) {
        tav::detail::countLostLine();
    }
    tellLong();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_TRUE(endsWith(got[0], ") 3 log lines lost, as memory was short\n"));
    tellLong();
    EXPECT_EQ(got.size(), 3u);
}

TEST_F(LogWithoutMemory, OpeningWritingAndClosingSurviveEachFailedAllocation) {
    long const failed = tav_test::eachAllocationFails([] {
        try {
            tavLogger::open("", "app", "(clear(INFO))", &take, "1", 1000, false, tavLogger::WARN);
            tavLogger::writeLog("t", tavLogger::ERROR, "line\n", "f", 1, "g");
        } catch (std::bad_alloc const &) {
        }
        SparedAllocations const spared;
        tavLogger::close();
    });
    EXPECT_LT(10, failed);
    tavLogger::open("", "app", "(clear(INFO)TAV(NONE))", &take, "1", 1000, false, tavLogger::WARN);
    got.clear();
    tavLogger::writeLog("t", tavLogger::ERROR, "line\n", "f", 1, "g");
    tavLogger::close();
    EXPECT_EQ(got.size(), 1u);
}
