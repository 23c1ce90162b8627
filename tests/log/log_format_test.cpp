#include "tav/vinta/vinta_log.h"

#include "support/log_capture.h"
#include "support/shape.h"
#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using tav_test::LogCapture;

namespace {

/// The build stamp as it stands in a line.
std::string stamp() {
    std::string text = tav::version_t::str();
    text[text.find('.')] = '_';
    return text;
}

/// "{", process, ".", thread, "}" of the caller.
std::string ids() {
    return "{" + std::to_string(::getpid()) + "." + std::to_string(::gettid()) + "}";
}

constexpr std::size_t timeSize = sizeof "2024-03-01~10:20:30.123+0800" - 1;

/// A captured line without its time.
std::string behindTime(LogCapture const & log, std::size_t i = 0) {
    return i < log.records().size() ? log.records()[i].text.substr(timeSize) : "no record";
}

} // namespace

TEST(LogFormat, WholeLine) {
    LogCapture log;
    tavLogger::writeLog("net", tavLogger::INFO, "text\n", "/src/x/client.cpp", 120,
                        "tav::tls::Client::start");
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, tavLogger::INFO);
    EXPECT_EQ(ids() + stamp() + "[INFO]{main}[net]Client::start(client.cpp:120) text\n", behindTime(log));
    EXPECT_TRUE(tav_test::hasShape(log.records()[0].text.substr(0, timeSize), tav_test::timeShape()));
}

TEST(LogFormat, StampIsTimeUnderscoreRevision) {
    std::string const text = stamp();
    ASSERT_LT(9u, text.size());
    std::size_t const digits = text.size() - 9;
    EXPECT_TRUE(tav_test::hasShape(text, std::string(digits, '#') + "_$")) << text;
    EXPECT_EQ(digits, text.find('_'));
}

TEST(LogFormat, LineIsFormattedAtTheTimeOfTheCall) {
    LogCapture log;
    std::string const before(tav_istr(tavTime::now().str()));
    tavLogger::writeLog("t", tavLogger::INFO, "x\n", "f", 1, "g");
    std::string const after(tav_istr(tavTime::now().str()));
    ASSERT_EQ(log.records().size(), 1u);
    std::string const time = log.records()[0].text.substr(0, timeSize);
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
}

TEST(LogFormat, NamesOfTheLevels) {
    LogCapture log;
    struct {
        int level;
        char const * name;
    } const table[] = {{0, "ALL"},   {1, "TRACE"},  {2, "VERBOSE"},  {3, "DEBUG"},
                       {4, "INFO"},  {5, "WARN"},   {6, "ERROR"},    {7, "ASSERT"},
                       {100, "OUT"}, {255, "NONE"}, {-1, "UNKNOWN"}, {42, ""}};
    for (auto const & entry : table) {
        log.clear();
        tavLogger::writeLog("t", static_cast<tavLogger::LogLevel>(entry.level), "x\n", "f", 1, "g");
        EXPECT_EQ(ids() + stamp() + "[" + entry.name + "]{main}[t]g(f:1) x\n", behindTime(log));
        EXPECT_EQ(entry.level, log.records().at(0).level);
    }
}

TEST(LogFormat, WriteLogAsksForNoLevelAndAddsNoLineFeed) {
    LogCapture log("clear(NONE)");
    EXPECT_FALSE(tavLogger::isLoggable("t", tavLogger::TRACE));
    tavLogger::writeLog("t", tavLogger::TRACE, "x", "f", 1, "g");
    EXPECT_EQ(ids() + stamp() + "[TRACE]{main}[t]g(f:1) x", behindTime(log));
}

TEST(LogFormat, MissingPlacesAndTextsAreEmpty) {
    LogCapture log;
    tavLogger::writeLog(tav_istr(), tavLogger::INFO, tav_istr(), nullptr, -5, nullptr);
    EXPECT_EQ(ids() + stamp() + "[INFO]{main}[](:-5) ", behindTime(log));
}

TEST(LogFormat, LineCarriesTheNameAndIdOfItsThread) {
    LogCapture log("clear(ERROR)");
    std::string own;
    tavSharedPtr<tavThread> const thread(new tavThread_(
        "worker", nullptr, nullptr,
        [&own] {
            own = ids();
            tavLogger::writeLog("t", tavLogger::INFO, "x\n", "f", 1, "g");
            return false;
        },
        nullptr));
    thread->start();
    thread->close();
    EXPECT_NE(ids(), own);
    EXPECT_EQ(own + stamp() + "[INFO]{worker}[t]g(f:1) x\n", behindTime(log));
}

