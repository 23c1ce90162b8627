#include "tav/vinta/vinta_log.h"

#include "log/log_file.h"
#include "support/folder.h"
#include "support/in_child.h"
#include "support/shape.h"
#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_basetypes_time.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string const rule(78, '=');

std::string content(std::string const & path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> lines(std::string const & text) {
    std::vector<std::string> out;
    std::size_t first = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', first)) {
        out.push_back(text.substr(first, end - first));
        first = end + 1;
    }
    out.push_back(text.substr(first));
    return out;
}

void write(std::string const & text) {
    tavLogger::writeLog("t", tavLogger::INFO, tav_istr(text), "f", 1, "g");
}

/// How long a line is with a text of no bytes.
std::size_t frame() {
    static std::string got;
    tavLogger::setCallback([](int, char const * text) { got = text; });
    write("");
    tavLogger::setCallback(nullptr);
    return got.size();
}

class LogFile : public testing::Test {
protected:
    void SetUp() override { tavLogger::finalize(); }
    void TearDown() override { tavLogger::finalize(); }

    /// Opens the log, and closes its thread again, so that records go out on this thread.
    void open(int maxSize, tavLogger::Callback callback = nullptr) const { open(path_, maxSize, callback); }

    static void open(std::string const & path, int maxSize, tavLogger::Callback callback = nullptr) {
        tavLogger::open(tav_istr(path), "app", "(clear(NONE))", callback, "1.2", maxSize, false,
                        tavLogger::WARN);
        tavLogger::close();
    }

    /// The same, and the library's own warnings are told.
    static void openTelling(std::string const & path, tavLogger::Callback callback) {
        tavLogger::open(tav_istr(path), "app", "(clear(WARN))", callback, "1.2", 1000000, false,
                        tavLogger::WARN);
        tavLogger::close();
    }

    tav_test::Folder const own_;
    std::string const folder_ = own_.path();
    std::string const path_ = folder_ + "/app.log";
};

/// What stands from the first `part` on.
std::string endFrom(std::string const & text, std::string const & part) {
    std::size_t const at = text.find(part);
    return at != std::string::npos ? text.substr(at) : text;
}

} // namespace

TEST_F(LogFile, BannerIsTheFirstRecordAndHasNineLines) {
    open(123456);
    std::vector<std::string> const banner = lines(content(path_));
    ASSERT_EQ(banner.size(), 10u);
    EXPECT_EQ(banner[0], "");
    EXPECT_EQ(rule, banner[1]);
    EXPECT_EQ(banner[2], "app version 1.2");
    EXPECT_EQ("TAV(Tandem Application Vehicle) " + tav::version_t::str() + "(release)", banner[3]);
    EXPECT_EQ(banner[4], "This software comes without any warranty.");
    EXPECT_TRUE(tav_test::hasShape(banner[5], "Compiled on: @@@ ## #### ##:##:##") ||
                tav_test::hasShape(banner[5], "Compiled on: @@@  # #### ##:##:##"))
        << banner[5];
    EXPECT_TRUE(tav_test::hasShape(banner[6], "Log started: " + tav_test::timeShape())) << banner[6];
    EXPECT_EQ(banner[7], "Log file max size: 123456");
    EXPECT_EQ(rule, banner[8]);
    EXPECT_EQ(banner[9], "");
}

TEST_F(LogFile, BannerIsARecordAtInfoWithoutALineFormat) {
    static std::vector<std::pair<int, std::string>> got;
    got.clear();
    tavLogger::setCallback([](int level, char const * text) { got.emplace_back(level, text); });
    open(1000000);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].first, tavLogger::INFO);
    EXPECT_EQ(content(path_), got[0].second);
}

TEST_F(LogFile, BannerIsPostedAheadOfTheNewCallback) {
    static int former = 0;
    static int fresh = 0;
    former = fresh = 0;
    tavLogger::setCallback([](int, char const *) { ++former; });
    open(1000000, [](int, char const *) { ++fresh; });
    EXPECT_EQ(former, 1);
    EXPECT_EQ(fresh, 0);
    write("x\n");
    EXPECT_EQ(former, 1);
    EXPECT_EQ(fresh, 1);
}

