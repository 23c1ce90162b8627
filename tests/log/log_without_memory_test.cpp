#include "foundation/report.h"
#include "log/log_file.h"

#include "support/failing_allocations.h"
#include "support/folder.h"
#include "tav/vinta/vinta_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <string>
#include <vector>

using tav_test::SparedAllocations;
namespace fs = std::filesystem;

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

/// A log in a folder that may be missing, without a thread.
class Files {
public:
    explicit Files(int maxSize) : folder_(home_.path() + "/sub"), maxSize_(maxSize) {}

    std::string path() const { return folder_ + "/app.log"; }
    void come() { fs::create_directory(folder_); }
    /// As it is at the beginning of a run.
    void begin(bool there) {
        fs::remove_all(folder_);
        if (there) {
            come();
        }
        tavLogger::finalize();
        tavLogger::open(tav_istr(path()), "app", "(clear(NONE)t(INFO)TAV(WARN))", nullptr, "1", maxSize_,
                        false, tavLogger::NONE);
        tavLogger::close();
    }
    /// How many lines the files have, and how many they tell as lost.
    unsigned toldOf() const {
        unsigned sum = 0;
        for (std::string const & each : {path() + ".bak", path()}) {
            std::ifstream in(each);
            for (std::string line; std::getline(in, line);) {
                std::size_t const lost = line.find(" log lines lost, ");
                if (lost != std::string::npos) {
                    sum += static_cast<unsigned>(std::stoul(line.substr(line.rfind(' ', lost - 1))));
                } else {
                    sum += line.find(" a line of its own") != std::string::npos ? 1 : 0;
                }
            }
        }
        return sum;
    }
    unsigned banners() const {
        unsigned sum = 0;
        std::ifstream in(path());
        for (std::string line; std::getline(in, line);) {
            sum += line == "app version 1" ? 1 : 0;
        }
        return sum;
    }

private:
    tav_test::Folder const home_;
    std::string const folder_;
    int const maxSize_;
};

/// Whether it was taken.
bool writeOwn() {
    try {
        tavLogger::writeLog("t", tavLogger::INFO, "a line of its own, that is no short text\n", "f", 1, "g");
        return true;
    } catch (std::bad_alloc const &) {
        return false;
    }
}

/// Each line that was taken is in the files once, or is told there as lost once.
void expectEachToldOnce(Files & files, bool there, int lines) {
    tav_test::allocationsOwn = true;
    tav_test::onlyOwnAllocations = true;
    std::cout.setstate(std::ios::badbit);
    long const failed = tav_test::eachAllocationFails([&] {
        {
            SparedAllocations const spared;
            files.begin(there);
        }
        unsigned taken = 0;
        for (int i = 0; i < lines; ++i) {
            taken += writeOwn() ? 1 : 0;
        }
        SparedAllocations const spared;
        files.come();
        taken += writeOwn() ? 1 : 0;
        EXPECT_EQ(files.toldOf(), taken);
        EXPECT_EQ(files.banners(), 1u);
    });
    std::cout.clear();
    tav_test::onlyOwnAllocations = false;
    EXPECT_LT(5, failed);
}

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

TEST_F(LogWithoutMemory, ALineThatHasNoFileIsCountedOnce) {
    Files files(100000);
    expectEachToldOnce(files, false, 3);
}

TEST_F(LogWithoutMemory, ALineThatMovesTheFileIsWrittenOrCountedOnce) {
    Files files(1200);
    expectEachToldOnce(files, true, 8);
}

// The file is full but for a short line, and is moved aside for the banner.
TEST_F(LogWithoutMemory, ABannerThatThereWasNoMemoryForComesWithTheNextLine) {
    Files files(100000);
    std::cout.setstate(std::ios::badbit);
    long const failed = tav_test::eachAllocationFails([&] {
        SparedAllocations const spared;
        tav::detail::LogFile file;
        files.begin(true);
        std::ofstream(files.path()) << std::string(90, 'x');
        auto const to = std::make_shared<tav::detail::LogFile::Target const>(
            tav::detail::LogFile::Target{files.path(), files.path() + ".bak", "app version 1\n", 100});
        tav_test::allocationsSpared = false;
        try {
            file.writeBanner(to);
        } catch (std::bad_alloc const &) {
        }
        tav_test::allocationsSpared = true;
        file.write(to, "short", [](unsigned, std::error_code const &) { return std::string(); });
        EXPECT_GE(files.banners(), 1u);
    });
    std::cout.clear();
    EXPECT_LT(0, failed);
}