TEST(LogFormat, EachThreadHasItsOwnIdAlsoWhenItLogsAgain) {
    LogCapture log;
    for (int i = 0; i < 3; ++i) {
        std::string own;
        log.clear();
        std::thread([&own] {
            own = ids();
            tavLogger::writeLog("t", tavLogger::INFO, "x\n", "f", 1, "g");
            tavLogger::writeLog("t", tavLogger::INFO, "x\n", "f", 1, "g");
        }).join();
        EXPECT_EQ(own + stamp() + "[INFO]{main}[t]g(f:1) x\n", behindTime(log, 0));
        EXPECT_EQ(own + stamp() + "[INFO]{main}[t]g(f:1) x\n", behindTime(log, 1));
    }
}

TEST(LogFormat, AForkedChildLogsItsOwnIds) {
    LogCapture log;
    tavLogger::writeLog("t", tavLogger::INFO, "x\n", "f", 1, "g");
    EXPECT_EQ(ids() + stamp() + "[INFO]{main}[t]g(f:1) x\n", behindTime(log));
    pid_t const child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        log.clear();
        tavLogger::writeLog("t", tavLogger::INFO, "x\n", "f", 1, "g");
        ::_exit(behindTime(log) == ids() + stamp() + "[INFO]{main}[t]g(f:1) x\n" ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(LogFormat, CFunctionsWriteTextAndLineFeedUnderTheDefaultTag) {
    LogCapture log;
    struct {
        void (*write)(char const *, char const *, int, char const *);
        tavLogger::LogLevel level;
        char const * name;
    } const table[] = {
        {&tav_log_trace_, tavLogger::TRACE, "TRACE"}, {&tav_log_verbose_, tavLogger::VERBOSE, "VERBOSE"},
        {&tav_log_debug_, tavLogger::DEBUG, "DEBUG"}, {&tav_log_info_, tavLogger::INFO, "INFO"},
        {&tav_log_warn_, tavLogger::WARN, "WARN"},    {&tav_log_error_, tavLogger::ERROR, "ERROR"},
        {&tav_log_out_, tavLogger::OUT, "OUT"}};
    for (auto const & entry : table) {
        log.clear();
        entry.write("hello", "a/b.c", 9, "ns::f");
        EXPECT_EQ(ids() + stamp() + "[" + entry.name + "]{main}[TAV]ns::f(b.c:9) hello\n", behindTime(log));
        EXPECT_EQ(entry.level, log.records().at(0).level);

        tavLogger::setLogLevel("TAV", static_cast<tavLogger::LogLevel>(entry.level + 1));
        log.clear();
        entry.write("hello", "a/b.c", 9, "ns::f");
        EXPECT_TRUE(log.records().empty());
        tavLogger::setLogLevel("TAV", entry.level);
        entry.write("hello", "a/b.c", 9, "ns::f");
        EXPECT_EQ(log.records().size(), 1u);
        tavLogger::setLogLevel("clear", tavLogger::TRACE);
    }
}

TEST(LogFormat, CFunctionsTakeANullText) {
    LogCapture log;
    tav_log_info_(nullptr, "f", 1, "g");
    EXPECT_EQ(ids() + stamp() + "[INFO]{main}[TAV]g(f:1) \n", behindTime(log));
}

TEST(LogFormat, CallbackGetsTheLineAsACString) {
    static std::string got;
    static int gotLevel = 0;
    tavLogger::setup(
        "",
        [](int level, char const * text) {
            got = text;
            gotLevel = level;
        },
        false, tavLogger::WARN);
    tavLogger::writeLog("t", tavLogger::OUT, "x\n", "f", 1, "g");
    tavLogger::setCallback(nullptr);
    EXPECT_EQ(gotLevel, tavLogger::OUT);
    EXPECT_EQ(ids() + stamp() + "[OUT]{main}[t]g(f:1) x\n", got.substr(timeSize));
    got.clear();
    tavLogger::writeLog("t", tavLogger::OUT, "x\n", "f", 1, "g");
    EXPECT_EQ(got, "");
}

TEST(LogFormat, CallbackThatThrowsReachesTheCallerWithoutAThread) {
    tavLogger::setup(
        "", [](int, char const *) { throw 7; }, false, tavLogger::WARN);
    EXPECT_THROW(tavLogger::writeLog("t", tavLogger::OUT, "x\n", "f", 1, "g"), int);
    tavLogger::setCallback(nullptr);
    tavLogger::writeLog("t", tavLogger::OUT, "x\n", "f", 1, "g");
}

TEST(LogFormat, CallbackMayChangeTheLogger) {
    static int calls = 0;
    calls = 0;
    tavLogger::setup(
        "",
        [](int, char const *) {
            ++calls;
            tavLogger::setLogLevel("t", tavLogger::TRACE);
            tavLogger::setCallback(nullptr);
            tavLogger::flush();
        },
        false, tavLogger::WARN);
    tavLogger::writeLog("t", tavLogger::OUT, "x\n", "f", 1, "g");
    tavLogger::writeLog("t", tavLogger::OUT, "x\n", "f", 1, "g");
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(tavLogger::isLoggable("t", tavLogger::TRACE));
    tavLogger::finalize();
}