TEST_F(LogFile, RecordsAreAppendedAsTheyAre) {
    open(1000000);
    std::string const banner = content(path_);
    std::size_t const size = frame();
    std::string const before = content(path_);
    write("one\n");
    write("two");
    write("three\n");
    std::string const got = content(path_).substr(before.size());
    EXPECT_EQ(banner, before.substr(0, banner.size()));
    EXPECT_EQ(3 * size + 4 + 3 + 6, got.size());
    EXPECT_EQ(got.substr(size - 1, 5), " one\n");
    EXPECT_EQ(got.substr(2 * size + 4 - 1, 4), " two");
    EXPECT_EQ(got.substr(got.size() - 7), " three\n");
}

TEST_F(LogFile, TextWithNulIsWrittenWhole) {
    open(1000000);
    std::string const before = content(path_);
    write(std::string("a\0b\n", 4));
    std::string const got = content(path_).substr(before.size());
    EXPECT_EQ(got.substr(got.size() - 5), std::string(" a\0b\n", 5));
}

TEST_F(LogFile, RecordThatJustFillsTheFileDoesNotMoveIt) {
    std::size_t const size = frame();
    open(20000);
    write(std::string(20000 - content(path_).size() - size, 'x'));
    EXPECT_EQ(content(path_).size(), 20000u);
    EXPECT_FALSE(fs::exists(path_ + ".bak"));
    testing::internal::CaptureStdout();
    write("");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(content(path_ + ".bak").size(), 20000u);
}

TEST_F(LogFile, RecordOneByteTooLongMovesTheFile) {
    std::size_t const size = frame();
    { std::ofstream(path_) << std::string(5000, 'o'); }
    tavLogger::finalize();
    open(20000);
    std::string const former = content(path_);
    std::size_t const room = 20000 - former.size() - size;
    testing::internal::CaptureStdout();
    write(std::string(room + 1, 'x'));
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(former, content(path_ + ".bak"));
    std::string const got = content(path_);
    std::string const banner = former.substr(5000);
    EXPECT_EQ(banner + "\n", got.substr(0, banner.size() + 1));
    EXPECT_EQ(banner.size() + 1 + size + room + 1, got.size());
    EXPECT_EQ(std::string(room + 1, 'x'), got.substr(got.size() - room - 1));
}

TEST_F(LogFile, SizeOfAnExistingFileCounts) {
    { std::ofstream(path_) << std::string(5000, 'o'); }
    testing::internal::CaptureStdout();
    open(5001);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::string(5000, 'o'), content(path_ + ".bak"));
    EXPECT_EQ("\n" + rule, content(path_).substr(0, 79));
}

TEST_F(LogFile, LimitOfZeroMovesTheFileForEveryRecord) {
    testing::internal::CaptureStdout();
    open(0);
    std::string const first = content(path_);
    ASSERT_EQ(first.size() % 2, 1u);
    std::string const banner = first.substr(0, first.size() / 2);
    EXPECT_EQ(banner + "\n" + banner, first);
    EXPECT_TRUE(fs::exists(path_ + ".bak"));
    EXPECT_EQ(content(path_ + ".bak"), "");
    write("one\n");
    EXPECT_EQ(first, content(path_ + ".bak"));
    std::string const second = content(path_);
    EXPECT_EQ(banner + "\n", second.substr(0, banner.size() + 1));
    write("two\n");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(second, content(path_ + ".bak"));
    EXPECT_EQ(content(path_).find("one"), std::string::npos);
    EXPECT_NE(content(path_).find("two"), std::string::npos);
}

TEST_F(LogFile, NegativeLimitMovesTheFileForEveryRecord) {
    testing::internal::CaptureStdout();
    open(-1);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(fs::exists(path_ + ".bak"));
}

TEST_F(LogFile, MoveIsReportedOnTheDebugger) {
    testing::internal::CaptureStdout();
    open(0);
    std::string const out = testing::internal::GetCapturedStdout();
    std::string const expected = " --- logfile " + path_ + " moved to " + path_ + ".bak\n";
    ASSERT_LT(expected.size(), out.size());
    EXPECT_EQ(out.substr(out.size() - expected.size()), expected);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
}

TEST_F(LogFile, FileThatCannotBeSetAsideGoesOn) {
    open(1000000);
    fs::create_directories(path_ + ".bak/full");
    tavLogger::finalize();
    std::string const before = content(path_);
    testing::internal::CaptureStdout();
    open(10);
    std::string const middle = content(path_);
    write("still here\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    std::string const got = content(path_);
    EXPECT_EQ(before, middle.substr(0, before.size()));
    EXPECT_EQ(middle, got.substr(0, middle.size()));
    EXPECT_EQ(got.substr(got.size() - 12), " still here\n");
    EXPECT_EQ(lines(got.substr(middle.size())).size() - 1, 1u);
}

TEST_F(LogFile, NoPathMeansNoFile) {
    static int calls = 0;
    calls = 0;
    open("", 0, [](int, char const *) { ++calls; });
    write("x\n");
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(LogFile, FileThatCannotBeOpenedDropsItsRecordsAndIsToldOnce) {
    static int calls = 0;
    calls = 0;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    open(folder_ + "/none/app.log", 1000, [](int, char const *) { ++calls; });
    write("x\n");
    open(folder_, 1000, [](int, char const *) { ++calls; });
    write("x\n");
    std::vector<std::string> const told = lines(testing::internal::GetCapturedStdout());
    ASSERT_EQ(told.size(), 3u);
    EXPECT_EQ(" --- logfile " + folder_ + "/none/app.log can't be opened: No such file or directory",
              told[0].substr(told[0].find(" --- ")));
    EXPECT_EQ(" --- logfile " + folder_ + " can't be opened: Is a directory",
              told[1].substr(told[1].find(" --- ")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    // The second banner goes to the first callback.
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(LogFile, FileThatIsLostAgainIsToldAgain) {
    std::string const folder = folder_ + "/sub";
    testing::internal::CaptureStdout();
    open(folder + "/app.log", 100000);
    fs::create_directory(folder);
    write("one\n");
    fs::remove_all(folder);
    write("two\n");
    write("three\n");
    std::string const told = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 2) << told;
}

TEST_F(LogFile, LinesThatAFullDiskDidNotTakeAreCountedAheadOfTheNextOne) {
    static int calls = 0;
    calls = 0;
    fs::create_symlink("/dev/full", path_);
    openTelling(path_, [](int, char const *) { ++calls; });
    for (int i = 0; i < 3; ++i) {
        write("lost\n");
    }
    EXPECT_EQ(calls, 3) << "the callback misses nothing";
    fs::remove(path_);
    write("after\n");
    std::vector<std::string> const got = lines(content(path_));
    ASSERT_EQ(got.size(), 13u) << content(path_);
    EXPECT_EQ(got[2], "app version 1.2") << "the banner is made up for";
    EXPECT_NE(got[10].find("[WARN]{main}[TAV]tavLogger::writeLog(vinta_log.cpp:"), std::string::npos);
    EXPECT_EQ(endFrom(got[10], ") "),
              ") 3 log lines lost, as the file could not be written: No space left on device");
    EXPECT_EQ(endFrom(got[11], ") "), ") after");
    write("next\n");
    EXPECT_EQ(lines(content(path_)).size(), 14u) << "it is told once";
}

TEST_F(LogFile, LinesThatHadNoFileAreCountedAheadOfTheNextOne) {
    std::string const folder = folder_ + "/sub";
    testing::internal::CaptureStdout();
    openTelling(folder + "/app.log", nullptr);
    write("one\n");
    write("two\n");
    fs::create_directory(folder);
    write("three\n");
    testing::internal::GetCapturedStdout();
    std::vector<std::string> const got = lines(content(folder + "/app.log"));
    ASSERT_EQ(got.size(), 13u);
    EXPECT_EQ(endFrom(got[10], ") "),
              ") 2 log lines lost, as the file could not be written: No such file or directory");
    EXPECT_EQ(endFrom(got[11], ") "), ") three");
}

TEST_F(LogFile, LostLinesAreToldAtTheCloseIfNoneFollows) {
    fs::create_symlink("/dev/full", path_);
    openTelling(path_, nullptr);
    write("lost\n");
    fs::remove(path_);
    tavLogger::close();
    std::vector<std::string> const got = lines(content(path_));
    ASSERT_EQ(got.size(), 12u) << content(path_);
    EXPECT_EQ(endFrom(got[10], ") "),
              ") 1 log lines lost, as the file could not be written: No space left on device");
}

TEST_F(LogFile, LostLinesAreNotToldWhereWarningsOfTheLibraryAreSilenced) {
    fs::create_symlink("/dev/full", path_);
    open(1000000);
    write("lost\n");
    fs::remove(path_);
    write("after\n");
    EXPECT_EQ(content(path_).find("lost"), std::string::npos);
    tavLogger::setLogLevel("TAV", tavLogger::WARN);
    write("later\n");
    EXPECT_NE(content(path_).find(" 1 log lines lost, "), std::string::npos);
}

TEST_F(LogFile, ChildOfAForkTellsNothingOfItsParentsLostLines) {
    fs::create_symlink("/dev/full", path_);
    openTelling(path_, nullptr);
    write("lost\n");
    fs::remove(path_);
    EXPECT_TRUE(tav_test::inChild([] {
        write("of the child\n");
        return true;
    }));
    EXPECT_EQ(content(path_).find("lost"), std::string::npos) << content(path_);
    write("of the parent\n");
    EXPECT_NE(content(path_).find(" 1 log lines lost, "), std::string::npos) << content(path_);
}

TEST_F(LogFile, BytesOfThePathReachTheFileSystemUnchanged) {
    for (char const * name : {"/\xc3\xa4\xe4\xbd\xa0.log", "/\xf0\x9f\x98\x80.log", "/\xff\xfe\x80.log"}) {
        std::string const path = folder_ + name;
        testing::internal::CaptureStdout();
        open(path, 0);
        testing::internal::GetCapturedStdout();
        EXPECT_TRUE(fs::exists(path));
        EXPECT_TRUE(fs::exists(path + ".bak"));
        tavLogger::finalize();
    }
}

TEST_F(LogFile, PathEndsAtItsFirstNul) {
    testing::internal::CaptureStdout();
    open(path_ + std::string("\0rest", 5), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(fs::exists(path_));
    EXPECT_TRUE(fs::exists(path_ + ".bak"));
}

TEST_F(LogFile, FileMayBeRemovedOrMovedBetweenRecords) {
    open(1000000);
    fs::remove(path_);
    write("one\n");
    EXPECT_EQ(lines(content(path_)).size() - 1, 1u);
    fs::rename(path_, folder_ + "/other");
    write("two\n");
    EXPECT_NE(content(folder_ + "/other").find("one"), std::string::npos);
    EXPECT_EQ(content(path_).find("one"), std::string::npos);
    EXPECT_NE(content(path_).find("two"), std::string::npos);
}

TEST_F(LogFile, NoDescriptorStaysOpen) {
    open(1000000);
    auto const count = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    auto const before = count();
    for (int i = 0; i < 10; ++i) {
        write("x\n");
    }
    EXPECT_EQ(before, count());
}

TEST_F(LogFile, TextAndBannerAreInTheFileWhenTheCallbackGetsTheRecord) {
    static std::string path;
    static std::string seen;
    path = path_;
    testing::internal::CaptureStdout();
    open(0);
    tavLogger::setCallback([](int, char const *) { seen = content(path); });
    write("now\n");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ("\n" + rule, seen.substr(0, 79));
    EXPECT_EQ(seen.substr(seen.size() - 5), " now\n");
}

TEST_F(LogFile, SecondOpenPutsItsBannerInTheNewFileOnce) {
    open(1000000);
    std::string const former = content(path_);
    std::string const path = folder_ + "/second.log";
    tavLogger::open(tav_istr(path), "other", "(clear(NONE))", nullptr, "3", 1000000, false, tavLogger::WARN);
    tavLogger::open(tav_istr(path + "2"), "third", "(clear(NONE))", nullptr, "3", 1000000, false,
                    tavLogger::WARN);
    tavLogger::close();
    EXPECT_EQ(former, content(path_));
    EXPECT_EQ(lines(content(path)).size(), 10u);
    EXPECT_NE(content(path).find("other version 3\n"), std::string::npos);
    EXPECT_EQ(lines(content(path + "2")).size(), 10u);
    EXPECT_NE(content(path + "2").find("third version 3\n"), std::string::npos);
}

TEST_F(LogFile, SetupLeavesTheFile) {
    open(1000000);
    tavLogger::setup("(clear(NONE))", nullptr, true, tavLogger::WARN);
    std::string const before = content(path_);
    write("x\n");
    EXPECT_LT(before.size(), content(path_).size());
}

TEST_F(LogFile, CFunctionSetupWritesTheStateAtOut) {
    static int calls = 0;
    calls = 0;
    open(1000000, [](int, char const *) { ++calls; });
    std::string const before = content(path_);
    tav_log_setup("(default(WARN)net(DEBUG))");
    std::string const got = content(path_).substr(before.size());
    EXPECT_EQ(calls, 0);
    std::size_t const place = got.find("[OUT]{main}[TAV]tav_log_setup(vinta_log.cpp:");
    ASSERT_NE(place, std::string::npos) << got;
    std::string const tail = ") (default(WARN)net(DEBUG)__console(1)__vip(5))\n";
    EXPECT_EQ(tail, got.substr(got.size() - tail.size()));
}

TEST_F(LogFile, CFunctionSetupTakesNullForNoLevels) {
    tavLogger::setup("(net(DEBUG))", nullptr, false, tavLogger::OUT);
    tav_log_setup(nullptr);
    EXPECT_EQ(std::string(tav_istr(tavLogger::str())), "(default(INFO)net(DEBUG)__console(1)__vip(5))");
}

TEST_F(LogFile, CFunctionSetupWritesNothingWhereOutIsNotLoggable) {
    open(1000000);
    std::string const before = content(path_);
    tav_log_setup("(TAV(NONE))");
    EXPECT_EQ(before, content(path_));
    EXPECT_EQ(std::string(tav_istr(tavLogger::str())), "(default(NONE)TAV(NONE)__console(1)__vip(5))");
    tav_log_setup("(TAV(OUT))");
    EXPECT_LT(before.size(), content(path_).size());
}

TEST_F(LogFile, PipeIsWrittenToAndNeverSetAside) {
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    int const reader = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_LE(0, reader);
    open(0);
    write("hello\n");
    char buffer[4096];
    ssize_t const got = ::read(reader, buffer, sizeof buffer);
    ASSERT_LT(7, got);
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(got)).substr(static_cast<std::size_t>(got) - 7),
              " hello\n");
    EXPECT_TRUE(fs::is_fifo(path_));
    EXPECT_FALSE(fs::exists(path_ + ".bak"));
    tavLogger::finalize();
    ::close(reader);
}

// The thread of a log that was opened anew may still write to the former file.
TEST_F(LogFile, BannerThatAFileLacksIsNotAnothers) {
    using Target = tav::detail::LogFile::Target;
    auto const none = [](unsigned, std::error_code const &) { return std::string(); };
    std::string const backup = path_ + ".bak";
    auto const former =
        std::make_shared<Target const>(Target{folder_ + "/none/app.log", backup, "former\n", 1000});
    auto const next = std::make_shared<Target const>(Target{path_, backup, "next\n", 1000});
    tav::detail::LogFile file;
    testing::internal::CaptureStdout();
    file.writeBanner(next);
    file.writeBanner(former);
    file.write(next, "line\n", none);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(content(path_), "next\nline\n");
}

TEST_F(LogFile, LinesOfTheThreadAreInTheFileAfterAFlush) {
    tavLogger::open(tav_istr(path_), "app", "(clear(NONE))", nullptr, "1.2", 1 << 20, false,
                    tavLogger::ASSERT);
    for (int round = 0; round < 20; ++round) {
        tavLogger::flush();
        fs::remove(path_);
        std::string expected;
        for (int i = 0; i < 50; ++i) {
            std::string const line = std::to_string(round) + '.' + std::to_string(i) + '\n';
            expected += line;
            write(tav_istr(line));
        }
        tavLogger::flush();
        std::string got;
        for (std::string const & line : lines(content(path_))) {
            got += line.empty() ? line : line.substr(line.rfind(' ') + 1) + '\n';
        }
        ASSERT_EQ(got, expected);
    }
}

TEST_F(LogFile, WordOfLostLinesHasNoBannerThatAnotherFileLacks) {
    std::string const backup = path_ + ".bak";
    using Target = tav::detail::LogFile::Target;
    auto const count = [](unsigned lines, std::error_code const &) {
        return "lost " + std::to_string(lines) + '\n';
    };
    auto const former =
        std::make_shared<Target const>(Target{folder_ + "/none/app.log", backup, "former\n", 1000});
    auto const next = std::make_shared<Target const>(Target{path_, backup, "next\n", 1000});
    tav::detail::LogFile file;
    testing::internal::CaptureStdout();
    file.writeBanner(former);
    file.write(former, "line\n", count);
    file.tellLost(next, count);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(content(path_), "lost 1\n");
}

TEST_F(LogFile, IsLeftAloneOnceTheLogIsFinalized) {
    open(1000000);
    std::string const before = content(path_);
    tavLogger::finalize();
    static int told = 0;
    told = 0;
    tavLogger::setCallback([](int, char const *) { ++told; });
    write("x\n");
    EXPECT_EQ(told, 1) << "the line is loggable";
    EXPECT_EQ(before, content(path_));
}
